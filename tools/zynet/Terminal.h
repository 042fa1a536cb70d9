// The tool's few terminal facts (Posix/TerminalPosix.cpp,
// Windows/TerminalWindows.cpp).
#pragma once

namespace zytool
{
// True when stderr is a terminal (progress lines are drawn only there).
bool StderrIsTerminal();
// Puts stdout in binary mode where the platform has another (downloads to
// stdout).
void SetBinaryStdout();
}  // namespace zytool
