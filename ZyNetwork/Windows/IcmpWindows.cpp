// Windows has no unprivileged ICMP echo sockets: echo requests need a raw
// ICMP socket (administrator rights). The datagram-socket calls of the ping
// client therefore report "socket type not supported" here, and the client
// passes the raw socket's refusal on to its caller.
#include "ZyNetwork/Internal/OsIcmp.h"

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyUtils/Internal/ErrorCodes.h"

namespace zy::os
{
int OpenIcmpDatagramSocket(int /*family*/, ZYNET_SOCKET* out, uint16_t* wireIdentifier)
{
    if (out != nullptr)
        *out = ZYNET_INVALID_SOCKET;
    if (wireIdentifier != nullptr)
        *wireIdentifier = 0;
    SetLastError(zy::err::kSocketTypeNotSupported);
    return zy::err::kSocketTypeNotSupported;
}

int RecvIcmpDatagram(ZYNET_SOCKET /*handle*/, void* /*buffer*/, int /*length*/, int* received, int* ttl)
{
    if (received != nullptr)
        *received = 0;
    if (ttl != nullptr)
        *ttl = -1;
    SetLastError(zy::err::kSocketTypeNotSupported);
    return zy::err::kSocketTypeNotSupported;
}
}  // namespace zy::os
