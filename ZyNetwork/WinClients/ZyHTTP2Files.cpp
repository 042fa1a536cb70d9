// CZyHTTP2's file transfers over WinHTTP: the download and upload
// operations and the loops that move a file's bytes.
#include "ZyNetwork/ZyHTTP2.h"

#include <windows.h>
#include <winhttp.h>

#include <vector>

#include "ZyNetwork/WinClients/ZyHTTP2Handles.h"
#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"

using namespace zyhttp;

namespace
{
// Locations name the class's file, wherever its code stands.
const char kZyFile[] = "ZyNetwork/ZyHTTP2";
}  // namespace

CZyError CZyHTTP2::SendFileData(CZyFile& file)
{
    std::vector<unsigned char> buffer(kTransferBufferSize);
    for (;;)
    {
        uint32_t bytesRead = 0;
        CZyError error = file.Read(buffer.data(), kTransferBufferSize, bytesRead);
        if (error.IsError())
            return error.Push(ZY_LOC("CZyHTTP2::SendFileData"), "WinHttpReadData failed");
        if (bytesRead == 0)
            return CZyError::Success();

        DWORD written = 0;
        if (!WinHttpWriteData(m_request, buffer.data(), bytesRead, &written))
        {
            DWORD code = GetLastError();
            Log("WinHttpWriteData Failed, %d", static_cast<int>(code));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SendFileData"), code);
        }
        if (written != bytesRead)
        {
            Log("Bytes Send does not match bytes Read, %d", static_cast<int>(GetLastError()));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::SendFileData"), GetLastError(),
                                           "Bytes sent (%u) does not match bytes read (%u)",
                                           static_cast<unsigned>(written), static_cast<unsigned>(bytesRead));
        }
    }
}

CZyError CZyHTTP2::ReceiveFileData(CZyFile& file)
{
    // The body ends at its Content-Length when the answer has one: a
    // connection that closes before it is a failure, bytes after it are not
    // part of the file (Wine's WinHTTP reports neither).
    wchar_t lengthText[32] = {};
    DWORD lengthSize = sizeof(lengthText);
    const bool haveLength = WinHttpQueryHeaders(m_request, WINHTTP_QUERY_CONTENT_LENGTH, WINHTTP_HEADER_NAME_BY_INDEX,
                                                lengthText, &lengthSize, WINHTTP_NO_HEADER_INDEX) != FALSE;
    const uint64_t announced = haveLength ? _wcstoui64(lengthText, nullptr, 10) : 0;
    uint64_t received = 0;
    std::vector<unsigned char> buffer(kTransferBufferSize);
    for (;;)
    {
        if (haveLength && received == announced)
            return CZyError::Success();
        DWORD available = 0;
        if (!WinHttpQueryDataAvailable(m_request, &available))
        {
            DWORD code = GetLastError();
            Log("WinHttpQueryDataAvailable Failed, %d", static_cast<int>(code));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::ReceiveFileData"), code,
                                           "WinHttpQueryDataAvailable failed");
        }
        if (available == 0)
        {
            if (haveLength && received < announced)
            {
                Log("Connection closed after %llu of %llu bytes", static_cast<unsigned long long>(received),
                    static_cast<unsigned long long>(announced));
                return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::ReceiveFileData"), ERROR_WINHTTP_CONNECTION_ERROR,
                                               "The connection closed after %llu of %llu bytes",
                                               static_cast<unsigned long long>(received),
                                               static_cast<unsigned long long>(announced));
            }
            return CZyError::Success();
        }

        // The server may have more ready than the buffer holds; the rest
        // comes on the next turn.
        DWORD wanted = available < kTransferBufferSize ? available : kTransferBufferSize;
        DWORD bytesRead = 0;
        if (!WinHttpReadData(m_request, buffer.data(), wanted, &bytesRead))
        {
            DWORD code = GetLastError();
            Log("WinHttpReadData Failed, %d", static_cast<int>(code));
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::ReceiveFileData"), code, "WinHttpReadData failed");
        }
        if (haveLength && bytesRead > announced - received)
            bytesRead = static_cast<DWORD>(announced - received);
        received += bytesRead;
        if (bytesRead > 0)
        {
            CZyError error = file.Write(buffer.data(), bytesRead);
            if (error.IsError())
                return error.Push(ZY_LOC("CZyHTTP2::ReceiveFileData"), "Failed to write to file");
        }
    }
}

CZyError CZyHTTP2::DownloadFile(const char* destination, const char* url)
{
    std::wstring wide = Wide(url);
    CZyError error = DownloadFile(destination, wide.c_str());
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::DownloadFile"));
    return error;
}

CZyError CZyHTTP2::DownloadFile(const char* destination, const wchar_t* url)
{
    CZyFile file;
    CZyError error = file.Open(destination ? destination : "", CZyFile::kWriteCreate, CZyFile::kModeOwnerReadWrite);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::DownloadFile"), "Failed to create destination file %s",
                          destination ? destination : "");

    const wchar_t* target = url ? url : L"";
    error = Connect(target);
    if (!error.IsError())
        error = SubmitRequest(target, false, file);
    file.Close();
    if (error.IsError())
    {
        // The caller must not mistake a partial file for the download.
        FXFile::RemoveFile(destination);
        error.Push(ZY_LOC("CZyHTTP2::DownloadFile"));
    }
    return error;
}

CZyError CZyHTTP2::UploadFile(const char* source, const char* url)
{
    std::wstring wide = Wide(url);
    CZyError error = UploadFile(source, wide.c_str());
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::UploadFile"));
    return error;
}

CZyError CZyHTTP2::UploadFile(const char* source, const wchar_t* url)
{
    CZyFile file;
    CZyError error = file.Open(source ? source : "", CZyFile::kReadOnly, CZyFile::kModeOwnerReadWrite);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::UploadFile"), "Failed to open source file %s", source ? source : "");

    const wchar_t* target = url ? url : L"";
    error = Connect(target);
    if (!error.IsError())
        error = SubmitRequest(target, true, file);
    file.Close();
    if (error.IsError())
        error.Push(ZY_LOC("CZyHTTP2::UploadFile"));
    return error;
}

CZyError CZyHTTP2::PreUploadFile(const wchar_t* url)
{
    std::wstring host;
    std::wstring path;
    int port = 0;
    CZyError error = BreakUrl(url, host, path, port);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyHTTP2::PreUploadFile"));

    size_t query = path.rfind(L'?');
    if (query != std::wstring::npos)
        path.erase(query);
    size_t slash = path.rfind(L'/');
    if (slash != std::wstring::npos)
        path.erase(slash);
    // Only a touch of the directory; whatever it answers does not matter.
    DownloadFile("", path.c_str());
    return CZyError::Success();
}
