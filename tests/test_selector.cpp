// The selector over real socket pairs: exactly the ready sockets come back,
// registration persists across waits, and on Linux thousands of sockets
// with descriptors past 1024 work.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "ZyNetwork/ZySocketSelector.h"

#if !defined(_WIN32)
#include <sys/resource.h>
#endif

namespace
{
typedef std::set<ZYNET_SOCKET> Handles;

ZYNET_SOCKET H(const CZySocket& s)
{
    return s.GetSocketDescriptor();
}

Handles HandlesOf(const CZySocketSelector::SocketSet& sockets)
{
    Handles handles;
    for (const CZySocket& s : sockets)
        handles.insert(H(s));
    return handles;
}

void Transfer(CZySocket& s, bool send)
{
    char byte = 'x';
    int count = 0, timedOut = 0;
    CZyError err = send ? s.Send(&byte, 1, 0, &count) : s.RecvWithTimeout(&byte, 1, 5, &timedOut, 0, &count);
    ASSERT_FALSE(err.IsError()) << err.AsString();
}

// Waits up to `seconds`; returns whether the limit passed.
bool Wait(CZySocketSelector& selector, long seconds)
{
    struct timeval limit = {seconds, 0};
    bool timedOut = seconds != 0;  // the opposite of what the callers expect
    CZyError err = selector.Select(&limit, &timedOut);
    EXPECT_FALSE(err.IsError()) << err.AsString();
    return timedOut;
}

// a[i] is connected to b[i]; everything is closed at the end.
struct Pairs
{
    std::vector<CZySocket> a, b;
    explicit Pairs(size_t n) : a(n), b(n)
    {
        for (size_t i = 0; i < n && !::testing::Test::HasFailure(); ++i)
            EXPECT_FALSE(CZySocket::CreateSocketPair(&a[i], &b[i]).IsError() || !a[i].IsValid()) << i;
    }
    ~Pairs()
    {
        for (size_t i = 0; i < a.size(); ++i)
            a[i].Close(), b[i].Close();
    }
};
}  // namespace

TEST(CZySocketSelector, ReportsExactlyTheReadySocketsAndKeepsRegistration)
{
    Pairs p(4);
    ASSERT_FALSE(HasFailure());
    CZySocketSelector selector;
    CZySocket tagged;  // results are copies of what was registered
    tagged.AttachConnectedSocket(H(p.b[1]), CZyIPAddr("127.0.0.9"));
    for (const CZySocket& s : {p.b[0], tagged, p.b[2], p.b[3], p.b[0], CZySocket()})
        selector.SetReadSocket(s);  // a duplicate and an empty object among them

    EXPECT_TRUE(Wait(selector, 0));
    EXPECT_TRUE(selector.GetReadSelected().empty() && selector.GetWriteSelected().empty() &&
                selector.GetExceptionSelected().empty());

    Transfer(p.a[3], true);
    Transfer(p.a[1], true);
    EXPECT_FALSE(Wait(selector, 5));
    CZySocketSelector::SocketSet ready = selector.GetReadSelected();
    EXPECT_EQ(HandlesOf(ready), (Handles{H(p.b[1]), H(p.b[3])}));
    CZySocketSelector::SocketSet::const_iterator found = ready.find(tagged);
    ASSERT_TRUE(found != ready.end());
    EXPECT_TRUE(found->GetAddress() == CZyIPAddr("127.0.0.9"));

    // Each wait starts again from every registered socket.
    Transfer(p.a[0], true);
    EXPECT_FALSE(Wait(selector, 5));
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(p.b[0]), H(p.b[1]), H(p.b[3])}));

    // A cleared socket is not reported although readable; a consumed byte no
    // longer counts. Write readiness is kept apart from read readiness.
    selector.ClearReadSocket(p.b[3]);
    selector.ClearReadSocket(CZySocket());
    Transfer(p.b[0], false);
    selector.SetWriteSocket(p.a[2]);
    EXPECT_FALSE(Wait(selector, 5));
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(p.b[1])}));
    EXPECT_EQ(HandlesOf(selector.GetWriteSelected()), (Handles{H(p.a[2])}));

    selector.ClearAll();
    EXPECT_TRUE(selector.GetReadSelected().empty() && selector.GetWriteSelected().empty());
    selector.SetReadSocket(p.b[2]);
    Transfer(p.a[2], true);
    ASSERT_FALSE(selector.Select(nullptr, nullptr).IsError());  // no limit, no flag
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(p.b[2])}));
}

#if !defined(_WIN32)
TEST(CZySocketSelector, ThreeThousandSocketsPastDescriptor1024)
{
    const size_t kPairs = 1500;
    const rlim_t kNeeded = 2 * kPairs + 512;
    struct rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_cur < kNeeded)
    {
        limit.rlim_cur = kNeeded;
        if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < kNeeded)
            limit.rlim_max = kNeeded;  // needs privilege
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
            GTEST_SKIP() << "cannot raise the open-file limit to " << kNeeded;
    }
    Pairs p(kPairs);
    ASSERT_FALSE(HasFailure());
    // Every b side is made readable: 1,500 ready handles, more than the
    // inline 1024, among 3,000 registered, half of them idle.
    CZySocketSelector selector;
    Handles expected;
    for (size_t i = 0; i < kPairs; ++i)
    {
        selector.SetReadSocket(p.a[i]);
        selector.SetReadSocket(p.b[i]);
        Transfer(p.a[i], true);
        expected.insert(H(p.b[i]));
    }
    ASSERT_GT(*expected.rbegin(), 1024u);
    EXPECT_FALSE(Wait(selector, 5));
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), expected);
}
#endif
