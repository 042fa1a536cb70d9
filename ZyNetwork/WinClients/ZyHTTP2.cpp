// CZyHTTP2 over WinHTTP. See ZyNetwork/ZyHTTP2.h. Here construction, the
// settings, the session, the connection and the URL; ZyHTTP2Request.cpp the
// request loop with its retry and authentication rules; ZyHTTP2Files.cpp the
// file transfers; ZyHTTP2Proxy.cpp the three proxy look-ups.
#include "ZyNetwork/ZyHTTP2.h"

#include <windows.h>
#include <winhttp.h>

#include <cstdarg>
#include <vector>

#include "ZyNetwork/WinClients/ZyHTTP2Handles.h"
#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"

using namespace zy::http;

namespace
{
const char kZyFile[] = "ZyNetwork/ZyHTTP2";

// The log level of the diagnostics.
const int kLogLevel = 2;

// The characters that escaped URLs lose.
bool IsDroppedUrlCharacter(wchar_t c)
{
    switch (c)
    {
    case L'!': case L'$': case L'&': case L'\'': case L'(': case L')': case L'*':
    case L'+': case L',': case L';': case L'=': case L'?': case L'@':
        return true;
    default:
        return false;
    }
}

// Cracks `url` with WinHTTP: every part points into `url`.
bool CrackUrl(const wchar_t* url, URL_COMPONENTS& components)
{
    ZeroMemory(&components, sizeof(components));
    components.dwStructSize = sizeof(components);
    components.dwSchemeLength = static_cast<DWORD>(-1);
    components.dwHostNameLength = static_cast<DWORD>(-1);
    components.dwUrlPathLength = static_cast<DWORD>(-1);
    components.dwExtraInfoLength = static_cast<DWORD>(-1);
    return WinHttpCrackUrl(url, static_cast<DWORD>(wcslen(url)), 0, &components) != FALSE;
}
}  // namespace

CZyHTTP2::CZyHTTP2()
    : m_session(nullptr),
      m_connection(nullptr),
      m_request(nullptr),
      m_port(0),
      m_agent(L"ZyHTTP"),
      m_postUpload(false),
      m_requestCompleted(false),
      m_autoEscape(true),
      m_secured(true),
      m_timeoutMs(0),
      m_proxyAccessType(WINHTTP_ACCESS_TYPE_DEFAULT_PROXY),
      m_proxyAuthenticated(false),
      m_bypassGiven(false)
{
}

CZyHTTP2::CZyHTTP2(const char* agent) : CZyHTTP2()
{
    m_agent = Wide(agent);
}

CZyHTTP2::CZyHTTP2(const CZyHTTP2& other)
    : m_session(nullptr),
      m_connection(nullptr),
      m_request(nullptr),
      m_port(0),
      m_user(other.m_user),
      m_password(other.m_password),
      m_agent(other.m_agent),
      m_postUpload(other.m_postUpload),
      m_requestCompleted(other.m_requestCompleted),
      m_autoEscape(other.m_autoEscape),
      m_secured(other.m_secured),
      m_timeoutMs(other.m_timeoutMs),
      m_proxyAccessType(other.m_proxyAccessType),
      m_proxyAuthenticated(other.m_proxyAuthenticated),
      m_proxy(other.m_proxy),
      m_proxyUser(other.m_proxyUser),
      m_proxyPassword(other.m_proxyPassword),
      m_bypassGiven(other.m_bypassGiven),
      m_proxyBypass(other.m_proxyBypass),
      m_requestHeaders(other.m_requestHeaders)
{
}

CZyHTTP2& CZyHTTP2::operator=(const CZyHTTP2& other)
{
    if (this != &other)
    {
        CloseHandles();
        m_port = 0;
        m_hostName.clear();
        m_user = other.m_user;
        m_password = other.m_password;
        m_agent = other.m_agent;
        m_postUpload = other.m_postUpload;
        m_requestCompleted = other.m_requestCompleted;
        m_autoEscape = other.m_autoEscape;
        m_secured = other.m_secured;
        m_timeoutMs = other.m_timeoutMs;
        m_proxyAccessType = other.m_proxyAccessType;
        m_proxyAuthenticated = other.m_proxyAuthenticated;
        m_proxy = other.m_proxy;
        m_proxyUser = other.m_proxyUser;
        m_proxyPassword = other.m_proxyPassword;
        m_bypassGiven = other.m_bypassGiven;
        m_proxyBypass = other.m_proxyBypass;
        m_requestHeaders = other.m_requestHeaders;
    }
    return *this;
}

CZyHTTP2::~CZyHTTP2()
{
    CloseHandles();
}

void CZyHTTP2::CloseHandles()
{
    CloseInternetHandle(m_request);
    CloseInternetHandle(m_connection);
    CloseInternetHandle(m_session);
}

void CZyHTTP2::SetUser(const char* user)
{
    m_user = Wide(user);
}

void CZyHTTP2::SetPassword(const char* password)
{
    m_password = Wide(password);
}

void CZyHTTP2::SetInternetTimeoutSec(long seconds)
{
    m_timeoutMs = static_cast<uint32_t>(seconds * 1000);
}

void CZyHTTP2::SetProxyAccess(const char* proxy)
{
    if (proxy)
        m_proxy = Wide(proxy);
    m_proxyAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
}

void CZyHTTP2::SetProxyBypass(const char* list)
{
    if (list)
        m_proxyBypass = Wide(list);
    m_bypassGiven = true;
}

void CZyHTTP2::SetProxyCredentials(const char* user, const char* password)
{
    if (user)
        m_proxyUser = Wide(user);
    if (password)
        m_proxyPassword = Wide(password);
}

void CZyHTTP2::SetRequestHeader(std::string name, std::string value)
{
    m_requestHeaders.insert(HeaderMap::value_type(name, value));
}

void CZyHTTP2::SetRequestHeader(const HeaderMap& headers)
{
    m_requestHeaders = headers;
}

void CZyHTTP2::ClearRequestHeader()
{
    m_requestHeaders.clear();
}

void CZyHTTP2::Log(const char* format, ...)
{
    boost::shared_ptr<CLogWriterInterface> writer = g_ptrLogWriter;
    if (!writer)
        return;
    std::string text;
    va_list args;
    va_start(args, format);
    FXString::FormatArgList(text, format, args);  // a line too long is written truncated
    va_end(args);
    writer->Write(kLogLevel, "CZyHTTP2", 0, 0, 0, 0, "%s", text.c_str());
}

void __stdcall CZyHTTP2::StatusCallbackStatic(void* handle, uintptr_t context, unsigned long status, void* info,
                                              unsigned long infoLength)
{
}

CZyError CZyHTTP2::IntializeSession()
{
    if (m_session)
        return CZyError::Success();

    if (m_proxyAccessType == WINHTTP_ACCESS_TYPE_DEFAULT_PROXY)
        m_session = WinHttpOpen(m_agent.c_str(), m_proxyAccessType, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0);
    else if (!m_bypassGiven)
        m_session = WinHttpOpen(m_agent.c_str(), m_proxyAccessType, m_proxy.c_str(), WINHTTP_NO_PROXY_BYPASS, 0);
    else
        m_session = WinHttpOpen(m_agent.c_str(), m_proxyAccessType, m_proxy.c_str(), m_proxyBypass.c_str(), 0);
    if (!m_session)
    {
        DWORD code = GetLastError();
        Log("WinHttpOpen Failed, %d", static_cast<int>(code));
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::IntializeSession"), code, "WinHttpOpen Failed");
    }

    if (m_timeoutMs != 0)
    {
        int timeout = static_cast<int>(m_timeoutMs);
        if (!WinHttpSetTimeouts(m_session, 0, timeout, timeout, timeout))
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::IntializeSession"), GetLastError(),
                                           "WinHttpSetTimeouts failed");
    }

    WINHTTP_STATUS_CALLBACK callback = &CZyHTTP2::StatusCallbackStatic;
    if (WinHttpSetStatusCallback(m_session, callback, WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS, 0) ==
        WINHTTP_INVALID_STATUS_CALLBACK)
        Log("WinHttpSetStatusCallback Failed, %d", static_cast<int>(GetLastError()));
    return CZyError::Success();
}

CZyError CZyHTTP2::BreakUrl(const wchar_t* url, std::wstring& host, std::wstring& path, int& port)
{
    URL_COMPONENTS components;
    if (!CrackUrl(url, components))
    {
        path = url;
        return CZyError::Success();
    }
    host.assign(components.lpszHostName ? components.lpszHostName : L"", components.dwHostNameLength);
    // The path runs to the end of the input, so the query stays on it.
    path = components.lpszUrlPath ? components.lpszUrlPath : L"";
    port = components.nPort;
    m_secured = components.nScheme == INTERNET_SCHEME_HTTPS;
    return CZyError::Success();
}

CZyError CZyHTTP2::Connect(const char* url)
{
    std::wstring wide = Wide(url);
    CZyError error = Connect(wide.c_str());
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::Connect"));
    return error;
}

CZyError CZyHTTP2::Connect(const wchar_t* url)
{
    CZyError error = IntializeSession();
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::Connect"));

    std::wstring host;
    std::wstring path;
    int port = 0;
    error = BreakUrl(url ? url : L"", host, path, port);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::Connect"));

    if (m_connection)
    {
        if (host == m_hostName && static_cast<uint16_t>(port) == m_port)
            return CZyError::Success();
        CloseInternetHandle(m_connection);
    }

    Log("Connecting to %S:%d", host.c_str(), port);
    m_connection = WinHttpConnect(m_session, host.c_str(), static_cast<INTERNET_PORT>(port), 0);
    if (!m_connection)
    {
        DWORD code = GetLastError();
        Log("WinHttpConnect failed, %d", static_cast<int>(code));
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Connect"), code, "WinHttpConnect failed, HostName=%s",
                                       FXString::ToString(host).c_str());
    }
    m_hostName = host;
    m_port = static_cast<uint16_t>(port);
    m_requestCompleted = false;
    m_proxyAuthenticated = false;
    return CZyError::Success();
}

CZyError CZyHTTP2::Reconnect()
{
    if (m_hostName.empty() || m_port == 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Reconnect"), ERROR_INVALID_PARAMETER,
                                       "Invalid parameters to reconnect");
    if (!m_connection)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Reconnect"), zy::err::kStateError, "No connection to reconnect");

    CloseInternetHandle(m_connection);
    Log("Reconnecting to %S:%d", m_hostName.c_str(), static_cast<int>(m_port));
    m_connection = WinHttpConnect(m_session, m_hostName.c_str(), m_port, 0);
    if (!m_connection)
    {
        DWORD code = GetLastError();
        Log("WinHttpConnect Failed, %d", static_cast<int>(code));
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Reconnect"), code,
                                       "WinHttpConnect (reconnect) failed, ServerName=%s, Port=%u",
                                       FXString::ToString(m_hostName).c_str(), static_cast<unsigned>(m_port));
    }
    m_requestCompleted = false;
    m_proxyAuthenticated = false;
    return CZyError::Success();
}

CZyError CZyHTTP2::EscapeUrl(const wchar_t* url, std::wstring& out)
{
    URL_COMPONENTS components;
    // A URL that does not crack cannot be rebuilt either.
    if (!CrackUrl(url, components))
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::EscapeUrl"), zy::err::kStateError, "Failed to escape URL");

    DWORD length = 0;
    WinHttpCreateUrl(&components, ICU_ESCAPE, nullptr, &length);
    std::vector<wchar_t> escaped(static_cast<size_t>(length) + 1, L'\0');
    length = static_cast<DWORD>(escaped.size());
    if (!WinHttpCreateUrl(&components, ICU_ESCAPE, escaped.data(), &length))
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::EscapeUrl"), zy::err::kStateError, "Failed to escape URL");
    escaped.back() = L'\0';

    CZyError error = EscapeUrlExtra(escaped.data(), out);
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::EscapeUrl"));
    return error;
}

CZyError CZyHTTP2::EscapeUrlExtra(const wchar_t* url, std::wstring& out)
{
    out.clear();
    for (const wchar_t* c = url; *c; ++c)
    {
        if (!IsDroppedUrlCharacter(*c))
            out.push_back(*c);
    }
    return CZyError::Success();
}

