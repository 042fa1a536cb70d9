#include "support/ServerFile.h"

#include <stdlib.h>

#include "support/TestEnv.h"
#include "ZyUtils/ZyFile.h"

namespace zytest
{
ServerFile::ServerFile(const char* variable)
{
    const char* file = getenv(variable);
    if (!file || !file[0])
    {
        problem = std::string(variable) + " is not set (run the tests through ctest)";
        return;
    }
    name = file;
    ok = !CZyFile::ReadWholeFile(HostPath(name).c_str(), m_json).IsError();
    if (!ok)
        problem = "cannot read " + name;
}

// Strings carry only the escapes Python writes for these values.
std::string ServerFile::Text(const char* key) const
{
    const std::string quoted = "\"" + std::string(key) + "\":";
    size_t at = m_json.find(quoted);
    if (at == std::string::npos)
        return std::string();
    at += quoted.size();
    while (at < m_json.size() && (m_json[at] == ' ' || m_json[at] == '\n'))
        ++at;
    std::string value;
    if (at < m_json.size() && m_json[at] == '"')
    {
        for (++at; at < m_json.size() && m_json[at] != '"'; ++at)
        {
            if (m_json[at] == '\\' && at + 1 < m_json.size())
                ++at;
            value.push_back(m_json[at]);
        }
        return value;
    }
    while (at < m_json.size() && ((m_json[at] >= '0' && m_json[at] <= '9') || m_json[at] == '-'))
        value.push_back(m_json[at++]);
    return value;
}

int64_t ServerFile::Number(const char* key) const
{
    return atoll(Text(key).c_str());
}

std::string ServerFile::Path(const char* key) const
{
    return HostPath(Text(key));
}
}  // namespace zytest
