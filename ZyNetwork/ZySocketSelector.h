// CZySocketSelector: waits on many sockets for reading, writing and
// exceptional conditions.
#pragma once

#include <set>

#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZySocket.h"

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
