#include "ZyUtils/ZyTime.h"

#include <atomic>
#include <chrono>

#include "ZyUtils/Internal/OsUtils.h"

namespace
{
std::atomic<ZySleepHook> g_sleepHook{nullptr};
std::atomic<void*> g_sleepHookContext{nullptr};
}  // namespace

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
    return zy::util::os::ProcessId();
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

void ZySetSleepHook(ZySleepHook hook, void* context)
{
    g_sleepHookContext.store(context, std::memory_order_relaxed);
    g_sleepHook.store(hook, std::memory_order_release);
}

void ZYSLEEP_InTeRnAl(unsigned int milliseconds, const char* file, int line)
{
    ZySleepHook hook = g_sleepHook.load(std::memory_order_acquire);
    if (hook)
    {
        hook(milliseconds, file, line, g_sleepHookContext.load(std::memory_order_relaxed));
        return;
    }
    zy::util::os::SleepMilliseconds(milliseconds);
}
