// The tool's platform facts on POSIX: $TMPDIR and '/'.
#include <cstdlib>

#include "Platform.h"

namespace zynet
{
std::string TempDirectory()
{
    const char* dir = std::getenv("TMPDIR");
    return dir != nullptr ? dir : "";
}

char PathSeparator()
{
    return '/';
}
}  // namespace zynet
