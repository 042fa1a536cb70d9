// The utility layer: wide-string conversion, base64, splitting and bounded
// formatting, files, loadable modules and the clock.
// Codes are checked to be the same on both targets.
#include <gtest/gtest.h>

#include <cstdarg>
#include <filesystem>
#include <string>
#include <vector>

#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyLibrary.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"
#include "support/TestEnv.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

namespace
{
const std::string kReplacementUtf8 = "\xEF\xBF\xBD";

TEST(FXStringConversion, EveryLengthClassRoundTrips)
{
    // The first and last value of each encoded length, up to U+10FFFF (a
    // surrogate pair in UTF-16).
    const std::string utf8 = "A\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    const std::u16string utf16 = u"A\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF";
    EXPECT_EQ(utf16, FXString::ToUtf16(utf8));
    EXPECT_EQ(L"A\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF", FXString::ToWstring(utf8));
    EXPECT_EQ((std::u16string{0xD83D, 0xDE00}), FXString::ToUtf16("\xF0\x9F\x98\x80"));
    EXPECT_EQ(utf8, FXString::ToUtf8(utf16));
    EXPECT_EQ(utf8, FXString::ToString(FXString::ToWstring(utf8)));
    EXPECT_TRUE(FXString::ToUtf16("").empty());
}

TEST(FXStringConversion, InvalidInputBecomesReplacementCharacters)
{
    // Truncated sequences, at the end and before another character.
    EXPECT_EQ(u"a\uFFFD", FXString::ToUtf16(std::string("a\xE2\x82", 3)));
    EXPECT_EQ(u"\uFFFDb", FXString::ToUtf16("\xF0\x9F\x98" "b"));
    EXPECT_EQ(u"\uFFFD", FXString::ToUtf16(std::string("\xC3", 1)));
    // A stray continuation byte and bytes that never start a sequence.
    EXPECT_EQ(u"x\uFFFDy", FXString::ToUtf16("x\x80y"));
    EXPECT_EQ(u"\uFFFD\uFFFD", FXString::ToUtf16("\xFE\xFF"));

    // Overlong forms, encoded surrogates and values past U+10FFFF never decode
    // to what they would spell; the text around them survives.
    const char* const bad[] = {
        "\xC1\xBF",          // overlong U+007F
        "\xF0\x80\x80\xAF",  // overlong '/'
        "\xED\xA0\x80",      // U+D800 encoded
        "\xF4\x90\x80\x80",  // U+110000
    };
    for (const char* sequence : bad)
    {
        SCOPED_TRACE(FXString::Base64Encode(sequence));
        const std::u16string converted = FXString::ToUtf16(std::string("<") + sequence + ">");
        ASSERT_GE(converted.size(), 3u);
        EXPECT_EQ(u'<', converted.front());
        EXPECT_EQ(u'>', converted.back());
        EXPECT_EQ(converted.find_first_not_of(u'\uFFFD', 1), converted.size() - 1);
        for (wchar_t unit : FXString::ToWstring(sequence))
            EXPECT_EQ(static_cast<wchar_t>(0xFFFD), unit);
    }

    // Unpaired surrogates, in UTF-16 and in wide strings.
    EXPECT_EQ("a" + kReplacementUtf8, FXString::ToUtf8(std::u16string{u'a', 0xD800}));
    EXPECT_EQ(kReplacementUtf8 + "b", FXString::ToUtf8(std::u16string{0xDC00, u'b'}));
    EXPECT_EQ(kReplacementUtf8 + "A", FXString::ToUtf8(std::u16string{0xD83D, u'A'}));
    // A low surrogate before a high one is two unpaired halves.
    EXPECT_EQ(kReplacementUtf8 + kReplacementUtf8, FXString::ToUtf8(std::u16string{0xDE00, 0xD83D}));

    std::wstring wide = L"a";
    wide += static_cast<wchar_t>(0xD800);
    wide += L'b';
    EXPECT_EQ("a" + kReplacementUtf8 + "b", FXString::ToString(wide));
    // A UTF-16 pair in wide units is a pair only where wchar_t is 16 bits;
    // with UTF-32, so is a value past U+10FFFF.
    const std::wstring pair = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_EQ(sizeof(wchar_t) == 4 ? kReplacementUtf8 + kReplacementUtf8 : "\xF0\x9F\x98\x80",
              FXString::ToString(pair));
    if (sizeof(wchar_t) == 4)
    {
        EXPECT_EQ(kReplacementUtf8, FXString::ToString(std::wstring(1, static_cast<wchar_t>(0x110000))));
    }
}

TEST(FXStringBase64, Rfc4648VectorsBothWays)
{
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""},          {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {std::string("\xFB\xFF\x00", 3), "+/8A"},
    };
    for (const auto& vector : vectors)
    {
        EXPECT_EQ(vector.second, FXString::Base64Encode(vector.first));
        std::string decoded = "stale";
        EXPECT_TRUE(FXString::Base64Decode(vector.second, decoded)) << vector.second;
        EXPECT_EQ(vector.first, decoded);
    }
    EXPECT_EQ("dXNlcjpwYXNz", FXString::Base64Encode("user:pass", 9));
}

TEST(FXStringBase64, MalformedTextIsRefused)
{
    const char* const bad[] = {"Zg=", "Zg", "Z===", "Zg=a", "Zg==Zg==", "Zm9v!A==", "Zm 9", "Zm9-", "===="};
    for (const char* text : bad)
    {
        std::string decoded = "stale";
        EXPECT_FALSE(FXString::Base64Decode(text, decoded)) << text;
        EXPECT_TRUE(decoded.empty()) << text;
    }
    std::string decoded;
    EXPECT_FALSE(FXString::Base64Decode(std::string("Zm9\0", 4), decoded));
}

TEST(FXStringText, ReplaceSplitTrimAndLower)
{
    // {text, pattern, replacement, count, result}; a replacement that holds
    // the pattern is not replaced again, an empty pattern replaces nothing.
    const char* const replaces[][5] = {{"a.b.c", ".", "::", "2", "a::b::c"}, {"aaaa", "aa", "x", "2", "xx"},
                                       {"ab", "a", "aa", "1", "aab"},         {"abc", "", "x", "0", "abc"},
                                       {"abc", "z", "x", "0", "abc"}};
    for (const auto& r : replaces)
    {
        std::string text = r[0];
        EXPECT_EQ(std::to_string(FXString::ReplaceAll(text, r[1], r[2])) + " " + text, std::string(r[3]) + " " + r[4]);
    }

    EXPECT_EQ("abc", FXString::TrimRight("abc \t\r\n", " \t\r\n"));
    EXPECT_EQ("", FXString::TrimRight("\r\n", "\r\n"));
    EXPECT_EQ(" a", FXString::TrimRight(" a", " \t"));
    EXPECT_EQ(FXString::ToLower("LocalHost-\xC3\x84" "B"), "localhost-\xC3\x84" "b");  // bytes past ASCII stay

    // Empty pieces are kept; an empty text gives none.
    std::vector<std::string> pieces{"stale"};
    FXString::Split("/8//9", "/", pieces, 0);
    EXPECT_EQ(pieces, (std::vector<std::string>{"", "8", "", "9"}));
    FXString::Split("a::b", "::", pieces, 0);
    EXPECT_EQ(pieces, (std::vector<std::string>{"a", "b"}));
    FXString::Split("", "/", pieces, 0);
    EXPECT_TRUE(pieces.empty());
}

CZyError BoundedFormat(std::string& text, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    CZyError error = FXString::FormatArgList(text, format, args);
    va_end(args);
    return error;
}

TEST(FXStringFormat, BoundedFormattingReportsOverflowAndKeepsWhatFits)
{
    const std::string fits(FXString::kFormatLimit - 1, 'x');
    std::string text;
    EXPECT_FALSE(BoundedFormat(text, "%s", fits.c_str()).IsError());
    EXPECT_EQ(fits, text);

    CZyError error = BoundedFormat(text, "%s%d", fits.c_str(), 7);
    EXPECT_TRUE(error.Is(111));
    EXPECT_EQ(fits, text);

    EXPECT_FALSE(BoundedFormat(text, "[%s] %u", "abc", 42u).IsError());
    EXPECT_EQ("[abc] 42", text);

    // The unbounded form keeps everything, past its first stack buffer too.
    const std::string big(5000, 'y');
    EXPECT_EQ(big + "!", FXString::Format("%s!", big.c_str()));
}

class CZyFileTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_dir = "zytest-files-" + std::to_string(FXProcess::getProcessId());
        std::filesystem::remove_all(m_dir);
        ASSERT_TRUE(std::filesystem::create_directory(m_dir));
    }
    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }
    std::string PathOf(const char* leaf) const { return m_dir + "/" + leaf; }

    std::string m_dir;
};

TEST_F(CZyFileTest, WriteReadTruncateAndSixtyFourBitSizes)
{
    const std::string path = PathOf("data.bin");
    const std::string payload("bytes\0with\r\nbinary\xFF", 19);
    CZyFile file;
    ASSERT_FALSE(file.Open(path.c_str(), CZyFile::kWriteCreate).IsError());
    ASSERT_FALSE(file.Write(payload.data(), static_cast<uint32_t>(payload.size())).IsError());
    EXPECT_FALSE(file.Close().IsError());
#if !defined(_WIN32)
    struct stat info;
    ASSERT_EQ(0, stat(path.c_str(), &info));
    EXPECT_EQ(0u, info.st_mode & 0077u) << "a created file is for its owner only";
#endif
    ASSERT_FALSE(file.Open(path.c_str(), CZyFile::kReadOnly).IsError());
    char buffer[64];
    uint32_t got = 0;
    ASSERT_FALSE(file.Read(buffer, sizeof(buffer), got).IsError());
    EXPECT_EQ(payload, std::string(buffer, got));
    EXPECT_FALSE(file.IsEOF());
    ASSERT_FALSE(file.Read(buffer, sizeof(buffer), got).IsError());
    EXPECT_EQ(0u, got);
    EXPECT_TRUE(file.IsEOF());
    // A read-only file refuses writes with the same code on both targets.
    EXPECT_TRUE(file.Write("x", 1).Is(5));
    file.Close();

    // Creating again truncates; sizes and offsets past 4 GiB are kept whole.
    const uint64_t beyond32 = (uint64_t(1) << 32) + 5;
    ASSERT_FALSE(file.Open(path.c_str(), CZyFile::kWriteCreate).IsError());
    ASSERT_FALSE(file.Write("new", 3).IsError());
    uint64_t at = 0, size = 0;
    ASSERT_FALSE(file.Size(size).IsError());
    EXPECT_EQ(3u, size);
    ASSERT_FALSE(file.Seek(static_cast<int64_t>(beyond32), 0, &at).IsError());
    EXPECT_EQ(beyond32, at);
    ASSERT_FALSE(file.Write("z", 1).IsError());
    ASSERT_FALSE(file.Size(size).IsError());
    EXPECT_EQ(beyond32 + 1, size);
    EXPECT_FALSE(file.Close().IsError());
    ASSERT_FALSE(file.Open(path.c_str(), CZyFile::kReadOnly).IsError());
    ASSERT_FALSE(file.Read(buffer, 4, got).IsError());
    EXPECT_EQ(std::string("new\0", 4), std::string(buffer, got));
    file.Close();
    EXPECT_FALSE(FXFile::RemoveFile(path.c_str()).IsError());
}

TEST_F(CZyFileTest, MissingFilesFoldersAndDirectoriesGiveWindowsCodes)
{
    CZyFile file;
    EXPECT_TRUE(file.Open(PathOf("missing.txt").c_str(), CZyFile::kReadOnly).Is(2));
    EXPECT_TRUE(file.Open(PathOf("no-folder/missing.txt").c_str(), CZyFile::kReadOnly).Is(3));
    EXPECT_TRUE(file.Open(PathOf("no-folder/new.txt").c_str(), CZyFile::kWriteCreate).Is(3));
    EXPECT_TRUE(file.Open(m_dir.c_str(), CZyFile::kReadOnly).Is(5));
    EXPECT_TRUE(file.Open(m_dir.c_str(), CZyFile::kWriteCreate).Is(5));
    EXPECT_FALSE(file.IsValid());
    EXPECT_EQ(EErrorKind::Win32, file.Open(PathOf("missing.txt").c_str(), CZyFile::kReadOnly).GetErrorKind());

    std::string whole = "stale";
    EXPECT_TRUE(CZyFile::ReadWholeFile(PathOf("missing.txt").c_str(), whole).Is(2));
    EXPECT_TRUE(whole.empty());
    ASSERT_FALSE(file.Open(PathOf("doomed.txt").c_str(), CZyFile::kWriteCreate).IsError());
    ASSERT_FALSE(file.Write("abc", 3).IsError());
    file.Close();
    ASSERT_FALSE(CZyFile::ReadWholeFile(PathOf("doomed.txt").c_str(), whole).IsError());
    EXPECT_EQ("abc", whole);
    EXPECT_FALSE(FXFile::RemoveFile(PathOf("doomed.txt").c_str()).IsError());
    EXPECT_TRUE(FXFile::RemoveFile(PathOf("doomed.txt").c_str()).Is(2));
    EXPECT_TRUE(FXFile::RemoveFile(PathOf("no-folder/x").c_str()).Is(3));
    EXPECT_TRUE(FXFile::RemoveFile("").Is(87));
}

TEST(CZyLibraryTest, LoadsResolvesAndGivesWindowsCodes)
{
    std::string directory;
    static int anchor;
    ASSERT_TRUE(CZyLibrary::ModuleDirectoryOf(&anchor, directory));
    CZyLibrary library;
    void* address = reinterpret_cast<void*>(1);
    EXPECT_TRUE(library.GetAddress("anything", address).Is(774));
    EXPECT_EQ(nullptr, address);
    EXPECT_TRUE(library.Load("zytest-no-such-module").Is(126));
    EXPECT_TRUE(library.Load((directory + "zytest-no-such-module.bin").c_str()).Is(126));
    EXPECT_FALSE(library.IsLoaded());

    ASSERT_FALSE(library.Load((directory + ZYTEST_MODULE_NAME).c_str()).IsError());
    address = reinterpret_cast<void*>(1);
    CZyError error = library.GetAddress("ZyTestModuleNoSuchSymbol", address);
    EXPECT_TRUE(error.Is(127));
    EXPECT_EQ(EErrorKind::Win32, error.GetErrorKind());
    EXPECT_EQ(nullptr, address);
    int (*answer)(int) = nullptr;
    ASSERT_FALSE(library.GetFunction("ZyTestModuleAnswer", answer).IsError());
    EXPECT_EQ(41, answer(20));

    // The module's own directory is where it was loaded from.
    std::string moduleDirectory;
    ASSERT_TRUE(CZyLibrary::ModuleDirectoryOf(reinterpret_cast<const void*>(answer), moduleDirectory));
    EXPECT_EQ(directory, moduleDirectory);

    library.Unload();
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetAddress("ZyTestModuleAnswer", address).Is(774));
}

TEST(CTimeStamp, MonotonicAndConsistent)
{
    const CTimeStamp first = CTimeStamp::Now();
    const int64_t seconds = ZyMonotonicSeconds();
    const CTimeStamp second = CTimeStamp::Now();
    EXPECT_GE(second.AsMilliseconds(), first.AsMilliseconds());
    EXPECT_GE(ZyMonotonicSeconds(), seconds);
    const timespec spec = second.AsTimeSpec();
    EXPECT_TRUE(spec.tv_nsec >= 0 && spec.tv_nsec < 1000000000L) << spec.tv_nsec;
    EXPECT_DOUBLE_EQ(spec.tv_sec * 1000.0 + spec.tv_nsec / 1e6, second.AsMilliseconds());
}
}  // namespace
