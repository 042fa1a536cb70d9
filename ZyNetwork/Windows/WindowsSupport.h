// What the files of the Windows half of the OS boundary share: Winsock's
// headers, failing with a code, handle widening and narrowing, the record
// copies with Winsock's storage, and the normalising of resolver codes.
// Internal to ZyNetwork/Windows/.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/Internal/OsCommon.h"
#include "ZyUtils/Internal/ErrorCodes.h"

namespace zy::os
{
namespace win
{
inline int Fail(int code)
{
    WSASetLastError(code);
    return code;
}

inline int FailLast()
{
    int code = WSAGetLastError();
    return code != 0 ? code : Fail(WSAEINVAL);
}

inline SOCKET Wide(ZYNET_SOCKET handle)
{
    return handle == ZYNET_INVALID_SOCKET ? INVALID_SOCKET : static_cast<SOCKET>(handle);
}

// Kernel handles carry 32 significant bits; a value that does not fit (never
// seen in practice) is refused rather than truncated into another handle.
inline int Narrow(SOCKET socket, ZYNET_SOCKET* out)
{
    if (socket > static_cast<SOCKET>(0xFFFFFFFEu))
    {
        closesocket(socket);
        return Fail(WSAEMFILE);
    }
    *out = static_cast<ZYNET_SOCKET>(socket);
    return 0;
}

// Winsock's family numbers are the portable ones.
inline int SameFamily(int family)
{
    return family;
}

// The caller's record in a zeroed storage, so that a length longer than the
// record never lets Winsock read past it.
inline bool ToOs(const ZYNET_SockAddr* addr, int length, sockaddr_storage* os, int* osLength)
{
    return common::RecordToOs(addr, length, os, osLength, SameFamily);
}

inline int OsCapacity(int capacity)
{
    return common::Capacity<sockaddr_storage, int>(capacity);
}

inline void StoreWritten(const sockaddr_storage& os, int osLength, ZYNET_SockAddr* out, int* length)
{
    common::StoreWritten(os, osLength, out, length, SameFamily);
}

// Winsock's resolver codes are positive. Wine lets some of its host's
// negative getaddrinfo/getnameinfo codes through (a host buffer too small
// comes back as -12); those are mapped to the codes Windows gives.
inline int NormaliseResolverCode(int code)
{
    switch (code)
    {
    case -2: return WSAHOST_NOT_FOUND;  // no such name
    case -3: return WSATRY_AGAIN;       // temporary failure
    case -4: return WSANO_RECOVERY;     // permanent failure
    case -5: return WSANO_DATA;         // no address of the family asked for
    case -6: return WSAEAFNOSUPPORT;    // family not supported
    case -10: return WSA_NOT_ENOUGH_MEMORY;
    case -12: return WSAEFAULT;         // host buffer too small
    default: return code;
    }
}

inline bool IsSocket(SOCKET socket)
{
    int type = 0;
    int length = sizeof(type);
    return getsockopt(socket, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length) == 0;
}
}  // namespace win
}  // namespace zy::os
