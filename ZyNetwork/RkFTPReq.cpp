// FTP and FTPS requests: the working URL, the options of each operation, the
// reply-code success rule and the listing reader (Internal/ListingParsers.h).
// The commands sent beside transfers are in RkFTPReqCommands.cpp.
#include "ZyNetwork/RkFTPReq.h"
#include "ZyUtils/Internal/ErrorCodes.h"

#include <string.h>
#include <time.h>

#include "ZyNetwork/Internal/ListingParsers.h"
#include "ZyNetwork/Internal/RkProtocolReqCommon.h"
#include "ZyNetwork/Internal/UrlText.h"
#include "ZyUtils/ZyString.h"

static const char kZyFile[] = "ZyNetwork/RkFTPReq";

namespace RkCURL
{
RkFTPReq::RkFTPReq(FTPProtocol protocol)
    : m_protocol(protocol),
      m_createMissingDirs(false),
      m_listingCommand(LISTING_AUTO),
      m_serverHasMlsd(-1),
      m_listingIsMlsd(false),
      m_skippedLines(0),
      m_commandsOnly(false),
      m_quoteList(nullptr),
      m_postQuoteList(nullptr),
      m_sendPosition(nullptr),
      m_sendRemaining(0),
      m_active(false),
      m_freshConnection(false)
{
}

RkFTPReq::RkFTPReq(const RkFTPReq& other)
    : RkProtocolReq(other),
      m_protocol(other.m_protocol),
      m_createMissingDirs(other.m_createMissingDirs),
      m_listingCommand(other.m_listingCommand),
      m_serverHasMlsd(other.m_serverHasMlsd),
      m_listingIsMlsd(false),
      m_skippedLines(0),
      m_commandsOnly(false),
      m_quoteList(nullptr),
      m_postQuoteList(nullptr),
      m_sendPosition(nullptr),
      m_sendRemaining(0),
      m_active(other.m_active),
      m_freshConnection(false)
{
    // The copied settings include the address of an active mode that the
    // source may have left since.
    if (!m_active && isInitialized())
        setActiveMode(false);
}

RkFTPReq& RkFTPReq::operator=(const RkFTPReq& other)
{
    if (this != &other)
    {
        RkProtocolReq::operator=(other);
        m_protocol = other.m_protocol;
        m_createMissingDirs = other.m_createMissingDirs;
        m_listingCommand = other.m_listingCommand;
        m_serverHasMlsd = other.m_serverHasMlsd;
        m_active = other.m_active;
        if (!m_active && isInitialized())
            setActiveMode(false);
    }
    return *this;
}

RkFTPReq::~RkFTPReq()
{
    if (m_quoteList)
        CurlWrapper::rk_curl_slist_free_all(m_quoteList);
    if (m_postQuoteList)
        CurlWrapper::rk_curl_slist_free_all(m_postQuoteList);
}

const char* RkFTPReq::scheme() const
{
    return "ftp";
}

CZyError RkFTPReq::setActiveMode(bool active, const std::string& address)
{
    if (!isInitialized())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::setActiveMode"), zy::err::kTransferRefused,
                                     "RkProtocol class is not initialized yet. Call initialize function before any "
                                     "other function.");
    // An empty FTPPORT text would be taken as "passive"; "-" is the default
    // address.
    CURLcode result = active ? applyOption(CURLOPT_FTPPORT, address.empty() ? std::string("-") : address)
                             : CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_FTPPORT,
                                                                static_cast<const char*>(nullptr));
    setLastCurlResult(result);
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkFTPReq::setActiveMode"), result, "Failed to set option [%d]",
                           CURLOPT_FTPPORT);
    m_active = active;
    return CZyError::Success();
}

CZyError RkFTPReq::setCreateMissingDirs(bool create)
{
    m_createMissingDirs = create;
    return CZyError::Success();
}

CZyError RkFTPReq::setDefaults()
{
    const std::string protocols = scheme();
    CURLcode result = applyOption(CURLOPT_PROTOCOLS_STR, protocols);
    if (result == CURLE_OK)
        result = applyOption(CURLOPT_NOSIGNAL, 1L);
    if (result == CURLE_OK)
        result = applyOption(CURLOPT_BUFFERSIZE, kReceiveBufferSize);
    if (result == CURLE_OK && m_protocol == FTPS)
    {
        // TLS on the control connection from the start and on every data
        // connection; the transfer fails when the server cannot do it.
        result = applyOption(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
        if (result == CURLE_OK)
            result = applyOption(CURLOPT_FTPSSLAUTH, static_cast<long>(CURLFTPAUTH_TLS));
    }
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkFTPReq::setDefaults"), result, "Failed to set the FTP defaults");
    return CZyError::Success();
}

std::string RkFTPReq::baseURL() const
{
    std::string url = m_url;
    const zy::url::UrlSplit split = zy::url::SplitUrl(url);
    if (!split.hasScheme)
        url = std::string(scheme()) + "://" + url;
    else if (FXString::ToLower(url.substr(0, split.authority - 3)) == "ftps")
        // Explicit TLS on the usual port: curl's "ftps" would mean TLS
        // before the first reply.
        url = "ftp" + url.substr(split.authority - 3);
    if (m_port > 0)
        url = zy::url::WithPort(url, m_port);
    return url.substr(0, zy::url::SplitUrl(url).path);
}

std::string RkFTPReq::wireUrl(const std::string& whole) const
{
    std::string url = zy::url::WireUrl(whole);
    // Explicit TLS, which this class asks for itself, goes to an "ftp" URL;
    // curl's "ftps" would mean TLS before the first reply.
    if (m_protocol == FTPS && FXString::ToLower(url.substr(0, 7)) == "ftps://")
        url = "ftp" + url.substr(4);
    return url;
}

std::string RkFTPReq::joinedPath(const std::string& path) const
{
    const std::string base = FXString::PercentDecode(m_url.substr(zy::url::SplitUrl(m_url).path));
    const std::string whole = base + "/" + path;
    std::string joined;
    size_t start = 0;
    while (start <= whole.size())
    {
        size_t end = whole.find('/', start);
        if (end == std::string::npos)
            end = whole.size();
        if (end > start)
        {
            if (!joined.empty())
                joined.push_back('/');
            joined.append(whole, start, end - start);
        }
        start = end + 1;
    }
    return joined;
}

CZyError RkFTPReq::splitServerAndURLPath(std::string& server, std::string& path)
{
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::splitServerAndURLPath"), zy::err::kUrlEmpty,
                                     "URL is empty");
    server = baseURL();
    path = "/" + joinedPath(std::string());
    return CZyError::Success();
}

CZyError RkFTPReq::getFullWorkingURL(std::string& url)
{
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::getFullWorkingURL"), zy::err::kUrlEmpty, "URL is empty");
    const operationType type = getOperationType();
    if (type != OP_CHECK_CONNECTION && !m_commandsOnly && type != OP_DELETE && zy::url::IsWholeUrl(m_urlPath))
    {
        url = wireUrl(m_urlPath);
        if (type == OP_DIR_LIST || type == OP_CHECK_DIR_EXISTS)
            url = zy::url::WithDirectorySlash(url);
        return CZyError::Success();
    }
    url = baseURL() + "/";
    // Commands alone run in the login directory; they name their paths.
    if (type == OP_CHECK_CONNECTION || m_commandsOnly || type == OP_DELETE)
        return CZyError::Success();
    const std::string path = joinedPath(m_urlPath);
    if (path.empty())
        return CZyError::Success();
    std::string encoded;
    CZyError error = URLEncodePath(path, encoded);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkFTPReq::getFullWorkingURL"));
    url += encoded;
    // curl lists, and changes into, what ends in '/'.
    if (type == OP_DIR_LIST || type == OP_CHECK_DIR_EXISTS)
        url.push_back('/');
    return CZyError::Success();
}

CZyError RkFTPReq::isOperationSuccess(bool& success)
{
    const long code = responseCode();
    if (getOperationType() == OP_CHECK_CONNECTION)
        success = code > 0;
    else
        success = code >= 100 && code <= 399;
    return CZyError::Success();
}

CZyError RkFTPReq::setHeaders(const std::map<std::string, std::string>& headers)
{
    if (!headers.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::setHeaders"), zy::err::kTransferRefused,
                                     "Headers are not supported over %s", scheme());
    return CZyError::Success();
}

size_t RkFTPReq::readFromBuffer(char* data, size_t size, size_t count, void* self)
{
    RkFTPReq* request = static_cast<RkFTPReq*>(self);
    return takeFromBuffer(data, size * count, request->m_sendPosition, request->m_sendRemaining);
}

CURLcode RkFTPReq::setDirectoryCheckOptions()
{
    return CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_NOBODY, 1L);
}

CZyError RkFTPReq::setMethodParameter()
{
    void* curl = handle();
    for (const commandInfo& command : m_commands)
    {
        if (command.kind != commandInfo::CMD_QUOTE)
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::setMethodParameter"), zy::err::kTransferRefused,
                                         "Command kind [%d] is not supported over %s", static_cast<int>(command.kind),
                                         scheme());
        if (HasLineBreak(command.name))
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::setMethodParameter"), zy::err::kTransferRefused,
                                         "A command with a line break cannot be sent");
    }
    m_listingIsMlsd = false;
    std::vector<std::string> extra = m_pendingCommands;
    CURLcode result = CURLE_OK;
    const operationType type = getOperationType();
    if (m_commandsOnly)
    {
        result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    }
    else
    {
        switch (type)
        {
        case OP_GET:
        case OP_DOWNLOAD:
            break;
        case OP_DIR_LIST:
        {
            bool mlsd = m_listingCommand == LISTING_MLSD;
            if (m_listingCommand == LISTING_AUTO && offersMlsd())
            {
                if (m_serverHasMlsd < 0)
                {
                    CZyError error = probeFeatures();
                    if (error.IsError())
                        return error.Push(ZY_LOC("RkCURL::RkFTPReq::setMethodParameter"));
                }
                mlsd = m_serverHasMlsd == 1;
            }
            if (mlsd && offersMlsd())
            {
                result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, "MLSD");
                m_listingIsMlsd = true;
            }
            break;
        }
        case OP_PUT:
            m_sendPosition = m_postBuffer;
            m_sendRemaining = m_dataSize;
            setOperationReadCallback(this, &RkFTPReq::readFromBuffer);
            [[fallthrough]];
        case OP_UPLOAD:
            result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
            if (result == CURLE_OK)
                result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE,
                                                          static_cast<curl_off_t>(m_dataSize));
            if (result == CURLE_OK)
                result = CurlWrapper::rk_curl_easy_setopt(
                    curl, CURLOPT_FTP_CREATE_MISSING_DIRS,
                    static_cast<long>(m_createMissingDirs ? CURLFTP_CREATE_DIR_RETRY : CURLFTP_CREATE_DIR_NONE));
            break;
        case OP_DELETE:
            if (joinedPath(m_urlPath).empty())
                return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::setMethodParameter"), zy::err::kTransferRefused,
                                             "Invalid URL path .");
            extra.push_back(deleteCommand(m_urlPath));
            result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
            break;
        case OP_CHECK_DIR_EXISTS:
            result = setDirectoryCheckOptions();
            break;
        case OP_FILE_INFO:
        case OP_CHECK_FILE_EXISTS:
        case OP_CHECK_CONNECTION:
        case OP_INFO:
            result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
            break;
        case OP_POST_STRING:
        case OP_POST_BUFFER:
        case OP_NONE:
        default:
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::setMethodParameter"), zy::err::kTransferRefused,
                                         "Operation type [%d] is not supported over %s", static_cast<int>(type),
                                         scheme());
        }
    }
    for (const std::string& line : extra)
    {
        if (HasLineBreak(line))
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::setMethodParameter"), zy::err::kTransferRefused,
                                         "A path with a line break cannot be sent");
    }
    if (result == CURLE_OK)
        result = setQuoteList(extra);
    if (result == CURLE_OK && m_freshConnection)
        result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
    setLastCurlResult(result);
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkFTPReq::setMethodParameter"), result,
                           "Failed to set the options of operation [%d]", static_cast<int>(type));
    return CZyError::Success();
}

CZyError RkFTPReq::unsetOpTypeParameter()
{
    void* curl = handle();
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_QUOTE, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 0L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_UPLOAD, 0L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(-1));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_FTP_CREATE_MISSING_DIRS, static_cast<long>(CURLFTP_CREATE_DIR_NONE));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_POSTQUOTE, static_cast<void*>(nullptr));
    if (m_freshConnection)
    {
        CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 0L);
        m_freshConnection = false;
    }
    if (m_quoteList)
    {
        CurlWrapper::rk_curl_slist_free_all(m_quoteList);
        m_quoteList = nullptr;
    }
    if (m_postQuoteList)
    {
        CurlWrapper::rk_curl_slist_free_all(m_postQuoteList);
        m_postQuoteList = nullptr;
    }
    m_sendPosition = nullptr;
    m_sendRemaining = 0;
    // "No such file" (78) answers an existence question: a missing file is
    // an answered request, a missing directory is reported the way a
    // refused CWD is (9), which the request core counts as missing.
    if (lastCurlResult() == CURLE_REMOTE_FILE_NOT_FOUND)
    {
        if (getOperationType() == OP_CHECK_FILE_EXISTS)
            setLastCurlResult(CURLE_OK);
        else if (getOperationType() == OP_CHECK_DIR_EXISTS)
            setLastCurlResult(CURLE_REMOTE_ACCESS_DENIED);
    }
    return CZyError::Success();
}

CZyError RkFTPReq::collectFilesAndDir(const std::string& listing, std::vector<FileDirInfo>* entries,
                                      std::string path)
{
    if (!entries)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::collectFilesAndDir"), zy::err::kTransferRefused,
                                     "Invalid entry list");
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    std::vector<zy::listing::Entry> parsed;
    zy::listing::Counts counts;
    if (m_listingIsMlsd)
        zy::listing::ParseMlsd(listing.data(), listing.size(), parsed, counts);
    else
        zy::listing::ParseList(listing.data(), listing.size(), static_cast<int64_t>(time(nullptr)), parsed, counts);
    m_skippedLines = counts.skipped;
    for (const zy::listing::Entry& entry : parsed)
        entries->push_back(ToFileDirInfo(entry, path));
    return CZyError::Success();
}

CZyError RkFTPReq::IsFile(const std::string& name, bool& isFile)
{
    if (name.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkFTPReq::IsFile"), zy::err::kTransferRefused, "Empty entry name");
    zy::listing::Entry entry;
    const int64_t now = static_cast<int64_t>(time(nullptr));
    if (zy::listing::ParseMlsdLine(name.data(), name.size(), entry) ||
        zy::listing::ParseUnixLine(name.data(), name.size(), now, entry) ||
        zy::listing::ParseWindowsLine(name.data(), name.size(), entry))
    {
        isFile = !entry.isDirectory;
        return CZyError::Success();
    }
    isFile = name.back() != '/';
    return CZyError::Success();
}
}  // namespace RkCURL
