// A client/server exchange the way callers write it, over IPv4, IPv6 and a
// Unix-domain path; a silent and a closing server show each layer's error.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

#include "ZyNetwork/ZySockInit.h"
#include "ZyNetwork/ZySocket.h"
#include "support/TestEnv.h"

namespace
{
const char kZyFile[] = "tests/test_exchange";
const int kRequestLength = 16;  // "status of job 42"
const int kReplyLength = 22;    // "done:" + request + "!"

enum class Server { Answers, StaysSilent, ClosesEarly };

// Accepts one client and plays its part; returns "" or what went wrong.
std::string Serve(CZySocket listener, Server mode)
{
    CZySocket conn;
    char request[kRequestLength] = {};
    int timedOut = 0, count = 0;
    CZyError err = listener.AcceptWithTimeout(conn, 10, &timedOut);
    if (!err.IsError())
        err = conn.RecvWithTimeout(request, kRequestLength, 10, &timedOut, 0, &count);
    std::string reply = "done:" + std::string(request, kRequestLength) + "!";
    if (!err.IsError() && mode != Server::StaysSilent)
        err = conn.SendWithTimeOut(reply.data(), mode == Server::Answers ? kReplyLength : 3, 10, &timedOut, 0, &count);
    else if (!err.IsError())
    {
        err = conn.RecvWithTimeout(request, 1, 10, &timedOut, 0, &count);  // until the client leaves
        err = err.HasMessage("Socket shutdown detected") ? CZyError::Success() : err;
    }
    conn.Close();
    return err.IsError() ? err.AsString() : "";
}

// The client, which pushes its own location onto a failure.
CZyError RunClient(const std::string& name, CZyIPAddr::IP_FAMILY family, int port, int seconds,
                   std::string& reply, int* received)
{
    CZySockInit guard;
    CZyIPAddr server;
    CZySocket socket;
    char buffer[kReplyLength];
    int timedOut = 0, sent = 0;
    *received = 0;
    CZyError err = guard.Init();
    if (!err.IsError())
        err = CZyIPAddr::GetByName(name.c_str(), server, family);
    if (!err.IsError())
        err = server.SetPortNumber(port);  // a Unix path has no port: nothing is stored
    if (!err.IsError())
        err = socket.Connect(server);
    if (!err.IsError())
        err = socket.SendWithTimeOut("status of job 42", kRequestLength, seconds, &timedOut, 0, &sent);
    if (!err.IsError())
        err = socket.RecvWithTimeout(buffer, kReplyLength, seconds, &timedOut, 0, received);
    reply.assign(buffer, static_cast<size_t>(*received));
    socket.Close();
    return err.IsError() ? err.Push(ZY_LOC("ExchangeClient::Run"), "asking for job 42") : err;
}

// The socket's own item, and exactly one the client added on top.
void ExpectLayers(const CZyError& err, const char* message)
{
    ASSERT_TRUE(err.IsError());
    ASSERT_EQ(err.GetItems().size(), 2u) << err.AsString();
    EXPECT_EQ(err.GetErrorCode(), 774);
    EXPECT_EQ(err.GetErrorMessage(), message);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZySocket::RecvWithTimeout");
    EXPECT_STREQ(err.GetItems()[0]->Location().File(), "ZyNetwork/ZySocket");
    EXPECT_STREQ(err.GetItems()[1]->Location().Function(), "ExchangeClient::Run");
}

struct Target
{
    const char* label;
    const char* name;  // empty: a fresh Unix-domain path
    CZyIPAddr::IP_FAMILY family;
};

class Exchange : public ::testing::TestWithParam<Target>
{
};
}  // namespace

TEST_P(Exchange, AnswerSilenceAndEarlyClose)
{
    const Target& target = GetParam();
    std::string name = target.name;
    if (name.empty())
    {
        if (ZYNET_AreUnixSocketsSupported() == 0)
            GTEST_SKIP() << "no Unix-domain sockets on this platform";
        name = zytest::TempSocketPath("exchange");
    }
    CZyIPAddr local, bound;
    ASSERT_FALSE(CZyIPAddr::GetByName(name.c_str(), local, target.family).IsError());
    CZySocket listener;
    CZyError err = listener.Bind(local);
    if (err.Is(10047) || err.Is(10049))
    {
        listener.Close();
        GTEST_SKIP() << target.label << " loopback unavailable: " << err.AsString();
    }
    ASSERT_FALSE(err.IsError()) << err.AsString();
    ASSERT_FALSE(listener.Listen(5).IsError());
    ASSERT_FALSE(listener.GetLocalAddress(bound).IsError());

    auto exchange = [&](Server mode, int seconds, std::string& reply, int* received) {
        std::string serverResult;
        std::thread server([&] { serverResult = Serve(listener, mode); });
        CZyError result = RunClient(name, target.family, bound.GetPortNumber(), seconds, reply, received);
        server.join();
        EXPECT_EQ(serverResult, "");
        return result;
    };
    std::string reply;
    int received = -1;
    ZYTEST_EXPECT_OK(exchange(Server::Answers, 5, reply, &received));
    EXPECT_EQ(reply, "done:status of job 42!");

    ExpectLayers(exchange(Server::StaysSilent, 1, reply, &received), "Socket receive timed out");
    EXPECT_EQ(received, 0);

    ExpectLayers(exchange(Server::ClosesEarly, 5, reply, &received), "Socket shutdown detected");
    EXPECT_EQ(reply, "don");  // the three bytes that came are counted

    listener.Close();
    if (target.family == CZyIPAddr::IP_FAMILY_UNSPEC)
        std::remove(name.c_str());
}

INSTANTIATE_TEST_SUITE_P(Families, Exchange,
                         ::testing::Values(Target{"IPv4", "localhost", CZyIPAddr::IP_FAMILY_IPV4},
                                           Target{"IPv6", "::1", CZyIPAddr::IP_FAMILY_IPV6},
                                           Target{"Unix", "", CZyIPAddr::IP_FAMILY_UNSPEC}),
                         [](const ::testing::TestParamInfo<Target>& info) { return std::string(info.param.label); });

// Copies of a started guard give back only their own start (on Windows a
// second clean-up of one start would leave sockets failing with 10093).
TEST(CZySockInit, CopiesCleanUpOnlyTheirOwnStart)
{
    {
        CZySockInit first;
        ASSERT_FALSE(first.Init().IsError());
        CZySockInit copy(first);
        CZySockInit assigned;
        assigned = first;
        assigned = copy;  // both started: nothing changes
    }
    ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
    EXPECT_EQ(ZYNET_socket(ZYNET_AF_INET, &handle), 0);
    ZYNET_close(handle);
}
