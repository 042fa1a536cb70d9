// The flat ZYNET_* socket calls: one OS call each through the OS boundary,
// the whole-buffer and time-limited transfer loops, the list-set wait, and
// a connected socket pair built over loopback.
//
// Every call returns 0 or a Winsock error code (ZYNET_close alone returns
// closesocket's 0 or -1); a failing OS call has already stored its code as
// the thread's last socket error. A null pointer where a
// record, buffer or result is required gives 10014 (WSAEFAULT) and touches
// nothing.
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "ZyNetwork/Internal/CloseJournal.h"
#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/Internal/SecondsWait.h"
#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZySocketCalls";

namespace
{
const int kMsgPeek = 2;          // MSG_PEEK has this value on both targets
const int kFullRecordLength = static_cast<int>(sizeof(ZYNET_SockAddr));

std::atomic<ZYNET_SocketCallback> g_closeCallback{nullptr};
std::atomic<ZYNET_SocketCallback> g_listenCallback{nullptr};

int Fault()
{
    zy::os::SetLastError(zy::err::kFault);
    return zy::err::kFault;
}

// The socket-type/protocol pairs of the three creation calls.
int MakeSocket(int family, int type, int protocol, ZYNET_SOCKET* out)
{
    if (out == nullptr)
        return Fault();
    ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
    int rc = zy::os::Socket(family, type, protocol, &handle);
    *out = rc == 0 ? handle : ZYNET_INVALID_SOCKET;
    return rc;
}

// The fix-ups of an address the OS wrote: an empty result stands for an
// unnamed Unix-domain socket, a Unix record of family field only has an
// empty path, and a Unix path is always terminated within the record.
void FixUpWrittenAddress(ZYNET_SockAddr* addr, int length)
{
    if (length == 0)
    {
        std::memset(addr, 0, sizeof(*addr));
        addr->family = ZYNET_AF_UNIX;
    }
    if (addr->family == ZYNET_AF_UNIX)
    {
        if (length <= 2)
            addr->un.path[0] = '\0';
        addr->un.path[sizeof(addr->un.path) - 1] = '\0';
    }
}

typedef int (*NameCall)(ZYNET_SOCKET, ZYNET_SockAddr*, int*);

int GetName(NameCall call, ZYNET_SOCKET handle, ZYNET_SockAddr* out)
{
    if (out == nullptr)
        return Fault();
    ZYNET_SockAddr addr;
    std::memset(&addr, 0, sizeof(addr));
    int length = kFullRecordLength;
    int rc = call(handle, &addr, &length);
    if (rc != 0)
        return rc;
    FixUpWrittenAddress(&addr, length);
    *out = addr;
    return 0;
}

// The body shared by the two whole-buffer loops and the two time-limited
// loops. With `seconds` <= 0 there is no wait: the plain loop.
int TransferLoop(bool isSend, ZYNET_SOCKET handle, char* buffer, int length, int* count, int seconds, int* timedOut,
                 int flags)
{
    const bool peek = !isSend && (flags & kMsgPeek) != 0;
    const zy::net::SecondsWait wait(handle, isSend, seconds);
    while (*count < length)
    {
        int done = 0;
        if (seconds > 0)
        {
            if (wait.Expired())
            {
                *timedOut = 1;
                return 0;
            }
            // Try the transfer before waiting: while the peer keeps up, data
            // or buffer space is already there and a chunk costs one system
            // call instead of a wait and a call. Only a transfer that would
            // block goes on to the one-second wait. (Windows has no
            // non-blocking attempt, so there it always waits first.)
            const int offset = peek ? 0 : *count;
            int rc = isSend ? zy::os::SendNoWait(handle, buffer + offset, length - offset, flags, &done)
                            : zy::os::RecvNoWait(handle, buffer + offset, length - offset, flags, &done);
            if (rc != zy::err::kWouldBlock)
            {
                if (rc != 0)
                    return rc;
                // A peek reports what a single receive saw, not an accumulation.
                *count = offset + done;
                if (done == 0)
                    return 0;  // for a receive: the peer shut down
                continue;
            }
            int code = 0;
            zy::net::SecondsWait::Step step = wait.WaitOneSecond(&code);
            if (step == zy::net::SecondsWait::Failed)
                return code;
            if (step == zy::net::SecondsWait::Idle)
                continue;
        }
        if (peek)
            *count = 0;
        int rc = isSend ? zy::os::Send(handle, buffer + *count, length - *count, flags, &done)
                        : zy::os::Recv(handle, buffer + *count, length - *count, flags, &done);
        if (rc != 0)
            return rc;
        if (done == 0)
            return 0;  // for a receive: the peer shut down; the short count tells
        *count += done;
    }
    return 0;
}

// Waits (when a limit is given) and then moves exactly one ICMP datagram.
int IcmpDatagram(bool isSend, ZYNET_SOCKET handle, ZYNET_SockAddr* peer, char* buffer, int length, int* count,
                 int flags, int seconds, int* timedOut)
{
    if (peer == nullptr || count == nullptr || timedOut == nullptr || (buffer == nullptr && length > 0))
        return Fault();
    *count = 0;
    *timedOut = 0;
    if (seconds > 0)
    {
        bool expired = false;
        int code = zy::net::SecondsWait(handle, isSend, seconds).UntilReady(&expired);
        if (code != 0)
            return code;
        if (expired)
        {
            *timedOut = 1;
            return 0;
        }
    }
    // The whole record's length is offered in both directions.
    int done = 0;
    int rc;
    if (isSend)
    {
        rc = zy::os::SendTo(handle, buffer, length, flags, peer, kFullRecordLength, &done);
    }
    else
    {
        int fromLength = kFullRecordLength;
        rc = zy::os::RecvFrom(handle, buffer, length, flags, peer, &fromLength, &done);
    }
    if (rc != 0)
        return rc;
    *count = done;
    return 0;
}

}  // namespace

extern "C" {

int ZYNET_socket(int family, ZYNET_SOCKET* out)
{
    return MakeSocket(family, ZYNET_SOCK_STREAM, 0, out);
}

int ZYNET_dgramsocket(int family, ZYNET_SOCKET* out)
{
    return MakeSocket(family, ZYNET_SOCK_DGRAM, ZYNET_IPPROTO_UDP, out);
}

int ZYNET_icmpsocket(int family, ZYNET_SOCKET* out)
{
    // Raw, protocol 1, for both IP families.
    return MakeSocket(family, ZYNET_SOCK_RAW, ZYNET_IPPROTO_ICMP, out);
}

int ZYNET_bind(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr)
{
    if (addr == nullptr)
        return Fault();
    ZYNET_SockAddr copy = *addr;
    return zy::os::Bind(handle, &copy, ZYNET_GetActualSockAddrLen(&copy));
}

int ZYNET_connect(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr)
{
    if (addr == nullptr)
        return Fault();
    ZYNET_SockAddr copy = *addr;
    return zy::os::Connect(handle, &copy, ZYNET_GetActualSockAddrLen(&copy));
}

int ZYNET_listen(ZYNET_SOCKET handle, int backlog)
{
    ZYNET_SocketCallback callback = g_listenCallback.load(std::memory_order_acquire);
    if (callback != nullptr)
        callback(handle);
    return zy::os::Listen(handle, backlog);
}

int ZYNET_accept(ZYNET_SOCKET listener, ZYNET_SOCKET* out, ZYNET_SockAddr* peer)
{
    if (out == nullptr || peer == nullptr)
        return Fault();
    *out = ZYNET_INVALID_SOCKET;
    // The listener's own address tells the family, and so the capacity to
    // offer for the peer's.
    int rc = ZYNET_getsockname(listener, peer);
    if (rc != 0)
        return rc;
    int length = ZYNET_GetMaxSockAddrLen(peer->family);
    ZYNET_SOCKET accepted = ZYNET_INVALID_SOCKET;
    // A failed accept shows only as the invalid handle; its code stays
    // readable as the thread's last socket error.
    if (zy::os::Accept(listener, peer, &length, &accepted) != 0)
        return 0;
    if (peer->family == ZYNET_AF_UNIX)
    {
        if (length <= 2)
            peer->un.path[0] = '\0';
        peer->un.path[sizeof(peer->un.path) - 1] = '\0';
    }
    *out = accepted;
    return 0;
}

int ZYNET_close(ZYNET_SOCKET handle)
{
    ZYNET_SocketCallback callback = g_closeCallback.load(std::memory_order_acquire);
    if (callback != nullptr)
        callback(handle);
    // Unlike the other calls, this one hands back closesocket's own result:
    // 0, or -1 (SOCKET_ERROR) with the code as the thread's last socket
    // error. Selectors watching kernel event sets learn of the close from
    // the journal (recorded after the close, so that a check made after
    // reading the entry finds the descriptor gone).
    const int rc = zy::os::Close(handle) == 0 ? 0 : -1;
    zy::journal::NoteClosed(handle);
    return rc;
}

int ZYNET_shutdown(ZYNET_SOCKET handle, int how)
{
    return zy::os::Shutdown(handle, how);
}

int ZYNET_send(ZYNET_SOCKET handle, const void* buffer, int length, int* count, int flags)
{
    if (count == nullptr || (buffer == nullptr && length > 0))
        return Fault();
    *count = 0;
    int timedOut = 0;
    return TransferLoop(true, handle, static_cast<char*>(const_cast<void*>(buffer)), length, count, 0, &timedOut,
                        flags);
}

int ZYNET_recv(ZYNET_SOCKET handle, void* buffer, int length, int* count, int flags)
{
    if (count == nullptr || (buffer == nullptr && length > 0))
        return Fault();
    *count = 0;
    int timedOut = 0;
    return TransferLoop(false, handle, static_cast<char*>(buffer), length, count, 0, &timedOut, flags);
}

int ZYNET_sendwithtimeout(ZYNET_SOCKET handle, const void* buffer, int length, int* count, int seconds,
                          int* timedOut, int flags)
{
    if (count == nullptr || timedOut == nullptr || (buffer == nullptr && length > 0))
        return Fault();
    *count = 0;
    *timedOut = 0;
    return TransferLoop(true, handle, static_cast<char*>(const_cast<void*>(buffer)), length, count, seconds,
                        timedOut, flags);
}

int ZYNET_recvwithtimeout(ZYNET_SOCKET handle, void* buffer, int length, int* count, int seconds, int* timedOut,
                          int flags)
{
    if (count == nullptr || timedOut == nullptr || (buffer == nullptr && length > 0))
        return Fault();
    *count = 0;
    *timedOut = 0;
    return TransferLoop(false, handle, static_cast<char*>(buffer), length, count, seconds, timedOut, flags);
}

int ZYNET_sendtoicmpsocket(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, const void* buffer, int length, int* count,
                           int flags, int seconds, int* timedOut)
{
    return IcmpDatagram(true, handle, peer, static_cast<char*>(const_cast<void*>(buffer)), length, count, flags,
                        seconds, timedOut);
}

int ZYNET_recvfromicmpsocket(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, void* buffer, int length, int* count,
                             int flags, int seconds, int* timedOut)
{
    return IcmpDatagram(false, handle, peer, static_cast<char*>(buffer), length, count, flags, seconds, timedOut);
}

int ZYNET_select(int /*nfds*/, ZYNET_fd_set* readSet, ZYNET_fd_set* writeSet, ZYNET_fd_set* exceptSet,
                 const struct timeval* timeout, int* count)
{
    int timeoutMs = -1;
    if (timeout != nullptr)
    {
        if (timeout->tv_sec < 0 || timeout->tv_usec < 0)
        {
            zy::os::SetLastError(zy::err::kInvalidArgument);
            return zy::err::kInvalidArgument;
        }
        // Round microseconds up so that a short non-zero wait does not become
        // a busy poll; clamp very long waits.
        int64_t ms = static_cast<int64_t>(timeout->tv_sec) * 1000;
        ms += (static_cast<int64_t>(timeout->tv_usec) + 999) / 1000;
        timeoutMs = ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
    }

    uint64_t listed = 0;
    for (const ZYNET_fd_set* set : {readSet, writeSet, exceptSet})
        listed += set != nullptr ? set->fd_count : 0;
    // As with Winsock, a wait on no socket at all is an invalid request.
    if (listed == 0 || listed > static_cast<uint64_t>(INT_MAX))
    {
        zy::os::SetLastError(zy::err::kInvalidArgument);
        return zy::err::kInvalidArgument;
    }
    // The boundary rewrites the lists to their ready handles, or leaves them
    // as they were when it fails (10038 for a handle that is no socket).
    int ready = 0;
    int rc = zy::os::SelectLists(readSet, writeSet, exceptSet, timeoutMs, &ready);
    if (rc != 0)
        return rc;
    if (count != nullptr)
        *count = ready;
    return 0;
}

int ZYNET_ioctl(ZYNET_SOCKET handle, long command, unsigned long* argument)
{
    if (argument == nullptr)
        return Fault();
    return zy::os::Ioctl(handle, command, argument);
}

int ZYNET_setblocking(ZYNET_SOCKET handle)
{
    return zy::os::SetNonBlocking(handle, false);
}

int ZYNET_setnonblocking(ZYNET_SOCKET handle)
{
    return zy::os::SetNonBlocking(handle, true);
}

int ZYNET_getsockopt(ZYNET_SOCKET handle, int level, int option, char* value, int* length)
{
    if (value == nullptr || length == nullptr)
        return Fault();
    return zy::os::GetSockOpt(handle, level, option, value, length);
}

int ZYNET_setsockopt(ZYNET_SOCKET handle, int level, int option, const char* value, int length)
{
    if (value == nullptr)
        return Fault();
    return zy::os::SetSockOpt(handle, level, option, value, length);
}

int ZYNET_getsockname(ZYNET_SOCKET handle, ZYNET_SockAddr* out)
{
    return GetName(&zy::os::GetSockName, handle, out);
}

int ZYNET_getpeername(ZYNET_SOCKET handle, ZYNET_SockAddr* out)
{
    return GetName(&zy::os::GetPeerName, handle, out);
}

int ZYNET_getsockfamily(ZYNET_SOCKET handle)
{
    return zy::os::SocketFamily(handle);
}

int ZYNET_settcpkeepaliveoptions(ZYNET_SOCKET handle, int idleSeconds, int intervalSeconds)
{
    return zy::os::SetKeepAlive(handle, idleSeconds, intervalSeconds);
}

int ZYNET_socketpair(ZYNET_SOCKET pair[2])
{
    if (pair == nullptr)
        return Fault();
    pair[0] = ZYNET_INVALID_SOCKET;
    pair[1] = ZYNET_INVALID_SOCKET;

    ZYNET_HostEnt hosts;
    hosts.count = 0;
    hosts.addrs = nullptr;
    int rc = ZYNET_name2ip("localhost", &hosts, 0);
    if (rc != 0)
    {
        ZYNET_freehostent(&hosts);
        return rc;
    }

    int result = 22;  // EINVAL-style code when the look-up gave no address
    for (int i = 0; i < hosts.count; ++i)
    {
        ZYNET_SockAddr local = hosts.addrs[i];
        const int family = local.family;
        ZYNET_setport(&local, 0);
        ZYNET_SOCKET listener = ZYNET_INVALID_SOCKET;
        ZYNET_SOCKET connecting = ZYNET_INVALID_SOCKET;
        ZYNET_SOCKET accepted = ZYNET_INVALID_SOCKET;
        ZYNET_SockAddr bound;
        ZYNET_SockAddr peer;

        rc = ZYNET_socket(family, &listener);
        if (rc == 0)
            rc = ZYNET_bind(listener, &local);
        if (rc == 0)
            rc = ZYNET_listen(listener, 5);
        if (rc == 0)
            rc = ZYNET_getsockname(listener, &bound);
        if (rc == 0)
            rc = ZYNET_socket(family, &connecting);
        if (rc == 0)
            rc = ZYNET_connect(connecting, &bound);
        if (rc == 0)
        {
            rc = ZYNET_accept(listener, &accepted, &peer);
            if (rc == 0 && accepted == ZYNET_INVALID_SOCKET)
            {
                rc = zy::os::LastError();
                if (rc == 0)
                    rc = zy::err::kInvalidSocket;
            }
        }
        if (rc == 0)
            rc = ZYNET_setnonblocking(connecting);
        if (rc == 0)
            rc = ZYNET_setnonblocking(accepted);

        if (rc == 0)
        {
            ZYNET_close(listener);
            pair[0] = connecting;
            pair[1] = accepted;
            result = 0;
            break;
        }

        ZY_LOG(2, "ZYNET_socketpair", "Socket pair over %s failed with %d; trying the next address",
               ZYNET_family2str(family), rc);
        result = rc;
        // Closing may overwrite the thread's last error; keep the failing code.
        if (accepted != ZYNET_INVALID_SOCKET)
            ZYNET_close(accepted);
        if (connecting != ZYNET_INVALID_SOCKET)
            ZYNET_close(connecting);
        if (listener != ZYNET_INVALID_SOCKET)
            ZYNET_close(listener);
        zy::os::SetLastError(result);
    }

    ZYNET_freehostent(&hosts);
    return result;
}

void ZYNET_setclosecb(ZYNET_SocketCallback callback)
{
    g_closeCallback.store(callback, std::memory_order_release);
}

void ZYNET_setlistencb(ZYNET_SocketCallback callback)
{
    g_listenCallback.store(callback, std::memory_order_release);
}

int ZYNET_getlasterror(void)
{
    return zy::os::LastError();
}

void ZYNET_setlasterror(int code)
{
    zy::os::SetLastError(code);
}

}  // extern "C"
