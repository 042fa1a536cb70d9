// The POSIX half of the OS boundary: the wait primitive. poll() stands
// for select() with select's meaning of readiness, so that descriptors
// numbered 1024 and above work; per-thread scratch storage keeps a steady
// stream of waits from allocating.
#include <poll.h>
#include <time.h>

#include <algorithm>
#include <vector>

#include "ZyNetwork/Posix/PosixSupport.h"

namespace zy::os
{
using namespace posix;

namespace
{
int64_t MonotonicMs()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// The pollfd array of the calling thread, grown to the largest wait it has
// made and reused, so that waiting allocates nothing in the steady state.
// Nothing runs between filling and reading it that could wait again.
pollfd* PollScratch(size_t count)
{
    thread_local std::vector<pollfd> t_fds;
    if (t_fds.size() < count)
        t_fds.resize(count);
    return t_fds.data();
}

// poll() that resumes after a signal with what is left of the time limit.
// Returns poll's result; errno tells a failure.
int PollRetrying(pollfd* fds, size_t count, int timeoutMs)
{
    const int64_t deadline = timeoutMs >= 0 ? MonotonicMs() + timeoutMs : 0;
    int wait = timeoutMs < 0 ? -1 : timeoutMs;
    for (;;)
    {
        int rc = ::poll(fds, static_cast<nfds_t>(count), wait);
        if (rc >= 0 || errno != EINTR)
            return rc;
        if (timeoutMs >= 0)
            wait = static_cast<int>(std::max<int64_t>(0, deadline - MonotonicMs()));
    }
}

// What each kind of wait asks poll() for.
short PollEventsFor(short events)
{
    return posix::OsWaitBits<short>(static_cast<unsigned>(events), POLLIN | POLLRDHUP, POLLOUT, POLLPRI);
}

// The wanted events that poll's answer for one descriptor amounts to, with
// select's meaning: a closed peer or an error makes a socket readable, an
// error makes it writable, and a failed connect is exceptional.
short ReadyEvents(const pollfd& fd, short wanted)
{
    const short r = fd.revents;
    short out = 0;
    if ((wanted & POLL_READ) && (r & (POLLIN | POLLRDHUP | POLLHUP | POLLERR)))
        out |= POLL_READ;
    if ((wanted & POLL_WRITE) && (r & (POLLOUT | POLLERR)))
        out |= POLL_WRITE;
    if ((wanted & POLL_EXCEPT) && ((r & POLLPRI) || ((r & POLLERR) && IsFailedConnect(fd.fd))))
        out |= POLL_EXCEPT;
    return out;
}
}  // namespace

int Poll(PollEntry* entries, int count, int timeoutMs, int* ready)
{
    if (ready != nullptr)
        *ready = 0;
    if (count < 0 || (count > 0 && entries == nullptr))
        return Fail(zy::err::kFault);

    pollfd* fds = PollScratch(static_cast<size_t>(count));
    bool notDescriptor = false;
    for (int i = 0; i < count; ++i)
    {
        fds[i].fd = Fd(entries[i].handle);
        fds[i].events = PollEventsFor(entries[i].events);
        fds[i].revents = 0;
        entries[i].revents = 0;
        // poll() silently skips negative descriptors; they are reported as
        // a closed one is.
        notDescriptor = notDescriptor || fds[i].fd < 0;
    }
    // A handle that is no descriptor at all is reported at once, together
    // with whatever else is ready now: the wait does not block.
    if (PollRetrying(fds, static_cast<size_t>(count), notDescriptor ? 0 : timeoutMs) < 0)
        return FailErrno();

    int readyCount = 0;
    for (int i = 0; i < count; ++i)
    {
        const short out = (fds[i].fd < 0 || (fds[i].revents & POLLNVAL)) ? static_cast<short>(POLL_INVALID)
                                                                          : ReadyEvents(fds[i], entries[i].events);
        entries[i].revents = out;
        if (out != 0)
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
    ZYNET_fd_set* const sets[3] = {readSet, writeSet, exceptSet};
    static const short kWanted[3] = {POLL_READ, POLL_WRITE, POLL_EXCEPT};
    size_t total = 0;
    for (const ZYNET_fd_set* set : sets)
        total += set != nullptr ? set->fd_count : 0;

    // The lists go straight into the pollfd array, in order: read, write,
    // exception.
    pollfd* const fds = PollScratch(total);
    pollfd* p = fds;
    bool notDescriptor = false;
    for (int k = 0; k < 3; ++k)
    {
        if (sets[k] == nullptr)
            continue;
        const short asked = PollEventsFor(kWanted[k]);
        const uint32_t n = sets[k]->fd_count;
        const uint32_t* handles = sets[k]->fd_array;
        for (uint32_t i = 0; i < n; ++i, ++p)
        {
            p->fd = Fd(handles[i]);
            p->events = asked;
            p->revents = 0;
            notDescriptor = notDescriptor || p->fd < 0;
        }
    }
    // A handle that cannot be a descriptor fails the wait at once.
    const int rc = PollRetrying(fds, total, notDescriptor ? 0 : timeoutMs);
    if (rc < 0)
        return FailErrno();
    if (notDescriptor)
        return Fail(zy::err::kInvalidSocket);

    uint32_t kept[3] = {0, 0, 0};
    if (rc > 0)
    {
        // Each set is compacted in place to its ready handles. Every listed
        // handle is its own descriptor number here, so should a closed one
        // turn up part-way, the lists are rebuilt from the pollfd array and
        // the call fails as if nothing had been touched.
        bool closed = false;
        p = fds;
        for (int k = 0; k < 3 && !closed; ++k)
        {
            if (sets[k] == nullptr)
                continue;
            const uint32_t n = sets[k]->fd_count;
            uint32_t* handles = sets[k]->fd_array;
            for (uint32_t i = 0; i < n; ++i, ++p)
            {
                if (p->revents & POLLNVAL)
                {
                    closed = true;
                    break;
                }
                if (ReadyEvents(*p, kWanted[k]) != 0)
                    handles[kept[k]++] = static_cast<uint32_t>(p->fd);
            }
        }
        if (closed)
        {
            p = fds;
            for (ZYNET_fd_set* set : sets)
            {
                if (set == nullptr)
                    continue;
                for (uint32_t i = 0; i < set->fd_count; ++i, ++p)
                    set->fd_array[i] = static_cast<uint32_t>(p->fd);
            }
            return Fail(zy::err::kInvalidSocket);
        }
    }
    for (int k = 0; k < 3; ++k)
    {
        if (sets[k] != nullptr)
            sets[k]->fd_count = kept[k];
    }
    if (count != nullptr)
        *count = static_cast<int>(kept[0] + kept[1] + kept[2]);
    return 0;
}
}  // namespace zy::os
