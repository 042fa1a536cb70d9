// ICMP reply classification over arbitrary datagrams: a whole IPv4 packet
// as a raw socket delivers it, and the same bytes as an ICMP datagram
// socket delivers them (no IP header). The request is a fixed echo request.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "ZyNetwork/Internal/OsIcmp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    unsigned char request[64];
    memset(request, 0x5A, sizeof(request));
    request[0] = zy::icmp::kEchoRequest;
    request[1] = 0;
    request[2] = request[3] = 0;
    request[4] = 0x12;
    request[5] = 0x34;
    request[6] = 0;
    request[7] = 1;
    uint16_t sum = zy::icmp::Checksum(request, sizeof(request));
    memcpy(request + 2, &sum, 2);

    // A copy of exactly `size` bytes, so that any read past them is caught.
    unsigned char* copy = new unsigned char[size ? size : 1];
    if (size)
        memcpy(copy, data, size);
    for (int raw = 0; raw < 2; ++raw)
    {
        zy::icmp::ReplyCheck check = {copy, size, raw == 1, request, sizeof(request), 0x3412};
        zy::icmp::ReplyVerdict verdict = zy::icmp::ClassifyReply(check);
        (void)verdict;
    }
    delete[] copy;
    return 0;
}
