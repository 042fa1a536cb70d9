// The selector over real socket pairs: it reports exactly the ready sockets,
// registration persists across waits, and on Linux it handles thousands of
// sockets whose descriptors run past 1024.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "ZyNetwork/ZySocket.h"
#include "ZyNetwork/ZySocketSelector.h"
#include "support/TestEnv.h"

#if !defined(_WIN32)
#include <sys/resource.h>
#endif

namespace
{
typedef std::set<ZYNET_SOCKET> Handles;

Handles HandlesOf(const CZySocketSelector::SocketSet& sockets)
{
    Handles handles;
    ZYNET_SOCKET previous = 0;
    bool first = true;
    for (const CZySocket& s : sockets)
    {
        ZYNET_SOCKET h = s.GetSocketDescriptor();
        EXPECT_TRUE(first || h > previous) << "results must come in handle order";
        previous = h;
        first = false;
        handles.insert(h);
    }
    return handles;
}

ZYNET_SOCKET H(const CZySocket& s)
{
    return s.GetSocketDescriptor();
}

void SendByte(CZySocket& s)
{
    int sent = 0;
    ASSERT_FALSE(s.Send("x", 1, 0, &sent).IsError());
}

void ReadByte(CZySocket& s)
{
    char byte = 0;
    int received = 0, timedOut = 0;
    ASSERT_FALSE(s.RecvWithTimeout(&byte, 1, 5, &timedOut, 0, &received).IsError());
}

// Waits up to 5 s; expects readiness rather than a time-out.
void SelectReady(CZySocketSelector& selector)
{
    struct timeval limit = {5, 0};
    bool timedOut = true;
    CZyError err = selector.Select(&limit, &timedOut);
    ASSERT_FALSE(err.IsError()) << err.AsString();
    ASSERT_FALSE(timedOut);
}

struct Pairs
{
    std::vector<CZySocket> a, b;  // a[i] is connected to b[i]
    explicit Pairs(size_t n) : a(n), b(n)
    {
        for (size_t i = 0; i < n; ++i)
        {
            CZyError err = CZySocket::CreateSocketPair(&a[i], &b[i]);
            if (err.IsError() || !a[i].IsValid())
            {
                ADD_FAILURE() << "socket pair " << i << ": " << err.AsString();
                return;
            }
        }
    }
    ~Pairs()
    {
        for (size_t i = 0; i < a.size(); ++i)
        {
            a[i].Close();
            b[i].Close();
        }
    }
};
}  // namespace

TEST(CZySocketSelector, ReportsExactlyTheReadySocketsAndKeepsRegistration)
{
    Pairs pairs(4);
    ASSERT_FALSE(HasFailure());
    CZySocketSelector selector;

    // One registered object carries an address, to see that results are
    // copies of what was registered.
    CZySocket tagged;
    tagged.AttachConnectedSocket(H(pairs.b[1]), CZyIPAddr("127.0.0.9"));
    selector.SetReadSocket(pairs.b[0]);
    selector.SetReadSocket(tagged);
    selector.SetReadSocket(pairs.b[2]);
    selector.SetReadSocket(pairs.b[3]);
    selector.SetReadSocket(pairs.b[0]);  // twice: still one entry
    selector.SetReadSocket(CZySocket());  // no handle: ignored

    // Idle sockets and a zero limit: a time-out with every result empty.
    struct timeval zero = {0, 0};
    bool timedOut = false;
    ASSERT_FALSE(selector.Select(&zero, &timedOut).IsError());
    EXPECT_TRUE(timedOut);
    EXPECT_TRUE(selector.GetReadSelected().empty());
    EXPECT_TRUE(selector.GetWriteSelected().empty());
    EXPECT_TRUE(selector.GetExceptionSelected().empty());

    SendByte(pairs.a[3]);
    SendByte(pairs.a[1]);
    SelectReady(selector);
    CZySocketSelector::SocketSet ready = selector.GetReadSelected();
    EXPECT_EQ(HandlesOf(ready), (Handles{H(pairs.b[1]), H(pairs.b[3])}));
    for (const CZySocket& s : ready)
    {
        if (H(s) == H(pairs.b[1]))
        {
            EXPECT_TRUE(s.GetAddress() == CZyIPAddr("127.0.0.9"));
        }
    }

    // The next wait starts again from every registered socket.
    SendByte(pairs.a[0]);
    SelectReady(selector);
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(pairs.b[0]), H(pairs.b[1]), H(pairs.b[3])}));

    // Unregistering drops a socket even though it is still readable; the
    // bytes that were read no longer count.
    selector.ClearReadSocket(pairs.b[3]);
    selector.ClearReadSocket(CZySocket());  // no handle: nothing to clear
    ReadByte(pairs.b[0]);
    SelectReady(selector);
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(pairs.b[1])}));

    // Write readiness: connected sockets with empty buffers are writable;
    // a selector copy keeps its own registration.
    selector.SetWriteSocket(pairs.a[2]);
    selector.SetWriteSocket(pairs.a[0]);
    CZySocketSelector copy(selector);
    selector.ClearAllWriteSockets();
    SelectReady(copy);
    EXPECT_EQ(HandlesOf(copy.GetWriteSelected()), (Handles{H(pairs.a[0]), H(pairs.a[2])}));
    EXPECT_EQ(HandlesOf(copy.GetReadSelected()), (Handles{H(pairs.b[1])}));
    SelectReady(selector);
    EXPECT_TRUE(selector.GetWriteSelected().empty());

    // After ClearAll nothing is reported from the sets of the last wait.
    selector.ClearAll();
    EXPECT_TRUE(selector.GetReadSelected().empty());
    EXPECT_TRUE(selector.GetWriteSelected().empty());

    // A null limit waits until something is ready; the flag may be null.
    selector.SetReadSocket(pairs.b[2]);
    SendByte(pairs.a[2]);
    ASSERT_FALSE(selector.Select(nullptr, nullptr).IsError());
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(pairs.b[2])}));
}

TEST(CZySocketSelector, OutOfBandDataShowsAsException)
{
    if (zytest::IsWindowsTarget())
        GTEST_SKIP() << "out-of-band readiness is checked on Linux";
    Pairs pairs(2);
    ASSERT_FALSE(HasFailure());
    CZySocketSelector selector;
    selector.SetExceptionSocket(pairs.b[0]);
    selector.SetExceptionSocket(pairs.b[1]);
    int sent = 0;
    const int kMsgOob = 1;  // MSG_OOB
    ASSERT_FALSE(pairs.a[1].Send("!", 1, kMsgOob, &sent).IsError());
    SelectReady(selector);
    EXPECT_EQ(HandlesOf(selector.GetExceptionSelected()), (Handles{H(pairs.b[1])}));
    EXPECT_TRUE(selector.GetReadSelected().empty());
}

#if !defined(_WIN32)
TEST(CZySocketSelector, ThreeThousandSocketsPastDescriptor1024)
{
    const size_t kPairs = 1500;  // 3,000 registered sockets
    const rlim_t kNeeded = 2 * kPairs + 512;
    struct rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_cur < kNeeded)
    {
        struct rlimit raised = limit;
        raised.rlim_cur = kNeeded;
        if (raised.rlim_max != RLIM_INFINITY && raised.rlim_max < kNeeded)
            raised.rlim_max = kNeeded;  // needs privilege
        if (setrlimit(RLIMIT_NOFILE, &raised) != 0)
            GTEST_SKIP() << "cannot raise the open-file limit to " << kNeeded;
    }

    Pairs pairs(kPairs);
    ASSERT_FALSE(HasFailure());
    CZySocketSelector selector;
    Handles all;
    for (size_t i = 0; i < kPairs; ++i)
    {
        selector.SetReadSocket(pairs.a[i]);
        selector.SetReadSocket(pairs.b[i]);
        all.insert(H(pairs.a[i]));
        all.insert(H(pairs.b[i]));
    }
    ASSERT_EQ(all.size(), 2 * kPairs);
    ASSERT_GT(*all.rbegin(), 1024u);
    ASSERT_GT(H(pairs.b[kPairs - 1]), 1024u);

    // A few ready, below and above descriptor 1024.
    const size_t fromA[] = {0, 1, 700, kPairs - 1};
    const size_t fromB[] = {3, 1200};
    Handles expected;
    for (size_t i : fromA)
    {
        SendByte(pairs.a[i]);
        expected.insert(H(pairs.b[i]));
    }
    for (size_t i : fromB)
    {
        SendByte(pairs.b[i]);
        expected.insert(H(pairs.a[i]));
    }
    SelectReady(selector);
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), expected);

    for (size_t i : fromA)
        ReadByte(pairs.b[i]);
    for (size_t i : fromB)
        ReadByte(pairs.a[i]);

    // Every one ready.
    for (size_t i = 0; i < kPairs; ++i)
    {
        SendByte(pairs.a[i]);
        SendByte(pairs.b[i]);
    }
    SelectReady(selector);
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), all);

    // And none once everything is read.
    for (size_t i = 0; i < kPairs; ++i)
    {
        ReadByte(pairs.a[i]);
        ReadByte(pairs.b[i]);
    }
    struct timeval zero = {0, 0};
    bool timedOut = false;
    ASSERT_FALSE(selector.Select(&zero, &timedOut).IsError());
    EXPECT_TRUE(timedOut);
    EXPECT_TRUE(selector.GetReadSelected().empty());
}
#endif
