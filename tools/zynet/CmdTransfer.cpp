// put, ls, head, rm and mkdir, and what every transfer command shares: transfers through the library's request classes
// (libcurl), or through another client of the platform with --client.
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Causes.h"
#include "Platform.h"
#include "Terminal.h"
#include "Transfer.h"
#include "ZyNetwork/RkFTPReq.h"
#include "ZyNetwork/RkHTTPReq.h"
#include "ZyNetwork/RkSFTPReq.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyString.h"

namespace zytool
{
namespace
{
using RkCURL::RkProtocolReq;

// The request class of each URL scheme.
struct Protocol
{
    const char* scheme;
    std::unique_ptr<RkProtocolReq> (*make)();
};

const std::vector<Protocol>& Protocols()
{
    static const std::vector<Protocol> protocols = {
        {"http", [] { return std::unique_ptr<RkProtocolReq>(new RkCURL::RkHTTPReq(RkCURL::HTTP)); }},
        {"https", [] { return std::unique_ptr<RkProtocolReq>(new RkCURL::RkHTTPReq(RkCURL::HTTPS)); }},
        {"ftp", [] { return std::unique_ptr<RkProtocolReq>(new RkCURL::RkFTPReq(RkCURL::FTP)); }},
        {"ftps", [] { return std::unique_ptr<RkProtocolReq>(new RkCURL::RkFTPReq(RkCURL::FTPS)); }},
        {"sftp", [] { return std::unique_ptr<RkProtocolReq>(new RkCURL::RkSFTPReq()); }},
    };
    return protocols;
}

void SplitUserPassword(const std::string& text, std::string& user, std::string& password)
{
    const size_t colon = text.find(':');
    user = text.substr(0, colon);
    password = colon == std::string::npos ? std::string() : text.substr(colon + 1);
}

// A URL that names a directory (its path ends in '/', or it has none) gets
// the local file's name, percent-encoded, as the curl tool's upload and
// sftp's put do: "put a.txt ftp://host/up/" stores up/a.txt.
std::string UploadUrl(const TransferArgs& transfer, const std::string& file)
{
    const size_t slash = file.find_last_of(std::string("/") + PathSeparator());
    const std::string name = slash == std::string::npos ? file : file.substr(slash + 1);
    const std::string& url = transfer.url;
    const size_t path = transfer.server.size();  // the path starts after scheme://authority
    const size_t end = std::min(url.find_first_of("?#", path), url.size());
    if (name.empty() || (path < end && url[end - 1] != '/'))
        return url;
    return url.substr(0, end) + (path == end ? "/" : "") + FXString::PercentEncode(name) + url.substr(end);
}

}  // namespace

const char kDefaultClient[] = "curl";

TransferArgs ParseTransferArgs(Output& out, const std::vector<std::string>& args, const char* command,
                               size_t minPositional, size_t maxPositional)
{
    TransferArgs transfer;
    transfer.parsed = ParseCommandArgs(args, command, minPositional, maxPositional);
    const Args& parsed = transfer.parsed;
    if (parsed.HasValue("--user"))
        SplitUserPassword(parsed.values.at("--user"), transfer.options.user, transfer.options.password);
    if (parsed.HasValue("--proxy-user"))
        SplitUserPassword(parsed.values.at("--proxy-user"), transfer.options.proxyUser, transfer.options.proxyPassword);
    if (parsed.HasValue("--proxy"))
        transfer.options.proxy = parsed.values.at("--proxy");
    if (parsed.HasValue("--cacert"))
        transfer.cacert = parsed.values.at("--cacert");
    if (parsed.HasValue("--client"))
        transfer.client = parsed.values.at("--client");
    if (parsed.HasValue("--key"))
        transfer.key = parsed.values.at("--key");
    if (parsed.HasValue("--pass"))
        transfer.passphrase = parsed.values.at("--pass");
    if (parsed.HasValue("--known-hosts"))
        transfer.knownHosts = parsed.values.at("--known-hosts");
    transfer.options.insecure = parsed.Has("--insecure") || parsed.Has("-k");
    if (parsed.HasValue("--timeout"))
        transfer.options.timeoutSeconds =
            static_cast<long>(ParseInteger(parsed.values.at("--timeout"), 1, 86400, "--timeout"));

    out.AddSecret(transfer.options.password);
    out.AddSecret(transfer.options.proxyPassword);
    out.AddSecret(transfer.passphrase);
    SetTransferUrl(out, transfer, parsed.positional.back());
    return transfer;
}

void SetTransferUrl(Output& out, TransferArgs& transfer, const std::string& url)
{
    transfer.url = url;
    transfer.shown = MaskCredentials(url);
    if (transfer.shown != url)
    {
        const size_t colon = url.find(':', url.find("://") + 3);
        out.AddSecret(url.substr(colon + 1, url.find('@', colon) - colon - 1));
    }
    const size_t schemeEnd = url.find("://");
    if (schemeEnd == std::string::npos || schemeEnd == 0)
        throw UsageError("'" + transfer.shown + "' is not a URL (scheme://host[:port]/path)");
    transfer.server = url.substr(0, url.find_first_of("/?#", schemeEnd + 3));
}

std::string Scheme(const std::string& url)
{
    return FXString::ToLower(url.substr(0, url.find("://")));
}

const TransferClient* ChooseClient(const TransferArgs& transfer)
{
    if (transfer.client == kDefaultClient)
        return nullptr;
    std::string names = kDefaultClient;
    for (const TransferClient& client : TransferClients())
    {
        if (transfer.client == client.name)
            return &client;
        names += std::string(", ") + client.name;
    }
    throw UsageError("unknown client '" + transfer.client + "' (available: " + names + ")");
}

CZyError OpenRequest(const TransferArgs& transfer, std::unique_ptr<RkProtocolReq>& request, Progress* progress)
{
    const std::string scheme = Scheme(transfer.url);
    std::string schemes;
    for (const Protocol& protocol : Protocols())
    {
        if (scheme == protocol.scheme)
            request = protocol.make();
        schemes += std::string(schemes.empty() ? "" : ", ") + protocol.scheme;
    }
    if (!request)
        throw UsageError("unsupported URL scheme '" + scheme + "' (supported: " + schemes + ")");
    CZyError error = request->initialize(0);
    if (!error.IsError())
        error = request->setLinkRedirects(true);
    request->setURL(transfer.server);
    const TransferOptions& options = transfer.options;
    if (!error.IsError() && (!options.user.empty() || !options.password.empty()))
        error = request->setCredentials(options.user, options.password);
    if (!error.IsError() && !options.proxy.empty())
    {
        const size_t colon = options.proxy.rfind(':');
        if (colon == std::string::npos)
            throw UsageError("--proxy needs HOST:PORT");
        error = request->setProxyDetails(options.proxy.substr(0, colon), options.proxy.substr(colon + 1),
                                         options.proxyUser, options.proxyPassword);
    }
    if (!error.IsError() && !transfer.cacert.empty())
        error = request->setSecured(true, transfer.cacert);
    if (!error.IsError() && options.insecure)
        error = request->setSecured(false, std::string());
    if (!error.IsError() && options.timeoutSeconds > 0)
        error = request->SetTimeOut(options.timeoutSeconds);
    if (!error.IsError() && progress)
        error = request->setProgressCallBack(progress, &Progress::Callback);
    RkCURL::RkSFTPReq* sftp = dynamic_cast<RkCURL::RkSFTPReq*>(request.get());
    if (!sftp && (!transfer.key.empty() || !transfer.knownHosts.empty()))
        throw UsageError("--key and --known-hosts are for sftp:// URLs");
    if (sftp)
    {
        // --insecure also turns the host-key check off.
        if (!error.IsError() && !transfer.knownHosts.empty())
            error = sftp->setKnownHostsFile(transfer.knownHosts);
        if (!error.IsError() && options.insecure)
            error = sftp->setHostKeyChecking(false);
        if (!error.IsError() && !transfer.key.empty())
            error = sftp->setPrivateKey(transfer.key, transfer.passphrase);
    }
    // Uploads make the directories they need.
    if (RkCURL::RkFTPReq* ftp = dynamic_cast<RkCURL::RkFTPReq*>(request.get()))
    {
        if (!error.IsError())
            error = ftp->setCreateMissingDirs(true);
    }
    return error;
}

int FailTransfer(Output& out, const std::string& what, const CZyError& error, const TransferArgs& transfer,
                 RkProtocolReq* request, const std::string& reason, bool upload)
{
    FailureFacts facts;
    facts.scheme = Scheme(transfer.url);
    facts.reason = reason;
    facts.upload = upload;
    if (request)
        request->getLastServerResponseCode(facts.status);
    return out.Fail(what, error, TransferCause(error, facts));
}

bool ShowProgress(const Output& out)
{
    return !out.IsJson() && StderrIsTerminal();
}

int RunPut(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(out, args, "put", 2, 2);
    const std::string file = transfer.parsed.positional[0];
    SetTransferUrl(out, transfer, UploadUrl(transfer, file));
    out.Result()["url"] = transfer.shown;
    out.Result()["file"] = file;
    if (const TransferClient* client = ChooseClient(transfer))
    {
        if (!client->upload)
            throw UsageError(std::string("client '") + client->name + "' cannot upload");
        CZyError error = client->upload(file, transfer.url, transfer.options);
        if (error.IsError())
            return FailTransfer(out, "upload to " + transfer.shown + " failed", error, transfer, nullptr);
        out.Line("sent %s to %s", file.c_str(), transfer.shown.c_str());
        return kExitOk;
    }
    Progress progress(ShowProgress(out));
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, &progress);
    if (error.IsError())
        return FailTransfer(out, "cannot set up the request for " + transfer.shown, error, transfer, nullptr);
    error = request->uploadFile(file.c_str(), transfer.url.c_str(), 0, {});
    progress.Finish();
    if (error.IsError())
        return FailTransfer(out, "upload of " + file + " to " + transfer.shown + " failed", error, transfer, request.get(),
                            std::string(), true);
    int status = 0;
    request->getLastServerResponseCode(status);
    out.Result()["bytes"] = static_cast<long long>(request->getDataSizeInBytes());
    out.Result()["status"] = status;
    out.Line("%lld bytes sent to %s (status %d)", static_cast<long long>(request->getDataSizeInBytes()),
             transfer.shown.c_str(), status);
    return kExitOk;
}

int RunLs(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(out, args, "ls", 1, 1);
    out.Result()["url"] = transfer.shown;
    Json list = Json::array();
    if (const TransferClient* client = ChooseClient(transfer))
    {
        if (!client->list)
            throw UsageError(std::string("client '") + client->name + "' cannot list");
        std::vector<std::string> names;
        CZyError error = client->list(transfer.url, names, transfer.options);
        if (error.IsError())
            return FailTransfer(out, "listing of " + transfer.shown + " failed", error, transfer, nullptr);
        for (const std::string& name : names)
        {
            Json entry = Json::object();
            entry["name"] = name;
            list.push_back(entry);
            out.Line("%s", name.c_str());
        }
        out.Result()["entries"] = list;
        return kExitOk;
    }
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, nullptr);
    if (error.IsError())
        return FailTransfer(out, "cannot set up the request for " + transfer.shown, error, transfer, nullptr);
    std::vector<RkCURL::FileDirInfo> entries;
    error = request->listDirectory(transfer.url, entries);
    if (error.IsError())
        return FailTransfer(out, "listing of " + transfer.shown + " failed", error, transfer, request.get());
    for (const RkCURL::FileDirInfo& entry : entries)
    {
        Json item = Json::object();
        item["name"] = entry.name;
        item["path"] = entry.fullPath;
        item["directory"] = entry.isDirectory;
        item["size"] = static_cast<long long>(entry.size);
        item["size_exact"] = entry.sizeExact;
        item["modified"] = static_cast<long long>(entry.modificationTime);
        list.push_back(item);
        // A size the listing rounded is shown as approximate: "~1258291".
        const std::string size =
            entry.size < 0 ? std::string("-") : (entry.sizeExact ? "" : "~") + std::to_string(entry.size);
        out.Line("%s %12s  %-16s  %s%s", entry.isDirectory ? "d" : "-", size.c_str(),
                 entry.modificationText.empty() ? "-" : entry.modificationText.c_str(), entry.name.c_str(),
                 entry.isDirectory ? "/" : "");
    }
    out.Result()["entries"] = list;
    return kExitOk;
}

int RunHead(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(out, args, "head", 1, 1);
    out.Result()["url"] = transfer.shown;
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, nullptr);
    if (error.IsError())
        return FailTransfer(out, "cannot set up the request for " + transfer.shown, error, transfer, nullptr);
    double size = 0;
    error = request->getFileInfo(transfer.url, size);
    int status = 0;
    request->getLastServerResponseCode(status);
    // An answer without a length (a generated page) is still an answer.
    const bool noLength = error.HasMessage("File size recieved from server is invalid");
    if (error.IsError() && !noLength)
        return FailTransfer(out, "request for " + transfer.shown + " failed", error, transfer, request.get());
    out.Result()["status"] = status;
    if (noLength)
        out.Result()["size"] = Json();
    else
        out.Result()["size"] = static_cast<long long>(size);
    out.Line("status %d", status);
    if (noLength)
        out.Line("size   unknown");
    else
        out.Line("size   %lld", static_cast<long long>(size));
    return kExitOk;
}

// rm and mkdir: file commands of FTP and SFTP.
namespace
{
int RunFileCommand(Output& out, const std::vector<std::string>& args, bool makeDirectory)
{
    TransferArgs transfer = ParseTransferArgs(out, args, makeDirectory ? "mkdir" : "rm", 1, 1);
    out.Result()["url"] = transfer.shown;
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, nullptr);
    if (error.IsError())
        return FailTransfer(out, "cannot set up the request for " + transfer.shown, error, transfer, nullptr);
    RkCURL::RkFTPReq* ftp = dynamic_cast<RkCURL::RkFTPReq*>(request.get());
    if (!ftp)
        throw UsageError("'" + Scheme(transfer.url) + "' URLs have no " + (makeDirectory ? "mkdir" : "rm") +
                         " (ftp, ftps and sftp have)");
    error = makeDirectory ? ftp->makeDirectory(transfer.url) : ftp->deleteFile(transfer.url);
    if (error.IsError())
        return FailTransfer(out, std::string(makeDirectory ? "mkdir " : "rm ") + transfer.shown + " failed", error, transfer,
                           request.get());
    out.Line("%s %s", makeDirectory ? "made" : "removed", transfer.shown.c_str());
    return kExitOk;
}
}  // namespace

int RunRm(Output& out, const std::vector<std::string>& args)
{
    return RunFileCommand(out, args, false);
}

int RunMkdir(Output& out, const std::vector<std::string>& args)
{
    return RunFileCommand(out, args, true);
}
}  // namespace zytool
