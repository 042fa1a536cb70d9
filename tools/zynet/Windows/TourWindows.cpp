// The tour's transfer steps through the Windows HTTP clients: CZyHTTP2
// (WinHTTP) downloads and PUTs, ZyHTTP (WinINet) downloads, lists and sends
// its multipart upload, all against the tour's loopback server.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Tour.h"
#include "ZyNetwork/ZyHTTP.h"
#include "ZyNetwork/ZyHTTP2.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"

static const char kZyFile[] = "tools/zynet/Windows/TourWindows";

namespace zytool
{
namespace
{
// The local files of one step, in the temporary directory; removed at the end.
class TempFiles
{
public:
    TempFiles()
    {
        char path[MAX_PATH + 1] = {0};
        const DWORD length = GetTempPathA(MAX_PATH, path);
        m_directory = length > 0 && length <= MAX_PATH ? std::string(path, length) : std::string(".\\");
        if (m_directory.back() != '\\')
            m_directory += '\\';
    }
    ~TempFiles()
    {
        for (const std::string& path : m_paths)
            DeleteFileA(path.c_str());
    }
    const std::string& Directory() const { return m_directory; }
    // A unique name in the directory, remembered for removal.
    std::string Name(const std::string& tag)
    {
        const std::string name = FXString::Format("zynet-tour-%lu-%s", FXProcess::getProcessId(), tag.c_str());
        m_paths.push_back(m_directory + name);
        return name;
    }

private:
    std::string m_directory;
    std::vector<std::string> m_paths;
};

bool ReadFileBytes(const std::string& path, std::string& bytes)
{
    bytes.clear();
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return false;
    char buffer[65536];
    size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof(buffer), file)) > 0)
        bytes.append(buffer, count);
    std::fclose(file);
    return true;
}

CZyError WriteFileBytes(const std::string& path, const std::string& bytes)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    const bool ok = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (file && std::fclose(file) != 0)
        return FXErrorUtil::ErrorInt(ZY_LOC("zytool::WriteFileBytes"), 1, "cannot write %s", path.c_str());
    if (!ok)
        return FXErrorUtil::ErrorInt(ZY_LOC("zytool::WriteFileBytes"), 1, "cannot write %s", path.c_str());
    return CZyError::Success();
}

// Each served file fetched into a local file by `download` and compared.
template <typename Download>
CZyError DownloadServed(const char* where, TempFiles& temp, Download download, size_t& bytes)
{
    for (const auto& file : TourHttpServer::ServedFiles())
    {
        const std::string name = temp.Name(file.first);
        CZyError error = download(file.first, name);
        std::string got;
        if (!error.IsError())
            error = CompareBytes(where, "GET " + file.first,
                                 ReadFileBytes(temp.Directory() + name, got) ? got : std::string("(no file)"),
                                 file.second);
        if (error.IsError())
            return error.Push(ZY_LOC(where), "download of %s failed", file.first.c_str());
        bytes += got.size();
    }
    return CZyError::Success();
}

// Runs `body` against a fresh server; the step fails on its error or the
// server thread's.
template <typename Body>
StepResult WithServer(const char* where, Body body)
{
    TourHttpServer server;
    CZyError error = server.Start();
    if (error.IsError())
        return Failed(error, "no HTTP server");
    std::string summary;
    error = body(server, summary);
    server.Stop();
    if (error.IsError())
        return Failed(error, "transfer failed");
    const std::string threadError = server.ThreadError();
    if (!threadError.empty())
        return Failed(FXErrorUtil::ErrorInt(ZY_LOC(where), 1, "%s", threadError.c_str()), "the HTTP server failed");
    return Ok(summary);
}

StepResult TransfersOverWinHttp()
{
    return WithServer("zytool::TransfersOverWinHttp", [](TourHttpServer& server, std::string& summary) -> CZyError {
        TempFiles temp;
        CZyHTTP2 client;
        client.SetInternetTimeoutSec(kTourLimitSeconds);
        size_t bytes = 0;
        CZyError error = DownloadServed(
            "zytool::TransfersOverWinHttp", temp,
            [&](const std::string& remote, const std::string& local) {
                return client.DownloadFile((temp.Directory() + local).c_str(), (server.BaseUrl() + "/" + remote).c_str());
            },
            bytes);
        if (error.IsError())
            return error;
        std::string sent = TourHttpServer::ServedFiles().at("pattern.bin");
        std::reverse(sent.begin(), sent.end());
        const std::string local = temp.Directory() + temp.Name("winhttp-upload.bin");
        error = WriteFileBytes(local, sent);
        if (!error.IsError())
            error = client.UploadFile(local.c_str(), (server.BaseUrl() + "/winhttp-upload.bin").c_str());
        std::string stored;
        if (!error.IsError())
            error = CompareBytes("zytool::TransfersOverWinHttp", "PUT winhttp-upload.bin",
                                 server.File("winhttp-upload.bin", stored) ? stored : "", sent);
        if (error.IsError())
            return error.Push(ZY_LOC("zytool::TransfersOverWinHttp"), "upload failed");
        bytes += sent.size();
        summary = FXString::Format("CZyHTTP2: %u GET, 1 PUT, %lu bytes checked",
                                   static_cast<unsigned>(TourHttpServer::ServedFiles().size()),
                                   static_cast<unsigned long>(bytes));
        return CZyError::Success();
    });
}

StepResult TransfersOverWinInet()
{
    return WithServer("zytool::TransfersOverWinInet", [](TourHttpServer& server, std::string& summary) -> CZyError {
        TempFiles temp;
        ZyHTTP client(server.BaseUrl().c_str());
        client.SetInternetTimeout(kTourLimitSeconds * 1000);
        size_t bytes = 0;
        CZyError error = DownloadServed(
            "zytool::TransfersOverWinInet", temp,
            [&](const std::string& remote, const std::string& local) {
                return client.DownloadFileFromUrl((server.BaseUrl() + "/" + remote).c_str(), temp.Directory().c_str(),
                                                  local.c_str(), {});
            },
            bytes);
        if (error.IsError())
            return error;
        // The listing page names every served file.
        std::vector<CZyString> names;
        error = client.GetFileList(names, nullptr);
        if (error.IsError())
            return error.Push(ZY_LOC("zytool::TransfersOverWinInet"), "listing failed");
        for (const auto& file : TourHttpServer::ServedFiles())
            if (std::find_if(names.begin(), names.end(), [&](const CZyString& n) { return n.str() == file.first; }) ==
                names.end())
                return FXErrorUtil::ErrorInt(ZY_LOC("zytool::TransfersOverWinInet"), 1, "the listing lacks %s",
                                             file.first.c_str());
        // The multipart upload goes to "upload.asp"; the form holds the file.
        const std::string name = temp.Name("wininet-upload.txt");
        const std::string sent = TourHttpServer::ServedFiles().at("hello.txt");
        error = WriteFileBytes(temp.Directory() + name, sent);
        if (!error.IsError())
            error = client.UploadFile((temp.Directory() + name).c_str(), "tour");
        std::string form;
        if (!error.IsError() && (!server.File("upload.asp", form) || form.find(sent) == std::string::npos ||
                                 form.find("filename=" + name) == std::string::npos))
            error = FXErrorUtil::ErrorInt(ZY_LOC("zytool::TransfersOverWinInet"), 1,
                                          "the form the server got (%lu bytes) lacks the file",
                                          static_cast<unsigned long>(form.size()));
        if (error.IsError())
            return error.Push(ZY_LOC("zytool::TransfersOverWinInet"), "upload failed");
        bytes += sent.size();
        summary = FXString::Format("ZyHTTP: %u GET, 1 listing of %u names, 1 form POST, %lu bytes checked",
                                   static_cast<unsigned>(TourHttpServer::ServedFiles().size()),
                                   static_cast<unsigned>(names.size()), static_cast<unsigned long>(bytes));
        return CZyError::Success();
    });
}
}  // namespace

std::vector<TourStep> PlatformTransferSteps()
{
    return {{"transfers over WinHTTP", TransfersOverWinHttp}, {"transfers over WinINet", TransfersOverWinInet}};
}
}  // namespace zytool
