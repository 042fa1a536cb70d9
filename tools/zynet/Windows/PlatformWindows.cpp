// The tool's platform facts on Windows: %TMPDIR% when set, else %TEMP%, and
// '\'.
#include <cstdlib>

#include "Platform.h"

namespace zynet
{
std::string TempDirectory()
{
    const char* dir = std::getenv("TMPDIR");
    if (dir == nullptr || *dir == '\0')
        dir = std::getenv("TEMP");
    return dir != nullptr ? dir : "";
}

char PathSeparator()
{
    return '\\';
}
}  // namespace zynet
