// The ping client: argument checks, reply parsing, a real loopback series,
// crafted replies in a private namespace and the datagram-socket fallback.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ZyNetwork/Internal/OsIcmp.h"
#include "ZyNetwork/ZyPing.h"
#include "ZyUtils/ZyTime.h"
#include "support/NetNamespace.h"
#include "support/TestEnv.h"

#if !defined(_WIN32)
#include <grp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <thread>
#endif

namespace
{
struct Recorder : CZyPingCallback
{
    std::vector<_ZyPingResponse> responses;
    std::vector<bool> lastFlags;
    size_t logs = 0;
    bool wrongUserData = false;
    size_t stopAfter = 0;  // 0: never stop

    bool OnPingResponse(void* userData, _ZyPingResponse& response, bool isLast) override
    {
        wrongUserData |= userData != this;
        responses.push_back(response);
        lastFlags.push_back(isLast);
        return stopAfter == 0 || responses.size() < stopAfter;
    }
    void OnPingLog(char const*) override { ++logs; }
};

using zytest::Checks;

// The statuses of the callbacks and the counters of the result, in one line.
std::string Outcome(const Recorder& recorder, const _ZyPingResult& r)
{
    std::string text;
    for (const _ZyPingResponse& response : recorder.responses)
        text += std::to_string(response.status);
    return text + " sent " + std::to_string(r.sent) + " good " + std::to_string(r.received) + " short " +
           std::to_string(r.shortReplies) + " checksum " + std::to_string(r.checksumErrors) + " foreign " +
           std::to_string(r.foreignReplies) + " timeouts " + std::to_string(r.timeouts);
}

// A series of `count` cycles against the kernel's own echo replies on
// 127.0.0.1: every cycle good, TTL 64; "" or what differed.
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
    const std::string n = std::to_string(count);
    c.Expect(Outcome(recorder, result) ==
                 std::string(count, '0') + " sent " + n + " good " + n + " short 0 checksum 0 foreign 0 timeouts 0",
             Outcome(recorder, result));
    c.Expect(result.server == "127.0.0.1" && result.address == "127.0.0.1", "result server/address");
    uint64_t total = 0;
    for (size_t i = 0; i < recorder.responses.size(); ++i)
    {
        const _ZyPingResponse& r = recorder.responses[i];
        c.Eq(r.sequence, i + 1, "sequence");
        c.Eq(r.ttl, 64u, "ttl");
        c.Eq(r.bytes, payload, "bytes");
        c.Eq(recorder.lastFlags[i], i + 1 == count, "last-cycle flag");
        total += r.timeMs;
    }
    c.Eq(result.totalTimeMs, total, "totalTimeMs");
    c.Expect(!recorder.wrongUserData, "user data passed on");
    return c.text;
}

#if !defined(_WIN32)
// Drops this process (a forked child in its own namespace) to the user 65534
// for good, with no capabilities left; sockets opened before stay usable.
bool DropToNobody()
{
    return setgroups(0, nullptr) == 0 && setresgid(65534, 65534, 65534) == 0 && setresuid(65534, 65534, 65534) == 0;
}

// A series against 127.0.0.1 with one-second waits: its outcome, or why it
// could not start.
std::string Series(CZyPing& ping, Recorder& recorder, _ZyPingResult& result, unsigned int payload, unsigned int count)
{
    CZyError err = ping.ping("127.0.0.1", payload, count, 1, &recorder, &recorder, result, false);
    return err.IsError() ? "failed: " + err.AsString() : Outcome(recorder, result);
}

// Writes a value to /proc/sys/net/ipv4/<name> of the current namespace.
bool SetIpv4Sysctl(const char* name, const char* value)
{
    std::ofstream file(std::string("/proc/sys/net/ipv4/") + name);
    file << value;
    file.close();
    return !file.fail();
}

enum class EchoAnswer
{
    Good,           // a proper echo reply
    Short,          // a proper reply cut by four payload bytes
    BadChecksum,    // a reply whose checksum is off
    ForeignType,    // a timestamp reply (type 14) carrying the same id and sequence
    ForeignId,      // an echo reply with another identifier
    OtherSequence,  // an echo reply with another sequence number
    Silent          // no answer at all
};

struct SeenRequest
{
    uint8_t type, code;
    uint16_t identifier, sequence;  // as the fields read in host order
    size_t size;                    // ICMP bytes (header + payload)
    bool checksumOk;
};

// A scripted echo responder (root, in a private namespace): it turns the
// kernel's echo replies off, answers each request with the next answer of
// its script (Silent past its end) with IP TTL 77, and records the requests.
class IcmpResponder
{
public:
    explicit IcmpResponder(std::vector<EchoAnswer> script) : m_script(std::move(script)) {}
    ~IcmpResponder() { Stop(); }

    // "" or what failed.
    std::string Start()
    {
        const int ttl = 77;
        if (!SetIpv4Sysctl("icmp_echo_ignore_all", "1"))
            return "could not turn the kernel's echo replies off";
        m_fd = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
        if (m_fd < 0 || ::setsockopt(m_fd, IPPROTO_IP, IP_TTL, &ttl, sizeof(ttl)) != 0)
            return std::string("responder socket: ") + strerror(errno);
        m_thread = std::thread([this] { Run(); });
        return "";
    }
    // Stops answering; the requests seen.
    const std::vector<SeenRequest>& Stop()
    {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
        return m_seen;
    }

private:
    void Run()
    {
        unsigned char packet[65536];
        while (!m_stop)
        {
            pollfd entry = {m_fd, POLLIN, 0};
            if (::poll(&entry, 1, 100) <= 0)
                continue;
            sockaddr_in from;
            socklen_t fromLength = sizeof(from);
            ssize_t n = ::recvfrom(m_fd, packet, sizeof(packet), 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
            if (n < 20)
                continue;
            size_t header = static_cast<size_t>(packet[0] & 0x0F) * 4;
            if (header < 20 || static_cast<size_t>(n) < header + 8)
                continue;
            unsigned char* icmp = packet + header;
            size_t size = static_cast<size_t>(n) - header;
            if (icmp[0] != 8)
                continue;  // only echo requests are answered (our own replies come by too)

            SeenRequest seen = {icmp[0], icmp[1], 0, 0, size, zy::icmp::Checksum(icmp, size) == 0};
            memcpy(&seen.identifier, icmp + 4, 2);
            memcpy(&seen.sequence, icmp + 6, 2);
            m_seen.push_back(seen);

            const size_t answered = m_seen.size() - 1;
            EchoAnswer answer = answered < m_script.size() ? m_script[answered] : EchoAnswer::Silent;
            if (answer == EchoAnswer::Silent)
                continue;
            icmp[0] = 0;
            size_t replySize = size;
            if (answer == EchoAnswer::Short)
                replySize = size - 4;
            else if (answer == EchoAnswer::ForeignType)
                icmp[0] = 14;
            else if (answer == EchoAnswer::ForeignId)
                icmp[4] ^= 0x5A;
            else if (answer == EchoAnswer::OtherSequence)
            {
                uint16_t sequence = static_cast<uint16_t>(seen.sequence + 1000);
                memcpy(icmp + 6, &sequence, 2);
            }
            icmp[2] = icmp[3] = 0;
            uint16_t sum = zy::icmp::Checksum(icmp, replySize);
            if (answer == EchoAnswer::BadChecksum)
                sum ^= 0x1234;
            memcpy(icmp + 2, &sum, 2);
            ::sendto(m_fd, icmp, replySize, 0, reinterpret_cast<sockaddr*>(&from), fromLength);
        }
    }

    std::vector<EchoAnswer> m_script;
    int m_fd = -1;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    std::vector<SeenRequest> m_seen;
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
    struct
    {
        const char* host;
        unsigned int size, count;
        bool ipv6;
        int code;
        EErrorKind kind;
        const char* message;
    } cases[] = {{nullptr, 0, 0, true, 2, EErrorKind::RKResult, "IPV6 is not supported currently"},
                 {nullptr, 0, 0, false, 3, EErrorKind::RKResult, "Invalid buffer size (0)"},
                 {nullptr, 32, 0, false, 3, EErrorKind::RKResult, "Invalid buffer count (0)"},
                 {nullptr, 32, 1, false, 87, EErrorKind::Win32, "Invalid input parameter, host is NULL"}};
    for (const auto& t : cases)
    {
        CZyError err = ping.ping(t.host, t.size, t.count, 1, nullptr, &recorder, result, t.ipv6);
        EXPECT_TRUE(err.Is(t.code)) << err.AsString();
        EXPECT_EQ(err.GetErrorKind(), t.kind) << t.message;
        EXPECT_EQ(err.GetErrorMessage(), t.message);
    }
    // Rejected calls neither reset the record nor report anything.
    EXPECT_EQ(result.sent, 9u);
    EXPECT_EQ(result.foreignReplies, 7u);
    EXPECT_TRUE(recorder.responses.empty() && recorder.logs == 0);
}

TEST(Ping, ReplyParsingStaysWithinTheBytesReceived)
{
    // RFC 1071's example; an odd length counts as padded with a zero byte.
    const unsigned char sample[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
    const unsigned char padded[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0x00};
    uint16_t sum = zy::icmp::Checksum(sample, 8);
    EXPECT_EQ(memcmp(&sum, "\x22\x0d", 2), 0);
    EXPECT_EQ(zy::icmp::Checksum(sample, 7), zy::icmp::Checksum(padded, 8));

    // An ICMP message of 32 bytes like our request, `cut` bytes shorter, its
    // checksum (test-side) spoilt by `sumXor`.
    const uint16_t id = 0x4321, seq = 5;
    auto icmp = [](uint8_t type, uint16_t ident, uint16_t sequence, size_t cut = 0, uint16_t sumXor = 0) {
        std::vector<unsigned char> m(8 + 24 - cut, 0xAB);
        m[0] = type;
        m[1] = m[2] = m[3] = 0;
        memcpy(&m[4], &ident, 2);
        memcpy(&m[6], &sequence, 2);
        uint16_t s = zy::icmp::Checksum(m.data(), m.size()) ^ sumXor;
        memcpy(&m[2], &s, 2);
        return m;
    };
    auto withIp = [](const std::vector<unsigned char>& message, uint8_t ihl = 5, uint8_t ttl = 55) {
        std::vector<unsigned char> packet(ihl * 4u < 20 ? 20 : ihl * 4u, 0);
        packet[0] = static_cast<unsigned char>(0x40 | ihl);
        packet[8] = ttl;
        packet.insert(packet.end(), message.begin(), message.end());
        return packet;
    };
    const std::vector<unsigned char> request = icmp(8, id, seq);
    auto classify = [&](const std::vector<unsigned char>& bytes, bool ipHeader = true) {
        std::unique_ptr<unsigned char[]> exact = Exact(bytes);  // the sanitizers see any over-read
        zy::icmp::ReplyCheck check = {exact.get(), bytes.size(), ipHeader, request.data(), request.size(), id};
        return zy::icmp::ClassifyReply(check);
    };

    zy::icmp::ReplyVerdict good = classify(withIp(icmp(0, id, seq)));
    EXPECT_EQ(good.status, PING_OK);
    EXPECT_EQ(good.ttl, 55u);
    EXPECT_FALSE(good.ownRequest);
    zy::icmp::ReplyVerdict own = classify(withIp(request, 5, 64));  // our request on its way in
    EXPECT_TRUE(own.ownRequest);

    std::vector<unsigned char> full = withIp(icmp(0, id, seq));
    std::vector<unsigned char> lying = full;
    lying.resize(40);
    lying[0] = 0x4F;  // claims 60 header bytes
    std::vector<unsigned char> tooSmall = lying;
    tooSmall[0] = 0x42;  // claims 8 header bytes
    const struct
    {
        std::vector<unsigned char> bytes;
        int status;
        const char* what;
    } cases[] = {{withIp(icmp(0, id, 999)), PING_OK, "other sequence"},
                 {withIp(icmp(0, id, seq), 6), PING_OK, "IP options"},
                 {withIp(icmp(0, id, seq, 0, 0x0101)), PING_BAD_CHECKSUM, "bad checksum"},
                 {withIp(icmp(14, id, seq)), PING_FOREIGN_REPLY, "other type"},
                 {withIp(icmp(0, id + 1, seq)), PING_FOREIGN_REPLY, "other identifier"},
                 {withIp(icmp(8, id, seq + 1), 5, 64), PING_FOREIGN_REPLY, "a request not ours"},
                 {withIp(icmp(0, id, seq, 1)), PING_SHORT_REPLY, "one byte short"},
                 {lying, PING_SHORT_REPLY, "header longer than the datagram"},
                 {tooSmall, PING_SHORT_REPLY, "header below 20 bytes"}};
    for (const auto& c : cases)
    {
        zy::icmp::ReplyVerdict verdict = classify(c.bytes);
        EXPECT_EQ(verdict.status, c.status) << c.what;
        EXPECT_FALSE(verdict.ownRequest) << c.what;
    }
    for (size_t n : {size_t(0), size_t(1), size_t(9), size_t(19), size_t(20), size_t(27)})
        EXPECT_EQ(classify(std::vector<unsigned char>(full.begin(), full.begin() + n)).status, PING_SHORT_REPLY) << n;

    // Datagram sockets deliver the ICMP message alone.
    zy::icmp::ReplyVerdict bare = classify(icmp(0, id, seq), false);
    EXPECT_EQ(bare.status, PING_OK);
    EXPECT_EQ(bare.ttl, 0u);
    EXPECT_EQ(classify(std::vector<unsigned char>(request.begin(), request.begin() + 7), false).status,
              PING_SHORT_REPLY);
}

// As root in a namespace of its own, otherwise in this process (unprivileged:
// the fallback or an error saying why). Outside a private namespace other
// programs' ICMP traffic shows as foreign replies, so a noisy series is
// tried again, twice at most.
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
        IcmpResponder responder({EchoAnswer::Good, EchoAnswer::Short, EchoAnswer::BadChecksum, EchoAnswer::ForeignType,
                                 EchoAnswer::ForeignId, EchoAnswer::OtherSequence, EchoAnswer::Silent,
                                 EchoAnswer::ForeignType, EchoAnswer::Good});
        std::string started = responder.Start();
        if (!started.empty())
            return started;

        Checks c;
        CZyPing ping;
        Recorder recorder;
        _ZyPingResult result;
        const std::string first = Series(ping, recorder, result, 56, 7);
        c.Expect(first == "0234401 sent 7 good 2 short 1 checksum 1 foreign 2 timeouts 1", first);
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
        // call's buffers (64-byte requests) and socket are reused while good
        // replies report the new size, foreignReplies adds up, the other
        // counters restart, and the callback can stop the series.
        Recorder second;
        second.stopAfter = 2;
        const std::string again = Series(ping, second, result, 200, 5);
        c.Expect(again == "40 sent 2 good 1 short 0 checksum 0 foreign 3 timeouts 0", "second series " + again);
        c.Expect(second.lastFlags == std::vector<bool>{false, false}, "last flags of an early stop");
        if (second.responses.size() == 2)
            c.Eq(second.responses[1].bytes, 200u, "bytes of the second call");

        const std::vector<SeenRequest> seen = responder.Stop();
        c.Eq(seen.size(), 9u, "requests seen");
        const uint16_t pid = static_cast<uint16_t>(FXProcess::getProcessId() & 0xFFFF);
        for (size_t i = 0; i < seen.size(); ++i)
        {
            c.Expect(seen[i].type == 8 && seen[i].code == 0 && seen[i].checksumOk, "request layout or checksum");
            c.Eq(seen[i].identifier, pid, "request identifier");
            c.Eq(seen[i].sequence, i < 7 ? i : i - 7, "request sequence");
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
    // Each case gets a namespace of its own: settings and responder are made
    // as root, then the process drops its privileges and runs `body`.
    auto asNobody = [](const char* groupRange, bool crafted, std::function<std::string()> body) {
        return zytest::RunInNetNamespace([&] {
            IcmpResponder responder({EchoAnswer::Good, EchoAnswer::Short, EchoAnswer::OtherSequence});
            if (!SetIpv4Sysctl("ping_group_range", groupRange))
                return std::string("could not write ping_group_range");
            std::string started = crafted ? responder.Start() : "";
            if (!started.empty())
                return started;
            return DropToNobody() ? body() : std::string("could not drop privileges");
        });
    };
    // Neither socket kind allowed: the error says so.
    EXPECT_EQ(asNobody("1\t0", false,
                       [] {
                           CZyPing ping;
                           _ZyPingResult result;
                           CZyError err = ping.ping("127.0.0.1", 56, 1, 1, nullptr, nullptr, result, false);
                           Checks c;
                           c.Expect(err.Is(10013), "refusal code: " + err.AsString());
                           c.Expect(err.AsString().find("ping_group_range") != std::string::npos, "refusal text");
                           c.Expect(err.HasMessage("ICMP-Socket creation [127.0.0.1] failed."), "creation text");
                           c.Expect(err.HasMessage("prepare socket failed [127.0.0.1]"), "prepare text");
                           return c.text;
                       }),
              "");
    // Allowed: crafted replies through the datagram socket.
    EXPECT_EQ(asNobody("0\t2147483647", true,
                       [] {
                           CZyPing ping;
                           Recorder recorder;
                           _ZyPingResult result;
                           Checks c;
                           const std::string outcome = Series(ping, recorder, result, 56, 3);
                           c.Expect(outcome == "020 sent 3 good 2 short 1 checksum 0 foreign 0 timeouts 0", outcome);
                           if (recorder.responses.size() == 3)
                               c.Eq(recorder.responses[0].ttl, 77u, "ttl from the control message");
                           return c.text;
                       }),
              "");
}
#endif
