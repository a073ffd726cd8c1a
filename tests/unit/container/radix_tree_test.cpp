/* The tree itself: records, adding, replacing, pruning, ending, memory that runs short. */
#include <gtest/gtest.h>

#include "container/radix_internal.h"
#include "radix_fixture.h"
#include "support/expected_leak.h"
#include "support/fault.h"

namespace
{

using radix_test::Entries;
using radix_test::Entry;
using radix_test::Fixture;

TEST(RadixTree, IsCreatedEmptyWithItsOffsets)
{
    MRT_RDX_TREE_S *tree = MRT_RDX_CreateTree(0x108, 0x110, 0x104, 0x120);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(tree->root, nullptr);
    EXPECT_EQ(tree->walks.next, &tree->walks);
    EXPECT_EQ(tree->walks.previous, &tree->walks);
    EXPECT_EQ(tree->maximum_length, 32);
    EXPECT_EQ(tree->address_offset, 4);
    EXPECT_EQ(tree->key_pointer_offset, 8);
    EXPECT_EQ(tree->length_offset, 16);
    EXPECT_EQ(tree->glue_count, 0u);
    EXPECT_EQ(tree->entry_count, 0u);
    MRT_RDX_DestroyTree(tree);
}

TEST(RadixTree, EmptyTreeAnswersNothing)
{
    Fixture f(32);
    EXPECT_EQ(f.Locate("10.0.0.1", 32), nullptr);
    EXPECT_EQ(f.Best("10.0.0.1", 32), nullptr);
    EXPECT_EQ(f.Next("10.0.0.1", 32), nullptr);
    EXPECT_EQ(f.SearchNext("10.0.0.1", 32), nullptr);
    EXPECT_EQ(MRT_RDX_GetNext(f.tree, nullptr, 0), nullptr);
    EXPECT_EQ(MRT_RDX_SearchNextBest(f.tree, nullptr, 0), nullptr);
    for (unsigned kind : {0u, 1u, 2u, 3u}) {
        EXPECT_EQ(MRT_RDX_CreateWalkNode(f.tree, nullptr, 0, kind), nullptr);
        EXPECT_EQ(MRT_RDX_CreateWalk(f.tree, nullptr, 0, kind), nullptr);
    }
}

TEST(RadixTree, NodeCarriesItsBitByteAndMask)
{
    Fixture f(32);
    Entry *entry = f.Make("10.1.0.0", 11);
    MRT_RDX_NODE_S *node = MRT_RDX_AddNode(f.tree, entry);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(f.tree->root, node);
    EXPECT_EQ(node->entry, entry);
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_EQ(node->bit, 11);
    EXPECT_EQ(node->byte_index, 1);
    EXPECT_EQ(node->bit_mask, 0x10);
    EXPECT_EQ(f.tree->entry_count, 1u);
}

TEST(RadixTree, JoinsTwoSubnetsByGlueUnderTheirCoveringPrefix)
{
    Fixture f(32);
    Entry *covering = f.Add("10.0.0.0", 8);
    Entry *high = f.Add("10.1.0.0", 16);
    Entry *low = f.Add("10.0.0.0", 16);
    EXPECT_EQ(f.All(), (Entries{covering, low, high}));
    EXPECT_EQ(f.tree->glue_count, 1u);
    EXPECT_EQ(f.tree->entry_count, 3u);
    const MRT_RDX_NODE_S *glue = f.tree->root->left;
    ASSERT_NE(glue, nullptr);
    EXPECT_EQ(glue->bit, 15);
    EXPECT_EQ(glue->entry, nullptr);
    EXPECT_EQ(glue->left->entry, low);
    EXPECT_EQ(glue->right->entry, high);
}

TEST(RadixTree, PutsACoveringPrefixAboveAnExistingSubtree)
{
    Fixture f(32);
    Entry *low = f.Add("10.0.0.0", 16);
    Entry *high = f.Add("10.128.0.0", 16);
    Entry *covering = f.Add("10.0.0.0", 7);
    Entry *everything = f.Add("0.0.0.0", 0);
    EXPECT_EQ(f.All(), (Entries{everything, covering, low, high}));
    EXPECT_EQ(f.tree->root->entry, everything);
    EXPECT_EQ(f.tree->glue_count, 1u);
}

TEST(RadixTree, GlueTakesAnEntryOfItsOwnPrefix)
{
    Fixture f(128);
    Entry *low = f.Add("2001:db8::", 48);
    Entry *high = f.Add("2001:db8:1::", 48);
    ASSERT_EQ(f.tree->glue_count, 1u);
    MRT_RDX_NODE_S *glue = f.tree->root;
    Entry *joined = f.Make("2001:db8::", 47);

    EXPECT_EQ(MRT_RDX_AddNode(f.tree, joined), glue);
    EXPECT_EQ(f.tree->glue_count, 0u);
    EXPECT_EQ(f.tree->entry_count, 3u);
    EXPECT_EQ(f.All(), (Entries{joined, low, high}));
    EXPECT_EQ(f.Locate("2001:db8::", 47), joined);
    EXPECT_EQ(f.Best("2001:db8:1:2::", 47), joined);
    EXPECT_EQ(f.Locate("2001:db9::", 47), nullptr);
}

TEST(RadixTree, ReplacesADuplicateSilently)
{
    Fixture f(32);
    Entry *first = f.Make("10.1.0.0", 16);
    MRT_RDX_NODE_S *node = MRT_RDX_AddNode(f.tree, first);
    Entry *other_bits = f.Make("10.1.2.3", 16);
    EXPECT_EQ(MRT_RDX_AddNode(f.tree, other_bits), node);
    EXPECT_EQ(f.tree->entry_count, 1u);
    EXPECT_EQ(f.tree->glue_count, 0u);
    EXPECT_EQ(f.All(), (Entries{other_bits}));
    EXPECT_EQ(f.Locate("10.1.0.0", 16), other_bits);
}

TEST(RadixTree, DeletingAnEntryWithTwoChildrenLeavesGlue)
{
    Fixture f(32);
    Entry *middle = f.Add("10.0.0.0", 8);
    Entry *low = f.Add("10.0.0.0", 16);
    Entry *high = f.Add("10.128.0.0", 16);

    ASSERT_EQ(f.tree->root->entry, middle);
    MRT_RDX_DeleteNode(f.tree, middle);

    EXPECT_EQ(f.tree->root->entry, nullptr);
    EXPECT_EQ(f.tree->root->bit, 8);
    EXPECT_EQ(f.tree->glue_count, 1u);
    EXPECT_EQ(f.tree->entry_count, 2u);
    EXPECT_EQ(f.All(), (Entries{low, high}));
}

TEST(RadixTree, DeletingAChildOfGlueReconnectsItsSiblingToTheGrandparent)
{
    Fixture f(32);
    Entry *covering = f.Add("10.0.0.0", 8);
    Entry *high = f.Add("10.1.0.0", 16);
    Entry *low = f.Add("10.0.0.0", 16);

    MRT_RDX_DeleteNode(f.tree, low);

    EXPECT_EQ(f.tree->glue_count, 0u);
    EXPECT_EQ(f.tree->root->entry, covering);
    EXPECT_EQ(f.tree->root->left->entry, high);
    EXPECT_EQ(f.tree->root->left->parent, f.tree->root);
    EXPECT_EQ(f.All(), (Entries{covering, high}));
}

TEST(RadixTree, IsEmptyAgainAfterItsLastEntryWent)
{
    Fixture f(32);
    Entry *low = f.Add("10.0.0.0", 16);
    Entry *high = f.Add("11.0.0.0", 16);

    MRT_RDX_DeleteNode(f.tree, low);
    MRT_RDX_DeleteNode(f.tree, high);

    EXPECT_EQ(f.tree->root, nullptr);
    EXPECT_EQ(f.tree->entry_count, 0u);
    EXPECT_EQ(f.tree->glue_count, 0u);
    EXPECT_EQ(f.All(), (Entries{}));
}

TEST(RadixTree, DeletingFromAnEmptyTreeDoesNothing)
{
    Fixture f(32);

    MRT_RDX_DeleteNode(f.tree, f.Make("10.0.0.0", 16));

    EXPECT_EQ(f.tree->entry_count, 0u);
    EXPECT_EQ(f.tree->glue_count, 0u);
}

/* A key record that ends right after the key: reading on is an error that the address sanitizer reports. */
TEST(RadixTree, NeverReadsAKeyBeyondTheMaximumLength)
{
    for (unsigned maximum : {8u, 13u, 32u, 64u, 128u, 255u}) {
        struct Short {
            const uint8_t *key;
            uint8_t length;
        };
        MRT_RDX_TREE_S *tree = MRT_RDX_CreateTree(offsetof(Short, key), offsetof(Short, length), 0, maximum);
        std::vector<std::unique_ptr<uint8_t[]>> keys;
        std::vector<Short> entries;

        for (unsigned i = 0; i < 8; ++i) {
            keys.push_back(std::make_unique<uint8_t[]>((maximum + 7) / 8));
            keys.back()[(maximum + 7) / 8 - 1] = static_cast<uint8_t>(i << 5);
            unsigned length = i < 4 ? maximum : 255 - i;
            entries.push_back({keys.back().get(), static_cast<uint8_t>(length)});
        }
        for (Short &entry : entries) {
            ASSERT_NE(MRT_RDX_AddNode(tree, &entry), nullptr);
        }
        for (const Short &entry : entries) {
            for (unsigned length : {0u, 1u, maximum, 254u, 255u}) {
                MRT_RDX_GetNext(tree, entry.key, length);
                MRT_RDX_LocateBest(tree, entry.key, length, nullptr, nullptr);
                for (unsigned kind : {0u, 1u, 2u}) {
                    MRT_RDX_DestroyWalk(MRT_RDX_CreateWalk(tree, entry.key, length, kind));
                }
            }
        }
        for (Short &entry : entries) {
            MRT_RDX_DeleteNode(tree, &entry);
        }
        EXPECT_EQ(tree->root, nullptr) << maximum;
        MRT_RDX_DestroyTree(tree);
    }
}

TEST(RadixTree, LengthsAboveTheMaximumExtendTheKeyByZeros)
{
    Fixture f(32);
    Entry *host = f.Add("10.0.0.1", 32);
    Entry *longer = f.Add("10.0.0.1", 40);
    Entry *longest = f.Add("10.0.0.1", 255);
    EXPECT_EQ(f.All(), (Entries{host, longer, longest}));
    EXPECT_EQ(f.Locate("10.0.0.1", 40), longer);
    EXPECT_EQ(f.Locate("10.0.0.1", 255), longest);
    EXPECT_EQ(f.Locate("10.0.0.1", 41), nullptr);
    EXPECT_EQ(f.Next("10.0.0.1", 0), longer);
    MRT_RDX_DeleteNode(f.tree, longer);
    EXPECT_EQ(f.All(), (Entries{host, longest}));
}

TEST(RadixTree, GivesBackAllItsMemory)
{
    long before = fault::LiveBlocks();

    for (unsigned round = 0; round < 3; ++round) {
        Fixture f(32);

        for (unsigned i = 0; i < 300; ++i) {
            f.Add(("10." + std::to_string(i % 256) + "." + std::to_string(i / 256) + ".0").c_str(), 24);
        }
        for (unsigned i = 0; i < 300; i += 2) {
            MRT_RDX_DeleteNode(f.tree, f.entries[i].get());
        }
    }
    EXPECT_EQ(fault::LiveBlocks(), before);
}

TEST(RadixTree, IsNotCreatedWhenMemoryIsShort)
{
    fault::FailAllocation(1);
    EXPECT_EQ(radix_test::NewTree(32), nullptr);
    fault::FailAllocation(0);
}

TEST(RadixTree, AddThatFailsAtItsFirstAllocationChangesNothing)
{
    Fixture f(32);

    fault::FailAllocation(1);
    EXPECT_EQ(MRT_RDX_AddNode(f.tree, f.Make("10.0.0.0", 16)), nullptr);
    fault::FailAllocation(0);
    EXPECT_EQ(f.tree->root, nullptr);
    EXPECT_EQ(f.tree->entry_count, 0u);

    Entry *first = f.Add("10.0.0.0", 16);
    for (const char *address : {"11.0.0.0", "10.0.1.0"}) {
        fault::FailAllocation(1);
        EXPECT_EQ(MRT_RDX_AddNode(f.tree, f.Make(address, 24)), nullptr);
        fault::FailAllocation(0);
        EXPECT_EQ(f.tree->entry_count, 1u);
        EXPECT_EQ(f.tree->glue_count, 0u);
        EXPECT_EQ(f.All(), (Entries{first}));
    }
}

TEST(RadixTree, AddThatFailsAtItsGlueKeepsTheCountsRaisedAndTheTreeUsable)
{
    Fixture f(32);
    Entry *first = f.Add("10.0.0.0", 16);
    Entry *second = f.Make("11.0.0.0", 16);
    long before = fault::LiveBlocks();

    fault::FailAllocation(2);
    {
        ExpectedLeak lost_node;
        EXPECT_EQ(MRT_RDX_AddNode(f.tree, second), nullptr);
    }
    EXPECT_TRUE(fault::Fired());
    fault::FailAllocation(0);

    EXPECT_EQ(f.tree->entry_count, 2u);
    EXPECT_EQ(f.tree->glue_count, 1u);
    EXPECT_EQ(fault::LiveBlocks(), before + 1);
    EXPECT_EQ(f.All(), (Entries{first}));

    EXPECT_NE(MRT_RDX_AddNode(f.tree, second), nullptr);
    EXPECT_EQ(f.All(), (Entries{first, second}));
    EXPECT_EQ(f.tree->entry_count, 3u);
    EXPECT_EQ(f.tree->glue_count, 2u);
}

} // namespace
