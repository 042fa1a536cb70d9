// The utility layer's OS calls on POSIX: modules, files, process facts and
// sleeping. System codes are given as Windows numbers them.
#include "ZyUtils/Internal/OsUtils.h"

#include "ZyUtils/Internal/ErrorCodes.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace zy::util
{
namespace os
{
// The Windows codes of the errno values a file or module call can meet;
// ENOENT depends on the path and any other errno is passed on as it is.
const struct
{
    int error;
    uint32_t code;
} kSystemErrorForErrno[] = {
    {ENOTDIR, 3},         // ERROR_PATH_NOT_FOUND
    {EACCES, 5},          // ERROR_ACCESS_DENIED
    {EPERM, 5},           // ERROR_ACCESS_DENIED
    {EISDIR, 5},          // ERROR_ACCESS_DENIED: Windows' answer for a directory, too
    {EROFS, 5},           // ERROR_ACCESS_DENIED
    {EEXIST, 80},         // ERROR_FILE_EXISTS
    {EMFILE, 4},          // ERROR_TOO_MANY_OPEN_FILES
    {ENFILE, 4},          // ERROR_TOO_MANY_OPEN_FILES
    {ENOMEM, 8},          // ERROR_NOT_ENOUGH_MEMORY
    {EBADF, 6},           // ERROR_INVALID_HANDLE
    {EINVAL, 87},         // ERROR_INVALID_PARAMETER
    {ENOSPC, 112},        // ERROR_DISK_FULL
    {ENAMETOOLONG, 206},  // ERROR_FILENAME_EXCED_RANGE
    {ELOOP, 1921},        // ERROR_CANT_RESOLVE_FILENAME
    {EIO, 1117},          // ERROR_IO_DEVICE
};

uint32_t SystemErrorFromErrno(int code, const char* path)
{
    if (code == ENOENT)
    {
        // A missing file is 2 (ERROR_FILE_NOT_FOUND), a missing directory on
        // the way to it 3 (ERROR_PATH_NOT_FOUND), as Windows tells them apart.
        std::string text = path ? path : "";
        size_t slash = text.find_last_of('/');
        if (slash == std::string::npos || slash == 0)
            return 2;
        struct stat info;
        return stat(text.substr(0, slash).c_str(), &info) == 0 && S_ISDIR(info.st_mode) ? 2 : 3;
    }
    for (const auto& entry : kSystemErrorForErrno)
        if (entry.error == code)
            return entry.code;
    return static_cast<uint32_t>(code);
}

// ---- modules ---------------------------------------------------------------

void* LoadModule(const char* path, bool exportSymbols, uint32_t* error)
{
    // Lazy binding, as the dynamic loader does for a program linked against
    // libcurl: resolving every function of libcurl and its thirty libraries
    // up front costs a one-file transfer about 7% of its run time
    // (docs/PERFORMANCE.md). Libraries built to bind at once still do.
    dlerror();
    void* module = dlopen(path, RTLD_LAZY | (exportSymbols ? RTLD_GLOBAL : RTLD_LOCAL));
    if (!module && error)
        *error = zy::err::kModuleNotFound;  // Windows' code for any module that will not load
    return module;
}

void* ModuleSymbol(void* module, const char* name, uint32_t* error)
{
    dlerror();
    void* address = dlsym(module, name);
    if (!address && error)
        *error = zy::err::kProcNotFound;
    return address;
}

void UnloadModule(void* module)
{
    if (module)
        dlclose(module);
}

void KeepModuleMapped(void* /*module*/, const char* path)
{
    // Marks the loaded object as never to be unloaded; the extra reference
    // taken here is dropped at once.
    void* module = dlopen(path, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    if (module)
        dlclose(module);
}

bool ModuleDirectoryOf(const void* address, std::string& directory)
{
    Dl_info info;
    if (dladdr(address, &info) == 0 || !info.dli_fname)
        return false;
    std::string path = info.dli_fname;
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return false;
    directory = path.substr(0, slash + 1);
    return true;
}

// ---- files -----------------------------------------------------------------

int64_t FileOpen(const char* path, const OpenMode& mode, uint32_t* error)
{
    int flags = O_CLOEXEC;
    flags |= mode.write ? (mode.read ? O_RDWR : O_WRONLY) : O_RDONLY;
    if (mode.create)
        flags |= O_CREAT;
    if (mode.truncate)
        flags |= O_TRUNC;
    if (mode.append)
        flags |= O_APPEND;
    if (mode.exclusive)
        flags |= O_EXCL;
    int fd;
    do
        fd = open(path, flags, static_cast<mode_t>(mode.permissions));
    while (fd < 0 && errno == EINTR);
    if (fd < 0)
    {
        if (error)
            *error = SystemErrorFromErrno(errno, path);
        return kNoFile;
    }
    // A directory opens for reading here but not on Windows: refuse it the
    // same way.
    struct stat info;
    if (fstat(fd, &info) == 0 && S_ISDIR(info.st_mode))
    {
        close(fd);
        if (error)
            *error = 5;
        return kNoFile;
    }
    return fd;
}

// One read or write, retried while a signal interrupts it. The file is open
// (the class checks that), so EBADF means the file was not opened for that
// direction: Windows says 5 (access denied).
namespace
{
template <typename Call>
uint32_t MoveBytes(Call call, uint32_t* moved)
{
    ssize_t done;
    do
        done = call();
    while (done < 0 && errno == EINTR);
    if (done < 0)
        return errno == EBADF ? 5 : SystemErrorFromErrno(errno, nullptr);
    *moved = static_cast<uint32_t>(done);
    return 0;
}
}  // namespace

uint32_t FileRead(int64_t file, void* buffer, uint32_t size, uint32_t* bytesRead)
{
    return MoveBytes([&] { return read(static_cast<int>(file), buffer, size); }, bytesRead);
}

uint32_t FileWrite(int64_t file, const void* data, uint32_t size, uint32_t* bytesWritten)
{
    return MoveBytes([&] { return write(static_cast<int>(file), data, size); }, bytesWritten);
}

uint32_t FileSize(int64_t file, uint64_t* size)
{
    struct stat info;
    if (fstat(static_cast<int>(file), &info) != 0)
        return SystemErrorFromErrno(errno, nullptr);
    *size = static_cast<uint64_t>(info.st_size);
    return 0;
}

uint32_t FileSeek(int64_t file, int64_t offset, int origin, uint64_t* position)
{
    static const int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    off_t at = lseek(static_cast<int>(file), static_cast<off_t>(offset), kWhence[origin]);
    if (at < 0)
        return SystemErrorFromErrno(errno, nullptr);
    *position = static_cast<uint64_t>(at);
    return 0;
}

uint32_t FileClose(int64_t file)
{
    // close() is not retried on EINTR: the descriptor is gone either way.
    return close(static_cast<int>(file)) == 0 || errno == EINTR ? 0 : SystemErrorFromErrno(errno, nullptr);
}

uint32_t FileRemove(const char* path)
{
    struct stat info;
    // Windows' DeleteFile refuses a directory with 5; unlink would give EISDIR
    // or EPERM, both 5 too, but say so plainly.
    if (lstat(path, &info) == 0 && S_ISDIR(info.st_mode))
        return 5;
    return unlink(path) == 0 ? 0 : SystemErrorFromErrno(errno, path);
}

uint32_t FileReplace(const char* from, const char* to)
{
    return rename(from, to) == 0 ? 0 : SystemErrorFromErrno(errno, to);
}

void* OpenTextStream(const char* path, uint32_t* error)
{
    errno = 0;
    FILE* file = fopen(path, "re");  // e: close-on-exec
    struct stat info;
    if (file && fstat(fileno(file), &info) == 0 && S_ISDIR(info.st_mode))
    {
        fclose(file);
        file = nullptr;
        errno = EISDIR;
    }
    if (!file && error)
        *error = SystemErrorFromErrno(errno, path);
    return file;
}

// ---- process and time ------------------------------------------------------

unsigned long ProcessId()
{
    return static_cast<unsigned long>(getpid());
}

void SleepMilliseconds(unsigned int milliseconds)
{
    struct timespec left;
    left.tv_sec = milliseconds / 1000;
    left.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
    {
    }
}
}  // namespace os
}  // namespace zy::util
