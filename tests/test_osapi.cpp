// The OS boundary on loopback: error and family translation, the wait
// primitive and the resolver (transfers: the flat calls' tests).
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "support/TestEnv.h"

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#include "ZyNetwork/Windows/ResolverWindows.h"
#else
#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

using zytest::LoopbackRecord;
using zytest::SocketPair;

TEST(OsApi, ErrorAndFamilyTranslation)
{
#if !defined(_WIN32)
    // The translation table, one pair per line: errno or EAI_* code, then the
    // portable (Winsock) number; an unmapped errno passes through.
    const int errnos[][2] = {{ECONNREFUSED, 10061}, {ETIMEDOUT, 10060}, {EPERM, 10013},     {EAGAIN, 10035},
                             {EBADF, 10038},        {ENOMEM, 8},        {EINPROGRESS, 10036}, {ECONNRESET, 10054},
                             {EPIPE, 10058},        {0, 0},             {ENOENT, ENOENT}};
    for (const auto& e : errnos)
        EXPECT_EQ(zy::os::TranslateErrno(e[0]), e[1]) << "errno " << e[0];
    const int resolver[][2] = {{EAI_NONAME, 11001}, {EAI_AGAIN, 11002},   {EAI_NODATA, 11004},
                               {EAI_FAMILY, 10047}, {EAI_OVERFLOW, 10014}, {0, 0}};
    for (const auto& e : resolver)
        EXPECT_EQ(zy::os::TranslateResolverError(e[0]), e[1]) << "resolver code " << e[0];
    errno = ECONNRESET;
    EXPECT_EQ(zy::os::TranslateResolverError(EAI_SYSTEM), 10054);
#endif
    EXPECT_EQ(zy::os::TranslateErrno(10061), 10061);  // portable codes are never translated again
    EXPECT_EQ(zy::os::TranslateResolverError(11001), 11001);
    for (int family : {0, 1, 2, 23})
        EXPECT_EQ(zy::os::FamilyFromOs(zy::os::FamilyToOs(family)), family);
    EXPECT_EQ(zy::os::FamilyToOs(ZYNET_AF_INET6) == 23, zytest::IsWindowsTarget());
}

TEST(OsApi, FailuresReportPortableCodes)
{
    // A port that was just free: nothing listens there.
    ZYNET_SockAddr closed;
    {
        SocketPair pair;
        ASSERT_EQ(ZYNET_getsockname(pair.server, &closed), 0);
    }
    ZYNET_SOCKET s = ZYNET_INVALID_SOCKET;
    ASSERT_EQ(zy::os::Socket(ZYNET_AF_INET, 1, 0, &s), 0);
    EXPECT_EQ(zy::os::Connect(s, &closed, 16), 10061);
    EXPECT_EQ(zy::os::LastError(), 10061);
    EXPECT_EQ(zy::os::Close(s), 0);

    // A closed handle is "not a socket", and SocketFamily says -1.
    int transferred = 0;
    EXPECT_EQ(zy::os::Send(s, "x", 1, 0, &transferred), 10038);
    EXPECT_EQ(zy::os::SocketFamily(s), -1);
    EXPECT_EQ(zy::os::LastError(), 10038);
    EXPECT_EQ(zy::os::Socket(99, 1, 0, &s), 10047);
    EXPECT_EQ(s, ZYNET_INVALID_SOCKET);

    // A non-blocking connect under way is "would block" on both targets, and
    // its failure shows in the exception set.
    ASSERT_EQ(zy::os::Socket(ZYNET_AF_INET, 1, 0, &s), 0);
    ASSERT_EQ(zy::os::SetNonBlocking(s, true), 0);
    int rc = zy::os::Connect(s, &closed, 16);
    if (rc == 10035)
    {
        zy::os::PollEntry entry = {s, zy::os::POLL_EXCEPT, 0};
        int ready = 0;
        ASSERT_EQ(zy::os::Poll(&entry, 1, 5000, &ready), 0);
        EXPECT_EQ(ready, 1);
        EXPECT_EQ(entry.revents, zy::os::POLL_EXCEPT);
    }
    else
    {
        EXPECT_EQ(rc, 10061);  // refused at once
    }
    zy::os::Close(s);
}

TEST(OsApi, PollReportsReadinessTimeoutsAndBadHandles)
{
    SocketPair c;
    ASSERT_TRUE(c.Ok());

    // Nothing to read yet, but writable.
    zy::os::PollEntry entries[2] = {{c.server, zy::os::POLL_READ, 0}, {c.client, zy::os::POLL_WRITE | zy::os::POLL_EXCEPT, 0}};
    int ready = -1;
    ASSERT_EQ(zy::os::Poll(entries, 2, 0, &ready), 0);
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(entries[0].revents, 0);
    EXPECT_EQ(entries[1].revents, zy::os::POLL_WRITE);

    // A peer that shut down makes the socket readable.
    ASSERT_EQ(zy::os::Shutdown(c.client, 1), 0);
    zy::os::PollEntry closed = {c.server, zy::os::POLL_READ, 0};
    ASSERT_EQ(zy::os::Poll(&closed, 1, 5000, &ready), 0);
    EXPECT_EQ(closed.revents, zy::os::POLL_READ);

    // Handles that are no socket are flagged, without waiting.
    ZYNET_SOCKET gone = ZYNET_INVALID_SOCKET;
    ASSERT_EQ(zy::os::Socket(ZYNET_AF_INET, 1, 0, &gone), 0);
    zy::os::Close(gone);
    zy::os::PollEntry bad[3] = {
        {ZYNET_INVALID_SOCKET, zy::os::POLL_READ, 0}, {c.client, zy::os::POLL_WRITE, 0}, {gone, zy::os::POLL_READ, 0}};
    ASSERT_EQ(zy::os::Poll(bad, 3, 5000, &ready), 0);
    EXPECT_EQ(bad[0].revents, zy::os::POLL_INVALID);
    EXPECT_EQ(bad[2].revents, zy::os::POLL_INVALID);
    EXPECT_GE(ready, 2);
}

#if !defined(_WIN32)
TEST(OsApi, LinuxKeepAliveIsInSecondsWithinLinuxRange)
{
    SocketPair c;
    ASSERT_TRUE(c.Ok());
    auto option = [&](int level, int name) {
        int value = -1;
        socklen_t length = sizeof(value);
        getsockopt(static_cast<int>(c.client), level, name, &value, &length);
        return value;
    };
    ASSERT_EQ(ZYNET_settcpkeepaliveoptions(c.client, 45, 7), 0);  // the flat call on top
    EXPECT_NE(option(SOL_SOCKET, SO_KEEPALIVE), 0);
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPINTVL), 7);
    // Zero (accepted by Windows) is raised to Linux's minimum of one second.
    ASSERT_EQ(zy::os::SetKeepAlive(c.client, 0, 0), 0);
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE), 1);
    EXPECT_EQ(zy::os::SetIpTtl(c.client, 17), 0);
    EXPECT_EQ(option(IPPROTO_IP, IP_TTL), 17);
}
#endif

TEST(OsApi, ResolverGivesPortableRecords)
{
    // An IPv6 record offered with the whole record's length prints fine;
    // one too short for its family is refused.
    ZYNET_SockAddr v6 = LoopbackRecord(ZYNET_AF_INET6);
    char host[64];
    EXPECT_EQ(zy::os::GetNameInfo(&v6, 112, host, sizeof(host), zy::os::NI_FLAG_NUMERICHOST), 0);
    EXPECT_STREQ(host, "::1");
    EXPECT_NE(zy::os::GetNameInfo(&v6, 16, host, sizeof(host), zy::os::NI_FLAG_NUMERICHOST), 0);

    // Names under "invalid" never reach a name server (the look-up itself is
    // checked through ZYNET_name2ip).
    for (const char* name : {"INVALID", "a.b.Invalid."})
        EXPECT_TRUE(zy::os::IsReservedInvalidName(name)) << name;
    for (const char* name : {"notinvalid", "invalid.example", ""})
        EXPECT_FALSE(zy::os::IsReservedInvalidName(name)) << name;
    EXPECT_FALSE(zy::os::IsReservedInvalidName(nullptr));
}

#if defined(_WIN32)
TEST(OsApi, WindowsResolverSubstitutesAreIPv4Only)
{
    using namespace zy::os::win;
    // Wine and every supported Windows have the native resolver.
    EXPECT_FALSE(Resolver().substitutes);

    addrinfo hints;
    memset(&hints, 0, sizeof(hints));
    hints.ai_flags = AI_NUMERICHOST | AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    ASSERT_EQ(SubstituteGetAddrInfo("127.0.0.1", "80", &hints, &list), 0);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->ai_family, AF_INET);
    EXPECT_EQ(list->ai_next, nullptr);
    EXPECT_EQ(ntohs(reinterpret_cast<const sockaddr_in*>(list->ai_addr)->sin_port), 80);

    char host[32];
    EXPECT_EQ(SubstituteGetNameInfo(list->ai_addr, sizeof(sockaddr_in), host, sizeof(host), nullptr, 0,
                                    NI_NUMERICHOST),
              0);
    EXPECT_STREQ(host, "127.0.0.1");
    EXPECT_EQ(SubstituteGetNameInfo(list->ai_addr, 8, host, sizeof(host), nullptr, 0, NI_NUMERICHOST), WSAEFAULT);
    SubstituteFreeAddrInfo(list);

    list = nullptr;
    EXPECT_EQ(SubstituteGetAddrInfo("::1", nullptr, &hints, &list), WSAHOST_NOT_FOUND);
    EXPECT_EQ(list, nullptr);
    hints.ai_family = AF_INET6;
    EXPECT_EQ(SubstituteGetAddrInfo("127.0.0.1", nullptr, &hints, &list), WSAEAFNOSUPPORT);
}
#endif
