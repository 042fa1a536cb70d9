// Uses the installed library through its umbrella header only: a flat
// address function, a socket pair with time limits, an error value from the
// address class and the transfer classes. Prints "consumer: ok" and exits 0 when every check holds.
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

#include <ZyNetwork/ZyNetwork.h>

static_assert(std::is_base_of<RkCURL::RkProtocolReq, RkCURL::RkHTTPReq>::value &&
                  std::is_base_of<RkCURL::RkFTPReq, RkCURL::RkSFTPReq>::value,
              "the umbrella header brings the transfer classes");

static int failures = 0;

static void Check(bool ok, const char* what)
{
    if (!ok)
    {
        std::fprintf(stderr, "consumer: FAILED: %s\n", what);
        ++failures;
    }
}

int main()
{
    CZySockInit sockets;
    Check(!sockets.Init().IsError(), "socket start-up");

    ZYNET_SockAddr record;
    std::memset(&record, 0, sizeof record);
    Check(ZYNET_str2ip("::1", &record) == 0 && record.family == ZYNET_AF_INET6, "ZYNET_str2ip");

    CZySocket first;
    CZySocket second;
    Check(!CZySocket::CreateSocketPair(&first, &second).IsError() && first.IsValid() && second.IsValid(),
          "socket pair");
    char buffer[6] = {0};
    int timedOut = 0;
    int count = 0;
    Check(!first.SendWithTimeOut("hello", 5, 2, &timedOut, 0, &count).IsError(), "send");
    Check(!second.RecvWithTimeout(buffer, 5, 2, &timedOut, 0, &count).IsError() && std::string(buffer) == "hello",
          "receive");
    first.Close();
    second.Close();

    // An error value from the library carries its stack.
    bool within = false;
    CZyError error = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock("10.1.2.3", "no-slash", within);
    Check(error.Is(87) && error.AsString().find("CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock") != std::string::npos,
          "error value");

    if (failures == 0)
        std::printf("consumer: ok\n");
    return failures == 0 ? 0 : 1;
}
