#include "support/NetNamespace.h"

#if defined(_WIN32)

namespace zytest
{
bool CanUseNetNamespaces()
{
    return false;
}
std::string RunInNetNamespace(const std::function<std::string()>&)
{
    return "network namespaces are not available on this target";
}
int Shell(const std::string&)
{
    return -1;
}
std::string UseHostsFile(const std::string&)
{
    return "mount namespaces are not available on this target";
}
}  // namespace zytest

#else

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace zytest
{
int Shell(const std::string& command)
{
    std::string quiet = command + " 1>&2";
    int status = std::system(quiet.c_str());
    if (status == -1)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

std::string UseHostsFile(const std::string& hosts)
{
    const std::string dir = "/tmp/zytest-etc-" + std::to_string(getpid());
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        Shell("mkdir -p " + dir) != 0)
        return "no private mount namespace";
    std::ofstream(dir + "/hosts") << hosts;
    std::ofstream(dir + "/resolv.conf") << "nameserver 127.0.0.1\n";
    const bool bound = mount((dir + "/hosts").c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) == 0 &&
                       mount((dir + "/resolv.conf").c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr) == 0;
    Shell("rm -rf " + dir);
    return bound ? "" : "cannot bind a private /etc/hosts";
}

bool CanUseNetNamespaces()
{
    static int cached = -1;
    if (cached < 0)
    {
        if (geteuid() != 0)
            cached = 0;
        else
        {
            std::string result = RunInNetNamespace([] { return std::string("probe"); });
            cached = result == "probe" ? 1 : 0;
        }
    }
    return cached == 1;
}

#if defined(ZYNET_COVERAGE)
extern "C" void __gcov_dump(void);
#endif

std::string RunInNetNamespace(const std::function<std::string()>& body)
{
    int fds[2];
    if (pipe(fds) != 0)
        return std::string("pipe: ") + strerror(errno);
    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0)
    {
        close(fds[0]);
        close(fds[1]);
        return std::string("fork: ") + strerror(errno);
    }
    if (pid == 0)
    {
        close(fds[0]);
        std::string text;
        if (unshare(CLONE_NEWNET) != 0)
            text = std::string("unshare(CLONE_NEWNET): ") + strerror(errno);
        else if (Shell("ip link set lo up") != 0)
            text = "could not bring loopback up";
        else
            text = body();
        // A blocking pipe takes the whole text in one write.
        const bool sent = write(fds[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        close(fds[1]);
#if defined(ZYNET_COVERAGE)
        // _exit skips the handler that writes the coverage counters.
        __gcov_dump();
#endif
        _exit(text.empty() ? 0 : sent ? 1 : 2);
    }
    // The child closes its end only on its way out: read to the end, then
    // collect it. (A body that hangs is ended by the test's own time limit.)
    close(fds[1]);
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = read(fds[0], buffer, sizeof(buffer))) != 0;)
        if (n > 0)
            text.append(buffer, static_cast<size_t>(n));
        else if (errno != EINTR)
            break;
    close(fds[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
    {
    }
    if (WIFSIGNALED(status))
        return text + " [child died of signal " + std::to_string(WTERMSIG(status)) + "]";
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0 && text.empty())
        return "child exited with status " + std::to_string(WEXITSTATUS(status));
    return text;
}
}  // namespace zytest

#endif
