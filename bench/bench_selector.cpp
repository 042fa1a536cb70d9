// The selector against the raw waits on the same sockets: N = 1024, 4096 and
// 8192 UDP sockets on 127.0.0.1 registered for reading, with 1% of them
// (every hundredth) or all of them holding a datagram. Each call is a
// zero-timeout wait plus the collection of the ready sockets:
//   lib    CZySocketSelector::Select, then GetReadSelected (the selector
//          waits on its own epoll set when few sockets are ready, with one
//          poll() when most are: docs/PLATFORMS.md)
//   poll   poll() over a prepared pollfd array, then a scan of revents
//   epoll  epoll_wait() on a level-triggered epoll set over the same
//          sockets, then its event list
// Datagrams are never read during a measurement, so readiness stays put, and
// every call checks that it found exactly the sockets made ready.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyNetwork/ZySocketSelector.h"

namespace
{

const int kMaxSockets = 8192;

// The sockets every benchmark of this program waits on, made once.
class SocketPool
{
public:
    static SocketPool& Get()
    {
        static SocketPool pool;
        return pool;
    }

    const std::string& Failure() const { return m_failure; }
    const std::vector<int>& Fds() const { return m_fds; }

    // Leaves exactly the sockets i < n with i % every == 0 readable. Returns
    // an empty string, or what went wrong.
    std::string MakeReady(int n, int every)
    {
        if (!m_failure.empty())
            return m_failure;
        for (int i = 0; i < n; ++i)
        {
            bool want = i % every == 0;
            if (want == m_ready[size_t(i)])
                continue;
            if (want)
            {
                char byte = 'r';
                if (sendto(m_sender, &byte, 1, 0, reinterpret_cast<const sockaddr*>(&m_addresses[size_t(i)]),
                           sizeof(sockaddr_in)) != 1)
                    return zybench::ErrnoText("sendto");
            }
            else
            {
                char byte;
                while (recv(m_fds[size_t(i)], &byte, 1, MSG_DONTWAIT) >= 0)
                {
                }
            }
            m_ready[size_t(i)] = want;
        }
        // Loopback delivery is quick but not synchronous: wait until the
        // kernel shows every datagram.
        const int expected = ExpectedReady(n, every);
        std::vector<pollfd> fds(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i)
            fds[size_t(i)] = pollfd{m_fds[size_t(i)], POLLIN, 0};
        for (int attempt = 0; attempt < 2000; ++attempt)
        {
            int ready = poll(fds.data(), nfds_t(n), 0);
            if (ready == expected)
                return std::string();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return "sockets did not become ready";
    }

    static int ExpectedReady(int n, int every) { return (n + every - 1) / every; }

private:
    SocketPool() : m_ready(kMaxSockets, false)
    {
        zybench::RaiseDescriptorLimit(kMaxSockets + 256);
        m_sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (m_sender < 0)
        {
            m_failure = zybench::ErrnoText("socket");
            return;
        }
        for (int i = 0; i < kMaxSockets; ++i)
        {
            int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            if (fd < 0)
            {
                m_failure = zybench::ErrnoText("socket (raise the open-file limit to 8448)");
                return;
            }
            m_fds.push_back(fd);
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            socklen_t length = sizeof(address);
            if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
                getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            {
                m_failure = zybench::ErrnoText("bind");
                return;
            }
            m_addresses.push_back(address);
        }
    }

    int m_sender = -1;
    std::vector<int> m_fds;
    std::vector<sockaddr_in> m_addresses;
    std::vector<bool> m_ready;
    std::string m_failure;
};

// A selector with the first n sockets of the pool registered for reading,
// built once per n: registration is not what is measured.
CZySocketSelector& SelectorFor(int n)
{
    static std::map<int, std::unique_ptr<CZySocketSelector>> selectors;
    std::unique_ptr<CZySocketSelector>& selector = selectors[n];
    if (!selector)
    {
        selector.reset(new CZySocketSelector());
        const std::vector<int>& fds = SocketPool::Get().Fds();
        for (int i = 0; i < n && i < int(fds.size()); ++i)
        {
            CZySocket socket;
            socket.AttachConnectedSocket(ZYNET_SOCKET(fds[size_t(i)]));
            selector->SetReadSocket(socket);
        }
    }
    return *selector;
}

// One benchmark per readiness and size, measuring the three waits in
// alternating blocks (see zybench::RunInterleaved): counters poll_ns,
// epoll_ns and lib_ns are CPU time per wait-and-collect, *_allocs the heap
// allocations per call, "ready" the number of ready sockets found.
void BM_Selector(benchmark::State& state, int every)
{
    const int n = int(state.range(0));
    std::string failure = SocketPool::Get().MakeReady(n, every);
    if (!failure.empty())
    {
        state.SkipWithError(failure.c_str());
        return;
    }
    const size_t expected = size_t(SocketPool::ExpectedReady(n, every));
    const std::vector<int>& fds = SocketPool::Get().Fds();

    // poll(): a prepared array, then a scan of revents.
    std::vector<pollfd> pollSet(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        pollSet[size_t(i)] = pollfd{fds[size_t(i)], POLLIN, 0};
    std::vector<int> pollReady;
    pollReady.reserve(size_t(n));

    // epoll_wait(): a level-triggered set made once.
    int epfd = epoll_create1(EPOLL_CLOEXEC);
    if (epfd < 0)
    {
        state.SkipWithError(zybench::ErrnoText("epoll_create1").c_str());
        return;
    }
    for (int i = 0; i < n; ++i)
    {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fds[size_t(i)];
        if (epoll_ctl(epfd, EPOLL_CTL_ADD, fds[size_t(i)], &event) != 0)
        {
            state.SkipWithError(zybench::ErrnoText("epoll_ctl").c_str());
            close(epfd);
            return;
        }
    }
    std::vector<epoll_event> events(static_cast<size_t>(n));
    std::vector<int> epollReady;
    epollReady.reserve(size_t(n));

    // The library: a zero-timeout Select, then the ready sockets as the
    // ordered set that GetReadSelected returns (dropped again, as a caller
    // would after handling them).
    CZySocketSelector& selector = SelectorFor(n);
    const timeval noWait{0, 0};

    auto found = [expected](size_t count) -> std::string {
        if (count == expected)
            return std::string();
        return "found " + std::to_string(count) + " ready sockets, expected " + std::to_string(expected);
    };
    std::vector<zybench::Contender> contenders;
    contenders.push_back({"poll", [&]() -> std::string {
                              pollReady.clear();
                              int count = poll(pollSet.data(), nfds_t(n), 0);
                              if (count < 0)
                                  return zybench::ErrnoText("poll");
                              for (int i = 0; i < n && count > 0; ++i)
                                  if (pollSet[size_t(i)].revents & POLLIN)
                                      pollReady.push_back(pollSet[size_t(i)].fd);
                              benchmark::DoNotOptimize(pollReady.data());
                              return found(pollReady.size());
                          }});
    contenders.push_back({"epoll", [&]() -> std::string {
                              epollReady.clear();
                              int count = epoll_wait(epfd, events.data(), n, 0);
                              if (count < 0)
                                  return zybench::ErrnoText("epoll_wait");
                              for (int i = 0; i < count; ++i)
                                  epollReady.push_back(events[size_t(i)].data.fd);
                              benchmark::DoNotOptimize(epollReady.data());
                              return found(epollReady.size());
                          }});
    contenders.push_back({"lib", [&]() -> std::string {
                              bool timedOut = false;
                              CZyError error = selector.Select(&noWait, &timedOut);
                              if (error.IsError())
                                  return "Select: " + error.AsString();
                              CZySocketSelector::SocketSet ready = selector.GetReadSelected();
                              benchmark::DoNotOptimize(ready);
                              return found(ready.size());
                          }});
    // Blocks of a few milliseconds at every size.
    zybench::RunInterleaved(state, contenders, std::max(1, 16384 / n));
    close(epfd);
    state.counters["ready"] = double(expected);
}

void RegisterAll()
{
    struct Readiness
    {
        int every;
        const char* name;
    } readiness[] = {{100, "ready1pct"}, {1, "readyall"}};
    for (const auto& r : readiness)
    {
        std::string name = std::string("selector/") + r.name;
        benchmark::RegisterBenchmark(name.c_str(), BM_Selector, r.every)
            ->Arg(1024)
            ->Arg(4096)
            ->Arg(8192)
            ->MinTime(0.3)
            ->Unit(benchmark::kMillisecond);
    }
}

const bool registered = (RegisterAll(), true);

}  // namespace

ZYBENCH_MAIN()
