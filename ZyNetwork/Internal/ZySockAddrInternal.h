// Internal helpers of the socket-address functions: the rules that the flat
// look-ups (ZyNetwork/ZySockAddr.cpp) and CZyIPAddr (ZyNetwork/ZyIPAddr.cpp)
// share, and the Windows version rule, exposed for the unit tests.
// Not installed, not exported.
#pragma once

#include <vector>

#include "ZyNetwork/ZySockAddr.h"

// The Windows version rule for Unix-domain sockets: supported from Windows 10
// build 17763 update revision 2210 on, and on every later build. 1 or 0.
int ZyUnixSupportFromVersion(unsigned long major, unsigned long build, unsigned long revision);

namespace zy::net
{
// A text holding a slash or a backslash anywhere is a Unix-domain path: it
// is never looked up.
bool IsPathText(const char* text);

// The Unix-domain record for `path`: family 1, the path with its terminator,
// the rest zero. Returns 0, or ZYNET_ERR_PATH_TOO_LONG (7) and leaves `out`
// untouched when the path and its terminator exceed the 108-byte field (a
// truncated path would name another socket).
int MakePathRecord(const char* path, ZYNET_SockAddr* out);

// The name look-up of ZYNET_name2ip and of CZyIPAddr's GetByName and
// GetAllByName: getaddrinfo for `name` asking for the canonical name, with
// `family` (the process-wide preference when 0), stream sockets over TCP.
// The IPv4 and IPv6 answers are appended to `records` in resolver order,
// each with its port cleared. Returns 0 or the resolver's code, which is
// also stored as the thread's last socket error.
int LookUpName(const char* name, int family, std::vector<ZYNET_SockAddr>* records);

// The name-collision rule: name servers hand out 127.0.53.53 for names that
// collide with private namespaces, so an IPv4 record of that address is
// never accepted as a real answer.
bool IsNameCollision(const ZYNET_SockAddr& record);
}  // namespace zy::net
