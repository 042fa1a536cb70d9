// The platform's part of the transfer classes' defaults. Internal: not
// installed, not exported. ZyNetwork/Posix/ and ZyNetwork/Windows/ each
// implement it.
#pragma once

#include <string>

namespace zyos
{
// The CA bundle a request object verifies servers with unless told
// otherwise. True with the file name to give curl; false when curl's own
// default should stay (no name to set).
bool DefaultCABundle(std::string& path);
}  // namespace zyos
