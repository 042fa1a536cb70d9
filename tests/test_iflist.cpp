// Interface and hardware address lists: the table protocol and pair rules on
// a table the test scripts, then the real lists on the host and, on Linux,
// inside a private network namespace built by the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "ZyNetwork/Internal/ZyIFListInternal.h"
#include "ZyUtils/ZyTime.h"
#include "support/LogCapture.h"
#include "support/NetNamespace.h"
#include "support/TestEnv.h"

namespace
{
typedef std::pair<CZyIPAddr, CZyIPAddr> AddrPair;
typedef std::vector<std::pair<std::string, std::string>> PairTexts;

using zytest::Text;

PairTexts Texts(const std::vector<AddrPair>& pairs)
{
    PairTexts out;
    for (const AddrPair& p : pairs)
        out.emplace_back(Text(p.first), Text(p.second));
    std::sort(out.begin(), out.end());
    return out;
}

zy::os::AdapterUnicast Unicast(const char* text, unsigned int prefix)
{
    zy::os::AdapterUnicast unicast;
    std::memset(&unicast, 0, sizeof(unicast));
    ZYNET_str2ip(text, &unicast.address);
    unicast.prefixLength = prefix;
    return unicast;
}

using zytest::LogCapture;

// A table whose answers the test chooses; it records the families asked.
struct ScriptedTable : zy::os::AdapterTable
{
    uint32_t sizeResult = zy::os::ADAPTERS_BUFFER_OVERFLOW;
    bool allocateOk = true;
    uint32_t fillResult = zy::os::ADAPTERS_OK;
    std::vector<zy::os::AdapterInfo> table, filled;
    std::vector<int> families;
    uint32_t allocated = 0;
    bool released = false;

    uint32_t QuerySize(int family, uint32_t* bytes) override
    {
        families.push_back(family);
        *bytes = 2048;
        return sizeResult;
    }
    bool Allocate(uint32_t bytes) override
    {
        allocated = bytes;
        return allocateOk;
    }
    uint32_t Fill(int family) override
    {
        families.push_back(family);
        if (fillResult == zy::os::ADAPTERS_OK)
            filled = table;
        return fillResult;
    }
    void Release() override { released = true; }
    const std::vector<zy::os::AdapterInfo>& Adapters() const override { return filled; }
    void Add(const char* name, uint32_t type, uint32_t status, std::vector<uint8_t> hardware,
             std::vector<zy::os::AdapterUnicast> unicast)
    {
        table.push_back(zy::os::AdapterInfo{name, type, status, std::move(hardware), std::move(unicast)});
    }
};
}  // namespace

TEST(IFListRules, PairsGiveNetworkAddressAndTheIPv6Group)
{
    AddrPair pair;
    const std::pair<const char*, unsigned int> v4[] = {{"10.1.31.200", 20}, {"10.1.31.200", 32}, {"200.1.2.3", 1}};
    const char* networks[] = {"10.1.16.0", "10.1.31.200", "128.0.0.0"};
    for (size_t i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(zy::iflist::MakeInterfacePair(Unicast(v4[i].first, v4[i].second), pair));
        EXPECT_EQ(Text(pair.first), v4[i].first);
        EXPECT_EQ(Text(pair.second), networks[i]);  // the network, not the mask
    }
    for (unsigned int prefix : {0u, 33u})  // no usable prefix: a default-built address
    {
        ASSERT_TRUE(zy::iflist::MakeInterfacePair(Unicast("10.1.2.3", prefix), pair));
        ZYNET_SockAddr cleared;
        std::memset(&cleared, 0, sizeof(cleared));
        cleared.family = static_cast<uint16_t>(CZyIPAddr::GetPreferredFamily());
        EXPECT_EQ(std::memcmp(pair.second.SockAddrPtr(), &cleared, sizeof(cleared)), 0) << prefix;
    }
    // IPv6: an IPv4 record with the fourth 16-bit group and two zero bytes.
    zy::os::AdapterUnicast v6 = Unicast("fd00:0:0:1234:5678::7", 64);
    v6.address.in6.port = 0x5000;
    ASSERT_TRUE(zy::iflist::MakeInterfacePair(v6, pair));
    EXPECT_EQ(pair.first.GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV6);
    EXPECT_EQ(Text(pair.second), "18.52.0.0");
    EXPECT_EQ(pair.second.GetPortNumber(), 0);
    v6.address.family = 17;
    EXPECT_FALSE(zy::iflist::MakeInterfacePair(v6, pair));
    EXPECT_EQ(zy::iflist::FormatHardwareAddress({0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xEE}), "00:1a:2b:3c:4d:ee");
}

TEST(IFListProtocol, EachFailingCallGivesItsCode)
{
    LogCapture log;  // keeps the expected error lines off the output
    std::vector<AddrPair> pairs;
    ScriptedTable unexpected;
    unexpected.sizeResult = 87;
    CZyError err = zy::iflist::CollectInterfacePairs(unexpected, pairs, CZyIPAddr::IP_FAMILY_IPV4);
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Can't figure out buffer space for adapter addresses.");
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddr::GetIFList");
    EXPECT_EQ(unexpected.families, std::vector<int>{2});

    ScriptedTable noMemory;
    noMemory.allocateOk = false;
    err = zy::iflist::CollectInterfacePairs(noMemory, pairs, 0);
    EXPECT_TRUE(err.Is(8));
    EXPECT_EQ(err.GetErrorMessage(), "Error allocating memory for pAdapterAddBuff");
    EXPECT_EQ(noMemory.allocated, 2048u);

    ScriptedTable fillFails;
    fillFails.fillResult = 111;  // the table grew between the calls
    std::vector<std::string> macs{"kept"};
    err = zy::iflist::CollectHardwareAddresses(fillFails, macs, 0);
    EXPECT_TRUE(err.Is(111));
    EXPECT_EQ(err.GetErrorMessage(), "Error fetching adapter addresses");
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddr::GetMACList");
    EXPECT_TRUE(fillFails.released);

    // No data: success and nothing listed.
    ScriptedTable empty;
    empty.sizeResult = 232;
    pairs.resize(1);
    EXPECT_FALSE(zy::iflist::CollectInterfacePairs(empty, pairs, 23).IsError());
    EXPECT_TRUE(pairs.empty());
    EXPECT_FALSE(zy::iflist::CollectHardwareAddresses(empty, macs, 23).IsError());
    EXPECT_EQ(macs, std::vector<std::string>{"kept"});
}

TEST(IFListProtocol, UsesUpAdaptersAndLoopbackInTableOrder)
{
    LogCapture log;
    ScriptedTable t;
    zy::os::AdapterUnicast odd = Unicast("10.9.9.9", 8);
    odd.address.family = 17;
    const std::vector<uint8_t> mac{0x02, 0, 0, 0xaa, 0xbb, 0xcc};
    t.Add("eth0", zy::os::ADAPTER_TYPE_ETHERNET, zy::os::ADAPTER_OPER_UP, mac,
          {Unicast("192.168.10.7", 24), odd, Unicast("fd00::1234:0:0:7", 64)});
    t.Add("eth1", zy::os::ADAPTER_TYPE_ETHERNET, zy::os::ADAPTER_OPER_DOWN, {2, 0, 0, 0xdd, 0xee, 0xff},
          {Unicast("192.168.20.9", 24)});
    t.Add("lo", zy::os::ADAPTER_TYPE_SOFTWARE_LOOPBACK, zy::os::ADAPTER_OPER_DOWN, {}, {Unicast("127.0.0.1", 8)});
    t.Add("eth2", zy::os::ADAPTER_TYPE_ETHERNET, zy::os::ADAPTER_OPER_UP, mac, {});

    std::vector<AddrPair> pairs(3);  // emptied first
    ASSERT_FALSE(zy::iflist::CollectInterfacePairs(t, pairs, 0).IsError());
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_EQ(Text(pairs[0].first) + " " + Text(pairs[0].second), "192.168.10.7 192.168.10.0");
    EXPECT_EQ(Text(pairs[1].first) + " " + Text(pairs[1].second), "fd00::1234:0:0:7 0.0.0.0");
    EXPECT_EQ(Text(pairs[2].first) + " " + Text(pairs[2].second), "127.0.0.1 127.0.0.0");  // down loopback counts
    EXPECT_TRUE(t.released);
    EXPECT_TRUE(log.Has("-1|Skipping disabled interface 'eth1'") &&
                log.Has("-1|Unknown address family (17), skipping"));

    // The second call always lists every family; duplicates stay and the
    // list grows behind what it held.
    ScriptedTable again;
    again.table = t.table;
    std::vector<std::string> macs{"first"};
    ASSERT_FALSE(zy::iflist::CollectHardwareAddresses(again, macs, CZyIPAddr::IP_FAMILY_IPV6).IsError());
    EXPECT_EQ(macs, (std::vector<std::string>{"first", "02:00:00:aa:bb:cc", "02:00:00:aa:bb:cc"}));
    EXPECT_EQ(again.families, (std::vector<int>{23, 0}));
}

// The machine's own lists (the host on Linux, Wine's view on Windows).
TEST(IFList, HostListsFollowTheRules)
{
    CZyIPAddr::GetAllInterfacesArgs_t args{false, false};
    CZyIPAddr::GetAllInterfacesRet_t ret;
    CZyError err = CZyIPAddr::GetAllInterfaces(args, ret, CZyIPAddr::IP_FAMILY_UNSPEC);
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorMessage(), "Nothing requested in arguments.");

    std::vector<AddrPair> pairs;
    ZYTEST_ASSERT_OK(CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_UNSPEC));
    PairTexts texts = Texts(pairs);
    EXPECT_TRUE(std::count(texts.begin(), texts.end(), PairTexts::value_type("127.0.0.1", "127.0.0.0")));
    size_t outsideLoopback = 0;
    for (const AddrPair& p : pairs)
        outsideLoopback += Text(p.first) != "127.0.0.1" && Text(p.first) != "::1";
    std::vector<CZyIPAddr> addresses(1, CZyIPAddr("10.11.12.13"));
    ASSERT_FALSE(CZyIPAddr::GetIFList(addresses, CZyIPAddr::IP_FAMILY_IPV4).IsError());
    ASSERT_GE(addresses.size(), 2u);
    EXPECT_EQ(Text(addresses[0]), "10.11.12.13");  // appended behind the caller's entries

    std::vector<std::string> macs;
    EXPECT_FALSE(CZyIPAddr::GetMACList(macs, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    args.wantAddresses = true;
    ASSERT_FALSE(CZyIPAddr::GetAllInterfaces(args, ret, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    EXPECT_TRUE(std::is_sorted(ret.addressTexts.begin(), ret.addressTexts.end()));
    EXPECT_EQ(ret.addressTexts.size(), outsideLoopback);
    EXPECT_EQ(std::count(ret.addressTexts.begin(), ret.addressTexts.end(), "127.0.0.1"), 0);
}

#if !defined(_WIN32)
namespace
{
// zv0 (MAC 02:00:00:aa:bb:cc, 192.168.10.7/24, fd00:0:0:1234::7) with its
// peer zv1 (192.168.10.8/24), both up and running; zw0/zw1 configured but down.
std::string SetUpTestNetwork()
{
    const char* script =
        "set -e; ip link add zv0 type veth peer name zv1; ip link add zw0 type veth peer name zw1;"
        "for i in zv0 zv1 zw0 zw1; do ip link set $i addrgenmode none; done;"
        "ip link set zv0 address 02:00:00:aa:bb:cc; ip link set zv1 address 02:00:00:aa:bb:cd;"
        "ip link set zw0 address 02:00:00:dd:ee:ff; ip addr add 192.168.20.9/24 dev zw0;"
        "ip addr add 192.168.10.7/24 dev zv0; ip addr add fd00:0:0:1234::7/64 dev zv0 nodad;"
        "ip addr add 192.168.10.8/24 dev zv1; ip link set zv0 up; ip link set zv1 up";
    if (zytest::Shell(script) != 0)
        return "network set-up failed";
    for (int i = 0; i < 100; ++i)  // the kernel marks a veth running shortly after
    {
        if (zytest::Shell("ip -o link show dev zv0 | grep -q 'state UP'") == 0)
            return std::string();
        ZYSLEEP(50);
    }
    return "zv0 did not come up";
}
}  // namespace

TEST(IFListNamespace, ListsUpInterfacesAndLoopbackOnly)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and network namespaces (Linux)";
    std::string result = zytest::RunInNetNamespace([] {
        std::string hosts = zytest::UseHostsFile("192.168.10.7 ZyHost.Test\n192.168.10.8 zyhost.test\n"
                                                 "fd00:0:0:1234::7 ZYHOST6.test\n");
        if (!hosts.empty())
            return "SKIP: " + hosts;
        std::string setup = SetUpTestNetwork();
        if (!setup.empty())
            return setup;

        LogCapture log;
        zytest::Checks c;
        std::vector<AddrPair> pairs;
        CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_UNSPEC);
        c.Expect(Texts(pairs) == PairTexts{{"127.0.0.1", "127.0.0.0"}, {"192.168.10.7", "192.168.10.0"},
                                           {"192.168.10.8", "192.168.10.0"}, {"::1", "0.0.0.0"},
                                           {"fd00:0:0:1234::7", "18.52.0.0"}},
                 "pairs of family 0");
        CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_IPV6);
        c.Expect(Texts(pairs) == PairTexts{{"::1", "0.0.0.0"}, {"fd00:0:0:1234::7", "18.52.0.0"}},
                 "pairs of family 23");
        std::vector<std::string> macs;
        CZyIPAddr::GetMACList(macs, CZyIPAddr::IP_FAMILY_IPV4);
        std::sort(macs.begin(), macs.end());
        c.Expect(macs == std::vector<std::string>{"02:00:00:aa:bb:cc", "02:00:00:aa:bb:cd"}, "MACs");

        CZyIPAddr::GetAllInterfacesArgs_t args{false, true};
        CZyIPAddr::GetAllInterfacesRet_t ret;
        CZyError err = CZyIPAddr::GetAllInterfaces(args, ret, CZyIPAddr::IP_FAMILY_UNSPEC);
        c.Expect(!err.IsError() && args.wantAddresses, "host names imply addresses");
        std::vector<std::string> texts{"192.168.10.7", "192.168.10.8", "fd00:0:0:1234::7"};
        std::vector<std::string> names{"zyhost.test", "zyhost6.test"};
        c.Expect(ret.addressTexts == texts && ret.interfaces.size() == 5, "address texts");
        c.Expect(ret.hostNames == names, "host names lower-cased and unique");

        // Without IPv6 addresses the IPv6 table has no data.
        zytest::Shell("ip -6 addr flush dev lo; ip -6 addr flush dev zv0");
        err = CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_IPV6);
        c.Expect(!err.IsError() && pairs.empty(), "no IPv6");
        return c.text;
    });
    if (result.rfind("SKIP:", 0) == 0)
        GTEST_SKIP() << result;
    EXPECT_EQ(result, "");
}
#endif
