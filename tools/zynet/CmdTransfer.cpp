// get, put, ls and head: transfers through the library's request classes
// (libcurl), or through another client of the platform with --client.
#include <stdio.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Terminal.h"
#include "Tool.h"
#include "TransferClients.h"
#include "ZyNetwork/RkFTPReq.h"
#include "ZyNetwork/RkHTTPReq.h"
#include "ZyNetwork/RkSFTPReq.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyString.h"

namespace zynet
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

const char kDefaultClient[] = "curl";

struct TransferArgs
{
    std::string url;
    std::string server;  // scheme://authority
    std::string path;    // the rest, percent-encoded as given
    std::string cacert;
    std::string key;         // --key FILE (SFTP private key)
    std::string passphrase;  // --pass PHRASE (its passphrase)
    std::string knownHosts;  // --known-hosts FILE (SFTP)
    std::string client = kDefaultClient;
    TransferOptions options;
    Args parsed;
};

void SplitUserPassword(const std::string& text, std::string& user, std::string& password)
{
    const size_t colon = text.find(':');
    user = text.substr(0, colon);
    password = colon == std::string::npos ? std::string() : text.substr(colon + 1);
}

TransferArgs ParseTransferArgs(const std::vector<std::string>& args, const std::vector<std::string>& extraValues,
                               size_t positional)
{
    std::vector<std::string> values = {"--user",  "--proxy", "--proxy-user",  "--cacert", "--timeout",
                                       "--client", "--key",  "--known-hosts", "--pass"};
    values.insert(values.end(), extraValues.begin(), extraValues.end());
    TransferArgs transfer;
    transfer.parsed = ParseArgs(args, {"--insecure", "-k"}, values, positional, positional);
    const Args& parsed = transfer.parsed;
    transfer.url = parsed.positional.back();
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

    const size_t schemeEnd = transfer.url.find("://");
    if (schemeEnd == std::string::npos || schemeEnd == 0)
        throw UsageError("'" + transfer.url + "' is not a URL (scheme://host[:port]/path)");
    const size_t pathStart = transfer.url.find('/', schemeEnd + 3);
    transfer.server = transfer.url.substr(0, pathStart);
    transfer.path = pathStart == std::string::npos ? std::string("/") : transfer.url.substr(pathStart);
    return transfer;
}

std::string Scheme(const std::string& url)
{
    return FXString::ToLower(url.substr(0, url.find("://")));
}

// The other client named by --client, or null for the library's own.
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

// Progress on a terminal: bytes so far, rate and time left, redrawn at most
// five times a second on one line of stderr.
class Progress
{
public:
    explicit Progress(bool enabled) : m_enabled(enabled), m_start(Clock::now()), m_last(m_start), m_drawn(false) {}
    ~Progress() { Finish(); }

    static int Callback(void* self, curl_off_t downTotal, curl_off_t downNow, curl_off_t upTotal, curl_off_t upNow)
    {
        Progress* progress = static_cast<Progress*>(self);
        if (upTotal > 0 || upNow > 0)
            progress->Update(upNow, upTotal);
        else
            progress->Update(downNow, downTotal);
        return 0;
    }

    void Finish()
    {
        if (m_drawn)
            fputc('\n', stderr);
        m_drawn = false;
    }

private:
    typedef std::chrono::steady_clock Clock;

    static std::string Bytes(double bytes)
    {
        static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
        int unit = 0;
        while (bytes >= 1024 && unit < 4)
        {
            bytes /= 1024;
            ++unit;
        }
        return FXString::Format(unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
    }

    void Update(curl_off_t now, curl_off_t total)
    {
        const Clock::time_point t = Clock::now();
        if (!m_enabled || t - m_last < std::chrono::milliseconds(200))
            return;
        m_last = t;
        const double seconds = std::chrono::duration<double>(t - m_start).count();
        const double rate = seconds > 0 ? static_cast<double>(now) / seconds : 0;
        std::string line = Bytes(static_cast<double>(now));
        if (total > 0)
            line += " of " + Bytes(static_cast<double>(total));
        line += "  " + Bytes(rate) + "/s";
        if (total > 0 && rate > 0 && now <= total)
        {
            const long left = static_cast<long>((total - now) / rate + 0.5);
            line += FXString::Format("  %ld:%02ld:%02ld left", left / 3600, (left / 60) % 60, left % 60);
        }
        fprintf(stderr, "\r%-60s", line.c_str());
        fflush(stderr);
        m_drawn = true;
    }

    bool m_enabled;
    Clock::time_point m_start;
    Clock::time_point m_last;
    bool m_drawn;
};

// A request of the URL's protocol with the command's options applied.
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

// The URL's path as the request classes take it: decoded.
std::string DecodedPath(RkProtocolReq& request, const std::string& path)
{
    std::string decoded;
    if (request.URLDecodePath(path, decoded).IsError())
        return path;
    return decoded;
}

bool ShowProgress(const Output& out)
{
    return !out.IsJson() && StderrIsTerminal();
}

struct Sink
{
    FILE* stream = nullptr;
    CZyFile file;
    uint64_t bytes = 0;
    bool failed = false;
};

size_t WriteSink(char* data, size_t size, size_t count, void* user)
{
    Sink* sink = static_cast<Sink*>(user);
    const size_t total = size * count;
    if (sink->stream)
    {
        if (fwrite(data, 1, total, sink->stream) != total)
        {
            sink->failed = true;
            return 0;
        }
    }
    else if (sink->file.Write(data, static_cast<uint32_t>(total)).IsError())
    {
        sink->failed = true;
        return 0;
    }
    sink->bytes += total;
    return total;
}
}  // namespace

int RunGet(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(args, {"-o"}, 1);
    const std::string output = transfer.parsed.HasValue("-o") ? transfer.parsed.values.at("-o") : std::string();
    if (out.IsJson() && (output.empty() || output == "-"))
        throw UsageError("--json needs -o FILE (the body cannot share stdout with the JSON document)");
    out.Result()["url"] = transfer.url;
    if (const TransferClient* client = ChooseClient(transfer))
    {
        if (!client->download || output.empty() || output == "-")
            throw UsageError(std::string("client '") + client->name + "' downloads only into a file (-o FILE)");
        CZyError error = client->download(transfer.url, output, transfer.options);
        if (error.IsError())
            return out.Fail("download of " + transfer.url + " failed", error);
        out.Result()["file"] = output;
        out.Line("saved %s", output.c_str());
        return kExitOk;
    }

    Progress progress(ShowProgress(out));
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, &progress);
    if (error.IsError())
        return out.Fail("cannot set up the request", error);
    Sink sink;
    if (output.empty() || output == "-")
    {
        sink.stream = stdout;
        SetBinaryStdout();
    }
    else if ((error = sink.file.Open(output.c_str(), CZyFile::kWriteCreate)).IsError())
    {
        return out.Fail("cannot create " + output, error);
    }
    request->setWriteFunctionPointer(&sink, &WriteSink);
    const auto start = std::chrono::steady_clock::now();
    error = request->download(DecodedPath(*request, transfer.path).c_str(), {});
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.Finish();
    if (sink.stream)
        fflush(sink.stream);
    else
        sink.file.Close();
    if (error.IsError())
        return out.Fail("download of " + transfer.url + " failed", error);
    int status = 0;
    request->getLastServerResponseCode(status);
    out.Result()["file"] = output.empty() ? std::string("-") : output;
    out.Result()["bytes"] = static_cast<unsigned long long>(sink.bytes);
    out.Result()["status"] = status;
    out.Result()["seconds"] = seconds;
    if (!sink.stream)
        out.Line("%llu bytes saved to %s (status %d)", static_cast<unsigned long long>(sink.bytes), output.c_str(),
                 status);
    return kExitOk;
}

int RunPut(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(args, {}, 2);
    const std::string file = transfer.parsed.positional[0];
    out.Result()["url"] = transfer.url;
    out.Result()["file"] = file;
    if (const TransferClient* client = ChooseClient(transfer))
    {
        if (!client->upload)
            throw UsageError(std::string("client '") + client->name + "' cannot upload");
        CZyError error = client->upload(file, transfer.url, transfer.options);
        if (error.IsError())
            return out.Fail("upload to " + transfer.url + " failed", error);
        out.Line("sent %s to %s", file.c_str(), transfer.url.c_str());
        return kExitOk;
    }
    Progress progress(ShowProgress(out));
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, &progress);
    if (error.IsError())
        return out.Fail("cannot set up the request", error);
    error = request->uploadFile(file.c_str(), DecodedPath(*request, transfer.path).c_str(), 0, {});
    progress.Finish();
    if (error.IsError())
        return out.Fail("upload of " + file + " to " + transfer.url + " failed", error);
    int status = 0;
    request->getLastServerResponseCode(status);
    out.Result()["bytes"] = static_cast<long long>(request->getDataSizeInBytes());
    out.Result()["status"] = status;
    out.Line("%lld bytes sent to %s (status %d)", static_cast<long long>(request->getDataSizeInBytes()),
             transfer.url.c_str(), status);
    return kExitOk;
}

int RunLs(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(args, {}, 1);
    out.Result()["url"] = transfer.url;
    Json list = Json::array();
    if (const TransferClient* client = ChooseClient(transfer))
    {
        if (!client->list)
            throw UsageError(std::string("client '") + client->name + "' cannot list");
        std::vector<std::string> names;
        CZyError error = client->list(transfer.url, names, transfer.options);
        if (error.IsError())
            return out.Fail("listing of " + transfer.url + " failed", error);
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
        return out.Fail("cannot set up the request", error);
    std::vector<RkCURL::FileDirInfo> entries;
    error = request->listDirectory(DecodedPath(*request, transfer.path), entries);
    if (error.IsError())
        return out.Fail("listing of " + transfer.url + " failed", error);
    for (const RkCURL::FileDirInfo& entry : entries)
    {
        Json item = Json::object();
        item["name"] = entry.name;
        item["path"] = entry.fullPath;
        item["directory"] = entry.isDirectory;
        item["size"] = static_cast<long long>(entry.size);
        item["modified"] = static_cast<long long>(entry.modificationTime);
        list.push_back(item);
        const std::string size = entry.size < 0 ? std::string("-") : std::to_string(entry.size);
        out.Line("%s %12s  %-16s  %s%s", entry.isDirectory ? "d" : "-", size.c_str(),
                 entry.modificationText.empty() ? "-" : entry.modificationText.c_str(), entry.name.c_str(),
                 entry.isDirectory ? "/" : "");
    }
    out.Result()["entries"] = list;
    return kExitOk;
}

int RunHead(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(args, {}, 1);
    if (transfer.client != kDefaultClient)
        throw UsageError("head uses the library's own client only");
    out.Result()["url"] = transfer.url;
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, nullptr);
    if (error.IsError())
        return out.Fail("cannot set up the request", error);
    double size = 0;
    error = request->getFileInfo(DecodedPath(*request, transfer.path), size);
    int status = 0;
    request->getLastServerResponseCode(status);
    // An answer without a length (a generated page) is still an answer.
    const bool noLength = error.HasMessage("File size recieved from server is invalid");
    if (error.IsError() && !noLength)
        return out.Fail("request for " + transfer.url + " failed", error);
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
    TransferArgs transfer = ParseTransferArgs(args, {}, 1);
    if (transfer.client != kDefaultClient)
        throw UsageError("rm and mkdir use the library's own client only");
    out.Result()["url"] = transfer.url;
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, nullptr);
    if (error.IsError())
        return out.Fail("cannot set up the request", error);
    RkCURL::RkFTPReq* ftp = dynamic_cast<RkCURL::RkFTPReq*>(request.get());
    if (!ftp)
        throw UsageError("'" + Scheme(transfer.url) + "' URLs have no " + (makeDirectory ? "mkdir" : "rm") +
                         " (ftp, ftps and sftp have)");
    const std::string path = DecodedPath(*request, transfer.path);
    error = makeDirectory ? ftp->makeDirectory(path) : ftp->deleteFile(path);
    if (error.IsError())
        return out.Fail(std::string(makeDirectory ? "mkdir " : "rm ") + transfer.url + " failed", error);
    out.Line("%s %s", makeDirectory ? "made" : "removed", transfer.url.c_str());
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
}  // namespace zynet
