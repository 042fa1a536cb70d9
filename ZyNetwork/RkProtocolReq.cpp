// The common request class of the transfers over libcurl: settings, the
// request operations and the steps every request goes through (prepare,
// perform, read the response code, ask the protocol class whether it
// succeeded, undo the per-request options).
//
// CURLINFO_CONTENT_LENGTH_DOWNLOAD (a double) is what file sizes are read
// with; curl marks it deprecated but keeps it.
// Longer than our usual 600 lines: the class has some forty operations, each
// a short check-set-run sequence; splitting them by kind would scatter the
// one request flow they share.
#define CURL_DISABLE_DEPRECATION 1

#include "ZyNetwork/RkProtocolReq.h"

#include <string.h>

#include <algorithm>

#include <new>

#include "ZyNetwork/Internal/OsCurl.h"
#include "ZyUtils/ZyString.h"

static const char kZyFile[] = "ZyNetwork/RkProtocolReq";

namespace RkCURL
{
namespace
{
const char kNotInitializedPlural[] =
    "RkProtocol class is not initialized yet. Call initialize function before any other functions.";
const char kNotInitializedSingular[] =
    "RkProtocol class is not initialized yet. Call initialize function before any other function.";
const char kNoErrorBuffer[] = " Error buffer is not initialized";
const char kInvalidUrlPath[] = "Invalid URL path .";
const char kInvalidBufferSize[] = "Invalid Buffer size.";
const size_t kErrorBufferSize = CURL_ERROR_SIZE;  // 256
const long kDefaultTimeoutSeconds = 1080;         // 18 minutes
// Redirects followed per request: libcurl before 8.3 follows a loop for
// ever (until the time limit).
const long kMaxRedirects = 30;
const long kSslOptionsNativeCA = CURLSSLOPT_NATIVE_CA;  // 16
const char kDefaultNoProxy[] = "127.0.0.1,localhost,::1,0:0:0:0:0:0:0:1";

// An upload without a read callback of its own sends nothing.
size_t ReadNothing(char*, size_t, size_t, void*)
{
    return 0;
}
}  // namespace

// Owns the easy handle: made with rk_curl_easy_init, cleaned up on
// destruction.
class RkProtocolReq::Handle
{
public:
    Handle() : m_curl(CurlWrapper::rk_curl_easy_init()) {}
    ~Handle()
    {
        if (m_curl)
            CurlWrapper::rk_curl_easy_cleanup(m_curl);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    void* get() const { return m_curl; }

private:
    void* m_curl;
};

bool RkProtocolReq::m_gbInit = false;
void** RkProtocolReq::ssl_mutex = nullptr;

RkProtocolReq::RkProtocolReq()
    : m_port(0),
      m_postBuffer(nullptr),
      m_dataSize(0),
      m_operationType(OP_NONE),
      m_proxySet(false),
      m_errorBuffer(nullptr),
      m_lastResult(0),
      m_responseCode(0),
      m_initialized(false),
      m_useCAFile(0),
      m_followRedirects(false),
      m_configState(0),
      m_skipExpectContinue(false),
      m_writeData(nullptr),
      m_writeFunction(nullptr),
      m_readData(nullptr),
      m_readFunction(nullptr),
      m_headerData(nullptr),
      m_headerFunction(nullptr),
      m_opWriteData(nullptr),
      m_opWriteFunction(nullptr),
      m_opReadData(nullptr),
      m_opReadFunction(nullptr),
      m_traceData(nullptr),
      m_traceFunction(nullptr),
      m_progressData(nullptr),
      m_progressFunction(nullptr),
      m_writeLocalFile(false),
      m_localRemaining(0)
{
}

RkProtocolReq::RkProtocolReq(const RkProtocolReq& other) : RkProtocolReq()
{
    copySettings(other);
    if (other.m_initialized)
        copyHandleSettings(other);
}

RkProtocolReq& RkProtocolReq::operator=(const RkProtocolReq& other)
{
    if (this == &other)
        return *this;
    releaseHandle();
    copySettings(other);
    if (other.m_initialized)
        copyHandleSettings(other);
    return *this;
}

RkProtocolReq::~RkProtocolReq()
{
    releaseHandle();
}

void RkProtocolReq::releaseHandle()
{
    m_handle.reset();
    delete[] m_errorBuffer;
    m_errorBuffer = nullptr;
    m_initialized = false;
    m_configState = 0;
}

void RkProtocolReq::copySettings(const RkProtocolReq& other)
{
    m_url = other.m_url;
    m_urlPath = other.m_urlPath;
    m_port = other.m_port;
    m_userName = other.m_userName;
    m_password = other.m_password;
    m_sourceFile = other.m_sourceFile;
    m_postString = other.m_postString;
    m_postBuffer = other.m_postBuffer;
    m_dataSize = other.m_dataSize;
    m_operationType = other.m_operationType;
    m_operationName = other.m_operationName;
    m_proxySet = other.m_proxySet;
    m_commands = other.m_commands;
    m_lastResult = other.m_lastResult;
    m_responseCode = other.m_responseCode;
    m_useCAFile = other.m_useCAFile;
    m_followRedirects = other.m_followRedirects;
    m_skipExpectContinue = other.m_skipExpectContinue;
    m_writeData = other.m_writeData;
    m_writeFunction = other.m_writeFunction;
    m_readData = other.m_readData;
    m_readFunction = other.m_readFunction;
    m_headerData = other.m_headerData;
    m_headerFunction = other.m_headerFunction;
    m_traceData = other.m_traceData;
    m_traceFunction = other.m_traceFunction;
    m_progressData = other.m_progressData;
    m_progressFunction = other.m_progressFunction;
    m_requestedHeaders = other.m_requestedHeaders;
    m_options = other.m_options;
}

// A new handle and error buffer with the source's curl settings applied in
// the order they were made.
CZyError RkProtocolReq::copyHandleSettings(const RkProtocolReq& other)
{
    m_errorBuffer = new (std::nothrow) char[kErrorBufferSize];
    if (!m_errorBuffer)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::RkProtocolReq"), 1,
                                     "Failed to allocate memory for Error buffer");
    memset(m_errorBuffer, 0, kErrorBufferSize);
    m_handle.reset(new (std::nothrow) Handle());
    if (!m_handle || !m_handle->get())
    {
        releaseHandle();
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::RkProtocolReq"), -1, "Failed to get CURL handle");
    }
    void* curl = m_handle->get();
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, static_cast<void*>(m_errorBuffer));
    for (size_t i = 0; result == CURLE_OK && i < m_options.size(); ++i)
    {
        const RecordedOption& option = m_options[i];
        result = option.isText ? CurlWrapper::rk_curl_easy_setopt(curl, option.option, option.text.c_str())
                               : CurlWrapper::rk_curl_easy_setopt(curl, option.option, option.number);
    }
    if (result == CURLE_OK && m_traceFunction)
    {
        CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, m_traceFunction);
        CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_DEBUGDATA, m_traceData);
    }
    if (result == CURLE_OK && m_progressFunction)
    {
        CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION,
                                         reinterpret_cast<void*>(m_progressFunction));
        CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_XFERINFODATA, m_progressData);
    }
    if (result != CURLE_OK)
    {
        releaseHandle();
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::RkProtocolReq"), result, "Failed to copy the settings");
    }
    m_configState = other.m_configState;
    m_initialized = true;
    return CZyError::Success();
}

void RkProtocolReq::recordOption(CURLoption option, bool isText, long number, const std::string& text)
{
    for (RecordedOption& recorded : m_options)
    {
        if (recorded.option == option)
        {
            recorded.isText = isText;
            recorded.number = number;
            recorded.text = text;
            return;
        }
    }
    m_options.push_back(RecordedOption{option, isText, number, text});
}

CURLcode RkProtocolReq::applyOption(CURLoption option, long value)
{
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), option, value);
    m_lastResult = result;
    if (result == CURLE_OK)
        recordOption(option, false, value, std::string());
    return result;
}

CURLcode RkProtocolReq::applyOption(CURLoption option, const std::string& value)
{
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), option, value.c_str());
    m_lastResult = result;
    if (result == CURLE_OK)
        recordOption(option, true, 0, value);
    return result;
}

void* RkProtocolReq::handle() const
{
    return m_handle ? m_handle->get() : nullptr;
}

const char* RkProtocolReq::errorBufferText() const
{
    return m_errorBuffer ? m_errorBuffer : kNoErrorBuffer;
}

void RkProtocolReq::initializeCurlLibrary()
{
    if (!m_gbInit && CurlWrapper::rk_curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK)
        m_gbInit = true;
}

void RkProtocolReq::deinitializeCurlLibrary() {}

CZyError RkProtocolReq::initialize(unsigned int useCAFile)
{
    // A second call starts again from a new handle.
    releaseHandle();
    m_options.clear();
    m_useCAFile = useCAFile;
    m_errorBuffer = new (std::nothrow) char[kErrorBufferSize];
    if (!m_errorBuffer)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::initialize"), 1,
                                     "Failed to allocate memory for Error buffer");
    memset(m_errorBuffer, 0, kErrorBufferSize);
    m_handle.reset(new (std::nothrow) Handle());
    if (!m_handle)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::initialize"), -1, "Failed to get CURL Context");
    if (!m_handle->get())
    {
        m_handle.reset();
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::initialize"), -1, "Failed to get CURL handle");
    }
    m_configState = 1;
    CZyError error = setDefaultConfiguration();
    if (!error.IsError())
        error = setDefaults();
    if (error.IsError())
        return error.Push(ZY_LOC("RkCURL::RkProtocolReq::initialize"));
    m_initialized = true;
    return CZyError::Success();
}

CZyError RkProtocolReq::setDefaultConfiguration()
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setDefaultConfiguration";
    std::string caBundle;
    const bool setCABundle = zyos::DefaultCABundle(caBundle);

    resetCurlErrorBuffer();
    m_configState = 2;

    // The default time limit; like SetTimeOut, but applied before the
    // object counts as initialised. Its result is not checked.
    applyOption(CURLOPT_TIMEOUT, kDefaultTimeoutSeconds);

    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_ERRORBUFFER, static_cast<void*>(m_errorBuffer));
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_ERRORBUFFER);

    if (m_followRedirects)
    {
        if ((result = applyOption(CURLOPT_FOLLOWLOCATION, 1L)) != CURLE_OK)
            return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_FOLLOWLOCATION);
        if ((result = applyOption(CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL))) != CURLE_OK)
            return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_POSTREDIR);
        if ((result = applyOption(CURLOPT_MAXREDIRS, kMaxRedirects)) != CURLE_OK)
            return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_MAXREDIRS);
    }
    else if ((result = applyOption(CURLOPT_FOLLOWLOCATION, 0L)) != CURLE_OK)
    {
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_FOLLOWLOCATION);
    }

    if ((result = applyOption(CURLOPT_SSL_VERIFYPEER, 1L)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_SSL_VERIFYPEER);
    if ((result = applyOption(CURLOPT_SSL_VERIFYHOST, 2L)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_SSL_VERIFYHOST);
    if ((result = applyOption(CURLOPT_SSL_OPTIONS, kSslOptionsNativeCA)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d] with mask [%d]", CURLOPT_SSL_OPTIONS,
                           static_cast<int>(kSslOptionsNativeCA));
    if (setCABundle && (result = applyOption(CURLOPT_CAINFO, caBundle)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_CAINFO);
    return CZyError::Success();
}

// ---- accessors ---------------------------------------------------------------

void RkProtocolReq::setWriteFunctionPointer(void* userData, RkDataCallback callback)
{
    m_writeData = userData;
    m_writeFunction = callback;
}

void RkProtocolReq::setReadFunctionPointer(void* userData, RkDataCallback callback)
{
    m_readData = userData;
    m_readFunction = callback;
}

void RkProtocolReq::setHeaderWriteFunctionPointer(void* userData, RkDataCallback callback)
{
    m_headerData = userData;
    m_headerFunction = callback;
}

void RkProtocolReq::setOperationWriteCallback(void* userData, RkDataCallback callback)
{
    m_opWriteData = userData;
    m_opWriteFunction = callback;
}

void RkProtocolReq::setOperationReadCallback(void* userData, RkDataCallback callback)
{
    m_opReadData = userData;
    m_opReadFunction = callback;
}

void RkProtocolReq::addRequestedHeaders(const std::string& name, const std::string& value)
{
    m_requestedHeaders.emplace_back(name, value);
}

void RkProtocolReq::getLastCurlErrorCodeAndErrorMsg(int& code, std::string& message) const
{
    code = m_lastResult;
    message = m_errorBuffer ? std::string(m_errorBuffer) : std::string();
}

void RkProtocolReq::resetCurlErrorCodeAndErrorMsg()
{
    m_lastResult = 0;
    resetCurlErrorBuffer();
}

void RkProtocolReq::resetCurlErrorBuffer()
{
    if (m_errorBuffer)
        memset(m_errorBuffer, 0, kErrorBufferSize);
}

size_t RkProtocolReq::getContentSize(char*, size_t size, size_t count, void*)
{
    return size * count;
}

// ---- settings ----------------------------------------------------------------

#define RK_REQUIRE_INIT(function, text)                                   \
    do                                                                    \
    {                                                                     \
        if (!m_initialized)                                               \
            return FXErrorUtil::ErrorInt(ZY_LOC(function), 1, "%s", text); \
    } while (0)

#define RK_SET(function, option, value)                                                              \
    do                                                                                               \
    {                                                                                                \
        CURLcode setResult = applyOption(option, value);                                             \
        if (setResult != CURLE_OK)                                                                   \
            return ErrorRkCURL(ZY_LOC(function), setResult, "Failed to set option [%d]", option); \
    } while (0)

CZyError RkProtocolReq::setCredentials(const std::string& user, const std::string& password)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setCredentials";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_USERPWD, user + ":" + password);
    return CZyError::Success();
}

CZyError RkProtocolReq::SetTimeOut(long seconds)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::SetTimeOut";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_TIMEOUT, seconds);
    return CZyError::Success();
}

CZyError RkProtocolReq::SetConnectionTimeOut(long seconds)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::SetConnectionTimeOut";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_CONNECTTIMEOUT, seconds);
    return CZyError::Success();
}

CZyError RkProtocolReq::setKeepAlive(bool on, long idleSeconds, long intervalSeconds)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setKeepAlive";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    if (on)
    {
        RK_SET(kFunction, CURLOPT_TCP_KEEPALIVE, 1L);
        RK_SET(kFunction, CURLOPT_TCP_KEEPIDLE, idleSeconds);
        RK_SET(kFunction, CURLOPT_TCP_KEEPINTVL, intervalSeconds);
    }
    else
    {
        RK_SET(kFunction, CURLOPT_TCP_KEEPALIVE, 0L);
    }
    return CZyError::Success();
}

// Before initialize only the flag is kept; initialize applies it.
CZyError RkProtocolReq::setLinkRedirects(bool follow)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setLinkRedirects";
    m_followRedirects = follow;
    if (!m_initialized)
        return CZyError::Success();
    if (follow)
    {
        RK_SET(kFunction, CURLOPT_FOLLOWLOCATION, 1L);
        RK_SET(kFunction, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
        RK_SET(kFunction, CURLOPT_MAXREDIRS, kMaxRedirects);
    }
    else
    {
        RK_SET(kFunction, CURLOPT_FOLLOWLOCATION, 0L);
    }
    return CZyError::Success();
}

CZyError RkProtocolReq::setLogging(bool on)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setLogging";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_VERBOSE, on ? 1L : 0L);
    return CZyError::Success();
}

CZyError RkProtocolReq::setMaxSSLVersion(int version)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setMaxSSLVersion";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    const CURLoption options[] = {CURLOPT_SSLVERSION, CURLOPT_PROXY_SSLVERSION};
    for (CURLoption option : options)
    {
        CURLcode result = applyOption(option, static_cast<long>(version));
        if (result != CURLE_OK)
            return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]. Curl Error code [%d] ", option,
                               result);
    }
    return CZyError::Success();
}

CZyError RkProtocolReq::setSecured(bool secure, const std::string& caFile)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setSecured";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    if (!secure)
    {
        RK_SET(kFunction, CURLOPT_SSL_VERIFYPEER, 0L);
        RK_SET(kFunction, CURLOPT_SSL_VERIFYHOST, 0L);
        return CZyError::Success();
    }
    RK_SET(kFunction, CURLOPT_SSL_VERIFYPEER, 1L);
    RK_SET(kFunction, CURLOPT_SSL_VERIFYHOST, 2L);
    CURLcode result = applyOption(CURLOPT_SSL_OPTIONS, kSslOptionsNativeCA);
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d] with mask [%d]", CURLOPT_SSL_OPTIONS,
                           static_cast<int>(kSslOptionsNativeCA));
    std::string bundle = caFile;
    if (bundle.empty() && !zyos::DefaultCABundle(bundle))
        return CZyError::Success();
    RK_SET(kFunction, CURLOPT_CAINFO, bundle);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProxyDetails(const std::string& host, const std::string& port, const std::string& user,
                                        const std::string& password)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProxyDetails";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_PROXYTYPE, static_cast<long>(CURLPROXY_HTTP));
    RK_SET(kFunction, CURLOPT_PROXY, host + ":" + port);
    RK_SET(kFunction, CURLOPT_PROXYUSERPWD, user + ":" + password);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProxyBypass(const std::string& list)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProxyBypass";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    RK_SET(kFunction, CURLOPT_NOPROXY, list.empty() ? std::string(kDefaultNoProxy) : list);
    return CZyError::Success();
}

CZyError RkProtocolReq::DisableProxy()
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::DisableProxy";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_PROXY, std::string());
    return CZyError::Success();
}

CZyError RkProtocolReq::setProyAuth(long mask)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProyAuth";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_PROXYAUTH, mask);
    return CZyError::Success();
}

CZyError RkProtocolReq::setSessionIDCaching(long on)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setSessionIDCaching";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    RK_SET(kFunction, CURLOPT_SSL_SESSIONID_CACHE, on);
    return CZyError::Success();
}

CZyError RkProtocolReq::setTraceCallBack(void* userData, RkTraceCallback callback)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setTraceCallBack";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    if (!userData || !callback)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Input is invalid");
    m_traceData = userData;
    m_traceFunction = callback;
    CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_DEBUGFUNCTION, callback);
    CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_DEBUGDATA, userData);
    return CZyError::Success();
}

CZyError RkProtocolReq::setProgressCallBack(void* userData, RkProgressCallback callback)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::setProgressCallBack";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    m_progressData = callback ? userData : nullptr;
    m_progressFunction = callback;
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_XFERINFOFUNCTION,
                                                       reinterpret_cast<void*>(callback));
    if (result == CURLE_OK)
        result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_XFERINFODATA, m_progressData);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_XFERINFOFUNCTION);
    RK_SET(kFunction, CURLOPT_NOPROGRESS, callback ? 0L : 1L);
    return CZyError::Success();
}

// ---- requests ------------------------------------------------------------------

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
        return FXErrorUtil::ErrorInt(ZY_LOC(function), 1, "%s", noBuffer);
    if (!urlPath || !urlPath[0])
        return FXErrorUtil::ErrorInt(ZY_LOC(function), 1, "%s", kInvalidUrlPath);
    if (size < 0)
        return FXErrorUtil::ErrorInt(ZY_LOC(function), 1, "%s", kInvalidBufferSize);
    m_postBuffer = buffer;
    m_dataSize = size;
    return runOperation(function, type, name, urlPath, commands);
}

CZyError RkProtocolReq::doGetOperation(const char* urlPath, const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::doGetOperation";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    if (!urlPath || !urlPath[0])
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "%s", kInvalidUrlPath);
    return runOperation(kFunction, OP_GET, "GET", urlPath, commands);
}

CZyError RkProtocolReq::doPostOperation(const char* urlPath, const char* postString,
                                        const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::doPostOperation";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    if (!postString)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Invalid post string .");
    if (!urlPath || !urlPath[0])
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "%s", kInvalidUrlPath);
    m_postString = postString;
    return runOperation(kFunction, OP_POST_STRING, "POST", urlPath, commands);
}

CZyError RkProtocolReq::doPostOperation(const char* urlPath, const char* buffer, long size,
                                        const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::doPostOperation";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    return runBufferOperation(kFunction, OP_POST_BUFFER, "POST", urlPath, buffer, "Invalid post array .", size,
                              commands);
}

CZyError RkProtocolReq::doPutOperation(const char* urlPath, const char* data, long size,
                                       const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::doPutOperation";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    return runBufferOperation(kFunction, OP_PUT, "PUT", urlPath, data, "Invalid PUT data.", size, commands);
}

CZyError RkProtocolReq::doDeleteOperation(const char* urlPath, const char* data, long size,
                                          const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::doDeleteOperation";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    return runBufferOperation(kFunction, OP_DELETE, "DELETE", urlPath, data, "Invalid DELETE data.", size,
                              commands);
}

CZyError RkProtocolReq::download(const char* sourceURL, const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::download";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    if (!sourceURL)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Invalid source url.");
    return runOperation(kFunction, OP_DOWNLOAD, "GET", sourceURL, commands);
}

CZyError RkProtocolReq::uploadFile(const char* sourceFile, const char* urlPath, unsigned size,
                                   const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::uploadFile";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    if (!sourceFile)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Invalid source file path.");
    if (!urlPath)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Invalid URL path.");
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
        return error.Push(ZY_LOC(kFunction), "Cannot read the file [%s]", sourceFile);
    }
    if (size > fileSize)
    {
        m_localFile.Close();
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "%s", kInvalidBufferSize);
    }
    m_dataSize = size > 0 ? static_cast<int64_t>(size) : static_cast<int64_t>(fileSize);
    m_localRemaining = m_dataSize;
    m_localFileError = CZyError::Success();
    error = SendReqest();
    m_localFile.Close();
    return takeLocalFileError(error, kFunction);
}

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
                            : FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::uploadFile"), 1,
                                                    "The file ended before the size to send");
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

CZyError RkProtocolReq::downloadToFile(const char* sourceURL, const char* localFile,
                                       const std::vector<commandInfo>& commands)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::downloadToFile";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    if (!sourceURL)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Invalid source url.");
    if (!localFile || !localFile[0])
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Invalid destination file path.");
    CZyError error = m_localFile.Open(localFile, CZyFile::kWriteCreate);
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction), "Cannot create the file [%s]", localFile);
    m_localFileError = CZyError::Success();
    m_writeLocalFile = true;
    error = download(sourceURL, commands);
    m_writeLocalFile = false;
    CZyError closed = m_localFile.Close();
    error = takeLocalFileError(error, kFunction);
    if (!error.IsError() && closed.IsError())
        return closed.Push(ZY_LOC(kFunction));
    return error;
}

CZyError RkProtocolReq::listDirectory(const std::string& path, std::vector<FileDirInfo>& entries)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::listDirectory";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    // A directory is named with a trailing '/': web servers redirect
    // without it and curl lists an FTP directory only with it.
    std::string directory = path.empty() ? std::string("/") : path;
    if (directory.back() != '/')
        directory.push_back('/');
    CZyError error = getFilesAndDirsInfoInFile(directory);
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction));
    error = collectFilesAndDir(m_listing, &entries, directory);
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction));
    return CZyError::Success();
}

CZyError RkProtocolReq::sendFileInfoRequest(const std::string& path, operationType type, double& size)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::getFileInfo";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    m_urlPath = path;
    m_commands.clear();
    m_operationType = type;
    m_operationName = "HEAD";
    CZyError error = SendReqest();
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction));
    double length = -1;
    CURLcode result = CurlWrapper::rk_curl_easy_getinfo(handle(), CURLINFO_CONTENT_LENGTH_DOWNLOAD, &length);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "CURL perform failed. ErrorCode : [%d], Error Message : [%s]",
                           result, errorBufferText());
    if (static_cast<long long>(length) == -1)
        return ErrorRkCURL(ZY_LOC(kFunction), m_lastResult, "File size recieved from server is invalid");
    size = length;
    return CZyError::Success();
}

CZyError RkProtocolReq::getFileInfo(const std::string& path, double& size)
{
    return sendFileInfoRequest(path, OP_FILE_INFO, size);
}

CZyError RkProtocolReq::getInfo(CurlInfoType type, std::string& value)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::getInfo";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    CURLINFO info;
    if (type == CURL_INFO_EFFECTIVE_URL)
        info = CURLINFO_EFFECTIVE_URL;
    else if (type == CURL_INFO_REDIRECT_URL)
        info = CURLINFO_REDIRECT_URL;
    else
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Unrecognized Curl Info type.");
    m_operationType = OP_INFO;
    m_operationName = "HEAD";
    CZyError error = SendReqest();
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction));
    char* text = nullptr;
    CURLcode result = CurlWrapper::rk_curl_easy_getinfo(handle(), info, &text);
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "CURL get info failed. ErrorCode : [%d] , ErrorMessage : [%s]",
                           result, errorBufferText());
    if (!text)
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Invalid pointer from curl get info.");
    value = text;
    return CZyError::Success();
}

CZyError RkProtocolReq::checkIfFileOrDirExists(const std::string& path, bool isFile, bool& exists)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::checkIfFileOrDirExists";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    double size = 0;
    CZyError info = sendFileInfoRequest(path, isFile ? OP_CHECK_FILE_EXISTS : OP_CHECK_DIR_EXISTS, size);
    if (isFile)
    {
        if (m_lastResult != CURLE_OK)
            return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1,
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
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1,
                                     "Failed to check if Directory exists. Error Code : [%d]. Error Message [%s] ",
                                     m_lastResult, errorBufferText());
    exists = true;
    return CZyError::Success();
}

CZyError RkProtocolReq::getFilesAndDirsInfoInFile(const std::string& sourcePath)
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::getFilesAndDirsInfoInFile";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    if (sourcePath.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "Source path passed in empty");
    m_urlPath = sourcePath;
    m_commands.clear();
    m_operationType = OP_DIR_LIST;
    m_operationName = "GET";
    m_listing.clear();
    CZyError error = SendReqest();
    if (error.IsError())
        error.Push(ZY_LOC(kFunction));
    return error;
}

CZyError RkProtocolReq::checkConnection()
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::checkConnection";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    m_commands.clear();
    m_operationType = OP_CHECK_CONNECTION;
    m_operationName = "HEAD";
    return SendReqest();
}

// ---- URL encoding ------------------------------------------------------------------

CZyError RkProtocolReq::URLEncode(const std::string& in, std::string& out)
{
    char* encoded = CurlWrapper::rk_curl_easy_escape(handle(), in.c_str(), 0);
    if (!encoded)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::URLEncode"), 1, "Failed to encode the text");
    out = encoded;
    CurlWrapper::rk_curl_free(encoded);
    return CZyError::Success();
}

CZyError RkProtocolReq::URLDecode(const std::string& in, std::string& out)
{
    int length = 0;
    char* decoded = CurlWrapper::rk_curl_easy_unescape(handle(), in.c_str(), 0, &length);
    if (!decoded)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::URLDecode"), 1, "Failed to decode the text");
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
    static const char kFunction[] = "RkCURL::RkProtocolReq::PrepareForRequest";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    if (m_url.empty())
        return FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 101, "URL is empty");
    std::string url;
    CZyError error = getFullWorkingURL(url);
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction), "Failed to get working URL");
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_URL, url.c_str());
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "Failed to set option [%d]", CURLOPT_URL);
    error = setMethodParameter();
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction));

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
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERDATA, m_headerData);
    CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION,
                                     m_headerFunction ? m_headerFunction : &RkProtocolReq::getContentSize);
    return CZyError::Success();
}

CZyError RkProtocolReq::SendReqest()
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::SendReqest";
    RK_REQUIRE_INIT(kFunction, kNotInitializedSingular);
    CZyError error = PrepareForRequest();
    if (error.IsError())
    {
        unSetMethodParameter();
        return error.Push(ZY_LOC(kFunction));
    }
    error = Execute();
    if (error.IsError())
        error.Push(ZY_LOC(kFunction));
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
            error = unset.Push(ZY_LOC(kFunction));
        }
    }
    return error;
}

CZyError RkProtocolReq::Execute()
{
    static const char kFunction[] = "RkCURL::RkProtocolReq::Execute";
    RK_REQUIRE_INIT(kFunction, kNotInitializedPlural);
    resetCurlErrorBuffer();
    m_responseCode = 0;
    CURLcode result = CurlWrapper::rk_curl_easy_perform(handle());
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC(kFunction), result, "CURL perform failed.Curl ErrorCode : [%d], Error Message : [%s]",
                           result, failureText(result).c_str());
    CZyError error = getResponseCode();
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction), "Failed to get ResponseCode");
    bool ok = false;
    error = isOperationSuccess(ok);
    if (error.IsError())
        return error.Push(ZY_LOC(kFunction), "Failed to determine success or failure.");
    if (!ok)
        return ErrorRkCURL(ZY_LOC(kFunction), m_lastResult,
                           "Requested Operation Failed. Return value from CURL: [%d] Response code from server: [%ld]",
                           m_lastResult, m_responseCode);
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
    CZyError error = unsetOpTypeParameter();
    if (error.IsError())
        error.Push(ZY_LOC("RkCURL::RkProtocolReq::unSetMethodParameter"));
    return error;
}
}  // namespace RkCURL
