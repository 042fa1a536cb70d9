// CZyHTTP2: a synchronous HTTP(S) client over WinHTTP (Windows only) that
// downloads one URL into a file or uploads one file to a URL, with server
// and proxy authentication, a fixed retry policy for 503 answers, a
// client-certificate fallback and one reconnect after a receive time-out;
// plus three static proxy-discovery helpers.
//
// This header does not include <winhttp.h> (which cannot share a
// translation unit with <wininet.h>): WinHTTP handles are held as void*.
#pragma once

#include <stdint.h>

#include <map>
#include <string>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"

class CZyFile;

// The WinHTTP client described above: one object, one session.
class ZYNET_API CZyHTTP2
{
public:
    typedef std::map<std::string, std::string> HeaderMap;

    CZyHTTP2();
    // `agent` is the user-agent handed to WinHttpOpen ("ZyHTTP" by default).
    explicit CZyHTTP2(const char* agent);
    // Copies take every setting (agent, credentials, proxy, flags, time-out,
    // headers) but none of the WinHTTP handles: a copy opens its own session
    // and connection when it first needs them. Sharing the handles would
    // leave two objects closing the same handles in their destructors; a
    // fresh set keeps copying as cheap and as safe as for any other value.
    // The connection's host and port stay with the original too.
    CZyHTTP2(const CZyHTTP2& other);
    // The same for assignment: this object's handles are closed first.
    CZyHTTP2& operator=(const CZyHTTP2& other);
    // Closes the request, connection and session handles, in that order.
    virtual ~CZyHTTP2();

    // Opens the session if needed and a connection to the URL's host and
    // port; a connection to the same host and port is kept.
    // @{
    CZyError Connect(const char* url);
    CZyError Connect(const wchar_t* url);
    // @}
    // GET `url` into `destination` (created or truncated). On failure the
    // destination file is deleted.
    // @{
    CZyError DownloadFile(const char* destination, const char* url);
    CZyError DownloadFile(const char* destination, const wchar_t* url);
    // @}
    // PUT (or POST, see SetPostUpload) the bytes of `source` to `url`.
    // @{
    CZyError UploadFile(const char* source, const char* url);
    CZyError UploadFile(const char* source, const wchar_t* url);
    // @}

    // The server credentials, answered when the server asks for authentication.
    // @{
    void SetUser(const char* user);
    void SetPassword(const char* password);
    // @}
    // Whether request URLs are escaped first (on by default).
    void SetAutoEscapeUrl(bool escape) { m_autoEscape = escape; }
    // Uploads with POST instead of PUT.
    void SetPostUpload(bool post) { m_postUpload = post; }
    // Every URL split overwrites this from the scheme (https: true).
    void SetSecured(bool secured) { m_secured = secured; }
    // Connect, send and receive time-outs; 0 leaves WinHTTP's own.
    void SetInternetTimeoutSec(long seconds);
    // A named proxy ("host:port"). Null keeps the stored name but still
    // switches to a named proxy. Takes effect when the session is made.
    void SetProxyAccess(const char* proxy);
    // The hosts reached without the proxy (WinHTTP's bypass list). Null keeps the
    // stored list but still marks a list as given.
    void SetProxyBypass(const char* list);
    // Stores each of the two that is not null.
    void SetProxyCredentials(const char* user, const char* password);
    // Adds a header; a name already present keeps its earlier value.
    void SetRequestHeader(std::string name, std::string value);
    // Replaces all headers.
    void SetRequestHeader(const HeaderMap& headers);
    // Removes all headers set with SetRequestHeader.
    void ClearRequestHeader();

    // WinHTTP's default proxy configuration (registry or environment).
    static CZyError GetGlobalProxyConfiguration(std::string& proxy, std::string& bypass);
    // The current user's configuration (the Internet Settings).
    static CZyError GetProxyConfigurationForCurrentUser(std::string& proxy, std::string& bypass,
                                                        std::string& autoConfigUrl, bool& autoDetect);
    // The proxy that the auto-configuration script at `autoConfigUrl` names
    // for `url`. An empty `autoConfigUrl` asks for automatic detection
    // (DHCP and DNS look-ups on the network).
    static CZyError GetProxyForUrl(const std::string& url, const std::string& autoConfigUrl, std::string& proxy,
                                   std::string& bypass);

private:
    friend class CZyHTTP2TestAccess;  // lets the unit tests read the private state

    CZyError IntializeSession();
    CZyError BreakUrl(const wchar_t* url, std::wstring& host, std::wstring& path, int& port);
    CZyError EscapeUrl(const wchar_t* url, std::wstring& out);
    CZyError EscapeUrlExtra(const wchar_t* url, std::wstring& out);
    CZyError Reconnect();
    CZyError AddRequestHeader();
    CZyError Authenticate();
    CZyError SubmitRequest(const wchar_t* url, bool upload, CZyFile& file);
    CZyError SendFileData(CZyFile& file);
    CZyError ReceiveFileData(CZyFile& file);
    CZyError PreUploadFile(const wchar_t* url);
    void CloseHandles();
    // Diagnostics: written at level 2 through g_ptrLogWriter when a writer
    // is installed, otherwise nothing.
    static void Log(const char* format, ...);
    // Registered with WinHTTP for every notification; does nothing. The
    // context is pointer-sized, as WinHTTP passes it.
    static void __stdcall StatusCallbackStatic(void* handle, uintptr_t context, unsigned long status, void* info,
                                               unsigned long infoLength);

    void* m_session;
    void* m_connection;
    void* m_request;
    uint16_t m_port;
    std::wstring m_hostName;
    std::wstring m_user;
    std::wstring m_password;
    std::wstring m_agent;
    bool m_postUpload;
    bool m_requestCompleted;
    bool m_autoEscape;
    bool m_secured;
    uint32_t m_timeoutMs;
    uint32_t m_proxyAccessType;
    bool m_proxyAuthenticated;
    std::wstring m_proxy;
    std::wstring m_proxyUser;
    std::wstring m_proxyPassword;
    bool m_bypassGiven;
    std::wstring m_proxyBypass;
    HeaderMap m_requestHeaders;
};
