#include "ZyUtils/ZyTime.h"

#include <chrono>
#include <thread>

#if defined(_WIN32)
#include <windows.h>
#else
#include <unistd.h>
#endif

CTimeStamp CTimeStamp::Now()
{
    auto since = std::chrono::steady_clock::now().time_since_epoch();
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(since).count();
    CTimeStamp stamp;
    stamp.m_sec = ns / 1000000000;
    stamp.m_nsec = ns % 1000000000;
    return stamp;
}

struct timespec CTimeStamp::AsTimeSpec() const
{
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(m_sec);
    ts.tv_nsec = static_cast<long>(m_nsec);
    return ts;
}

namespace FXProcess
{
unsigned long getProcessId()
{
#if defined(_WIN32)
    return GetCurrentProcessId();
#else
    return static_cast<unsigned long>(getpid());
#endif
}
}  // namespace FXProcess

int32_t ZyTime32()
{
    return static_cast<int32_t>(time(nullptr));
}

int64_t ZyMonotonicSeconds()
{
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void ZYSLEEP_InTeRnAl(unsigned int milliseconds, const char* /*file*/, int /*line*/)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
