#include "ZyNetwork/Internal/UrlText.h"

namespace zyurl
{
int HexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::string PercentDecode(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] == '%' && i + 2 < text.size() && HexValue(text[i + 1]) >= 0 && HexValue(text[i + 2]) >= 0)
        {
            out.push_back(static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2])));
            i += 2;
        }
        else
        {
            out.push_back(text[i]);
        }
    }
    return out;
}

void AppendPercentEscape(std::string& out, unsigned char c)
{
    static const char kHex[] = "0123456789ABCDEF";
    out += '%';
    out += kHex[c >> 4];
    out += kHex[c & 15];
}

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
}  // namespace zyurl
