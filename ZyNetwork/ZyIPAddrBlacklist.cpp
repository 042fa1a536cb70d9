#include "ZyNetwork/ZyIPAddrBlacklist.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "ZyUtils/ZyTextFile.h"
#include "ZyUtils/ZyTime.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZyIPAddrBlacklist";

namespace
{
// The line buffer of LoadBlacklistFromFile; a longer line is read as
// several pieces.
const int kLineBufferSize = 1024;

struct FileCloser
{
    void operator()(FILE* file) const
    {
        if (file)
            std::fclose(file);
    }
};

struct BufferFree
{
    void operator()(char* buffer) const { std::free(buffer); }
};
}  // namespace

CZyIPAddrBlacklistNode::CZyIPAddrBlacklistNode() : attempts(0), time(0) {}

CZyIPAddrBlacklistNode::CZyIPAddrBlacklistNode(const CZyIPAddrBlacklistNode& other)
    : address(other.address), reason(other.reason), attempts(other.attempts), time(other.time)
{
}

CZyIPAddrBlacklistNode& CZyIPAddrBlacklistNode::operator=(const CZyIPAddrBlacklistNode& other)
{
    address = other.address;
    reason = other.reason;
    attempts = other.attempts;
    time = other.time;
    return *this;
}

CZyIPAddrBlacklist::CZyIPAddrBlacklist() : m_expirationTime(0), m_graceAttempts(1), m_cursor(m_entries.end()) {}

CZyIPAddrBlacklist::CZyIPAddrBlacklist(const CZyIPAddrBlacklist& other)
    : m_expirationTime(other.m_expirationTime),
      m_graceAttempts(other.m_graceAttempts),
      m_entries(other.m_entries),
      m_cursor(m_entries.end()),
      m_timeSource(other.m_timeSource)
{
}

CZyIPAddrBlacklist& CZyIPAddrBlacklist::operator=(const CZyIPAddrBlacklist& other)
{
    if (this != &other)
    {
        m_expirationTime = other.m_expirationTime;
        m_graceAttempts = other.m_graceAttempts;
        m_entries = other.m_entries;
        m_cursor = m_entries.end();
        m_timeSource = other.m_timeSource;
    }
    return *this;
}

CZyIPAddrBlacklist::~CZyIPAddrBlacklist() = default;

int32_t CZyIPAddrBlacklist::Now() const
{
    return m_timeSource ? m_timeSource() : ZyTime32();
}

void CZyIPAddrBlacklist::SetTimeSource(TimeSource source)
{
    m_timeSource = std::move(source);
}

void CZyIPAddrBlacklist::SetExpirationTime(int seconds)
{
    m_expirationTime = seconds;
}

void CZyIPAddrBlacklist::SetGraceAttempts(unsigned int count)
{
    m_graceAttempts = count;
}

CZyError CZyIPAddrBlacklist::AddAddressToBlacklist(const CZyIPAddr& address)
{
    return AddAddressToBlacklist(address, CZyString());
}

CZyError CZyIPAddrBlacklist::AddAddressToBlacklist(const CZyIPAddr& address, const CZyString& reason)
{
    bool matched = false;
    for (CZyIPAddrBlacklistNode& node : m_entries)
    {
        if (!(node.address == address))
            continue;
        matched = true;
        node.time = Now();
        if (node.attempts < UINT32_MAX)
            ++node.attempts;
        if (node.attempts > m_graceAttempts)
            node.attempts = m_graceAttempts;
    }
    if (!matched)
    {
        CZyIPAddrBlacklistNode node;
        node.address = address;
        node.reason = reason;
        node.time = Now();
        node.attempts = 1;
        m_entries.push_back(node);
    }
    return CZyError::Success();
}

bool CZyIPAddrBlacklist::IsAddressBlacklisted(const CZyIPAddr& address, CZyString* reason, unsigned int* attempts)
{
    if (reason)
        reason->Clear();
    if (attempts)
        *attempts = 0;

    EntryList::iterator entry = m_entries.begin();
    while (entry != m_entries.end() && !(entry->address == address))
        ++entry;
    if (entry == m_entries.end())
        return false;

    bool result = true;
    if (m_expirationTime > 0)
    {
        const int64_t period = m_expirationTime;
        for (;;)
        {
            const int64_t now = Now();
            const int64_t last = entry->time;
            if (last + period >= now)
                break;
            // Forgive every whole period that has run out since the last
            // report in one step: k periods bring time + period up to now.
            const int64_t forgiven = (now - last - 1) / period;
            if (static_cast<uint64_t>(forgiven) >= entry->attempts)
            {
                // Nothing left to count: the entry goes, and an iteration
                // cursor on it moves on to the next one.
                if (m_cursor == entry)
                    ++m_cursor;
                m_entries.erase(entry);
                return false;
            }
            entry->time = static_cast<int32_t>(last + forgiven * period);
            entry->attempts -= static_cast<uint32_t>(forgiven);
        }
    }

    if (entry->attempts < m_graceAttempts)
        result = false;
    if (reason)
        *reason = entry->reason;
    if (attempts)
        *attempts = entry->attempts;
    return result;
}

CZyError CZyIPAddrBlacklist::GetFirstBlacklistEntry(CZyIPAddr& address, CZyString* reason, unsigned int* attempts,
                                                    long* lastTime, long* secondsLeft)
{
    m_cursor = m_entries.begin();
    CZyError err = GetNextBlacklistEntry(address, reason, attempts, lastTime, secondsLeft);
    if (err.IsError())
        err.Push(ZY_LOC("CZyIPAddrBlacklist::GetFirstBlacklistEntry"));
    return err;
}

CZyError CZyIPAddrBlacklist::GetNextBlacklistEntry(CZyIPAddr& address, CZyString* reason, unsigned int* attempts,
                                                   long* lastTime, long* secondsLeft)
{
    if (m_cursor == m_entries.end())
    {
        // With expiration off, "no time limit" (-1) holds at the end too, so a
        // caller that reads secondsLeft after the last entry never sees stale data.
        if (secondsLeft && m_expirationTime < 1)
            *secondsLeft = -1;
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddrBlacklist::GetNextBlacklistEntry"), zy::err::kNoMoreItems,
                                       "End of blacklist reached");
    }
    const CZyIPAddrBlacklistNode& node = *m_cursor;
    address = node.address;
    if (reason)
        *reason = node.reason;
    if (attempts)
        *attempts = node.attempts;
    if (lastTime)
        *lastTime = node.time;
    if (secondsLeft)
    {
        if (m_expirationTime >= 1)
        {
            // Capped at the largest value a 32-bit long holds, so that huge
            // periods read the same on every platform.
            int64_t left = static_cast<int64_t>(node.time) + m_expirationTime - Now();
            *secondsLeft = static_cast<long>(left < 0 ? 0 : std::min<int64_t>(left, INT32_MAX));
        }
        else
            *secondsLeft = -1;
    }
    ++m_cursor;
    return CZyError::Success();
}

CZyError CZyIPAddrBlacklist::LoadBlacklistFromFile(const char* path)
{
    if (!path)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddrBlacklist::LoadBlacklistFromFile"), zy::err::kInvalidParameter,
                                       "Failed to open file, FileName=%s", "(null)");
    int lastError = 0;
    std::unique_ptr<FILE, FileCloser> file(ZyOpenTextFileForReading(path, &lastError));
    if (!file)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddrBlacklist::LoadBlacklistFromFile"),
                                       static_cast<uint32_t>(lastError), "Failed to open file, FileName=%s", path);
    std::unique_ptr<char, BufferFree> line(static_cast<char*>(std::malloc(kLineBufferSize)));
    if (!line)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddrBlacklist::LoadBlacklistFromFile"), zy::err::kOutOfMemory);

    while (std::fgets(line.get(), kLineBufferSize, file.get()))
    {
        size_t length = std::strlen(line.get());
        if (length > 0 && line.get()[length - 1] == '\n')
            line.get()[--length] = '\0';
        // Windows' text mode turns CRLF into LF; elsewhere the CR is still
        // there, so a CRLF file loads the same on every platform.
        if (length > 0 && line.get()[length - 1] == '\r')
            line.get()[--length] = '\0';
        if (length == 0)
            continue;
        std::vector<CZyIPAddr> addresses;
        CZyError err = CZyIPAddr::GetAllByName(line.get(), addresses, CZyIPAddr::IP_FAMILY_UNSPEC);
        if (err.IsError())
            continue;
        for (const CZyIPAddr& address : addresses)
            AddAddressToBlacklist(address);
    }
    return CZyError::Success();
}
