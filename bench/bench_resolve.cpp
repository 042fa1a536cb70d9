// Resolution: CZyIPAddr::GetByName("localhost") and
// CZyIPAddr::SetAddressString("127.0.0.1") against the getaddrinfo() calls a
// caller would make for the same answer: the same hints, the first IPv4 or
// IPv6 entry copied out, the list freed. "localhost" comes from /etc/hosts;
// nothing here asks a name server.
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "ZyNetwork/ZyIPAddr.h"

namespace
{

// getaddrinfo with the given flags, keeping the first IPv4/IPv6 address.
bool RawLookup(const char* name, int flags, sockaddr_storage& out)
{
    addrinfo hints{};
    hints.ai_flags = flags;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* list = nullptr;
    if (getaddrinfo(name, nullptr, &hints, &list) != 0)
        return false;
    bool found = false;
    for (addrinfo* entry = list; entry != nullptr; entry = entry->ai_next)
    {
        if (entry->ai_family == AF_INET || entry->ai_family == AF_INET6)
        {
            memcpy(&out, entry->ai_addr, entry->ai_addrlen);
            found = true;
            break;
        }
    }
    freeaddrinfo(list);
    return found;
}

// Counters raw_ns and lib_ns: CPU time per look-up, measured in alternating
// blocks (zybench::RunInterleaved).
void BM_Name(benchmark::State& state)
{
    // The first default-built address resolves the collision sentinel once
    // per process; keep that out of the measurement.
    CZyIPAddr warmUp;
    CZyIPAddr address;
    sockaddr_storage raw{};
    std::vector<zybench::Contender> contenders;
    contenders.push_back({"raw", [&]() -> std::string {
                              if (!RawLookup("localhost", AI_CANONNAME, raw))
                                  return "getaddrinfo(localhost) failed";
                              benchmark::DoNotOptimize(raw);
                              return std::string();
                          }});
    contenders.push_back({"lib", [&]() -> std::string {
                              CZyError error = CZyIPAddr::GetByName("localhost", address, CZyIPAddr::IP_FAMILY_UNSPEC);
                              if (error.IsError())
                                  return "GetByName: " + error.AsString();
                              benchmark::DoNotOptimize(address);
                              return std::string();
                          }});
    zybench::RunInterleaved(state, contenders, 50);
}

void BM_Numeric(benchmark::State& state)
{
    CZyIPAddr warmUp;
    CZyIPAddr address;
    sockaddr_storage raw{};
    std::vector<zybench::Contender> contenders;
    contenders.push_back({"raw", [&]() -> std::string {
                              if (!RawLookup("127.0.0.1", AI_NUMERICHOST, raw))
                                  return "getaddrinfo(127.0.0.1) failed";
                              benchmark::DoNotOptimize(raw);
                              return std::string();
                          }});
    contenders.push_back({"lib", [&]() -> std::string {
                              CZyError error = address.SetAddressString("127.0.0.1");
                              if (error.IsError())
                                  return "SetAddressString: " + error.AsString();
                              benchmark::DoNotOptimize(address);
                              return std::string();
                          }});
    zybench::RunInterleaved(state, contenders, 1000);
}

BENCHMARK(BM_Name)->Name("resolve/name")->MinTime(0.3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Numeric)->Name("resolve/numeric")->MinTime(0.3)->Unit(benchmark::kMillisecond);

}  // namespace

ZYBENCH_MAIN()
