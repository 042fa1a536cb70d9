// HTTP and HTTPS requests over libcurl: GET, POST, PUT (from a buffer or a
// file, streamed), DELETE, HEAD for file information, downloads streamed to
// a callback or a file, and directory listings read from the HTML pages that
// web servers generate.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "ZyNetwork/RkProtocolReq.h"

namespace RkCURL
{
enum HTTPProtocol
{
    HTTP = 0,
    HTTPS = 1
};

// The base URL (setURL) is "host[:port][/base/path]" with or without its
// scheme; without one the protocol given at construction supplies it
// ("http://" or "https://"). A port number set with setPortNumber is added
// when the URL names none. Request paths are joined to the base URL with one
// '/', and are given unencoded: each character outside the unreserved set
// (spaces, non-ASCII bytes, '?', '#', '%') is percent-encoded, '/' is kept.
// A download of a whole URL ("scheme://...") uses it as given.
//
// Success: a response code of 200 to 299. A 3xx answer counts as success
// only while redirects are not followed (setLinkRedirects(false), the
// default): the request was answered, and getInfo(CURL_INFO_REDIRECT_URL)
// tells where it points. While redirects are followed, curl asks the new
// place and a final 3xx is a failure. Anything else is the "Requested
// Operation Failed" error with curl's 0 and the server's code.
// checkConnection asks for the base URL alone and succeeds on any answer of
// the server (it tests that the server can be reached, not a resource).
//
// Operations and methods: doGetOperation, download and
// getFilesAndDirsInfoInFile send GET; doPostOperation POST (the text or the
// buffer as the body); doPutOperation and uploadFile PUT (uploadFile reads
// the file in pieces while sending it); doDeleteOperation DELETE (with the
// data as body when its size is not 0); getFileInfo, checkIfFileOrDirExists,
// getInfo and checkConnection HEAD. Extra parameters of a call:
// commandInfo::CMD_HEADER adds a header, CMD_QUERY a query parameter;
// CMD_QUOTE is refused. Credentials are those of setCredentials (basic
// authentication or whatever the server offers that curl supports).
class ZYNET_API RkHTTPReq : public RkProtocolReq
{
public:
    // A request object whose URLs without a scheme use HTTP or HTTPS; call
    // initialize before use.
    explicit RkHTTPReq(HTTPProtocol protocol = HTTP);
    // Copies the settings as RkProtocolReq does, with the protocol and the headers
    // of setHeaders.
    // @{
    RkHTTPReq(const RkHTTPReq& other);
    RkHTTPReq& operator=(const RkHTTPReq& other);
    // @}
    ~RkHTTPReq() override;

    // HTTP or HTTPS, as constructed.
    HTTPProtocol getProtocol() const { return m_protocol; }

    CZyError isOperationSuccess(bool& success) override;
    CZyError setHeaders(const std::map<std::string, std::string>& headers) override;
    // Reads the listing pages of nginx's autoindex, Apache's mod_autoindex,
    // Python's http.server and any page of <a href="..."> links: one entry
    // per link to a name directly inside `path` (relative, or absolute under
    // `path`); a trailing '/' marks a directory; links to the parent, to
    // sort orders ("?C=N;O=D"), to other sites and to deeper paths are
    // skipped, and a name is taken once. Names are HTML-unescaped and
    // percent-decoded. Where the text after a link on its line holds only a
    // date ("23-Nov-2026 13:59" or "2026-11-23 13:59"), a time and a size
    // ("1234", "1.2K", "-"), they fill the entry.
    CZyError collectFilesAndDir(const std::string& listing, std::vector<FileDirInfo>* entries,
                                std::string path) override;
    CZyError getFullWorkingURL(std::string& url) override;
    CZyError unsetOpTypeParameter() override;
    CZyError setMethodParameter() override;
    CZyError setDefaults() override;
    // "http://host:port" and "/path" (at least "/") of the base URL.
    CZyError splitServerAndURLPath(std::string& server, std::string& path) override;
    // A listing name ending in '/' is a directory.
    CZyError IsFile(const std::string& name, bool& isFile) override;

private:
    static size_t readFromBuffer(char* data, size_t size, size_t count, void* self);
    std::string baseURL() const;

    HTTPProtocol m_protocol;
    std::map<std::string, std::string> m_headers;
    curl_slist* m_headerList;
    const char* m_sendPosition;
    int64_t m_sendRemaining;
};
}  // namespace RkCURL
