// proxy: proxy discovery goes through WinHTTP, which exists on Windows only.
#include <string>
#include <vector>

#include "Tool.h"

namespace zytool
{
int RunProxy(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "proxy", 0, 1);
    if (parsed.HasValue("--pac") && parsed.positional.empty())
        throw UsageError("--pac needs a URL to look up");
    return out.Fail("not available on this platform: proxy discovery uses WinHTTP (Windows only)");
}
}  // namespace zytool
