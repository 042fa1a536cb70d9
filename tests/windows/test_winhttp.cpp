// CZyHTTP2 against the scripted loopback servers of
// tests/support/scripted_servers.py, which launches this program.
#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ZyNetwork/ZyHTTP2.h"
#include "ZyUtils/ZyTime.h"
#include "support/TestEnv.h"

namespace
{
// One request as the servers saw it.
struct Seen
{
    std::string server;
    int connection = 0;
    std::string method;
    std::string path;
    std::string headers;
    std::string body;

    std::string Header(const std::string& name) const
    {
        std::istringstream lines(headers);
        for (std::string line; std::getline(lines, line);)
            if (line.size() > name.size() + 1 && _strnicmp(line.c_str(), name.c_str(), name.size()) == 0 &&
                line[name.size()] == ':')
                return line.substr(name.size() + 2, line.find_last_not_of("\r") - name.size() - 1);
        return "";
    }
};

// The servers' ports and the control channel.
class Servers
{
public:
    bool Load()
    {
        const char* ports = std::getenv("ZYNET_TEST_SERVERS");
        if (!ports)
            return false;
        std::istringstream words(ports);
        for (std::string word; words >> word;)
            m_ports[word.substr(0, word.find('='))] = std::stoi(word.substr(word.find('=') + 1));
        return true;
    }

    std::string Url(const char* server, const std::string& path) const
    {
        const char* scheme = std::string(server) == "https" ? "https://" : "http://";
        return scheme + ("127.0.0.1:" + std::to_string(Port(server))) + path;
    }
    int Port(const char* server) const { return m_ports.at(server); }

    std::string Command(const std::string& line, const std::string& payload = "") const
    {
        SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<u_short>(Port("control")));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::string reply;
        if (connect(s, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0)
        {
            std::string message = line + "\n" + payload;
            send(s, message.data(), static_cast<int>(message.size()), 0);
            char buffer[4096];
            int n;
            while ((n = recv(s, buffer, sizeof(buffer), 0)) > 0)
                reply.append(buffer, n);
        }
        closesocket(s);
        return reply;
    }
    void Content(const std::string& path, const std::string& bytes) const
    {
        Command("CONTENT " + path + " " + std::to_string(bytes.size()), bytes);
    }
    void Script(const std::string& path, const std::string& tokens) const { Command("SCRIPT " + path + " " + tokens); }
    int Connections(const char* server) const { return std::stoi(Command(std::string("COUNT ") + server)); }

    std::vector<Seen> Log(const char* server = nullptr) const
    {
        const std::string log = Command("LOG");
        std::vector<Seen> seen;
        std::vector<std::string> f;
        // Six fields a request, each "<length> <bytes>".
        for (size_t at = 0, space; (space = log.find(' ', at)) != std::string::npos;)
        {
            f.push_back(log.substr(space + 1, std::stoul(log.substr(at, space - at))));
            at = space + 1 + f.back().size();
            if (f.size() < 6)
                continue;
            if (!server || f[0] == server)
                seen.push_back(Seen{f[0], std::stoi(f[1]), f[2], f[3], f[4], f[5]});
            f.clear();
        }
        return seen;
    }

private:
    std::map<std::string, int> m_ports;
};

bool FileExists(const std::string& path)
{
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string RandomBytes(size_t size, unsigned seed)
{
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes)
        c = static_cast<char>(generator() & 0xFF);
    return bytes;
}

std::vector<unsigned> g_sleeps;

class WinHttpTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!m_servers.Load())
            GTEST_SKIP() << "ZYNET_TEST_SERVERS is not set: run through tests/support/scripted_servers.py";
        g_sleeps.clear();
        ZySetSleepHook([](unsigned int milliseconds, const char*, int, void*) { g_sleeps.push_back(milliseconds); },
                       nullptr);
    }
    void TearDown() override
    {
        ZySetSleepHook(nullptr, nullptr);
        for (const std::string& path : m_files)
            DeleteFileA(path.c_str());
    }
    // A temporary file name, removed at the end of the test.
    std::string File(const char* tag)
    {
        char directory[MAX_PATH];
        GetTempPathA(MAX_PATH, directory);
        m_files.push_back(std::string(directory) + "zyhttp2-" + std::to_string(GetCurrentProcessId()) + "-" +
                          std::to_string(m_files.size()) + "-" + tag);
        return m_files.back();
    }
    CZyError Fetch(CZyHTTP2& client, const std::string& file, const char* path, const char* server = "http")
    {
        return client.DownloadFile(file.c_str(), m_servers.Url(server, path).c_str());
    }

    Servers m_servers;
    std::vector<std::string> m_files;
};

TEST_F(WinHttpTest, DownloadsLargeAndEmptyFilesByteForByte)
{
    std::string large = RandomBytes(3 * 10240 + 123, 1);
    m_servers.Content("/large.bin", large);
    m_servers.Content("/empty.bin", "");
    CZyHTTP2 client("zy-agent");
    std::string largeFile = File("large"), emptyFile = File("empty");

    ZYTEST_ASSERT_OK(Fetch(client, largeFile, "/large.bin"));
    EXPECT_TRUE(ReadFile(largeFile) == large);
    ZYTEST_ASSERT_OK(Fetch(client, emptyFile, "/empty.bin"));
    EXPECT_TRUE(FileExists(emptyFile));
    EXPECT_EQ(ReadFile(emptyFile), "");

    std::vector<Seen> seen = m_servers.Log("http");
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].method, "GET");
    EXPECT_EQ(seen[0].Header("User-Agent"), "zy-agent");
}

TEST_F(WinHttpTest, UploadsWithPutAndPostIncludingEmptyFiles)
{
    std::string bytes = RandomBytes(2 * 10240 + 7, 2);
    std::string source = File("source"), empty = File("empty");
    WriteFile(source, bytes);
    WriteFile(empty, "");
    m_servers.Script("/put", "201");
    CZyHTTP2 client;
    for (const char* path : {"/put", "/post"})
    {
        client.SetPostUpload(path[2] == 'o');
        ZYTEST_ASSERT_OK(client.UploadFile(source.c_str(), m_servers.Url("http", path).c_str()));
        ZYTEST_ASSERT_OK(client.UploadFile(empty.c_str(), m_servers.Url("http", path).c_str()));
    }
    std::vector<Seen> seen = m_servers.Log("http");
    ASSERT_EQ(seen.size(), 4u);
    for (size_t i = 0; i < seen.size(); ++i)
    {
        EXPECT_EQ(seen[i].method, i < 2 ? "PUT" : "POST");
        EXPECT_TRUE(seen[i].body == (i % 2 == 0 ? bytes : std::string())) << "request " << i;
    }
    CZyError error = client.UploadFile(File("missing").c_str(), m_servers.Url("http", "/post").c_str());
    EXPECT_TRUE(error.HasMessage("Failed to open source file " + m_files.back()));
}

TEST_F(WinHttpTest, ServiceUnavailableIsRetriedFiveTimesWithGrowingSleeps)
{
    m_servers.Content("/busy", "finally");
    m_servers.Script("/busy", "503,503,503,503,503,200");
    m_servers.Script("/down", "503");
    CZyHTTP2 client;
    std::string file = File("busy");
    ZYTEST_ASSERT_OK(Fetch(client, file, "/busy"));
    EXPECT_EQ(ReadFile(file), "finally");
    EXPECT_EQ(g_sleeps, (std::vector<unsigned>{2000, 4000, 6000, 8000, 10000}));
    EXPECT_EQ(m_servers.Log("http").size(), 6u);

    g_sleeps.clear();
    CZyError error = Fetch(client, file, "/down");
    EXPECT_TRUE(FXErrorUtil::IsHttp(error, 503)) << error.AsString();
    EXPECT_EQ(g_sleeps.size(), 5u);
    EXPECT_EQ(m_servers.Log("http").size(), 12u);
    EXPECT_FALSE(FileExists(file));
}

TEST_F(WinHttpTest, ServerAuthentication)
{
    m_servers.Content("/secret", "for alice");
    m_servers.Script("/secret", "basic=alice:s3cret");
    m_servers.Script("/odd", "bogus");
    CZyHTTP2 client, wrong;
    client.SetUser("alice");
    client.SetPassword("s3cret");
    std::string file = File("secret");
    ZYTEST_ASSERT_OK(Fetch(client, file, "/secret"));
    EXPECT_EQ(ReadFile(file), "for alice");
    std::vector<Seen> seen = m_servers.Log("http");
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].Header("Authorization"), "");
    EXPECT_EQ(seen[1].Header("Authorization"), "Basic YWxpY2U6czNjcmV0");

    // Credentials the server refuses: one retry, then failure.
    wrong.SetUser("alice");
    wrong.SetPassword("guess");
    CZyError error = Fetch(wrong, file, "/secret");
    EXPECT_TRUE(error.HasMessage("Authentication failed")) << error.AsString();
    EXPECT_EQ(m_servers.Log("http").size(), 4u);

    // No scheme the client knows: the call ends quietly with nothing written.
    ZYTEST_EXPECT_OK(Fetch(client, file, "/odd"));
    EXPECT_EQ(ReadFile(file), "");
}

TEST_F(WinHttpTest, ProxyAuthentication)
{
    m_servers.Command("PROXYAUTH carol:pr0xy");
    m_servers.Content("/via", "through the proxy");
    // The proxy is named "localhost" and the target 127.0.0.1: Wine treats
    // a proxy whose name equals the target's as no proxy at all.
    std::string proxy = "localhost:" + std::to_string(m_servers.Port("proxy"));
    std::string file = File("via");
    CZyHTTP2 client, anonymous, bypassing;
    client.SetProxyAccess(proxy.c_str());
    client.SetProxyCredentials("carol", "pr0xy");
    ZYTEST_ASSERT_OK(Fetch(client, file, "/via"));
    EXPECT_EQ(ReadFile(file), "through the proxy");
    std::vector<Seen> atProxy = m_servers.Log("proxy");
    ASSERT_GE(atProxy.size(), 2u);
    EXPECT_EQ(atProxy.back().Header("Proxy-Authorization"), "Basic Y2Fyb2w6cHIweHk=");
    EXPECT_EQ(m_servers.Log("http").size(), 1u);

    anonymous.SetProxyAccess(proxy.c_str());
    CZyError error = Fetch(anonymous, file, "/via");
    EXPECT_TRUE(error.HasMessage("Proxy Authentication failed")) << error.AsString();
    EXPECT_EQ(m_servers.Log("http").size(), 1u);
    EXPECT_FALSE(FileExists(file));

    // A bypass list naming the target sends the request past the proxy.
    size_t proxied = m_servers.Log("proxy").size();
    bypassing.SetProxyAccess(proxy.c_str());
    bypassing.SetProxyBypass("127.0.0.1");
    ZYTEST_ASSERT_OK(Fetch(bypassing, file, "/via"));
    EXPECT_EQ(m_servers.Log("proxy").size(), proxied);
    EXPECT_EQ(m_servers.Log("http").size(), 2u);
}

TEST_F(WinHttpTest, NotFoundRemovesTheDestinationAndCreatedWritesNothing)
{
    m_servers.Script("/missing", "404");
    m_servers.Content("/made", "body of a 201");
    m_servers.Script("/made", "201");
    m_servers.Script("/teapot", "418");
    CZyHTTP2 client;
    std::string file = File("nf");
    WriteFile(file, "old content");
    CZyError error = Fetch(client, file, "/missing");
    EXPECT_EQ(error.GetErrorCode(), 1168);
    EXPECT_TRUE(error.HasMessage("URL not found")) << error.AsString();
    EXPECT_FALSE(FileExists(file));

    ZYTEST_EXPECT_OK(Fetch(client, file, "/made"));
    EXPECT_TRUE(FileExists(file));
    EXPECT_EQ(ReadFile(file), "");
    error = Fetch(client, file, "/teapot");
    EXPECT_TRUE(FXErrorUtil::IsHttp(error, 418)) << error.AsString();
}

TEST_F(WinHttpTest, AutoEscapeDropsQueryCharacters)
{
    CZyHTTP2 client;
    std::string file = File("esc");
    ASSERT_FALSE(Fetch(client, file, "/p?a=1&b=2").IsError());
    client.SetAutoEscapeUrl(false);
    ASSERT_FALSE(Fetch(client, file, "/p?a=1&b=2").IsError());
    std::vector<Seen> seen = m_servers.Log("http");
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].path, "/pa1b2");
    EXPECT_EQ(seen[1].path, "/p?a=1&b=2");
}

// The scheme, not SetSecured, decides TLS; self-signed certificates are
// accepted. The servers' counts show which connection each request took.
TEST_F(WinHttpTest, ConnectionIsKeptForTheSameHostAndPortAndTheSchemeDecidesTls)
{
    // A body lets WinHTTP read the response to its end and keep the
    // connection for the next request.
    m_servers.Content("/a", "kept");
    m_servers.Content("/tls", "over tls");
    CZyHTTP2 client;
    client.SetSecured(true);
    std::string url = m_servers.Url("http", "/a"), file = File("keep");
    ASSERT_FALSE(client.Connect(url.c_str()).IsError());
    ASSERT_FALSE(client.Connect(m_servers.Url("http", "/b").c_str()).IsError());
    ZYTEST_ASSERT_OK(client.DownloadFile(file.c_str(), url.c_str()));
    ZYTEST_ASSERT_OK(client.DownloadFile(file.c_str(), url.c_str()));
    EXPECT_EQ(ReadFile(file), "kept");
    EXPECT_EQ(m_servers.Connections("http"), 1);

    client.SetSecured(false);
    ZYTEST_ASSERT_OK(Fetch(client, file, "/tls", "https"));
    EXPECT_EQ(ReadFile(file), "over tls");
    EXPECT_EQ(m_servers.Log("https").size(), 1u);
    EXPECT_EQ(m_servers.Log("http").size(), 2u);
}

TEST_F(WinHttpTest, SilentServerGetsOneReconnectThenFails)
{
    CZyHTTP2 client;
    client.SetInternetTimeoutSec(1);
    std::string file = File("silent");
    CZyError error = Fetch(client, file, "/", "silent");
    EXPECT_TRUE(error.HasMessage("WinHttpReceiveResponse failed")) << error.AsString();
    EXPECT_EQ(error.GetErrorCode(), 12002);
    // Wine sends the second request over the same connection.
    EXPECT_EQ(m_servers.Connections("silent-requests"), 2);
    EXPECT_FALSE(FileExists(file));
}

TEST_F(WinHttpTest, HeadersGoOutInKeyOrderAndFirstValueWins)
{
    CZyHTTP2 client;
    client.SetRequestHeader("X-Zeta", "last");
    client.SetRequestHeader("X-Alpha", "first");
    client.SetRequestHeader("X-Alpha", "ignored");
    CZyHTTP2 copy(client);  // settings travel with a copy, handles do not
    std::string file = File("hdr");
    ASSERT_FALSE(Fetch(copy, file, "/h").IsError());
    client.ClearRequestHeader();
    ASSERT_FALSE(Fetch(client, file, "/h").IsError());
    std::vector<Seen> seen = m_servers.Log("http");
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].Header("X-Alpha"), "first");
    EXPECT_EQ(seen[0].Header("X-Zeta"), "last");
    EXPECT_LT(seen[0].headers.find("X-Alpha"), seen[0].headers.find("X-Zeta"));
    EXPECT_EQ(seen[1].Header("X-Alpha"), "");
}

TEST_F(WinHttpTest, ProxyDiscovery)
{
    // The default and current-user configurations: the tool's zynet.proxy.
    std::string proxy, bypass;
    m_servers.Content("/proxy.pac",
                      "function FindProxyForURL(url, host) {\n"
                      "  if (shExpMatch(url, \"*/via-proxy/*\")) return \"PROXY localhost:3128\";\n"
                      "  return \"DIRECT\";\n"
                      "}\n");
    std::string pac = m_servers.Url("http", "/proxy.pac");
    ZYTEST_ASSERT_OK(CZyHTTP2::GetProxyForUrl("http://127.0.0.1:1/via-proxy/x", pac, proxy, bypass));
    EXPECT_EQ(proxy, "localhost:3128");
    ZYTEST_ASSERT_OK(CZyHTTP2::GetProxyForUrl("http://127.0.0.1:1/direct", pac, proxy, bypass));
    EXPECT_EQ(proxy, "");

    // A script that cannot be fetched.
    m_servers.Script("/gone.pac", "404");
    std::string url = "http://127.0.0.1:1/x";
    CZyError error = CZyHTTP2::GetProxyForUrl(url, m_servers.Url("http", "/gone.pac"), proxy, bypass);
    EXPECT_TRUE(error.HasMessage("Failed to get proxy for URL [" + url + "]")) << error.AsString();
}
}  // namespace

// The hostile server of support/hostile_server.py: each download ends with
// the error for the misbehaviour and a failed one leaves no file. Where
// Windows and Wine differ both codes are listed (Wine passes socket errors
// through: 10054 reset, 10060 time-out). Certificates for other names are
// accepted as self-signed ones are. No trickled headers: Wine applies the
// response-header limit to each wait (docs/RELIABILITY.md).
TEST_F(WinHttpTest, HostilePeers)
{
    // codes: 0 is success, with `content` in the file.
    struct Case { const char* server; const char* path; std::vector<int> codes; const char* content; };
    const Case cases[] = {
        {"hostile", "/reset-mid-body", {12030, 10054}, nullptr},
        {"hostile", "/short-body", {12030}, nullptr},
        {"hostile", "/long-body", {0}, "0123456789"},
        // Wine's WinHTTP ends the body at the broken size line.
        {"hostile", "/bad-chunked", {12030, 0}, "hello"},
        {"hostile", "/endless-header", {12152, 10054}, nullptr},
        {"hostile", "/trickle-body", {0}, "hello"},
        {"hostile", "/huge-stall", {12002, 10060}, nullptr},
        {"hostile", "/huge-close", {12030}, nullptr},
        {"hostile", "/redirect-loop", {12156}, nullptr},
        {"hostiletls", "/hello", {0}, "hello"},
        // Wine's Schannel reports the stalled handshake as a secure channel error.
        {"hostilehalfway", "/hello", {12002, 12157}, nullptr},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        CZyHTTP2 client;
        client.SetInternetTimeoutSec(3);
        std::string file = File("hostile");
        const bool tls = std::string(c.server) != "hostile";
        const std::string url = std::string(tls ? "https" : "http") + "://" + (tls ? "localhost" : "127.0.0.1") + ":" +
                                std::to_string(m_servers.Port(c.server)) + c.path;
        CZyError error = client.DownloadFile(file.c_str(), url.c_str());
        const int code = error.IsError() ? static_cast<int>(error.GetErrorCode()) : 0;
        EXPECT_NE(c.codes.end(), std::find(c.codes.begin(), c.codes.end(), code)) << code << " " << error.AsString();
        EXPECT_EQ(code == 0, FileExists(file));
        EXPECT_EQ(code == 0 && c.content ? c.content : "", ReadFile(file));
    }
}
