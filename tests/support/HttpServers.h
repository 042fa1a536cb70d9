// The loopback servers of the HTTP transfer tests, as support/http_servers.py
// describes them in the JSON file named by ZYTEST_HTTP_SERVERS.
#pragma once

#include <stdint.h>

#include <string>

namespace zytest
{
struct HttpServers
{
    bool available = false;
    std::string problem;  // why they are not available
    int http = 0;         // nginx
    int https = 0;        // nginx with the test CA's certificate (localhost, 127.0.0.1)
    int pythonHttp = 0;   // Python's http.server over the listing tree
    int proxy = 0;        // tinyproxy with basic authentication
    int echo = 0;         // scripted: answers with the method, target and body it received
    int hostile = 0;         // hostile_server.py: misbehaves by path
    int hostileTls = 0;      // TLS 1.2 with a certificate for another name, from hostileCaFile's CA
    int hostileHalfway = 0;  // a TLS handshake that stops halfway
    std::string hostileCaFile;
    int64_t bigSize = 0;  // bytes of /big/1GiB.bin
    std::string www;      // nginx's root (host path as this target's file functions take it)
    std::string caFile, wrongCaFile;
    std::string user, password;
    std::string proxyUser, proxyPassword;
};

const HttpServers& GetHttpServers();  // read once per process
std::string LoopbackURL(int port, bool https = false);
}  // namespace zytest
