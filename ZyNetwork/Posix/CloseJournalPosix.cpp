// The journal of closed handles, without a lock: a close takes the next
// number from an atomic counter and stores its handle, stamped with that
// number, into the ring slot the number picks, in one atomic word. A reader
// takes a slot's handle only when the stamp is the one it expects; a slot
// not yet written, or already written again by a later close, makes it give
// up, and the selector then checks everything (as after more than 256
// closes). No close ever waits for another close or for a reader.
#include "ZyNetwork/Internal/CloseJournal.h"

#include <atomic>
#include <cstddef>

namespace zy::journal
{
namespace
{
const uint64_t kHeld = 256;

// One slot: the low 32 bits of (close number + 1) over the handle, so that
// an empty slot (0) never matches.
inline uint64_t Entry(uint64_t number, ZYNET_SOCKET handle)
{
    return ((number + 1) << 32) | handle;
}

// Plain static storage: constant-initialised, with nothing to destroy, so a
// close made during static destruction still finds it.
std::atomic<uint64_t> g_generation{0};
std::atomic<uint64_t> g_ring[kHeld];
}  // namespace

void NoteClosed(ZYNET_SOCKET handle)
{
    const uint64_t number = g_generation.fetch_add(1, std::memory_order_acq_rel);
    g_ring[number % kHeld].store(Entry(number, handle), std::memory_order_release);
}

uint64_t Generation()
{
    return g_generation.load(std::memory_order_acquire);
}

bool ClosedSince(uint64_t since, uint64_t upTo, std::vector<ZYNET_SOCKET>& out)
{
    if (since > upTo || upTo - since > kHeld)
        return false;
    const std::size_t start = out.size();
    for (uint64_t g = since; g < upTo; ++g)
    {
        const uint64_t entry = g_ring[g % kHeld].load(std::memory_order_acquire);
        if ((entry >> 32) != ((g + 1) & 0xFFFFFFFFu))
        {
            out.resize(start);
            return false;
        }
        out.push_back(static_cast<ZYNET_SOCKET>(entry));
    }
    return true;
}
}  // namespace zy::journal
