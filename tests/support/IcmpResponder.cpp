#include "support/IcmpResponder.h"

#if !defined(_WIN32)
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "ZyNetwork/Internal/OsIcmp.h"

namespace zytest
{
bool SetIpv4Sysctl(const char* name, const char* value)
{
    std::string path = std::string("/proc/sys/net/ipv4/") + name;
    FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr)
        return false;
    bool ok = std::fputs(value, file) >= 0;
    return std::fclose(file) == 0 && ok;
}

IcmpResponder::IcmpResponder(std::vector<EchoAnswer> script, int replyTtl)
    : m_script(std::move(script)), m_replyTtl(replyTtl), m_fd(-1), m_stop(false)
{
}

IcmpResponder::~IcmpResponder()
{
    Stop();
}

std::string IcmpResponder::Start()
{
    m_fd = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
    if (m_fd < 0)
        return std::string("responder socket: ") + strerror(errno);
    if (m_replyTtl > 0 && ::setsockopt(m_fd, IPPROTO_IP, IP_TTL, &m_replyTtl, sizeof(m_replyTtl)) != 0)
        return std::string("responder IP_TTL: ") + strerror(errno);
    m_stop = false;
    m_thread = std::thread([this] { Run(); });
    return "";
}

void IcmpResponder::Stop()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

void IcmpResponder::Run()
{
    unsigned char packet[65536];
    size_t answered = 0;
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

        SeenRequest seen;
        seen.type = icmp[0];
        seen.code = icmp[1];
        memcpy(&seen.identifier, icmp + 4, 2);
        memcpy(&seen.sequence, icmp + 6, 2);
        seen.size = size;
        seen.checksumOk = zyicmp::Checksum(icmp, size) == 0;
        m_seen.push_back(seen);

        EchoAnswer answer = answered < m_script.size() ? m_script[answered] : EchoAnswer::Silent;
        ++answered;
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
        uint16_t sum = zyicmp::Checksum(icmp, replySize);
        if (answer == EchoAnswer::BadChecksum)
            sum ^= 0x1234;
        memcpy(icmp + 2, &sum, 2);
        ::sendto(m_fd, icmp, replySize, 0, reinterpret_cast<sockaddr*>(&from), fromLength);
    }
}
}  // namespace zytest
#endif
