// A minimal HTTP/1.1 server on 127.0.0.1 for the transfer tests, running on a
// thread of the test process (so it works the same under Wine). It answers
// GET requests for the paths it was given with their bodies (Content-Length,
// then the connection is closed) and 404 for any other path.
#pragma once

#include <atomic>
#include <map>
#include <string>
#include <thread>

#include "ZyNetwork/ZySocketTypes.h"

namespace zytest
{
class LoopbackHttpServer
{
public:
    explicit LoopbackHttpServer(const std::map<std::string, std::string>& files);
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    // Listens on a free port; false when that fails.
    bool Start();
    void Stop();
    unsigned short Port() const { return m_port; }
    // "http://127.0.0.1:PORT" followed by `path`.
    std::string Url(const std::string& path) const;
    // How many requests have been answered.
    int RequestsServed() const { return m_served.load(); }

private:
    void Run();
    void Serve(ZYNET_SOCKET connection);

    std::map<std::string, std::string> m_files;
    ZYNET_SOCKET m_listener;
    unsigned short m_port;
    std::atomic<bool> m_stopping;
    std::atomic<int> m_served;
    std::thread m_thread;
};
}  // namespace zytest
