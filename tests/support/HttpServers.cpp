#include "support/HttpServers.h"

#include "support/ServerFile.h"

namespace zytest
{
namespace
{
HttpServers Load()
{
    HttpServers servers;
    const ServerFile file("ZYTEST_HTTP_SERVERS");
    if (!file.ok)
    {
        servers.problem = file.problem;
        return servers;
    }
    auto port = [&file](const char* key) { return static_cast<int>(file.Number(key)); };
    servers.http = port("http");
    servers.https = port("https");
    servers.pythonHttp = port("pythonHttp");
    servers.proxy = port("proxy");
    servers.echo = port("echo");
    servers.hostile = port("hostile");
    servers.hostileTls = port("hostileTls");
    servers.hostileHalfway = port("hostileHalfway");
    servers.hostileCaFile = file.Path("hostileCaFile");
    servers.bigSize = file.Number("bigSize");
    servers.www = file.Path("www");
    servers.caFile = file.Path("caFile");
    servers.wrongCaFile = file.Path("wrongCaFile");
    servers.user = file.Text("user");
    servers.password = file.Text("password");
    servers.proxyUser = file.Text("proxyUser");
    servers.proxyPassword = file.Text("proxyPassword");
    servers.available = servers.http && servers.https && servers.echo;
    if (!servers.available)
        servers.problem = "the servers did not start (see " + file.name + ")";
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
