// FTP and explicit FTPS requests against pyftpdlib on loopback (see
// support/ftp_servers.py): listings compared with the server's disk,
// downloads and uploads compared byte for byte, commands seen on the disk,
// existence, refused logins and certificates.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZyNetwork/RkFTPReq.h"
#include "support/FtpServers.h"
#include "support/TestEnv.h"

using namespace RkCURL;

namespace
{
const std::vector<commandInfo> kNoCommands;

size_t Collect(char* data, size_t size, size_t count, void* user)
{
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
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
        if (tls)
        {
            ASSERT_FALSE(request.setSecured(true, servers.caFile).IsError());
        }
    }

    std::string Disk(const std::string& path) const { return servers.root + "/" + path; }

    // Wine's Schannel reports the server's closing of a TLS connection as a
    // receive error (curl's 56): FTPS data connections that end that way
    // (listings, empty files) fail under Wine. Windows itself is not
    // affected.
    bool closeDelimitedTlsFails() const { return tls && zytest::IsWindowsTarget(); }
    static constexpr const char* kWineTlsClose =
        "Wine's Schannel takes the server's close of a TLS data connection for an error (curl 56)";

    const zytest::FtpServers& servers = zytest::GetFtpServers();
    bool tls = false;
    std::string work;  // this test's own directory under the root
};

std::string Text(const CZyError& error)
{
    return error.AsString();
}

}  // namespace

TEST_P(FtpTest, ListsTheTreeAsOnDiskWithMlsdAndList)
{
    if (closeDelimitedTlsFails())
        GTEST_SKIP() << kWineTlsClose;
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
    // Each LIST line is also a valid IsFile argument.
    std::vector<FileDirInfo> top;
    ASSERT_FALSE(list.listDirectory("tree", top).IsError());
    bool isFile = true;
    const std::string listing = list.getListing();
    ASSERT_FALSE(listing.empty());
    EXPECT_FALSE(list.IsFile(listing.substr(0, listing.find('\r')), isFile).IsError());
}

TEST_P(FtpTest, DownloadsMatchTheServersFiles)
{
    RkFTPReq request(GetParam());
    Open(request);
    for (const auto& entry : zytest::DiskListing(Disk("tree")))
    {
        if (entry.second.isDirectory || entry.second.size > (1 << 20) ||
            (entry.second.size == 0 && closeDelimitedTlsFails()))
            continue;
        SCOPED_TRACE(entry.first);
        std::string body;
        request.setWriteFunctionPointer(&body, &Collect);
        CZyError error = request.download(("tree/" + entry.first).c_str(), kNoCommands);
        ASSERT_FALSE(error.IsError()) << Text(error);
        EXPECT_EQ(static_cast<size_t>(entry.second.size), body.size());
        const std::string copy = Disk(work + "-" + entry.first);
        ASSERT_FALSE(request.downloadToFile(("tree/" + entry.first).c_str(), copy.c_str()).IsError());
        EXPECT_TRUE(zytest::SameBytes(Disk("tree/" + entry.first), copy));
    }
    request.setWriteFunctionPointer(nullptr, nullptr);

    // 100 MiB into a file, in active mode for the plain server.
    if (!tls)
    {
        ASSERT_FALSE(request.setActiveMode(true).IsError());
    }
    const std::string big = Disk(work + "-big.bin");
    CZyError error = request.downloadToFile("tree/big.bin", big.c_str());
    ASSERT_FALSE(error.IsError()) << Text(error);
    EXPECT_TRUE(zytest::SameBytes(Disk("tree/big.bin"), big));
    double size = 0;
    ASSERT_FALSE(request.getFileInfo("tree/big.bin", size).IsError());
    EXPECT_EQ(static_cast<double>(servers.bigSize), size);

    // A missing file: curl's 78, no file content.
    error = request.download("tree/missing.bin", kNoCommands);
    EXPECT_EQ(CURLE_REMOTE_FILE_NOT_FOUND, GetRkCURL(error)) << Text(error);
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
    EXPECT_TRUE(error.IsError());
    EXPECT_GT(GetRkCURL(error), 0) << Text(error);
    EXPECT_FALSE(zytest::PathExists(Disk(target)));
    ASSERT_FALSE(request.setCreateMissingDirs(true).IsError());
    error = request.uploadFile(local.c_str(), target.c_str(), 0, kNoCommands);
    ASSERT_FALSE(error.IsError()) << Text(error);
    EXPECT_TRUE(zytest::SameBytes(local, Disk(target)));

    const std::string data = "from a buffer\n\0with a zero byte";
    error = request.doPutOperation((work + "/buffer.txt").c_str(), data.data(), static_cast<long>(data.size()),
                                   kNoCommands);
    ASSERT_FALSE(error.IsError()) << Text(error);
    std::string body;
    request.setWriteFunctionPointer(&body, &Collect);
    ASSERT_FALSE(request.download((work + "/buffer.txt").c_str(), kNoCommands).IsError());
    EXPECT_EQ(data, body);
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
    ASSERT_FALSE(error.IsError()) << Text(error);
    ASSERT_FALSE(request.makeDirectory(dir).IsError());
    EXPECT_TRUE(zytest::PathExists(Disk(dir)));
    // Again: the server refuses, curl reports the failed command (21).
    error = request.makeDirectory(dir);
    EXPECT_EQ(CURLE_QUOTE_ERROR, GetRkCURL(error)) << Text(error);

    ASSERT_FALSE(request.doPutOperation((dir + "/a b.txt").c_str(), "x", 1, kNoCommands).IsError());
    error = request.renameFile(dir + "/a b.txt", dir + "/c d.txt");
    ASSERT_FALSE(error.IsError()) << Text(error);
    EXPECT_FALSE(zytest::PathExists(Disk(dir + "/a b.txt")));
    EXPECT_TRUE(zytest::PathExists(Disk(dir + "/c d.txt")));

    ASSERT_FALSE(request.doDeleteOperation((dir + "/c d.txt").c_str(), "", 0, kNoCommands).IsError());
    EXPECT_FALSE(zytest::PathExists(Disk(dir + "/c d.txt")));
    error = request.deleteFile(dir + "/c d.txt");
    EXPECT_EQ(CURLE_QUOTE_ERROR, GetRkCURL(error)) << Text(error);
    ASSERT_FALSE(request.removeDirectory(dir).IsError());
    EXPECT_FALSE(zytest::PathExists(Disk(dir)));

    // Raw commands before a transfer; a line break never reaches the server.
    ASSERT_FALSE(request.doPutOperation((work + "/q.txt").c_str(), "q", 1, kNoCommands).IsError());
    error = request.download((work + "/q.txt").c_str(), {commandInfo(commandInfo::CMD_QUOTE, "NOOP")});
    EXPECT_FALSE(error.IsError()) << Text(error);
    EXPECT_EQ(EErrorKind::Int, request.deleteFile(work + "/q.txt\r\nRMD x").GetErrorKind());
    EXPECT_TRUE(zytest::PathExists(Disk(work + "/q.txt")));
}

TEST_P(FtpTest, ExistenceOfFilesAndDirectories)
{
    RkFTPReq request(GetParam());
    Open(request);
    struct Case
    {
        const char* path;
        bool isFile;
        bool exists;
    } cases[] = {
        {"tree/a file.txt", true, true},
        {"tree/empty.txt", true, true},
        {"tree/\xC3\xBC" "ber gr\xC3\xB6\xC3\x9F" "e.txt", true, true},
        {"tree/missing.txt", true, false},
        {"tree/sub dir", true, false},  // a directory is not a file
        {"tree/sub dir/nested", false, true},
        {"tree/\xC3\xA9t\xC3\xA9", false, true},
        {"tree/no such dir", false, false},
        {"tree/a file.txt", false, false},  // nor a file a directory
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        bool exists = !c.exists;
        CZyError error = request.checkIfFileOrDirExists(c.path, c.isFile, exists);
        ASSERT_FALSE(error.IsError()) << Text(error);
        EXPECT_EQ(c.exists, exists);
    }
    EXPECT_FALSE(request.checkConnection().IsError());
}

TEST_P(FtpTest, WrongPasswordAndCertificateAreRefused)
{
    RkFTPReq request(GetParam());
    Open(request, "wrong password");
    CZyError error = request.download("tree/a file.txt", kNoCommands);
    EXPECT_EQ(CURLE_LOGIN_DENIED, GetRkCURL(error)) << Text(error);
    EXPECT_TRUE(IsRkCURL(error, CURLE_LOGIN_DENIED));

    if (tls)
    {
        RkFTPReq other(FTPS);
        Open(other);
        ASSERT_FALSE(other.setSecured(true, servers.wrongCaFile).IsError());
        error = other.download("tree/a file.txt", kNoCommands);
        EXPECT_EQ(CURLE_PEER_FAILED_VERIFICATION, GetRkCURL(error)) << Text(error);
    }
    else
    {
        // Asking for TLS from a server without it.
        RkFTPReq secure(FTPS);
        ASSERT_FALSE(secure.initialize(0).IsError());
        secure.setURL("ftps://127.0.0.1:" + std::to_string(servers.ftp));
        ASSERT_FALSE(secure.setCredentials(servers.user, servers.password).IsError());
        error = secure.download("tree/a file.txt", kNoCommands);
        EXPECT_EQ(CURLE_USE_SSL_FAILED, GetRkCURL(error)) << Text(error);
    }
}

INSTANTIATE_TEST_SUITE_P(Ftp, FtpTest, ::testing::Values(FTP, FTPS),
                         [](const ::testing::TestParamInfo<FTPProtocol>& info) {
                             return std::string(info.param == FTPS ? "Ftps" : "Ftp");
                         });

// A Windows-style server's LIST output with odd lines, as the class turns it
// into entries (no server needed).
TEST(FtpListing, WindowsStyleLinesAndOddLinesBecomeEntries)
{
    RkFTPReq request;
    const std::string listing = "01-02-03  12:05AM       <DIR>          My Documents\r\n"
                                "this line fits no format\r\n"
                                "11-23-26  01:30PM                 1234 report 2026.txt\r\n"
                                "\r\n";
    std::vector<FileDirInfo> entries;
    ASSERT_FALSE(request.collectFilesAndDir(listing, &entries, "/docs/").IsError());
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ(1u, request.getSkippedListingLines());
    EXPECT_EQ("My Documents", entries[0].name);
    EXPECT_TRUE(entries[0].isDirectory);
    EXPECT_EQ(-1, entries[0].size);
    EXPECT_EQ("/docs/My Documents", entries[0].fullPath);
    EXPECT_EQ("2003-01-02 00:05", entries[0].modificationText);
    EXPECT_EQ("report 2026.txt", entries[1].name);
    EXPECT_FALSE(entries[1].isDirectory);
    EXPECT_EQ(1234, entries[1].size);
    EXPECT_EQ("2026-11-23 13:30", entries[1].modificationText);

    bool isFile = true;
    ASSERT_FALSE(request.IsFile("01-02-03  12:05AM       <DIR>          My Documents", isFile).IsError());
    EXPECT_FALSE(isFile);
    ASSERT_FALSE(request.IsFile("type=file;size=3; a b", isFile).IsError());
    EXPECT_TRUE(isFile);
    ASSERT_FALSE(request.IsFile("sub dir/", isFile).IsError());
    EXPECT_FALSE(isFile);
    EXPECT_TRUE(request.collectFilesAndDir(listing, nullptr, "/").IsError());
}
