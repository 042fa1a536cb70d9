// The description of the loopback servers that a CTest fixture script
// (support/http_servers.py, support/ftp_servers.py) writes: a flat JSON
// object in the file named by an environment variable.
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

    // The value of `key`: a number or a string; "" or 0 when missing. Paths
    // come as this target's file functions take them.
    std::string Text(const char* key) const;
    int64_t Number(const char* key) const;
    std::string Path(const char* key) const;

private:
    std::string m_json;
};
}  // namespace zytest
