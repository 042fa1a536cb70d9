// The curl binding over a stand-in library (tests/stubs/RkCurlStub.c) that
// lacks "curl_easy_pause", found beside the test program under the name the
// binding looks for there.
// The form options are deprecated in curl's headers.
#define CURL_DISABLE_DEPRECATION
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/Internal/CurlWrapperInternal.h"
#include "ZyUtils/ZyLibrary.h"
#include "support/CurlStub.h"
#include "support/TestEnv.h"

using namespace CurlWrapper;

namespace
{
// The stand-in's controls, through a second reference to the module that the
// binding loaded.
struct Stub : zytest::CurlStub
{
    Stub() : CurlStub(rk_curl_library_path()) {}
    Set LastSet() const { return Options().back(); }
};

// curl's global clean-up belongs to process exit: not yet run when the tests
// end, run once after the binding released the library. The exit handler,
// registered before the first wrapper call, runs after the binding's.
long (*g_cleanupCalls)(const char*) = nullptr;

void CheckCleanupAtExit()
{
    if (!g_cleanupCalls)
        return;
    const long calls = g_cleanupCalls("curl_global_cleanup");
    if (calls != 1)
    {
        std::fprintf(stderr, "curl_global_cleanup ran %ld times at exit, expected once\n", calls);
        std::fflush(stderr);
        std::_Exit(3);
    }
}

class CleanupAtExit : public ::testing::Environment
{
public:
    void SetUp() override { std::atexit(&CheckCleanupAtExit); }
    void TearDown() override
    {
        if (!*rk_curl_library_path())
            return;
        static CZyLibrary kept(false);  // never unloaded
        if (kept.Load(rk_curl_library_path()).IsError())
            return;
        kept.GetFunction("rkstub_calls", g_cleanupCalls);
        EXPECT_EQ(g_cleanupCalls("curl_global_cleanup"), 0);
    }
};
::testing::Environment* const kCleanupAtExit = ::testing::AddGlobalTestEnvironment(new CleanupAtExit);
}  // namespace

// First in this program: run alone (as ctest does) it makes the process's
// first wrapper calls.
TEST(CurlBindingStub, SixteenThreadsLoadTheLibraryOnce)
{
    if (curlLibraryLookups() != 0)
        GTEST_SKIP() << "an earlier test of this process already loaded the library; run this test alone";
    const int kThreads = 16;
    std::atomic<int> waiting{kThreads};
    std::vector<void*> handles(kThreads, nullptr);
    std::vector<std::string> versions(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back([&, i] {
            // All threads start their first call together.
            --waiting;
            while (waiting.load() > 0)
                std::this_thread::yield();
            if (i % 2)
                handles[i] = rk_curl_easy_init();
            else
                versions[i] = rk_curl_version();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(curlLibraryLookups(), 1u);
    Stub stub;
    ASSERT_TRUE(stub.Loaded()) << "loaded: '" << rk_curl_library_path() << "'";
    EXPECT_EQ(stub.calls("curl_global_init"), 1);
    EXPECT_EQ(stub.globalInitFlags(), CURL_GLOBAL_ALL);
    EXPECT_EQ(stub.calls("curl_global_cleanup"), 0);  // only at process exit
    for (int i = 0; i < kThreads; ++i)
    {
        if (i % 2)
            EXPECT_NE(handles[i], nullptr) << "thread " << i;
        else
            EXPECT_EQ(versions[i], "RkCurlStub/1.0") << "thread " << i;
        rk_curl_easy_cleanup(handles[i]);
    }
    EXPECT_EQ(stub.calls("curl_easy_init"), kThreads / 2);
}

TEST(CurlBindingStub, FoundBesideTheModuleThatHoldsTheBinding)
{
    std::string directory;  // the test program holds the binding (static library)
    ASSERT_TRUE(CZyLibrary::ModuleDirectoryOf(reinterpret_cast<const void*>(&zytest::AppendTo), directory));
    EXPECT_EQ(directory + (zytest::IsWindowsTarget() ? "RKCurl.dll" : "libRKCurl.so"), rk_curl_library_path());
}

TEST(CurlBindingStub, OnlyTheMissingSymbolFallsBack)
{
    Stub stub;
    ASSERT_TRUE(stub.Loaded()) << "loaded: '" << rk_curl_library_path() << "'";
    void* curl = rk_curl_easy_init();
    ASSERT_NE(curl, nullptr);
    const long cleanups = stub.calls("curl_easy_cleanup");
    EXPECT_EQ(rk_curl_easy_pause(curl, CURLPAUSE_ALL), CURLE_FAILED_INIT);
    EXPECT_EQ(rk_curl_easy_perform(curl), CURLE_OK);
    EXPECT_EQ(rk_curl_easy_perform(nullptr), CURLE_BAD_FUNCTION_ARGUMENT);
    long status = 0;
    EXPECT_EQ(rk_curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status), CURLE_OK);
    EXPECT_EQ(status, 200);
    EXPECT_STREQ(rk_curl_version_info(CURLVERSION_NOW)->version, "1.0-stub");
    rk_curl_easy_cleanup(curl);
    EXPECT_EQ(stub.calls("curl_easy_cleanup"), cleanups + 1);
    // Deliberately empty: curl's global state belongs to the loaded library.
    EXPECT_EQ(rk_curl_global_init(CURL_GLOBAL_ALL), CURLE_OK);
    rk_curl_global_cleanup();
    EXPECT_EQ(stub.calls("curl_global_init"), 1);
    EXPECT_EQ(stub.calls("curl_global_cleanup"), 0);
}

TEST(CurlBindingStub, SetoptPassesEachKindOfValueAsCurlReadsIt)
{
    Stub stub;
    ASSERT_TRUE(stub.Loaded());
    void* curl = rk_curl_easy_init();
    // int and long reach curl as the same long (a negative int shows a value
    // passed without widening); curl_off_t is 64 bits wide on both targets
    // (long is 32 bits on Windows).
    auto set = [&](CURLoption option, auto value) {
        EXPECT_EQ(rk_curl_easy_setopt(curl, option, value), CURLE_OK) << option;
        EXPECT_EQ(stub.LastSet().option, option);
        return stub.LastSet();
    };
    EXPECT_EQ(set(CURLOPT_TIMEOUT, -17).number, -17);
    EXPECT_EQ(set(CURLOPT_CONNECTTIMEOUT, 3L).number, 3);
    EXPECT_EQ(set(CURLOPT_MAXFILESIZE_LARGE, (1LL << 40) + 5).number, (1LL << 40) + 5);
    const char* url = "http://127.0.0.1:1/";
    EXPECT_EQ(set(CURLOPT_URL, url).pointer, static_cast<const void*>(url));
    int data = 0;
    EXPECT_EQ(set(CURLOPT_WRITEDATA, static_cast<void*>(&data)).pointer, static_cast<void*>(&data));
    rk_curl_easy_cleanup(curl);
}

TEST(CurlBindingStub, FormaddPassesEachShapeThrough)
{
    Stub stub;
    ASSERT_TRUE(stub.Loaded());
    curl_httppost* first = nullptr;
    curl_httppost* last = nullptr;
    curl_slist* headers = rk_curl_slist_append(nullptr, "X-Part: 1");
    ASSERT_NE(headers, nullptr);
    // The stand-in's record of one option: "NUMBER=VALUE;".
    auto field = [](int option, const char* value) { return std::to_string(option) + "=" + value + ";"; };

    EXPECT_EQ(rk_curl_formadd(&first, &last, CURLFORM_CONTENTHEADER, headers, CURLFORM_COPYNAME, "log",
                              CURLFORM_FILE, "app.log", CURLFORM_END),
              CURL_FORMADD_OK);
    EXPECT_EQ(stub.formTrace(), field(CURLFORM_CONTENTHEADER, "X-Part: 1") + field(CURLFORM_COPYNAME, "log") +
                                    field(CURLFORM_FILE, "app.log"));
    char buffer[] = "DATA";
    EXPECT_EQ(rk_curl_formadd(&first, &last, CURLFORM_COPYNAME, "b", CURLFORM_BUFFER, "b.bin", CURLFORM_BUFFERPTR,
                              static_cast<void*>(buffer), CURLFORM_BUFFERLENGTH, 4L, CURLFORM_END),
              CURL_FORMADD_OK);
    EXPECT_EQ(stub.formTrace(), field(CURLFORM_COPYNAME, "b") + field(CURLFORM_BUFFER, "b.bin") +
                                    field(CURLFORM_BUFFERPTR, "DATA") + field(CURLFORM_BUFFERLENGTH, "4"));
    rk_curl_formfree(first);
    rk_curl_slist_free_all(headers);
    EXPECT_EQ(stub.calls("curl_formfree"), 1);
}
