// An echo server that serves many clients from one thread with a selector.
//
//   selector_server [PORT [IDLE_SECONDS]]
//
// Listens on 127.0.0.1 (PORT 0, the default, lets the system pick; the first
// line printed names it) and sends every byte a client sends straight back.
// The listener and every client sit in the selector's read set; each wait
// hands back only the sockets that are ready. The server stops after
// IDLE_SECONDS (default 60) without any activity.
#include <cstdio>
#include <cstdlib>
#include <set>
#include <vector>

#include <ZyNetwork/ZyIPAddr.h>
#include <ZyNetwork/ZySockInit.h>
#include <ZyNetwork/ZySocket.h>
#include <ZyNetwork/ZySocketSelector.h>

int main(int argc, char** argv)
{
    const int port = argc > 1 ? std::atoi(argv[1]) : 0;
    const int idleSeconds = argc > 2 ? std::atoi(argv[2]) : 60;

    CZySockInit sockets;
    CZyError error = sockets.Init();
    CZyIPAddr address("127.0.0.1");
    if (!error.IsError())
        error = address.SetPortNumber(port);
    CZySocket listener;
    if (!error.IsError())
        error = listener.Bind(address);
    if (!error.IsError())
        error = listener.Listen(64);
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

    CZySocketSelector selector;
    selector.SetReadSocket(listener);
    std::set<CZySocket> clients;  // to close whatever is still open at the end
    std::vector<char> buffer(16 * 1024);
    int rc = 0;
    for (;;)
    {
        struct timeval limit = {idleSeconds, 0};
        bool timedOut = false;
        error = selector.Select(&limit, &timedOut);
        if (error.IsError())
        {
            std::fprintf(stderr, "select failed:\n%s\n", error.AsString().c_str());
            rc = 1;
            break;
        }
        if (timedOut)
        {
            std::printf("idle for %d s, stopping\n", idleSeconds);
            break;
        }
        // Copies share the platform socket, so the ready set's copies can
        // be used, registered and closed directly.
        CZySocketSelector::SocketSet ready = selector.GetReadSelected();
        for (CZySocket socket : ready)
        {
            if (socket == listener)
            {
                CZySocket client;
                error = listener.Accept(client);
                if (error.IsError())
                {
                    std::fprintf(stderr, "accept failed:\n%s\n", error.AsString().c_str());
                    continue;
                }
                if (!client.IsValid())
                {
                    // The platform refused this connection (the peer may have
                    // gone already); an empty socket must never enter the sets.
                    std::fprintf(stderr, "accept failed with code %d\n", ZYNET_getlasterror());
                    continue;
                }
                std::printf("client %s\n", client.GetPeerAddressString().c_str());
                std::fflush(stdout);
                selector.SetReadSocket(client);
                clients.insert(client);
                continue;
            }
            // Readable with nothing queued means the client closed.
            unsigned int queued = 0;
            error = socket.GetReadQueueLen(&queued);
            int received = 0;
            if (!error.IsError() && queued > 0)
            {
                const int want = queued < buffer.size() ? int(queued) : int(buffer.size());
                error = socket.Recv(buffer.data(), want, 0, &received);
            }
            int sent = 0;
            if (!error.IsError() && received > 0)
                error = socket.Send(buffer.data(), received, 0, &sent);
            if (error.IsError() || queued == 0)
            {
                selector.ClearReadSocket(socket);
                clients.erase(socket);
                socket.Close();
            }
        }
    }
    for (CZySocket client : clients)
        client.Close();
    listener.Close();
    return rc;
}
