// The POSIX half of the OS boundary: the resolver (getaddrinfo,
// getnameinfo, the host name and the service database), linked directly.
// Portable flag values are mapped to glibc's here.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "ZyNetwork/Posix/PosixSupport.h"

namespace zy::os
{
using namespace posix;

namespace
{
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

// Writes an OS record holding only the address `addr` (its `field`) and the
// portable `family` into `out`.
template <typename OsRecord, typename OsAddress>
bool StoreNumeric(OsAddress OsRecord::*field, const OsAddress& addr, int family, ZYNET_SockAddr* out)
{
    OsRecord os;
    memset(&os, 0, sizeof(os));
    os.*field = addr;
    memcpy(out, &os, sizeof(os));
    out->family = family;
    return true;
}

// Numeric texts in their plain forms (dotted decimal IPv4, IPv6 without a
// zone) convert without the resolver: inet_pton reads them exactly as
// getaddrinfo does, at a fraction of its cost. Every other form (short or
// octal IPv4, zones, anything inet_pton refuses) goes to getaddrinfo, which
// decides as before. Writes the family's bytes only, like CopyFirstRecord.
bool PlainNumericToRecord(const char* name, ZYNET_SockAddr* out)
{
    in_addr v4;
    if (inet_pton(AF_INET, name, &v4) == 1)
        return StoreNumeric(&sockaddr_in::sin_addr, v4, ZYNET_AF_INET, out);
    in6_addr v6;
    if (strchr(name, '%') == nullptr && inet_pton(AF_INET6, name, &v6) == 1)
        return StoreNumeric(&sockaddr_in6::sin6_addr, v6, ZYNET_AF_INET6, out);
    return false;
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

}  // namespace

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
    hints.ai_family = OsFamily(family);
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
        return Fail(zy::err::kHostNotFound);
    addrinfo* list = nullptr;
    int rc = ResolveList(name, flags, family, socktype, protocol, &list);
    if (rc != 0)
        return rc;
    common::AppendRecords(list, AF_INET, AF_INET6, out, otherFamilies);
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
        return Fail(zy::err::kHostNotFound);
    if (flags == AI_FLAG_NUMERICHOST && family == ZYNET_AF_UNSPEC && name != nullptr &&
        PlainNumericToRecord(name, out))
    {
        *found = true;
        t_lastError = 0;
        return 0;
    }
    addrinfo* list = nullptr;
    int rc = ResolveList(name, flags, family, socktype, protocol, &list);
    if (rc != 0)
        return rc;
    *found = common::CopyFirstRecord(list, AF_INET, AF_INET6, out);
    ::freeaddrinfo(list);
    t_lastError = 0;
    return 0;
}

int GetNameInfo(const ZYNET_SockAddr* addr, int length, char* host, int hostLength, int flags)
{
    if (host == nullptr || hostLength < 0)
        return Fail(zy::err::kFault);
    sockaddr_storage os;
    socklen_t osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(zy::err::kFault);
    // glibc accepts any length at least the family's own size (a longer one,
    // such as a whole 112-byte record for IPv6, is fine) and refuses a
    // shorter one with EAI_FAMILY.
    int rc = ::getnameinfo(reinterpret_cast<const sockaddr*>(&os), osLength, host, static_cast<socklen_t>(hostLength),
                           nullptr, 0, NameInfoFlagsToOs(flags));
    int code = rc == 0 ? 0 : TranslateResolverError(rc);
    t_lastError = code;
    return code;
}

int GetHostName(char* buffer, int length)
{
    if (buffer == nullptr || length <= 0)
        return Fail(zy::err::kFault);
    if (::gethostname(buffer, static_cast<size_t>(length)) != 0)
    {
        // Winsock reports a buffer too small for the name as a fault.
        if (errno == ENAMETOOLONG)
            return Fail(zy::err::kFault);
        return FailErrno();
    }
    // glibc truncates without a terminator when the name fills the buffer
    // exactly; Winsock refuses that case.
    if (memchr(buffer, '\0', static_cast<size_t>(length)) == nullptr)
    {
        buffer[0] = '\0';
        return Fail(zy::err::kFault);
    }
    return 0;
}

int GetServByName(const char* service, const char* protocol, struct servent** out)
{
    if (out == nullptr || service == nullptr)
        return Fail(zy::err::kFault);
    *out = ::getservbyname(service, protocol);
    if (*out == nullptr)
        return Fail(zy::err::kNoData);
    return 0;
}

int GetServByPort(int port, const char* protocol, struct servent** out)
{
    if (out == nullptr)
        return Fail(zy::err::kFault);
    *out = ::getservbyport(port, protocol);
    if (*out == nullptr)
        return Fail(zy::err::kNoData);
    return 0;
}
}  // namespace zy::os
