// Ping with a callback: CZyPing reports every cycle to the caller.
//
//   ping_callback HOST [COUNT]
//
// Sends COUNT (default 3) ICMP echo requests to the IPv4 host HOST, one a
// second, printing each cycle from the callback; the callback stops the
// series after three timeouts in a row. Raw ICMP needs root or CAP_NET_RAW
// (on Linux the library falls back to ICMP datagram sockets where
// net.ipv4.ping_group_range allows them).
#include <cstdio>
#include <cstdlib>

#include <ZyNetwork/ZyPing.h>
#include <ZyNetwork/ZySockInit.h>

class PrintingCallback : public CZyPingCallback
{
public:
    bool OnPingResponse(void* userData, _ZyPingResponse& response, bool isLast) override
    {
        if (response.status == PING_OK)
        {
            std::printf("reply from %s: seq=%u bytes=%u ttl=%u time=%llu ms\n", response.address.c_str(),
                        response.sequence, response.bytes, response.ttl,
                        static_cast<unsigned long long>(response.timeMs));
            m_timeoutsInARow = 0;
        }
        else
        {
            std::printf("seq=%u: no good reply (status %d)\n", response.sequence, static_cast<int>(response.status));
            if (response.status == PING_TIMEOUT)
                ++m_timeoutsInARow;
        }
        std::fflush(stdout);
        return m_timeoutsInARow < 3;  // false ends the series
    }

    void OnPingLog(const char* text) override { std::printf("log: %s\n", text); }

private:
    int m_timeoutsInARow = 0;
};

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::fprintf(stderr, "usage: ping_callback HOST [COUNT]\n");
        return 2;
    }
    const int count = argc > 2 ? std::atoi(argv[2]) : 3;

    CZySockInit sockets;
    CZyError error = sockets.Init();
    if (error.IsError())
    {
        std::fprintf(stderr, "%s\n", error.AsString().c_str());
        return 1;
    }
    PrintingCallback callback;
    CZyPing ping;
    _ZyPingResult result;
    // 56 payload bytes, up to 2 seconds for each reply, IPv4.
    error = ping.ping(argv[1], 56, count > 0 ? unsigned(count) : 1u, 2, nullptr, &callback, result, false);
    if (error.IsError())
    {
        std::fprintf(stderr, "ping failed:\n%s\n", error.AsString().c_str());
        return 1;
    }
    std::printf("%u sent, %u received, %u timeouts\n", result.sent, result.received, result.timeouts);
    return result.received > 0 ? 0 : 1;
}
