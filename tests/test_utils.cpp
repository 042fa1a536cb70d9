// The utility layer's string, time and text-file helpers.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTextFile.h"
#include "ZyUtils/ZyTime.h"

TEST(FXString, FormatSplitTrimAndLower)
{
    // Formatting has no length limit.
    const std::string longText(5000, 'x');
    EXPECT_EQ(FXString::Format("%s-%d", longText.c_str(), 42), longText + "-42");
    EXPECT_EQ(FXString::Format("0x%08X", 0xABCu), "0x00000ABC");

    // Empty pieces are kept; an empty text gives none.
    std::vector<std::string> pieces{"stale"};
    FXString::Split("10.0.0.0/8/9", "/", pieces, 0);
    EXPECT_EQ(pieces, (std::vector<std::string>{"10.0.0.0", "8", "9"}));
    FXString::Split("/8", "/", pieces, 0);
    EXPECT_EQ(pieces, (std::vector<std::string>{"", "8"}));
    FXString::Split("a::b", "::", pieces, 0);
    EXPECT_EQ(pieces, (std::vector<std::string>{"a", "b"}));
    FXString::Split("", "/", pieces, 0);
    EXPECT_TRUE(pieces.empty());

    EXPECT_EQ(FXString::TrimRight("00:1a:", ":"), "00:1a");
    EXPECT_EQ(FXString::TrimRight("name \t\r\n", " \t\r\n"), "name");
    EXPECT_EQ(FXString::TrimRight(":::", ":"), "");
    EXPECT_EQ(FXString::ToLower("LocalHost-ÄB"), "localhost-Äb");
}

TEST(CTimeStamp, MonotonicAndConsistent)
{
    const CTimeStamp first = CTimeStamp::Now();
    const int64_t seconds = ZyMonotonicSeconds();
    ZYSLEEP(20);
    const CTimeStamp second = CTimeStamp::Now();
    EXPECT_GE(second.AsMilliseconds() - first.AsMilliseconds(), 15.0);
    EXPECT_GE(ZyMonotonicSeconds(), seconds);
    const timespec spec = second.AsTimeSpec();
    EXPECT_GE(spec.tv_nsec, 0);
    EXPECT_LT(spec.tv_nsec, 1000000000L);
    EXPECT_DOUBLE_EQ(spec.tv_sec * 1000.0 + spec.tv_nsec / 1e6, second.AsMilliseconds());
}

TEST(ZyTextFile, OpensForReadingAndReportsWindowsCodes)
{
    // Names in the working directory (the build tree), fresh per process.
    const std::string base = "zyutils-" + std::to_string(FXProcess::getProcessId());
    const std::string path = base + ".txt";
    FILE* out = std::fopen(path.c_str(), "w");
    ASSERT_NE(out, nullptr);
    std::fputs("first line\n", out);
    std::fclose(out);

    int lastError = -1;
    FILE* in = ZyOpenTextFileForReading(path.c_str(), &lastError);
    ASSERT_NE(in, nullptr);
    char line[32] = {};
    ASSERT_NE(std::fgets(line, sizeof(line), in), nullptr);
    EXPECT_STREQ(line, "first line\n");
    std::fclose(in);
    std::remove(path.c_str());

    // The same numbers on every platform: 2 for a missing file, 3 for a
    // missing directory on the way, 5 for a directory.
    EXPECT_EQ(ZyOpenTextFileForReading(path.c_str(), &lastError), nullptr);
    EXPECT_EQ(lastError, 2);
    EXPECT_EQ(ZyOpenTextFileForReading((base + "-missing/x.txt").c_str(), &lastError), nullptr);
    EXPECT_EQ(lastError, 3);
    EXPECT_EQ(ZyOpenTextFileForReading(".", &lastError), nullptr);
    EXPECT_EQ(lastError, 5);
}
