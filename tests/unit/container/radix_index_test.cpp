/* The index beside large trees: when it comes and goes, and that it never changes an answer. */
#include "container/radix_index.h"

#include <gtest/gtest.h>

#include "radix_fixture.h"
#include "support/fault.h"

namespace
{

using mcast::radix::Inner;
using radix_test::Address;
using radix_test::Entry;
using radix_test::Fixture;

class RadixIndex : public testing::Test
{
protected:
    static std::string Host(unsigned number)
    {
        return "10." + std::to_string(number >> 16) + "." + std::to_string(number >> 8 & 255) + "." +
               std::to_string(number & 255);
    }

    void AddHosts(unsigned from, unsigned until)
    {
        for (unsigned i = from; i < until; ++i) {
            hosts.push_back(f.Add(Host(i).c_str(), 32));
        }
    }

    void ExpectAllFound() const
    {
        for (unsigned i = 0; i < hosts.size(); ++i) {
            ASSERT_EQ(f.Locate(Host(i).c_str(), 32), hosts[i]) << i;
            ASSERT_EQ(f.Best(Host(i).c_str(), 32), hosts[i]) << i;
            ASSERT_EQ(f.Locate(("11" + Host(i).substr(2)).c_str(), 32), nullptr) << i;
            ASSERT_EQ(f.Next(Host(i).c_str(), 32), i + 1 < hosts.size() ? hosts[i + 1] : nullptr) << i;
        }
    }

    Fixture f{32};
    std::vector<Entry *> hosts;
};

TEST_F(RadixIndex, ComesWithTheTwoHundredFiftySixthEntryAndGoesBelowHalfOfThat)
{
    AddHosts(0, 255);
    EXPECT_EQ(Inner(f.tree)->index, nullptr);
    AddHosts(255, 256);
    ASSERT_NE(Inner(f.tree)->index, nullptr);
    EXPECT_EQ(Inner(f.tree)->index->live, 256u);
    ExpectAllFound();
    while (f.tree->entry_count > 128) {
        MRT_RDX_DeleteNode(f.tree, hosts.back());
        hosts.pop_back();
    }
    EXPECT_NE(Inner(f.tree)->index, nullptr);
    ExpectAllFound();
    MRT_RDX_DeleteNode(f.tree, hosts.back());
    hosts.pop_back();
    EXPECT_EQ(Inner(f.tree)->index, nullptr);
    ExpectAllFound();
}

TEST_F(RadixIndex, GrowsAndShrinksWithTheTree)
{
    AddHosts(0, 40000);
    const uint32_t largest = Inner(f.tree)->index->buckets;

    EXPECT_LE(Inner(f.tree)->index->missing, 2u);
    EXPECT_GT(largest * 8, 40000u);
    EXPECT_LT(largest * 8, 100000u);
    ExpectAllFound();
    while (hosts.size() > 1000) {
        MRT_RDX_DeleteNode(f.tree, hosts.back());
        hosts.pop_back();
    }
    EXPECT_LT(Inner(f.tree)->index->buckets, largest / 4);
    EXPECT_EQ(Inner(f.tree)->index->missing, 0u);
    ExpectAllFound();
}

/* A further host takes a node and a glue node; the third block is the index's. */
TEST_F(RadixIndex, StaysRightWhenItCannotBeMade)
{
    AddHosts(0, 255);
    for (unsigned i = 255; i < 300; ++i) {
        fault::FailAllocation(3);
        AddHosts(i, i + 1);
        EXPECT_TRUE(fault::Fired());
        fault::FailAllocation(0);
        EXPECT_EQ(Inner(f.tree)->index, nullptr);
    }
    ExpectAllFound();
    AddHosts(300, 301);
    ASSERT_NE(Inner(f.tree)->index, nullptr);
    EXPECT_EQ(Inner(f.tree)->index->live, 301u);
}

TEST_F(RadixIndex, StaysRightWhenItCannotGrowAndCatchesUpWhenItCan)
{
    AddHosts(0, 256);
    const mcast::radix::Index *first = Inner(f.tree)->index;

    for (unsigned i = 256; i < 1500; ++i) {
        fault::FailAllocation(3);
        AddHosts(i, i + 1);
        fault::FailAllocation(0);
        ASSERT_EQ(Inner(f.tree)->index, first);
    }
    EXPECT_GT(first->missing, 500u);
    EXPECT_EQ(first->live + first->missing, 1500u);
    ExpectAllFound();
    AddHosts(1500, 1501);
    EXPECT_NE(Inner(f.tree)->index, first);
    EXPECT_EQ(Inner(f.tree)->index->missing, 0u);
    EXPECT_EQ(Inner(f.tree)->index->live, 1501u);
    ExpectAllFound();
}

TEST_F(RadixIndex, AnswersByDescentForWhatFoundNoPlace)
{
    AddHosts(0, 2000);
    mcast::radix::Index *index = Inner(f.tree)->index;
    uint32_t lost = 0;

    /* Every second slot as if it had never found a place. */
    for (uint32_t number = 0; number < index->buckets; ++number) {
        uint64_t *bucket = index->Bucket(number);
        for (unsigned i = 0; i < mcast::radix::kSlotsPerBucket && bucket[i] != 0; i += 2) {
            lost += bucket[i] > mcast::radix::kDeleted;
            bucket[i] = mcast::radix::kDeleted;
        }
    }
    index->live -= lost;
    index->missing += lost;
    ASSERT_GT(lost, 500u);
    ExpectAllFound();
    for (unsigned i = 0; i < 1500; ++i) {
        MRT_RDX_DeleteNode(f.tree, hosts.back());
        hosts.pop_back();
        ASSERT_EQ(Inner(f.tree)->index->live + Inner(f.tree)->index->missing, hosts.size());
    }
    ExpectAllFound();
}

TEST_F(RadixIndex, GoesForGoodWhenAKeyOfTheOtherFamilyIsAdded)
{
    AddHosts(0, 300);
    ASSERT_NE(Inner(f.tree)->index, nullptr);
    f.Add("2001:db8::1", 32);
    EXPECT_EQ(Inner(f.tree)->index, nullptr);
    EXPECT_EQ(f.Locate("2001:db8::1", 32), f.entries.back().get());
    AddHosts(300, 600);
    EXPECT_EQ(Inner(f.tree)->index, nullptr);
    EXPECT_EQ(f.Locate("10.0.1.1", 32), hosts[257]);
}

TEST_F(RadixIndex, LeavesLengthsAboveTheMaximumToTheDescent)
{
    AddHosts(0, 300);
    Entry *longer = f.Add("10.0.0.7", 40);

    EXPECT_EQ(Inner(f.tree)->index->live, 300u);
    EXPECT_EQ(f.Locate("10.0.0.7", 40), longer);
    /* The mask of length 40 keeps no bit, so what the descent ends at is what is found. */
    EXPECT_EQ(f.Locate("10.0.0.7", 41), nullptr);
    MRT_RDX_DeleteNode(f.tree, longer);
    EXPECT_EQ(Inner(f.tree)->index->missing, 0u);
    ExpectAllFound();
}

TEST_F(RadixIndex, FindsAnEntryThatReplacedADuplicate)
{
    AddHosts(0, 300);
    Entry *again = f.Add("10.0.0.9", 32);

    EXPECT_EQ(Inner(f.tree)->index->live, 300u);
    EXPECT_EQ(f.Locate("10.0.0.9", 32), again);
    hosts[9] = again;
    ExpectAllFound();
}

} // namespace
