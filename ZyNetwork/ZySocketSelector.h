// CZySocketSelector: waits on many sockets for reading, writing and
// exceptional conditions.
#pragma once

#include <set>

#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZySocket.h"

// Sockets stay registered until cleared; each Select waits on all of them
// again. The getters return copies of the registered objects that the last
// Select found ready, in handle order. Registering an object without a
// socket does nothing.
class ZYNET_API CZySocketSelector
{
public:
    typedef std::set<CZySocket> SocketSet;

    CZySocketSelector();
    CZySocketSelector(const CZySocketSelector& other) = default;
    CZySocketSelector& operator=(const CZySocketSelector& other) = default;

    void SetReadSocket(const CZySocket& socket);
    void SetWriteSocket(const CZySocket& socket);
    void SetExceptionSocket(const CZySocket& socket);
    void ClearReadSocket(const CZySocket& socket);
    void ClearWriteSocket(const CZySocket& socket);
    void ClearExceptionSocket(const CZySocket& socket);
    void ClearAllReadSockets();
    void ClearAllWriteSockets();
    void ClearAllExceptionSockets();
    void ClearAll();

    // A null limit waits until something is ready; *timedOut (when given)
    // tells whether the limit passed with nothing ready.
    CZyError Select(const struct timeval* limit, bool* timedOut);

    SocketSet GetReadSelected();
    SocketSet GetWriteSelected();
    SocketSet GetExceptionSelected();

private:
    CZyError SetSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket);
    void ClearSocket(SocketSet& sockets, ZyFdset& master, const CZySocket& socket);
    SocketSet Selected(const SocketSet& sockets, ZyFdset& working);

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
};
