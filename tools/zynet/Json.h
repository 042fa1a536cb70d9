// The tool's JSON documents: nlohmann's ordered JSON, so members keep the
// order they were first set in.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace zytool
{
typedef nlohmann::ordered_json Json;

// The document as text, indented by `indent` (0 writes one line). Bytes
// that are not valid UTF-8 come out as U+FFFD, so the text is always valid
// JSON.
inline std::string JsonText(const Json& document, int indent = 2)
{
    return document.dump(indent > 0 ? indent : -1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
}  // namespace zytool
