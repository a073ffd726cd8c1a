/* Exact lookup, best match and the two successors of the radix tree. */
#include <gtest/gtest.h>

#include "radix_fixture.h"

namespace
{

using radix_test::Address;
using radix_test::Entries;
using radix_test::Entry;
using radix_test::Fixture;

/* Accepts nothing but the entry passed as argument. */
MCAST_BOOL AcceptsOnly(void *entry, void *argument)
{
    return entry == argument ? MCAST_TRUE : MCAST_FALSE;
}

TEST(RadixLocate, FindsOnlyTheExactLength)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    Entry *host = f.Add("10.1.1.1", 32);
    EXPECT_EQ(f.Locate("10.0.0.0", 8), wide);
    EXPECT_EQ(f.Locate("10.1.1.1", 32), host);
    EXPECT_EQ(f.Locate("10.0.0.0", 9), nullptr);
    EXPECT_EQ(f.Locate("10.0.0.0", 7), nullptr);
    EXPECT_EQ(f.Locate("10.1.1.1", 31), nullptr);
    EXPECT_EQ(f.Locate("10.1.1.0", 32), nullptr);
    EXPECT_EQ(f.Locate("11.0.0.0", 8), nullptr);
}

TEST(RadixLocate, IgnoresTheBitsOfKeyAndEntryBeyondTheLength)
{
    Fixture f(32);
    Entry *unmasked = f.Add("10.1.2.3", 16);
    EXPECT_EQ(f.Locate("10.1.255.255", 16), unmasked);
    EXPECT_EQ(f.Locate("10.2.2.3", 16), nullptr);
}

TEST(RadixLocate, TakesTheLowEightBitsOfTheLength)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    EXPECT_EQ(f.Locate("10.0.0.0", 0x108), wide);
    EXPECT_EQ(f.Best("10.0.0.1", 0x120), wide);
    EXPECT_EQ(f.Next("9.0.0.0", 0x120), wide);
    EXPECT_EQ(f.SearchNext("9.0.0.0", 0x120), wide);
}

TEST(RadixLocate, LengthZeroMatchesAnyKey)
{
    Fixture f(32);
    Entry *everything = f.Add("0.0.0.0", 0);
    f.Add("10.0.0.0", 8);
    EXPECT_EQ(f.Locate("192.168.1.1", 0), everything);
}

TEST(RadixLocate, LengthAboveTheMaximumComparesNothing)
{
    Fixture f(32);
    Entry *entry = f.Add("10.0.0.1", 40);
    /* The descent ends at the only node, and the mask of length 40 keeps no bit of an IPv4 address. */
    EXPECT_EQ(f.Locate("172.16.0.1", 40), entry);
    EXPECT_EQ(f.Locate("172.16.0.1", 41), nullptr);
}

TEST(RadixLocate, GivesNothingForNullArguments)
{
    Fixture f(32);
    MCAST_ADDR_S key = Address("10.0.0.0");
    f.Add("10.0.0.0", 8);
    EXPECT_EQ(MRT_RDX_Locate(nullptr, &key, 8), nullptr);
    EXPECT_EQ(MRT_RDX_Locate(f.tree, nullptr, 8), nullptr);
}

TEST(RadixLocate, ComparesTheLastBitOfAnIpv6Host)
{
    Fixture f(128);
    Entry *one = f.Add("2001:db8::1", 128);
    Entry *zero = f.Add("2001:db8::", 128);
    EXPECT_EQ(f.Locate("2001:db8::1", 128), one);
    EXPECT_EQ(f.Locate("2001:db8::", 128), zero);
    EXPECT_EQ(f.Locate("2001:db8:0:1::", 64), nullptr);
}

TEST(RadixBestMatch, FindsTheLongestCoverWithinTheLength)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    Entry *narrow = f.Add("10.1.0.0", 16);
    Entry *host = f.Add("10.1.1.1", 32);
    EXPECT_EQ(f.Best("10.1.1.1", 32), host);
    EXPECT_EQ(f.Best("10.1.1.1", 31), narrow);
    EXPECT_EQ(f.Best("10.1.1.2", 32), narrow);
    EXPECT_EQ(f.Best("10.2.0.0", 32), wide);
    EXPECT_EQ(f.Best("10.1.1.1", 15), wide);
    EXPECT_EQ(f.Best("10.1.1.1", 7), nullptr);
    EXPECT_EQ(f.Best("11.0.0.0", 32), nullptr);
}

TEST(RadixBestMatch, ClimbsPastDescendantsThatOnlyShareAShorterPrefix)
{
    Fixture f(128);
    Entry *wide = f.Add("2001:db8::", 32);
    f.Add("2001:db8:0:1::", 64);
    f.Add("2001:db8:0:2::", 64);
    EXPECT_EQ(f.Best("2001:db8:0:3::1", 128), wide);
}

TEST(RadixBestMatch, OffersTheParentWhenTheFilterRejects)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    f.Add("10.1.0.0", 16);
    EXPECT_EQ(f.Best("10.1.1.1", 32, AcceptsOnly, wide), wide);
    EXPECT_EQ(f.Best("10.1.1.1", 32, AcceptsOnly, nullptr), nullptr);
}

TEST(RadixBestMatch, StopsAtFirstGlueNodeWhenFilterRejects)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    f.Add("10.1.0.0", 16);
    f.Add("10.0.0.0", 16);
    ASSERT_EQ(f.tree->glue_count, 1u);
    EXPECT_EQ(f.Best("10.1.1.1", 32, AcceptsOnly, wide), nullptr);
}

MCAST_BOOL AcceptsInLowBits(void *, void *)
{
    return 0xabcd0001u;
}

MCAST_BOOL RejectsInLowBits(void *, void *)
{
    return 0x10000u;
}

TEST(RadixBestMatch, ReadsOnlyTheLowSixteenBitsOfTheFiltersAnswer)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    EXPECT_EQ(f.Best("10.1.1.1", 32, AcceptsInLowBits), wide);
    EXPECT_EQ(f.Best("10.1.1.1", 32, RejectsInLowBits), nullptr);
}

TEST(RadixGetNext, FollowsTreeOrderFromEntryToEntry)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    Entry *high = f.Add("10.1.0.0", 16);
    Entry *low = f.Add("10.0.0.0", 16);
    Entry *host = f.Add("10.0.0.0", 32);
    EXPECT_EQ(MRT_RDX_GetNext(f.tree, nullptr, 16), wide);
    EXPECT_EQ(f.Next("10.0.0.0", 8), low);
    EXPECT_EQ(f.Next("10.0.0.0", 16), host);
    EXPECT_EQ(f.Next("10.0.0.0", 32), high);
    EXPECT_EQ(f.Next("10.1.0.0", 16), nullptr);
}

TEST(RadixGetNext, ReadsLengthZeroAsTheMaximum)
{
    Fixture f(32);
    Entry *host = f.Add("10.0.0.1", 32);
    f.Add("10.0.0.0", 24);
    EXPECT_EQ(f.Next("10.0.0.0", 0), host);
    EXPECT_EQ(f.Next("10.0.0.1", 0), nullptr);
}

TEST(RadixGetNext, FindsThePlaceOfAnAbsentKeyBeforeAmongAndAfter)
{
    Fixture f(32);
    Entry *first = f.Add("10.0.0.0", 16);
    Entry *second = f.Add("10.4.0.0", 16);
    EXPECT_EQ(f.Next("9.0.0.0", 32), first);
    EXPECT_EQ(f.Next("10.1.0.0", 16), second);
    EXPECT_EQ(f.Next("10.0.9.9", 32), second);
    EXPECT_EQ(f.Next("10.5.0.0", 16), nullptr);
    EXPECT_EQ(f.Next("10.0.0.0", 12), first);
}

TEST(RadixGetNext, TakesTheOnlySubtreeOfACoverEvenOnTheOtherSide)
{
    Fixture f(32);
    Entry *low = f.Add("10.0.0.0", 16);
    f.Add("10.0.0.0", 8);
    EXPECT_EQ(f.Next("10.128.0.0", 16), low);
    EXPECT_EQ(f.SearchNext("10.128.0.0", 16), nullptr);
}

TEST(RadixSearchNextBest, FollowsAPresentPrefixInTreeOrder)
{
    Fixture f(32);
    Entry *wide = f.Add("10.0.0.0", 8);
    Entry *low = f.Add("10.0.0.0", 16);
    Entry *high = f.Add("10.1.0.0", 16);
    EXPECT_EQ(MRT_RDX_SearchNextBest(f.tree, nullptr, 0), wide);
    EXPECT_EQ(f.SearchNext("10.0.0.0", 8), low);
    EXPECT_EQ(f.SearchNext("10.99.99.99", 8), low);
    EXPECT_EQ(f.SearchNext("10.0.0.0", 16), high);
    EXPECT_EQ(f.SearchNext("10.1.0.0", 16), nullptr);
    EXPECT_EQ(MRT_RDX_SearchNextBest(nullptr, nullptr, 0), nullptr);
}

TEST(RadixSearchNextBest, ComparesUnmaskedAddressesWhenThePrefixIsAbsent)
{
    Fixture f(32);
    Entry *unmasked = f.Add("10.200.0.0", 8);
    Entry *low = f.Add("10.1.0.0", 16);
    /* The short prefix comes first in tree order, and its own bits beyond its length put it after the key. */
    EXPECT_EQ(f.SearchNext("10.0.5.0", 24), unmasked);
    EXPECT_EQ(f.SearchNext("10.1.0.0", 15), unmasked);
    EXPECT_EQ(f.SearchNext("10.200.0.0", 7), unmasked);
    EXPECT_EQ(f.SearchNext("10.200.0.0", 9), nullptr);
    EXPECT_EQ(f.SearchNext("9.0.0.0", 8), unmasked);
    MRT_RDX_DeleteNode(f.tree, unmasked);
    EXPECT_EQ(f.SearchNext("10.0.5.0", 24), low);
    EXPECT_EQ(f.SearchNext("10.1.0.0", 15), low);
    EXPECT_EQ(f.SearchNext("10.1.0.0", 17), nullptr);
}

TEST(RadixSearchNextBest, StartsAtTheFirstEntryBelowAGlueRoot)
{
    Fixture f(128);
    Entry *low = f.Add("2001:db8::", 32);
    Entry *high = f.Add("3001:db8::", 32);
    ASSERT_EQ(f.tree->root->entry, nullptr);
    EXPECT_EQ(MRT_RDX_SearchNextBest(f.tree, nullptr, 0), low);
    EXPECT_EQ(MRT_RDX_GetNext(f.tree, nullptr, 0), low);
    EXPECT_EQ(f.SearchNext("2fff::", 16), high);
}

} // namespace
