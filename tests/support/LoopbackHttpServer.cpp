#include "support/LoopbackHttpServer.h"

#include <cstdio>

#include "ZyNetwork/OsApi.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocket.h"

namespace zytest
{
namespace
{
bool SendAll(ZYNET_SOCKET connection, const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size())
    {
        int count = 0;
        const size_t left = bytes.size() - sent;
        const int chunk = left > 65536 ? 65536 : static_cast<int>(left);
        if (zyos::Send(connection, bytes.data() + sent, chunk, 0, &count) != 0 || count <= 0)
            return false;
        sent += static_cast<size_t>(count);
    }
    return true;
}
}  // namespace

LoopbackHttpServer::LoopbackHttpServer(const std::map<std::string, std::string>& files)
    : m_files(files), m_listener(ZYNET_INVALID_SOCKET), m_port(0), m_stopping(false), m_served(0)
{
}

LoopbackHttpServer::~LoopbackHttpServer()
{
    Stop();
}

bool LoopbackHttpServer::Start()
{
    ZYNET_SockAddr address;
    if (ZYNET_str2ip("127.0.0.1", &address) != 0 || ZYNET_socket(ZYNET_AF_INET, &m_listener) != 0)
        return false;
    if (ZYNET_bind(m_listener, &address) != 0 || ZYNET_listen(m_listener, 16) != 0 ||
        ZYNET_getsockname(m_listener, &address) != 0)
    {
        ZYNET_close(m_listener);
        m_listener = ZYNET_INVALID_SOCKET;
        return false;
    }
    m_port = static_cast<unsigned short>(ZYNET_getport(&address));
    m_thread = std::thread(&LoopbackHttpServer::Run, this);
    return true;
}

void LoopbackHttpServer::Stop()
{
    if (!m_thread.joinable())
        return;
    m_stopping = true;
    // A connection of our own wakes the blocked accept.
    ZYNET_SockAddr address;
    ZYNET_SOCKET waker = ZYNET_INVALID_SOCKET;
    if (ZYNET_str2ip("127.0.0.1", &address) == 0 && ZYNET_socket(ZYNET_AF_INET, &waker) == 0)
    {
        ZYNET_setport(&address, m_port);
        ZYNET_connect(waker, &address);
    }
    m_thread.join();
    if (waker != ZYNET_INVALID_SOCKET)
        ZYNET_close(waker);
    ZYNET_close(m_listener);
    m_listener = ZYNET_INVALID_SOCKET;
}

std::string LoopbackHttpServer::Url(const std::string& path) const
{
    char prefix[64];
    std::snprintf(prefix, sizeof(prefix), "http://127.0.0.1:%u", static_cast<unsigned>(m_port));
    return prefix + path;
}

void LoopbackHttpServer::Run()
{
    while (!m_stopping)
    {
        ZYNET_SOCKET connection = ZYNET_INVALID_SOCKET;
        ZYNET_SockAddr peer;
        if (ZYNET_accept(m_listener, &connection, &peer) != 0 || connection == ZYNET_INVALID_SOCKET)
            break;
        if (!m_stopping)
            Serve(connection);
        ZYNET_close(connection);
    }
}

void LoopbackHttpServer::Serve(ZYNET_SOCKET connection)
{
    // The request head, up to its blank line (bounded).
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536)
    {
        int count = 0;
        // One receive call at a time: the flat ZYNET_recv waits for a full
        // buffer.
        if (zyos::Recv(connection, buffer, sizeof(buffer), 0, &count) != 0 || count <= 0)
            return;
        head.append(buffer, static_cast<size_t>(count));
    }
    const size_t methodEnd = head.find(' ');
    const size_t pathEnd = methodEnd == std::string::npos ? std::string::npos : head.find(' ', methodEnd + 1);
    if (pathEnd == std::string::npos)
        return;
    const std::string method = head.substr(0, methodEnd);
    const std::string path = head.substr(methodEnd + 1, pathEnd - methodEnd - 1);
    std::map<std::string, std::string>::const_iterator file = m_files.find(path);
    const bool found = method == "GET" && file != m_files.end();
    const std::string body = found ? file->second : std::string("not found\n");
    std::string response = found ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 404 Not Found\r\n";
    response += "Content-Type: application/octet-stream\r\nContent-Length: " + std::to_string(body.size()) +
                "\r\nConnection: close\r\n\r\n" + body;
    SendAll(connection, response);
    ++m_served;
}
}  // namespace zytest
