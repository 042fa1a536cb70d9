// What both halves of the OS boundary do the same way, written once: the
// argument checks before a call, the copies between portable records and
// the platform's socket address storage, and the walks that turn a resolver
// answer into portable records. Templates over the platform's own types
// (sockaddr_storage, its length type, addrinfo); no OS call is made here.
// Everything is inline, so the boundary's calls cost what they did when
// each half wrote these out.
// Internal: included by ZyNetwork/Posix/ and ZyNetwork/Windows/ only.
#pragma once

#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocketTypes.h"

namespace zy::os
{
namespace common
{
// ---- argument checks -------------------------------------------------------
// Each answers whether the arguments can be used; on false the caller fails
// with 10014 (a fault) without calling the OS.

// A send or receive: a byte count to write and a length that is not negative.
// Clears the count.
inline bool TransferArgs(int length, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return false;
    *transferred = 0;
    return true;
}

// An optional address the OS writes (accept, recvfrom): when asked for, its
// capacity must be given and not negative.
inline bool OptionalAddressArgs(const ZYNET_SockAddr* addr, const int* length)
{
    return addr == nullptr || (length != nullptr && *length >= 0);
}

// A handle to return: cleared to the invalid handle first.
inline bool HandleOut(ZYNET_SOCKET* out)
{
    if (out == nullptr)
        return false;
    *out = ZYNET_INVALID_SOCKET;
    return true;
}

// ---- records and the platform's address storage ----------------------------

// The capacity offered to the OS for a record it writes.
template <typename Storage, typename Length>
inline Length Capacity(int capacity)
{
    return static_cast<Length>(std::min(static_cast<size_t>(capacity), sizeof(Storage)));
}

// A portable record of `length` bytes in the platform's zeroed storage, so
// that a length longer than the record never lets the OS read past it. The
// family field takes the platform's number (`toOs`). The OS is offered at
// most the size of the storage.
template <typename Storage, typename Length, typename FamilyToOs>
inline bool RecordToOs(const ZYNET_SockAddr* addr, int length, Storage* os, Length* osLength, FamilyToOs toOs)
{
    memset(os, 0, sizeof(*os));
    if (addr == nullptr || length < 0)
        return false;
    const size_t copied = std::min(static_cast<size_t>(length), sizeof(ZYNET_SockAddr));
    memcpy(os, addr, copied);
    if (copied >= sizeof(addr->family))
        os->ss_family = static_cast<decltype(os->ss_family)>(toOs(addr->family));
    *osLength = Capacity<Storage, Length>(length);
    return true;
}

// Copies what the OS wrote back into the caller's record: never more than
// the OS wrote, the caller offered, or the record holds. The family field
// takes the portable number (`fromOs`).
template <typename Storage, typename Length, typename FamilyFromOs>
inline void RecordFromOs(const Storage& os, Length osLength, ZYNET_SockAddr* out, int capacity,
                         FamilyFromOs fromOs)
{
    if (out == nullptr || capacity <= 0 || !(osLength > 0))
        return;
    const size_t copied =
        std::min({static_cast<size_t>(osLength), static_cast<size_t>(capacity), sizeof(ZYNET_SockAddr)});
    memcpy(out, &os, copied);
    if (copied >= sizeof(out->family))
        out->family = static_cast<uint16_t>(fromOs(os.ss_family));
}

// An address the OS wrote after accept, recvfrom, getsockname or
// getpeername: the record copied back and `*length` set to what was written,
// at most the capacity that was offered.
template <typename Storage, typename Length, typename FamilyFromOs>
inline void StoreWritten(const Storage& os, Length osLength, ZYNET_SockAddr* out, int* length, FamilyFromOs fromOs)
{
    RecordFromOs(os, osLength, out, *length, fromOs);
    *length = static_cast<int>(std::min(osLength, Capacity<Storage, Length>(*length)));
}

// ---- resolver answers --------------------------------------------------------
// `Entry` is the platform's addrinfo; `osInet` and `osInet6` its numbers for
// IPv4 and IPv6. Only entries of those two families with an address count.

// Appends every IPv4 and IPv6 entry in list order, each in a zeroed record
// in portable form (the port as the resolver gave it), and counts the
// others in `otherFamilies` (may be null). `out` may be null.
template <typename Entry>
inline void AppendRecords(const Entry* list, int osInet, int osInet6, std::vector<ZYNET_SockAddr>* out,
                          int* otherFamilies)
{
    for (const Entry* entry = list; entry != nullptr; entry = entry->ai_next)
    {
        const bool v4 = entry->ai_family == osInet;
        if ((!v4 && entry->ai_family != osInet6) || entry->ai_addr == nullptr)
        {
            if (otherFamilies != nullptr)
                ++*otherFamilies;
            continue;
        }
        if (out == nullptr)
            continue;
        ZYNET_SockAddr record;
        memset(&record, 0, sizeof(record));
        memcpy(&record, entry->ai_addr, std::min(static_cast<size_t>(entry->ai_addrlen), sizeof(record)));
        record.family = static_cast<uint16_t>(v4 ? ZYNET_AF_INET : ZYNET_AF_INET6);
        out->push_back(record);
    }
}

// Writes the first IPv4 or IPv6 entry straight into `out`: the family's own
// bytes (16 for IPv4, 28 for IPv6; a short answer padded with zeros) in
// portable form, the rest of `out` left as it was. False when there is none.
template <typename Entry>
inline bool CopyFirstRecord(const Entry* list, int osInet, int osInet6, ZYNET_SockAddr* out)
{
    for (const Entry* entry = list; entry != nullptr; entry = entry->ai_next)
    {
        const bool v4 = entry->ai_family == osInet;
        if ((!v4 && entry->ai_family != osInet6) || entry->ai_addr == nullptr)
            continue;
        const size_t wanted = v4 ? 16 : 28;
        const size_t copied = std::min(static_cast<size_t>(entry->ai_addrlen), wanted);
        memcpy(out, entry->ai_addr, copied);
        if (copied < wanted)
            memset(reinterpret_cast<char*>(out) + copied, 0, wanted - copied);
        out->family = static_cast<uint16_t>(v4 ? ZYNET_AF_INET : ZYNET_AF_INET6);
        return true;
    }
    return false;
}
}  // namespace common
}  // namespace zy::os
