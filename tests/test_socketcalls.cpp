// The flat socket calls on loopback: transfer loops, the list-set wait,
// address results, the socket pair and its callbacks, the datagram calls.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ZyNetwork/ZySocket.h"
#include "ZyUtils/ZyTime.h"
#include "support/LogCapture.h"
#include "support/NetNamespace.h"
#include "support/TestEnv.h"

#if defined(_WIN32)
#include <winsock2.h>
#else
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace
{
const int kWouldBlock = 10035;

using zytest::LoopbackRecord;

// "abcd...": `n` bytes that show any reordering or repetition.
std::string Letters(size_t n)
{
    std::string text(n, ' ');
    for (size_t i = 0; i < n; ++i)
        text[i] = static_cast<char>('a' + i % 26);
    return text;
}

using zytest::SocketPair;

void SendAll(ZYNET_SOCKET s, const std::string& data)
{
    int sent = 0;
    ASSERT_EQ(ZYNET_send(s, data.data(), static_cast<int>(data.size()), &sent, 0), 0);
    ASSERT_EQ(sent, static_cast<int>(data.size()));
}

// What one time-limited receive of up to `n` bytes gets within 5 seconds;
// an error or a time-out fails the test.
std::string Receive(ZYNET_SOCKET s, int n, int flags = 0)
{
    std::vector<char> buffer(static_cast<size_t>(n));
    int count = 0, timedOut = -1;
    const int rc = ZYNET_recvwithtimeout(s, buffer.data(), n, &count, 5, &timedOut, flags);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(timedOut, 0);
    return std::string(buffer.data(), rc == 0 ? static_cast<size_t>(count) : 0);
}

#if !defined(_WIN32)
bool RaiseDescriptorLimit(rlim_t wanted)
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    if (limit.rlim_cur >= wanted)
        return true;
    limit.rlim_cur = limit.rlim_max < wanted ? limit.rlim_max : wanted;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur >= wanted;
}
#endif
}  // namespace

TEST(SocketCalls, WholeBufferLoopsReturnShortCountsAndErrorsNotSignals)
{
    SocketPair pair;
    ASSERT_TRUE(pair.Ok());
    const std::string data = Letters(100);
    SendAll(pair.client, data.substr(0, 10));
    std::thread later([&] {
        ZYSLEEP(200);
        SendAll(pair.client, data.substr(10, 20));
    });

    // A peek waits until one receive sees the whole length; it never adds up
    // repeated views of the same queued bytes, and leaves them queued.
    char buffer[100];
    int count = -1;
    EXPECT_EQ(ZYNET_recv(pair.server, buffer, 30, &count, 2 /*MSG_PEEK*/), 0);
    later.join();
    EXPECT_EQ(count, 30);
    EXPECT_EQ(std::string(buffer, 30), data.substr(0, 30));
    ASSERT_EQ(ZYNET_recv(pair.server, buffer, 30, &count, 0), 0);
    EXPECT_EQ(std::string(buffer, 30), data.substr(0, 30));

    // The peer sends 10 of 100 bytes and closes: a short count, no error.
    SendAll(pair.client, data.substr(0, 10));
    ZYNET_close(pair.client);
    pair.client = ZYNET_INVALID_SOCKET;
    ASSERT_EQ(ZYNET_recv(pair.server, buffer, 100, &count, 0), 0);
    EXPECT_EQ(count, 10);
    EXPECT_EQ(std::string(buffer, 10), data.substr(0, 10));

    // Sending to the gone peer fails with a code; SIGPIPE is left at its
    // default action here, so a raised signal would end this test program.
    int rc = 0, lastError = 0;
    for (int i = 0; i < 50 && rc == 0; ++i)
    {
        rc = ZYNET_send(pair.server, data.data(), 100, &count, 0);
        lastError = ZYNET_getlasterror();
        ZYSLEEP(10);
    }
    EXPECT_TRUE(rc == 10053 || rc == 10054 || rc == 10058) << rc;
    EXPECT_EQ(lastError, rc);
}

TEST(SocketCalls, TimeLimitedLoops)
{
    // A limit of 0 (or less) is the plain call: on a non-blocking silent
    // socket it fails at once instead of waiting.
    SocketPair idle;
    ASSERT_TRUE(idle.Ok());
    ASSERT_EQ(ZYNET_setnonblocking(idle.server), 0);
    char buffer[100];
    int count = -1, timedOut = -1;
    for (int limit : {0, -1})
    {
        EXPECT_EQ(ZYNET_recvwithtimeout(idle.server, buffer, 100, &count, limit, &timedOut, 0), kWouldBlock);
        EXPECT_EQ(timedOut, 0);
    }

    // The loops try each transfer before waiting: with nothing queued on a
    // non-blocking socket the receive waits for the data instead of failing
    // with "would block", and leaves no stale last socket error.
    std::thread later([&] {
        ZYSLEEP(200);
        SendAll(idle.client, Letters(20));
    });
    ZYNET_setlasterror(0);
    EXPECT_EQ(Receive(idle.server, 20), Letters(20));
    later.join();
    EXPECT_EQ(ZYNET_getlasterror(), 0);
}

TEST(SocketCalls, SelectRewritesListsToReadyHandles)
{
    SocketPair a, b;
    ASSERT_TRUE(a.Ok() && b.Ok());
    SendAll(b.client, "ping");

    ZYNET_fd_set readSet = {}, writeSet = {};
    readSet.fd_count = 2, readSet.fd_array[0] = a.server, readSet.fd_array[1] = b.server;
    writeSet.fd_count = 2, writeSet.fd_array[0] = b.client, writeSet.fd_array[1] = a.client;
    timeval wait = {5, 0};
    int count = -1;
    ASSERT_EQ(ZYNET_select(0, &readSet, &writeSet, nullptr, &wait, &count), 0);
    EXPECT_EQ(count, 3);
    ASSERT_EQ(readSet.fd_count, 1u);
    EXPECT_EQ(readSet.fd_array[0], b.server);
    ASSERT_EQ(writeSet.fd_count, 2u);
    EXPECT_EQ(writeSet.fd_array[0], b.client) << "order is kept";

    // Nothing ready within a zero limit: every list comes back empty.
    readSet.fd_count = 1, readSet.fd_array[0] = a.server;
    timeval zero = {0, 0};
    ASSERT_EQ(ZYNET_select(0, &readSet, nullptr, nullptr, &zero, &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(readSet.fd_count, 0u);

    // A handle that is no socket, listed after ready ones, fails the wait
    // and leaves every list exactly as it was; a wait on nothing is refused.
    ZYNET_SOCKET closed;
    ASSERT_EQ(ZYNET_socket(ZYNET_AF_INET, &closed), 0);
    ZYNET_close(closed);
    for (ZYNET_SOCKET bad : {closed, ZYNET_INVALID_SOCKET})
    {
        readSet.fd_count = 3, readSet.fd_array[0] = a.server, readSet.fd_array[1] = b.server;
        readSet.fd_array[2] = bad;
        writeSet.fd_count = 1, writeSet.fd_array[0] = a.client;
        count = -1;
        EXPECT_EQ(ZYNET_select(0, &readSet, &writeSet, nullptr, &zero, &count), 10038);
        EXPECT_EQ(ZYNET_getlasterror(), 10038);
        EXPECT_EQ(count, -1);
        const std::vector<uint32_t> listed(readSet.fd_array, readSet.fd_array + readSet.fd_count);
        EXPECT_EQ(listed, (std::vector<uint32_t>{a.server, b.server, bad}));
        EXPECT_EQ(writeSet.fd_count, 1u);
    }
    readSet.fd_count = 0;
    EXPECT_EQ(ZYNET_select(0, &readSet, nullptr, nullptr, &zero, &count), 10022);
}

TEST(SocketCalls, SelectTakesGrownSets)
{
#if !defined(_WIN32)
    if (!RaiseDescriptorLimit(1200))
        GTEST_SKIP() << "cannot raise the descriptor limit to 1200";
#endif
    // 1100 datagram sockets: more than a set holds inline.
    std::vector<ZYNET_SOCKET> sockets;
    ZyFdset writable;
    for (int i = 0; i < 1100; ++i)
    {
        ZYNET_SOCKET s;
        ASSERT_EQ(ZYNET_dgramsocket(ZYNET_AF_INET, &s), 0) << i;
        sockets.push_back(s);
        ZYNET_SockAddr addr = LoopbackRecord(ZYNET_AF_INET);
        ASSERT_EQ(ZYNET_bind(s, &addr), 0);
        ASSERT_FALSE(writable.set(s).IsError());
    }
    ZyFdset readable(writable);
    ZYNET_SockAddr target;
    ASSERT_EQ(ZYNET_getsockname(sockets[1050], &target), 0);
    // The datagram calls work on any datagram socket.
    int count = 0, timedOut = -1;
    ASSERT_EQ(ZYNET_sendtoicmpsocket(sockets[3], &target, "hello", 5, &count, 0, 0, &timedOut), 0);
    EXPECT_EQ(count, 5);

    timeval wait = {5, 0};
    ASSERT_EQ(ZYNET_select(0, readable.get_fdsetp(), writable.get_fdsetp(), nullptr, &wait, &count), 0);
    EXPECT_EQ(count, 1101);
    EXPECT_EQ(writable.count(), 1100u);
    ASSERT_EQ(readable.count(), 1u);
    EXPECT_EQ(readable.get_fdsetp()->fd_array[0], sockets[1050]);

    char buffer[64];
    ZYNET_SockAddr from, sender;
    ASSERT_EQ(ZYNET_recvfromicmpsocket(sockets[1050], &from, buffer, 64, &count, 0, 2, &timedOut), 0);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(timedOut, 0);
    ASSERT_EQ(ZYNET_getsockname(sockets[3], &sender), 0);
    EXPECT_EQ(ZYNET_addrequal(&from, &sender, 0, 1), 1);
    for (ZYNET_SOCKET s : sockets)
        ZYNET_close(s);
}

TEST(SocketCalls, AddressResultsAndAccept)
{
    for (int family : {ZYNET_AF_INET, ZYNET_AF_INET6})
    {
        SocketPair pair(family);
        ASSERT_TRUE(pair.Ok());
        ZYNET_SockAddr local, peer;
        ASSERT_EQ(ZYNET_getsockname(pair.client, &local), 0);
        ASSERT_EQ(ZYNET_getpeername(pair.server, &peer), 0);
        EXPECT_EQ(local.family, family);
        EXPECT_NE(ZYNET_getport(&local), 0u);
        EXPECT_EQ(ZYNET_addrequal(&local, &peer, 0, 1), 1);
        EXPECT_EQ(ZYNET_addrequal(&local, &pair.accepted, 0, 1), 1);
        EXPECT_EQ(ZYNET_getsockfamily(pair.server), family) << "23 for IPv6 on every platform";
    }

    if (ZYNET_AreUnixSocketsSupported() == 0)
        return;
    // Unix-domain: an unnamed socket has family 1 and an empty path, and so
    // has the peer an accept reports for it.
    std::string path = zytest::TempSocketPath("calls");
    ZYNET_SOCKET listener, client, server = ZYNET_INVALID_SOCKET;
    ZYNET_SockAddr unixAddr, got;
    ASSERT_EQ(ZYNET_str2ip(path.c_str(), &unixAddr), 0);
    ASSERT_EQ(ZYNET_socket(ZYNET_AF_UNIX, &listener), 0);
    ASSERT_EQ(ZYNET_bind(listener, &unixAddr), 0);
    ASSERT_EQ(ZYNET_listen(listener, 5), 0);
    ASSERT_EQ(ZYNET_getsockname(listener, &got), 0);
    EXPECT_EQ(std::string(got.un.path), path);
    ASSERT_EQ(ZYNET_socket(ZYNET_AF_UNIX, &client), 0);
    ZYNET_SockAddr unnamed, acceptedPeer;
    memset(&unnamed, 0x55, sizeof(unnamed));
    acceptedPeer = unnamed;
    ASSERT_EQ(ZYNET_getsockname(client, &unnamed), 0);
    ASSERT_EQ(ZYNET_connect(client, &unixAddr), 0);
    ASSERT_EQ(ZYNET_accept(listener, &server, &acceptedPeer), 0);
    ASSERT_NE(server, ZYNET_INVALID_SOCKET);
    for (const ZYNET_SockAddr& a : {unnamed, acceptedPeer})
        EXPECT_TRUE(a.family == ZYNET_AF_UNIX && a.un.path[0] == '\0') << a.family;
    for (ZYNET_SOCKET h : {listener, client, server})
        ZYNET_close(h);
    std::remove(path.c_str());
}

namespace
{
struct CallbackLog
{
    std::vector<std::string> events;
    ZYNET_SOCKET listener = ZYNET_INVALID_SOCKET;
    unsigned listenerPort = 0;
} g_log;

void OnListen(ZYNET_SOCKET handle)
{
    // Still before listen(): an accept fails at once.
    ZYNET_SOCKET out = 0;
    ZYNET_SockAddr addr;
    ZYNET_accept(handle, &out, &addr);
    g_log.events.push_back(out == ZYNET_INVALID_SOCKET ? "listen" : "listen-too-late");
    g_log.listener = handle;
    if (ZYNET_getsockname(handle, &addr) == 0)
        g_log.listenerPort = ZYNET_getport(&addr);
}

void OnClose(ZYNET_SOCKET handle)
{
    // Still before closesocket(): the handle is a live socket.
    bool open = ZYNET_getsockfamily(handle) != -1;
    g_log.events.push_back(std::string(open ? "close" : "close-too-late") +
                           (handle == g_log.listener ? " listener" : ""));
}
}  // namespace

TEST(SocketCalls, SocketPairIsConnectedNonBlockingAndCallsBack)
{
    ZYNET_setlistencb(&OnListen);
    ZYNET_setclosecb(&OnClose);
    ZYNET_SOCKET pair[2];
    int rc = ZYNET_socketpair(pair);
    ZYNET_setlistencb(nullptr);
    ZYNET_setclosecb(nullptr);
    ASSERT_EQ(rc, 0);
    // One listen and one close per address tried; the successful one last.
    ASSERT_GE(g_log.events.size(), 2u);
    EXPECT_EQ(g_log.events.size() % 2, 0u);
    EXPECT_EQ(g_log.events[g_log.events.size() - 2], "listen");
    EXPECT_EQ(g_log.events.back(), "close listener");
    for (const std::string& event : g_log.events)
        EXPECT_EQ(event.find("too-late"), std::string::npos) << event;

    // The connecting socket comes first: the accepted one owns the
    // listener's port.
    ZYNET_SockAddr local0, local1, peer0;
    ASSERT_EQ(ZYNET_getsockname(pair[0], &local0), 0);
    ASSERT_EQ(ZYNET_getsockname(pair[1], &local1), 0);
    ASSERT_EQ(ZYNET_getpeername(pair[0], &peer0), 0);
    EXPECT_EQ(ZYNET_getport(&local1), g_log.listenerPort);
    EXPECT_EQ(ZYNET_getport(&peer0), g_log.listenerPort);
    EXPECT_NE(ZYNET_getport(&local0), g_log.listenerPort);

    char buffer[8];
    int count = 0;
    EXPECT_EQ(ZYNET_recv(pair[0], buffer, 8, &count, 0), kWouldBlock);
    EXPECT_EQ(ZYNET_recv(pair[1], buffer, 8, &count, 0), kWouldBlock);
    SendAll(pair[0], "to-1");
    SendAll(pair[1], "to-0");
    EXPECT_EQ(Receive(pair[1], 4), "to-1");
    EXPECT_EQ(Receive(pair[0], 4), "to-0");

    g_log.events.clear();
    ZYNET_setclosecb(&OnClose);
    EXPECT_EQ(ZYNET_close(pair[0]), 0);
    ZYNET_setclosecb(nullptr);
    EXPECT_EQ(ZYNET_close(pair[1]), 0);
    EXPECT_EQ(g_log.events, (std::vector<std::string>{"close"}));
    // A failed close gives closesocket's own -1; the code is the last error.
    EXPECT_EQ(ZYNET_close(ZYNET_INVALID_SOCKET), -1);
    EXPECT_EQ(ZYNET_getlasterror(), 10038);
}

TEST(SocketCalls, SocketPairCyclesLeakNothing)
{
    const int cycles = zytest::IsWindowsTarget() ? 500 : 10000;
#if !defined(_WIN32)
    const int before = zytest::OpenDescriptors();
#endif
    for (int i = 0; i < cycles; ++i)
    {
        ZYNET_SOCKET pair[2];
        ASSERT_EQ(ZYNET_socketpair(pair), 0) << "cycle " << i;
        ASSERT_EQ(ZYNET_close(pair[1]), 0);
        ASSERT_EQ(ZYNET_close(pair[0]), 0);
    }
#if !defined(_WIN32)
    EXPECT_EQ(zytest::OpenDescriptors(), before);
    // Every descriptor is opened close-on-exec.
    ZYNET_SOCKET pair[2];
    ASSERT_EQ(ZYNET_socketpair(pair), 0);
    for (ZYNET_SOCKET h : pair)
    {
        EXPECT_NE(fcntl(static_cast<int>(h), F_GETFD) & FD_CLOEXEC, 0);
        ZYNET_close(h);
    }
#endif
}

#if !defined(_WIN32)
TEST(SocketCalls, SocketPairClosesWhatItOpenedWhenAStepFails)
{
    rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(zytest::OpenDescriptors() + 64);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    // The notices are checked without the sanitizers: their check of a call
    // through the writer needs free descriptors, and none are left here.
#if !defined(__SANITIZE_ADDRESS__)
    zytest::LogCapture log;
#endif
    // Leave exactly `spare` free descriptors: with one, the second socket
    // cannot be made; with two, the accept fails after the connect.
    for (int spare : {1, 2})
    {
        std::vector<int> fillers;
        for (int fd; (fd = dup(0)) >= 0;)
            fillers.push_back(fd);
        for (int i = 0; i < spare; ++i)
        {
            close(fillers.back());
            fillers.pop_back();
        }
        ZYNET_SOCKET pair[2] = {1, 2};
        int rc = ZYNET_socketpair(pair);
        // Every descriptor the call opened is free again.
        int reopened = 0;
        for (int i = 0; i < spare; ++i)
        {
            int fd = dup(0);
            reopened += fd >= 0;
            fillers.push_back(fd);
        }
        for (int fd : fillers)
            if (fd >= 0)
                close(fd);
        EXPECT_NE(rc, 0) << "spare " << spare;
        EXPECT_EQ(pair[0], ZYNET_INVALID_SOCKET);
        EXPECT_EQ(pair[1], ZYNET_INVALID_SOCKET);
        EXPECT_EQ(reopened, spare);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
#if !defined(__SANITIZE_ADDRESS__)
    // Each address given up on is a notice at level 2.
    EXPECT_FALSE(log.lines.empty());
    for (const std::string& line : log.lines)
        EXPECT_EQ(line.substr(0, 2), "2|") << line;
#endif
}
#endif

TEST(SocketCalls, NullPointersAreRefusedAndNothingIsTouched)
{
    SocketPair pair;
    ASSERT_TRUE(pair.Ok());
    char buffer[4];
    int count = 77, timedOut = 77;
    ZYNET_SockAddr addr;
    EXPECT_EQ(ZYNET_bind(pair.client, nullptr), 10014);
    EXPECT_EQ(ZYNET_accept(pair.client, nullptr, &addr), 10014);
    EXPECT_EQ(ZYNET_socketpair(nullptr), 10014);
    EXPECT_EQ(ZYNET_recv(pair.client, nullptr, 4, &count, 0), 10014);
    EXPECT_EQ(ZYNET_recvwithtimeout(pair.client, buffer, 4, &count, 1, nullptr, 0), 10014);
    EXPECT_EQ(ZYNET_sendtoicmpsocket(pair.client, &addr, buffer, 4, &count, 0, 1, nullptr), 10014);
    EXPECT_EQ(count, 77);
    EXPECT_EQ(timedOut, 77);
    EXPECT_EQ(ZYNET_getlasterror(), 10014);
    ZYNET_setlasterror(0);
    EXPECT_EQ(ZYNET_getlasterror(), 0);
}
