// SFTP requests over libcurl (SSH): password or key authentication, the
// server's host key checked against a known-hosts file, downloads, uploads,
// delete, make and remove directory, rename, size, existence and listings
// read from SFTP's long names.
#pragma once

#include <string>
#include <vector>

#include "ZyNetwork/RkFTPReq.h"

namespace RkCURL
{
// The base URL is "host[:port][/base/path]" with or without "sftp://".
// Unlike FTP, request paths are absolute on the server ("a/b" names "/a/b");
// a path starting with "~/" is relative to the user's home directory.
//
// Authentication: setCredentials(user, password) for a password, or the user
// name with setPrivateKey for a key (with or without a passphrase); curl
// tries the key first when one is set.
//
// Host key: checked by default against the known-hosts file of
// setKnownHostsFile, or the user's "~/.ssh/known_hosts" (HOME, else
// USERPROFILE) when none was set. A key that is missing from the file or
// differs from it is refused with curl's 60 (the file is never written).
// setHostKeyChecking(false) turns the check off; setHostKeySHA256 pins the
// key by its SHA-256 fingerprint (base64, as ssh-keygen -l prints it
// without "SHA256:") in addition to the file. curl checks the key when it
// connects, so a change of these settings or of the key makes the next
// request open a new connection.
//
// Success: SFTP reports each failing status (no such file, permission
// denied, failure) through curl's codes (78, 9, 21 for a failing command and
// so on); a request that curl completes has an OK status, and a response
// code other than 0 is a failure.
//
// Existence: a file is stat'ed, a directory is opened for listing; "no such
// file" (78) counts as missing as for FTP. Commands (delete, mkdir, rmdir,
// rename, and CMD_QUOTE) are curl's SFTP quote commands ("rm", "mkdir",
// "rmdir", "rename"), with the paths quoted.
class ZYNET_API RkSFTPReq : public RkFTPReq
{
public:
    RkSFTPReq();
    // Copies the settings as RkFTPReq does, with the host-key checking and the
    // known-hosts file.
    // @{
    RkSFTPReq(const RkSFTPReq& other);
    RkSFTPReq& operator=(const RkSFTPReq& other);
    // @}
    ~RkSFTPReq() override;

    // The private key file (OpenSSH or PEM format), its passphrase ("" for
    // none) and the public key file ("" lets the key be derived from the
    // private one).
    CZyError setPrivateKey(const std::string& privateKeyFile, const std::string& passphrase,
                           const std::string& publicKeyFile = std::string());
    // The known-hosts file that host keys are checked against (see above).
    CZyError setKnownHostsFile(const std::string& path);
    // Off: any host key is accepted. Only an explicit call turns it off.
    CZyError setHostKeyChecking(bool check);
    // Whether host keys are checked.
    bool getHostKeyChecking() const { return m_checkHostKey; }
    // Pins the host key by its SHA-256 fingerprint (see above). Int error 1
    // before initialize.
    CZyError setHostKeySHA256(const std::string& base64);
    // The known-hosts file used when none was set ("" when neither HOME nor
    // USERPROFILE is set).
    static std::string defaultKnownHostsFile();

    CZyError isOperationSuccess(bool& success) override;
    CZyError setDefaults() override;

protected:
    const char* scheme() const override;
    std::string deleteCommand(const std::string& path) const override;
    std::string makeDirectoryCommand(const std::string& path) const override;
    std::string removeDirectoryCommand(const std::string& path) const override;
    std::vector<std::string> renameCommands(const std::string& from, const std::string& to) const override;
    std::string commandPath(const std::string& path) const override;
    bool offersMlsd() const override { return false; }
    // A directory is opened for listing (the listing is discarded).
    CURLcode setDirectoryCheckOptions() override;
    // A refused host key names the known-hosts file; a refused login with an
    // RSA key says why when libssh2 cannot sign with rsa-sha2.
    std::string failureText(CURLcode result) const override;

private:
    // The file of setKnownHostsFile, else the default one, else "known_hosts".
    std::string knownHostsFile() const;
    CZyError applyHostKeyFile(const char* function);

    bool m_checkHostKey;
    std::string m_knownHosts;
    std::string m_privateKey, m_publicKey;  // as the caller gave them (UTF-8)
};
}  // namespace RkCURL
