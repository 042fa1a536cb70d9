// The tour's HTTP server on loopback and its transfer step over libcurl.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Tour.h"
#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/RkHTTPReq.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySocketSelector.h"
#include "ZyUtils/ZyLibrary.h"
#include "ZyUtils/ZyString.h"

static const char kZyFile[] = "tools/zynet/TourHttp";

namespace zytool
{
namespace
{
const size_t kMostBody = 16u << 20;  // the largest request body the server takes

// 256 KiB in which every byte value occurs, line ends and zeros included.
std::string PatternBytes()
{
    std::string bytes(256 * 1024, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>((i * 7 + (i >> 8)) & 0xff);
    return bytes;
}

// Waits for the peer's next bytes and appends all that have arrived. False
// on a time-out, a closed connection or a failure (`error` says which).
bool ReadSome(CZySocket& connection, std::string& into, CZyError& error)
{
    CZySocketSelector selector;
    selector.SetReadSocket(connection);
    struct timeval limit = {kTourLimitSeconds, 0};
    bool timedOut = false;
    error = selector.Select(&limit, &timedOut);
    if (error.IsError())
        return false;
    if (timedOut)
    {
        error = FXErrorUtil::ErrorInt(ZY_LOC("zytool::ReadSome"), 1, "the client sent nothing for %d s",
                                      kTourLimitSeconds);
        return false;
    }
    unsigned int queued = 0;
    error = connection.GetReadQueueLen(&queued);
    if (error.IsError() || queued == 0)  // readable with nothing queued: the client closed
        return false;
    std::string chunk(queued, '\0');
    int count = 0;
    error = connection.Recv(&chunk[0], static_cast<int>(queued), 0, &count);
    into.append(chunk, 0, static_cast<size_t>(count));
    return !error.IsError();
}

CZyError SendAll(CZySocket& connection, const std::string& bytes)
{
    int timedOut = 0;
    int sent = 0;
    return connection.SendWithTimeOut(bytes.data(), static_cast<int>(bytes.size()), kTourLimitSeconds, &timedOut, 0,
                                      &sent);
}

// The value of header `name` (lower case) in `head`, "" when absent.
std::string HeaderValue(const std::string& head, const std::string& name)
{
    size_t start = head.find("\r\n");
    while (start != std::string::npos && start + 2 < head.size())
    {
        const size_t end = head.find("\r\n", start + 2);
        const std::string line = head.substr(start + 2, end == std::string::npos ? std::string::npos : end - start - 2);
        const size_t colon = line.find(':');
        if (colon != std::string::npos)
        {
            std::string key = line.substr(0, colon);
            for (char& c : key)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (key == name)
            {
                const size_t value = line.find_first_not_of(" \t", colon + 1);
                return value == std::string::npos ? "" : line.substr(value);
            }
        }
        start = end;
    }
    return "";
}

std::string Answer(const char* status, const std::string& type, size_t length)
{
    return FXString::Format("HTTP/1.1 %s\r\nServer: zynet-tour\r\nContent-Type: %s\r\nContent-Length: %lu\r\n"
                            "Connection: close\r\n\r\n",
                            status, type.c_str(), static_cast<unsigned long>(length));
}
}  // namespace

const std::map<std::string, std::string>& TourHttpServer::ServedFiles()
{
    static const std::map<std::string, std::string> files = {
        {"hello.txt", "Hello from the zynet tour, served over loopback.\n"},
        {"pattern.bin", PatternBytes()},
    };
    return files;
}

CZyError TourHttpServer::Start()
{
    m_files = ServedFiles();
    CZyIPAddr address;
    CZyError error = address.SetAddressString("127.0.0.1");
    if (!error.IsError())
        error = m_listener.Bind(address);
    if (!error.IsError())
        error = m_listener.Listen(8);
    CZyIPAddr bound;
    if (!error.IsError())
        error = m_listener.GetLocalAddress(bound);
    if (error.IsError())
    {
        m_listener.Close();
        return error.Push(ZY_LOC("zytool::TourHttpServer::Start"), "no listening socket on 127.0.0.1");
    }
    m_port = bound.GetPortNumber();
    m_thread = std::thread([this] { Run(); });
    return CZyError::Success();
}

void TourHttpServer::Stop()
{
    if (m_thread.joinable())
    {
        m_stop = true;
        // A connection of its own wakes the thread from its wait for clients.
        CZyIPAddr address;
        CZySocket waker;
        if (!address.SetAddressString("127.0.0.1").IsError() && !address.SetPortNumber(m_port).IsError())
            waker.Connect(address);
        m_thread.join();
        waker.Close();
    }
    m_listener.Close();
}

std::string TourHttpServer::BaseUrl() const
{
    return FXString::Format("http://127.0.0.1:%d", m_port);
}

bool TourHttpServer::File(const std::string& name, std::string& body)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_files.find(name);
    if (found == m_files.end())
        return false;
    body = found->second;
    return true;
}

std::string TourHttpServer::ThreadError()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_threadError;
}

void TourHttpServer::Run()
{
    while (!m_stop)
    {
        CZySocket connection;
        int timedOut = 0;
        CZyError error = m_listener.AcceptWithTimeout(connection, kTourLimitSeconds, &timedOut);
        if (!m_stop && !timedOut && error.IsError())
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_threadError = error.AsString();
            return;
        }
        if (!m_stop && connection.IsValid())
            Serve(connection);
        connection.Close();
    }
}

void TourHttpServer::Serve(CZySocket& connection)
{
    std::string request;
    CZyError error;
    size_t headEnd = std::string::npos;
    while ((headEnd = request.find("\r\n\r\n")) == std::string::npos)
        if (request.size() > 65536 || !ReadSome(connection, request, error))
            return;
    const std::string head = request.substr(0, headEnd);
    std::string body = request.substr(headEnd + 4);
    const size_t methodEnd = head.find(' ');
    const size_t targetEnd = head.find(' ', methodEnd + 1);
    const std::string method = head.substr(0, methodEnd);
    const std::string target = methodEnd == std::string::npos ? "" : head.substr(methodEnd + 1, targetEnd - methodEnd - 1);
    const std::string name = target.empty() ? "" : target.substr(1, target.find('?') - 1);

    if (method == "PUT" || method == "POST")
    {
        const std::string lengthText = HeaderValue(head, "content-length");
        const unsigned long length = std::strtoul(lengthText.c_str(), nullptr, 10);
        if (lengthText.empty() || length > kMostBody)
        {
            SendAll(connection, Answer("411 Length Required", "text/plain", 0));
            return;
        }
        if (HeaderValue(head, "expect") == "100-continue" && body.size() < length)
            SendAll(connection, "HTTP/1.1 100 Continue\r\n\r\n");
        while (body.size() < length)
            if (!ReadSome(connection, body, error))
                return;
        body.resize(length);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_files[name] = body;
        }
        SendAll(connection, Answer(method == "PUT" ? "201 Created" : "200 OK", "text/plain", 0));
        return;
    }
    if (method != "GET" && method != "HEAD")
    {
        SendAll(connection, Answer("405 Method Not Allowed", "text/plain", 0));
        return;
    }
    std::string content;
    std::string type = "application/octet-stream";
    if (name.empty())
    {
        type = "text/html";
        content = "<html><body>\n";
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& file : m_files)
            content += "<a href=\"" + file.first + "\">" + file.first + "</a>\n";
        content += "</body></html>\n";
    }
    else if (!File(name, content))
    {
        SendAll(connection, Answer("404 Not Found", "text/plain", 0));
        return;
    }
    std::string answer = Answer("200 OK", type, content.size());
    if (method == "GET")
        answer += content;
    SendAll(connection, answer);
}

CZyError CompareBytes(const char* where, const std::string& what, const std::string& got, const std::string& expected)
{
    if (got == expected)
        return CZyError::Success();
    size_t at = 0;
    while (at < got.size() && at < expected.size() && got[at] == expected[at])
        ++at;
    return FXErrorUtil::ErrorInt(ZY_LOC(where), 1, "%s: %lu bytes, expected %lu; they differ from byte %lu on",
                                 what.c_str(), static_cast<unsigned long>(got.size()),
                                 static_cast<unsigned long>(expected.size()), static_cast<unsigned long>(at));
}

namespace
{
size_t AppendBytes(char* data, size_t size, size_t count, void* userData)
{
    static_cast<std::string*>(userData)->append(data, size * count);
    return size * count;
}

// The loaded curl library as a path: the binding reports a bare name when the
// system's search found the file, and the version text lives inside it.
std::string CurlLibraryFile()
{
    std::string file = CurlWrapper::rk_curl_library_path();
    std::string directory;
    if (!file.empty() && CZyLibrary::ModuleDirectoryOf(CurlWrapper::rk_curl_version(), directory) &&
        file.compare(0, directory.size(), directory) != 0)
        file = directory + file;
    return file;
}

CZyError CurlTransfers(TourHttpServer& server, std::string& summary)
{
    using namespace RkCURL;
    RkHTTPReq request(HTTP);
    CZyError error = request.initialize(0);
    if (!error.IsError())
        error = request.DisableProxy();
    if (!error.IsError())
        error = request.SetTimeOut(kTourLimitSeconds);
    if (error.IsError())
        return error.Push(ZY_LOC("zytool::CurlTransfers"), "cannot set up the request");
    request.setURL(server.BaseUrl());
    std::string received;
    request.setWriteFunctionPointer(&received, &AppendBytes);
    size_t bytes = 0;
    for (const auto& file : TourHttpServer::ServedFiles())
    {
        received.clear();
        error = request.download(file.first.c_str(), {});
        if (!error.IsError())
            error = CompareBytes("zytool::CurlTransfers", "GET " + file.first, received, file.second);
        if (error.IsError())
            return error.Push(ZY_LOC("zytool::CurlTransfers"), "download of %s failed", file.first.c_str());
        bytes += received.size();
    }
    // PUT a buffer, then read back what the server stored.
    std::string sent = TourHttpServer::ServedFiles().at("pattern.bin");
    std::reverse(sent.begin(), sent.end());
    error = request.doPutOperation("curl-upload.bin", sent.data(), static_cast<long>(sent.size()), {});
    std::string stored;
    if (!error.IsError())
        error = CompareBytes("zytool::CurlTransfers", "PUT curl-upload.bin",
                             server.File("curl-upload.bin", stored) ? stored : "", sent);
    if (error.IsError())
        return error.Push(ZY_LOC("zytool::CurlTransfers"), "upload failed");
    bytes += sent.size();
    // HEAD: the size alone.
    double size = -1;
    error = request.getFileInfo("curl-upload.bin", size);
    if (!error.IsError() && size != static_cast<double>(sent.size()))
        error = FXErrorUtil::ErrorInt(ZY_LOC("zytool::CurlTransfers"), 1, "HEAD reports %.0f bytes, expected %lu",
                                      size, static_cast<unsigned long>(sent.size()));
    if (error.IsError())
        return error.Push(ZY_LOC("zytool::CurlTransfers"), "HEAD failed");
    summary = FXString::Format("%u GET, 1 PUT, 1 HEAD, %lu bytes checked",
                               static_cast<unsigned>(TourHttpServer::ServedFiles().size()),
                               static_cast<unsigned long>(bytes));
    return CZyError::Success();
}
}  // namespace

StepResult TransfersOverCurl()
{
    const std::string file = CurlLibraryFile();
    if (file.empty())
        return Skipped(std::string("no libcurl could be loaded: ") + CurlWrapper::rk_curl_version());
    // "libcurl/7.88.1" out of curl's full version text.
    std::string version = CurlWrapper::rk_curl_version();
    version = version.substr(0, version.find(' '));
    TourHttpServer server;
    CZyError error = server.Start();
    if (error.IsError())
        return Failed(error, "no HTTP server");
    std::string summary;
    error = CurlTransfers(server, summary);
    server.Stop();
    if (error.IsError())
        return Failed(error, version + " from " + file + ": transfer failed");
    const std::string threadError = server.ThreadError();
    if (!threadError.empty())
        return Failed(FXErrorUtil::ErrorInt(ZY_LOC("zytool::TransfersOverCurl"), 1, "%s", threadError.c_str()),
                      "the HTTP server failed");
    return Ok(version + " from " + file + ", " + summary);
}
}  // namespace zytool
