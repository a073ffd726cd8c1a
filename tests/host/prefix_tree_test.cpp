// Prefix trees against their definitions, applied to a list of all ranges.
#include "platform/prefix_tree.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace
{

struct Oracle {
    uint32_t bits;

    uint32_t length(const RDX_PREFIX_S &prefix) const
    {
        return std::min(prefix.length, bits);
    }
    static bool bit(const RDX_PREFIX_S &prefix, uint32_t i)
    {
        return (prefix.address[i / 8] & (0x80 >> i % 8)) != 0;
    }
    bool contains(const RDX_PREFIX_S &range, const RDX_PREFIX_S &prefix) const
    {
        for (uint32_t i = 0; i < length(range); ++i) {
            if (i >= length(prefix) || bit(range, i) != bit(prefix, i)) {
                return false;
            }
        }
        return true;
    }
    bool same(const RDX_PREFIX_S &first, const RDX_PREFIX_S &second) const
    {
        return contains(first, second) && contains(second, first);
    }
    // By address with the bits past the length cleared, then by length.
    bool before(const RDX_NODE_S *first, const RDX_NODE_S *second) const
    {
        for (uint32_t i = 0; i < bits; ++i) {
            bool a = i < length(first->prefix) && bit(first->prefix, i);
            bool b = i < length(second->prefix) && bit(second->prefix, i);
            if (a != b) {
                return b;
            }
        }
        return length(first->prefix) < length(second->prefix);
    }
};

// Few distinct bits, so that ranges nest, coincide and differ past their lengths.
RDX_PREFIX_S random_prefix(std::mt19937_64 &random, uint32_t bits)
{
    RDX_PREFIX_S prefix{};
    for (uint32_t i = 0; i < bits / 8; ++i) {
        prefix.address[i] = static_cast<uint8_t>(random() % 2 == 0 ? 0 : 1u << random() % 8);
    }
    prefix.length = static_cast<uint32_t>(random() % (random() % 3 == 0 ? bits + 9 : 18));
    return prefix;
}

class PrefixTree : public testing::TestWithParam<int>
{
};

TEST_P(PrefixTree, AgreesWithItsDefinitionsUnderRandomOperations)
{
    const char *given = getenv("MCAST_TEST_SEED");
    const uint64_t start = given != nullptr ? strtoull(given, nullptr, 0) : std::random_device{}();
    SCOPED_TRACE("MCAST_TEST_SEED=" + std::to_string(start));
    std::mt19937_64 random(start);
    const RDX_AFI_CB_S &operations = g_astRdxAFICBArray[GetParam()];
    const Oracle oracle{GetParam() == RDX_AFI_IPV4 ? 32u : 128u};
    std::vector<RDX_NODE_S> records(200);
    std::vector<RDX_NODE_S *> present;
    RDX_TREE_S tree{};
    for (int step = 0; step < 20000; ++step) {
        RDX_NODE_S *record = &records[random() % records.size()];
        auto linked = std::find(present.begin(), present.end(), record);
        if (linked != present.end()) {
            operations.remove(&tree, record);
            present.erase(linked);
        } else {
            memset(record, 0xa5, sizeof(*record));
            record->prefix = random_prefix(random, oracle.bits);
            bool equal = std::any_of(present.begin(), present.end(), [&](RDX_NODE_S *each) {
                return oracle.same(each->prefix, record->prefix);
            });
            ASSERT_EQ(operations.insert(&tree, record), equal ? RDX_ERR_PRESENT : 0);
            if (!equal) {
                present.push_back(record);
            }
        }
        ASSERT_EQ(operations.count(&tree), present.size());

        RDX_PREFIX_S asked = random_prefix(random, oracle.bits);
        RDX_NODE_S *longest = nullptr;
        std::vector<RDX_NODE_S *> within;
        for (RDX_NODE_S *each : present) {
            if (oracle.contains(each->prefix, asked) &&
                (longest == nullptr || oracle.length(each->prefix) > oracle.length(longest->prefix))) {
                longest = each;
            }
            if (oracle.contains(asked, each->prefix)) {
                within.push_back(each);
            }
        }
        ASSERT_EQ(operations.search(&tree, &asked), longest);
        std::vector<RDX_NODE_S *> collected;
        for (RDX_NODE_S *each = operations.collect(&tree, &asked); each != nullptr; each = each->collected) {
            collected.push_back(each);
        }
        std::sort(within.begin(), within.end());
        std::sort(collected.begin(), collected.end());
        ASSERT_EQ(collected, within);

        if (step % 50 == 0) {
            std::vector<RDX_NODE_S *> walked;
            for (RDX_NODE_S *each = operations.first(&tree); each != nullptr;
                 each = operations.next(&tree, each)) {
                walked.push_back(each);
            }
            std::sort(present.begin(), present.end(),
                      [&](RDX_NODE_S *a, RDX_NODE_S *b) { return oracle.before(a, b); });
            ASSERT_EQ(walked, present);
        }
    }
    operations.destroy(&tree, nullptr);
    EXPECT_EQ(operations.first(&tree), nullptr);
}

TEST_P(PrefixTree, CollectedRecordsMayBeRemovedInTurn)
{
    const RDX_AFI_CB_S &operations = g_astRdxAFICBArray[GetParam()];
    RDX_TREE_S tree{};
    RDX_NODE_S records[64] = {};
    for (uint32_t i = 0; i < 64; ++i) {
        records[i].prefix.address[0] = static_cast<uint8_t>(i << 2);
        records[i].prefix.length = 6;
        ASSERT_EQ(operations.insert(&tree, &records[i]), 0u);
    }
    RDX_PREFIX_S half{};
    half.length = 1;
    for (RDX_NODE_S *each = operations.collect(&tree, &half); each != nullptr; each = each->collected) {
        operations.remove(&tree, each);
    }
    EXPECT_EQ(operations.count(&tree), 32u);
    EXPECT_EQ(operations.first(&tree), &records[32]);
    EXPECT_EQ(operations.collect(&tree, &half), nullptr);
    operations.destroy(&tree, nullptr);
}

int g_released;

void release(RDX_NODE_S *node)
{
    ++g_released;
    memset(node, 0xdd, sizeof(*node));
}

TEST_P(PrefixTree, DestroyReleasesEveryRecordOnceAndLeavesTheTreeUsable)
{
    const RDX_AFI_CB_S &operations = g_astRdxAFICBArray[GetParam()];
    RDX_TREE_S tree{};
    g_released = 0;
    operations.destroy(&tree, release);
    EXPECT_EQ(g_released, 0);
    std::vector<RDX_NODE_S> records(1000);
    for (uint32_t i = 0; i < records.size(); ++i) {
        records[i].prefix.address[1] = static_cast<uint8_t>(i >> 8);
        records[i].prefix.address[2] = static_cast<uint8_t>(i);
        records[i].prefix.length = 24;
        ASSERT_EQ(operations.insert(&tree, &records[i]), 0u);
    }
    operations.destroy(&tree, release);
    EXPECT_EQ(g_released, 1000);
    EXPECT_EQ(operations.count(&tree), 0u);
    RDX_NODE_S one{};
    EXPECT_EQ(operations.insert(&tree, &one), 0u);
    RDX_PREFIX_S any{};
    any.length = 32;
    EXPECT_EQ(operations.search(&tree, &any), &one); // the range of length 0 contains everything
    operations.destroy(&tree, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Families, PrefixTree, testing::Values(RDX_AFI_IPV4, RDX_AFI_IPV6));

} // namespace
