// URL splitting and escaping over arbitrary text: the WinINet client's base
// URL parser and path encoding, and the request classes' split of a base URL
// into server and path.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "ZyNetwork/RkHTTPReq.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);

    zy::http::UrlParts parts;
    if (zy::http::ParseBaseUrl(text, parts))
    {
        // What parsed prints as an origin that parses to the same server.
        zy::http::UrlParts again;
        if (!zy::http::ParseBaseUrl(zy::http::Origin(parts), again) || again.host != parts.host ||
            again.secure != parts.secure)
            __builtin_trap();
        zy::http::DirectoryPath(parts.path);
    }

    // Encoding then decoding gives the plain path back (backslashes become
    // '/' by design).
    std::string plain = text;
    for (char& c : plain)
        if (c == '\\')
            c = '/';
    if (zy::http::DecodePath(zy::http::EncodePath(text)) != plain)
        __builtin_trap();
    zy::http::DecodePath(text);

    RkCURL::RkHTTPReq req(RkCURL::HTTPS);
    req.setURL(text);
    std::string server, path;
    req.splitServerAndURLPath(server, path);
    std::string url;
    req.setURLPath(text.substr(text.size() / 2));
    req.getFullWorkingURL(url);
    return 0;
}
