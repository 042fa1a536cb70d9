// Helpers shared by the benchmark programs: a per-thread count of heap
// allocations, loopback stream pairs made with raw calls, the descriptor
// limit, and the start-up every program runs before its benchmarks.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace zybench
{

// Number of malloc/calloc/realloc calls made by the calling thread since it
// started. Every program of this directory links a counting malloc that
// forwards to the C library's, so allocations made inside the shared library
// are counted too.
uint64_t HeapAllocations();

// Checks that the counter sees allocations made in this program and inside
// the shared library. Returns an empty string, or what is wrong.
std::string CheckAllocationCounter();

// Raises the soft limit on open descriptors to at least `wanted` (and the
// hard limit too when the process may). Returns the limit now in force.
uint64_t RaiseDescriptorLimit(uint64_t wanted);

// A connected pair of blocking stream sockets: `a` connects, `b` accepts.
struct StreamPair
{
    int a = -1;
    int b = -1;
};

// TCP over 127.0.0.1, made with raw calls so that every variant measured
// starts from identical sockets. Returns an empty string or the failure.
std::string MakeTcpLoopbackPair(StreamPair& pair);
// socketpair(AF_UNIX, SOCK_STREAM).
std::string MakeUnixStreamPair(StreamPair& pair);
void ClosePair(StreamPair& pair);

// Text of errno for messages.
std::string ErrnoText(const char* what);

// CPU time of the calling thread / of the whole process, in seconds.
double ThreadCpuSeconds();
double ProcessCpuSeconds();

// Ways of doing the same work, measured in alternation so that every one of
// them sees the same load on the machine: each benchmark iteration runs a
// block of `callsPerBlock` calls of each contender in turn (the order rotates
// from one iteration to the next). The result is one counter per contender,
// "<name>_ns": CPU time of the benchmark thread per call, in nanoseconds,
// and "<name>_allocs": heap allocations per call.
// A contender returns an empty string, or what went wrong (which ends the
// benchmark with that error).
struct Contender
{
    std::string name;
    std::function<std::string()> call;
};
void RunInterleaved(benchmark::State& state, std::vector<Contender>& contenders, int callsPerBlock);

// Runs the registered benchmarks after the library's start-up guard has been
// taken; used by every program's main().
int RunBenchmarks(int argc, char** argv);

}  // namespace zybench

#define ZYBENCH_MAIN()                                                                                       \
    int main(int argc, char** argv)                                                                          \
    {                                                                                                        \
        return zybench::RunBenchmarks(argc, argv);                                                           \
    }
