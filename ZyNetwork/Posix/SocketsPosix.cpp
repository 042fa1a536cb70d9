// The POSIX half of the OS boundary: sockets. One OS call each, with the
// portable records translated on the way in and out. Every socket is
// created close-on-exec; sends never raise SIGPIPE.
#include <errno.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

#include "ZyNetwork/Posix/PosixSupport.h"

static_assert(sizeof(struct sockaddr_in) == 16, "sockaddr_in layout");
static_assert(sizeof(struct sockaddr_in6) == 28, "sockaddr_in6 layout");
static_assert(sizeof(struct sockaddr_un) == 110, "sockaddr_un layout");
static_assert(sizeof(struct sockaddr_storage) >= sizeof(ZYNET_SockAddr), "storage holds a whole record");

namespace zy::os
{
using namespace posix;

namespace
{
// An ioctl whose argument is an int on Linux while callers hand an unsigned
// long (Winsock's u_long).
bool IsIntIoctl(long command)
{
    return command == FIONBIO || command == FIONREAD || command == SIOCATMARK || command == TIOCOUTQ;
}
}  // namespace

// ---- start-up --------------------------------------------------------------

int Startup()
{
    return 0;
}

int Cleanup()
{
    return 0;
}

// ---- sockets ---------------------------------------------------------------

int Socket(int family, int type, int protocol, ZYNET_SOCKET* out)
{
    if (!common::HandleOut(out))
        return Fail(zy::err::kFault);
    int fd = ::socket(OsFamily(family), type | SOCK_CLOEXEC, protocol);
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
        return Fail(zy::err::kFault);
    if (::bind(Fd(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
        return FailErrno();
    return 0;
}

int Connect(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length)
{
    sockaddr_storage os;
    socklen_t osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(zy::err::kFault);
    // Not retried on EINTR: an interrupted connect goes on in the background
    // and a second call would only report EALREADY.
    if (::connect(Fd(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
    {
        // A non-blocking connect under way is "would block" (10035) in
        // Winsock, which is what callers of both platforms test for.
        if (errno == EINPROGRESS)
            return Fail(zy::err::kWouldBlock);
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
    if (!common::HandleOut(out))
        return Fail(zy::err::kFault);
    if (!common::OptionalAddressArgs(peer, length))
        return Fail(zy::err::kFault);
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
        StoreWritten(os, osLength, peer, length);
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
    if (!common::TransferArgs(length, transferred))
        return Fail(zy::err::kFault);
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
    if (!common::TransferArgs(length, transferred))
        return Fail(zy::err::kFault);
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
    if (!common::TransferArgs(length, transferred))
        return Fail(zy::err::kFault);
    ssize_t sent;
    do
        sent = ::send(Fd(handle), buffer, static_cast<size_t>(length), flags | MSG_DONTWAIT | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    if (sent < 0)
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? static_cast<int>(zy::err::kWouldBlock) : FailErrno();
    *transferred = static_cast<int>(sent);
    return 0;
}

int RecvNoWait(ZYNET_SOCKET handle, void* buffer, int length, int flags, int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(zy::err::kFault);
    ssize_t received;
    do
        received = ::recv(Fd(handle), buffer, static_cast<size_t>(length), flags | MSG_DONTWAIT);
    while (received < 0 && errno == EINTR);
    if (received < 0)
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? static_cast<int>(zy::err::kWouldBlock) : FailErrno();
    *transferred = static_cast<int>(received);
    return 0;
}

int SendTo(ZYNET_SOCKET handle, const void* buffer, int length, int flags, const ZYNET_SockAddr* to, int toLength,
           int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(zy::err::kFault);
    sockaddr_storage os;
    socklen_t osLength = 0;
    const sockaddr* target = nullptr;
    if (to != nullptr)
    {
        if (!ToOs(to, toLength, &os, &osLength))
            return Fail(zy::err::kFault);
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
    if (!common::TransferArgs(length, transferred))
        return Fail(zy::err::kFault);
    if (!common::OptionalAddressArgs(from, fromLength))
        return Fail(zy::err::kFault);
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
        StoreWritten(os, osLength, from, fromLength);
    *transferred = static_cast<int>(received);
    return 0;
}

int GetSockOpt(ZYNET_SOCKET handle, int level, int option, char* value, int* length)
{
    if (length == nullptr || *length < 0)
        return Fail(zy::err::kFault);
    socklen_t osLength = static_cast<socklen_t>(*length);
    if (::getsockopt(Fd(handle), level, option, value, &osLength) != 0)
        return FailErrno();
    *length = static_cast<int>(osLength);
    return 0;
}

int SetSockOpt(ZYNET_SOCKET handle, int level, int option, const char* value, int length)
{
    if (length < 0)
        return Fail(zy::err::kFault);
    if (::setsockopt(Fd(handle), level, option, value, static_cast<socklen_t>(length)) != 0)
        return FailErrno();
    return 0;
}

int Ioctl(ZYNET_SOCKET handle, long command, unsigned long* argument)
{
    if (argument == nullptr)
        return Fail(zy::err::kFault);
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
        return Fail(zy::err::kFault);
    int value = 0;
    if (::ioctl(Fd(handle), FIONREAD, &value) != 0)
        return FailErrno();
    *length = static_cast<unsigned int>(value);
    return 0;
}

static int GetName(bool peer, ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    if (out == nullptr || length == nullptr || *length < 0)
        return Fail(zy::err::kFault);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    socklen_t osLength = OsCapacity(*length);
    int rc = peer ? ::getpeername(Fd(handle), reinterpret_cast<sockaddr*>(&os), &osLength)
                  : ::getsockname(Fd(handle), reinterpret_cast<sockaddr*>(&os), &osLength);
    if (rc != 0)
        return FailErrno();
    StoreWritten(os, osLength, out, length);
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
    return PortableFamily(domain);
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
}  // namespace zy::os
