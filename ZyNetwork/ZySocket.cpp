// The socket classes: CZySocketDescriptor and CZySocket. Every operation
// checks the object's state, makes one flat ZYNET_* call and turns its code
// into an error value. The flat functions live in ZySocketCalls.cpp.
#include "ZyNetwork/ZySocket.h"

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/ZySocketSelector.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZySocket";

namespace
{
// IPPROTO_TCP and TCP_NODELAY have these values on Linux and Windows alike.
const int kLevelTcp = 6;
const int kOptionNoDelay = 1;

// Asks for the loopback fast path when it is enabled. The request is
// advisory: its failure is dropped and the thread's last socket error is
// put back, so a caller reading it after a successful operation does not
// see the dropped failure.
void RequestFastLoopBack(bool enabled, ZYNET_SOCKET handle)
{
    if (!enabled)
        return;
    int saved = ZYNET_getlasterror();
    (void)zy::os::RequestLoopbackFastPath(handle);
    ZYNET_setlasterror(saved);
}

void ReportCount(int* out, int count)
{
    if (out)
        *out = count;
}
}  // namespace

// ---- CZySocketDescriptor ---------------------------------------------------

std::string CZySocketDescriptor::AsString(ZYNET_SOCKET handle)
{
    // Handles are 32-bit everywhere, so every platform prints eight digits.
    return FXString::Format("0x%08X", static_cast<unsigned int>(handle));
}

// ---- CZySocket: values -------------------------------------------------------

bool CZySocket::bEnableLoopBack = false;

CZySocket::CZySocket() : m_handle(ZYNET_INVALID_SOCKET) {}

CZySocket::CZySocket(const sockaddr_in& address) : m_handle(ZYNET_INVALID_SOCKET), m_address(address) {}

CZySocket::CZySocket(const sockaddr_in6& address) : m_handle(ZYNET_INVALID_SOCKET), m_address(address) {}

CZySocket::CZySocket(const CZyIPAddr& address) : m_handle(ZYNET_INVALID_SOCKET), m_address(address) {}

CZySocket::CZySocket(const char* address) : m_handle(ZYNET_INVALID_SOCKET), m_address(address) {}

CZySocket::CZySocket(const CZySocket& other) : m_handle(other.m_handle), m_address(other.m_address) {}

CZySocket& CZySocket::operator=(const CZySocket& other)
{
    m_handle = other.m_handle;
    m_address = other.m_address;
    return *this;
}

CZySocket& CZySocket::operator=(const sockaddr_in& address)
{
    m_handle = ZYNET_INVALID_SOCKET;
    m_address = address;
    return *this;
}

CZySocket& CZySocket::operator=(const sockaddr_in6& address)
{
    m_handle = ZYNET_INVALID_SOCKET;
    m_address = address;
    return *this;
}

CZySocket& CZySocket::operator=(const CZyIPAddr& address)
{
    m_handle = ZYNET_INVALID_SOCKET;
    m_address = address;
    return *this;
}

CZySocket& CZySocket::operator=(const char* address)
{
    m_handle = ZYNET_INVALID_SOCKET;
    m_address = address;
    return *this;
}

bool CZySocket::operator==(const CZySocket& other) const
{
    if (!other.IsValid())
        return false;
    return m_handle == other.m_handle;
}

bool CZySocket::operator<(const CZySocket& other) const
{
    if (!other.IsValid())
        return false;
    return m_handle < other.m_handle;
}

CZyIPAddr::IP_FAMILY CZySocket::GetAddressFamily() const
{
    return static_cast<CZyIPAddr::IP_FAMILY>(ZYNET_getsockfamily(m_handle));
}

CZySocket CZySocket::Dummy()
{
    // Built on first use rather than as a static member, so that it never
    // runs before the address class's own process-wide values exist.
    static const CZySocket dummy;
    return dummy;
}

void CZySocket::SetFastLoopBack(bool enable)
{
    bEnableLoopBack = enable;
}

// ---- CZySocket: creation and connection --------------------------------------

CZyError CZySocket::Socket(const CZyIPAddr& address)
{
    if (IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Socket"), zy::err::kStateError, "Socket already in use");
    ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
    int code = ZYNET_socket(address.GetAddressFamily(), &handle);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Socket"), code);
    m_handle = handle;
    m_address = address;
    return CZyError::Success();
}

CZyError CZySocket::DgramSocket(const CZyIPAddr& address)
{
    if (IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::DgramSocket"), zy::err::kStateError, "Socket already in use");
    ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
    int code = ZYNET_dgramsocket(address.GetAddressFamily(), &handle);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::DgramSocket"), code);
    m_handle = handle;
    m_address = address;
    return CZyError::Success();
}

CZyError CZySocket::ICMPSocket(const CZyIPAddr& address, CZyIPAddr::IP_FAMILY family)
{
    if (IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::ICMPSocket"), zy::err::kStateError, "Socket already in use");
    ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
    int code = ZYNET_icmpsocket(family, &handle);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::ICMPSocket"), code);
    m_handle = handle;
    m_address = address;
    return CZyError::Success();
}

CZyError CZySocket::Bind(const CZyIPAddr& address)
{
    if (!IsValid())
    {
        ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
        int code = ZYNET_socket(address.GetAddressFamily(), &handle);
        if (code != 0)
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Bind"), code);
        m_handle = handle;
        m_address = address;
    }
    int code = ZYNET_bind(m_handle, address.SockAddrPtr());
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Bind"), code);
    m_address = address;
    return CZyError::Success();
}

CZyError CZySocket::Listen(int backlog)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Listen"), zy::err::kStateError, "Not a bound socket");
    int code = ZYNET_listen(m_handle, backlog);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Listen"), code);
    RequestFastLoopBack(bEnableLoopBack, m_handle);
    return CZyError::Success();
}

CZyError CZySocket::Connect(const CZyIPAddr& address)
{
    if (!IsValid())
    {
        ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
        int code = ZYNET_socket(address.GetAddressFamily(), &handle);
        if (code != 0)
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Connect"), code);
        m_handle = handle;
        m_address = address;
    }
    RequestFastLoopBack(bEnableLoopBack, m_handle);
    int code = ZYNET_connect(m_handle, address.SockAddrPtr());
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Connect"), code);
    m_address = address;
    return CZyError::Success();
}

CZyError CZySocket::Accept(CZySocket& out)
{
    if (out.IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Accept"), zy::err::kStateError,
                                       "Output socket object is already a connected socket");
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Accept"), zy::err::kStateError, "Not a listening socket");
    ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
    ZYNET_SockAddr peer = {};
    int code = ZYNET_accept(m_handle, &handle, &peer);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Accept"), code);
    // A failed platform accept still comes back as code 0 with an invalid
    // handle (the flat call's convention), so the output object stays empty:
    // callers test out.IsValid(), and the thread's last socket error says why.
    out.AttachConnectedSocket(handle, CZyIPAddr(peer));
    return CZyError::Success();
}

CZyError CZySocket::AcceptWithTimeout(CZySocket& out, int seconds, int* timedOut)
{
    CZySocketSelector selector;
    selector.SetReadSocket(*this);
    selector.SetExceptionSocket(*this);

    if (!timedOut)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::AcceptWithTimeout"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, pnTimedOut is NULL");
    *timedOut = 0;

    if (seconds < 1)
    {
        CZyError err = Accept(out);
        if (err.IsError())
            err.Push(ZY_LOC("CZySocket::AcceptWithTimeout"));
        return err;
    }

    // An object without a socket was not registered, so the wait has nothing
    // to watch and fails ("select call failed"); an output object that
    // already holds a socket is refused by Accept only once a client came.
    struct timeval limit;
    limit.tv_sec = seconds;
    limit.tv_usec = 0;
    bool waitTimedOut = false;
    CZyError err = selector.Select(&limit, &waitTimedOut);
    if (waitTimedOut)
    {
        *timedOut = 1;
        return FXErrorUtil::ErrorErrNo(ZY_LOC("CZySocket::AcceptWithTimeout"), zy::err::kErrnoTime,
                                       "no connection request received from client within the timeout %d",
                                       seconds);
    }
    if (err.IsError())
        return err.Push(ZY_LOC("CZySocket::AcceptWithTimeout"), "select call failed");

    if (!selector.GetExceptionSelected().empty())
        return FXErrorUtil::ErrorErrNo(ZY_LOC("CZySocket::AcceptWithTimeout"), zy::err::kErrnoIo,
                                       "exception detected on socket %s",
                                       CZySocketDescriptor::AsString(m_handle).c_str());
    err = Accept(out);
    if (err.IsError())
        err.Push(ZY_LOC("CZySocket::AcceptWithTimeout"));
    return err;
}

// ---- CZySocket: transfers ----------------------------------------------------

CZyError CZySocket::Recv(void* buffer, int length, int flags, int* received)
{
    if (!IsValid())
    {
        ReportCount(received, 0);
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Recv"), zy::err::kStateError, "Not a valid socket");
    }
    int count = 0;
    int code = ZYNET_recv(m_handle, buffer, length, &count, flags);
    ReportCount(received, count);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Recv"), code);
    if (count < length)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Recv"), zy::err::kStateError, "Socket shutdown detected");
    return CZyError::Success();
}

CZyError CZySocket::Send(const void* buffer, int length, int flags, int* sent)
{
    if (!IsValid())
    {
        ReportCount(sent, 0);
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Send"), zy::err::kStateError, "Not a valid socket");
    }
    int count = 0;
    int code = ZYNET_send(m_handle, buffer, length, &count, flags);
    ReportCount(sent, count);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Send"), code);
    if (count < length)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Send"), zy::err::kStateError, "Socket shutdown detected");
    return CZyError::Success();
}

CZyError CZySocket::RecvWithTimeout(void* buffer, int length, int seconds, int* timedOut, int flags, int* received)
{
    ReportCount(received, 0);
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvWithTimeout"), zy::err::kStateError, "Not a valid socket");
    if (!timedOut)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvWithTimeout"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, pnTimedOut is NULL");
    int count = 0;
    int code = ZYNET_recvwithtimeout(m_handle, buffer, length, &count, seconds, timedOut, flags);
    ReportCount(received, count);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvWithTimeout"), code);
    if (*timedOut == 1)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvWithTimeout"), zy::err::kStateError,
                                       "Socket receive timed out");
    if (count < length)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvWithTimeout"), zy::err::kStateError,
                                       "Socket shutdown detected");
    return CZyError::Success();
}

CZyError CZySocket::SendWithTimeOut(const void* buffer, int length, int seconds, int* timedOut, int flags, int* sent)
{
    ReportCount(sent, 0);
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendWithTimeOut"), zy::err::kStateError, "Not a valid socket");
    if (!timedOut)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendWithTimeOut"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, pnTimedOut is NULL");
    int count = 0;
    int code = ZYNET_sendwithtimeout(m_handle, buffer, length, &count, seconds, timedOut, flags);
    ReportCount(sent, count);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendWithTimeOut"), code);
    if (*timedOut == 1)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendWithTimeOut"), zy::err::kStateError,
                                       "Socket send timed out");
    if (count < length)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendWithTimeOut"), zy::err::kStateError,
                                       "Socket shutdown detected");
    return CZyError::Success();
}

CZyError CZySocket::RecvfromICMPSocket(void* buffer, int length, int seconds, int* timedOut, int flags,
                                       int* received)
{
    ReportCount(received, 0);
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvfromICMPSocket"), zy::err::kStateError,
                                       "Not a valid socket");
    if (!timedOut)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvfromICMPSocket"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, pnTimedOut is NULL");
    // The sender's address is received into a copy: the object keeps the
    // address it was made for, so a stray datagram never redirects later
    // sends.
    ZYNET_SockAddr peer = m_address.GetSockAddr();
    int count = 0;
    int code = ZYNET_recvfromicmpsocket(m_handle, &peer, buffer, length, &count, flags, seconds, timedOut);
    ReportCount(received, count);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvfromICMPSocket"), code);
    if (*timedOut == 1)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::RecvfromICMPSocket"), zy::err::kStateError,
                                       "Socket receive timed out");
    return CZyError::Success();
}

CZyError CZySocket::SendtoICMPSocket(const void* buffer, int length, int seconds, int* timedOut, int flags, int* sent)
{
    ReportCount(sent, 0);
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendtoICMPSocket"), zy::err::kStateError, "Not a valid socket");
    if (!timedOut)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendtoICMPSocket"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, pnTimedOut is NULL");
    ZYNET_SockAddr peer = m_address.GetSockAddr();
    int count = 0;
    int code = ZYNET_sendtoicmpsocket(m_handle, &peer, buffer, length, &count, flags, seconds, timedOut);
    ReportCount(sent, count);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendtoICMPSocket"), code);
    if (*timedOut == 1)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SendtoICMPSocket"), zy::err::kStateError,
                                       "Socket send timed out");
    return CZyError::Success();
}

// ---- CZySocket: options and addresses ----------------------------------------

CZyError CZySocket::GetSockOpt(int level, int option, char* value, int* length)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetSockOpt"), zy::err::kStateError, "Not a valid socket");
    int code = ZYNET_getsockopt(m_handle, level, option, value, length);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetSockOpt"), code);
    return CZyError::Success();
}

CZyError CZySocket::SetSockOpt(int level, int option, char* value, int length)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SetSockOpt"), zy::err::kStateError, "Not a valid socket");
    int code = ZYNET_setsockopt(m_handle, level, option, value, length);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SetSockOpt"), code);
    return CZyError::Success();
}

CZyError CZySocket::NagleOff()
{
    int32_t value = 1;
    CZyError err = SetSockOpt(kLevelTcp, kOptionNoDelay, reinterpret_cast<char*>(&value), sizeof(value));
    if (err.IsError())
        err.Push(ZY_LOC("CZySocket::NagleOff"));
    return err;
}

CZyError CZySocket::NagleOn()
{
    int32_t value = 0;
    CZyError err = SetSockOpt(kLevelTcp, kOptionNoDelay, reinterpret_cast<char*>(&value), sizeof(value));
    if (err.IsError())
        err.Push(ZY_LOC("CZySocket::NagleOn"));
    return err;
}

CZyError CZySocket::SetToBlocking()
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SetToBlocking"), zy::err::kStateError, "Not a valid socket");
    int code = ZYNET_setblocking(m_handle);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SetToBlocking"), code);
    return CZyError::Success();
}

CZyError CZySocket::SetToNonBlocking()
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SetToNonBlocking"), zy::err::kStateError, "Not a valid socket");
    int code = ZYNET_setnonblocking(m_handle);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::SetToNonBlocking"), code);
    return CZyError::Success();
}

CZyError CZySocket::GetReadQueueLen(unsigned int* length)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetReadQueueLen"), zy::err::kStateError, "Not a valid socket");
    if (!length)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetReadQueueLen"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, length is NULL");
    // The FIONREAD request itself differs by platform, so the boundary
    // makes it; its failure is stored as the thread's last socket error.
    unsigned int queued = 0;
    int code = zy::os::ReadQueueLength(m_handle, &queued);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetReadQueueLen"), code);
    *length = queued;
    return CZyError::Success();
}

CZyError CZySocket::GetLocalAddress(CZyIPAddr& address)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetLocalAddress"), zy::err::kStateError, "Not a valid socket");
    ZYNET_SockAddr record = {};
    int code = ZYNET_getsockname(m_handle, &record);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetLocalAddress"), code);
    address = record;
    return CZyError::Success();
}

CZyError CZySocket::GetPeerAddress(CZyIPAddr& address)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetPeerAddress"), zy::err::kStateError, "Not a valid socket");
    ZYNET_SockAddr record = {};
    int code = ZYNET_getpeername(m_handle, &record);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::GetPeerAddress"), code);
    address = record;
    return CZyError::Success();
}

// The text forms answer "" when the address cannot be read or printed.
std::string CZySocket::GetLocalAddressString()
{
    CZyIPAddr address;
    CZyString text;
    if (GetLocalAddress(address).IsError() || address.GetAddressString(text).IsError())
        return std::string();
    return text.str();
}

std::string CZySocket::GetPeerAddressString()
{
    CZyIPAddr address;
    CZyString text;
    if (GetPeerAddress(address).IsError() || address.GetAddressString(text).IsError())
        return std::string();
    return text.str();
}

CZyError CZySocket::Shutdown(int how)
{
    int code = ZYNET_shutdown(m_handle, how);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::Shutdown"), code);
    return CZyError::Success();
}

CZyError CZySocket::CreateSocketPair(CZySocket* first, CZySocket* second)
{
    if (!first || !second)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::CreateSocketPair"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, socket object is NULL");
    ZYNET_SOCKET pair[2] = {ZYNET_INVALID_SOCKET, ZYNET_INVALID_SOCKET};
    if (ZYNET_socketpair(pair) != 0)
    {
        // Without a stored socket error the call counts as done and both
        // objects stay as they were; the caller tests IsValid.
        int last = ZYNET_getlasterror();
        if (last != 0)
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZySocket::CreateSocketPair"), last,
                                           "Failed to create a socket pair");
        return CZyError::Success();
    }
    first->AttachConnectedSocket(pair[0]);
    second->AttachConnectedSocket(pair[1]);
    return CZyError::Success();
}

// ---- CZySocket: life cycle ---------------------------------------------------

void CZySocket::Close()
{
    if (IsValid())
        ZYNET_close(m_handle);
    Clear();
}

void CZySocket::Clear()
{
    m_handle = ZYNET_INVALID_SOCKET;
    m_address.Clear();
}

void CZySocket::AttachConnectedSocket(ZYNET_SOCKET handle)
{
    m_handle = handle;
    m_address.Clear();
}

void CZySocket::AttachConnectedSocket(ZYNET_SOCKET handle, CZyIPAddr address)
{
    m_handle = handle;
    m_address = address;
}
