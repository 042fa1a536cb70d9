// The library's one time-limited wait: one handle, a limit in whole seconds,
// waited in steps of one second. The time-limited send and receive loops,
// the ICMP datagram calls and the ping client's datagram socket all wait
// this way (the accept wait of CZySocket goes through a selector instead).
//
// The limit has passed once more than `seconds` whole seconds have gone by
// on the monotonic clock, so that setting the system clock neither cuts a
// wait short nor stretches it. Everything is inline: the transfer loops call
// it for every chunk that would block.
// Internal: not installed, not exported.
#pragma once

#include <stdint.h>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyUtils/ZyTime.h"

namespace zy::net
{
class SecondsWait
{
public:
    enum Step
    {
        Ready,   // the handle is ready for the transfer
        Idle,    // one second passed with nothing ready
        Failed   // the wait failed; the code has been stored as the thread's last socket error
    };

    // A limit of `seconds` on `handle`, for writing or for reading, counted
    // from now. A caller without a limit (seconds <= 0) never asks Expired().
    SecondsWait(ZYNET_SOCKET handle, bool forWrite, int seconds)
        : m_handle(handle), m_events(forWrite ? zy::os::POLL_WRITE : zy::os::POLL_READ), m_seconds(seconds),
          m_start(ZyMonotonicSeconds())
    {
    }

    // True once the limit has passed.
    bool Expired() const { return ZyMonotonicSeconds() - m_start > m_seconds; }

    // Waits up to one second for the handle. A handle that is no socket
    // fails with 10038, as select() on it would.
    Step WaitOneSecond(int* code) const
    {
        zy::os::PollEntry entry = {m_handle, m_events, 0};
        int ready = 0;
        int rc = zy::os::Poll(&entry, 1, 1000, &ready);
        if (rc == 0 && (entry.revents & zy::os::POLL_INVALID) != 0)
        {
            zy::os::SetLastError(zy::err::kInvalidSocket);
            rc = zy::err::kInvalidSocket;
        }
        if (rc != 0)
        {
            *code = rc;
            return Failed;
        }
        return ready > 0 ? Ready : Idle;
    }

    // Waits one second at a time until the handle is ready (0), the limit
    // passes (0 with *timedOut set) or a wait fails (its code).
    int UntilReady(bool* timedOut) const
    {
        for (;;)
        {
            if (Expired())
            {
                *timedOut = true;
                return 0;
            }
            int code = 0;
            Step step = WaitOneSecond(&code);
            if (step == Failed)
                return code;
            if (step == Ready)
                return 0;
        }
    }

private:
    ZYNET_SOCKET m_handle;
    short m_events;
    int m_seconds;
    int64_t m_start;
};
}  // namespace zy::net
