// Socket objects over real loopback sockets: value semantics, the state
// checks, short and timed transfers with their counts, the time-limited
// accept, socket pairs, options and the start-up guard.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZyNetwork/ZySockInit.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyNetwork/ZySocketSelector.h"

namespace
{
// TCP_NODELAY at level IPPROTO_TCP: the same numbers on Linux and Windows.
const int kLevelTcp = 6;
const int kOptionNoDelay = 1;

// A listener on 127.0.0.1 with a system-chosen port.
void Listen(CZySocket& listener, CZyIPAddr& bound)
{
    CZyIPAddr loopback("127.0.0.1");
    ASSERT_FALSE(listener.Bind(loopback).IsError());
    ASSERT_FALSE(listener.Listen(5).IsError());
    ASSERT_FALSE(listener.GetLocalAddress(bound).IsError());
    ASSERT_NE(bound.GetPortNumber(), 0);
}

// A connected client/server pair over IPv4 loopback; the listener is closed.
void ConnectedPair(CZySocket& client, CZySocket& server)
{
    CZySocket listener;
    CZyIPAddr bound;
    Listen(listener, bound);
    ASSERT_FALSE(client.Connect(bound).IsError());
    ASSERT_FALSE(listener.Accept(server).IsError());
    listener.Close();
}

void ExpectState(const CZyError& err, const char* message, const char* function)
{
    ASSERT_TRUE(err.IsError()) << function;
    EXPECT_EQ(err.GetErrorCode(), 774) << function;
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32) << function;
    EXPECT_EQ(err.GetErrorMessage(), message) << function;
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), function);
    EXPECT_STREQ(err.GetItems()[0]->Location().File(), "ZyNetwork/ZySocket");
}

// Waits (up to 5 s) until the socket has something to read.
bool WaitReadable(const CZySocket& socket)
{
    CZySocketSelector selector;
    selector.SetReadSocket(socket);
    struct timeval limit = {5, 0};
    bool timedOut = true;
    return !selector.Select(&limit, &timedOut).IsError() && !timedOut;
}
}  // namespace

TEST(CZySocket, CopiesShareTheHandleAndOnlyCloseReleasesIt)
{
    CZySocket client, server;
    ConnectedPair(client, server);

    {
        CZySocket copy(client);
        EXPECT_TRUE(copy == client);
        CZySocket cleared = client;
        cleared.Clear();
        EXPECT_FALSE(cleared.IsValid());
        CZySocket readdressed = client;
        readdressed = CZyIPAddr("127.0.0.2");
        EXPECT_FALSE(readdressed.IsValid());
    }  // copies destroyed, cleared and re-addressed: the socket stays open

    int sent = -1, received = -1;
    EXPECT_FALSE(client.Send("ab", 2, 0, &sent).IsError());
    EXPECT_EQ(sent, 2);
    char buffer[8] = {};
    EXPECT_FALSE(server.Recv(buffer, 2, 0, &received).IsError());
    EXPECT_EQ(std::string(buffer, 2), "ab");

    // Close releases it: the peer sees the end of the stream.
    client.Close();
    EXPECT_FALSE(client.IsValid());
    int timedOut = -1;
    CZyError err = server.RecvWithTimeout(buffer, 1, 5, &timedOut, 0, &received);
    ExpectState(err, "Socket shutdown detected", "CZySocket::RecvWithTimeout");
    EXPECT_EQ(timedOut, 0);
    EXPECT_EQ(received, 0);
    server.Close();

    // Comparison looks at handles only; an empty right-hand side is never
    // equal and never greater.
    CZySocket empty1, empty2;
    EXPECT_FALSE(empty1 == empty2);
    EXPECT_FALSE(empty1 == empty1);
    EXPECT_TRUE(empty1 != empty2);
    CZySocket low, high;
    low.AttachConnectedSocket(5, CZyIPAddr("127.0.0.1"));
    high.AttachConnectedSocket(9, CZyIPAddr("127.0.0.2"));
    CZySocket lowOtherAddress;
    lowOtherAddress.AttachConnectedSocket(5, CZyIPAddr("10.1.2.3"));
    EXPECT_TRUE(low == lowOtherAddress);
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    EXPECT_FALSE(low < empty1);
    EXPECT_FALSE(empty1 < low);  // no handle is all ones: it sorts after every handle

    CZySocketDescriptor descriptor;
    EXPECT_FALSE(descriptor.IsValid());
    *&descriptor = 26;
    EXPECT_TRUE(descriptor.IsValid());
    EXPECT_EQ(descriptor.AsString(), "0x0000001A");
    EXPECT_EQ(CZySocketDescriptor::AsString(ZYNET_INVALID_SOCKET), "0xFFFFFFFF");
    EXPECT_FALSE(CZySocket::Dummy().IsValid());
}

TEST(CZySocket, StateChecksComeBeforeAnyCall)
{
    CZySocket empty, accepted;
    char buffer[16] = {};
    int count = 99, timedOut = 0;
    unsigned int queued = 0;
    CZyIPAddr address;
    ExpectState(empty.Listen(5), "Not a bound socket", "CZySocket::Listen");
    ExpectState(empty.Accept(accepted), "Not a listening socket", "CZySocket::Accept");
    ExpectState(empty.Recv(buffer, 4, 0, &count), "Not a valid socket", "CZySocket::Recv");
    EXPECT_EQ(count, 0);
    count = 99;
    ExpectState(empty.Send(buffer, 4, 0, &count), "Not a valid socket", "CZySocket::Send");
    EXPECT_EQ(count, 0);
    ExpectState(empty.RecvWithTimeout(buffer, 4, 1, &timedOut, 0, &count), "Not a valid socket",
                "CZySocket::RecvWithTimeout");
    ExpectState(empty.SetToNonBlocking(), "Not a valid socket", "CZySocket::SetToNonBlocking");
    ExpectState(empty.GetReadQueueLen(&queued), "Not a valid socket", "CZySocket::GetReadQueueLen");
    ExpectState(empty.GetPeerAddress(address), "Not a valid socket", "CZySocket::GetPeerAddress");
    EXPECT_EQ(empty.GetLocalAddressString(), "");
    CZyError nagle = empty.NagleOff();
    ExpectState(nagle, "Not a valid socket", "CZySocket::SetSockOpt");
    EXPECT_STREQ(nagle.GetItems().back()->Location().Function(), "CZySocket::NagleOff");

    CZySocket client, server;
    ConnectedPair(client, server);
    ZYNET_SOCKET held = client.GetSocketDescriptor();
    ExpectState(client.Socket(CZyIPAddr("127.0.0.1")), "Socket already in use", "CZySocket::Socket");
    ExpectState(client.DgramSocket(CZyIPAddr("127.0.0.1")), "Socket already in use", "CZySocket::DgramSocket");
    EXPECT_EQ(static_cast<ZYNET_SOCKET>(client.GetSocketDescriptor()), held);

    CZySocket listener;
    CZyIPAddr bound;
    Listen(listener, bound);
    ExpectState(listener.Accept(server), "Output socket object is already a connected socket", "CZySocket::Accept");

    // A null time-out pointer is refused before anything is received: the
    // five bytes stay queued.
    int sent = 0;
    ASSERT_FALSE(client.Send("hello", 5, 0, &sent).IsError());
    ASSERT_TRUE(WaitReadable(server));
    count = 99;
    CZyError err = server.RecvWithTimeout(buffer, 5, 1, nullptr, 0, &count);
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorCode(), 87);
    EXPECT_EQ(err.GetErrorMessage(), "Invalid input parameter, pnTimedOut is NULL");
    EXPECT_EQ(count, 0);
    err = client.SendWithTimeOut(buffer, 5, 1, nullptr, 0, &count);
    EXPECT_TRUE(err.Is(87));
    ASSERT_FALSE(server.GetReadQueueLen(&queued).IsError());
    EXPECT_EQ(queued, 5u);
    ASSERT_FALSE(server.Recv(buffer, 5, 0, &count).IsError());
    EXPECT_EQ(std::string(buffer, 5), "hello");

    listener.Close();
    client.Close();
    server.Close();
}

TEST(CZySocket, ShortAndTimedTransfersReportTheirCounts)
{
    CZySocket client, server;
    ConnectedPair(client, server);
    char buffer[100] = {};
    int count = -1, timedOut = -1;

    // Nothing arrives: the time-limited receive runs out.
    CZyError err = server.RecvWithTimeout(buffer, 10, 1, &timedOut, 0, &count);
    ExpectState(err, "Socket receive timed out", "CZySocket::RecvWithTimeout");
    EXPECT_EQ(timedOut, 1);
    EXPECT_EQ(count, 0);

    // A peer that never reads: the send fills the buffers and runs out,
    // reporting how much it got rid of. (The sender is non-blocking: a
    // blocking send, once woken, waits until it has sent everything.)
    ASSERT_FALSE(client.SetToNonBlocking().IsError());
    std::vector<char> big(32 * 1024 * 1024, 'x');
    err = client.SendWithTimeOut(big.data(), static_cast<int>(big.size()), 1, &timedOut, 0, &count);
    ExpectState(err, "Socket send timed out", "CZySocket::SendWithTimeOut");
    EXPECT_EQ(timedOut, 1);
    EXPECT_GT(count, 0);
    EXPECT_LT(count, static_cast<int>(big.size()));
    client.Close();
    server.Close();

    // Ten bytes of a hundred, then the peer closes.
    ConnectedPair(client, server);
    ASSERT_FALSE(client.Send("0123456789", 10, 0, &count).IsError());
    client.Close();
    err = server.Recv(buffer, 100, 0, &count);
    ExpectState(err, "Socket shutdown detected", "CZySocket::Recv");
    EXPECT_EQ(count, 10);
    EXPECT_EQ(std::string(buffer, 10), "0123456789");
    server.Close();
}

TEST(CZySocket, AcceptWithTimeoutWaitsTimesOutAndAccepts)
{
    CZySocket listener, accepted;
    CZyIPAddr bound;
    Listen(listener, bound);

    CZyError err = listener.AcceptWithTimeout(accepted, 1, nullptr);
    ASSERT_TRUE(err.Is(87));
    EXPECT_EQ(err.GetErrorMessage(), "Invalid input parameter, pnTimedOut is NULL");

    int timedOut = -1;
    err = listener.AcceptWithTimeout(accepted, 1, &timedOut);
    ASSERT_TRUE(err.IsError());
    EXPECT_TRUE(FXErrorUtil::IsErrNo(err, 137));
    EXPECT_EQ(err.GetErrorMessage(), "no connection request received from client within the timeout 1");
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZySocket::AcceptWithTimeout");
    EXPECT_EQ(timedOut, 1);
    EXPECT_FALSE(accepted.IsValid());

    // A pending client: accepted at once, with the client's address.
    CZySocket client;
    ASSERT_FALSE(client.Connect(bound).IsError());
    err = listener.AcceptWithTimeout(accepted, 5, &timedOut);
    ASSERT_FALSE(err.IsError()) << err.AsString();
    EXPECT_EQ(timedOut, 0);
    ASSERT_TRUE(accepted.IsValid());
    CZyIPAddr clientLocal;
    ASSERT_FALSE(client.GetLocalAddress(clientLocal).IsError());
    EXPECT_EQ(accepted.GetAddress().GetPortNumber(), clientLocal.GetPortNumber());
    EXPECT_TRUE(accepted.GetAddress() == clientLocal);
    int count = 0;
    ASSERT_FALSE(client.Send("z", 1, 0, &count).IsError());
    char byte = 0;
    ASSERT_FALSE(accepted.Recv(&byte, 1, 0, &count).IsError());
    EXPECT_EQ(byte, 'z');

    // Zero seconds is a plain accept.
    CZySocket client2, accepted2;
    ASSERT_FALSE(client2.Connect(bound).IsError());
    ASSERT_FALSE(listener.AcceptWithTimeout(accepted2, 0, &timedOut).IsError());
    EXPECT_TRUE(accepted2.IsValid());

    // The output object already holds a socket: refused without waiting.
    err = listener.AcceptWithTimeout(accepted2, 5, &timedOut);
    EXPECT_EQ(err.GetErrorMessage(), "Output socket object is already a connected socket");

    for (CZySocket* s : {&listener, &accepted, &client, &client2, &accepted2})
        s->Close();
}

TEST(CZySocket, SocketPairOptionsAndAddresses)
{
    CZySocket first, second;
    ASSERT_FALSE(CZySocket::CreateSocketPair(&first, &second).IsError());
    ASSERT_TRUE(first.IsValid());
    ASSERT_TRUE(second.IsValid());

    // The first is the connecting end: its peer is the second's local side.
    CZyIPAddr firstPeer, secondLocal;
    ASSERT_FALSE(first.GetPeerAddress(firstPeer).IsError());
    ASSERT_FALSE(second.GetLocalAddress(secondLocal).IsError());
    EXPECT_EQ(firstPeer.GetPortNumber(), secondLocal.GetPortNumber());
    CZyIPAddr::IP_FAMILY family = first.GetAddressFamily();
    ASSERT_TRUE(family == CZyIPAddr::IP_FAMILY_IPV4 || family == CZyIPAddr::IP_FAMILY_IPV6) << family;
    EXPECT_EQ(first.GetPeerAddressString(), family == CZyIPAddr::IP_FAMILY_IPV4 ? "127.0.0.1" : "::1");

    // Both ends are non-blocking: an empty receive fails at once.
    char buffer[16] = {};
    int count = -1;
    CZyError err = second.Recv(buffer, 4, 0, &count);
    EXPECT_TRUE(err.Is(10035)) << err.AsString();
    EXPECT_EQ(count, 0);

    ASSERT_FALSE(first.Send("1234567", 7, 0, &count).IsError());
    ASSERT_TRUE(WaitReadable(second));
    unsigned int queued = 0;
    ASSERT_FALSE(second.GetReadQueueLen(&queued).IsError());
    EXPECT_EQ(queued, 7u);
    ASSERT_FALSE(second.SetToBlocking().IsError());
    ASSERT_FALSE(second.Recv(buffer, 7, 0, &count).IsError());
    EXPECT_EQ(std::string(buffer, 7), "1234567");

    // Windows writes TCP_NODELAY back as a single byte, so the value starts
    // zeroed and is compared with zero.
    int32_t value = 0;
    int length = sizeof(value);
    ASSERT_FALSE(first.NagleOff().IsError());
    ASSERT_FALSE(first.GetSockOpt(kLevelTcp, kOptionNoDelay, reinterpret_cast<char*>(&value), &length).IsError());
    EXPECT_NE(value, 0);
    ASSERT_FALSE(first.NagleOn().IsError());
    value = 0x5A5A5A5A;
    length = sizeof(value);
    ASSERT_FALSE(first.GetSockOpt(kLevelTcp, kOptionNoDelay, reinterpret_cast<char*>(&value), &length).IsError());
    EXPECT_EQ(value & 0xFF, 0);

    // Shutting down the sending side ends the peer's stream.
    ASSERT_FALSE(first.Shutdown(1).IsError());
    int timedOut = -1;
    ExpectState(second.RecvWithTimeout(buffer, 4, 5, &timedOut, 0, &count), "Socket shutdown detected",
                "CZySocket::RecvWithTimeout");
    EXPECT_EQ(count, 0);

    first.Close();
    second.Close();
    EXPECT_TRUE(CZySocket::CreateSocketPair(nullptr, &second).Is(87));
}

TEST(CZySocket, FastLoopBackRequestNeverFailsOrLeavesAnError)
{
    CZySocket::SetFastLoopBack(true);
    ZYNET_setlasterror(0);
    CZySocket listener, client, accepted;
    CZyIPAddr bound;
    Listen(listener, bound);
    EXPECT_EQ(ZYNET_getlasterror(), 0);
    CZyError err = client.Connect(bound);
    CZySocket::SetFastLoopBack(false);
    ASSERT_FALSE(err.IsError()) << err.AsString();
    EXPECT_EQ(ZYNET_getlasterror(), 0);
    EXPECT_FALSE(listener.Accept(accepted).IsError());
    for (CZySocket* s : {&listener, &client, &accepted})
        s->Close();
}

TEST(CZySockInit, EachGuardCountsForOneStart)
{
    CZySockInit outer;
    ASSERT_FALSE(outer.Init().IsError());
    ASSERT_FALSE(outer.Init().IsError());  // already started: no second start
    {
        CZySockInit inner;
        ASSERT_FALSE(inner.Init().IsError());
    }  // the inner guard's clean-up leaves the outer start in force
    CZySocket socket;
    EXPECT_FALSE(socket.Socket(CZyIPAddr("127.0.0.1")).IsError());
    socket.Close();
    outer.CleanUp();
    outer.CleanUp();  // a second clean-up does nothing
}
