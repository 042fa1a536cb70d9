// curl-version: which curl library file the library loaded, its version and
// its protocols.
#include <cstring>
#include <string>
#include <vector>

#include "Tool.h"
#include "ZyNetwork/CurlWrapper.h"
#include "ZyUtils/ZyLibrary.h"

namespace zytool
{
int RunCurlVersion(Output& out, const std::vector<std::string>& args)
{
    ParseCommandArgs(args, "curl-version", 0, 0);
    // The first wrapper call loads the library; the path is "" when no file
    // could be loaded (or curl's global initialisation failed).
    const std::string file = CurlWrapper::rk_curl_library_path();
    const std::string version = CurlWrapper::rk_curl_version();
    const curl_version_info_data* info = CurlWrapper::rk_curl_version_info(CURLVERSION_NOW);
    out.Result()["loaded"] = !file.empty();
    out.Result()["file"] = file;
    out.Result()["version"] = version;
    if (file.empty())
        return out.Fail(version);

    std::vector<std::string> protocols;
    std::string protocolText;
    if (info && info->protocols)
    {
        for (const char* const* protocol = info->protocols; *protocol; ++protocol)
        {
            protocols.push_back(*protocol);
            protocolText += (protocolText.empty() ? "" : " ") + std::string(*protocol);
        }
    }
    const char* tls = info && info->ssl_version ? info->ssl_version : "";
    // A bare file name was found by the system's search: the version text
    // lives inside the loaded file, so its address tells where that is.
    std::string directory;
    if (!CZyLibrary::ModuleDirectoryOf(CurlWrapper::rk_curl_version(), directory))
        directory.clear();
    out.Result()["directory"] = directory;
    out.Result()["protocols"] = Json(protocols);
    out.Result()["tls"] = tls;
    const bool showDirectory = !directory.empty() && file.compare(0, directory.size(), directory) != 0;
    out.Line("file:      %s%s%s%s", file.c_str(), showDirectory ? " (in " : "", showDirectory ? directory.c_str() : "",
             showDirectory ? ")" : "");
    out.Line("version:   %s", version.c_str());
    out.Line("protocols: %s", protocolText.empty() ? "(none reported)" : protocolText.c_str());
    out.Line("tls:       %s", *tls ? tls : "(none)");
    return kExitOk;
}
}  // namespace zytool
