// The selector against the raw waits on the same sockets: N = 1024, 4096 and
// 8192 UDP sockets on 127.0.0.1 registered for reading, with 1% of them
// (every hundredth) or all of them holding a datagram. One iteration is a
// zero-timeout wait plus the collection of the ready sockets:
//   lib    CZySocketSelector::Select, then GetReadSelected
//   poll   poll() over a prepared pollfd array, then a scan of revents
//   epoll  epoll_wait() on a level-triggered epoll set, then its event list
// Datagrams are never read during a measurement, so readiness stays put.
// The "ready" counter is the number of ready sockets each iteration found
// (checked against the number made ready), "allocs" the heap allocations per
// iteration.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

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

bool Prepare(benchmark::State& state, int n, int every)
{
    std::string failure = SocketPool::Get().MakeReady(n, every);
    if (!failure.empty())
    {
        state.SkipWithError(failure.c_str());
        return false;
    }
    return true;
}

void Finish(benchmark::State& state, uint64_t allocations, int found)
{
    state.counters["allocs"] = benchmark::Counter(double(allocations), benchmark::Counter::kAvgIterations);
    state.counters["ready"] = double(found);
}

void BM_Lib(benchmark::State& state, int every)
{
    const int n = int(state.range(0));
    if (!Prepare(state, n, every))
        return;
    const int expected = SocketPool::ExpectedReady(n, every);
    CZySocketSelector& selector = SelectorFor(n);
    const timeval noWait{0, 0};
    uint64_t allocations = 0;
    int found = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        bool timedOut = false;
        CZyError error = selector.Select(&noWait, &timedOut);
        CZySocketSelector::SocketSet ready = selector.GetReadSelected();
        found = int(ready.size());
        benchmark::DoNotOptimize(ready);
        allocations += zybench::HeapAllocations() - before;
        if (error.IsError())
        {
            state.SkipWithError(("Select: " + error.AsString()).c_str());
            break;
        }
        if (found != expected)
        {
            state.SkipWithError(("GetReadSelected returned " + std::to_string(found) + " sockets, expected " +
                                 std::to_string(expected))
                                    .c_str());
            break;
        }
    }
    Finish(state, allocations, found);
}

void BM_Poll(benchmark::State& state, int every)
{
    const int n = int(state.range(0));
    if (!Prepare(state, n, every))
        return;
    const int expected = SocketPool::ExpectedReady(n, every);
    const std::vector<int>& fds = SocketPool::Get().Fds();
    std::vector<pollfd> set(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        set[size_t(i)] = pollfd{fds[size_t(i)], POLLIN, 0};
    std::vector<int> ready;
    ready.reserve(size_t(n));
    uint64_t allocations = 0;
    int found = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        ready.clear();
        int count = poll(set.data(), nfds_t(n), 0);
        for (int i = 0; i < n && count > 0; ++i)
            if (set[size_t(i)].revents & POLLIN)
                ready.push_back(set[size_t(i)].fd);
        found = int(ready.size());
        benchmark::DoNotOptimize(ready.data());
        allocations += zybench::HeapAllocations() - before;
        if (count < 0 || found != expected)
        {
            state.SkipWithError(count < 0 ? zybench::ErrnoText("poll").c_str() : "poll found the wrong sockets");
            break;
        }
    }
    Finish(state, allocations, found);
}

void BM_Epoll(benchmark::State& state, int every)
{
    const int n = int(state.range(0));
    if (!Prepare(state, n, every))
        return;
    const int expected = SocketPool::ExpectedReady(n, every);
    const std::vector<int>& fds = SocketPool::Get().Fds();
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
    std::vector<int> ready;
    ready.reserve(size_t(n));
    uint64_t allocations = 0;
    int found = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        ready.clear();
        int count = epoll_wait(epfd, events.data(), n, 0);
        for (int i = 0; i < count; ++i)
            ready.push_back(events[size_t(i)].data.fd);
        found = int(ready.size());
        benchmark::DoNotOptimize(ready.data());
        allocations += zybench::HeapAllocations() - before;
        if (count < 0 || found != expected)
        {
            state.SkipWithError(count < 0 ? zybench::ErrnoText("epoll_wait").c_str()
                                          : "epoll_wait found the wrong sockets");
            break;
        }
    }
    close(epfd);
    Finish(state, allocations, found);
}

void RegisterAll()
{
    struct Readiness
    {
        int every;
        const char* name;
    } readiness[] = {{100, "ready1pct"}, {1, "readyall"}};
    struct Waiter
    {
        void (*function)(benchmark::State&, int);
        const char* name;
    } waiters[] = {{BM_Poll, "poll"}, {BM_Epoll, "epoll"}, {BM_Lib, "lib"}};
    for (const auto& r : readiness)
        for (const auto& w : waiters)
        {
            std::string name = std::string("selector/") + r.name + "/" + w.name;
            benchmark::RegisterBenchmark(name.c_str(), w.function, r.every)
                ->Arg(1024)
                ->Arg(4096)
                ->Arg(8192)
                ->MinTime(0.2)
                ->Unit(benchmark::kMicrosecond);
        }
}

const bool registered = (RegisterAll(), true);

}  // namespace

ZYBENCH_MAIN()
