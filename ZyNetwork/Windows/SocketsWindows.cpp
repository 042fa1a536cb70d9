// The Windows half of the OS boundary: sockets (Winsock 2). One OS call
// each; socket handles are narrowed to 32 bits here and widened back on the
// way in. Sockets are not inherited by child processes.
#include "ZyNetwork/Windows/WindowsSupport.h"

#include <mstcpip.h>
#if defined(__has_include)
#if __has_include(<afunix.h>)
#include <afunix.h>
#define ZYNET_HAVE_AFUNIX_H 1
#endif
#endif

#include <string.h>

#include <algorithm>

#ifndef ZYNET_HAVE_AFUNIX_H
struct sockaddr_un
{
    ADDRESS_FAMILY sun_family;
    char sun_path[108];
};
#endif

#ifndef SIO_LOOPBACK_FAST_PATH
#define SIO_LOOPBACK_FAST_PATH 0x98000010
#endif

static_assert(sizeof(struct sockaddr_in) == 16, "sockaddr_in layout");
static_assert(sizeof(struct sockaddr_in6) == 28, "sockaddr_in6 layout");
static_assert(sizeof(struct sockaddr_un) == 110, "sockaddr_un layout");
static_assert(AF_INET6 == ZYNET_AF_INET6, "Winsock's IPv6 family is the portable one");
static_assert(sizeof(struct sockaddr_storage) >= sizeof(ZYNET_SockAddr), "storage holds a whole record");

namespace zy::os
{
using namespace win;

// ---- start-up --------------------------------------------------------------

int Startup()
{
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
}

int Cleanup()
{
    if (WSACleanup() != 0)
        return FailLast();
    return 0;
}

// ---- sockets ---------------------------------------------------------------

int Socket(int family, int type, int protocol, ZYNET_SOCKET* out)
{
    if (!common::HandleOut(out))
        return Fail(WSAEFAULT);
    // Not inherited by child processes: the counterpart of close-on-exec.
    SOCKET socket = WSASocketW(family, type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (socket == INVALID_SOCKET && WSAGetLastError() == WSAEINVAL)
    {
        // Systems that predate the no-inherit flag refuse it.
        socket = ::socket(family, type, protocol);
        if (socket != INVALID_SOCKET)
            SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
    }
    if (socket == INVALID_SOCKET)
        return FailLast();
    return Narrow(socket, out);
}

int Close(ZYNET_SOCKET handle)
{
    if (closesocket(Wide(handle)) != 0)
        return FailLast();
    return 0;
}

int Bind(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length)
{
    sockaddr_storage os;
    int osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(WSAEFAULT);
    if (::bind(Wide(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
        return FailLast();
    return 0;
}

int Connect(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length)
{
    sockaddr_storage os;
    int osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(WSAEFAULT);
    if (::connect(Wide(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
        return FailLast();
    return 0;
}

int Listen(ZYNET_SOCKET handle, int backlog)
{
    if (::listen(Wide(handle), backlog) != 0)
        return FailLast();
    return 0;
}

int Accept(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, int* length, ZYNET_SOCKET* out)
{
    if (!common::HandleOut(out))
        return Fail(WSAEFAULT);
    if (!common::OptionalAddressArgs(peer, length))
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    int osLength = peer != nullptr ? OsCapacity(*length) : 0;
    SOCKET socket = ::accept(Wide(handle), peer != nullptr ? reinterpret_cast<sockaddr*>(&os) : nullptr,
                             peer != nullptr ? &osLength : nullptr);
    if (socket == INVALID_SOCKET)
        return FailLast();
    if (peer != nullptr)
        StoreWritten(os, osLength, peer, length);
    return Narrow(socket, out);
}

int Shutdown(ZYNET_SOCKET handle, int how)
{
    if (::shutdown(Wide(handle), how) != 0)
        return FailLast();
    return 0;
}

int Send(ZYNET_SOCKET handle, const void* buffer, int length, int flags, int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(WSAEFAULT);
    int sent = ::send(Wide(handle), static_cast<const char*>(buffer), length, flags);
    if (sent == SOCKET_ERROR)
        return FailLast();
    *transferred = sent;
    return 0;
}

int Recv(ZYNET_SOCKET handle, void* buffer, int length, int flags, int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(WSAEFAULT);
    int received = ::recv(Wide(handle), static_cast<char*>(buffer), length, flags);
    if (received == SOCKET_ERROR)
        return FailLast();
    *transferred = received;
    return 0;
}

// Winsock has no per-call "don't wait" flag, and switching the socket's mode
// around every call would race with other threads using it, so a no-wait
// transfer always reports that it would block: the caller waits first and
// then makes the ordinary call.
int SendNoWait(ZYNET_SOCKET, const void*, int length, int, int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(WSAEFAULT);
    return WSAEWOULDBLOCK;
}

int RecvNoWait(ZYNET_SOCKET, void*, int length, int, int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(WSAEFAULT);
    return WSAEWOULDBLOCK;
}

int SendTo(ZYNET_SOCKET handle, const void* buffer, int length, int flags, const ZYNET_SockAddr* to, int toLength,
           int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    int osLength = 0;
    const sockaddr* target = nullptr;
    if (to != nullptr)
    {
        if (!ToOs(to, toLength, &os, &osLength))
            return Fail(WSAEFAULT);
        target = reinterpret_cast<const sockaddr*>(&os);
    }
    int sent = ::sendto(Wide(handle), static_cast<const char*>(buffer), length, flags, target, osLength);
    if (sent == SOCKET_ERROR)
        return FailLast();
    *transferred = sent;
    return 0;
}

int RecvFrom(ZYNET_SOCKET handle, void* buffer, int length, int flags, ZYNET_SockAddr* from, int* fromLength,
             int* transferred)
{
    if (!common::TransferArgs(length, transferred))
        return Fail(WSAEFAULT);
    if (!common::OptionalAddressArgs(from, fromLength))
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    int osLength = from != nullptr ? OsCapacity(*fromLength) : 0;
    int received = ::recvfrom(Wide(handle), static_cast<char*>(buffer), length, flags,
                              from != nullptr ? reinterpret_cast<sockaddr*>(&os) : nullptr,
                              from != nullptr ? &osLength : nullptr);
    if (received == SOCKET_ERROR)
        return FailLast();
    if (from != nullptr)
        StoreWritten(os, osLength, from, fromLength);
    *transferred = received;
    return 0;
}

int GetSockOpt(ZYNET_SOCKET handle, int level, int option, char* value, int* length)
{
    if (length == nullptr || *length < 0)
        return Fail(WSAEFAULT);
    if (::getsockopt(Wide(handle), level, option, value, length) != 0)
        return FailLast();
    return 0;
}

int SetSockOpt(ZYNET_SOCKET handle, int level, int option, const char* value, int length)
{
    if (length < 0)
        return Fail(WSAEFAULT);
    if (::setsockopt(Wide(handle), level, option, value, length) != 0)
        return FailLast();
    return 0;
}

int Ioctl(ZYNET_SOCKET handle, long command, unsigned long* argument)
{
    if (argument == nullptr)
        return Fail(WSAEFAULT);
    u_long value = static_cast<u_long>(*argument);
    if (ioctlsocket(Wide(handle), command, &value) != 0)
        return FailLast();
    *argument = value;
    return 0;
}

int SetNonBlocking(ZYNET_SOCKET handle, bool nonBlocking)
{
    u_long value = nonBlocking ? 1 : 0;
    if (ioctlsocket(Wide(handle), FIONBIO, &value) != 0)
        return FailLast();
    return 0;
}

int ReadQueueLength(ZYNET_SOCKET handle, unsigned int* length)
{
    if (length == nullptr)
        return Fail(WSAEFAULT);
    u_long value = 0;
    if (ioctlsocket(Wide(handle), FIONREAD, &value) != 0)
        return FailLast();
    *length = static_cast<unsigned int>(value);
    return 0;
}

static int GetName(bool peer, ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    if (out == nullptr || length == nullptr || *length < 0)
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    int osLength = OsCapacity(*length);
    int rc = peer ? ::getpeername(Wide(handle), reinterpret_cast<sockaddr*>(&os), &osLength)
                  : ::getsockname(Wide(handle), reinterpret_cast<sockaddr*>(&os), &osLength);
    if (rc != 0)
        return FailLast();
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
    WSAPROTOCOL_INFOA info;
    memset(&info, 0, sizeof(info));
    int length = sizeof(info);
    if (::getsockopt(Wide(handle), SOL_SOCKET, SO_PROTOCOL_INFOA, reinterpret_cast<char*>(&info), &length) != 0)
    {
        FailLast();
        return -1;
    }
    return info.iAddressFamily;
}

int SetKeepAlive(ZYNET_SOCKET handle, int idleSeconds, int intervalSeconds)
{
    struct tcp_keepalive values;
    values.onoff = 1;
    // Milliseconds in 32 bits: seconds beyond what fits are held at the
    // largest value rather than wrapping round to a short period.
    const int kMaxSeconds = static_cast<int>(0xFFFFFFFFu / 1000u);
    values.keepalivetime = static_cast<ULONG>(std::clamp(idleSeconds, 0, kMaxSeconds)) * 1000u;
    values.keepaliveinterval = static_cast<ULONG>(std::clamp(intervalSeconds, 0, kMaxSeconds)) * 1000u;
    DWORD returned = 0;
    if (WSAIoctl(Wide(handle), SIO_KEEPALIVE_VALS, &values, sizeof(values), nullptr, 0, &returned, nullptr,
                 nullptr) != 0)
        return FailLast();
    return 0;
}

int RequestLoopbackFastPath(ZYNET_SOCKET handle)
{
    int enable = 1;
    DWORD returned = 0;
    if (WSAIoctl(Wide(handle), SIO_LOOPBACK_FAST_PATH, &enable, sizeof(enable), nullptr, 0, &returned, nullptr,
                 nullptr) != 0)
        return FailLast();
    return 0;
}

int SetIpTtl(ZYNET_SOCKET handle, int ttl)
{
    if (::setsockopt(Wide(handle), IPPROTO_IP, IP_TTL, reinterpret_cast<const char*>(&ttl), sizeof(ttl)) != 0)
        return FailLast();
    return 0;
}
}  // namespace zy::os
