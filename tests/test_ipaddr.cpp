// CZyIPAddr: value rules, resolution (path rule, appending, the 127.0.53.53
// collision sentinel) and the stack probes.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "support/NetNamespace.h"
#include "support/TestEnv.h"

namespace
{
const CZyIPAddr::IP_FAMILY kAny = CZyIPAddr::IP_FAMILY_UNSPEC;
const CZyIPAddr::IP_FAMILY kV4 = CZyIPAddr::IP_FAMILY_IPV4;

using zytest::Text;

CZyIPAddr Parse(const char* text)
{
    CZyIPAddr address;
    EXPECT_FALSE(address.SetAddressString(text).IsError()) << text;
    return address;
}

const char* Outermost(const CZyError& err)
{
    return err.IsError() ? err.GetItems().back()->Location().Function() : "<success>";
}
}  // namespace

TEST(CZyIPAddr, PortsEqualityAndPlatformRecords)
{
    // Nothing here sets the preference: a cleared address has no family, so
    // it has no port and equals nothing, not even itself.
    CZyIPAddr cleared;
    ASSERT_EQ(cleared.GetAddressFamily(), kAny);
    EXPECT_FALSE(cleared == cleared);
    CZyError err = cleared.SetPortNumber(80);
    EXPECT_TRUE(err.Is(774));
    EXPECT_EQ(err.GetErrorMessage(), "Address family not set");

    // Ports keep their low 16 bits in network order and do not take part in
    // equality; nor do IPv6 flow information and scope.
    CZyIPAddr a = Parse("10.1.2.3"), b = Parse("10.1.2.3");
    ASSERT_FALSE(a.SetPortNumber(0x12345).IsError());
    EXPECT_EQ(a.GetPortNumber(), 0x2345);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(&a.SockAddrPtr()->in4.port)[0], 0x23);
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a != Parse("::ffff:10.1.2.3"));
    CZyIPAddr x = Parse("2001:db8::5"), y = Parse("2001:db8::5");
    y.SockAddrPtr()->in6.scope_id = 3;
    y.SockAddrPtr()->in6.flowinfo = 7;
    ASSERT_FALSE(y.SetPortNumber(8080).IsError());
    EXPECT_EQ(y.GetPortNumber(), 8080);
    EXPECT_TRUE(x == y);

    // A path has no port: setting one succeeds and stores nothing.
    CZyIPAddr path("/tmp/zy-a");
    ZYNET_SockAddr before = path.GetSockAddr();
    EXPECT_FALSE(path.SetPortNumber(99).IsError());
    EXPECT_EQ(std::memcmp(&before, path.SockAddrPtr(), sizeof(before)), 0);
    EXPECT_TRUE(path != CZyIPAddr("/tmp/zy-ab"));

    // Platform records carry the platform's family (AF_INET6 is 10 on
    // Linux); the stored family is 23 either way.
    sockaddr_in6 in6;
    std::memset(&in6, 0, sizeof(in6));
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(4433);
    in6.sin6_addr.s6_addr[15] = 1;
    CZyIPAddr fromV6(in6);
    EXPECT_EQ(fromV6.GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV6);
    EXPECT_EQ(Text(fromV6), "::1");
    sockaddr_in6 back = fromV6.GetIPv6SockAddr();
    EXPECT_EQ(std::memcmp(&back, &in6, sizeof(in6)), 0);
    EXPECT_EQ(Parse("127.0.0.1").GetIPv4SockAddr().sin_family, AF_INET);
}

TEST(CZyIPAddr, ResolvesLocalhostAndReportsResolverFailures)
{
    CZyIPAddr out;
    ASSERT_FALSE(CZyIPAddr::GetByName("localhost", out, kV4).IsError());
    EXPECT_EQ(Text(out), "127.0.0.1");

    // The resolver's code is the error's and the thread's last socket error;
    // the output is left alone.
    CZyIPAddr keep = Parse("192.0.2.9");
    CZyError err = CZyIPAddr::GetByName("127.0.0.1", keep, CZyIPAddr::IP_FAMILY_IPV6);
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorCode(), zy::os::LastError());
    EXPECT_STREQ(Outermost(err), "CZyIPAddr::GetByName");
    EXPECT_EQ(Text(keep), "192.0.2.9");
    EXPECT_EQ(CZyIPAddr::GetByName(nullptr, out, kAny).GetErrorMessage(), "Null parameter passed");
    EXPECT_TRUE(out.SetAddressString(nullptr).Is(10014));  // the conversion's own code

    // GetAllByName appends to what the caller's list holds.
    std::vector<CZyIPAddr> fresh, list{Parse("192.0.2.1"), Parse("192.0.2.2")};
    ASSERT_FALSE(CZyIPAddr::GetAllByName("localhost", fresh, kAny).IsError());
    ASSERT_FALSE(CZyIPAddr::GetAllByName("localhost", list, kAny).IsError());
    ASSERT_TRUE(!fresh.empty() && list.size() == 2 + fresh.size());
    EXPECT_TRUE(list[1] == Parse("192.0.2.2") && list[2] == fresh[0]);
}

TEST(CZyIPAddr, NamesWithSlashesArePaths)
{
    CZyIPAddr out;
    ASSERT_FALSE(CZyIPAddr::GetByName("a/b", out, kV4).IsError());
    EXPECT_EQ(out.GetUnixSockAddr(), "a/b");

    // The path case replaces the list's contents.
    std::vector<CZyIPAddr> list(3, Parse("10.0.0.1"));
    ASSERT_FALSE(CZyIPAddr::GetAllByName("C:\\x", list, kAny).IsError());
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].GetUnixSockAddr(), "C:\\x");

    // A path over 107 bytes is refused, not cut short (the bound itself is
    // checked on the flat records).
    EXPECT_TRUE(CZyIPAddr::GetByName(("/" + std::string(107, 'p')).c_str(), out, kAny).Is(7));
    EXPECT_EQ(out.GetUnixSockAddr(), "a/b");
}

TEST(CZyIPAddr, CollisionSentinelRefusesItsAddress)
{
    CZyIPAddr armsTheSentinel;
    CZyIPAddr out;
    CZyError err = CZyIPAddr::GetByName("127.0.53.53", out, kAny);
    ASSERT_TRUE(err.Is(11001)) << err.AsString();
    EXPECT_EQ(err.GetErrorMessage(), "DNS name collision occured");
    EXPECT_EQ(Text(out), "127.0.53.53");
    // Only that one address is refused.
    EXPECT_FALSE(CZyIPAddr::GetByName("127.0.53.54", out, kV4).IsError());
}

#if !defined(_WIN32)
TEST(CZyIPAddr, HostsFileNamesCollideAndReverse)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and private network and mount namespaces";
    CZyString self;
    ASSERT_FALSE(CZyIPAddr::GetLocalHost(self).IsError());
    // mixed.test: loopback entries only, so file order is resolver order.
    std::string hosts = "10.9.8.2 multi.test\n127.0.53.53 collide.test\n"
                        "127.0.53.52 mixed.test\n127.0.53.53 mixed.test\n127.0.53.54 mixed.test\n"
                        "10.9.8.7 " + self.str() + "\n";
    std::string failures = zytest::RunInNetNamespace([&hosts] {
        std::string setup = zytest::UseHostsFile(hosts);
        if (!setup.empty())
            return setup;
        zytest::Checks c;
        CZyIPAddr armsTheSentinel, out;
        CZyError err = CZyIPAddr::GetByName("collide.test", out, kAny);
        c.Expect(err.Is(11001) && err.GetErrorMessage() == "DNS name collision occured", "collide.test accepted");

        std::vector<CZyIPAddr> list;
        c.Expect(CZyIPAddr::GetAllByName("mixed.test", list, kV4).Is(11001), "mixed.test accepted");
        c.Expect(list.size() == 1 && Text(list[0]) == "127.0.53.52", "mixed.test: entries before the sentinel lost");

        CZyString name;
        c.Expect(!Parse("10.9.8.2").GetHostName(name).IsError() && name.str() == "multi.test", "reverse look-up");
        c.Expect(Parse("10.9.9.9").GetHostName(name).IsError(), "an address without a name was named");
        err = CZyIPAddr::GetLocalHost(out, kV4);
        c.Expect(!err.IsError() && Text(out) == "10.9.8.7", "local host not resolved through its name");
        return c.text;
    });
    EXPECT_EQ(failures, "");
}
#endif

TEST(CZyIPAddr, ProbesTellAbsentFromBroken)
{
    bool present = false;
    ASSERT_FALSE(CZyIPAddr::IsIPv4StackPresent(present).IsError());
    EXPECT_TRUE(present);
    ZYTEST_EXPECT_OK(CZyIPAddr::IsIPv6StackPresent(present));

    bool bindable = true;
    EXPECT_FALSE(CZyIPAddr::IsAddrBindable(CZyIPAddr(), bindable).IsError());
    EXPECT_FALSE(bindable);

    // A port in use is a failure, returned with the probe's location.
    CZySocket holder;
    CZyIPAddr taken;
    ASSERT_FALSE(holder.Bind(Parse("127.0.0.1")).IsError());
    ASSERT_FALSE(holder.GetLocalAddress(taken).IsError());
    bindable = true;
    CZyError err = CZyIPAddr::IsAddrBindable(taken, bindable);
    holder.Close();
    EXPECT_STREQ(Outermost(err), "CZyIPAddr::IsAddrBindable");
    EXPECT_FALSE(bindable);
}

TEST(CZyIPAddr, UnixProbesFollowTheSupportSwitch)
{
    // Without AF_UNIX (Wine) the family-absent code reads as "not bindable";
    // the probe removes its socket file, so a second probe finds the path free.
    bool supported = ZYNET_AreUnixSocketsSupported() != 0;
    std::string path = zytest::TempSocketPath("probe");
    bool present = !supported;
    for (int round = 0; round < 2; ++round)
    {
        bool bindable = !supported;
        ZYTEST_EXPECT_OK(CZyIPAddr::IsAddrBindable(CZyIPAddr(path.c_str()), bindable));
        EXPECT_EQ(bindable, supported);
    }
    std::remove(path.c_str());
    EXPECT_FALSE(CZyIPAddr::IsUnixStackPresent(present).IsError());
    EXPECT_EQ(present, supported);
    ZYNET_DisableUnixSockets();
    EXPECT_FALSE(CZyIPAddr::IsUnixStackPresent(present).IsError());
    EXPECT_FALSE(present);
}
