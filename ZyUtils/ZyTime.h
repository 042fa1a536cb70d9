// Time stamps, process id and sleep of the utility layer.
#pragma once

#include <cstdint>
#include <ctime>

#include "ZyUtils/ZyExport.h"

// A point on the monotonic clock, so that intervals never jump with the
// wall clock.
class ZYNET_API CTimeStamp
{
public:
    CTimeStamp() : m_sec(0), m_nsec(0) {}
    // The current point on the monotonic clock.
    static CTimeStamp Now();
    // The same point as seconds and nanoseconds.
    struct timespec AsTimeSpec() const;
    // Milliseconds as seconds * 1000 + nanoseconds / 1e6.
    double AsMilliseconds() const { return static_cast<double>(m_sec) * 1000.0 + static_cast<double>(m_nsec) / 1e6; }

private:
    int64_t m_sec;
    int64_t m_nsec;
};

namespace FXProcess
{
// The id of the calling process.
ZYNET_API unsigned long getProcessId();
}

// Seconds since 1970 truncated to 32 bits (what Windows calls _time32).
ZYNET_API int32_t ZyTime32();

// Whole seconds on the monotonic clock, for measuring time limits: unlike
// ZyTime32() it never jumps when the system clock is set.
ZYNET_API int64_t ZyMonotonicSeconds();

// Sleeps for the given milliseconds; the source file and line say who slept.
ZYNET_API void ZYSLEEP_InTeRnAl(unsigned int milliseconds, const char* file, int line);
#define ZYSLEEP(ms) ZYSLEEP_InTeRnAl((ms), __FILE__, __LINE__)

// Tests replace the sleep: with a hook installed, ZYSLEEP_InTeRnAl calls it
// instead of sleeping (so a retry policy can be observed without waiting).
// Null restores the real sleep. Install it before the code under test runs.
typedef void (*ZySleepHook)(unsigned int milliseconds, const char* file, int line, void* context);
// Installs (or with null removes) the sleep hook; `context` is passed to it.
ZYNET_API void ZySetSleepHook(ZySleepHook hook, void* context);
