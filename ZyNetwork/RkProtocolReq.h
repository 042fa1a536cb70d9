// The common request class of the transfers over libcurl. One object owns one
// curl easy handle (reached only through CurlWrapper::rk_curl_*), carries the
// settings of one connection (URL, credentials, proxy, TLS, time limits,
// callbacks) and runs one request at a time. The protocol classes (HTTP,
// FTP, SFTP) derive from it and supply the URL, the method options, the
// success rule and the listing parser.
//
// Every operation that can fail returns a CZyError: curl failures are errors
// of the transfer domain (RkCURLError.h) carrying the curl code, argument and
// state failures are int errors (code 1; "URL is empty" is 101).
#pragma once

#include <stdint.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/RkCURLError.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"
#include "ZyUtils/ZyFile.h"

namespace RkCURL
{
// The kind of request being prepared. Each request operation sets it before
// sending; the protocol classes choose their curl options from it.
enum operationType
{
    OP_NONE = 0,
    OP_GET = 1,               // doGetOperation: fetch a resource into the write callback
    OP_POST_STRING = 2,       // doPostOperation with a text
    OP_POST_BUFFER = 3,       // doPostOperation with a buffer and its size
    OP_PUT = 4,               // doPutOperation: send a buffer
    OP_DELETE = 5,            // doDeleteOperation (a body is optional)
    OP_DOWNLOAD = 6,          // download: fetch into the write callback (or a file)
    OP_UPLOAD = 7,            // uploadFile: send a local file, streamed
    OP_FILE_INFO = 8,         // getFileInfo: headers only, no body
    OP_DIR_LIST = 9,          // getFilesAndDirsInfoInFile: fetch a directory listing
    OP_CHECK_FILE_EXISTS = 10,  // checkIfFileOrDirExists for a file
    OP_CHECK_DIR_EXISTS = 11,   // checkIfFileOrDirExists for a directory
    OP_CHECK_CONNECTION = 12,   // checkConnection: the stored URL, no body
    OP_INFO = 13                // getInfo: headers only, to read the URL curl ended at
};

// getInfo: which URL to read after the request.
enum CurlInfoType
{
    CURL_INFO_EFFECTIVE_URL = 0,  // CURLINFO_EFFECTIVE_URL: the URL last used
    CURL_INFO_REDIRECT_URL = 1    // CURLINFO_REDIRECT_URL: where a redirect would lead
};

// One extra request parameter handed to a request operation for that call
// only. The protocol class decides what each kind means:
// - CMD_HEADER: a request header "name: value" (HTTP);
// - CMD_QUERY:  a query parameter name=value, both URL-encoded (HTTP);
// - CMD_QUOTE:  a raw protocol command sent before the transfer, `name` being
//               the command line and `value` unused (FTP, SFTP).
// A kind that a protocol has no use for is refused with int error 1.
struct commandInfo
{
    enum Kind
    {
        CMD_HEADER = 0,
        CMD_QUERY = 1,
        CMD_QUOTE = 2
    };
    Kind kind;
    std::string name;
    std::string value;

    commandInfo() : kind(CMD_HEADER) {}
    // A parameter of kind `k` with its name and value.
    commandInfo(Kind k, std::string n, std::string v = std::string())
        : kind(k), name(std::move(n)), value(std::move(v))
    {
    }
};

// One entry of a directory listing. Fields that the listing does not show
// keep their "unknown" values.
struct FileDirInfo
{
    std::string name;       // the entry's own name, decoded (UTF-8 as the server sent it)
    std::string fullPath;   // the listed directory's path joined with the name, no trailing '/'
    bool isDirectory = false;
    int64_t size = -1;      // bytes; -1 unknown. Listings that round (e.g. "1.2K") give the rounded value
    // False when `size` is such a rounded value (HTML listing pages that
    // show K, M, G); FTP LIST, MLSD and SFTP listings give exact sizes.
    bool sizeExact = true;
    int64_t modificationTime = -1;  // seconds since 1970-01-01, reading the listed time as UTC; -1 unknown
    std::string modificationText;   // the date and time as the listing wrote them ("" unknown)
    std::string linkTarget;         // the target of a symbolic link where the listing names one
};

// A curl write, read or header callback (curl's shape: data, size, count,
// user data; returns the bytes taken or given).
typedef CurlWrapper::rk_curl_data_callback RkDataCallback;
// A curl debug callback (setTraceCallBack).
typedef CurlWrapper::rk_curl_debug_callback RkTraceCallback;
// A progress callback (curl's transfer-information shape): totals and counts
// so far in bytes, 0 when unknown; a non-zero result aborts the transfer
// (curl code 42).
typedef int (*RkProgressCallback)(void* userData, curl_off_t downloadTotal, curl_off_t downloadNow,
                                  curl_off_t uploadTotal, curl_off_t uploadNow);

// The common request class described above; the protocol classes derive
// from it.
class ZYNET_API RkProtocolReq
{
public:
    // ---- operations the protocol classes provide, in this order ----------
    // Whether the request that curl completed succeeded (the protocol's rule
    // on the server's response code).
    virtual CZyError isOperationSuccess(bool& success) = 0;
    // Request headers sent with every later request (replacing earlier ones).
    virtual CZyError setHeaders(const std::map<std::string, std::string>& headers) = 0;
    virtual ~RkProtocolReq();
    // Parses a directory listing fetched from `path` into `entries`
    // (appended).
    virtual CZyError collectFilesAndDir(const std::string& listing, std::vector<FileDirInfo>* entries,
                                        std::string path) = 0;
    // The URL the current request goes to (base URL, port, path, query).
    virtual CZyError getFullWorkingURL(std::string& url) = 0;
    // Undoes what setMethodParameter set for the current operation.
    virtual CZyError unsetOpTypeParameter() = 0;
    // Sets the curl options of the current operation (method, body, upload).
    virtual CZyError setMethodParameter() = 0;
    // The protocol's own defaults, applied by initialize.
    virtual CZyError setDefaults() = 0;
    // Splits the stored URL into its server part and its path.
    virtual CZyError splitServerAndURLPath(std::string& server, std::string& path) = 0;
    // Whether a listing entry names a file (true) or a directory.
    virtual CZyError IsFile(const std::string& name, bool& isFile) = 0;

    // ---- life and set-up --------------------------------------------------
    RkProtocolReq();
    // Copies every setting. The copy never shares the source's easy handle:
    // when the source was initialised the copy makes its own handle and
    // applies the same curl settings to it; if that fails the copy is left
    // not initialised (isInitialized() tells). Callbacks and their user data
    // are copied as pointers.
    RkProtocolReq(const RkProtocolReq& other);
    // The same for assignment; this object's own handle is released first.
    RkProtocolReq& operator=(const RkProtocolReq& other);

    // Error buffer, easy handle and the default settings, then the
    // protocol's defaults. Call once before anything else.
    CZyError initialize(unsigned int useCAFile);
    // True after a successful initialize.
    bool isInitialized() const { return m_initialized; }
    // Process-wide curl initialisation (kept for callers; the binding does
    // the real one on first use).
    static void initializeCurlLibrary();
    // Does nothing: curl's global clean-up belongs to the binding.
    static void deinitializeCurlLibrary();

    // ---- plain accessors ----------------------------------------------------
    // The base URL of every request ("scheme://host[:port]/..."); an empty one
    // makes requests fail with int error 101 "URL is empty".
    // @{
    void setURL(const std::string& url) { m_url = url; }
    const std::string& getURL() const { return m_url; }
    // @}
    // The path of the current request under the base URL (the request
    // operations set it).
    // @{
    void setURLPath(const std::string& path) { m_urlPath = path; }
    const std::string& getURLPath() const { return m_urlPath; }
    // @}
    // A port for base URLs that name none (0, the default: none added).
    // @{
    void setPortNumber(long port) { m_port = port; }
    long getPortNo() const { return m_port; }
    // @}
    // The local file of the current upload (uploadFile sets it).
    // @{
    void setSourceFile(const std::string& path) { m_sourceFile = path; }
    const std::string& getSourceFile() const { return m_sourceFile; }
    // @}
    // The body text of a POST with a text (doPostOperation sets it).
    // @{
    void setPostString(const std::string& text) { m_postString = text; }
    const std::string& getPostString() const { return m_postString; }
    // @}
    // The buffer being sent by a POST or PUT with a buffer (the buffer
    // operations set it). It is not copied: it must stay valid until the
    // request ends.
    // @{
    void setPostBuffer(const char* buffer) { m_postBuffer = buffer; }
    const char* getPostBuffer() const { return m_postBuffer; }
    // @}
    // The size in bytes of the buffer being sent (the buffer operations set it).
    // @{
    void setDataSizeInBytes(int64_t size) { m_dataSize = size; }
    int64_t getDataSizeInBytes() const { return m_dataSize; }
    // @}
    // The kind of the current request (each request operation sets it).
    // @{
    void setOperationType(operationType type) { m_operationType = type; }
    operationType getOperationType() const { return m_operationType; }
    // @}
    // The method name of the current request ("GET", "POST", "HEAD", ...).
    // @{
    void setOperationName(const std::string& name) { m_operationName = name; }
    const std::string& getOperationName() const { return m_operationName; }
    // @}
    // A flag for the caller's own use: whether it configured a proxy.
    // @{
    void setIsProxySet(bool set) { m_proxySet = set; }
    bool getIsProxySet() const { return m_proxySet; }
    // @}
    // A user name and password kept with the object (and copied with it); no
    // request reads them: setCredentials sets the ones curl sends.
    // @{
    void setURLUserName(const std::string& user) { m_userName = user; }
    void setURLPassword(const std::string& password) { m_password = password; }
    // @}
    // The CA-file mode given to initialize, kept as given; no request reads
    // it (setSecured chooses the verification).
    // @{
    void setUseCAFile(unsigned int useCAFile) { m_useCAFile = useCAFile; }
    unsigned int getUseCAFile() const { return m_useCAFile; }
    // @}
    // Uploads do not wait for the server's "100 Continue" before sending the body.
    void skipExpectContinue100(bool skip) { m_skipExpectContinue = skip; }
    // Where the body of later downloads (download, downloadToFile,
    // doGetOperation) starts, in bytes; 0 (the default) for the whole body.
    // curl asks for the rest (HTTP: a range; FTP: REST; SFTP: a read from
    // that offset) and fails when the server cannot give it: 33 (HTTP
    // without ranges), 31 (FTP without REST) or 36 (an offset past the
    // end). An offset at the end is an empty, successful download over FTP
    // and SFTP; HTTP answers it with 416. Other requests ignore it.
    // @{
    void setResumeFrom(int64_t offset) { m_resumeFrom = offset < 0 ? 0 : offset; }
    int64_t getResumeFrom() const { return m_resumeFrom; }
    // @}
    // The caller's callbacks, used by every later request (a protocol class
    // may put its own in place for one operation, such as a download into a
    // file). Without a write or header callback the bytes are discarded;
    // without a read callback an upload sends nothing.
    // @{
    void setWriteFunctionPointer(void* userData, RkDataCallback callback);
    void setReadFunctionPointer(void* userData, RkDataCallback callback);
    void setHeaderWriteFunctionPointer(void* userData, RkDataCallback callback);
    // @}
    // An extra request header sent with every later request.
    void addRequestedHeaders(const std::string& name, const std::string& value);
    // The extra parameters of the current request (each request operation sets
    // them from its `commands`).
    // @{
    void setCommandInfo(const std::vector<commandInfo>& commands) { m_commands = commands; }
    const std::vector<commandInfo>& getCommandInfo() const { return m_commands; }
    // @}
    // The server's last response code: the HTTP status, the FTP reply code;
    // also after a request that curl failed (0 when the server said nothing).
    void getLastServerResponseCode(int& code) const { code = static_cast<int>(m_responseCode); }
    // The server's last reply line of the last request ("550 No access."; FTP
    // only, "" for none). A failed request also carries it on its error.
    const std::string& getLastServerReply() const { return m_lastReply; }
    // The last curl result and the error buffer's text.
    void getLastCurlErrorCodeAndErrorMsg(int& code, std::string& message) const;
    // Clears the last curl result and the error buffer.
    void resetCurlErrorCodeAndErrorMsg();
    // Clears the error buffer only.
    void resetCurlErrorBuffer();

    // A write callback that takes every byte and keeps none (for requests
    // where only the headers matter).
    static size_t getContentSize(char* data, size_t size, size_t count, void* userData);

    // ---- settings -----------------------------------------------------------
    // The user name and password that curl sends (CURLOPT_USERPWD). The settings
    // below fail with int error 1 before initialize, and with the curl code when
    // curl refuses the option.
    CZyError setCredentials(const std::string& user, const std::string& password);
    // The limit for a whole request in seconds (0: none); running out is curl
    // code 28.
    CZyError SetTimeOut(long seconds);
    // The limit for connecting in seconds (0: curl's default).
    CZyError SetConnectionTimeOut(long seconds);
    // TCP keep-alive on the connections, with the idle time and probe interval.
    CZyError setKeepAlive(bool on, long idleSeconds, long intervalSeconds);
    // Whether redirects are followed (at most 30; a POST stays a POST). Before
    // initialize only the choice is kept; initialize applies it.
    CZyError setLinkRedirects(bool follow);
    // Whether redirects are followed.
    bool getLinkRedirects() const { return m_followRedirects; }
    // curl's trace of later requests (its notes, header and command lines),
    // with Authorization and Proxy-Authorization values, FTP passwords and
    // URL passwords written "***": into the library's log (g_ptrLogWriter,
    // level 2) when a writer is installed, else to stderr. A trace callback
    // (setTraceCallBack) receives curl's data unchanged instead.
    CZyError setLogging(bool on);
    // The TLS version setting (a CURL_SSLVERSION_* value, may include a
    // CURL_SSLVERSION_MAX_* cap) for the server and the proxy.
    CZyError setMaxSSLVersion(int version);
    // secure: the server's certificate and name are verified against
    // `caFile` (an empty name means the default bundle of initialize).
    // Not secure: any certificate is accepted.
    CZyError setSecured(bool secure, const std::string& caFile);
    // An HTTP proxy "host:port" with its user name and password.
    CZyError setProxyDetails(const std::string& host, const std::string& port, const std::string& user,
                             const std::string& password);
    // Hosts that bypass the proxy (comma-separated); an empty list means the
    // loopback names.
    CZyError setProxyBypass(const std::string& list);
    // No proxy at all, also none from the environment.
    CZyError DisableProxy();
    // The authentication methods offered to the proxy (CURLAUTH_* bits).
    CZyError setProyAuth(long mask);
    // Whether TLS session ids are reused (non-zero: on).
    CZyError setSessionIDCaching(long on);
    // curl's debug callback and its user data; both must be non-null (int error 1).
    CZyError setTraceCallBack(void* userData, RkTraceCallback callback);
    // Progress reports during transfers; a null callback turns them off.
    CZyError setProgressCallBack(void* userData, RkProgressCallback callback);

    // ---- requests -------------------------------------------------------------
    // Paths are relative to the base URL (setURL) and given unencoded; the
    // protocol class encodes them. Every operation that takes a path also
    // takes a whole URL ("scheme://..."), which goes to the server as typed
    // (RFC 3986): its query and the escapes it has are kept, its fragment is
    // never sent, and only the bytes that cannot stand in a URL (controls,
    // space, bytes past ASCII, "<>\"\\^`{|}", a lone '%') are escaped.
    // GET `urlPath` into the write callback. The request operations refuse a null
    // or empty path or a null buffer with int error 1, and fail with the curl code
    // or the protocol's verdict on the response (see Execute).
    CZyError doGetOperation(const char* urlPath, const std::vector<commandInfo>& commands);
    // POST the text `postString`.
    CZyError doPostOperation(const char* urlPath, const char* postString, const std::vector<commandInfo>& commands);
    // POST `size` bytes of `buffer` (which must stay valid during the call).
    CZyError doPostOperation(const char* urlPath, const char* buffer, long size,
                             const std::vector<commandInfo>& commands);
    // PUT `size` bytes of `data`.
    CZyError doPutOperation(const char* urlPath, const char* data, long size, const std::vector<commandInfo>& commands);
    // DELETE `urlPath`, sending `size` bytes of `data` as the body (`data` must
    // not be null; `size` 0 sends none).
    CZyError doDeleteOperation(const char* urlPath, const char* data, long size,
                               const std::vector<commandInfo>& commands);
    // Fetches `sourceURL` (a path under the base URL, or a whole URL with
    // its scheme, used as given) into the write callback.
    CZyError download(const char* sourceURL, const std::vector<commandInfo>& commands);
    // Sends the local file `sourceFile` to `urlPath`, streamed; `size` is the
    // number of bytes to send, 0 for the whole file.
    CZyError uploadFile(const char* sourceFile, const char* urlPath, unsigned size,
                        const std::vector<commandInfo>& commands);
    // Asks for the size of `path` without fetching it.
    CZyError getFileInfo(const std::string& path, double& size);
    // Sends a header-only request for the stored URL and path and reads the
    // URL that curl ended at (type 0) or would be redirected to (type 1).
    CZyError getInfo(CurlInfoType type, std::string& value);
    // Existence of a file or directory (a path or a whole URL). A directory
    // counts as missing when curl reports 9 (access denied) or the server
    // answers 404.
    CZyError checkIfFileOrDirExists(const std::string& path, bool isFile, bool& exists);
    // Fetches the listing of `sourcePath` (kept, see getListing); the
    // protocol class parses it.
    CZyError getFilesAndDirsInfoInFile(const std::string& sourcePath);
    // A request without a body (HEAD) for the stored URL: succeeds when the
    // server answers as the protocol counts success.
    CZyError checkConnection();

    // Downloads `sourceURL` (as download) into the local file `localFile`.
    // The body is written piece by piece to a new file beside it (same
    // directory, ".NAME.XXXXXXXX.part"), which replaces `localFile` only
    // after the whole transfer succeeded; after a failure `localFile` is as
    // it was and the temporary file is gone. With a resume offset
    // (setResumeFrom) the rest is appended to `localFile` instead.
    CZyError downloadToFile(const char* sourceURL, const char* localFile,
                            const std::vector<commandInfo>& commands = std::vector<commandInfo>());
    // Fetches the listing of the directory `path` (a '/' is added to its
    // end; to the end of the path of a whole URL, before its query) and
    // parses it into `entries` (appended), named below the decoded path.
    CZyError listDirectory(const std::string& path, std::vector<FileDirInfo>& entries);
    // The listing text of the last getFilesAndDirsInfoInFile or listDirectory.
    const std::string& getListing() const { return m_listing; }
    // The longest listing kept (bytes); a longer one fails with curl's write
    // error (23).
    static const size_t kMaxListingSize = 64u << 20;

    // Percent-encodes every byte but letters, digits and "-._~".
    CZyError URLEncode(const std::string& in, std::string& out);
    // Decodes %XX sequences.
    CZyError URLDecode(const std::string& in, std::string& out);
    // URLEncode that keeps '/' and '\' as they are.
    CZyError URLEncodePath(const std::string& in, std::string& out);
    // The same as URLDecode.
    CZyError URLDecodePath(const std::string& in, std::string& out);

    // ---- the request steps ------------------------------------------------------
    // Sets the request's URL (getFullWorkingURL), the protocol's method options
    // (setMethodParameter) and the callbacks. "URL is empty" (int 101) without a
    // base URL.
    CZyError PrepareForRequest();
    // PrepareForRequest, Execute, then unSetMethodParameter whatever happened.
    // The request operations run this.
    CZyError SendReqest();
    // Performs the prepared request and reads the response code. A curl failure is
    // its curl code; a response the protocol does not count as success is an error
    // with the last curl result (0) and the message naming the response code.
    CZyError Execute();
    // Reads the response code of the last request into the object.
    CZyError getResponseCode();
    // Removes the operation's callbacks and method options after a request.
    CZyError unSetMethodParameter();

protected:
    // Sets one curl option and remembers it, so that a copy of this object
    // can apply the same settings to its own handle. Stores the result as the
    // last curl result.
    CURLcode applyOption(CURLoption option, long value);
    // The same for a text option.
    CURLcode applyOption(CURLoption option, const std::string& value);
    // Per-operation callbacks that a protocol class sets in
    // setMethodParameter; they take the place of the caller's for the
    // current request and are cleared by unSetMethodParameter.
    void setOperationWriteCallback(void* userData, RkDataCallback callback);
    // The same for the read callback.
    void setOperationReadCallback(void* userData, RkDataCallback callback);
    // The curl easy handle (null before initialize).
    void* handle() const;
    // The text curl wrote into the error buffer for the last request.
    const char* errorBufferText() const;
    // The text of a failed transfer: curl's own, to which a protocol may add
    // what `result` means for it.
    virtual std::string failureText(CURLcode result) const
    {
        (void)result;
        return errorBufferText();
    }
    // The response code of the last request.
    long responseCode() const { return m_responseCode; }
    // The last curl result, as getLastCurlErrorCodeAndErrorMsg reports it.
    // @{
    int lastCurlResult() const { return m_lastResult; }
    void setLastCurlResult(int result) { m_lastResult = result; }
    // @}
    // The headers added with addRequestedHeaders, in order.
    const std::vector<std::pair<std::string, std::string>>& requestedHeaders() const { return m_requestedHeaders; }
    // Whether skipExpectContinue100 was asked for.
    bool skipExpectContinue() const { return m_skipExpectContinue; }
    // Copies up to `room` bytes of a caller's buffer that is being sent,
    // advancing `position` and `remaining`; what a read callback returns.
    static size_t takeFromBuffer(char* data, size_t room, const char*& position, int64_t& remaining);

    // Fields that the request operations store for the protocol classes.
    std::string m_url;
    std::string m_urlPath;
    long m_port;
    std::string m_userName;
    std::string m_password;
    std::string m_sourceFile;
    std::string m_postString;
    const char* m_postBuffer;
    int64_t m_dataSize;
    operationType m_operationType;
    std::string m_operationName;
    bool m_proxySet;
    std::vector<commandInfo> m_commands;

private:
    struct RecordedOption
    {
        CURLoption option;
        bool isText;
        long number;
        std::string text;
    };
    class Handle;

    CZyError setDefaultConfiguration();
    void recordOption(CURLoption option, bool isText, long number, const std::string& text);
    CZyError copyHandleSettings(const RkProtocolReq& other);
    void copySettings(const RkProtocolReq& other);
    void releaseHandle();
    CZyError sendFileInfoRequest(const std::string& path, operationType type, double& size);
    CZyError takeLocalFileError(CZyError error, const char* function);
    CZyError runOperation(const char* function, operationType type, const char* name, const char* urlPath,
                          const std::vector<commandInfo>& commands);
    CZyError runBufferOperation(const char* function, operationType type, const char* name, const char* urlPath,
                                const char* buffer, const char* noBuffer, long size,
                                const std::vector<commandInfo>& commands);
    static size_t writeToLocalFile(char* data, size_t size, size_t count, void* self);
    static size_t readFromLocalFile(char* data, size_t size, size_t count, void* self);
    static size_t writeToListing(char* data, size_t size, size_t count, void* self);
    static size_t passHeader(char* data, size_t size, size_t count, void* self);
    static int traceMasked(CURL* handle, curl_infotype type, char* data, size_t size, void* unused);

    static bool m_gbInit;
    // Declared for TLS locking callbacks; no operation uses it (libcurl
    // locks for itself).
    static void** ssl_mutex;

    std::unique_ptr<Handle> m_handle;
    char* m_errorBuffer;
    int m_lastResult;
    long m_responseCode;
    bool m_initialized;
    unsigned int m_useCAFile;
    bool m_followRedirects;
    // 0 made, 1 handle made, 2 the defaults applied.
    int m_configState;
    bool m_skipExpectContinue;
    int64_t m_resumeFrom;

    void* m_writeData;
    RkDataCallback m_writeFunction;
    void* m_readData;
    RkDataCallback m_readFunction;
    void* m_headerData;
    RkDataCallback m_headerFunction;
    void* m_opWriteData;
    RkDataCallback m_opWriteFunction;
    void* m_opReadData;
    RkDataCallback m_opReadFunction;
    void* m_traceData;
    RkTraceCallback m_traceFunction;
    void* m_progressData;
    RkProgressCallback m_progressFunction;

    std::vector<std::pair<std::string, std::string>> m_requestedHeaders;
    std::vector<RecordedOption> m_options;

    // The local file of downloadToFile or uploadFile during the transfer,
    // what remains to be sent from it, and the first failure reading or
    // writing it.
    CZyFile m_localFile;
    bool m_writeLocalFile;
    int64_t m_localRemaining;
    CZyError m_localFileError;
    std::string m_listing;
    // The server's last reply line of the current request (FTP), for the
    // error of a failed one.
    std::string m_lastReply;
    static const size_t kMaxReplyLength = 200;
};
}  // namespace RkCURL
