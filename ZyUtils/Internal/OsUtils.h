// The utility layer's OS boundary: module loading, files, process facts and
// sleeping. ZyUtils/Posix/ and ZyUtils/Windows/ each implement all of it;
// the portable classes (CZyLibrary, CZyFile, the text-file reader, the time
// helpers) include only this header.
// Internal: not installed, not exported.
#pragma once

#include <stdint.h>

#include <string>

namespace zy::util
{
namespace os
{
// ---- errors --------------------------------------------------------------
// System error codes are Windows' numbers on every platform: GetLastError()
// on Windows, the errno of a failed call turned into that number elsewhere
// (2 a missing file, 3 a missing directory on the way, 5 no access or a
// directory, ...). `path` lets a missing file be told from a missing folder.
uint32_t SystemErrorFromErrno(int code, const char* path);

// ---- modules ---------------------------------------------------------------
// Null on failure, with the system code in `error` (126 a module that cannot
// be loaded, 127 a missing symbol, on every platform).
void* LoadModule(const char* path, bool exportSymbols, uint32_t* error);
void* ModuleSymbol(void* module, const char* name, uint32_t* error);
void UnloadModule(void* module);
// Keeps the module loaded from `path` mapped until the process ends, however
// often it is unloaded later (Linux: RTLD_NODELETE; Windows: a pinned module).
void KeepModuleMapped(void* module, const char* path);
// The directory, with its trailing separator, of the module (shared library
// or program) that holds `address`. False when it cannot be found.
bool ModuleDirectoryOf(const void* address, std::string& directory);

// ---- files -----------------------------------------------------------------
// Handles are opaque 64-bit values; kNoFile means none. Every file is opened
// close-on-exec (not inherited) and in binary mode.
const int64_t kNoFile = -1;
struct OpenMode
{
    bool read;
    bool write;
    bool create;
    bool truncate;
    bool append;
    bool exclusive;
    unsigned permissions;  // for a created file (POSIX bits); Windows honours only the write bit
};
int64_t FileOpen(const char* path, const OpenMode& mode, uint32_t* error);
// The calls below return 0 or the system code.
uint32_t FileRead(int64_t file, void* buffer, uint32_t size, uint32_t* bytesRead);
uint32_t FileWrite(int64_t file, const void* data, uint32_t size, uint32_t* bytesWritten);
uint32_t FileSize(int64_t file, uint64_t* size);
// origin: 0 begin, 1 current, 2 end.
uint32_t FileSeek(int64_t file, int64_t offset, int origin, uint64_t* position);
uint32_t FileClose(int64_t file);
uint32_t FileRemove(const char* path);
// Moves `from` to `to`, replacing a file there in one step (rename;
// MoveFileExW with MOVEFILE_REPLACE_EXISTING).
uint32_t FileReplace(const char* from, const char* to);
// A C stream for reading text, never inherited; a directory is refused with 5
// as on Windows.
void* OpenTextStream(const char* path, uint32_t* error);

// ---- process and time ------------------------------------------------------
unsigned long ProcessId();
void SleepMilliseconds(unsigned int milliseconds);
}  // namespace os
}  // namespace zy::util
