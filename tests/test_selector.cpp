// The selector over real socket pairs: exactly the ready sockets come back,
// registration persists across waits, and on Linux thousands of sockets
// with descriptors past 1024 work.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "ZyNetwork/ZySocketSelector.h"
#include "support/TestEnv.h"

#if !defined(_WIN32)
#include <sys/resource.h>
#include <unistd.h>
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
    ZYTEST_ASSERT_OK(send ? s.Send(&byte, 1, 0, &count) : s.RecvWithTimeout(&byte, 1, 5, &timedOut, 0, &count));
}

// Waits up to `seconds`; returns whether the limit passed.
bool Wait(CZySocketSelector& selector, long seconds)
{
    struct timeval limit = {seconds, 0};
    bool timedOut = seconds != 0;  // the opposite of what the callers expect
    ZYTEST_EXPECT_OK(selector.Select(&limit, &timedOut));
    return timedOut;
}

// A wait that must fail: returns the error's code (0 when it succeeded).
int FailingWait(CZySocketSelector& selector)
{
    struct timeval limit = {0, 0};
    bool timedOut = true;
    CZyError err = selector.Select(&limit, &timedOut);
    return err.IsError() ? err.GetErrorCode() : 0;
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

// Registers idle sockets for reading, so that the ready ones are few: the
// selector then waits on the kernel's event set where it has one, rather
// than making one list wait over all of them (which it prefers after most
// registered sockets were found ready).
void AddIdle(CZySocketSelector& selector, const Pairs& idle)
{
    for (const CZySocket& s : idle.b)
        selector.SetReadSocket(s);
}
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

// The getters report only sockets registered now that the last wait found
// ready, whatever was cleared, registered again or registered anew between
// the wait and the getter. Each category has one ready socket (p.b[0]) and
// one idle listener registered.
TEST(CZySocketSelector, GettersFollowRegistrationChangesAfterTheWait)
{
    typedef CZySocketSelector S;
    typedef void (S::*Change)(const CZySocket&);
    const Change sets[] = {&S::SetReadSocket, &S::SetWriteSocket, &S::SetExceptionSocket};
    const Change clears[] = {&S::ClearReadSocket, &S::ClearWriteSocket, &S::ClearExceptionSocket};
    S::SocketSet (S::*const getters[])() = {&S::GetReadSelected, &S::GetWriteSelected, &S::GetExceptionSelected};
    const int sendFlags[] = {0, -1, 1};  // the peer sends a byte, nothing (writable anyway), urgent data
    // 0 clear the ready socket, 1 register it again, 2 replace both by a
    // new socket, 3 clear the idle one.
    for (int c = 0; c < 3; ++c)
        for (int change = 0; change < 4; ++change)
        {
            Pairs p(2);
            CZySocket idle;
            ASSERT_FALSE(!p.b[1].IsValid() || idle.Bind(CZyIPAddr("127.0.0.1")).IsError() || idle.Listen(1).IsError());
            S selector;
            (selector.*sets[c])(p.b[0]);
            (selector.*sets[c])(idle);
            int count = 0;
            if (sendFlags[c] >= 0)
                ZYTEST_ASSERT_OK(p.a[0].Send("u", 1, sendFlags[c], &count));
            EXPECT_FALSE(Wait(selector, 5)) << c;
            (selector.*clears[c])(change == 3 ? idle : p.b[0]);
            if (change == 1)
                (selector.*sets[c])(p.b[0]);
            if (change == 2)
                (selector.*clears[c])(idle), (selector.*sets[c])(p.b[1]);
            EXPECT_EQ(HandlesOf((selector.*getters[c])()), change % 2 ? Handles{H(p.b[0])} : Handles{})
                << "category " << c << ", change " << change;
            idle.Close();
        }
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

// A registered socket closed behind the selector's back (through the
// library, as CZySocket::Close does) fails every Select with 10038, as
// select() does, even while other registered sockets are ready, until it is
// cleared; the selector then works on. See docs/PLATFORMS.md.
TEST(CZySocketSelector, RegisteredSocketClosedThroughTheLibraryFailsSelectUntilCleared)
{
    Pairs p(3), idle(8);
    ASSERT_FALSE(HasFailure());
    CZySocketSelector selector;
    AddIdle(selector, idle);
    const CZySocket doomed = p.b[0];  // the registered copy keeps the handle
    selector.SetReadSocket(p.b[0]);
    selector.SetReadSocket(p.b[1]);
    selector.SetWriteSocket(p.a[2]);
    Transfer(p.a[1], true);
    EXPECT_FALSE(Wait(selector, 5));
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(p.b[1])}));

    p.b[0].Close();
    for (int round = 0; round < 3; ++round)
    {
        ZYNET_setlasterror(0);
        EXPECT_EQ(FailingWait(selector), 10038) << round;
        EXPECT_EQ(ZYNET_getlasterror(), 10038) << round;
    }
    // Registering more does not cure it; clearing the closed socket does.
    selector.SetReadSocket(p.b[2]);
    EXPECT_EQ(FailingWait(selector), 10038);
    selector.ClearReadSocket(doomed);
    EXPECT_FALSE(Wait(selector, 5));
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(p.b[1])}));
    EXPECT_EQ(HandlesOf(selector.GetWriteSelected()), (Handles{H(p.a[2])}));
}

// Closes through the library from many threads while selectors wait on
// sockets of their own: no close waits for another or for a selector, every
// wait keeps reporting its one ready socket, and a registered socket closed
// afterwards fails the next wait of its selector with 10038 although
// another socket is ready.
TEST(CZySocketSelector, ClosesFromManyThreadsWhileSelectorsWait)
{
    const int kSelectors = 3, kClosers = 3, kPairsEach = zytest::IsWindowsTarget() ? 60 : 200;
    struct Watch
    {
        Pairs idle{8}, own{2};  // own.b[0] is kept readable, own.b[1] is closed in the end
        CZySocketSelector selector;
        int wrongResults = 0;
        std::atomic<int> code{0}, rounds{0};
    };
    std::vector<std::unique_ptr<Watch>> watches;
    std::atomic<bool> doomedClosed{false};
    std::vector<std::thread> selectors, closers;
    for (int i = 0; i < kSelectors; ++i)
    {
        watches.emplace_back(new Watch());
        Watch* w = watches.back().get();
        ASSERT_FALSE(HasFailure());
        AddIdle(w->selector, w->idle);
        w->selector.SetReadSocket(w->own.b[0]);
        w->selector.SetReadSocket(w->own.b[1]);
        Transfer(w->own.a[0], true);
    }
    for (const std::unique_ptr<Watch>& watch : watches)
        selectors.emplace_back([&doomedClosed, w = watch.get()] {
            for (bool closedBefore = false; !closedBefore; std::this_thread::yield())
            {
                closedBefore = doomedClosed;
                const struct timeval limit = {0, 0};
                CZyError err = w->selector.Select(&limit, nullptr);
                if ((w->code = err.GetErrorCode()) != 0)
                    return;
                w->wrongResults += HandlesOf(w->selector.GetReadSelected()) != Handles{H(w->own.b[0])};
                ++w->rounds;
            }
        });
    for (int i = 0; i < kClosers; ++i)
        closers.emplace_back([kPairsEach] {
            for (int n = 0; n < kPairsEach; ++n)
            {
                CZySocket a, b;
                if (!CZySocket::CreateSocketPair(&a, &b).IsError())
                    a.Close(), b.Close();
            }
        });
    for (std::thread& t : closers)
        t.join();
    // Each selector first catches up with those closes: one that builds its
    // event set afresh takes a new descriptor, which could otherwise get the
    // number of a socket closed below (and be watched under that number).
    for (const std::unique_ptr<Watch>& w : watches)
        for (const int seen = w->rounds; w->rounds < seen + 2 && w->code == 0;)
            std::this_thread::yield();
    for (const std::unique_ptr<Watch>& w : watches)
        w->own.b[1].Close();
    doomedClosed = true;
    for (std::thread& t : selectors)
        t.join();
    for (const std::unique_ptr<Watch>& w : watches)
        EXPECT_TRUE(w->code == 10038 && w->wrongResults == 0) << w->code << " " << w->wrongResults;
}

#if !defined(_WIN32)
// A registered descriptor closed with the OS's close(), which the library
// does not see. The kernel's event set forgets it silently, so the selector
// notices when a wait finds nothing ready: from then on every Select fails
// with 10038 until the socket is cleared. While other registered sockets
// are ready, the closed one is simply never reported (the limit documented
// in docs/PLATFORMS.md).
TEST(CZySocketSelector, RegisteredDescriptorClosedByTheOsIsFoundWhenNothingIsReady)
{
    Pairs p(2), idle(8);
    ASSERT_FALSE(HasFailure());
    CZySocketSelector selector;
    AddIdle(selector, idle);
    const CZySocket doomed = p.b[0];
    selector.SetReadSocket(p.b[0]);
    selector.SetReadSocket(p.b[1]);
    EXPECT_TRUE(Wait(selector, 0));

    ASSERT_EQ(::close(static_cast<int>(H(p.b[0]))), 0);
    p.b[0].AttachConnectedSocket(ZYNET_INVALID_SOCKET);  // closed already; the number may be reused
    Transfer(p.a[1], true);
    EXPECT_FALSE(Wait(selector, 5));
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(p.b[1])}));

    Transfer(p.b[1], false);  // nothing ready any more
    EXPECT_EQ(FailingWait(selector), 10038);
    Transfer(p.a[1], true);
    EXPECT_EQ(FailingWait(selector), 10038) << "stays failed while the socket is registered";
    selector.ClearReadSocket(doomed);
    EXPECT_FALSE(Wait(selector, 5));
    EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{H(p.b[1])}));
}

// A registered number that was closed and now names a new socket is waited
// on as that socket, as a wait over the number always did: whether it was
// closed through the library or by the OS, and whether or not the new
// socket is registered again.
TEST(CZySocketSelector, ReusedDescriptorNumberIsWatchedAsTheNewSocket)
{
    enum Mode
    {
        kLibraryClose,
        kLibraryCloseRegisteredAgain,
        kOsClose
    };
    for (Mode mode : {kLibraryClose, kLibraryCloseRegisteredAgain, kOsClose})
    {
        Pairs p(2), idle(8);
        ASSERT_FALSE(HasFailure());
        CZySocketSelector selector;
        AddIdle(selector, idle);
        selector.SetReadSocket(p.b[0]);
        selector.SetReadSocket(p.b[1]);
        EXPECT_TRUE(Wait(selector, 0));

        const ZYNET_SOCKET number = H(p.b[0]);
        if (mode == kOsClose)
        {
            ASSERT_EQ(::close(static_cast<int>(number)), 0);
            p.b[0].AttachConnectedSocket(ZYNET_INVALID_SOCKET);
        }
        else
            p.b[0].Close();
        p.a[0].Close();
        // The lowest free numbers come back: the pair reuses both.
        Pairs fresh(1);
        ASSERT_FALSE(HasFailure());
        CZySocket reused = H(fresh.a[0]) == number ? fresh.a[0] : fresh.b[0];
        CZySocket peer = H(fresh.a[0]) == number ? fresh.b[0] : fresh.a[0];
        if (H(reused) != number)
            GTEST_SKIP() << "the number " << number << " was not reused";
        if (mode == kLibraryCloseRegisteredAgain)
            selector.SetReadSocket(reused);
        Transfer(peer, true);
        for (int round = 0; round < 2; ++round)
        {
            EXPECT_FALSE(Wait(selector, 5)) << mode << round;
            EXPECT_EQ(HandlesOf(selector.GetReadSelected()), (Handles{number})) << mode << round;
        }
        Transfer(reused, false);
        EXPECT_TRUE(Wait(selector, 0)) << mode;
    }
}
#endif
