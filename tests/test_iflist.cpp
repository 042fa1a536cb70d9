// Interface and hardware address lists: the adapter-table protocol and the
// pair rules on a table the test scripts, then the real lists, inside a
// private network namespace on Linux and on the host everywhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "ZyNetwork/OsAdapters.h"
#include "ZyNetwork/ZyIFListInternal.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"
#include "support/NetNamespace.h"

#if !defined(_WIN32)
#include <sched.h>
#include <sys/mount.h>
#endif

namespace
{
typedef std::pair<CZyIPAddr, CZyIPAddr> AddrPair;

std::string Text(const CZyIPAddr& address)
{
    CZyString text;
    address.GetAddressString(text);
    return text.str();
}

zyos::AdapterUnicast Unicast(const char* text, unsigned int prefix)
{
    zyos::AdapterUnicast unicast;
    std::memset(&unicast, 0, sizeof(unicast));
    ZYNET_str2ip(text, &unicast.address);
    unicast.prefixLength = prefix;
    return unicast;
}

// Keeps every line written, with its level and component.
class CapturingLog : public CLogWriterInterface
{
public:
    struct Line
    {
        int level;
        std::string function;
        std::string text;
    };
    int level = 2;
    std::vector<Line> lines;

    int GetLogLevel() const override { return level; }
    void SetLogLevel(int value) override { level = value; }
    void Flush() override {}
    void Write(int lineLevel, const char* function, int, int, int, int, const char* format, ...) override
    {
        va_list args;
        va_start(args, format);
        lines.push_back({lineLevel, function, FXString::FormatArgList(format, args)});
        va_end(args);
    }
    bool Has(const std::string& text, int lineLevel) const
    {
        for (const Line& line : lines)
            if (line.text == text && line.level == lineLevel)
                return true;
        return false;
    }
};

// Installs a capturing writer for the life of the object.
struct LogCapture
{
    boost::shared_ptr<CapturingLog> log{new CapturingLog()};
    boost::shared_ptr<CLogWriterInterface> previous = g_ptrLogWriter;
    LogCapture() { g_ptrLogWriter = log; }
    ~LogCapture() { g_ptrLogWriter = previous; }
};

// A table whose answers the test chooses; it records what it was asked.
class ScriptedTable : public zyos::AdapterTable
{
public:
    uint32_t sizeResult = zyos::ADAPTERS_BUFFER_OVERFLOW;
    uint32_t sizeBytes = 2048;
    bool allocateOk = true;
    uint32_t fillResult = zyos::ADAPTERS_OK;
    std::vector<zyos::AdapterInfo> table;

    std::vector<int> families;
    uint32_t allocated = 0;
    bool released = false;

    uint32_t QuerySize(int family, uint32_t* bytes) override
    {
        families.push_back(family);
        *bytes = sizeBytes;
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
        if (fillResult == zyos::ADAPTERS_OK)
            filled = table;
        return fillResult;
    }
    void Release() override { released = true; }
    const std::vector<zyos::AdapterInfo>& Adapters() const override { return filled; }

private:
    std::vector<zyos::AdapterInfo> filled;
};

zyos::AdapterInfo Adapter(const char* name, uint32_t type, uint32_t status, std::vector<uint8_t> hardware,
                          std::vector<zyos::AdapterUnicast> unicast)
{
    zyos::AdapterInfo info;
    info.name = name;
    info.type = type;
    info.operStatus = status;
    info.physicalAddress = std::move(hardware);
    info.unicast = std::move(unicast);
    return info;
}
}  // namespace

TEST(IFListRules, PairsGiveNetworkAddressAndTheIPv6Group)
{
    AddrPair pair;
    ASSERT_TRUE(zyiflist::MakeInterfacePair(Unicast("192.168.10.7", 24), pair));
    EXPECT_EQ(Text(pair.first), "192.168.10.7");
    EXPECT_EQ(Text(pair.second), "192.168.10.0");  // the network, not the mask
    ASSERT_TRUE(zyiflist::MakeInterfacePair(Unicast("10.1.31.200", 20), pair));
    EXPECT_EQ(Text(pair.second), "10.1.16.0");
    ASSERT_TRUE(zyiflist::MakeInterfacePair(Unicast("10.1.31.200", 32), pair));
    EXPECT_EQ(Text(pair.second), "10.1.31.200");
    ASSERT_TRUE(zyiflist::MakeInterfacePair(Unicast("200.1.2.3", 1), pair));
    EXPECT_EQ(Text(pair.second), "128.0.0.0");

    // Prefix 0 or above 32: a default-built address (cleared, preferred family).
    for (unsigned int prefix : {0u, 33u, 255u})
    {
        ASSERT_TRUE(zyiflist::MakeInterfacePair(Unicast("10.1.2.3", prefix), pair));
        EXPECT_EQ(Text(pair.first), "10.1.2.3");
        ZYNET_SockAddr cleared;
        std::memset(&cleared, 0, sizeof(cleared));
        cleared.family = static_cast<uint16_t>(CZyIPAddr::GetPreferredFamily());
        EXPECT_EQ(std::memcmp(pair.second.SockAddrPtr(), &cleared, sizeof(cleared)), 0) << prefix;
    }

    // IPv6: an IPv4 record holding the fourth group and two zero bytes,
    // whatever the prefix; the port stays 0.
    zyos::AdapterUnicast v6 = Unicast("fd00:0:0:1234:5678::7", 64);
    v6.address.in6.port = 0x5000;
    ASSERT_TRUE(zyiflist::MakeInterfacePair(v6, pair));
    EXPECT_EQ(pair.first.GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV6);
    EXPECT_EQ(pair.second.GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV4);
    EXPECT_EQ(Text(pair.second), "18.52.0.0");
    EXPECT_EQ(pair.second.GetPortNumber(), 0);

    zyos::AdapterUnicast odd = Unicast("10.0.0.1", 8);
    odd.address.family = 17;
    EXPECT_FALSE(zyiflist::MakeInterfacePair(odd, pair));

    EXPECT_EQ(zyiflist::FormatHardwareAddress({0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(zyiflist::FormatHardwareAddress({0xAB, 0x00}), "ab:00");
    EXPECT_EQ(zyiflist::FormatHardwareAddress({}), "");
}

TEST(IFListProtocol, FailuresOfEachCallGiveTheirCodesAndLogLines)
{
    LogCapture capture;
    std::vector<AddrPair> pairs;

    ScriptedTable unexpected;
    unexpected.sizeResult = 87;
    CZyError err = zyiflist::CollectInterfacePairs(unexpected, pairs, CZyIPAddr::IP_FAMILY_IPV4);
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Can't figure out buffer space for adapter addresses.");
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddr::GetIFList");
    EXPECT_STREQ(err.GetItems()[0]->Location().File(), "ZyNetwork/ZyIFList");
    EXPECT_TRUE(capture.log->Has("Can't figure out buffer space for adapter addresses.", -1));
    EXPECT_TRUE(capture.log->Has("Expected error: 232 or 111 (), but received 87", -1));
    EXPECT_EQ(unexpected.families, std::vector<int>{2});  // no second call

    ScriptedTable noMemory;
    noMemory.allocateOk = false;
    noMemory.sizeBytes = 777;
    err = zyiflist::CollectInterfacePairs(noMemory, pairs, 0);
    EXPECT_TRUE(err.Is(8));
    EXPECT_EQ(err.GetErrorMessage(), "Error allocating memory for pAdapterAddBuff");
    EXPECT_EQ(noMemory.allocated, 777u);
    EXPECT_TRUE(capture.log->Has("Error allocating memory for pAdapterAddBuff", -1));

    ScriptedTable fillFails;
    fillFails.fillResult = 111;  // the table grew between the calls
    std::vector<std::string> macs{"kept"};
    err = zyiflist::CollectHardwareAddresses(fillFails, macs, 0);
    EXPECT_TRUE(err.Is(111));
    EXPECT_EQ(err.GetErrorMessage(), "Error fetching adapter addresses");
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddr::GetMACList");
    EXPECT_TRUE(fillFails.released);
    EXPECT_TRUE(capture.log->Has("Error fetching adapter addresses: 111", -1));
    EXPECT_EQ(macs, std::vector<std::string>{"kept"});

    // No data: success with nothing, noticed only above level 1.
    ScriptedTable empty;
    empty.sizeResult = 232;
    capture.log->lines.clear();
    capture.log->level = 1;
    pairs.assign(1, AddrPair());
    EXPECT_FALSE(zyiflist::CollectInterfacePairs(empty, pairs, 23).IsError());
    EXPECT_TRUE(pairs.empty());
    EXPECT_TRUE(capture.log->lines.empty());
    capture.log->level = 2;
    EXPECT_FALSE(zyiflist::CollectHardwareAddresses(empty, macs, 23).IsError());
    EXPECT_TRUE(capture.log->Has("No interfaces available", 2));
    EXPECT_EQ(macs, std::vector<std::string>{"kept"});
}

TEST(IFListProtocol, UsesUpAdaptersAndLoopbackInTableOrder)
{
    LogCapture capture;
    ScriptedTable table;
    zyos::AdapterUnicast unknown = Unicast("10.9.9.9", 8);
    unknown.address.family = 17;
    table.table.push_back(Adapter("eth0", zyos::ADAPTER_TYPE_ETHERNET, zyos::ADAPTER_OPER_UP,
                                  {0x02, 0x00, 0x00, 0xaa, 0xbb, 0xcc},
                                  {Unicast("192.168.10.7", 24), unknown, Unicast("fd00::1234:0:0:7", 64)}));
    table.table.push_back(Adapter("eth1", zyos::ADAPTER_TYPE_ETHERNET, zyos::ADAPTER_OPER_DOWN,
                                  {0x02, 0x00, 0x00, 0xdd, 0xee, 0xff}, {Unicast("192.168.20.9", 24)}));
    // Loopback counts even when it is not up.
    table.table.push_back(Adapter("lo", zyos::ADAPTER_TYPE_SOFTWARE_LOOPBACK, zyos::ADAPTER_OPER_DOWN, {},
                                  {Unicast("127.0.0.1", 8)}));
    table.table.push_back(Adapter("tun0", zyos::ADAPTER_TYPE_OTHER, zyos::ADAPTER_OPER_UP, {}, {}));
    table.table.push_back(Adapter("eth2", zyos::ADAPTER_TYPE_ETHERNET, zyos::ADAPTER_OPER_UP,
                                  {0x02, 0x00, 0x00, 0xaa, 0xbb, 0xcc}, {}));

    std::vector<AddrPair> pairs(3);  // emptied first
    ASSERT_FALSE(zyiflist::CollectInterfacePairs(table, pairs, 0).IsError());
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_EQ(Text(pairs[0].first), "192.168.10.7");
    EXPECT_EQ(Text(pairs[0].second), "192.168.10.0");
    EXPECT_EQ(Text(pairs[1].first), "fd00::1234:0:0:7");
    EXPECT_EQ(Text(pairs[1].second), "0.0.0.0");  // the fourth group of fd00:0:0:0:1234:... is 0
    EXPECT_EQ(Text(pairs[2].first), "127.0.0.1");
    EXPECT_EQ(Text(pairs[2].second), "127.0.0.0");
    EXPECT_TRUE(capture.log->Has("Skipping disabled interface 'eth1'", 2));
    EXPECT_TRUE(capture.log->Has("Unknown address family (17), skipping", 2));
    EXPECT_EQ(table.families, (std::vector<int>{0, 0}));
    EXPECT_EQ(table.allocated, 2048u);
    EXPECT_TRUE(table.released);

    // Hardware addresses: the second call always lists every family;
    // adapters without one add nothing, duplicates stay, the list grows.
    ScriptedTable again;
    again.table = table.table;
    std::vector<std::string> macs{"first"};
    ASSERT_FALSE(zyiflist::CollectHardwareAddresses(again, macs, CZyIPAddr::IP_FAMILY_IPV6).IsError());
    EXPECT_EQ(macs, (std::vector<std::string>{"first", "02:00:00:aa:bb:cc", "02:00:00:aa:bb:cc"}));
    EXPECT_EQ(again.families, (std::vector<int>{23, 0}));
}

TEST(IFList, GetAllInterfacesNeedsARequest)
{
    CZyIPAddr::GetAllInterfacesArgs_t args{false, false};
    CZyIPAddr::GetAllInterfacesRet_t ret;
    CZyError err = CZyIPAddr::GetAllInterfaces(args, ret, CZyIPAddr::IP_FAMILY_UNSPEC);
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Nothing requested in arguments.");
    EXPECT_TRUE(ret.addressTexts.empty() && ret.interfaces.empty() && ret.hostNames.empty());
}

// The machine's own lists (the host on Linux, Wine's view on Windows): they
// are there, and every pair follows the rules.
TEST(IFList, HostListsFollowThePairRules)
{
    std::vector<AddrPair> pairs;
    CZyError err = CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_UNSPEC);
    ASSERT_FALSE(err.IsError()) << err.AsString();
    ASSERT_FALSE(pairs.empty());
    size_t outsideLoopback = 0;
    bool sawIPv4 = false;
    for (const AddrPair& p : pairs)
    {
        const ZYNET_SockAddr* first = p.first.SockAddrPtr();
        const ZYNET_SockAddr* second = p.second.SockAddrPtr();
        ASSERT_TRUE(first->family == ZYNET_AF_INET || first->family == ZYNET_AF_INET6) << first->family;
        if (first->family == ZYNET_AF_INET)
        {
            sawIPv4 = true;
            if (second->family == ZYNET_AF_INET)
            {
                // The network address: a leading part of the address's bits.
                uint32_t a = 0, n = 0;
                for (int i = 0; i < 4; ++i)
                {
                    a = (a << 8) | first->in4.addr[i];
                    n = (n << 8) | second->in4.addr[i];
                }
                bool isNetwork = false;
                for (int prefix = 0; prefix <= 32 && !isNetwork; ++prefix)
                {
                    uint32_t mask = prefix == 0 ? 0 : 0xFFFFFFFFu << (32 - prefix);
                    isNetwork = (a & mask) == n;
                }
                EXPECT_TRUE(isNetwork) << Text(p.first) << " " << Text(p.second);
            }
        }
        else
        {
            EXPECT_EQ(second->family, ZYNET_AF_INET);
            EXPECT_EQ(second->in4.addr[0], first->in6.addr[6]);
            EXPECT_EQ(second->in4.addr[1], first->in6.addr[7]);
            EXPECT_EQ(second->in4.addr[2] | second->in4.addr[3], 0);
        }
        std::string text = Text(p.first);
        if (text != "127.0.0.1" && text != "::1")
            ++outsideLoopback;
    }
    EXPECT_TRUE(sawIPv4);

    std::vector<CZyIPAddr> addresses(1, CZyIPAddr("10.11.12.13"));
    ASSERT_FALSE(CZyIPAddr::GetIFList(addresses, CZyIPAddr::IP_FAMILY_IPV4).IsError());
    ASSERT_GE(addresses.size(), 2u);
    EXPECT_EQ(Text(addresses[0]), "10.11.12.13");  // appended behind the caller's entries
    for (size_t i = 1; i < addresses.size(); ++i)
        EXPECT_EQ(addresses[i].GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV4);

    std::vector<std::string> macs;
    err = CZyIPAddr::GetMACList(macs, CZyIPAddr::IP_FAMILY_UNSPEC);
    ASSERT_FALSE(err.IsError()) << err.AsString();
    for (const std::string& mac : macs)
    {
        EXPECT_FALSE(mac.empty());
        EXPECT_NE(mac.back(), ':');
        EXPECT_EQ(mac, FXString::ToLower(mac));
    }

    CZyIPAddr::GetAllInterfacesArgs_t args{true, false};
    CZyIPAddr::GetAllInterfacesRet_t ret;
    ASSERT_FALSE(CZyIPAddr::GetAllInterfaces(args, ret, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    EXPECT_TRUE(std::is_sorted(ret.addressTexts.begin(), ret.addressTexts.end()));
    EXPECT_EQ(ret.addressTexts.size(), outsideLoopback);
    for (const std::string& text : ret.addressTexts)
        EXPECT_TRUE(text != "127.0.0.1" && text != "::1") << text;
    EXPECT_TRUE(ret.hostNames.empty());
}

#if !defined(_WIN32)
namespace
{
// The pairs as sorted texts.
std::vector<std::pair<std::string, std::string>> Texts(const std::vector<AddrPair>& pairs)
{
    std::vector<std::pair<std::string, std::string>> out;
    for (const AddrPair& p : pairs)
        out.emplace_back(Text(p.first), Text(p.second));
    std::sort(out.begin(), out.end());
    return out;
}

// Collects failed checks inside the namespace child.
struct Checks
{
    std::string failures;
    void Expect(bool ok, const std::string& what)
    {
        if (!ok)
            failures += what + "; ";
    }
};

std::string SetUpTestNetwork()
{
    const char* commands[] = {
        "ip link add zv0 type veth peer name zv1",
        "ip link set zv0 address 02:00:00:aa:bb:cc",
        "ip link set zv1 address 02:00:00:aa:bb:cd",
        "ip link set zv0 addrgenmode none",
        "ip link set zv1 addrgenmode none",
        "ip addr add 192.168.10.7/24 dev zv0",
        "ip addr add fd00:0:0:1234::7/64 dev zv0 nodad",
        "ip addr add 192.168.10.8/24 dev zv1",
        "ip link set zv0 up",
        "ip link set zv1 up",
        // A second pair, configured but left down.
        "ip link add zw0 type veth peer name zw1",
        "ip link set zw0 address 02:00:00:dd:ee:ff",
        "ip link set zw0 addrgenmode none",
        "ip link set zw1 addrgenmode none",
        "ip addr add 192.168.20.9/24 dev zw0",
    };
    for (const char* command : commands)
        if (zytest::Shell(command) != 0)
            return std::string("set-up failed: ") + command;
    // A veth runs once both ends are up; the kernel notes it shortly after.
    for (int i = 0; i < 100; ++i)
    {
        if (zytest::Shell("ip -o link show dev zv0 | grep -q 'state UP' && "
                          "ip -o link show dev zv1 | grep -q 'state UP'") == 0)
            return std::string();
        ZYSLEEP(50);
    }
    return "zv0 and zv1 did not come up";
}
}  // namespace

TEST(IFListNamespace, ListsUpInterfacesAndLoopbackOnly)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and network namespaces (Linux)";
    std::string result = zytest::RunInNetNamespace([] {
        std::string setup = SetUpTestNetwork();
        if (!setup.empty())
            return setup;
        LogCapture capture;
        Checks c;
        typedef std::vector<std::pair<std::string, std::string>> Expected;

        std::vector<AddrPair> pairs;
        CZyError err = CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_UNSPEC);
        c.Expect(!err.IsError(), "GetIFList(0): " + err.AsString());
        Expected want{{"127.0.0.1", "127.0.0.0"},
                      {"192.168.10.7", "192.168.10.0"},
                      {"192.168.10.8", "192.168.10.0"},
                      {"::1", "0.0.0.0"},
                      {"fd00:0:0:1234::7", "18.52.0.0"}};
        std::sort(want.begin(), want.end());
        c.Expect(Texts(pairs) == want, "pairs of family 0");
        c.Expect(capture.log->Has("Skipping disabled interface 'zw0'", 2), "zw0 not reported as skipped");

        err = CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_IPV4);
        Expected want4{{"127.0.0.1", "127.0.0.0"}, {"192.168.10.7", "192.168.10.0"}, {"192.168.10.8", "192.168.10.0"}};
        c.Expect(!err.IsError() && Texts(pairs) == want4, "pairs of family 2");
        err = CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_IPV6);
        Expected want6{{"::1", "0.0.0.0"}, {"fd00:0:0:1234::7", "18.52.0.0"}};
        c.Expect(!err.IsError() && Texts(pairs) == want6, "pairs of family 23");

        std::vector<std::string> macs;
        err = CZyIPAddr::GetMACList(macs, CZyIPAddr::IP_FAMILY_IPV6);
        std::sort(macs.begin(), macs.end());
        c.Expect(!err.IsError() && macs == (std::vector<std::string>{"02:00:00:aa:bb:cc", "02:00:00:aa:bb:cd"}),
                 "hardware addresses");

        // Without any IPv6 address the IPv6 table has no data: empty lists.
        if (zytest::Shell("ip -6 addr flush dev lo && ip -6 addr flush dev zv0") != 0)
            return std::string("flush failed");
        capture.log->lines.clear();
        pairs.assign(2, AddrPair());
        err = CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_IPV6);
        c.Expect(!err.IsError() && pairs.empty(), "no IPv6 addresses: empty pair list");
        c.Expect(capture.log->Has("No interfaces available", 2), "no-data notice");
        macs.assign(1, "kept");
        err = CZyIPAddr::GetMACList(macs, CZyIPAddr::IP_FAMILY_IPV6);
        c.Expect(!err.IsError() && macs == std::vector<std::string>{"kept"}, "no IPv6 addresses: no MACs");
        return c.failures;
    });
    EXPECT_EQ(result, "");
}

TEST(IFListNamespace, GetAllInterfacesSortsTextsAndUniquesNames)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and network namespaces (Linux)";
    std::string result = zytest::RunInNetNamespace([] {
        // Names come from a hosts file of this test only, in a private
        // mount namespace; stray queries would go to this namespace's
        // loopback, where nothing answers.
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return std::string("SKIP: no private mount namespace");
        std::string dir = "/tmp/zyiflist-" + std::to_string(FXProcess::getProcessId());
        zytest::Shell("mkdir -p " + dir);
        std::ofstream(dir + "/hosts") << "127.0.0.1 localhost\n"
                                         "192.168.10.7 ZyHost.Test\n"
                                         "192.168.10.8 zyhost.test\n"
                                         "fd00:0:0:1234::7 ZYHOST6.test\n";
        std::ofstream(dir + "/resolv.conf") << "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n";
        bool mounted = mount((dir + "/hosts").c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) == 0 &&
                       mount((dir + "/resolv.conf").c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr) == 0;
        if (!mounted)
            return std::string("SKIP: cannot bind the test's hosts file");
        std::string setup = SetUpTestNetwork();
        if (!setup.empty())
            return setup;
        Checks c;
        CZyIPAddr::GetAllInterfacesArgs_t args{false, true};
        CZyIPAddr::GetAllInterfacesRet_t ret;
        CZyError err = CZyIPAddr::GetAllInterfaces(args, ret, CZyIPAddr::IP_FAMILY_UNSPEC);
        c.Expect(!err.IsError(), "GetAllInterfaces: " + err.AsString());
        c.Expect(args.wantAddresses, "host names imply addresses");
        std::vector<std::string> texts{"192.168.10.7", "192.168.10.8", "fd00:0:0:1234::7"};
        c.Expect(ret.addressTexts == texts, "address texts");
        c.Expect(ret.interfaces.size() == 5, "interfaces hold loopback too");
        std::vector<std::string> names{"zyhost.test", "zyhost6.test"};
        c.Expect(ret.hostNames == names, "host names lower-cased and unique");

        // A second call into the same result: the interfaces are appended
        // and walked again, so every text now stands three times, while the
        // names stay unique.
        err = CZyIPAddr::GetAllInterfaces(args, ret, CZyIPAddr::IP_FAMILY_UNSPEC);
        std::vector<std::string> tripled;
        for (const std::string& text : texts)
            tripled.insert(tripled.end(), 3, text);
        c.Expect(!err.IsError() && ret.addressTexts == tripled, "address texts keep duplicates");
        c.Expect(ret.hostNames == names, "host names stay unique");
        zytest::Shell("rm -rf " + dir);
        return c.failures;
    });
    if (result.rfind("SKIP:", 0) == 0)
        GTEST_SKIP() << result;
    EXPECT_EQ(result, "");
}
#endif
