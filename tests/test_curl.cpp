// The transfer error domain, and which real libcurl the binding loads (the
// system's on Linux, RKCurl.dll beside the test program on Windows).
#include <gtest/gtest.h>

#include <string>

#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/Internal/CurlWrapperInternal.h"
#include "ZyNetwork/RkCURLError.h"
#include "ZyUtils/ZyLibrary.h"
#include "ZyUtils/ZyString.h"
#include "support/TestEnv.h"

using namespace CurlWrapper;

namespace
{
const char kZyFile[] = "tests/test_curl";

// ---- the error domain ------------------------------------------------------

std::string TextOf(const CZyError& error, size_t item)
{
    return error.GetItems().at(item)->AsString();
}

bool EndsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}
}  // namespace

TEST(RkCURLError, CodeTagsAndTheDomainTest)
{
    for (int code : {0, 28})
    {
        CZyError error = RkCURL::ErrorRkCURL(ZY_LOC("Raise"), code);
        ASSERT_TRUE(error.IsError());
        EXPECT_EQ(static_cast<uint32_t>(error.GetErrorCode()), 0xEDD00000u | static_cast<uint32_t>(code));
        // The plain item's rendering (location), then the tag.
        const std::string text = TextOf(error, 0);
        EXPECT_TRUE(EndsWith(text, code ? "/RkCURL.28.0x1C" : "/RkCURL.0.0x0")) << text;
        EXPECT_NE(text.find("Raise (tests/test_curl:"), std::string::npos) << text;
        EXPECT_EQ(RkCURL::GetRkCURL(error), code);
    }
    // The whole error reads as the tool prints it, innermost first.
    CZyError error = RkCURL::ErrorRkCURL(ZY_LOC("Inner"), 28, "Timeout after %d ms", 1500);
    RkCURL::PushRkCURL(error, ZY_LOC("Outer"), 28);
    const std::string all = error.AsString();
    EXPECT_NE(all.find("/RkCURL.28.0x1C-Timeout after 1500 ms\n"), std::string::npos) << all;
    EXPECT_TRUE(EndsWith(all, "/RkCURL.28.0x1C")) << all;
    EXPECT_EQ(error.GetErrorMessage(), "Timeout after 1500 ms");

    EXPECT_EQ(RkCURL::GetRkCURL(CZyError::Success()), 0);
    EXPECT_EQ(RkCURL::GetRkCURL(FXErrorUtil::ErrorWin32(ZY_LOC("T"), 87)), -1);
    // Bit 29 set but another domain field.
    EXPECT_EQ(RkCURL::GetRkCURL(FXErrorUtil::ErrorInt(ZY_LOC("T"), static_cast<int>(0xE1230005u), "other")), -1);
    CZyError six = RkCURL::ErrorRkCURL(ZY_LOC("T"), 6, nullptr);  // a null format gives the plain item
    EXPECT_EQ(dynamic_cast<const RkCURL::FXErrorItemRkCURLDescription*>(six.GetItems()[0].get()), nullptr);
    EXPECT_TRUE(RkCURL::IsRkCURL(six, 6) && RkCURL::IsNotRkCURL(six, 7));
    EXPECT_FALSE(RkCURL::IsRkCURL(six, 7) || RkCURL::IsNotRkCURL(six, 6) || RkCURL::IsRkCURL(CZyError::Success(), 0));
    // Pushing onto a foreign error adds the item and keeps its code.
    CZyError foreign = FXErrorUtil::ErrorWin32(ZY_LOC("T"), 87);
    RkCURL::PushRkCURL(foreign, ZY_LOC("T"), 35, "handshake %s", "failed");
    EXPECT_EQ(foreign.GetErrorCode(), 87);
    ASSERT_EQ(foreign.GetItems().size(), 2u);
    EXPECT_TRUE(EndsWith(TextOf(foreign, 1), "/RkCURL.35.0x23-handshake failed"));
}

TEST(RkCURLError, TooLongDescriptionIsMarkedAndCopiesAreDeep)
{
    const std::string tooLong(FXString::kFormatLimit + 100, 'b');
    CZyError error = RkCURL::ErrorRkCURL(ZY_LOC("T"), 23, "<%s>", tooLong.c_str());
    const std::string expected = "[BUFFEROVERFLOW]<" + tooLong.substr(0, FXString::kFormatLimit - 2);
    EXPECT_EQ(error.GetErrorMessage(), expected);
    EXPECT_TRUE(EndsWith(TextOf(error, 0), "/RkCURL.23.0x17-" + expected));

    RkCURL::PushRkCURL(error, ZY_LOC("Outer"), 7);
    CZyError copy = error.Copy();
    ASSERT_EQ(copy.GetItems().size(), 2u);
    for (size_t i = 0; i < 2; ++i)
    {
        EXPECT_NE(copy.GetItems()[i].get(), error.GetItems()[i].get());
        EXPECT_EQ(TextOf(copy, i), TextOf(error, i));
    }
}

// ---- the binding over the real library ------------------------------------

namespace
{
#define REQUIRE_REAL_CURL()   \
    if (!getCurlLibrary()) \
    GTEST_SKIP() << "the platform's curl library could not be loaded"
}  // namespace

TEST(CurlBinding, VersionNamesLibcurl)
{
    REQUIRE_REAL_CURL();
    EXPECT_EQ(std::string(rk_curl_version()).rfind("libcurl/", 0), 0u) << rk_curl_version();
    // Nothing named libRKCurl.so sits beside this program on Linux, so the
    // system's file was taken there.
    std::string directory;
    ASSERT_TRUE(CZyLibrary::ModuleDirectoryOf(reinterpret_cast<const void*>(&zytest::AppendTo), directory));
    EXPECT_EQ(std::string(rk_curl_library_path()),
              zytest::IsWindowsTarget() ? directory + "RKCurl.dll" : std::string("libcurl.so.4"));
    EXPECT_EQ(curlLibraryLookups(), 1u);
}
