// The curl binding when the file named by ZYNET_CURL_LIBRARY does not exist
// (a program of its own: the file is chosen once per process).
// The form options are deprecated in curl's headers.
#define CURL_DISABLE_DEPRECATION
#include <gtest/gtest.h>

#include <string>

#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/Internal/CurlWrapperInternal.h"
#include "support/TestEnv.h"

using namespace CurlWrapper;

namespace
{
// Names a file that exists nowhere, before any test calls a wrapper.
class MissingCurlLibrary : public ::testing::Environment
{
public:
    void SetUp() override { zytest::SetEnv("ZYNET_CURL_LIBRARY", "zynet-no-such-curl-library"); }
};
::testing::Environment* const kMissingCurlLibrary = ::testing::AddGlobalTestEnvironment(new MissingCurlLibrary);
}  // namespace

TEST(CurlBindingMissing, EveryWrapperFallsBackAndTheFileIsLookedForOnce)
{
    ASSERT_EQ(curlLibraryLookups(), 0u);
    // The second round must neither look again nor behave differently.
    for (int round = 0; round < 2; ++round)
    {
        EXPECT_EQ(rk_curl_easy_init(), nullptr);
        EXPECT_EQ(rk_curl_easy_perform(nullptr), CURLE_FAILED_INIT);
        EXPECT_STREQ(rk_curl_easy_strerror(CURLE_OK), "Failed to load libcurl");
        EXPECT_STREQ(rk_curl_version(), "Failed to load libcurl");
        EXPECT_EQ(rk_curl_version_info(CURLVERSION_NOW), nullptr);
        EXPECT_EQ(rk_curl_global_init(CURL_GLOBAL_ALL), CURLE_OK);
        rk_curl_global_cleanup();
        EXPECT_EQ(rk_curl_easy_setopt(nullptr, CURLOPT_TIMEOUT, 5), CURLE_FAILED_INIT);
        EXPECT_EQ(rk_curl_easy_setopt(nullptr, CURLOPT_MAXFILESIZE_LARGE, 1LL << 40), CURLE_FAILED_INIT);
        long status = -7;
        EXPECT_EQ(rk_curl_easy_getinfo(nullptr, CURLINFO_RESPONSE_CODE, &status), CURLE_FAILED_INIT);
        EXPECT_EQ(status, -7);
        curl_httppost* first = nullptr;
        curl_httppost* last = nullptr;
        EXPECT_EQ(rk_curl_formadd(&first, &last, CURLFORM_COPYNAME, "name", CURLFORM_COPYCONTENTS, "value",
                                  CURLFORM_END),
                  CURL_FORMADD_NULL);
        char date[] = "Sun, 06 Nov 1994 08:49:37 GMT";
        EXPECT_EQ(rk_curl_getdate(date, nullptr), -1);
        EXPECT_EQ(rk_curl_multi_init(), nullptr);
        // The calls that return nothing do nothing.
        rk_curl_easy_cleanup(nullptr);
        EXPECT_STREQ(rk_curl_library_path(), "");
    }
    EXPECT_EQ(getCurlLibrary(), nullptr);
    EXPECT_EQ(curlLibraryLookups(), 1u);
}
