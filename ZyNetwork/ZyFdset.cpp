// Growable descriptor sets: the flat rkfdset_* layer over a plain record and
// the ZyFdset class that owns one record.
//
// A set lists socket handles in the order they were added. It starts with
// 1024 slots inside the record itself (so small sets never touch the heap)
// and, when those fill, moves once to a zero-filled heap block sized for the
// record's maximum. The record's `fdsetp` points either at the inline
// storage or at that block; a record must therefore never be copied with a
// plain struct assignment (use rkfdset_copy_fdset), since the copy's
// `fdsetp` would still point into the original.
#include "ZyNetwork/ZyFdset.h"
#include "ZyUtils/Internal/ErrorCodes.h"

#include <cstdlib>
#include <cstring>

static const char kZyFile[] = "ZyNetwork/ZyFdset";

namespace
{
// The process-wide maximum that new sets are sized by.
int g_maxsock = ZYNET_FD_MAXSOCK_DEFAULT;

inline bool IsInline(const rkfdset* set)
{
    return set->fdsetp == &set->fds;
}

// Bytes of a heap block holding `slots` handles: the list layout plus the
// same 8 bytes of slack the original block size carried.
inline size_t HeapBlockBytes(uint32_t slots)
{
    return static_cast<size_t>(slots) * sizeof(uint32_t) + 12;
}

// Moves an inline set to a heap block of `maxsize` slots. With
// `carryContents` the inline count and slots are copied over. On failure
// the set is left exactly as it was.
bool GrowToMax(rkfdset* set, bool carryContents)
{
    void* block = std::calloc(1, HeapBlockBytes(set->maxsize));
    if (block == nullptr)
        return false;
    ZYNET_fd_set* grown = static_cast<ZYNET_fd_set*>(block);
    if (carryContents)
        std::memcpy(grown, &set->fds, sizeof(set->fds));
    set->fdsetp = grown;
    set->size = set->maxsize;
    return true;
}

// Index of `handle` in the set's list, or -1.
inline long FindHandle(const ZYNET_fd_set* fds, ZYNET_SOCKET handle)
{
    const uint32_t n = fds->fd_count;
    const uint32_t* slots = fds->fd_array;
    for (uint32_t i = 0; i < n; ++i)
    {
        if (slots[i] == handle)
            return static_cast<long>(i);
    }
    return -1;
}
}  // namespace

extern "C" {

int rkfdset_alloc(int maxsock, rkfdset* set)
{
    if (set == nullptr)
        return -1;
    std::memset(set, 0, sizeof(*set));
    set->maxfd = -1;
    set->fdsetp = &set->fds;
    set->maxsize = maxsock > ZYNET_FD_SETSIZE ? static_cast<uint32_t>(maxsock) : ZYNET_FD_SETSIZE;
    set->size = ZYNET_FD_SETSIZE;
    set->fds.fd_count = 0;
    return 0;
}

void rkfdset_free(rkfdset* set)
{
    if (set == nullptr)
        return;
    if (set->fdsetp != nullptr && !IsInline(set))
        std::free(set->fdsetp);
    set->fdsetp = nullptr;
    set->size = 0;
    set->maxfd = -1;
}

void rkfdset_zero(rkfdset* set)
{
    if (set == nullptr || set->fdsetp == nullptr)
        return;
    set->fdsetp->fd_count = 0;
    set->maxfd = -1;
}

int rkfdset_set(ZYNET_SOCKET handle, rkfdset* set)
{
    if (set == nullptr || set->fdsetp == nullptr)
        return -2;
    if (FindHandle(set->fdsetp, handle) >= 0)
        return 0;
    if (set->fdsetp->fd_count == set->size && IsInline(set) && set->size < set->maxsize)
    {
        if (!GrowToMax(set, true))
            return -1;
    }
    ZYNET_fd_set* fds = set->fdsetp;
    if (fds->fd_count >= set->size)
        return -1;
    fds->fd_array[fds->fd_count] = handle;
    ++fds->fd_count;
    return 0;
}

int rkfdset_clr(ZYNET_SOCKET handle, rkfdset* set)
{
    if (set == nullptr || set->fdsetp == nullptr)
        return -2;
    ZYNET_fd_set* fds = set->fdsetp;
    long at = FindHandle(fds, handle);
    if (at < 0)
        return 0;
    const uint32_t later = fds->fd_count - static_cast<uint32_t>(at) - 1;
    if (later > 0)
        std::memmove(&fds->fd_array[at], &fds->fd_array[at + 1], later * sizeof(uint32_t));
    --fds->fd_count;
    return 0;
}

int rkfdset_isset(ZYNET_SOCKET handle, rkfdset* set)
{
    if (set == nullptr || set->fdsetp == nullptr)
        return -2;
    return FindHandle(set->fdsetp, handle) >= 0 ? 1 : 0;
}

ZYNET_fd_set* rkfdset_get_fdsetp(rkfdset* set)
{
    return set == nullptr ? nullptr : set->fdsetp;
}

int rkfdset_get_maxfd(rkfdset* set)
{
    // Not a highest descriptor: the list-based wait ignores its first
    // argument, so callers only need "empty" (-1) versus "not empty" (1).
    if (set == nullptr || set->fdsetp == nullptr || set->fdsetp->fd_count == 0)
        return -1;
    return 1;
}

int rkfdset_copy_fdset(rkfdset* dest, const rkfdset* src)
{
    if (dest == nullptr || src == nullptr || dest->fdsetp == nullptr || src->fdsetp == nullptr)
        return -1;
    if (src->size > dest->maxsize)
        return -1;
    if (src->size > dest->size && IsInline(dest) && dest->size < dest->maxsize)
    {
        // The inline contents are overwritten below, so they are not carried.
        if (!GrowToMax(dest, false))
            return -1;
    }
    if (src->size > dest->size)
        return -1;
    // The destination now holds at least src->size slots, and the source
    // lists at most that many handles: copy the count and the listed handles
    // only, never past either storage.
    uint32_t n = src->fdsetp->fd_count;
    if (n > src->size)
        n = src->size;
    dest->fdsetp->fd_count = n;
    if (n > 0)
        std::memmove(dest->fdsetp->fd_array, src->fdsetp->fd_array, static_cast<size_t>(n) * sizeof(uint32_t));
    dest->maxfd = src->maxfd;
    // The destination takes the source's capacity figure even when its own
    // block is larger; it never exceeds what the destination really holds.
    dest->size = src->size;
    return 0;
}

int rkfdset_maxsock_get(void)
{
    return g_maxsock;
}

void rkfdset_maxsock_set(int maxsock)
{
    g_maxsock = maxsock;
}

}  // extern "C"

// ---- ZyFdset ---------------------------------------------------------------

ZyFdset::ZyFdset() : m_allocated(false)
{
    m_set.fdsetp = nullptr;
    m_set.fds.fd_count = 0;
    m_set.size = 0;
    m_set.maxsize = 0;
    m_set.maxfd = -1;
}

ZyFdset::ZyFdset(const ZyFdset& other) : ZyFdset()
{
    copyFrom(other);
}

ZyFdset& ZyFdset::operator=(const ZyFdset& other)
{
    if (this != &other)
        copyFrom(other);
    return *this;
}

ZyFdset::~ZyFdset()
{
    if (m_allocated)
        rkfdset_free(&m_set);
}

void ZyFdset::copyFrom(const ZyFdset& other)
{
    if (m_allocated && other.m_allocated && m_set.size >= other.m_set.size)
    {
        rkfdset_copy_fdset(&m_set, &other.m_set);
        return;
    }
    if (m_allocated)
    {
        rkfdset_free(&m_set);
        m_allocated = false;
    }
    if (!other.m_allocated)
        return;
    rkfdset_alloc(static_cast<int>(other.m_set.size), &m_set);
    m_allocated = true;
    rkfdset_copy_fdset(&m_set, &other.m_set);
}

CZyError ZyFdset::init()
{
    if (m_allocated)
    {
        rkfdset_free(&m_set);
        m_allocated = false;
    }
    if (rkfdset_alloc(rkfdset_maxsock_get(), &m_set) != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyFdset::init"), zy::err::kOutOfMemory, "Error allocating fdset");
    m_allocated = true;
    return CZyError::Success();
}

CZyError ZyFdset::set(ZYNET_SOCKET handle)
{
    if (!m_allocated)
    {
        CZyError err = init();
        if (err.IsError())
            return err.Push(ZY_LOC("ZyFdset::set"));
    }
    int rc = rkfdset_set(handle, &m_set);
    switch (rc)
    {
    case 0:
        return CZyError::Success();
    case -2:
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyFdset::set"), zy::err::kStateError,
                                       "Bad fdset pointer passed to 'set' routine");
    case -1:
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyFdset::set"), zy::err::kStateError,
                                       "Specified fd set is already full; Set size of %u",
                                       m_set.size);
    default:
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyFdset::set"), zy::err::kStateError,
                                       "Unknown error %d setting fd in fd set", rc);
    }
}

CZyError ZyFdset::clr(ZYNET_SOCKET handle)
{
    if (!m_allocated)
    {
        CZyError err = init();
        if (err.IsError())
            return err.Push(ZY_LOC("ZyFdset::clr"));
    }
    int rc = rkfdset_clr(handle, &m_set);
    switch (rc)
    {
    case 0:
        return CZyError::Success();
    case -2:
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyFdset::clr"), zy::err::kStateError,
                                       "Bad fdset pointer passed to 'clr' routine");
    case -1:
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyFdset::clr"), zy::err::kStateError,
                                       "Specified fd is out of bounds of this fd set; Set size of %u", m_set.size);
    default:
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyFdset::clr"), zy::err::kStateError,
                                       "Unknown error %d clearing fd in fd set", rc);
    }
}

int ZyFdset::is_set(ZYNET_SOCKET handle)
{
    if (!m_allocated)
        init();
    return rkfdset_isset(handle, &m_set);
}

ZYNET_fd_set* ZyFdset::get_fdsetp()
{
    if (!m_allocated)
        init();
    return rkfdset_get_fdsetp(&m_set);
}

unsigned int ZyFdset::get_maxfd()
{
    if (!m_allocated)
        init();
    return static_cast<unsigned int>(rkfdset_get_maxfd(&m_set));
}

void ZyFdset::zero()
{
    if (!m_allocated)
        init();
    rkfdset_zero(&m_set);
}

int ZyFdset::maxsock_get()
{
    return rkfdset_maxsock_get();
}

void ZyFdset::maxsock_set(int maxsock)
{
    rkfdset_maxsock_set(maxsock);
}
