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

ZYNET_API int rkfdset_alloc(int maxsock, rkfdset* set);
ZYNET_API void rkfdset_free(rkfdset* set);
ZYNET_API void rkfdset_zero(rkfdset* set);
ZYNET_API int rkfdset_set(ZYNET_SOCKET handle, rkfdset* set);
ZYNET_API int rkfdset_clr(ZYNET_SOCKET handle, rkfdset* set);
ZYNET_API int rkfdset_isset(ZYNET_SOCKET handle, rkfdset* set);
ZYNET_API ZYNET_fd_set* rkfdset_get_fdsetp(rkfdset* set);
ZYNET_API int rkfdset_get_maxfd(rkfdset* set);
ZYNET_API int rkfdset_copy_fdset(rkfdset* dest, const rkfdset* src);
ZYNET_API int rkfdset_maxsock_get(void);
ZYNET_API void rkfdset_maxsock_set(int maxsock);

#ifdef __cplusplus
}

// A growable descriptor set as an object: allocated by init() or the first
// set(), freed by the destructor.
class ZYNET_API ZyFdset
{
public:
    ZyFdset();
    ZyFdset(const ZyFdset& other);
    ZyFdset& operator=(const ZyFdset& other);
    ~ZyFdset();

    CZyError init();
    CZyError set(ZYNET_SOCKET handle);
    CZyError clr(ZYNET_SOCKET handle);
    int is_set(ZYNET_SOCKET handle);
    ZYNET_fd_set* get_fdsetp();
    unsigned int get_maxfd();
    void zero();

    static int maxsock_get();
    static void maxsock_set(int maxsock);

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
