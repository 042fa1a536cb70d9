// A scripted ICMP echo responder for tests (Linux, root, inside a private
// network namespace whose kernel echo replies are off). It answers each echo
// request it sees with the next crafted answer of its script and records
// what the requests looked like.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
namespace zytest
{
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
    uint8_t type;
    uint8_t code;
    uint16_t identifier;  // as the field reads in host order
    uint16_t sequence;    // as the field reads in host order
    size_t size;          // ICMP bytes (header + payload)
    bool checksumOk;
};

// Writes a value to /proc/sys/net/ipv4/<name> of the current namespace.
bool SetIpv4Sysctl(const char* name, const char* value);

class IcmpResponder
{
public:
    // Answers beyond the script are Silent. `replyTtl` (when > 0) is the IP
    // time-to-live of the replies.
    explicit IcmpResponder(std::vector<EchoAnswer> script, int replyTtl = 0);
    ~IcmpResponder();

    // Opens the raw socket and starts answering; "" or what failed.
    std::string Start();
    void Stop();
    // The requests seen; read it after Stop().
    const std::vector<SeenRequest>& Seen() const { return m_seen; }

private:
    void Run();

    std::vector<EchoAnswer> m_script;
    int m_replyTtl;
    int m_fd;
    std::atomic<bool> m_stop;
    std::thread m_thread;
    std::vector<SeenRequest> m_seen;
};
}  // namespace zytest
#endif
