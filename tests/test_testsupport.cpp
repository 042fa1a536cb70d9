// The namespace helper really isolates: an interface pair made inside is not
// visible outside, and failures inside are reported.
#include <gtest/gtest.h>

#include "support/NetNamespace.h"

TEST(NetNamespace, BodyRunsIsolatedAndReportsFailures)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and network namespaces (Linux)";
    std::string inside = zytest::RunInNetNamespace([] {
        if (zytest::Shell("ip link add zytestveth0 type veth peer name zytestveth1") != 0)
            return std::string("could not add a veth pair");
        return std::string();
    });
    EXPECT_EQ(inside, "");
    EXPECT_NE(zytest::Shell("ip link show zytestveth0 >/dev/null 2>&1"), 0);
    EXPECT_EQ(zytest::RunInNetNamespace([] { return std::string("expected failure"); }), "expected failure");
}
