// The flat socket functions and the socket classes CZySocketDescriptor and
// CZySocket.
#pragma once

#include <string>

#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocketTypes.h"

// Socket types and protocols used by the flat calls.
#define ZYNET_SOCK_STREAM 1
#define ZYNET_SOCK_DGRAM 2
#define ZYNET_SOCK_RAW 3
#define ZYNET_IPPROTO_ICMP 1
#define ZYNET_IPPROTO_UDP 17

typedef void (*ZYNET_SocketCallback)(ZYNET_SOCKET handle);

extern "C" {

// A stream socket of `family` (ZYNET_AF_*) in *out; 0 or the error code
// (the flat calls return Winsock numbers on every platform).
ZYNET_API int ZYNET_socket(int family, ZYNET_SOCKET* out);
// A UDP socket of `family` in *out.
ZYNET_API int ZYNET_dgramsocket(int family, ZYNET_SOCKET* out);
// A raw ICMP socket (protocol 1) of `family` in *out; needs privileges.
ZYNET_API int ZYNET_icmpsocket(int family, ZYNET_SOCKET* out);
// Binds to `addr` (its actual length is computed from its family).
ZYNET_API int ZYNET_bind(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr);
// Connects to `addr`.
ZYNET_API int ZYNET_connect(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr);
// Calls the listen callback (ZYNET_setlistencb) with the handle, then listens.
ZYNET_API int ZYNET_listen(ZYNET_SOCKET handle, int backlog);
// Accepts one client into *out and its address into *peer. A failed platform
// accept still returns 0, with *out invalid and the code as the thread's last
// socket error.
ZYNET_API int ZYNET_accept(ZYNET_SOCKET listener, ZYNET_SOCKET* out, ZYNET_SockAddr* peer);
// Returns closesocket's own result: 0, or -1 with the code left as the
// thread's last socket error (the other calls return the code itself).
ZYNET_API int ZYNET_close(ZYNET_SOCKET handle);
// Shuts down one or both directions (the platform's `how`).
ZYNET_API int ZYNET_shutdown(ZYNET_SOCKET handle, int how);
// Sends the whole buffer (looping over partial sends); *count tells how much
// went out.
ZYNET_API int ZYNET_send(ZYNET_SOCKET handle, const void* buffer, int length, int* count, int flags);
// Receives until the buffer is full or the peer shuts down (0 with *count
// below `length`).
ZYNET_API int ZYNET_recv(ZYNET_SOCKET handle, void* buffer, int length, int* count, int flags);
// ZYNET_send with a limit of `seconds` (checked once a second; 0 or less: no
// limit); when it runs out, 0 with *timedOut set to 1.
ZYNET_API int ZYNET_sendwithtimeout(ZYNET_SOCKET handle, const void* buffer, int length, int* count, int seconds,
                                    int* timedOut, int flags);
// ZYNET_recv with a limit, as ZYNET_sendwithtimeout.
ZYNET_API int ZYNET_recvwithtimeout(ZYNET_SOCKET handle, void* buffer, int length, int* count, int seconds,
                                    int* timedOut, int flags);
// Sends one ICMP datagram to `peer`, waiting up to `seconds` to be able to.
ZYNET_API int ZYNET_sendtoicmpsocket(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, const void* buffer, int length,
                                     int* count, int flags, int seconds, int* timedOut);
// Receives one ICMP datagram and its sender, waiting up to `seconds`.
ZYNET_API int ZYNET_recvfromicmpsocket(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, void* buffer, int length,
                                       int* count, int flags, int seconds, int* timedOut);
// Waits on list-form descriptor sets; each set is rewritten to the ready
// handles. `count` (may be null) receives the number of ready entries.
ZYNET_API int ZYNET_select(int nfds, ZYNET_fd_set* readSet, ZYNET_fd_set* writeSet, ZYNET_fd_set* exceptSet,
                           const struct timeval* timeout, int* count);
// `command` is the platform's own ioctl command (FIONREAD, FIONBIO, ...).
ZYNET_API int ZYNET_ioctl(ZYNET_SOCKET handle, long command, unsigned long* argument);
// Puts the socket into blocking mode.
ZYNET_API int ZYNET_setblocking(ZYNET_SOCKET handle);
// Puts the socket into non-blocking mode.
ZYNET_API int ZYNET_setnonblocking(ZYNET_SOCKET handle);
// Levels and options are the platform's own.
// @{
ZYNET_API int ZYNET_getsockopt(ZYNET_SOCKET handle, int level, int option, char* value, int* length);
ZYNET_API int ZYNET_setsockopt(ZYNET_SOCKET handle, int level, int option, const char* value, int length);
// @}
// The socket's own address.
ZYNET_API int ZYNET_getsockname(ZYNET_SOCKET handle, ZYNET_SockAddr* out);
// The connected peer's address.
ZYNET_API int ZYNET_getpeername(ZYNET_SOCKET handle, ZYNET_SockAddr* out);
// The socket's address family, or -1 with the code as the last socket error.
ZYNET_API int ZYNET_getsockfamily(ZYNET_SOCKET handle);
// Turns TCP keep-alive on with the idle time and probe interval in seconds.
ZYNET_API int ZYNET_settcpkeepaliveoptions(ZYNET_SOCKET handle, int idleSeconds, int intervalSeconds);
// Two connected loopback stream sockets in pair[0] and pair[1].
ZYNET_API int ZYNET_socketpair(ZYNET_SOCKET pair[2]);
// A function called with each handle just before ZYNET_close closes it (null:
// none). Process-wide.
ZYNET_API void ZYNET_setclosecb(ZYNET_SocketCallback callback);
// A function called with each handle before ZYNET_listen (null: none).
// Process-wide.
ZYNET_API void ZYNET_setlistencb(ZYNET_SocketCallback callback);
// The thread's last socket error (WSAGetLastError on Windows).
ZYNET_API int ZYNET_getlasterror(void);
// Sets the thread's last socket error.
ZYNET_API void ZYNET_setlasterror(int code);

}  // extern "C"

// A raw socket handle that converts to and from ZYNET_SOCKET; empty holds
// ZYNET_INVALID_SOCKET. It never closes the handle.
class ZYNET_API CZySocketDescriptor
{
public:
    CZySocketDescriptor() : m_handle(ZYNET_INVALID_SOCKET) {}
    // Wraps `handle`.
    CZySocketDescriptor(ZYNET_SOCKET handle) : m_handle(handle) {}

    // The handle itself, by value, by reference or by address (so the object can
    // be passed where a ZYNET_SOCKET* is filled in).
    // @{
    operator ZYNET_SOCKET() const { return m_handle; }
    operator ZYNET_SOCKET&() { return m_handle; }
    ZYNET_SOCKET* operator&() { return &m_handle; }
    // @}
    // Copies share the handle.
    // @{
    CZySocketDescriptor& operator=(const CZySocketDescriptor& other) = default;
    CZySocketDescriptor(const CZySocketDescriptor& other) = default;
    // @}

    // True when the handle is not ZYNET_INVALID_SOCKET.
    // @{
    bool IsValid() const { return IsValid(m_handle); }
    static bool IsValid(ZYNET_SOCKET handle) { return handle != ZYNET_INVALID_SOCKET; }
    // @}
    // The handle as "0x" and eight hex digits.
    // @{
    std::string AsString() const { return AsString(m_handle); }
    static std::string AsString(ZYNET_SOCKET handle);
    // @}

private:
    ZYNET_SOCKET m_handle;
};

// A socket handle paired with the address it was made for, bound to or
// accepted from. A value: copies share the handle, and destruction or
// Clear() forget it; only Close() closes the socket. Operations return an
// error value; transfers write their byte count through the count pointer
// (when given) whether they succeed or fail.
class ZYNET_API CZySocket
{
public:
    CZySocket();
    // An object without a socket that holds `address` (a numeric text for the
    // char* form) for a later Socket, Bind or Connect.
    // @{
    CZySocket(const sockaddr_in& address);
    CZySocket(const sockaddr_in6& address);
    CZySocket(const CZyIPAddr& address);
    CZySocket(const char* address);
    // @}
    // Shares `other`'s handle and copies its address.
    CZySocket(const CZySocket& other);

    // Shares `other`'s handle and copies its address.
    CZySocket& operator=(const CZySocket& other);
    // Forgets the handle (without closing it) and holds `address`.
    // @{
    CZySocket& operator=(const sockaddr_in& address);
    CZySocket& operator=(const sockaddr_in6& address);
    CZySocket& operator=(const CZyIPAddr& address);
    CZySocket& operator=(const char* address);
    // @}

    // Handles alone are compared. Both are false whenever the right-hand
    // object holds no socket (so an empty object is not equal to itself).
    bool operator==(const CZySocket& other) const;
    // The negation of operator==.
    bool operator!=(const CZySocket& other) const { return !(*this == other); }
    // Orders by handle (for sorted containers); false when `other` holds no socket.
    bool operator<(const CZySocket& other) const;

    // True while the object holds a socket handle.
    bool IsValid() const { return m_handle != ZYNET_INVALID_SOCKET; }
    // The handle.
    CZySocketDescriptor GetSocketDescriptor() const { return CZySocketDescriptor(m_handle); }
    // The socket's own address family as the system reports it (-1 without a
    // socket).
    CZyIPAddr::IP_FAMILY GetAddressFamily() const;
    // The address the socket was made for, bound to, connected to or accepted
    // from.
    const CZyIPAddr& GetAddress() const { return m_address; }
    // An empty object (no socket, no address).
    static CZySocket Dummy();

    // Creates a stream socket of `address`'s family and keeps `address`. An object
    // that already holds a socket fails with Win32 error 774.
    CZyError Socket(const CZyIPAddr& address);
    // The same with a UDP socket.
    CZyError DgramSocket(const CZyIPAddr& address);
    // The same with a raw ICMP socket of `family` (needs privileges); `address`
    // is the peer that SendtoICMPSocket sends to.
    CZyError ICMPSocket(const CZyIPAddr& address, CZyIPAddr::IP_FAMILY family);
    // Binds to `address`, creating a stream socket of its family first when the
    // object has none.
    CZyError Bind(const CZyIPAddr& address);
    // Listens on the bound socket (Win32 error 774 without a socket).
    CZyError Listen(int backlog);
    // Connects to `address`, creating a stream socket of its family first when
    // the object has none.
    CZyError Connect(const CZyIPAddr& address);
    // A failed platform accept is not an error here: it leaves `out` empty
    // (test out.IsValid()) and the reason as the thread's last socket error.
    CZyError Accept(CZySocket& out);
    // Waits up to `seconds` (below 1: no limit) for a client; a time-out is
    // the errno-kind 137 with *timedOut set to 1.
    CZyError AcceptWithTimeout(CZySocket& out, int seconds, int* timedOut);

    // Receives exactly `length` bytes, looping over partial receives. Ending
    // short because the peer shut down is Win32 error 774 ("Socket shutdown
    // detected"); without a socket also 774.
    CZyError Recv(void* buffer, int length, int flags, int* received);
    // Sends all `length` bytes, looping over partial sends; errors as Recv.
    CZyError Send(const void* buffer, int length, int flags, int* sent);
    // The time-limited forms take the seconds and the time-out flag before
    // the flags and the count. Limits are whole seconds, checked once a
    // second; 0 or less means no limit.
    // @{
    CZyError RecvWithTimeout(void* buffer, int length, int seconds, int* timedOut, int flags, int* received);
    CZyError SendWithTimeOut(const void* buffer, int length, int seconds, int* timedOut, int flags, int* sent);
    CZyError RecvfromICMPSocket(void* buffer, int length, int seconds, int* timedOut, int flags, int* received);
    CZyError SendtoICMPSocket(const void* buffer, int length, int seconds, int* timedOut, int flags, int* sent);
    // @}

    // Reads a socket option (the platform's own levels and options).
    CZyError GetSockOpt(int level, int option, char* value, int* length);
    // Sets a socket option (the platform's own levels and options).
    CZyError SetSockOpt(int level, int option, char* value, int length);
    // Turns TCP_NODELAY on (no Nagle delay).
    CZyError NagleOff();
    // Turns TCP_NODELAY off.
    CZyError NagleOn();
    // Puts the socket into blocking mode.
    CZyError SetToBlocking();
    // Puts the socket into non-blocking mode.
    CZyError SetToNonBlocking();
    // The number of bytes that can be read without blocking.
    CZyError GetReadQueueLen(unsigned int* length);
    // The socket's own address.
    CZyError GetLocalAddress(CZyIPAddr& address);
    // The connected peer's address.
    CZyError GetPeerAddress(CZyIPAddr& address);
    // The socket's own address as text, "" when it cannot be read.
    std::string GetLocalAddressString();
    // The peer's address as text, "" when it cannot be read.
    std::string GetPeerAddressString();
    // Shuts down one or both directions (the platform's `how`).
    CZyError Shutdown(int how);

    // Two connected non-blocking loopback stream sockets; the first is the
    // connecting end. A failure that left no socket error is reported as
    // success with both objects untouched: check IsValid().
    static CZyError CreateSocketPair(CZySocket* first, CZySocket* second);

    // Closes the socket (if any) and empties the object.
    void Close();
    // Forgets the handle and the address without closing the socket.
    void Clear();
    // Takes over an already connected handle, with no address.
    void AttachConnectedSocket(ZYNET_SOCKET handle);
    // Takes over an already connected handle and its peer's address.
    void AttachConnectedSocket(ZYNET_SOCKET handle, CZyIPAddr address);
    // Listen and Connect then ask for the loopback fast path (Windows; a
    // no-op on Linux). Its failure never fails the operation.
    static void SetFastLoopBack(bool enable);

private:
    ZYNET_SOCKET m_handle;
    CZyIPAddr m_address;

    // Process-wide, set once at start-up by SetFastLoopBack. The empty
    // object that Dummy() returns is built on first use inside Dummy().
    static bool bEnableLoopBack;
};
