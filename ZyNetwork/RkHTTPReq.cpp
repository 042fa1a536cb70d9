// HTTP and HTTPS requests: the working URL, the method options of each
// operation, the success rule and the reader of HTML directory listings.
// Longer than our usual 600 lines: about half is the HTML listing reader,
// which serves only this class.
#include "ZyNetwork/RkHTTPReq.h"

#include <string.h>

#include <algorithm>
#include <set>

#include "ZyNetwork/Internal/ListingParsers.h"
#include "ZyUtils/ZyString.h"

static const char kZyFile[] = "ZyNetwork/RkHTTPReq";

namespace RkCURL
{
namespace
{
// The receive buffer the curl tool uses: fewer, larger writes.
const long kReceiveBufferSize = 100 * 1024;

bool StartsWith(const std::string& text, const char* prefix)
{
    return text.compare(0, strlen(prefix), prefix) == 0;
}

bool EndsWith(const std::string& text, char c)
{
    return !text.empty() && text.back() == c;
}

void AppendUtf8(std::string& out, unsigned long cp)
{
    if (cp == 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        cp = 0xFFFD;
    if (cp < 0x80)
        out.push_back(static_cast<char>(cp));
    else if (cp < 0x800)
    {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
    else if (cp < 0x10000)
    {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
    else
    {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// The HTML character references that listing pages use: the named ones of
// XML plus &nbsp;, and numeric ones. Anything else stays as written.
std::string HtmlUnescape(const std::string& text)
{
    static const struct
    {
        const char* name;
        unsigned long cp;
    } kNamed[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}, {"nbsp", 0xA0}};
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        const size_t semicolon = text[i] == '&' ? text.find(';', i + 1) : std::string::npos;
        if (semicolon == std::string::npos || semicolon - i > 10)
        {
            out.push_back(text[i]);
            continue;
        }
        const std::string ref = text.substr(i + 1, semicolon - i - 1);
        bool done = false;
        if (ref.size() > 1 && ref[0] == '#')
        {
            const bool hex = ref[1] == 'x' || ref[1] == 'X';
            const std::string digits = ref.substr(hex ? 2 : 1);
            unsigned long cp = 0;
            bool valid = !digits.empty();
            for (char c : digits)
            {
                const int v = hex ? zylisting::HexValue(c) : (c >= '0' && c <= '9' ? c - '0' : -1);
                if (v < 0 || cp > 0x10FFFF)
                {
                    valid = false;
                    break;
                }
                cp = cp * (hex ? 16 : 10) + static_cast<unsigned long>(v);
            }
            if (valid)
            {
                AppendUtf8(out, cp);
                done = true;
            }
        }
        else
        {
            for (const auto& named : kNamed)
            {
                if (ref == named.name)
                {
                    AppendUtf8(out, named.cp);
                    done = true;
                    break;
                }
            }
        }
        if (done)
            i = semicolon;
        else
            out.push_back(text[i]);
    }
    return out;
}

char LowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// Case-insensitive search of an ASCII `needle`.
size_t FindNoCase(const std::string& text, const char* needle, size_t from)
{
    const size_t n = strlen(needle);
    for (size_t i = from; i + n <= text.size(); ++i)
    {
        size_t k = 0;
        while (k < n && LowerAscii(text[i + k]) == needle[k])
            ++k;
        if (k == n)
            return i;
    }
    return std::string::npos;
}

bool IsSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f';
}

// The start of the next "<a" tag (followed by white space) at or after `from`.
size_t FindAnchor(const std::string& text, size_t from)
{
    for (size_t i = FindNoCase(text, "<a", from); i != std::string::npos; i = FindNoCase(text, "<a", i + 2))
    {
        if (i + 2 < text.size() && IsSpace(text[i + 2]))
            return i;
    }
    return std::string::npos;
}

// The value of the href attribute inside the tag text [begin, end); false
// when the tag has none.
bool HrefOf(const std::string& text, size_t begin, size_t end, std::string& href)
{
    size_t i = begin + 2;
    while (i < end)
    {
        while (i < end && IsSpace(text[i]))
            ++i;
        const size_t nameStart = i;
        while (i < end && !IsSpace(text[i]) && text[i] != '=' && text[i] != '>')
            ++i;
        const std::string name = FXString::ToLower(text.substr(nameStart, i - nameStart));
        while (i < end && IsSpace(text[i]))
            ++i;
        std::string value;
        if (i < end && text[i] == '=')
        {
            ++i;
            while (i < end && IsSpace(text[i]))
                ++i;
            if (i < end && (text[i] == '"' || text[i] == '\''))
            {
                const char quote = text[i++];
                const size_t valueStart = i;
                while (i < end && text[i] != quote)
                    ++i;
                value = text.substr(valueStart, i - valueStart);
                if (i < end)
                    ++i;
            }
            else
            {
                const size_t valueStart = i;
                while (i < end && !IsSpace(text[i]) && text[i] != '>')
                    ++i;
                value = text.substr(valueStart, i - valueStart);
            }
        }
        if (name == "href")
        {
            href = value;
            return true;
        }
        if (name.empty())
            ++i;
    }
    return false;
}

// The text with tags removed and references resolved.
std::string VisibleText(const std::string& html)
{
    std::string text;
    bool inTag = false;
    for (char c : html)
    {
        if (c == '<')
            inTag = true;
        else if (c == '>')
            inTag = false;
        else if (!inTag)
            text.push_back(c);
    }
    text = HtmlUnescape(text);
    FXString::ReplaceAll(text, "\xC2\xA0", " ");
    return text;
}

bool AllDigits(const std::string& text, size_t begin, size_t end)
{
    if (begin >= end || end > text.size())
        return false;
    for (size_t i = begin; i < end; ++i)
    {
        if (text[i] < '0' || text[i] > '9')
            return false;
    }
    return true;
}

int Number(const std::string& text, size_t begin, size_t end)
{
    int value = 0;
    for (size_t i = begin; i < end; ++i)
        value = value * 10 + (text[i] - '0');
    return value;
}

// Days since 1970-01-01 of a date in the proleptic Gregorian calendar.
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

// "23-Nov-2026" (nginx) or "2026-11-23" (Apache).
bool ParseDate(const std::string& token, int& year, int& month, int& day)
{
    static const char* const kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                          "jul", "aug", "sep", "oct", "nov", "dec"};
    if (token.size() == 11 && token[2] == '-' && token[6] == '-' && AllDigits(token, 0, 2) && AllDigits(token, 7, 11))
    {
        const std::string mon = FXString::ToLower(token.substr(3, 3));
        for (int i = 0; i < 12; ++i)
        {
            if (mon == kMonths[i])
            {
                day = Number(token, 0, 2);
                month = i + 1;
                year = Number(token, 7, 11);
                return day >= 1 && day <= 31;
            }
        }
        return false;
    }
    if (token.size() == 10 && token[4] == '-' && token[7] == '-' && AllDigits(token, 0, 4) && AllDigits(token, 5, 7) &&
        AllDigits(token, 8, 10))
    {
        year = Number(token, 0, 4);
        month = Number(token, 5, 7);
        day = Number(token, 8, 10);
        return month >= 1 && month <= 12 && day >= 1 && day <= 31;
    }
    return false;
}

// "13:59" or "13:59:07".
bool ParseTime(const std::string& token, int& seconds)
{
    if ((token.size() != 5 && token.size() != 8) || token[2] != ':' || !AllDigits(token, 0, 2) ||
        !AllDigits(token, 3, 5))
        return false;
    int s = 0;
    if (token.size() == 8)
    {
        if (token[5] != ':' || !AllDigits(token, 6, 8))
            return false;
        s = Number(token, 6, 8);
    }
    const int h = Number(token, 0, 2);
    const int m = Number(token, 3, 5);
    if (h > 23 || m > 59 || s > 60)
        return false;
    seconds = h * 3600 + m * 60 + s;
    return true;
}

// "1234", "1.2K", "3M", "-" (unknown). Suffixes count in 1024s.
bool ParseSize(const std::string& token, int64_t& size)
{
    if (token == "-")
    {
        size = -1;
        return true;
    }
    size_t i = 0;
    double value = 0;
    while (i < token.size() && token[i] >= '0' && token[i] <= '9' && i < 19)
        value = value * 10 + (token[i++] - '0');
    if (i == 0)
        return false;
    if (i < token.size() && token[i] == '.')
    {
        double scale = 0.1;
        size_t digits = 0;
        for (++i; i < token.size() && token[i] >= '0' && token[i] <= '9'; ++i, ++digits)
        {
            value += (token[i] - '0') * scale;
            scale /= 10;
        }
        if (digits == 0)
            return false;
    }
    if (i < token.size())
    {
        static const char kUnits[] = "KMGTP";
        const char* unit = strchr(kUnits, token[i] >= 'a' && token[i] <= 'z' ? token[i] - 'a' + 'A' : token[i]);
        if (!unit || !*unit || i + 1 != token.size())
            return false;
        for (const char* u = kUnits; u <= unit; ++u)
            value *= 1024;
    }
    if (value > 9.0e18)
        return false;
    size = static_cast<int64_t>(value + 0.5);
    return true;
}

// Size and date from the text that follows a link on its line; only when
// that text holds nothing else.
void ParseDetails(const std::string& html, FileDirInfo& entry)
{
    std::vector<std::string> tokens;
    const std::string text = VisibleText(html);
    size_t i = 0;
    while (i < text.size())
    {
        while (i < text.size() && IsSpace(text[i]))
            ++i;
        const size_t start = i;
        while (i < text.size() && !IsSpace(text[i]))
            ++i;
        if (i > start)
            tokens.push_back(text.substr(start, i - start));
    }
    if (tokens.empty() || tokens.size() > 4)
        return;
    int year = 0, month = 0, day = 0, seconds = 0;
    bool haveDate = false, haveTime = false, haveSize = false;
    int64_t size = -1;
    std::string dateText, timeText;
    for (const std::string& token : tokens)
    {
        if (!haveDate && ParseDate(token, year, month, day))
        {
            haveDate = true;
            dateText = token;
        }
        else if (haveDate && !haveTime && ParseTime(token, seconds))
        {
            haveTime = true;
            timeText = token;
        }
        else if (!haveSize && ParseSize(token, size))
        {
            haveSize = true;
        }
        else
        {
            return;
        }
    }
    if (haveSize)
        entry.size = size;
    if (haveDate)
    {
        entry.modificationText = haveTime ? dateText + " " + timeText : dateText;
        entry.modificationTime = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 +
                                 (haveTime ? seconds : 0);
    }
}

// The listed path with one leading and one trailing '/'.
std::string DirectoryPrefix(const std::string& path)
{
    std::string prefix = path;
    if (prefix.empty() || prefix[0] != '/')
        prefix.insert(prefix.begin(), '/');
    if (!EndsWith(prefix, '/'))
        prefix.push_back('/');
    return prefix;
}

// The name an href gives to an entry directly inside `prefix`, with a
// trailing '/' for a directory; "" when the link is not such an entry.
std::string EntryFromHref(const std::string& rawHref, const std::string& prefix)
{
    std::string href = HtmlUnescape(rawHref);
    const size_t fragment = href.find('#');
    if (fragment != std::string::npos)
        href.erase(fragment);
    if (href.empty() || href[0] == '?')
        return std::string();
    const size_t query = href.find('?');
    if (query != std::string::npos)
        href.erase(query);
    // A scheme ("http:", "mailto:") before any '/' means another place.
    const size_t colon = href.find(':');
    if (colon != std::string::npos && href.find('/') > colon)
        return std::string();
    href = zylisting::PercentDecode(href);
    if (href[0] == '/')
    {
        if (href.compare(0, prefix.size(), prefix) != 0)
            return std::string();
        href.erase(0, prefix.size());
    }
    while (StartsWith(href, "./"))
        href.erase(0, 2);
    const bool directory = EndsWith(href, '/');
    std::string name = directory ? href.substr(0, href.size() - 1) : href;
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        return std::string();
    return directory ? name + "/" : name;
}

// The start of the next line after `from` (or the end).
size_t LineEnd(const std::string& text, size_t from, size_t limit)
{
    const size_t newline = text.find('\n', from);
    return std::min(newline == std::string::npos ? text.size() : newline, limit);
}
}  // namespace

RkHTTPReq::RkHTTPReq(HTTPProtocol protocol)
    : m_protocol(protocol),
      m_headerList(nullptr),
      m_sendPosition(nullptr),
      m_sendRemaining(0)
{
}

RkHTTPReq::RkHTTPReq(const RkHTTPReq& other)
    : RkProtocolReq(other),
      m_protocol(other.m_protocol),
      m_headers(other.m_headers),
      m_headerList(nullptr),
      m_sendPosition(nullptr),
      m_sendRemaining(0)
{
}

RkHTTPReq& RkHTTPReq::operator=(const RkHTTPReq& other)
{
    if (this != &other)
    {
        RkProtocolReq::operator=(other);
        m_protocol = other.m_protocol;
        m_headers = other.m_headers;
    }
    return *this;
}

RkHTTPReq::~RkHTTPReq()
{
    if (m_headerList)
        CurlWrapper::rk_curl_slist_free_all(m_headerList);
}

CZyError RkHTTPReq::isOperationSuccess(bool& success)
{
    const long code = responseCode();
    if (m_operationType == OP_CHECK_CONNECTION)
    {
        // Any answer shows that the server can be reached.
        success = code > 0;
        return CZyError::Success();
    }
    success = (code >= 200 && code <= 299) || (code >= 300 && code <= 399 && !getLinkRedirects());
    return CZyError::Success();
}

CZyError RkHTTPReq::setHeaders(const std::map<std::string, std::string>& headers)
{
    for (const auto& header : headers)
    {
        if (header.first.empty() || header.first.find_first_of(":\r\n") != std::string::npos ||
            header.second.find_first_of("\r\n") != std::string::npos)
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::setHeaders"), 1, "Invalid header [%s]",
                                         header.first.c_str());
    }
    m_headers = headers;
    return CZyError::Success();
}

std::string RkHTTPReq::baseURL() const
{
    std::string url = m_url;
    size_t authority = url.find("://");
    if (authority == std::string::npos)
    {
        url = (m_protocol == HTTPS ? "https://" : "http://") + url;
        authority = url.find("://");
    }
    authority += 3;
    if (m_port > 0)
    {
        const size_t pathStart = std::min(url.find('/', authority), url.size());
        const std::string hostPort = url.substr(authority, pathStart - authority);
        const size_t bracket = hostPort.rfind(']');
        const size_t colon = hostPort.rfind(':');
        const bool hasPort = colon != std::string::npos && (bracket == std::string::npos || colon > bracket);
        if (!hasPort)
            url.insert(pathStart, ":" + std::to_string(m_port));
    }
    return url;
}

CZyError RkHTTPReq::getFullWorkingURL(std::string& url)
{
    static const char kFunction[] = "RkCURL::RkHTTPReq::getFullWorkingURL";
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 101, "URL is empty");
    if (m_operationType != OP_CHECK_CONNECTION && m_urlPath.find("://") != std::string::npos)
    {
        url = m_urlPath;
    }
    else
    {
        url = baseURL();
        if (m_operationType != OP_CHECK_CONNECTION && !m_urlPath.empty())
        {
            std::string encoded;
            CZyError error = URLEncodePath(m_urlPath, encoded);
            if (error.IsError())
                return error.Push(ZY_LOC(kFunction));
            const size_t pathStart = url.find('/', url.find("://") + 3);
            if (pathStart == std::string::npos)
                url.push_back('/');
            if (EndsWith(url, '/') && encoded[0] == '/')
                url.pop_back();
            else if (!EndsWith(url, '/') && encoded[0] != '/')
                url.push_back('/');
            url += encoded;
        }
    }
    bool first = url.find('?') == std::string::npos;
    for (const commandInfo& command : m_commands)
    {
        if (command.kind != commandInfo::CMD_QUERY)
            continue;
        std::string name, value;
        CZyError error = URLEncode(command.name, name);
        if (!error.IsError())
            error = URLEncode(command.value, value);
        if (error.IsError())
            return error.Push(ZY_LOC(kFunction));
        url += (first ? "?" : "&") + name + "=" + value;
        first = false;
    }
    return CZyError::Success();
}

CZyError RkHTTPReq::splitServerAndURLPath(std::string& server, std::string& path)
{
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::splitServerAndURLPath"), 101, "URL is empty");
    const std::string url = baseURL();
    const size_t pathStart = url.find('/', url.find("://") + 3);
    if (pathStart == std::string::npos)
    {
        server = url;
        path = "/";
    }
    else
    {
        server = url.substr(0, pathStart);
        path = url.substr(pathStart);
    }
    return CZyError::Success();
}

CZyError RkHTTPReq::IsFile(const std::string& name, bool& isFile)
{
    if (name.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::IsFile"), 1, "Empty entry name");
    isFile = !EndsWith(name, '/');
    return CZyError::Success();
}

CZyError RkHTTPReq::setDefaults()
{
    static const char kFunction[] = "RkCURL::RkHTTPReq::setDefaults";
    struct
    {
        CURLoption option;
        const char* text;
        long number;
    } const kDefaults[] = {
        // Only HTTP(S), also when following redirects.
        {CURLOPT_PROTOCOLS_STR, "http,https", 0},
        {CURLOPT_REDIR_PROTOCOLS_STR, "http,https", 0},
        // No signals: the library runs inside other programs and threads.
        {CURLOPT_NOSIGNAL, nullptr, 1},
        {CURLOPT_BUFFERSIZE, nullptr, kReceiveBufferSize},
    };
    for (const auto& option : kDefaults)
    {
        const CURLcode result =
            option.text ? applyOption(option.option, std::string(option.text)) : applyOption(option.option, option.number);
        if (result != CURLE_OK)
            return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", option.option);
    }
    return CZyError::Success();
}

size_t RkHTTPReq::readFromBuffer(char* data, size_t size, size_t count, void* self)
{
    RkHTTPReq* request = static_cast<RkHTTPReq*>(self);
    return takeFromBuffer(data, size * count, request->m_sendPosition, request->m_sendRemaining);
}

CZyError RkHTTPReq::setMethodParameter()
{
    static const char kFunction[] = "RkCURL::RkHTTPReq::setMethodParameter";
    void* curl = handle();

    // Headers: those of setHeaders, those added one by one, those of this
    // call; "Expect:" (empty) keeps curl from waiting for "100 Continue".
    std::vector<std::string> lines;
    for (const auto& header : m_headers)
        lines.push_back(header.first + ": " + header.second);
    for (const auto& header : requestedHeaders())
        lines.push_back(header.first + ": " + header.second);
    for (const commandInfo& command : m_commands)
    {
        if (command.kind == commandInfo::CMD_HEADER)
            lines.push_back(command.name + ": " + command.value);
        else if (command.kind != commandInfo::CMD_QUERY)
            return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Command kind [%d] is not supported over HTTP",
                                         static_cast<int>(command.kind));
    }
    if (skipExpectContinue())
        lines.push_back("Expect:");
    for (const std::string& line : lines)
    {
        curl_slist* next = CurlWrapper::rk_curl_slist_append(m_headerList, line.c_str());
        if (!next)
            return ErrorRkCURL(ZY_LOC(kFunction), CURLE_OUT_OF_MEMORY, "Failed to build the request headers");
        m_headerList = next;
    }
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HTTPHEADER, static_cast<void*>(m_headerList));

#define RK_HTTP_SET(option, value)                                                                     \
    do                                                                                                 \
    {                                                                                                  \
        if (result == CURLE_OK)                                                                        \
        {                                                                                              \
            result = CurlWrapper::rk_curl_easy_setopt(curl, option, value);                            \
            if (result != CURLE_OK)                                                                    \
            {                                                                                          \
                setLastCurlResult(result);                                                             \
                return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", option);  \
            }                                                                                          \
        }                                                                                              \
    } while (0)

    switch (m_operationType)
    {
    case OP_GET:
    case OP_DOWNLOAD:
    case OP_DIR_LIST:
        RK_HTTP_SET(CURLOPT_HTTPGET, 1L);
        break;
    case OP_POST_STRING:
        RK_HTTP_SET(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_postString.size()));
        RK_HTTP_SET(CURLOPT_POSTFIELDS, static_cast<const char*>(m_postString.c_str()));
        break;
    case OP_POST_BUFFER:
        RK_HTTP_SET(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
        RK_HTTP_SET(CURLOPT_POSTFIELDS, static_cast<const char*>(m_postBuffer));
        break;
    case OP_PUT:
        m_sendPosition = m_postBuffer;
        m_sendRemaining = m_dataSize;
        RK_HTTP_SET(CURLOPT_UPLOAD, 1L);
        RK_HTTP_SET(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
        setOperationReadCallback(this, &RkHTTPReq::readFromBuffer);
        break;
    case OP_UPLOAD:
        // The core reads the file while curl sends it.
        RK_HTTP_SET(CURLOPT_UPLOAD, 1L);
        RK_HTTP_SET(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
        break;
    case OP_DELETE:
        if (m_dataSize > 0)
        {
            RK_HTTP_SET(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
            RK_HTTP_SET(CURLOPT_POSTFIELDS, static_cast<const char*>(m_postBuffer));
        }
        else
        {
            RK_HTTP_SET(CURLOPT_HTTPGET, 1L);
        }
        RK_HTTP_SET(CURLOPT_CUSTOMREQUEST, "DELETE");
        break;
    case OP_FILE_INFO:
    case OP_CHECK_FILE_EXISTS:
    case OP_CHECK_DIR_EXISTS:
    case OP_CHECK_CONNECTION:
    case OP_INFO:
        RK_HTTP_SET(CURLOPT_NOBODY, 1L);
        break;
    case OP_NONE:
    default:
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Unsupported operation type [%d]",
                                     static_cast<int>(m_operationType));
    }
#undef RK_HTTP_SET
    setLastCurlResult(result);
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_HTTPHEADER);
    return CZyError::Success();
}

// Back to a plain GET without body, headers or upload, whatever the
// operation set.
CZyError RkHTTPReq::unsetOpTypeParameter()
{
    void* curl = handle();
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_UPLOAD, 0L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 0L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(-1));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HTTPHEADER, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    if (m_headerList)
    {
        CurlWrapper::rk_curl_slist_free_all(m_headerList);
        m_headerList = nullptr;
    }
    m_sendPosition = nullptr;
    m_sendRemaining = 0;
    return CZyError::Success();
}

CZyError RkHTTPReq::collectFilesAndDir(const std::string& listing, std::vector<FileDirInfo>* entries,
                                       std::string path)
{
    if (!entries)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::collectFilesAndDir"), 1, "Invalid entry list");
    // Relative links resolve against the listed directory; absolute ones
    // must lie directly inside it. The path of a base URL counts too.
    std::string server, basePath;
    std::string listed = path;
    if (!m_url.empty() && !splitServerAndURLPath(server, basePath).IsError() && basePath != "/" &&
        listed.compare(0, basePath.size(), basePath) != 0)
    {
        std::string decodedBase = zylisting::PercentDecode(basePath);
        if (!EndsWith(decodedBase, '/'))
            decodedBase.push_back('/');
        while (!listed.empty() && listed[0] == '/')
            listed.erase(0, 1);
        listed = decodedBase + listed;
    }
    const std::string prefix = DirectoryPrefix(listed);
    std::string parent = path;
    while (EndsWith(parent, '/'))
        parent.pop_back();

    std::set<std::string> seen;
    size_t position = 0;
    for (size_t anchor = FindAnchor(listing, position); anchor != std::string::npos;
         anchor = FindAnchor(listing, position))
    {
        const size_t tagEnd = listing.find('>', anchor);
        if (tagEnd == std::string::npos)
            break;
        std::string href;
        const bool hasHref = HrefOf(listing, anchor, tagEnd, href);
        const size_t close = FindNoCase(listing, "</a", tagEnd);
        size_t after = tagEnd + 1;
        if (close != std::string::npos)
        {
            const size_t closeEnd = listing.find('>', close);
            after = closeEnd == std::string::npos ? listing.size() : closeEnd + 1;
        }
        position = after;
        if (!hasHref)
            continue;
        const std::string entryName = EntryFromHref(href, prefix);
        if (entryName.empty() || !seen.insert(entryName).second)
            continue;
        bool isFile = true;
        if (IsFile(entryName, isFile).IsError())
            continue;
        FileDirInfo entry;
        entry.isDirectory = !isFile;
        entry.name = isFile ? entryName : entryName.substr(0, entryName.size() - 1);
        entry.fullPath = parent + "/" + entry.name;
        const size_t next = FindAnchor(listing, after);
        const size_t end = LineEnd(listing, after, next == std::string::npos ? listing.size() : next);
        ParseDetails(listing.substr(after, end - after), entry);
        entries->push_back(entry);
    }
    return CZyError::Success();
}
}  // namespace RkCURL
