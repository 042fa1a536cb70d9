#include "Download.h"

#include <stdio.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "Platform.h"
#include "Terminal.h"
#include "ZyUtils/ZyString.h"

namespace zytool
{
namespace
{
const char kZyFile[] = "tools/zynet/Download";

bool StartsWithNoCase(const std::string& text, const char* prefix)
{
    for (size_t i = 0; prefix[i]; ++i)
    {
        if (i >= text.size() || std::tolower(static_cast<unsigned char>(text[i])) != prefix[i])
            return false;
    }
    return true;
}

bool SizeOnDisk(const std::string& path, uint64_t& size)
{
    CZyFile file;
    size = 0;
    return !file.Open(path.c_str(), CZyFile::kReadOnly).IsError() && !file.Size(size).IsError();
}
}  // namespace

BodySink::BodySink(const std::string& file, bool resume, bool http)
    : m_file(file == "-" ? std::string() : file), m_resume(resume), m_http(http)
{
    if (m_file.empty())
        SetBinaryStdout();
}

BodySink::~BodySink()
{
    Abandon();
}

CZyError BodySink::CreateTemporary(std::string& path)
{
    const size_t slash = m_file.find_last_of("/\\");
    const std::string directory = slash == std::string::npos ? std::string() : m_file.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? m_file : m_file.substr(slash + 1);
    // A name nobody else holds: made exclusively, trying a few.
    unsigned long long seed = static_cast<unsigned long long>(
        std::chrono::steady_clock::now().time_since_epoch().count());
    CZyError error;
    for (int attempt = 0; attempt < 50; ++attempt)
    {
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
        path = directory + "." + name + FXString::Format(".zynet-%06llx.part", (seed >> 40) & 0xFFFFFF);
        // Permissions as the process's umask gives a new file.
        error = m_out.Open(path.c_str(), CZyFile::kWriteCreate | CZyFile::kFlagExclusive, 0666);
        if (!error.IsError())
        {
            m_temporary = path;
            RemoveOnInterrupt(path);
            return error;
        }
    }
    path.clear();
    return error.Push(ZY_LOC("zytool::BodySink::MakeTemporary"), "cannot make a temporary file beside %s",
                      m_file.c_str());
}

CZyError BodySink::MakeTemporary(std::string& path)
{
    CZyError error = CreateTemporary(path);
    return error.IsError() ? error : m_out.Close();
}

CZyError BodySink::OpenTemporary()
{
    // The first attempt writes through the handle that made the name; a
    // later one (a retry) empties the file again.
    std::string path;
    if (m_temporary.empty())
        return CreateTemporary(path);
    return m_out.Open(m_temporary.c_str(), CZyFile::kWriteCreate);  // truncates
}

void BodySink::RemoveTemporary()
{
    m_out.Close();
    if (!m_temporary.empty())
    {
        FXFile::RemoveFile(m_temporary.c_str());
        m_temporary.clear();
        ForgetOnInterrupt();
    }
}

CZyError BodySink::Prepare(uint64_t& offset)
{
    m_mode = kUndecided;
    m_bytes = 0;
    m_status = 0;
    m_reason.clear();
    m_rangeStart = m_rangeTotal = -1;
    m_rangeMismatch = m_failed = false;
    m_out.Close();
    offset = 0;
    if (ToStdout())
        return CZyError();
    if (m_resume && !m_startOver)
    {
        // A temporary file of an earlier attempt that started over is gone.
        RemoveTemporary();
        SizeOnDisk(m_file, offset);
        m_offset = offset;
        return CZyError();
    }
    m_offset = 0;
    return OpenTemporary();
}

void BodySink::Attach(RkCURL::RkProtocolReq& request)
{
    request.setWriteFunctionPointer(this, &BodySink::Write);
    request.setHeaderWriteFunctionPointer(this, &BodySink::Header);
}

size_t BodySink::Header(char* data, size_t size, size_t count, void* self)
{
    BodySink* sink = static_cast<BodySink*>(self);
    const size_t total = size * count;
    std::string line(data, total);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    if (sink->m_http && line.compare(0, 5, "HTTP/") == 0)
    {
        // "HTTP/1.1 206 Partial Content": a new answer (after a redirect or
        // a 100 Continue) starts over.
        const size_t space = line.find(' ');
        sink->m_status = space == std::string::npos ? 0 : std::atoi(line.c_str() + space + 1);
        const size_t reason = space == std::string::npos ? std::string::npos : line.find(' ', space + 1);
        sink->m_reason = reason == std::string::npos ? std::string() : line.substr(reason + 1);
        sink->m_rangeStart = sink->m_rangeTotal = -1;
    }
    else if (sink->m_http && StartsWithNoCase(line, "content-range:"))
    {
        // "bytes FIRST-LAST/TOTAL" or "bytes */TOTAL".
        const char* text = line.c_str() + 14;
        while (*text == ' ')
            ++text;
        if (StartsWithNoCase(text, "bytes "))
        {
            text += 6;
            char* end = nullptr;
            if (*text == '*')
                end = const_cast<char*>(text + 1);
            else
                sink->m_rangeStart = std::strtoll(text, &end, 10);
            const char* slash = std::strchr(end ? end : text, '/');
            if (slash && slash[1] != '*')
                sink->m_rangeTotal = std::strtoll(slash + 1, nullptr, 10);
        }
    }
    return total;
}

void BodySink::Decide()
{
    const bool answerOk = !m_http || (m_status >= 200 && m_status <= 299);
    if (!answerOk)
        m_mode = kDiscard;
    else if (ToStdout())
        m_mode = kStdout;
    else if (!m_resume || m_startOver)
        m_mode = kTemporary;
    else if (m_offset == 0)
        m_mode = kAppend;
    else if (!m_http)
        m_mode = kAppend;  // FTP and SFTP: curl fails when the server cannot resume
    else if (m_http && m_status == 206)
    {
        if (m_rangeStart == static_cast<int64_t>(m_offset))
            m_mode = kAppend;
        else
            m_rangeMismatch = true;
    }
    else
        m_mode = kTemporary;  // the whole body again: start over beside the file

    CZyError error;
    if (m_mode == kAppend)
        error = m_out.Open(m_file.c_str(), CZyFile::kFlagCreate | CZyFile::kFlagWriteOnly | CZyFile::kFlagAppend);
    else if (m_mode == kTemporary && !m_out.IsValid())
        error = OpenTemporary();
    if (error.IsError() || m_rangeMismatch)
        m_failed = true;
}

size_t BodySink::Write(char* data, size_t size, size_t count, void* self)
{
    BodySink* sink = static_cast<BodySink*>(self);
    const size_t total = size * count;
    if (sink->m_mode == kUndecided)
        sink->Decide();
    if (sink->m_failed)
        return 0;  // curl stops with its write error
    switch (sink->m_mode)
    {
    case kDiscard:
        return total;
    case kStdout:
        if (fwrite(data, 1, total, stdout) != total)
        {
            sink->m_failed = true;
            return 0;
        }
        break;
    default:
        if (sink->m_out.Write(data, static_cast<uint32_t>(total)).IsError())
        {
            sink->m_failed = true;
            return 0;
        }
    }
    sink->m_bytes += total;
    return total;
}

bool BodySink::AlreadyComplete() const
{
    return m_resume && m_offset > 0 && m_status == 416 && m_rangeTotal == static_cast<int64_t>(m_offset);
}

CZyError BodySink::Commit()
{
    static const char kFunction[] = "zytool::BodySink::Commit";
    if (ToStdout())
    {
        fflush(stdout);
        return CZyError();
    }
    // An empty body writes nothing: decide now what it means.
    if (m_mode == kUndecided && m_resume && !AlreadyComplete())
        Decide();
    CZyError error = m_out.Close();
    if (!error.IsError() && !m_temporary.empty())
    {
        std::string why;
        if (!MoveOver(m_temporary, m_file, why))
            error = FXErrorUtil::ErrorInt(ZY_LOC(kFunction), 1, "cannot replace %s: %s", m_file.c_str(), why.c_str());
    }
    if (error.IsError())
    {
        RemoveTemporary();
        return error;
    }
    m_temporary.clear();
    ForgetOnInterrupt();
    // The size only --continue reports; a whole download is what was written.
    if (m_resume)
        SizeOnDisk(m_file, m_fileSize);
    else
        m_fileSize = m_bytes;
    return error;
}

void BodySink::Abandon()
{
    if (ToStdout())
        fflush(stdout);
    RemoveTemporary();
}
}  // namespace zytool
