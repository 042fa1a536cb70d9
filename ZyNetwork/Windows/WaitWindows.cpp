// The Windows half of the OS boundary: the wait primitive, select() over
// sets sized to the request (Winsock reads fd_count entries, whatever
// FD_SETSIZE says), with per-thread scratch storage.
#include "ZyNetwork/Windows/WindowsSupport.h"

#include <stddef.h>

#include <algorithm>
#include <vector>

namespace zy::os
{
using namespace win;

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
}  // namespace zy::os
