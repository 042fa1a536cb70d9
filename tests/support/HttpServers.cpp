#include "support/HttpServers.h"

#include <stdlib.h>

#include "support/TestEnv.h"
#include "ZyUtils/ZyFile.h"

namespace zytest
{
namespace
{
// The value of "key" in the flat JSON object that http_servers.py writes:
// a number or a string (with the escapes Python writes for these values).
bool JsonValue(const std::string& json, const std::string& key, std::string& value)
{
    const std::string quoted = "\"" + key + "\":";
    size_t at = json.find(quoted);
    if (at == std::string::npos)
        return false;
    at += quoted.size();
    while (at < json.size() && (json[at] == ' ' || json[at] == '\n'))
        ++at;
    value.clear();
    if (at < json.size() && json[at] == '"')
    {
        for (++at; at < json.size() && json[at] != '"'; ++at)
        {
            if (json[at] == '\\' && at + 1 < json.size())
                ++at;
            value.push_back(json[at]);
        }
        return true;
    }
    while (at < json.size() && ((json[at] >= '0' && json[at] <= '9') || json[at] == '-'))
        value.push_back(json[at++]);
    return !value.empty();
}

int IntValue(const std::string& json, const char* key)
{
    std::string value;
    return JsonValue(json, key, value) ? atoi(value.c_str()) : 0;
}

std::string TextValue(const std::string& json, const char* key)
{
    std::string value;
    return JsonValue(json, key, value) ? value : std::string();
}

HttpServers Load()
{
    HttpServers servers;
    const char* file = getenv("ZYTEST_HTTP_SERVERS");
    if (!file || !file[0])
    {
        servers.problem = "ZYTEST_HTTP_SERVERS is not set (run the tests through ctest)";
        return servers;
    }
    std::string json;
    if (CZyFile::ReadWholeFile(HostPath(file).c_str(), json).IsError())
    {
        servers.problem = std::string("cannot read ") + file;
        return servers;
    }
    servers.http = IntValue(json, "http");
    servers.https = IntValue(json, "https");
    servers.pythonHttp = IntValue(json, "pythonHttp");
    servers.apache = IntValue(json, "apache");
    servers.proxy = IntValue(json, "proxy");
    servers.echo = IntValue(json, "echo");
    servers.silent = IntValue(json, "silent");
    servers.cut = IntValue(json, "cut");
    servers.lying = IntValue(json, "lying");
    servers.hostile = IntValue(json, "hostile");
    servers.hostileTls = IntValue(json, "hostileTls");
    servers.hostileHalfway = IntValue(json, "hostileHalfway");
    servers.hostileCaFile = HostPath(TextValue(json, "hostileCaFile"));
    servers.bigSize = atoll(TextValue(json, "bigSize").c_str());
    servers.www = HostPath(TextValue(json, "www"));
    servers.caFile = HostPath(TextValue(json, "caFile"));
    servers.wrongCaFile = HostPath(TextValue(json, "wrongCaFile"));
    servers.user = TextValue(json, "user");
    servers.password = TextValue(json, "password");
    servers.proxyUser = TextValue(json, "proxyUser");
    servers.proxyPassword = TextValue(json, "proxyPassword");
    servers.available = servers.http && servers.https && servers.echo;
    if (!servers.available)
        servers.problem = std::string("the servers did not start (see ") + file + ")";
    return servers;
}
}  // namespace

const HttpServers& GetHttpServers()
{
    static const HttpServers servers = Load();
    return servers;
}

std::string LoopbackURL(int port, bool https)
{
    return std::string(https ? "https" : "http") + "://127.0.0.1:" + std::to_string(port);
}
}  // namespace zytest
