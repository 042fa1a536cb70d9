// The "winhttp" transfer client: downloads and uploads through CZyHTTP2.
#include <cstdio>

#include "Causes.h"
#include "TransferClients.h"
#include "ZyNetwork/ZyHTTP2.h"
#include "ZyUtils/ZyString.h"

namespace zytool
{
namespace
{
void Configure(CZyHTTP2& client, const TransferOptions& options)
{
    // URLs go out as the user typed them: the client's own escaping drops
    // query characters such as '?', '&' and '='.
    client.SetAutoEscapeUrl(false);
    if (!options.user.empty())
    {
        client.SetUser(options.user.c_str());
        client.SetPassword(options.password.c_str());
    }
    if (!options.proxy.empty())
        client.SetProxyAccess(options.proxy.c_str());
    if (!options.proxyUser.empty())
        client.SetProxyCredentials(options.proxyUser.c_str(), options.proxyPassword.c_str());
    if (options.timeoutSeconds > 0)
        client.SetInternetTimeoutSec(options.timeoutSeconds);
    // --insecure changes nothing: the client accepts any server certificate.
}

// Said every time: this client takes any certificate for the server's.
void WarnUnverified(const std::string& url)
{
    if (FXString::ToLower(url.substr(0, 8)) == "https://")
        std::fprintf(stderr, "zynet: warning: the winhttp client does not verify the server certificate of %s\n",
                     MaskCredentials(url).c_str());
}

CZyError Download(const std::string& url, const std::string& file, const TransferOptions& options)
{
    WarnUnverified(url);
    CZyHTTP2 client;
    Configure(client, options);
    return client.DownloadFile(file.c_str(), url.c_str());
}

CZyError Upload(const std::string& file, const std::string& url, const TransferOptions& options)
{
    WarnUnverified(url);
    CZyHTTP2 client;
    Configure(client, options);
    return client.UploadFile(file.c_str(), url.c_str());
}
}  // namespace

TransferClient WinHttpClient()
{
    return TransferClient{"winhttp", &Download, &Upload, nullptr};
}
}  // namespace zytool
