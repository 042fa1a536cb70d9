// A bounded soak of the socket layer: one selector-based echo server on
// loopback serves 2,000 clients that connect, exchange and leave in random
// order, some stalling halfway or resetting the connection. Afterwards every
// byte sent has been echoed and the process holds the descriptors and heap
// it held before.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyNetwork/ZySocketSelector.h"
#include "support/TestEnv.h"

#if !defined(_WIN32)
#include <malloc.h>
#include <sys/socket.h>
#endif

namespace
{
#if !defined(_WIN32)
size_t HeapInUse()
{
    return mallinfo2().uordblks;
}
#endif

const int kLingerOption = 0x0080;  // SO_LINGER on both platforms' socket headers

// The echo server: accepts, echoes what it reads, and drops a client on end
// of stream or error. Runs until told to stop and every client has gone.
class EchoServer
{
public:
    explicit EchoServer(CZySocket listener) : m_listener(listener) {}

    void Run()
    {
        CZySocketSelector selector;
        selector.SetReadSocket(m_listener);
        std::map<ZYNET_SOCKET, CZySocket> clients;
        std::vector<char> buffer(65536);
        // Runs until told to stop and every accepted client has gone, and
        // every connection made has been accepted: a client may leave before
        // the server took it from the backlog. Windows drops such a
        // connection from the backlog, so there a quiet listener after the
        // stop ends the wait as well.
        int quietAfterStop = 0;
        while (!m_stop.load() || !clients.empty() ||
               (m_accepted.load() < m_expected.load() && quietAfterStop < 10))
        {
            struct timeval limit = {0, 100000};
            bool timedOut = false;
            if (selector.Select(&limit, &timedOut).IsError())
            {
                m_failures++;
                break;
            }
            if (timedOut)
            {
                if (m_stop.load())
                    quietAfterStop++;
                continue;
            }
            quietAfterStop = 0;
            for (const CZySocket& ready : selector.GetReadSelected())
            {
                if (static_cast<ZYNET_SOCKET>(ready.GetSocketDescriptor()) == static_cast<ZYNET_SOCKET>(m_listener.GetSocketDescriptor()))
                {
                    CZySocket client;
                    if (!m_listener.Accept(client).IsError() && client.IsValid())
                    {
                        client.SetToBlocking();
                        clients[static_cast<ZYNET_SOCKET>(client.GetSocketDescriptor())] = client;
                        selector.SetReadSocket(client);
                        m_accepted++;
                    }
                    continue;
                }
                CZySocket client = ready;
                // Recv fills its whole buffer, so read what is queued (a
                // readable socket with nothing queued is at its end).
                unsigned int queued = 0;
                int received = 0;
                CZyError error = client.GetReadQueueLen(&queued);
                if (!error.IsError() && queued > 0)
                    error = client.Recv(buffer.data(), static_cast<int>(queued < buffer.size() ? queued : buffer.size()),
                                        0, &received);
                int sent = 0;
                if (!error.IsError() && received > 0 &&
                    !client.Send(buffer.data(), received, 0, &sent).IsError() && sent == received)
                {
                    m_echoed += static_cast<uint64_t>(received);
                    continue;
                }
                selector.ClearReadSocket(client);
                clients.erase(static_cast<ZYNET_SOCKET>(client.GetSocketDescriptor()));
                client.Close();
            }
        }
        for (auto& entry : clients)
            entry.second.Close();
    }

    void Stop(int connected)
    {
        m_expected.store(connected);
        m_stop.store(true);
    }

    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_echoed{0};
    std::atomic<int> m_accepted{0};
    std::atomic<int> m_expected{0};
    std::atomic<int> m_failures{0};

private:
    CZySocket m_listener;
};

struct Session
{
    CZySocket socket;
    bool stalled = false;
};

// One client worker: `quota` clients in random order of connect, exchange,
// stall, reset and close, at most `open` at a time. Returns the bytes whose
// echo it read back and checked; `stalledBytes` counts bytes sent by clients
// that never read their echo.
uint64_t RunClients(const CZyIPAddr& server, int quota, size_t open, unsigned seed, uint64_t& stalledBytes,
                    int& failures, int& connected)
{
    std::mt19937 random(seed);
    std::vector<Session> sessions;
    uint64_t verified = 0;
    int started = 0;
    std::vector<char> out;
    std::vector<char> in;
    while (started < quota || !sessions.empty())
    {
        unsigned action = random() % 10;
        if (started < quota && (sessions.size() < open && (sessions.empty() || action < 3)))
        {
            Session session;
            if (session.socket.Socket(server).IsError() || session.socket.Connect(server).IsError())
            {
                failures++;
                session.socket.Close();
            }
            else
            {
                sessions.push_back(session);
                connected++;
            }
            started++;
            continue;
        }
        if (sessions.empty())
            continue;
        size_t pick = random() % sessions.size();
        Session& session = sessions[pick];
        if (action < 7 && !session.stalled)
        {
            // One exchange: a random message, echoed back whole.
            out.resize(1 + random() % 4096);
            for (char& c : out)
                c = static_cast<char>(random());
            int sent = 0, timedOut = 0;
            if (action == 6)
            {
                // Stall: half a message, then silence until the end.
                out.resize(out.size() / 2 + 1);
                if (session.socket.Send(out.data(), static_cast<int>(out.size()), 0, &sent).IsError())
                    failures++;
                stalledBytes += static_cast<uint64_t>(sent);
                session.stalled = true;
                continue;
            }
            in.assign(out.size(), 0);
            int received = 0;
            if (session.socket.SendWithTimeOut(out.data(), static_cast<int>(out.size()), 10, &timedOut, 0, &sent)
                    .IsError() ||
                session.socket.RecvWithTimeout(in.data(), static_cast<int>(in.size()), 10, &timedOut, 0, &received)
                    .IsError() ||
                received != static_cast<int>(out.size()) || in != out)
                failures++;
            else
                verified += out.size();
            continue;
        }
        if (action == 9 && !session.stalled)
        {
            // Reset: close with a zero linger time, so the server sees RST.
            // (A stalled client leaves gracefully, so that the half message
            // it sent still reaches the server and is echoed.)
            uint16_t windowsLinger[2] = {1, 0};  // on/off, seconds
            int posixLinger[2] = {1, 0};
            if (zytest::IsWindowsTarget())
                session.socket.SetSockOpt(0xFFFF, kLingerOption, reinterpret_cast<char*>(windowsLinger),
                                          sizeof(windowsLinger));
            else
                session.socket.SetSockOpt(1, 13, reinterpret_cast<char*>(posixLinger), sizeof(posixLinger));
        }
        session.socket.Close();
        sessions.erase(sessions.begin() + static_cast<std::ptrdiff_t>(pick));
    }
    return verified;
}

// One full soak round; returns false (with gtest failures) when bytes or
// operations went missing.
void SoakRound(int clients)
{
    CZyIPAddr any;
    ASSERT_FALSE(any.SetAddressString("127.0.0.1").IsError());
    CZySocket listener;
    ASSERT_FALSE(listener.Socket(any).IsError());
    ASSERT_FALSE(listener.Bind(any).IsError());
    ASSERT_FALSE(listener.Listen(512).IsError());
    ASSERT_FALSE(listener.SetToNonBlocking().IsError());
    CZyIPAddr server;
    ASSERT_FALSE(listener.GetLocalAddress(server).IsError());

    EchoServer echo(listener);
    std::thread serverThread([&echo] { echo.Run(); });
    const int kWorkers = 4;
    std::vector<std::thread> workers;
    std::vector<uint64_t> verified(kWorkers, 0), stalled(kWorkers, 0);
    std::vector<int> failures(kWorkers, 0), connected(kWorkers, 0);
    for (int w = 0; w < kWorkers; ++w)
        workers.emplace_back([&, w] {
            verified[w] = RunClients(server, clients / kWorkers, 40, 1234u + static_cast<unsigned>(w), stalled[w],
                                     failures[w], connected[w]);
        });
    for (std::thread& t : workers)
        t.join();
    int totalConnected = 0;
    for (int count : connected)
        totalConnected += count;
    echo.Stop(totalConnected);
    serverThread.join();
    listener.Close();

    uint64_t totalVerified = 0, totalStalled = 0;
    for (int w = 0; w < kWorkers; ++w)
    {
        EXPECT_EQ(failures[w], 0) << "worker " << w;
        totalVerified += verified[w];
        totalStalled += stalled[w];
    }
    EXPECT_EQ(echo.m_failures.load(), 0);
    EXPECT_GT(totalVerified, 0u);
    if (zytest::IsWindowsTarget())
    {
        // Connections closed or reset before they were accepted never reach
        // the server, nor the half messages of those that stalled.
        EXPECT_LE(echo.m_accepted.load(), totalConnected);
        EXPECT_GE(echo.m_echoed.load(), totalVerified);
        EXPECT_LE(echo.m_echoed.load(), totalVerified + totalStalled);
    }
    else
    {
        EXPECT_EQ(echo.m_accepted.load(), clients);
        EXPECT_EQ(echo.m_echoed.load(), totalVerified + totalStalled);
    }
}
}  // namespace

TEST(Soak, TwoThousandClientsEchoedAndNothingHeldAfterwards)
{
    // A first, small round leaves behind what is made once per process
    // (thread-local scratch storage, the resolver), so the second round
    // starts from a settled heap.
    SoakRound(100);
#if !defined(_WIN32)
    int descriptorsBefore = zytest::OpenDescriptors();
    size_t heapBefore = HeapInUse();
#endif
    // ZYNET_SOAK_CLIENTS raises the count for a longer run by hand.
    const char* wanted = getenv("ZYNET_SOAK_CLIENTS");
    int clients = wanted && atoi(wanted) >= 4 ? atoi(wanted) / 4 * 4 : 2000;
    SoakRound(clients);
#if !defined(_WIN32)
    EXPECT_EQ(zytest::OpenDescriptors(), descriptorsBefore);
#if !defined(__SANITIZE_ADDRESS__)
    // The sanitizer build checks leaks itself; here the heap in use may vary
    // by what the allocator keeps per thread, not by connections served.
    EXPECT_LT(HeapInUse(), heapBefore + 256 * 1024);
#endif
#endif
}
