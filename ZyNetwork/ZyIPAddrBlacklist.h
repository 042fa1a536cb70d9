// CZyIPAddrBlacklist: addresses that have misbehaved, how often each was
// reported, and whether an address is to be refused now. Two settings shape
// it: the reports an address needs before it counts as blacklisted (grace
// attempts, default 1) and the period after which, without new reports, one
// report is forgiven (expiration time in seconds, default 0: never).
//
// A blacklist is used by one thread at a time; even IsAddressBlacklisted
// changes it (it applies expiry).
#pragma once

#include <stdint.h>

#include <functional>
#include <list>

#include "ZyNetwork/ZyIPAddr.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"
#include "ZyUtils/ZyString.h"

// One entry of a blacklist.
class ZYNET_API CZyIPAddrBlacklistNode
{
public:
    CZyIPAddrBlacklistNode();
    // Copies every field.
    // @{
    CZyIPAddrBlacklistNode(const CZyIPAddrBlacklistNode& other);
    CZyIPAddrBlacklistNode& operator=(const CZyIPAddrBlacklistNode& other);
    // @}

    CZyIPAddr address;
    CZyString reason;   // given when the entry was first added
    uint32_t attempts;  // reports still counted
    int32_t time;       // seconds since 1970 of the last report, advanced by forgiven periods
};

// The blacklist described above: entries, their report counts and expiry.
class ZYNET_API CZyIPAddrBlacklist
{
public:
    // Returns the current time in seconds since 1970.
    typedef std::function<int32_t()> TimeSource;

    CZyIPAddrBlacklist();
    // Copies take the entries, settings and time source; their iteration
    // cursor starts at the end of their own list.
    CZyIPAddrBlacklist(const CZyIPAddrBlacklist& other);
    // The same for assignment.
    CZyIPAddrBlacklist& operator=(const CZyIPAddrBlacklist& other);
    ~CZyIPAddrBlacklist();

    // Reports an address: a known one (ports ignored) gets time now and one
    // more attempt, capped at the grace attempts, and keeps its first reason;
    // an unknown one is appended with attempts 1. Always succeeds.
    // @{
    CZyError AddAddressToBlacklist(const CZyIPAddr& address);
    CZyError AddAddressToBlacklist(const CZyIPAddr& address, const CZyString& reason);
    // @}

    // True when the address is known, still counted after expiry, and has
    // at least the grace attempts. Fills reason and attempts (either may be
    // null) from the entry, also when the answer is false; an entry whose
    // reports have all expired is removed.
    bool IsAddressBlacklisted(const CZyIPAddr& address, CZyString* reason, unsigned int* attempts);

    // Iteration in order of first report. Each call reports the entry at the
    // cursor and advances; at the end: error 259 "End of blacklist reached".
    // secondsLeft is time + expiration - now (at least 0), or -1 when
    // expiration is off. Iteration neither applies expiry nor removes.
    // @{
    CZyError GetFirstBlacklistEntry(CZyIPAddr& address, CZyString* reason, unsigned int* attempts, long* lastTime,
                                    long* secondsLeft);
    CZyError GetNextBlacklistEntry(CZyIPAddr& address, CZyString* reason, unsigned int* attempts, long* lastTime,
                                   long* secondsLeft);
    // @}

    // Adds every address of every line of a text file (host names, literals
    // or local socket paths, one a line). Lines that do not resolve are
    // skipped.
    CZyError LoadBlacklistFromFile(const char* path);

    // How long a report counts, in seconds: each whole period since an entry's
    // last report forgives one attempt. 0 (the default): reports never expire.
    void SetExpirationTime(int seconds);
    // How many reports make an address blacklisted (1, the default: the first).
    void SetGraceAttempts(unsigned int count);

    // The clock of expiry; an empty function restores the default, the
    // system clock in whole seconds (ZyTime32).
    void SetTimeSource(TimeSource source);

private:
    typedef std::list<CZyIPAddrBlacklistNode> EntryList;

    int32_t Now() const;

    int32_t m_expirationTime;
    uint32_t m_graceAttempts;
    EntryList m_entries;
    EntryList::iterator m_cursor;
    TimeSource m_timeSource;
};
