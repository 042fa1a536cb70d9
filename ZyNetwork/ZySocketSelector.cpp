// CZySocketSelector: registered sockets are kept twice per category, as an
// ordered set of socket objects (what callers get back) and as a master
// descriptor set (what the wait sees). Each Select copies the masters into
// working sets, which the wait rewrites to the ready handles.
#include "ZyNetwork/ZySocketSelector.h"

#include <algorithm>
#include <vector>

static const char kZyFile[] = "ZyNetwork/ZySocketSelector";

CZySocketSelector::CZySocketSelector() : m_highest(0), m_changed(false)
{
    ClearAll();
}

CZyError CZySocketSelector::SetSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket)
{
    if (!socket.IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocketSelector::SetSocket"), 10038, "Invalid socket");
    ZYNET_SOCKET handle = socket.GetSocketDescriptor();
    CZyError err = master.set(handle);
    if (err.IsError())
        return err.Push(ZY_LOC("CZySocketSelector::SetSocket"));
    sockets.insert(socket);
    if (handle > m_highest)
        m_highest = handle;
    return CZyError::Success();
}

void CZySocketSelector::ClearSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket)
{
    // An object without a handle was never registered; it must not reach the
    // set's lookup either, since it does not order against valid sockets.
    if (socket.IsValid())
    {
        sockets.erase(socket);
        master.clr(socket.GetSocketDescriptor());
    }
    m_changed = false;
}

void CZySocketSelector::SetReadSocket(const CZySocket& socket)
{
    SetSocket(m_readSockets, m_readMaster, socket);
}

void CZySocketSelector::SetWriteSocket(const CZySocket& socket)
{
    SetSocket(m_writeSockets, m_writeMaster, socket);
}

void CZySocketSelector::SetExceptionSocket(const CZySocket& socket)
{
    SetSocket(m_exceptionSockets, m_exceptionMaster, socket);
}

void CZySocketSelector::ClearReadSocket(const CZySocket& socket)
{
    ClearSocket(m_readSockets, m_readMaster, socket);
}

void CZySocketSelector::ClearWriteSocket(const CZySocket& socket)
{
    ClearSocket(m_writeSockets, m_writeMaster, socket);
}

void CZySocketSelector::ClearExceptionSocket(const CZySocket& socket)
{
    ClearSocket(m_exceptionSockets, m_exceptionMaster, socket);
}

void CZySocketSelector::ClearAllReadSockets()
{
    m_readMaster.zero();
    m_readWorking.zero();
    m_readSockets.clear();
    m_changed = false;
}

void CZySocketSelector::ClearAllWriteSockets()
{
    m_writeMaster.zero();
    m_writeWorking.zero();
    m_writeSockets.clear();
    m_changed = false;
}

void CZySocketSelector::ClearAllExceptionSockets()
{
    m_exceptionMaster.zero();
    m_exceptionWorking.zero();
    m_exceptionSockets.clear();
    m_changed = false;
}

void CZySocketSelector::ClearAll()
{
    ClearAllReadSockets();
    ClearAllWriteSockets();
    ClearAllExceptionSockets();
    m_highest = 0;
    m_changed = true;
}

CZyError CZySocketSelector::Select(const struct timeval* limit, bool* timedOut)
{
    m_readWorking = m_readMaster;
    m_writeWorking = m_writeMaster;
    m_exceptionWorking = m_exceptionMaster;

    int ready = 0;
    int code = ZYNET_select(static_cast<int>(m_highest + 1), m_readWorking.get_fdsetp(), m_writeWorking.get_fdsetp(),
                            m_exceptionWorking.get_fdsetp(), limit, &ready);
    if (code == 0)
    {
        if (timedOut)
            *timedOut = (ready == 0);
        return CZyError::Success();
    }
    int last = ZYNET_getlasterror();
    if (last != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocketSelector::Select"), last);
    return CZyError::Success();
}

// Walks the ready handles and finds each registered object by handle, so the
// cost follows the number of ready sockets (times log n), not the number
// registered. The ordered result comes out in handle order.
CZySocketSelector::SocketSet CZySocketSelector::Selected(const SocketSet& sockets, ZyFdset& working)
{
    SocketSet result;
    const ZYNET_fd_set* ready = working.get_fdsetp();
    if (!ready || sockets.empty() || ready->fd_count == 0)
        return result;
    // The ready list is in registration order. Sorting a copy of it lets the
    // results be appended in handle order, so every insertion into the
    // result is a constant-time hinted one. A grown set keeps more slots
    // than the record's declared array, so the handles are read through a
    // pointer to the storage. The scratch vector is kept per thread so that
    // repeated waits do not allocate for it.
    static thread_local std::vector<ZYNET_SOCKET> order;
    const uint32_t* handles = ready->fd_array;
    order.assign(handles, handles + ready->fd_count);
    std::sort(order.begin(), order.end());

    const size_t registered = sockets.size();
    size_t logRegistered = 1;
    while ((static_cast<size_t>(1) << logRegistered) < registered)
        ++logRegistered;
    if (order.size() * logRegistered < registered)
    {
        // Few ready: one O(log n) look-up per ready handle.
        CZySocket probe;
        for (ZYNET_SOCKET handle : order)
        {
            if (handle == ZYNET_INVALID_SOCKET)
                continue;
            probe.AttachConnectedSocket(handle);
            SocketSet::const_iterator found = sockets.find(probe);
            if (found != sockets.end())
                result.insert(result.end(), *found);
        }
        return result;
    }
    // Many ready: one ordered walk over the registered sockets alongside the
    // sorted ready handles costs O(n) instead of O(ready * log n).
    SocketSet::const_iterator next = sockets.begin();
    for (ZYNET_SOCKET handle : order)
    {
        if (handle == ZYNET_INVALID_SOCKET)
            continue;
        while (next != sockets.end() && static_cast<ZYNET_SOCKET>(next->GetSocketDescriptor()) < handle)
            ++next;
        if (next == sockets.end())
            break;
        if (static_cast<ZYNET_SOCKET>(next->GetSocketDescriptor()) == handle)
        {
            result.insert(result.end(), *next);
            ++next;
        }
    }
    return result;
}

CZySocketSelector::SocketSet CZySocketSelector::GetReadSelected()
{
    return Selected(m_readSockets, m_readWorking);
}

CZySocketSelector::SocketSet CZySocketSelector::GetWriteSelected()
{
    return Selected(m_writeSockets, m_writeWorking);
}

CZySocketSelector::SocketSet CZySocketSelector::GetExceptionSelected()
{
    return Selected(m_exceptionSockets, m_exceptionWorking);
}
