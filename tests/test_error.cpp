// Error values: raising, passing on, copying and rendering.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "ZyNetwork/RkCURLError.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyString.h"
#include "support/LogCapture.h"

// Non-throwing allocations in this program fail while this is set.
static std::atomic<bool> g_failNothrowNew{false};

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try
    {
        return g_failNothrowNew ? nullptr : ::operator new(size);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

namespace
{
const char kZyFile[] = "tests/test_error";

CZyError Inner()
{
    return FXErrorUtil::ErrorWin32(ZY_LOC("Inner"), 774, "Socket %s timed out", "receive");
}

CZyError Outer()
{
    CZyError err = Inner();
    if (err.IsError())
        return err.Push(ZY_LOC("Outer"));
    return CZyError::Success();
}
}  // namespace

TEST(ZyError, SuccessIsTheOnlyNonError)
{
    CZyError ok = CZyError::Success();
    EXPECT_FALSE(ok.IsError());
    EXPECT_FALSE(ok.Is(0));
    EXPECT_EQ(ok.AsString(), "Success");
    // An error whose code happens to be 0 is still an error.
    EXPECT_TRUE(FXErrorUtil::ErrorInt(ZY_LOC("T"), 0, "zero").IsError());

    // Out of memory, a transfer error loses its item but stays an error.
    g_failNothrowNew = true;
    CZyError plain = RkCURL::ErrorRkCURL(ZY_LOC("T"), 28);
    CZyError described = RkCURL::ErrorRkCURL(ZY_LOC("T"), 7, "connect to %s failed", "localhost");
    g_failNothrowNew = false;
    for (const CZyError& err : {plain, described, plain.Copy()})
    {
        EXPECT_TRUE(err.IsError() && err.GetItems().empty());
        EXPECT_NE(err.AsString(), "Success");
    }
    EXPECT_TRUE(RkCURL::IsRkCURL(plain, 28) && RkCURL::GetRkCURL(described) == 7);
    EXPECT_EQ(RkCURL::ErrorRkCURL(ZY_LOC("T"), 28).GetItems().size(), 1u);
}

TEST(ZyError, StackGrowsOutwardsFromThePlaceOfFailure)
{
    CZyError err = Outer();
    ASSERT_TRUE(err.IsError());
    EXPECT_TRUE(err.Is(774));
    EXPECT_TRUE(err.IsNot(775));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Socket receive timed out");
    ASSERT_EQ(err.GetItems().size(), 2u);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "Inner");
    EXPECT_STREQ(err.GetItems()[1]->Location().Function(), "Outer");
    EXPECT_STREQ(err.GetItems()[0]->Location().File(), "tests/test_error");

    err.Push(ZY_LOC("Caller"), "while talking to %s:%d", "host", 80);
    EXPECT_TRUE(err.HasMessage("while talking to host:80"));

    // One line per item, innermost first, each with its location.
    std::string text = err.AsString();
    size_t inner = text.find("Inner (tests/test_error:");
    size_t outer = text.find("Outer (tests/test_error:");
    size_t caller = text.find("Caller (tests/test_error:");
    ASSERT_NE(caller, std::string::npos) << text;
    EXPECT_LT(inner, outer);
    EXPECT_LT(outer, caller);
    EXPECT_NE(text.find("Win32 error 774: \"Socket receive timed out\""), std::string::npos) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST(ZyError, CopiesShareItemsButCopyIsIndependent)
{
    CZyError a = Inner();
    CZyError shared = a;
    CZyError independent = a.Copy();
    a.Push(ZY_LOC("Later"));
    EXPECT_EQ(shared.GetItems().size(), 1u);  // the vector is per value
    EXPECT_EQ(shared.GetItems()[0].get(), a.GetItems()[0].get());
    EXPECT_NE(independent.GetItems()[0].get(), a.GetItems()[0].get());
    EXPECT_EQ(independent.GetErrorMessage(), a.GetErrorMessage());
    EXPECT_EQ(independent.GetErrorCode(), 774);
}

TEST(ZyError, KindTests)
{
    CZyError http = FXErrorUtil::ErrorHttp(ZY_LOC("T"), 404);
    EXPECT_TRUE(FXErrorUtil::IsHttp(http, 404));
    EXPECT_FALSE(FXErrorUtil::IsHttp(http, 500));
    EXPECT_TRUE(FXErrorUtil::IsNotHttp(http, 500));
    EXPECT_FALSE(FXErrorUtil::IsErrNo(http, 404));

    CZyError errnoKind = FXErrorUtil::ErrorErrNo(ZY_LOC("T"), 137, "no connection within %d", 3);
    EXPECT_TRUE(FXErrorUtil::IsErrNo(errnoKind, 137));
    EXPECT_FALSE(FXErrorUtil::IsErrNo(FXErrorUtil::ErrorWin32(ZY_LOC("T"), 137), 137));
    EXPECT_EQ(FXErrorUtil::ErrorRKResult(ZY_LOC("T"), 3, "Invalid buffer size (%u)", 0u).GetErrorMessage(),
              "Invalid buffer size (0)");
}

TEST(ZyError, LongMessagesAreNotTruncated)
{
    std::string longText(3000, 'x');
    CZyError err = FXErrorUtil::ErrorWin32(ZY_LOC("T"), 87, "%s", longText.c_str());
    EXPECT_EQ(err.GetErrorMessage(), longText);
}

TEST(LogWriter, WritesOnlyThroughAnInstalledWriter)
{
    ZY_LOG(-1, "Nobody", "dropped %d", 1);  // no writer: nothing happens
    EXPECT_EQ(ZyLogLevel(), -2);
    {
        zytest::LogCapture log(0);
        ZY_LOG(-1, "F", "x%d", 1);
        EXPECT_EQ(ZyLogLevel(), 0);
        EXPECT_TRUE(log.Has("-1|x1") && log.functions == std::vector<std::string>{"F"});
    }
    EXPECT_EQ(ZyLogLevel(), -2);
}
