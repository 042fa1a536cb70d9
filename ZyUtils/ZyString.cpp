#include "ZyUtils/ZyString.h"

#include <cctype>
#include <cstdio>

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
}  // namespace FXString
