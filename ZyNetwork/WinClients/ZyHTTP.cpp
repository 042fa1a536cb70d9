// ZyHTTP over WinINet. Every request opens a session, a connection and a
// request handle of its own and closes them before returning; the object
// itself holds only settings, which is what makes copies safe. With a time
// limit the session is asynchronous and the client waits for each call
// itself, so that the limit bounds the whole header phase (connecting, the
// TLS handshake, the request, redirects, the response headers) and not only
// each wait within it.
// Longer than our usual 600 lines: one class, its three request kinds
// sharing the handles, the status code and the asynchronous wait.
#include "ZyNetwork/ZyHTTP.h"

#include <windows.h>
#include <wininet.h>

#include <stdlib.h>
#include <string.h>

#include <deque>
#include <set>
#include <string>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"

static const char kZyFile[] = "ZyNetwork/ZyHTTP";

namespace
{
const uint32_t kBadArgument = 87;
const DWORD kChunk = 64 * 1024;                   // read and write pieces
const size_t kMaxListingPage = 16 * 1024 * 1024;  // a listing page larger than this is refused
const int kMaxListingDepth = 32;
const char kDefaultUserAgent[] = "ZyHTTP";

// Closes a WinINet handle when it goes out of scope.
class InternetHandle
{
public:
    InternetHandle() : m_handle(nullptr) {}
    ~InternetHandle() { Reset(nullptr); }
    InternetHandle(const InternetHandle&) = delete;
    InternetHandle& operator=(const InternetHandle&) = delete;

    void Reset(HINTERNET handle)
    {
        if (m_handle)
            InternetCloseHandle(m_handle);
        m_handle = handle;
    }
    HINTERNET Get() const { return m_handle; }

private:
    HINTERNET m_handle;
};

// A text's pointer, or null for an empty one (WinINet's "not given").
const char* OrNull(const CZyString& text)
{
    return text.IsEmpty() ? nullptr : text.c_str();
}

bool HasLineBreak(const std::string& text)
{
    return text.find_first_of("\r\n") != std::string::npos;
}

std::string LastSegment(const std::string& path)
{
    size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string JoinLocal(const char* directory, const std::string& name)
{
    std::string path = directory ? directory : "";
    if (!path.empty() && path.back() != '/' && path.back() != '\\')
        path += '\\';
    return path + name;
}

// The completion of the call a request in asynchronous mode has pending.
// The request and WinINet's status callback hold a reference each: after a
// cancel WinINet may still call back when the request has returned, last
// with INTERNET_STATUS_HANDLE_CLOSING.
class Completion
{
public:
    Completion() : m_event(CreateEventW(nullptr, FALSE, FALSE, nullptr)), m_error(0), m_references(1) {}
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

    bool Usable() const { return m_event != nullptr; }
    void AddReference() { InterlockedIncrement(&m_references); }
    void Release()
    {
        if (InterlockedDecrement(&m_references) == 0)
            delete this;
    }
    void Prepare() { ResetEvent(m_event); }
    void Complete(DWORD error)
    {
        m_error = error;
        SetEvent(m_event);
    }
    // The call's result, or false when `milliseconds` passed first.
    bool Wait(DWORD milliseconds, DWORD& error) const
    {
        if (WaitForSingleObject(m_event, milliseconds) != WAIT_OBJECT_0)
            return false;
        error = m_error;
        return true;
    }

private:
    ~Completion()
    {
        if (m_event)
            CloseHandle(m_event);
    }

    HANDLE m_event;
    DWORD m_error;  // written before the event is set
    LONG m_references;
};

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

// One request's destination.
struct ZyHTTP::Target
{
    std::string host;
    INTERNET_PORT port = 0;
    bool secure = false;
    std::string object;  // encoded path and query
    std::string url;     // for messages
};

// The handles of one request, closed request first, session last. With a
// time limit the session is asynchronous, so that the client keeps the
// limit of the header phase itself: WinINet's own limits bound each wait.
struct ZyHTTP::Handles
{
    Handles() : completion(nullptr), headerLimitMs(0) {}
    Handles(const Handles&) = delete;
    Handles& operator=(const Handles&) = delete;
    ~Handles()
    {
        request.Reset(nullptr);
        connection.Reset(nullptr);
        session.Reset(nullptr);
        if (completion)
            completion->Release();
    }

    // Runs one WinINet call on the request and, when it is left pending,
    // waits for it: at most `limitMs` when that is not 0, otherwise as long
    // as WinINet's own limits let it. Past the limit the request is closed,
    // which cancels the call, and the result is ERROR_INTERNET_TIMEOUT; the
    // request must not be used again. Returns ERROR_SUCCESS or the error.
    template <class Call>
    DWORD Run(DWORD limitMs, Call call)
    {
        if (completion)
            completion->Prepare();
        if (call())
            return ERROR_SUCCESS;
        DWORD error = GetLastError();
        if (!completion || error != ERROR_IO_PENDING)
            return error;
        if (completion->Wait(limitMs != 0 ? limitMs : INFINITE, error))
            return error;
        request.Reset(nullptr);
        return ERROR_INTERNET_TIMEOUT;
    }

    // Writes all of `data`; InternetWriteFile may take less than offered.
    DWORD WriteAll(const char* data, size_t size)
    {
        while (size > 0)
        {
            DWORD piece = size > kChunk ? kChunk : static_cast<DWORD>(size);
            DWORD written = 0;
            DWORD error = Run(0, [&] { return InternetWriteFile(request.Get(), data, piece, &written); });
            if (error != ERROR_SUCCESS)
                return error;
            if (written == 0)
                return ERROR_INTERNET_CONNECTION_ABORTED;
            data += written;
            size -= written;
        }
        return ERROR_SUCCESS;
    }

    InternetHandle session;
    InternetHandle connection;
    InternetHandle request;
    Completion* completion;  // asynchronous mode only
    DWORD headerLimitMs;     // for connecting, the request and the response headers
};

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
    zyhttp::UrlParts parts;
    if (!baseUrl || !zyhttp::ParseBaseUrl(baseUrl, parts))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::SetBaseURL"), kBadArgument, "Not a usable HTTP URL: '%s'",
                                       baseUrl ? baseUrl : "(null)");
    m_haveUrl = true;
    m_secure = parts.secure;
    m_server = parts.host;
    m_port = parts.port;
    m_path = zyhttp::DirectoryPath(parts.path);
    return CZyError::Success();
}

void ZyHTTP::SetWebServer(const char* server)
{
    std::string text = server ? server : "";
    zyhttp::UrlParts parts;
    if (text.empty() || text.find_first_of("/?#") != std::string::npos || !zyhttp::ParseBaseUrl(text, parts))
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
    m_path = zyhttp::DirectoryPath(path ? path : "");
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
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::GetWorkingURL"), kBadArgument, "No server URL is set");
    zyhttp::UrlParts parts;
    parts.secure = m_secure;
    parts.host = m_server.str();
    parts.port = m_port;
    url = zyhttp::Origin(parts) + m_path.str();
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
    zyhttp::UrlParts parts;
    parts.secure = m_secure;
    parts.host = m_server.str();
    parts.port = m_port;
    target.url = zyhttp::Origin(parts) + object;
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

CZyError ZyHTTP::_sendRequestGet(const Target& target, const std::map<CZyString, CZyString>& headers,
                                 Handles& handles, uint64_t& contentLength) const
{
    CZyError error = _openRequest(target, "GET", true, handles);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestGet"));
    for (const auto& header : headers)
    {
        if (header.first.IsEmpty() || HasLineBreak(header.first.str()) || HasLineBreak(header.second.str()) ||
            header.first.str().find(':') != std::string::npos)
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestGet"), kBadArgument, "Bad request header '%s'",
                                           header.first.c_str());
        std::string line = header.first.str() + ": " + header.second.str() + "\r\n";
        if (!HttpAddRequestHeadersA(handles.request.Get(), line.c_str(), static_cast<DWORD>(line.size()),
                                    HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE))
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestGet"), GetLastError(),
                                           "Cannot add the request header '%s'", header.first.c_str());
    }
    DWORD code = handles.Run(handles.headerLimitMs,
                             [&] { return HttpSendRequestA(handles.request.Get(), nullptr, 0, nullptr, 0); });
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestGet"), code, "GET %s failed", target.url.c_str());
    error = _checkStatus(target, handles, &contentLength);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestGet"));
    return CZyError::Success();
}

CZyError ZyHTTP::_download(const Target& target, const std::map<CZyString, CZyString>& headers,
                           const std::string& localFile)
{
    Handles handles;
    uint64_t expected = 0;
    CZyError error = _sendRequestGet(target, headers, handles, expected);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_download"));

    // The body goes to a side file first, so that only a complete download
    // ever carries the local file's name.
    const std::string partFile = localFile + ".part";
    CZyFile file;
    error = file.Open(partFile.c_str(), CZyFile::kWriteCreate);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_download"), "Cannot create %s", partFile.c_str());
    std::string buffer(kChunk, '\0');
    uint64_t received = 0;
    for (;;)
    {
        DWORD got = 0;
        DWORD code = handles.Run(0, [&] { return InternetReadFile(handles.request.Get(), &buffer[0], kChunk, &got); });
        if (code != ERROR_SUCCESS)
        {
            error = FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_download"), code, "Reading %s failed", target.url.c_str());
            break;
        }
        if (got == 0)
            break;
        received += got;
        error = file.Write(buffer.data(), got);
        if (error.IsError())
        {
            error.Push(ZY_LOC("ZyHTTP::_download"), "Cannot write %s", partFile.c_str());
            break;
        }
    }
    if (!error.IsError() && expected != UINT64_MAX && received != expected)
        error = FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_download"), ERROR_INTERNET_CONNECTION_ABORTED,
                                        "%s ended after %llu of %llu bytes", target.url.c_str(),
                                        static_cast<unsigned long long>(received),
                                        static_cast<unsigned long long>(expected));
    CZyError closed = file.Close();
    if (!error.IsError() && closed.IsError())
        error = closed.Push(ZY_LOC("ZyHTTP::_download"));
    if (!error.IsError() && !MoveFileExW(FXString::ToWstring(partFile).c_str(), FXString::ToWstring(localFile).c_str(),
                                         MOVEFILE_REPLACE_EXISTING))
        error = FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_download"), GetLastError(), "Cannot rename %s to %s",
                                        partFile.c_str(), localFile.c_str());
    if (error.IsError())
        FXFile::RemoveFile(partFile.c_str());
    return error;
}

CZyError ZyHTTP::_fetchPage(const Target& target, std::string& page)
{
    Handles handles;
    uint64_t expected = 0;
    CZyError error = _sendRequestGet(target, {}, handles, expected);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_fetchPage"));
    page.clear();
    char buffer[8192];
    for (;;)
    {
        DWORD got = 0;
        DWORD code =
            handles.Run(0, [&] { return InternetReadFile(handles.request.Get(), buffer, sizeof(buffer), &got); });
        if (code != ERROR_SUCCESS)
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_fetchPage"), code, "Reading %s failed",
                                           target.url.c_str());
        if (got == 0)
            break;
        if (page.size() + got > kMaxListingPage)
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_fetchPage"), ERROR_INSUFFICIENT_BUFFER,
                                           "The listing %s is larger than %lu bytes", target.url.c_str(),
                                           static_cast<unsigned long>(kMaxListingPage));
        page.append(buffer, got);
    }
    return CZyError::Success();
}

CZyError ZyHTTP::DownloadFile(const char* remoteDirectory, const char* fileName, const char* localDirectory)
{
    if (!fileName || !*fileName || LastSegment(fileName).empty())
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::DownloadFile"), kBadArgument, "No file name to download");
    std::string object = m_path.str();
    if (remoteDirectory && *remoteDirectory)
        object = zyhttp::DirectoryPath(object + zyhttp::EncodePath(remoteDirectory));
    std::string name = zyhttp::EncodePath(fileName);
    while (!name.empty() && name[0] == '/')
        name.erase(0, 1);
    Target target;
    CZyError error = _target(object + name, target);
    if (!error.IsError())
        error = _download(target, {}, JoinLocal(localDirectory, LastSegment(fileName)));
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::DownloadFile"));
    return CZyError::Success();
}

CZyError ZyHTTP::DownloadFileFromUrl(const char* url, const char* localDirectory, const char* localFileName,
                                     const std::map<CZyString, CZyString>& headers)
{
    zyhttp::UrlParts parts;
    if (!url || !zyhttp::ParseBaseUrl(url, parts))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::DownloadFileFromUrl"), kBadArgument, "Not a usable HTTP URL: '%s'",
                                       url ? url : "(null)");
    std::string name = localFileName ? localFileName : "";
    if (name.empty())
        name = zyhttp::DecodePath(LastSegment(parts.path));
    if (name.empty() || name.find_first_of("/\\:") != std::string::npos)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::DownloadFileFromUrl"), kBadArgument,
                                       "No local file name for '%s'", url);
    Target target;
    target.host = parts.host;
    target.secure = parts.secure;
    target.port = parts.port != 0 ? parts.port : (parts.secure ? INTERNET_DEFAULT_HTTPS_PORT : INTERNET_DEFAULT_HTTP_PORT);
    target.object = parts.path + parts.query;
    target.url = url;
    CZyError error = _download(target, headers, JoinLocal(localDirectory, name));
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::DownloadFileFromUrl"));
    return CZyError::Success();
}

CZyError ZyHTTP::GetFileList(std::vector<CZyString>& files, const char* directory)
{
    files.clear();
    std::string top = m_path.str();
    if (directory && *directory)
        top = zyhttp::DirectoryPath(top + zyhttp::EncodePath(directory));
    CZyString working;
    CZyError error = GetWorkingURL(working);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::GetFileList"));
    zyhttp::UrlParts parts;
    parts.secure = m_secure;
    parts.host = m_server.str();
    parts.port = m_port;
    const std::string origin = zyhttp::Origin(parts);

    struct Page
    {
        std::string path;    // encoded, ends in '/'
        std::string prefix;  // plain, relative to `directory`
        int depth;
    };
    std::deque<Page> pending = {{top, "", 0}};
    std::set<std::string> visited = {top};
    std::set<std::string> found;
    while (!pending.empty())
    {
        Page page = pending.front();
        pending.pop_front();
        Target target;
        std::string html;
        error = _target(page.path, target);
        if (!error.IsError())
            error = _fetchPage(target, html);
        if (error.IsError())
        {
            files.clear();
            return error.Push(ZY_LOC("ZyHTTP::GetFileList"));
        }
        for (const std::string& link : zyhttp::ExtractLinks(html))
        {
            zyhttp::ListingLink entry = zyhttp::ClassifyListingLink(link, origin, page.path);
            if (entry.kind == zyhttp::ListingLink::kFile)
            {
                std::string name = page.prefix + entry.name;
                if (found.insert(name).second)
                    files.push_back(name);
            }
            else if (entry.kind == zyhttp::ListingLink::kDirectory && page.depth < kMaxListingDepth)
            {
                std::string path = page.path + zyhttp::EncodePath(entry.name);
                if (visited.insert(path).second)
                    pending.push_back({path, page.prefix + entry.name, page.depth + 1});
            }
        }
    }
    return CZyError::Success();
}

CZyError ZyHTTP::_sendRequestPost(const Target& target, const char* localFile, const char* clientId)
{
    CZyFile file;
    CZyError error = file.Open(localFile, CZyFile::kReadOnly);
    uint64_t fileSize = 0;
    if (!error.IsError())
        error = file.Size(fileSize);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"), "Cannot read %s", localFile);

    zyhttp::UploadFields fields;
    fields.jsp = m_uploadMode == zyhttp::kUploadModeJsp;
    fields.clientId = clientId && *clientId ? clientId : zyhttp::kNoClientId;
    fields.user = m_user.str();
    fields.password = m_password.str();
    fields.fileName = LastSegment(localFile);
    const zyhttp::UploadForm form = zyhttp::BuildUploadForm(fields);
    const uint64_t total = form.head.size() + fileSize + form.tail.size();
    if (total > 0xFFFFFFFFull)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), ERROR_FILE_TOO_LARGE,
                                       "%s is too large to upload", localFile);

    if (HasLineBreak(m_user.str()) || HasLineBreak(m_password.str()))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), kBadArgument,
                                       "The user name or password holds a line break");

    Handles handles;
    error = _openRequest(target, "POST", false, handles);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"));
    std::string headers;
    if (!m_user.IsEmpty())
        headers += "Authorization: " + zyhttp::BasicAuthorization(m_user.str(), m_password.str()) + "\r\n";
    headers += std::string("Content-Type: multipart/form-data; boundary=") + zyhttp::kUploadBoundary + "\r\n";
    if (!HttpAddRequestHeadersA(handles.request.Get(), headers.c_str(), static_cast<DWORD>(headers.size()),
                                HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), GetLastError(),
                                       "Cannot add the upload headers");

    INTERNET_BUFFERSA buffers;
    memset(&buffers, 0, sizeof(buffers));
    buffers.dwStructSize = sizeof(buffers);
    buffers.dwBufferTotal = static_cast<DWORD>(total);
    DWORD code = handles.Run(handles.headerLimitMs, [&] {
        return HttpSendRequestExA(handles.request.Get(), &buffers, nullptr, 0,
                                  reinterpret_cast<DWORD_PTR>(handles.completion));
    });
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "POST %s failed", target.url.c_str());

    code = handles.WriteAll(form.head.data(), form.head.size());
    std::string buffer(kChunk, '\0');
    uint64_t sent = 0;
    while (code == ERROR_SUCCESS && sent < fileSize)
    {
        uint32_t got = 0;
        error = file.Read(&buffer[0], kChunk, got);
        if (error.IsError())
            return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"), "Cannot read %s", localFile);
        if (got == 0)
            break;  // the file shrank; the length check below reports it
        code = handles.WriteAll(buffer.data(), got);
        sent += got;
    }
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "Sending to %s failed",
                                       target.url.c_str());
    if (sent != fileSize)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), ERROR_HANDLE_EOF,
                                       "%s changed size during the upload", localFile);
    code = handles.WriteAll(form.tail.data(), form.tail.size());
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "Sending to %s failed",
                                       target.url.c_str());
    code = handles.Run(handles.headerLimitMs, [&] {
        return HttpEndRequestA(handles.request.Get(), nullptr, 0, reinterpret_cast<DWORD_PTR>(handles.completion));
    });
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "No answer from %s",
                                       target.url.c_str());
    error = _checkStatus(target, handles, nullptr);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"));
    return CZyError::Success();
}

CZyError ZyHTTP::UploadFile(const char* localFile, const char* clientId)
{
    if (!localFile || !*localFile)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::UploadFile"), kBadArgument, "No file to upload");
    const char* object = m_uploadMode == zyhttp::kUploadModeJsp ? "httplogupload.do" : "upload.asp";
    Target target;
    CZyError error = _target(m_path.str() + object, target);
    if (!error.IsError())
        error = _sendRequestPost(target, localFile, clientId);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::UploadFile"));
    return CZyError::Success();
}
