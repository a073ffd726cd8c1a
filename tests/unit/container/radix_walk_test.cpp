/* Walks over the radix tree, and what deletions and the end of the tree do to open ones. */
#include <gtest/gtest.h>

#include "radix_fixture.h"
#include "support/fault.h"

namespace
{

using radix_test::Address;
using radix_test::Entries;
using radix_test::Entry;
using radix_test::Fixture;

/* Covers, subnets and hosts of two neighbouring networks. */
class RadixWalk : public testing::Test
{
protected:
    Fixture f{32};
    Entry *wide = f.Add("10.0.0.0", 8);
    Entry *low = f.Add("10.0.0.0", 16);
    Entry *low_host = f.Add("10.0.0.1", 32);
    Entry *high = f.Add("10.1.0.0", 16);
    Entry *high_host = f.Add("10.1.0.1", 32);
    Entry *other = f.Add("11.0.0.0", 8);
};

TEST_F(RadixWalk, ForwardVisitsNodeThenLeftThenRight)
{
    EXPECT_EQ(f.All(MRT_RDX_WALK_FORWARD), (Entries{wide, low, low_host, high, high_host, other}));
}

TEST_F(RadixWalk, ReverseVisitsNodeThenRightThenLeft)
{
    EXPECT_EQ(f.All(MRT_RDX_WALK_REVERSE), (Entries{other, wide, high, high_host, low, low_host}));
}

TEST_F(RadixWalk, PrefixChainYieldsHostThenEachCoverShortestLast)
{
    EXPECT_EQ(f.Drain(f.Walk("10.1.0.1", 32, MRT_RDX_WALK_PREFIX_CHAIN)), (Entries{high_host, high, wide}));
    EXPECT_EQ(f.Drain(f.Walk("10.1.0.1", 31, MRT_RDX_WALK_PREFIX_CHAIN)), (Entries{high, wide}));
    EXPECT_EQ(f.Walk("12.0.0.1", 32, MRT_RDX_WALK_PREFIX_CHAIN), nullptr);
}

TEST_F(RadixWalk, PrefixChainWithoutKeyNeedsARootWithAnEntry)
{
    ASSERT_EQ(f.tree->root->entry, nullptr);
    EXPECT_EQ(MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_PREFIX_CHAIN), nullptr);

    Entry *everything = f.Add("0.0.0.0", 0);
    EXPECT_EQ(f.All(MRT_RDX_WALK_PREFIX_CHAIN), (Entries{everything}));
}

TEST_F(RadixWalk, UnknownKindMakesNoWalk)
{
    EXPECT_EQ(MRT_RDX_CreateWalk(f.tree, nullptr, 0, 3), nullptr);
    EXPECT_EQ(MRT_RDX_CreateWalkNode(f.tree, nullptr, 0, 0x100), nullptr);
    EXPECT_EQ(f.tree->walks.next, &f.tree->walks);
}

TEST_F(RadixWalk, LowerBoundKeepsAForwardWalkInsideItsPrefix)
{
    EXPECT_EQ(f.Drain(f.Walk("10.0.0.0", 16, MRT_RDX_WALK_FORWARD)), (Entries{low, low_host}));
    EXPECT_EQ(f.Drain(f.Walk("10.0.0.0", 9, MRT_RDX_WALK_FORWARD)),
              (Entries{low, low_host, high, high_host}));
    EXPECT_EQ(f.Walk("10.2.0.0", 16, MRT_RDX_WALK_FORWARD), nullptr);
    EXPECT_EQ(f.Walk("10.0.0.2", 32, MRT_RDX_WALK_FORWARD), nullptr);
}

TEST_F(RadixWalk, WithoutItsBoundAForwardWalkRunsToTheEndOfTheTree)
{
    MRT_RDX_WALK_S *walk = f.Walk("10.0.0.0", 16, MRT_RDX_WALK_FORWARD);
    MRT_RDX_SetWalkAll(walk);
    EXPECT_EQ(f.Drain(walk), (Entries{low, low_host, high, high_host, other}));
}

TEST_F(RadixWalk, WithoutAKeyAWalkStartsOnlyAtLengthZero)
{
    EXPECT_EQ(MRT_RDX_CreateWalk(f.tree, nullptr, 8, MRT_RDX_WALK_FORWARD), nullptr);
    EXPECT_EQ(MRT_RDX_CreateWalk(f.tree, nullptr, 8, MRT_RDX_WALK_REVERSE), nullptr);
    EXPECT_EQ(f.Drain(f.Walk("11.0.0.0", 0, MRT_RDX_WALK_FORWARD)).size(), 6u);
}

TEST_F(RadixWalk, ReverseReadsTheKeyMirroredAndSoFindsNoStart)
{
    EXPECT_EQ(f.Walk("10.0.0.0", 16, MRT_RDX_WALK_REVERSE), nullptr);
    EXPECT_EQ(f.Walk("11.0.0.0", 8, MRT_RDX_WALK_REVERSE), nullptr);
}

TEST(RadixReverseWalk, FindsAStartWhereTheMirroredPathHappensToLead)
{
    Fixture f(32);
    Entry *only = f.Add("10.0.0.0", 16);
    Entry *below = f.Add("10.0.128.0", 24);
    EXPECT_EQ(f.Drain(f.Walk("10.0.0.0", 16, MRT_RDX_WALK_REVERSE)), (Entries{only, below}));
}

TEST_F(RadixWalk, IsRegisteredAtTheFrontOfTheList)
{
    MRT_RDX_WALK_S *first = MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_FORWARD);
    MRT_RDX_WALK_S *second = MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_REVERSE);
    EXPECT_EQ(f.tree->walks.next, &second->links);
    EXPECT_EQ(second->links.next, &first->links);
    EXPECT_EQ(f.tree->walks.previous, &first->links);
    MRT_RDX_DestroyWalk(second);
    EXPECT_EQ(f.tree->walks.next, &first->links);
    MRT_RDX_DestroyWalk(first);
    EXPECT_EQ(f.tree->walks.next, &f.tree->walks);
    EXPECT_EQ(f.tree->walks.previous, &f.tree->walks);
}

TEST_F(RadixWalk, WalkNodeIsNotRegistered)
{
    MCAST_ADDR_S key = Address("10.0.0.0");
    MRT_RDX_WALK_S *walk = MRT_RDX_CreateWalkNode(f.tree, &key, 16, MRT_RDX_WALK_FORWARD);
    ASSERT_NE(walk, nullptr);
    EXPECT_EQ(walk->links.next, nullptr);
    EXPECT_EQ(walk->links.previous, nullptr);
    EXPECT_EQ(walk->tree, f.tree);
    EXPECT_EQ(walk->lower_bound, 16);
    EXPECT_EQ(walk->current->entry, low);
    EXPECT_EQ(f.tree->walks.next, &f.tree->walks);
    MRT_RDX_DestroyWalk(walk);
}

TEST_F(RadixWalk, SurvivesTheDeletionOfEveryEntryItHasJustGiven)
{
    for (unsigned kind : {MRT_RDX_WALK_FORWARD, MRT_RDX_WALK_REVERSE}) {
        Fixture g(32);
        Entries expected;
        Entries yielded;
        for (const char *address : {"10.0.0.0", "10.0.0.1", "10.1.0.0", "11.0.0.0", "200.0.0.0"}) {
            g.Add(address, 24);
            g.Add(address, 32);
        }
        expected = g.All(kind);
        MRT_RDX_WALK_S *walk = MRT_RDX_CreateWalk(g.tree, nullptr, 0, kind);
        for (void *entry = MRT_RDX_WalkNext(walk); entry != nullptr; entry = MRT_RDX_WalkNext(walk)) {
            yielded.push_back(entry);
            MRT_RDX_DeleteNode(g.tree, entry);
        }
        EXPECT_EQ(yielded, expected);
        EXPECT_EQ(g.tree->root, nullptr);
        MRT_RDX_DestroyWalk(walk);
    }
}

TEST_F(RadixWalk, EveryRegisteredWalkOnADeletedEntryMovesPastIt)
{
    MRT_RDX_WALK_S *forward = MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_FORWARD);
    MRT_RDX_WALK_S *second = MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_FORWARD);
    MRT_RDX_WALK_S *reverse = MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_REVERSE);

    MRT_RDX_WalkNext(forward);
    MRT_RDX_WalkNext(second);
    MRT_RDX_DeleteNode(f.tree, low);
    MRT_RDX_DeleteNode(f.tree, low_host);
    MRT_RDX_DeleteNode(f.tree, other);

    EXPECT_EQ(f.Drain(forward), (Entries{high, high_host}));
    EXPECT_EQ(f.Drain(second), (Entries{high, high_host}));
    EXPECT_EQ(f.Drain(reverse), (Entries{wide, high, high_host}));
}

TEST_F(RadixWalk, BoundedWalkEndsWhenItsLastEntryIsDeletedUnderIt)
{
    MRT_RDX_WALK_S *walk = f.Walk("10.0.0.1", 32, MRT_RDX_WALK_FORWARD);
    MRT_RDX_DeleteNode(f.tree, low_host);
    EXPECT_EQ(walk->current, nullptr);
    EXPECT_EQ(MRT_RDX_WalkNext(walk), nullptr);
    MRT_RDX_DestroyWalk(walk);
}

TEST_F(RadixWalk, PrefixChainOnADeletedEntryIsAdvancedOnceAndDropsWhatThatYields)
{
    f.Add("10.0.0.0", 24);
    MRT_RDX_WALK_S *walk = f.Walk("10.0.0.1", 32, MRT_RDX_WALK_PREFIX_CHAIN);

    ASSERT_EQ(walk->current->entry, low_host);
    MRT_RDX_DeleteNode(f.tree, low_host);
    EXPECT_EQ(f.Drain(walk), (Entries{low, wide}));
}

TEST_F(RadixWalk, ExhaustedWalkStaysExhausted)
{
    MRT_RDX_WALK_S *walk = f.Walk("11.0.0.0", 8, MRT_RDX_WALK_FORWARD);
    EXPECT_EQ(MRT_RDX_WalkNext(walk), other);
    EXPECT_EQ(MRT_RDX_WalkNext(walk), nullptr);
    f.Add("11.0.0.0", 16);
    EXPECT_EQ(MRT_RDX_WalkNext(walk), nullptr);
    MRT_RDX_DestroyWalk(walk);
}

TEST_F(RadixWalk, OutlivesItsTreeAndYieldsNothingThen)
{
    MRT_RDX_WALK_S *forward = MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_FORWARD);
    MRT_RDX_WALK_S *chain = f.Walk("10.0.0.1", 32, MRT_RDX_WALK_PREFIX_CHAIN);

    MRT_RDX_WalkNext(forward);
    MRT_RDX_DestroyTree(f.tree);
    f.tree = nullptr;

    for (MRT_RDX_WALK_S *walk : {forward, chain}) {
        EXPECT_EQ(walk->tree, nullptr);
        EXPECT_EQ(walk->current, nullptr);
        EXPECT_EQ(walk->links.next, nullptr);
        EXPECT_EQ(walk->links.previous, nullptr);
        EXPECT_EQ(MRT_RDX_WalkNext(walk), nullptr);
        MRT_RDX_DestroyWalk(walk);
    }
}

TEST_F(RadixWalk, NullWalksAreIgnored)
{
    EXPECT_EQ(MRT_RDX_WalkNext(nullptr), nullptr);
    MRT_RDX_SetWalkAll(nullptr);
    MRT_RDX_DestroyWalk(nullptr);
}

TEST_F(RadixWalk, IsNotMadeWhenMemoryIsShort)
{
    fault::FailAllocation(1);
    EXPECT_EQ(MRT_RDX_CreateWalk(f.tree, nullptr, 0, MRT_RDX_WALK_FORWARD), nullptr);
    fault::FailAllocation(0);
    EXPECT_EQ(f.tree->walks.next, &f.tree->walks);
}

} // namespace
