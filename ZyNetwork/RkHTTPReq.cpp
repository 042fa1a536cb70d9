// HTTP and HTTPS requests: the working URL, the method options of each
// operation and the success rule. Listing pages are read by
// Internal/ListingHtml.h.
#include "ZyNetwork/RkHTTPReq.h"
#include "ZyUtils/Internal/ErrorCodes.h"

#include <string.h>

#include "ZyNetwork/Internal/ListingHtml.h"
#include "ZyNetwork/Internal/RkProtocolReqCommon.h"
#include "ZyNetwork/Internal/UrlText.h"
#include "ZyUtils/ZyString.h"

static const char kZyFile[] = "ZyNetwork/RkHTTPReq";

namespace RkCURL
{
namespace
{
bool EndsWith(const std::string& text, char c)
{
    return !text.empty() && text.back() == c;
}
}  // namespace

RkHTTPReq::RkHTTPReq(HTTPProtocol protocol)
    : m_protocol(protocol),
      m_headerList(nullptr),
      m_sendPosition(nullptr),
      m_sendRemaining(0)
{
}

RkHTTPReq::RkHTTPReq(const RkHTTPReq& other)
    : RkProtocolReq(other),
      m_protocol(other.m_protocol),
      m_headers(other.m_headers),
      m_headerList(nullptr),
      m_sendPosition(nullptr),
      m_sendRemaining(0)
{
}

RkHTTPReq& RkHTTPReq::operator=(const RkHTTPReq& other)
{
    if (this != &other)
    {
        RkProtocolReq::operator=(other);
        m_protocol = other.m_protocol;
        m_headers = other.m_headers;
    }
    return *this;
}

RkHTTPReq::~RkHTTPReq()
{
    if (m_headerList)
        CurlWrapper::rk_curl_slist_free_all(m_headerList);
}

CZyError RkHTTPReq::isOperationSuccess(bool& success)
{
    const long code = responseCode();
    if (m_operationType == OP_CHECK_CONNECTION)
    {
        // Any answer shows that the server can be reached.
        success = code > 0;
        return CZyError::Success();
    }
    success = (code >= 200 && code <= 299) || (code >= 300 && code <= 399 && !getLinkRedirects());
    return CZyError::Success();
}

CZyError RkHTTPReq::setHeaders(const std::map<std::string, std::string>& headers)
{
    for (const auto& header : headers)
    {
        if (header.first.empty() || header.first.find_first_of(":\r\n") != std::string::npos ||
            header.second.find_first_of("\r\n") != std::string::npos)
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::setHeaders"), zy::err::kTransferRefused,
                                         "Invalid header [%s]", header.first.c_str());
    }
    m_headers = headers;
    return CZyError::Success();
}

std::string RkHTTPReq::baseURL() const
{
    std::string url = m_url;
    if (!zy::url::SplitUrl(url).hasScheme)
        url = (m_protocol == HTTPS ? "https://" : "http://") + url;
    return m_port > 0 ? zy::url::WithPort(url, m_port) : url;
}

CZyError RkHTTPReq::getFullWorkingURL(std::string& url)
{
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::getFullWorkingURL"), zy::err::kUrlEmpty, "URL is empty");
    if (m_operationType != OP_CHECK_CONNECTION && zy::url::IsWholeUrl(m_urlPath))
    {
        // A whole URL goes as typed: its query and escapes kept, its
        // fragment (never sent) dropped.
        url = zy::url::WireUrl(m_urlPath);
    }
    else
    {
        url = baseURL();
        if (m_operationType != OP_CHECK_CONNECTION && !m_urlPath.empty())
        {
            std::string encoded;
            CZyError error = URLEncodePath(m_urlPath, encoded);
            if (error.IsError())
                return error.Push(ZY_LOC("RkCURL::RkHTTPReq::getFullWorkingURL"));
            if (zy::url::SplitUrl(url).path == url.size())
                url.push_back('/');
            if (EndsWith(url, '/') && encoded[0] == '/')
                url.pop_back();
            else if (!EndsWith(url, '/') && encoded[0] != '/')
                url.push_back('/');
            url += encoded;
        }
    }
    bool first = url.find('?') == std::string::npos;
    for (const commandInfo& command : m_commands)
    {
        if (command.kind != commandInfo::CMD_QUERY)
            continue;
        std::string name, value;
        CZyError error = URLEncode(command.name, name);
        if (!error.IsError())
            error = URLEncode(command.value, value);
        if (error.IsError())
            return error.Push(ZY_LOC("RkCURL::RkHTTPReq::getFullWorkingURL"));
        url += (first ? "?" : "&") + name + "=" + value;
        first = false;
    }
    return CZyError::Success();
}

CZyError RkHTTPReq::splitServerAndURLPath(std::string& server, std::string& path)
{
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::splitServerAndURLPath"), zy::err::kUrlEmpty,
                                     "URL is empty");
    const std::string url = baseURL();
    const size_t pathStart = zy::url::SplitUrl(url).path;
    if (pathStart == url.size())
    {
        server = url;
        path = "/";
    }
    else
    {
        server = url.substr(0, pathStart);
        path = url.substr(pathStart);
    }
    return CZyError::Success();
}

CZyError RkHTTPReq::IsFile(const std::string& name, bool& isFile)
{
    if (name.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::IsFile"), zy::err::kTransferRefused, "Empty entry name");
    isFile = !EndsWith(name, '/');
    return CZyError::Success();
}

CZyError RkHTTPReq::setDefaults()
{
    struct
    {
        CURLoption option;
        const char* text;
        long number;
    } const kDefaults[] = {
        // Only HTTP(S), also when following redirects.
        {CURLOPT_PROTOCOLS_STR, "http,https", 0},
        {CURLOPT_REDIR_PROTOCOLS_STR, "http,https", 0},
        // No signals: the library runs inside other programs and threads.
        {CURLOPT_NOSIGNAL, nullptr, 1},
        {CURLOPT_BUFFERSIZE, nullptr, kReceiveBufferSize},
    };
    for (const auto& option : kDefaults)
    {
        const CURLcode result =
            option.text ? applyOption(option.option, std::string(option.text)) : applyOption(option.option, option.number);
        if (result != CURLE_OK)
            return ErrorRkCURL(ZY_LOC("RkCURL::RkHTTPReq::setDefaults"), result, "Failed to set option [%d]",
                               option.option);
    }
    return CZyError::Success();
}

size_t RkHTTPReq::readFromBuffer(char* data, size_t size, size_t count, void* self)
{
    RkHTTPReq* request = static_cast<RkHTTPReq*>(self);
    return takeFromBuffer(data, size * count, request->m_sendPosition, request->m_sendRemaining);
}

CZyError RkHTTPReq::setMethodParameter()
{
    void* curl = handle();

    // Headers: those of setHeaders, those added one by one, those of this
    // call; "Expect:" (empty) keeps curl from waiting for "100 Continue".
    std::vector<std::string> lines;
    for (const auto& header : m_headers)
        lines.push_back(header.first + ": " + header.second);
    for (const auto& header : requestedHeaders())
        lines.push_back(header.first + ": " + header.second);
    for (const commandInfo& command : m_commands)
    {
        if (command.kind == commandInfo::CMD_HEADER)
            lines.push_back(command.name + ": " + command.value);
        else if (command.kind != commandInfo::CMD_QUERY)
            return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::setMethodParameter"), zy::err::kTransferRefused,
                                         "Command kind [%d] is not supported over HTTP",
                                         static_cast<int>(command.kind));
    }
    if (skipExpectContinue())
        lines.push_back("Expect:");
    for (const std::string& line : lines)
    {
        curl_slist* next = CurlWrapper::rk_curl_slist_append(m_headerList, line.c_str());
        if (!next)
            return ErrorRkCURL(ZY_LOC("RkCURL::RkHTTPReq::setMethodParameter"), CURLE_OUT_OF_MEMORY,
                               "Failed to build the request headers");
        m_headerList = next;
    }
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HTTPHEADER, static_cast<void*>(m_headerList));

#define RK_HTTP_SET(option, value)                                                          \
    do                                                                                      \
    {                                                                                       \
        if (result == CURLE_OK)                                                             \
        {                                                                                   \
            result = CurlWrapper::rk_curl_easy_setopt(curl, option, value);                 \
            if (result != CURLE_OK)                                                         \
            {                                                                               \
                setLastCurlResult(result);                                                  \
                return ErrorRkCURL(ZY_LOC("RkCURL::RkHTTPReq::setMethodParameter"), result, \
                                   "Failed to set option [%d]", option);                    \
            }                                                                               \
        }                                                                                   \
    } while (0)

    switch (m_operationType)
    {
    case OP_GET:
    case OP_DOWNLOAD:
    case OP_DIR_LIST:
        RK_HTTP_SET(CURLOPT_HTTPGET, 1L);
        break;
    case OP_POST_STRING:
        RK_HTTP_SET(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_postString.size()));
        RK_HTTP_SET(CURLOPT_POSTFIELDS, static_cast<const char*>(m_postString.c_str()));
        break;
    case OP_POST_BUFFER:
        RK_HTTP_SET(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
        RK_HTTP_SET(CURLOPT_POSTFIELDS, static_cast<const char*>(m_postBuffer));
        break;
    case OP_PUT:
        m_sendPosition = m_postBuffer;
        m_sendRemaining = m_dataSize;
        RK_HTTP_SET(CURLOPT_UPLOAD, 1L);
        RK_HTTP_SET(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
        setOperationReadCallback(this, &RkHTTPReq::readFromBuffer);
        break;
    case OP_UPLOAD:
        // The core reads the file while curl sends it.
        RK_HTTP_SET(CURLOPT_UPLOAD, 1L);
        RK_HTTP_SET(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
        break;
    case OP_DELETE:
        if (m_dataSize > 0)
        {
            RK_HTTP_SET(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_dataSize));
            RK_HTTP_SET(CURLOPT_POSTFIELDS, static_cast<const char*>(m_postBuffer));
        }
        else
        {
            RK_HTTP_SET(CURLOPT_HTTPGET, 1L);
        }
        RK_HTTP_SET(CURLOPT_CUSTOMREQUEST, "DELETE");
        break;
    case OP_FILE_INFO:
    case OP_CHECK_FILE_EXISTS:
    case OP_CHECK_DIR_EXISTS:
    case OP_CHECK_CONNECTION:
    case OP_INFO:
        RK_HTTP_SET(CURLOPT_NOBODY, 1L);
        break;
    case OP_NONE:
    default:
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::setMethodParameter"), zy::err::kTransferRefused,
                                     "Unsupported operation type [%d]", static_cast<int>(m_operationType));
    }
#undef RK_HTTP_SET
    setLastCurlResult(result);
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkHTTPReq::setMethodParameter"), result, "Failed to set option [%d]",
                           CURLOPT_HTTPHEADER);
    return CZyError::Success();
}

// Back to a plain GET without body, headers or upload, whatever the
// operation set.
CZyError RkHTTPReq::unsetOpTypeParameter()
{
    void* curl = handle();
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(-1));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_UPLOAD, 0L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_NOBODY, 0L);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(-1));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HTTPHEADER, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    if (m_headerList)
    {
        CurlWrapper::rk_curl_slist_free_all(m_headerList);
        m_headerList = nullptr;
    }
    m_sendPosition = nullptr;
    m_sendRemaining = 0;
    return CZyError::Success();
}

CZyError RkHTTPReq::collectFilesAndDir(const std::string& listing, std::vector<FileDirInfo>* entries,
                                       std::string path)
{
    if (!entries)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkHTTPReq::collectFilesAndDir"), zy::err::kTransferRefused,
                                     "Invalid entry list");
    // Relative links resolve against the listed directory; absolute ones
    // must lie directly inside it. The path of a base URL counts too.
    std::string server, basePath;
    std::string listed = path;
    if (!m_url.empty() && !splitServerAndURLPath(server, basePath).IsError() && basePath != "/" &&
        listed.compare(0, basePath.size(), basePath) != 0)
    {
        std::string decodedBase = FXString::PercentDecode(basePath);
        if (!EndsWith(decodedBase, '/'))
            decodedBase.push_back('/');
        while (!listed.empty() && listed[0] == '/')
            listed.erase(0, 1);
        listed = decodedBase + listed;
    }
    std::string parent = path;
    while (EndsWith(parent, '/'))
        parent.pop_back();
    std::vector<zy::listing::Entry> parsed;
    zy::listing::ReadHtmlListing(listing, zy::listing::DirectoryPrefix(listed), parsed);
    for (const zy::listing::Entry& entry : parsed)
        entries->push_back(ToFileDirInfo(entry, parent));
    return CZyError::Success();
}
}  // namespace RkCURL
