// Socket objects over loopback: value semantics, state checks and their
// order, counts reported on failure, and the time-limited calls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZyNetwork/ZySocket.h"
#include "support/TestEnv.h"

namespace
{
void Listen(CZySocket& listener, CZyIPAddr& bound)
{
    ASSERT_FALSE(listener.Bind(CZyIPAddr("127.0.0.1")).IsError());
    ASSERT_FALSE(listener.Listen(5).IsError());
    ASSERT_FALSE(listener.GetLocalAddress(bound).IsError());
}

void ConnectedPair(CZySocket& client, CZySocket& server)
{
    CZySocket listener;
    CZyIPAddr bound;
    Listen(listener, bound);
    ASSERT_FALSE(client.Connect(bound).IsError());
    ASSERT_FALSE(listener.Accept(server).IsError());
    listener.Close();
}

void ExpectError(const CZyError& err, int code, const char* message, const char* function)
{
    ASSERT_TRUE(err.IsError()) << function;
    EXPECT_EQ(err.GetErrorCode(), code) << err.AsString();
    EXPECT_EQ(err.GetErrorMessage(), message);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), function);
    EXPECT_STREQ(err.GetItems()[0]->Location().File(), "ZyNetwork/ZySocket");
}
}  // namespace

TEST(CZySocket, CopiesShareTheHandleAndOnlyCloseReleasesIt)
{
    CZySocket client, server;
    ConnectedPair(client, server);
    {
        CZySocket copy(client), cleared(client), readdressed(client);
        EXPECT_TRUE(copy == client);
        cleared.Clear();
        readdressed = CZyIPAddr("127.0.0.2");
        EXPECT_FALSE(cleared.IsValid() || readdressed.IsValid());
    }  // none of these closed the socket
    char buffer[100] = {};
    int count = -1;
    ASSERT_FALSE(client.Send("0123456789", 10, 0, &count).IsError());
    client.Close();  // this one does: the peer gets the bytes, then the end
    EXPECT_FALSE(client.IsValid());
    ExpectError(server.Recv(buffer, 100, 0, &count), 774, "Socket shutdown detected", "CZySocket::Recv");
    EXPECT_EQ(count, 10);
    EXPECT_EQ(std::string(buffer, 10), "0123456789");
    server.Close();

    // Handles alone decide; an object without one equals nothing and is
    // never less than anything.
    CZySocket empty, low, high, lowElsewhere;
    low.AttachConnectedSocket(5, CZyIPAddr("127.0.0.1"));
    lowElsewhere.AttachConnectedSocket(5, CZyIPAddr("10.1.2.3"));
    high.AttachConnectedSocket(9);
    EXPECT_FALSE(empty == empty);
    EXPECT_TRUE(low == lowElsewhere && low < high && !(high < low));
    EXPECT_FALSE(low < empty || empty < low);
}

TEST(CZySocket, StateChecksComeFirstAndTimedSendsReportWhatMoved)
{
    CZySocket empty, out;
    char buffer[16] = {};
    int count = 99;
    ExpectError(empty.Listen(5), 774, "Not a bound socket", "CZySocket::Listen");
    ExpectError(empty.Accept(out), 774, "Not a listening socket", "CZySocket::Accept");
    ExpectError(empty.Recv(buffer, 4, 0, &count), 774, "Not a valid socket", "CZySocket::Recv");
    EXPECT_EQ(count, 0);
    // The socket is checked before the time-out pointer.
    ExpectError(empty.SendWithTimeOut(buffer, 4, 1, nullptr, 0, &count), 774, "Not a valid socket",
                "CZySocket::SendWithTimeOut");
    EXPECT_EQ(empty.GetPeerAddressString(), "");

    CZySocket client, server;
    ConnectedPair(client, server);
    ZYNET_SOCKET held = client.GetSocketDescriptor();
    ExpectError(client.Socket(CZyIPAddr("127.0.0.1")), 774, "Socket already in use", "CZySocket::Socket");
    EXPECT_EQ(static_cast<ZYNET_SOCKET>(client.GetSocketDescriptor()), held);
    // The output object is checked before this one.
    ExpectError(empty.Accept(client), 774, "Output socket object is already a connected socket", "CZySocket::Accept");

    // The queued byte is counted (a peek waits for it and leaves it there);
    // a null time-out pointer is refused before anything is received.
    ASSERT_FALSE(client.Send("z", 1, 0, &count).IsError());
    int timedOut = -1;
    ZYTEST_ASSERT_OK(server.RecvWithTimeout(buffer, 1, 5, &timedOut, 2 /*MSG_PEEK*/, &count));
    unsigned int queued = 0;
    ZYTEST_ASSERT_OK(server.GetReadQueueLen(&queued));
    EXPECT_EQ(queued, 1u);
    ExpectError(server.RecvWithTimeout(buffer, 1, 1, nullptr, 0, &count), 87,
                "Invalid input parameter, pnTimedOut is NULL", "CZySocket::RecvWithTimeout");
    ASSERT_FALSE(server.Recv(buffer, 1, 0, &count).IsError());
    EXPECT_EQ(buffer[0], 'z');

    // A peer that never reads: a non-blocking sender runs out of time and
    // reports what moved.
    ASSERT_FALSE(client.SetToNonBlocking().IsError());
    std::vector<char> big(32 * 1024 * 1024, 'x');
    ExpectError(client.SendWithTimeOut(big.data(), static_cast<int>(big.size()), 1, &timedOut, 0, &count), 774,
                "Socket send timed out", "CZySocket::SendWithTimeOut");
    EXPECT_EQ(timedOut, 1);
    EXPECT_GT(count, 0);
    EXPECT_LT(count, static_cast<int>(big.size()));
    client.Close();
    server.Close();

    // A platform accept that fails is not an error: the output object stays
    // empty and the thread's last socket error tells why.
    CZySocket unlistened, accepted;
    ASSERT_FALSE(unlistened.Bind(CZyIPAddr("127.0.0.1")).IsError());
    ZYNET_setlasterror(0);
    ZYTEST_EXPECT_OK(unlistened.Accept(accepted));
    EXPECT_FALSE(accepted.IsValid());
    EXPECT_NE(ZYNET_getlasterror(), 0);
    unlistened.Close();
}

TEST(CZySocket, AcceptWithTimeoutWaitsBeforeAccepting)
{
    CZySocket listener, client, accepted;
    CZyIPAddr bound;
    Listen(listener, bound);
    CZySocket occupied(listener);  // holds a socket; never closed by itself
    int timedOut = -1;
    ExpectError(listener.AcceptWithTimeout(accepted, 1, nullptr), 87, "Invalid input parameter, pnTimedOut is NULL",
                "CZySocket::AcceptWithTimeout");

    // An object without a socket gives the wait nothing to watch.
    CZyError err = CZySocket().AcceptWithTimeout(accepted, 1, &timedOut);
    EXPECT_TRUE(err.Is(10022) && err.HasMessage("select call failed")) << err.AsString();
    EXPECT_EQ(timedOut, 0);

    // The output object is looked at only once a client came: without one,
    // the wait runs out.
    err = listener.AcceptWithTimeout(occupied, 1, &timedOut);
    ExpectError(err, 137, "no connection request received from client within the timeout 1",
                "CZySocket::AcceptWithTimeout");
    EXPECT_TRUE(FXErrorUtil::IsErrNo(err, 137));
    EXPECT_EQ(timedOut, 1);

    ASSERT_FALSE(client.Connect(bound).IsError());
    ExpectError(listener.AcceptWithTimeout(occupied, 5, &timedOut), 774,
                "Output socket object is already a connected socket", "CZySocket::Accept");
    EXPECT_EQ(timedOut, 0);
    ZYTEST_ASSERT_OK(listener.AcceptWithTimeout(accepted, 5, &timedOut));

    // Zero seconds is a plain, blocking accept.
    CZySocket client2, accepted2;
    ASSERT_FALSE(client2.Connect(bound).IsError());
    ASSERT_FALSE(listener.AcceptWithTimeout(accepted2, 0, &timedOut).IsError());
    EXPECT_TRUE(accepted2.IsValid());
    for (CZySocket* s : {&listener, &accepted, &client, &client2, &accepted2})
        s->Close();
}

TEST(CZySocket, FastLoopBackIsAdvisory)
{
    // The loopback request is advisory: its failure (Windows) must not fail
    // the operation nor stay behind as the thread's last socket error.
    CZySocket::SetFastLoopBack(true);
    ZYNET_setlasterror(0);
    CZySocket client, server;
    ConnectedPair(client, server);
    CZySocket::SetFastLoopBack(false);
    EXPECT_EQ(ZYNET_getlasterror(), 0);
    client.Close();
    server.Close();
}
