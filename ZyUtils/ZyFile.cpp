#include "ZyUtils/ZyFile.h"

#include <utility>

#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyUtils/Internal/OsUtils.h"

namespace
{
const char* const kZyFile = "ZyUtils/ZyFile";
}

CZyFile::CZyFile() : m_handle(zy::util::os::kNoFile), m_eof(false) {}

CZyFile::~CZyFile()
{
    if (IsValid())
        zy::util::os::FileClose(m_handle);
}

CZyFile::CZyFile(CZyFile&& other) noexcept
    : m_handle(other.m_handle), m_eof(other.m_eof), m_path(std::move(other.m_path))
{
    other.m_handle = zy::util::os::kNoFile;
}

CZyFile& CZyFile::operator=(CZyFile&& other) noexcept
{
    if (this != &other)
    {
        if (IsValid())
            zy::util::os::FileClose(m_handle);
        m_handle = other.m_handle;
        m_eof = other.m_eof;
        m_path = std::move(other.m_path);
        other.m_handle = zy::util::os::kNoFile;
    }
    return *this;
}

bool CZyFile::IsValid() const
{
    return m_handle != zy::util::os::kNoFile;
}

CZyError CZyFile::Open(const char* path, unsigned flags, unsigned mode)
{
    if (!path || !*path)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Open"), zy::err::kInvalidParameter, "Invalid file path");
    if (IsValid())
        Close();
    zy::util::os::OpenMode open = {};
    unsigned access = flags & 3;
    if (access == 3)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Open"), zy::err::kInvalidParameter, "Invalid open flags 0x%X for [%s]", flags, path);
    open.read = access != kFlagWriteOnly;
    open.write = access != 0;
    open.append = (flags & kFlagAppend) != 0;
    open.create = (flags & kFlagCreate) != 0;
    open.exclusive = (flags & kFlagExclusive) != 0;
    // A created file for writing starts empty unless appended to.
    open.truncate = (flags & kFlagTruncate) != 0 || (open.create && open.write && !open.append);
    open.permissions = mode;
    uint32_t error = 0;
    int64_t handle = zy::util::os::FileOpen(path, open, &error);
    if (handle == zy::util::os::kNoFile)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Open"), error, "Failed to open file [%s]", path);
    m_handle = handle;
    m_eof = false;
    m_path = path;
    return CZyError::Success();
}

CZyError CZyFile::Read(void* buffer, uint32_t size, uint32_t& bytesRead)
{
    bytesRead = 0;
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Read"), zy::err::kInvalidHandle, "File is not open");
    if (!buffer && size)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Read"), zy::err::kInvalidParameter, "Invalid read buffer");
    uint32_t error = zy::util::os::FileRead(m_handle, buffer, size, &bytesRead);
    if (error)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Read"), error, "Failed to read file [%s]", m_path.c_str());
    m_eof = size > 0 && bytesRead == 0;
    return CZyError::Success();
}

CZyError CZyFile::Write(const void* data, uint32_t size)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Write"), zy::err::kInvalidHandle, "File is not open");
    if (!data && size)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Write"), zy::err::kInvalidParameter, "Invalid write buffer");
    const char* bytes = static_cast<const char*>(data);
    while (size > 0)
    {
        uint32_t written = 0;
        uint32_t error = zy::util::os::FileWrite(m_handle, bytes, size, &written);
        if (error)
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Write"), error, "Failed to write file [%s]", m_path.c_str());
        if (written == 0)
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Write"), zy::err::kDiskFull, "Failed to write file [%s]", m_path.c_str());
        bytes += written;
        size -= written;
    }
    return CZyError::Success();
}

CZyError CZyFile::Size(uint64_t& size) const
{
    size = 0;
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Size"), zy::err::kInvalidHandle, "File is not open");
    uint32_t error = zy::util::os::FileSize(m_handle, &size);
    if (error)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Size"), error, "Failed to get the size of [%s]", m_path.c_str());
    return CZyError::Success();
}

CZyError CZyFile::Seek(int64_t offset, int origin, uint64_t* position)
{
    if (!IsValid())
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Seek"), zy::err::kInvalidHandle, "File is not open");
    if (origin < 0 || origin > 2)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Seek"), zy::err::kInvalidParameter, "Invalid seek origin %d", origin);
    uint64_t at = 0;
    uint32_t error = zy::util::os::FileSeek(m_handle, offset, origin, &at);
    if (error)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Seek"), error, "Failed to seek in [%s]", m_path.c_str());
    m_eof = false;
    if (position)
        *position = at;
    return CZyError::Success();
}

CZyError CZyFile::Close()
{
    if (!IsValid())
        return CZyError::Success();
    uint32_t error = zy::util::os::FileClose(m_handle);
    m_handle = zy::util::os::kNoFile;
    m_eof = false;
    if (error)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyFile::Close"), error, "Failed to close file [%s]", m_path.c_str());
    return CZyError::Success();
}

CZyError CZyFile::ReadWholeFile(const char* path, std::string& content)
{
    content.clear();
    CZyFile file;
    CZyError error = file.Open(path, kReadOnly);
    if (error.IsError())
        return error.Push(ZY_LOC("CZyFile::ReadWholeFile"));
    char buffer[65536];
    for (;;)
    {
        uint32_t got = 0;
        error = file.Read(buffer, sizeof(buffer), got);
        if (error.IsError())
        {
            content.clear();
            return error.Push(ZY_LOC("CZyFile::ReadWholeFile"));
        }
        if (got == 0)
            return CZyError::Success();
        content.append(buffer, got);
    }
}

namespace FXFile
{
CZyError RemoveFile(const char* path)
{
    if (!path || !*path)
        return FXErrorUtil::ErrorWin32(ZY_LOC("FXFile::RemoveFile"), zy::err::kInvalidParameter, "Invalid file path");
    uint32_t error = zy::util::os::FileRemove(path);
    if (error)
        return FXErrorUtil::ErrorWin32(ZY_LOC("FXFile::RemoveFile"), error, "Failed to remove file [%s]", path);
    return CZyError::Success();
}

CZyError RenameOver(const char* from, const char* to)
{
    if (!from || !*from || !to || !*to)
        return FXErrorUtil::ErrorWin32(ZY_LOC("FXFile::RenameOver"), zy::err::kInvalidParameter, "Invalid file path");
    uint32_t error = zy::util::os::FileReplace(from, to);
    if (error)
        return FXErrorUtil::ErrorWin32(ZY_LOC("FXFile::RenameOver"), error, "Failed to move file [%s] to [%s]", from,
                                       to);
    return CZyError::Success();
}
}  // namespace FXFile
