#include "ZyNetwork/Internal/UrlText.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>

#include "ZyUtils/ZyString.h"

namespace zy::url
{
UrlSplit SplitUrl(const std::string& url)
{
    UrlSplit split;
    const size_t scheme = url.find("://");
    split.hasScheme = scheme != std::string::npos;
    split.authority = split.hasScheme ? scheme + 3 : 0;
    const size_t slash = url.find('/', split.authority);
    split.path = slash == std::string::npos ? url.size() : slash;
    return split;
}

bool AuthorityHasPort(const std::string& authority)
{
    const size_t bracket = authority.rfind(']');
    const size_t colon = authority.rfind(':');
    return colon != std::string::npos && (bracket == std::string::npos || colon > bracket);
}

std::string WithPort(const std::string& url, long port)
{
    const UrlSplit split = SplitUrl(url);
    if (AuthorityHasPort(url.substr(split.authority, split.path - split.authority)))
        return url;
    std::string result = url;
    result.insert(split.path, ":" + std::to_string(port));
    return result;
}

std::string JoinHostPort(const std::string& host, unsigned port)
{
    std::string joined = host.find(':') != std::string::npos ? "[" + host + "]" : host;
    if (port != 0)
        joined += ":" + std::to_string(port);
    return joined;
}

bool IsWholeUrl(const std::string& text)
{
    return text.find("://") != std::string::npos;
}

UrlParts SplitWholeUrl(const std::string& url)
{
    UrlParts parts;
    const size_t scheme = url.find("://");
    parts.authority = scheme == std::string::npos ? 0 : scheme + 3;
    parts.fragment = std::min(url.find('#', parts.authority), url.size());
    parts.path = std::min(url.find_first_of("/?#", parts.authority), url.size());
    parts.query = std::min(url.find('?', parts.path), parts.fragment);
    return parts;
}

std::string WireUrl(const std::string& url)
{
    const UrlParts parts = SplitWholeUrl(url);
    std::string wire = url.substr(0, parts.path);
    for (size_t i = parts.path; i < parts.fragment; ++i)
    {
        const unsigned char c = static_cast<unsigned char>(url[i]);
        const bool escape =
            c == '%' && !(i + 2 < parts.fragment && FXString::HexValue(url[i + 1]) >= 0 && FXString::HexValue(url[i + 2]) >= 0);
        if (c <= 0x20 || c >= 0x7F || strchr("\"<>\\^`{|}", c) || escape)
            FXString::AppendPercentEscape(wire, c);
        else
            wire.push_back(static_cast<char>(c));
    }
    return wire;
}

std::string UrlOrigin(const std::string& url)
{
    return url.substr(0, SplitWholeUrl(url).path);
}

std::string DecodedUrlPath(const std::string& url)
{
    const UrlParts parts = SplitWholeUrl(url);
    const std::string path = FXString::PercentDecode(url.substr(parts.path, parts.query - parts.path));
    return path.empty() ? std::string("/") : path;
}

std::string WithDirectorySlash(const std::string& url)
{
    const UrlParts parts = SplitWholeUrl(url);
    if (parts.query > parts.path && url[parts.query - 1] == '/')
        return url;
    std::string result = url;
    result.insert(parts.query, "/");
    return result;
}

namespace
{
bool StartsWithNoCase(const std::string& text, size_t at, const char* prefix)
{
    for (size_t i = 0; prefix[i]; ++i)
    {
        if (at + i >= text.size() || tolower(static_cast<unsigned char>(text[at + i])) != prefix[i])
            return false;
    }
    return true;
}

// One line (without its end) with its secrets masked.
std::string MaskLine(const std::string& line)
{
    if (StartsWithNoCase(line, 0, "authorization:") || StartsWithNoCase(line, 0, "proxy-authorization:"))
    {
        size_t value = line.find(':') + 1;
        while (value < line.size() && line[value] == ' ')
            ++value;
        const size_t space = line.find(' ', value);
        return space == std::string::npos ? line.substr(0, value) + "***" : line.substr(0, space + 1) + "***";
    }
    if (StartsWithNoCase(line, 0, "pass ") || StartsWithNoCase(line, 0, "pass\t"))
        return line.substr(0, 5) + "***";
    std::string out = line;
    for (size_t scheme = out.find("://"); scheme != std::string::npos; scheme = out.find("://", scheme + 3))
    {
        const size_t start = scheme + 3;
        const size_t end = std::min(out.find_first_of("/?# \t\"'<>", start), out.size());
        const size_t at = out.rfind('@', end);
        if (at == std::string::npos || at < start)
            continue;
        const size_t colon = out.find(':', start);
        if (colon != std::string::npos && colon < at)
            out.replace(colon + 1, at - colon - 1, "***");
    }
    return out;
}
}  // namespace

std::string MaskSecrets(const std::string& text)
{
    std::string out;
    size_t start = 0;
    while (start < text.size())
    {
        size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        size_t body = end;
        while (body > start && (text[body - 1] == '\n' || text[body - 1] == '\r'))
            --body;
        out += MaskLine(text.substr(start, body - start));
        out.append(text, body, end - body);
        start = end;
    }
    return out;
}
}  // namespace zy::url
