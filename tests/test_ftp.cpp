// FTP, explicit FTPS and SFTP requests against the pyftpdlib and sshd of
// support/ftp_servers.py, checked against the servers' disk.
#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

#include "ZyNetwork/RkFTPReq.h"
#include "ZyNetwork/RkSFTPReq.h"
#include "support/FtpServers.h"
#include "support/TestEnv.h"

using namespace RkCURL;

#if defined(__SANITIZE_ADDRESS__)
// Read by LeakSanitizer: Debian 12's libssh2 1.10 leaks 112 bytes of
// libcrypto BIGNUMs per login with an ECDSA key in OpenSSH's format (inside
// libssh2_userauth_publickey_fromfile_ex). Without frame pointers in the
// system libraries the report's stack ends in libcrypto's allocator, so that
// is what is named; the library itself never calls libcrypto.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:CRYPTO_zalloc\n";
}
#endif

namespace
{
const std::vector<commandInfo> kNoCommands;

// The bytes a download of `path` hands to the write callback.
std::string Fetch(RkFTPReq& request, const std::string& path)
{
    std::string body;
    request.setWriteFunctionPointer(&body, &zytest::AppendTo);
    CZyError error = request.download(path.c_str(), kNoCommands);
    request.setWriteFunctionPointer(nullptr, nullptr);
    EXPECT_FALSE(error.IsError()) << path << ": " << error.AsString();
    return body;
}

// A download of `path` ends with curl's `code` (CURLE_OK: it goes through).
::testing::AssertionResult DownloadEnds(RkFTPReq& request, const std::string& path, CURLcode code)
{
    CZyError error = request.download(path.c_str(), kNoCommands);
    if (code == CURLE_OK ? !error.IsError() : GetRkCURL(error) == code)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << path << ": curl " << code << " expected, got " << error.AsString();
}

struct Existence { const char* path; bool isFile, exists; };

void ExpectExistence(RkFTPReq& request, const std::vector<Existence>& cases)
{
    for (const Existence& c : cases)
    {
        SCOPED_TRACE(c.path);
        bool exists = !c.exists;
        ZYTEST_ASSERT_OK(request.checkIfFileOrDirExists(c.path, c.isFile, exists));
        EXPECT_EQ(c.exists, exists);
    }
}

class FtpTest : public ::testing::TestWithParam<FTPProtocol>
{
protected:
    void SetUp() override
    {
        if (!servers.available)
            GTEST_SKIP() << servers.problem;
        tls = GetParam() == FTPS;
        // The test's name without the parameter's "/Ftp" part.
        std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        work = std::string(tls ? "work-ftps/" : "work-ftp/") + name.substr(0, name.find('/'));
    }

    // An initialised request logged in to the server of this protocol.
    void Open(RkFTPReq& request, const std::string& password = std::string())
    {
        ASSERT_FALSE(request.initialize(0).IsError());
        // TLS by name: Windows' Schannel matches no IP address in a
        // certificate.
        request.setURL(tls ? "ftp://localhost:" + std::to_string(servers.ftps)
                           : "ftp://127.0.0.1:" + std::to_string(servers.ftp));
        ASSERT_FALSE(request.setCredentials(servers.user, password.empty() ? servers.password : password).IsError());
        ASSERT_FALSE(tls && request.setSecured(true, servers.caFile).IsError());
    }

    std::string Disk(const std::string& path) const { return servers.root + "/" + path; }

    const zytest::FtpServers& servers = zytest::GetFtpServers();
    bool tls = false;
    std::string work;  // this test's own directory under the root
};

}  // namespace

TEST_P(FtpTest, ListsTheTreeAsOnDiskWithMlsdAndList)
{
    if (tls && zytest::IsWindowsTarget())  // Windows itself is not affected
        GTEST_SKIP() << "Wine's Schannel takes the server's close of a TLS data connection for an error (curl 56)";
    RkFTPReq request(GetParam());
    Open(request);
    zytest::ExpectTreeListed(request, Disk("tree"), "tree");
    // pyftpdlib offers MLSD in its FEAT answer.
    EXPECT_TRUE(request.lastListingWasMlsd());

    RkFTPReq list(GetParam());
    Open(list);
    list.setListingCommand(RkFTPReq::LISTING_LIST);
    zytest::ExpectTreeListed(list, Disk("tree"), "tree");
    EXPECT_FALSE(list.lastListingWasMlsd());
}

TEST_P(FtpTest, DownloadMatchesTheServersFile)
{
    RkFTPReq request(GetParam());
    Open(request);
    // 100 MiB into a file, in active mode for the plain server.
    ASSERT_FALSE(!tls && request.setActiveMode(true).IsError());
    const std::string big = Disk(work + "-big.bin");
    CZyError error = request.downloadToFile("tree/big.bin", big.c_str());
    ASSERT_FALSE(error.IsError()) << error.AsString();
    EXPECT_TRUE(zytest::SameBytes(Disk("tree/big.bin"), big));
    double size = 0;
    ASSERT_FALSE(request.getFileInfo("tree/big.bin", size).IsError());
    EXPECT_EQ(static_cast<double>(servers.bigSize), size);

    EXPECT_TRUE(DownloadEnds(request, "tree/missing.bin", CURLE_REMOTE_FILE_NOT_FOUND));
}

TEST_P(FtpTest, UploadsFromFileAndBufferLandOnDisk)
{
    RkFTPReq request(GetParam());
    Open(request);
    const std::string local = Disk(work + "-source.bin");
    ASSERT_TRUE(zytest::WritePattern(local, servers.bigSize));

    // Into directories that do not exist yet: refused, then made on request.
    const std::string target = work + "/new dir/\xC3\xBC" "ber/big copy.bin";
    CZyError error = request.uploadFile(local.c_str(), target.c_str(), 0, kNoCommands);
    EXPECT_GT(GetRkCURL(error), 0) << error.AsString();
    EXPECT_FALSE(zytest::PathExists(Disk(target)));
    ASSERT_FALSE(request.setCreateMissingDirs(true).IsError());
    ZYTEST_ASSERT_OK(request.uploadFile(local.c_str(), target.c_str(), 0, kNoCommands));
    EXPECT_TRUE(zytest::SameBytes(local, Disk(target)));

    const std::string data = "from a buffer\n\0with a zero byte";
    ZYTEST_ASSERT_OK(request.doPutOperation((work + "/buffer.txt").c_str(), data.data(), static_cast<long>(data.size()),
                                   kNoCommands));
    EXPECT_EQ(data, Fetch(request, work + "/buffer.txt"));
    // An empty upload makes an empty file.
    ASSERT_FALSE(request.doPutOperation((work + "/empty.txt").c_str(), "", 0, kNoCommands).IsError());
    EXPECT_TRUE(zytest::PathExists(Disk(work + "/empty.txt")));
}

TEST_P(FtpTest, CommandsChangeTheServersDisk)
{
    RkFTPReq request(GetParam());
    Open(request);
    const std::string dir = work + "/made \xC3\xA9t\xC3\xA9";
    CZyError error = request.makeDirectory(work);
    ASSERT_FALSE(error.IsError()) << error.AsString();
    ASSERT_FALSE(request.makeDirectory(dir).IsError());
    EXPECT_TRUE(zytest::PathExists(Disk(dir)));
    // Again: the server refuses, curl reports the failed command (21).
    error = request.makeDirectory(dir);
    EXPECT_EQ(CURLE_QUOTE_ERROR, GetRkCURL(error)) << error.AsString();

    ASSERT_FALSE(request.doPutOperation((dir + "/a b.txt").c_str(), "x", 1, kNoCommands).IsError());
    ZYTEST_ASSERT_OK(request.renameFile(dir + "/a b.txt", dir + "/c d.txt"));
    EXPECT_FALSE(zytest::PathExists(Disk(dir + "/a b.txt")));
    EXPECT_TRUE(zytest::PathExists(Disk(dir + "/c d.txt")));

    ASSERT_FALSE(request.doDeleteOperation((dir + "/c d.txt").c_str(), "", 0, kNoCommands).IsError());
    EXPECT_FALSE(zytest::PathExists(Disk(dir + "/c d.txt")));
    error = request.deleteFile(dir + "/c d.txt");
    EXPECT_EQ(CURLE_QUOTE_ERROR, GetRkCURL(error)) << error.AsString();
    ASSERT_FALSE(request.removeDirectory(dir).IsError());
    EXPECT_FALSE(zytest::PathExists(Disk(dir)));

    // Raw commands before a transfer; a line break never reaches the server.
    ASSERT_FALSE(request.doPutOperation((work + "/q.txt").c_str(), "q", 1, kNoCommands).IsError());
    error = request.download((work + "/q.txt").c_str(), {commandInfo(commandInfo::CMD_QUOTE, "NOOP")});
    EXPECT_FALSE(error.IsError()) << error.AsString();
    EXPECT_EQ(EErrorKind::Int, request.deleteFile(work + "/q.txt\r\nRMD x").GetErrorKind());
    EXPECT_TRUE(zytest::PathExists(Disk(work + "/q.txt")));
}

TEST_P(FtpTest, ExistenceOfFilesAndDirectories)
{
    RkFTPReq request(GetParam());
    Open(request);
    ExpectExistence(request, {{"tree/empty.txt", true, true},
                              {"tree/missing.txt", true, false},
                              {"tree/sub dir", true, false},  // a directory is not a file
                              {"tree/\xC3\xA9t\xC3\xA9", false, true},
                              {"tree/no such dir", false, false},
                              {"tree/a file.txt", false, false}});  // nor a file a directory
    EXPECT_FALSE(request.checkConnection().IsError());
}

TEST_P(FtpTest, WrongPasswordAndCertificateAreRefused)
{
    RkFTPReq request(GetParam());
    Open(request, "wrong password");
    CZyError error = request.download("tree/a file.txt", kNoCommands);
    EXPECT_TRUE(IsRkCURL(error, CURLE_LOGIN_DENIED)) << error.AsString();

    if (tls)
    {
        RkFTPReq other(FTPS);
        Open(other);
        ASSERT_FALSE(other.setSecured(true, servers.wrongCaFile).IsError());
        EXPECT_TRUE(DownloadEnds(other, "tree/a file.txt", CURLE_PEER_FAILED_VERIFICATION));
    }
    else
    {
        // Asking for TLS from a server without it.
        RkFTPReq secure(FTPS);
        ASSERT_FALSE(secure.initialize(0).IsError());
        secure.setURL("ftps://127.0.0.1:" + std::to_string(servers.ftp));
        ASSERT_FALSE(secure.setCredentials(servers.user, servers.password).IsError());
        EXPECT_TRUE(DownloadEnds(secure, "tree/a file.txt", CURLE_USE_SSL_FAILED));
    }
}

INSTANTIATE_TEST_SUITE_P(Ftp, FtpTest, ::testing::Values(FTP, FTPS),
                         [](const ::testing::TestParamInfo<FTPProtocol>& info) {
                             return std::string(info.param == FTPS ? "Ftps" : "Ftp");
                         });

namespace
{
// Whether the loaded libcurl speaks SFTP (both platforms' files do).
bool CurlHasSftp()
{
    const curl_version_info_data* info = CurlWrapper::rk_curl_version_info(CURLVERSION_NOW);
    if (!info || !info->protocols)
        return false;
    for (const char* const* p = info->protocols; *p; ++p)
        if (strcmp(*p, "sftp") == 0)
            return true;
    return false;
}

class SftpTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!servers.available)
            GTEST_SKIP() << servers.problem;
        if (!servers.sftp)
            GTEST_SKIP() << servers.sftpProblem;
        ASSERT_TRUE(CurlHasSftp()) << "the loaded libcurl (" << CurlWrapper::rk_curl_version() << ") has no SFTP";
        const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        work = "work-sftp/" + name;
    }

    // Logs in with the unencrypted key; the host key checked.
    void Open(RkSFTPReq& request)
    {
        ASSERT_FALSE(request.initialize(0).IsError());
        request.setURL("sftp://127.0.0.1:" + std::to_string(servers.sftp) + servers.rootOnServer);
        ASSERT_FALSE(request.setKnownHostsFile(servers.knownHosts).IsError());
        ASSERT_FALSE(request.setCredentials(servers.keyUser, "").IsError());
        ASSERT_FALSE(request.setPrivateKey(servers.keyFile, "").IsError());
    }

    std::string Disk(const std::string& path) const { return servers.root + "/" + path; }

    const zytest::FtpServers& servers = zytest::GetFtpServers();
    std::string work;
};
}  // namespace

TEST_F(SftpTest, ListsTheTreeAsOnDisk)
{
    RkSFTPReq request;
    Open(request);
    zytest::ExpectTreeListed(request, Disk("tree"), "tree");
    EXPECT_FALSE(request.lastListingWasMlsd());
}

TEST_F(SftpTest, TransfersMatchAndCommandsChangeTheDisk)
{
    RkSFTPReq request;
    Open(request);
    const std::string big = Disk(work + "-big.bin");
    ZYTEST_ASSERT_OK(request.downloadToFile("tree/big.bin", big.c_str()));
    EXPECT_TRUE(zytest::SameBytes(Disk("tree/big.bin"), big));

    // Upload into directories made on request, then the commands.
    ASSERT_FALSE(request.setCreateMissingDirs(true).IsError());
    const std::string dir = work + "/\xC3\xA9t\xC3\xA9 dir";
    ZYTEST_ASSERT_OK(request.uploadFile(big.c_str(), (dir + "/big copy.bin").c_str(), 0, kNoCommands));
    EXPECT_TRUE(zytest::SameBytes(big, Disk(dir + "/big copy.bin")));
    const std::string data = "buffer \"quoted\" bytes";
    ZYTEST_ASSERT_OK(request.doPutOperation((dir + "/b.txt").c_str(), data.data(), static_cast<long>(data.size()),
                                            kNoCommands));
    EXPECT_EQ(data, Fetch(request, dir + "/b.txt"));

    // Asked of the server: Windows cannot name a file with '"' on its disk.
    const std::string moved = dir + "/moved \"name\".bin";
    ZYTEST_ASSERT_OK(request.renameFile(dir + "/big copy.bin", moved));
    EXPECT_FALSE(zytest::PathExists(Disk(dir + "/big copy.bin")));
    ExpectExistence(request, {{moved.c_str(), true, true}});
    ASSERT_FALSE(request.makeDirectory(dir + "/new sub").IsError());
    EXPECT_TRUE(zytest::PathExists(Disk(dir + "/new sub")));
    ASSERT_FALSE(request.removeDirectory(dir + "/new sub").IsError());
    EXPECT_FALSE(zytest::PathExists(Disk(dir + "/new sub")));
    ASSERT_FALSE(request.doDeleteOperation(moved.c_str(), "", 0, kNoCommands).IsError());
    ExpectExistence(request, {{moved.c_str(), true, false}});
    CZyError error = request.deleteFile(moved);
    EXPECT_EQ(CURLE_QUOTE_ERROR, GetRkCURL(error)) << error.AsString();
    EXPECT_TRUE(DownloadEnds(request, dir + "/missing", CURLE_REMOTE_FILE_NOT_FOUND));
}

TEST_F(SftpTest, ExistenceOfFilesAndDirectories)
{
    RkSFTPReq request;
    Open(request);
    ExpectExistence(request, {{"tree/a file.txt", true, true},
                              {"tree/missing.txt", true, false},
                              {"tree/sub dir/nested", false, true},
                              {"tree/\xC3\xA9t\xC3\xA9", false, true},
                              {"tree/no such dir", false, false}});
    double size = -1;
    ASSERT_FALSE(request.getFileInfo("tree/big.bin", size).IsError());
    EXPECT_EQ(static_cast<double>(servers.bigSize), size);
    // curl's SFTP reports no length for an empty file: the size is unknown
    // and the file check says "missing" (see docs/PLATFORMS.md).
    CZyError error = request.getFileInfo("tree/empty.txt", size);
    EXPECT_TRUE(error.HasMessage("File size recieved from server is invalid")) << error.AsString();
}

TEST_F(SftpTest, KeysPasswordsAndHostKeys)
{
    // Every kind of user key against OpenSSH's default algorithms, from a
    // directory whose name has a space and non-ASCII letters.
    struct KeyCase
    {
        const char* what;
        std::string file, passphrase;
        CURLcode expected;
    };
    const KeyCase keys[] = {
        {"ECDSA, PEM, passphrase", servers.phraseKeyFile, servers.keyPassphrase, CURLE_OK},
        {"ECDSA, PEM, wrong passphrase", servers.phraseKeyFile, "not the phrase", CURLE_LOGIN_DENIED},
        {"ECDSA, OpenSSH format", servers.ecdsaKeyFile, "", CURLE_OK},
        {"Ed25519", servers.ed25519KeyFile, "", CURLE_OK},
        {"Ed25519, passphrase", servers.ed25519PhraseKeyFile, servers.keyPassphrase, CURLE_OK},
        {"Ed25519, wrong passphrase", servers.ed25519PhraseKeyFile, "not the phrase", CURLE_LOGIN_DENIED},
        {"no such key file", servers.keyFile + ".missing", "", CURLE_LOGIN_DENIED},
    };
    for (const KeyCase& key : keys)
    {
        SCOPED_TRACE(key.what);
        RkSFTPReq request;
        Open(request);
        ASSERT_FALSE(request.setPrivateKey(key.file, key.passphrase).IsError());
        EXPECT_TRUE(DownloadEnds(request, "tree/a file.txt", key.expected));
    }

    // RSA: Debian 12's libssh2 (1.10, on both targets) signs only with ssh-rsa
    // (SHA-1), which OpenSSH 9 refuses by default; the error says so.
    RkSFTPReq rsa;
    Open(rsa);
    ASSERT_FALSE(rsa.setPrivateKey(servers.rsaKeyFile, "").IsError());
    CZyError rsaError = rsa.download("tree/a file.txt", kNoCommands);
    EXPECT_EQ(CURLE_LOGIN_DENIED, GetRkCURL(rsaError)) << rsaError.AsString();
    EXPECT_NE(std::string::npos, rsaError.GetErrorMessage().find("the key is an RSA key")) << rsaError.AsString();

    // A host key other than the file's, or a file that knows only another
    // server: 60; unchecked, it goes through.
    for (const std::string& knownHosts : {servers.wrongKnownHosts, servers.unknownKnownHosts})
    {
        SCOPED_TRACE(knownHosts);
        RkSFTPReq wrongHost;
        Open(wrongHost);
        ASSERT_FALSE(wrongHost.setKnownHostsFile(knownHosts).IsError());
        CZyError error = wrongHost.download("tree/a file.txt", kNoCommands);
        EXPECT_EQ(CURLE_PEER_FAILED_VERIFICATION, GetRkCURL(error)) << error.AsString();
        EXPECT_NE(std::string::npos, error.GetErrorMessage().find("host key is not in the known-hosts file"))
            << error.AsString();
        ASSERT_FALSE(wrongHost.setHostKeyChecking(false).IsError());
        EXPECT_TRUE(DownloadEnds(wrongHost, "tree/a file.txt", CURLE_OK));
    }

    if (servers.passwordUser.empty())
        GTEST_SKIP() << "password logins: " << servers.passwordProblem;
    RkSFTPReq password;
    ASSERT_FALSE(password.initialize(0).IsError());
    password.setURL("127.0.0.1:" + std::to_string(servers.sftp) + servers.rootOnServer);
    ASSERT_FALSE(password.setKnownHostsFile(servers.knownHosts).IsError());
    ASSERT_FALSE(password.setCredentials(servers.passwordUser, servers.sftpPassword).IsError());
    ASSERT_FALSE(password.doPutOperation("work-sftp/by password.txt", "pw", 2, kNoCommands).IsError());
    EXPECT_TRUE(zytest::PathExists(Disk("work-sftp/by password.txt")));
    ASSERT_FALSE(password.setCredentials(servers.passwordUser, "wrong").IsError());
    EXPECT_TRUE(DownloadEnds(password, "work-sftp/by password.txt", CURLE_LOGIN_DENIED));
}
