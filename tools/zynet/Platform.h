// What the zynet tool needs to know about its platform, answered by
// tools/zynet/Posix/ or tools/zynet/Windows/ (the build picks one).
#pragma once

#include <string>

namespace zynet
{
// The directory for temporary files as the platform's environment names it
// ("" when it names none), and the separator that joins a file name to it.
std::string TempDirectory();
char PathSeparator();
}  // namespace zynet
