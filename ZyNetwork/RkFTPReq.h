// FTP and FTPS requests over libcurl: downloads to a callback or a file,
// uploads from a buffer or a file (streamed), delete, make and remove
// directory, rename, file size and existence, and directory listings parsed
// from LIST or MLSD output.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "ZyNetwork/RkProtocolReq.h"

namespace RkCURL
{
enum FTPProtocol
{
    FTP = 0,   // plain FTP
    FTPS = 1   // explicit FTPS: AUTH TLS, then TLS on the control and every data connection
};

// The base URL (setURL) is "host[:port][/base/path]" with or without a scheme
// ("ftp://"; "ftps://" is taken as explicit FTPS on the given port, the way
// this class always speaks TLS). A port set with setPortNumber is added when
// the URL names none. Request paths are given unencoded and joined to the
// base path; like curl's FTP URLs they are relative to the directory the
// server puts the user in after login (a leading '/' changes nothing).
//
// TLS (FTPS): verified against the CA file of setSecured (or the default
// bundle) like HTTPS; the connection fails with curl's 60 when the
// certificate does not verify, and with 64 when the server offers no TLS.
// Passive mode (EPSV, then PASV) by default, active mode (PORT/EPRT) with
// setActiveMode.
//
// Success: the last FTP reply code is a positive one (100 to 399);
// checkConnection succeeds on any reply. A missing file or directory, a
// refused login (67) and other failures arrive as curl's codes.
//
// Existence (checkIfFileOrDirExists): a file is asked for with SIZE; a
// directory with CWD. A server that answers "no such file" makes curl report
// 78; for a file this counts as an answered request (the file is missing),
// for a directory it is reported as 9 (access denied), which the request
// core counts as a missing directory, as it does for the 550 of CWD.
//
// Operations: download and doGetOperation fetch (RETR); uploadFile and
// doPutOperation store (STOR), creating missing directories first when
// setCreateMissingDirs(true); doDeleteOperation deletes the file at its path
// (DELE); deleteFile, makeDirectory, removeDirectory and renameFile send the
// commands themselves (after curl has changed back into the login
// directory); getFileInfo asks for the size; listings use MLSD when
// the server lists it in its FEAT answer (asked once per object), otherwise
// LIST. commandInfo::CMD_QUOTE adds a raw command sent before the transfer
// (in the directory the connection is in at that moment);
// the other kinds are refused. POST is refused.
class ZYNET_API RkFTPReq : public RkProtocolReq
{
public:
    // A request object for plain FTP or explicit FTPS; call initialize before use.
    explicit RkFTPReq(FTPProtocol protocol = FTP);
    // Copies the settings as RkProtocolReq does, with the FTP ones (protocol,
    // active mode, directory creation, listing command). The last listing's
    // results are not copied.
    // @{
    RkFTPReq(const RkFTPReq& other);
    RkFTPReq& operator=(const RkFTPReq& other);
    // @}
    ~RkFTPReq() override;

    // FTP or FTPS, as constructed.
    FTPProtocol getProtocol() const { return m_protocol; }

    // Active mode: the server connects back to `address` (curl's FTPPORT
    // syntax; "-" is the address of the control connection). Passive mode
    // when `active` is false.
    CZyError setActiveMode(bool active, const std::string& address = "-");
    // Uploads make the missing directories of their path first.
    CZyError setCreateMissingDirs(bool create);
    // Whether uploads create missing directories.
    bool getCreateMissingDirs() const { return m_createMissingDirs; }

    enum ListingCommand
    {
        LISTING_AUTO = 0,  // MLSD where the server offers it, else LIST
        LISTING_LIST = 1,
        LISTING_MLSD = 2
    };
    // Which command fetches listings (LISTING_AUTO by default).
    void setListingCommand(ListingCommand command) { m_listingCommand = command; }
    // Whether the last listing was MLSD output (collectFilesAndDir reads it
    // as such).
    bool lastListingWasMlsd() const { return m_listingIsMlsd; }
    // Lines of the last parsed listing that fit no format.
    size_t getSkippedListingLines() const { return m_skippedLines; }

    // File and directory commands: DELE, MKD, RMD, and RNFR with RNTO (the
    // SFTP class sends its own forms), on paths relative to the base URL, or
    // on the path of a whole URL ("ftp://host/dir/name", escapes decoded) on
    // that URL's server; renameFile takes the server of `from`. An empty path
    // or one with a line break is refused with int error 1; a command the
    // server refuses fails with curl's code 21 (quote error).
    // @{
    CZyError deleteFile(const std::string& path);
    CZyError makeDirectory(const std::string& path);
    CZyError removeDirectory(const std::string& path);
    CZyError renameFile(const std::string& from, const std::string& to);
    // @}

    CZyError isOperationSuccess(bool& success) override;
    // FTP has no headers: an empty map is accepted, anything else refused.
    CZyError setHeaders(const std::map<std::string, std::string>& headers) override;
    // Unix-style or Windows-style LIST output, or MLSD facts (after an MLSD
    // listing); "." and ".." are left out, lines that fit no format are
    // skipped and counted (getSkippedListingLines).
    CZyError collectFilesAndDir(const std::string& listing, std::vector<FileDirInfo>* entries,
                                std::string path) override;
    CZyError getFullWorkingURL(std::string& url) override;
    CZyError unsetOpTypeParameter() override;
    CZyError setMethodParameter() override;
    CZyError setDefaults() override;
    // "ftp://host:port" and "/base/path" (at least "/").
    CZyError splitServerAndURLPath(std::string& server, std::string& path) override;
    // `name` is one line of a listing (LIST or MLSD): false for a directory.
    // Text that fits no listing format is taken as a bare name, a directory
    // when it ends in '/'.
    CZyError IsFile(const std::string& name, bool& isFile) override;

protected:
    // What the subclasses change: the URL scheme, the command texts, the
    // path commands refer to, and whether FEAT/MLSD exist.
    // @{
    virtual const char* scheme() const;
    virtual std::string deleteCommand(const std::string& path) const;
    virtual std::string makeDirectoryCommand(const std::string& path) const;
    virtual std::string removeDirectoryCommand(const std::string& path) const;
    virtual std::vector<std::string> renameCommands(const std::string& from, const std::string& to) const;
    // @}
    // The path a command names for a request path: relative to the login
    // directory for FTP.
    virtual std::string commandPath(const std::string& path) const;
    // Whether the protocol has FEAT and MLSD at all (FTP: yes).
    virtual bool offersMlsd() const { return true; }
    // The options of a directory-existence request (FTP: CWD without a
    // transfer).
    virtual CURLcode setDirectoryCheckOptions();

    // The base URL with scheme and port, without a trailing '/'.
    std::string baseURL() const;
    // The decoded base path joined with `path`, with single '/' separators,
    // no leading or trailing '/'.
    std::string joinedPath(const std::string& path) const;
    // A whole URL as it goes to curl (zy::url::WireUrl; "ftps" written "ftp"
    // for explicit TLS).
    std::string wireUrl(const std::string& whole) const;
    // Sends `commands` on the connection, without a transfer, as one request;
    // `function` names the caller in errors.
    CZyError runCommands(const std::vector<std::string>& commands, const char* function);
    // The next request opens a new connection instead of reusing a live one
    // (after a change that curl checks only when it connects).
    void requireFreshConnection() { m_freshConnection = true; }

private:
    static size_t readFromBuffer(char* data, size_t size, size_t count, void* self);
    static size_t collectFeatures(char* data, size_t size, size_t count, void* self);
    CZyError probeFeatures();
    CURLcode setQuoteList(const std::vector<std::string>& extra);

    FTPProtocol m_protocol;
    bool m_createMissingDirs;
    ListingCommand m_listingCommand;
    // -1 not asked yet, 0 no, 1 the server lists MLSD in FEAT.
    int m_serverHasMlsd;
    bool m_listingIsMlsd;
    size_t m_skippedLines;
    bool m_commandsOnly;
    std::vector<std::string> m_pendingCommands;
    curl_slist* m_quoteList;
    curl_slist* m_postQuoteList;
    const char* m_sendPosition;
    int64_t m_sendRemaining;
    std::string m_features;
    bool m_active;
    bool m_freshConnection;
};
}  // namespace RkCURL
