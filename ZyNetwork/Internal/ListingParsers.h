// Parsers of the directory listings that FTP and SFTP servers send: the LIST
// output of Unix-style servers (also SFTP's long names), of Windows-style
// servers, and MLSD facts; and the helpers every listing reader shares (the
// listing entry, civil dates). HTML listing pages are read
// in ListingHtml.h. Pure functions over bytes: every read is bounded by the
// input, and a line that fits no format is skipped and counted.
// Internal: not installed, not exported.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace zy::listing
{
struct Entry
{
    std::string name;
    bool isDirectory = false;
    bool isLink = false;
    std::string linkTarget;   // for a symbolic link shown as "name -> target"
    bool hasSize = false;
    uint64_t size = 0;
    bool sizeExact = true;  // false where the listing rounds ("1.2K")
    bool hasTime = false;
    int64_t modified = 0;     // seconds since 1970-01-01 UTC, as the server shows it
    std::string permissions;  // "rwxr-xr-x" where the listing shows them
    std::string timeText;     // the date and time as an HTML page wrote them ("" elsewhere)
};

struct Counts
{
    size_t entries = 0;  // lines turned into entries
    size_t skipped = 0;  // lines that fit no format ("total N" and "." / ".." are neither)
};

// LIST output, line by line (LF or CR LF), Unix-style and Windows-style lines
// mixed as they come. `now` (seconds since 1970, UTC) places the recent Unix
// form "Mon DD HH:MM", which has no year, within the year before `now`.
void ParseList(const char* data, size_t size, int64_t now, std::vector<Entry>& entries, Counts& counts);

// One line each; false when the line fits the format not.
bool ParseUnixLine(const char* line, size_t size, int64_t now, Entry& entry);
bool ParseWindowsLine(const char* line, size_t size, Entry& entry);
// MLSD/MLST facts: "type=file;size=12;modify=20240102030405; name". Entries
// for the listed directory itself and its parent (cdir, pdir) give false.
bool ParseMlsdLine(const char* line, size_t size, Entry& entry);
void ParseMlsd(const char* data, size_t size, std::vector<Entry>& entries, Counts& counts);

// Civil dates in the proleptic Gregorian calendar, UTC, no leap seconds; no
// range checks beyond what the parsers ensure.
// Days since 1970-01-01 of a date.
int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day);
// The date of a day counted from 1970-01-01.
void CivilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day);
// Seconds since 1970-01-01 of a date and time.
int64_t SecondsFromCivil(int year, int month, int day, int hour, int minute, int second);
// "YYYY-MM-DD HH:MM" of seconds since 1970-01-01.
std::string TimeText(int64_t seconds);
}  // namespace zy::listing
