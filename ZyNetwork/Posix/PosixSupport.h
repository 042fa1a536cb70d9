// What the files of the POSIX half of the OS boundary share: the thread's
// last socket error, failing with a code, descriptors from handles, and
// family translation inline (the exported FamilyToOs and FamilyFromOs of
// ErrorsPosix.cpp call these).
// Internal to ZyNetwork/Posix/.
#pragma once

#include <errno.h>
#include <limits.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/Internal/OsCommon.h"
#include "ZyUtils/Internal/ErrorCodes.h"

namespace zy::os
{
namespace posix
{
// The thread's last socket error (ErrorsPosix.cpp). Plain TLS with the
// initial-exec model: a direct access instead of a call to __tls_get_addr
// on every socket call of this shared library; one int of the static TLS
// surplus.
extern __thread int t_lastError __attribute__((tls_model("initial-exec")));

inline int Fail(int code)
{
    t_lastError = code;
    return code;
}

// Translates errno right after the failing call and records it.
inline int FailErrno()
{
    return Fail(TranslateErrno(errno));
}

// Descriptors are small non-negative ints; a handle that cannot be one (the
// invalid handle included) becomes -1, which every call rejects with EBADF.
inline int Fd(ZYNET_SOCKET handle)
{
    return handle > static_cast<ZYNET_SOCKET>(INT_MAX) ? -1 : static_cast<int>(handle);
}

// An error on a stream socket that never became connected is a failed
// connect, which select reports in the exception set.
inline bool IsFailedConnect(int fd)
{
    int type = 0;
    socklen_t typeLength = sizeof(type);
    sockaddr_storage peer;
    socklen_t peerLength = sizeof(peer);
    return ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &typeLength) == 0 && type == SOCK_STREAM &&
           ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0 && errno == ENOTCONN;
}

// The OS bits a wait asks for: `read`, `write` and `except` for the
// POLL_READ, POLL_WRITE and POLL_EXCEPT bits of `wanted` (the EVENT_* bits
// of an event set are the same numbers).
template <typename Bits>
Bits OsWaitBits(unsigned wanted, Bits read, Bits write, Bits except)
{
    Bits asked = 0;
    if (wanted & POLL_READ)
        asked |= read;
    if (wanted & POLL_WRITE)
        asked |= write;
    if (wanted & POLL_EXCEPT)
        asked |= except;
    return asked;
}

// Linux's AF_INET6 (10) against the portable 23; every other family has
// the same number on both sides.
inline int OsFamily(int portableFamily)
{
    return portableFamily == ZYNET_AF_INET6 ? AF_INET6 : portableFamily;
}

inline int PortableFamily(int osFamily)
{
    return osFamily == AF_INET6 ? ZYNET_AF_INET6 : osFamily;
}

// The shared record copies with Linux's storage and family numbers.
inline bool ToOs(const ZYNET_SockAddr* addr, int length, sockaddr_storage* os, socklen_t* osLength)
{
    return common::RecordToOs(addr, length, os, osLength, OsFamily);
}

inline socklen_t OsCapacity(int capacity)
{
    return common::Capacity<sockaddr_storage, socklen_t>(capacity);
}

inline void StoreWritten(const sockaddr_storage& os, socklen_t osLength, ZYNET_SockAddr* out, int* length)
{
    common::StoreWritten(os, osLength, out, length, PortableFamily);
}
}  // namespace posix
}  // namespace zy::os
