// get: a download to stdout or into a file, with --continue and --retry.
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Causes.h"
#include "Download.h"
#include "Transfer.h"
#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/ZyString.h"

namespace zynet
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

// A download through another client of the platform (--client): into a
// temporary file beside FILE, moved over it after success.
int GetWithClient(Output& out, const TransferArgs& transfer, const TransferClient& client, BodySink& sink,
                  const std::string& output, int retries)
{
    const std::string what = "download of " + transfer.shown + " failed";
    for (int attempt = 0;; ++attempt)
    {
        std::string temporary;
        CZyError error = sink.MakeTemporary(temporary);
        if (error.IsError())
            return out.Fail("cannot write beside " + output, error);
        error = client.download(RequestUrl(transfer.url), temporary, transfer.options);
        if (!error.IsError())
            error = sink.Commit();
        if (!error.IsError())
            break;
        sink.Abandon();
        if (attempt < retries && IsTransient(error, 0))
        {
            SayRetry(what, error.GetErrorMessage(), attempt, retries);
            continue;
        }
        return out.Fail(what, error);
    }
    out.Result()["file"] = output;
    out.Line("saved %s", output.c_str());
    return kExitOk;
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
}  // namespace

int RunGet(Output& out, const std::vector<std::string>& args)
{
    TransferArgs transfer = ParseTransferArgs(out, args, {"-o", "--retry"}, 1, {"--continue", "-c"});
    const Args& parsed = transfer.parsed;
    const std::string output = parsed.HasValue("-o") ? parsed.values.at("-o") : std::string();
    const bool toStdout = output.empty() || output == "-";
    const bool resume = parsed.Has("--continue") || parsed.Has("-c");
    const int retries =
        parsed.HasValue("--retry") ? static_cast<int>(ParseInteger(parsed.values.at("--retry"), 0, 100, "--retry")) : 0;
    if (out.IsJson() && toStdout)
        throw UsageError("--json needs -o FILE (the body cannot share stdout with the JSON document)");
    if (resume && toStdout)
        throw UsageError("--continue needs -o FILE");
    out.Result()["url"] = transfer.shown;
    const std::string scheme = Scheme(transfer.url);
    const bool http = scheme == "http" || scheme == "https";
    BodySink sink(output, resume, http);
    if (const TransferClient* client = ChooseClient(transfer))
    {
        if (!client->download || toStdout)
            throw UsageError(std::string("client '") + client->name + "' downloads only into a file (-o FILE)");
        if (resume)
            throw UsageError("--continue works with the curl client only");
        return GetWithClient(out, transfer, *client, sink, output, retries);
    }

    Progress progress(ShowProgress(out));
    std::unique_ptr<RkProtocolReq> request;
    CZyError error = OpenRequest(transfer, request, &progress);
    if (error.IsError())
        return FailTransfer(out, "cannot set up the request for " + transfer.shown, error, transfer, nullptr);
    const std::string what = "download of " + transfer.shown + " failed";
    const auto start = std::chrono::steady_clock::now();
    uint64_t offset = 0;
    for (int attempt = 0;; ++attempt)
    {
        if ((error = sink.Prepare(offset)).IsError())
            return out.Fail("cannot write beside " + output, error);
        // FTP and SFTP resume through the request (REST, a read from the
        // offset); HTTP asks for a range and reads the answer's range.
        request->setResumeFrom(http ? 0 : static_cast<int64_t>(offset));
        sink.Attach(*request);
        std::vector<RkCURL::commandInfo> commands;
        if (offset > 0 && http)
            commands.emplace_back(RkCURL::commandInfo::CMD_HEADER, "Range", FXString::Format("bytes=%llu-",
                                  static_cast<unsigned long long>(offset)));
        error = request->download(transfer.url.c_str(), commands);
        progress.Finish();
        if (!error.IsError() || sink.AlreadyComplete())
        {
            error = sink.Commit();
            if (!error.IsError())
                break;
            return out.Fail("cannot save " + output, error);
        }
        sink.Abandon();
        const int code = RkCURL::GetRkCURL(error);
        if (offset > 0 && !http && !sink.StartedOver() && (code == 31 || code == 33 || code == 36))
        {
            // The server cannot resume: the whole file again, beside it.
            sink.StartOver();
            --attempt;
            continue;
        }
        const std::string cause = GetCause(error, transfer, *request, sink);
        if (attempt < retries && IsTransient(error, sink.Status()) && !sink.WroteToStdout())
        {
            SayRetry(what, cause, attempt, retries);
            continue;
        }
        return out.Fail(what, error, cause);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    int status = sink.Status();
    if (status == 0)
        request->getLastServerResponseCode(status);
    out.Result()["file"] = toStdout ? std::string("-") : output;
    out.Result()["bytes"] = sink.Bytes();
    out.Result()["status"] = status;
    out.Result()["seconds"] = seconds;
    if (resume)
    {
        out.Result()["offset"] = sink.StartedOver() ? 0 : offset;
        out.Result()["size"] = sink.FileSize();
    }
    if (toStdout)
        return kExitOk;
    if (resume && sink.Bytes() == 0 && sink.AlreadyComplete())
        out.Line("%s is complete already (%llu bytes)", output.c_str(), static_cast<unsigned long long>(offset));
    else if (resume && offset > 0 && !sink.StartedOver())
        out.Line("%llu bytes appended to %s after %llu (status %d)", static_cast<unsigned long long>(sink.Bytes()),
                 output.c_str(), static_cast<unsigned long long>(offset), status);
    else
        out.Line("%llu bytes saved to %s (status %d)", static_cast<unsigned long long>(sink.Bytes()), output.c_str(),
                 status);
    return kExitOk;
}
}  // namespace zynet
