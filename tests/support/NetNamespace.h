// Running a piece of a test inside a private network namespace (Linux, root).
#pragma once

#include <functional>
#include <string>

namespace zytest
{
// True when this process may create network namespaces (Linux, root, and
// unshare(CLONE_NEWNET) works here) and a child's text comes back.
bool CanUseNetNamespaces();

// Forks; the child enters a fresh network namespace (only a down loopback
// in it), brings loopback up and runs `body`. `body` returns "" for success
// or a description of what failed. Returns the child's text, or a
// description of how the child died. The parent's namespace is untouched.
std::string RunInNetNamespace(const std::function<std::string()>& body);

// For a body run by RunInNetNamespace: enters a private mount namespace in
// which /etc/hosts holds `hosts` and /etc/resolv.conf names only loopback,
// so that a name missing from the file reaches no name server outside.
// Returns "" or what failed.
std::string UseHostsFile(const std::string& hosts);

// Collects failed checks as text, for bodies that run in a forked child
// where the test framework cannot report.
struct Checks
{
    std::string text;
    void Expect(bool ok, const std::string& what)
    {
        if (!ok)
            text += what + "; ";
    }
    template <class A, class B>
    void Eq(const A& actual, const B& expected, const std::string& what)
    {
        Expect(actual == expected, what + " was " + std::to_string(actual) + ", expected " + std::to_string(expected));
    }
};

// Runs a shell command (in the caller's namespace) and returns its exit
// status; output goes to stderr of the test.
int Shell(const std::string& command);
}  // namespace zytest
