// CZySocketSelector: waits on many sockets for reading, writing and
// exceptional conditions.
#pragma once

#include <set>

#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZySocket.h"

// Sockets stay registered until cleared; each Select waits on all of them
// again. The getters return copies of the registered objects that the last
// Select found ready, in handle order. Registering an object without a
// socket does nothing. Where the platform has a kernel event set (epoll on
// Linux) the selector keeps one in step with its registered sockets, so that
// a wait costs in proportion to the ready sockets; see docs/PLATFORMS.md.
class ZYNET_API CZySocketSelector
{
public:
    typedef std::set<CZySocket> SocketSet;

    CZySocketSelector();
    // A copy has the same registrations and results; it builds its own
    // kernel event set at its first Select.
    CZySocketSelector(const CZySocketSelector& other);
    // Takes `other`'s registrations and results, as the copy constructor.
    CZySocketSelector& operator=(const CZySocketSelector& other);
    ~CZySocketSelector();

    // Registers `socket` for reading, writing or exceptional conditions, once
    // per handle. A full descriptor set drops the registration silently.
    // @{
    void SetReadSocket(const CZySocket& socket);
    void SetWriteSocket(const CZySocket& socket);
    void SetExceptionSocket(const CZySocket& socket);
    // @}
    // Unregisters `socket` from one category; an unregistered socket is ignored.
    // @{
    void ClearReadSocket(const CZySocket& socket);
    void ClearWriteSocket(const CZySocket& socket);
    void ClearExceptionSocket(const CZySocket& socket);
    // @}
    // Unregisters every socket of one category.
    // @{
    void ClearAllReadSockets();
    void ClearAllWriteSockets();
    void ClearAllExceptionSockets();
    // @}
    // Unregisters every socket of every category.
    void ClearAll();

    // A null limit waits until something is ready; *timedOut (when given)
    // tells whether the limit passed with nothing ready.
    CZyError Select(const struct timeval* limit, bool* timedOut);

    // The registered sockets that the last Select found ready to read, to write or
    // with an exceptional condition (sockets cleared since are left out).
    // @{
    SocketSet GetReadSelected();
    SocketSet GetWriteSelected();
    SocketSet GetExceptionSelected();
    // @}

private:
    // The kernel event set, its state and an index of the registered
    // objects by handle (ZySocketSelector.cpp). Categories are numbered
    // 0 read, 1 write, 2 exception.
    struct Mirror;

    CZyError SetSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket, int category);
    void ClearSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket, int category);
    void ClearCategory(SocketSet& sockets, ZyFdset& master, ZyFdset& working, int category);
    SocketSet Selected(const SocketSet& sockets, ZyFdset& working, int category);
    bool MirrorReady();
    int CatchUpWithCloses();
    int WaitOnMirror(int timeoutMs, int* ready);
    void RecheckListed();
    CZyError ListWait(const struct timeval* limit, bool* timedOut, int* ready);

    SocketSet m_readSockets;
    SocketSet m_writeSockets;
    SocketSet m_exceptionSockets;
    ZyFdset m_readWorking;
    ZyFdset m_writeWorking;
    ZyFdset m_exceptionWorking;
    ZyFdset m_readMaster;
    ZyFdset m_writeMaster;
    ZyFdset m_exceptionMaster;
    ZYNET_SOCKET m_highest;
    bool m_changed;
    Mirror* m_mirror;
};
