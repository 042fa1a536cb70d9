// A client/server exchange through the classes, the way callers use them:
// start-up guard, resolve, connect, time-limited send and receive, close.
// It runs over IPv4, IPv6 and a Unix-domain path, and shows the error
// values (with every layer's location) of a silent and of a closing server.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySockInit.h"
#include "ZyNetwork/ZySocket.h"
#include "support/TestEnv.h"

namespace
{
const char kZyFile[] = "tests/test_exchange";

const char kRequest[] = "status of job 42";  // 16 bytes
const int kRequestLength = 16;
const int kReplyLength = 22;  // "done:" + request + "!"

enum class ServerMode
{
    Answer,     // reads the request and answers it
    Silent,     // reads the request and says nothing until the client leaves
    HalfAnswer  // reads the request, sends 3 bytes and closes
};

struct Target
{
    const char* label;
    const char* name;  // what the client resolves
    CZyIPAddr::IP_FAMILY family;
};

// The server side: accepts one client within 10 s and plays its part.
// Returns "" or what went wrong.
std::string Serve(CZySocket listener, ServerMode mode)
{
    CZySocket conn;
    int timedOut = 0, count = 0;
    CZyError err = listener.AcceptWithTimeout(conn, 10, &timedOut);
    if (err.IsError())
        return "accept: " + err.AsString();
    char request[kRequestLength] = {};
    err = conn.RecvWithTimeout(request, kRequestLength, 10, &timedOut, 0, &count);
    std::string result;
    if (err.IsError())
        result = "request: " + err.AsString();
    else if (mode == ServerMode::Answer)
    {
        std::string reply = "done:" + std::string(request, kRequestLength) + "!";
        err = conn.SendWithTimeOut(reply.data(), static_cast<int>(reply.size()), 10, &timedOut, 0, &count);
        if (err.IsError())
            result = "reply: " + err.AsString();
    }
    else if (mode == ServerMode::HalfAnswer)
    {
        err = conn.SendWithTimeOut("don", 3, 10, &timedOut, 0, &count);
        if (err.IsError())
            result = "partial reply: " + err.AsString();
    }
    else
    {
        // Waits for the client to give up and close.
        char byte = 0;
        err = conn.RecvWithTimeout(&byte, 1, 10, &timedOut, 0, &count);
        if (!err.HasMessage("Socket shutdown detected"))
            result = "expected the client to close: " + err.AsString();
    }
    conn.Close();
    return result;
}

// The client's layers: each pushes its own location onto a failure.
CZyError ReadReply(CZySocket& socket, std::string& reply, int seconds, int* received)
{
    char buffer[kReplyLength] = {};
    int timedOut = 0;
    CZyError err = socket.RecvWithTimeout(buffer, kReplyLength, seconds, &timedOut, 0, received);
    reply.assign(buffer, static_cast<size_t>(*received));
    if (err.IsError())
        return err.Push(ZY_LOC("ExchangeClient::ReadReply"), "reading a %d-byte reply", kReplyLength);
    return err;
}

CZyError RunExchange(const Target& target, int port, int seconds, std::string& reply, int* received)
{
    *received = 0;
    CZySockInit guard;
    CZyError err = guard.Init();
    if (err.IsError())
        return err.Push(ZY_LOC("ExchangeClient::Run"));

    CZyIPAddr server;
    err = CZyIPAddr::GetByName(target.name, server, target.family);
    if (err.IsError())
        return err.Push(ZY_LOC("ExchangeClient::Run"), "resolving %s", target.name);
    err = server.SetPortNumber(port);
    if (err.IsError())
        return err.Push(ZY_LOC("ExchangeClient::Run"));

    CZySocket socket;
    err = socket.Connect(server);
    if (!err.IsError())
    {
        int timedOut = 0, sent = 0;
        err = socket.SendWithTimeOut(kRequest, kRequestLength, seconds, &timedOut, 0, &sent);
        if (!err.IsError())
            err = ReadReply(socket, reply, seconds, received);
    }
    socket.Close();
    if (err.IsError())
        return err.Push(ZY_LOC("ExchangeClient::Run"));
    return err;
}

class Exchange : public ::testing::TestWithParam<Target>
{
protected:
    void SetUp() override
    {
        const Target& target = GetParam();
        CZyIPAddr bindTo;
        if (target.family == CZyIPAddr::IP_FAMILY_UNSPEC)
        {
            if (ZYNET_AreUnixSocketsSupported() == 0)
                GTEST_SKIP() << "no Unix-domain sockets on this platform";
            m_path = zytest::TempSocketPath("exchange");
            m_name = m_path;
            ASSERT_FALSE(CZyIPAddr::GetByName(m_name.c_str(), bindTo, target.family).IsError());
            ASSERT_EQ(bindTo.GetAddressFamily(), CZyIPAddr::IP_FAMILY_UNIX);
        }
        else
        {
            m_name = target.name;
            CZyError err = CZyIPAddr::GetByName(target.name, bindTo, target.family);
            ASSERT_FALSE(err.IsError()) << err.AsString();
            ASSERT_EQ(bindTo.GetAddressFamily(), target.family);
        }
        CZyError err = m_listener.Bind(bindTo);
        if (err.IsError() && target.family == CZyIPAddr::IP_FAMILY_IPV6 && (err.Is(10047) || err.Is(10049)))
        {
            m_listener.Close();
            GTEST_SKIP() << "no IPv6 loopback here: " << err.AsString();
        }
        ASSERT_FALSE(err.IsError()) << err.AsString();
        ASSERT_FALSE(m_listener.Listen(5).IsError());
        CZyIPAddr bound;
        ASSERT_FALSE(m_listener.GetLocalAddress(bound).IsError());
        m_port = bound.GetPortNumber();
    }

    void TearDown() override
    {
        m_listener.Close();
        if (!m_path.empty())
            std::remove(m_path.c_str());
    }

    // Runs the client against a server in `mode`; returns the client's result.
    CZyError Run(ServerMode mode, int seconds, std::string& reply, int* received)
    {
        std::string serverResult;
        std::thread server([&] { serverResult = Serve(m_listener, mode); });
        Target target = GetParam();
        target.name = m_name.c_str();
        CZyError err = RunExchange(target, m_port, seconds, reply, received);
        server.join();
        EXPECT_EQ(serverResult, "");
        return err;
    }

    CZySocket m_listener;
    std::string m_path;
    std::string m_name;
    int m_port = 0;
};

void ExpectLayers(const CZyError& err, const char* message)
{
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorCode(), 774);
    EXPECT_EQ(err.GetErrorMessage(), message);
    const std::vector<FXErrorItemPtr>& items = err.GetItems();
    ASSERT_EQ(items.size(), 3u) << err.AsString();
    EXPECT_STREQ(items[0]->Location().Function(), "CZySocket::RecvWithTimeout");
    EXPECT_STREQ(items[0]->Location().File(), "ZyNetwork/ZySocket");
    EXPECT_STREQ(items[1]->Location().Function(), "ExchangeClient::ReadReply");
    EXPECT_EQ(items[1]->Message(), "reading a 22-byte reply");
    EXPECT_STREQ(items[2]->Location().Function(), "ExchangeClient::Run");
    // The rendering reads from the place of failure outwards.
    std::string text = err.AsString();
    size_t raised = text.find(message);
    size_t inner = text.find("ExchangeClient::ReadReply");
    size_t outer = text.find("ExchangeClient::Run");
    EXPECT_NE(raised, std::string::npos) << text;
    EXPECT_LT(raised, inner) << text;
    EXPECT_LT(inner, outer) << text;
}
}  // namespace

TEST_P(Exchange, RequestAndReply)
{
    std::string reply;
    int received = -1;
    CZyError err = Run(ServerMode::Answer, 5, reply, &received);
    ASSERT_FALSE(err.IsError()) << err.AsString();
    EXPECT_EQ(received, kReplyLength);
    EXPECT_EQ(reply, "done:status of job 42!");
}

TEST_P(Exchange, SilentServerTimesOut)
{
    std::string reply;
    int received = -1;
    CZyError err = Run(ServerMode::Silent, 1, reply, &received);
    ExpectLayers(err, "Socket receive timed out");
    EXPECT_EQ(received, 0);
}

TEST_P(Exchange, ClosingServerIsAShutdown)
{
    std::string reply;
    int received = -1;
    CZyError err = Run(ServerMode::HalfAnswer, 5, reply, &received);
    ExpectLayers(err, "Socket shutdown detected");
    EXPECT_EQ(received, 3);
    EXPECT_EQ(reply, "don");
}

INSTANTIATE_TEST_SUITE_P(Families, Exchange,
                         ::testing::Values(Target{"IPv4", "localhost", CZyIPAddr::IP_FAMILY_IPV4},
                                           Target{"IPv6", "::1", CZyIPAddr::IP_FAMILY_IPV6},
                                           Target{"Unix", "", CZyIPAddr::IP_FAMILY_UNSPEC}),
                         [](const ::testing::TestParamInfo<Target>& info) { return std::string(info.param.label); });
