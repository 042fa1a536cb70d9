#include "Causes.h"

#include <cstdio>
#include <cstring>

#include "Platform.h"
#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/RkCURLError.h"

namespace zytool
{
namespace
{
// curl result codes, by the numbers curl documents.
const char* CurlCause(int code, const std::string& scheme)
{
    switch (code)
    {
    case 1: return "the loaded libcurl does not support this protocol";
    case 3: return "malformed URL";
    case 5: return "proxy name not found";
    case 6: return "host name not found";
    case 7: return "connection refused";
    case 9: return "permission denied on the server";
    case 18: return "connection closed before the whole body arrived";
    case 19: return "the server cannot send that file";
    case 21: return "the server refused the command";
    case 23: return "cannot write the local file";
    case 25: return "the server refused the upload";
    case 26: return "cannot read the local file";
    case 28: return "timed out";
    case 33: return "the server cannot resume";
    case 35: return "TLS handshake failed";
    case 42: return "interrupted";
    case 47: return "too many redirects";
    case 52: return "the server closed the connection without a reply";
    case 55: return "connection reset while sending";
    case 56: return "connection reset";
    case 58: return "cannot use the client certificate";
    case 60:
        return scheme == "sftp" ? "host key does not match known_hosts" : "server certificate not trusted";
    case 63: return "file larger than allowed";
    case 67: return "login refused";
    case 77: return "cannot read the CA certificates";
    case 78: return "not found on the server";
    case 79: return "SSH error";
    case 94: return "authentication failed";
    case 97: return "proxy handshake failed";
    default: return nullptr;
    }
}
}  // namespace

const char* HttpReason(int status)
{
    switch (status)
    {
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 407: return "Proxy Authentication Required";
    case 408: return "Request Timeout";
    case 409: return "Conflict";
    case 410: return "Gone";
    case 413: return "Content Too Large";
    case 416: return "Range Not Satisfiable";
    case 429: return "Too Many Requests";
    case 500: return "Internal Server Error";
    case 501: return "Not Implemented";
    case 502: return "Bad Gateway";
    case 503: return "Service Unavailable";
    case 504: return "Gateway Timeout";
    default: return "";
    }
}

std::string TransferCause(const CZyError& error, const FailureFacts& facts)
{
    const int code = RkCURL::GetRkCURL(error);
    const bool http = facts.scheme == "http" || facts.scheme == "https";
    // An FTP server refuses a file it will not take with 550, whatever curl
    // made of it (the refused STOR, or a refused data connection).
    if (code >= 0 && facts.upload && facts.status == 550 && (facts.scheme == "ftp" || facts.scheme == "ftps"))
        return "permission denied on the server";
    if (code > 0)
    {
        const char* cause = CurlCause(code, facts.scheme);
        if (cause)
            return cause;
        char text[48];
        std::snprintf(text, sizeof text, "curl error %d", code);
        return text;
    }
    if (code == 0 && facts.status > 0)
    {
        if (!http)
        {
            char text[48];
            std::snprintf(text, sizeof text, "the server answered %d", facts.status);
            return text;
        }
        std::string reason = facts.reason.empty() ? HttpReason(facts.status) : facts.reason;
        char text[24];
        std::snprintf(text, sizeof text, "HTTP %d", facts.status);
        return reason.empty() ? std::string(text) : std::string(text) + " " + reason;
    }
    // A request object without a curl handle: usually no libcurl at all.
    if (error.HasMessage("Failed to get CURL handle") && !CurlWrapper::rk_curl_version_info(CURLVERSION_NOW))
        return std::string("libcurl could not be loaded (") + MissingCurlAdvice() + ")";
    return error.GetErrorMessage();
}

bool IsTransient(const CZyError& error, int status)
{
    switch (RkCURL::GetRkCURL(error))
    {
    case 0: return status >= 500 && status <= 599;
    case 7:   // refused
    case 18:  // cut short
    case 28:  // timed out
    case 52:  // closed without a reply
    case 55:  // reset while sending
    case 56:  // reset
        return true;
    default: return false;
    }
}

std::string RequestUrl(const std::string& typed)
{
    const size_t scheme = typed.find("://");
    const size_t pathStart = scheme == std::string::npos ? 0 : typed.find_first_of("/?#", scheme + 3);
    if (pathStart == std::string::npos)
        return typed;
    std::string url = typed.substr(0, pathStart);
    static const char kHex[] = "0123456789ABCDEF";
    for (size_t i = pathStart; i < typed.size() && typed[i] != '#'; ++i)
    {
        const unsigned char c = static_cast<unsigned char>(typed[i]);
        if (c <= 0x20 || c >= 0x7F || std::strchr("\"<>\\^`{|}", c))
        {
            url += '%';
            url += kHex[c >> 4];
            url += kHex[c & 15];
        }
        else
        {
            url += static_cast<char>(c);
        }
    }
    return url;
}

std::string MaskCredentials(const std::string& url)
{
    const size_t scheme = url.find("://");
    if (scheme == std::string::npos)
        return url;
    const size_t start = scheme + 3;
    const size_t end = url.find_first_of("/?#", start);
    const size_t at = url.rfind('@', end == std::string::npos ? std::string::npos : end);
    if (at == std::string::npos || at < start)
        return url;
    const size_t colon = url.find(':', start);
    if (colon == std::string::npos || colon > at)
        return url;
    return url.substr(0, colon + 1) + "***" + url.substr(at);
}
}  // namespace zytool
