// Binary files of the utility layer.
#pragma once

#include <stdint.h>

#include <string>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"

// An open file. The open flags use the C runtime's _open numbering, so the
// two modes the library needs read as they do on Windows:
//   kWriteCreate (0x4101): write only, created when missing and truncated
//                          when present;
//   kReadOnly    (0x4000): read only, the file must exist.
// Files are always binary (no newline translation) and never inherited by
// child processes. Errors are Win32 errors with the system's code as Windows
// numbers it on every platform (2 a missing file, 3 a missing directory on
// the way, 5 no access or a directory, ...).
// Not copyable; moving hands the open file over.
class ZYNET_API CZyFile
{
public:
    enum Flags : unsigned
    {
        kFlagWriteOnly = 0x0001,
        kFlagReadWrite = 0x0002,
        kFlagAppend = 0x0008,
        kFlagCreate = 0x0100,
        kFlagTruncate = 0x0200,
        kFlagExclusive = 0x0400,
        kFlagText = 0x4000,    // accepted and ignored: files are always binary
        kFlagBinary = 0x8000,
        kReadOnly = kFlagText,
        kWriteCreate = kFlagText | kFlagCreate | kFlagWriteOnly,
    };
    static const unsigned kModeOwnerReadWrite = 0600;  // 384

    CZyFile();
    ~CZyFile();
    CZyFile(const CZyFile&) = delete;
    CZyFile& operator=(const CZyFile&) = delete;
    // Moving hands the open file over; the moved-from object is closed. Assigning
    // closes this object's file first.
    // @{
    CZyFile(CZyFile&& other) noexcept;
    CZyFile& operator=(CZyFile&& other) noexcept;
    // @}

    // Opens `path` (UTF-8). An open file is closed first. A write-create open
    // without kFlagAppend truncates an existing file.
    CZyError Open(const char* path, unsigned flags, unsigned mode = kModeOwnerReadWrite);
    // Reads up to `size` bytes; `bytesRead` 0 means the end of the file.
    CZyError Read(void* buffer, uint32_t size, uint32_t& bytesRead);
    // Writes all `size` bytes or fails.
    CZyError Write(const void* data, uint32_t size);
    // The file's size in bytes (0 with error 6 when it is not open).
    CZyError Size(uint64_t& size) const;
    // origin: 0 from the start, 1 from the current position, 2 from the end.
    CZyError Seek(int64_t offset, int origin, uint64_t* position = nullptr);
    // True once a read has returned 0 bytes.
    bool IsEOF() const { return m_eof; }
    // Closes the file; closing a file that is not open succeeds.
    CZyError Close();
    // True while a file is open.
    bool IsValid() const;
    // The path given to the last Open.
    const std::string& Path() const { return m_path; }

    // The whole file as bytes.
    static CZyError ReadWholeFile(const char* path, std::string& content);

private:
    int64_t m_handle;
    bool m_eof;
    std::string m_path;
};

namespace FXFile
{
// Deletes a file; a missing file is an error (2) like any other.
ZYNET_API CZyError RemoveFile(const char* path);
// Moves the file `from` to `to`, replacing a file there in one step (both
// on the same volume).
ZYNET_API CZyError RenameOver(const char* from, const char* to);
}  // namespace FXFile
