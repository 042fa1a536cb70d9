// The OS boundary on Windows (Winsock 2): sockets, the wait primitive, the
// resolver (bound at run time, see ResolverWindows), the registry version
// read and the debugger hooks. Winsock's error codes and family numbers are
// already the portable ones; socket handles are narrowed to 32 bits here and
// widened back on the way in.
#include "ZyNetwork/Internal/OsApi.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <mstcpip.h>
#include <windows.h>
#if defined(__has_include)
#if __has_include(<afunix.h>)
#include <afunix.h>
#define ZYNET_HAVE_AFUNIX_H 1
#endif
#endif

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "ZyNetwork/Windows/ResolverWindows.h"

#ifndef ZYNET_HAVE_AFUNIX_H
struct sockaddr_un
{
    ADDRESS_FAMILY sun_family;
    char sun_path[108];
};
#endif

#ifndef SIO_LOOPBACK_FAST_PATH
#define SIO_LOOPBACK_FAST_PATH 0x98000010
#endif

static_assert(sizeof(struct sockaddr_in) == 16, "sockaddr_in layout");
static_assert(sizeof(struct sockaddr_in6) == 28, "sockaddr_in6 layout");
static_assert(sizeof(struct sockaddr_un) == 110, "sockaddr_un layout");
static_assert(AF_INET6 == ZYNET_AF_INET6, "Winsock's IPv6 family is the portable one");
static_assert(sizeof(struct sockaddr_storage) >= sizeof(ZYNET_SockAddr), "storage holds a whole record");

namespace zyos
{
namespace
{
int Fail(int code)
{
    WSASetLastError(code);
    return code;
}

int FailLast()
{
    int code = WSAGetLastError();
    return code != 0 ? code : Fail(WSAEINVAL);
}

SOCKET Wide(ZYNET_SOCKET handle)
{
    return handle == ZYNET_INVALID_SOCKET ? INVALID_SOCKET : static_cast<SOCKET>(handle);
}

// Kernel handles carry 32 significant bits; a value that does not fit (never
// seen in practice) is refused rather than truncated into another handle.
int Narrow(SOCKET socket, ZYNET_SOCKET* out)
{
    if (socket > static_cast<SOCKET>(0xFFFFFFFEu))
    {
        closesocket(socket);
        return Fail(WSAEMFILE);
    }
    *out = static_cast<ZYNET_SOCKET>(socket);
    return 0;
}

// The caller's record in a zeroed storage, so that a length longer than the
// record never lets Winsock read past it.
bool ToOs(const ZYNET_SockAddr* addr, int length, sockaddr_storage* os, int* osLength)
{
    memset(os, 0, sizeof(*os));
    if (addr == nullptr || length < 0)
        return false;
    memcpy(os, addr, std::min(static_cast<size_t>(length), sizeof(ZYNET_SockAddr)));
    *osLength = static_cast<int>(std::min(static_cast<size_t>(length), sizeof(sockaddr_storage)));
    return true;
}

void FromOs(const sockaddr_storage& os, int osLength, ZYNET_SockAddr* out, int capacity)
{
    if (out == nullptr || capacity <= 0 || osLength <= 0)
        return;
    size_t copied = std::min({static_cast<size_t>(osLength), static_cast<size_t>(capacity), sizeof(ZYNET_SockAddr)});
    memcpy(out, &os, copied);
}

int OsCapacity(int capacity)
{
    return static_cast<int>(std::min(static_cast<size_t>(capacity), sizeof(sockaddr_storage)));
}

// Winsock's resolver codes are positive. Wine lets some of its host's
// negative getaddrinfo/getnameinfo codes through (a host buffer too small
// comes back as -12); those are mapped to the codes Windows gives.
int NormaliseResolverCode(int code)
{
    switch (code)
    {
    case -2: return WSAHOST_NOT_FOUND;  // no such name
    case -3: return WSATRY_AGAIN;       // temporary failure
    case -4: return WSANO_RECOVERY;     // permanent failure
    case -5: return WSANO_DATA;         // no address of the family asked for
    case -6: return WSAEAFNOSUPPORT;    // family not supported
    case -10: return WSA_NOT_ENOUGH_MEMORY;
    case -12: return WSAEFAULT;         // host buffer too small
    default: return code;
    }
}

bool IsSocket(SOCKET socket)
{
    int type = 0;
    int length = sizeof(type);
    return getsockopt(socket, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length) == 0;
}
}  // namespace

// ---- errors and families -------------------------------------------------

int LastError()
{
    return WSAGetLastError();
}

void SetLastError(int code)
{
    WSASetLastError(code);
}

int TranslateErrno(int osError)
{
    return osError;  // Winsock's codes are the portable ones
}

int TranslateResolverError(int osCode)
{
    return NormaliseResolverCode(osCode);  // Winsock codes already, bar Wine's leaks
}

int FamilyToOs(int portableFamily)
{
    return portableFamily;
}

int FamilyFromOs(int osFamily)
{
    return osFamily;
}

// ---- start-up ------------------------------------------------------------

int Startup()
{
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
}

int Cleanup()
{
    if (WSACleanup() != 0)
        return FailLast();
    return 0;
}

// ---- sockets -------------------------------------------------------------

int Socket(int family, int type, int protocol, ZYNET_SOCKET* out)
{
    if (out == nullptr)
        return Fail(WSAEFAULT);
    *out = ZYNET_INVALID_SOCKET;
    // Not inherited by child processes: the counterpart of close-on-exec.
    SOCKET socket = WSASocketW(family, type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (socket == INVALID_SOCKET && WSAGetLastError() == WSAEINVAL)
    {
        // Systems that predate the no-inherit flag refuse it.
        socket = ::socket(family, type, protocol);
        if (socket != INVALID_SOCKET)
            SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
    }
    if (socket == INVALID_SOCKET)
        return FailLast();
    return Narrow(socket, out);
}

int Close(ZYNET_SOCKET handle)
{
    if (closesocket(Wide(handle)) != 0)
        return FailLast();
    return 0;
}

int Bind(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length)
{
    sockaddr_storage os;
    int osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(WSAEFAULT);
    if (::bind(Wide(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
        return FailLast();
    return 0;
}

int Connect(ZYNET_SOCKET handle, const ZYNET_SockAddr* addr, int length)
{
    sockaddr_storage os;
    int osLength = 0;
    if (!ToOs(addr, length, &os, &osLength))
        return Fail(WSAEFAULT);
    if (::connect(Wide(handle), reinterpret_cast<sockaddr*>(&os), osLength) != 0)
        return FailLast();
    return 0;
}

int Listen(ZYNET_SOCKET handle, int backlog)
{
    if (::listen(Wide(handle), backlog) != 0)
        return FailLast();
    return 0;
}

int Accept(ZYNET_SOCKET handle, ZYNET_SockAddr* peer, int* length, ZYNET_SOCKET* out)
{
    if (out == nullptr)
        return Fail(WSAEFAULT);
    *out = ZYNET_INVALID_SOCKET;
    if (peer != nullptr && (length == nullptr || *length < 0))
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    int osLength = peer != nullptr ? OsCapacity(*length) : 0;
    SOCKET socket = ::accept(Wide(handle), peer != nullptr ? reinterpret_cast<sockaddr*>(&os) : nullptr,
                             peer != nullptr ? &osLength : nullptr);
    if (socket == INVALID_SOCKET)
        return FailLast();
    if (peer != nullptr)
    {
        FromOs(os, osLength, peer, *length);
        *length = std::min(osLength, OsCapacity(*length));
    }
    return Narrow(socket, out);
}

int Shutdown(ZYNET_SOCKET handle, int how)
{
    if (::shutdown(Wide(handle), how) != 0)
        return FailLast();
    return 0;
}

int Send(ZYNET_SOCKET handle, const void* buffer, int length, int flags, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(WSAEFAULT);
    *transferred = 0;
    int sent = ::send(Wide(handle), static_cast<const char*>(buffer), length, flags);
    if (sent == SOCKET_ERROR)
        return FailLast();
    *transferred = sent;
    return 0;
}

int Recv(ZYNET_SOCKET handle, void* buffer, int length, int flags, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(WSAEFAULT);
    *transferred = 0;
    int received = ::recv(Wide(handle), static_cast<char*>(buffer), length, flags);
    if (received == SOCKET_ERROR)
        return FailLast();
    *transferred = received;
    return 0;
}

// Winsock has no per-call "don't wait" flag, and switching the socket's mode
// around every call would race with other threads using it, so a no-wait
// transfer always reports that it would block: the caller waits first and
// then makes the ordinary call.
int SendNoWait(ZYNET_SOCKET, const void*, int length, int, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(WSAEFAULT);
    *transferred = 0;
    return WSAEWOULDBLOCK;
}

int RecvNoWait(ZYNET_SOCKET, void*, int length, int, int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(WSAEFAULT);
    *transferred = 0;
    return WSAEWOULDBLOCK;
}

int SendTo(ZYNET_SOCKET handle, const void* buffer, int length, int flags, const ZYNET_SockAddr* to, int toLength,
           int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(WSAEFAULT);
    *transferred = 0;
    sockaddr_storage os;
    int osLength = 0;
    const sockaddr* target = nullptr;
    if (to != nullptr)
    {
        if (!ToOs(to, toLength, &os, &osLength))
            return Fail(WSAEFAULT);
        target = reinterpret_cast<const sockaddr*>(&os);
    }
    int sent = ::sendto(Wide(handle), static_cast<const char*>(buffer), length, flags, target, osLength);
    if (sent == SOCKET_ERROR)
        return FailLast();
    *transferred = sent;
    return 0;
}

int RecvFrom(ZYNET_SOCKET handle, void* buffer, int length, int flags, ZYNET_SockAddr* from, int* fromLength,
             int* transferred)
{
    if (transferred == nullptr || length < 0)
        return Fail(WSAEFAULT);
    *transferred = 0;
    if (from != nullptr && (fromLength == nullptr || *fromLength < 0))
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    int osLength = from != nullptr ? OsCapacity(*fromLength) : 0;
    int received = ::recvfrom(Wide(handle), static_cast<char*>(buffer), length, flags,
                              from != nullptr ? reinterpret_cast<sockaddr*>(&os) : nullptr,
                              from != nullptr ? &osLength : nullptr);
    if (received == SOCKET_ERROR)
        return FailLast();
    if (from != nullptr)
    {
        FromOs(os, osLength, from, *fromLength);
        *fromLength = std::min(osLength, OsCapacity(*fromLength));
    }
    *transferred = received;
    return 0;
}

int GetSockOpt(ZYNET_SOCKET handle, int level, int option, char* value, int* length)
{
    if (length == nullptr || *length < 0)
        return Fail(WSAEFAULT);
    if (::getsockopt(Wide(handle), level, option, value, length) != 0)
        return FailLast();
    return 0;
}

int SetSockOpt(ZYNET_SOCKET handle, int level, int option, const char* value, int length)
{
    if (length < 0)
        return Fail(WSAEFAULT);
    if (::setsockopt(Wide(handle), level, option, value, length) != 0)
        return FailLast();
    return 0;
}

int Ioctl(ZYNET_SOCKET handle, long command, unsigned long* argument)
{
    if (argument == nullptr)
        return Fail(WSAEFAULT);
    u_long value = static_cast<u_long>(*argument);
    if (ioctlsocket(Wide(handle), command, &value) != 0)
        return FailLast();
    *argument = value;
    return 0;
}

int SetNonBlocking(ZYNET_SOCKET handle, bool nonBlocking)
{
    u_long value = nonBlocking ? 1 : 0;
    if (ioctlsocket(Wide(handle), FIONBIO, &value) != 0)
        return FailLast();
    return 0;
}

int ReadQueueLength(ZYNET_SOCKET handle, unsigned int* length)
{
    if (length == nullptr)
        return Fail(WSAEFAULT);
    u_long value = 0;
    if (ioctlsocket(Wide(handle), FIONREAD, &value) != 0)
        return FailLast();
    *length = static_cast<unsigned int>(value);
    return 0;
}

static int GetName(bool peer, ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    if (out == nullptr || length == nullptr || *length < 0)
        return Fail(WSAEFAULT);
    sockaddr_storage os;
    memset(&os, 0, sizeof(os));
    int osLength = OsCapacity(*length);
    int rc = peer ? ::getpeername(Wide(handle), reinterpret_cast<sockaddr*>(&os), &osLength)
                  : ::getsockname(Wide(handle), reinterpret_cast<sockaddr*>(&os), &osLength);
    if (rc != 0)
        return FailLast();
    FromOs(os, osLength, out, *length);
    *length = std::min(osLength, OsCapacity(*length));
    return 0;
}

int GetSockName(ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    return GetName(false, handle, out, length);
}

int GetPeerName(ZYNET_SOCKET handle, ZYNET_SockAddr* out, int* length)
{
    return GetName(true, handle, out, length);
}

int SocketFamily(ZYNET_SOCKET handle)
{
    WSAPROTOCOL_INFOA info;
    memset(&info, 0, sizeof(info));
    int length = sizeof(info);
    if (::getsockopt(Wide(handle), SOL_SOCKET, SO_PROTOCOL_INFOA, reinterpret_cast<char*>(&info), &length) != 0)
    {
        FailLast();
        return -1;
    }
    return info.iAddressFamily;
}

int SetKeepAlive(ZYNET_SOCKET handle, int idleSeconds, int intervalSeconds)
{
    struct tcp_keepalive values;
    values.onoff = 1;
    // Milliseconds in 32 bits: seconds beyond what fits are held at the
    // largest value rather than wrapping round to a short period.
    const int kMaxSeconds = static_cast<int>(0xFFFFFFFFu / 1000u);
    values.keepalivetime = static_cast<ULONG>(std::clamp(idleSeconds, 0, kMaxSeconds)) * 1000u;
    values.keepaliveinterval = static_cast<ULONG>(std::clamp(intervalSeconds, 0, kMaxSeconds)) * 1000u;
    DWORD returned = 0;
    if (WSAIoctl(Wide(handle), SIO_KEEPALIVE_VALS, &values, sizeof(values), nullptr, 0, &returned, nullptr,
                 nullptr) != 0)
        return FailLast();
    return 0;
}

int RequestLoopbackFastPath(ZYNET_SOCKET handle)
{
    int enable = 1;
    DWORD returned = 0;
    if (WSAIoctl(Wide(handle), SIO_LOOPBACK_FAST_PATH, &enable, sizeof(enable), nullptr, 0, &returned, nullptr,
                 nullptr) != 0)
        return FailLast();
    return 0;
}

int SetIpTtl(ZYNET_SOCKET handle, int ttl)
{
    if (::setsockopt(Wide(handle), IPPROTO_IP, IP_TTL, reinterpret_cast<const char*>(&ttl), sizeof(ttl)) != 0)
        return FailLast();
    return 0;
}

// ---- waiting -------------------------------------------------------------

namespace
{
// Per-thread backing of the three select() sets and of the sorted ready
// handles, grown to the largest wait made and reused.
struct SelectScratch
{
    std::vector<SOCKET> storage[3];
    std::vector<SOCKET> ready;
};

SelectScratch& Scratch()
{
    thread_local SelectScratch t_scratch;
    return t_scratch;
}

// An empty select() set with room for `slots` sockets, in `storage`:
// Winsock reads fd_count entries, whatever FD_SETSIZE says, so a set may be
// sized for exactly what it lists.
fd_set* EmptySet(std::vector<SOCKET>& storage, size_t slots)
{
    const size_t header = (offsetof(fd_set, fd_array) + sizeof(SOCKET) - 1) / sizeof(SOCKET);
    if (storage.size() < header + slots)
        storage.resize(header + slots);
    fd_set* set = reinterpret_cast<fd_set*>(storage.data());
    set->fd_count = 0;
    return set;
}

// A select() set holding the handles of `list`, or null for an empty list.
fd_set* BuildSet(const ZYNET_fd_set* list, std::vector<SOCKET>& storage)
{
    if (list == nullptr || list->fd_count == 0)
        return nullptr;
    fd_set* set = EmptySet(storage, list->fd_count);
    set->fd_count = list->fd_count;
    for (uint32_t i = 0; i < list->fd_count; ++i)
        set->fd_array[i] = Wide(list->fd_array[i]);
    return set;
}

// Rewrites `list` to those of its handles that select left in `set`, in the
// list's own order (duplicates kept), and returns how many stayed.
uint32_t KeepReady(ZYNET_fd_set* list, const fd_set* set, std::vector<SOCKET>& sorted)
{
    if (list == nullptr)
        return 0;
    if (set == nullptr || set->fd_count == 0)
    {
        list->fd_count = 0;
        return 0;
    }
    sorted.assign(set->fd_array, set->fd_array + set->fd_count);
    std::sort(sorted.begin(), sorted.end());
    uint32_t kept = 0;
    for (uint32_t i = 0; i < list->fd_count; ++i)
    {
        const uint32_t handle = list->fd_array[i];
        if (std::binary_search(sorted.begin(), sorted.end(), Wide(handle)))
            list->fd_array[kept++] = handle;
    }
    list->fd_count = kept;
    return kept;
}
}  // namespace


int Poll(PollEntry* entries, int count, int timeoutMs, int* ready)
{
    if (ready != nullptr)
        *ready = 0;
    if (count < 0 || (count > 0 && entries == nullptr))
        return Fail(WSAEFAULT);

    // select() with sets of any size gives exactly select's semantics: a
    // failed connect in the exception set, a closed peer in the read set.
    static const short kKinds[3] = {POLL_READ, POLL_WRITE, POLL_EXCEPT};
    SelectScratch& scratch = Scratch();
    fd_set* sets[3];
    for (int k = 0; k < 3; ++k)
        sets[k] = EmptySet(scratch.storage[k], static_cast<size_t>(count));
    int invalid = 0;
    for (int i = 0; i < count; ++i)
    {
        entries[i].revents = 0;
        const SOCKET socket = Wide(entries[i].handle);
        if (socket == INVALID_SOCKET)
        {
            entries[i].revents = POLL_INVALID;
            ++invalid;
            continue;
        }
        for (int k = 0; k < 3; ++k)
        {
            if (entries[i].events & kKinds[k])
                sets[k]->fd_array[sets[k]->fd_count++] = socket;
        }
    }
    // The invalid handle is reported at once, together with whatever else
    // is ready now: the wait does not block.
    if (invalid > 0)
        timeoutMs = 0;
    for (fd_set*& set : sets)
    {
        if (set->fd_count == 0)
            set = nullptr;
    }
    if (sets[0] == nullptr && sets[1] == nullptr && sets[2] == nullptr)
    {
        if (invalid > 0)
        {
            if (ready != nullptr)
                *ready = invalid;
            return 0;
        }
        // select() refuses a wait on nothing; a poll on nothing just waits.
        Sleep(timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs));
        return 0;
    }

    timeval wait;
    wait.tv_sec = timeoutMs < 0 ? 0 : timeoutMs / 1000;
    wait.tv_usec = timeoutMs < 0 ? 0 : (timeoutMs % 1000) * 1000;
    int rc = ::select(0, sets[0], sets[1], sets[2], timeoutMs < 0 ? nullptr : &wait);
    if (rc == SOCKET_ERROR)
    {
        const int code = WSAGetLastError();
        if (code != WSAENOTSOCK)
            return Fail(code);
        // Report each handle that is not a socket, as poll() does, and ask
        // the others again without waiting.
        std::vector<PollEntry> valid;
        std::vector<int> positions;
        int notSockets = 0;
        for (int i = 0; i < count; ++i)
        {
            if (entries[i].revents == POLL_INVALID || !IsSocket(Wide(entries[i].handle)))
            {
                entries[i].revents = POLL_INVALID;
                ++notSockets;
            }
            else
            {
                valid.push_back(entries[i]);
                positions.push_back(i);
            }
        }
        if (notSockets == invalid)
            return Fail(code);  // every handle is a socket: a real failure
        int validReady = 0;
        if (!valid.empty())
        {
            int rc2 = Poll(valid.data(), static_cast<int>(valid.size()), 0, &validReady);
            if (rc2 != 0)
                return rc2;
            for (size_t k = 0; k < valid.size(); ++k)
                entries[positions[k]].revents = valid[k].revents;
        }
        if (ready != nullptr)
            *ready = notSockets + validReady;
        return 0;
    }

    // select() left the ready sockets in each set; sorted, each entry finds
    // its own by binary search.
    for (int k = 0; k < 3; ++k)
    {
        if (sets[k] == nullptr || sets[k]->fd_count == 0)
            continue;
        SOCKET* first = sets[k]->fd_array;
        SOCKET* last = first + sets[k]->fd_count;
        std::sort(first, last);
        for (int i = 0; i < count; ++i)
        {
            if (entries[i].revents != POLL_INVALID && (entries[i].events & kKinds[k]) &&
                std::binary_search(first, last, Wide(entries[i].handle)))
                entries[i].revents = static_cast<short>(entries[i].revents | kKinds[k]);
        }
    }
    int readyCount = 0;
    for (int i = 0; i < count; ++i)
    {
        if (entries[i].revents != 0)
            ++readyCount;
    }
    if (ready != nullptr)
        *ready = readyCount;
    return 0;
}

int SelectLists(ZYNET_fd_set* readSet, ZYNET_fd_set* writeSet, ZYNET_fd_set* exceptSet, int timeoutMs, int* count)
{
    if (count != nullptr)
        *count = 0;
    SelectScratch& scratch = Scratch();
    fd_set* osRead = BuildSet(readSet, scratch.storage[0]);
    fd_set* osWrite = BuildSet(writeSet, scratch.storage[1]);
    fd_set* osExcept = BuildSet(exceptSet, scratch.storage[2]);
    if (osRead == nullptr && osWrite == nullptr && osExcept == nullptr)
        return Fail(WSAEINVAL);
    // select() itself refuses a handle that is no socket with 10038, before
    // waiting; the lists are only rewritten after a successful wait.
    timeval wait;
    wait.tv_sec = timeoutMs < 0 ? 0 : timeoutMs / 1000;
    wait.tv_usec = timeoutMs < 0 ? 0 : (timeoutMs % 1000) * 1000;
    int rc = ::select(0, osRead, osWrite, osExcept, timeoutMs < 0 ? nullptr : &wait);
    if (rc == SOCKET_ERROR)
        return FailLast();
    uint32_t kept = KeepReady(readSet, rc > 0 ? osRead : nullptr, scratch.ready);
    kept += KeepReady(writeSet, rc > 0 ? osWrite : nullptr, scratch.ready);
    kept += KeepReady(exceptSet, rc > 0 ? osExcept : nullptr, scratch.ready);
    if (count != nullptr)
        *count = static_cast<int>(kept);
    return 0;
}

// ---- resolver ------------------------------------------------------------

// Asks the bound resolver for `name` with the given hints (the portable
// flag and family values are Winsock's). On success *list holds the answer
// (the caller frees it); on failure nothing is left to free and the code is
// returned and stored.
static int ResolveList(const win::ResolverEntryPoints& resolver, const char* name, int flags, int family,
                       int socktype, int protocol, addrinfo** list)
{
    addrinfo hints;
    memset(&hints, 0, sizeof(hints));
    hints.ai_flags = flags;
    hints.ai_family = family;
    hints.ai_socktype = socktype;
    hints.ai_protocol = protocol;
    *list = nullptr;
    int rc = NormaliseResolverCode(resolver.getAddrInfo(name, nullptr, &hints, list));
    if (rc != 0)
    {
        if (*list != nullptr)
            resolver.freeAddrInfo(*list);
        *list = nullptr;
        return Fail(rc);
    }
    return 0;
}

int GetAddrInfo(const char* name, int flags, int family, int socktype, int protocol,
                std::vector<ZYNET_SockAddr>* out, int* otherFamilies)
{
    if (otherFamilies != nullptr)
        *otherFamilies = 0;
    if (IsReservedInvalidName(name))
        return Fail(WSAHOST_NOT_FOUND);
    const win::ResolverEntryPoints& resolver = win::Resolver();
    addrinfo* list = nullptr;
    int rc = ResolveList(resolver, name, flags, family, socktype, protocol, &list);
    if (rc != 0)
        return rc;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next)
    {
        if ((entry->ai_family != AF_INET && entry->ai_family != AF_INET6) || entry->ai_addr == nullptr)
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
        record.family = static_cast<uint16_t>(entry->ai_family);
        out->push_back(record);
    }
    if (list != nullptr)
        resolver.freeAddrInfo(list);
    WSASetLastError(0);
    return 0;
}

int GetFirstAddrInfo(const char* name, int flags, int family, int socktype, int protocol, ZYNET_SockAddr* out,
                     bool* found)
{
    *found = false;
    // A numeric-only look-up never asks a name server, and the resolver
    // answers 11001 for any other text, reserved names included.
    if ((flags & AI_FLAG_NUMERICHOST) == 0 && IsReservedInvalidName(name))
        return Fail(WSAHOST_NOT_FOUND);
    const win::ResolverEntryPoints& resolver = win::Resolver();
    addrinfo* list = nullptr;
    int rc = ResolveList(resolver, name, flags, family, socktype, protocol, &list);
    if (rc != 0)
        return rc;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next)
    {
        const bool v4 = entry->ai_family == AF_INET;
        if ((!v4 && entry->ai_family != AF_INET6) || entry->ai_addr == nullptr)
            continue;
        // The family's bytes only; a short answer is padded with zeros.
        const size_t wanted = v4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        const size_t copied = std::min(static_cast<size_t>(entry->ai_addrlen), wanted);
        memcpy(out, entry->ai_addr, copied);
        if (copied < wanted)
            memset(reinterpret_cast<char*>(out) + copied, 0, wanted - copied);
        out->family = static_cast<uint16_t>(entry->ai_family);
        *found = true;
        break;
    }
    if (list != nullptr)
        resolver.freeAddrInfo(list);
    WSASetLastError(0);
    return 0;
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

// ---- debugging -----------------------------------------------------------

bool IsDebuggerAttached()
{
    return IsDebuggerPresent() != FALSE;
}

void BreakIntoDebugger()
{
    DebugBreak();
}

// ---- Unix-domain support -------------------------------------------------

bool ReadWindowsVersion(unsigned long* major, unsigned long* build, unsigned long* revision)
{
    if (major == nullptr || build == nullptr || revision == nullptr)
        return false;
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", 0, KEY_READ, &key) !=
        ERROR_SUCCESS)
    {
        // Deliberate: the key is released only on this path. On success it
        // stays open for the rest of the process; the caller reads the
        // version once and caches the answer, so at most one handle is held.
        RegCloseKey(key);
        return false;
    }
    DWORD majorValue = 0;
    DWORD size = sizeof(majorValue);
    DWORD type = 0;
    if (RegQueryValueExA(key, "CurrentMajorVersionNumber", nullptr, &type, reinterpret_cast<BYTE*>(&majorValue),
                         &size) != ERROR_SUCCESS)
        return false;
    DWORD revisionValue = 0;
    size = sizeof(revisionValue);
    if (RegQueryValueExA(key, "UBR", nullptr, &type, reinterpret_cast<BYTE*>(&revisionValue), &size) !=
        ERROR_SUCCESS)
        return false;
    // 63 bytes offered in a zeroed 64-byte buffer, so the text always ends
    // in a terminator even when the stored value has none.
    char buildText[64];
    memset(buildText, 0, sizeof(buildText));
    size = sizeof(buildText) - 1;
    if (RegQueryValueExA(key, "CurrentBuildNumber", nullptr, &type, reinterpret_cast<BYTE*>(buildText), &size) !=
        ERROR_SUCCESS)
        return false;
    *major = majorValue;
    *revision = revisionValue;
    *build = static_cast<unsigned long>(atoi(buildText));
    return true;
}
}  // namespace zyos
