// Running a piece of a test inside a private network namespace (Linux, root).
#pragma once

#include <functional>
#include <string>

namespace zytest
{
// True when this process may create network namespaces (Linux, root, and
// unshare(CLONE_NEWNET) works here).
bool CanUseNetNamespaces();

// Forks; the child enters a fresh network namespace (only a down loopback
// in it), brings loopback up and runs `body`. `body` returns "" for success
// or a description of what failed. Returns the child's text, or a
// description of how the child died. The parent's namespace is untouched.
std::string RunInNetNamespace(const std::function<std::string()>& body, int timeoutSeconds = 60);

// Runs a shell command (in the caller's namespace) and returns its exit
// status; output goes to stderr of the test.
int Shell(const std::string& command);
}  // namespace zytest
