// Growable descriptor sets: capacity and growth, the process-wide maximum,
// list semantics, copying, and the error values of the class layer.
#include <gtest/gtest.h>

#include <vector>

#include "ZyNetwork/ZyFdset.h"

namespace
{
// Restores the process-wide maximum when a test changes it.
class MaxSockGuard
{
public:
    explicit MaxSockGuard(int value) : m_saved(ZyFdset::maxsock_get()) { ZyFdset::maxsock_set(value); }
    ~MaxSockGuard() { ZyFdset::maxsock_set(m_saved); }

private:
    int m_saved;
};

std::vector<uint32_t> Listed(ZyFdset& set)
{
    ZYNET_fd_set* fds = set.get_fdsetp();
    return std::vector<uint32_t>(fds->fd_array, fds->fd_array + fds->fd_count);
}

// Handles 10, 11, 12, ... so that none is 0 and the order is visible.
void Fill(ZyFdset& set, uint32_t n)
{
    for (uint32_t i = 0; i < n; ++i)
        ASSERT_FALSE(set.set(10 + i).IsError()) << "handle " << i;
}
}  // namespace

TEST(Fdset, FlatSetStaysInlineUpTo1024AndGrowsOnceToTheMaximum)
{
    ASSERT_EQ(rkfdset_maxsock_get(), ZYNET_FD_MAXSOCK_DEFAULT);
    rkfdset set;
    ASSERT_EQ(rkfdset_alloc(rkfdset_maxsock_get(), &set), 0);
    EXPECT_EQ(set.size, 1024u);
    EXPECT_EQ(set.maxsize, 8192u);
    EXPECT_EQ(set.maxfd, -1);
    for (uint32_t h = 0; h < 1024; ++h)
        ASSERT_EQ(rkfdset_set(h + 1, &set), 0);
    EXPECT_EQ(rkfdset_get_fdsetp(&set), &set.fds) << "1024 handles must fit without a heap block";
    EXPECT_EQ(set.size, 1024u);

    ASSERT_EQ(rkfdset_set(5000, &set), 0);
    ZYNET_fd_set* grown = rkfdset_get_fdsetp(&set);
    EXPECT_NE(grown, &set.fds);
    EXPECT_EQ(set.size, 8192u);
    ASSERT_EQ(grown->fd_count, 1025u);
    // Everything from the inline storage came along, in order.
    for (uint32_t h = 0; h < 1024; ++h)
        ASSERT_EQ(grown->fd_array[h], h + 1);
    EXPECT_EQ(grown->fd_array[1024], 5000u);
    EXPECT_EQ(rkfdset_isset(5000, &set), 1);
    EXPECT_EQ(rkfdset_isset(1, &set), 1);
    EXPECT_EQ(rkfdset_isset(99999, &set), 0);

    // Fill to the maximum: the next handle is refused and nothing changes.
    for (uint32_t h = 1025; h < 8192; ++h)
        ASSERT_EQ(rkfdset_set(100000 + h, &set), 0);
    EXPECT_EQ(rkfdset_set(7, &set), 0) << "a handle already listed is not a new entry";
    EXPECT_EQ(rkfdset_set(424242, &set), -1);
    EXPECT_EQ(rkfdset_get_fdsetp(&set), grown) << "growth happens once";
    EXPECT_EQ(grown->fd_count, 8192u);

    // Zeroing keeps the grown storage; freeing releases it.
    rkfdset_zero(&set);
    EXPECT_EQ(rkfdset_get_fdsetp(&set), grown);
    EXPECT_EQ(set.size, 8192u);
    EXPECT_EQ(rkfdset_get_maxfd(&set), -1);
    rkfdset_free(&set);
    EXPECT_EQ(rkfdset_get_fdsetp(&set), nullptr);
    EXPECT_EQ(set.size, 0u);
    rkfdset_free(&set);  // a second free is harmless
}

TEST(Fdset, FlatFunctionsRejectNullAndFreedSets)
{
    EXPECT_EQ(rkfdset_alloc(8192, nullptr), -1);
    EXPECT_EQ(rkfdset_set(3, nullptr), -2);
    EXPECT_EQ(rkfdset_clr(3, nullptr), -2);
    EXPECT_EQ(rkfdset_isset(3, nullptr), -2);
    EXPECT_EQ(rkfdset_get_fdsetp(nullptr), nullptr);
    EXPECT_EQ(rkfdset_get_maxfd(nullptr), -1);
    rkfdset_zero(nullptr);
    rkfdset_free(nullptr);

    rkfdset set;
    ASSERT_EQ(rkfdset_alloc(0, &set), 0);
    EXPECT_EQ(set.maxsize, 1024u) << "a maximum below 1024 is raised to 1024";
    rkfdset_free(&set);
    EXPECT_EQ(rkfdset_set(3, &set), -2);
    EXPECT_EQ(rkfdset_clr(3, &set), -2);
    EXPECT_EQ(rkfdset_isset(3, &set), -2);
    rkfdset other;
    ASSERT_EQ(rkfdset_alloc(0, &other), 0);
    EXPECT_EQ(rkfdset_copy_fdset(&other, &set), -1);
    EXPECT_EQ(rkfdset_copy_fdset(&set, &other), -1);
    rkfdset_free(&other);
}

TEST(Fdset, FlatCopyGrowsTheDestinationOnlyWithinItsMaximum)
{
    rkfdset big, roomy, small;
    ASSERT_EQ(rkfdset_alloc(4096, &big), 0);
    ASSERT_EQ(rkfdset_alloc(8192, &roomy), 0);
    ASSERT_EQ(rkfdset_alloc(1024, &small), 0);
    for (uint32_t h = 0; h < 2000; ++h)
        ASSERT_EQ(rkfdset_set(h + 1, &big), 0);
    ASSERT_EQ(big.size, 4096u);
    ASSERT_EQ(rkfdset_set(77777, &roomy), 0);

    // The small set can never hold 4096 handles.
    EXPECT_EQ(rkfdset_copy_fdset(&small, &big), -1);
    EXPECT_EQ(rkfdset_get_fdsetp(&small), &small.fds);

    // The roomy one grows to its own maximum and takes the source's list.
    ASSERT_EQ(rkfdset_copy_fdset(&roomy, &big), 0);
    ZYNET_fd_set* copy = rkfdset_get_fdsetp(&roomy);
    EXPECT_NE(copy, &roomy.fds);
    ASSERT_EQ(copy->fd_count, 2000u);
    for (uint32_t h = 0; h < 2000; ++h)
        ASSERT_EQ(copy->fd_array[h], h + 1);
    EXPECT_EQ(rkfdset_isset(77777, &roomy), 0) << "the old contents are replaced";
    EXPECT_EQ(roomy.size, 4096u) << "the destination takes the source's capacity figure";

    // A full inline source copies into an inline destination exactly.
    rkfdset fullInline;
    ASSERT_EQ(rkfdset_alloc(1024, &fullInline), 0);
    for (uint32_t h = 0; h < 1024; ++h)
        ASSERT_EQ(rkfdset_set(h + 9, &fullInline), 0);
    ASSERT_EQ(rkfdset_copy_fdset(&small, &fullInline), 0);
    EXPECT_EQ(small.fds.fd_count, 1024u);
    EXPECT_EQ(small.fds.fd_array[1023], 1023u + 9);

    rkfdset_free(&big);
    rkfdset_free(&roomy);
    rkfdset_free(&small);
    rkfdset_free(&fullInline);
}

TEST(Fdset, ClassGrowsFrom1024To8192AndZeroKeepsTheCapacity)
{
    ZyFdset set;
    EXPECT_EQ(set.capacity(), 0u) << "nothing is allocated before first use";
    Fill(set, 1024);
    EXPECT_EQ(set.capacity(), 1024u);
    ASSERT_FALSE(set.set(9000).IsError());
    EXPECT_EQ(set.capacity(), 8192u);
    EXPECT_EQ(set.count(), 1025u);
    EXPECT_EQ(set.is_set(9000), 1);
    EXPECT_EQ(set.is_set(10), 1);
    EXPECT_EQ(set.get_maxfd(), 1u);

    set.zero();
    EXPECT_EQ(set.count(), 0u);
    EXPECT_EQ(set.capacity(), 8192u);
    EXPECT_EQ(set.is_set(9000), 0);
    EXPECT_EQ(set.get_maxfd(), 0xFFFFFFFFu);

    // The grown set now takes 8192 handles and refuses the next one.
    Fill(set, 8192);
    CZyError err = set.set(1);
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorMessage(), "Specified fd set is already full; Set size of 8192");
    EXPECT_EQ(set.count(), 8192u);
}

TEST(Fdset, ClassMaximumBelow1024KeepsTheInlineCapacity)
{
    MaxSockGuard guard(500);
    ZyFdset set;
    Fill(set, 1024);
    EXPECT_EQ(set.capacity(), 1024u);
    CZyError err = set.set(5);
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorCode(), 774);
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Specified fd set is already full; Set size of 1024");
    ASSERT_EQ(err.GetItems().size(), 1u);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "ZyFdset::set");
    EXPECT_STREQ(err.GetItems()[0]->Location().File(), "ZyNetwork/ZyFdset");
    // A full set is unchanged and still accepts a handle it already lists.
    EXPECT_EQ(set.count(), 1024u);
    EXPECT_EQ(set.is_set(5), 0);
    EXPECT_FALSE(set.set(10).IsError());
    // Removing one makes room again.
    ASSERT_FALSE(set.clr(10).IsError());
    EXPECT_FALSE(set.set(5).IsError());
}

TEST(Fdset, ClassKeepsOneEntryPerHandleAndOrderOnRemoval)
{
    ZyFdset set;
    EXPECT_FALSE(set.clr(42).IsError()) << "clearing on a fresh set succeeds";
    for (uint32_t h : {7u, 3u, 9u, 3u, 11u, 7u})
        ASSERT_FALSE(set.set(h).IsError());
    EXPECT_EQ(Listed(set), (std::vector<uint32_t>{7, 3, 9, 11}));

    EXPECT_FALSE(set.clr(42).IsError()) << "clearing an absent handle succeeds";
    EXPECT_EQ(set.count(), 4u);
    ASSERT_FALSE(set.clr(3).IsError());
    EXPECT_EQ(Listed(set), (std::vector<uint32_t>{7, 9, 11}));
    ASSERT_FALSE(set.clr(11).IsError());
    ASSERT_FALSE(set.clr(7).IsError());
    EXPECT_EQ(Listed(set), (std::vector<uint32_t>{9}));
    ASSERT_FALSE(set.clr(9).IsError());
    EXPECT_EQ(set.count(), 0u);
    EXPECT_EQ(set.get_maxfd(), 0xFFFFFFFFu);

    // The handle value of all ones is an ordinary entry for the set.
    ASSERT_FALSE(set.set(ZYNET_INVALID_SOCKET).IsError());
    EXPECT_EQ(set.is_set(ZYNET_INVALID_SOCKET), 1);
}

TEST(Fdset, ClassCopiesAreIndependentAndSizedForTheirSource)
{
    ZyFdset grown;
    Fill(grown, 3000);
    ASSERT_EQ(grown.capacity(), 8192u);

    // A copy of a grown set holds all of it and owns its own storage.
    ZyFdset copy(grown);
    ASSERT_EQ(copy.count(), 3000u);
    EXPECT_NE(copy.get_fdsetp(), grown.get_fdsetp());
    EXPECT_EQ(Listed(copy), Listed(grown));
    ASSERT_FALSE(copy.clr(10).IsError());
    EXPECT_EQ(grown.is_set(10), 1);

    // Assigning a grown set to an inline one reallocates it.
    ZyFdset small;
    ASSERT_FALSE(small.set(1).IsError());
    small = grown;
    EXPECT_EQ(small.count(), 3000u);
    EXPECT_EQ(small.is_set(1), 0);
    EXPECT_EQ(Listed(small), Listed(grown));

    // Assigning a small set to a grown one reuses the grown storage.
    ZyFdset few;
    ASSERT_FALSE(few.set(4).IsError());
    ASSERT_FALSE(few.set(5).IsError());
    small = few;
    EXPECT_EQ(Listed(small), (std::vector<uint32_t>{4, 5}));

    // Self-assignment changes nothing.
    ZyFdset& alias = few;
    few = alias;
    EXPECT_EQ(Listed(few), (std::vector<uint32_t>{4, 5}));

    // An unallocated source leaves the destination unallocated.
    ZyFdset empty;
    copy = empty;
    EXPECT_EQ(copy.capacity(), 0u);
    ZyFdset emptyCopy(empty);
    EXPECT_EQ(emptyCopy.capacity(), 0u);
}

TEST(Fdset, ClassSizesNewSetsByTheMaximumAtTheirCreation)
{
    ZyFdset before;
    ASSERT_FALSE(before.init().IsError());
    {
        MaxSockGuard guard(2048);
        ZyFdset after;
        Fill(after, 1025);
        EXPECT_EQ(after.capacity(), 2048u);
        // A set made before the change keeps its maximum.
        Fill(before, 1025);
        EXPECT_EQ(before.capacity(), 8192u);
        // init() starts the set afresh with the current maximum.
        ASSERT_FALSE(before.init().IsError());
        EXPECT_EQ(before.count(), 0u);
        EXPECT_EQ(before.capacity(), 1024u);
        Fill(before, 1025);
        EXPECT_EQ(before.capacity(), 2048u);
    }
    EXPECT_EQ(ZyFdset::maxsock_get(), ZYNET_FD_MAXSOCK_DEFAULT);
    EXPECT_EQ(rkfdset_maxsock_get(), ZYNET_FD_MAXSOCK_DEFAULT);
}
