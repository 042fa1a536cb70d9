// Process set-up and small helpers shared by the test programs.
#pragma once

#include <stdint.h>

#include <string>

#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocketTypes.h"

namespace zytest
{
// Starts the socket library for the whole test process.
void InitTestProcess();
// True when the process runs on the Windows target (under Wine in CI).
bool IsWindowsTarget();
// A fresh path for a Unix-domain socket, unique per call.
std::string TempSocketPath(const char* tag);
// The loopback address of `family` (127.0.0.1 or ::1), port 0, in a zeroed
// record.
ZYNET_SockAddr LoopbackRecord(int family);
// A connected loopback pair made with the flat socket calls: stream sockets
// with the accepted end in `server`, or datagram sockets with `client`
// connected to the bound `server`. Check Ok() first; both close with it.
struct SocketPair
{
    ZYNET_SOCKET client = ZYNET_INVALID_SOCKET, server = ZYNET_INVALID_SOCKET;
    ZYNET_SockAddr accepted;  // a stream pair's peer as the accept reported it
    explicit SocketPair(int family = ZYNET_AF_INET, bool datagram = false);
    ~SocketPair();
    bool Ok() const { return client != ZYNET_INVALID_SOCKET && server != ZYNET_INVALID_SOCKET; }
};
// The text of an address: its path for a Unix-domain one, "" for none.
std::string Text(const CZyIPAddr& address);
// Sets (or, with a null value, removes) an environment variable of this
// process.
void SetEnv(const char* name, const char* value);
// A host path as this target's file functions take it: unchanged on Linux,
// under Wine's drive Z: on the Windows target.
std::string HostPath(const std::string& path);
// The process's peak resident memory so far, in bytes.
uint64_t PeakResidentBytes();
// The number of descriptors the process holds open (Linux; -1 elsewhere).
int OpenDescriptors();
// A write callback for the transfer classes: appends to the std::string
// behind `user`.
size_t AppendTo(char* data, size_t size, size_t count, void* user);
}  // namespace zytest

// A call that must succeed; on failure the error's whole text is shown.
#define ZYTEST_ASSERT_OK(call)                                    \
    do                                                            \
    {                                                             \
        const CZyError zytestError_ = (call);                     \
        ASSERT_FALSE(zytestError_.IsError()) << zytestError_.AsString(); \
    } while (0)
#define ZYTEST_EXPECT_OK(call)                                    \
    do                                                            \
    {                                                             \
        const CZyError zytestError_ = (call);                     \
        EXPECT_FALSE(zytestError_.IsError()) << zytestError_.AsString(); \
    } while (0)
