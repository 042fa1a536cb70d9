#include "ZyUtils/ZyString.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "ZyUtils/Internal/ErrorCodes.h"

namespace
{
const char* const kZyFile = "ZyUtils/ZyString";
}

namespace FXString
{
std::string FormatArgList(const char* format, va_list args)
{
    if (!format)
        return std::string();
    char stackBuffer[512];
    va_list copy;
    va_copy(copy, args);
    int needed = vsnprintf(stackBuffer, sizeof(stackBuffer), format, copy);
    va_end(copy);
    if (needed < 0)
        return std::string();
    if (static_cast<size_t>(needed) < sizeof(stackBuffer))
        return std::string(stackBuffer, static_cast<size_t>(needed));
    std::string text(static_cast<size_t>(needed) + 1, '\0');
    va_copy(copy, args);
    vsnprintf(&text[0], text.size(), format, copy);
    va_end(copy);
    text.resize(static_cast<size_t>(needed));
    return text;
}

CZyError FormatArgList(std::string& text, const char* format, va_list args)
{
    text.clear();
    if (!format)
        return CZyError::Success();
    char buffer[kFormatLimit];
    va_list copy;
    va_copy(copy, args);
    int needed = vsnprintf(buffer, sizeof(buffer), format, copy);
    va_end(copy);
    if (needed < 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("FXString::FormatArgList"), zy::err::kInvalidParameter,
                                       "Invalid format text");
    if (static_cast<size_t>(needed) < sizeof(buffer))
    {
        text.assign(buffer, static_cast<size_t>(needed));
        return CZyError::Success();
    }
    text.assign(buffer, sizeof(buffer) - 1);
    return FXErrorUtil::ErrorWin32(ZY_LOC("FXString::FormatArgList"), zy::err::kBufferOverflow,
                                   "Formatted text of %d bytes does not fit in %u", needed,
                                   static_cast<unsigned>(sizeof(buffer) - 1));
}

size_t ReplaceAll(std::string& text, const std::string& from, const std::string& to)
{
    if (from.empty())
        return 0;
    size_t count = 0;
    std::string result;
    size_t start = 0;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, start))
    {
        result.append(text, start, at - start);
        result += to;
        start = at + from.size();
        ++count;
    }
    if (count == 0)
        return 0;
    result.append(text, start, std::string::npos);
    text.swap(result);
    return count;
}

std::string Format(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = FormatArgList(format, args);
    va_end(args);
    return text;
}

void Split(const std::string& text, const std::string& delimiter, std::vector<std::string>& pieces, int /*flags*/)
{
    pieces.clear();
    if (text.empty())
        return;
    if (delimiter.empty())
    {
        pieces.push_back(text);
        return;
    }
    size_t start = 0;
    for (;;)
    {
        size_t at = text.find(delimiter, start);
        if (at == std::string::npos)
        {
            pieces.push_back(text.substr(start));
            return;
        }
        pieces.push_back(text.substr(start, at - start));
        start = at + delimiter.size();
    }
}

std::string TrimRight(const std::string& text, const std::string& chars)
{
    size_t end = text.find_last_not_of(chars);
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

std::string ToLower(const std::string& text)
{
    std::string lower(text);
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}
namespace
{
const char32_t kReplacement = 0xFFFD;

// Decodes one code point from [p, end); advances p past the sequence (or one
// byte of a bad sequence, so that each bad byte run yields one U+FFFD).
char32_t DecodeUtf8(const unsigned char*& p, const unsigned char* end)
{
    unsigned char lead = *p++;
    if (lead < 0x80)
        return lead;
    int extra;
    char32_t value;
    char32_t minimum;
    if (lead >= 0xC2 && lead <= 0xDF)
    {
        extra = 1;
        value = lead & 0x1F;
        minimum = 0x80;
    }
    else if (lead >= 0xE0 && lead <= 0xEF)
    {
        extra = 2;
        value = lead & 0x0F;
        minimum = 0x800;
    }
    else if (lead >= 0xF0 && lead <= 0xF4)
    {
        extra = 3;
        value = lead & 0x07;
        minimum = 0x10000;
    }
    else
        return kReplacement;
    const unsigned char* q = p;
    for (int i = 0; i < extra; ++i, ++q)
    {
        if (q == end || (*q & 0xC0) != 0x80)
        {
            p = q;  // the valid continuation bytes so far belong to this bad sequence
            return kReplacement;
        }
        value = (value << 6) | (*q & 0x3F);
    }
    p = q;
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return kReplacement;
    return value;
}

void EncodeUtf8(char32_t c, std::string& out)
{
    if (c < 0x80)
        out += static_cast<char>(c);
    else if (c < 0x800)
    {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    else if (c < 0x10000)
    {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    else
    {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// UTF-8 into 16-bit units (with surrogate pairs) or 32-bit units.
template <typename String>
String FromUtf8(const std::string& utf8)
{
    String out;
    out.reserve(utf8.size());
    const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8.data());
    const unsigned char* end = p + utf8.size();
    while (p < end)
    {
        char32_t c = DecodeUtf8(p, end);
        if (sizeof(typename String::value_type) == 2 && c >= 0x10000)
        {
            c -= 0x10000;
            out += static_cast<typename String::value_type>(0xD800 + (c >> 10));
            out += static_cast<typename String::value_type>(0xDC00 + (c & 0x3FF));
        }
        else
            out += static_cast<typename String::value_type>(c);
    }
    return out;
}

template <typename String>
std::string ToUtf8From(const String& wide)
{
    std::string out;
    out.reserve(wide.size());
    for (size_t i = 0; i < wide.size(); ++i)
    {
        char32_t c = static_cast<char32_t>(wide[i]);
        if (sizeof(typename String::value_type) == 2)
        {
            c &= 0xFFFF;
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < wide.size())
            {
                char32_t low = static_cast<char32_t>(wide[i + 1]) & 0xFFFF;
                if (low >= 0xDC00 && low <= 0xDFFF)
                {
                    c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
        }
        if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
            c = kReplacement;
        EncodeUtf8(c, out);
    }
    return out;
}

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}  // namespace

std::u16string ToUtf16(const std::string& utf8)
{
    return FromUtf8<std::u16string>(utf8);
}

std::string ToUtf8(const std::u16string& utf16)
{
    return ToUtf8From(utf16);
}

std::wstring ToWstring(const std::string& utf8)
{
    return FromUtf8<std::wstring>(utf8);
}

std::string ToString(const std::wstring& wide)
{
    return ToUtf8From(wide);
}

std::string Base64Encode(const void* data, size_t size)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    std::string out;
    out.reserve((size + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < size; i += 3)
    {
        uint32_t v = (uint32_t(bytes[i]) << 16) | (uint32_t(bytes[i + 1]) << 8) | bytes[i + 2];
        out += kBase64[v >> 18];
        out += kBase64[(v >> 12) & 63];
        out += kBase64[(v >> 6) & 63];
        out += kBase64[v & 63];
    }
    if (i < size)
    {
        uint32_t v = uint32_t(bytes[i]) << 16;
        if (i + 1 < size)
            v |= uint32_t(bytes[i + 1]) << 8;
        out += kBase64[v >> 18];
        out += kBase64[(v >> 12) & 63];
        out += i + 1 < size ? kBase64[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::string Base64Encode(const std::string& bytes)
{
    return Base64Encode(bytes.data(), bytes.size());
}

bool Base64Decode(const std::string& text, std::string& bytes)
{
    bytes.clear();
    if (text.size() % 4 != 0)
        return false;
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4)
    {
        uint32_t v = 0;
        int padding = 0;
        for (int k = 0; k < 4; ++k)
        {
            char c = text[i + k];
            const char* at = c ? std::strchr(kBase64, c) : nullptr;
            if (c == '=' && i + 4 == text.size() && k >= 2)
            {
                ++padding;
                v <<= 6;
                continue;
            }
            if (!at || padding)
                return false;
            v = (v << 6) | static_cast<uint32_t>(at - kBase64);
        }
        out += static_cast<char>(v >> 16);
        if (padding < 2)
            out += static_cast<char>((v >> 8) & 0xFF);
        if (padding < 1)
            out += static_cast<char>(v & 0xFF);
    }
    bytes.swap(out);
    return true;
}

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

std::string PercentEncode(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text)
    {
        const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                                c == '-' || c == '.' || c == '_' || c == '~';
        if (unreserved)
            out += static_cast<char>(c);
        else
            AppendPercentEscape(out, c);
    }
    return out;
}
}  // namespace FXString
