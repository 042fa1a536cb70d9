// The tool's platform facts on POSIX: $TMPDIR, '/', rename and signals.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Platform.h"

namespace zytool
{
std::vector<std::string> CommandLineArgs(int argc, char** argv)
{
    return std::vector<std::string>(argv, argv + argc);
}

std::string TempDirectory()
{
    const char* dir = std::getenv("TMPDIR");
    return dir != nullptr ? dir : "";
}

char PathSeparator()
{
    return '/';
}

bool IsDirectory(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool MoveOver(const std::string& from, const std::string& to, std::string& why)
{
    // The file replaced keeps its permissions.
    struct stat existing;
    if (stat(to.c_str(), &existing) == 0)
        chmod(from.c_str(), existing.st_mode & 07777);
    if (std::rename(from.c_str(), to.c_str()) == 0)
        return true;
    why = std::strerror(errno);
    return false;
}

namespace
{
// The file to remove, kept where a signal handler can read it.
char g_interruptPath[4096];
volatile sig_atomic_t g_interruptArmed = 0;

extern "C" void RemoveAndStop(int signalNumber)
{
    if (g_interruptArmed)
        unlink(g_interruptPath);
    signal(signalNumber, SIG_DFL);
    raise(signalNumber);
}
}  // namespace

void RemoveOnInterrupt(const std::string& path)
{
    if (path.size() >= sizeof g_interruptPath)
        return;
    g_interruptArmed = 0;
    std::memcpy(g_interruptPath, path.c_str(), path.size() + 1);
    g_interruptArmed = 1;
    static bool installed = false;
    if (installed)
        return;
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = &RemoveAndStop;
    sigemptyset(&action.sa_mask);
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signalNumber, &action, nullptr);
    installed = true;
}

void ForgetOnInterrupt()
{
    g_interruptArmed = 0;
}
const char* MissingCurlAdvice()
{
    return "install libcurl4, or name a libcurl file in ZYNET_CURL_LIBRARY";
}
}  // namespace zytool
