// The common request class of the transfers over libcurl, in four parts:
// here the handle, construction, copying, initialize, the defaults and the
// accessors; RkProtocolReqSettings.cpp the connection settings;
// RkProtocolReqOperations.cpp the request operations; RkProtocolReqFlow.cpp
// the steps every request goes through (prepare, perform, read the response
// code, ask the protocol class whether it succeeded, undo the per-request
// options), the data callbacks and URL encoding.
#define CURL_DISABLE_DEPRECATION 1

#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyNetwork/Internal/RkProtocolReqCommon.h"

#include <string.h>

#include <algorithm>

#include <new>

#include "ZyNetwork/Internal/CurlWrapperInternal.h"
#include "ZyNetwork/Internal/OsCurl.h"
#include "ZyUtils/ZyString.h"

// Locations name the class's file, wherever its code stands.
static const char kZyFile[] = "ZyNetwork/RkProtocolReq";

static_assert(RkCURL::kSslOptionsNativeCA == CURLSSLOPT_NATIVE_CA, "curl's native-CA option bit");

namespace RkCURL
{
namespace
{
const char kNoErrorBuffer[] = " Error buffer is not initialized";
const size_t kErrorBufferSize = CURL_ERROR_SIZE;  // 256
const long kDefaultTimeoutSeconds = 1080;         // 18 minutes

// A zeroed error buffer of curl's size, or null.
char* NewErrorBuffer()
{
    char* buffer = new (std::nothrow) char[kErrorBufferSize];
    if (buffer)
        memset(buffer, 0, kErrorBufferSize);
    return buffer;
}

// curl's socket-option callback: each transfer socket gets the platform's
// tuning (zy::os::TuneTransferSocket) before it connects.
int TuneTransferSocket(void* /*context*/, curl_socket_t socket, curlsocktype /*purpose*/)
{
    zy::os::TuneTransferSocket(socket);
    return CURL_SOCKOPT_OK;
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
      m_resumeFrom(0),
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
    m_resumeFrom = other.m_resumeFrom;
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
    m_errorBuffer = NewErrorBuffer();
    if (!m_errorBuffer)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::RkProtocolReq"), zy::err::kTransferRefused,
                                     "Failed to allocate memory for Error buffer");
    m_handle.reset(new (std::nothrow) Handle());
    if (!m_handle || !m_handle->get())
    {
        releaseHandle();
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::RkProtocolReq"), zy::err::kNoCurlHandle,
                           "Failed to get CURL handle");
    }
    void* curl = m_handle->get();
    CURLcode result = CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, static_cast<void*>(m_errorBuffer));
    if (result == CURLE_OK)
        result = CurlWrapper::setSocketOptionFunction(curl, &TuneTransferSocket);
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
    else if (result == CURLE_OK)
    {
        CurlWrapper::rk_curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, &RkProtocolReq::traceMasked);
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
    m_errorBuffer = NewErrorBuffer();
    if (!m_errorBuffer)
        return FXErrorUtil::ErrorInt(ZY_LOC("RkCURL::RkProtocolReq::initialize"), zy::err::kTransferRefused,
                                     "Failed to allocate memory for Error buffer");
    m_handle.reset(new (std::nothrow) Handle());
    if (!m_handle)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::initialize"), zy::err::kNoCurlHandle,
                           "Failed to get CURL Context");
    if (!m_handle->get())
    {
        m_handle.reset();
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::initialize"), zy::err::kNoCurlHandle,
                           "Failed to get CURL handle");
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
    std::string caBundle;
    const bool setCABundle = zy::os::DefaultCABundle(caBundle);

    resetCurlErrorBuffer();
    m_configState = 2;

    // The default time limit; like SetTimeOut, but applied before the
    // object counts as initialised. Its result is not checked.
    applyOption(CURLOPT_TIMEOUT, kDefaultTimeoutSeconds);

    CURLcode result = CurlWrapper::rk_curl_easy_setopt(handle(), CURLOPT_ERRORBUFFER, static_cast<void*>(m_errorBuffer));
    m_lastResult = result;
    if (result != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                           "Failed to set option [%d]", CURLOPT_ERRORBUFFER);
    if ((result = CurlWrapper::setSocketOptionFunction(handle(), &TuneTransferSocket)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                           "Failed to set option [%d]", CURLOPT_SOCKOPTFUNCTION);

    if (m_followRedirects)
    {
        if ((result = applyOption(CURLOPT_FOLLOWLOCATION, 1L)) != CURLE_OK)
            return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                               "Failed to set option [%d]", CURLOPT_FOLLOWLOCATION);
        if ((result = applyOption(CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL))) != CURLE_OK)
            return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                               "Failed to set option [%d]", CURLOPT_POSTREDIR);
        if ((result = applyOption(CURLOPT_MAXREDIRS, kMaxRedirects)) != CURLE_OK)
            return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                               "Failed to set option [%d]", CURLOPT_MAXREDIRS);
    }
    else if ((result = applyOption(CURLOPT_FOLLOWLOCATION, 0L)) != CURLE_OK)
    {
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                           "Failed to set option [%d]", CURLOPT_FOLLOWLOCATION);
    }

    if ((result = applyOption(CURLOPT_SSL_VERIFYPEER, 1L)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                           "Failed to set option [%d]", CURLOPT_SSL_VERIFYPEER);
    if ((result = applyOption(CURLOPT_SSL_VERIFYHOST, 2L)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                           "Failed to set option [%d]", CURLOPT_SSL_VERIFYHOST);
    if ((result = applyOption(CURLOPT_SSL_OPTIONS, kSslOptionsNativeCA)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                           "Failed to set option [%d] with mask [%d]", CURLOPT_SSL_OPTIONS,
                           static_cast<int>(kSslOptionsNativeCA));
    if (setCABundle && (result = applyOption(CURLOPT_CAINFO, caBundle)) != CURLE_OK)
        return ErrorRkCURL(ZY_LOC("RkCURL::RkProtocolReq::setDefaultConfiguration"), result,
                           "Failed to set option [%d]", CURLOPT_CAINFO);
    return CZyError::Success();
}

// ---- accessors ---------------------------------------------------------------

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
}  // namespace RkCURL
