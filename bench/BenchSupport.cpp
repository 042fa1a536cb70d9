#include "BenchSupport.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZySockInit.h"

// ---------------------------------------------------------------------------
// Counting allocator. The executable's malloc, calloc and realloc take the
// place of the C library's for the whole process (the shared library
// included) and forward to glibc's internal entry points, which stay
// exported for exactly this purpose. free, memalign and friends are left to
// the C library: only the number of allocations is of interest.

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* block, size_t size);

namespace
{
// Plain zero-initialised thread-local: lives in the executable's static TLS
// block, so reading it never allocates (which would recurse into malloc).
thread_local uint64_t t_allocations = 0;
}  // namespace

extern "C" void* malloc(size_t size)
{
    ++t_allocations;
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size)
{
    ++t_allocations;
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size)
{
    ++t_allocations;
    return __libc_realloc(block, size);
}

namespace zybench
{

uint64_t HeapAllocations()
{
    return t_allocations;
}

uint64_t RaiseDescriptorLimit(uint64_t wanted)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    if (limit.rlim_cur >= wanted)
        return limit.rlim_cur;
    rlimit raised = limit;
    raised.rlim_cur = wanted;
    if (raised.rlim_max < wanted)
        raised.rlim_max = wanted;
    if (setrlimit(RLIMIT_NOFILE, &raised) != 0)
    {
        // Not allowed to raise the hard limit: take what it permits.
        raised = limit;
        raised.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &raised);
    }
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

std::string ErrnoText(const char* what)
{
    return std::string(what) + ": " + strerror(errno);
}

std::string MakeTcpLoopbackPair(StreamPair& pair)
{
    pair = StreamPair();
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0)
        return ErrnoText("socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    std::string failure;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        failure = ErrnoText("bind");
    else if (listen(listener, 1) != 0)
        failure = ErrnoText("listen");
    else if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        failure = ErrnoText("getsockname");
    else if ((pair.a = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) < 0)
        failure = ErrnoText("socket");
    else if (connect(pair.a, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        failure = ErrnoText("connect");
    else if ((pair.b = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) < 0)
        failure = ErrnoText("accept");
    close(listener);
    if (!failure.empty())
        ClosePair(pair);
    return failure;
}

std::string MakeUnixStreamPair(StreamPair& pair)
{
    pair = StreamPair();
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
        return ErrnoText("socketpair");
    pair.a = fds[0];
    pair.b = fds[1];
    return std::string();
}

void ClosePair(StreamPair& pair)
{
    if (pair.a >= 0)
        close(pair.a);
    if (pair.b >= 0)
        close(pair.b);
    pair = StreamPair();
}

double ThreadCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double ProcessCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

void RunInterleaved(benchmark::State& state, std::vector<Contender>& contenders, int callsPerBlock)
{
    const size_t count = contenders.size();
    std::vector<double> cpu(count, 0.0);
    std::vector<int64_t> calls(count, 0);
    std::vector<uint64_t> allocations(count, 0);
    size_t rotation = 0;
    std::string failure;
    for (auto _ : state)
    {
        for (size_t k = 0; k < count && failure.empty(); ++k)
        {
            const size_t i = (k + rotation) % count;
            Contender& contender = contenders[i];
            const uint64_t allocationsBefore = HeapAllocations();
            const double start = ThreadCpuSeconds();
            for (int n = 0; n < callsPerBlock; ++n)
            {
                failure = contender.call();
                if (!failure.empty())
                {
                    failure = contender.name + ": " + failure;
                    break;
                }
            }
            cpu[i] += ThreadCpuSeconds() - start;
            allocations[i] += HeapAllocations() - allocationsBefore;
            calls[i] += callsPerBlock;
        }
        rotation = (rotation + 1) % count;
        if (!failure.empty())
        {
            state.SkipWithError(failure.c_str());
            return;
        }
    }
    for (size_t i = 0; i < count; ++i)
        if (calls[i] > 0)
        {
            state.counters[contenders[i].name + "_ns"] = cpu[i] * 1e9 / double(calls[i]);
            state.counters[contenders[i].name + "_allocs"] = double(allocations[i]) / double(calls[i]);
        }
}

std::string CheckAllocationCounter()
{
    // An allocation made here, through a pointer the compiler cannot see
    // through, so that it is not elided.
    void* (*volatile allocate)(size_t) = malloc;
    uint64_t before = HeapAllocations();
    void* block = allocate(64);
    free(block);
    if (HeapAllocations() - before != 1)
        return "the counting malloc is not in effect in this program";

    // An allocation made inside the shared library: a descriptor set that
    // grows past its inline storage allocates exactly once.
    rkfdset set;
    rkfdset_alloc(ZYNET_FD_SETSIZE * 2, &set);
    before = HeapAllocations();
    for (ZYNET_SOCKET handle = 0; handle <= ZYNET_FD_SETSIZE; ++handle)
        rkfdset_set(handle, &set);
    const uint64_t counted = HeapAllocations() - before;
    const bool grown = set.size > ZYNET_FD_SETSIZE;
    rkfdset_free(&set);
    if (!grown)
        return "a descriptor set did not grow past its inline storage";
    if (counted != 1)
        return "a descriptor set's growth counted " + std::to_string(counted) +
               " allocations instead of 1: the library's allocations are not seen";
    return std::string();
}

int RunBenchmarks(int argc, char** argv)
{
    // The allocs counters are only worth reading if the counter sees the
    // library's allocations; refuse to run otherwise.
    std::string counterFailure = CheckAllocationCounter();
    if (!counterFailure.empty())
    {
        fprintf(stderr, "allocation counter: %s\n", counterFailure.c_str());
        return 1;
    }

    CZySockInit guard;
    CZyError error = guard.Init();
    if (error.IsError())
    {
        fprintf(stderr, "socket start-up failed: %s\n", error.AsString().c_str());
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace zybench
