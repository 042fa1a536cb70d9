// What the parts of ZyHTTP (WinClients/ZyHTTP*.cpp) share: the handles of
// one request, the wait for a call WinINet left pending, one request's
// destination and the small path helpers.
// Internal: Windows only, not installed.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>

#include "ZyNetwork/ZyHTTP.h"
#include "ZyUtils/Internal/ErrorCodes.h"

namespace zy::http
{
const DWORD kChunk = 64 * 1024;                   // read and write pieces
const size_t kMaxListingPage = 16 * 1024 * 1024;  // a listing page larger than this is refused
const int kMaxListingDepth = 32;

// Closes a WinINet handle when it goes out of scope.
class InternetHandle
{
public:
    InternetHandle() : m_handle(nullptr) {}
    ~InternetHandle() { Reset(nullptr); }
    InternetHandle(const InternetHandle&) = delete;
    InternetHandle& operator=(const InternetHandle&) = delete;

    void Reset(HINTERNET handle)
    {
        if (m_handle)
            InternetCloseHandle(m_handle);
        m_handle = handle;
    }
    HINTERNET Get() const { return m_handle; }

private:
    HINTERNET m_handle;
};

inline bool HasLineBreak(const std::string& text)
{
    return text.find_first_of("\r\n") != std::string::npos;
}

inline std::string LastSegment(const std::string& path)
{
    size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

inline std::string JoinLocal(const char* directory, const std::string& name)
{
    std::string path = directory ? directory : "";
    if (!path.empty() && path.back() != '/' && path.back() != '\\')
        path += '\\';
    return path + name;
}

// The completion of the call a request in asynchronous mode has pending.
// The request and WinINet's status callback hold a reference each: after a
// cancel WinINet may still call back when the request has returned, last
// with INTERNET_STATUS_HANDLE_CLOSING.
class Completion
{
public:
    Completion() : m_event(CreateEventW(nullptr, FALSE, FALSE, nullptr)), m_error(0), m_references(1) {}
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

    bool Usable() const { return m_event != nullptr; }
    void AddReference() { InterlockedIncrement(&m_references); }
    void Release()
    {
        if (InterlockedDecrement(&m_references) == 0)
            delete this;
    }
    void Prepare() { ResetEvent(m_event); }
    void Complete(DWORD error)
    {
        m_error = error;
        SetEvent(m_event);
    }
    // The call's result, or false when `milliseconds` passed first.
    bool Wait(DWORD milliseconds, DWORD& error) const
    {
        if (WaitForSingleObject(m_event, milliseconds) != WAIT_OBJECT_0)
            return false;
        error = m_error;
        return true;
    }

private:
    ~Completion()
    {
        if (m_event)
            CloseHandle(m_event);
    }

    HANDLE m_event;
    DWORD m_error;  // written before the event is set
    LONG m_references;
};
}  // namespace zy::http

// One request's destination.
struct ZyHTTP::Target
{
    std::string host;
    INTERNET_PORT port = 0;
    bool secure = false;
    std::string object;  // encoded path and query
    std::string url;     // for messages
};

// The handles of one request, closed request first, session last. With a
// time limit the session is asynchronous, so that the client keeps the
// limit of the header phase itself: WinINet's own limits bound each wait.
struct ZyHTTP::Handles
{
    Handles() : completion(nullptr), headerLimitMs(0) {}
    Handles(const Handles&) = delete;
    Handles& operator=(const Handles&) = delete;
    ~Handles()
    {
        request.Reset(nullptr);
        connection.Reset(nullptr);
        session.Reset(nullptr);
        if (completion)
            completion->Release();
    }

    // Runs one WinINet call on the request and, when it is left pending,
    // waits for it: at most `limitMs` when that is not 0, otherwise as long
    // as WinINet's own limits let it. Past the limit the request is closed,
    // which cancels the call, and the result is ERROR_INTERNET_TIMEOUT; the
    // request must not be used again. Returns ERROR_SUCCESS or the error.
    template <class Call>
    DWORD Run(DWORD limitMs, Call call)
    {
        if (completion)
            completion->Prepare();
        if (call())
            return ERROR_SUCCESS;
        DWORD error = GetLastError();
        if (!completion || error != ERROR_IO_PENDING)
            return error;
        if (completion->Wait(limitMs != 0 ? limitMs : INFINITE, error))
            return error;
        request.Reset(nullptr);
        return ERROR_INTERNET_TIMEOUT;
    }

    // Writes all of `data`; InternetWriteFile may take less than offered.
    DWORD WriteAll(const char* data, size_t size)
    {
        while (size > 0)
        {
            DWORD piece = size > zy::http::kChunk ? zy::http::kChunk : static_cast<DWORD>(size);
            DWORD written = 0;
            DWORD error = Run(0, [&] { return InternetWriteFile(request.Get(), data, piece, &written); });
            if (error != ERROR_SUCCESS)
                return error;
            if (written == 0)
                return ERROR_INTERNET_CONNECTION_ABORTED;
            data += written;
            size -= written;
        }
        return ERROR_SUCCESS;
    }

    zy::http::InternetHandle session;
    zy::http::InternetHandle connection;
    zy::http::InternetHandle request;
    zy::http::Completion* completion;  // asynchronous mode only
    DWORD headerLimitMs;     // for connecting, the request and the response headers
};
