// The "wininet" transfer client: downloads and directory listings through
// ZyHTTP (WinINet). Uploads of files as such are not among its operations;
// its multipart log upload is `zynet upload-log`.
#include <string>
#include <vector>

#include "TransferClients.h"
#include "ZyNetwork/ZyHTTP.h"

namespace zytool
{
namespace
{
void Configure(ZyHTTP& client, const TransferOptions& options)
{
    if (!options.user.empty())
    {
        client.SetUser(options.user.c_str());
        client.SetPassword(options.password.c_str());
    }
    if (!options.proxy.empty())
    {
        client.SetProxyAccess(options.proxy.c_str(), nullptr);
        if (!options.proxyUser.empty())
            client.SetProxyCreds(options.proxyUser.c_str(), options.proxyPassword.c_str());
    }
    if (options.insecure)
        client.SetIgnoreCertificateErrors();
    if (options.timeoutSeconds > 0)
        client.SetInternetTimeout(options.timeoutSeconds * 1000);
}

CZyError Download(const std::string& url, const std::string& file, const TransferOptions& options)
{
    ZyHTTP client(url.c_str());
    Configure(client, options);
    const size_t slash = file.find_last_of("/\\");
    const std::string directory = slash == std::string::npos ? "" : file.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? file : file.substr(slash + 1);
    return client.DownloadFileFromUrl(url.c_str(), directory.c_str(), name.c_str(), {});
}

CZyError List(const std::string& url, std::vector<std::string>& names, const TransferOptions& options)
{
    ZyHTTP client(url.c_str());
    Configure(client, options);
    std::vector<CZyString> files;
    CZyError error = client.GetFileList(files, nullptr);
    names.clear();
    for (const CZyString& file : files)
        names.push_back(file.str());
    return error;
}
}  // namespace

TransferClient WinInetClient()
{
    return {"wininet", Download, nullptr, List};
}
}  // namespace zytool
