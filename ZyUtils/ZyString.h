// Strings of the utility layer: CZyString and the FXString helpers.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"

// A byte string. Thin over std::string; it exists because the library's
// interfaces hand it to callers.
class ZYNET_API CZyString
{
public:
    CZyString() = default;
    // A copy of `text`; a null pointer gives the empty string.
    // @{
    CZyString(const char* text) : m_text(text ? text : "") {}
    CZyString(const std::string& text) : m_text(text) {}
    // @}

    // Replaces the text; a null pointer gives the empty string.
    CZyString& operator=(const char* text)
    {
        m_text = text ? text : "";
        return *this;
    }
    // Replaces the text.
    CZyString& operator=(const std::string& text)
    {
        m_text = text;
        return *this;
    }
    // Appends `other`.
    CZyString& operator+=(const CZyString& other)
    {
        m_text += other.m_text;
        return *this;
    }
    // Appends `text`; a null pointer appends nothing.
    CZyString& operator+=(const char* text)
    {
        if (text)
            m_text += text;
        return *this;
    }
    // Byte-wise comparison; equality with a null pointer is false.
    // @{
    bool operator==(const CZyString& other) const { return m_text == other.m_text; }
    bool operator!=(const CZyString& other) const { return m_text != other.m_text; }
    bool operator==(const char* text) const { return text && m_text == text; }
    bool operator<(const CZyString& other) const { return m_text < other.m_text; }
    // @}

    // The text, NUL-terminated, valid until the string changes.
    const char* c_str() const { return m_text.c_str(); }
    // The length in bytes.
    size_t Length() const { return m_text.size(); }
    // True when the string has no bytes.
    bool IsEmpty() const { return m_text.empty(); }
    // Makes the string empty.
    void Clear() { m_text.clear(); }
    // The text as a std::string.
    const std::string& str() const { return m_text; }

private:
    std::string m_text;
};

namespace FXString
{
// printf-style formatting into a std::string (no length limit).
ZYNET_API std::string Format(const char* format, ...) ZY_PRINTF_LIKE(1, 2);
// The same with a va_list.
ZYNET_API std::string FormatArgList(const char* format, va_list args);
// Bounded formatting: at most kFormatLimit - 1 bytes. When the text does not
// fit, `text` holds what did and the result is a Win32 error 111
// (ERROR_BUFFER_OVERFLOW); callers may still use the truncated text.
const size_t kFormatLimit = 4096;
// Formats into `text`; see kFormatLimit above.
ZYNET_API CZyError FormatArgList(std::string& text, const char* format, va_list args);
// Replaces every occurrence of `from` (not empty) by `to`, left to right, and
// returns how many were replaced.
ZYNET_API size_t ReplaceAll(std::string& text, const std::string& from, const std::string& to);
// Splits `text` at every occurrence of `delimiter`. With flags 0 empty pieces
// are kept ("/8" gives "" and "8"); an empty text gives no pieces.
ZYNET_API void Split(const std::string& text, const std::string& delimiter, std::vector<std::string>& pieces,
                     int flags);
// Removes every trailing character that occurs in `chars`.
ZYNET_API std::string TrimRight(const std::string& text, const std::string& chars);
// ASCII lower case.
ZYNET_API std::string ToLower(const std::string& text);

// UTF-8 <-> UTF-16 (and the platform's wide strings: UTF-16 on Windows,
// UTF-32 on Linux). Invalid input (bad or overlong sequences, encoded
// surrogates, values past U+10FFFF, unpaired surrogates, truncated
// sequences) becomes U+FFFD, one per bad sequence; nothing is dropped
// silently and nothing is read past the input.
// @{
ZYNET_API std::u16string ToUtf16(const std::string& utf8);
ZYNET_API std::string ToUtf8(const std::u16string& utf16);
ZYNET_API std::wstring ToWstring(const std::string& utf8);
ZYNET_API std::string ToString(const std::wstring& wide);
// @}

// Standard base64 (RFC 4648 alphabet, "=" padding, no line breaks).
ZYNET_API std::string Base64Encode(const void* data, size_t size);
// The same for the bytes of a string.
ZYNET_API std::string Base64Encode(const std::string& bytes);
// False on a character outside the alphabet or a bad length; `bytes` is then
// empty.
ZYNET_API bool Base64Decode(const std::string& text, std::string& bytes);

// The value of a hexadecimal digit (either case), -1 for any other character.
ZYNET_API int HexValue(char c);
// Percent-decoding of URL text: "%XX" becomes its byte; a '%' without two
// hexadecimal digits after it stays as it is. Nothing else changes ('+'
// stays '+').
ZYNET_API std::string PercentDecode(const std::string& text);
// Appends "%XX" (upper-case hexadecimal digits) for the byte `c`.
ZYNET_API void AppendPercentEscape(std::string& out, unsigned char c);
// Percent-encoding of one URL path segment or query value: every byte but
// the unreserved ones (letters, digits, '-', '.', '_', '~') becomes "%XX",
// so '/', '?', '#', '%' and spaces survive as data.
ZYNET_API std::string PercentEncode(const std::string& text);
}  // namespace FXString
