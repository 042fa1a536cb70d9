// The ping client: argument checks, reply parsing on crafted datagrams, a real
// series against loopback, crafted replies from a responder in a private
// network namespace, and the unprivileged datagram-socket fallback.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ZyNetwork/OsIcmp.h"
#include "ZyNetwork/ZyPing.h"
#include "ZyUtils/ZyTime.h"
#include "support/IcmpResponder.h"
#include "support/NetNamespace.h"
#include "support/TestEnv.h"

#if !defined(_WIN32)
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace
{
struct Recorder : CZyPingCallback
{
    std::vector<_ZyPingResponse> responses;
    std::vector<bool> lastFlags;
    std::vector<std::string> logs;
    size_t stopAfter = 0;  // 0: never stop

    bool OnPingResponse(void* userData, _ZyPingResponse& response, bool isLast) override
    {
        if (userData != this)
            logs.push_back("wrong user data");
        responses.push_back(response);
        lastFlags.push_back(isLast);
        return stopAfter == 0 || responses.size() < stopAfter;
    }
    void OnPingLog(char const* text) override { logs.push_back(text); }
};

// Collects mismatches as text, for checks that run in a forked child.
struct Checks
{
    std::string text;
    template <class A, class B>
    void Eq(const A& actual, const B& expected, const std::string& what)
    {
        if (!(actual == expected))
            text += what + " was " + std::to_string(actual) + ", expected " +
                    std::to_string(expected) + "; ";
    }
    void True(bool condition, const std::string& what)
    {
        if (!condition)
            text += what + "; ";
    }
};

std::string Statuses(const Recorder& recorder)
{
    std::string text;
    for (const _ZyPingResponse& response : recorder.responses)
        text += std::to_string(response.status);
    return text;
}

// A series of `count` cycles against the kernel's own echo replies on
// 127.0.0.1: every cycle good, TTL 64, sequences 1..count.
// `failure` (when given) receives the error of a ping that could not start.
std::string CheckLoopbackSeries(unsigned int count, unsigned int payload, CZyError* failure = nullptr)
{
    CZyPing ping;
    Recorder recorder;
    _ZyPingResult result;
    CZyError err = ping.ping("127.0.0.1", payload, count, 2, &recorder, &recorder, result, false);
    if (failure != nullptr)
        *failure = err;
    if (err.IsError())
        return "ping failed: " + err.AsString();
    Checks c;
    c.Eq(result.sent, count, "sent");
    c.Eq(result.received, count, "received");
    c.Eq(result.timeouts + result.shortReplies + result.checksumErrors + result.foreignReplies, 0u,
         "bad replies (statuses " + Statuses(recorder) + ")");
    c.True(result.server == "127.0.0.1" && result.address == "127.0.0.1", "result server/address");
    c.Eq(recorder.responses.size(), count, "callbacks");
    uint64_t total = 0;
    for (size_t i = 0; i < recorder.responses.size(); ++i)
    {
        const _ZyPingResponse& r = recorder.responses[i];
        c.Eq(r.sequence, i + 1, "sequence");
        c.Eq(r.status, PING_OK, "status");
        c.Eq(r.ttl, 64u, "ttl");
        c.Eq(r.bytes, payload, "bytes");
        c.Eq(r.count, count, "count");
        c.True(r.server == "127.0.0.1" && r.address == "127.0.0.1", "response server/address");
        c.Eq(recorder.lastFlags[i], i + 1 == count, "last-cycle flag");
        total += r.timeMs;
    }
    c.Eq(result.totalTimeMs, total, "totalTimeMs");
    c.True(!recorder.logs.empty() && recorder.logs[0] == "ZyPing: [server - 127.0.0.1] [IP - 127.0.0.1]",
           "first log line");
    return c.text;
}

#if !defined(_WIN32)
// Runs `body` in a forked child that has dropped to the unprivileged user
// 65534 (no capabilities). The child waits for Go() before it starts, so the
// caller can get a responder ready without forking under a running thread.
class NobodyChild
{
public:
    explicit NobodyChild(const std::function<std::string()>& body)
    {
        int go[2], out[2];
        if (pipe(go) != 0 || pipe(out) != 0)
            return;
        fflush(nullptr);
        m_pid = fork();
        if (m_pid == 0)
        {
            close(go[1]);
            close(out[0]);
            std::string text;
            char byte;
            if (read(go[0], &byte, 1) != 1)
                text = "no go signal";
            else if (setgroups(0, nullptr) != 0 || setresgid(65534, 65534, 65534) != 0 ||
                     setresuid(65534, 65534, 65534) != 0)
                text = "could not drop privileges";
            else
                text = body();
            if (!text.empty() && write(out[1], text.data(), text.size()) < 0)
                _exit(2);
            _exit(text.empty() ? 0 : 1);
        }
        close(go[0]);
        close(out[1]);
        m_go = go[1];
        m_out = out[0];
    }
    void Go()
    {
        if (m_go >= 0 && write(m_go, "g", 1) != 1)
            m_go = -1;
    }
    std::string Finish()
    {
        if (m_pid <= 0)
            return "could not fork the unprivileged child";
        Go();
        std::string text;
        char buffer[512];
        ssize_t n;
        while ((n = read(m_out, buffer, sizeof(buffer))) > 0)
            text.append(buffer, static_cast<size_t>(n));
        int status = 0;
        waitpid(m_pid, &status, 0);
        close(m_go);
        close(m_out);
        if (text.empty() && !(WIFEXITED(status) && WEXITSTATUS(status) == 0))
            return "unprivileged child failed (status " + std::to_string(status) + ")";
        return text.empty() ? "" : "[unprivileged] " + text;
    }

private:
    pid_t m_pid = -1;
    int m_go = -1;
    int m_out = -1;
};
#endif

// An exactly sized heap copy, so that the sanitizers catch any read past it.
std::unique_ptr<unsigned char[]> Exact(const std::vector<unsigned char>& bytes)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes.empty() ? 1 : bytes.size()]);
    if (!bytes.empty())
        memcpy(copy.get(), bytes.data(), bytes.size());
    return copy;
}
}  // namespace

TEST(Ping, ArgumentsAreRejectedInOrderBeforeAnythingChanges)
{
    CZyPing ping;
    Recorder recorder;
    _ZyPingResult result;
    result.sent = 9;
    result.foreignReplies = 7;

    CZyError err = ping.ping("127.0.0.1", 0, 0, 1, nullptr, &recorder, result, true);
    EXPECT_TRUE(err.Is(2));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::RKResult);
    EXPECT_EQ(err.GetErrorMessage(), "IPV6 is not supported currently");

    err = ping.ping("127.0.0.1", 0, 0, 1, nullptr, &recorder, result, false);
    EXPECT_TRUE(err.Is(3));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::RKResult);
    EXPECT_EQ(err.GetErrorMessage(), "Invalid buffer size (0)");

    err = ping.ping("127.0.0.1", 32, 0, 1, nullptr, &recorder, result, false);
    EXPECT_TRUE(err.Is(3));
    EXPECT_EQ(err.GetErrorMessage(), "Invalid buffer count (0)");

    // Rejected calls neither reset the record nor report anything.
    EXPECT_EQ(result.sent, 9u);
    EXPECT_EQ(result.foreignReplies, 7u);
    EXPECT_TRUE(recorder.responses.empty());
    EXPECT_TRUE(recorder.logs.empty());
}

TEST(Ping, ReplyParsingStaysWithinTheBytesReceived)
{
    // RFC 1071's example; an odd length counts as padded with a zero byte.
    const unsigned char sample[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
    uint16_t sum = zyicmp::Checksum(sample, 8);
    EXPECT_EQ(memcmp(&sum, "\x22\x0d", 2), 0);
    const unsigned char padded[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0x00};
    EXPECT_EQ(zyicmp::Checksum(sample, 7), zyicmp::Checksum(padded, 8));
    EXPECT_EQ(zyicmp::Checksum(sample, 7), zytest::InternetChecksum(sample, 7));

    const uint16_t id = 0x4321;
    std::vector<unsigned char> request(8 + 24, 0xAB);
    request[0] = 8;
    request[1] = 0;
    request[2] = request[3] = 0;
    memcpy(&request[4], &id, 2);
    const uint16_t seq = 5;
    memcpy(&request[6], &seq, 2);
    uint16_t requestSum = zyicmp::Checksum(request.data(), request.size());
    memcpy(&request[2], &requestSum, 2);

    auto reply = [&](uint8_t type, uint16_t ident, uint16_t sequence, size_t cut, uint16_t sumXor) {
        std::vector<unsigned char> icmp = request;
        icmp[0] = type;
        icmp[2] = icmp[3] = 0;
        memcpy(&icmp[4], &ident, 2);
        memcpy(&icmp[6], &sequence, 2);
        icmp.resize(icmp.size() - cut);
        uint16_t s = zytest::InternetChecksum(icmp.data(), icmp.size()) ^ sumXor;
        memcpy(&icmp[2], &s, 2);
        return icmp;
    };
    auto withIp = [](const std::vector<unsigned char>& icmp, uint8_t ihl, uint8_t ttl) {
        std::vector<unsigned char> packet(ihl * 4u < 20 ? 20 : ihl * 4u, 0);
        packet[0] = static_cast<unsigned char>(0x40 | ihl);
        packet[8] = ttl;
        packet.insert(packet.end(), icmp.begin(), icmp.end());
        return packet;
    };
    auto classify = [&](const std::vector<unsigned char>& bytes, bool ipHeader, size_t received) {
        std::unique_ptr<unsigned char[]> exact = Exact(bytes);
        zyicmp::ReplyCheck check = {exact.get(), received, ipHeader, request.data(), request.size(), id};
        return zyicmp::ClassifyReply(check);
    };
    auto status = [&](const std::vector<unsigned char>& bytes, bool ipHeader) {
        return classify(bytes, ipHeader, bytes.size()).status;
    };

    zyicmp::ReplyVerdict good = classify(withIp(reply(0, id, seq, 0, 0), 5, 55), true, 20 + request.size());
    EXPECT_EQ(good.status, PING_OK);
    EXPECT_EQ(good.ttl, 55u);
    EXPECT_FALSE(good.ownRequest);
    EXPECT_EQ(status(withIp(reply(0, id, 999, 0, 0), 5, 55), true), PING_OK) << "other sequence";
    EXPECT_EQ(status(withIp(reply(0, id, seq, 0, 0), 6, 55), true), PING_OK) << "IP options";
    EXPECT_EQ(status(withIp(reply(0, id, seq, 0, 0x0101), 5, 55), true), PING_BAD_CHECKSUM);
    EXPECT_EQ(status(withIp(reply(14, id, seq, 0, 0), 5, 55), true), PING_FOREIGN_REPLY);
    EXPECT_EQ(status(withIp(reply(0, id + 1, seq, 0, 0), 5, 55), true), PING_FOREIGN_REPLY);
    EXPECT_EQ(status(withIp(reply(0, id, seq, 1, 0), 5, 55), true), PING_SHORT_REPLY);

    // Our own request seen on its way in is recognised; a request that is
    // not byte for byte ours is foreign.
    zyicmp::ReplyVerdict own = classify(withIp(request, 5, 64), true, 20 + request.size());
    EXPECT_TRUE(own.ownRequest);
    EXPECT_FALSE(classify(withIp(reply(8, id, seq + 1, 0, 0), 5, 64), true, 20 + request.size()).ownRequest);

    // Truncated and lying IP headers: every one is a short reply, and the
    // exactly sized buffers let the sanitizers see any over-read.
    std::vector<unsigned char> full = withIp(reply(0, id, seq, 0, 0), 5, 55);
    for (size_t n : {size_t(0), size_t(1), size_t(9), size_t(19), size_t(20), size_t(27)})
        EXPECT_EQ(status(std::vector<unsigned char>(full.begin(), full.begin() + n), true), PING_SHORT_REPLY) << n;
    std::vector<unsigned char> lying = full;
    lying.resize(40);
    lying[0] = 0x4F;  // claims 60 header bytes
    EXPECT_EQ(status(lying, true), PING_SHORT_REPLY);
    lying[0] = 0x42;  // claims 8 header bytes
    EXPECT_EQ(status(lying, true), PING_SHORT_REPLY);

    // Datagram sockets deliver the ICMP message alone.
    zyicmp::ReplyVerdict bare = classify(reply(0, id, seq, 0, 0), false, request.size());
    EXPECT_EQ(bare.status, PING_OK);
    EXPECT_EQ(bare.ttl, 0u);
    EXPECT_EQ(status(std::vector<unsigned char>(request.begin(), request.begin() + 7), false), PING_SHORT_REPLY);
}

// A real series against loopback: as root in a namespace of its own (the
// kernel answers), otherwise in this process, where an unprivileged user
// either gets the datagram fallback or an error that says why. Outside a
// private namespace a raw socket also reads other programs' ICMP traffic
// (as foreign replies), so a noisy series is tried again, twice at most.
TEST(Ping, LoopbackSeriesReportsEveryCycle)
{
    if (zytest::CanUseNetNamespaces())
    {
        EXPECT_EQ(zytest::RunInNetNamespace([] { return CheckLoopbackSeries(3, 56); }), "");
        return;
    }
    std::string text;
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        CZyError err;
        text = CheckLoopbackSeries(3, 56, &err);
        if (err.IsError())
        {
            EXPECT_TRUE(err.HasMessage("ICMP-Socket creation [127.0.0.1] failed.")) << err.AsString();
            EXPECT_TRUE(err.HasMessage("prepare socket failed [127.0.0.1]")) << err.AsString();
            if (!zytest::IsWindowsTarget())
            {
                EXPECT_TRUE(err.Is(10013)) << err.AsString();
            }
            GTEST_SKIP() << "ICMP echo is not permitted here: " << err.AsString();
        }
        if (text.empty())
            break;
    }
    EXPECT_EQ(text, "");
}

#if !defined(_WIN32)
TEST(Ping, CraftedRepliesRaiseEachStatusAndCounter)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and network namespaces (Linux)";
    std::string outcome = zytest::RunInNetNamespace([] {
        using zytest::EchoAnswer;
        if (!zytest::SetIpv4Sysctl("icmp_echo_ignore_all", "1"))
            return std::string("could not turn the kernel's echo replies off");
        zytest::IcmpResponder responder({EchoAnswer::Good, EchoAnswer::Short, EchoAnswer::BadChecksum,
                                         EchoAnswer::ForeignType, EchoAnswer::ForeignId,
                                         EchoAnswer::OtherSequence, EchoAnswer::Silent, EchoAnswer::ForeignType},
                                        77);
        std::string started = responder.Start();
        if (!started.empty())
            return started;

        Checks c;
        CZyPing ping;
        Recorder recorder;
        _ZyPingResult result;
        CZyError err = ping.ping("127.0.0.1", 56, 7, 1, &recorder, &recorder, result, false);
        if (err.IsError())
            return "first series failed: " + err.AsString();
        c.True(Statuses(recorder) == "0234401", "statuses " + Statuses(recorder));
        c.Eq(result.sent, 7u, "sent");
        c.Eq(result.received, 2u, "received");
        c.Eq(result.shortReplies, 1u, "shortReplies");
        c.Eq(result.checksumErrors, 1u, "checksumErrors");
        c.Eq(result.foreignReplies, 2u, "foreignReplies");
        c.Eq(result.timeouts, 1u, "timeouts");
        if (recorder.responses.size() == 7)
        {
            c.Eq(recorder.responses[0].ttl, 77u, "ttl of the good reply");
            c.Eq(recorder.responses[5].ttl, 77u, "ttl of the other-sequence reply");
            c.Eq(recorder.responses[0].bytes, 56u, "bytes");
        }

        // A copy must not take the socket with it when it goes.
        {
            CZyPing copy(ping);
            CZyPing assigned;
            assigned = ping;
        }
        // Same object and record again, with another payload size: the first
        // call's buffers and socket are reused, foreignReplies adds up, the
        // other counters restart, and the callback can stop the series.
        Recorder second;
        second.stopAfter = 1;
        err = ping.ping("127.0.0.1", 200, 5, 1, &second, &second, result, false);
        if (err.IsError())
            return c.text + "second series failed: " + err.AsString();
        c.Eq(result.sent, 1u, "second sent");
        c.Eq(result.foreignReplies, 3u, "accumulated foreignReplies");
        c.Eq(result.received + result.shortReplies + result.checksumErrors + result.timeouts, 0u,
             "restarted counters");
        c.Eq(second.responses.size(), 1u, "second callbacks");
        c.True(second.lastFlags == std::vector<bool>{false}, "last flag of an early stop");

        responder.Stop();
        std::vector<zytest::SeenRequest> seen = responder.Seen();
        c.Eq(seen.size(), 8u, "requests seen");
        const uint16_t pid = static_cast<uint16_t>(FXProcess::getProcessId() & 0xFFFF);
        for (size_t i = 0; i < seen.size(); ++i)
        {
            c.True(seen[i].type == 8 && seen[i].code == 0 && seen[i].checksumOk, "request layout or checksum");
            c.Eq(seen[i].identifier, pid, "request identifier");
            c.Eq(seen[i].sequence, i < 7 ? i : 0, "request sequence");
            c.Eq(seen[i].size, 64u, "request size");
        }
        return c.text;
    });
    EXPECT_EQ(outcome, "");
}

TEST(Ping, UnprivilegedUserFallsBackToDatagramSockets)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and network namespaces (Linux)";
    std::string outcome = zytest::RunInNetNamespace([] {
        using zytest::EchoAnswer;
        // Neither socket kind allowed: the error says so.
        if (!zytest::SetIpv4Sysctl("ping_group_range", "1\t0"))
            return std::string("could not write ping_group_range");
        std::string text = NobodyChild([] {
                               CZyPing ping;
                               _ZyPingResult result;
                               CZyError err = ping.ping("127.0.0.1", 56, 1, 1, nullptr, nullptr, result, false);
                               Checks c;
                               c.True(err.Is(10013), "refusal code: " + err.AsString());
                               c.True(err.AsString().find("ping_group_range") != std::string::npos,
                                      "refusal text: " + err.AsString());
                               c.True(err.HasMessage("ICMP-Socket creation [127.0.0.1] failed."), "creation text");
                               c.True(err.HasMessage("prepare socket failed [127.0.0.1]"), "prepare text");
                               return c.text;
                           }).Finish();

        // Allowed: the kernel's own reply, then crafted ones.
        if (!zytest::SetIpv4Sysctl("ping_group_range", "0\t2147483647"))
            return std::string("could not write ping_group_range");
        text += NobodyChild([] { return CheckLoopbackSeries(1, 56); }).Finish();

        if (!zytest::SetIpv4Sysctl("icmp_echo_ignore_all", "1"))
            return text + "could not turn the kernel's echo replies off";
        NobodyChild crafted([] {
            CZyPing ping;
            Recorder recorder;
            _ZyPingResult result;
            CZyError err = ping.ping("127.0.0.1", 56, 3, 1, &recorder, &recorder, result, false);
            if (err.IsError())
                return "crafted series failed: " + err.AsString();
            Checks c;
            c.True(Statuses(recorder) == "020", "statuses " + Statuses(recorder));
            c.Eq(result.received, 2u, "received");
            c.Eq(result.shortReplies, 1u, "shortReplies");
            if (recorder.responses.size() == 3)
                c.Eq(recorder.responses[0].ttl, 77u, "ttl from the control message");
            return c.text;
        });
        zytest::IcmpResponder responder({EchoAnswer::Good, EchoAnswer::Short, EchoAnswer::OtherSequence}, 77);
        std::string started = responder.Start();
        if (!started.empty())
            return text + started;
        crafted.Go();
        text += crafted.Finish();
        responder.Stop();
        return text;
    });
    EXPECT_EQ(outcome, "");
}
#endif
