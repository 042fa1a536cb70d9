// What the zynet tool needs to know about its platform, answered by
// tools/zynet/Posix/ or tools/zynet/Windows/ (the build picks one).
#pragma once

#include <string>
#include <vector>

namespace zytool
{
// The program's arguments in UTF-8, argv[0] first. Windows hands main() its
// ANSI code page, so there they are read again from the wide command line.
std::vector<std::string> CommandLineArgs(int argc, char** argv);

// The directory for temporary files as the platform's environment names it
// ("" when it names none), and the separator that joins a file name to it.
std::string TempDirectory();
char PathSeparator();

// Whether `path` names an existing directory.
bool IsDirectory(const std::string& path);

// Moves the file `from` over `to`, replacing `to` in one step when it exists
// (rename on POSIX, where `to` keeps its permissions; MoveFileExW with
// MOVEFILE_REPLACE_EXISTING on Windows).
// False with the system's reason in `why` when it cannot.
bool MoveOver(const std::string& from, const std::string& to, std::string& why);

// Until ForgetOnInterrupt, an interrupt of the process (Ctrl-C, SIGINT,
// SIGTERM) first removes the file `path` (a download's temporary file).
void RemoveOnInterrupt(const std::string& path);
void ForgetOnInterrupt();

// What a user can do when no libcurl loads, in a few words.
const char* MissingCurlAdvice();
}  // namespace zytool
