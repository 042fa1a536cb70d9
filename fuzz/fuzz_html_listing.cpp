// HTML directory listings over arbitrary bytes: the request classes' listing
// reader (under a base URL with a path and without) and the WinINet client's
// link scanner and link rules.
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "ZyNetwork/RkHTTPReq.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string page(reinterpret_cast<const char*>(data), size);

    static RkCURL::RkHTTPReq plain(RkCURL::HTTP);
    static RkCURL::RkHTTPReq based = [] {
        RkCURL::RkHTTPReq req(RkCURL::HTTP);
        req.setURL("http://127.0.0.1:8080/base/dir/");
        return req;
    }();
    for (RkCURL::RkHTTPReq* req : {&plain, &based})
    {
        std::vector<RkCURL::FileDirInfo> entries;
        req->collectFilesAndDir(page, &entries, "/base/dir/");
        for (const RkCURL::FileDirInfo& entry : entries)
        {
            bool isFile = false;
            req->IsFile(entry.name, isFile);
        }
    }

    for (const std::string& link : zy::http::ExtractLinks(page))
    {
        zy::http::ListingLink kind = zy::http::ClassifyListingLink(link, "http://127.0.0.1:8080", "/base/dir/");
        // A listing must never lead up, sideways or to the page itself.
        if (kind.kind == zy::http::ListingLink::kIgnore)
            continue;
        const std::string segmented = "/" + kind.name;
        if (kind.name.empty() || kind.name[0] == '/' || segmented.find("/../") != std::string::npos ||
            segmented.find("/./") != std::string::npos ||
            (segmented.size() >= 3 && segmented.compare(segmented.size() - 3, 3, "/..") == 0))
            __builtin_trap();
    }
    return 0;
}
