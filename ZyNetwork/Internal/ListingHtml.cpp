// The readers of HTML directory listing pages and the HTML text helpers they
// share. See ListingHtml.h.
#include "ZyNetwork/Internal/ListingHtml.h"

#include <string.h>

#include <algorithm>
#include <set>

#include "ZyNetwork/Internal/UrlText.h"
#include "ZyUtils/ZyString.h"

namespace zy::listing
{
namespace
{
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

// Reads the character reference that starts with the '&' at `at`: its code
// point and the position of its closing ';'. Numeric references are decimal
// or hexadecimal digits only; `set` decides which references count.
bool ReadReference(const std::string& text, size_t at, EntitySet set, unsigned long& cp, size_t& semicolon)
{
    static const struct
    {
        const char* name;
        unsigned long cp;
    } kNamed[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}, {"nbsp", 0xA0}};
    const bool ascii = set == EntitySet::kAsciiOnly;
    semicolon = text.find(';', at + 1);
    if (semicolon == std::string::npos || (!ascii && semicolon - at > 10))
        return false;
    const std::string ref = text.substr(at + 1, semicolon - at - 1);
    if (ref.size() > 1 && ref[0] == '#')
    {
        const bool hex = ref[1] == 'x' || ref[1] == 'X';
        const std::string digits = ref.substr(hex ? 2 : 1);
        if (digits.empty() || (ascii && digits.size() > 6))
            return false;
        cp = 0;
        for (char c : digits)
        {
            const int v = hex ? FXString::HexValue(c) : (c >= '0' && c <= '9' ? c - '0' : -1);
            if (v < 0 || cp > 0x10FFFF)
                return false;
            cp = cp * (hex ? 16 : 10) + static_cast<unsigned long>(v);
        }
        // The ASCII set takes single bytes only: pages escape quotes and
        // ampersands this way.
        return !ascii || (cp > 0 && cp < 0x80);
    }
    for (const auto& named : kNamed)
    {
        if (ref == named.name && (!ascii || named.cp < 0x80))
        {
            cp = named.cp;
            return true;
        }
    }
    return false;
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

bool StartsWithNoCase(const std::string& text, const std::string& prefix)
{
    return text.size() >= prefix.size() &&
           FXString::ToLower(text.substr(0, prefix.size())) == FXString::ToLower(prefix);
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
// The text with each tag turned into a space (table cells stay apart) and
// references resolved.
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
        if (!inTag)
            text.push_back(c == '>' ? ' ' : c);
    }
    text = DecodeEntities(text, EntitySet::kListingPage);
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
// The month whose English abbreviation (any case) starts at `at`: 1 to 12, or
// 0.
int MonthAt(const std::string& token, size_t at)
{
    static const std::string kMonths = "janfebmaraprmayjunjulaugsepoctnovdec";
    const size_t found = kMonths.find(FXString::ToLower(token.substr(at, 3)));
    return found != std::string::npos && found % 3 == 0 ? static_cast<int>(found / 3) + 1 : 0;
}

// "23-Nov-2026" (nginx), "2026-11-23" (Apache) or "2026-Nov-24" (lighttpd).
bool ParseDate(const std::string& token, int& year, int& month, int& day)
{
    if (token.size() == 11 && token[2] == '-' && token[6] == '-' && AllDigits(token, 0, 2) && AllDigits(token, 7, 11))
    {
        day = Number(token, 0, 2);
        month = MonthAt(token, 3);
        year = Number(token, 7, 11);
    }
    else if (token.size() == 11 && token[4] == '-' && token[8] == '-' && AllDigits(token, 0, 4) &&
             AllDigits(token, 9, 11))
    {
        year = Number(token, 0, 4);
        month = MonthAt(token, 5);
        day = Number(token, 9, 11);
    }
    else if (token.size() == 10 && token[4] == '-' && token[7] == '-' && AllDigits(token, 0, 4) &&
             AllDigits(token, 5, 7) && AllDigits(token, 8, 10))
    {
        year = Number(token, 0, 4);
        month = Number(token, 5, 7);
        day = Number(token, 8, 10);
    }
    else
    {
        return false;
    }
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
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

// "1234", "1.2K", "3M", "-" (unknown). Suffixes count in 1024s; a size with
// one is rounded by the page, so not exact.
bool ParseSize(const std::string& token, int64_t& size, bool& exact)
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
        static const char kUnits[] = "KMGTPE";
        const char* unit = strchr(kUnits, token[i] >= 'a' && token[i] <= 'z' ? token[i] - 'a' + 'A' : token[i]);
        if (!unit || !*unit || i + 1 != token.size())
            return false;
        for (const char* u = kUnits; u <= unit; ++u)
            value *= 1024;
        exact = false;
    }
    if (value > 9.0e18)
        return false;
    size = static_cast<int64_t>(value + 0.5);
    return true;
}
// Size and date from the text that follows a link on its line; only when
// that text holds nothing else. lighttpd writes a directory's '/' after its
// link and ends the line with a type column ("Directory", a MIME type): both
// are left out.
void ParseDetails(const std::string& html, Entry& entry)
{
    std::vector<std::string> tokens;
    const std::string text = VisibleText(html.substr(0, FindNoCase(html, "<td class=\"t\"", 0)));
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
    if (entry.isDirectory && !tokens.empty() && tokens[0] == "/")
        tokens.erase(tokens.begin());
    if (tokens.empty() || tokens.size() > 4)
        return;
    int year = 0, month = 0, day = 0, seconds = 0;
    bool haveDate = false, haveTime = false, haveSize = false, exact = true;
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
        else if (!haveSize && ParseSize(token, size, exact))
        {
            haveSize = true;
        }
        else
        {
            return;
        }
    }
    // "-" is a size the page does not know.
    if (haveSize && size >= 0)
    {
        entry.hasSize = true;
        entry.size = static_cast<uint64_t>(size);
        entry.sizeExact = exact;
    }
    if (haveDate)
    {
        entry.hasTime = true;
        entry.timeText = haveTime ? dateText + " " + timeText : dateText;
        entry.modified = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 +
                         (haveTime ? seconds : 0);
    }
}
// The name an href gives to an entry directly inside `prefix`, with a
// trailing '/' for a directory; "" when the link is not such an entry.
std::string EntryFromHref(const std::string& rawHref, const std::string& prefix)
{
    std::string href = DecodeEntities(rawHref, EntitySet::kListingPage);
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
    href = FXString::PercentDecode(href);
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
}}  // namespace

std::string DecodeEntities(const std::string& text, EntitySet set)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        unsigned long cp = 0;
        size_t semicolon = 0;
        if (text[i] == '&' && ReadReference(text, i, set, cp, semicolon))
        {
            AppendUtf8(out, cp);
            i = semicolon;
        }
        else
        {
            out.push_back(text[i]);
        }
    }
    return out;
}

std::string DirectoryPrefix(const std::string& path)
{
    std::string prefix = path;
    if (prefix.empty() || prefix[0] != '/')
        prefix.insert(prefix.begin(), '/');
    if (!EndsWith(prefix, '/'))
        prefix.push_back('/');
    return prefix;
}

void ReadHtmlListing(const std::string& page, const std::string& prefix, std::vector<Entry>& entries)
{
    std::set<std::string> seen;
    size_t position = 0;
    for (size_t anchor = FindAnchor(page, position); anchor != std::string::npos; anchor = FindAnchor(page, position))
    {
        const size_t tagEnd = page.find('>', anchor);
        if (tagEnd == std::string::npos)
            break;
        std::string href;
        const bool hasHref = HrefOf(page, anchor, tagEnd, href);
        const size_t close = FindNoCase(page, "</a", tagEnd);
        size_t after = tagEnd + 1;
        if (close != std::string::npos)
        {
            const size_t closeEnd = page.find('>', close);
            after = closeEnd == std::string::npos ? page.size() : closeEnd + 1;
        }
        position = after;
        if (!hasHref)
            continue;
        const std::string entryName = EntryFromHref(href, prefix);
        if (entryName.empty() || !seen.insert(entryName).second)
            continue;
        Entry entry;
        entry.isDirectory = EndsWith(entryName, '/');
        entry.name = entry.isDirectory ? entryName.substr(0, entryName.size() - 1) : entryName;
        const size_t next = FindAnchor(page, after);
        const size_t end = LineEnd(page, after, next == std::string::npos ? page.size() : next);
        ParseDetails(page.substr(after, end - after), entry);
        entries.push_back(entry);
    }
}

std::vector<std::string> ExtractLinks(const std::string& html)
{
    static const char kMarker[] = "href=\"";
    std::vector<std::string> links;
    size_t pos = 0;
    for (size_t found = FindNoCase(html, kMarker, pos); found != std::string::npos;
         found = FindNoCase(html, kMarker, pos))
    {
        const size_t start = found + sizeof(kMarker) - 1;
        const size_t end = html.find('"', start);
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
    std::string target = DecodeEntities(link, EntitySet::kAsciiOnly);
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
        std::string plain = FXString::PercentDecode(segment);
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
}  // namespace zy::listing
