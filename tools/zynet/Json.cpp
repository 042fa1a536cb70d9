#include "Json.h"

#include <cmath>
#include <cstdio>

namespace zynet
{
namespace
{
void AppendCodeUnit(std::string& out, unsigned value)
{
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "\\u%04x", value & 0xFFFFu);
    out += buffer;
}

// Length of the valid UTF-8 sequence starting at text[i], or 0 when the
// bytes there do not form one (overlong forms and surrogates refused).
size_t Utf8SequenceLength(const std::string& text, size_t i)
{
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    size_t length;
    unsigned minimum;
    unsigned value;
    if (lead >= 0xC2 && lead <= 0xDF)
    {
        length = 2;
        minimum = 0x80;
        value = lead & 0x1F;
    }
    else if (lead >= 0xE0 && lead <= 0xEF)
    {
        length = 3;
        minimum = 0x800;
        value = lead & 0x0F;
    }
    else if (lead >= 0xF0 && lead <= 0xF4)
    {
        length = 4;
        minimum = 0x10000;
        value = lead & 0x07;
    }
    else
    {
        return 0;
    }
    if (i + length > text.size())
        return 0;
    for (size_t k = 1; k < length; ++k)
    {
        const unsigned char c = static_cast<unsigned char>(text[i + k]);
        if ((c & 0xC0) != 0x80)
            return 0;
        value = (value << 6) | (c & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return 0;
    return length;
}

void Indent(std::string& out, int indent, int depth)
{
    if (indent <= 0)
        return;
    out += '\n';
    out.append(static_cast<size_t>(indent) * static_cast<size_t>(depth), ' ');
}
}  // namespace

std::string JsonQuote(const std::string& text)
{
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    for (size_t i = 0; i < text.size();)
    {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x80)
        {
            switch (c)
            {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20 || c == 0x7F)
                    AppendCodeUnit(out, c);
                else
                    out += static_cast<char>(c);
            }
            ++i;
            continue;
        }
        const size_t length = Utf8SequenceLength(text, i);
        if (length == 0)
        {
            AppendCodeUnit(out, c);
            ++i;
        }
        else
        {
            out.append(text, i, length);
            i += length;
        }
    }
    out += '"';
    return out;
}

Json Json::Strings(const std::vector<std::string>& items)
{
    Json array = Array();
    for (const std::string& item : items)
        array.Push(item);
    return array;
}

Json& Json::Set(const std::string& key, Json value)
{
    if (m_type != kObject)
    {
        *this = Object();
    }
    for (auto& member : m_members)
    {
        if (member.first == key)
        {
            member.second = std::move(value);
            return *this;
        }
    }
    m_members.emplace_back(key, std::move(value));
    return *this;
}

Json& Json::Push(Json value)
{
    if (m_type != kArray)
        *this = Array();
    m_items.push_back(std::move(value));
    return *this;
}

const Json* Json::Find(const std::string& key) const
{
    for (const auto& member : m_members)
    {
        if (member.first == key)
            return &member.second;
    }
    return nullptr;
}

std::string Json::Dump(int indent) const
{
    std::string out;
    Write(out, indent, 0);
    return out;
}

void Json::Write(std::string& out, int indent, int depth) const
{
    char buffer[64];
    switch (m_type)
    {
    case kNull:
        out += "null";
        break;
    case kBool:
        out += m_bool ? "true" : "false";
        break;
    case kInt:
        std::snprintf(buffer, sizeof buffer, "%lld", m_int);
        out += buffer;
        break;
    case kUInt:
        std::snprintf(buffer, sizeof buffer, "%llu", m_uint);
        out += buffer;
        break;
    case kDouble:
        // JSON has no NaN or infinity.
        if (!std::isfinite(m_double))
        {
            out += "null";
        }
        else
        {
            std::snprintf(buffer, sizeof buffer, "%.6g", m_double);
            out += buffer;
        }
        break;
    case kString:
        out += JsonQuote(m_string);
        break;
    case kArray:
        if (m_items.empty())
        {
            out += "[]";
            break;
        }
        out += '[';
        for (size_t i = 0; i < m_items.size(); ++i)
        {
            if (i)
                out += ',';
            Indent(out, indent, depth + 1);
            m_items[i].Write(out, indent, depth + 1);
        }
        Indent(out, indent, depth);
        out += ']';
        break;
    case kObject:
        if (m_members.empty())
        {
            out += "{}";
            break;
        }
        out += '{';
        for (size_t i = 0; i < m_members.size(); ++i)
        {
            if (i)
                out += ',';
            Indent(out, indent, depth + 1);
            out += JsonQuote(m_members[i].first);
            out += indent > 0 ? ": " : ":";
            m_members[i].second.Write(out, indent, depth + 1);
        }
        Indent(out, indent, depth);
        out += '}';
        break;
    }
}
}  // namespace zynet
