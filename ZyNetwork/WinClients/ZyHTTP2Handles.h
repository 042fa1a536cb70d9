// What the parts of CZyHTTP2 (WinClients/ZyHTTP2*.cpp) share.
// Internal: Windows only, not installed.
#pragma once

#include <windows.h>
#include <winhttp.h>

#include <string>

#include "ZyUtils/ZyString.h"

namespace zy::http
{
// One chunk of a transfer, both ways.
const DWORD kTransferBufferSize = 10240;
// At most this many 503 retries (so six requests), sleeping 2 s more each time.
const int kMaxServiceUnavailableRetries = 5;
// Certificate errors that every request ignores.
const DWORD kIgnoredCertificateErrors = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE |
                                        SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                                        SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
inline std::wstring Wide(const char* text)
{
    return text ? FXString::ToWstring(text) : std::wstring();
}

inline void CloseInternetHandle(void*& handle)
{
    if (handle)
    {
        WinHttpCloseHandle(handle);
        handle = nullptr;
    }
}
}  // namespace zy::http
