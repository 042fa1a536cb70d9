// Process set-up and small helpers shared by the test programs.
#pragma once

#include <string>

#include "ZyNetwork/ZySockAddr.h"

namespace zytest
{
// Starts the socket library for the whole test process.
void InitTestProcess();
// True when the process runs on the Windows target (under Wine in CI).
bool IsWindowsTarget();
// True when running as root on Linux (namespaces, raw sockets).
bool IsRoot();
// A fresh path for a Unix-domain socket, unique per call.
std::string TempSocketPath(const char* tag);
// The loopback address of `family` (127.0.0.1 or ::1), port 0, in a zeroed
// record.
ZYNET_SockAddr LoopbackRecord(int family);
// Sets an environment variable of this process (visible to getenv).
void SetEnv(const char* name, const char* value);
}  // namespace zytest
