// upload-log exists on Windows only: it runs over the WinINet client.
#include <string>
#include <vector>

#include "Tool.h"

namespace zytool
{
int RunUploadLog(Output& out, const std::vector<std::string>& args)
{
    ParseCommandArgs(args, "upload-log", 2, 2);
    return out.Fail("upload-log is available on Windows only (it uses the WinINet client)");
}
}  // namespace zytool
