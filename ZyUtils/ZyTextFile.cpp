#include "ZyUtils/ZyTextFile.h"

#include <cerrno>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/stat.h>
#endif

#if !defined(_WIN32)
namespace
{
// The Windows system error code for an errno of a failed open, so that a
// caller sees the same number on every platform. A missing file is 2
// (ERROR_FILE_NOT_FOUND) but a missing directory on the way to it is 3
// (ERROR_PATH_NOT_FOUND), as Windows tells them apart.
int SystemErrorFromErrno(int code, const char* path)
{
    switch (code)
    {
    case ENOENT:
    {
        std::string text = path;
        size_t slash = text.find_last_of('/');
        if (slash == std::string::npos || slash == 0)
            return 2;
        struct stat info;
        return stat(text.substr(0, slash).c_str(), &info) == 0 && S_ISDIR(info.st_mode) ? 2 : 3;
    }
    case ENOTDIR:
        return 3;  // ERROR_PATH_NOT_FOUND
    case EACCES:
    case EPERM:
    case EISDIR:
        return 5;  // ERROR_ACCESS_DENIED (Windows' answer for a directory, too)
    case EMFILE:
    case ENFILE:
        return 4;  // ERROR_TOO_MANY_OPEN_FILES
    case ENOMEM:
        return 8;  // ERROR_NOT_ENOUGH_MEMORY
    case EINVAL:
        return 87;  // ERROR_INVALID_PARAMETER
    case ENAMETOOLONG:
        return 206;  // ERROR_FILENAME_EXCED_RANGE
    case ELOOP:
        return 1921;  // ERROR_CANT_RESOLVE_FILENAME
    default:
        return code;
    }
}
}  // namespace
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
    // A directory opens here but not on Windows; refuse it the same way.
    struct stat info;
    if (file && fstat(fileno(file), &info) == 0 && S_ISDIR(info.st_mode))
    {
        std::fclose(file);
        file = nullptr;
        errno = EISDIR;
    }
    if (!file && lastError)
        *lastError = SystemErrorFromErrno(errno, path);
#endif
    return file;
}
