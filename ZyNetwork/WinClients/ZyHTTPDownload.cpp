// ZyHTTP's downloads over WinINet: one file, a URL, a listing page and the
// recursive file list.
#include "ZyNetwork/ZyHTTP.h"

#include <windows.h>
#include <wininet.h>

#include <deque>
#include <set>
#include <string>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "ZyNetwork/WinClients/ZyHTTPHandles.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"

// Locations name the class's file, wherever its code stands.
static const char kZyFile[] = "ZyNetwork/ZyHTTP";

using namespace zy::http;

CZyError ZyHTTP::_sendRequestGet(const Target& target, const std::map<CZyString, CZyString>& headers,
                                 Handles& handles, uint64_t& contentLength) const
{
    CZyError error = _openRequest(target, "GET", true, handles);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestGet"));
    for (const auto& header : headers)
    {
        if (header.first.IsEmpty() || HasLineBreak(header.first.str()) || HasLineBreak(header.second.str()) ||
            header.first.str().find(':') != std::string::npos)
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestGet"), zy::err::kInvalidParameter,
                                           "Bad request header '%s'", header.first.c_str());
        std::string line = header.first.str() + ": " + header.second.str() + "\r\n";
        if (!HttpAddRequestHeadersA(handles.request.Get(), line.c_str(), static_cast<DWORD>(line.size()),
                                    HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE))
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestGet"), GetLastError(),
                                           "Cannot add the request header '%s'", header.first.c_str());
    }
    DWORD code = handles.Run(handles.headerLimitMs,
                             [&] { return HttpSendRequestA(handles.request.Get(), nullptr, 0, nullptr, 0); });
    if (code != ERROR_SUCCESS)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_sendRequestGet"), code, "GET %s failed", target.url.c_str());
    error = _checkStatus(target, handles, &contentLength);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_sendRequestGet"));
    return CZyError::Success();
}

CZyError ZyHTTP::_download(const Target& target, const std::map<CZyString, CZyString>& headers,
                           const std::string& localFile)
{
    Handles handles;
    uint64_t expected = 0;
    CZyError error = _sendRequestGet(target, headers, handles, expected);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_download"));

    // The body goes to a side file first, so that only a complete download
    // ever carries the local file's name.
    const std::string partFile = localFile + ".part";
    CZyFile file;
    error = file.Open(partFile.c_str(), CZyFile::kWriteCreate);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_download"), "Cannot create %s", partFile.c_str());
    std::string buffer(kChunk, '\0');
    uint64_t received = 0;
    for (;;)
    {
        DWORD got = 0;
        DWORD code = handles.Run(0, [&] { return InternetReadFile(handles.request.Get(), &buffer[0], kChunk, &got); });
        if (code != ERROR_SUCCESS)
        {
            error = FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_download"), code, "Reading %s failed", target.url.c_str());
            break;
        }
        if (got == 0)
            break;
        received += got;
        error = file.Write(buffer.data(), got);
        if (error.IsError())
        {
            error.Push(ZY_LOC("ZyHTTP::_download"), "Cannot write %s", partFile.c_str());
            break;
        }
    }
    if (!error.IsError() && expected != UINT64_MAX && received != expected)
        error = FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_download"), ERROR_INTERNET_CONNECTION_ABORTED,
                                        "%s ended after %llu of %llu bytes", target.url.c_str(),
                                        static_cast<unsigned long long>(received),
                                        static_cast<unsigned long long>(expected));
    CZyError closed = file.Close();
    if (!error.IsError() && closed.IsError())
        error = closed.Push(ZY_LOC("ZyHTTP::_download"));
    if (!error.IsError() && !MoveFileExW(FXString::ToWstring(partFile).c_str(), FXString::ToWstring(localFile).c_str(),
                                         MOVEFILE_REPLACE_EXISTING))
        error = FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_download"), GetLastError(), "Cannot rename %s to %s",
                                        partFile.c_str(), localFile.c_str());
    if (error.IsError())
        FXFile::RemoveFile(partFile.c_str());
    return error;
}

CZyError ZyHTTP::_fetchPage(const Target& target, std::string& page)
{
    Handles handles;
    uint64_t expected = 0;
    CZyError error = _sendRequestGet(target, {}, handles, expected);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::_fetchPage"));
    page.clear();
    char buffer[8192];
    for (;;)
    {
        DWORD got = 0;
        DWORD code =
            handles.Run(0, [&] { return InternetReadFile(handles.request.Get(), buffer, sizeof(buffer), &got); });
        if (code != ERROR_SUCCESS)
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_fetchPage"), code, "Reading %s failed",
                                           target.url.c_str());
        if (got == 0)
            break;
        if (page.size() + got > kMaxListingPage)
            return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::_fetchPage"), ERROR_INSUFFICIENT_BUFFER,
                                           "The listing %s is larger than %lu bytes", target.url.c_str(),
                                           static_cast<unsigned long>(kMaxListingPage));
        page.append(buffer, got);
    }
    return CZyError::Success();
}

CZyError ZyHTTP::DownloadFile(const char* remoteDirectory, const char* fileName, const char* localDirectory)
{
    if (!fileName || !*fileName || LastSegment(fileName).empty())
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::DownloadFile"), zy::err::kInvalidParameter,
                                       "No file name to download");
    std::string object = m_path.str();
    if (remoteDirectory && *remoteDirectory)
        object = zy::http::DirectoryPath(object + zy::http::EncodePath(remoteDirectory));
    std::string name = zy::http::EncodePath(fileName);
    while (!name.empty() && name[0] == '/')
        name.erase(0, 1);
    Target target;
    CZyError error = _target(object + name, target);
    if (!error.IsError())
        error = _download(target, {}, JoinLocal(localDirectory, LastSegment(fileName)));
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::DownloadFile"));
    return CZyError::Success();
}

CZyError ZyHTTP::DownloadFileFromUrl(const char* url, const char* localDirectory, const char* localFileName,
                                     const std::map<CZyString, CZyString>& headers)
{
    zy::http::UrlParts parts;
    if (!url || !zy::http::ParseBaseUrl(url, parts))
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::DownloadFileFromUrl"), zy::err::kInvalidParameter,
                                       "Not a usable HTTP URL: '%s'", url ? url : "(null)");
    std::string name = localFileName ? localFileName : "";
    if (name.empty())
        name = zy::http::DecodePath(LastSegment(parts.path));
    if (name.empty() || name.find_first_of("/\\:") != std::string::npos)
        return FXErrorUtil::ErrorWin32(ZY_LOC("ZyHTTP::DownloadFileFromUrl"), zy::err::kInvalidParameter,
                                       "No local file name for '%s'", url);
    Target target;
    target.host = parts.host;
    target.secure = parts.secure;
    target.port = parts.port != 0 ? parts.port : (parts.secure ? INTERNET_DEFAULT_HTTPS_PORT : INTERNET_DEFAULT_HTTP_PORT);
    target.object = parts.path + parts.query;
    target.url = url;
    CZyError error = _download(target, headers, JoinLocal(localDirectory, name));
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::DownloadFileFromUrl"));
    return CZyError::Success();
}

CZyError ZyHTTP::GetFileList(std::vector<CZyString>& files, const char* directory)
{
    files.clear();
    std::string top = m_path.str();
    if (directory && *directory)
        top = zy::http::DirectoryPath(top + zy::http::EncodePath(directory));
    CZyString working;
    CZyError error = GetWorkingURL(working);
    if (error.IsError())
        return error.Push(ZY_LOC("ZyHTTP::GetFileList"));
    zy::http::UrlParts parts;
    parts.secure = m_secure;
    parts.host = m_server.str();
    parts.port = m_port;
    const std::string origin = zy::http::Origin(parts);

    struct Page
    {
        std::string path;    // encoded, ends in '/'
        std::string prefix;  // plain, relative to `directory`
        int depth;
    };
    std::deque<Page> pending = {{top, "", 0}};
    std::set<std::string> visited = {top};
    std::set<std::string> found;
    while (!pending.empty())
    {
        Page page = pending.front();
        pending.pop_front();
        Target target;
        std::string html;
        error = _target(page.path, target);
        if (!error.IsError())
            error = _fetchPage(target, html);
        if (error.IsError())
        {
            files.clear();
            return error.Push(ZY_LOC("ZyHTTP::GetFileList"));
        }
        for (const std::string& link : zy::http::ExtractLinks(html))
        {
            zy::http::ListingLink entry = zy::http::ClassifyListingLink(link, origin, page.path);
            if (entry.kind == zy::http::ListingLink::kFile)
            {
                std::string name = page.prefix + entry.name;
                if (found.insert(name).second)
                    files.push_back(name);
            }
            else if (entry.kind == zy::http::ListingLink::kDirectory && page.depth < kMaxListingDepth)
            {
                std::string path = page.path + zy::http::EncodePath(entry.name);
                if (visited.insert(path).second)
                    pending.push_back({path, page.prefix + entry.name, page.depth + 1});
            }
        }
    }
    return CZyError::Success();
}
