// ZyHTTP against the recording loopback servers that scripted_servers.py
// --records starts.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <windows.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ZyNetwork/ZyHTTP.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyString.h"
#include "support/TestEnv.h"
#include "support/UploadLayout.h"

namespace
{
std::string Env(const char* name)
{
    const char* value = getenv(name);
    return value ? value : "";
}

class ZyHttpTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_root = Env("ZYHTTP_TEST_ROOT");
        m_records = Env("ZYHTTP_TEST_RECORDS");
        m_port = Env("ZYHTTP_TEST_HTTP_PORT");
        if (m_root.empty() || m_records.empty() || m_port.empty())
            GTEST_SKIP() << "needs the servers of tests/support/scripted_servers.py --records";
        m_local = m_root + "\\..\\local-" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
        CreateDirectoryA(m_local.c_str(), nullptr);
    }

    std::string Url(const std::string& path, const char* scheme = "http", const char* portVariable = nullptr) const
    {
        return std::string(scheme) + "://127.0.0.1:" + (portVariable ? Env(portVariable) : m_port) + path;
    }

    static void Put(const std::string& path, const std::string& bytes)
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    static bool Get(const std::string& path, std::string& bytes)
    {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        bytes = content.str();
        return in.is_open();
    }

    // A file of this test's local directory, or "<missing>".
    std::string Local(const std::string& name) const
    {
        std::string bytes;
        return Get(m_local + "\\" + name, bytes) ? bytes : "<missing>";
    }

    // What the server recorded for METHOD PATH: the request head and body.
    void Recorded(const std::string& method, const std::string& path, std::string& head, std::string& body) const
    {
        std::string name = method + path;
        std::replace_if(name.begin() + method.size(), name.end(),
                        [](char c) { return !isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-'; }, '_');
        ASSERT_TRUE(Get(m_records + "\\" + name + ".head", head)) << "no request " << method << " " << path;
        ASSERT_TRUE(Get(m_records + "\\" + name + ".body", body));
    }

    static std::string Header(const std::string& head, const std::string& name)
    {
        size_t at = FXString::ToLower(head).find("\r\n" + FXString::ToLower(name) + ": ");
        if (at == std::string::npos)
            return "<missing>";
        at += name.size() + 4;
        return head.substr(at, head.find("\r\n", at) - at);
    }

    // The user:password of a Basic authorization header.
    static std::string Credentials(const std::string& head, const std::string& name)
    {
        const std::string authorization = Header(head, name);
        std::string credentials;
        EXPECT_EQ(0u, authorization.find("Basic ")) << authorization;
        EXPECT_TRUE(FXString::Base64Decode(authorization.substr(std::min<size_t>(6, authorization.size())),
                                           credentials));
        return credentials;
    }

    static std::string Binary(size_t size)
    {
        std::string bytes(size, '\0');
        for (size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
        return bytes;
    }

    std::string m_root, m_records, m_port, m_local;
};

TEST_F(ZyHttpTest, UploadSendsTheFormByteForByteInBothModes)
{
    const std::string bytes = std::string("first\0line\r\nsecond\r\n\0\0--", 25) + Binary(70000) + "\r\n";
    const std::string file = m_local + "\\app log 1.txt";
    Put(file, bytes);
    for (bool jsp : {false, true})
    {
        SCOPED_TRACE(jsp ? "JSP mode" : "ASP mode");
        ZyHTTP client(Url(jsp ? "/jsp/" : "/asp").c_str());
        client.SetUser("log user");
        client.SetPassword("p@ss:word");
        if (jsp)
        {
            client.SetUploadMode("Use_JSP_for_Upload");
            client.SetInternetTimeout(30000);  // WinINet asynchronous, see HostilePeers
        }
        ZYTEST_ASSERT_OK(client.UploadFile(file.c_str(), jsp ? nullptr : "CCID-42"));

        const std::string object = jsp ? "/jsp/httplogupload.do" : "/asp/upload.asp";
        std::string head, body;
        ASSERT_NO_FATAL_FAILURE(Recorded("POST", object, head, body));
        EXPECT_EQ(zytest::ExpectedUploadBody(jsp, jsp ? "NO CCID" : "CCID-42", "log user", "p@ss:word",
                                             "app log 1.txt", bytes),
                  body);
        EXPECT_EQ("multipart/form-data; boundary=--HTTP-LOGUPLOAD-DEFAULT-BOUNDARY--", Header(head, "Content-Type"));
        EXPECT_EQ("log user:p@ss:word", Credentials(head, "Authorization"));
    }
    ZyHTTP client(Url("/reject/").c_str());
    EXPECT_TRUE(FXErrorUtil::IsHttp(client.UploadFile(file.c_str(), "x"), 403));
    EXPECT_TRUE(client.UploadFile((m_local + "\\missing.txt").c_str(), "x").Is(2));
}

TEST_F(ZyHttpTest, DownloadsMatchByteForByteAndFailuresLeaveNoFile)
{
    CreateDirectoryA((m_root + "\\dir one").c_str(), nullptr);
    const std::string big = Binary(1024 * 1024 + 12345);
    Put(m_root + "\\dir one\\big file.bin", big);
    Put(m_root + "\\small.txt", std::string("x\0y\r\n", 5));

    ZyHTTP client(Url("/").c_str());
    client.SetInternetTimeout(30000);  // WinINet asynchronous, see HostilePeers
    ZYTEST_ASSERT_OK(client.DownloadFile("dir one", "big file.bin", m_local.c_str()));
    const std::string got = Local("big file.bin");
    EXPECT_TRUE(got == big) << "got " << got.size() << " bytes";

    std::map<CZyString, CZyString> headers = {{"X-Request-Tag", "tag 1"}, {"Accept-Language", "de"}};
    ZYTEST_ASSERT_OK(client.DownloadFileFromUrl(Url("/small.txt?v=2").c_str(), m_local.c_str(), "copy.txt", headers));
    EXPECT_EQ(std::string("x\0y\r\n", 5), Local("copy.txt"));
    std::string head, body;
    ASSERT_NO_FATAL_FAILURE(Recorded("GET", "/small.txt?v=2", head, body));
    EXPECT_EQ("tag 1", Header(head, "X-Request-Tag"));
    EXPECT_EQ("de", Header(head, "Accept-Language"));
    EXPECT_EQ("ZyHTTP", Header(head, "User-Agent"));

    CZyError error = client.DownloadFile(nullptr, "missing.bin", m_local.c_str());
    EXPECT_TRUE(FXErrorUtil::IsHttp(error, 404)) << error.AsString();
    EXPECT_EQ("<missing>", Local("missing.bin"));
    EXPECT_EQ("<missing>", Local("missing.bin.part"));
    // A failed download leaves an existing file as it was.
    Put(m_local + "\\missing.bin", "old");
    EXPECT_TRUE(client.DownloadFileFromUrl(Url("/missing.bin").c_str(), m_local.c_str(), nullptr, {}).IsError());
    EXPECT_EQ("old", Local("missing.bin"));
}

TEST_F(ZyHttpTest, FileListWalksNestedListingsAndStopsOnLoops)
{
    for (const char* dir : {"\\tree", "\\tree\\sub", "\\tree\\sub\\deeper", "\\tree\\empty"})
        CreateDirectoryA((m_root + dir).c_str(), nullptr);
    for (const char* file : {"\\tree\\a.txt", "\\tree\\b c&d.bin", "\\tree\\sub\\d.txt", "\\tree\\sub\\deeper\\e.txt"})
        Put(m_root + file, file);

    // Every listing page links to itself, its parent and the site root.
    ZyHTTP client(Url("/").c_str());
    client.SetInternetTimeout(30000);  // WinINet asynchronous, see HostilePeers
    std::vector<CZyString> files = {"stale"};
    ZYTEST_ASSERT_OK(client.GetFileList(files, "tree"));
    std::vector<std::string> names;
    for (const CZyString& file : files)
        names.push_back(file.str());
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"a.txt", "b c&d.bin", "sub/d.txt", "sub/deeper/e.txt"}), names);

    client.SetPath("/tree/sub");
    ASSERT_FALSE(client.GetFileList(files, nullptr).IsError());
    ASSERT_EQ(2u, files.size());
    EXPECT_EQ("d.txt", files[0].str());
    EXPECT_EQ("deeper/e.txt", files[1].str());

    EXPECT_TRUE(FXErrorUtil::IsHttp(client.GetFileList(files, "no such dir"), 404));
    EXPECT_TRUE(files.empty());
}

TEST_F(ZyHttpTest, HttpsWithASelfSignedCertificateNeedsTheIgnoreOption)
{
    Put(m_root + "\\tls.txt", "secret bytes");
    ZyHTTP client(Url("/", "HTTPS", "ZYHTTP_TEST_HTTPS_PORT").c_str());
    CZyError error = client.DownloadFile(nullptr, "tls.txt", m_local.c_str());
    // A WinINet error (12000-12199), not a status from the server.
    EXPECT_EQ(EErrorKind::Win32, error.GetErrorKind()) << error.AsString();
    EXPECT_TRUE(error.GetErrorCode() >= 12000 && error.GetErrorCode() < 12200) << error.AsString();
    EXPECT_EQ("<missing>", Local("tls.txt"));

    client.SetIgnoreCertificateErrors();
    ZYTEST_ASSERT_OK(client.DownloadFile(nullptr, "tls.txt", m_local.c_str()));
    EXPECT_EQ("secret bytes", Local("tls.txt"));
}

TEST_F(ZyHttpTest, TheTimeLimitEndsARequestToASilentServer)
{
    ZyHTTP client(Url("/", "http", "ZYHTTP_TEST_SILENT_PORT").c_str());
    client.SetInternetTimeout(1500);
    CZyError error = client.DownloadFile(nullptr, "never.bin", m_local.c_str());
    // ERROR_INTERNET_TIMEOUT; Wine's WinINet reports its own ended wait as
    // ERROR_INTERNET_CONNECTION_ABORTED when that ends before the client's
    // limit for the header phase.
    EXPECT_TRUE(error.Is(12002) || error.Is(12030)) << error.AsString();
    EXPECT_EQ("<missing>", Local("never.bin"));
}

TEST_F(ZyHttpTest, CredentialsAnswerServerAndProxyChallenges)
{
    for (const char* dir : {"\\server-auth", "\\proxy-auth"})
        CreateDirectoryA((m_root + dir).c_str(), nullptr);
    Put(m_root + "\\server-auth\\private.txt", "private");
    Put(m_root + "\\proxy-auth\\via.txt", "through the proxy");
    std::string head, body;
    ZyHTTP server(Url("/server-auth/").c_str());
    EXPECT_TRUE(FXErrorUtil::IsHttp(server.DownloadFile(nullptr, "private.txt", m_local.c_str()), 401));
    server.SetUser("reader");
    server.SetPassword("pw");
    ZYTEST_ASSERT_OK(server.DownloadFile(nullptr, "private.txt", m_local.c_str()));
    ASSERT_NO_FATAL_FAILURE(Recorded("GET", "/server-auth/private.txt", head, body));
    EXPECT_EQ("reader:pw", Credentials(head, "Authorization"));

    // Port 1 refuses connections: only the proxy can answer. The proxy is
    // named "localhost" so that its host differs from the target's.
    ZyHTTP proxied("http://127.0.0.1:1/proxy-auth/");
    proxied.SetProxyAccess(("localhost:" + m_port).c_str(), nullptr);
    CZyError error = proxied.DownloadFile(nullptr, "via.txt", m_local.c_str());
    EXPECT_TRUE(FXErrorUtil::IsHttp(error, 407)) << error.AsString();
    proxied.SetProxyCreds("proxy user", "proxy:pw");
    ZYTEST_ASSERT_OK(proxied.DownloadFile(nullptr, "via.txt", m_local.c_str()));
    EXPECT_EQ("through the proxy", Local("via.txt"));
    ASSERT_NO_FATAL_FAILURE(Recorded("GET", "http://127.0.0.1:1/proxy-auth/via.txt", head, body));
    EXPECT_EQ("proxy user:proxy:pw", Credentials(head, "Proxy-Authorization"));
}

TEST_F(ZyHttpTest, WorkingUrlAndIndependentCopies)
{
    Put(m_root + "\\copy.txt", "copied");
    ZyHTTP original(Url("/files?x=1#top").c_str());
    CZyString url;
    ASSERT_FALSE(original.GetWorkingURL(url).IsError());
    EXPECT_EQ(Url("/files/"), url.str());

    ZyHTTP copy(original);
    copy.SetWebServer("localhost:1");
    copy.SetPath("other");
    ASSERT_FALSE(copy.GetWorkingURL(url).IsError());
    EXPECT_EQ("http://localhost:1/other/", url.str());
    ASSERT_FALSE(original.GetWorkingURL(url).IsError());
    EXPECT_EQ(Url("/files/"), url.str());

    copy = original;
    copy.SetPath("/");
    original.SetPath("/");
    EXPECT_FALSE(copy.DownloadFile(nullptr, "copy.txt", m_local.c_str()).IsError());
    EXPECT_FALSE(original.DownloadFile("", "copy.txt", m_local.c_str()).IsError());

    ZyHTTP broken("ftp://127.0.0.1/");
    EXPECT_TRUE(broken.GetWorkingURL(url).Is(87));
    EXPECT_TRUE(broken.DownloadFile(nullptr, "copy.txt", m_local.c_str()).Is(87));
    EXPECT_TRUE(broken.SetBaseURL("http://[::1/").Is(87));
    EXPECT_FALSE(broken.SetBaseURL(Url("/").c_str()).IsError());
    EXPECT_FALSE(broken.DownloadFile(nullptr, "copy.txt", m_local.c_str()).IsError());
}
}  // namespace

// The hostile server of support/hostile_server.py: each download returns
// within its time limit (3 s per wait) with WinINet's error for the
// misbehaviour and leaves neither the file nor its ".part". Where Windows
// and Wine report differently both codes are listed (Wine passes socket
// errors through: 10054 for a reset). The limit also bounds the whole
// header phase, so trickled headers and a handshake that stops halfway end
// with 12002.
TEST_F(ZyHttpTest, HostilePeers)
{
    if (Env("ZYHTTP_TEST_HOSTILE_PORT").empty())
        GTEST_SKIP() << "no hostile server";
    // server: the port variable; codes: 0 is success, with `content` in the file;
    // ignore: certificate errors.
    struct Case { const char* server; const char* path; std::vector<int> codes; const char* content; bool ignore; };
    const char* const plain = "ZYHTTP_TEST_HOSTILE_PORT";
    const char* const otherName = "ZYHTTP_TEST_HOSTILETLS_PORT";
    const Case cases[] = {
        {plain, "/reset-mid-body", {12030, 10054}, nullptr, false},
        {plain, "/short-body", {12030}, nullptr, false},
        // A body that does not match its length is refused either way.
        {plain, "/long-body", {12030}, nullptr, false},
        {plain, "/bad-chunked", {12030, 0}, "hello", false},
        {plain, "/endless-header", {12152, 12030}, nullptr, false},
        {plain, "/trickle-headers", {12002}, nullptr, false},
        // The body is not bounded as a whole: each byte comes within the limit.
        {plain, "/trickle-body", {0}, "hello", false},
        {plain, "/huge-stall", {12002, 10060}, nullptr, false},
        {plain, "/huge-close", {12030}, nullptr, false},
        // Wine: 12030, or 12002 when the loop runs into the limit.
        {plain, "/redirect-loop", {12156, 12030, 12002}, nullptr, false},
        // Wrong name from an unknown issuer: 12038 or 12045 on Windows; Wine
        // reports the failed revocation check first, so under Wine this row
        // cannot tell the name from the issuer. The ignore option accepts
        // both.
        {otherName, "/hello", {12045, 12038, 12057}, nullptr, false},
        {otherName, "/hello", {0}, "hello", true},
        {"ZYHTTP_TEST_HOSTILEHALFWAY_PORT", "/hello", {12002}, nullptr, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        const bool tls = std::string(c.server) != plain;
        const std::string url = std::string(tls ? "https://localhost:" : "http://127.0.0.1:") + Env(c.server) + c.path;
        ZyHTTP client(url.c_str());
        client.SetInternetTimeout(3000);
        if (c.ignore)
            client.SetIgnoreCertificateErrors();
        CZyError error = client.DownloadFileFromUrl(url.c_str(), m_local.c_str(), "got.bin", {});
        const int code = error.IsError() ? static_cast<int>(error.GetErrorCode()) : 0;
        EXPECT_NE(c.codes.end(), std::find(c.codes.begin(), c.codes.end(), code)) << code << " " << error.AsString();
        EXPECT_EQ(code == 0 && c.content ? c.content : "<missing>", Local("got.bin"));
        EXPECT_EQ("<missing>", Local("got.bin.part"));
        DeleteFileA((m_local + "\\got.bin").c_str());
    }
}
