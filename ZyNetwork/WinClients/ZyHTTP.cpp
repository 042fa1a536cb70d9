// ZyHTTP over WinINet. Every request opens a session, a connection and a
// request handle of its own and closes them before returning; the object
// itself holds only settings, which is what makes copies safe. With a time
// limit the session is asynchronous and the client waits for each call
// itself, so that the limit bounds the whole header phase (connecting, the
// TLS handshake, the request, redirects, the response headers) and not only
// each wait within it.
// Here the settings, the target of a request, opening a request and its
// status; ZyHTTPDownload.cpp the downloads and listings, ZyHTTPUpload.cpp
// the log upload; ZyHTTPHandles.h what they share.
#include "ZyNetwork/ZyHTTP.h"

#include <windows.h>
#include <wininet.h>

#include <stdlib.h>
#include <string.h>

#include <string>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "ZyNetwork/WinClients/ZyHTTPHandles.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"

static const char kZyFile[] = "ZyNetwork/ZyHTTP";

using namespace zy::http;

namespace
{
const char kDefaultUserAgent[] = "ZyHTTP";

// A text's pointer, or null for an empty one (WinINet's "not given").
const char* OrNull(const CZyString& text)
{
    return text.IsEmpty() ? nullptr : text.c_str();
}

void CALLBACK StatusCallback(HINTERNET, DWORD_PTR context, DWORD status, LPVOID information, DWORD)
{
    Completion* completion = reinterpret_cast<Completion*>(context);
    if (!completion)
        return;
    if (status == INTERNET_STATUS_REQUEST_COMPLETE)
    {
        const INTERNET_ASYNC_RESULT* result = static_cast<const INTERNET_ASYNC_RESULT*>(information);
        DWORD error = ERROR_SUCCESS;
        if (!result->dwResult)
            error = result->dwError != ERROR_SUCCESS ? result->dwError : ERROR_INTERNET_INTERNAL_ERROR;
        completion->Complete(error);
    }
    else if (status == INTERNET_STATUS_HANDLE_CLOSING)
    {
        completion->Release();
    }
}
}  // namespace

ZyHTTP::ZyHTTP(const char* baseUrl)
    : m_haveUrl(false),
      m_secure(false),
      m_port(0),
      m_path("/"),
      m_userAgent(kDefaultUserAgent),
      m_timeoutMs(0),
      m_ignoreCertificateErrors(false)
{
    SetBaseURL(baseUrl);
}

ZyHTTP::ZyHTTP(const ZyHTTP& other) = default;
ZyHTTP& ZyHTTP::operator=(const ZyHTTP& other) = default;
ZyHTTP::~ZyHTTP() = default;

CZyError ZyHTTP::SetBaseURL(const char* baseUrl)
{
    zy::http::UrlParts parts;
    if (!baseUrl || !zy::http::ParseBaseUrl(baseUrl, parts))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::SetBaseURL"), zy::err::kInvalidParameter,
                                       "Not a usable HTTP URL: '%s'", baseUrl ? baseUrl : "(null)");
    m_haveUrl = true;
    m_secure = parts.secure;
    m_server = parts.host;
    m_port = parts.port;
    m_path = zy::http::DirectoryPath(parts.path);
    return CZyError::Success();
}

void ZyHTTP::SetWebServer(const char* server)
{
    std::string text = server ? server : "";
    zy::http::UrlParts parts;
    if (text.empty() || text.find_first_of("/?#") != std::string::npos || !zy::http::ParseBaseUrl(text, parts))
    {
        m_haveUrl = false;  // requests report the missing server
        m_server.Clear();
        return;
    }
    m_server = parts.host;
    if (parts.port != 0)
        m_port = parts.port;
    m_haveUrl = true;
}

void ZyHTTP::SetPath(const char* path)
{
    m_path = zy::http::DirectoryPath(path ? path : "");
}

void ZyHTTP::SetUser(const char* user)
{
    m_user = user;
}

void ZyHTTP::SetPassword(const char* password)
{
    m_password = password;
}

void ZyHTTP::SetUserAgent(const char* userAgent)
{
    m_userAgent = userAgent && *userAgent ? userAgent : kDefaultUserAgent;
}

void ZyHTTP::SetUploadMode(const char* mode)
{
    m_uploadMode = mode;
}

void ZyHTTP::SetProxyAccess(const char* proxy, const char* bypass)
{
    m_proxy = proxy;
    m_proxyBypass = bypass;
}

void ZyHTTP::SetProxyCreds(const char* user, const char* password)
{
    m_proxyUser = user;
    m_proxyPassword = password;
}

void ZyHTTP::SetInternetTimeout(long milliseconds)
{
    m_timeoutMs = milliseconds > 0 ? milliseconds : 0;
}

void ZyHTTP::SetIgnoreCertificateErrors()
{
    m_ignoreCertificateErrors = true;
}

CZyError ZyHTTP::GetWorkingURL(CZyString& url) const
{
    if (!m_haveUrl)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::GetWorkingURL"), zy::err::kInvalidParameter,
                                       "No server URL is set");
    zy::http::UrlParts parts;
    parts.secure = m_secure;
    parts.host = m_server.str();
    parts.port = m_port;
    url = zy::http::Origin(parts) + m_path.str();
    return CZyError::Success();
}

CZyError ZyHTTP::_target(const std::string& object, Target& target) const
{
    CZyString origin;
    CZyError error = GetWorkingURL(origin);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_target"));
    target.host = m_server.str();
    target.secure = m_secure;
    target.port = m_port != 0 ? m_port : (m_secure ? INTERNET_DEFAULT_HTTPS_PORT : INTERNET_DEFAULT_HTTP_PORT);
    target.object = object;
    zy::http::UrlParts parts;
    parts.secure = m_secure;
    parts.host = m_server.str();
    parts.port = m_port;
    target.url = zy::http::Origin(parts) + object;
    return CZyError::Success();
}

void ZyHTTP::_applyTimeouts(void* handle) const
{
    if (m_timeoutMs <= 0)
        return;
    // Set on every handle of the request: WinINet implementations differ in
    // what a request inherits from its session. Each limit bounds one wait
    // (connecting, sending, waiting for data); Handles::Run bounds the
    // header phase as a whole.
    DWORD limit = m_timeoutMs > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<DWORD>(m_timeoutMs);
    const DWORD options[] = {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT,
                             INTERNET_OPTION_RECEIVE_TIMEOUT, INTERNET_OPTION_DATA_SEND_TIMEOUT,
                             INTERNET_OPTION_DATA_RECEIVE_TIMEOUT};
    for (DWORD option : options)
        InternetSetOptionA(static_cast<HINTERNET>(handle), option, &limit, sizeof(limit));
}

CZyError ZyHTTP::_openRequest(const Target& target, const char* verb, bool withCredentials, Handles& handles) const
{
    DWORD access = m_proxy.IsEmpty() ? INTERNET_OPEN_TYPE_DIRECT : INTERNET_OPEN_TYPE_PROXY;
    const bool limited = m_timeoutMs > 0;
    handles.session.Reset(InternetOpenA(m_userAgent.c_str(), access, OrNull(m_proxy), OrNull(m_proxyBypass),
                                        limited ? INTERNET_FLAG_ASYNC : 0));
    if (!handles.session.Get())
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_openRequest"), GetLastError(), "InternetOpen failed");
    if (limited)
    {
        handles.headerLimitMs = m_timeoutMs > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<DWORD>(m_timeoutMs);
        handles.completion = new Completion;
        if (!handles.completion->Usable() ||
            InternetSetStatusCallbackA(handles.session.Get(), StatusCallback) == INTERNET_INVALID_STATUS_CALLBACK)
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_openRequest"), GetLastError(), "InternetOpen failed");
    }

    _applyTimeouts(handles.session.Get());

    handles.connection.Reset(InternetConnectA(handles.session.Get(), target.host.c_str(), target.port,
                                              withCredentials ? OrNull(m_user) : nullptr,
                                              withCredentials ? OrNull(m_password) : nullptr, INTERNET_SERVICE_HTTP,
                                              0, 0));
    if (!handles.connection.Get())
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_openRequest"), GetLastError(), "InternetConnect to %s failed",
                                       target.url.c_str());
    _applyTimeouts(handles.connection.Get());

    DWORD flags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_PRAGMA_NOCACHE |
                  INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_NO_UI | INTERNET_FLAG_KEEP_CONNECTION;
    if (target.secure)
        flags |= INTERNET_FLAG_SECURE;
    if (m_ignoreCertificateErrors)
        flags |= INTERNET_FLAG_IGNORE_CERT_CN_INVALID | INTERNET_FLAG_IGNORE_CERT_DATE_INVALID;
    static const char* kAcceptAll[] = {"*/*", nullptr};
    handles.request.Reset(HttpOpenRequestA(handles.connection.Get(), verb, target.object.c_str(), "HTTP/1.1",
                                           nullptr, kAcceptAll, flags,
                                           reinterpret_cast<DWORD_PTR>(handles.completion)));
    if (!handles.request.Get())
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_openRequest"), GetLastError(), "HttpOpenRequest for %s failed",
                                       target.url.c_str());
    if (handles.completion)
        handles.completion->AddReference();  // for the callback, until the request's last one

    _applyTimeouts(handles.request.Get());
    if (target.secure && m_ignoreCertificateErrors)
    {
        DWORD security = 0;
        DWORD size = sizeof(security);
        InternetQueryOptionA(handles.request.Get(), INTERNET_OPTION_SECURITY_FLAGS, &security, &size);
        security |= SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                    SECURITY_FLAG_IGNORE_CERT_DATE_INVALID | SECURITY_FLAG_IGNORE_REVOCATION |
                    SECURITY_FLAG_IGNORE_WRONG_USAGE;
        if (!InternetSetOptionA(handles.request.Get(), INTERNET_OPTION_SECURITY_FLAGS, &security, sizeof(security)))
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_openRequest"), GetLastError(),
                                           "Cannot set the certificate options");
    }
    if (!m_proxyUser.IsEmpty())
    {
        InternetSetOptionA(handles.request.Get(), INTERNET_OPTION_PROXY_USERNAME,
                           const_cast<char*>(m_proxyUser.c_str()), static_cast<DWORD>(m_proxyUser.Length()));
        InternetSetOptionA(handles.request.Get(), INTERNET_OPTION_PROXY_PASSWORD,
                           const_cast<char*>(m_proxyPassword.c_str()), static_cast<DWORD>(m_proxyPassword.Length()));
    }
    return CZyError::Success();
}

CZyError ZyHTTP::_checkStatus(const Target& target, Handles& handles, uint64_t* contentLength) const
{
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (!HttpQueryInfoA(handles.request.Get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size,
                        nullptr))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_checkStatus"), GetLastError(), "No status from %s",
                                       target.url.c_str());
    if (status < 200 || status > 299)
    {
        ZY_LOG(2, "ZyHTTP::_checkStatus", "%s answered %lu", target.url.c_str(), static_cast<unsigned long>(status));
        return FXErrorUtil::ErrorHttp(ZY_LOC("ZyHTTP::_checkStatus"), static_cast<int>(status));
    }
    if (contentLength)
    {
        *contentLength = UINT64_MAX;
        char text[32];
        DWORD textSize = sizeof(text);
        if (HttpQueryInfoA(handles.request.Get(), HTTP_QUERY_CONTENT_LENGTH, text, &textSize, nullptr))
        {
            char* end = nullptr;
            unsigned long long value = strtoull(text, &end, 10);
            if (end != text && *end == '\0')
                *contentLength = value;
        }
    }
    return CZyError::Success();
}
