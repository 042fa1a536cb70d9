// CZySocketSelector: registered sockets are kept twice per category, as an
// ordered set of socket objects (what callers get back) and as a master
// descriptor set (what the list wait sees). Each Select copies the masters
// into working sets, which the wait rewrites to the ready handles.
//
// Where the platform offers a kernel event set (epoll on Linux, through
// ZyNetwork/Internal/OsEventSet.h), a third copy of the registration lives
// in the kernel: every registration change is passed on, and Select asks
// the set, which writes the ready handles straight into the working sets.
// The list wait remains the reference: Select takes it whenever the event
// set is not known to be in step with the registration (no set on this
// platform, a descriptor the set refuses, a registered socket found
// closed), and when the previous wait found most registered sockets ready,
// where one poll() over all of them is cheaper than epoll's work per ready
// socket. See docs/PLATFORMS.md, "Selector and epoll".
#include "ZyNetwork/ZySocketSelector.h"

#include <limits.h>

#include <algorithm>
#include <vector>

#include "ZyNetwork/Internal/CloseJournal.h"
#include "ZyNetwork/Internal/OsEventSet.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZySocketSelector";

namespace
{
// Asks for every cache line of an object, without waiting for them.
inline void PrefetchObject(const void* object)
{
    const char* bytes = static_cast<const char*>(object);
    for (size_t offset = 0; offset < sizeof(CZySocket); offset += 64)
        __builtin_prefetch(bytes + offset);
}
}  // namespace

struct CZySocketSelector::Mirror
{
    enum State
    {
        kRebuild,   // no set, or one that must be made again before use
        kInStep,    // the set holds exactly the registered sockets
        kOutOfStep  // the set could not follow; the list wait is used until the registration changes
    };

    // Handles below this are indexed.
    static const ZYNET_SOCKET kIndexed = 1u << 16;

    zy::os::EventSet* set = nullptr;
    State state = kRebuild;
    // The registered object of each handle below kIndexed, per category:
    // pointers into the ordered sets (whose nodes never move), so that the
    // getters find a ready handle's object without a walk down the tree.
    std::vector<const CZySocket*> index[3];
    uint64_t journalSeen = 0;  // closes of the journal already looked at
    size_t lastReady = 0;      // handles the previous wait kept, over the three sets
    // Registration changes so far, and their number at the last wait: the
    // getters may hand back a whole registered set only while they agree.
    uint64_t changes = 0;
    uint64_t changesAtWait = 0;
    std::vector<ZYNET_SOCKET> closed;

    ~Mirror() { Drop(); }
    void Drop()
    {
        zy::os::EventSetDestroy(set);
        set = nullptr;
        state = kRebuild;
    }
    // A registration change while the set is not in step: build it afresh
    // at the next Select.
    void Changed()
    {
        if (state != kInStep)
            Drop();
    }
    void Index(int category, ZYNET_SOCKET handle, const CZySocket* socket)
    {
        if (handle >= kIndexed)
            return;
        std::vector<const CZySocket*>& slots = index[category];
        if (handle >= slots.size())
        {
            if (socket == nullptr)
                return;
            slots.resize(std::max<size_t>(size_t(handle) + 1, slots.size() * 2), nullptr);
        }
        slots[handle] = socket;
    }
    const CZySocket* Find(int category, ZYNET_SOCKET handle) const
    {
        const std::vector<const CZySocket*>& slots = index[category];
        return handle < slots.size() ? slots[handle] : nullptr;
    }
    void Reindex(const SocketSet* sets[3])
    {
        for (int k = 0; k < 3; ++k)
        {
            index[k].clear();
            for (const CZySocket& socket : *sets[k])
                Index(k, socket.GetSocketDescriptor(), &socket);
        }
    }
};

CZySocketSelector::CZySocketSelector() : m_highest(0), m_changed(false), m_mirror(new Mirror())
{
    ClearAll();
}

CZySocketSelector::CZySocketSelector(const CZySocketSelector& other)
    : m_readSockets(other.m_readSockets),
      m_writeSockets(other.m_writeSockets),
      m_exceptionSockets(other.m_exceptionSockets),
      m_readWorking(other.m_readWorking),
      m_writeWorking(other.m_writeWorking),
      m_exceptionWorking(other.m_exceptionWorking),
      m_readMaster(other.m_readMaster),
      m_writeMaster(other.m_writeMaster),
      m_exceptionMaster(other.m_exceptionMaster),
      m_highest(other.m_highest),
      m_changed(other.m_changed),
      m_mirror(new Mirror())
{
    m_mirror->lastReady = other.m_mirror->lastReady;
    m_mirror->changes = other.m_mirror->changes;
    m_mirror->changesAtWait = other.m_mirror->changesAtWait;
    const SocketSet* sets[3] = {&m_readSockets, &m_writeSockets, &m_exceptionSockets};
    m_mirror->Reindex(sets);
}

CZySocketSelector& CZySocketSelector::operator=(const CZySocketSelector& other)
{
    if (this == &other)
        return *this;
    m_readSockets = other.m_readSockets;
    m_writeSockets = other.m_writeSockets;
    m_exceptionSockets = other.m_exceptionSockets;
    m_readWorking = other.m_readWorking;
    m_writeWorking = other.m_writeWorking;
    m_exceptionWorking = other.m_exceptionWorking;
    m_readMaster = other.m_readMaster;
    m_writeMaster = other.m_writeMaster;
    m_exceptionMaster = other.m_exceptionMaster;
    m_highest = other.m_highest;
    m_changed = other.m_changed;
    m_mirror->Drop();
    m_mirror->lastReady = other.m_mirror->lastReady;
    m_mirror->changes = other.m_mirror->changes;
    m_mirror->changesAtWait = other.m_mirror->changesAtWait;
    const SocketSet* sets[3] = {&m_readSockets, &m_writeSockets, &m_exceptionSockets};
    m_mirror->Reindex(sets);
    return *this;
}

CZySocketSelector::~CZySocketSelector()
{
    delete m_mirror;
}

CZyError CZySocketSelector::SetSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket, int category)
{
    if (!socket.IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocketSelector::SetSocket"), zy::err::kInvalidSocket, "Invalid socket");
    ZYNET_SOCKET handle = socket.GetSocketDescriptor();
    CZyError err = master.set(handle);
    if (err.IsError())
        return err.Push(ZY_LOC("CZySocketSelector::SetSocket"));
    const CZySocket& registered = *sockets.insert(socket).first;
    ++m_mirror->changes;
    m_mirror->Index(category, handle, &registered);
    if (handle > m_highest)
        m_highest = handle;
    // Also when the handle was registered already: the set then checks that
    // it still watches the descriptor now open under that number.
    if (m_mirror->state == Mirror::kInStep)
    {
        if (zy::os::EventSetAdd(m_mirror->set, handle, 1u << category) != zy::os::EVENTSET_OK)
            m_mirror->state = Mirror::kOutOfStep;
    }
    else
        m_mirror->Changed();
    return CZyError::Success();
}

void CZySocketSelector::ClearSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket, int category)
{
    // An object without a handle was never registered; it must not reach the
    // set's lookup either, since it does not order against valid sockets.
    if (socket.IsValid())
    {
        sockets.erase(socket);
        master.clr(socket.GetSocketDescriptor());
        ++m_mirror->changes;
        m_mirror->Index(category, socket.GetSocketDescriptor(), nullptr);
        if (m_mirror->state == Mirror::kInStep)
            zy::os::EventSetRemove(m_mirror->set, socket.GetSocketDescriptor(), 1u << category);
        else
            m_mirror->Changed();
    }
    m_changed = false;
}

void CZySocketSelector::ClearCategory(SocketSet& sockets, ZyFdset& master, ZyFdset& working, int category)
{
    if (m_mirror->state == Mirror::kInStep)
    {
        for (const CZySocket& socket : sockets)
            zy::os::EventSetRemove(m_mirror->set, socket.GetSocketDescriptor(), 1u << category);
    }
    else if (!sockets.empty())
        m_mirror->Changed();
    m_mirror->index[category].clear();
    ++m_mirror->changes;
    master.zero();
    working.zero();
    sockets.clear();
    m_changed = false;
}

void CZySocketSelector::SetReadSocket(const CZySocket& socket)
{
    SetSocket(m_readSockets, m_readMaster, socket, 0);
}

void CZySocketSelector::SetWriteSocket(const CZySocket& socket)
{
    SetSocket(m_writeSockets, m_writeMaster, socket, 1);
}

void CZySocketSelector::SetExceptionSocket(const CZySocket& socket)
{
    SetSocket(m_exceptionSockets, m_exceptionMaster, socket, 2);
}

void CZySocketSelector::ClearReadSocket(const CZySocket& socket)
{
    ClearSocket(m_readSockets, m_readMaster, socket, 0);
}

void CZySocketSelector::ClearWriteSocket(const CZySocket& socket)
{
    ClearSocket(m_writeSockets, m_writeMaster, socket, 1);
}

void CZySocketSelector::ClearExceptionSocket(const CZySocket& socket)
{
    ClearSocket(m_exceptionSockets, m_exceptionMaster, socket, 2);
}

void CZySocketSelector::ClearAllReadSockets()
{
    ClearCategory(m_readSockets, m_readMaster, m_readWorking, 0);
}

void CZySocketSelector::ClearAllWriteSockets()
{
    ClearCategory(m_writeSockets, m_writeMaster, m_writeWorking, 1);
}

void CZySocketSelector::ClearAllExceptionSockets()
{
    ClearCategory(m_exceptionSockets, m_exceptionMaster, m_exceptionWorking, 2);
}

void CZySocketSelector::ClearAll()
{
    // Nothing stays registered: the event set is made afresh when needed.
    m_mirror->Drop();
    m_mirror->lastReady = 0;
    ClearAllReadSockets();
    ClearAllWriteSockets();
    ClearAllExceptionSockets();
    m_highest = 0;
    m_changed = true;
}

// Whether this wait can ask the event set: builds it when the registration
// changed while it was not in step. The list wait stays in charge when the
// previous wait found more than half of the registered entries ready.
bool CZySocketSelector::MirrorReady()
{
    const size_t registered = m_readSockets.size() + m_writeSockets.size() + m_exceptionSockets.size();
    if (registered == 0 || m_mirror->lastReady * 2 > registered)
        return false;
    Mirror& mirror = *m_mirror;
    if (mirror.state == Mirror::kRebuild)
    {
        mirror.Drop();
        mirror.set = zy::os::EventSetCreate();
        if (mirror.set == nullptr)
        {
            mirror.state = Mirror::kOutOfStep;
            return false;
        }
        mirror.journalSeen = zy::journal::Generation();
        mirror.state = Mirror::kInStep;
        const SocketSet* sets[3] = {&m_readSockets, &m_writeSockets, &m_exceptionSockets};
        for (int k = 0; k < 3 && mirror.state == Mirror::kInStep; ++k)
        {
            for (const CZySocket& socket : *sets[k])
            {
                if (zy::os::EventSetAdd(mirror.set, socket.GetSocketDescriptor(), 1u << k) != zy::os::EVENTSET_OK)
                {
                    mirror.state = Mirror::kOutOfStep;
                    break;
                }
            }
        }
    }
    return mirror.state == Mirror::kInStep;
}

// Sockets closed through the library since the last look: those still
// registered are checked (a closed one fails; a reused number is watched
// anew). More than the journal holds: the set is built again. Anything but
// EVENTSET_OK leaves the set out of step, so that the list wait reports
// what the set could not (10038 for a registered socket that was closed).
int CZySocketSelector::CatchUpWithCloses()
{
    Mirror& mirror = *m_mirror;
    const uint64_t generation = zy::journal::Generation();
    if (generation == mirror.journalSeen)
        return zy::os::EVENTSET_OK;
    mirror.closed.clear();
    if (!zy::journal::ClosedSince(mirror.journalSeen, generation, mirror.closed))
    {
        mirror.state = Mirror::kRebuild;
        return MirrorReady() ? zy::os::EVENTSET_OK : zy::os::EVENTSET_FAILED;
    }
    for (ZYNET_SOCKET handle : mirror.closed)
    {
        const int rc = zy::os::EventSetCheck(mirror.set, handle);
        if (rc != zy::os::EVENTSET_OK)
        {
            mirror.state = Mirror::kOutOfStep;
            return rc;
        }
    }
    mirror.journalSeen = generation;
    return zy::os::EVENTSET_OK;
}

// The wait through the event set, into the working sets. Anything but
// EVENTSET_OK leaves the set out of step (the working sets untouched).
int CZySocketSelector::WaitOnMirror(int timeoutMs, int* ready)
{
    // Each working set gets room for every handle registered in its
    // category (a copy of the master grows it, once).
    ZyFdset* masters[3] = {&m_readMaster, &m_writeMaster, &m_exceptionMaster};
    ZyFdset* working[3] = {&m_readWorking, &m_writeWorking, &m_exceptionWorking};
    uint32_t capacity[3];
    for (int k = 0; k < 3; ++k)
    {
        if (working[k]->capacity() < masters[k]->count())
            *working[k] = *masters[k];
        working[k]->get_fdsetp();  // allocates an unused set
        capacity[k] = working[k]->capacity();
    }
    const int rc = zy::os::EventSetWait(m_mirror->set, timeoutMs, m_readWorking.get_fdsetp(),
                                      m_writeWorking.get_fdsetp(), m_exceptionWorking.get_fdsetp(), capacity, ready);
    if (rc != zy::os::EVENTSET_OK)
        m_mirror->state = Mirror::kOutOfStep;
    return rc;
}

// The list wait over every registered socket (the platform's select(), or
// poll() on Linux): the reference behaviour that the epoll path keeps.
CZyError CZySocketSelector::ListWait(const struct timeval* limit, bool* timedOut, int* ready)
{
    m_readWorking = m_readMaster;
    m_writeWorking = m_writeMaster;
    m_exceptionWorking = m_exceptionMaster;

    int code = ZYNET_select(static_cast<int>(m_highest + 1), m_readWorking.get_fdsetp(), m_writeWorking.get_fdsetp(),
                            m_exceptionWorking.get_fdsetp(), limit, ready);
    if (code == 0)
    {
        m_mirror->lastReady = static_cast<size_t>(*ready);
        if (timedOut)
            *timedOut = (*ready == 0);
        return CZyError::Success();
    }
    int last = ZYNET_getlasterror();
    if (last != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocketSelector::Select"), last);
    return CZyError::Success();
}

CZyError CZySocketSelector::Select(const struct timeval* limit, bool* timedOut)
{
    int ready = 0;
    m_mirror->changesAtWait = m_mirror->changes;
    // The event set serves a wait with a valid limit (converted as the list
    // wait converts it); everything else goes to the list wait, which
    // reports it as before.
    if ((limit == nullptr || (limit->tv_sec >= 0 && limit->tv_usec >= 0)) && MirrorReady() &&
        CatchUpWithCloses() == zy::os::EVENTSET_OK && WaitOnMirror(0, &ready) == zy::os::EVENTSET_OK)
    {
        if (ready == 0)
        {
            // Nothing ready at the first look. The kernel forgets a closed
            // descriptor silently, so before reporting a time-out or
            // blocking, one zero-limit list wait looks at every registered
            // socket: it fails with 10038 for one that was closed, as a
            // Select always did, and reports a number that now names a new
            // socket the set does not watch (which the set then takes on).
            const struct timeval noWait = {0, 0};
            CZyError look = ListWait(&noWait, timedOut, &ready);
            if (look.IsError() || ready != 0)
            {
                if (look.IsError())
                    m_mirror->state = Mirror::kOutOfStep;
                else
                    RecheckListed();
                return look;
            }
            int timeoutMs = -1;
            if (limit != nullptr)
            {
                long long ms = static_cast<long long>(limit->tv_sec) * 1000;
                ms += (static_cast<long long>(limit->tv_usec) + 999) / 1000;
                timeoutMs = ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
            }
            if (timeoutMs != 0 && WaitOnMirror(timeoutMs, &ready) != zy::os::EVENTSET_OK)
                return ListWait(limit, timedOut, &ready);
        }
        m_mirror->lastReady = static_cast<size_t>(ready);
        if (timedOut)
            *timedOut = (ready == 0);
        return CZyError::Success();
    }
    return ListWait(limit, timedOut, &ready);
}

// After the list wait found sockets ready that the event set did not: each
// is checked, so that a reused number is watched from now on.
void CZySocketSelector::RecheckListed()
{
    ZyFdset* working[3] = {&m_readWorking, &m_writeWorking, &m_exceptionWorking};
    for (ZyFdset* set : working)
    {
        const ZYNET_fd_set* listed = set->get_fdsetp();
        const uint32_t* handles = listed ? listed->fd_array : nullptr;
        for (uint32_t i = 0; handles && i < listed->fd_count; ++i)
        {
            if (zy::os::EventSetCheck(m_mirror->set, handles[i]) != zy::os::EVENTSET_OK)
            {
                m_mirror->state = Mirror::kOutOfStep;
                return;
            }
        }
    }
}

// Sorts the ready handles and finds each registered object through the
// index (a tree look-up for handles too large for it), so the cost follows
// the number of ready sockets, not the number registered. The results are
// appended in handle order, so every insertion is a constant-time hinted
// one.
CZySocketSelector::SocketSet CZySocketSelector::Selected(const SocketSet& sockets, ZyFdset& working, int category)
{
    SocketSet result;
    const ZYNET_fd_set* ready = working.get_fdsetp();
    if (!ready || sockets.empty() || ready->fd_count == 0)
        return result;
    // Every registered socket ready (each handle is listed once) and the
    // registration unchanged since the wait: the result is a copy of the
    // ordered set, which copies the tree as it stands instead of inserting
    // node by node. After a change, the handles are looked up one by one,
    // so that only sockets registered now and found ready come back.
    if (ready->fd_count == sockets.size() && m_mirror->changes == m_mirror->changesAtWait)
        return sockets;
    // A grown set keeps more slots than the record's declared array, so the
    // handles are read through a pointer to the storage. The scratch vector
    // is kept per thread so that repeated waits do not allocate for it.
    static thread_local std::vector<ZYNET_SOCKET> order;
    const uint32_t* handles = ready->fd_array;
    order.assign(handles, handles + ready->fd_count);
    if (!std::is_sorted(order.begin(), order.end()))
        std::sort(order.begin(), order.end());

    // First the registered objects are found, and their memory fetched
    // ahead: they lie scattered over the tree's nodes, and copying them one
    // after another would wait for each cache miss in turn.
    static thread_local std::vector<const CZySocket*> found;
    found.clear();
    for (ZYNET_SOCKET handle : order)
    {
        if (handle == ZYNET_INVALID_SOCKET)
            continue;
        const CZySocket* socket = m_mirror->Find(category, handle);
        if (socket == nullptr && handle >= Mirror::kIndexed)
        {
            CZySocket probe;
            probe.AttachConnectedSocket(handle);
            SocketSet::const_iterator it = sockets.find(probe);
            if (it != sockets.end())
                socket = &*it;
        }
        if (socket != nullptr)
        {
            PrefetchObject(socket);
            found.push_back(socket);
        }
    }
    for (const CZySocket* socket : found)
        result.insert(result.end(), *socket);
    return result;
}

CZySocketSelector::SocketSet CZySocketSelector::GetReadSelected()
{
    return Selected(m_readSockets, m_readWorking, 0);
}

CZySocketSelector::SocketSet CZySocketSelector::GetWriteSelected()
{
    return Selected(m_writeSockets, m_writeWorking, 1);
}

CZySocketSelector::SocketSet CZySocketSelector::GetExceptionSelected()
{
    return Selected(m_exceptionSockets, m_exceptionWorking, 2);
}
