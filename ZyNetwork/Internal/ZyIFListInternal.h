// The portable half of the interface lists, working on any adapter table,
// so that the table protocol and the pair rules can be driven by tests with
// a table of their own. CZyIPAddr's list operations call these with the
// platform's table.
// Internal: not installed, not exported.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ZyNetwork/Internal/OsAdapters.h"
#include "ZyNetwork/ZyIPAddr.h"

namespace zy::iflist
{
// Runs the two-call table protocol (first call with `firstFamily`, second
// with `secondFamily`) and keeps the adapters that count: software loopback,
// or operational status up. `function` names the caller in log lines and
// error locations; it must be static text.
CZyError ReadUsedAdapters(zy::os::AdapterTable& table, const char* function, int firstFamily, int secondFamily,
                          std::vector<zy::os::AdapterInfo>& used);

// The (interface address, network address) pair of one unicast address.
// False for a family other than IPv4 and IPv6.
bool MakeInterfacePair(const zy::os::AdapterUnicast& unicast, std::pair<CZyIPAddr, CZyIPAddr>& pair);

// "aa:bb:cc:..." in lower-case hexadecimal.
std::string FormatHardwareAddress(const std::vector<uint8_t>& bytes);

CZyError CollectInterfacePairs(zy::os::AdapterTable& table, std::vector<std::pair<CZyIPAddr, CZyIPAddr>>& list,
                               int family);
CZyError CollectHardwareAddresses(zy::os::AdapterTable& table, std::vector<std::string>& list, int family);
}  // namespace zy::iflist
