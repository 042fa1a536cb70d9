// Kernel event sets on Linux: one level-triggered epoll instance
// (close-on-exec) per set, with the interest of every registered descriptor
// kept beside it, indexed by descriptor number.
//
// epoll keys its entries on the open file description together with the
// number, and drops an entry only when the description's last reference
// goes. Two consequences are handled here:
// - A registered number that was closed and reused by a new socket is not
//   watched by the set. EPOLL_CTL_MOD on the number then fails with ENOENT
//   (EBADF when nothing is open under it), which is how a check tells the
//   cases apart; the new descriptor is added.
// - A closed number whose description lives on elsewhere (a dup, a forked
//   child) keeps its entry, which can never be removed through the number
//   again and goes on reporting. Each entry carries a tag, renewed whenever
//   the number is added, and events whose tag is not the number's current
//   one are ignored.
#include "ZyNetwork/Internal/OsEventSet.h"

#include <errno.h>
#include <limits.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <new>
#include <vector>

#include "ZyNetwork/Posix/PosixSupport.h"

namespace zy::os
{
class EventSet
{
public:
    struct Slot
    {
        uint32_t interest = 0;
        uint32_t tag = 0;
    };

    int epfd = -1;
    uint32_t nextTag = 0;
    size_t registered = 0;
    std::vector<Slot> slots;            // by descriptor number
    std::vector<epoll_event> events;    // the wait's buffer, one per registered descriptor and some spare
};

namespace
{
using posix::Fd;
using posix::IsFailedConnect;

uint32_t EpollEventsFor(uint32_t interest)
{
    static_assert(int(EVENT_READ) == int(POLL_READ) && int(EVENT_WRITE) == int(POLL_WRITE) &&
                      int(EVENT_EXCEPT) == int(POLL_EXCEPT),
                  "event interests and poll kinds share their bits");
    return posix::OsWaitBits<uint32_t>(interest, EPOLLIN | EPOLLRDHUP, EPOLLOUT, EPOLLPRI);
}

uint64_t DataFor(int fd, uint32_t tag)
{
    return static_cast<uint64_t>(static_cast<uint32_t>(fd)) | (static_cast<uint64_t>(tag) << 32);
}


// The same reading of the kernel's answer as the list wait gives poll's.
uint32_t ReadyEvents(int fd, uint32_t r, uint32_t wanted)
{
    uint32_t out = 0;
    if ((wanted & EVENT_READ) && (r & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)))
        out |= EVENT_READ;
    if ((wanted & EVENT_WRITE) && (r & (EPOLLOUT | EPOLLERR)))
        out |= EVENT_WRITE;
    if ((wanted & EVENT_EXCEPT) && ((r & EPOLLPRI) || ((r & EPOLLERR) && IsFailedConnect(fd))))
        out |= EVENT_EXCEPT;
    return out;
}

EventSet::Slot* SlotFor(EventSet* set, int fd, bool grow)
{
    if (fd < 0)
        return nullptr;
    if (static_cast<size_t>(fd) >= set->slots.size())
    {
        if (!grow)
            return nullptr;
        set->slots.resize(static_cast<size_t>(fd) + 1);
    }
    return &set->slots[static_cast<size_t>(fd)];
}

// Watches the descriptor now open under fd with the slot's interest, under
// a fresh tag.
int AddFresh(EventSet* set, int fd, EventSet::Slot& slot, uint32_t interest)
{
    epoll_event event{};
    event.events = EpollEventsFor(interest);
    const uint32_t tag = ++set->nextTag;
    event.data.u64 = DataFor(fd, tag);
    int rc = ::epoll_ctl(set->epfd, EPOLL_CTL_ADD, fd, &event);
    if (rc != 0 && errno == EEXIST)  // the same description is back under its old number
        rc = ::epoll_ctl(set->epfd, EPOLL_CTL_MOD, fd, &event);
    if (rc != 0)
        return errno == EBADF ? EVENTSET_CLOSED : EVENTSET_FAILED;
    slot.tag = tag;
    return EVENTSET_OK;
}

// Re-states the slot's entry: OK when the set watches the descriptor now
// under fd (adding it when the number names a new one), CLOSED when nothing
// is open under fd.
int Restate(EventSet* set, int fd, EventSet::Slot& slot, uint32_t interest)
{
    epoll_event event{};
    event.events = EpollEventsFor(interest);
    event.data.u64 = DataFor(fd, slot.tag);
    if (::epoll_ctl(set->epfd, EPOLL_CTL_MOD, fd, &event) == 0)
        return EVENTSET_OK;
    if (errno == EBADF)
        return EVENTSET_CLOSED;
    if (errno == ENOENT)
        return AddFresh(set, fd, slot, interest);
    return EVENTSET_FAILED;
}

int64_t NowMs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
}  // namespace

EventSet* EventSetCreate()
{
    EventSet* set = new (std::nothrow) EventSet();
    if (set == nullptr)
        return nullptr;
    set->epfd = ::epoll_create1(EPOLL_CLOEXEC);
    if (set->epfd < 0)
    {
        delete set;
        return nullptr;
    }
    return set;
}

void EventSetDestroy(EventSet* set)
{
    if (set == nullptr)
        return;
    if (set->epfd >= 0)
        ::close(set->epfd);
    delete set;
}

int EventSetAdd(EventSet* set, ZYNET_SOCKET handle, unsigned interest)
{
    const int fd = Fd(handle);
    if (set == nullptr || fd < 0)
        return set == nullptr ? EVENTSET_FAILED : EVENTSET_CLOSED;
    EventSet::Slot* slot;
    try
    {
        slot = SlotFor(set, fd, true);
    }
    catch (const std::bad_alloc&)
    {
        return EVENTSET_FAILED;
    }
    const uint32_t wanted = slot->interest | interest;
    const int rc = slot->interest == 0 ? AddFresh(set, fd, *slot, wanted) : Restate(set, fd, *slot, wanted);
    if (rc != EVENTSET_OK)
        return rc;
    if (slot->interest == 0)
        ++set->registered;
    slot->interest = wanted;
    return EVENTSET_OK;
}

void EventSetRemove(EventSet* set, ZYNET_SOCKET handle, unsigned interest)
{
    if (set == nullptr)
        return;
    const int fd = Fd(handle);
    EventSet::Slot* slot = SlotFor(set, fd, false);
    if (slot == nullptr || (slot->interest & interest) == 0)
        return;
    const uint32_t left = slot->interest & ~interest;
    if (left == 0)
    {
        // Fails harmlessly when the descriptor was closed (its entry went
        // with it, or lives on under a tag nobody expects any more).
        epoll_event unused{};
        ::epoll_ctl(set->epfd, EPOLL_CTL_DEL, fd, &unused);
        slot->interest = 0;
        slot->tag = 0;
        --set->registered;
        return;
    }
    // A failure here (closed, or reused) is found by the next check.
    Restate(set, fd, *slot, left);
    slot->interest = left;
}

int EventSetCheck(EventSet* set, ZYNET_SOCKET handle)
{
    if (set == nullptr)
        return EVENTSET_FAILED;
    const int fd = Fd(handle);
    EventSet::Slot* slot = SlotFor(set, fd, false);
    if (slot == nullptr || slot->interest == 0)
        return EVENTSET_OK;
    return Restate(set, fd, *slot, slot->interest);
}

int EventSetWait(EventSet* set, int timeoutMs, ZYNET_fd_set* read, ZYNET_fd_set* write, ZYNET_fd_set* except,
                 const uint32_t capacity[3], int* count)
{
    if (count != nullptr)
        *count = 0;
    if (set == nullptr)
        return EVENTSET_FAILED;
    // One slot per registered descriptor, so that one call reports every
    // ready one; the spare room takes entries left behind by descriptors
    // closed while their description lives on.
    const size_t wanted = set->registered + 16;
    if (set->events.size() < wanted)
    {
        try
        {
            set->events.resize(wanted + wanted / 4);
        }
        catch (const std::bad_alloc&)
        {
            return EVENTSET_FAILED;
        }
    }
    const int maxEvents =
        set->events.size() > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(set->events.size());

    int got;
    const int64_t deadline = timeoutMs > 0 ? NowMs() + timeoutMs : 0;
    int wait = timeoutMs;
    for (;;)
    {
        got = ::epoll_wait(set->epfd, set->events.data(), maxEvents, wait);
        if (got >= 0)
            break;
        if (errno != EINTR)
            return EVENTSET_FAILED;
        if (timeoutMs > 0)
        {
            const int64_t left = deadline - NowMs();
            wait = left > 0 ? static_cast<int>(left) : 0;
        }
    }

    // A grown list has more slots than the record declares, so the handles
    // are written through pointers to the storage.
    ZYNET_fd_set* const sets[3] = {read, write, except};
    uint32_t* handles[3] = {nullptr, nullptr, nullptr};
    for (int k = 0; k < 3; ++k)
        handles[k] = sets[k] != nullptr ? sets[k]->fd_array : nullptr;
    uint32_t kept[3] = {0, 0, 0};
    const size_t slots = set->slots.size();
    for (int i = 0; i < got; ++i)
    {
        const epoll_event& event = set->events[static_cast<size_t>(i)];
        const uint32_t fd = static_cast<uint32_t>(event.data.u64);
        const uint32_t tag = static_cast<uint32_t>(event.data.u64 >> 32);
        if (fd >= slots)
            continue;
        const EventSet::Slot& slot = set->slots[fd];
        if (slot.interest == 0 || slot.tag != tag)
            continue;  // an entry that outlived its number
        const uint32_t ready = ReadyEvents(static_cast<int>(fd), event.events, slot.interest);
        for (int k = 0; k < 3; ++k)
        {
            if ((ready & (1u << k)) && handles[k] != nullptr && kept[k] < capacity[k])
                handles[k][kept[k]++] = fd;
        }
    }
    for (int k = 0; k < 3; ++k)
    {
        if (sets[k] != nullptr)
            sets[k]->fd_count = kept[k];
    }
    if (count != nullptr)
        *count = static_cast<int>(kept[0] + kept[1] + kept[2]);
    return EVENTSET_OK;
}
}  // namespace zy::os
