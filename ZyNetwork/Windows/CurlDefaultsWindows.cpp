// Default CA bundle on Windows: "curl-ca-bundle.crt" in the current
// directory, written with a backslash.
#include "ZyNetwork/Internal/OsCurl.h"

namespace zy::os
{
bool DefaultCABundle(std::string& path)
{
    path = std::string(".") + "\\" + "curl-ca-bundle.crt";
    return true;
}
}  // namespace zy::os
