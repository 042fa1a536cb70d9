// CZyHTTP2's file operations over WinHTTP: download to a file, upload from
// one; the request loop that moves their bytes is in ZyHTTP2Request.cpp.
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

using namespace zy::http;

namespace
{
// Locations name the class's file, wherever its code stands.
const char kZyFile[] = "ZyNetwork/ZyHTTP2";
}  // namespace

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
