// The network-free text work of ZyHTTP: URLs, the upload form and listing
// pages. See ZyHTTPInternal.h.
#include "ZyNetwork/Internal/ZyHTTPInternal.h"

#include <ctype.h>
#include <string.h>

#include "ZyNetwork/Internal/ListingParsers.h"
#include "ZyUtils/ZyString.h"

namespace zyhttp
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

bool StartsWithNoCase(const std::string& text, const std::string& prefix)
{
    return text.size() >= prefix.size() && FXString::ToLower(text.substr(0, prefix.size())) == FXString::ToLower(prefix);
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

// Decodes the character references that directory listings use. Unknown or
// malformed references stay as written.
std::string DecodeEntities(const std::string& text)
{
    static const struct
    {
        const char* name;
        char value;
    } kNamed[] = {{"amp;", '&'}, {"lt;", '<'}, {"gt;", '>'}, {"quot;", '"'}, {"apos;", '\''}};
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '&')
        {
            out += text[i];
            continue;
        }
        bool decoded = false;
        for (const auto& entity : kNamed)
        {
            size_t length = strlen(entity.name);
            if (text.compare(i + 1, length, entity.name) == 0)
            {
                out += entity.value;
                i += length;
                decoded = true;
                break;
            }
        }
        if (!decoded && i + 1 < text.size() && text[i + 1] == '#')
        {
            size_t j = i + 2;
            bool hex = j < text.size() && (text[j] == 'x' || text[j] == 'X');
            if (hex)
                ++j;
            unsigned value = 0;
            size_t digits = 0;
            while (j < text.size() && digits < 6 && (hex ? zylisting::HexValue(text[j]) >= 0 : IsDigit(text[j])))
            {
                value = value * (hex ? 16 : 10) + static_cast<unsigned>(zylisting::HexValue(text[j]));
                ++j;
                ++digits;
            }
            // Only single bytes: listings escape quotes and ampersands this way.
            if (digits > 0 && j < text.size() && text[j] == ';' && value > 0 && value < 0x80)
            {
                out += static_cast<char>(value);
                i = j;
                decoded = true;
            }
        }
        if (!decoded)
            out += '&';
    }
    return out;
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
    std::string origin = parts.secure ? "https://" : "http://";
    if (parts.host.find(':') != std::string::npos)
        origin += "[" + parts.host + "]";
    else
        origin += parts.host;
    uint16_t defaultPort = parts.secure ? 443 : 80;
    if (parts.port != 0 && parts.port != defaultPort)
        origin += ":" + std::to_string(parts.port);
    return origin;
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
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(plain.size());
    for (unsigned char c : plain)
    {
        if (c == '\\')
            out += '/';
        else if (IsPathByte(c))
            out += static_cast<char>(c);
        else
        {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

std::string DecodePath(const std::string& encoded)
{
    return zylisting::PercentDecode(encoded);
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

std::vector<std::string> ExtractLinks(const std::string& html)
{
    static const char kMarker[] = "href=\"";
    const size_t markerLength = sizeof(kMarker) - 1;
    std::vector<std::string> links;
    size_t pos = 0;
    while (pos + markerLength <= html.size())
    {
        size_t found = std::string::npos;
        for (size_t i = pos; i + markerLength <= html.size(); ++i)
        {
            size_t k = 0;
            while (k < markerLength && static_cast<char>(tolower(static_cast<unsigned char>(html[i + k]))) == kMarker[k])
                ++k;
            if (k == markerLength)
            {
                found = i;
                break;
            }
        }
        if (found == std::string::npos)
            break;
        size_t start = found + markerLength;
        size_t end = html.find('"', start);
        if (end == std::string::npos)
            break;
        links.push_back(html.substr(start, end - start));
        pos = end + 1;
    }
    return links;
}

ListingLink ClassifyListingLink(const std::string& link, const std::string& origin, const std::string& directoryPath)
{
    ListingLink result;
    std::string target = DecodeEntities(link);
    size_t cut = target.find_first_of("?#");
    if (cut != std::string::npos)
    {
        // A link that is nothing but a query or fragment is the page itself.
        target.resize(cut);
    }
    if (target.empty())
        return result;

    // Absolute forms are reduced to a path on this server, or ignored.
    if (target.compare(0, 2, "//") == 0)
    {
        size_t colon = origin.find("://");
        target = origin.substr(0, colon + 1) + target;
    }
    size_t scheme = target.find("://");
    if (scheme != std::string::npos && target.find('/') > scheme)
    {
        if (!StartsWithNoCase(target, origin))
            return result;
        target.erase(0, origin.size());
        if (!target.empty() && target[0] != '/')
            return result;  // a longer host name or another port
        if (target.empty())
            target = "/";
    }
    else if (target.find(':') != std::string::npos && target.find(':') < target.find('/'))
    {
        return result;  // mailto:, javascript: and other schemes
    }
    if (target[0] == '/')
    {
        if (target.size() <= directoryPath.size() || target.compare(0, directoryPath.size(), directoryPath) != 0)
            return result;
        target.erase(0, directoryPath.size());
    }

    bool directory = target.back() == '/';
    if (directory)
        target.pop_back();
    std::vector<std::string> segments;
    FXString::Split(target, "/", segments, 0);
    if (segments.empty())
        return result;
    std::string name;
    for (const std::string& segment : segments)
    {
        if (segment.empty() || segment == "." || segment == "..")
            return result;
        std::string plain = DecodePath(segment);
        if (plain == "." || plain == "..")
            return result;
        for (unsigned char c : plain)
        {
            if (c < 0x20 || c == 0x7F || c == '/' || c == '\\')
                return result;
        }
        name += plain;
        name += '/';
    }
    if (!directory)
        name.pop_back();
    result.kind = directory ? ListingLink::kDirectory : ListingLink::kFile;
    result.name = name;
    return result;
}
}  // namespace zyhttp
