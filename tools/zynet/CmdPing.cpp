// ping: ICMP echo requests with a line per reply and a summary.
#include <algorithm>
#include <cstdio>
#include <string>

#include "Tool.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZyPing.h"
#include "ZyUtils/ZyTime.h"

static const char kZyFile[] = "tools/zynet/CmdPing";

namespace zytool
{
namespace
{
// Winsock's "permission denied", what a raw socket gives without privileges.
const int kAccessDenied = 10013;

const char* PingStatusName(int status)
{
    switch (status)
    {
    case PING_OK: return "ok";
    case PING_TIMEOUT: return "timeout";
    case PING_SHORT_REPLY: return "short reply";
    case PING_BAD_CHECKSUM: return "bad checksum";
    case PING_FOREIGN_REPLY: return "foreign reply";
    default: return "unknown";
    }
}

// Prints each cycle as it completes and keeps the round-trip figures.
class PrintingCallback : public CZyPingCallback
{
public:
    explicit PrintingCallback(Output& out) : m_out(out), m_replies(Json::array()) {}

    bool OnPingResponse(void* userData, _ZyPingResponse& response, bool last) override
    {
        Json entry = Json::object();
        entry["sequence"] = response.sequence;
        entry["status"] = PingStatusName(response.status);
        entry["ms"] = static_cast<unsigned long long>(response.timeMs);
        if (response.status == PING_OK)
        {
            entry["bytes"] = response.bytes + 8u;
            entry["ttl"] = response.ttl;
            m_out.Line("%u bytes from %s: icmp_seq=%u ttl=%u time=%llu ms", response.bytes + 8u,
                       response.address.c_str(), response.sequence, response.ttl,
                       static_cast<unsigned long long>(response.timeMs));
            const unsigned long long ms = response.timeMs;
            m_min = m_received ? std::min(m_min, ms) : ms;
            m_max = std::max(m_max, ms);
            m_sum += ms;
            ++m_received;
        }
        else
        {
            m_out.Line("no reply for icmp_seq=%u: %s", response.sequence, PingStatusName(response.status));
        }
        m_replies.push_back(entry);
        return true;
    }

    void OnPingLog(const char* text) override {}

    Json& Replies() { return m_replies; }
    unsigned received() const { return m_received; }
    unsigned long long min() const { return m_min; }
    unsigned long long max() const { return m_max; }
    double avg() const { return m_received ? static_cast<double>(m_sum) / m_received : 0.0; }

private:
    Output& m_out;
    Json m_replies;
    unsigned m_received = 0;
    unsigned long long m_min = 0;
    unsigned long long m_max = 0;
    unsigned long long m_sum = 0;
};
}  // namespace

int RunPing(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "ping", 1, 1);
    const std::string& host = parsed.positional[0];
    unsigned count = 4;
    unsigned size = 56;
    unsigned timeout = 1;
    if (parsed.HasValue("-c"))
        count = static_cast<unsigned>(ParseInteger(parsed.values["-c"], 1, 100000, "N"));
    if (parsed.HasValue("-s"))
        size = static_cast<unsigned>(ParseInteger(parsed.values["-s"], 1, 65507, "SIZE"));
    if (parsed.HasValue("-W"))
        timeout = static_cast<unsigned>(ParseInteger(parsed.values["-W"], 1, 3600, "SEC"));

    // The header names the address before the first one-second pause, as
    // ping does; CZyPing resolves the host the same way.
    CZyIPAddr target;
    if (target.SetAddressString(host.c_str()).IsError())
    {
        CZyError error = CZyIPAddr::GetByName(host.c_str(), target, CZyIPAddr::IP_FAMILY_IPV4);
        if (error.IsError())
            return out.Fail("cannot resolve '" + host + "'", error);
    }
    out.Line("PING %s (%s) %u(%u) bytes of data.", host.c_str(), AddressText(target).c_str(), size, size + 28);
    std::fflush(stdout);

    PrintingCallback callback(out);
    CZyPing ping;
    _ZyPingResult result;
    result.foreignReplies = 0;
    const CTimeStamp start = CTimeStamp::Now();
    const CZyError error = ping.ping(host.c_str(), size, count, timeout, nullptr, &callback, result, false);
    const unsigned long long elapsedMs =
        static_cast<unsigned long long>(CTimeStamp::Now().AsMilliseconds() - start.AsMilliseconds());

    out.Result()["host"] = host;
    out.Result()["address"] = result.address.empty() ? AddressText(target) : result.address;
    out.Result()["replies"] = callback.Replies();
    if (error.IsError())
        return out.Fail("ping failed", error);

    const unsigned lossPercent = result.sent ? (result.sent - result.received) * 100u / result.sent : 0u;
    Json summary = Json::object();
    summary["sent"] = result.sent;
    summary["received"] = result.received;
    summary["lossPercent"] = lossPercent;
    summary["timeouts"] = result.timeouts;
    summary["shortReplies"] = result.shortReplies;
    summary["checksumErrors"] = result.checksumErrors;
    summary["foreignReplies"] = result.foreignReplies;
    summary["totalMs"] = static_cast<unsigned long long>(result.totalTimeMs);
    summary["elapsedMs"] = elapsedMs;
    if (callback.received())
    {
        summary["minMs"] = callback.min();
        summary["avgMs"] = callback.avg();
        summary["maxMs"] = callback.max();
    }
    out.Result()["summary"] = summary;

    out.Line("%s", "");
    out.Line("--- %s ping statistics ---", host.c_str());
    out.Line("%u packets transmitted, %u received, %u%% packet loss, time %llums", result.sent, result.received,
             lossPercent, elapsedMs);
    if (result.shortReplies || result.checksumErrors || result.foreignReplies)
    {
        out.Line("%u short replies, %u checksum errors, %u foreign replies", result.shortReplies,
                 result.checksumErrors, result.foreignReplies);
    }
    if (callback.received())
        out.Line("rtt min/avg/max = %llu/%.1f/%llu ms", callback.min(), callback.avg(), callback.max());
    if (result.received == 0)
        return out.Fail("no reply from " + host);
    return kExitOk;
}

namespace
{
// Ends the series at the first good reply. A raw ICMP socket also sees the
// echo traffic of other programs on this host, which the library counts as
// foreign replies, so the tour allows a few cycles to get its own.
class FirstReplyCallback : public CZyPingCallback
{
public:
    bool OnPingResponse(void* userData, _ZyPingResponse& response, bool last) override
    {
        return response.status != PING_OK;
    }
    void OnPingLog(const char* text) override {}
};
}  // namespace

PingTourOutcome PingForTour(std::string& detail, CZyError& error)
{
    const unsigned kMaxCycles = 3;
    FirstReplyCallback callback;
    CZyPing ping;
    _ZyPingResult result;
    error = ping.ping("127.0.0.1", 56, kMaxCycles, 2, nullptr, &callback, result, false);
    if (error.IsError())
    {
        if (error.Is(kAccessDenied))
        {
            detail = "ICMP sockets are not permitted for this user";
            return kPingTourNotPermitted;
        }
        detail = "ping failed";
        return kPingTourFailed;
    }
    if (result.received == 0 && result.foreignReplies == result.sent)
    {
        // Every cycle ended on another program's echo traffic: the host is
        // busy with other pings, which says nothing about this library.
        detail = FXString::Format("every request met other programs' ICMP traffic (%u foreign replies)",
                                  result.foreignReplies);
        return kPingTourBusy;
    }
    if (result.received == 0)
    {
        error = FXErrorUtil::ErrorInt(ZY_LOC("zytool::PingForTour"), 1,
                                      "no echo reply in %u requests (%u timeouts, %u foreign replies)", result.sent,
                                      result.timeouts, result.foreignReplies);
        detail = "no echo reply";
        return kPingTourFailed;
    }
    detail = FXString::Format("echo reply to request %u, round trip %llu ms (each request waits 1 s first)",
                              result.sent, static_cast<unsigned long long>(result.totalTimeMs));
    return kPingTourOk;
}
}  // namespace zytool
