#include "support/TestEnv.h"

#include <string.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "ZyUtils/ZyTime.h"

#if defined(_WIN32)
#include <winsock2.h>
#else
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

bool IsRoot()
{
#if defined(_WIN32)
    return false;
#else
    return geteuid() == 0;
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

void SetEnv(const char* name, const char* value)
{
#if defined(_WIN32)
    // msvcrt's environment, which getenv reads.
    _putenv((std::string(name) + "=" + value).c_str());
#else
    setenv(name, value, 1);
#endif
}
}  // namespace zytest
