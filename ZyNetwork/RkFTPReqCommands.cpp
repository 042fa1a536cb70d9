// The commands RkFTPReq sends beside transfers: the file commands (DELE,
// MKD, RMD, RNFR/RNTO, run after the transfer step on the login directory),
// the FEAT probe that decides between MLSD and LIST, and the quote lists that
// carry both.
#include "ZyNetwork/RkFTPReq.h"
#include "ZyNetwork/Internal/RkProtocolReqCommon.h"
#include "ZyNetwork/Internal/UrlText.h"
#include "ZyUtils/Internal/ErrorCodes.h"

#include "ZyUtils/ZyString.h"

// Locations name the class's file, wherever its code stands.
static const char kZyFile[] = "ZyNetwork/RkFTPReq";

namespace RkCURL
{
namespace
{
// The path of a command: a whole URL's own path, decoded, or the path as
// given.
std::string CommandTarget(const std::string& path)
{
    return zy::url::IsWholeUrl(path) ? zy::url::DecodedUrlPath(path) : path;
}
}  // namespace

std::string RkFTPReq::commandPath(const std::string& path) const
{
    return joinedPath(path);
}

std::string RkFTPReq::deleteCommand(const std::string& path) const
{
    return "DELE " + commandPath(path);
}

std::string RkFTPReq::makeDirectoryCommand(const std::string& path) const
{
    return "MKD " + commandPath(path);
}

std::string RkFTPReq::removeDirectoryCommand(const std::string& path) const
{
    return "RMD " + commandPath(path);
}

std::vector<std::string> RkFTPReq::renameCommands(const std::string& from, const std::string& to) const
{
    return {"RNFR " + commandPath(from), "RNTO " + commandPath(to)};
}

CZyError RkFTPReq::runCommands(const std::vector<std::string>& commands, const char* function)
{
    if (!isInitialized())
        return FXErrorUtil::ErrorInt(ZY_LOC(function), zy::err::kTransferRefused,
                                     "RkProtocol class is not initialized yet. Call initialize function before any "
                                     "other function.");
    for (const std::string& command : commands)
    {
        if (HasLineBreak(command))
            return FXErrorUtil::ErrorInt(ZY_LOC(function), zy::err::kTransferRefused,
                                         "A path with a line break cannot be sent");
    }
    m_urlPath.clear();
    m_commands.clear();
    m_pendingCommands = commands;
    m_commandsOnly = true;
    setOperationType(OP_GET);
    setOperationName("QUOTE");
    CZyError error = SendReqest();
    m_commandsOnly = false;
    m_pendingCommands.clear();
    if (error.IsError())
        error.Push(ZY_LOC(function));
    return error;
}

CZyError RkFTPReq::deleteFile(const std::string& url)
{
    WholeUrlBase base(m_url, url, zy::url::UrlOrigin(wireUrl(url)));
    const std::string path = CommandTarget(url);
    if (joinedPath(path).empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::deleteFile"), zy::err::kTransferRefused,
                                     "Invalid URL path .");
    return runCommands({deleteCommand(path)}, "RkCURL::RkFTPReq::deleteFile");
}

CZyError RkFTPReq::makeDirectory(const std::string& url)
{
    WholeUrlBase base(m_url, url, zy::url::UrlOrigin(wireUrl(url)));
    const std::string path = CommandTarget(url);
    if (joinedPath(path).empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::makeDirectory"), zy::err::kTransferRefused,
                                     "Invalid URL path .");
    return runCommands({makeDirectoryCommand(path)}, "RkCURL::RkFTPReq::makeDirectory");
}

CZyError RkFTPReq::removeDirectory(const std::string& url)
{
    WholeUrlBase base(m_url, url, zy::url::UrlOrigin(wireUrl(url)));
    const std::string path = CommandTarget(url);
    if (joinedPath(path).empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::removeDirectory"), zy::err::kTransferRefused,
                                     "Invalid URL path .");
    return runCommands({removeDirectoryCommand(path)}, "RkCURL::RkFTPReq::removeDirectory");
}

CZyError RkFTPReq::renameFile(const std::string& fromUrl, const std::string& toUrl)
{
    WholeUrlBase base(m_url, fromUrl, zy::url::UrlOrigin(wireUrl(fromUrl)));
    const std::string from = CommandTarget(fromUrl);
    const std::string to = CommandTarget(toUrl);
    if (joinedPath(from).empty() || joinedPath(to).empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::renameFile"), zy::err::kTransferRefused,
                                     "Invalid URL path .");
    return runCommands(renameCommands(from, to), "RkCURL::RkFTPReq::renameFile");
}

size_t RkFTPReq::collectFeatures(char* data, size_t size, size_t count, void* self)
{
    RkFTPReq* request = static_cast<RkFTPReq*>(self);
    const size_t total = size * count;
    if (request->m_features.size() < 64 * 1024)
        request->m_features.append(data, total);
    return total;
}

// Asks the server for its FEAT list once, on the handle's own connection
// (which the listing then reuses), before the listing's options are set.
CZyError RkFTPReq::probeFeatures()
{
    void* curl = handle();
    m_features.clear();
    curl_slist* feat = CurlWrapper::rk_curl_slist_append(nullptr, "FEAT");
    if (!feat)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkFTPReq::probeFeatures"), CURLE_OUT_OF_MEMORY, "Out of memory");
    const std::string url = (zy::url::IsWholeUrl(m_urlPath) ? zy::url::UrlOrigin(wireUrl(m_urlPath)) : baseURL()) + "/";
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_QUOTE, static_cast<void*>(feat));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &RkFTPReq::collectFeatures);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERDATA, static_cast<void*>(this));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &RkProtocolReq::getContentSize);
    const CURLcode result = CurlWrapper::rk_curl_easy_perform(curl);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_QUOTE, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 0L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, static_cast<RkDataCallback>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERDATA, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_slist_free_all(feat);
    resetCurlErrorBuffer();
    // A refused FEAT (the quote fails) means no extensions; a connection
    // that fails is left for the listing itself to report.
    if (result == CURLE_OK)
    {
        const std::string features = FXString::ToLower(m_features);
        m_serverHasMlsd = (features.find("\nmlst") != std::string::npos ||
                           features.find(" mlst") != std::string::npos)
                              ? 1
                              : 0;
    }
    else if (result == CURLE_QUOTE_ERROR)
    {
        m_serverHasMlsd = 0;
    }
    std::string working;
    CZyError error = getFullWorkingURL(working);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkFTPReq::probeFeatures"));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_URL, working.c_str());
    return CZyError::Success();
}

// The caller's raw commands go before the transfer (CURLOPT_QUOTE); the
// class's own file commands after it (CURLOPT_POSTQUOTE), when curl has
// changed back into the login directory on a reused connection, so that
// their paths mean what the URLs mean.
CURLcode RkFTPReq::setQuoteList(const std::vector<std::string>& extra)
{
    CURLcode result = CURLE_OK;
    for (const commandInfo& command : m_commands)
    {
        curl_slist* next = CurlWrapper::rk_curl_slist_append(m_quoteList, command.name.c_str());
        if (!next)
            return CURLE_OUT_OF_MEMORY;
        m_quoteList = next;
    }
    for (const std::string& line : extra)
    {
        curl_slist* next = CurlWrapper::rk_curl_slist_append(m_postQuoteList, line.c_str());
        if (!next)
            return CURLE_OUT_OF_MEMORY;
        m_postQuoteList = next;
    }
    if (m_quoteList)
        result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_QUOTE, static_cast<void*>(m_quoteList));
    if (result == CURLE_OK && m_postQuoteList)
        result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_POSTQUOTE, static_cast<void*>(m_postQuoteList));
    return result;
}
}  // namespace RkCURL
