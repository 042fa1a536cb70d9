// proxy: what WinHTTP's three proxy-discovery calls report.
#include <string>
#include <vector>

#include "Tool.h"
#include "ZyNetwork/ZyHTTP2.h"

namespace zytool
{
namespace
{
const char* OrNone(const std::string& text)
{
    return text.empty() ? "(none)" : text.c_str();
}
}  // namespace

int RunProxy(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "proxy", 0, 1);
    if (parsed.HasValue("--pac") && parsed.positional.empty())
        throw UsageError("--pac needs a URL to look up");

    std::string proxy;
    std::string bypass;
    CZyError error = CZyHTTP2::GetGlobalProxyConfiguration(proxy, bypass);
    if (error.IsError())
        return out.Fail("cannot read the default proxy configuration", error);
    Json global = Json::object();
    global["proxy"] = proxy;
    global["bypass"] = bypass;
    out.Result()["default"] = global;
    out.Line("default (WinHTTP):  proxy %s, bypass %s", OrNone(proxy), OrNone(bypass));

    std::string autoConfigUrl;
    bool autoDetect = false;
    error = CZyHTTP2::GetProxyConfigurationForCurrentUser(proxy, bypass, autoConfigUrl, autoDetect);
    if (error.IsError())
        return out.Fail("cannot read the current user's proxy configuration", error);
    Json user = Json::object();
    user["proxy"] = proxy;
    user["bypass"] = bypass;
    user["autoConfigUrl"] = autoConfigUrl;
    user["autoDetect"] = autoDetect;
    out.Result()["currentUser"] = user;
    out.Line("current user:       proxy %s, bypass %s, auto-config URL %s, auto-detect %s", OrNone(proxy),
             OrNone(bypass), OrNone(autoConfigUrl), autoDetect ? "on" : "off");

    if (parsed.positional.empty())
        return kExitOk;
    const std::string& url = parsed.positional[0];
    std::string pac = parsed.HasValue("--pac") ? parsed.values.at("--pac") : std::string();
    error = CZyHTTP2::GetProxyForUrl(url, pac, proxy, bypass);
    if (error.IsError())
        return out.Fail("cannot find the proxy for " + url, error);
    Json forUrl = Json::object();
    forUrl["url"] = url;
    forUrl["pac"] = pac;
    forUrl["proxy"] = proxy;
    forUrl["bypass"] = bypass;
    out.Result()["forUrl"] = forUrl;
    out.Line("for %s (%s): proxy %s, bypass %s", url.c_str(), pac.empty() ? "auto-detected" : pac.c_str(),
             proxy.empty() ? "(direct)" : proxy.c_str(), OrNone(bypass));
    return kExitOk;
}
}  // namespace zytool
