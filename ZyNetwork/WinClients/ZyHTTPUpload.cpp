// ZyHTTP's log upload over WinINet: the multipart form (ZyHTTPText.h) sent
// around the file's bytes.
#include "ZyNetwork/ZyHTTP.h"

#include <windows.h>
#include <wininet.h>

#include <string>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "ZyNetwork/WinClients/ZyHTTPHandles.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"

// Locations name the class's file, wherever its code stands.
static const char kZyFile[] = "ZyNetwork/ZyHTTP";

using namespace zy::http;

CZyError ZyHTTP::_sendRequestPost(const Target& target, const char* localFile, const char* clientId)
{
    CZyFile file;
    CZyError error = file.Open(localFile, CZyFile::kReadOnly);
    uint64_t fileSize = 0;
    if (!error.IsError())
        error = file.Size(fileSize);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"), "Cannot read %s", localFile);

    zy::http::UploadFields fields;
    fields.jsp = m_uploadMode == zy::http::kUploadModeJsp;
    fields.clientId = clientId && *clientId ? clientId : zy::http::kNoClientId;
    fields.user = m_user.str();
    fields.password = m_password.str();
    fields.fileName = LastSegment(localFile);
    const zy::http::UploadForm form = zy::http::BuildUploadForm(fields);
    const uint64_t total = form.head.size() + fileSize + form.tail.size();
    if (total > 0xFFFFFFFFull)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), ERROR_FILE_TOO_LARGE,
                                       "%s is too large to upload", localFile);

    if (HasLineBreak(m_user.str()) || HasLineBreak(m_password.str()))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), zy::err::kInvalidParameter,
                                       "The user name or password holds a line break");

    Handles handles;
    error = _openRequest(target, "POST", false, handles);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"));
    std::string headers;
    if (!m_user.IsEmpty())
        headers += "Authorization: " + zy::http::BasicAuthorization(m_user.str(), m_password.str()) + "\r\n";
    headers += std::string("Content-Type: multipart/form-data; boundary=") + zy::http::kUploadBoundary + "\r\n";
    if (!HttpAddRequestHeadersA(handles.request.Get(), headers.c_str(), static_cast<DWORD>(headers.size()),
                                HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), GetLastError(),
                                       "Cannot add the upload headers");

    INTERNET_BUFFERSA buffers;
    memset(&buffers, 0, sizeof(buffers));
    buffers.dwStructSize = sizeof(buffers);
    buffers.dwBufferTotal = static_cast<DWORD>(total);
    DWORD code = handles.Run(handles.headerLimitMs, [&] {
        return HttpSendRequestExA(handles.request.Get(), &buffers, nullptr, 0,
                                  reinterpret_cast<DWORD_PTR>(handles.completion));
    });
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "POST %s failed", target.url.c_str());

    code = handles.WriteAll(form.head.data(), form.head.size());
    std::string buffer(kChunk, '\0');
    uint64_t sent = 0;
    while (code == ERROR_SUCCESS && sent < fileSize)
    {
        uint32_t got = 0;
        error = file.Read(&buffer[0], kChunk, got);
        if (error.IsError())
            return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"), "Cannot read %s", localFile);
        if (got == 0)
            break;  // the file shrank; the length check below reports it
        code = handles.WriteAll(buffer.data(), got);
        sent += got;
    }
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "Sending to %s failed",
                                       target.url.c_str());
    if (sent != fileSize)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), ERROR_HANDLE_EOF,
                                       "%s changed size during the upload", localFile);
    code = handles.WriteAll(form.tail.data(), form.tail.size());
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "Sending to %s failed",
                                       target.url.c_str());
    code = handles.Run(handles.headerLimitMs, [&] {
        return HttpEndRequestA(handles.request.Get(), nullptr, 0, reinterpret_cast<DWORD_PTR>(handles.completion));
    });
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestPost"), code, "No answer from %s",
                                       target.url.c_str());
    error = _checkStatus(target, handles, nullptr);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestPost"));
    return CZyError::Success();
}

CZyError ZyHTTP::UploadFile(const char* localFile, const char* clientId)
{
    if (!localFile || !*localFile)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::UploadFile"), zy::err::kInvalidParameter, "No file to upload");
    const char* object = m_uploadMode == zy::http::kUploadModeJsp ? "httplogupload.do" : "upload.asp";
    Target target;
    CZyError error = _target(m_path.str() + object, target);
    if (!error.IsError())
        error = _sendRequestPost(target, localFile, clientId);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::UploadFile"));
    return CZyError::Success();
}
