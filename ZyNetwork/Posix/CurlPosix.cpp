// The curl library file on Linux: the product's own "libRKCurl.so" beside the
// module that holds the binding, otherwise the system's libcurl.
#include "ZyNetwork/Internal/OsCurl.h"

#include <sys/stat.h>

#include "ZyUtils/ZyLibrary.h"

namespace zy::os
{
std::string DefaultCurlLibraryPath(const void* moduleAddress)
{
    std::string directory;
    if (CZyLibrary::ModuleDirectoryOf(moduleAddress, directory))
    {
        const std::string own = directory + "libRKCurl.so";
        struct stat info;
        if (stat(own.c_str(), &info) == 0 && S_ISREG(info.st_mode))
            return own;
    }
    // The dynamic loader's search finds the distribution's libcurl (its
    // run-time package ships only the versioned name).
    return "libcurl.so.4";
}

void KeepCurlLibraryMapped(CZyLibrary& library)
{
    library.KeepMappedUntilExit();
}
}  // namespace zy::os
