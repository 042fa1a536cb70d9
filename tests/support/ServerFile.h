// The flat JSON description of the loopback servers that a fixture script
// writes, in the file named by an environment variable.
#pragma once

#include <stdint.h>

#include <string>

namespace zytest
{
struct ServerFile
{
    // Reads the file named by the environment variable `variable`.
    explicit ServerFile(const char* variable);

    bool ok = false;
    std::string name;     // the file
    std::string problem;  // why it could not be read

    // The value of `key` ("" or 0 when missing); paths as this target takes them.
    std::string Text(const char* key) const;
    int64_t Number(const char* key) const;
    std::string Path(const char* key) const;

private:
    std::string m_json;
};
}  // namespace zytest
