// RkProtocolReq's request operations: each checks its arguments, records
// the request and sends it through the steps in RkProtocolReqFlow.cpp.
//
// CURLINFO_CONTENT_LENGTH_DOWNLOAD (a double) is what file sizes are read
// with; curl marks it deprecated but keeps it.
#define CURL_DISABLE_DEPRECATION 1

#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyNetwork/Internal/RkProtocolReqCommon.h"
#include "ZyNetwork/Internal/UrlText.h"
#include "ZyUtils/Internal/OsUtils.h"
#include "ZyUtils/ZyString.h"

#include <atomic>
#include <chrono>

// Locations name the class's file, wherever its code stands.
static const char kZyFile[] = "ZyNetwork/RkProtocolReq";

namespace RkCURL
{
namespace
{
// Creates a file that did not exist, in the directory of `target`, named
// after it: ".NAME.XXXXXXXX.part".
CZyError OpenBeside(CZyFile& file, const std::string& target, std::string& path)
{
    static std::atomic<unsigned> counter(0);
    const size_t slash = target.find_last_of("/\\");
    const std::string directory = slash == std::string::npos ? std::string() : target.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
    uint64_t seed = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
                    (static_cast<uint64_t>(zy::util::os::ProcessId()) << 32);
    CZyError error;
    for (int attempt = 0; attempt < 20; ++attempt)
    {
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL + counter++;
        path = directory + "." + name + FXString::Format(".%08llx.part", static_cast<unsigned long long>(seed >> 32));
        error = file.Open(path.c_str(), CZyFile::kWriteCreate | CZyFile::kFlagExclusive);
        if (!error.IsError())
            return error;
    }
    return error;
}
}  // namespace

// What every request operation does once its arguments are checked: record
// the request and send it, the operation's own location on top of any error.
CZyError RkProtocolReq::runOperation(const char* function, operationType type, const char* name,
                                     const char* urlPath, const std::vector<commandInfo>& commands)
{
    m_urlPath = urlPath;
    m_commands = commands;
    m_operationType = type;
    m_operationName = name;
    CZyError error = SendReqest();
    if (error.IsError())
        error.Push(ZY_LOC(function));
    return error;
}

// The checks shared by the operations that send a caller's buffer: the
// buffer (its own message), the path, then the size.
CZyError RkProtocolReq::runBufferOperation(const char* function, operationType type, const char* name,
                                           const char* urlPath, const char* buffer, const char* noBuffer,
                                           long size, const std::vector<commandInfo>& commands)
{
    if (!buffer)
        return FXErrorUtil::ErrorInt(ZY_LOC(function), zy::err::kTransferRefused, "%s", noBuffer);
    if (!urlPath || !urlPath[0])
        return FXErrorUtil::ErrorInt(ZY_LOC(function), zy::err::kTransferRefused, "%s", kInvalidUrlPath);
    if (size < 0)
        return FXErrorUtil::ErrorInt(ZY_LOC(function), zy::err::kTransferRefused, "%s", kInvalidBufferSize);
    m_postBuffer = buffer;
    m_dataSize = size;
    return runOperation(function, type, name, urlPath, commands);
}

CZyError RkProtocolReq::doGetOperation(const char* urlPath, const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::doGetOperation", kNotInitializedSingular);
    if (!urlPath || !urlPath[0])
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::doGetOperation"), zy::err::kTransferRefused, "%s",
                                     kInvalidUrlPath);
    return runOperation("RkCURL::RkProtocolReq::doGetOperation", OP_GET, "GET", urlPath, commands);
}

CZyError RkProtocolReq::doPostOperation(const char* urlPath, const char* postString,
                                        const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::doPostOperation", kNotInitializedSingular);
    if (!postString)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::doPostOperation"), zy::err::kTransferRefused,
                                     "Invalid post string .");
    if (!urlPath || !urlPath[0])
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::doPostOperation"), zy::err::kTransferRefused, "%s",
                                     kInvalidUrlPath);
    m_postString = postString;
    return runOperation("RkCURL::RkProtocolReq::doPostOperation", OP_POST_STRING, "POST", urlPath, commands);
}

CZyError RkProtocolReq::doPostOperation(const char* urlPath, const char* buffer, long size,
                                        const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::doPostOperation", kNotInitializedSingular);
    return runBufferOperation("RkCURL::RkProtocolReq::doPostOperation", OP_POST_BUFFER, "POST", urlPath, buffer,
                              "Invalid post array .", size, commands);
}

CZyError RkProtocolReq::doPutOperation(const char* urlPath, const char* data, long size,
                                       const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::doPutOperation", kNotInitializedSingular);
    return runBufferOperation("RkCURL::RkProtocolReq::doPutOperation", OP_PUT, "PUT", urlPath, data,
                              "Invalid PUT data.", size, commands);
}

CZyError RkProtocolReq::doDeleteOperation(const char* urlPath, const char* data, long size,
                                          const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::doDeleteOperation", kNotInitializedSingular);
    return runBufferOperation("RkCURL::RkProtocolReq::doDeleteOperation", OP_DELETE, "DELETE", urlPath, data,
                              "Invalid DELETE data.", size, commands);
}

CZyError RkProtocolReq::download(const char* sourceURL, const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::download", kNotInitializedPlural);
    if (!sourceURL)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::download"), zy::err::kTransferRefused,
                                     "Invalid source url.");
    return runOperation("RkCURL::RkProtocolReq::download", OP_DOWNLOAD, "GET", sourceURL, commands);
}

CZyError RkProtocolReq::uploadFile(const char* sourceFile, const char* urlPath, unsigned size,
                                   const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::uploadFile", kNotInitializedPlural);
    if (!sourceFile)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::uploadFile"), zy::err::kTransferRefused,
                                     "Invalid source file path.");
    if (!urlPath)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::uploadFile"), zy::err::kTransferRefused,
                                     "Invalid URL path.");
    m_sourceFile = sourceFile;
    m_urlPath = urlPath;
    m_commands = commands;
    m_operationType = OP_UPLOAD;
    m_operationName = "PUT";

    // The file is read piece by piece while curl sends it; the protocol
    // class learns the byte count from the data size.
    CZyError error = m_localFile.Open(sourceFile, CZyFile::kReadOnly);
    uint64_t fileSize = 0;
    if (!error.IsError())
        error = m_localFile.Size(fileSize);
    if (error.IsError())
    {
        m_localFile.Close();
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::uploadFile"), "Cannot read the file [%s]", sourceFile);
    }
    if (size > fileSize)
    {
        m_localFile.Close();
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::uploadFile"), zy::err::kTransferRefused, "%s",
                                     kInvalidBufferSize);
    }
    m_dataSize = size > 0 ? static_cast<int64_t>(size) : static_cast<int64_t>(fileSize);
    m_localRemaining = m_dataSize;
    m_localFileError = CZyError::Success();
    error = SendReqest();
    m_localFile.Close();
    return takeLocalFileError(error, "RkCURL::RkProtocolReq::uploadFile");
}

CZyError RkProtocolReq::downloadToFile(const char* sourceURL, const char* localFile,
                                       const std::vector<commandInfo>& commands)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::downloadToFile", kNotInitializedPlural);
    if (!sourceURL)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::downloadToFile"), zy::err::kTransferRefused,
                                     "Invalid source url.");
    if (!localFile || !localFile[0])
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::downloadToFile"), zy::err::kTransferRefused,
                                     "Invalid destination file path.");
    // The body goes to a new file beside the destination, which it replaces
    // only once the whole body has arrived: a failure leaves the
    // destination as it was and no other file behind. The rest of a resumed
    // download is appended to the destination itself.
    std::string temporary;
    CZyError error = m_resumeFrom > 0 ? m_localFile.Open(localFile, CZyFile::kFlagCreate | CZyFile::kFlagWriteOnly |
                                                                        CZyFile::kFlagAppend)
                                      : OpenBeside(m_localFile, localFile, temporary);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::downloadToFile"), "Cannot create the file [%s]", localFile);
    m_localFileError = CZyError::Success();
    m_writeLocalFile = true;
    error = download(sourceURL, commands);
    m_writeLocalFile = false;
    CZyError closed = m_localFile.Close();
    error = takeLocalFileError(error, "RkCURL::RkProtocolReq::downloadToFile");
    if (!error.IsError() && closed.IsError())
        error = closed.Push(ZY_LOC("RkCURL::RkProtocolReq::downloadToFile"));
    if (!error.IsError() && !temporary.empty())
        error = FXFile::RenameOver(temporary.c_str(), localFile);
    if (error.IsError() && !temporary.empty())
    {
        FXFile::RemoveFile(temporary.c_str());
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::downloadToFile"));
    }
    return error;
}

CZyError RkProtocolReq::listDirectory(const std::string& path, std::vector<FileDirInfo>& entries)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::listDirectory", kNotInitializedPlural);
    // A directory is named with a trailing '/': web servers redirect
    // without it and curl lists an FTP directory only with it.
    // A whole URL is fetched as typed (its query included); its entries are
    // named below its decoded path on its own server.
    const bool whole = zy::url::IsWholeUrl(path);
    std::string directory = whole ? zy::url::WithDirectorySlash(path) : path.empty() ? std::string("/") : path;
    if (directory.back() != '/' && !whole)
        directory.push_back('/');
    CZyError error = getFilesAndDirsInfoInFile(directory);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::listDirectory"));
    WholeUrlBase base(m_url, path, zy::url::UrlOrigin(zy::url::WireUrl(path)));
    if (whole)
    {
        directory = zy::url::DecodedUrlPath(path);
        if (directory.back() != '/')
            directory.push_back('/');
    }
    error = collectFilesAndDir(m_listing, &entries, directory);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::listDirectory"));
    return CZyError::Success();
}

CZyError RkProtocolReq::sendFileInfoRequest(const std::string& path, operationType type, double& size)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::getFileInfo", kNotInitializedSingular);
    m_urlPath = path;
    m_commands.clear();
    m_operationType = type;
    m_operationName = "HEAD";
    CZyError error = SendReqest();
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::getFileInfo"));
    double length = -1;
    CURLcode result = CurlWrapper::rk_curl_easy_getinfo(handle(), CURLINFO_CONTENT_LENGTH_DOWNLOAD, &length);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::getFileInfo"), result,
                           "CURL perform failed. ErrorCode : [%d], Error Message : [%s]", result, errorBufferText());
    if (static_cast<long long>(length) == -1)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::getFileInfo"), m_lastResult,
                           "File size recieved from server is invalid");
    size = length;
    return CZyError::Success();
}

CZyError RkProtocolReq::getFileInfo(const std::string& path, double& size)
{
    return sendFileInfoRequest(path, OP_FILE_INFO, size);
}

CZyError RkProtocolReq::getInfo(CurlInfoType type, std::string& value)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::getInfo", kNotInitializedSingular);
    CURLINFO info;
    if (type == CURL_INFO_EFFECTIVE_URL)
        info = CURLINFO_EFFECTIVE_URL;
    else if (type == CURL_INFO_REDIRECT_URL)
        info = CURLINFO_REDIRECT_URL;
    else
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::getInfo"), zy::err::kTransferRefused,
                                     "Unrecognized Curl Info type.");
    m_operationType = OP_INFO;
    m_operationName = "HEAD";
    CZyError error = SendReqest();
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::getInfo"));
    char* text = nullptr;
    CURLcode result = CurlWrapper::rk_curl_easy_getinfo(handle(), info, &text);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::getInfo"), result,
                           "CURL get info failed. ErrorCode : [%d] , ErrorMessage : [%s]", result, errorBufferText());
    if (!text)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::getInfo"), zy::err::kTransferRefused,
                                     "Invalid pointer from curl get info.");
    value = text;
    return CZyError::Success();
}

CZyError RkProtocolReq::checkIfFileOrDirExists(const std::string& path, bool isFile, bool& exists)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::checkIfFileOrDirExists", kNotInitializedSingular);
    double size = 0;
    CZyError info = sendFileInfoRequest(path, isFile ? OP_CHECK_FILE_EXISTS : OP_CHECK_DIR_EXISTS, size);
    if (isFile)
    {
        if (m_lastResult != CURLE_OK)
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::checkIfFileOrDirExists"),
                                         zy::err::kTransferRefused,
                                         "Failed to check if File exists.Error Code : [%d]. Error Message [%s] ",
                                         m_lastResult, errorBufferText());
        exists = !info.IsError();
        return CZyError::Success();
    }
    if (m_lastResult == CURLE_REMOTE_ACCESS_DENIED || m_responseCode == 404)
    {
        exists = false;
        return CZyError::Success();
    }
    if (m_lastResult != CURLE_OK)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::checkIfFileOrDirExists"), zy::err::kTransferRefused,
                                     "Failed to check if Directory exists. Error Code : [%d]. Error Message [%s] ",
                                     m_lastResult, errorBufferText());
    exists = true;
    return CZyError::Success();
}

CZyError RkProtocolReq::getFilesAndDirsInfoInFile(const std::string& sourcePath)
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::getFilesAndDirsInfoInFile", kNotInitializedPlural);
    if (sourcePath.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::getFilesAndDirsInfoInFile"),
                                     zy::err::kTransferRefused, "Source path passed in empty");
    m_urlPath = sourcePath;
    m_commands.clear();
    m_operationType = OP_DIR_LIST;
    m_operationName = "GET";
    m_listing.clear();
    CZyError error = SendReqest();
    if (error.IsError())
        error.Push(ZY_LOC("RkCURL::RkProtocolReq::getFilesAndDirsInfoInFile"));
    return error;
}

CZyError RkProtocolReq::checkConnection()
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::checkConnection", kNotInitializedPlural);
    m_commands.clear();
    m_operationType = OP_CHECK_CONNECTION;
    m_operationName = "HEAD";
    return SendReqest();
}
}  // namespace RkCURL
