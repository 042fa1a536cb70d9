// The journal of closed handles: a ring of the last closes behind a mutex,
// and an atomic count that readers compare without taking the lock.
#include "ZyNetwork/Internal/CloseJournal.h"

#include <atomic>
#include <mutex>

namespace zyjournal
{
namespace
{
const uint64_t kHeld = 256;

struct Journal
{
    std::mutex lock;
    std::atomic<uint64_t> generation{0};
    ZYNET_SOCKET ring[kHeld] = {};
};

Journal& TheJournal()
{
    static Journal* journal = new Journal();  // outlives every static destructor
    return *journal;
}
}  // namespace

void NoteClosed(ZYNET_SOCKET handle)
{
    Journal& journal = TheJournal();
    std::lock_guard<std::mutex> hold(journal.lock);
    const uint64_t next = journal.generation.load(std::memory_order_relaxed);
    journal.ring[next % kHeld] = handle;
    journal.generation.store(next + 1, std::memory_order_release);
}

uint64_t Generation()
{
    return TheJournal().generation.load(std::memory_order_acquire);
}

bool ClosedSince(uint64_t since, uint64_t upTo, std::vector<ZYNET_SOCKET>& out)
{
    Journal& journal = TheJournal();
    std::lock_guard<std::mutex> hold(journal.lock);
    const uint64_t now = journal.generation.load(std::memory_order_relaxed);
    if (upTo > now || since > upTo || now - since > kHeld)
        return false;
    for (uint64_t g = since; g < upTo; ++g)
        out.push_back(journal.ring[g % kHeld]);
    return true;
}
}  // namespace zyjournal
