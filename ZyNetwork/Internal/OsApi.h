// The OS boundary: every platform socket, wait, resolver and system call of
// the library goes through these functions (adapters: OsAdapters.h; ICMP
// datagram sockets: OsIcmp.h; QoS flows: OsQos.h). ZyNetwork/Posix/ and
// ZyNetwork/Windows/ each implement all of them, one file per topic:
//   errors and families   ErrorsPosix.cpp    ErrorsWindows.cpp
//   start-up, sockets     SocketsPosix.cpp   SocketsWindows.cpp
//   waiting               WaitPosix.cpp      WaitWindows.cpp
//   resolver              ResolverPosix.cpp  ResolverWindows.cpp
//   debugging, version    SystemPosix.cpp    SystemWindows.cpp
// What both halves do alike (argument checks, record copies, the walks over
// resolver answers) is written once in OsCommon.h. Portable code includes
// only this header.
//
// Conventions:
// - Families are the portable numbers (0, 1, 2, 23); address records are
//   ZYNET_SockAddr in portable form. Translation happens inside.
// - Functions returning int give 0 on success or a portable (Winsock) error
//   code, and store that code as the thread's last socket error on failure.
// - Handles are ZYNET_SOCKET (unsigned 32-bit, all ones for none).
// Internal: not installed, not exported.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocketTypes.h"

// Winsock's headers define GetAddrInfo and GetNameInfo as macros for their
// own functions; the names below are this library's.
#ifdef GetAddrInfo
#undef GetAddrInfo
#endif
#ifdef GetNameInfo
#undef GetNameInfo
#endif

namespace zy::os
{
// ---- errors and families -------------------------------------------------
int LastError();               // the thread's last socket error
void SetLastError(int code);   // sets it
int TranslateErrno(int osError);        // POSIX errno -> Winsock code; identity on Windows
int TranslateResolverError(int osCode); // getaddrinfo/getnameinfo result -> Winsock code
int FamilyToOs(int portableFamily);
int FamilyFromOs(int osFamily);

// ---- start-up ------------------------------------------------------------
int Startup();   // WSAStartup(2.2) on Windows; nothing on POSIX
int Cleanup();

// ---- sockets -------------------------------------------------------------
// Every socket is created close-on-exec; on Linux sends never raise SIGPIPE.
int Socket(int family, int type, int protocol, ZYNET_SOCKET* out);
int Close(ZYNET_SOCKET handle);
int Bind(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length);
// A non-blocking connect that is still under way fails with 10035 on both
// platforms (Linux's EINPROGRESS is reported as Winsock does).
int Connect(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length);
int Listen(ZYNET_SOCKET handle, int backlog);
// `length` in: capacity (bytes of the record offered); out: length written.
int Accept(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, int* length, ZYNET_SOCKET* out);
int Shutdown(ZYNET_SOCKET handle, int how);
// One send/recv call each. `transferred` gets the byte count (>= 0) on success.
int Send(ZYNET_SOCKET handle, const void* buffer, int length, int flags, int* transferred);
int Recv(ZYNET_SOCKET handle, void* buffer, int length, int flags, int* transferred);
// Send/Recv that never block, for loops that wait only when they must.
// Linux: one send/recv with MSG_DONTWAIT (whatever the socket's own mode).
// Windows, which has no per-call flag: nothing is called. When the transfer
// would block, both return 10035 WITHOUT storing it as the thread's last
// socket error (the caller goes on to wait, and a later success must not
// find a stale code there); any other failure is returned and stored as Send
// and Recv do.
int SendNoWait(ZYNET_SOCKET handle, const void* buffer, int length, int flags, int* transferred);
int RecvNoWait(ZYNET_SOCKET handle, void* buffer, int length, int flags, int* transferred);
int SendTo(ZYNET_SOCKET handle, const void* buffer, int length, int flags, const ZYNET_SockAddr* to, int toLength,
           int* transferred);
int RecvFrom(ZYNET_SOCKET handle, void* buffer, int length, int flags, ZYNET_SockAddr* from, int* fromLength,
             int* transferred);
int GetSockOpt(ZYNET_SOCKET handle, int level, int option, char* value, int* length);
int SetSockOpt(ZYNET_SOCKET handle, int level, int option, const char* value, int length);
int Ioctl(ZYNET_SOCKET handle, long command, unsigned long* argument);
int SetNonBlocking(ZYNET_SOCKET handle, bool nonBlocking);
int ReadQueueLength(ZYNET_SOCKET handle, unsigned int* length);
int GetSockName(ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length);
int GetPeerName(ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length);
int SocketFamily(ZYNET_SOCKET handle);  // portable family, or -1
int SetKeepAlive(ZYNET_SOCKET handle, int idleSeconds, int intervalSeconds);
int RequestLoopbackFastPath(ZYNET_SOCKET handle);  // a no-op on POSIX
int SetIpTtl(ZYNET_SOCKET handle, int ttl);         // IP_TTL at level IP

// ---- waiting -------------------------------------------------------------
enum PollEvents : short
{
    POLL_READ = 1,    // readable, peer closed, or error (as select's read set)
    POLL_WRITE = 2,   // writable, or error (as select's write set)
    POLL_EXCEPT = 4,  // out-of-band data or a failed connect (as select's exception set)
    POLL_INVALID = 8  // revents only: not a socket
};
struct PollEntry
{
    ZYNET_SOCKET handle;
    short events;
    short revents;
};
// Waits up to timeoutMs (-1: no limit) for any entry. `ready` gets the
// number of entries with a non-zero revents; revents holds only the
// requested events, plus POLL_INVALID.
// Linux (poll): POLL_READ asks POLLIN|POLLRDHUP and is reported for
// POLLIN, POLLRDHUP, POLLHUP or POLLERR; POLL_WRITE asks POLLOUT and is
// reported for POLLOUT or POLLERR; POLL_EXCEPT asks POLLPRI and is reported
// for POLLPRI, or for POLLERR on a stream socket without a peer (a failed
// connect). POLLNVAL becomes POLL_INVALID.
// Windows: select() over sets sized to the request; a handle that select
// refuses as no socket becomes POLL_INVALID.
// A handle that is no socket (the invalid handle included) never blocks the
// call: it is flagged and the others are reported as they stand.
int Poll(PollEntry* entries, int count, int timeoutMs, int* ready);
// The wait behind ZYNET_select, straight on list-form sets: waits up to
// timeoutMs (-1: no limit) for any handle listed in the read, write or
// exception set (each may be null; the caller makes sure at least one handle
// is listed), then rewrites each set to its ready handles, in their order,
// and stores the number kept over all three sets in `count`. Readiness has
// the meaning Poll gives POLL_READ, POLL_WRITE and POLL_EXCEPT. A listed
// handle that is no socket fails the call with 10038 without blocking; on
// any failure the sets are left as they were. One pass over the lists each
// way, with per-thread scratch storage, so a steady stream of waits
// allocates nothing.
int SelectLists(ZYNET_fd_set* readSet, ZYNET_fd_set* writeSet, ZYNET_fd_set* exceptSet, int timeoutMs, int* count);

// ---- resolver ------------------------------------------------------------
// Portable hint and flag values (Winsock's numbers). Linux also maps
// Winsock's AI_PASSIVE 1, AI_NUMERICSERV 8, AI_ALL 0x100, AI_ADDRCONFIG
// 0x400, AI_V4MAPPED 0x800 and NI_NOFQDN 1, NI_NUMERICSERV 8, NI_DGRAM 16.
enum
{
    AI_FLAG_CANONNAME = 2,
    AI_FLAG_NUMERICHOST = 4,
    NI_FLAG_NUMERICHOST = 2,
    NI_FLAG_NAMEREQD = 4
};
// getaddrinfo with no service. Entries of family IPv4 and IPv6 are appended
// to `out` in resolver order, in portable form with the port as the
// resolver gave it; other families are skipped. `otherFamilies` (may be null)
// counts the skipped ones. Returns 0 or the translated resolver code and
// stores it as the thread's last socket error either way.
int GetAddrInfo(const char* name, int flags, int family, int socktype, int protocol,
                std::vector<ZYNET_SockAddr>* out, int* otherFamilies);
// getaddrinfo with no service, keeping only the first IPv4 or IPv6 entry in
// resolver order, written straight into `out`: the family's own bytes (16
// for IPv4, 28 for IPv6) in portable form, the port as the resolver gave it;
// the rest of `out` is left as it was. `*found` tells whether there was such
// an entry (`out` is untouched when not). Returns 0 or the translated
// resolver code and stores it as the thread's last socket error either way;
// the resolver's list is released on every path. Nothing is allocated.
int GetFirstAddrInfo(const char* name, int flags, int family, int socktype, int protocol, ZYNET_SockAddr* out,
                     bool* found);
// getnameinfo into `host` (no service). Returns the translated code and
// stores it as the thread's last socket error either way.
int GetNameInfo(const ZYNET_SockAddr* addr, int length, char* host, int hostLength, int flags);
int GetHostName(char* buffer, int length);
int GetServByName(const char* service, const char* protocol, struct servent** out);
int GetServByPort(int port, const char* protocol, struct servent** out);

// Names under the reserved top-level domain "invalid" never exist: both
// resolvers answer "host not found" (11001) for them at once, without asking
// any name server. True for "invalid", "x.invalid" and "x.invalid." (any case).
inline bool IsReservedInvalidName(const char* name)
{
    if (name == nullptr)
        return false;
    size_t length = 0;
    while (name[length] != '\0')
        ++length;
    if (length > 0 && name[length - 1] == '.')
        --length;  // a fully qualified name ends in a dot
    static const char kLabel[] = "invalid";
    const size_t labelLength = sizeof(kLabel) - 1;
    if (length < labelLength)
        return false;
    const char* tail = name + length - labelLength;
    for (size_t i = 0; i < labelLength; ++i)
    {
        char c = tail[i];
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        if (c != kLabel[i])
            return false;
    }
    return length == labelLength || tail[-1] == '.';
}

// ---- debugging -----------------------------------------------------------
// True when a debugger is attached to this process (Linux: a tracer in
// /proc/self/status; Windows: IsDebuggerPresent).
bool IsDebuggerAttached();
// Stops in the attached debugger (SIGTRAP on Linux, DebugBreak on Windows).
// Callers check IsDebuggerAttached() first: without a debugger this would
// end the process.
void BreakIntoDebugger();

// ---- Unix-domain support -------------------------------------------------
// The registry's version fields when they can be read (Windows); false on
// POSIX or when any read fails.
bool ReadWindowsVersion(unsigned long* major, unsigned long* build, unsigned long* revision);
}  // namespace zy::os
