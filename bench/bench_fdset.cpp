// Descriptor sets: filling, testing and clearing 1024 and 8192 entries with
// rkfdset_set / rkfdset_isset / rkfdset_clr, and copying a ZyFdset, against
// the OS's own descriptor set (the select() bit mask) doing the same work.
// Items are operations, so time per operation is 1 / items_per_second
// (a copy counts as one operation). The "allocs" counter is the number of heap
// allocations per iteration of the timed loop (per set filled, per copy).
//
// The OS set is glibc's fd_set at 1024 entries; at 8192 it is a bit mask of
// 8192 bits handled with the same word/bit arithmetic, which is what
// select() accepts from a caller that sizes its own sets (glibc's FD_*
// macros refuse descriptors above 1023 when fortified).
#include <string.h>
#include <sys/select.h>

#include <chrono>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "ZyNetwork/ZyFdset.h"

namespace
{

// Handles used as set members: distinct, in a plausible descriptor range.
std::vector<ZYNET_SOCKET> Handles(int count)
{
    std::vector<ZYNET_SOCKET> handles;
    handles.reserve(size_t(count));
    for (int i = 0; i < count; ++i)
        handles.push_back(ZYNET_SOCKET(i));
    return handles;
}

// ---------------------------------------------------------------------------
// The OS's bit-mask set, sized for `bits` descriptors.
class BitSet
{
public:
    explicit BitSet(int bits) : m_words(size_t((bits + kWordBits - 1) / kWordBits), 0) {}
    void Zero() { memset(m_words.data(), 0, m_words.size() * sizeof(__fd_mask)); }
    void Set(ZYNET_SOCKET fd) { m_words[fd / kWordBits] |= Mask(fd); }
    void Clr(ZYNET_SOCKET fd) { m_words[fd / kWordBits] &= ~Mask(fd); }
    bool IsSet(ZYNET_SOCKET fd) const { return (m_words[fd / kWordBits] & Mask(fd)) != 0; }
    void CopyFrom(const BitSet& other) { memcpy(m_words.data(), other.m_words.data(), m_words.size() * sizeof(__fd_mask)); }

private:
    static const int kWordBits = int(8 * sizeof(__fd_mask));
    static __fd_mask Mask(ZYNET_SOCKET fd) { return __fd_mask(1UL << (fd % kWordBits)); }
    std::vector<__fd_mask> m_words;
};

// At 1024 entries the raw side uses the real fd_set and its macros.
struct OsFdSet1024
{
    fd_set set;
    void Zero() { FD_ZERO(&set); }
    void Set(ZYNET_SOCKET fd) { FD_SET(int(fd), &set); }
    void Clr(ZYNET_SOCKET fd) { FD_CLR(int(fd), &set); }
    bool IsSet(ZYNET_SOCKET fd) const { return FD_ISSET(int(fd), &set); }
};

void SetCounters(benchmark::State& state, uint64_t allocations, int64_t opsPerIteration)
{
    state.SetItemsProcessed(state.iterations() * opsPerIteration);
    state.counters["allocs"] = benchmark::Counter(double(allocations), benchmark::Counter::kAvgIterations);
}

// ---------------------------------------------------------------------------
// Fill: a fresh set, then N additions.

void BM_FillLib(benchmark::State& state)
{
    const int n = int(state.range(0));
    const std::vector<ZYNET_SOCKET> handles = Handles(n);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        rkfdset set;
        rkfdset_alloc(rkfdset_maxsock_get(), &set);
        for (ZYNET_SOCKET h : handles)
            rkfdset_set(h, &set);
        benchmark::DoNotOptimize(set.fdsetp->fd_count);
        bool complete = set.fdsetp->fd_count == uint32_t(n);
        rkfdset_free(&set);
        allocations += zybench::HeapAllocations() - before;
        if (!complete)
        {
            state.SkipWithError("rkfdset_set did not take every handle");
            break;
        }
    }
    SetCounters(state, allocations, n);
}

template <class OsSet>
void FillRaw(benchmark::State& state, OsSet& set)
{
    const int n = int(state.range(0));
    const std::vector<ZYNET_SOCKET> handles = Handles(n);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        set.Zero();
        for (ZYNET_SOCKET h : handles)
            set.Set(h);
        benchmark::DoNotOptimize(&set);
        benchmark::ClobberMemory();
        allocations += zybench::HeapAllocations() - before;
    }
    SetCounters(state, allocations, n);
}

void BM_FillRaw(benchmark::State& state)
{
    if (state.range(0) <= FD_SETSIZE)
    {
        OsFdSet1024 set;
        FillRaw(state, set);
    }
    else
    {
        BitSet set(int(state.range(0)));
        FillRaw(state, set);
    }
}

// ---------------------------------------------------------------------------
// IsSet: every member of a full set tested once.

void BM_IsSetLib(benchmark::State& state)
{
    const int n = int(state.range(0));
    const std::vector<ZYNET_SOCKET> handles = Handles(n);
    rkfdset set;
    rkfdset_alloc(rkfdset_maxsock_get(), &set);
    for (ZYNET_SOCKET h : handles)
        rkfdset_set(h, &set);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        int found = 0;
        for (ZYNET_SOCKET h : handles)
            found += rkfdset_isset(h, &set) > 0 ? 1 : 0;
        benchmark::DoNotOptimize(found);
        allocations += zybench::HeapAllocations() - before;
        if (found != n)
        {
            state.SkipWithError("rkfdset_isset missed a member");
            break;
        }
    }
    rkfdset_free(&set);
    SetCounters(state, allocations, n);
}

template <class OsSet>
void IsSetRaw(benchmark::State& state, OsSet& set)
{
    const int n = int(state.range(0));
    const std::vector<ZYNET_SOCKET> handles = Handles(n);
    set.Zero();
    for (ZYNET_SOCKET h : handles)
        set.Set(h);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        int found = 0;
        for (ZYNET_SOCKET h : handles)
            found += set.IsSet(h) ? 1 : 0;
        benchmark::DoNotOptimize(found);
        allocations += zybench::HeapAllocations() - before;
    }
    SetCounters(state, allocations, n);
}

void BM_IsSetRaw(benchmark::State& state)
{
    if (state.range(0) <= FD_SETSIZE)
    {
        OsFdSet1024 set;
        IsSetRaw(state, set);
    }
    else
    {
        BitSet set(int(state.range(0)));
        IsSetRaw(state, set);
    }
}

// ---------------------------------------------------------------------------
// Clr: every member of a full set removed, oldest first. The set is
// refilled from a full copy between iterations, outside the timed part.

void BM_ClrLib(benchmark::State& state)
{
    const int n = int(state.range(0));
    const std::vector<ZYNET_SOCKET> handles = Handles(n);
    rkfdset full;
    rkfdset_alloc(rkfdset_maxsock_get(), &full);
    for (ZYNET_SOCKET h : handles)
        rkfdset_set(h, &full);
    rkfdset work;
    rkfdset_alloc(rkfdset_maxsock_get(), &work);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        if (rkfdset_copy_fdset(&work, &full) != 0)
        {
            state.SkipWithError("rkfdset_copy_fdset failed");
            break;
        }
        uint64_t before = zybench::HeapAllocations();
        auto start = std::chrono::steady_clock::now();
        for (ZYNET_SOCKET h : handles)
            rkfdset_clr(h, &work);
        auto stop = std::chrono::steady_clock::now();
        allocations += zybench::HeapAllocations() - before;
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
        if (work.fdsetp->fd_count != 0)
        {
            state.SkipWithError("rkfdset_clr left members behind");
            break;
        }
    }
    rkfdset_free(&work);
    rkfdset_free(&full);
    SetCounters(state, allocations, n);
}

template <class OsSet>
void ClrRaw(benchmark::State& state, OsSet& set)
{
    const int n = int(state.range(0));
    const std::vector<ZYNET_SOCKET> handles = Handles(n);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        for (ZYNET_SOCKET h : handles)
            set.Set(h);
        benchmark::ClobberMemory();
        uint64_t before = zybench::HeapAllocations();
        auto start = std::chrono::steady_clock::now();
        for (ZYNET_SOCKET h : handles)
            set.Clr(h);
        benchmark::DoNotOptimize(&set);
        benchmark::ClobberMemory();
        auto stop = std::chrono::steady_clock::now();
        allocations += zybench::HeapAllocations() - before;
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
    SetCounters(state, allocations, n);
}

void BM_ClrRaw(benchmark::State& state)
{
    if (state.range(0) <= FD_SETSIZE)
    {
        OsFdSet1024 set;
        set.Zero();
        ClrRaw(state, set);
    }
    else
    {
        BitSet set(int(state.range(0)));
        ClrRaw(state, set);
    }
}

// ---------------------------------------------------------------------------
// Copy: ZyFdset copy construction and copy assignment of a full set, against
// copying the OS set.

void BM_CopyConstructLib(benchmark::State& state)
{
    const int n = int(state.range(0));
    ZyFdset source;
    for (ZYNET_SOCKET h : Handles(n))
        source.set(h);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        {
            ZyFdset copy(source);
            benchmark::DoNotOptimize(copy.get_fdsetp());
            if (copy.count() != uint32_t(n))
                state.SkipWithError("copy lost members");
        }
        allocations += zybench::HeapAllocations() - before;
    }
    SetCounters(state, allocations, 1);
}

void BM_CopyAssignLib(benchmark::State& state)
{
    const int n = int(state.range(0));
    ZyFdset source;
    for (ZYNET_SOCKET h : Handles(n))
        source.set(h);
    ZyFdset target;
    target = source;  // the steady state: a target already sized like the source
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        target = source;
        benchmark::DoNotOptimize(target.get_fdsetp());
        allocations += zybench::HeapAllocations() - before;
    }
    if (target.count() != uint32_t(n))
        state.SkipWithError("copy lost members");
    SetCounters(state, allocations, 1);
}

template <class OsSet>
void CopyRaw(benchmark::State& state, OsSet& source, OsSet& target)
{
    const int n = int(state.range(0));
    for (ZYNET_SOCKET h : Handles(n))
        source.Set(h);
    uint64_t allocations = 0;
    for (auto _ : state)
    {
        uint64_t before = zybench::HeapAllocations();
        target = source;
        benchmark::DoNotOptimize(&target);
        benchmark::ClobberMemory();
        allocations += zybench::HeapAllocations() - before;
    }
    SetCounters(state, allocations, 1);
}

void BM_CopyRaw(benchmark::State& state)
{
    if (state.range(0) <= FD_SETSIZE)
    {
        OsFdSet1024 source, target;
        source.Zero();
        target.Zero();
        CopyRaw(state, source, target);
    }
    else
    {
        BitSet source(int(state.range(0))), target(int(state.range(0)));
        CopyRaw(state, source, target);
    }
}

#define FDSET_SIZES ->Arg(1024)->Arg(8192)->MinTime(0.2)

BENCHMARK(BM_FillRaw)->Name("fdset/set/raw") FDSET_SIZES;
BENCHMARK(BM_FillLib)->Name("fdset/set/lib") FDSET_SIZES;
BENCHMARK(BM_IsSetRaw)->Name("fdset/isset/raw") FDSET_SIZES;
BENCHMARK(BM_IsSetLib)->Name("fdset/isset/lib") FDSET_SIZES;
BENCHMARK(BM_ClrRaw)->Name("fdset/clr/raw")->UseManualTime() FDSET_SIZES;
BENCHMARK(BM_ClrLib)->Name("fdset/clr/lib")->UseManualTime() FDSET_SIZES;
BENCHMARK(BM_CopyRaw)->Name("fdset/copy/raw") FDSET_SIZES;
BENCHMARK(BM_CopyConstructLib)->Name("fdset/copy/lib") FDSET_SIZES;
BENCHMARK(BM_CopyAssignLib)->Name("fdset/assign/lib") FDSET_SIZES;

}  // namespace

ZYBENCH_MAIN()
