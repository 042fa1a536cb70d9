// CIDR helpers of CZyIPAddr: prefix to mask, and the within-block test with
// its lenient prefix parsing.
#include <gtest/gtest.h>

#include <string>

#include "ZyNetwork/ZyIPAddr.h"

namespace
{
// Asked twice, from both starting values, so that a result left unwritten
// shows.
bool Within(const char* address, const char* block)
{
    bool fromFalse = false, fromTrue = true;
    CZyError err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(address, block, fromFalse);
    EXPECT_FALSE(err.IsError()) << address << " in " << block << ": " << err.AsString();
    CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(address, block, fromTrue);
    EXPECT_EQ(fromFalse, fromTrue) << address << " in " << block;
    return fromFalse;
}

CZyError Refusal(const char* address, const char* block)
{
    bool within = true;
    CZyError err = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(address, block, within);
    EXPECT_TRUE(within) << "a refused check must leave the result alone";
    EXPECT_TRUE(err.IsError() && err.GetItems().back()->Location().Function() ==
                                     std::string("CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock"))
        << address << " in " << block;
    return err;
}
}  // namespace

TEST(Cidr, WithinBlock)
{
    EXPECT_TRUE(Within("10.1.2.3", "10.1.2.3/32"));
    EXPECT_TRUE(Within("10.1.16.5", "10.1.31.200/20"));
    EXPECT_FALSE(Within("10.1.32.0", "10.1.31.200/20"));
    // No mask for these prefixes: everything is within.
    EXPECT_TRUE(Within("192.168.1.1", "10.0.0.0/0"));
    EXPECT_TRUE(Within("192.168.1.1", "10.0.0.0/33"));
    EXPECT_TRUE(Within("192.168.1.1", "10.0.0.0/abc"));
    // The prefix is a leading number; pieces after a second slash are ignored.
    EXPECT_FALSE(Within("192.168.1.1", "10.0.0.0/8abc"));
    EXPECT_FALSE(Within("11.0.0.1", "10.0.0.0/8/9"));
}

TEST(Cidr, BadBlocksAndAddressesAreRefused)
{
    CZyError err = Refusal("10.1.2.3", "10.0.0.0");
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorMessage(), "Invalid CIDR block: [10.0.0.0].");
    // Conversion failures are passed on from the conversion.
    EXPECT_GE(Refusal("10.1.2.3", "ten/8").GetItems().size(), 2u);
    EXPECT_GE(Refusal("10.1.2.x", "10.0.0.0/8").GetItems().size(), 2u);
    // IPv6 texts have no 32-bit word to compare.
    EXPECT_EQ(Refusal("::1", "10.0.0.0/8").GetErrorMessage(), "Invalid IPv4 address: [::1].");
    EXPECT_EQ(Refusal("10.1.2.3", "fe80::/10").GetErrorMessage(), "Invalid CIDR block: [fe80::/10].");
}

TEST(Cidr, PrefixToMask)
{
    CZyString mask;
    ASSERT_FALSE(CZyIPAddr::ConvertCIDRPrefixToSubnetMaskString(24, mask).IsError());
    EXPECT_EQ(mask.str(), "255.255.255.0");
    // No preference is set here, so /0 leaves a zero address of no family,
    // which has no text: the mask keeps its value and the call succeeds.
    ASSERT_FALSE(CZyIPAddr::ConvertCIDRPrefixToSubnetMaskString(0, mask).IsError());
    EXPECT_EQ(mask.str(), "255.255.255.0");

    // Out-of-range prefixes leave the address as it was; a mask keeps the port.
    CZyIPAddr address;
    ASSERT_FALSE(address.SetAddressString("192.0.2.1").IsError());
    address.SetPortNumber(99);
    for (int prefix : {0, -1, 33})
    {
        EXPECT_FALSE(address.SetSubnetMaskFromCIDRPrefix(prefix).IsError());
        address.GetAddressString(mask);
        EXPECT_EQ(mask.str(), "192.0.2.1") << prefix;
    }
    for (auto expected : {std::make_pair(1, "128.0.0.0"), std::make_pair(19, "255.255.224.0"),
                          std::make_pair(32, "255.255.255.255")})
    {
        EXPECT_FALSE(address.SetSubnetMaskFromCIDRPrefix(expected.first).IsError());
        address.GetAddressString(mask);
        EXPECT_EQ(mask.str(), expected.second);
    }
    EXPECT_EQ(address.GetPortNumber(), 99);
}
