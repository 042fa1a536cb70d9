#include "support/TestEnv.h"

#include <string.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "ZyNetwork/ZySocket.h"
#include "ZyUtils/ZyTime.h"

#if defined(_WIN32)
#include <winsock2.h>
#include <windows.h>
#include <psapi.h>
#else
#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace zytest
{
void InitTestProcess()
{
#if defined(_WIN32)
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
#endif
}

bool IsWindowsTarget()
{
#if defined(_WIN32)
    return true;
#else
    return false;
#endif
}

std::string TempSocketPath(const char* tag)
{
    static std::atomic<int> counter{0};
    char path[128];
    snprintf(path, sizeof(path), "/tmp/zynet-%s-%lu-%d.sock", tag, FXProcess::getProcessId(), counter++);
    std::remove(path);
    return path;
}

ZYNET_SockAddr LoopbackRecord(int family)
{
    ZYNET_SockAddr addr;
    memset(&addr, 0, sizeof(addr));
    addr.family = static_cast<uint16_t>(family);
    if (family == ZYNET_AF_INET)
        addr.in4.addr[0] = 127, addr.in4.addr[3] = 1;
    else
        addr.in6.addr[15] = 1;
    return addr;
}

SocketPair::SocketPair(int family, bool datagram)
{
    memset(&accepted, 0, sizeof(accepted));
    auto makeSocket = [&](ZYNET_SOCKET* out) {
        return datagram ? ZYNET_dgramsocket(family, out) : ZYNET_socket(family, out);
    };
    ZYNET_SockAddr addr = LoopbackRecord(family);
    ZYNET_SOCKET bound = ZYNET_INVALID_SOCKET;
    const bool connected = makeSocket(&bound) == 0 && ZYNET_bind(bound, &addr) == 0 &&
                           (datagram || ZYNET_listen(bound, 5) == 0) && ZYNET_getsockname(bound, &addr) == 0 &&
                           makeSocket(&client) == 0 && ZYNET_connect(client, &addr) == 0;
    if (connected && datagram)
        server = bound;
    else
    {
        if (connected)
            ZYNET_accept(bound, &server, &accepted);
        ZYNET_close(bound);
    }
}

SocketPair::~SocketPair()
{
    for (ZYNET_SOCKET handle : {client, server})
        if (handle != ZYNET_INVALID_SOCKET)
            ZYNET_close(handle);
}

std::string Text(const CZyIPAddr& address)
{
    if (address.GetAddressFamily() == CZyIPAddr::IP_FAMILY_UNIX)
        return address.GetUnixSockAddr();
    CZyString text;
    address.GetAddressString(text);
    return text.str();
}

void SetEnv(const char* name, const char* value)
{
#if defined(_WIN32)
    _putenv_s(name, value ? value : "");
#else
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
#endif
}

std::string HostPath(const std::string& path)
{
#if defined(_WIN32)
    return (!path.empty() && path[0] == '/') ? "Z:" + path : path;
#else
    return path;
#endif
}

uint64_t PeakResidentBytes()
{
#if defined(_WIN32)
    PROCESS_MEMORY_COUNTERS counters;
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)))
        return 0;
    return counters.PeakWorkingSetSize;
#else
    struct rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) != 0)
        return 0;
    return static_cast<uint64_t>(usage.ru_maxrss) * 1024;  // kilobytes on Linux
#endif
}
int OpenDescriptors()
{
#if defined(_WIN32)
    return -1;
#else
    int n = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (dir != nullptr && readdir(dir) != nullptr)
        ++n;
    if (dir != nullptr)
        closedir(dir);
    return n;
#endif
}

size_t AppendTo(char* data, size_t size, size_t count, void* user)
{
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}
}  // namespace zytest
