// A process-wide journal of the socket handles closed through the library
// (ZYNET_close, and so CZySocket::Close), so that a selector watching a
// kernel event set learns cheaply that one of its registered sockets was
// closed: the kernel drops a closed descriptor from the set without a word.
// Lock-free (Posix/CloseJournalPosix.cpp). Windows has no kernel event set
// for the selector, so there the journal records nothing
// (Windows/CloseJournalWindows.cpp).
// Internal: not installed, not exported.
#pragma once

#include <stdint.h>

#include <vector>

#include "ZyNetwork/ZySocketTypes.h"

namespace zy::journal
{
// Records a handle that has just been closed.
void NoteClosed(ZYNET_SOCKET handle);

// The number of closes recorded so far (one atomic load).
uint64_t Generation();

// Appends to `out` the handles closed after the first `since` closes, up
// to generation `upTo` (a value Generation() returned); false when some of
// them are no longer held, so that the caller must check everything.
bool ClosedSince(uint64_t since, uint64_t upTo, std::vector<ZYNET_SOCKET>& out);
}  // namespace zy::journal
