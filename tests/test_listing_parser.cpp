// The HTML directory-listing reader of the HTTP request class on pages kept
// as data (a page captured from Apache's mod_autoindex) and on hand-made
// pages with the links a reader must skip or take apart.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "ZyNetwork/RkHTTPReq.h"
#include "ZyUtils/ZyFile.h"
#include "support/TestEnv.h"

using RkCURL::FileDirInfo;

namespace
{
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

TEST(ListingParser, CapturedApachePage)
{
    std::string page;
    const std::string file = zytest::HostPath(ZYTEST_SOURCE_DIR "/data/apache-autoindex-list.html");
    ASSERT_FALSE(CZyFile::ReadWholeFile(file.c_str(), page).IsError()) << file;
    const auto entries = Parse(page, "/list");
    // The parent link ("/") and the four sort links are not entries.
    ASSERT_EQ(7u, entries.size());
    const FileDirInfo& dir = entries.at("\xC3\xA9t\xC3\xA9");
    EXPECT_TRUE(dir.isDirectory);
    EXPECT_EQ(-1, dir.size);
    EXPECT_EQ("/list/\xC3\xA9t\xC3\xA9", dir.fullPath);
    const FileDirInfo& umlauts = entries.at("\xC3\xBC" "ber gr\xC3\xB6\xC3\x9F" "e.txt");
    EXPECT_FALSE(umlauts.isDirectory);
    EXPECT_EQ(45, umlauts.size);
    EXPECT_EQ("2026-11-23 14:14", umlauts.modificationText);
    EXPECT_EQ(1795443240, umlauts.modificationTime);
    EXPECT_EQ(15, entries.at("percent%sign & more.txt").size);
    EXPECT_EQ(0, entries.at("empty.txt").size);
    EXPECT_EQ(5, entries.at("a long file name that listing pages cut short when they show it.txt").size);
    EXPECT_TRUE(entries.at("sub dir").isDirectory);
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
    EXPECT_EQ(1u, entries.count("notes.txt"));
    EXPECT_EQ(1u, entries.count("abs\xC3\xA9.txt"));
    EXPECT_EQ(1u, entries.count("caf\xC3\xA9&co.txt"));
    const FileDirInfo& big = entries.at("big.iso");
    EXPECT_EQ(static_cast<int64_t>(1.5 * 1024 * 1024 * 1024), big.size);
    EXPECT_EQ(1709251140, big.modificationTime);
    // Text that is not a date and size leaves them unknown.
    EXPECT_EQ(-1, entries.at("text.txt").size);
    EXPECT_EQ(-1, entries.at("text.txt").modificationTime);
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
