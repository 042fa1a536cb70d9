// The OS boundary for kernel event sets (epoll on Linux): a set that the
// selector keeps in step with its registered sockets, so that a wait costs
// in proportion to the ready sockets rather than the registered ones.
// ZyNetwork/Posix/EventSetPosix.cpp and ZyNetwork/Windows/EventSetWindows.cpp
// implement it; on Windows no set is available and the selector keeps its
// list wait (ZYNET_select).
// Internal: not installed, not exported.
#pragma once

#include <stdint.h>

#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZySocketTypes.h"

namespace zy::os
{
// What a handle is watched for, with select's meaning (the same bits and
// readiness rules as the POLL_* values of the list wait): READ is reported
// for data, a closed peer or an error; WRITE for room to send or an error;
// EXCEPT for out-of-band data or a failed connect.
enum EventInterest : unsigned
{
    EVENT_READ = 1,
    EVENT_WRITE = 2,
    EVENT_EXCEPT = 4
};

// Results of the calls below.
enum EventSetResult
{
    EVENTSET_OK = 0,
    EVENTSET_CLOSED = 10038,  // a registered handle is no open descriptor
    EVENTSET_FAILED = -1      // the set cannot follow the registration (no set,
                              // a descriptor the kernel set refuses, no memory)
};

class EventSet;

// A new, empty set (close-on-exec), or null when the platform has none or
// it cannot be made now.
EventSet* EventSetCreate();
void EventSetDestroy(EventSet* set);

// Adds `interest` to what the handle is watched for. On a handle already
// registered, checks that it is still the descriptor the set watches (see
// EventSetCheck) and adds it again when its number now names another open
// socket.
int EventSetAdd(EventSet* set, ZYNET_SOCKET handle, unsigned interest);
// Removes `interest`; a handle left with none leaves the set. Never fails:
// a handle that was closed meanwhile is simply forgotten.
void EventSetRemove(EventSet* set, ZYNET_SOCKET handle, unsigned interest);

// Checks one registered handle (an unregistered one is OK): CLOSED when no
// descriptor is open under its number; when the number is open but the set
// does not watch it (the registered socket was closed and the number reused
// by a new one), the new descriptor is watched from now on, as a list wait
// over the number would, and the answer is OK.
int EventSetCheck(EventSet* set, ZYNET_SOCKET handle);
// Waits up to timeoutMs (0: look only; -1: no limit) and rewrites the three
// lists (each may be null) to the ready handles registered for that
// interest, in the order the kernel reports them; capacity[k] is the number
// of slots the k-th list has (read, write, exception), and must be at least
// the number of handles registered for it. `count` gets the number of
// handles kept over the three lists. FAILED leaves the lists as they were.
int EventSetWait(EventSet* set, int timeoutMs, ZYNET_fd_set* read, ZYNET_fd_set* write, ZYNET_fd_set* except,
                 const uint32_t capacity[3], int* count);
}  // namespace zy::os
