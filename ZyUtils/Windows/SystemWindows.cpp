// The utility layer's OS calls on Windows: modules, files, process facts and
// sleeping.
#include "ZyUtils/Internal/OsUtils.h"

#include <windows.h>

#include <errno.h>
#include <stdio.h>

#include <vector>

#include "ZyUtils/ZyString.h"

namespace zy::util
{
namespace os
{
uint32_t SystemErrorFromErrno(int code, const char* /*path*/)
{
    switch (code)
    {
    case ENOENT:
        return 2;
    case EACCES:
        return 5;
    case EMFILE:
        return 4;
    case ENOMEM:
        return 8;
    case EINVAL:
        return 87;
    default:
        return static_cast<uint32_t>(code);
    }
}

// ---- modules ---------------------------------------------------------------

void* LoadModule(const char* path, bool /*exportSymbols*/, uint32_t* error)
{
    HMODULE module = LoadLibraryW(FXString::ToWstring(path).c_str());
    if (!module && error)
        *error = GetLastError();
    return reinterpret_cast<void*>(module);
}

void* ModuleSymbol(void* module, const char* name, uint32_t* error)
{
    FARPROC proc = GetProcAddress(static_cast<HMODULE>(module), name);
    if (!proc && error)
        *error = GetLastError();
    return reinterpret_cast<void*>(proc);
}

void UnloadModule(void* module)
{
    if (module)
        FreeLibrary(static_cast<HMODULE>(module));
}

void KeepModuleMapped(void* module, const char* /*path*/)
{
    HMODULE pinned = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       static_cast<LPCWSTR>(module), &pinned);
}

bool ModuleDirectoryOf(const void* address, std::string& directory)
{
    HMODULE module = nullptr;
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCSTR>(address), &module))
        return false;
    // The buffer starts at 1,024 characters and grows by 256 before every
    // attempt, until the path fits with room to spare.
    std::vector<char> path(1024);
    DWORD length;
    do
    {
        path.resize(path.size() + 256);
        length = GetModuleFileNameA(module, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0)
            return false;
    } while (length >= path.size());
    std::string full(path.data(), length);
    size_t slash = full.find_last_of('\\');
    if (slash == std::string::npos)
        return false;
    directory = full.substr(0, slash + 1);
    return true;
}

// ---- files -----------------------------------------------------------------

int64_t FileOpen(const char* path, const OpenMode& mode, uint32_t* error)
{
    DWORD access = 0;
    if (mode.read)
        access |= GENERIC_READ;
    if (mode.write)
        access |= mode.append ? FILE_APPEND_DATA : GENERIC_WRITE;
    DWORD disposition;
    if (mode.create && mode.exclusive)
        disposition = CREATE_NEW;
    else if (mode.create)
        disposition = mode.truncate ? CREATE_ALWAYS : OPEN_ALWAYS;
    else
        disposition = mode.truncate ? TRUNCATE_EXISTING : OPEN_EXISTING;
    DWORD attributes = (mode.permissions & 0200) ? FILE_ATTRIBUTE_NORMAL : FILE_ATTRIBUTE_READONLY;
    // No security attributes: the handle is not inherited by child processes.
    // Others may delete or rename the open file (a Ctrl-C handler removing a
    // half-written temporary file, a finished download moved into place).
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE file =
        CreateFileW(FXString::ToWstring(path).c_str(), access, share, nullptr, disposition, attributes, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        if (error)
            *error = GetLastError();
        return kNoFile;
    }
    return static_cast<int64_t>(reinterpret_cast<intptr_t>(file));
}

namespace
{
HANDLE AsHandle(int64_t file)
{
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(file));
}
}  // namespace

uint32_t FileRead(int64_t file, void* buffer, uint32_t size, uint32_t* bytesRead)
{
    DWORD got = 0;
    if (!ReadFile(AsHandle(file), buffer, size, &got, nullptr))
        return GetLastError();
    *bytesRead = got;
    return 0;
}

uint32_t FileWrite(int64_t file, const void* data, uint32_t size, uint32_t* bytesWritten)
{
    DWORD put = 0;
    if (!WriteFile(AsHandle(file), data, size, &put, nullptr))
        return GetLastError();
    *bytesWritten = put;
    return 0;
}

uint32_t FileSize(int64_t file, uint64_t* size)
{
    LARGE_INTEGER value;
    if (!GetFileSizeEx(AsHandle(file), &value))
        return GetLastError();
    *size = static_cast<uint64_t>(value.QuadPart);
    return 0;
}

uint32_t FileSeek(int64_t file, int64_t offset, int origin, uint64_t* position)
{
    static const DWORD kMethod[] = {FILE_BEGIN, FILE_CURRENT, FILE_END};
    LARGE_INTEGER distance;
    LARGE_INTEGER at;
    distance.QuadPart = offset;
    if (!SetFilePointerEx(AsHandle(file), distance, &at, kMethod[origin]))
        return GetLastError();
    *position = static_cast<uint64_t>(at.QuadPart);
    return 0;
}

uint32_t FileClose(int64_t file)
{
    return CloseHandle(AsHandle(file)) ? 0 : GetLastError();
}

uint32_t FileRemove(const char* path)
{
    return DeleteFileW(FXString::ToWstring(path).c_str()) ? 0 : GetLastError();
}

uint32_t FileReplace(const char* from, const char* to)
{
    return MoveFileExW(FXString::ToWstring(from).c_str(), FXString::ToWstring(to).c_str(), MOVEFILE_REPLACE_EXISTING)
               ? 0
               : GetLastError();
}

void* OpenTextStream(const char* path, uint32_t* error)
{
    SetLastError(0);
    errno = 0;
    FILE* file = fopen(path, "rtN");  // N: not inherited
    if (!file && error)
    {
        DWORD code = GetLastError();
        *error = code != 0 ? code : SystemErrorFromErrno(errno, path);
    }
    return file;
}

// ---- process and time ------------------------------------------------------

unsigned long ProcessId()
{
    return GetCurrentProcessId();
}

void SleepMilliseconds(unsigned int milliseconds)
{
    Sleep(milliseconds);
}
}  // namespace os
}  // namespace zy::util
