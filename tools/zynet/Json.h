// A small JSON document model and writer for the tool's --json output.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zynet
{
class Json
{
public:
    enum Type
    {
        kNull,
        kBool,
        kInt,
        kUInt,
        kDouble,
        kString,
        kArray,
        kObject
    };

    Json() : m_type(kNull) {}
    Json(bool value) : m_type(kBool), m_bool(value) {}
    Json(int value) : m_type(kInt), m_int(value) {}
    Json(long value) : m_type(kInt), m_int(value) {}
    Json(long long value) : m_type(kInt), m_int(value) {}
    Json(unsigned value) : m_type(kUInt), m_uint(value) {}
    Json(unsigned long value) : m_type(kUInt), m_uint(value) {}
    Json(unsigned long long value) : m_type(kUInt), m_uint(value) {}
    Json(double value) : m_type(kDouble), m_double(value) {}
    Json(const char* text) : m_type(text ? kString : kNull), m_string(text ? text : "") {}
    Json(std::string text) : m_type(kString), m_string(std::move(text)) {}

    static Json Array() { return Json(kArray); }
    static Json Object() { return Json(kObject); }
    // An array of strings.
    static Json Strings(const std::vector<std::string>& items);

    Type GetType() const { return m_type; }
    // Adds or replaces a member; members keep the order they were first set in.
    Json& Set(const std::string& key, Json value);
    // Appends to an array.
    Json& Push(Json value);
    // The member with this key, or null when absent.
    const Json* Find(const std::string& key) const;
    size_t Size() const { return m_type == kArray ? m_items.size() : m_members.size(); }

    // The document as text; indent 0 writes one line.
    std::string Dump(int indent = 2) const;

private:
    explicit Json(Type type) : m_type(type) {}
    void Write(std::string& out, int indent, int depth) const;

    Type m_type;
    bool m_bool = false;
    long long m_int = 0;
    unsigned long long m_uint = 0;
    double m_double = 0;
    std::string m_string;
    std::vector<Json> m_items;
    std::vector<std::pair<std::string, Json>> m_members;
};

// `text` as a JSON string literal, quotes included. Bytes that are not valid
// UTF-8 are written as the code point of the same value (Latin-1), so the
// output is always valid JSON.
std::string JsonQuote(const std::string& text);
}  // namespace zynet
