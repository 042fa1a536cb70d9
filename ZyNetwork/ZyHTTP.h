// ZyHTTP: an HTTP client over WinINet (Windows only) for downloads, listings
// of web directories and the multipart upload of log files.
//
// Settings and requests:
// - The base URL names the scheme ("http" or "https" in any case; none means
//   http), the server (a name, an IPv4 literal or a bracketed IPv6 literal),
//   an optional port and a path; its query and fragment are dropped. The
//   working URL is "scheme://server[:port]" plus the path, which always ends
//   in '/'. `SetWebServer` and `SetPath` replace the server and the path.
// - Each request opens its own WinINet handles and closes them before it
//   returns, so copies of a client are independent and share nothing.
// - Remote names passed to DownloadFile and GetFileList, and the names that
//   GetFileList returns, are plain text: the client percent-encodes them for
//   the request. The base URL, `SetPath` and the URL of DownloadFileFromUrl
//   are URL text and are sent as written.
// - Downloads succeed on a 2xx status only. Any other final status (after
//   WinINet followed redirects) is an HTTP error with that status. A body is
//   written to "<local file>.part" and renamed over the local file only when
//   it is complete, so a failed download leaves no file behind and an
//   existing file is replaced only by a complete one.
// - Credentials (`SetUser`, `SetPassword`) are given to WinINet for the
//   server's authentication challenges; the upload sends its Basic
//   Authorization header up front whenever a user name is set.
// - The proxy is used only when `SetProxyAccess` named one; the client never
//   discovers proxies by itself.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"
#include "ZyUtils/ZyString.h"

// The WinINet client described above.
class ZYNET_API ZyHTTP
{
public:
    // A client for `baseUrl`. A URL that cannot be parsed leaves the client
    // without a server: requests and GetWorkingURL then fail with Win32 87
    // until SetBaseURL succeeds.
    explicit ZyHTTP(const char* baseUrl);
    // Copies every setting; the client holds no open handles between requests.
    // @{
    ZyHTTP(const ZyHTTP& other);
    ZyHTTP& operator=(const ZyHTTP& other);
    // @}
    ~ZyHTTP();

    // Parses and stores the server URL (see above). A URL that cannot be
    // parsed is a Win32 error 87 and leaves the previous settings alone.
    CZyError SetBaseURL(const char* baseUrl);
    // Replaces the server: "host", "host:port" or "[v6]:port" (a port here
    // replaces the URL's port; none keeps it). A text that names no server
    // leaves the client without one: requests then fail with Win32 87.
    void SetWebServer(const char* server);
    // Replaces the path of the working URL (URL text; a leading and a
    // trailing '/' are added when missing).
    void SetPath(const char* path);
    // The server credentials (see above); null clears.
    // @{
    void SetUser(const char* user);
    void SetPassword(const char* password);
    // @}
    // The User-Agent of every request ("ZyHTTP" unless set).
    void SetUserAgent(const char* userAgent);
    // The upload mode: "Use_JSP_for_Upload" sends uploads to
    // "httplogupload.do" with the six-part form that carries the user name
    // and password; any other text (the default is empty) sends them to
    // "upload.asp" with the four-part form.
    void SetUploadMode(const char* mode);
    // Requests go through `proxy` ("host:port", WinINet's proxy list syntax),
    // except to the hosts of `bypass` (may be null). A null or empty proxy
    // means a direct connection.
    void SetProxyAccess(const char* proxy, const char* bypass);
    // The credentials for the proxy's authentication challenges; null clears.
    void SetProxyCreds(const char* user, const char* password);
    // The time limit in milliseconds for connecting, sending and each wait
    // for data; a request that exceeds it fails with WinINet's error (Win32
    // 12002 on Windows; Wine reports 12030). 0 (the default) or a negative
    // value keeps WinINet's own limits.
    void SetInternetTimeout(long milliseconds);
    // Later requests accept any server certificate (unknown issuer, wrong
    // name, expired, revoked).
    void SetIgnoreCertificateErrors();

    // The URL that requests use: "scheme://server[:port]/path/".
    CZyError GetWorkingURL(CZyString& url) const;

    // Downloads the working URL plus `remoteDirectory` (may be null or empty)
    // plus `fileName` into the file `localDirectory`/<last segment of
    // `fileName`>. An empty or null `localDirectory` is the current directory.
    CZyError DownloadFile(const char* remoteDirectory, const char* fileName, const char* localDirectory);
    // Downloads the full `url` into `localDirectory`/`localFileName`; an empty
    // or null `localFileName` takes the last path segment of the URL (decoded).
    // `headers` are added to the request as "name: value" lines; the client's
    // settings (user agent, credentials, proxy, time limit, certificate
    // option) apply as for every request.
    CZyError DownloadFileFromUrl(const char* url, const char* localDirectory, const char* localFileName,
                                 const std::map<CZyString, CZyString>& headers);
    // Lists the files below `directory` (relative to the working URL; null
    // or empty for the working URL itself) by reading the server's HTML
    // pages: every href=" link that names an entry below the page's own
    // directory counts, a link ending in '/' is a subdirectory and is listed
    // in turn. Links up ("..", absolute paths outside the directory), to the
    // page itself, to other servers, and pages already visited are skipped,
    // and subdirectories deeper than 32 levels are not entered. `files` is
    // cleared first and receives each file once, as its plain path below
    // `directory` ("a.txt", "sub/b.bin"), in the order found.
    CZyError GetFileList(std::vector<CZyString>& files, const char* directory);
    // Uploads `localFile` as a multipart form to the working URL plus
    // "upload.asp" or "httplogupload.do" (see SetUploadMode). `clientId` is
    // the form's ccid value; "NO CCID" is sent when it is null or empty. The
    // form names the file by its last path segment. A status other than 2xx
    // is an HTTP error with that status.
    CZyError UploadFile(const char* localFile, const char* clientId);

private:
    struct Target;   // one request's server, object and flags
    struct Handles;  // one request's WinINet handles
    CZyError _target(const std::string& object, Target& target) const;
    void _applyTimeouts(void* handle) const;  // an HINTERNET
    CZyError _openRequest(const Target& target, const char* verb, bool withCredentials, Handles& handles) const;
    CZyError _checkStatus(const Target& target, Handles& handles, uint64_t* contentLength) const;
    CZyError _sendRequestGet(const Target& target, const std::map<CZyString, CZyString>& headers, Handles& handles,
                             uint64_t& contentLength) const;
    CZyError _download(const Target& target, const std::map<CZyString, CZyString>& headers,
                       const std::string& localFile);
    CZyError _fetchPage(const Target& target, std::string& page);
    CZyError _sendRequestPost(const Target& target, const char* localFile, const char* clientId);

    bool m_haveUrl;
    bool m_secure;
    CZyString m_server;  // host as used in requests (no brackets)
    unsigned short m_port;
    CZyString m_path;
    CZyString m_user;
    CZyString m_password;
    CZyString m_userAgent;
    CZyString m_uploadMode;
    CZyString m_proxy;
    CZyString m_proxyBypass;
    CZyString m_proxyUser;
    CZyString m_proxyPassword;
    long m_timeoutMs;
    bool m_ignoreCertificateErrors;
};
