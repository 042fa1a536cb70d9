// get: a download to stdout or into a file, or of several URLs into a
// directory (-d), with --continue and --retry.
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Causes.h"
#include "Download.h"
#include "Platform.h"
#include "Transfer.h"
#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/ZyString.h"

namespace zytool
{
namespace
{
using RkCURL::RkProtocolReq;

// The pause before try number `attempt` (0 the first retry): 1 s, 2 s,
// 4 s ... at most 30 s.
int RetryPause(int attempt)
{
    return std::min(1 << std::min(attempt, 5), 30);
}

void SayRetry(const std::string& what, const std::string& cause, int attempt, int retries)
{
    std::fprintf(stderr, "zynet get: %s: %s; trying again in %d s (retry %d of %d)\n", what.c_str(), cause.c_str(),
                 RetryPause(attempt), attempt + 1, retries);
    std::fflush(stderr);
    std::this_thread::sleep_for(std::chrono::seconds(RetryPause(attempt)));
}

// What became of one download.
struct Fetched
{
    bool ok = false;
    // A failure: what failed, the library's error (when there is one) and
    // the cause in plain words ("" for the error's own message).
    std::string what;
    bool hasError = false;
    CZyError error;
    std::string cause;
    uint64_t offset = 0;  // --continue: the bytes that were in the file
    int status = 0;
    double seconds = 0;

    bool Fail(const std::string& failed, const CZyError& why, const std::string& because = std::string())
    {
        what = failed;
        hasError = true;
        error = why;
        cause = because;
        return false;
    }
    bool Fail(const std::string& failed, const std::string& because)
    {
        what = failed;
        cause = because;
        return false;
    }
};

// A download through another client of the platform (--client): into a
// temporary file beside FILE, moved over it after success.
bool FetchWithClient(const TransferArgs& transfer, const TransferClient& client, BodySink& sink,
                     const std::string& output, int retries, Fetched& result)
{
    const std::string what = "download of " + transfer.shown + " failed";
    for (int attempt = 0;; ++attempt)
    {
        std::string temporary;
        CZyError error = sink.MakeTemporary(temporary);
        if (error.IsError())
            return result.Fail("cannot write beside " + output, error);
        error = client.download(RequestUrl(transfer.url), temporary, transfer.options);
        if (!error.IsError())
            error = sink.Commit();
        if (!error.IsError())
            return result.ok = true;
        sink.Abandon();
        if (attempt < retries && IsTransient(error, 0))
        {
            SayRetry(what, error.GetErrorMessage(), attempt, retries);
            continue;
        }
        return result.Fail(what, error);
    }
}

// The cause of a failed get in plain words, looking closer where the
// server's refusal may mean that the path is a directory.
std::string GetCause(const CZyError& error, const TransferArgs& transfer, RkProtocolReq& request,
                     const BodySink& sink)
{
    if (sink.RangeMismatch())
        return "the server sent another part than the rest that was asked for";
    FailureFacts facts;
    facts.scheme = Scheme(transfer.url);
    facts.status = sink.Status();
    facts.reason = sink.Reason();
    if (facts.status == 0)
        request.getLastServerResponseCode(facts.status);
    const int code = RkCURL::GetRkCURL(error);
    if ((code == 9 || code == 19 || code == 78 || code == 79) && facts.scheme != "http" && facts.scheme != "https")
    {
        bool directory = false;
        if (!request.checkIfFileOrDirExists(transfer.url, false, directory).IsError() &&
            directory)
            return "is a directory";
    }
    return TransferCause(error, facts);
}

// One download through `request` (which may have served others before:
// its connections are reused) into `sink`, tried again after transient
// failures up to `retries` times.
bool Fetch(RkProtocolReq& request, const TransferArgs& transfer, BodySink& sink, const std::string& output, int retries,
           Progress& progress, Fetched& result)
{
    const std::string scheme = Scheme(transfer.url);
    const std::string what = "download of " + transfer.shown + " failed";
    const bool http = scheme == "http" || scheme == "https";
    // An FTP or SFTP URL that ends in '/' names a directory: curl would
    // fetch its listing as if it were the file.
    const std::string path = transfer.url.substr(0, transfer.url.find_first_of("?#"));
    if (!http && !path.empty() && path.back() == '/' && path.find('/', path.find("://") + 3) != std::string::npos)
        return result.Fail(what, "is a directory");
    const auto start = std::chrono::steady_clock::now();
    request.setURL(transfer.server);
    CZyError error;
    for (int attempt = 0;; ++attempt)
    {
        if ((error = sink.Prepare(result.offset)).IsError())
            return result.Fail("cannot write beside " + output, error);
        // A file that is longer here than on the server is not a start of
        // it: start over. Asked first because curl's refusal of an SFTP
        // offset past the end leaves libssh2's file handle unfreed.
        double remoteSize = -1;
        if (result.offset > 0 && !http && !sink.StartedOver() &&
            !request.getFileInfo(transfer.url, remoteSize).IsError() && remoteSize >= 0 &&
            remoteSize < static_cast<double>(result.offset))
        {
            sink.StartOver();
            --attempt;
            continue;
        }
        // FTP and SFTP resume through the request (REST, a read from the
        // offset); HTTP asks for a range and reads the answer's range.
        request.setResumeFrom(http ? 0 : static_cast<int64_t>(result.offset));
        sink.Attach(request);
        progress.Restart();
        std::vector<RkCURL::commandInfo> commands;
        if (result.offset > 0 && http)
            commands.emplace_back(RkCURL::commandInfo::CMD_HEADER, "Range",
                                  FXString::Format("bytes=%llu-", static_cast<unsigned long long>(result.offset)));
        error = request.download(transfer.url.c_str(), commands);
        progress.Finish();
        if (!error.IsError() || sink.AlreadyComplete())
        {
            error = sink.Commit();
            if (error.IsError())
                return result.Fail("cannot save " + output, error);
            break;
        }
        sink.Abandon();
        const int code = RkCURL::GetRkCURL(error);
        if (result.offset > 0 && !http && !sink.StartedOver() && (code == 31 || code == 33 || code == 36))
        {
            // The server cannot resume: the whole file again, beside it.
            sink.StartOver();
            --attempt;
            continue;
        }
        const std::string cause = GetCause(error, transfer, request, sink);
        if (attempt < retries && IsTransient(error, sink.Status()) && !sink.WroteToStdout())
        {
            SayRetry(what, cause, attempt, retries);
            continue;
        }
        return result.Fail(what, error, cause);
    }
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.status = sink.Status();
    if (result.status == 0)
        request.getLastServerResponseCode(result.status);
    return result.ok = true;
}

// The JSON members and the line of a saved file.
void ReportSaved(Output& out, Json& json, const Fetched& result, const BodySink& sink, const std::string& output,
                 bool resume)
{
    json["file"] = sink.ToStdout() ? std::string("-") : output;
    json["bytes"] = sink.Bytes();
    json["status"] = result.status;
    json["seconds"] = result.seconds;
    if (resume)
    {
        json["offset"] = sink.StartedOver() ? 0 : result.offset;
        json["size"] = sink.FileSize();
    }
    if (sink.ToStdout())
        return;
    const unsigned long long bytes = sink.Bytes();
    const unsigned long long offset = result.offset;
    if (resume && bytes == 0 && sink.AlreadyComplete())
        out.Line("%s is complete already (%llu bytes)", output.c_str(), offset);
    else if (resume && offset > 0 && !sink.StartedOver())
        out.Line("%llu bytes appended to %s after %llu (status %d)", bytes, output.c_str(), offset, result.status);
    else
        out.Line("%llu bytes saved to %s (status %d)", bytes, output.c_str(), result.status);
}

int ReportFailure(Output& out, Json& json, const Fetched& result)
{
    if (result.hasError)
        return out.Fail(json, result.what, result.error, result.cause);
    return out.Fail(json, result.what + (result.cause.empty() ? "" : ": " + result.cause));
}

// The name a URL is saved under with -d: the last segment of its path
// (without query and fragment), percent-decoded. False with the reason in
// `why` when that is no name for a file of its own.
bool RemoteName(const std::string& url, std::string& name, std::string& why)
{
    const size_t authority = url.find("://") + 3;
    const size_t end = url.find_first_of("?#", authority);
    const std::string rest = url.substr(0, end);
    const size_t slash = rest.find('/', authority);
    const std::string segment = slash == std::string::npos ? std::string() : rest.substr(rest.rfind('/') + 1);
    name = FXString::PercentDecode(segment);
    if (name.empty())
        why = "its path names no file (it is empty or ends in '/')";
    else if (name == "." || name == "..")
        why = "\"" + name + "\" is not a file name";
    else if (name.find_first_of(std::string("/\\\0", 3)) != std::string::npos)
        why = "\"" + name + "\" holds a path separator";
    else
        return true;
    return false;
}

std::string InDirectory(const std::string& directory, const std::string& name)
{
    const char last = directory.empty() ? '\0' : directory.back();
    if (last == '/' || last == '\\')
        return directory + name;
    return directory + PathSeparator() + name;
}

// get URL... -d DIR: each URL into DIR under its remote name. The URLs of
// one scheme share one request, so that curl reuses their connections.
int GetMany(Output& out, const TransferArgs& options, const std::string& directory, bool resume, int retries)
{
    const TransferClient* client = ChooseClient(options);
    if (client && !client->download)
        throw UsageError(std::string("client '") + client->name + "' cannot download");
    if (client && resume)
        throw UsageError("--continue works with the curl client only");
    // Every URL is checked, and every request made, before the first
    // download, so that a usage error stops the run before it starts.
    // Each URL's settings are the run's, without the run's list of URLs (a
    // copy of that list in every entry would grow with the square of it).
    TransferArgs each = options;
    each.parsed.positional.clear();
    std::vector<TransferArgs> transfers;
    transfers.reserve(options.parsed.positional.size());
    for (const std::string& url : options.parsed.positional)
    {
        transfers.push_back(each);
        SetTransferUrl(out, transfers.back(), url);
    }
    Progress progress(ShowProgress(out));
    std::map<std::string, std::unique_ptr<RkProtocolReq>> requests;
    std::map<std::string, CZyError> setupErrors;
    for (const TransferArgs& transfer : transfers)
    {
        const std::string scheme = Scheme(transfer.url);
        if (!client && !requests.count(scheme))
            setupErrors[scheme] = OpenRequest(transfer, requests[scheme], &progress);
    }
    out.Result()["directory"] = directory;
    if (!IsDirectory(directory))
        return out.Fail("cannot save into " + directory + ": no such directory");

    Json files = Json::array();
    std::set<std::string> names;
    size_t saved = 0;
    for (const TransferArgs& transfer : transfers)
    {
        const std::string scheme = Scheme(transfer.url);
        Json json = Json::object();
        json["url"] = transfer.shown;
        Fetched result;
        std::string name, why;
        if (!RemoteName(transfer.url, name, why))
            result.Fail("not saving " + transfer.shown, why);
        else if (!names.insert(name).second)
            result.Fail("not saving " + transfer.shown, "an earlier URL of this run has the name " + name);
        else
        {
            const std::string file = InDirectory(directory, name);
            BodySink sink(file, resume, scheme == "http" || scheme == "https");
            if (client)
                FetchWithClient(transfer, *client, sink, file, retries, result);
            else if (setupErrors[scheme].IsError())
            {
                FailureFacts facts;
                facts.scheme = scheme;
                result.Fail("cannot set up the request for " + transfer.shown, setupErrors[scheme],
                            TransferCause(setupErrors[scheme], facts));
            }
            else
                Fetch(*requests[scheme], transfer, sink, file, retries, progress, result);
            if (result.ok && client)
            {
                json["file"] = file;
                out.Line("saved %s", file.c_str());
            }
            else if (result.ok)
                ReportSaved(out, json, result, sink, file, resume);
        }
        json["ok"] = result.ok;
        if (result.ok)
            ++saved;
        else
            ReportFailure(out, json, result);
        files.push_back(json);
    }
    // %llu: mingw's printf checks know no %zu.
    const unsigned long long total = transfers.size();
    const unsigned long long failed = total - saved;
    out.Result()["files"] = files;
    out.Result()["saved"] = saved;
    out.Result()["failed"] = failed;
    out.Line("%llu of %llu files saved into %s%s", total - failed, total, directory.c_str(),
             failed ? FXString::Format(", %llu failed", failed).c_str() : "");
    if (failed)
    {
        out.Result()["error"]["what"] = FXString::Format("%llu of %llu files failed", failed, total);
        return kExitFailure;
    }
    return kExitOk;
}
}  // namespace

int RunGet(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(out, args, "get", 1, static_cast<size_t>(-1));
    const Args& parsed = transfer.parsed;
    const std::string output = parsed.HasValue("-o") ? parsed.values.at("-o") : std::string();
    const bool toStdout = output.empty() || output == "-";
    const bool resume = parsed.Has("--continue") || parsed.Has("-c");
    const int retries =
        parsed.HasValue("--retry") ? static_cast<int>(ParseInteger(parsed.values.at("--retry"), 0, 100, "--retry")) : 0;
    if (parsed.HasValue("-d"))
    {
        if (parsed.HasValue("-o"))
            throw UsageError("-o FILE and -d DIR exclude each other");
        return GetMany(out, transfer, parsed.values.at("-d"), resume, retries);
    }
    if (parsed.positional.size() > 1)
        throw UsageError("several URLs need -d DIR (the directory to save them in)");
    if (out.IsJson() && toStdout)
        throw UsageError("--json needs -o FILE or -d DIR (the body cannot share stdout with the JSON document)");
    if (resume && toStdout)
        throw UsageError("--continue needs -o FILE or -d DIR");
    if (!toStdout && IsDirectory(output))
        throw UsageError("-o " + output + " is a directory (-d DIR saves into one)");
    out.Result()["url"] = transfer.shown;
    const std::string scheme = Scheme(transfer.url);
    BodySink sink(output, resume, scheme == "http" || scheme == "https");
    Fetched result;
    if (const TransferClient* client = ChooseClient(transfer))
    {
        if (!client->download || toStdout)
            throw UsageError(std::string("client '") + client->name + "' downloads only into a file (-o FILE)");
        if (resume)
            throw UsageError("--continue works with the curl client only");
        if (!FetchWithClient(transfer, *client, sink, output, retries, result))
            return ReportFailure(out, out.Result(), result);
        out.Result()["file"] = output;
        out.Line("saved %s", output.c_str());
        return kExitOk;
    }

    Progress progress(ShowProgress(out));
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, &progress);
    if (error.IsError())
        return FailTransfer(out, "cannot set up the request for " + transfer.shown, error, transfer, nullptr);
    if (!Fetch(*request, transfer, sink, output, retries, progress, result))
        return ReportFailure(out, out.Result(), result);
    ReportSaved(out, out.Result(), result, sink, output, resume);
    return kExitOk;
}
}  // namespace zytool
