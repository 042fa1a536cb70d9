// Transfer clients besides curl that `zynet get`, `put` and `ls` can use with
// `--client NAME`: on Windows the WinHTTP and WinINet clients, elsewhere none.
#pragma once

#include <string>
#include <vector>

#include "ZyUtils/ZyError.h"

namespace zytool
{
// The options of a transfer command that a client honours where it can.
struct TransferOptions
{
    std::string user;           // --user USER:PASSWORD, split at the first ':'
    std::string password;
    std::string proxy;          // --proxy HOST:PORT ("" for none)
    std::string proxyUser;      // --proxy-user USER:PASSWORD
    std::string proxyPassword;
    bool insecure = false;      // --insecure: accept any server certificate
    long timeoutSeconds = 0;    // --timeout (0: the client's default)
};

struct TransferClient
{
    const char* name;  // the --client value ("winhttp", "wininet")
    // Each returns success or the client's error; a null entry means the
    // client cannot do that operation.
    CZyError (*download)(const std::string& url, const std::string& file, const TransferOptions& options);
    CZyError (*upload)(const std::string& file, const std::string& url, const TransferOptions& options);
    CZyError (*list)(const std::string& url, std::vector<std::string>& names, const TransferOptions& options);
};

// The clients of this platform.
const std::vector<TransferClient>& TransferClients();

// The Windows clients, each in its own file of tools/zynet/Windows/.
TransferClient WinHttpClient();
TransferClient WinInetClient();  // Windows/ClientWinInet.cpp
}  // namespace zytool
