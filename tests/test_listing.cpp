// Directory-listing parsers of the FTP and SFTP classes: table tests over the
// line formats servers send, odd lines, and input cut at every length.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZyNetwork/Internal/ListingParsers.h"

using zylisting::Entry;

namespace
{
// 2026-11-23 12:00:00 UTC
const int64_t kNow = zylisting::SecondsFromCivil(2026, 11, 23, 12, 0, 0);

std::vector<Entry> List(const std::string& text, zylisting::Counts* countsOut = nullptr)
{
    std::vector<Entry> entries;
    zylisting::Counts counts;
    zylisting::ParseList(text.data(), text.size(), kNow, entries, counts);
    if (countsOut)
        *countsOut = counts;
    return entries;
}
}  // namespace

TEST(Listing, UnixLines)
{
    struct Case
    {
        const char* line;
        const char* name;
        bool directory;
        uint64_t size;
        int64_t modified;
        const char* target;
    } cases[] = {
        {"-rw-r--r--   1 user     group        1234 Nov 20 09:15 report.txt", "report.txt", false, 1234,
         zylisting::SecondsFromCivil(2026, 11, 20, 9, 15, 0), ""},
        // a recent date later in the year than now belongs to last year
        {"-rw-r--r--   1 user     group          10 Dec 24 18:00 old.txt", "old.txt", false, 10,
         zylisting::SecondsFromCivil(2025, 12, 24, 18, 0, 0), ""},
        {"drwxr-xr-x   2 user     group        4096 Jan  5  2019 with  two spaces ", "with  two spaces ", true, 4096,
         zylisting::SecondsFromCivil(2019, 1, 5, 0, 0, 0), ""},
        {"lrwxrwxrwx   1 user     group           7 Mar  1 10:00 latest -> v1.2.3", "latest", false, 7,
         zylisting::SecondsFromCivil(2026, 3, 1, 10, 0, 0), "v1.2.3"},
        // no group column, an ACL mark, a large size and UTF-8 in the name
        {"-rw-r--r--+ 1 owner 107374182400 Feb 29  2024 Größe.bin", "Größe.bin", false, 107374182400ULL,
         zylisting::SecondsFromCivil(2024, 2, 29, 0, 0, 0), ""},
        // an owner that looks like a month
        {"-rw-------   1 jan      may             0 Jun 30 23:59 empty", "empty", false, 0,
         zylisting::SecondsFromCivil(2026, 6, 30, 23, 59, 0), ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        Entry entry;
        ASSERT_TRUE(zylisting::ParseUnixLine(c.line, strlen(c.line), kNow, entry));
        EXPECT_EQ(entry.name, c.name);
        EXPECT_EQ(entry.isDirectory, c.directory);
        EXPECT_TRUE(entry.hasSize);
        EXPECT_EQ(entry.size, c.size);
        EXPECT_TRUE(entry.hasTime);
        EXPECT_EQ(entry.modified, c.modified);
        EXPECT_EQ(entry.linkTarget, c.target);
        EXPECT_EQ(entry.isLink, c.line[0] == 'l');
    }
}

TEST(Listing, WindowsLines)
{
    Entry entry;
    const std::string dir = "01-02-03  12:05AM       <DIR>          My Documents";
    ASSERT_TRUE(zylisting::ParseWindowsLine(dir.data(), dir.size(), entry));
    EXPECT_EQ(entry.name, "My Documents");
    EXPECT_TRUE(entry.isDirectory);
    EXPECT_FALSE(entry.hasSize);
    EXPECT_EQ(entry.modified, zylisting::SecondsFromCivil(2003, 1, 2, 0, 5, 0));

    const std::string file = "11-23-1999  01:30PM              123456 setup.exe\r";
    ASSERT_TRUE(zylisting::ParseWindowsLine(file.data(), file.size(), entry));
    EXPECT_EQ(entry.name, "setup.exe");
    EXPECT_FALSE(entry.isDirectory);
    EXPECT_EQ(entry.size, 123456u);
    EXPECT_EQ(entry.modified, zylisting::SecondsFromCivil(1999, 11, 23, 13, 30, 0));
}

TEST(Listing, MixedListingSkipsAndCountsOddLines)
{
    const std::string text =
        "total 12\r\n"
        "drwxr-xr-x   2 u g 4096 Nov  1 10:00 .\r\n"
        "drwxr-xr-x   9 u g 4096 Nov  1 10:00 ..\r\n"
        "-rw-r--r--   1 u g    5 Nov  1 10:00 a b\r\n"
        "this line is nothing\r\n"
        "\r\n"
        "-rw-r--r--   1 u g  five Nov  1 10:00 bad-size\r\n"
        "-rw-r--r--   1 u g    5 Foo  1 10:00 bad-month\r\n"
        "-rw-r--r--   1 u g    5 Nov 32 10:00 bad-day\r\n"
        "-rw-r--r--   1 u g    5 Nov  1 25:00 bad-hour\r\n"
        "-rw-r--r--   1 u g    5 Nov  1 10:00 \r\n"
        "10-10-10  10:10PM       <DIR>          win dir\n"
        "-rw-r--r--   1 u g    6 Nov  1 10:00 last";  // no final line end
    zylisting::Counts counts;
    std::vector<Entry> entries = List(text, &counts);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].name, "a b");
    EXPECT_EQ(entries[1].name, "win dir");
    EXPECT_TRUE(entries[1].isDirectory);
    EXPECT_EQ(entries[2].name, "last");
    EXPECT_EQ(counts.entries, 3u);
    EXPECT_EQ(counts.skipped, 6u);
}

TEST(Listing, MlsdFacts)
{
    const std::string text =
        "type=cdir;modify=20260101000000; .\r\n"
        "type=pdir;modify=20260101000000; ..\r\n"
        "Type=file;Size=42;Modify=20240229235958.123;UNIX.mode=0644; name with ; semicolon\r\n"
        "type=dir;sizd=4096;modify=20250102030405; sub\r\n"
        "type=OS.unix=symlink;size=3; link\r\n"
        "size=1; no-type\r\n"
        "garbage\r\n";
    std::vector<Entry> entries;
    zylisting::Counts counts;
    zylisting::ParseMlsd(text.data(), text.size(), entries, counts);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].name, "name with ; semicolon");
    EXPECT_EQ(entries[0].size, 42u);
    EXPECT_EQ(entries[0].modified, zylisting::SecondsFromCivil(2024, 2, 29, 23, 59, 58));
    EXPECT_EQ(entries[0].permissions, "0644");
    EXPECT_TRUE(entries[1].isDirectory);
    EXPECT_FALSE(entries[1].hasSize);
    EXPECT_TRUE(entries[2].isLink);
    EXPECT_EQ(counts.skipped, 2u);
}

// Every prefix of a valid listing parses without reading past it (the
// sanitizer build catches any overrun: each prefix is its own allocation).
TEST(Listing, EveryPrefixStaysInBounds)
{
    const std::string text =
        "lrwxrwxrwx   1 user group 7 Mar  1 10:00 latest -> v1\r\n"
        "01-02-03  12:05AM       <DIR>          d\r\n"
        "type=file;size=42;modify=20240229235958; n\r\n";
    for (size_t n = 0; n <= text.size(); ++n)
    {
        std::vector<char> copy(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(n));
        std::vector<Entry> entries;
        zylisting::Counts counts;
        zylisting::ParseList(copy.data(), copy.size(), kNow, entries, counts);
        zylisting::ParseMlsd(copy.data(), copy.size(), entries, counts);
    }
}

TEST(Listing, CivilDates)
{
    EXPECT_EQ(zylisting::SecondsFromCivil(1970, 1, 1, 0, 0, 0), 0);
    EXPECT_EQ(zylisting::SecondsFromCivil(2000, 3, 1, 0, 0, 0), 951868800);
    EXPECT_EQ(zylisting::SecondsFromCivil(1969, 12, 31, 23, 59, 59), -1);
}
