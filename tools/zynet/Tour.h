// The tour's step results, and the pieces of its transfer steps that live in
// files of their own: a small HTTP/1.1 server on loopback and the steps that
// fetch from it.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ZyNetwork/ZySocket.h"
#include "ZyUtils/ZyError.h"

namespace zytool
{
const int kTourLimitSeconds = 5;  // time limit of every transfer in the tour

struct StepResult
{
    enum Status
    {
        kOk,
        kSkipped,
        kFailed
    } status = kOk;
    std::string detail;
    CZyError error;
};

inline StepResult Ok(const std::string& detail)
{
    StepResult result;
    result.detail = detail;
    return result;
}

inline StepResult Skipped(const std::string& reason)
{
    StepResult result;
    result.status = StepResult::kSkipped;
    result.detail = reason;
    return result;
}

inline StepResult Failed(const CZyError& error, const std::string& what)
{
    StepResult result;
    result.status = StepResult::kFailed;
    result.detail = what;
    result.error = error;
    return result;
}

struct TourStep
{
    const char* name;
    StepResult (*run)();
};

// An HTTP/1.1 server on 127.0.0.1 (a port the system picks) that runs in a
// thread of its own, built on the library's sockets. It serves the tour's
// files: GET and HEAD of "/NAME", an HTML page of links to every file at
// "/", and PUT or POST of "/NAME", which stores the request body as that
// file. Every answer carries a Content-Length and closes its connection
// (Wine's HTTP clients need bodies with a length). One connection at a time.
class TourHttpServer
{
public:
    TourHttpServer() = default;
    ~TourHttpServer() { Stop(); }
    TourHttpServer(const TourHttpServer&) = delete;
    TourHttpServer& operator=(const TourHttpServer&) = delete;

    CZyError Start();
    // Stops the thread and closes the listening socket; safe to repeat.
    void Stop();
    // "http://127.0.0.1:PORT"
    std::string BaseUrl() const;
    // The files served from the start: name and bytes.
    static const std::map<std::string, std::string>& ServedFiles();
    // The body of "/NAME" as it stands now (served or stored); false when
    // there is no such file.
    bool File(const std::string& name, std::string& body);
    // The first failure of the server thread ("" when none).
    std::string ThreadError();

private:
    void Run();
    void Serve(CZySocket& connection);

    CZySocket m_listener;
    int m_port = 0;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;  // guards m_files and m_threadError
    std::map<std::string, std::string> m_files;
    std::string m_threadError;
};

// Fetches, sends and asks about the served files through RkHTTPReq over the
// libcurl that the library loaded; skipped when none could be loaded.
StepResult TransfersOverCurl();
// The platform's own HTTP clients (Windows: WinHTTP and WinINet; none
// elsewhere), each a step of its own.
std::vector<TourStep> PlatformTransferSteps();

// What a transfer step checks: `got` holds the bytes of `expected`.
CZyError CompareBytes(const char* where, const std::string& what, const std::string& got,
                      const std::string& expected);
}  // namespace zytool
