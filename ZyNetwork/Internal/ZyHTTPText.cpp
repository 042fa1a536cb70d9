// The network-free text work of ZyHTTP: URLs, the upload form and listing
// pages. See ZyHTTPText.h.
#include "ZyNetwork/Internal/ZyHTTPText.h"

#include <ctype.h>
#include <string.h>

#include "ZyNetwork/Internal/UrlText.h"
#include "ZyUtils/ZyString.h"

namespace zy::http
{
const char kUploadBoundary[] = "--HTTP-LOGUPLOAD-DEFAULT-BOUNDARY--";
const char kUploadModeJsp[] = "Use_JSP_for_Upload";
const char kNoClientId[] = "NO CCID";

namespace
{
const char kCrlf[] = "\r\n";

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Bytes a path may carry unencoded: RFC 3986's unreserved characters, the
// sub-delimiters and ':', '@' and '/'.
bool IsPathByte(unsigned char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    return c != 0 && strchr("-._~!$&'()*+,;=:@/", c) != nullptr;
}

// A form part's delimiter line and disposition text.
void AppendPartStart(std::string& body, const char* name)
{
    body += "--";
    body += kUploadBoundary;
    body += kCrlf;
    body += "Content-Disposition: form-data; name=\"";
    body += name;
    body += "\"";
}

void AppendValuePart(std::string& body, const char* name, const std::string& value)
{
    AppendPartStart(body, name);
    body += kCrlf;
    body += kCrlf;
    body += value;
    body += kCrlf;
}

}  // namespace

bool ParseBaseUrl(const std::string& url, UrlParts& parts)
{
    for (unsigned char c : url)
    {
        if (c <= ' ' || c == 0x7F)
            return false;
    }
    UrlParts result;
    size_t pos = 0;
    size_t schemeEnd = url.find("://");
    size_t firstDelimiter = url.find_first_of("/?#");
    if (schemeEnd != std::string::npos && (firstDelimiter == std::string::npos || schemeEnd < firstDelimiter))
    {
        std::string scheme = FXString::ToLower(url.substr(0, schemeEnd));
        if (scheme == "https")
            result.secure = true;
        else if (scheme != "http")
            return false;
        pos = schemeEnd + 3;
    }

    size_t hostEnd;
    if (pos < url.size() && url[pos] == '[')
    {
        size_t close = url.find(']', pos);
        if (close == std::string::npos)
            return false;
        result.host = url.substr(pos + 1, close - pos - 1);
        // Only an IPv6 literal goes in brackets: hex digits, ':' and '.',
        // then an optional zone of unreserved characters after '%'.
        size_t zone = result.host.find('%');
        for (size_t i = 0; i < result.host.size(); ++i)
        {
            unsigned char c = static_cast<unsigned char>(result.host[i]);
            bool ok = i < zone    ? (isxdigit(c) || c == ':' || c == '.')
                      : i == zone ? i + 1 < result.host.size()  // a '%' names a zone
                                  : (isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~');
            if (!ok)
                return false;
        }
        hostEnd = close + 1;
        if (hostEnd < url.size() && !strchr(":/?#", url[hostEnd]))
            return false;
    }
    else
    {
        hostEnd = url.find_first_of(":/?#", pos);
        if (hostEnd == std::string::npos)
            hostEnd = url.size();
        result.host = url.substr(pos, hostEnd - pos);
    }
    if (result.host.empty())
        return false;

    pos = hostEnd;
    if (pos < url.size() && url[pos] == ':')
    {
        size_t portEnd = url.find_first_of("/?#", pos + 1);
        if (portEnd == std::string::npos)
            portEnd = url.size();
        std::string port = url.substr(pos + 1, portEnd - pos - 1);
        if (!port.empty())
        {
            unsigned long value = 0;
            for (char c : port)
            {
                if (!IsDigit(c) || value > 65535)
                    return false;
                value = value * 10 + static_cast<unsigned long>(c - '0');
            }
            if (value == 0 || value > 65535)
                return false;
            result.port = static_cast<uint16_t>(value);
        }
        pos = portEnd;
    }

    size_t pathEnd = url.find_first_of("?#", pos);
    if (pathEnd == std::string::npos)
        pathEnd = url.size();
    result.path = url.substr(pos, pathEnd - pos);
    if (pathEnd < url.size() && url[pathEnd] == '?')
        result.query = url.substr(pathEnd, url.find('#', pathEnd) - pathEnd);
    if (result.path.empty() || result.path[0] != '/')
        result.path.insert(0, "/");
    parts = result;
    return true;
}

std::string Origin(const UrlParts& parts)
{
    const uint16_t defaultPort = parts.secure ? 443 : 80;
    return (parts.secure ? "https://" : "http://") +
           zy::url::JoinHostPort(parts.host, parts.port != defaultPort ? parts.port : 0);
}

std::string DirectoryPath(const std::string& path)
{
    std::string result = path;
    if (result.empty() || result[0] != '/')
        result.insert(0, "/");
    if (result.back() != '/')
        result += '/';
    return result;
}

std::string EncodePath(const std::string& plain)
{
    std::string out;
    out.reserve(plain.size());
    for (unsigned char c : plain)
    {
        if (c == '\\')
            out += '/';
        else if (IsPathByte(c))
            out += static_cast<char>(c);
        else
            FXString::AppendPercentEscape(out, c);
    }
    return out;
}

std::string DecodePath(const std::string& encoded)
{
    return FXString::PercentDecode(encoded);
}

UploadForm BuildUploadForm(const UploadFields& fields)
{
    UploadForm form;
    std::string& head = form.head;
    AppendValuePart(head, "mode", "go");
    AppendValuePart(head, "ccid", fields.clientId);
    if (fields.jsp)
    {
        AppendValuePart(head, "username", fields.user);
        AppendValuePart(head, "password", fields.password);
    }
    // The file name goes without quotation marks, as the receiving service
    // has always read it.
    AppendPartStart(head, "logfile");
    head += "; filename=";
    head += fields.fileName;
    head += kCrlf;
    head += "Content-Type";
    head += ": ";
    head += "application/octet-stream";
    head += kCrlf;
    head += kCrlf;

    std::string& tail = form.tail;
    tail += kCrlf;
    AppendValuePart(tail, "submit", "Upload");
    tail += "--";
    tail += kUploadBoundary;
    tail += "--";
    tail += kCrlf;
    return form;
}

std::string BasicAuthorization(const std::string& user, const std::string& password)
{
    return "Basic " + FXString::Base64Encode(user + ":" + password);
}

}  // namespace zy::http
