// Socket address records and the flat functions that build, compare, convert
// and measure them.
#pragma once

#include <stdint.h>

#include "ZyNetwork/ZyPlatformTypes.h"
#include "ZyUtils/ZyExport.h"

// Address families, the same numbers on every platform.
#define ZYNET_AF_UNSPEC 0
#define ZYNET_AF_UNIX 1
#define ZYNET_AF_INET 2
#define ZYNET_AF_INET6 23

// Longest Unix-domain path, without its terminator.
#define ZYNET_MAX_UNIX_PATH 107

// Codes that the flat functions raise themselves.
#define ZYNET_ERR_PATH_TOO_LONG 7
#define ZYNET_ERR_NO_MEMORY 8

// One fixed 112-byte record for an IPv4, IPv6 or Unix-domain address. The
// layout matches sockaddr_in, sockaddr_in6 and sockaddr_un; the family field
// always holds one of the ZYNET_AF_* values.
typedef struct ZYNET_SockAddr
{
    union
    {
        uint16_t family;
        struct
        {
            uint16_t family;
            uint16_t port;      // network byte order
            uint8_t addr[4];    // network byte order
            uint8_t zero[8];
        } in4;
        struct
        {
            uint16_t family;
            uint16_t port;      // network byte order
            uint32_t flowinfo;
            uint8_t addr[16];
            uint32_t scope_id;
        } in6;
        struct
        {
            uint16_t family;
            char path[108];     // NUL-terminated
        } un;
        uint32_t words[28];
    };
} ZYNET_SockAddr;

#ifdef __cplusplus
static_assert(sizeof(ZYNET_SockAddr) == 112, "ZYNET_SockAddr must be 112 bytes");
#endif

// The result of a look-up: `count` records in a calloc'd array, released by
// ZYNET_freehostent. Copies share the array; free exactly one of them.
typedef struct ZYNET_HostEnt
{
    int32_t count;
    ZYNET_SockAddr* addrs;
} ZYNET_HostEnt;

#ifdef __cplusplus
extern "C" {
#endif

// The family's name ("IPv4", "IPv6", "UNIX", ...), a constant text. The
// functions below that return int give 0 or an error code: the resolver's or
// a Winsock code, ZYNET_ERR_PATH_TOO_LONG or ZYNET_ERR_NO_MEMORY.
ZYNET_API const char* ZYNET_family2str(int family);
// Converts a numeric IPv4 or IPv6 text (port 0), or a Unix-domain path (any
// text with '/' or '\\'), without a look-up. 127.0.53.53 is refused with 11001.
ZYNET_API int ZYNET_str2ip(const char* text, ZYNET_SockAddr* out);
// The address as numeric text (the path for a Unix-domain address).
ZYNET_API int ZYNET_ip2str(const ZYNET_SockAddr* addr, char* buffer, int length);
// Resolves `name` into every IPv4 and IPv6 address (port 0) of `family` (0:
// the process-wide preference); a path gives one Unix-domain record. A name
// that resolves to 127.0.53.53 gives 11001. Release `out` with
// ZYNET_freehostent, also after that error.
ZYNET_API int ZYNET_name2ip(const char* name, ZYNET_HostEnt* out, int family);
// The host name of the address by reverse look-up; an address without a name
// fails rather than coming back as digits.
ZYNET_API int ZYNET_ip2name(const ZYNET_SockAddr* addr, char* buffer, int length);
// Frees the records and empties `hostent`.
ZYNET_API void ZYNET_freehostent(ZYNET_HostEnt* hostent);
// 1 when the addresses are equal in their first `prefixBits` bits (0 or the
// full length: the whole address), and in their ports when `comparePorts` is
// nonzero; else 0. Paths are compared whole. Different families are unequal.
ZYNET_API int ZYNET_addrequal(const ZYNET_SockAddr* a, const ZYNET_SockAddr* b, int prefixBits, int comparePorts);
// The port in host order; 0 for families without ports.
ZYNET_API unsigned int ZYNET_getport(const ZYNET_SockAddr* addr);
// Sets the port (given in host order) of an IPv4 or IPv6 address; other
// families are left alone.
ZYNET_API void ZYNET_setport(ZYNET_SockAddr* addr, unsigned short port);
// The length to hand to the system for this address (16 for IPv4, 28 for
// IPv6, 2 + the path with its terminator for Unix-domain, else 112).
ZYNET_API int ZYNET_GetActualSockAddrLen(const ZYNET_SockAddr* addr);
// The largest record length of `family`, the room to offer when the system
// writes an address.
ZYNET_API int ZYNET_GetMaxSockAddrLen(int family);
// Sets the process-wide preferred family once, at start-up; a later different
// value is ignored (and stops in an attached debugger). UNIX is ignored.
ZYNET_API void ZYNET_SetFamilyPreference(int family);
// The preferred family, 0 until set.
ZYNET_API int ZYNET_GetFamilyPreference(void);
// 1 when the system supports Unix-domain sockets, else 0; found out once.
ZYNET_API int ZYNET_AreUnixSocketsSupported(void);
// Makes ZYNET_AreUnixSocketsSupported answer 0 from now on.
ZYNET_API void ZYNET_DisableUnixSockets(void);
// This machine's host name.
ZYNET_API int ZYNET_gethostname(char* buffer, int length);
// The system's service entry for a name or a port (network order) and
// protocol, in *out; the system owns it (do not free it).
// @{
ZYNET_API int ZYNET_getservbyname(const char* service, const char* protocol, struct servent** out);
ZYNET_API int ZYNET_getservbyport(int port, const char* protocol, struct servent** out);
// @}

#ifdef __cplusplus
}
#endif
