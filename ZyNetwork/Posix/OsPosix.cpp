// The OS boundary on Linux (glibc): sockets, the wait primitive, the resolver
// and the translation of errno, resolver codes and address families into the
// portable (Winsock) numbers the rest of the library uses.
#include "ZyNetwork/Internal/OsApi.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

static_assert(sizeof(struct sockaddr_in) == 16, "sockaddr_in layout");
static_assert(sizeof(struct sockaddr_in6) == 28, "sockaddr_in6 layout");
static_assert(sizeof(struct sockaddr_un) == 110, "sockaddr_un layout");
static_assert(sizeof(struct sockaddr_storage) >= sizeof(ZYNET_SockAddr), "storage holds a whole record");

namespace zyos
{
namespace
{
// Initial-exec: a direct access instead of a call to __tls_get_addr on every
// socket call of this shared library; one int of the static TLS surplus.
thread_local int t_lastError __attribute__((tls_model("initial-exec"))) = 0;

// Winsock codes used below.
enum
{
    kNoMemory = 8,
    kEINTR = 10004,
    kEACCES = 10013,
    kEFAULT = 10014,
    kEINVAL = 10022,
    kEMFILE = 10024,
    kEWOULDBLOCK = 10035,
    kEINPROGRESS = 10036,
    kEALREADY = 10037,
    kENOTSOCK = 10038,
    kEDESTADDRREQ = 10039,
    kEMSGSIZE = 10040,
    kEPROTOTYPE = 10041,
    kENOPROTOOPT = 10042,
    kEPROTONOSUPPORT = 10043,
    kESOCKTNOSUPPORT = 10044,
    kEOPNOTSUPP = 10045,
    kEPFNOSUPPORT = 10046,
    kEAFNOSUPPORT = 10047,
    kEADDRINUSE = 10048,
    kEADDRNOTAVAIL = 10049,
    kENETDOWN = 10050,
    kENETUNREACH = 10051,
    kENETRESET = 10052,
    kECONNABORTED = 10053,
    kECONNRESET = 10054,
    kENOBUFS = 10055,
    kEISCONN = 10056,
    kENOTCONN = 10057,
    kESHUTDOWN = 10058,
    kETOOMANYREFS = 10059,
    kETIMEDOUT = 10060,
    kECONNREFUSED = 10061,
    kELOOP = 10062,
    kENAMETOOLONG = 10063,
    kEHOSTDOWN = 10064,
    kEHOSTUNREACH = 10065,
    kENOTEMPTY = 10066,
    kEUSERS = 10068,
    kEDQUOT = 10069,
    kESTALE = 10070,
    kEREMOTE = 10071,
    kTYPE_NOT_FOUND = 10109,
    kHOST_NOT_FOUND = 11001,
    kTRY_AGAIN = 11002,
    kNO_RECOVERY = 11003,
    kNO_DATA = 11004
};

int Fail(int code)
{
    t_lastError = code;
    return code;
}

// Translates errno right after the failing call and records it.
int FailErrno()
{
    return Fail(TranslateErrno(errno));
}

// Descriptors are small non-negative ints; a handle that cannot be one (the
// invalid handle included) becomes -1, which every call rejects with EBADF.
int Fd(ZYNET_SOCKET handle)
{
    return handle > static_cast<ZYNET_SOCKET>(INT_MAX) ? -1 : static_cast<int>(handle);
}

// A portable record of `length` bytes in OS form. Bytes beyond the record are
// zero; the OS is offered at most the size of sockaddr_storage.
bool ToOs(const ZYNET_SockAddr* addr, int length, sockaddr_storage* os, socklen_t* osLength)
{
    memset(os, 0, sizeof(*os));
    if (addr == nullptr || length < 0)
        return false;
    size_t copied = std::min(static_cast<size_t>(length), sizeof(ZYNET_SockAddr));
    memcpy(os, addr, copied);
    if (copied >= sizeof(addr->family))
        os->ss_family = static_cast<sa_family_t>(FamilyToOs(addr->family));
    *osLength = static_cast<socklen_t>(std::min(static_cast<size_t>(length), sizeof(sockaddr_storage)));
    return true;
}

// Copies what the OS wrote back into the caller's record: never more than
// the OS wrote, the caller offered, or the record holds.
void FromOs(const sockaddr_storage& os, socklen_t osLength, ZYNET_SockAddr* out, int capacity)
{
    if (out == nullptr || capacity <= 0)
        return;
    size_t copied = std::min({static_cast<size_t>(osLength), static_cast<size_t>(capacity), sizeof(ZYNET_SockAddr)});
    memcpy(out, &os, copied);
    if (copied >= sizeof(out->family))
        out->family = static_cast<uint16_t>(FamilyFromOs(os.ss_family));
}

// Capacity offered to the OS for a record it writes.
socklen_t OsCapacity(int capacity)
{
    return static_cast<socklen_t>(std::min(static_cast<size_t>(capacity), sizeof(sockaddr_storage)));
}

int AddrInfoFlagsToOs(int flags)
{
    // Winsock's values on the left, glibc's on the right.
    static const struct
    {
        int portable;
        int os;
    } kMap[] = {{0x1, AI_PASSIVE},   {0x2, AI_CANONNAME}, {0x4, AI_NUMERICHOST}, {0x8, AI_NUMERICSERV},
                {0x100, AI_ALL},     {0x400, AI_ADDRCONFIG}, {0x800, AI_V4MAPPED}};
    int os = 0;
    for (const auto& entry : kMap)
        if (flags & entry.portable)
            os |= entry.os;
    return os;
}

int NameInfoFlagsToOs(int flags)
{
    static const struct
    {
        int portable;
        int os;
    } kMap[] = {{0x1, NI_NOFQDN}, {0x2, NI_NUMERICHOST}, {0x4, NI_NAMEREQD}, {0x8, NI_NUMERICSERV}, {0x10, NI_DGRAM}};
    int os = 0;
    for (const auto& entry : kMap)
        if (flags & entry.portable)
            os |= entry.os;
    return os;
}

int64_t MonotonicMs()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// An ioctl whose argument is an int on Linux while callers hand an unsigned
// long (Winsock's u_long).
bool IsIntIoctl(long command)
{
    return command == FIONBIO || command == FIONREAD || command == SIOCATMARK || command == TIOCOUTQ;
}
}  // namespace

// ---- errors and families -------------------------------------------------

int LastError()
{
    return t_lastError;
}

void SetLastError(int code)
{
    t_lastError = code;
}

int TranslateErrno(int osError)
{
    switch (osError)
    {
    case 0: return 0;
    case EINTR: return kEINTR;
    case EACCES:
    case EPERM: return kEACCES;
    case EFAULT: return kEFAULT;
    case EINVAL: return kEINVAL;
    case EMFILE:
    case ENFILE: return kEMFILE;
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case EAGAIN: return kEWOULDBLOCK;
    case EINPROGRESS: return kEINPROGRESS;
    case EALREADY: return kEALREADY;
    case EBADF:
    case ENOTSOCK: return kENOTSOCK;
    case EDESTADDRREQ: return kEDESTADDRREQ;
    case EMSGSIZE: return kEMSGSIZE;
    case EPROTOTYPE: return kEPROTOTYPE;
    case ENOPROTOOPT: return kENOPROTOOPT;
    case EPROTONOSUPPORT: return kEPROTONOSUPPORT;
    case ESOCKTNOSUPPORT: return kESOCKTNOSUPPORT;
#if EOPNOTSUPP != ENOTSUP
    case ENOTSUP:
#endif
    case EOPNOTSUPP: return kEOPNOTSUPP;
    case EPFNOSUPPORT: return kEPFNOSUPPORT;
    case EAFNOSUPPORT: return kEAFNOSUPPORT;
    case EADDRINUSE: return kEADDRINUSE;
    case EADDRNOTAVAIL: return kEADDRNOTAVAIL;
    case ENETDOWN: return kENETDOWN;
    case ENETUNREACH: return kENETUNREACH;
    case ENETRESET: return kENETRESET;
    case ECONNABORTED: return kECONNABORTED;
    case ECONNRESET: return kECONNRESET;
    case ENOBUFS: return kENOBUFS;
    case EISCONN: return kEISCONN;
    case ENOTCONN: return kENOTCONN;
    // Linux reports a send after shutdown, and a send to a peer that has
    // gone, as EPIPE; Winsock's nearest code is "socket shut down".
    case EPIPE:
    case ESHUTDOWN: return kESHUTDOWN;
    case ETOOMANYREFS: return kETOOMANYREFS;
    case ETIMEDOUT: return kETIMEDOUT;
    case ECONNREFUSED: return kECONNREFUSED;
    case ELOOP: return kELOOP;
    case ENAMETOOLONG: return kENAMETOOLONG;
    case EHOSTDOWN: return kEHOSTDOWN;
    case EHOSTUNREACH: return kEHOSTUNREACH;
    case ENOTEMPTY: return kENOTEMPTY;
    case EUSERS: return kEUSERS;
    case EDQUOT: return kEDQUOT;
    case ESTALE: return kESTALE;
    case EREMOTE: return kEREMOTE;
    case ENOMEM: return kNoMemory;
    default: return osError;
    }
}

int TranslateResolverError(int osCode)
{
    switch (osCode)
    {
    case 0: return 0;
    case EAI_NONAME: return kHOST_NOT_FOUND;
    case EAI_AGAIN: return kTRY_AGAIN;
    case EAI_FAIL: return kNO_RECOVERY;
#ifdef EAI_NODATA
    case EAI_NODATA: return kNO_DATA;
#endif
#ifdef EAI_ADDRFAMILY
    // The name exists but has no address of the family asked for: Winsock
    // says "valid name, no data record of the requested type".
    case EAI_ADDRFAMILY: return kNO_DATA;
#endif
    case EAI_FAMILY: return kEAFNOSUPPORT;
    case EAI_MEMORY: return kNoMemory;
    case EAI_SERVICE: return kTYPE_NOT_FOUND;
    case EAI_SOCKTYPE: return kESOCKTNOSUPPORT;
    case EAI_BADFLAGS: return kEINVAL;
    // The host buffer of getnameinfo was too small: Winsock reports a
    // buffer it cannot use as a fault.
    case EAI_OVERFLOW: return kEFAULT;
#ifdef EAI_INTR
    case EAI_INTR: return kEINTR;
#endif
    case EAI_SYSTEM: return TranslateErrno(errno);
    default: return osCode;
    }
}

int FamilyToOs(int portableFamily)
{
    return portableFamily == ZYNET_AF_INET6 ? AF_INET6 : portableFamily;
}

int FamilyFromOs(int osFamily)
{
    return osFamily == AF_INET6 ? ZYNET_AF_INET6 : osFamily;
}

// ---- start-up ------------------------------------------------------------

int Startup()
{
    return 0;
}

int Cleanup()
{
    return 0;
}

// ---- sockets -------------------------------------------------------------

int Socket(int family, int type, int protocol, ZYNET_SOCKET* out)
{
    if (out == nullptr)
        return Fail(kEFAULT);
    *out = ZYNET_INVALID_SOCKET;
    int fd = ::socket(FamilyToOs(family), type | SOCK_CLOEXEC, protocol);
    if (fd < 0)
        return FailErrno();
    *out = static_cast<ZYNET_SOCKET>(fd);
    return 0;
}

int Close(ZYNET_SOCKET handle)
{
    // Linux releases the descriptor even when close is interrupted; retrying
    // could close a descriptor another thread has just been given.
    if (::close(Fd(handle)) != 0 && errno != EINTR)
        return FailErrno();
    return 0;
}

int Bind(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length)
{
    sockaddr_storage os;
    socklen_t osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(kEFAULT);
    if (::bind(Fd(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
        return FailErrno();
    return 0;
}

int Connect(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length)
{
    sockaddr_storage os;
    socklen_t osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(kEFAULT);
    // Not retried on EINTR: an interrupted connect goes on in the background
    // and a second call would only report EALREADY.
    if (::connect(Fd(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
    {
        // A non-blocking connect under way is "would block" (10035) in
        // Winsock, which is what callers of both platforms test for.
        if (errno == EINPROGRESS)
            return Fail(kEWOULDBLOCK);
        return FailErrno();
    }
    return 0;
}

int Listen(ZYNET_SOCKET handle, int backlog)
{
    if (::listen(Fd(handle), backlog) != 0)
        return FailErrno();
    return 0;
}

int Accept(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, int* length, ZYNET_SOCKET* out)
{
    if (out == nullptr)
        return Fail(kEFAULT);
    *out = ZYNET_INVALID_SOCKET;
    if (peer != nullptr && (length == nullptr || *length < 0))
        return Fail(kEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    socklen_t osLength = peer != nullptr ? OsCapacity(*length) : 0;
    int fd;
    do
        fd = ::accept4(Fd(handle), peer != nullptr ? reinterpret_cast<sockaddr*>(&os) : nullptr,
                       peer != nullptr ? &osLength : nullptr, SOCK_CLOEXEC);
    while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return FailErrno();
    if (peer != nullptr)
    {
        FromOs(os, osLength, peer, *length);
        *length = static_cast<int>(std::min(osLength, OsCapacity(*length)));
    }
    *out = static_cast<ZYNET_SOCKET>(fd);
    return 0;
}

int Shutdown(ZYNET_SOCKET handle, int how)
{
    // SD_RECEIVE/SD_SEND/SD_BOTH are 0/1/2, as SHUT_RD/SHUT_WR/SHUT_RDWR.
    if (::shutdown(Fd(handle), how) != 0)
        return FailErrno();
    return 0;
}

int Send(ZYNET_SOCKET handle, const void* buffer, int length, int flags, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(kEFAULT);
    *transferred = 0;
    ssize_t sent;
    do
        sent = ::send(Fd(handle), buffer, static_cast<size_t>(length), flags | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    if (sent < 0)
        return FailErrno();
    *transferred = static_cast<int>(sent);
    return 0;
}

int Recv(ZYNET_SOCKET handle, void* buffer, int length, int flags, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(kEFAULT);
    *transferred = 0;
    ssize_t received;
    do
        received = ::recv(Fd(handle), buffer, static_cast<size_t>(length), flags);
    while (received < 0 && errno == EINTR);
    if (received < 0)
        return FailErrno();
    *transferred = static_cast<int>(received);
    return 0;
}

int SendNoWait(ZYNET_SOCKET handle, const void* buffer, int length, int flags, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(kEFAULT);
    *transferred = 0;
    ssize_t sent;
    do
        sent = ::send(Fd(handle), buffer, static_cast<size_t>(length), flags | MSG_DONTWAIT | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    if (sent < 0)
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? static_cast<int>(kEWOULDBLOCK) : FailErrno();
    *transferred = static_cast<int>(sent);
    return 0;
}

int RecvNoWait(ZYNET_SOCKET handle, void* buffer, int length, int flags, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(kEFAULT);
    *transferred = 0;
    ssize_t received;
    do
        received = ::recv(Fd(handle), buffer, static_cast<size_t>(length), flags | MSG_DONTWAIT);
    while (received < 0 && errno == EINTR);
    if (received < 0)
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? static_cast<int>(kEWOULDBLOCK) : FailErrno();
    *transferred = static_cast<int>(received);
    return 0;
}

int SendTo(ZYNET_SOCKET handle, const void* buffer, int length, int flags, const ZYNET_SockAddr* to, int toLength,
           int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(kEFAULT);
    *transferred = 0;
    sockaddr_storage os;
    socklen_t osLength = 0;
    const sockaddr* target = nullptr;
    if (to != nullptr)
    {
        if (!ToOs(to, toLength, &os, &osLength))
            return Fail(kEFAULT);
        target = reinterpret_cast<const sockaddr*>(&os);
    }
    ssize_t sent;
    do
        sent = ::sendto(Fd(handle), buffer, static_cast<size_t>(length), flags | MSG_NOSIGNAL, target, osLength);
    while (sent < 0 && errno == EINTR);
    if (sent < 0)
        return FailErrno();
    *transferred = static_cast<int>(sent);
    return 0;
}

int RecvFrom(ZYNET_SOCKET handle, void* buffer, int length, int flags, ZYNET_SockAddr* from, int* fromLength,
             int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(kEFAULT);
    *transferred = 0;
    if (from != nullptr && (fromLength == nullptr || *fromLength < 0))
        return Fail(kEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    socklen_t osLength = from != nullptr ? OsCapacity(*fromLength) : 0;
    ssize_t received;
    do
        received = ::recvfrom(Fd(handle), buffer, static_cast<size_t>(length), flags,
                              from != nullptr ? reinterpret_cast<sockaddr*>(&os) : nullptr,
                              from != nullptr ? &osLength : nullptr);
    while (received < 0 && errno == EINTR);
    if (received < 0)
        return FailErrno();
    if (from != nullptr)
    {
        FromOs(os, osLength, from, *fromLength);
        *fromLength = static_cast<int>(std::min(osLength, OsCapacity(*fromLength)));
    }
    *transferred = static_cast<int>(received);
    return 0;
}

int GetSockOpt(ZYNET_SOCKET handle, int level, int option, char* value, int* length)
{
    if (length == nullptr || *length < 0)
        return Fail(kEFAULT);
    socklen_t osLength = static_cast<socklen_t>(*length);
    if (::getsockopt(Fd(handle), level, option, value, &osLength) != 0)
        return FailErrno();
    *length = static_cast<int>(osLength);
    return 0;
}

int SetSockOpt(ZYNET_SOCKET handle, int level, int option, const char* value, int length)
{
    if (length < 0)
        return Fail(kEFAULT);
    if (::setsockopt(Fd(handle), level, option, value, static_cast<socklen_t>(length)) != 0)
        return FailErrno();
    return 0;
}

int Ioctl(ZYNET_SOCKET handle, long command, unsigned long* argument)
{
    if (argument == nullptr)
        return Fail(kEFAULT);
    int rc;
    if (IsIntIoctl(command))
    {
        // Winsock's u_long is 32 bits; Linux reads and writes an int here.
        int value = static_cast<int>(*argument);
        rc = ::ioctl(Fd(handle), static_cast<unsigned long>(command), &value);
        if (rc == 0)
            *argument = static_cast<unsigned long>(static_cast<unsigned int>(value));
    }
    else
    {
        rc = ::ioctl(Fd(handle), static_cast<unsigned long>(command), argument);
    }
    if (rc != 0)
        return FailErrno();
    return 0;
}

int SetNonBlocking(ZYNET_SOCKET handle, bool nonBlocking)
{
    int value = nonBlocking ? 1 : 0;
    if (::ioctl(Fd(handle), FIONBIO, &value) != 0)
        return FailErrno();
    return 0;
}

int ReadQueueLength(ZYNET_SOCKET handle, unsigned int* length)
{
    if (length == nullptr)
        return Fail(kEFAULT);
    int value = 0;
    if (::ioctl(Fd(handle), FIONREAD, &value) != 0)
        return FailErrno();
    *length = static_cast<unsigned int>(value);
    return 0;
}

static int GetName(bool peer, ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    if (out == nullptr || length == nullptr || *length < 0)
        return Fail(kEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    socklen_t osLength = OsCapacity(*length);
    int rc = peer ? ::getpeername(Fd(handle), reinterpret_cast<sockaddr*>(&os), &osLength)
                  : ::getsockname(Fd(handle), reinterpret_cast<sockaddr*>(&os), &osLength);
    if (rc != 0)
        return FailErrno();
    FromOs(os, osLength, out, *length);
    *length = static_cast<int>(std::min(osLength, OsCapacity(*length)));
    return 0;
}

int GetSockName(ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    return GetName(false, handle, out, length);
}

int GetPeerName(ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    return GetName(true, handle, out, length);
}

int SocketFamily(ZYNET_SOCKET handle)
{
    int domain = 0;
    socklen_t length = sizeof(domain);
    if (::getsockopt(Fd(handle), SOL_SOCKET, SO_DOMAIN, &domain, &length) != 0)
    {
        FailErrno();
        return -1;
    }
    return FamilyFromOs(domain);
}

int SetKeepAlive(ZYNET_SOCKET handle, int idleSeconds, int intervalSeconds)
{
    // Linux takes whole seconds between 1 and 32767 for both values; Windows
    // takes milliseconds and accepts 0. Values are clamped into Linux's range
    // so that a call that works on Windows also works here.
    int on = 1;
    int idle = std::clamp(idleSeconds, 1, 32767);
    int interval = std::clamp(intervalSeconds, 1, 32767);
    int fd = Fd(handle);
    if (::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on)) != 0 ||
        ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof(idle)) != 0 ||
        ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof(interval)) != 0)
        return FailErrno();
    return 0;
}

int RequestLoopbackFastPath(ZYNET_SOCKET /*handle*/)
{
    // Linux loopback has no slower path to opt out of.
    return 0;
}

int SetIpTtl(ZYNET_SOCKET handle, int ttl)
{
    if (::setsockopt(Fd(handle), IPPROTO_IP, IP_TTL, &ttl, sizeof(ttl)) != 0)
        return FailErrno();
    return 0;
}

// ---- waiting -------------------------------------------------------------

namespace
{
// The pollfd array of the calling thread, grown to the largest wait it has
// made and reused, so that waiting allocates nothing in the steady state.
// Nothing runs between filling and reading it that could wait again.
pollfd* PollScratch(size_t count)
{
    thread_local std::vector<pollfd> t_fds;
    if (t_fds.size() < count)
        t_fds.resize(count);
    return t_fds.data();
}

// poll() that resumes after a signal with what is left of the time limit.
// Returns poll's result; errno tells a failure.
int PollRetrying(pollfd* fds, size_t count, int timeoutMs)
{
    const int64_t deadline = timeoutMs >= 0 ? MonotonicMs() + timeoutMs : 0;
    int wait = timeoutMs < 0 ? -1 : timeoutMs;
    for (;;)
    {
        int rc = ::poll(fds, static_cast<nfds_t>(count), wait);
        if (rc >= 0 || errno != EINTR)
            return rc;
        if (timeoutMs >= 0)
            wait = static_cast<int>(std::max<int64_t>(0, deadline - MonotonicMs()));
    }
}

// What each kind of wait asks poll() for.
short PollEventsFor(short events)
{
    short asked = 0;
    if (events & POLL_READ)
        asked |= POLLIN | POLLRDHUP;
    if (events & POLL_WRITE)
        asked |= POLLOUT;
    if (events & POLL_EXCEPT)
        asked |= POLLPRI;
    return asked;
}

// An error on a stream socket that never became connected is a failed
// connect, which select reports in the exception set.
bool IsFailedConnect(int fd)
{
    int type = 0;
    socklen_t typeLength = sizeof(type);
    sockaddr_storage peer;
    socklen_t peerLength = sizeof(peer);
    return ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &typeLength) == 0 && type == SOCK_STREAM &&
           ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0 && errno == ENOTCONN;
}

// The wanted events that poll's answer for one descriptor amounts to, with
// select's meaning: a closed peer or an error makes a socket readable, an
// error makes it writable, and a failed connect is exceptional.
short ReadyEvents(const pollfd& fd, short wanted)
{
    const short r = fd.revents;
    short out = 0;
    if ((wanted & POLL_READ) && (r & (POLLIN | POLLRDHUP | POLLHUP | POLLERR)))
        out |= POLL_READ;
    if ((wanted & POLL_WRITE) && (r & (POLLOUT | POLLERR)))
        out |= POLL_WRITE;
    if ((wanted & POLL_EXCEPT) && ((r & POLLPRI) || ((r & POLLERR) && IsFailedConnect(fd.fd))))
        out |= POLL_EXCEPT;
    return out;
}
}  // namespace

int Poll(PollEntry* entries, int count, int timeoutMs, int* ready)
{
    if (ready != nullptr)
        *ready = 0;
    if (count < 0 || (count > 0 && entries == nullptr))
        return Fail(kEFAULT);

    pollfd* fds = PollScratch(static_cast<size_t>(count));
    bool notDescriptor = false;
    for (int i = 0; i < count; ++i)
    {
        fds[i].fd = Fd(entries[i].handle);
        fds[i].events = PollEventsFor(entries[i].events);
        fds[i].revents = 0;
        entries[i].revents = 0;
        // poll() silently skips negative descriptors; they are reported as
        // a closed one is.
        notDescriptor = notDescriptor || fds[i].fd < 0;
    }
    // A handle that is no descriptor at all is reported at once, together
    // with whatever else is ready now: the wait does not block.
    if (PollRetrying(fds, static_cast<size_t>(count), notDescriptor ? 0 : timeoutMs) < 0)
        return FailErrno();

    int readyCount = 0;
    for (int i = 0; i < count; ++i)
    {
        const short out = (fds[i].fd < 0 || (fds[i].revents & POLLNVAL)) ? static_cast<short>(POLL_INVALID)
                                                                          : ReadyEvents(fds[i], entries[i].events);
        entries[i].revents = out;
        if (out != 0)
            ++readyCount;
    }
    if (ready != nullptr)
        *ready = readyCount;
    return 0;
}

int SelectLists(ZYNET_fd_set* readSet, ZYNET_fd_set* writeSet, ZYNET_fd_set* exceptSet, int timeoutMs, int* count)
{
    if (count != nullptr)
        *count = 0;
    ZYNET_fd_set* const sets[3] = {readSet, writeSet, exceptSet};
    static const short kWanted[3] = {POLL_READ, POLL_WRITE, POLL_EXCEPT};
    size_t total = 0;
    for (const ZYNET_fd_set* set : sets)
        total += set != nullptr ? set->fd_count : 0;

    // The lists go straight into the pollfd array, in order: read, write,
    // exception.
    pollfd* const fds = PollScratch(total);
    pollfd* p = fds;
    bool notDescriptor = false;
    for (int k = 0; k < 3; ++k)
    {
        if (sets[k] == nullptr)
            continue;
        const short asked = PollEventsFor(kWanted[k]);
        const uint32_t n = sets[k]->fd_count;
        const uint32_t* handles = sets[k]->fd_array;
        for (uint32_t i = 0; i < n; ++i, ++p)
        {
            p->fd = Fd(handles[i]);
            p->events = asked;
            p->revents = 0;
            notDescriptor = notDescriptor || p->fd < 0;
        }
    }
    // A handle that cannot be a descriptor fails the wait at once.
    const int rc = PollRetrying(fds, total, notDescriptor ? 0 : timeoutMs);
    if (rc < 0)
        return FailErrno();
    if (notDescriptor)
        return Fail(kENOTSOCK);

    uint32_t kept[3] = {0, 0, 0};
    if (rc > 0)
    {
        // Each set is compacted in place to its ready handles. Every listed
        // handle is its own descriptor number here, so should a closed one
        // turn up part-way, the lists are rebuilt from the pollfd array and
        // the call fails as if nothing had been touched.
        bool closed = false;
        p = fds;
        for (int k = 0; k < 3 && !closed; ++k)
        {
            if (sets[k] == nullptr)
                continue;
            const uint32_t n = sets[k]->fd_count;
            uint32_t* handles = sets[k]->fd_array;
            for (uint32_t i = 0; i < n; ++i, ++p)
            {
                if (p->revents & POLLNVAL)
                {
                    closed = true;
                    break;
                }
                if (ReadyEvents(*p, kWanted[k]) != 0)
                    handles[kept[k]++] = static_cast<uint32_t>(p->fd);
            }
        }
        if (closed)
        {
            p = fds;
            for (ZYNET_fd_set* set : sets)
            {
                if (set == nullptr)
                    continue;
                for (uint32_t i = 0; i < set->fd_count; ++i, ++p)
                    set->fd_array[i] = static_cast<uint32_t>(p->fd);
            }
            return Fail(kENOTSOCK);
        }
    }
    for (int k = 0; k < 3; ++k)
    {
        if (sets[k] != nullptr)
            sets[k]->fd_count = kept[k];
    }
    if (count != nullptr)
        *count = static_cast<int>(kept[0] + kept[1] + kept[2]);
    return 0;
}

// ---- resolver ------------------------------------------------------------

// Asks the resolver for `name` with the given portable hints. On success
// *list holds the answer (the caller frees it); on failure nothing is left
// to free and the translated code is returned and stored.
static int ResolveList(const char* name, int flags, int family, int socktype, int protocol, addrinfo** list)
{
    addrinfo hints;
    memset(&hints, 0, sizeof(hints));
    // The numeric-only flag alone is the common case of address conversion;
    // spare it the flag-by-flag mapping.
    hints.ai_flags = flags == AI_FLAG_NUMERICHOST ? AI_NUMERICHOST : AddrInfoFlagsToOs(flags);
    hints.ai_family = FamilyToOs(family);
    hints.ai_socktype = socktype;
    hints.ai_protocol = protocol;
    *list = nullptr;
    int rc = ::getaddrinfo(name, nullptr, &hints, list);
    if (rc != 0)
    {
        if (*list != nullptr)
            ::freeaddrinfo(*list);
        *list = nullptr;
        return Fail(TranslateResolverError(rc));
    }
    return 0;
}

int GetAddrInfo(const char* name, int flags, int family, int socktype, int protocol,
                std::vector<ZYNET_SockAddr>* out, int* otherFamilies)
{
    if (otherFamilies != nullptr)
        *otherFamilies = 0;
    if (IsReservedInvalidName(name))
        return Fail(kHOST_NOT_FOUND);

    addrinfo* list = nullptr;
    int rc = ResolveList(name, flags, family, socktype, protocol, &list);
    if (rc != 0)
        return rc;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next)
    {
        if ((entry->ai_family != AF_INET && entry->ai_family != AF_INET6) || entry->ai_addr == nullptr)
        {
            if (otherFamilies != nullptr)
                ++*otherFamilies;
            continue;
        }
        if (out == nullptr)
            continue;
        ZYNET_SockAddr record;
        memset(&record, 0, sizeof(record));
        size_t copied = std::min(static_cast<size_t>(entry->ai_addrlen), sizeof(record));
        memcpy(&record, entry->ai_addr, copied);
        record.family = static_cast<uint16_t>(FamilyFromOs(entry->ai_family));
        out->push_back(record);
    }
    ::freeaddrinfo(list);
    t_lastError = 0;
    return 0;
}

int GetFirstAddrInfo(const char* name, int flags, int family, int socktype, int protocol, ZYNET_SockAddr* out,
                     bool* found)
{
    *found = false;
    // A numeric-only look-up never asks a name server, and the resolver
    // answers 11001 for any other text, reserved names included.
    if ((flags & AI_FLAG_NUMERICHOST) == 0 && IsReservedInvalidName(name))
        return Fail(kHOST_NOT_FOUND);

    addrinfo* list = nullptr;
    int rc = ResolveList(name, flags, family, socktype, protocol, &list);
    if (rc != 0)
        return rc;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next)
    {
        const bool v4 = entry->ai_family == AF_INET;
        if ((!v4 && entry->ai_family != AF_INET6) || entry->ai_addr == nullptr)
            continue;
        // The family's bytes only; a short answer is padded with zeros.
        const size_t wanted = v4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        const size_t copied = std::min(static_cast<size_t>(entry->ai_addrlen), wanted);
        memcpy(out, entry->ai_addr, copied);
        if (copied < wanted)
            memset(reinterpret_cast<char*>(out) + copied, 0, wanted - copied);
        out->family = static_cast<uint16_t>(v4 ? ZYNET_AF_INET : ZYNET_AF_INET6);
        *found = true;
        break;
    }
    ::freeaddrinfo(list);
    t_lastError = 0;
    return 0;
}

int GetNameInfo(const ZYNET_SockAddr* addr, int length, char* host, int hostLength, int flags)
{
    if (host == nullptr || hostLength < 0)
        return Fail(kEFAULT);
    sockaddr_storage os;
    socklen_t osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(kEFAULT);
    // glibc accepts any length at least the family's own size (a longer one,
    // such as a whole 112-byte record for IPv6, is fine) and refuses a
    // shorter one with EAI_FAMILY.
    int rc = ::getnameinfo(reinterpret_cast<const sockaddr*>(&os), osLength, host, static_cast<socklen_t>(hostLength),
                           nullptr, 0, NameInfoFlagsToOs(flags));
    int code = TranslateResolverError(rc);
    t_lastError = code;
    return code;
}

int GetHostName(char* buffer, int length)
{
    if (buffer == nullptr || length <= 0)
        return Fail(kEFAULT);
    if (::gethostname(buffer, static_cast<size_t>(length)) != 0)
    {
        // Winsock reports a buffer too small for the name as a fault.
        if (errno == ENAMETOOLONG)
            return Fail(kEFAULT);
        return FailErrno();
    }
    // glibc truncates without a terminator when the name fills the buffer
    // exactly; Winsock refuses that case.
    if (memchr(buffer, '\0', static_cast<size_t>(length)) == nullptr)
    {
        buffer[0] = '\0';
        return Fail(kEFAULT);
    }
    return 0;
}

int GetServByName(const char* service, const char* protocol, struct servent** out)
{
    if (out == nullptr || service == nullptr)
        return Fail(kEFAULT);
    *out = ::getservbyname(service, protocol);
    if (*out == nullptr)
        return Fail(kNO_DATA);
    return 0;
}

int GetServByPort(int port, const char* protocol, struct servent** out)
{
    if (out == nullptr)
        return Fail(kEFAULT);
    *out = ::getservbyport(port, protocol);
    if (*out == nullptr)
        return Fail(kNO_DATA);
    return 0;
}

// ---- debugging -----------------------------------------------------------

bool IsDebuggerAttached()
{
    FILE* status = fopen("/proc/self/status", "re");
    if (status == nullptr)
        return false;
    char line[256];
    bool attached = false;
    while (fgets(line, sizeof(line), status) != nullptr)
    {
        if (strncmp(line, "TracerPid:", 10) == 0)
        {
            attached = strtol(line + 10, nullptr, 10) != 0;
            break;
        }
    }
    fclose(status);
    return attached;
}

void BreakIntoDebugger()
{
    raise(SIGTRAP);
}

// ---- Unix-domain support -------------------------------------------------

bool ReadWindowsVersion(unsigned long* /*major*/, unsigned long* /*build*/, unsigned long* /*revision*/)
{
    return false;  // no registry here; the caller probes with a socket
}
}  // namespace zyos
