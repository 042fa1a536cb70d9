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

ZYNET_API const char* ZYNET_family2str(int family);
ZYNET_API int ZYNET_str2ip(const char* text, ZYNET_SockAddr* out);
ZYNET_API int ZYNET_ip2str(const ZYNET_SockAddr* addr, char* buffer, int length);
ZYNET_API int ZYNET_name2ip(const char* name, ZYNET_HostEnt* out, int family);
ZYNET_API int ZYNET_ip2name(const ZYNET_SockAddr* addr, char* buffer, int length);
ZYNET_API void ZYNET_freehostent(ZYNET_HostEnt* hostent);
ZYNET_API int ZYNET_addrequal(const ZYNET_SockAddr* a, const ZYNET_SockAddr* b, int prefixBits, int comparePorts);
ZYNET_API unsigned int ZYNET_getport(const ZYNET_SockAddr* addr);
ZYNET_API void ZYNET_setport(ZYNET_SockAddr* addr, unsigned short port);
ZYNET_API int ZYNET_GetActualSockAddrLen(const ZYNET_SockAddr* addr);
ZYNET_API int ZYNET_GetMaxSockAddrLen(int family);
ZYNET_API void ZYNET_SetFamilyPreference(int family);
ZYNET_API int ZYNET_GetFamilyPreference(void);
ZYNET_API int ZYNET_AreUnixSocketsSupported(void);
ZYNET_API void ZYNET_DisableUnixSockets(void);
ZYNET_API int ZYNET_gethostname(char* buffer, int length);
ZYNET_API int ZYNET_getservbyname(const char* service, const char* protocol, struct servent** out);
ZYNET_API int ZYNET_getservbyport(int port, const char* protocol, struct servent** out);

#ifdef __cplusplus
}
#endif
