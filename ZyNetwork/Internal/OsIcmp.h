// ICMP internals of the ping client: the two OS calls that the kernel's ICMP
// datagram sockets need (ZyNetwork/Posix/IcmpPosix.cpp,
// ZyNetwork/Windows/IcmpWindows.cpp), and the portable parsing of echo
// replies (ZyNetwork/ZyPing.cpp), kept here so that tests can feed it crafted
// packets. Internal: not installed, not exported.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "ZyNetwork/ZySocketTypes.h"

namespace zy::os
{
// Opens an unprivileged ICMP echo socket (Linux: SOCK_DGRAM with
// IPPROTO_ICMP, allowed for the groups in net.ipv4.ping_group_range), binds
// it so that the kernel picks its echo identifier now, and turns on the
// reception of the reply's TTL. `wireIdentifier` gets the identifier as its
// two bytes appear in the echo header (read in host order, as a reply's
// identifier field is read). IPv4 only; on Windows the call fails with 10044.
// Returns 0 or a portable code (also stored as the thread's last error).
int OpenIcmpDatagramSocket(int family, ZYNET_SOCKET* out, uint16_t* wireIdentifier);

// One receive on such a socket: the ICMP message (no IP header) into
// `buffer`, its size into `received`, the TTL the reply arrived with into
// `ttl` (-1 when the kernel gave none). Returns 0 or a portable code.
int RecvIcmpDatagram(ZYNET_SOCKET handle, void* buffer, int length, int* received, int* ttl);
}  // namespace zy::os

namespace zy::icmp
{
enum
{
    kEchoReply = 0,
    kEchoRequest = 8,
    kHeaderSize = 8,       // type, code, checksum, identifier, sequence
    kMinIpHeaderSize = 20
};

// The RFC 1071 Internet checksum over `length` bytes: 16-bit words in host
// order summed into 32 bits, a trailing odd byte added on its own, carries
// folded twice, the one's complement returned.
uint16_t Checksum(const void* data, size_t length);

// What a received datagram is, given what we sent.
struct ReplyCheck
{
    const unsigned char* data;     // the datagram as received
    size_t received;               // bytes present in `data`
    bool hasIpHeader;              // raw sockets: an IPv4 header comes first
    const unsigned char* request;  // the echo request last sent
    size_t requestSize;            // its size (header + payload)
    uint16_t identifier;           // our identifier as it appears on the wire
};

struct ReplyVerdict
{
    int status;          // one of the PING_* values
    bool ownRequest;     // the datagram is our own request seen on its way in
    unsigned int ttl;    // raw sockets, good replies: the IP header's TTL
};

// Classifies one datagram. Reads nothing beyond `received` bytes: a header
// length or size that runs past them makes a short reply. A datagram that is
// byte for byte the request we sent (a raw socket sees outgoing loopback
// traffic) is flagged `ownRequest` and is no reply at all.
ReplyVerdict ClassifyReply(const ReplyCheck& check);
}  // namespace zy::icmp
