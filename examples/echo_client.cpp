// A time-limited echo client.
//
//   echo_client HOST PORT MESSAGE...
//
// Connects to HOST (a name or a numeric address) and sends each MESSAGE as
// a 4-byte length (big-endian) followed by its bytes, then reads the echo
// back and prints it. Every send and receive is limited to 5 seconds.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <ZyNetwork/ZyIPAddr.h>
#include <ZyNetwork/ZySockInit.h>
#include <ZyNetwork/ZySocket.h>

static const int kLimitSeconds = 5;

static int Fail(const char* what, const CZyError& error)
{
    std::fprintf(stderr, "%s:\n%s\n", what, error.AsString().c_str());
    return 1;
}

int main(int argc, char** argv)
{
    if (argc < 4)
    {
        std::fprintf(stderr, "usage: echo_client HOST PORT MESSAGE...\n");
        return 2;
    }
    CZySockInit sockets;
    CZyError error = sockets.Init();
    if (error.IsError())
        return Fail("the socket library did not start", error);

    // A numeric address is taken as it is; anything else is resolved.
    CZyIPAddr server;
    if (server.SetAddressString(argv[1]).IsError())
    {
        error = CZyIPAddr::GetByName(argv[1], server, CZyIPAddr::IP_FAMILY_UNSPEC);
        if (error.IsError())
            return Fail("cannot resolve the host", error);
    }
    error = server.SetPortNumber(std::atoi(argv[2]));
    if (error.IsError())
        return Fail("cannot set the port", error);

    CZySocket socket;
    error = socket.Connect(server);
    if (error.IsError())
    {
        socket.Close();
        return Fail("connect failed", error);
    }

    int rc = 0;
    for (int i = 3; i < argc && rc == 0; ++i)
    {
        const unsigned length = static_cast<unsigned>(std::strlen(argv[i]));
        const unsigned char header[4] = {static_cast<unsigned char>(length >> 24),
                                         static_cast<unsigned char>(length >> 16),
                                         static_cast<unsigned char>(length >> 8),
                                         static_cast<unsigned char>(length)};
        int timedOut = 0;
        int count = 0;
        error = socket.SendWithTimeOut(header, 4, kLimitSeconds, &timedOut, 0, &count);
        if (!error.IsError() && length > 0)
            error = socket.SendWithTimeOut(argv[i], int(length), kLimitSeconds, &timedOut, 0, &count);
        unsigned char replyHeader[4] = {0, 0, 0, 0};
        if (!error.IsError())
            error = socket.RecvWithTimeout(replyHeader, 4, kLimitSeconds, &timedOut, 0, &count);
        std::vector<char> reply(length);
        if (!error.IsError() && length > 0)
            error = socket.RecvWithTimeout(reply.data(), int(length), kLimitSeconds, &timedOut, 0, &count);
        if (error.IsError())
        {
            rc = Fail(timedOut ? "the server did not answer in time" : "the exchange failed", error);
            break;
        }
        std::printf("echo: %s\n", std::string(reply.begin(), reply.end()).c_str());
    }
    socket.Close();
    return rc;
}
