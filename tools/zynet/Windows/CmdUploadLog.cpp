// upload-log: sends a log file to a log-collecting server as the multipart
// form of ZyHTTP::UploadFile.
#include <string>
#include <vector>

#include "Tool.h"
#include "ZyNetwork/ZyHTTP.h"
#include "ZyUtils/ZyFile.h"

namespace zytool
{
int RunUploadLog(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "upload-log", 2, 2);
    const std::string& file = parsed.positional[0];
    const std::string& url = parsed.positional[1];
    long timeout = 0;
    if (parsed.HasValue("--timeout"))
        timeout = static_cast<long>(ParseInteger(parsed.values["--timeout"], 1, 86400, "--timeout"));

    ZyHTTP client(url.c_str());
    CZyString working;
    CZyError error = client.GetWorkingURL(working);
    if (error.IsError())
        return out.Fail("not a usable URL: " + url, error);
    if (parsed.HasValue("--user"))
    {
        const std::string& user = parsed.values["--user"];
        const size_t colon = user.find(':');
        client.SetUser(user.substr(0, colon).c_str());
        client.SetPassword(colon == std::string::npos ? "" : user.substr(colon + 1).c_str());
    }
    const bool jsp = parsed.Has("--jsp");
    if (jsp)
        client.SetUploadMode("Use_JSP_for_Upload");
    if (parsed.Has("--insecure"))
        client.SetIgnoreCertificateErrors();
    if (timeout > 0)
        client.SetInternetTimeout(timeout * 1000);

    uint64_t size = 0;
    CZyFile local;
    error = local.Open(file.c_str(), CZyFile::kReadOnly);
    if (!error.IsError())
        error = local.Size(size);
    local.Close();
    if (error.IsError())
        return out.Fail("cannot read " + file, error);

    const std::string ccid = parsed.HasValue("--ccid") ? parsed.values["--ccid"] : "";
    const std::string target = working.str() + (jsp ? "httplogupload.do" : "upload.asp");
    error = client.UploadFile(file.c_str(), ccid.c_str());
    if (error.IsError())
        return out.Fail("upload to " + target + " failed", error);

    out.Line("uploaded %s (%llu bytes) to %s", file.c_str(), static_cast<unsigned long long>(size), target.c_str());
    out.Result()["file"] = file;
    out.Result()["bytes"] = static_cast<unsigned long long>(size);
    out.Result()["url"] = target;
    out.Result()["mode"] = jsp ? "jsp" : "asp";
    out.Result()["ccid"] = ccid.empty() ? std::string("NO CCID") : ccid;
    return kExitOk;
}
}  // namespace zytool
