// RkProtocolReq's connection settings: credentials, time limits, keep-alive,
// redirects, logging, TLS, proxy, and the data, trace and progress callbacks.
#define CURL_DISABLE_DEPRECATION 1

#include "ZyNetwork/RkProtocolReq.h"

#include <stdio.h>

#include "ZyNetwork/Internal/UrlText.h"
#include "ZyUtils/LogWriter.h"
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
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setCredentials", kNotInitializedSingular);
    RK_SET("RkCURL::RkProtocolReq::setCredentials", CURLOPT_USERPWD, user + ":" + password);
    return CZyError::Success();
}

CZyError RkProtocolReq::SetTimeOut(long seconds)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::SetTimeOut", kNotInitializedPlural);
    RK_SET("RkCURL::RkProtocolReq::SetTimeOut", CURLOPT_TIMEOUT, seconds);
    return CZyError::Success();
}

CZyError RkProtocolReq::SetConnectionTimeOut(long seconds)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::SetConnectionTimeOut", kNotInitializedPlural);
    RK_SET("RkCURL::RkProtocolReq::SetConnectionTimeOut", CURLOPT_CONNECTTIMEOUT, seconds);
    return CZyError::Success();
}

CZyError RkProtocolReq::setKeepAlive(bool on, long idleSeconds, long intervalSeconds)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setKeepAlive", kNotInitializedSingular);
    if (on)
    {
        RK_SET("RkCURL::RkProtocolReq::setKeepAlive", CURLOPT_TCP_KEEPALIVE, 1L);
        RK_SET("RkCURL::RkProtocolReq::setKeepAlive", CURLOPT_TCP_KEEPIDLE, idleSeconds);
        RK_SET("RkCURL::RkProtocolReq::setKeepAlive", CURLOPT_TCP_KEEPINTVL, intervalSeconds);
    }
    else
    {
        RK_SET("RkCURL::RkProtocolReq::setKeepAlive", CURLOPT_TCP_KEEPALIVE, 0L);
    }
    return CZyError::Success();
}

// Before initialize only the flag is kept; initialize applies it.
CZyError RkProtocolReq::setLinkRedirects(bool follow)
{
    m_followRedirects = follow;
    if (!m_initialized)
        return CZyError::Success();
    if (follow)
    {
        RK_SET("RkCURL::RkProtocolReq::setLinkRedirects", CURLOPT_FOLLOWLOCATION, 1L);
        RK_SET("RkCURL::RkProtocolReq::setLinkRedirects", CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
        RK_SET("RkCURL::RkProtocolReq::setLinkRedirects", CURLOPT_MAXREDIRS, kMaxRedirects);
    }
    else
    {
        RK_SET("RkCURL::RkProtocolReq::setLinkRedirects", CURLOPT_FOLLOWLOCATION, 0L);
    }
    return CZyError::Success();
}

CZyError RkProtocolReq::setLogging(bool on)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setLogging", kNotInitializedSingular);
    RK_SET("RkCURL::RkProtocolReq::setLogging", CURLOPT_VERBOSE, on ? 1L : 0L);
    // curl's own trace prints passwords; the library's shows them masked.
    if (on && !m_traceFunction)
        CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_DEBUGFUNCTION, &RkProtocolReq::traceMasked);
    return CZyError::Success();
}

CZyError RkProtocolReq::setMaxSSLVersion(int version)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setMaxSSLVersion", kNotInitializedSingular);
    const CURLoption options[] = {CURLOPT_SSLVERSION, CURLOPT_PROXY_SSLVERSION};
    for (CURLoption option : options)
    {
        CURLcode result = applyOption(option, static_cast<long>(version));
        if (result != CURLE_OK)
            return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setMaxSSLVersion"), result,
                               "Failed to set option [%d]. Curl Error code [%d] ", option, result);
    }
    return CZyError::Success();
}

CZyError RkProtocolReq::setSecured(bool secure, const std::string& caFile)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setSecured", kNotInitializedSingular);
    if (!secure)
    {
        RK_SET("RkCURL::RkProtocolReq::setSecured", CURLOPT_SSL_VERIFYPEER, 0L);
        RK_SET("RkCURL::RkProtocolReq::setSecured", CURLOPT_SSL_VERIFYHOST, 0L);
        return CZyError::Success();
    }
    RK_SET("RkCURL::RkProtocolReq::setSecured", CURLOPT_SSL_VERIFYPEER, 1L);
    RK_SET("RkCURL::RkProtocolReq::setSecured", CURLOPT_SSL_VERIFYHOST, 2L);
    CURLcode result = applyOption(CURLOPT_SSL_OPTIONS, kSslOptionsNativeCA);
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setSecured"), result,
                           "Failed to set option [%d] with mask [%d]", CURLOPT_SSL_OPTIONS,
                           static_cast<int>(kSslOptionsNativeCA));
    std::string bundle = caFile;
    if (bundle.empty() && !zy::os::DefaultCABundle(bundle))
        return CZyError::Success();
    RK_SET("RkCURL::RkProtocolReq::setSecured", CURLOPT_CAINFO, bundle);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProxyDetails(const std::string& host, const std::string& port, const std::string& user,
                                        const std::string& password)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setProxyDetails", kNotInitializedSingular);
    RK_SET("RkCURL::RkProtocolReq::setProxyDetails", CURLOPT_PROXYTYPE, static_cast<long>(CURLPROXY_HTTP));
    RK_SET("RkCURL::RkProtocolReq::setProxyDetails", CURLOPT_PROXY, host + ":" + port);
    RK_SET("RkCURL::RkProtocolReq::setProxyDetails", CURLOPT_PROXYUSERPWD, user + ":" + password);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProxyBypass(const std::string& list)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setProxyBypass", kNotInitializedSingular);
    RK_SET("RkCURL::RkProtocolReq::setProxyBypass", CURLOPT_NOPROXY,
           list.empty() ? std::string(kDefaultNoProxy) : list);
    return CZyError::Success();
}

CZyError RkProtocolReq::DisableProxy()
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::DisableProxy", kNotInitializedPlural);
    RK_SET("RkCURL::RkProtocolReq::DisableProxy", CURLOPT_PROXY, std::string());
    return CZyError::Success();
}

CZyError RkProtocolReq::setProyAuth(long mask)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setProyAuth", kNotInitializedPlural);
    RK_SET("RkCURL::RkProtocolReq::setProyAuth", CURLOPT_PROXYAUTH, mask);
    return CZyError::Success();
}

CZyError RkProtocolReq::setSessionIDCaching(long on)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setSessionIDCaching", kNotInitializedPlural);
    RK_SET("RkCURL::RkProtocolReq::setSessionIDCaching", CURLOPT_SSL_SESSIONID_CACHE, on);
    return CZyError::Success();
}

void RkProtocolReq::setWriteFunctionPointer(void* userData, RkDataCallback callback)
{
    m_writeData = userData;
    m_writeFunction = callback;
}

void RkProtocolReq::setReadFunctionPointer(void* userData, RkDataCallback callback)
{
    m_readData = userData;
    m_readFunction = callback;
}

void RkProtocolReq::setHeaderWriteFunctionPointer(void* userData, RkDataCallback callback)
{
    m_headerData = userData;
    m_headerFunction = callback;
}

void RkProtocolReq::setOperationWriteCallback(void* userData, RkDataCallback callback)
{
    m_opWriteData = userData;
    m_opWriteFunction = callback;
}

void RkProtocolReq::setOperationReadCallback(void* userData, RkDataCallback callback)
{
    m_opReadData = userData;
    m_opReadFunction = callback;
}

CZyError RkProtocolReq::setTraceCallBack(void* userData, RkTraceCallback callback)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setTraceCallBack", kNotInitializedPlural);
    if (!userData || !callback)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::setTraceCallBack"), zy::err::kTransferRefused,
                                     "Input is invalid");
    m_traceData = userData;
    m_traceFunction = callback;
    CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_DEBUGFUNCTION, callback);
    CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_DEBUGDATA, userData);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProgressCallBack(void* userData, RkProgressCallback callback)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::setProgressCallBack", kNotInitializedPlural);
    m_progressData = callback ? userData : nullptr;
    m_progressFunction = callback;
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_XFERINFOFUNCTION,
                                                       reinterpret_cast<void*>(callback));
    if (result == CURLE_OK)
        result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_XFERINFODATA, m_progressData);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setProgressCallBack"), result, "Failed to set option [%d]",
                           CURLOPT_XFERINFOFUNCTION);
    RK_SET("RkCURL::RkProtocolReq::setProgressCallBack", CURLOPT_NOPROGRESS, callback ? 0L : 1L);
    return CZyError::Success();
}

int RkProtocolReq::traceMasked(CURL*, curl_infotype type, char* data, size_t size, void*)
{
    // What curl's own trace shows: its notes and the protocol's header or
    // command lines, each marked as curl marks it; no body bytes.
    const char* mark = type == CURLINFO_TEXT ? "* " : type == CURLINFO_HEADER_IN ? "< "
                       : type == CURLINFO_HEADER_OUT ? "> " : nullptr;
    if (!mark || !data)
        return 0;
    const std::string text = zy::url::MaskSecrets(std::string(data, size));
    size_t start = 0;
    while (start < text.size())
    {
        size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end;
        size_t body = end;
        if (body > start && text[body - 1] == '\r')
            --body;
        const std::string line = text.substr(start, body - start);
        if (!line.empty())
        {
            if (g_ptrLogWriter)
                ZY_LOG(2, "RkCURL::RkProtocolReq::trace", "%s%s", mark, line.c_str());
            else
                fprintf(stderr, "%s%s\n", mark, line.c_str());
        }
        start = end + 1;
    }
    return 0;
}
}  // namespace RkCURL
