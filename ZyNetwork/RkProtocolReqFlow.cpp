// The steps every RkProtocolReq request goes through (prepare, perform,
// read the response code, ask the protocol class whether it succeeded, undo
// the per-request options), the data callbacks that move bytes between curl
// and buffers, local files or the listing, and URL encoding.
#define CURL_DISABLE_DEPRECATION 1

#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/Internal/ErrorCodes.h"

#include <string.h>

#include <algorithm>

#include "ZyNetwork/Internal/RkProtocolReqCommon.h"
#include "ZyUtils/ZyString.h"

// Locations name the class's file, wherever its code stands.
static const char kZyFile[] = "ZyNetwork/RkProtocolReq";

namespace RkCURL
{
namespace
{
// An upload without a read callback of its own sends nothing.
size_t ReadNothing(char*, size_t, size_t, void*)
{
    return 0;
}
}  // namespace

// ---- data callbacks ----------------------------------------------------------------

size_t RkProtocolReq::takeFromBuffer(char* data, size_t room, const char*& position, int64_t& remaining)
{
    const size_t n = static_cast<size_t>(std::min<int64_t>(remaining, static_cast<int64_t>(room)));
    if (n > 0)
        memcpy(data, position, n);
    position += n;
    remaining -= static_cast<int64_t>(n);
    return n;
}

// A failure of the local file during the transfer is what the caller needs
// to see (curl only reports that the callback stopped it).
CZyError RkProtocolReq::takeLocalFileError(CZyError error, const char* function)
{
    if (m_localFileError.IsError())
    {
        CZyError fileError = m_localFileError;
        m_localFileError = CZyError::Success();
        return fileError.Push(ZY_LOC(function), "The local file failed during the transfer");
    }
    if (error.IsError())
        error.Push(ZY_LOC(function));
    return error;
}

size_t RkProtocolReq::writeToLocalFile(char* data, size_t size, size_t count, void* self)
{
    RkProtocolReq* request = static_cast<RkProtocolReq*>(self);
    const size_t total = size * count;
    CZyError error = request->m_localFile.Write(data, static_cast<uint32_t>(total));
    if (error.IsError())
    {
        request->m_localFileError = error;
        return 0;  // curl stops with its write error (23)
    }
    return total;
}

size_t RkProtocolReq::passHeader(char* data, size_t size, size_t count, void* self)
{
    RkProtocolReq* request = static_cast<RkProtocolReq*>(self);
    const size_t total = size * count;
    // An FTP reply's last line: three digits and a blank ("550 No access.").
    if (total >= 4 && data[0] >= '0' && data[0] <= '9' && data[1] >= '0' && data[1] <= '9' && data[2] >= '0' &&
        data[2] <= '9' && data[3] == ' ')
    {
        size_t length = total < kMaxReplyLength ? total : kMaxReplyLength;
        while (length > 0 && (data[length - 1] == '\r' || data[length - 1] == '\n'))
            --length;
        request->m_lastReply.assign(data, length);
    }
    return request->m_headerFunction ? request->m_headerFunction(data, size, count, request->m_headerData) : total;
}

size_t RkProtocolReq::readFromLocalFile(char* data, size_t size, size_t count, void* self)
{
    RkProtocolReq* request = static_cast<RkProtocolReq*>(self);
    const size_t room = size * count;
    const int64_t want64 = request->m_localRemaining < static_cast<int64_t>(room) ? request->m_localRemaining
                                                                                 : static_cast<int64_t>(room);
    const uint32_t want = static_cast<uint32_t>(want64);
    if (want == 0)
        return 0;
    uint32_t got = 0;
    CZyError error = request->m_localFile.Read(data, want, got);
    if (error.IsError() || got == 0)
    {
        request->m_localFileError =
            error.IsError() ? error
                            : FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::uploadFile"),
                                                    zy::err::kTransferRefused, "The file ended before the size to send");
        return CURL_READFUNC_ABORT;
    }
    request->m_localRemaining -= got;
    return got;
}

size_t RkProtocolReq::writeToListing(char* data, size_t size, size_t count, void* self)
{
    RkProtocolReq* request = static_cast<RkProtocolReq*>(self);
    const size_t total = size * count;
    if (request->m_listing.size() + total > kMaxListingSize)
        return 0;
    request->m_listing.append(data, total);
    return total;
}

// ---- URL encoding ------------------------------------------------------------------

CZyError RkProtocolReq::URLEncode(const std::string& in, std::string& out)
{
    char* encoded = CurlWrapper::rk_curl_easy_escape(handle(), in.c_str(), 0);
    if (!encoded)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::URLEncode"), zy::err::kTransferRefused,
                                     "Failed to encode the text");
    out = encoded;
    CurlWrapper::rk_curl_free(encoded);
    return CZyError::Success();
}

CZyError RkProtocolReq::URLDecode(const std::string& in, std::string& out)
{
    int length = 0;
    char* decoded = CurlWrapper::rk_curl_easy_unescape(handle(), in.c_str(), 0, &length);
    if (!decoded)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::URLDecode"), zy::err::kTransferRefused,
                                     "Failed to decode the text");
    out.assign(decoded, length > 0 ? static_cast<size_t>(length) : 0);
    CurlWrapper::rk_curl_free(decoded);
    return CZyError::Success();
}

CZyError RkProtocolReq::URLEncodePath(const std::string& in, std::string& out)
{
    CZyError error = URLEncode(in, out);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::URLEncodePath"));
    FXString::ReplaceAll(out, "%2F", "/");
    FXString::ReplaceAll(out, "%5C", "\\");
    return CZyError::Success();
}

CZyError RkProtocolReq::URLDecodePath(const std::string& in, std::string& out)
{
    return URLDecode(in, out);
}

// ---- the request steps ------------------------------------------------------------------

CZyError RkProtocolReq::PrepareForRequest()
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::PrepareForRequest", kNotInitializedPlural);
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::PrepareForRequest"), zy::err::kUrlEmpty,
                                     "URL is empty");
    std::string url;
    CZyError error = getFullWorkingURL(url);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::PrepareForRequest"), "Failed to get working URL");
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_URL, url.c_str());
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::PrepareForRequest"), result, "Failed to set option [%d]",
                           CURLOPT_URL);
    error = setMethodParameter();
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::PrepareForRequest"));
    if (m_resumeFrom > 0 && (m_operationType == OP_DOWNLOAD || m_operationType == OP_GET))
    {
        result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_RESUME_FROM_LARGE,
                                                  static_cast<curl_off_t>(m_resumeFrom));
        m_lastResult = result;
        if (result != CURLE_OK)
            return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::PrepareForRequest"), result,
                               "Failed to set option [%d]", CURLOPT_RESUME_FROM_LARGE);
    }

    // The protocol's callbacks for this operation come first, then the
    // caller's; without either the body is discarded and an upload is empty
    // (curl's own defaults would write to or read from a null stream).
    void* curl = handle();
    if (!m_opWriteFunction && m_writeLocalFile && m_operationType == OP_DOWNLOAD)
        setOperationWriteCallback(this, &RkProtocolReq::writeToLocalFile);
    else if (!m_opWriteFunction && m_operationType == OP_DIR_LIST)
        setOperationWriteCallback(this, &RkProtocolReq::writeToListing);
    if (!m_opReadFunction && m_operationType == OP_UPLOAD && m_localFile.IsValid())
        setOperationReadCallback(this, &RkProtocolReq::readFromLocalFile);
    const bool opWrite = m_opWriteFunction != nullptr;
    const bool opRead = m_opReadFunction != nullptr;
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_WRITEDATA, opWrite ? m_opWriteData : m_writeData);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION,
                                     opWrite ? m_opWriteFunction
                                             : (m_writeFunction ? m_writeFunction : &RkProtocolReq::getContentSize));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_READDATA, opRead ? m_opReadData : m_readData);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_READFUNCTION,
                                     opRead ? m_opReadFunction : (m_readFunction ? m_readFunction : &ReadNothing));
    // Header lines pass through the request, which keeps the server's last
    // reply line, on their way to the caller's callback.
    m_lastReply.clear();
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERDATA, static_cast<void*>(this));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &RkProtocolReq::passHeader);
    return CZyError::Success();
}

CZyError RkProtocolReq::SendReqest()
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::SendReqest", kNotInitializedSingular);
    CZyError error = PrepareForRequest();
    if (error.IsError())
    {
        unSetMethodParameter();
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::SendReqest"));
    }
    error = Execute();
    if (error.IsError())
        error.Push(ZY_LOC("RkCURL::RkProtocolReq::SendReqest"));
    CZyError unset = unSetMethodParameter();
    if (unset.IsError())
    {
        if (error.IsError())
        {
            for (const FXErrorItemPtr& item : unset.GetItems())
                error.Push(item);
        }
        else
        {
            error = unset.Push(ZY_LOC("RkCURL::RkProtocolReq::SendReqest"));
        }
    }
    return error;
}

CZyError RkProtocolReq::Execute()
{
    RK_REQUIRE_INIT("RkCURL::RkProtocolReq::Execute", kNotInitializedPlural);
    resetCurlErrorBuffer();
    m_responseCode = 0;
    CURLcode result = CurlWrapper::rk_curl_easy_perform(handle());
    m_lastResult = result;
    if (result != CURLE_OK)
    {
        CZyError error = ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::Execute"), result,
                                     "CURL perform failed.Curl ErrorCode : [%d], Error Message : [%s]", result,
                                     failureText(result).c_str());
        // What the server said last, where it said anything: its reply code
        // (for the caller) and its reply line (on the stack).
        long code = 0;
        if (CurlWrapper::rk_curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &code) == CURLE_OK)
            m_responseCode = code;
        if (!m_lastReply.empty())
            PushRkCURL(error, ZY_LOC("RkCURL::RkProtocolReq::Execute"), result, "Last reply from the server: [%s]",
                       m_lastReply.c_str());
        return error;
    }
    CZyError error = getResponseCode();
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::Execute"), "Failed to get ResponseCode");
    bool ok = false;
    error = isOperationSuccess(ok);
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::Execute"), "Failed to determine success or failure.");
    if (!ok)
    {
        error = ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::Execute"), m_lastResult,
                            "Requested Operation Failed. Return value from CURL: [%d] Response code from server: [%ld]",
                            m_lastResult, m_responseCode);
        if (!m_lastReply.empty())
            PushRkCURL(error, ZY_LOC("RkCURL::RkProtocolReq::Execute"), m_lastResult,
                       "Last reply from the server: [%s]", m_lastReply.c_str());
        return error;
    }
    return CZyError::Success();
}

CZyError RkProtocolReq::getResponseCode()
{
    long code = 0;
    CURLcode result = CurlWrapper::rk_curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &code);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::getResponseCode"), result,
                           "CURL perform failed.ErrorCode : [%d], Error Message : [%s]", result, errorBufferText());
    m_responseCode = code;
    return CZyError::Success();
}

CZyError RkProtocolReq::unSetMethodParameter()
{
    void* curl = handle();
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_WRITEDATA, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, static_cast<RkDataCallback>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_READDATA, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_READFUNCTION, static_cast<RkDataCallback>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERDATA, static_cast<void*>(nullptr));
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, static_cast<RkDataCallback>(nullptr));
    m_opWriteData = nullptr;
    m_opWriteFunction = nullptr;
    m_opReadData = nullptr;
    m_opReadFunction = nullptr;
    if (m_resumeFrom > 0)
        CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(0));
    CZyError error = unsetOpTypeParameter();
    if (error.IsError())
        error.Push(ZY_LOC("RkCURL::RkProtocolReq::unSetMethodParameter"));
    return error;
}
}  // namespace RkCURL
