#include "ZyUtils/ZyTextFile.h"

#include <cerrno>

#if defined(_WIN32)
#include <windows.h>
#endif

FILE* ZyOpenTextFileForReading(const char* path, int* lastError)
{
    if (lastError)
        *lastError = 0;
#if defined(_WIN32)
    SetLastError(0);
    errno = 0;
    FILE* file = std::fopen(path, "rtN");  // N: not inherited
    if (!file && lastError)
    {
        DWORD code = GetLastError();
        *lastError = code != 0 ? static_cast<int>(code) : errno;
    }
#else
    errno = 0;
    FILE* file = std::fopen(path, "rte");  // e: close-on-exec
    if (!file && lastError)
        *lastError = errno;
#endif
    return file;
}
