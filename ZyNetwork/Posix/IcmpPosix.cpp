// The OS calls of the kernel's unprivileged ICMP echo sockets (Linux "ping"
// sockets: SOCK_DGRAM with IPPROTO_ICMP). The kernel writes the IP header and
// the echo identifier itself, delivers only echo replies carrying that
// identifier, and hands them over without their IP header; the reply's TTL
// comes as an IP_TTL control message once IP_RECVTTL is on.
#include <string.h>
#include <unistd.h>

#include "ZyNetwork/Internal/OsIcmp.h"
#include "ZyNetwork/Posix/PosixSupport.h"

namespace zy::os
{
using namespace posix;

int OpenIcmpDatagramSocket(int family, ZYNET_SOCKET* out, uint16_t* wireIdentifier)
{
    if (out == nullptr || wireIdentifier == nullptr)
        return Fail(zy::err::kFault);
    *out = ZYNET_INVALID_SOCKET;
    *wireIdentifier = 0;
    if (family != ZYNET_AF_INET)
        return Fail(zy::err::kAfNotSupported);

    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP);
    if (fd < 0)
        return FailErrno();

    // Binding to port 0 makes the kernel choose the echo identifier now
    // (it is the socket's port), so that it can be read back before the
    // first request goes out.
    sockaddr_in local;
    memset(&local, 0, sizeof(local));
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    local.sin_port = 0;
    socklen_t length = sizeof(local);
    int on = 1;
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) != 0 ||
        ::setsockopt(fd, IPPROTO_IP, IP_RECVTTL, &on, sizeof(on)) != 0)
    {
        int code = TranslateErrno(errno);
        ::close(fd);
        return Fail(code);
    }
    // The port field holds the identifier in network order, exactly as the
    // kernel writes it into the echo header.
    memcpy(wireIdentifier, &local.sin_port, sizeof(*wireIdentifier));
    *out = static_cast<ZYNET_SOCKET>(fd);
    return 0;
}

int RecvIcmpDatagram(ZYNET_SOCKET handle, void* buffer, int length, int* received, int* ttl)
{
    if (received == nullptr || ttl == nullptr || length < 0 || (buffer == nullptr && length > 0))
        return Fail(zy::err::kFault);
    *received = 0;
    *ttl = -1;

    iovec vector;
    vector.iov_base = buffer;
    vector.iov_len = static_cast<size_t>(length);
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(int)) * 4];
    msghdr message;
    memset(&message, 0, sizeof(message));
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);

    ssize_t count;
    do
        count = ::recvmsg(Fd(handle), &message, MSG_CMSG_CLOEXEC);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        return FailErrno();

    for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr; item = CMSG_NXTHDR(&message, item))
    {
        if (item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_TTL &&
            item->cmsg_len >= CMSG_LEN(sizeof(int)))
        {
            int value = 0;
            memcpy(&value, CMSG_DATA(item), sizeof(value));
            *ttl = value;
        }
    }
    // A datagram longer than the buffer arrives cut to the buffer.
    *received = count > length ? length : static_cast<int>(count);
    return 0;
}
}  // namespace zy::os
