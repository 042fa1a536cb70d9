// HTTP(S) requests against the loopback servers of support/http_servers.py.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ZyNetwork/RkHTTPReq.h"
#include "ZyUtils/ZyFile.h"
#include "support/FtpServers.h"
#include "support/HttpServers.h"
#include "support/LogCapture.h"
#include "support/TestEnv.h"

using namespace RkCURL;

namespace
{
const std::vector<commandInfo> kNoCommands;

#define REQUIRE_SERVERS()                                              \
    const zytest::HttpServers& servers = zytest::GetHttpServers();    \
    if (!servers.available)                                            \
    GTEST_SKIP() << servers.problem

// An initialised request for a loopback server whose body lands in `body`.
void Open(RkHTTPReq& request, int port, std::string* body, bool https = false)
{
    ASSERT_FALSE(request.initialize(0).IsError());
    request.setURL(zytest::LoopbackURL(port, https));
    if (body)
        request.setWriteFunctionPointer(body, &zytest::AppendTo);
}

std::string ReadFile(const std::string& path)
{
    std::string content;
    CZyFile::ReadWholeFile(path.c_str(), content);
    return content;
}

// The message of a transfer that reached the server and got `status`.
std::string ServerSaid(int status)
{
    return "Requested Operation Failed. Return value from CURL: [0] Response code from server: [" +
           std::to_string(status) + "]";
}
}  // namespace

TEST(HttpRequest, TransfersRoundTripThroughWebDav)
{
    REQUIRE_SERVERS();
    std::string body;
    RkHTTPReq request;
    Open(request, servers.http, &body);
    const std::string local = servers.www + "/../upload-source.bin";
    ASSERT_TRUE(zytest::WritePattern(local, 3 * 1024 * 1024 + 7));
    const std::string data = ReadFile(local);

    // Into a directory that does not exist yet; the name has a space and
    // non-ASCII letters, encoded on the way.
    const std::string name = "dav/round trip/\xC3\xA9t\xC3\xA9 file.bin";
    ZYTEST_ASSERT_OK(request.uploadFile(local.c_str(), name.c_str(), 0, kNoCommands));
    EXPECT_TRUE(data == ReadFile(servers.www + "/" + name));
    ZYTEST_ASSERT_OK(request.doGetOperation(("/" + name).c_str(), kNoCommands));
    EXPECT_TRUE(data == body) << body.size();
    const std::string copy = servers.www + "/../downloaded.bin";
    ZYTEST_ASSERT_OK(request.downloadToFile(name.c_str(), copy.c_str()));
    EXPECT_TRUE(data == ReadFile(copy));

    // Only the first bytes when a size is given; more than the file holds is
    // refused before anything is sent. A PUT sends a buffer.
    ZYTEST_ASSERT_OK(request.uploadFile(local.c_str(), "dav/part.bin", 1000, kNoCommands));
    EXPECT_EQ(data.substr(0, 1000), ReadFile(servers.www + "/dav/part.bin"));
    CZyError error =
        request.uploadFile(local.c_str(), "dav/toolong.bin", static_cast<unsigned>(data.size() + 1), kNoCommands);
    EXPECT_TRUE(error.HasMessage("Invalid Buffer size.")) << error.AsString();
    EXPECT_FALSE(zytest::PathExists(servers.www + "/dav/toolong.bin"));
    ZYTEST_ASSERT_OK(request.doPutOperation("dav/part.bin", data.data() + 7, 3000, kNoCommands));
    EXPECT_EQ(data.substr(7, 3000), ReadFile(servers.www + "/dav/part.bin"));

    // DELETE, then the server no longer has it and a GET is a 404 failure.
    ZYTEST_ASSERT_OK(request.doDeleteOperation(name.c_str(), "", 0, kNoCommands));
    EXPECT_FALSE(zytest::PathExists(servers.www + "/" + name));
    error = request.doGetOperation(name.c_str(), kNoCommands);
    EXPECT_TRUE(IsRkCURL(error, 0) && error.HasMessage(ServerSaid(404))) << error.AsString();
    EXPECT_FALSE(request.doDeleteOperation("dav/part.bin", "", 0, kNoCommands).IsError());
    FXFile::RemoveFile(local.c_str());
    FXFile::RemoveFile(copy.c_str());
}

TEST(HttpRequest, PostSendsTextOrBufferWithQueryParameters)
{
    REQUIRE_SERVERS();
    std::string body;
    RkHTTPReq request;
    Open(request, servers.echo, &body);

    ZYTEST_ASSERT_OK(request.doPostOperation("form", "name=value&x=1", kNoCommands));
    EXPECT_EQ("POST /form\nname=value&x=1", body);

    // A buffer with zero bytes inside, and query parameters encoded.
    body.clear();
    const std::string buffer("a\0b\0c", 5);
    const std::vector<commandInfo> commands = {commandInfo(commandInfo::CMD_QUERY, "q", "a b&c"),
                                               commandInfo(commandInfo::CMD_HEADER, "X-Test", "1")};
    ZYTEST_ASSERT_OK(request.doPostOperation("bin", buffer.data(), static_cast<long>(buffer.size()), commands));
    EXPECT_EQ("POST /bin?q=a%20b%26c\n" + buffer, body);

    // An empty body is a valid POST; the GET after it is a GET again.
    body.clear();
    EXPECT_FALSE(request.doPostOperation("empty", buffer.data(), 0, kNoCommands).IsError());
    EXPECT_EQ("POST /empty\n", body);
    body.clear();
    EXPECT_FALSE(request.doGetOperation("after", kNoCommands).IsError());
    EXPECT_EQ("GET /after\n", body);

    // A DELETE with a body, then a raw protocol command, which HTTP refuses.
    body.clear();
    EXPECT_FALSE(request.doDeleteOperation("thing", "why", 3, kNoCommands).IsError());
    EXPECT_EQ("DELETE /thing\nwhy", body);
    CZyError error = request.doGetOperation("x", {commandInfo(commandInfo::CMD_QUOTE, "NOOP")});
    EXPECT_EQ(EErrorKind::Int, error.GetErrorKind());
}

// What a server receives for a whole URL: the target as typed, no fragment,
// the bytes that cannot stand in a URL escaped once.
TEST(HttpRequest, WholeUrlReachesTheServerAsTyped)
{
    REQUIRE_SERVERS();
    std::string body;
    RkHTTPReq request;
    Open(request, servers.echo, &body);
    const std::string origin = zytest::LoopbackURL(servers.echo);
    const std::pair<const char*, const char*> kCases[] = {
        {"/list/plain.txt?x=1&y=%2F#frag", "/list/plain.txt?x=1&y=%2F"},
        {"/list/?C=M;O=A", "/list/?C=M;O=A"},
        {"/%41 b/\xC3\xA9?q=a b", "/%41%20b/%C3%A9?q=a%20b"},
    };
    for (const auto& row : kCases)
    {
        body.clear();
        ZYTEST_EXPECT_OK(request.doGetOperation((origin + row.first).c_str(), kNoCommands));
        EXPECT_EQ(std::string("GET ") + row.second + "\n", body) << row.first;
    }
}

TEST(HttpRequest, HeadersOfEveryKindAreSent)
{
    REQUIRE_SERVERS();
    std::string body;
    RkHTTPReq request;
    Open(request, servers.echo, &body);
    ASSERT_FALSE(request.setHeaders({{"X-Set", "one"}, {"Accept", "text/zy"}}).IsError());
    request.addRequestedHeaders("X-Added", "two");
    request.skipExpectContinue100(true);
    const std::string data(2 << 20, 'p');
    ZYTEST_ASSERT_OK(request.doPutOperation("headers", data.data(), static_cast<long>(data.size()),
                                            {commandInfo(commandInfo::CMD_HEADER, "X-Call", "three")}));
    for (const char* line : {"\r\nX-Set: one", "\r\nAccept: text/zy", "\r\nX-Added: two", "\r\nX-Call: three"})
        EXPECT_NE(std::string::npos, body.find(line)) << body;
    EXPECT_EQ(std::string::npos, body.find("Expect:")) << body;

    // The call's header is for that call only; a header that would split
    // the request is refused.
    body.clear();
    ASSERT_FALSE(request.doGetOperation("headers", kNoCommands).IsError());
    EXPECT_EQ(std::string::npos, body.find("X-Call")) << body;
    EXPECT_NE(std::string::npos, body.find("X-Set: one")) << body;
    EXPECT_TRUE(request.setHeaders({{"X-Bad", "a\r\nInjected: 1"}}).IsError());
}

TEST(HttpRequest, StatusCodesDecideSuccess)
{
    REQUIRE_SERVERS();
    std::string body;
    RkHTTPReq request;
    Open(request, servers.http, &body);

    // Basic authentication: refused without credentials, served with them.
    // The library's trace shows the credentials masked.
    CZyError error = request.doGetOperation("auth/secret.txt", kNoCommands);
    EXPECT_TRUE(error.HasMessage(ServerSaid(401))) << error.AsString();
    ASSERT_FALSE(request.setCredentials(servers.user, servers.password).IsError());
    body.clear();
    {
        zytest::LogCapture log;
        ASSERT_FALSE(request.setLogging(true).IsError());
        ZYTEST_ASSERT_OK(request.doGetOperation("auth/secret.txt", kNoCommands));
        ASSERT_FALSE(request.setLogging(false).IsError());
        EXPECT_TRUE(log.Has("2|> Authorization: Basic ***")) << log.lines.size();
        for (const std::string& line : log.lines)
            EXPECT_EQ(std::string::npos, line.find(servers.password)) << line;
    }
    EXPECT_EQ(ReadFile(servers.www + "/auth/secret.txt"), body);

    // Not following redirects, the 302 is the answer and tells where it leads.
    body.clear();
    ZYTEST_ASSERT_OK(request.doGetOperation("redirect", kNoCommands));
    std::string target;
    request.setURLPath("redirect");
    ASSERT_FALSE(request.getInfo(CURL_INFO_REDIRECT_URL, target).IsError());
    EXPECT_EQ(zytest::LoopbackURL(servers.http) + "/hello.txt", target);

    // Following them, the body is the target's.
    ASSERT_FALSE(request.setLinkRedirects(true).IsError());
    body.clear();
    ZYTEST_ASSERT_OK(request.doGetOperation("redirect", kNoCommands));
    EXPECT_EQ(ReadFile(servers.www + "/hello.txt"), body);
    request.setURLPath("redirect");
    ASSERT_FALSE(request.getInfo(CURL_INFO_EFFECTIVE_URL, target).IsError());
    EXPECT_EQ(zytest::LoopbackURL(servers.http) + "/hello.txt", target);
}

TEST(HttpRequest, FileInformationAndExistence)
{
    REQUIRE_SERVERS();
    RkHTTPReq request;
    Open(request, servers.http, nullptr);

    double size = 0;
    ZYTEST_ASSERT_OK(request.getFileInfo("hello.txt", size));
    EXPECT_EQ(static_cast<double>(ReadFile(servers.www + "/hello.txt").size()), size);
    ZYTEST_ASSERT_OK(request.getFileInfo("big/1GiB.bin", size));
    EXPECT_EQ(static_cast<double>(servers.bigSize), size);
    EXPECT_TRUE(request.getFileInfo("no-such-file", size).HasMessage(ServerSaid(404)));
    // A listing page has no length.
    EXPECT_TRUE(request.getFileInfo("list/", size).HasMessage("File size recieved from server is invalid"));

    bool exists = false;
    const struct { const char* path; bool file, exists; } checks[] = {
        {"list/a file.txt", true, true}, {"list/none.txt", true, false},
        {"list/sub dir/", false, true}, {"list/nothing/", false, false}};
    for (const auto& check : checks)
    {
        exists = !check.exists;
        ZYTEST_EXPECT_OK(request.checkIfFileOrDirExists(check.path, check.file, exists));
        EXPECT_EQ(check.exists, exists) << check.path;
    }

    // Nothing listening: the file check reports curl's failure.
    RkHTTPReq closed;
    Open(closed, servers.http, nullptr);
    closed.setURL("http://127.0.0.1:1");
    CZyError error = closed.checkIfFileOrDirExists("x", true, exists);
    EXPECT_EQ(EErrorKind::Int, error.GetErrorKind());
    EXPECT_EQ(0u, error.GetErrorMessage().find("Failed to check if File exists.Error Code : [7]. Error Message ["))
        << error.AsString();
    EXPECT_TRUE(IsRkCURL(closed.checkConnection(), 7));
    EXPECT_FALSE(request.checkConnection().IsError());
}

TEST(HttpRequest, TlsVerifiesWithTheTestCA)
{
    REQUIRE_SERVERS();
    std::string body;
    RkHTTPReq request(HTTPS);
    ASSERT_FALSE(request.initialize(1).IsError());
    request.setWriteFunctionPointer(&body, &zytest::AppendTo);
    // No scheme in the base URL: the protocol supplies "https://".
    request.setURL("localhost");
    request.setPortNumber(servers.https);

    // The default bundle does not know the test CA, nor does an unrelated
    // certificate.
    CZyError error = request.doGetOperation("hello.txt", kNoCommands);
    if (zytest::IsWindowsTarget())
        EXPECT_TRUE(error.IsError());  // ".\curl-ca-bundle.crt" is missing here
    else
        EXPECT_TRUE(IsRkCURL(error, CURLE_PEER_FAILED_VERIFICATION)) << error.AsString();
    ASSERT_FALSE(request.setSecured(true, servers.wrongCaFile).IsError());
    error = request.doGetOperation("hello.txt", kNoCommands);
    EXPECT_TRUE(IsRkCURL(error, CURLE_PEER_FAILED_VERIFICATION)) << error.AsString();

    // Not secured, any certificate will do; secured with the test CA, it is known.
    for (bool secured : {false, true})
    {
        ASSERT_FALSE(request.setSecured(secured, secured ? servers.caFile : "").IsError());
        body.clear();
        ZYTEST_ASSERT_OK(request.doGetOperation("hello.txt", kNoCommands));
        EXPECT_EQ(ReadFile(servers.www + "/hello.txt"), body);
    }
}

TEST(HttpRequest, CopiesKeepSettingsWithTheirOwnHandle)
{
    REQUIRE_SERVERS();
    std::string body;
    RkHTTPReq original;
    Open(original, servers.http, &body);
    ASSERT_FALSE(original.setCredentials(servers.user, servers.password).IsError());
    ASSERT_FALSE(original.setLinkRedirects(true).IsError());
    {
        RkHTTPReq copy(original);
        ASSERT_TRUE(copy.isInitialized());
        EXPECT_EQ(original.getURL(), copy.getURL());
        EXPECT_TRUE(copy.getLinkRedirects());
        ZYTEST_ASSERT_OK(copy.doGetOperation("auth/secret.txt", kNoCommands));
        EXPECT_EQ(ReadFile(servers.www + "/auth/secret.txt"), body);
    }
    // The copy is gone; the original's handle still works.
    body.clear();
    ZYTEST_ASSERT_OK(original.doGetOperation("auth/secret.txt", kNoCommands));

    RkHTTPReq assigned;
    assigned = original;
    body.clear();
    ZYTEST_ASSERT_OK(assigned.doGetOperation("auth/secret.txt", kNoCommands));
    EXPECT_EQ(ReadFile(servers.www + "/auth/secret.txt"), body);

    // A copy of an object that was never initialised is not initialised.
    RkHTTPReq fresh;
    RkHTTPReq freshCopy(fresh);
    EXPECT_FALSE(freshCopy.isInitialized());
}

void ExpectListing(const std::vector<FileDirInfo>& entries, const std::string& directory, const std::string& listed,
                   bool sizesAndDates)
{
    const auto expected = zytest::DiskListing(directory);
    ASSERT_EQ(expected.size(), entries.size());
    for (const FileDirInfo& entry : entries)
    {
        auto it = expected.find(entry.name);
        ASSERT_NE(expected.end(), it) << "unexpected entry '" << entry.name << "'";
        EXPECT_EQ(it->second.isDirectory, entry.isDirectory) << entry.name;
        EXPECT_EQ(listed + "/" + entry.name, entry.fullPath);
        if (sizesAndDates)
        {
            EXPECT_EQ(it->second.size, entry.size) << entry.name;
            EXPECT_GT(entry.modificationTime, 0) << entry.name;
        }
        else
            EXPECT_TRUE(entry.size == -1 && entry.modificationTime == -1) << entry.name;
    }
}

TEST(HttpListing, NginxAutoindexAndPythonPages)
{
    REQUIRE_SERVERS();
    // The second nginx row lists below a base URL with a path of its own.
    struct Row { const char* server; int port; const char* base; const char* path; const char* dir; bool sizes; };
    const Row rows[] = {
        {"nginx", servers.http, "", "/list", "", true},
        {"nginx", servers.http, "/list", "sub dir", "/sub dir", true},
        {"python", servers.pythonHttp, "", "/", "", false},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(std::string(row.server) + " " + row.path);
        RkHTTPReq request;
        Open(request, row.port, nullptr);
        request.setURL(zytest::LoopbackURL(row.port) + row.base);
        std::vector<FileDirInfo> entries;
        ZYTEST_ASSERT_OK(request.listDirectory(row.path, entries));
        const std::string listed = row.path[0] == '/' && row.path[1] == '\0' ? "" : row.path;
        ExpectListing(entries, servers.www + "/list" + row.dir, listed, row.sizes);
    }
}

TEST(HttpProxy, AuthenticationBypassAndDisable)
{
    REQUIRE_SERVERS();
    if (servers.proxy == 0)
        GTEST_SKIP() << "tinyproxy did not start";
    std::string body;
    const std::string proxyPort = std::to_string(servers.proxy);
    const std::string expected = ReadFile(servers.www + "/hello.txt");

    auto expectServed = [&](RkHTTPReq& request) {
        body.clear();
        ZYTEST_EXPECT_OK(request.doGetOperation("hello.txt", kNoCommands));
        EXPECT_EQ(expected, body);
    };

    // Through the proxy: refused with a wrong password, served with the
    // right one. The proxy is named `localhost`, the target 127.0.0.1.
    RkHTTPReq request;
    Open(request, servers.http, &body);
    ASSERT_FALSE(request.setProyAuth(CURLAUTH_BASIC).IsError());
    ASSERT_FALSE(request.setProxyDetails("localhost", proxyPort, servers.proxyUser, "wrong").IsError());
    CZyError error = request.doGetOperation("hello.txt", kNoCommands);
    // tinyproxy answers a wrong password with 401, missing credentials with 407.
    EXPECT_TRUE(IsRkCURL(error, 0)) << error.AsString();
    int code = 0;
    request.getLastServerResponseCode(code);
    EXPECT_EQ(401, code);
    ASSERT_FALSE(request.setProxyDetails("localhost", proxyPort, servers.proxyUser, servers.proxyPassword).IsError());
    expectServed(request);

    // The default bypass list holds 127.0.0.1: the wrong password no longer
    // matters because the proxy is not asked.
    ASSERT_FALSE(request.setProxyDetails("localhost", proxyPort, servers.proxyUser, "wrong").IsError());
    ASSERT_FALSE(request.setProxyBypass("").IsError());
    expectServed(request);

    // A proxy from the environment is used unless proxies are disabled.
    const std::string environmentProxy = "http://localhost:" + proxyPort;
    zytest::SetEnv("http_proxy", environmentProxy.c_str());
    RkHTTPReq fromEnvironment;
    Open(fromEnvironment, servers.http, &body);
    error = fromEnvironment.doGetOperation("hello.txt", kNoCommands);
    EXPECT_TRUE(error.HasMessage(ServerSaid(407))) << error.AsString();
    ASSERT_FALSE(fromEnvironment.DisableProxy().IsError());
    expectServed(fromEnvironment);
    zytest::SetEnv("http_proxy", nullptr);
}

TEST(HttpDownload, OneGibibyteWithFlatMemory)
{
    REQUIRE_SERVERS();
    RkHTTPReq request;
    Open(request, servers.http, nullptr);
    uint64_t received = 0;
    request.setWriteFunctionPointer(&received, [](char*, size_t size, size_t count, void* user) {
        *static_cast<uint64_t*>(user) += size * count;
        return size * count;
    });
    const uint64_t before = zytest::PeakResidentBytes();
    CZyError error = request.download("big/1GiB.bin", kNoCommands);
    const uint64_t after = zytest::PeakResidentBytes();
    ASSERT_FALSE(error.IsError()) << error.AsString();
    EXPECT_EQ(static_cast<uint64_t>(servers.bigSize), received);
    ASSERT_GT(before, 0u);
    EXPECT_LT(after - before, 16u << 20) << "peak resident memory grew from " << before << " to " << after;
}

// Each misbehaviour of support/hostile_server.py ends in curl's error for it
// within 3 s; a download into a file replaces it only when it succeeded: any
// failure (also a 404 or a refused connection) leaves the file as it was and
// no temporary file beside it.
TEST(HttpFailures, HostilePeers)
{
    REQUIRE_SERVERS();
    if (!servers.hostile)
        GTEST_SKIP() << "the hostile server did not start";
    enum Where { kPlain, kTls, kHalfway, kNginx, kRefused };
    // codes: what curl may report (versions differ); fileContent: the local
    // file after a success.
    struct Case { Where where; const char* path; std::vector<int> codes; const char* fileContent; };
    const Case cases[] = {
        // Windows (Wine) hands curl the reset as an end of the stream.
        {kPlain, "reset-mid-body", {CURLE_RECV_ERROR, CURLE_PARTIAL_FILE}, nullptr},
        {kPlain, "short-body", {CURLE_PARTIAL_FILE}, nullptr},
        // The bytes past Content-Length are not part of the body.
        {kPlain, "long-body", {CURLE_OK}, "0123456789"},
        {kPlain, "bad-chunked", {CURLE_RECV_ERROR}, nullptr},
        // 7.x: out of memory; 8.6 and later: too large (100).
        {kPlain, "endless-header", {CURLE_OUT_OF_MEMORY, 100}, nullptr},
        {kPlain, "trickle-headers", {CURLE_OPERATION_TIMEDOUT}, nullptr},
        {kPlain, "huge-stall", {CURLE_OPERATION_TIMEDOUT}, nullptr},
        {kPlain, "huge-close", {CURLE_PARTIAL_FILE}, nullptr},
        // One request a connection, closed unannounced: the redirect limit,
        // or the reused connection found gone.
        {kPlain, "redirect-loop", {CURLE_TOO_MANY_REDIRECTS, CURLE_RECV_ERROR}, nullptr},
        {kTls, "hello", {CURLE_PEER_FAILED_VERIFICATION}, nullptr},
        {kHalfway, "hello", {CURLE_OPERATION_TIMEDOUT}, nullptr},
        // A server's error page is no body to keep.
        {kNginx, "missing.txt", {CURLE_OK}, nullptr},
        {kRefused, "hello", {CURLE_COULDNT_CONNECT}, nullptr},
    };
    const std::string dir = servers.www + "/../";
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        const bool tls = c.where == kTls || c.where == kHalfway;
        RkHTTPReq request(tls ? HTTPS : HTTP);
        const int port = c.where == kPlain ? servers.hostile : c.where == kTls ? servers.hostileTls
                         : c.where == kHalfway ? servers.hostileHalfway : c.where == kNginx ? servers.http : 1;
        Open(request, port, nullptr, tls);
        // "localhost" for TLS: the certificate names another host.
        request.setURL((tls ? "https://localhost:" : "http://127.0.0.1:") + std::to_string(port));
        ASSERT_FALSE(request.SetTimeOut(3).IsError());
        ASSERT_FALSE(request.setLinkRedirects(true).IsError());
        ASSERT_FALSE(tls && request.setSecured(true, servers.hostileCaFile).IsError());
        const std::string local = dir + "hostile-" + c.path + ".bin";
        const std::string before = "the user's own bytes";
        {
            CZyFile file;
            ASSERT_FALSE(file.Open(local.c_str(), CZyFile::kWriteCreate).IsError());
            ASSERT_FALSE(file.Write(before.data(), static_cast<uint32_t>(before.size())).IsError());
        }
        CZyError error = request.downloadToFile(c.path, local.c_str());
        const int code = error.IsError() ? GetRkCURL(error) : CURLE_OK;
        EXPECT_TRUE(std::find(c.codes.begin(), c.codes.end(), code) != c.codes.end() &&
                    (c.fileContent == nullptr) == error.IsError()) << error.AsString();
        EXPECT_EQ(c.fileContent ? c.fileContent : before, ReadFile(local));
        for (const auto& entry : zytest::DiskListing(dir))
            EXPECT_NE(0u, entry.first.find(std::string(".hostile-") + c.path)) << "left behind: " << entry.first;
        FXFile::RemoveFile(local.c_str());
    }
}
