// The loopback servers of the FTP and SFTP transfer tests, as
// tests/support/ftp_servers.py describes them in the JSON file named by
// ZYTEST_FTP_SERVERS, and the disk helpers those tests compare with.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

namespace RkCURL
{
class RkFTPReq;
}

namespace zytest
{
struct FtpServers
{
    bool available = false;
    std::string problem;  // why they are not available
    int ftp = 0;          // pyftpdlib, plain
    int ftps = 0;         // pyftpdlib, explicit TLS required on control and data
    int sftp = 0;         // sshd with internal-sftp; 0 when it did not start
    std::string sftpProblem;
    std::string root;     // the servers' root: tree/ and the work-* directories (host path for this target)
    std::string rootOnServer;  // the same directory as the SFTP server names it
    std::string user, password;  // FTP login
    std::string caFile, wrongCaFile;
    int64_t bigSize = 0;
    std::string keyUser;  // the account that logs in with the keys
    // ECDSA in PEM (plain and with the passphrase), ECDSA in OpenSSH's
    // format, Ed25519 (plain and with the passphrase) and RSA, in a directory
    // whose name has a space and non-ASCII letters.
    std::string keyFile, phraseKeyFile, keyPassphrase;
    std::string ecdsaKeyFile, ed25519KeyFile, ed25519PhraseKeyFile, rsaKeyFile;
    // The server's key; another key for it; only another server's key.
    std::string knownHosts, wrongKnownHosts, unknownKnownHosts;
    std::string passwordUser, sftpPassword;  // "" when no account could be made
    std::string passwordProblem;
};

const FtpServers& GetFtpServers();

struct DiskEntry
{
    bool isDirectory = false;
    int64_t size = -1;  // files only
};
// The entries of a directory on this machine's disk by UTF-8 name.
std::map<std::string, DiskEntry> DiskListing(const std::string& directory);
bool PathExists(const std::string& path);
bool SameBytes(const std::string& a, const std::string& b);
// A file of `size` bytes of a fixed pattern.
bool WritePattern(const std::string& path, int64_t size);
// Lists every directory below the disk directory `root` through `request`
// (`prefix` naming `root` on the server) and expects the disk's entries
// exactly: names, types, file sizes, full paths, no skipped lines.
void ExpectTreeListed(RkCURL::RkFTPReq& request, const std::string& root, const std::string& prefix);
}  // namespace zytest
