// The text work of the WinINet client (ZyHTTP) that needs no network: base
// URL parsing, path encoding, the multipart log-upload form and the scanning
// of HTML directory listings (ListingHtml.h). Portable, so that it is tested
// on every target.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "ZyNetwork/Internal/ListingHtml.h"

namespace zy::http
{
// A base URL taken apart: "https://host:8443/logs/?q#f" gives secure, "host",
// port 8443 (explicit), path "/logs/", query "?q"; the fragment is dropped.
struct UrlParts
{
    bool secure = false;
    std::string host;          // without the brackets of an IPv6 literal
    uint16_t port = 0;         // 0: the scheme's default (80 or 443)
    std::string path = "/";    // begins with '/', as written (already encoded)
    std::string query;         // "?..." as written, or empty
};

// Parses `url`: an optional scheme "http" or "https" in any case followed by
// "://", the host (a name, an IPv4 literal or a bracketed IPv6 literal) up to
// the first of ":/?#", an optional decimal port 1-65535 after ':', then the
// path up to '?' or '#'. No scheme means http. False for another scheme, an
// empty host, a bad port or a control character or space anywhere.
bool ParseBaseUrl(const std::string& url, UrlParts& parts);

// "scheme://host[:port]" of `parts` (brackets around an IPv6 host, the port
// only when it is not the scheme's default).
std::string Origin(const UrlParts& parts);

// Makes `path` begin and end with '/' ("" gives "/").
std::string DirectoryPath(const std::string& path);

// Percent-encodes a plain path for a request line: every byte outside the
// unreserved characters (RFC 3986), '/' and the sub-delimiters that are safe
// in a path becomes %XX. Backslashes are taken as '/'.
std::string EncodePath(const std::string& plain);
// Undoes %XX escapes; a '%' that does not start a valid escape stays as is.
std::string DecodePath(const std::string& encoded);

// The upload form around the file's bytes. The request body is
// `head`, the file's bytes, `tail`, in that order.
struct UploadForm
{
    std::string head;
    std::string tail;
};

// The boundary of the upload form and the mode text that selects the
// six-part form (with user name and password) and the JSP handler.
extern const char kUploadBoundary[];
extern const char kUploadModeJsp[];
extern const char kNoClientId[];

struct UploadFields
{
    bool jsp = false;          // the six-part form
    std::string clientId;      // the ccid value as sent
    std::string user;          // sent only in the six-part form
    std::string password;
    std::string fileName;      // written after "filename=" without quotes
};

UploadForm BuildUploadForm(const UploadFields& fields);

// The value of the Authorization header for Basic authentication:
// "Basic " + base64(user ":" password).
std::string BasicAuthorization(const std::string& user, const std::string& password);

// The listing-page helpers live with the other listing readers.
using zy::listing::ClassifyListingLink;
using zy::listing::ExtractLinks;
using zy::listing::ListingLink;
}  // namespace zy::http
