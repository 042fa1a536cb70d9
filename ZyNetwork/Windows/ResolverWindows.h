// The resolver entry points on Windows: getaddrinfo, getnameinfo and
// freeaddrinfo are bound at run time, once per process, from the system
// directory's ws2_32.dll (or wship6.dll); where they are missing, built-in
// IPv4-only substitutes take their place. Internal: not installed.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

namespace zy::os
{
namespace win
{
typedef int(WSAAPI* GetAddrInfoFn)(const char* node, const char* service, const struct addrinfo* hints,
                                    struct addrinfo** result);
typedef int(WSAAPI* GetNameInfoFn)(const struct sockaddr* addr, socklen_t addrLength, char* host, DWORD hostLength,
                                    char* service, DWORD serviceLength, int flags);
typedef void(WSAAPI* FreeAddrInfoFn)(struct addrinfo* list);

struct ResolverEntryPoints
{
    GetAddrInfoFn getAddrInfo;
    GetNameInfoFn getNameInfo;
    FreeAddrInfoFn freeAddrInfo;
    bool substitutes;  // true when the built-in IPv4-only functions are in use
};

// The bound entry points; the binding is made on the first call.
const ResolverEntryPoints& Resolver();

// The built-in substitutes (IPv4 only), over inet_addr, gethostbyname,
// gethostbyaddr and getservbyname/getservbyport. Lists made by
// SubstituteGetAddrInfo are released only by SubstituteFreeAddrInfo.
int WSAAPI SubstituteGetAddrInfo(const char* node, const char* service, const struct addrinfo* hints,
                                 struct addrinfo** result);
int WSAAPI SubstituteGetNameInfo(const struct sockaddr* addr, socklen_t addrLength, char* host, DWORD hostLength,
                                 char* service, DWORD serviceLength, int flags);
void WSAAPI SubstituteFreeAddrInfo(struct addrinfo* list);
}  // namespace win
}  // namespace zy::os
