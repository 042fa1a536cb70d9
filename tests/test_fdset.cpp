// Growable descriptor sets: growth, the process-wide maximum, list
// semantics, copying, and the error values of the class layer.
#include <gtest/gtest.h>

#include <vector>

#include "ZyNetwork/ZyFdset.h"

namespace
{
std::vector<uint32_t> Listed(ZyFdset& set)
{
    ZYNET_fd_set* fds = set.get_fdsetp();
    return std::vector<uint32_t>(fds->fd_array, fds->fd_array + fds->fd_count);
}

void Fill(ZyFdset& set, uint32_t n, uint32_t first = 10)
{
    for (uint32_t i = 0; i < n; ++i)
        ASSERT_FALSE(set.set(first + i).IsError()) << "handle " << i;
}
}  // namespace

TEST(Fdset, StaysInlineUpTo1024ThenGrowsOnceTo8192)
{
    rkfdset set;
    ASSERT_EQ(rkfdset_alloc(rkfdset_maxsock_get(), &set), 0);
    for (uint32_t h = 1; h <= 1024; ++h)
        ASSERT_EQ(rkfdset_set(h, &set), 0);
    EXPECT_EQ(rkfdset_get_fdsetp(&set), &set.fds) << "1024 handles need no heap block";

    ASSERT_EQ(rkfdset_set(5000, &set), 0);
    ZYNET_fd_set* grown = rkfdset_get_fdsetp(&set);
    EXPECT_NE(grown, &set.fds);
    EXPECT_EQ(set.size, 8192u);
    ASSERT_EQ(grown->fd_count, 1025u);
    for (uint32_t h = 1; h <= 1024; ++h)
        ASSERT_EQ(grown->fd_array[h - 1], h) << "the inline handles come along in order";
    EXPECT_EQ(grown->fd_array[1024], 5000u);

    for (uint32_t h = 1025; h < 8192; ++h)
        ASSERT_EQ(rkfdset_set(100000 + h, &set), 0);
    EXPECT_EQ(rkfdset_set(424242, &set), -1);
    EXPECT_EQ(rkfdset_get_fdsetp(&set), grown) << "growth happens once";
    EXPECT_EQ(grown->fd_count, 8192u);

    // A copy with a maximum below the source's count is refused.
    rkfdset copy;
    ASSERT_EQ(rkfdset_alloc(1024, &copy), 0);
    EXPECT_EQ(rkfdset_copy_fdset(&copy, &set), -1);
    rkfdset_free(&copy);
    rkfdset_free(&set);
    EXPECT_EQ(rkfdset_get_fdsetp(&set), nullptr);
    EXPECT_EQ(rkfdset_set(1, &set), -2);
}

TEST(Fdset, MaximumBelow1024KeepsTheInlineCapacity)
{
    const int saved = ZyFdset::maxsock_get();
    ZyFdset::maxsock_set(500);
    ZyFdset set;
    ASSERT_FALSE(set.init().IsError());  // sized by the maximum now in force
    ZyFdset::maxsock_set(saved);
    Fill(set, 1024);
    EXPECT_EQ(set.capacity(), 1024u);
    CZyError err = set.set(5);
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorCode(), 774);
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Specified fd set is already full; Set size of 1024");
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "ZyFdset::set");
    EXPECT_EQ(set.count(), 1024u) << "a full set is unchanged";
    EXPECT_FALSE(set.set(10).IsError()) << "a handle already listed is no new entry";
    ASSERT_FALSE(set.clr(10).IsError());
    EXPECT_FALSE(set.set(5).IsError()) << "removing one makes room";
}

TEST(Fdset, ListSemanticsAndZeroKeepingTheGrownCapacity)
{
    ZyFdset set;
    EXPECT_EQ(set.capacity(), 0u) << "nothing is made before first use";
    EXPECT_FALSE(set.clr(42).IsError());
    EXPECT_EQ(set.get_maxfd(), 0xFFFFFFFFu);
    for (uint32_t h : {7u, 3u, 9u, 3u, 11u, 7u})
        ASSERT_FALSE(set.set(h).IsError());
    EXPECT_EQ(Listed(set), (std::vector<uint32_t>{7, 3, 9, 11}));
    EXPECT_EQ(set.get_maxfd(), 1u);
    EXPECT_FALSE(set.clr(42).IsError()) << "clearing an absent handle succeeds";
    ASSERT_FALSE(set.clr(3).IsError());
    ASSERT_FALSE(set.clr(11).IsError());
    EXPECT_EQ(Listed(set), (std::vector<uint32_t>{7, 9}));

    Fill(set, 1100, 1000);
    EXPECT_EQ(set.capacity(), 8192u);
    set.zero();
    EXPECT_EQ(set.count(), 0u);
    EXPECT_EQ(set.capacity(), 8192u);
    EXPECT_EQ(set.is_set(7), 0);
    Fill(set, 8192);
    CZyError err = set.set(1);
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorMessage(), "Specified fd set is already full; Set size of 8192");
}

TEST(Fdset, CopiesAreIndependentAndSizedForTheirSource)
{
    ZyFdset grown;
    Fill(grown, 3000);
    ZyFdset copy(grown);
    EXPECT_EQ(Listed(copy), Listed(grown));
    EXPECT_NE(copy.get_fdsetp(), grown.get_fdsetp());
    ASSERT_FALSE(copy.clr(10).IsError());
    EXPECT_EQ(grown.is_set(10), 1);

    ZyFdset small;
    ASSERT_FALSE(small.set(1).IsError());
    small = grown;  // an inline set is remade large enough
    EXPECT_EQ(Listed(small), Listed(grown));
    ZyFdset few;
    Fill(few, 2, 4);
    small = few;  // a grown set keeps its storage
    EXPECT_EQ(Listed(small), (std::vector<uint32_t>{4, 5}));
    ZyFdset& alias = few;
    few = alias;  // under ASan: no use of freed storage
    EXPECT_EQ(Listed(few), (std::vector<uint32_t>{4, 5}));

    ZyFdset unmade;
    copy = unmade;
    EXPECT_EQ(copy.capacity(), 0u) << "copying an unmade set leaves the copy unmade";
}
