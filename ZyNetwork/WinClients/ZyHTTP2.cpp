// CZyHTTP2 over WinHTTP. See ZyNetwork/ZyHTTP2.h.
// Longer than our usual 600 lines: one class whose request loop, its retry
// and authentication rules and the three proxy look-ups belong together.
#include "ZyNetwork/ZyHTTP2.h"

#include <windows.h>
#include <winhttp.h>

#include <cstdarg>
#include <vector>

#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"

namespace
{
const char kZyFile[] = "ZyNetwork/ZyHTTP2";

// One chunk of a transfer, both ways.
const DWORD kTransferBufferSize = 10240;
// At most this many 503 retries (so six requests), sleeping 2 s more each time.
const int kMaxServiceUnavailableRetries = 5;
// Certificate errors that every request ignores.
const DWORD kIgnoredCertificateErrors = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE |
                                        SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                                        SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
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

std::wstring Wide(const char* text)
{
    return text ? FXString::ToWstring(text) : std::wstring();
}

// Takes a string that WinHTTP allocated, frees it and returns it narrow.
std::string TakeGlobalString(LPWSTR text)
{
    if (!text)
        return std::string();
    std::string narrow = FXString::ToString(text);
    GlobalFree(text);
    return narrow;
}

void CloseInternetHandle(void*& handle)
{
    if (handle)
    {
        WinHttpCloseHandle(handle);
        handle = nullptr;
    }
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
    ZeroMemory(&components, sizeof(components));
    components.dwStructSize = sizeof(components);
    components.dwSchemeLength = static_cast<DWORD>(-1);
    components.dwHostNameLength = static_cast<DWORD>(-1);
    components.dwUrlPathLength = static_cast<DWORD>(-1);
    components.dwExtraInfoLength = static_cast<DWORD>(-1);

    size_t length = wcslen(url);
    if (!WinHttpCrackUrl(url, static_cast<DWORD>(length), 0, &components))
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
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Reconnect"), 774, "No connection to reconnect");

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
    ZeroMemory(&components, sizeof(components));
    components.dwStructSize = sizeof(components);
    components.dwSchemeLength = static_cast<DWORD>(-1);
    components.dwHostNameLength = static_cast<DWORD>(-1);
    components.dwUrlPathLength = static_cast<DWORD>(-1);
    components.dwExtraInfoLength = static_cast<DWORD>(-1);
    // A URL that does not crack cannot be rebuilt either.
    if (!WinHttpCrackUrl(url, static_cast<DWORD>(wcslen(url)), 0, &components))
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::EscapeUrl"), 774, "Failed to escape URL");

    DWORD length = 0;
    WinHttpCreateUrl(&components, ICU_ESCAPE, nullptr, &length);
    std::vector<wchar_t> escaped(static_cast<size_t>(length) + 1, L'\0');
    length = static_cast<DWORD>(escaped.size());
    if (!WinHttpCreateUrl(&components, ICU_ESCAPE, escaped.data(), &length))
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::EscapeUrl"), 774, "Failed to escape URL");
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

CZyError CZyHTTP2::AddRequestHeader()
{
    for (HeaderMap::const_iterator it = m_requestHeaders.begin(); it != m_requestHeaders.end(); ++it)
    {
        std::wstring line = FXString::ToWstring(it->first + ": " + it->second + "\r\n");
        if (!WinHttpAddRequestHeaders(m_request, line.c_str(), static_cast<DWORD>(line.size()),
                                      WINHTTP_ADDREQ_FLAG_ADD))
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::AddRequestHeader"), GetLastError(),
                                           "WinHttpAddRequestHeaders failed");
    }
    return CZyError::Success();
}

CZyError CZyHTTP2::Authenticate()
{
    DWORD supported = 0;
    DWORD first = 0;
    DWORD target = 0;
    if (!WinHttpQueryAuthSchemes(m_request, &supported, &first, &target))
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Authenticate"), GetLastError(),
                                       "WinHttpQueryAuthSchemes failed");

    // A fixed order of preference; the scheme the server lists first does
    // not count.
    static const DWORD kPreference[] = {WINHTTP_AUTH_SCHEME_NEGOTIATE, WINHTTP_AUTH_SCHEME_NTLM,
                                        WINHTTP_AUTH_SCHEME_PASSPORT, WINHTTP_AUTH_SCHEME_DIGEST,
                                        WINHTTP_AUTH_SCHEME_BASIC};
    DWORD scheme = 0;
    for (DWORD candidate : kPreference)
    {
        if (supported & candidate)
        {
            scheme = candidate;
            break;
        }
    }
    if (scheme == 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Authenticate"), ERROR_INVALID_PARAMETER,
                                       "No Valid Authentication Schemes");

    BOOL ok = TRUE;
    if (target == WINHTTP_AUTH_TARGET_SERVER)
        ok = WinHttpSetCredentials(m_request, WINHTTP_AUTH_TARGET_SERVER, scheme, m_user.c_str(),
                                   m_password.c_str(), nullptr);
    else if (target == WINHTTP_AUTH_TARGET_PROXY)
        ok = WinHttpSetCredentials(m_request, WINHTTP_AUTH_TARGET_PROXY, scheme, m_proxyUser.c_str(),
                                   m_proxyPassword.c_str(), nullptr);
    if (!ok)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::Authenticate"), GetLastError(),
                                       "WinHttpSetCredentials failed");
    return CZyError::Success();
}

CZyError CZyHTTP2::SendFileData(CZyFile& file)
{
    std::vector<unsigned char> buffer(kTransferBufferSize);
    for (;;)
    {
        uint32_t bytesRead = 0;
        CZyError error = file.Read(buffer.data(), kTransferBufferSize, bytesRead);
        if (error.IsError())
            return error.Push(ZY_LOC("CZyHTTP2::SendFileData"), "WinHttpReadData failed");
        if (bytesRead == 0)
            return CZyError::Success();

        DWORD written = 0;
        if (!WinHttpWriteData(m_request, buffer.data(), bytesRead, &written))
        {
            DWORD code = GetLastError();
            Log("WinHttpWriteData Failed, %d", static_cast<int>(code));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SendFileData"), code);
        }
        if (written != bytesRead)
        {
            Log("Bytes Send does not match bytes Read, %d", static_cast<int>(GetLastError()));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SendFileData"), GetLastError(),
                                           "Bytes sent (%u) does not match bytes read (%u)",
                                           static_cast<unsigned>(written), static_cast<unsigned>(bytesRead));
        }
    }
}

CZyError CZyHTTP2::ReceiveFileData(CZyFile& file)
{
    // The body ends at its Content-Length when the answer has one: a
    // connection that closes before it is a failure, bytes after it are not
    // part of the file (Wine's WinHTTP reports neither).
    wchar_t lengthText[32] = {};
    DWORD lengthSize = sizeof(lengthText);
    const bool haveLength = WinHttpQueryHeaders(m_request, WINHTTP_QUERY_CONTENT_LENGTH, WINHTTP_HEADER_NAME_BY_INDEX,
                                                lengthText, &lengthSize, WINHTTP_NO_HEADER_INDEX) != FALSE;
    const uint64_t announced = haveLength ? _wcstoui64(lengthText, nullptr, 10) : 0;
    uint64_t received = 0;
    std::vector<unsigned char> buffer(kTransferBufferSize);
    for (;;)
    {
        if (haveLength && received == announced)
            return CZyError::Success();
        DWORD available = 0;
        if (!WinHttpQueryDataAvailable(m_request, &available))
        {
            DWORD code = GetLastError();
            Log("WinHttpQueryDataAvailable Failed, %d", static_cast<int>(code));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::ReceiveFileData"), code,
                                           "WinHttpQueryDataAvailable failed");
        }
        if (available == 0)
        {
            if (haveLength && received < announced)
            {
                Log("Connection closed after %llu of %llu bytes", static_cast<unsigned long long>(received),
                    static_cast<unsigned long long>(announced));
                return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::ReceiveFileData"), ERROR_WINHTTP_CONNECTION_ERROR,
                                               "The connection closed after %llu of %llu bytes",
                                               static_cast<unsigned long long>(received),
                                               static_cast<unsigned long long>(announced));
            }
            return CZyError::Success();
        }

        // The server may have more ready than the buffer holds; the rest
        // comes on the next turn.
        DWORD wanted = available < kTransferBufferSize ? available : kTransferBufferSize;
        DWORD bytesRead = 0;
        if (!WinHttpReadData(m_request, buffer.data(), wanted, &bytesRead))
        {
            DWORD code = GetLastError();
            Log("WinHttpReadData Failed, %d", static_cast<int>(code));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::ReceiveFileData"), code, "WinHttpReadData failed");
        }
        if (haveLength && bytesRead > announced - received)
            bytesRead = static_cast<DWORD>(announced - received);
        received += bytesRead;
        if (bytesRead > 0)
        {
            CZyError error = file.Write(buffer.data(), bytesRead);
            if (error.IsError())
                return error.Push(ZY_LOC("CZyHTTP2::ReceiveFileData"), "Failed to write to file");
        }
    }
}

CZyError CZyHTTP2::SubmitRequest(const wchar_t* url, bool upload, CZyFile& file)
{
    const char* const kWhere = "CZyHTTP2::SubmitRequest";
    CloseInternetHandle(m_request);

    std::wstring requestUrl = url;
    if (m_autoEscape)
    {
        CZyError error = EscapeUrl(url, requestUrl);
        if (error.IsError())
            return error.Push(ZY_LOC(kWhere));
        Log("Escaped Url to: %s", FXString::ToString(requestUrl).c_str());
    }

    std::wstring host;
    std::wstring path;
    int port = 0;
    CZyError error = BreakUrl(requestUrl.c_str(), host, path, port);
    if (error.IsError())
        return error.Push(ZY_LOC(kWhere));

    const wchar_t* verb = !upload ? L"GET" : (m_postUpload ? L"POST" : L"PUT");
    DWORD flags = m_secured ? WINHTTP_FLAG_SECURE : 0;
    m_request = WinHttpOpenRequest(m_connection, verb, path.c_str(), nullptr, WINHTTP_NO_REFERER,
                                   WINHTTP_DEFAULT_ACCEPT_TYPES, flags);
    if (!m_request)
        return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), GetLastError(), "WinHttpOpenRequest failed");

    if (m_timeoutMs != 0)
    {
        int timeout = static_cast<int>(m_timeoutMs);
        if (!WinHttpSetTimeouts(m_request, 0, timeout, timeout, timeout))
            return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), GetLastError(), "WinHttpSetTimeouts failed");
        // The other limits bound each wait; this one bounds the wait for
        // all of the response headers, so a server that trickles them ends
        // with 12002 at the limit (twice the limit with the one reconnect
        // below). Wine 8 applies it to each wait only. Systems without the
        // option keep their own rule.
        DWORD responseTimeout = m_timeoutMs;
        WinHttpSetOption(m_request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &responseTimeout,
                         sizeof(responseTimeout));
    }

    DWORD securityFlags = kIgnoredCertificateErrors;
    if (!WinHttpSetOption(m_request, WINHTTP_OPTION_SECURITY_FLAGS, &securityFlags, sizeof(securityFlags)))
        return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), GetLastError(), "WinHttpSetOption failed");

    if (!m_requestHeaders.empty())
    {
        error = AddRequestHeader();
        if (error.IsError())
            return error.Push(ZY_LOC(kWhere));
    }

    int serviceUnavailableRetries = 0;
    bool clientCertificateFallbackUsed = false;
    bool timeoutReconnectUsed = false;
    bool serverAuthenticationTried = false;
    bool proxyAuthenticationTried = false;
    for (;;)
    {
        DWORD totalLength = 0;
        if (upload)
        {
            // A pass after a 401, 407 or 503 sends the whole file again.
            uint64_t size = 0;
            error = file.Seek(0, 0);
            if (!error.IsError())
                error = file.Size(size);
            if (error.IsError())
                return error.Push(ZY_LOC(kWhere));
            totalLength = static_cast<DWORD>(size);
        }

        if (!WinHttpSendRequest(m_request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0,
                                totalLength, 0))
        {
            DWORD code = GetLastError();
            Log("Send Request Failed, %d", static_cast<int>(code));
            if (code == ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED && !clientCertificateFallbackUsed)
            {
                if (!WinHttpSetOption(m_request, WINHTTP_OPTION_CLIENT_CERT_CONTEXT, WINHTTP_NO_CLIENT_CERT_CONTEXT,
                                      0))
                {
                    code = GetLastError();
                    Log("Set Option No Client Cert Failed, %d", static_cast<int>(code));
                    return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), code,
                                                   "WinHttpSetOption(NoClientCert) Failed, Is this 2003 SP1?");
                }
                clientCertificateFallbackUsed = true;
                continue;
            }
            return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), code, "WinHttpSendRequest failed");
        }
        Log("Send Request Succeeded");

        if (upload)
        {
            error = SendFileData(file);
            if (error.IsError())
                return error.Push(ZY_LOC(kWhere));
        }

        if (!WinHttpReceiveResponse(m_request, nullptr))
        {
            DWORD code = GetLastError();
            // Wine reports a response time-out with the socket's code;
            // Windows, and so this class, with WinHTTP's.
            if (code == WSAETIMEDOUT)
                code = ERROR_WINHTTP_TIMEOUT;
            Log("Receive Response Failed, %d", static_cast<int>(code));
            if (code == ERROR_WINHTTP_TIMEOUT && !timeoutReconnectUsed)
            {
                error = Reconnect();
                if (error.IsError())
                    return error.Push(ZY_LOC(kWhere));
                timeoutReconnectUsed = true;
                continue;
            }
            return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), code, "WinHttpReceiveResponse failed");
        }
        Log("Receive Response Succeeded");

        DWORD status = 0;
        DWORD statusSize = sizeof(status);
        if (!WinHttpQueryHeaders(m_request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                 WINHTTP_HEADER_NAME_BY_INDEX, &status, &statusSize, WINHTTP_NO_HEADER_INDEX))
        {
            Log("Query Status Code Failed, %d", static_cast<int>(GetLastError()));
            status = 0;
        }
        else
        {
            Log("Status Code: %d", static_cast<int>(status));
        }
        if (upload)
        {
            std::vector<wchar_t> headers(65536 / sizeof(wchar_t), L'\0');
            DWORD headersSize = static_cast<DWORD>((headers.size() - 1) * sizeof(wchar_t));
            if (WinHttpQueryHeaders(m_request, WINHTTP_QUERY_RAW_HEADERS, WINHTTP_HEADER_NAME_BY_INDEX,
                                    headers.data(), &headersSize, WINHTTP_NO_HEADER_INDEX))
                Log("%s", FXString::ToString(headers.data()).c_str());
        }

        if (status == HTTP_STATUS_OK)
            break;
        if (status == HTTP_STATUS_CREATED)
        {
            if (upload)
                break;
            // A download answered with 201 has nothing to receive.
            return CZyError::Success();
        }
        if (status == HTTP_STATUS_DENIED || status == HTTP_STATUS_PROXY_AUTH_REQ)
        {
            bool proxy = status == HTTP_STATUS_PROXY_AUTH_REQ;
            bool& tried = proxy ? proxyAuthenticationTried : serverAuthenticationTried;
            if (proxy)
                m_proxyAuthenticated = false;
            else
                m_requestCompleted = false;
            if (tried)
            {
                DWORD code = GetLastError();
                Log(proxy ? "Proxy Authentication Failed, %d" : "Authentication Failed, %d", static_cast<int>(code));
                return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), code,
                                               proxy ? "Proxy Authentication failed" : "Authentication failed");
            }
            // Without a usable scheme the request ends here, as a success.
            if (Authenticate().IsError())
                return CZyError::Success();
            tried = true;
            continue;
        }
        if (status == HTTP_STATUS_NOT_FOUND)
        {
            Log("File Not Found");
            return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), ERROR_NOT_FOUND, "URL not found");
        }
        if (status == HTTP_STATUS_SERVICE_UNAVAIL)
        {
            if (serviceUnavailableRetries >= kMaxServiceUnavailableRetries)
                return FXErrorUtil::ErrorHttp(ZY_LOC(kWhere), static_cast<int>(status));
            ++serviceUnavailableRetries;
            ZYSLEEP(static_cast<unsigned>(serviceUnavailableRetries * 2 * 1000));
            continue;
        }
        return FXErrorUtil::ErrorHttp(ZY_LOC(kWhere), static_cast<int>(status));
    }

    if (!upload)
    {
        error = ReceiveFileData(file);
        if (error.IsError())
            return error.Push(ZY_LOC(kWhere));
    }
    m_requestCompleted = true;
    return CZyError::Success();
}

CZyError CZyHTTP2::DownloadFile(const char* destination, const char* url)
{
    std::wstring wide = Wide(url);
    CZyError error = DownloadFile(destination, wide.c_str());
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::DownloadFile"));
    return error;
}

CZyError CZyHTTP2::DownloadFile(const char* destination, const wchar_t* url)
{
    CZyFile file;
    CZyError error = file.Open(destination ? destination : "", CZyFile::kWriteCreate, CZyFile::kModeOwnerReadWrite);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::DownloadFile"), "Failed to create destination file %s",
                          destination ? destination : "");

    const wchar_t* target = url ? url : L"";
    error = Connect(target);
    if (!error.IsError())
        error = SubmitRequest(target, false, file);
    file.Close();
    if (error.IsError())
    {
        // The caller must not mistake a partial file for the download.
        FXFile::RemoveFile(destination);
        error.Push(ZY_LOC("CZyHTTP2::DownloadFile"));
    }
    return error;
}

CZyError CZyHTTP2::UploadFile(const char* source, const char* url)
{
    std::wstring wide = Wide(url);
    CZyError error = UploadFile(source, wide.c_str());
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::UploadFile"));
    return error;
}

CZyError CZyHTTP2::UploadFile(const char* source, const wchar_t* url)
{
    CZyFile file;
    CZyError error = file.Open(source ? source : "", CZyFile::kReadOnly, CZyFile::kModeOwnerReadWrite);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::UploadFile"), "Failed to open source file %s", source ? source : "");

    const wchar_t* target = url ? url : L"";
    error = Connect(target);
    if (!error.IsError())
        error = SubmitRequest(target, true, file);
    file.Close();
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::UploadFile"));
    return error;
}

CZyError CZyHTTP2::PreUploadFile(const wchar_t* url)
{
    std::wstring host;
    std::wstring path;
    int port = 0;
    CZyError error = BreakUrl(url, host, path, port);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::PreUploadFile"));

    size_t query = path.rfind(L'?');
    if (query != std::wstring::npos)
        path.erase(query);
    size_t slash = path.rfind(L'/');
    if (slash != std::wstring::npos)
        path.erase(slash);
    // Only a touch of the directory; whatever it answers does not matter.
    DownloadFile("", path.c_str());
    return CZyError::Success();
}

CZyError CZyHTTP2::GetGlobalProxyConfiguration(std::string& proxy, std::string& bypass)
{
    WINHTTP_PROXY_INFO info;
    ZeroMemory(&info, sizeof(info));
    if (!WinHttpGetDefaultProxyConfiguration(&info))
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::GetGlobalProxyConfiguration"), GetLastError(),
                                       "Failed to global HTTP proxy configuration");
    proxy = TakeGlobalString(info.lpszProxy);
    bypass = TakeGlobalString(info.lpszProxyBypass);
    return CZyError::Success();
}

CZyError CZyHTTP2::GetProxyConfigurationForCurrentUser(std::string& proxy, std::string& bypass,
                                                       std::string& autoConfigUrl, bool& autoDetect)
{
    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config;
    ZeroMemory(&config, sizeof(config));
    if (!WinHttpGetIEProxyConfigForCurrentUser(&config))
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::GetProxyConfigurationForCurrentUser"), GetLastError(),
                                       "Failed to get HTTP proxy configuration for the current user");
    proxy = TakeGlobalString(config.lpszProxy);
    bypass = TakeGlobalString(config.lpszProxyBypass);
    autoConfigUrl = TakeGlobalString(config.lpszAutoConfigUrl);
    autoDetect = config.fAutoDetect != FALSE;
    return CZyError::Success();
}

CZyError CZyHTTP2::GetProxyForUrl(const std::string& url, const std::string& autoConfigUrl, std::string& proxy,
                                  std::string& bypass)
{
    const char* const kWhere = "CZyHTTP2::GetProxyForUrl";
    proxy.clear();
    bypass.clear();
    HINTERNET session = WinHttpOpen(L"HTTPProxyCheck", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                                    WINHTTP_NO_PROXY_BYPASS, 0);
    if (!session)
        return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), GetLastError(), "Failed to open WinHttp Session");

    std::wstring wideUrl = FXString::ToWstring(url);
    std::wstring wideConfigUrl = FXString::ToWstring(autoConfigUrl);
    WINHTTP_AUTOPROXY_OPTIONS options;
    ZeroMemory(&options, sizeof(options));
    if (autoConfigUrl.empty())
    {
        options.dwFlags = WINHTTP_AUTOPROXY_AUTO_DETECT;
        options.dwAutoDetectFlags = WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A;
    }
    else
    {
        options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
        options.lpszAutoConfigUrl = wideConfigUrl.c_str();
    }
    options.fAutoLogonIfChallenged = FALSE;

    WINHTTP_PROXY_INFO info;
    ZeroMemory(&info, sizeof(info));
    BOOL ok = WinHttpGetProxyForUrl(session, wideUrl.c_str(), &options, &info);
    if (!ok && GetLastError() == ERROR_WINHTTP_LOGIN_FAILURE)
    {
        options.fAutoLogonIfChallenged = TRUE;
        ok = WinHttpGetProxyForUrl(session, wideUrl.c_str(), &options, &info);
    }
    if (!ok)
    {
        DWORD code = GetLastError();
        WinHttpCloseHandle(session);
        return FXErrorUtil::ErrorWin32(ZY_LOC(kWhere), code, "Failed to get proxy for URL [%s]", url.c_str());
    }
    proxy = TakeGlobalString(info.lpszProxy);
    bypass = TakeGlobalString(info.lpszProxyBypass);
    WinHttpCloseHandle(session);
    return CZyError::Success();
}
