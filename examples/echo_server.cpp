// A time-limited echo server on 127.0.0.1.
//
//   echo_server [PORT [CLIENTS]]
//
// Each message is a 4-byte length (big-endian) followed by that many bytes;
// the server sends every message back unchanged. PORT 0 (the default) lets
// the system pick a port; the first line printed names it. The server stops
// after CLIENTS connections (0, the default: never) or when no client comes
// within 30 seconds. Every receive and send is limited to 10 seconds, so a
// stalled client cannot hold the server.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <ZyNetwork/ZyIPAddr.h>
#include <ZyNetwork/ZySockInit.h>
#include <ZyNetwork/ZySocket.h>

static const int kIoLimitSeconds = 10;
static const int kAcceptLimitSeconds = 30;
static const unsigned kMaxMessage = 64 * 1024;

// Echoes messages until the client closes. Returns false on a real failure.
static bool ServeClient(CZySocket& client)
{
    std::vector<char> payload;
    for (;;)
    {
        unsigned char header[4];
        int timedOut = 0;
        int received = 0;
        CZyError error = client.RecvWithTimeout(header, 4, kIoLimitSeconds, &timedOut, 0, &received);
        if (error.IsError())
        {
            // A close between messages is the normal end of a session.
            if (received == 0 && error.HasMessage("Socket shutdown detected"))
                return true;
            std::fprintf(stderr, "receive failed:\n%s\n", error.AsString().c_str());
            return false;
        }
        const unsigned length = (unsigned(header[0]) << 24) | (unsigned(header[1]) << 16) |
                                (unsigned(header[2]) << 8) | unsigned(header[3]);
        if (length > kMaxMessage)
        {
            std::fprintf(stderr, "message of %u bytes refused\n", length);
            return false;
        }
        payload.resize(length);
        if (length > 0)
        {
            error = client.RecvWithTimeout(payload.data(), int(length), kIoLimitSeconds, &timedOut, 0, &received);
            if (error.IsError())
            {
                std::fprintf(stderr, "receive failed:\n%s\n", error.AsString().c_str());
                return false;
            }
        }
        int sent = 0;
        error = client.SendWithTimeOut(header, 4, kIoLimitSeconds, &timedOut, 0, &sent);
        if (!error.IsError() && length > 0)
            error = client.SendWithTimeOut(payload.data(), int(length), kIoLimitSeconds, &timedOut, 0, &sent);
        if (error.IsError())
        {
            std::fprintf(stderr, "send failed:\n%s\n", error.AsString().c_str());
            return false;
        }
    }
}

int main(int argc, char** argv)
{
    const int port = argc > 1 ? std::atoi(argv[1]) : 0;
    const int clients = argc > 2 ? std::atoi(argv[2]) : 0;

    CZySockInit sockets;
    CZyError error = sockets.Init();
    CZyIPAddr address("127.0.0.1");
    if (!error.IsError())
        error = address.SetPortNumber(port);
    CZySocket listener;
    if (!error.IsError())
        error = listener.Bind(address);
    if (!error.IsError())
        error = listener.Listen(16);
    CZyIPAddr bound;
    if (!error.IsError())
        error = listener.GetLocalAddress(bound);
    if (error.IsError())
    {
        std::fprintf(stderr, "cannot listen on 127.0.0.1:%d:\n%s\n", port, error.AsString().c_str());
        listener.Close();
        return 1;
    }
    std::printf("listening on 127.0.0.1:%d\n", bound.GetPortNumber());
    std::fflush(stdout);

    int rc = 0;
    for (int served = 0; clients == 0 || served < clients; ++served)
    {
        CZySocket client;
        int timedOut = 0;
        error = listener.AcceptWithTimeout(client, kAcceptLimitSeconds, &timedOut);
        if (timedOut)
        {
            std::printf("no client within %d s, stopping\n", kAcceptLimitSeconds);
            break;
        }
        if (error.IsError())
        {
            std::fprintf(stderr, "accept failed:\n%s\n", error.AsString().c_str());
            rc = 1;
            break;
        }
        if (!client.IsValid())
        {
            // The platform refused this connection; the next one may work.
            std::fprintf(stderr, "accept failed with code %d\n", ZYNET_getlasterror());
            continue;
        }
        std::printf("client %s\n", client.GetPeerAddressString().c_str());
        std::fflush(stdout);
        if (!ServeClient(client))
            rc = 1;
        client.Close();
    }
    listener.Close();
    return rc;
}
