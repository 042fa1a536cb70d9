// CZyIPAddr: value rules, text conversion, resolution (path rule, appending,
// the 127.0.53.53 collision sentinel) and the stack probes.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ZyNetwork/OsApi.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "support/NetNamespace.h"
#include "support/TestEnv.h"

#if !defined(_WIN32)
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>
#endif

namespace
{
std::string Text(const CZyIPAddr& address)
{
    CZyString text("<none>");
    address.GetAddressString(text);
    return text.str();
}

CZyIPAddr Parse(const char* text)
{
    CZyIPAddr address;
    CZyError err = address.SetAddressString(text);
    EXPECT_FALSE(err.IsError()) << text << ": " << err.AsString();
    return address;
}

// Innermost item raised at `function` of this class, outermost at `outer`.
void ExpectRaisedAt(const CZyError& err, const char* function, const char* outer)
{
    ASSERT_TRUE(err.IsError());
    EXPECT_STREQ(err.GetItems().front()->Location().File(), "ZyNetwork/ZyIPAddr");
    EXPECT_STREQ(err.GetItems().front()->Location().Function(), function);
    EXPECT_STREQ(err.GetItems().back()->Location().Function(), outer);
}
}  // namespace

TEST(CZyIPAddr, FamilyAndPortRules)
{
    // Nothing here sets the preference, so a cleared address has no family:
    // it has no port and equals nothing, not even itself.
    CZyIPAddr cleared;
    EXPECT_EQ(cleared.GetAddressFamily(), CZyIPAddr::GetPreferredFamily());
    ASSERT_EQ(cleared.GetAddressFamily(), CZyIPAddr::IP_FAMILY_UNSPEC);
    EXPECT_FALSE(cleared == cleared);
    EXPECT_TRUE(cleared != CZyIPAddr(cleared));
    CZyError err = cleared.SetPortNumber(80);
    EXPECT_TRUE(err.Is(774));
    EXPECT_EQ(err.GetErrorMessage(), "Address family not set");
    ExpectRaisedAt(err, "CZyIPAddr::SetPortNumber", "CZyIPAddr::SetPortNumber");

    // Ports keep their low 16 bits, stored in network order.
    CZyIPAddr v4 = Parse("192.0.2.7");
    ASSERT_FALSE(v4.SetPortNumber(0x12345).IsError());
    EXPECT_EQ(v4.GetPortNumber(), 0x2345);
    const uint8_t* portBytes = reinterpret_cast<const uint8_t*>(&v4.SockAddrPtr()->in4.port);
    EXPECT_EQ(portBytes[0], 0x23);
    EXPECT_EQ(portBytes[1], 0x45);
    CZyIPAddr v6 = Parse("fe80::1");
    ASSERT_FALSE(v6.SetPortNumber(8080).IsError());
    EXPECT_EQ(v6.GetPortNumber(), 8080);
    EXPECT_STREQ(v6.GetAddressFamilyString(), "IPv6");

    // A path has no port: setting one succeeds and changes nothing.
    CZyIPAddr unixAddr("/tmp/zy-port");
    ASSERT_EQ(unixAddr.GetAddressFamily(), CZyIPAddr::IP_FAMILY_UNIX);
    ZYNET_SockAddr before = unixAddr.GetSockAddr();
    EXPECT_FALSE(unixAddr.SetPortNumber(99).IsError());
    EXPECT_EQ(std::memcmp(&before, unixAddr.SockAddrPtr(), sizeof(before)), 0);
    EXPECT_EQ(unixAddr.GetPortNumber(), 0);
    EXPECT_EQ(unixAddr.GetUnixSockAddr(), "/tmp/zy-port");
    EXPECT_EQ(v4.GetUnixSockAddr(), "");

    // SetAddressFamily clears first.
    v4.SetAddressFamily(CZyIPAddr::IP_FAMILY_IPV6);
    EXPECT_EQ(v4.GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV6);
    EXPECT_EQ(v4.GetPortNumber(), 0);
    EXPECT_EQ(Text(v4), "::");
}

TEST(CZyIPAddr, EqualityLooksOnlyAtFamilyAndAddress)
{
    CZyIPAddr a = Parse("10.1.2.3"), b = Parse("10.1.2.3");
    a.SetPortNumber(1);
    b.SetPortNumber(2);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_NE(a, Parse("10.1.2.4"));
    EXPECT_NE(Parse("::ffff:10.1.2.3"), a);

    CZyIPAddr x = Parse("2001:db8::5"), y = Parse("2001:db8::5");
    y.SockAddrPtr()->in6.scope_id = 3;
    y.SockAddrPtr()->in6.flowinfo = 7;
    EXPECT_EQ(x, y);
    EXPECT_NE(x, Parse("2001:db8::6"));

    EXPECT_EQ(CZyIPAddr("/tmp/zy-a"), CZyIPAddr("/tmp/zy-a"));
    EXPECT_NE(CZyIPAddr("/tmp/zy-a"), CZyIPAddr("/tmp/zy-ab"));
}

TEST(CZyIPAddr, PlatformRecordsUseThePlatformFamily)
{
    sockaddr_in6 in6;
    std::memset(&in6, 0, sizeof(in6));
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(4433);
    in6.sin6_addr.s6_addr[15] = 1;
    CZyIPAddr fromV6(in6);
    EXPECT_EQ(fromV6.GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV6);
    EXPECT_EQ(fromV6.GetPortNumber(), 4433);
    EXPECT_EQ(Text(fromV6), "::1");
    sockaddr_in6 back = fromV6.GetIPv6SockAddr();
    EXPECT_EQ(back.sin6_family, AF_INET6);
    EXPECT_EQ(std::memcmp(&back, &in6, sizeof(in6)), 0);

    sockaddr_in in4 = Parse("127.0.0.1").GetIPv4SockAddr();
    EXPECT_EQ(in4.sin_family, AF_INET);
    in4.sin_port = htons(25);
    CZyIPAddr fromV4(in4);
    EXPECT_EQ(fromV4.GetPortNumber(), 25);
    EXPECT_EQ(Text(fromV4), "127.0.0.1");
}

TEST(CZyIPAddr, TextConversionFailuresAreErrors)
{
    CZyIPAddr a;
    CZyError err = a.SetAddressString("not an address");
    EXPECT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    ExpectRaisedAt(err, "CZyIPAddr::SetAddressString", "CZyIPAddr::SetAddressString");
    EXPECT_TRUE(a.SetAddressString(nullptr).Is(87));
    // The collision marker is never a valid address text.
    EXPECT_TRUE(a.SetAddressString("127.0.53.53").Is(11001));
    // A failed conversion leaves the caller's text alone.
    CZyString kept("kept");
    EXPECT_TRUE(CZyIPAddr().GetAddressString(kept).IsError());
    EXPECT_EQ(kept.str(), "kept");
}

TEST(CZyIPAddr, GetByNameResolvesLiteralsAndLocalhost)
{
    CZyIPAddr out;
    ASSERT_FALSE(CZyIPAddr::GetByName("localhost", out, CZyIPAddr::IP_FAMILY_IPV4).IsError());
    EXPECT_EQ(Text(out), "127.0.0.1");
    EXPECT_EQ(out.GetPortNumber(), 0);
    ASSERT_FALSE(CZyIPAddr::GetByName("::1", out, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    EXPECT_EQ(out, Parse("::1"));

    // A resolver failure carries the resolver's code, which is also the
    // thread's last socket error, and leaves the output alone.
    CZyIPAddr keep = Parse("192.0.2.9");
    CZyError err = CZyIPAddr::GetByName("127.0.0.1", keep, CZyIPAddr::IP_FAMILY_IPV6);
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorCode(), zyos::LastError());
    ExpectRaisedAt(err, "CZyIPAddr::GetByName", "CZyIPAddr::GetByName");
    EXPECT_EQ(Text(keep), "192.0.2.9");

    err = CZyIPAddr::GetByName(nullptr, out, CZyIPAddr::IP_FAMILY_UNSPEC);
    EXPECT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorMessage(), "Null parameter passed");
    std::vector<CZyIPAddr> list;
    EXPECT_TRUE(CZyIPAddr::GetAllByName(nullptr, list, CZyIPAddr::IP_FAMILY_UNSPEC).Is(87));

    CZyString host;
    ASSERT_FALSE(CZyIPAddr::GetLocalHost(host).IsError());
    EXPECT_FALSE(host.IsEmpty());
}

TEST(CZyIPAddr, NamesWithSlashesArePathsAndNeverResolved)
{
    CZyIPAddr out = Parse("10.0.0.1");
    ASSERT_FALSE(CZyIPAddr::GetByName("a/b", out, CZyIPAddr::IP_FAMILY_IPV4).IsError());
    EXPECT_EQ(out.GetAddressFamily(), CZyIPAddr::IP_FAMILY_UNIX);
    EXPECT_EQ(out.GetUnixSockAddr(), "a/b");
    ASSERT_FALSE(CZyIPAddr::GetByName("C:\\x", out, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    EXPECT_EQ(out.GetUnixSockAddr(), "C:\\x");

    // The path case replaces the list's contents.
    std::vector<CZyIPAddr> list(3, Parse("10.0.0.1"));
    ASSERT_FALSE(CZyIPAddr::GetAllByName("/run/zy.sock", list, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].GetUnixSockAddr(), "/run/zy.sock");

    // 107 characters fit the field; 108 are refused, not cut short.
    std::string longest = "/" + std::string(106, 'p');
    ASSERT_FALSE(CZyIPAddr::GetByName(longest.c_str(), out, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    EXPECT_EQ(out.GetUnixSockAddr(), longest);
    std::string tooLong = longest + "q";
    EXPECT_TRUE(CZyIPAddr::GetByName(tooLong.c_str(), out, CZyIPAddr::IP_FAMILY_UNSPEC).Is(7));
    EXPECT_EQ(out.GetUnixSockAddr(), longest);
    EXPECT_TRUE(CZyIPAddr::GetAllByName(tooLong.c_str(), list, CZyIPAddr::IP_FAMILY_UNSPEC).Is(7));
    EXPECT_EQ(list.size(), 1u);
}

TEST(CZyIPAddr, GetAllByNameAppendsToTheCallersList)
{
    std::vector<CZyIPAddr> fresh;
    ASSERT_FALSE(CZyIPAddr::GetAllByName("localhost", fresh, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    ASSERT_FALSE(fresh.empty());

    std::vector<CZyIPAddr> list{Parse("192.0.2.1"), Parse("192.0.2.2")};
    ASSERT_FALSE(CZyIPAddr::GetAllByName("localhost", list, CZyIPAddr::IP_FAMILY_UNSPEC).IsError());
    ASSERT_EQ(list.size(), 2 + fresh.size());
    EXPECT_EQ(Text(list[0]), "192.0.2.1");
    EXPECT_EQ(Text(list[1]), "192.0.2.2");
    for (size_t i = 0; i < fresh.size(); ++i)
    {
        EXPECT_EQ(list[2 + i], fresh[i]);
        EXPECT_EQ(list[2 + i].GetPortNumber(), 0);
    }
}

TEST(CZyIPAddr, CollisionSentinelRefusesItsAddress)
{
    CZyIPAddr armsTheSentinel;
    CZyIPAddr out = Parse("192.0.2.1");
    CZyError err = CZyIPAddr::GetByName("127.0.53.53", out, CZyIPAddr::IP_FAMILY_UNSPEC);
    ASSERT_TRUE(err.Is(11001)) << err.AsString();
    EXPECT_EQ(err.GetErrorMessage(), "DNS name collision occured");
    ExpectRaisedAt(err, "CZyIPAddr::GetByName", "CZyIPAddr::GetByName");
    // The output is left holding the sentinel.
    EXPECT_EQ(out.GetAddressFamily(), CZyIPAddr::IP_FAMILY_IPV4);
    EXPECT_EQ(out.SockAddrPtr()->in4.addr[2], 53);

    std::vector<CZyIPAddr> list{Parse("192.0.2.1")};
    err = CZyIPAddr::GetAllByName("127.0.53.53", list, CZyIPAddr::IP_FAMILY_IPV4);
    EXPECT_TRUE(err.Is(11001));
    EXPECT_EQ(err.GetErrorMessage(), "DNS name collision occured");
    EXPECT_EQ(list.size(), 1u);

    // Only that one address is refused.
    EXPECT_FALSE(CZyIPAddr::GetByName("127.0.53.54", out, CZyIPAddr::IP_FAMILY_IPV4).IsError());
}

#if !defined(_WIN32)
// Runs `body` in a child with a private network namespace (so a name not in
// the file reaches no name server) and a private mount namespace in which
// `hosts` is /etc/hosts.
static std::string WithHostsFile(const std::string& hosts, const std::function<std::string()>& body)
{
    char path[64];
    std::snprintf(path, sizeof(path), "/tmp/zynet-hosts-%d", static_cast<int>(getpid()));
    FILE* file = std::fopen(path, "w");
    if (!file)
        return "cannot write the hosts file";
    std::fputs(hosts.c_str(), file);
    std::fclose(file);
    std::string result = zytest::RunInNetNamespace([&]() -> std::string {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(path, "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
            return "cannot mount a private /etc/hosts";
        return body();
    });
    std::remove(path);
    return result;
}

TEST(CZyIPAddr, HostsFileNamesCollideAppendAndReverse)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and private network and mount namespaces";
    CZyString self;
    ASSERT_FALSE(CZyIPAddr::GetLocalHost(self).IsError());
    std::string hosts = "127.0.0.1 localhost\n"
                        "10.9.8.1 multi.test\n10.9.8.2 multi.test\n10.9.8.3 multi.test\n"
                        "127.0.53.53 collide.test\n"
                        "127.0.53.52 mixed.test\n127.0.53.53 mixed.test\n127.0.53.54 mixed.test\n"
                        "10.9.8.7 " + self.str() + "\n";
    // The resolver sorts its answers by reachability; the entries of a name
    // share one kind of address so that file order is resolver order.
    std::string failures = WithHostsFile(hosts, [] {
        std::string bad;
        auto check = [&bad](bool ok, const char* what) {
            if (!ok)
                bad += std::string(what) + "; ";
        };
        CZyIPAddr armsTheSentinel, out;
        CZyError err = CZyIPAddr::GetByName("collide.test", out, CZyIPAddr::IP_FAMILY_UNSPEC);
        check(err.Is(11001) && err.GetErrorMessage() == "DNS name collision occured", "collide.test accepted");

        err = CZyIPAddr::GetByName("multi.test", out, CZyIPAddr::IP_FAMILY_IPV4);
        check(!err.IsError() && Text(out) == "10.9.8.1", "multi.test: not the first entry");

        std::vector<CZyIPAddr> list{CZyIPAddr("/a"), CZyIPAddr("/b")};
        err = CZyIPAddr::GetAllByName("multi.test", list, CZyIPAddr::IP_FAMILY_IPV4);
        check(!err.IsError() && list.size() == 5, "multi.test: 2 + 3 entries expected");
        check(list.size() == 5 && Text(list[2]) == "10.9.8.1" && Text(list[4]) == "10.9.8.3",
              "multi.test: resolver order lost");

        list.clear();
        err = CZyIPAddr::GetAllByName("mixed.test", list, CZyIPAddr::IP_FAMILY_IPV4);
        check(err.Is(11001), "mixed.test accepted");
        check(list.size() == 1 && Text(list[0]) == "127.0.53.52", "mixed.test: entries before the sentinel lost");

        CZyString name;
        err = Parse("10.9.8.2").GetHostName(name);
        check(!err.IsError() && name.str() == "multi.test", "reverse look-up of 10.9.8.2");
        check(Parse("10.9.9.9").GetHostName(name).IsError(), "an address without a name was named");

        err = CZyIPAddr::GetLocalHost(out, CZyIPAddr::IP_FAMILY_IPV4);
        check(!err.IsError() && Text(out) == "10.9.8.7", "local host not resolved through its name");
        return bad;
    });
    EXPECT_EQ(failures, "");
}
#endif

// ---- stack probes ----

TEST(CZyIPAddr, ProbesTellBindableFromBroken)
{
    bool present = false;
    ASSERT_FALSE(CZyIPAddr::IsIPv4StackPresent(present).IsError());
    EXPECT_TRUE(present);
    present = true;
    CZyError err = CZyIPAddr::IsIPv6StackPresent(present);
    EXPECT_FALSE(err.IsError()) << err.AsString();

    // An address of no family has no stack: "absent", not a failure, on
    // every target (the family-absent bind code itself is met by the Unix
    // probe where AF_UNIX is missing).
    bool bindable = true;
    EXPECT_FALSE(CZyIPAddr::IsAddrBindable(CZyIPAddr(), bindable).IsError());
    EXPECT_FALSE(bindable);

    // Any other bind failure is an error carrying the probe's location.
    CZySocket holder;
    ASSERT_FALSE(holder.Bind(Parse("127.0.0.1")).IsError());
    CZyIPAddr taken;
    ASSERT_FALSE(holder.GetLocalAddress(taken).IsError());
    bindable = true;
    err = CZyIPAddr::IsAddrBindable(taken, bindable);
    holder.Close();
    EXPECT_TRUE(err.IsError());
    EXPECT_FALSE(bindable);
    if (err.IsError())
    {
        EXPECT_STREQ(err.GetItems().back()->Location().Function(), "CZyIPAddr::IsAddrBindable");
    }
}

TEST(CZyIPAddr, UnixProbesFollowTheSupportSwitch)
{
    bool supported = ZYNET_AreUnixSocketsSupported() != 0;
    std::string path = zytest::TempSocketPath("probe");
    bool bindable = !supported;
    EXPECT_FALSE(CZyIPAddr::IsAddrBindable(CZyIPAddr(path.c_str()), bindable).IsError());
    EXPECT_EQ(bindable, supported);
    std::remove(path.c_str());

    bool present = !supported;
    EXPECT_FALSE(CZyIPAddr::IsUnixStackPresent(present).IsError());
    EXPECT_EQ(present, supported);
    ZYNET_DisableUnixSockets();
    EXPECT_FALSE(CZyIPAddr::IsUnixStackPresent(present).IsError());
    EXPECT_FALSE(present);
}
