#include "ZyNetwork/Internal/ListingParsers.h"

#include <stdio.h>
#include <string.h>

namespace zy::listing
{
namespace
{
// A read-only view of part of a line with bounded helpers.
struct Cursor
{
    const char* p;
    const char* end;

    bool AtEnd() const { return p >= end; }
    void SkipSpaces()
    {
        while (p < end && (*p == ' ' || *p == '\t'))
            ++p;
    }
    // The next run of non-blank characters.
    bool Token(const char*& start, size_t& length)
    {
        SkipSpaces();
        start = p;
        while (p < end && *p != ' ' && *p != '\t')
            ++p;
        length = static_cast<size_t>(p - start);
        return length > 0;
    }
};

bool Digits(const char* text, size_t length, uint64_t& value, size_t maxDigits = 19)
{
    if (length == 0 || length > maxDigits)
        return false;
    value = 0;
    for (size_t i = 0; i < length; ++i)
    {
        if (text[i] < '0' || text[i] > '9')
            return false;
        value = value * 10 + static_cast<uint64_t>(text[i] - '0');
    }
    return true;
}

int MonthIndex(const char* text, size_t length)
{
    static const char* const kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                          "jul", "aug", "sep", "oct", "nov", "dec"};
    if (length != 3)
        return 0;
    char lower[3];
    for (int i = 0; i < 3; ++i)
        lower[i] = static_cast<char>(text[i] >= 'A' && text[i] <= 'Z' ? text[i] + 32 : text[i]);
    for (int m = 0; m < 12; ++m)
        if (memcmp(lower, kMonths[m], 3) == 0)
            return m + 1;
    return 0;
}

// "HH:MM" into hour and minute.
bool ClockTime(const char* text, size_t length, int& hour, int& minute)
{
    uint64_t h, m;
    const char* colon = static_cast<const char*>(memchr(text, ':', length));
    if (!colon)
        return false;
    size_t hl = static_cast<size_t>(colon - text);
    if (!Digits(text, hl, h, 2) || !Digits(colon + 1, length - hl - 1, m, 2) || h > 23 || m > 59)
        return false;
    hour = static_cast<int>(h);
    minute = static_cast<int>(m);
    return true;
}

void CivilFromSeconds(int64_t seconds, int& year, int& month)
{
    int64_t y = 0;
    unsigned m = 0, d = 0;
    CivilFromDays(seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400, y, m, d);
    year = static_cast<int>(y);
    month = static_cast<int>(m);
}

bool ValidDay(int day)
{
    return day >= 1 && day <= 31;
}

void TrimLineEnd(const char* line, size_t& size)
{
    while (size > 0 && (line[size - 1] == '\r' || line[size - 1] == '\n'))
        --size;
}

template <typename LineParser>
void ParseLines(const char* data, size_t size, std::vector<Entry>& entries, Counts& counts, LineParser parse)
{
    const char* p = data;
    const char* end = data + size;
    while (p < end)
    {
        const char* newline = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)));
        const char* lineEnd = newline ? newline : end;
        size_t length = static_cast<size_t>(lineEnd - p);
        TrimLineEnd(p, length);
        if (length > 0)
            parse(p, length);
        p = newline ? newline + 1 : end;
    }
    (void)entries;
    (void)counts;
}

bool IsDotName(const std::string& name)
{
    return name == "." || name == "..";
}
}  // namespace

// Howard Hinnant's days_from_civil and civil_from_days.
int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day)
{
    const int64_t y = year - (month <= 2 ? 1 : 0);
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day)
{
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(days - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    day = doy - (153 * mp + 2) / 5 + 1;
    month = mp < 10 ? mp + 3 : mp - 9;
    year = static_cast<int64_t>(yoe) + era * 400 + (month <= 2 ? 1 : 0);
}

int64_t SecondsFromCivil(int year, int month, int day, int hour, int minute, int second)
{
    return DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 + hour * 3600 +
           minute * 60 + second;
}

std::string TimeText(int64_t seconds)
{
    const int64_t days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
    const int64_t rest = seconds - days * 86400;
    int64_t year = 0;
    unsigned month = 0, day = 0;
    CivilFromDays(days, year, month, day);
    char text[64];
    snprintf(text, sizeof(text), "%04lld-%02u-%02u %02d:%02d", static_cast<long long>(year), month, day,
             static_cast<int>(rest / 3600), static_cast<int>((rest / 60) % 60));
    return text;
}

bool ParseUnixLine(const char* line, size_t size, int64_t now, Entry& entry)
{
    entry = Entry();
    TrimLineEnd(line, size);
    if (size < 10)
        return false;
    static const char kTypes[] = "-dlbcps";
    if (!strchr(kTypes, line[0]) || line[0] == '\0')
        return false;
    for (int i = 1; i < 10; ++i)
        if (!strchr("rwxsStTl-", line[i]) || line[i] == '\0')
            return false;
    Cursor cursor{line + 10, line + size};
    // An ACL or extended-attribute mark may follow the permissions.
    if (!cursor.AtEnd() && (*cursor.p == '+' || *cursor.p == '@' || *cursor.p == '.'))
        ++cursor.p;
    if (!cursor.AtEnd() && *cursor.p != ' ' && *cursor.p != '\t')
        return false;

    // Collect tokens until the date: month, day, then time or year. The
    // token just before the month is the size; link count, owner and group
    // (some servers leave out the group) come before it.
    const char* tokens[8];
    size_t lengths[8];
    int count = 0;
    int month = 0;
    for (;;)
    {
        const char* start;
        size_t length;
        if (!cursor.Token(start, length))
            return false;
        uint64_t ignored;
        month = MonthIndex(start, length);
        if (month && count >= 2 && Digits(tokens[count - 1], lengths[count - 1], ignored))
            break;
        if (count == 8)
            return false;
        tokens[count] = start;
        lengths[count] = length;
        ++count;
    }
    uint64_t size64;
    if (!Digits(tokens[count - 1], lengths[count - 1], size64))
        return false;

    const char* dayText;
    size_t dayLength;
    uint64_t day;
    if (!cursor.Token(dayText, dayLength) || !Digits(dayText, dayLength, day, 2) || !ValidDay(static_cast<int>(day)))
        return false;
    const char* when;
    size_t whenLength;
    if (!cursor.Token(when, whenLength))
        return false;
    int hour = 0, minute = 0;
    int year;
    uint64_t yearValue;
    if (ClockTime(when, whenLength, hour, minute))
    {
        // No year: the most recent such date not later than a day after now.
        int nowMonth;
        CivilFromSeconds(now, year, nowMonth);
        if (SecondsFromCivil(year, month, static_cast<int>(day), hour, minute, 0) > now + 86400)
            --year;
    }
    else if (Digits(when, whenLength, yearValue, 4) && yearValue >= 1900)
        year = static_cast<int>(yearValue);
    else
        return false;

    // The name is the rest of the line after one separating blank, kept as
    // it is (inner and trailing blanks included).
    if (cursor.AtEnd() || (*cursor.p != ' ' && *cursor.p != '\t'))
        return false;
    ++cursor.p;
    if (cursor.AtEnd())
        return false;
    std::string name(cursor.p, static_cast<size_t>(cursor.end - cursor.p));
    if (line[0] == 'l')
    {
        size_t arrow = name.find(" -> ");
        if (arrow != std::string::npos)
        {
            entry.linkTarget = name.substr(arrow + 4);
            name.erase(arrow);
        }
        entry.isLink = true;
    }
    if (name.empty())
        return false;
    entry.name = name;
    entry.isDirectory = line[0] == 'd';
    entry.permissions.assign(line + 1, 9);
    entry.hasSize = true;
    entry.size = size64;
    entry.hasTime = true;
    entry.modified = SecondsFromCivil(year, month, static_cast<int>(day), hour, minute, 0);
    return true;
}

bool ParseWindowsLine(const char* line, size_t size, Entry& entry)
{
    entry = Entry();
    TrimLineEnd(line, size);
    Cursor cursor{line, line + size};
    const char* date;
    size_t dateLength;
    if (!cursor.Token(date, dateLength) || (dateLength != 8 && dateLength != 10))
        return false;
    // MM-DD-YY or MM-DD-YYYY
    uint64_t mm, dd, yy;
    if (date[2] != '-' || date[5] != '-' || !Digits(date, 2, mm) || !Digits(date + 3, 2, dd) ||
        !Digits(date + 6, dateLength - 6, yy) || mm < 1 || mm > 12 || !ValidDay(static_cast<int>(dd)))
        return false;
    int year = static_cast<int>(yy);
    if (dateLength == 8)
        year += year < 70 ? 2000 : 1900;
    const char* clock;
    size_t clockLength;
    if (!cursor.Token(clock, clockLength) || clockLength < 6)
        return false;
    // HH:MMAM / HH:MMPM
    const char* suffix = clock + clockLength - 2;
    bool pm;
    if ((suffix[0] == 'A' || suffix[0] == 'a') && (suffix[1] == 'M' || suffix[1] == 'm'))
        pm = false;
    else if ((suffix[0] == 'P' || suffix[0] == 'p') && (suffix[1] == 'M' || suffix[1] == 'm'))
        pm = true;
    else
        return false;
    int hour, minute;
    if (!ClockTime(clock, clockLength - 2, hour, minute) || hour < 1 || hour > 12)
        return false;
    hour = hour % 12 + (pm ? 12 : 0);
    const char* what;
    size_t whatLength;
    if (!cursor.Token(what, whatLength))
        return false;
    bool directory = whatLength == 5 && memcmp(what, "<DIR>", 5) == 0;
    uint64_t fileSize = 0;
    if (!directory && !Digits(what, whatLength, fileSize))
        return false;
    cursor.SkipSpaces();
    if (cursor.AtEnd())
        return false;
    entry.name.assign(cursor.p, static_cast<size_t>(cursor.end - cursor.p));
    entry.isDirectory = directory;
    entry.hasSize = !directory;
    entry.size = fileSize;
    entry.hasTime = true;
    entry.modified = SecondsFromCivil(year, static_cast<int>(mm), static_cast<int>(dd), hour, minute, 0);
    return true;
}

bool ParseMlsdLine(const char* line, size_t size, Entry& entry)
{
    entry = Entry();
    TrimLineEnd(line, size);
    // Facts end at the first blank; the name is everything after it.
    const char* space = static_cast<const char*>(memchr(line, ' ', size));
    if (!space || space == line || static_cast<size_t>(space - line) + 1 >= size)
        return false;
    const char* p = line;
    bool haveType = false;
    while (p < space)
    {
        const char* semicolon = static_cast<const char*>(memchr(p, ';', static_cast<size_t>(space - p)));
        const char* factEnd = semicolon ? semicolon : space;
        const char* equals = static_cast<const char*>(memchr(p, '=', static_cast<size_t>(factEnd - p)));
        if (!equals)
            return false;
        std::string key(p, static_cast<size_t>(equals - p));
        for (char& c : key)
            c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
        std::string value(equals + 1, static_cast<size_t>(factEnd - equals - 1));
        std::string lowerValue = value;
        for (char& c : lowerValue)
            c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
        if (key == "type")
        {
            haveType = true;
            if (lowerValue == "cdir" || lowerValue == "pdir")
                return false;
            entry.isDirectory = lowerValue == "dir";
            entry.isLink = lowerValue.find("symlink") != std::string::npos;
        }
        else if (key == "size" || key == "sizd")
        {
            uint64_t value64;
            if (Digits(value.data(), value.size(), value64))
            {
                entry.hasSize = key == "size";
                entry.size = entry.hasSize ? value64 : 0;
            }
        }
        else if (key == "modify" && value.size() >= 14)
        {
            uint64_t y, mo, d, h, mi, s;
            const char* v = value.data();
            if (Digits(v, 4, y) && Digits(v + 4, 2, mo) && Digits(v + 6, 2, d) && Digits(v + 8, 2, h) &&
                Digits(v + 10, 2, mi) && Digits(v + 12, 2, s) && mo >= 1 && mo <= 12 && ValidDay(static_cast<int>(d)) &&
                h < 24 && mi < 60 && s < 61)
            {
                entry.hasTime = true;
                entry.modified = SecondsFromCivil(static_cast<int>(y), static_cast<int>(mo), static_cast<int>(d),
                                                  static_cast<int>(h), static_cast<int>(mi), static_cast<int>(s));
            }
        }
        else if (key == "unix.mode")
            entry.permissions = value;
        p = semicolon ? semicolon + 1 : space;
    }
    if (!haveType)
        return false;
    entry.name.assign(space + 1, size - static_cast<size_t>(space - line) - 1);
    return !entry.name.empty();
}

void ParseList(const char* data, size_t size, int64_t now, std::vector<Entry>& entries, Counts& counts)
{
    ParseLines(data, size, entries, counts, [&](const char* line, size_t length) {
        Entry entry;
        if (ParseUnixLine(line, length, now, entry) || ParseWindowsLine(line, length, entry))
        {
            if (IsDotName(entry.name))
                return;
            entries.push_back(std::move(entry));
            ++counts.entries;
            return;
        }
        // "total 42" heads Unix listings; it is not an entry and not an error.
        if (length > 6 && memcmp(line, "total ", 6) == 0)
            return;
        ++counts.skipped;
    });
}

void ParseMlsd(const char* data, size_t size, std::vector<Entry>& entries, Counts& counts)
{
    ParseLines(data, size, entries, counts, [&](const char* line, size_t length) {
        Entry entry;
        if (ParseMlsdLine(line, length, entry))
        {
            if (IsDotName(entry.name))
                return;
            entries.push_back(std::move(entry));
            ++counts.entries;
            return;
        }
        // cdir and pdir entries are expected; count only lines that fit nothing.
        const char* type = nullptr;
        for (size_t i = 0; i + 5 <= length; ++i)
            if (memcmp(line + i, "type=", 5) == 0)
            {
                type = line + i + 5;
                break;
            }
        if (type && static_cast<size_t>(line + length - type) >= 4 &&
            (memcmp(type, "cdir", 4) == 0 || memcmp(type, "pdir", 4) == 0))
            return;
        ++counts.skipped;
    });
}
}  // namespace zy::listing
