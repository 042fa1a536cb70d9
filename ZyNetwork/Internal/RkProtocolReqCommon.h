// What the parts of RkProtocolReq (RkProtocolReq*.cpp) share: the texts of
// its refusals, the defaults it applies and the check that the object was
// initialised, and the listing entry as the classes report it. Included
// after ZyNetwork/RkProtocolReq.h.
// Internal: not installed.
#pragma once

#include <stddef.h>

#include <string>

#include "ZyNetwork/Internal/ListingParsers.h"
#include "ZyNetwork/Internal/UrlText.h"

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
// The receive buffer the curl tool uses: fewer, larger writes.
constexpr long kReceiveBufferSize = 100 * 1024;

// A command or path with a line break would smuggle in another command.
inline bool HasLineBreak(const std::string& text)
{
    return text.find_first_of("\r\n") != std::string::npos;
}

// A whole URL names its own server: for the commands on its path the base
// URL is that server, put back afterwards.
class WholeUrlBase
{
public:
    WholeUrlBase(std::string& base, const std::string& url, const std::string& origin)
        : m_base(base), m_active(zy::url::IsWholeUrl(url))
    {
        if (m_active)
        {
            m_saved = base;
            base = origin;
        }
    }
    ~WholeUrlBase()
    {
        if (m_active)
            m_base = m_saved;
    }
    WholeUrlBase(const WholeUrlBase&) = delete;
    WholeUrlBase& operator=(const WholeUrlBase&) = delete;

private:
    std::string& m_base;
    bool m_active;
    std::string m_saved;
};

// A listing entry as the request classes report it, below `parent` (no
// trailing '/'). The time text is the page's own where it shows one.
inline FileDirInfo ToFileDirInfo(const zy::listing::Entry& entry, const std::string& parent)
{
    FileDirInfo info;
    info.name = entry.name;
    info.fullPath = parent + "/" + entry.name;
    info.isDirectory = entry.isDirectory;
    info.size = entry.hasSize ? static_cast<int64_t>(entry.size) : -1;
    info.sizeExact = entry.sizeExact;
    if (entry.hasTime)
    {
        info.modificationTime = entry.modified;
        info.modificationText = entry.timeText.empty() ? zy::listing::TimeText(entry.modified) : entry.timeText;
    }
    info.linkTarget = entry.linkTarget;
    return info;
}
}  // namespace RkCURL

// Inside a member of RkProtocolReq: refuses the call until initialize has
// succeeded, with the operation's own location and text.
#define RK_REQUIRE_INIT(function, text)                                   \
    do                                                                    \
    {                                                                     \
        if (!m_initialized)                                               \
            return FXErrorUtil::ErrorInt(ZY_LOC(function), zy::err::kTransferRefused, "%s", text); \
    } while (0)
