// CIDR helpers of CZyIPAddr: prefix to mask, and the within-block test with
// its lenient prefix parsing.
#include <gtest/gtest.h>

#include <string>

#include "ZyNetwork/ZyIPAddr.h"

namespace
{
bool Within(const char* address, const char* block)
{
    bool within = false;
    CZyError err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(address, block, within);
    EXPECT_FALSE(err.IsError()) << address << " in " << block << ": " << err.AsString();
    return within;
}

std::string MaskText(int prefix)
{
    CZyString mask("unchanged");
    EXPECT_FALSE(CZyIPAddr::ConvertCIDRPrefixToSubnetMaskString(prefix, mask).IsError());
    return mask.str();
}
}  // namespace

TEST(Cidr, WithinBlock)
{
    EXPECT_TRUE(Within("10.1.2.3", "10.0.0.0/8"));
    EXPECT_FALSE(Within("10.1.2.3", "10.0.0.0/16"));
    EXPECT_TRUE(Within("10.1.2.3", "10.1.2.3/32"));
    EXPECT_FALSE(Within("10.1.2.4", "10.1.2.3/32"));
    // Prefixes that are not whole bytes.
    EXPECT_TRUE(Within("10.1.16.5", "10.1.31.200/20"));
    EXPECT_FALSE(Within("10.1.32.0", "10.1.31.200/20"));
    EXPECT_TRUE(Within("127.0.0.1", "0.0.0.0/1"));
    EXPECT_FALSE(Within("128.0.0.1", "0.0.0.0/1"));
}

TEST(Cidr, PrefixesWithoutAMaskMatchEverything)
{
    EXPECT_TRUE(Within("192.168.1.1", "10.0.0.0/0"));
    EXPECT_TRUE(Within("192.168.1.1", "10.0.0.0/40"));
    EXPECT_TRUE(Within("192.168.1.1", "10.0.0.0/-8"));
    EXPECT_TRUE(Within("192.168.1.1", "10.0.0.0/abc"));
    // The prefix is read as a leading number; extra pieces are ignored.
    EXPECT_FALSE(Within("192.168.1.1", "10.0.0.0/8abc"));
    EXPECT_TRUE(Within("10.200.1.1", "10.0.0.0/8/9"));
    EXPECT_FALSE(Within("11.0.0.1", "10.0.0.0/8/9"));
}

TEST(Cidr, BadBlocksAndAddressesAreRefused)
{
    const char* const kFunction = "CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock";
    bool within = true;
    CZyError err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock("10.1.2.3", "10.0.0.0", within);
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorMessage(), "Invalid CIDR block: [10.0.0.0].");
    ASSERT_TRUE(err.IsError());
    EXPECT_STREQ(err.GetItems().front()->Location().Function(), kFunction);
    EXPECT_TRUE(CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock("10.1.2.3", "", within).Is(87));

    // Conversion failures come back with this function's location on top.
    err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock("10.1.2.3", "ten/8", within);
    ASSERT_TRUE(err.IsError());
    EXPECT_GE(err.GetItems().size(), 2u);
    EXPECT_STREQ(err.GetItems().back()->Location().Function(), kFunction);
    err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock("10.1.2.x", "10.0.0.0/8", within);
    ASSERT_TRUE(err.IsError());
    EXPECT_STREQ(err.GetItems().back()->Location().Function(), kFunction);

    // IPv6 texts have no 32-bit word to compare.
    err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock("::1", "10.0.0.0/8", within);
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorMessage(), "Invalid IPv4 address: [::1].");
    err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock("10.1.2.3", "fe80::/10", within);
    EXPECT_EQ(err.GetErrorMessage(), "Invalid CIDR block: [fe80::/10].");
    EXPECT_TRUE(within) << "a refused check must leave the result alone";
}

TEST(Cidr, PrefixToMask)
{
    EXPECT_EQ(MaskText(24), "255.255.255.0");
    EXPECT_EQ(MaskText(32), "255.255.255.255");
    EXPECT_EQ(MaskText(1), "128.0.0.0");
    EXPECT_EQ(MaskText(19), "255.255.224.0");

    // Out-of-range prefixes leave the address entirely as it was, port too.
    CZyIPAddr address;
    ASSERT_FALSE(address.SetAddressString("192.0.2.1").IsError());
    address.SetPortNumber(99);
    for (int prefix : {0, -1, 33})
    {
        EXPECT_FALSE(address.SetSubnetMaskFromCIDRPrefix(prefix).IsError());
        CZyString text;
        address.GetAddressString(text);
        EXPECT_EQ(text.str(), "192.0.2.1") << prefix;
    }
    EXPECT_FALSE(address.SetSubnetMaskFromCIDRPrefix(16).IsError());
    CZyString text;
    address.GetAddressString(text);
    EXPECT_EQ(text.str(), "255.255.0.0");
    EXPECT_EQ(address.GetPortNumber(), 99);

    // Prefix 0 gives the text of a cleared address of the preferred family;
    // with no preference that does not convert and the text is kept.
    CZyString zero("unchanged");
    CZyIPAddr cleared;
    std::string expected = cleared.GetAddressString(zero).IsError() ? "unchanged" : zero.str();
    EXPECT_EQ(MaskText(0), expected);
}
