// Socket address records: conversion, look-up, comparison, lengths, the
// family preference and the Unix-socket support switch (both process-wide:
// only the tests named for them change them).
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/Internal/ZySockAddrInternal.h"
#include "support/LogCapture.h"
#include "support/TestEnv.h"

#if defined(_WIN32)
#include <winsock2.h>
#else
#include <netdb.h>
#endif

namespace
{
ZYNET_SockAddr Filled(uint8_t byte)
{
    ZYNET_SockAddr addr;
    memset(&addr, byte, sizeof(addr));
    return addr;
}

ZYNET_SockAddr FromText(const char* text)
{
    ZYNET_SockAddr addr = Filled(0);
    EXPECT_EQ(ZYNET_str2ip(text, &addr), 0) << text;
    return addr;
}

// Bytes [from, to) of `addr` all hold `value`.
void ExpectBytes(const ZYNET_SockAddr& addr, size_t from, size_t to, uint8_t value)
{
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&addr);
    for (size_t i = from; i < to; ++i)
        EXPECT_EQ(bytes[i], value) << "byte " << i;
}
}  // namespace

TEST(SockAddr, PathsAreRecognisedAndBounded)
{
    // A slash or backslash anywhere makes a path; nothing is resolved.
    for (const char* path : {"/tmp/a", "a\\b"})
    {
        ZYNET_SockAddr addr = Filled(0x55);
        ASSERT_EQ(ZYNET_str2ip(path, &addr), 0) << path;
        EXPECT_EQ(addr.family, ZYNET_AF_UNIX);
        EXPECT_STREQ(addr.un.path, path);
        EXPECT_EQ(ZYNET_GetActualSockAddrLen(&addr), 2 + static_cast<int>(strlen(path)) + 1);

        ZYNET_HostEnt host = {0, nullptr};
        ASSERT_EQ(ZYNET_name2ip(path, &host, 0), 0);
        ASSERT_EQ(host.count, 1);
        EXPECT_EQ(host.addrs[0].family, ZYNET_AF_UNIX);
        EXPECT_STREQ(host.addrs[0].un.path, path);
        ZYNET_freehostent(&host);
        EXPECT_TRUE(host.count == 0 && host.addrs == nullptr);
    }

    // 107 characters fit with the terminator; 108 do not, and the output
    // is left exactly as it was.
    std::string longest = "/" + std::string(106, 'p');
    ZYNET_SockAddr addr = Filled(0x55);
    ASSERT_EQ(ZYNET_str2ip(longest.c_str(), &addr), 0);
    EXPECT_EQ(ZYNET_GetActualSockAddrLen(&addr), 110);
    char text[108];
    EXPECT_EQ(ZYNET_ip2str(&addr, text, sizeof(text)), 0);
    EXPECT_EQ(longest, text);
    EXPECT_EQ(ZYNET_ip2str(&addr, text, 107), ZYNET_ERR_PATH_TOO_LONG);

    std::string tooLong = longest + "q";
    ZYNET_SockAddr untouched = Filled(0x55);
    const ZYNET_SockAddr before = untouched;
    EXPECT_EQ(ZYNET_str2ip(tooLong.c_str(), &untouched), ZYNET_ERR_PATH_TOO_LONG);
    EXPECT_EQ(memcmp(&untouched, &before, sizeof(before)), 0);
    ZYNET_HostEnt host = {5, nullptr};
    EXPECT_EQ(ZYNET_name2ip(tooLong.c_str(), &host, 0), ZYNET_ERR_PATH_TOO_LONG);
    EXPECT_EQ(host.count, 5);
    EXPECT_EQ(host.addrs, nullptr);

    // A record whose path has no terminator is never read past its field.
    ZYNET_SockAddr unterminated = Filled('z');
    unterminated.family = ZYNET_AF_UNIX;
    EXPECT_EQ(ZYNET_GetActualSockAddrLen(&unterminated), 110);
    char big[200];
    ASSERT_EQ(ZYNET_ip2str(&unterminated, big, sizeof(big)), 0);
    EXPECT_EQ(strlen(big), 108u);
}

// The conversion writes the family's own bytes straight into the caller's
// record, leaves the rest of it alone, and leaves all of it alone on failure;
// the resolver's code is the thread's last socket error either way.
TEST(SockAddr, NumericConversionWritesOnlyTheFamilysBytes)
{
    ZYNET_SockAddr v4 = Filled(0xAB);
    ASSERT_EQ(ZYNET_str2ip("10.20.30.40", &v4), 0);
    EXPECT_EQ(zy::os::LastError(), 0);
    EXPECT_EQ(v4.family, ZYNET_AF_INET);
    EXPECT_EQ(ZYNET_getport(&v4), 0u);
    const uint8_t want4[4] = {10, 20, 30, 40};
    EXPECT_EQ(memcmp(v4.in4.addr, want4, sizeof(want4)), 0);
    ExpectBytes(v4, 8, 16, 0);
    ExpectBytes(v4, 16, sizeof(v4), 0xAB);

    ZYNET_SockAddr v6 = Filled(0xAB);
    ASSERT_EQ(ZYNET_str2ip("2001:db8::7", &v6), 0);
    EXPECT_EQ(v6.family, ZYNET_AF_INET6);
    EXPECT_EQ(ZYNET_getport(&v6), 0u);
    const uint8_t want6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
    EXPECT_EQ(memcmp(reinterpret_cast<const uint8_t*>(&v6) + 8, want6, sizeof(want6)), 0);
    ExpectBytes(v6, 4, 8, 0);  // flow label
    ExpectBytes(v6, 24, 28, 0);  // scope
    ExpectBytes(v6, 28, sizeof(v6), 0xAB);

    char text[64];
    ASSERT_EQ(ZYNET_ip2str(&v6, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "2001:db8::7");
    ASSERT_EQ(ZYNET_ip2str(&v4, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "10.20.30.40");
    // A buffer too small for the digits is refused on both targets.
    EXPECT_EQ(ZYNET_ip2str(&v4, text, 5), 10014);
    EXPECT_EQ(zy::os::LastError(), 10014);

    // Failures: a name (numeric only, so never looked up, reserved or not).
    ZYNET_SockAddr kept = Filled(0x5C);
    const ZYNET_SockAddr before = kept;
    for (const char* text : {"localhost", "10.20.30.40.50"})
    {
        EXPECT_EQ(ZYNET_str2ip(text, &kept), 11001) << text;
        EXPECT_EQ(zy::os::LastError(), 11001) << text;
        EXPECT_EQ(memcmp(&kept, &before, sizeof(kept)), 0) << text;
    }
    // The next success clears the stored error.
    ASSERT_EQ(ZYNET_str2ip("::1", &kept), 0);
    EXPECT_EQ(zy::os::LastError(), 0);
}

TEST(SockAddr, LookUpsGivePortableFamiliesAndCodes)
{
    ZYNET_HostEnt host = {0, nullptr};
    ASSERT_EQ(ZYNET_name2ip("localhost", &host, ZYNET_AF_INET), 0);
    ASSERT_GE(host.count, 1);
    for (int i = 0; i < host.count; ++i)
    {
        EXPECT_EQ(host.addrs[i].family, ZYNET_AF_INET);
        EXPECT_EQ(ZYNET_getport(&host.addrs[i]), 0u);
    }
    EXPECT_EQ(host.addrs[0].in4.addr[0], 127);
    ZYNET_freehostent(&host);

    // Names under the reserved "invalid" domain never exist, on both targets,
    // without asking any name server.
    host = {3, nullptr};
    EXPECT_EQ(ZYNET_name2ip("no-such-host.invalid", &host, 0), 11001);
    EXPECT_EQ(zy::os::LastError(), 11001);
    EXPECT_EQ(host.count, 3);
    EXPECT_EQ(host.addrs, nullptr);

    // The collision marker is refused. The look-up stops at it; `count`
    // keeps what it held and the array is still the caller's to free.
    ZYNET_SockAddr addr = Filled(0);
    EXPECT_EQ(ZYNET_str2ip("127.0.53.53", &addr), 11001);
    EXPECT_EQ(ZYNET_str2ip("127.0.53.54", &addr), 0);
    host = {7, nullptr};
    EXPECT_EQ(ZYNET_name2ip("127.0.53.53", &host, 0), 11001);
    EXPECT_EQ(host.count, 7);
    EXPECT_NE(host.addrs, nullptr);
    ZYNET_freehostent(&host);
    EXPECT_EQ(host.addrs, nullptr);

    // Reverse: 127.0.0.1 is named in the hosts file on both targets.
    ZYNET_SockAddr v4 = FromText("127.0.0.1");
    char name[1025];
    ASSERT_EQ(ZYNET_ip2name(&v4, name, sizeof(name)), 0);
    EXPECT_GT(strlen(name), 0u);
    EXPECT_STRNE(name, "127.0.0.1");
    EXPECT_EQ(ZYNET_ip2name(&v4, name, 2), 10014);
    ZYNET_SockAddr path = FromText("/run/x.sock");
    ASSERT_EQ(ZYNET_ip2name(&path, name, sizeof(name)), 0);
    EXPECT_STREQ(name, "/run/x.sock");
    EXPECT_EQ(ZYNET_ip2name(&path, name, 11), ZYNET_ERR_PATH_TOO_LONG);

    EXPECT_EQ(ZYNET_gethostname(name, 1), 10014);
    struct servent* entry = nullptr;
    EXPECT_EQ(ZYNET_getservbyname("no-such-service-zy", "tcp", &entry), 11004);
    EXPECT_EQ(entry, nullptr);
}

TEST(SockAddr, PrefixComparison)
{
    // Prefix 0 means the whole address; ports decide only when asked; IPv6
    // flow information and scope never count; Unix paths compare whole
    // (bytes after the terminator aside), whatever else is asked.
    ZYNET_SockAddr a = FromText("10.1.16.5"), b = FromText("10.1.31.200"), c = a;
    ZYNET_setport(&c, 8080);
    ZYNET_SockAddr x = FromText("2001:db8::1"), y = FromText("2001:db8:0:ffff::1"), z = x;
    z.in6.flowinfo = 0x1234;
    z.in6.scope_id = 9;
    ZYNET_SockAddr p = FromText("/tmp/s"), q = FromText("/tmp/s"), r = FromText("/tmp/t");
    memset(q.un.path + 7, 0x41, 20);
    const struct
    {
        const ZYNET_SockAddr *left, *right;
        int prefix, ports, equal;
    } rows[] = {{&a, &b, 20, 0, 1}, {&a, &b, 21, 0, 0}, {&a, &b, 0, 0, 0},   {&a, &b, 40, 0, 0},
                {&a, &c, 0, 0, 1},  {&a, &c, 0, 1, 0},  {&a, &c, 8, 1, 0},   {&x, &y, 48, 0, 1},
                {&x, &y, 49, 0, 0}, {&x, &z, 128, 1, 1}, {&a, &x, 0, 0, 0},  {&p, &q, 3, 1, 1},
                {&p, &r, 0, 0, 0},  {&p, nullptr, 0, 0, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(ZYNET_addrequal(row.left, row.right, row.prefix, row.ports), row.equal)
            << (&row - rows) << ": prefix " << row.prefix << " ports " << row.ports;
}

TEST(SockAddr, PortsAndLengths)
{
    ZYNET_SockAddr v4 = FromText("192.0.2.1");
    ZYNET_setport(&v4, 0x1234);
    EXPECT_EQ(ZYNET_getport(&v4), 0x1234u);
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(&v4)[2], 0x12);  // network order
    ZYNET_SockAddr v6 = FromText("::1");
    ZYNET_setport(&v6, 65535);
    EXPECT_EQ(ZYNET_getport(&v6), 65535u);

    ZYNET_SockAddr path = FromText("/x");
    const ZYNET_SockAddr before = path;
    ZYNET_setport(&path, 80);
    EXPECT_EQ(memcmp(&path, &before, sizeof(path)), 0);
    EXPECT_EQ(ZYNET_getport(&path), 0u);

    EXPECT_EQ(ZYNET_GetActualSockAddrLen(&v4), 16);
    EXPECT_EQ(ZYNET_GetActualSockAddrLen(&v6), 28);
    ZYNET_SockAddr other = Filled(0);
    EXPECT_EQ(ZYNET_GetActualSockAddrLen(&other), 112);
    EXPECT_EQ(ZYNET_GetMaxSockAddrLen(ZYNET_AF_UNIX), 110);
    EXPECT_EQ(ZYNET_GetMaxSockAddrLen(ZYNET_AF_INET6), 28);
    EXPECT_EQ(ZYNET_GetMaxSockAddrLen(7), 112);
}

TEST(SockAddr, NullPointersAreRefusedWithoutTouchingAnything)
{
    ZYNET_SockAddr addr = Filled(0x33);
    const ZYNET_SockAddr before = addr;
    char buffer[8] = "keep";
    ZYNET_HostEnt host = {4, nullptr};
    struct servent* entry = nullptr;

    EXPECT_EQ(ZYNET_str2ip(nullptr, &addr), 10014);
    EXPECT_EQ(ZYNET_str2ip("1.2.3.4", nullptr), 10014);
    EXPECT_EQ(ZYNET_ip2str(nullptr, buffer, sizeof(buffer)), 10014);
    EXPECT_EQ(ZYNET_ip2str(&addr, nullptr, 8), 10014);
    EXPECT_EQ(ZYNET_ip2name(nullptr, buffer, sizeof(buffer)), 10014);
    EXPECT_EQ(ZYNET_name2ip(nullptr, &host, 0), 10014);
    EXPECT_EQ(ZYNET_name2ip("localhost", nullptr, 0), 10014);
    EXPECT_EQ(ZYNET_gethostname(nullptr, 10), 10014);
    EXPECT_EQ(ZYNET_getservbyname(nullptr, "tcp", &entry), 10014);
    EXPECT_EQ(ZYNET_getservbyname("http", "tcp", nullptr), 10014);
    EXPECT_EQ(ZYNET_getservbyport(80, "tcp", nullptr), 10014);
    ZYNET_freehostent(nullptr);
    ZYNET_setport(nullptr, 1);
    EXPECT_EQ(ZYNET_getport(nullptr), 0u);
    EXPECT_EQ(ZYNET_GetActualSockAddrLen(nullptr), 0);

    EXPECT_EQ(memcmp(&addr, &before, sizeof(addr)), 0);
    EXPECT_STREQ(buffer, "keep");
    EXPECT_EQ(host.count, 4);
}

TEST(SockAddr, UnixSupportVersionRule)
{
    const unsigned long rows[][4] = {{10, 17763, 2209, 0}, {10, 17763, 2210, 1}, {10, 17764, 0, 1},
                                     {10, 17134, 9999, 0}, {6, 99999, 9999, 0},   {11, 22000, 0, 1}};
    for (const auto& r : rows)
        EXPECT_EQ(ZyUnixSupportFromVersion(r[0], r[1], r[2]), static_cast<int>(r[3])) << r[0] << "." << r[1] << "." << r[2];
}

TEST(SockAddr, UnixSupportIsCachedAndCanBeSwitchedOff)
{
    // Without a registry answer the test is a probe socket of family 1.
    ZYNET_SOCKET probe = ZYNET_INVALID_SOCKET;
    const int probed = zy::os::Socket(ZYNET_AF_UNIX, 1, 0, &probe) == 0 ? 1 : 0;
    if (probed)
        zy::os::Close(probe);
    unsigned long major = 0, build = 0, revision = 0;
    const bool fromRegistry = zy::os::ReadWindowsVersion(&major, &build, &revision);
    const int expected = fromRegistry ? ZyUnixSupportFromVersion(major, build, revision) : probed;
    EXPECT_EQ(ZYNET_AreUnixSocketsSupported(), expected);
    EXPECT_TRUE(zytest::IsWindowsTarget() || (!fromRegistry && expected == 1)) << "no registry on Linux";
    ZYNET_DisableUnixSockets();
    EXPECT_EQ(ZYNET_AreUnixSocketsSupported(), 0);
}

TEST(SockAddr, FamilyPreferenceKeepsTheFirstValue)
{
    zytest::LogCapture log(0);

    EXPECT_EQ(ZYNET_GetFamilyPreference(), 0);
    ZYNET_SetFamilyPreference(ZYNET_AF_UNIX);  // ignored: leaves it unset
    EXPECT_EQ(ZYNET_GetFamilyPreference(), 0);
    ZYNET_SetFamilyPreference(ZYNET_AF_INET);
    EXPECT_EQ(ZYNET_GetFamilyPreference(), ZYNET_AF_INET);
    ZYNET_SetFamilyPreference(ZYNET_AF_INET);  // same value: nothing to say
    EXPECT_TRUE(log.lines.empty());

    // A different value is a programming error: logged (no debugger here),
    // and the first value stays.
    ASSERT_FALSE(zy::os::IsDebuggerAttached());
    ZYNET_SetFamilyPreference(ZYNET_AF_INET6);
    EXPECT_EQ(ZYNET_GetFamilyPreference(), ZYNET_AF_INET);
    EXPECT_EQ(log.lines.size(), 1u);

    // The preference fills in the family of a look-up that asks for none.
    ZYNET_HostEnt host = {0, nullptr};
    ASSERT_EQ(ZYNET_name2ip("localhost", &host, 0), 0);
    for (int i = 0; i < host.count; ++i)
        EXPECT_EQ(host.addrs[i].family, ZYNET_AF_INET);
    ZYNET_freehostent(&host);
}
