// The transfer error domain, and the curl binding over the real libcurl (the
// system's libcurl on Linux, RKCurl.dll beside the test program on Windows)
// fetching from the nginx of support/http_servers.py.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>

#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/Internal/CurlWrapperInternal.h"
#include "ZyNetwork/RkCURLError.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyLibrary.h"
#include "ZyUtils/ZyString.h"
#include "support/HttpServers.h"
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

TEST(RkCURLError, CodeCarriesTheDomainMarkAndItemsTheTag)
{
    const struct
    {
        int code;
        const char* tag;
    } cases[] = {{7, "/RkCURL.7.0x7"}, {28, "/RkCURL.28.0x1C"}, {0, "/RkCURL.0.0x0"}};
    for (const auto& c : cases)
    {
        CZyError error = RkCURL::ErrorRkCURL(ZY_LOC("Raise"), c.code);
        ASSERT_TRUE(error.IsError());
        EXPECT_EQ(static_cast<uint32_t>(error.GetErrorCode()), 0xEDD00000u | static_cast<uint32_t>(c.code));
        ASSERT_EQ(error.GetItems().size(), 1u);
        // The plain item's rendering (location), then the tag.
        const std::string text = TextOf(error, 0);
        EXPECT_TRUE(EndsWith(text, c.tag)) << text;
        EXPECT_NE(text.find("Raise (tests/test_curl:"), std::string::npos) << text;
        EXPECT_EQ(RkCURL::GetRkCURL(error), c.code);
    }
    // The whole error reads as the tool prints it, innermost first.
    CZyError error = RkCURL::ErrorRkCURL(ZY_LOC("Inner"), 28, "Timeout after %d ms", 1500);
    RkCURL::PushRkCURL(error, ZY_LOC("Outer"), 28);
    const std::string all = error.AsString();
    EXPECT_NE(all.find("/RkCURL.28.0x1C-Timeout after 1500 ms\n"), std::string::npos) << all;
    EXPECT_TRUE(EndsWith(all, "/RkCURL.28.0x1C")) << all;
    EXPECT_EQ(error.GetErrorMessage(), "Timeout after 1500 ms");
}

TEST(RkCURLError, GetAndIsTellTheDomainApart)
{
    EXPECT_EQ(RkCURL::GetRkCURL(CZyError::Success()), 0);
    EXPECT_EQ(RkCURL::GetRkCURL(FXErrorUtil::ErrorWin32(ZY_LOC("T"), 87)), -1);
    // Bit 29 set but another domain field.
    EXPECT_EQ(RkCURL::GetRkCURL(FXErrorUtil::ErrorInt(ZY_LOC("T"), static_cast<int>(0xE1230005u), "other")), -1);
    EXPECT_EQ(RkCURL::GetRkCURL(RkCURL::ErrorRkCURL(ZY_LOC("T"), 28)), 28);

    CZyError six = RkCURL::ErrorRkCURL(ZY_LOC("T"), 6);
    EXPECT_TRUE(RkCURL::IsRkCURL(six, 6));
    EXPECT_FALSE(RkCURL::IsRkCURL(six, 7));
    EXPECT_TRUE(RkCURL::IsNotRkCURL(six, 7));
    EXPECT_FALSE(RkCURL::IsNotRkCURL(six, 6));
    EXPECT_FALSE(RkCURL::IsRkCURL(CZyError::Success(), 0));
    // Pushing onto a foreign error adds the item and keeps its code.
    CZyError foreign = FXErrorUtil::ErrorWin32(ZY_LOC("T"), 87);
    RkCURL::PushRkCURL(foreign, ZY_LOC("T"), 35, "handshake %s", "failed");
    EXPECT_EQ(foreign.GetErrorCode(), 87);
    ASSERT_EQ(foreign.GetItems().size(), 2u);
    EXPECT_TRUE(EndsWith(TextOf(foreign, 1), "/RkCURL.35.0x23-handshake failed"));
}

TEST(RkCURLError, NullOrEmptyFormatGivesThePlainItem)
{
    const std::string none;  // an empty format, not a literal the compiler would warn about
    const int line = __LINE__ + 1;
    CZyError plain = RkCURL::ErrorRkCURL(FXCodeLocation(kZyFile, "T", line), 35);
    CZyError empty = RkCURL::ErrorRkCURL(FXCodeLocation(kZyFile, "T", line), 35, none.c_str());
    CZyError null = RkCURL::ErrorRkCURL(FXCodeLocation(kZyFile, "T", line), 35, nullptr);
    for (const CZyError* error : {&empty, &null})
    {
        EXPECT_EQ(error->GetErrorCode(), plain.GetErrorCode());
        EXPECT_EQ(TextOf(*error, 0), TextOf(plain, 0));
        EXPECT_EQ(dynamic_cast<const RkCURL::FXErrorItemRkCURLDescription*>(error->GetItems()[0].get()), nullptr);
    }
    CZyError pushed = CZyError::Success();
    RkCURL::PushRkCURL(pushed, FXCodeLocation(kZyFile, "T", line), 35, none.c_str());
    EXPECT_EQ(TextOf(pushed, 0), TextOf(plain, 0));
}

TEST(RkCURLError, TooLongDescriptionIsKeptAndMarked)
{
    const std::string fits(FXString::kFormatLimit - 1, 'a');
    CZyError ok = RkCURL::ErrorRkCURL(ZY_LOC("T"), 23, "%s", fits.c_str());
    EXPECT_EQ(ok.GetErrorMessage(), fits);

    const std::string tooLong(FXString::kFormatLimit + 100, 'b');
    CZyError marked = RkCURL::ErrorRkCURL(ZY_LOC("T"), 23, "<%s>", tooLong.c_str());
    const std::string expected = "[BUFFEROVERFLOW]<" + tooLong.substr(0, FXString::kFormatLimit - 2);
    EXPECT_EQ(marked.GetErrorMessage(), expected);
    EXPECT_TRUE(EndsWith(TextOf(marked, 0), "/RkCURL.23.0x17-" + expected));
    CZyError pushed = RkCURL::ErrorRkCURL(ZY_LOC("T"), 23);
    RkCURL::PushRkCURL(pushed, ZY_LOC("T"), 23, "%s", tooLong.c_str());
    EXPECT_EQ(pushed.GetItems()[1]->Message().rfind("[BUFFEROVERFLOW]bbb", 0), 0u);
}

TEST(RkCURLError, CopyIsDeep)
{
    CZyError error = RkCURL::ErrorRkCURL(ZY_LOC("Inner"), 7, "refused by %s", "127.0.0.1");
    RkCURL::PushRkCURL(error, ZY_LOC("Outer"), 7);
    CZyError copy = error.Copy();
    ASSERT_EQ(copy.GetItems().size(), 2u);
    for (size_t i = 0; i < 2; ++i)
    {
        EXPECT_NE(copy.GetItems()[i].get(), error.GetItems()[i].get());
        EXPECT_EQ(TextOf(copy, i), TextOf(error, i));
    }
    const auto* described = dynamic_cast<const RkCURL::FXErrorItemRkCURLDescription*>(copy.GetItems()[0].get());
    ASSERT_NE(described, nullptr);
    EXPECT_EQ(described->description, "refused by 127.0.0.1");
}

// ---- the binding over the real library ------------------------------------

namespace
{
// Skips when the platform's curl library file is not there.
#define REQUIRE_REAL_CURL()                                                                                      \
    do                                                                                                           \
    {                                                                                                            \
        if (!getCurlLibrary())                                                                                   \
            GTEST_SKIP() << (zytest::IsWindowsTarget()                                                           \
                                 ? "RKCurl.dll is not beside the test program (build it with the install step)" \
                                 : "the system's libcurl.so.4 could not be loaded");                            \
    } while (0)
}  // namespace

TEST(CurlBinding, VersionNamesLibcurl)
{
    REQUIRE_REAL_CURL();
    EXPECT_EQ(std::string(rk_curl_version()).rfind("libcurl/", 0), 0u) << rk_curl_version();
    const curl_version_info_data* info = rk_curl_version_info(CURLVERSION_NOW);
    ASSERT_NE(info, nullptr);
    EXPECT_NE(std::string(rk_curl_version()).find(info->version), std::string::npos);
    // Nothing named libRKCurl.so sits beside this program on Linux, so the
    // system's file was taken there.
    std::string directory;
    ASSERT_TRUE(CZyLibrary::ModuleDirectoryOf(reinterpret_cast<const void*>(&zytest::AppendTo), directory));
    EXPECT_EQ(std::string(rk_curl_library_path()),
              zytest::IsWindowsTarget() ? directory + "RKCurl.dll" : std::string("libcurl.so.4"));
    EXPECT_EQ(curlLibraryLookups(), 1u);
    EXPECT_EQ(rk_curl_global_init(CURL_GLOBAL_ALL), CURLE_OK);
}

TEST(CurlBinding, EasyHandleFetchesFromLoopback)
{
    REQUIRE_REAL_CURL();
    const zytest::HttpServers& servers = zytest::GetHttpServers();
    if (!servers.available)
        GTEST_SKIP() << servers.problem;
    std::string payload;
    for (int i = 0; i < 200000; ++i)
        payload += static_cast<char>((i * 7) & 0xFF);  // every byte value, NULs included
    // Readable for nginx's workers, which may run as another user.
    const std::string file = servers.www + "/dav/curl-binding.bin";
    ASSERT_TRUE(std::ofstream(file, std::ios::binary).write(payload.data(), payload.size()).good());

    void* curl = rk_curl_easy_init();
    ASSERT_NE(curl, nullptr);
    std::string received;
    const std::string url = zytest::LoopbackURL(servers.http) + "/dav/curl-binding.bin";
    ASSERT_EQ(rk_curl_easy_setopt(curl, CURLOPT_URL, url.c_str()), CURLE_OK);
    ASSERT_EQ(rk_curl_easy_setopt(curl, CURLOPT_PROXY, ""), CURLE_OK);  // never an environment proxy
    ASSERT_EQ(rk_curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &zytest::AppendTo), CURLE_OK);
    ASSERT_EQ(rk_curl_easy_setopt(curl, CURLOPT_WRITEDATA, static_cast<void*>(&received)), CURLE_OK);
    ASSERT_EQ(rk_curl_easy_setopt(curl, CURLOPT_TIMEOUT, 60), CURLE_OK);
    ASSERT_EQ(rk_curl_easy_perform(curl), CURLE_OK);
    long status = 0;
    ASSERT_EQ(rk_curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status), CURLE_OK);
    EXPECT_EQ(status, 200);
    curl_off_t size = 0;
    ASSERT_EQ(rk_curl_easy_getinfo(curl, CURLINFO_SIZE_DOWNLOAD_T, &size), CURLE_OK);
    EXPECT_EQ(size, static_cast<curl_off_t>(payload.size()));
    EXPECT_TRUE(received == payload) << received.size() << " bytes received of " << payload.size();

    // The same handle reports a refused connection as curl's code 7.
    ZYNET_SOCKET probe;
    ZYNET_SockAddr address;
    ASSERT_EQ(ZYNET_str2ip("127.0.0.1", &address), 0);
    ASSERT_EQ(ZYNET_socket(ZYNET_AF_INET, &probe), 0);
    ASSERT_EQ(ZYNET_bind(probe, &address), 0);
    ASSERT_EQ(ZYNET_getsockname(probe, &address), 0);
    ZYNET_close(probe);  // nothing listens on that port now
    const std::string refused = "http://127.0.0.1:" + std::to_string(ZYNET_getport(&address)) + "/";
    ASSERT_EQ(rk_curl_easy_setopt(curl, CURLOPT_URL, refused.c_str()), CURLE_OK);
    EXPECT_EQ(rk_curl_easy_perform(curl), CURLE_COULDNT_CONNECT);
    rk_curl_easy_cleanup(curl);
    FXFile::RemoveFile(file.c_str());
}
