/* The index of a radix tree against the tree: every slot counted, every node found or known to be missing. */
#ifndef TESTS_PROPERTY_RADIX_INDEX_VALIDATE_H
#define TESTS_PROPERTY_RADIX_INDEX_VALIDATE_H

#include <gtest/gtest.h>

#include "container/radix_index.h"
#include "property/radix_model.h"

namespace radix_model
{

/* Slots stand without gaps from the start of their bucket, and a bucket with a deleted mark is full. */
inline void ValidateBuckets(mcast::radix::Index *index)
{
    uint32_t used = 0;
    uint32_t live = 0;

    for (uint32_t number = 0; number < index->buckets; ++number) {
        const uint64_t *bucket = index->Bucket(number);
        unsigned filled = 0;
        bool deleted = false;

        for (unsigned i = 0; i < mcast::radix::kSlotsPerBucket; ++i) {
            ASSERT_TRUE(bucket[i] == 0 || filled == i);
            filled += bucket[i] != 0;
            live += bucket[i] > mcast::radix::kDeleted;
            deleted = deleted || bucket[i] == mcast::radix::kDeleted;
        }
        ASSERT_TRUE(!deleted || filled == mcast::radix::kSlotsPerBucket);
        used += filled;
    }
    ASSERT_EQ(index->used, used);
    ASSERT_EQ(index->live, live);
}

inline void ValidateIndex(const MRT_RDX_TREE_S *tree, const Model &model)
{
    const auto *inner = mcast::radix::Inner(tree);
    uint32_t hosts = 0;
    uint32_t found = 0;
    uint32_t indexed = 0;

    for (const auto &[prefix, entry] : model.items) {
        hosts += prefix.length == tree->maximum_length;
    }
    ASSERT_EQ(inner->hosts, hosts);
    if (inner->index == nullptr) {
        return;
    }
    ValidateBuckets(inner->index);
    const Oracle oracle(tree);

    for (const auto &[prefix, entry] : model.items) {
        if (prefix.length > tree->maximum_length) {
            continue;
        }
        const MCAST_ADDR_S *record = oracle.RecordOf(entry);
        const auto length = prefix.length;
        const void *answer = mcast::radix::WithKeyType(tree, [=]<typename Key>(Key *) -> const void * {
            const auto asked = mcast::radix::AskIndex(tree, mcast::radix::LoadKey<Key>(tree, record), length);
            return asked.node == nullptr ? nullptr : asked.node->entry;
        });

        ++indexed;
        ASSERT_TRUE(answer == nullptr || answer == entry);
        found += answer != nullptr;
    }
    ASSERT_EQ(found, inner->index->live);
    ASSERT_EQ(indexed, found + inner->index->missing);
}

} // namespace radix_model

#endif
