// RkProtocolReq's connection settings: credentials, time limits, keep-alive,
// redirects, logging, TLS, proxy and the trace and progress callbacks.
#define CURL_DISABLE_DEPRECATION 1

#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyNetwork/Internal/OsCurl.h"
#include "ZyNetwork/Internal/RkProtocolReqCommon.h"

// Locations name the class's file, wherever its code stands.
static const char kZyFile[] = "ZyNetwork/RkProtocolReq";

namespace RkCURL
{
namespace
{
const char kDefaultNoProxy[] = "127.0.0.1,localhost,::1,0:0:0:0:0:0:0:1";
}  // namespace

#define RK_SET(function, option, value)                                                              \
    do                                                                                               \
    {                                                                                                \
        CURLcode setResult = applyOption(option, value);                                             \
        if (setResult != CURLE_OK)                                                                   \
            return ErrorRkCURL(ZY_LOC(function), setResult, "Failed to set option [%d]", option); \
    } while (0)

CZyError RkProtocolReq::setCredentials(const std::string& user, const std::string& password)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setCredentials";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_USERPWD, user + ":" + password);
    return CZyError::Success();
}

CZyError RkProtocolReq::SetTimeOut(long seconds)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::SetTimeOut";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_TIMEOUT, seconds);
    return CZyError::Success();
}

CZyError RkProtocolReq::SetConnectionTimeOut(long seconds)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::SetConnectionTimeOut";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_CONNECTTIMEOUT, seconds);
    return CZyError::Success();
}

CZyError RkProtocolReq::setKeepAlive(bool on, long idleSeconds, long intervalSeconds)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setKeepAlive";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    if (on)
    {
        RK_SET(kFunction, CURLOPT_TCP_KEEPALIVE, 1L);
        RK_SET(kFunction, CURLOPT_TCP_KEEPIDLE, idleSeconds);
        RK_SET(kFunction, CURLOPT_TCP_KEEPINTVL, intervalSeconds);
    }
    else
    {
        RK_SET(kFunction, CURLOPT_TCP_KEEPALIVE, 0L);
    }
    return CZyError::Success();
}

// Before initialize only the flag is kept; initialize applies it.
CZyError RkProtocolReq::setLinkRedirects(bool follow)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setLinkRedirects";
    m_followRedirects = follow;
    if (!m_initialized)
        return CZyError::Success();
    if (follow)
    {
        RK_SET(kFunction, CURLOPT_FOLLOWLOCATION, 1L);
        RK_SET(kFunction, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
        RK_SET(kFunction, CURLOPT_MAXREDIRS, kMaxRedirects);
    }
    else
    {
        RK_SET(kFunction, CURLOPT_FOLLOWLOCATION, 0L);
    }
    return CZyError::Success();
}

CZyError RkProtocolReq::setLogging(bool on)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setLogging";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_VERBOSE, on ? 1L : 0L);
    return CZyError::Success();
}

CZyError RkProtocolReq::setMaxSSLVersion(int version)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setMaxSSLVersion";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    const CURLoption options[] = {CURLOPT_SSLVERSION, CURLOPT_PROXY_SSLVERSION};
    for (CURLoption option : options)
    {
        CURLcode result = applyOption(option, static_cast<long>(version));
        if (result != CURLE_OK)
            return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]. Curl Error code [%d] ", option,
                               result);
    }
    return CZyError::Success();
}

CZyError RkProtocolReq::setSecured(bool secure, const std::string& caFile)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setSecured";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    if (!secure)
    {
        RK_SET(kFunction, CURLOPT_SSL_VERIFYPEER, 0L);
        RK_SET(kFunction, CURLOPT_SSL_VERIFYHOST, 0L);
        return CZyError::Success();
    }
    RK_SET(kFunction, CURLOPT_SSL_VERIFYPEER, 1L);
    RK_SET(kFunction, CURLOPT_SSL_VERIFYHOST, 2L);
    CURLcode result = applyOption(CURLOPT_SSL_OPTIONS, kSslOptionsNativeCA);
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d] with mask [%d]", CURLOPT_SSL_OPTIONS,
                           static_cast<int>(kSslOptionsNativeCA));
    std::string bundle = caFile;
    if (bundle.empty() && !zyos::DefaultCABundle(bundle))
        return CZyError::Success();
    RK_SET(kFunction, CURLOPT_CAINFO, bundle);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProxyDetails(const std::string& host, const std::string& port, const std::string& user,
                                        const std::string& password)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProxyDetails";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_PROXYTYPE, static_cast<long>(CURLPROXY_HTTP));
    RK_SET(kFunction, CURLOPT_PROXY, host + ":" + port);
    RK_SET(kFunction, CURLOPT_PROXYUSERPWD, user + ":" + password);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProxyBypass(const std::string& list)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProxyBypass";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_NOPROXY, list.empty() ? std::string(kDefaultNoProxy) : list);
    return CZyError::Success();
}

CZyError RkProtocolReq::DisableProxy()
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::DisableProxy";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_PROXY, std::string());
    return CZyError::Success();
}

CZyError RkProtocolReq::setProyAuth(long mask)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProyAuth";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_PROXYAUTH, mask);
    return CZyError::Success();
}

CZyError RkProtocolReq::setSessionIDCaching(long on)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setSessionIDCaching";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_SSL_SESSIONID_CACHE, on);
    return CZyError::Success();
}

CZyError RkProtocolReq::setTraceCallBack(void* userData, RkTraceCallback callback)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setTraceCallBack";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    if (!userData || !callback)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), zyerr::kTransferRefused, "Input is invalid");
    m_traceData = userData;
    m_traceFunction = callback;
    CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_DEBUGFUNCTION, callback);
    CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_DEBUGDATA, userData);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProgressCallBack(void* userData, RkProgressCallback callback)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProgressCallBack";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    m_progressData = callback ? userData : nullptr;
    m_progressFunction = callback;
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_XFERINFOFUNCTION,
                                                       reinterpret_cast<void*>(callback));
    if (result == CURLE_OK)
        result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_XFERINFODATA, m_progressData);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_XFERINFOFUNCTION);
    RK_SET(kFunction, CURLOPT_NOPROGRESS, callback ? 0L : 1L);
    return CZyError::Success();
}
}  // namespace RkCURL
