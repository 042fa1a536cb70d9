// Strings of the utility layer: CZyString and the FXString helpers.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

#include "ZyUtils/ZyExport.h"

// A byte string. Thin over std::string; it exists because the library's
// interfaces hand it to callers.
class ZYNET_API CZyString
{
public:
    CZyString() = default;
    CZyString(const char* text) : m_text(text ? text : "") {}
    CZyString(const std::string& text) : m_text(text) {}

    CZyString& operator=(const char* text)
    {
        m_text = text ? text : "";
        return *this;
    }
    CZyString& operator=(const std::string& text)
    {
        m_text = text;
        return *this;
    }
    CZyString& operator+=(const CZyString& other)
    {
        m_text += other.m_text;
        return *this;
    }
    CZyString& operator+=(const char* text)
    {
        if (text)
            m_text += text;
        return *this;
    }
    bool operator==(const CZyString& other) const { return m_text == other.m_text; }
    bool operator!=(const CZyString& other) const { return m_text != other.m_text; }
    bool operator==(const char* text) const { return text && m_text == text; }
    bool operator<(const CZyString& other) const { return m_text < other.m_text; }

    const char* c_str() const { return m_text.c_str(); }
    size_t Length() const { return m_text.size(); }
    bool IsEmpty() const { return m_text.empty(); }
    void Clear() { m_text.clear(); }
    const std::string& str() const { return m_text; }

private:
    std::string m_text;
};

namespace FXString
{
// printf-style formatting into a std::string (no length limit).
ZYNET_API std::string Format(const char* format, ...) ZY_PRINTF_LIKE(1, 2);
ZYNET_API std::string FormatArgList(const char* format, va_list args);
// Splits `text` at every occurrence of `delimiter`. With flags 0 empty pieces
// are kept ("/8" gives "" and "8"); an empty text gives no pieces.
ZYNET_API void Split(const std::string& text, const std::string& delimiter, std::vector<std::string>& pieces,
                     int flags);
// Removes every trailing character that occurs in `chars`.
ZYNET_API std::string TrimRight(const std::string& text, const std::string& chars);
// ASCII lower case.
ZYNET_API std::string ToLower(const std::string& text);
}  // namespace FXString
