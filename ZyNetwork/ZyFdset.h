// Growable descriptor sets: a list of socket handles that starts with room
// for 1024 handles inside the set and grows once, to a process-wide maximum.
#pragma once

#include <stdint.h>

#include "ZyNetwork/ZySocketTypes.h"
#include "ZyUtils/ZyExport.h"

#ifdef __cplusplus
#include "ZyUtils/ZyError.h"
#endif

#define ZYNET_FD_SETSIZE 1024
#define ZYNET_FD_MAXSOCK_DEFAULT 8192

// The list layout of a descriptor set: a count followed by the handles.
// A grown set's storage has the same layout with more slots.
typedef struct ZYNET_fd_set
{
    uint32_t fd_count;
    uint32_t fd_array[ZYNET_FD_SETSIZE];
} ZYNET_fd_set;

// A growable descriptor set: inline room for ZYNET_FD_SETSIZE handles, then
// one heap block up to `maxsize`.
typedef struct rkfdset
{
    ZYNET_fd_set* fdsetp;  // the active storage: &fds or a heap block; null when not allocated
    ZYNET_fd_set fds;      // inline storage
    uint32_t size;         // capacity of the active storage
    uint32_t maxsize;      // largest capacity this set may reach
    int32_t maxfd;
} rkfdset;

#ifdef __cplusplus
extern "C" {
#endif

// Sets up `set`: inline storage, room to grow to `maxsock` (at least 1024),
// empty. 0, or -1 for a null `set`. The flat functions answer 0 for success,
// -1 for a full set or a failed allocation and -2 for a set not allocated.
ZYNET_API int rkfdset_alloc(int maxsock, rkfdset* set);
// Frees a grown set's heap block and marks the set not allocated.
ZYNET_API void rkfdset_free(rkfdset* set);
// Empties the set; a grown set keeps its capacity.
ZYNET_API void rkfdset_zero(rkfdset* set);
// Adds `handle` (once); a full inline set grows once, to its maximum.
ZYNET_API int rkfdset_set(ZYNET_SOCKET handle, rkfdset* set);
// Removes `handle`, keeping the order of the others; an absent handle is 0.
ZYNET_API int rkfdset_clr(ZYNET_SOCKET handle, rkfdset* set);
// 1 when `handle` is listed, else 0; -2 for a set not allocated.
ZYNET_API int rkfdset_isset(ZYNET_SOCKET handle, rkfdset* set);
// The active storage, to pass to ZYNET_select (null for a null `set`).
ZYNET_API ZYNET_fd_set* rkfdset_get_fdsetp(rkfdset* set);
// Not the highest handle: -1 for an empty or absent set, else 1. Only good as
// the first argument of select, which ignores it.
ZYNET_API int rkfdset_get_maxfd(rkfdset* set);
// Copies the listed handles of `src` into `dest`, growing `dest` when it must
// and can; -1 when `dest` cannot hold them.
ZYNET_API int rkfdset_copy_fdset(rkfdset* dest, const rkfdset* src);
// The process-wide maximum (8192 by default) that new sets may grow to. Set it
// before making sets; sets already allocated keep theirs.
// @{
ZYNET_API int rkfdset_maxsock_get(void);
ZYNET_API void rkfdset_maxsock_set(int maxsock);
// @}

#ifdef __cplusplus
}

// A growable descriptor set as an object: allocated by init() or the first
// set(), freed by the destructor.
class ZYNET_API ZyFdset
{
public:
    ZyFdset();
    // Copies the listed handles; a copy of a set not allocated is not allocated.
    // @{
    ZyFdset(const ZyFdset& other);
    ZyFdset& operator=(const ZyFdset& other);
    // @}
    ~ZyFdset();

    // (Re)allocates the set, empty, sized by the process-wide maximum; Win32 error
    // 14 "Error allocating fdset" on failure. The other calls run it on first use.
    CZyError init();
    // Adds `handle` (once). A full set is Win32 error 774 "Specified fd set is
    // already full; Set size of N".
    CZyError set(ZYNET_SOCKET handle);
    // Removes `handle`; an absent handle is not an error.
    CZyError clr(ZYNET_SOCKET handle);
    // Nonzero when `handle` is listed.
    int is_set(ZYNET_SOCKET handle);
    // The active storage, to pass to ZYNET_select.
    ZYNET_fd_set* get_fdsetp();
    // As rkfdset_get_maxfd (-1, that is all ones, for an empty set; 1 otherwise).
    unsigned int get_maxfd();
    // Empties the set, keeping its capacity.
    void zero();

    // The process-wide maximum, as rkfdset_maxsock_get and rkfdset_maxsock_set.
    // @{
    static int maxsock_get();
    static void maxsock_set(int maxsock);
    // @}

    // Capacity of the active storage (0 when not allocated).
    uint32_t capacity() const { return m_allocated ? m_set.size : 0; }
    // Number of handles listed.
    uint32_t count() const { return (m_allocated && m_set.fdsetp) ? m_set.fdsetp->fd_count : 0; }

private:
    void copyFrom(const ZyFdset& other);

    rkfdset m_set;
    bool m_allocated;
};
#endif
