// What the parts of RkProtocolReq (RkProtocolReq*.cpp) share: the texts of
// its refusals, the defaults it applies and the check that the object was
// initialised. Included after ZyNetwork/RkProtocolReq.h.
// Internal: not installed.
#pragma once

#include <stddef.h>

#include "ZyUtils/Internal/ErrorCodes.h"

namespace RkCURL
{
// Both texts exist; each operation uses one of them.
constexpr char kNotInitializedPlural[] =
    "RkProtocol class is not initialized yet. Call initialize function before any other functions.";
constexpr char kNotInitializedSingular[] =
    "RkProtocol class is not initialized yet. Call initialize function before any other function.";
constexpr char kInvalidUrlPath[] = "Invalid URL path .";
constexpr char kInvalidBufferSize[] = "Invalid Buffer size.";
// Redirects followed per request: libcurl before 8.3 follows a loop for
// ever (until the time limit).
constexpr long kMaxRedirects = 30;
// CURLSSLOPT_NATIVE_CA, checked against curl's header in RkProtocolReq.cpp.
constexpr long kSslOptionsNativeCA = 16;
}  // namespace RkCURL

// Inside a member of RkProtocolReq: refuses the call until initialize has
// succeeded, with the operation's own location and text.
#define RK_REQUIRE_INIT(function, text)                                   \
    do                                                                    \
    {                                                                     \
        if (!m_initialized)                                               \
            return FXErrorUtil::ErrorInt(ZY_LOC(function), zyerr::kTransferRefused, "%s", text); \
    } while (0)
