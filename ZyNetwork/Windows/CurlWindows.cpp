// The curl library file on Windows: "RKCurl.dll" beside the module that holds
// the binding.
#include "ZyNetwork/Internal/OsCurl.h"

#include "ZyUtils/ZyLibrary.h"

namespace zy::os
{
std::string DefaultCurlLibraryPath(const void* moduleAddress)
{
    static const char kFileName[] = "RKCurl.dll";
    std::string directory;
    // When the module cannot be found, the bare name leaves the choice to the
    // system's search order.
    if (!CZyLibrary::ModuleDirectoryOf(moduleAddress, directory))
        return kFileName;
    return directory + kFileName;
}

void KeepCurlLibraryMapped(CZyLibrary& /*library*/)
{
    // RKCurl.dll needs only system DLLs: it is unloaded at exit.
}
}  // namespace zy::os
