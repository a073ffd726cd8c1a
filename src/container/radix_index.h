/*
 * The index of a radix tree: a hash table from (masked key, length) to the node that holds it, kept beside
 * larger trees so that an exact hit costs two cache lines instead of a descent.
 *
 *   Index | bucket 0 | bucket 1 | ...      one block of memory, everything aligned to cache lines
 *
 *   slot    63         62          48 47                       0
 *         | displaced | tag         | address of the node      |      8 to a bucket; 0 empty, 1 deleted
 *
 * An item stands in its home bucket, or displaced in a second one a few buckets on, when home was full. When
 * both are full, an item in either that has room in its own other bucket makes place. So a search looks at
 * one bucket or at most two; used slots of a bucket come first, and one with an empty slot has displaced
 * nothing: deleting from a full bucket leaves a mark, deleting from any other closes the gap.
 *
 * A hash is a position along the buckets, of which the home bucket is the whole part and the tag the first
 * bits behind the point. When the number of buckets doubles, the first tag bit moves before the point: the
 * table grows by reading its slots alone, in order, and loses one bit of every tag; keys are read again only
 * when too few are left.
 *
 * Nodes that found no place (no memory to grow, an unlucky or hostile set of keys) are only counted as
 * missing; while there are any, a search that fails proves nothing and the caller descends. So the index
 * never decides an answer otherwise than the tree would, it only finds it. What makes that true: among nodes
 * of a length up to the key size there is one node for each masked key, and a descent by a key ends at the
 * node of its prefix when there is one.
 */
#ifndef SRC_CONTAINER_RADIX_INDEX_H
#define SRC_CONTAINER_RADIX_INDEX_H

#include "container/radix_internal.h"

namespace mcast::radix
{

inline constexpr unsigned kSlotsPerBucket = 8;
inline constexpr unsigned kFirstBuckets = 48;
inline constexpr unsigned kTagShift = 48;
inline constexpr unsigned kTagBits = 15;
inline constexpr unsigned kFewestTagBits = 6; /* these decide the second bucket, so they are never lost */
inline constexpr uint64_t kDisplaced = uint64_t{1} << 63;
inline constexpr uint64_t kDeleted = 1;

struct alignas(64) Index {
    void *block;       /* what malloc gave */
    uint64_t salt;     /* part of the hash; differs from tree to tree */
    uint64_t compared; /* the bits of a slot that a search compares: displaced, what is left of the tag */
    uint32_t buckets;  /* kFirstBuckets << doublings */
    uint32_t used;     /* slots that are not empty */
    uint32_t live;     /* slots that hold a node */
    uint32_t missing;  /* nodes that belong here and have no slot */
    uint8_t doublings;
    uint8_t tag_bits;

    uint64_t *Bucket(uint32_t number)
    {
        return reinterpret_cast<uint64_t *>(this + 1) + size_t{number} * kSlotsPerBucket;
    }
};

inline uint64_t Mix(uint64_t word)
{
    word *= 0x9e3779b97f4a7c15u;
    return word ^ (word >> 32);
}

inline uint64_t Hash(uint64_t salt, const Key32 &key, unsigned length)
{
    const uint64_t word = length == 0 ? 0 : key.word >> (32 - length);
    return Mix(Mix(word << 8 | length) + salt) * 0xd6e8feb86659fd93u;
}

inline uint64_t Hash(uint64_t salt, const Key128 &key, unsigned length)
{
    uint64_t high = key.high;
    uint64_t low = key.low;
    if (length <= 64) {
        high = length == 0 ? 0 : high >> (64 - length);
        low = 0;
    } else {
        low >>= 128 - length;
    }
    return Mix(Mix(Mix(high + length) + low) + salt) * 0xd6e8feb86659fd93u;
}

/* Trees of other key sizes have no index. */
inline uint64_t Hash(uint64_t, const KeyAny &, unsigned)
{
    return 0;
}

/* Where a hash falls: bucket and tag, the latter in its place in a slot. */
struct Place {
    uint32_t home;
    uint64_t tag;
};

inline Place PlaceOf(const Index *index, uint64_t hash)
{
    constexpr unsigned kPoint = 58; /* kFirstBuckets needs the 6 bits above */
    const uint64_t position = (hash >> (64 - kPoint)) * kFirstBuckets;
    const unsigned point = kPoint - index->doublings;
    const uint64_t tag = position >> (point - kTagBits) & ((1u << kTagBits) - 1);
    return {static_cast<uint32_t>(position >> point), tag << kTagShift};
}

/* How far behind its home the second bucket of an item lies, by its slot or tag. */
inline uint32_t Distance(uint64_t slot)
{
    return 1 + static_cast<uint32_t>(slot >> (kTagShift + kTagBits - kFewestTagBits) &
                                     ((1u << kFewestTagBits) - 1));
}

inline uint32_t SecondBucket(const Index *index, uint32_t home, uint64_t slot)
{
    const uint32_t number = home + Distance(slot);
    return number < index->buckets ? number : (number - index->buckets) % index->buckets;
}

inline uint32_t HomeOfDisplaced(const Index *index, uint32_t number, uint64_t slot)
{
    const uint32_t distance = Distance(slot) % index->buckets;
    return number >= distance ? number - distance : number + index->buckets - distance;
}

inline Node *NodeOf(uint64_t slot)
{
    return reinterpret_cast<Node *>(slot & ((uint64_t{1} << kTagShift) - 1));
}

/* The slot of a bucket that holds the key's node and has the displaced mark and the tag that are wanted. */
template <typename Key>
inline uint64_t *SearchBucket(const MRT_RDX_TREE_S *tree, uint64_t compared, uint64_t *bucket,
                              uint64_t wanted, const Key &key, unsigned length)
{
    for (uint64_t *slot = bucket; slot != bucket + kSlotsPerBucket; ++slot) {
        if (((*slot ^ wanted) & compared) != 0 || *slot <= kDeleted) {
            continue;
        }
        const Node *node = NodeOf(*slot);

        if (node->bit == length && key.CommonBits(NodeKey<Key>(tree, node)) >= length) {
            return slot;
        }
    }
    return nullptr;
}

/* The slot of the node for the key's prefix, or NULL. */
template <typename Key>
inline uint64_t *FindSlot(const MRT_RDX_TREE_S *tree, Index *index, const Key &key, unsigned length)
{
    const Place place = PlaceOf(index, Hash(index->salt, key, length));
    uint64_t *bucket = index->Bucket(place.home);
    uint64_t *slot = SearchBucket(tree, index->compared, bucket, place.tag, key, length);
    if (slot != nullptr || bucket[kSlotsPerBucket - 1] == 0) {
        return slot;
    }
    bucket = index->Bucket(SecondBucket(index, place.home, place.tag));
    return SearchBucket(tree, index->compared, bucket, kDisplaced | place.tag, key, length);
}

/* Whether nodes of a length have a place in the index; longer ones may share a masked key. */
inline bool IsIndexed(const MRT_RDX_TREE_S *tree, unsigned length)
{
    return length <= tree->maximum_length;
}

/* Starts fetching the home bucket of a prefix that is about to be added. */
template <typename Key> inline void FetchHome(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    Index *index = Inner(tree)->index;
    if (index != nullptr && IsIndexed(tree, length)) {
        __builtin_prefetch(index->Bucket(PlaceOf(index, Hash(index->salt, key, length)).home), 1);
    }
}

/* What the index says about a prefix. */
struct IndexAnswer {
    Node *node;   /* NULL: not found */
    bool decided; /* false: not found and perhaps there all the same */
};

template <typename Key>
inline IndexAnswer AskIndex(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    Index *index = Inner(tree)->index;

    if (index == nullptr || !IsIndexed(tree, length)) {
        return {nullptr, false};
    }
    const uint64_t *slot = FindSlot(tree, index, key, length);

    return slot != nullptr ? IndexAnswer{NodeOf(*slot), true} : IndexAnswer{nullptr, index->missing == 0};
}

/*
 * After node has become the node of an entry: gives it a slot when the tree is of a size to have an index.
 * Never fails; short memory leaves the node without.
 */
void IndexAdd(Tree *tree, const Node *node);

/*
 * After the node of a length, which stands in slot (NULL: nowhere), has lost its entry and its place in the
 * tree; the node itself is not looked at.
 */
void IndexRemove(Tree *tree, unsigned length, uint64_t *slot);

/* Gives the index up; the tree then works by descent alone. */
void IndexDrop(Tree *tree);

} // namespace mcast::radix

#endif
