// Default CA bundle on Linux: a "curl-ca-bundle.crt" in the current directory
// when there is one (as on Windows), otherwise the bundle that the loaded
// libcurl was built to use, so that HTTPS verifies out of the box. SSH file
// paths go to libssh2 as they are. Transfer sockets keep little unsent data.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/Internal/OsCurl.h"

namespace zy::os
{
bool DefaultCABundle(std::string& path)
{
    static const char kLocalBundle[] = "./curl-ca-bundle.crt";
    if (access(kLocalBundle, R_OK) == 0)
    {
        path = kLocalBundle;
        return true;
    }
    // The built-in default of libcurl. Naming it again (rather than setting
    // nothing) lets a later setSecured with an empty name put it back after
    // another file was chosen.
    const curl_version_info_data* info = CurlWrapper::rk_curl_version_info(CURLVERSION_NOW);
    if (info && info->age >= CURLVERSION_SEVENTH && info->cainfo && info->cainfo[0])
    {
        path = info->cainfo;
        return true;
    }
    return false;
}

std::string SshFilePath(const std::string& utf8Path)
{
    return utf8Path;
}

void TuneTransferSocket(curl_socket_t socket)
{
    static const int kUnsentLimit = 64 * 1024;
    // Refused by kernels before 3.12 (and by non-TCP sockets); the socket
    // then works as before.
    (void)setsockopt(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kUnsentLimit, sizeof kUnsentLimit);
}
}  // namespace zy::os
