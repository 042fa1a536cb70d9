// Directory-listing parsers: FTP/SFTP line formats and HTTP index pages, and
// the text helpers the listing readers and the clients share.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "ZyNetwork/Internal/ListingHtml.h"
#include "ZyNetwork/Internal/ListingParsers.h"
#include "ZyNetwork/Internal/UrlText.h"
#include "ZyNetwork/RkFTPReq.h"
#include "ZyNetwork/RkHTTPReq.h"
#include "ZyUtils/ZyFile.h"
#include "support/TestEnv.h"

using RkCURL::FileDirInfo;
using zy::listing::Entry;

namespace
{
// 2026-11-23 12:00:00 UTC
const int64_t kNow = zy::listing::SecondsFromCivil(2026, 11, 23, 12, 0, 0);

std::vector<Entry> List(const std::string& text, zy::listing::Counts* countsOut = nullptr)
{
    std::vector<Entry> entries;
    zy::listing::Counts counts;
    zy::listing::ParseList(text.data(), text.size(), kNow, entries, counts);
    if (countsOut)
        *countsOut = counts;
    return entries;
}

std::map<std::string, FileDirInfo> Parse(const std::string& page, const std::string& path)
{
    RkCURL::RkHTTPReq request;
    std::vector<FileDirInfo> entries;
    EXPECT_FALSE(request.collectFilesAndDir(page, &entries, path).IsError());
    std::map<std::string, FileDirInfo> byName;
    for (const FileDirInfo& entry : entries)
    {
        EXPECT_EQ(0u, byName.count(entry.name)) << "twice: " << entry.name;
        byName[entry.name] = entry;
    }
    return byName;
}
}  // namespace

TEST(Listing, UnixLines)
{
    struct Case { const char* line; const char* name; bool directory; uint64_t size; int64_t modified; const char* target; };
    const Case cases[] = {
        {"-rw-r--r--   1 user     group        1234 Nov 20 09:15 report.txt", "report.txt", false, 1234,
         zy::listing::SecondsFromCivil(2026, 11, 20, 9, 15, 0), ""},
        // a recent date later in the year than now belongs to last year
        {"-rw-r--r--   1 user     group          10 Dec 24 18:00 old.txt", "old.txt", false, 10,
         zy::listing::SecondsFromCivil(2025, 12, 24, 18, 0, 0), ""},
        {"drwxr-xr-x   2 user     group        4096 Jan  5  2019 with  two spaces ", "with  two spaces ", true, 4096,
         zy::listing::SecondsFromCivil(2019, 1, 5, 0, 0, 0), ""},
        {"lrwxrwxrwx   1 user     group           7 Mar  1 10:00 latest -> v1.2.3", "latest", false, 7,
         zy::listing::SecondsFromCivil(2026, 3, 1, 10, 0, 0), "v1.2.3"},
        // no group column, an ACL mark, a large size and UTF-8 in the name
        {"-rw-r--r--+ 1 owner 107374182400 Feb 29  2024 Größe.bin", "Größe.bin", false, 107374182400ULL,
         zy::listing::SecondsFromCivil(2024, 2, 29, 0, 0, 0), ""},
        // an owner that looks like a month
        {"-rw-------   1 jan      may             0 Jun 30 23:59 empty", "empty", false, 0,
         zy::listing::SecondsFromCivil(2026, 6, 30, 23, 59, 0), ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        Entry entry;
        ASSERT_TRUE(zy::listing::ParseUnixLine(c.line, strlen(c.line), kNow, entry));
        EXPECT_TRUE(entry.name == c.name && entry.isDirectory == c.directory && entry.isLink == (c.line[0] == 'l'));
        EXPECT_TRUE(entry.hasSize && entry.size == c.size && entry.hasTime && entry.modified == c.modified);
        EXPECT_EQ(entry.linkTarget, c.target);
    }
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
    zy::listing::Counts counts;
    std::vector<Entry> entries = List(text, &counts);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_TRUE(entries[0].name == "a b" && entries[1].name == "win dir" && entries[2].name == "last");
    EXPECT_TRUE(entries[1].isDirectory);
    EXPECT_TRUE(counts.entries == 3u && counts.skipped == 6u) << counts.entries << " " << counts.skipped;
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
    zy::listing::Counts counts;
    zy::listing::ParseMlsd(text.data(), text.size(), entries, counts);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].name, "name with ; semicolon");
    EXPECT_TRUE(entries[0].size == 42u && entries[0].permissions == "0644");
    EXPECT_EQ(entries[0].modified, zy::listing::SecondsFromCivil(2024, 2, 29, 23, 59, 58));
    EXPECT_TRUE(entries[1].isDirectory && !entries[1].hasSize && entries[2].isLink);
    EXPECT_EQ(counts.skipped, 2u);
}

// No prefix of a listing is read past (each is its own allocation for ASan).
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
        zy::listing::Counts counts;
        zy::listing::ParseList(copy.data(), copy.size(), kNow, entries, counts);
        zy::listing::ParseMlsd(copy.data(), copy.size(), entries, counts);
    }
}

// Pages saved from the real servers over one tree (server time UTC): names
// from the links, sizes exact or rounded, dates as each server writes them.
TEST(ListingParser, SavedServerPages)
{
    struct Case
    {
        const char* page;
        const char* name;
        bool directory;
        int64_t size;
        bool exact;
        const char* time;
        int month, day, hour, minute, second;  // of 2026
    };
    const char* const lighttpd = "lighttpd-dirlisting.html";
    const char* const fancy = "apache-fancy.html";
    const char* const table = "apache-htmltable.html";
    const Case cases[] = {
        {lighttpd, "big 3G.iso", false, 3LL << 30, false, "2026-Nov-24 07:02:25", 11, 24, 7, 2, 25},
        {lighttpd, "mid.bin", false, 1258291, false, "2026-Feb-28 23:59:59", 2, 28, 23, 59, 59},
        {lighttpd, "a file.txt", false, 102, false, "2026-Nov-23 14:14:07", 11, 23, 14, 14, 7},
        {lighttpd, "empty.txt", false, 0, false, "2026-Nov-23 14:14:07", 11, 23, 14, 14, 7},
        {lighttpd, "sub dir", true, -1, true, "2026-Nov-23 14:14:07", 11, 23, 14, 14, 7},
        {lighttpd, "percent%sign & more.txt", false, 102, false, "2026-Nov-23 14:14:07", 11, 23, 14, 14, 7},
        {fancy, "big 3G.iso", false, 3LL << 30, false, "2026-11-24 07:02", 11, 24, 7, 2, 0},
        {fancy, "mid.bin", false, 1258291, false, "2026-02-28 23:59", 2, 28, 23, 59, 0},
        {fancy, "\xC3\xBC" "ber gr\xC3\xB6\xC3\x9F" "e.txt", false, 45, true, "2026-11-23 14:14", 11, 23, 14, 14, 0},
        {fancy, "\xC3\xA9t\xC3\xA9", true, -1, true, "2026-11-23 14:14", 11, 23, 14, 14, 0},
        {table, "big 3G.iso", false, 3LL << 30, false, "2026-11-24 07:02", 11, 24, 7, 2, 0},
        {table, "percent%sign & more.txt", false, 15, true, "2026-11-23 14:14", 11, 23, 14, 14, 0},
        {table, "empty.txt", false, 0, true, "2026-11-23 14:14", 11, 23, 14, 14, 0},
        {table, "sub dir", true, -1, true, "2026-11-23 14:14", 11, 23, 14, 14, 0},
    };
    std::map<std::string, std::map<std::string, FileDirInfo>> pages;
    for (const char* page : {lighttpd, fancy, table})
    {
        std::string text;
        const std::string file = zytest::HostPath(std::string(ZYTEST_SOURCE_DIR "/data/") + page);
        ASSERT_FALSE(CZyFile::ReadWholeFile(file.c_str(), text).IsError()) << file;
        // The parent, "..", the page's own sort links are not entries.
        pages[page] = Parse(text, "/list");
        EXPECT_EQ(8u, pages[page].size()) << page;
    }
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::string(c.page) + ": " + c.name);
        ASSERT_EQ(1u, pages[c.page].count(c.name));
        const FileDirInfo& entry = pages[c.page].at(c.name);
        EXPECT_TRUE(entry.isDirectory == c.directory && entry.size == c.size && entry.sizeExact == c.exact);
        EXPECT_EQ(std::string("/list/") + c.name, entry.fullPath);
        EXPECT_EQ(c.time, entry.modificationText);
        EXPECT_EQ(zy::listing::SecondsFromCivil(2026, c.month, c.day, c.hour, c.minute, c.second),
                  entry.modificationTime);
    }
}

TEST(ListingParser, PlainLinksTakenApartAndSkipped)
{
    const std::string page =
        "<html><body>\n"
        "<a href=\"../\">up</a> <a href=\"?C=M;O=A\">sort</a> <a href=\"#top\">top</a>\n"
        "<A HREF=Report%202024.pdf>report</A>\n"
        "<a class='x' href='photos/'>photos</a>\n"
        "<a href=\"./notes.txt\">notes</a>\n"
        "<a href=\"http://127.0.0.1/elsewhere\">away</a> <a href=\"mailto:someone@localhost\">mail</a>\n"
        "<a href=\"deeper/path/file.txt\">deep</a> <a name=\"anchor\">no href</a>\n"
        "<a href=\"/docs/abs%C3%A9.txt\">absolute inside</a> <a href=\"/other/x.txt\">absolute outside</a>\n"
        "<a href=\"caf&#233;&amp;co.txt?download=1\">entities</a>\n"
        "<a href=\"photos/\">photos again</a>\n"
        "<a href=\"big.iso\">big.iso</a>  2024-02-29 23:59  1.5G\n"
        "<a href=\"text.txt\">text.txt</a>  released in 2024, see notes\n"
        "</body></html>";
    const auto entries = Parse(page, "/docs/");
    ASSERT_EQ(7u, entries.size());
    EXPECT_FALSE(entries.at("Report 2024.pdf").isDirectory);
    EXPECT_TRUE(entries.at("photos").isDirectory);
    EXPECT_EQ("/docs/photos", entries.at("photos").fullPath);
    for (const char* name : {"notes.txt", "abs\xC3\xA9.txt", "caf\xC3\xA9&co.txt"})
        EXPECT_EQ(1u, entries.count(name)) << name;
    const FileDirInfo& big = entries.at("big.iso");
    EXPECT_TRUE(big.size == static_cast<int64_t>(1.5 * 1024 * 1024 * 1024) && !big.sizeExact);
    EXPECT_EQ(1709251140, big.modificationTime);
    // Text that is not a date and size leaves them unknown.
    EXPECT_TRUE(entries.at("text.txt").size == -1 && entries.at("text.txt").modificationTime == -1);
}

TEST(ListingParser, CutPagesNeverReadPastTheirEnd)
{
    const std::string page =
        "<pre><a href=\"../\">../</a>\r\n"
        "<a href=\"sub%20dir/\">sub dir/</a>            23-Nov-2026 14:10                   -\r\n"
        "<a href='a%20file.txt'>a file.txt</a>          23-Nov-2026 14:10                  11\r\n"
        "<a href=x%2 >x</a> <a href=\"%C3\">&#xFFFFFFFFF;&#; &amp</a></pre>";
    const auto whole = Parse(page, "/list/");
    ASSERT_EQ(4u, whole.size());
    EXPECT_EQ(11, whole.at("a file.txt").size);
    EXPECT_EQ("23-Nov-2026 14:10", whole.at("a file.txt").modificationText);
    EXPECT_EQ("x%2", whole.at("x%2").name);
    // Every shorter page parses to a subset of these entries; under the
    // address sanitizer any read past the page fails the test.
    for (size_t length = 0; length < page.size(); ++length)
    {
        const std::string cut(page.data(), length);
        for (const auto& entry : Parse(cut, "/list/"))
            EXPECT_EQ(1u, whole.count(entry.first)) << "from " << length << " bytes: " << entry.first;
    }
}

// The one decoder serves the listing pages (any code point, as UTF-8) and the
// WinINet client's links (single ASCII bytes only).
TEST(ListingHtml, OneEntityDecoderTwoReferenceSets)
{
    using zy::listing::EntitySet;
    struct Case { const char* in; const char* page; const char* ascii; };
    const Case cases[] = {
        {"a&amp;b&lt;&gt;&quot;&apos;", "a&b<>\"'", "a&b<>\"'"},
        {"&nbsp;|&#233;|&#x1F600;", "\xC2\xA0|\xC3\xA9|\xF0\x9F\x98\x80", "&nbsp;|&#233;|&#x1F600;"},
        {"&#x22;&#000039;&#0000039;", "\"''", "\"'&#0000039;"},
        {"&#0;&#xD800;", "\xEF\xBF\xBD\xEF\xBF\xBD", "&#0;&#xD800;"},
        {"&#12345678;&#x0000000041;&bogus;&#;&#x;&amp", "&#12345678;&#x0000000041;&bogus;&#;&#x;&amp",
         "&#12345678;&#x0000000041;&bogus;&#;&#x;&amp"},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(c.page, zy::listing::DecodeEntities(c.in, EntitySet::kListingPage)) << c.in;
        EXPECT_EQ(c.ascii, zy::listing::DecodeEntities(c.in, EntitySet::kAsciiOnly)) << c.in;
    }
}

TEST(ListingText, CivilDatesAndUrlPieces)
{
    for (const int64_t days : {-719468LL, -1LL, 0LL, 11016LL, 19782LL, 2932896LL})
    {
        int64_t year = 0;
        unsigned month = 0, day = 0;
        zy::listing::CivilFromDays(days, year, month, day);
        EXPECT_EQ(days, zy::listing::DaysFromCivil(year, month, day)) << days;
    }
    EXPECT_EQ("2024-02-29 23:59", zy::listing::TimeText(zy::listing::SecondsFromCivil(2024, 2, 29, 23, 59, 58)));
    EXPECT_EQ("1969-12-31 23:59", zy::listing::TimeText(-1));

    const zy::url::UrlSplit split = zy::url::SplitUrl("http://h:1/p?q");
    EXPECT_TRUE(split.hasScheme && split.authority == 7 && split.path == 10);
    const zy::url::UrlSplit bare = zy::url::SplitUrl("host?x");
    EXPECT_TRUE(!bare.hasScheme && bare.authority == 0 && bare.path == 6);
    EXPECT_EQ("http://[::1]:8080/x", zy::url::WithPort("http://[::1]/x", 8080));
    EXPECT_EQ("ftp://h:21/x", zy::url::WithPort("ftp://h:21/x", 99));
    EXPECT_EQ("ftp://h:99", zy::url::WithPort("ftp://h", 99));
    EXPECT_EQ("[::1]", zy::url::JoinHostPort("::1", 0));
    EXPECT_EQ("h:8443", zy::url::JoinHostPort("h", 8443));
    EXPECT_EQ("a b%zz%4\xC3\xA9 100%", FXString::PercentDecode("a%20b%zz%4%c3%A9 100%"));
    const std::string segment = "-a_b.c~ /?#%&+\xC3\xA9";
    EXPECT_EQ("-a_b.c~%20%2F%3F%23%25%26%2B%C3%A9", FXString::PercentEncode(segment));
    EXPECT_EQ(segment, FXString::PercentDecode(FXString::PercentEncode(segment)));

    // What a trace may show of a request's secrets.
    const std::pair<const char*, const char*> kMasked[] = {
        {"Authorization: Basic Ym9iOnMzY3IzdA==\r\nHost: h\r\n", "Authorization: Basic ***\r\nHost: h\r\n"},
        {"proxy-authorization:  Digest a=b, c=d", "proxy-authorization:  Digest ***"},
        {"Authorization: token", "Authorization: ***"},
        {"PASS ftp pass:1\r\n", "PASS ***\r\n"},
        {"USER bob\nPASS x\nPASV", "USER bob\nPASS ***\nPASV"},
        {"GET ftp://bob:s3:cr@t@h:21/a@b ftp://u@h http://x:y@[::1]/", "GET ftp://bob:***@h:21/a@b ftp://u@h http://x:***@[::1]/"},
        {"Passive mode: PASSWORD-free", "Passive mode: PASSWORD-free"},
    };
    for (const auto& row : kMasked)
        EXPECT_EQ(row.second, zy::url::MaskSecrets(row.first)) << row.first;
}

// A Windows-style server's LIST output with odd lines, as the class's entries.
TEST(FtpListing, WindowsStyleLinesAndOddLinesBecomeEntries)
{
    RkCURL::RkFTPReq request;
    const std::string listing = "01-02-03  12:05AM       <DIR>          My Documents\r\n"
                                "this line fits no format\r\n"
                                "11-23-26  01:30PM                 1234 report 2026.txt\r\n"
                                "\r\n"
                                "11-23-1999  01:30PM              123456 setup.exe\r\n";
    std::vector<FileDirInfo> entries;
    ASSERT_FALSE(request.collectFilesAndDir(listing, &entries, "/docs/").IsError());
    ASSERT_EQ(3u, entries.size());
    EXPECT_EQ(1u, request.getSkippedListingLines());
    EXPECT_TRUE(entries[0].isDirectory && entries[0].size == -1);
    EXPECT_EQ("/docs/My Documents", entries[0].fullPath);
    EXPECT_EQ("2003-01-02 00:05", entries[0].modificationText);
    EXPECT_TRUE(entries[1].name == "report 2026.txt" && !entries[1].isDirectory && entries[1].size == 1234);
    EXPECT_EQ("2026-11-23 13:30", entries[1].modificationText);
    EXPECT_EQ("1999-11-23 13:30", entries[2].modificationText);

    for (const char* line : {"01-02-03  12:05AM       <DIR>          My Documents", "type=file;size=3; a b", "sub dir/"})
    {
        bool isFile = line[0] != 't';
        ASSERT_FALSE(request.IsFile(line, isFile).IsError());
        EXPECT_EQ(line[0] == 't', isFile) << line;
    }
    EXPECT_TRUE(request.collectFilesAndDir(listing, nullptr, "/").IsError());
}
