// CZyHTTP2's request loop over WinHTTP: the headers, authentication, the
// loops that move a file's bytes, and the request with its retry rules.
#include "ZyNetwork/ZyHTTP2.h"

#include <windows.h>
#include <winhttp.h>

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
// Locations name the class's file, wherever its code stands.
const char kZyFile[] = "ZyNetwork/ZyHTTP2";
}  // namespace

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
    CloseInternetHandle(m_request);

    std::wstring requestUrl = url;
    if (m_autoEscape)
    {
        CZyError error = EscapeUrl(url, requestUrl);
        if (error.IsError())
            return error.Push(ZY_LOC("CZyHTTP2::SubmitRequest"));
        Log("Escaped Url to: %s", FXString::ToString(requestUrl).c_str());
    }

    std::wstring host;
    std::wstring path;
    int port = 0;
    CZyError error = BreakUrl(requestUrl.c_str(), host, path, port);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::SubmitRequest"));

    const wchar_t* verb = !upload ? L"GET" : (m_postUpload ? L"POST" : L"PUT");
    DWORD flags = m_secured ? WINHTTP_FLAG_SECURE : 0;
    m_request = WinHttpOpenRequest(m_connection, verb, path.c_str(), nullptr, WINHTTP_NO_REFERER,
                                   WINHTTP_DEFAULT_ACCEPT_TYPES, flags);
    if (!m_request)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), GetLastError(), "WinHttpOpenRequest failed");

    if (m_timeoutMs != 0)
    {
        int timeout = static_cast<int>(m_timeoutMs);
        if (!WinHttpSetTimeouts(m_request, 0, timeout, timeout, timeout))
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), GetLastError(),
                                           "WinHttpSetTimeouts failed");
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
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), GetLastError(), "WinHttpSetOption failed");

    if (!m_requestHeaders.empty())
    {
        error = AddRequestHeader();
        if (error.IsError())
            return error.Push(ZY_LOC("CZyHTTP2::SubmitRequest"));
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
                return error.Push(ZY_LOC("CZyHTTP2::SubmitRequest"));
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
                    return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), code,
                                                   "WinHttpSetOption(NoClientCert) Failed, Is this 2003 SP1?");
                }
                clientCertificateFallbackUsed = true;
                continue;
            }
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), code, "WinHttpSendRequest failed");
        }
        Log("Send Request Succeeded");

        if (upload)
        {
            error = SendFileData(file);
            if (error.IsError())
                return error.Push(ZY_LOC("CZyHTTP2::SubmitRequest"));
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
                    return error.Push(ZY_LOC("CZyHTTP2::SubmitRequest"));
                timeoutReconnectUsed = true;
                continue;
            }
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), code, "WinHttpReceiveResponse failed");
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
                return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), code,
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
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SubmitRequest"), ERROR_NOT_FOUND, "URL not found");
        }
        if (status == HTTP_STATUS_SERVICE_UNAVAIL)
        {
            if (serviceUnavailableRetries >= kMaxServiceUnavailableRetries)
                return FXErrorUtil::ErrorHttp(ZY_LOC("CZyHTTP2::SubmitRequest"), static_cast<int>(status));
            ++serviceUnavailableRetries;
            ZYSLEEP(static_cast<unsigned>(serviceUnavailableRetries * 2 * 1000));
            continue;
        }
        return FXErrorUtil::ErrorHttp(ZY_LOC("CZyHTTP2::SubmitRequest"), static_cast<int>(status));
    }

    if (!upload)
    {
        error = ReceiveFileData(file);
        if (error.IsError())
            return error.Push(ZY_LOC("CZyHTTP2::SubmitRequest"));
    }
    m_requestCompleted = true;
    return CZyError::Success();
}
