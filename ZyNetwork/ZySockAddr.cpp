// Socket address records: building them from text and names, printing them,
// comparing and measuring them, and the process-wide family preference and
// Unix-socket support switch.
#include "ZyNetwork/ZySockAddr.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <vector>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/Internal/ZySockAddrInternal.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZySockAddr";

namespace
{
const int kPathField = 108;            // bytes of the path field, terminator included
const int kPathOffset = 2;             // the path starts after the family
const int kIPv4Length = 16;
const int kIPv6Length = 28;
const int kRecordLength = static_cast<int>(sizeof(ZYNET_SockAddr));

// The length of a record's path, never reading past the path field.
size_t PathLength(const ZYNET_SockAddr* addr)
{
    const void* end = memchr(addr->un.path, '\0', kPathField);
    return end == nullptr ? kPathField : static_cast<size_t>(static_cast<const char*>(end) - addr->un.path);
}

// Copies the path of a Unix-domain record into a caller's text buffer.
int CopyPathText(const ZYNET_SockAddr* addr, char* buffer, int length)
{
    size_t pathLength = PathLength(addr);
    if (length < 0 || static_cast<size_t>(length) < pathLength + 1)
        return ZYNET_ERR_PATH_TOO_LONG;
    memcpy(buffer, addr->un.path, pathLength);
    buffer[pathLength] = '\0';
    return 0;
}

// Numeric conversion without the name-collision check: the first IPv4 or
// IPv6 address of the text, written straight into `out` with the port
// cleared. Only the family's bytes are written; `out` is untouched on
// failure. No allocation and no intermediate copy: a numeric conversion is a
// few hundred nanoseconds, so every step around the resolver shows.
int NumericToRecord(const char* text, ZYNET_SockAddr* out)
{
    bool found = false;
    int code = zy::os::GetFirstAddrInfo(text, zy::os::AI_FLAG_NUMERICHOST, ZYNET_AF_UNSPEC, 1, 6, out, &found);
    if (code != 0)
        return code;
    if (!found)
        return zy::err::kAfNotSupported;
    out->in4.port = 0;  // the port field sits at bytes 2-3 in both families
    return 0;
}

// Compares the first `bits` bits of two byte strings of `bytes` bytes.
bool PrefixEqual(const uint8_t* a, const uint8_t* b, int bytes, int bits)
{
    int index = 0;
    while (bits >= 8 && index < bytes)
    {
        if (a[index] != b[index])
            return false;
        ++index;
        bits -= 8;
    }
    if (bits > 0 && index < bytes)
    {
        const uint8_t mask = static_cast<uint8_t>(0xFF << (8 - bits));
        if ((a[index] & mask) != (b[index] & mask))
            return false;
    }
    return true;
}

// The family preference: unset, or the first value stored.
const int kPreferenceUnset = INT_MIN;
std::atomic<int> g_familyPreference{kPreferenceUnset};

// Unix-socket support: negative until first computed, then 1 or 0.
std::atomic<int> g_unixSupport{-1};
}  // namespace

// ---- the rules shared with CZyIPAddr ----------------------------------------

namespace zy::net
{
bool IsPathText(const char* text)
{
    return strchr(text, '/') != nullptr || strchr(text, '\\') != nullptr;
}

int MakePathRecord(const char* path, ZYNET_SockAddr* out)
{
    size_t length = strlen(path);
    if (length + 1 > static_cast<size_t>(kPathField))
        return ZYNET_ERR_PATH_TOO_LONG;
    memset(out, 0, sizeof(*out));
    out->family = ZYNET_AF_UNIX;
    memcpy(out->un.path, path, length + 1);
    return 0;
}

int LookUpName(const char* name, int family, std::vector<ZYNET_SockAddr>* records)
{
    if (family == ZYNET_AF_UNSPEC)
        family = ZYNET_GetFamilyPreference();
    // The boundary hands back only IPv4 and IPv6 entries, in resolver order,
    // each in a zeroed record, and releases the resolver's list itself.
    const size_t first = records->size();
    int code = zy::os::GetAddrInfo(name, zy::os::AI_FLAG_CANONNAME, family, 1, 6, records, nullptr);
    if (code != 0)
        return code;
    for (size_t i = first; i < records->size(); ++i)
        (*records)[i].in4.port = 0;  // the port field sits at bytes 2-3 in both families
    return 0;
}

bool IsNameCollision(const ZYNET_SockAddr& record)
{
    static const uint8_t kMarker[4] = {127, 0, 53, 53};
    return record.family == ZYNET_AF_INET && memcmp(record.in4.addr, kMarker, sizeof(kMarker)) == 0;
}
}  // namespace zy::net

int ZyUnixSupportFromVersion(unsigned long major, unsigned long build, unsigned long revision)
{
    if (major < 10)
        return 0;
    if (build > 17763)
        return 1;
    return build == 17763 && revision >= 2210 ? 1 : 0;
}

extern "C" {

const char* ZYNET_family2str(int family)
{
    switch (family)
    {
    case ZYNET_AF_UNIX: return "UNIX";
    case ZYNET_AF_INET: return "IPv4";
    case ZYNET_AF_INET6: return "IPv6";
    default: return "ANY";
    }
}

int ZYNET_str2ip(const char* text, ZYNET_SockAddr* out)
{
    if (text == nullptr || out == nullptr)
        return zy::err::kFault;
    if (zy::net::IsPathText(text))
        return zy::net::MakePathRecord(text, out);
    int code = NumericToRecord(text, out);
    if (code != 0)
        return code;
    if (zy::net::IsNameCollision(*out))
        return zy::err::kHostNotFound;
    return 0;
}

int ZYNET_ip2str(const ZYNET_SockAddr* addr, char* buffer, int length)
{
    if (addr == nullptr || buffer == nullptr)
        return zy::err::kFault;
    if (addr->family == ZYNET_AF_UNIX)
        return CopyPathText(addr, buffer, length);
    ZYNET_SockAddr local = *addr;
    int code = zy::os::GetNameInfo(&local, ZYNET_GetActualSockAddrLen(&local), buffer, length, zy::os::NI_FLAG_NUMERICHOST);
    if (code == 4)
    {
        // One more attempt that treats the record as IPv4.
        code = zy::os::GetNameInfo(&local, kIPv4Length, buffer, length, zy::os::NI_FLAG_NUMERICHOST);
    }
    return code;
}

int ZYNET_name2ip(const char* name, ZYNET_HostEnt* out, int family)
{
    if (name == nullptr || out == nullptr)
        return zy::err::kFault;
    if (zy::net::IsPathText(name))
    {
        ZYNET_SockAddr record;
        int code = zy::net::MakePathRecord(name, &record);
        if (code != 0)
            return code;
        ZYNET_SockAddr* addrs = static_cast<ZYNET_SockAddr*>(calloc(1, sizeof(ZYNET_SockAddr)));
        if (addrs == nullptr)
            return ZYNET_ERR_NO_MEMORY;
        addrs[0] = record;
        out->count = 1;
        out->addrs = addrs;
        return 0;
    }

    std::vector<ZYNET_SockAddr> records;
    int code = zy::net::LookUpName(name, family, &records);
    if (code != 0)
        return code;

    // calloc(0) may legitimately return null; one spare record keeps an
    // empty answer from looking like an allocation failure.
    const size_t slots = records.empty() ? 1 : records.size();
    out->addrs = static_cast<ZYNET_SockAddr*>(calloc(slots, sizeof(ZYNET_SockAddr)));
    if (out->addrs == nullptr)
        return ZYNET_ERR_NO_MEMORY;

    int32_t copied = 0;
    for (const ZYNET_SockAddr& record : records)
    {
        out->addrs[copied++] = record;
        // A name answering the collision marker is refused at once; `count`
        // stays as it was and the caller frees `addrs` with
        // ZYNET_freehostent as usual.
        if (zy::net::IsNameCollision(record))
            return zy::err::kHostNotFound;
    }
    out->count = copied;
    return 0;
}

int ZYNET_ip2name(const ZYNET_SockAddr* addr, char* buffer, int length)
{
    if (addr == nullptr || buffer == nullptr)
        return zy::err::kFault;
    if (addr->family == ZYNET_AF_UNIX)
        return CopyPathText(addr, buffer, length);
    ZYNET_SockAddr local = *addr;
    // IPv4 passes its own length; every other family passes the whole
    // record, IPv6 included. Both resolvers accept a length longer than the
    // family's own.
    const int addrLength = local.family == ZYNET_AF_INET ? kIPv4Length : kRecordLength;
    int code = zy::os::GetNameInfo(&local, addrLength, buffer, length, zy::os::NI_FLAG_NAMEREQD);
    if (code != 0)
        return zy::os::LastError();
    return 0;
}

void ZYNET_freehostent(ZYNET_HostEnt* hostent)
{
    if (hostent == nullptr)
        return;
    hostent->count = 0;
    if (hostent->addrs != nullptr)
        free(hostent->addrs);
    hostent->addrs = nullptr;
}

int ZYNET_addrequal(const ZYNET_SockAddr* a, const ZYNET_SockAddr* b, int prefixBits, int comparePorts)
{
    if (a == b)
        return 1;
    if (a == nullptr || b == nullptr || a->family != b->family)
        return 0;
    if (a->family == ZYNET_AF_UNIX)
    {
        size_t length = PathLength(a);
        return length == PathLength(b) && memcmp(a->un.path, b->un.path, length) == 0 ? 1 : 0;
    }
    if (comparePorts != 0 && a->in4.port != b->in4.port)
        return 0;
    const uint8_t* left;
    const uint8_t* right;
    int bytes;
    if (a->family == ZYNET_AF_INET)
    {
        left = a->in4.addr;
        right = b->in4.addr;
        bytes = 4;
    }
    else
    {
        left = a->in6.addr;
        right = b->in6.addr;
        bytes = 16;
    }
    // A prefix of 0, of the whole address or more (and a negative one)
    // compares the whole address.
    if (prefixBits <= 0 || prefixBits >= bytes * 8)
        return memcmp(left, right, static_cast<size_t>(bytes)) == 0 ? 1 : 0;
    return PrefixEqual(left, right, bytes, prefixBits) ? 1 : 0;
}

unsigned int ZYNET_getport(const ZYNET_SockAddr* addr)
{
    if (addr == nullptr || (addr->family != ZYNET_AF_INET && addr->family != ZYNET_AF_INET6))
        return 0;
    const uint8_t* port = reinterpret_cast<const uint8_t*>(&addr->in4.port);
    return (static_cast<unsigned int>(port[0]) << 8) | port[1];
}

void ZYNET_setport(ZYNET_SockAddr* addr, unsigned short port)
{
    if (addr == nullptr || (addr->family != ZYNET_AF_INET && addr->family != ZYNET_AF_INET6))
        return;
    uint8_t* field = reinterpret_cast<uint8_t*>(&addr->in4.port);
    field[0] = static_cast<uint8_t>(port >> 8);
    field[1] = static_cast<uint8_t>(port & 0xFF);
}

int ZYNET_GetActualSockAddrLen(const ZYNET_SockAddr* addr)
{
    if (addr == nullptr)
        return 0;
    switch (addr->family)
    {
    case ZYNET_AF_INET: return kIPv4Length;
    case ZYNET_AF_INET6: return kIPv6Length;
    case ZYNET_AF_UNIX:
    {
        // An unterminated path counts the whole field, so the length never
        // reaches past the record's 110 bytes of family and path.
        size_t length = PathLength(addr);
        return kPathOffset + static_cast<int>(length < kPathField ? length + 1 : kPathField);
    }
    default: return kRecordLength;
    }
}

int ZYNET_GetMaxSockAddrLen(int family)
{
    switch (family)
    {
    case ZYNET_AF_UNIX: return kPathOffset + kPathField;
    case ZYNET_AF_INET: return kIPv4Length;
    case ZYNET_AF_INET6: return kIPv6Length;
    default: return kRecordLength;
    }
}

void ZYNET_SetFamilyPreference(int family)
{
    if (family == ZYNET_AF_UNIX)
        return;  // Unix-domain names never go to the resolver
    int expected = kPreferenceUnset;
    if (g_familyPreference.compare_exchange_strong(expected, family) || expected == family)
        return;
    // Changing the preference once set is a programming error: the first
    // value stays. Stop in a debugger when one is attached, else say so at
    // the always-written level.
    if (zy::os::IsDebuggerAttached())
        zy::os::BreakIntoDebugger();
    else
        ZY_LOG(-1, "ZYNET_SetFamilyPreference",
               "Address family preference already set to %d (%s); request for %d (%s) ignored", expected,
               ZYNET_family2str(expected), family, ZYNET_family2str(family));
}

int ZYNET_GetFamilyPreference(void)
{
    int value = g_familyPreference.load();
    return value == kPreferenceUnset ? 0 : value;
}

int ZYNET_AreUnixSocketsSupported(void)
{
    int cached = g_unixSupport.load();
    if (cached >= 0)
        return cached;
    int supported;
    unsigned long major = 0, build = 0, revision = 0;
    if (zy::os::ReadWindowsVersion(&major, &build, &revision))
    {
        supported = ZyUnixSupportFromVersion(major, build, revision);
    }
    else
    {
        // No version to go by: try a Unix-domain stream socket.
        ZYNET_SOCKET probe = ZYNET_INVALID_SOCKET;
        supported = zy::os::Socket(ZYNET_AF_UNIX, 1, 0, &probe) == 0 ? 1 : 0;
        if (supported)
            zy::os::Close(probe);
    }
    // A concurrent ZYNET_DisableUnixSockets wins over a computed answer.
    int expected = -1;
    if (!g_unixSupport.compare_exchange_strong(expected, supported))
        return expected;
    return supported;
}

void ZYNET_DisableUnixSockets(void)
{
    g_unixSupport.store(0);
}

int ZYNET_gethostname(char* buffer, int length)
{
    if (buffer == nullptr)
        return zy::err::kFault;
    return zy::os::GetHostName(buffer, length);
}

int ZYNET_getservbyname(const char* service, const char* protocol, struct servent** out)
{
    if (service == nullptr || out == nullptr)
        return zy::err::kFault;
    return zy::os::GetServByName(service, protocol, out);
}

int ZYNET_getservbyport(int port, const char* protocol, struct servent** out)
{
    if (out == nullptr)
        return zy::err::kFault;
    return zy::os::GetServByPort(port, protocol, out);
}

}  // extern "C"
