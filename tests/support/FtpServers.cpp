#include "support/FtpServers.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "ZyNetwork/RkFTPReq.h"
#include "ZyUtils/ZyFile.h"
#include "support/ServerFile.h"
#include "support/TestEnv.h"

namespace zytest
{
namespace
{
std::filesystem::path FsPath(const std::string& utf8)
{
    return std::filesystem::u8path(utf8);
}

FtpServers Load()
{
    FtpServers servers;
    const ServerFile file("ZYTEST_FTP_SERVERS");
    if (!file.ok)
    {
        servers.problem = file.problem;
        return servers;
    }
    servers.ftp = static_cast<int>(file.Number("ftp"));
    servers.ftps = static_cast<int>(file.Number("ftps"));
    servers.sftp = static_cast<int>(file.Number("sftp"));
    servers.sftpProblem = file.Text("sftpProblem");
    servers.rootOnServer = file.Text("root");
    servers.root = file.Path("root");
    servers.user = file.Text("user");
    servers.password = file.Text("password");
    servers.caFile = file.Path("caFile");
    servers.wrongCaFile = file.Path("wrongCaFile");
    servers.bigSize = file.Number("bigSize");
    servers.keyUser = file.Text("sftpKeyUser");
    servers.keyFile = file.Path("keyFile");
    servers.phraseKeyFile = file.Path("phraseKeyFile");
    servers.keyPassphrase = file.Text("keyPassphrase");
    servers.ecdsaKeyFile = file.Path("ecdsaKeyFile");
    servers.ed25519KeyFile = file.Path("ed25519KeyFile");
    servers.ed25519PhraseKeyFile = file.Path("ed25519PhraseKeyFile");
    servers.rsaKeyFile = file.Path("rsaKeyFile");
    servers.knownHosts = file.Path("knownHosts");
    servers.wrongKnownHosts = file.Path("wrongKnownHosts");
    servers.unknownKnownHosts = file.Path("unknownKnownHosts");
    servers.passwordUser = file.Text("sftpPasswordUser");
    servers.sftpPassword = file.Text("sftpPassword");
    servers.passwordProblem = file.Text("sftpPasswordProblem");
    servers.available = servers.ftp && servers.ftps && !servers.rootOnServer.empty();
    if (!servers.available)
        servers.problem = "the servers did not start (see " + file.name + ")";
    if (!servers.sftp && servers.sftpProblem.empty())
        servers.sftpProblem = "sshd did not start";
    return servers;
}
}  // namespace

const FtpServers& GetFtpServers()
{
    static const FtpServers servers = Load();
    return servers;
}

std::map<std::string, DiskEntry> DiskListing(const std::string& directory)
{
    std::map<std::string, DiskEntry> entries;
    std::error_code error;
    for (const auto& item : std::filesystem::directory_iterator(FsPath(directory), error))
    {
        DiskEntry entry;
        entry.isDirectory = item.is_directory();
        if (!entry.isDirectory)
            entry.size = static_cast<int64_t>(item.file_size());
        entries[item.path().filename().u8string()] = entry;
    }
    return entries;
}

bool PathExists(const std::string& path)
{
    std::error_code error;
    return std::filesystem::exists(FsPath(path), error);
}

bool SameBytes(const std::string& a, const std::string& b)
{
    std::string x, y;
    return !CZyFile::ReadWholeFile(a.c_str(), x).IsError() && !CZyFile::ReadWholeFile(b.c_str(), y).IsError() && x == y;
}

bool WritePattern(const std::string& path, int64_t size)
{
    std::ofstream out(FsPath(path), std::ios::binary | std::ios::trunc);
    std::vector<char> block(1 << 16);
    uint32_t x = 2463534242u;
    for (int64_t done = 0; done < size && out;)
    {
        for (char& c : block)
        {
            x ^= x << 13;
            x ^= x >> 17;
            x ^= x << 5;
            c = static_cast<char>(x);
        }
        const int64_t n = std::min<int64_t>(size - done, static_cast<int64_t>(block.size()));
        out.write(block.data(), static_cast<std::streamsize>(n));
        done += n;
    }
    return static_cast<bool>(out);
}

void ExpectTreeListed(RkCURL::RkFTPReq& request, const std::string& root, const std::string& prefix)
{
    // Every directory below `root` ("" for itself), '/'-separated.
    std::vector<std::string> directories = {""};
    std::error_code error;
    for (const auto& item : std::filesystem::recursive_directory_iterator(FsPath(root), error))
        if (item.is_directory())
            directories.push_back(item.path().lexically_relative(FsPath(root)).generic_u8string());
    ASSERT_GE(directories.size(), 4u);
    for (const std::string& directory : directories)
    {
        SCOPED_TRACE(directory);
        const std::string remote = directory.empty() ? prefix : prefix + "/" + directory;
        std::vector<RkCURL::FileDirInfo> entries;
        ZYTEST_ASSERT_OK(request.listDirectory(remote, entries));
        EXPECT_EQ(0u, request.getSkippedListingLines()) << request.getListing();
        const auto disk = DiskListing(directory.empty() ? root : root + "/" + directory);
        std::set<std::string> seen;
        for (const RkCURL::FileDirInfo& entry : entries)
        {
            SCOPED_TRACE(entry.name);
            auto it = disk.find(entry.name);
            ASSERT_NE(it, disk.end()) << "listed but not on disk";
            EXPECT_EQ(it->second.isDirectory, entry.isDirectory);
            EXPECT_TRUE(entry.isDirectory || it->second.size == entry.size) << entry.size;
            EXPECT_EQ("/" + remote + "/" + entry.name, "/" + entry.fullPath.substr(entry.fullPath[0] == '/'));
            EXPECT_GT(entry.modificationTime, 0);
            seen.insert(entry.name);
        }
        EXPECT_TRUE(disk.size() == seen.size() && disk.size() == entries.size());
    }
}
}  // namespace zytest
