// The Windows half of the OS boundary: the resolver. The run-time binding
// of getaddrinfo, getnameinfo and freeaddrinfo with their IPv4-only
// substitutes, and the look-ups of the boundary made through them (the
// portable flag and family values are Winsock's).
#include "ZyNetwork/Windows/ResolverWindows.h"

#include "ZyNetwork/Windows/WindowsSupport.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "ZyUtils/ZyLibrary.h"

namespace zy::os
{
namespace win
{
namespace
{
ResolverEntryPoints SubstituteEntryPoints()
{
    return ResolverEntryPoints{&SubstituteGetAddrInfo, &SubstituteGetNameInfo, &SubstituteFreeAddrInfo, true};
}

// Loads a module of the system directory by its full path, never by a bare
// name that the search order could resolve to some other copy. The module
// stays loaded for the life of the process unless `library` unloads it.
bool LoadSystemModule(CZyLibrary& library, const char* leaf)
{
    char path[MAX_PATH];
    UINT length = GetSystemDirectoryA(path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH || length + strlen(leaf) >= MAX_PATH)
        return false;
    memcpy(path + length, leaf, strlen(leaf) + 1);
    return !library.Load(path).IsError();
}

ResolverEntryPoints Bind()
{
    static const char* const kModules[] = {"\\ws2_32.dll", "\\wship6.dll"};
    for (const char* leaf : kModules)
    {
        CZyLibrary library(false);
        if (!LoadSystemModule(library, leaf))
            continue;
        GetAddrInfoFn getAddrInfo = nullptr;
        if (library.GetFunction("getaddrinfo", getAddrInfo).IsError())
        {
            library.Unload();
            continue;
        }
        // The module that has getaddrinfo supplies all three, or none is
        // used: its lists must be released by its own freeaddrinfo.
        GetNameInfoFn getNameInfo = nullptr;
        FreeAddrInfoFn freeAddrInfo = nullptr;
        if (library.GetFunction("getnameinfo", getNameInfo).IsError() ||
            library.GetFunction("freeaddrinfo", freeAddrInfo).IsError())
        {
            library.Unload();
            return SubstituteEntryPoints();
        }
        // The module stays loaded for the life of the process.
        return ResolverEntryPoints{getAddrInfo, getNameInfo, freeAddrInfo, false};
    }
    return SubstituteEntryPoints();
}

// Strict dotted IPv4 text (inet_addr forms: a, a.b, a.b.c, a.b.c.d, with
// decimal, octal or hex parts).
bool ParseIPv4(const char* text, in_addr* out)
{
    if (text == nullptr || text[0] == '\0')
        return false;
    for (const char* p = text; *p != '\0'; ++p)
    {
        const char c = *p;
        const bool ok = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || c == 'x' ||
                        c == 'X' || c == '.';
        if (!ok)
            return false;
    }
    unsigned long value = inet_addr(text);
    if (value == INADDR_NONE && strcmp(text, "255.255.255.255") != 0)
        return false;
    out->s_addr = value;
    return true;
}

// One list entry: the record and its address in one allocation.
struct SubstituteEntry
{
    struct addrinfo info;
    struct sockaddr_in addr;
};

int CopyText(const char* text, char* buffer, DWORD length)
{
    size_t needed = strlen(text) + 1;
    if (needed > length)
        return WSAEFAULT;
    memcpy(buffer, text, needed);
    return 0;
}
}  // namespace

const ResolverEntryPoints& Resolver()
{
    static const ResolverEntryPoints s_entryPoints = Bind();
    return s_entryPoints;
}

int WSAAPI SubstituteGetAddrInfo(const char* node, const char* service, const struct addrinfo* hints,
                                 struct addrinfo** result)
{
    if (result == nullptr)
        return WSAEFAULT;
    *result = nullptr;
    const int flags = hints != nullptr ? hints->ai_flags : 0;
    const int family = hints != nullptr ? hints->ai_family : AF_UNSPEC;
    const int socktype = hints != nullptr ? hints->ai_socktype : 0;
    const int protocol = hints != nullptr ? hints->ai_protocol : 0;
    if (node == nullptr && service == nullptr)
        return WSAHOST_NOT_FOUND;
    if (family != AF_UNSPEC && family != AF_INET)
        return WSAEAFNOSUPPORT;

    unsigned short port = 0;  // network order
    if (service != nullptr && service[0] != '\0')
    {
        char* end = nullptr;
        unsigned long number = strtoul(service, &end, 10);
        if (*end == '\0' && number <= 65535)
        {
            port = htons(static_cast<unsigned short>(number));
        }
        else
        {
            if (flags & AI_NUMERICSERV)
                return WSAHOST_NOT_FOUND;
            const struct servent* entry = getservbyname(service, socktype == SOCK_DGRAM ? "udp" : "tcp");
            if (entry == nullptr)
                return WSATYPE_NOT_FOUND;
            port = static_cast<unsigned short>(entry->s_port);
        }
    }

    std::vector<in_addr> addresses;
    const char* canonical = node;
    in_addr numeric;
    if (node == nullptr)
    {
        numeric.s_addr = htonl((flags & AI_PASSIVE) ? INADDR_ANY : INADDR_LOOPBACK);
        addresses.push_back(numeric);
    }
    else if (ParseIPv4(node, &numeric))
    {
        addresses.push_back(numeric);
    }
    else if (flags & AI_NUMERICHOST)
    {
        return WSAHOST_NOT_FOUND;
    }
    else
    {
        const struct hostent* host = gethostbyname(node);
        if (host == nullptr)
        {
            int code = WSAGetLastError();
            return code != 0 ? code : WSANO_RECOVERY;
        }
        if (host->h_addrtype != AF_INET || host->h_length != static_cast<int>(sizeof(in_addr)))
            return WSANO_DATA;
        // The host entry is the thread's own static copy: take what is needed
        // before anything else can overwrite it.
        for (char** entry = host->h_addr_list; entry != nullptr && *entry != nullptr; ++entry)
        {
            in_addr address;
            memcpy(&address, *entry, sizeof(address));
            addresses.push_back(address);
        }
        if (addresses.empty())
            return WSANO_DATA;
        if (host->h_name != nullptr)
            canonical = host->h_name;
    }

    struct addrinfo* head = nullptr;
    struct addrinfo** tail = &head;
    for (size_t i = 0; i < addresses.size(); ++i)
    {
        SubstituteEntry* entry = static_cast<SubstituteEntry*>(calloc(1, sizeof(SubstituteEntry)));
        if (entry == nullptr)
        {
            SubstituteFreeAddrInfo(head);
            return WSA_NOT_ENOUGH_MEMORY;
        }
        entry->addr.sin_family = AF_INET;
        entry->addr.sin_port = port;
        entry->addr.sin_addr = addresses[i];
        entry->info.ai_family = AF_INET;
        entry->info.ai_socktype = socktype;
        entry->info.ai_protocol = protocol;
        entry->info.ai_addrlen = sizeof(entry->addr);
        entry->info.ai_addr = reinterpret_cast<struct sockaddr*>(&entry->addr);
        *tail = &entry->info;
        tail = &entry->info.ai_next;
        if (i == 0 && (flags & AI_CANONNAME) && canonical != nullptr)
        {
            entry->info.ai_canonname = _strdup(canonical);
            if (entry->info.ai_canonname == nullptr)
            {
                SubstituteFreeAddrInfo(head);
                return WSA_NOT_ENOUGH_MEMORY;
            }
        }
    }
    *result = head;
    return 0;
}

void WSAAPI SubstituteFreeAddrInfo(struct addrinfo* list)
{
    while (list != nullptr)
    {
        struct addrinfo* next = list->ai_next;
        free(list->ai_canonname);
        // `info` is the first member, so the entry starts where the record does.
        free(reinterpret_cast<SubstituteEntry*>(list));
        list = next;
    }
}

int WSAAPI SubstituteGetNameInfo(const struct sockaddr* addr, socklen_t addrLength, char* host, DWORD hostLength,
                                 char* service, DWORD serviceLength, int flags)
{
    if (addr == nullptr)
        return WSAEFAULT;
    if (addr->sa_family != AF_INET)
        return WSAEAFNOSUPPORT;
    if (addrLength < static_cast<socklen_t>(sizeof(struct sockaddr_in)))
        return WSAEFAULT;
    const bool wantHost = host != nullptr && hostLength > 0;
    const bool wantService = service != nullptr && serviceLength > 0;
    if (!wantHost && !wantService)
        return WSAHOST_NOT_FOUND;
    struct sockaddr_in in;
    memcpy(&in, addr, sizeof(in));

    if (wantHost)
    {
        char name[NI_MAXHOST];
        name[0] = '\0';
        if (!(flags & NI_NUMERICHOST))
        {
            const struct hostent* entry = gethostbyaddr(reinterpret_cast<const char*>(&in.sin_addr),
                                                        sizeof(in.sin_addr), AF_INET);
            if (entry != nullptr && entry->h_name != nullptr)
            {
                snprintf(name, sizeof(name), "%s", entry->h_name);
                if (flags & NI_NOFQDN)
                {
                    char* dot = strchr(name, '.');
                    if (dot != nullptr)
                        *dot = '\0';
                }
            }
            else if (flags & NI_NAMEREQD)
            {
                return WSAHOST_NOT_FOUND;
            }
        }
        if (name[0] == '\0')
        {
            const unsigned char* b = reinterpret_cast<const unsigned char*>(&in.sin_addr);
            snprintf(name, sizeof(name), "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
        }
        int code = CopyText(name, host, hostLength);
        if (code != 0)
            return code;
    }

    if (wantService)
    {
        char text[NI_MAXSERV];
        text[0] = '\0';
        if (!(flags & NI_NUMERICSERV))
        {
            const struct servent* entry = getservbyport(in.sin_port, (flags & NI_DGRAM) ? "udp" : "tcp");
            if (entry != nullptr && entry->s_name != nullptr)
                snprintf(text, sizeof(text), "%s", entry->s_name);
        }
        if (text[0] == '\0')
            snprintf(text, sizeof(text), "%u", static_cast<unsigned>(ntohs(in.sin_port)));
        int code = CopyText(text, service, serviceLength);
        if (code != 0)
            return code;
    }
    return 0;
}
}  // namespace win

// ---- look-ups ----------------------------------------------------------------

using namespace win;

// Asks the bound resolver for `name` with the given hints (the portable
// flag and family values are Winsock's) and hands the answer to `read`,
// then frees it and clears the thread's error. On failure the code is
// returned and stored and `read` is not called.
template <typename Read>
static int ResolveAndRead(const char* name, int flags, int family, int socktype, int protocol, Read read)
{
    const win::ResolverEntryPoints& resolver = win::Resolver();
    addrinfo hints;
    memset(&hints, 0, sizeof(hints));
    hints.ai_flags = flags;
    hints.ai_family = family;
    hints.ai_socktype = socktype;
    hints.ai_protocol = protocol;
    addrinfo* answer = nullptr;
    int rc = NormaliseResolverCode(resolver.getAddrInfo(name, nullptr, &hints, &answer));
    if (rc != 0)
    {
        if (answer != nullptr)
            resolver.freeAddrInfo(answer);
        return Fail(rc);
    }
    read(answer);
    if (answer != nullptr)
        resolver.freeAddrInfo(answer);
    WSASetLastError(0);
    return 0;
}

int GetAddrInfo(const char* name, int flags, int family, int socktype, int protocol,
                std::vector<ZYNET_SockAddr>* out, int* otherFamilies)
{
    if (otherFamilies != nullptr)
        *otherFamilies = 0;
    if (IsReservedInvalidName(name))
        return Fail(WSAHOST_NOT_FOUND);
    return ResolveAndRead(name, flags, family, socktype, protocol, [&](const addrinfo* list) {
        common::AppendRecords(list, AF_INET, AF_INET6, out, otherFamilies);
    });
}

int GetFirstAddrInfo(const char* name, int flags, int family, int socktype, int protocol, ZYNET_SockAddr* out,
                     bool* found)
{
    *found = false;
    // A numeric-only look-up never asks a name server, and the resolver
    // answers 11001 for any other text, reserved names included.
    if ((flags & AI_FLAG_NUMERICHOST) == 0 && IsReservedInvalidName(name))
        return Fail(WSAHOST_NOT_FOUND);
    return ResolveAndRead(name, flags, family, socktype, protocol, [&](const addrinfo* list) {
        *found = common::CopyFirstRecord(list, AF_INET, AF_INET6, out);
    });
}

int GetNameInfo(const ZYNET_SockAddr* addr, int length, char* host, int hostLength, int flags)
{
    if (host == nullptr || hostLength < 0)
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    int osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(WSAEFAULT);
    int rc = win::Resolver().getNameInfo(reinterpret_cast<const sockaddr*>(&os), osLength, host,
                                         static_cast<DWORD>(hostLength), nullptr, 0, flags);
    rc = NormaliseResolverCode(rc);
    WSASetLastError(rc);
    return rc;
}

int GetHostName(char* buffer, int length)
{
    if (buffer == nullptr || length <= 0)
        return Fail(WSAEFAULT);
    if (::gethostname(buffer, length) != 0)
        return FailLast();
    return 0;
}

int GetServByName(const char* service, const char* protocol, struct servent** out)
{
    if (out == nullptr || service == nullptr)
        return Fail(WSAEFAULT);
    *out = ::getservbyname(service, protocol);
    if (*out == nullptr)
    {
        int code = WSAGetLastError();
        return Fail(code != 0 ? code : WSANO_DATA);
    }
    return 0;
}

int GetServByPort(int port, const char* protocol, struct servent** out)
{
    if (out == nullptr)
        return Fail(WSAEFAULT);
    *out = ::getservbyport(port, protocol);
    if (*out == nullptr)
    {
        int code = WSAGetLastError();
        return Fail(code != 0 ? code : WSANO_DATA);
    }
    return 0;
}
}  // namespace zy::os
