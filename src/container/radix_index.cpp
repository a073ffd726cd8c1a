/* Building, growing and shrinking the index of a radix tree; radix_index.h says what it is. */
#include "container/radix_index.h"

#include <stdlib.h>

namespace mcast::radix
{
namespace
{

/*
 * Below the first number of entries a descent is as fast; the gap to the second keeps it from coming and
 * going.
 */
constexpr uint32_t kIndexFrom = 256;
constexpr uint32_t kIndexUntil = 128;

/* Nodes whose keys are fetched ahead while a table is rebuilt. */
constexpr unsigned kAhead = 16;

uint64_t HashOf(const Tree *tree, const Index *index, const Node *node)
{
    return WithKeyType(&tree->shared, [=]<typename Key>(Key *) {
        return Hash(index->salt, NodeKey<Key>(&tree->shared, node), node->bit);
    });
}

/* Slots that may be used before the table grows: 13 of 16. */
uint32_t Limit(const Index *index)
{
    return index->buckets / 2 * 13;
}

/* An empty index, or NULL. */
Index *NewIndex(const Tree *tree, unsigned doublings, uint64_t salt)
{
    const size_t buckets = size_t{kFirstBuckets} << doublings;
    const size_t size = sizeof(Index) + buckets * kSlotsPerBucket * sizeof(uint64_t);
    void *block = buckets > UINT32_MAX / kSlotsPerBucket ? nullptr : calloc(1, size + alignof(Index));

    if (block == nullptr) {
        return nullptr;
    }
    const auto first = reinterpret_cast<uintptr_t>(block);
    auto *index = reinterpret_cast<Index *>((first + alignof(Index) - 1) & ~(alignof(Index) - 1));

    index->block = block;
    index->salt = salt != 0 ? salt : Mix(reinterpret_cast<uintptr_t>(tree)) ^ first;
    index->compared = ~uint64_t{0} << kTagShift;
    index->buckets = static_cast<uint32_t>(buckets);
    index->doublings = static_cast<uint8_t>(doublings);
    index->tag_bits = kTagBits;
    return index;
}

/* The first slot of a bucket that is empty or deleted, or NULL. */
uint64_t *FreeSlot(Index *index, uint32_t number)
{
    uint64_t *bucket = index->Bucket(number);
    for (uint64_t *slot = bucket; slot != bucket + kSlotsPerBucket; ++slot) {
        if (*slot <= kDeleted) {
            return slot;
        }
    }
    return nullptr;
}

void Fill(Index *index, uint64_t *slot, uint64_t content)
{
    index->used += *slot == 0;
    ++index->live;
    *slot = content;
}

/* Frees a slot of a full bucket by moving an item to its other bucket; NULL when none can move. */
uint64_t *MakeRoom(Index *index, uint32_t number)
{
    uint64_t *bucket = index->Bucket(number);

    for (uint64_t *slot = bucket; slot != bucket + kSlotsPerBucket; ++slot) {
        const bool displaced = (*slot & kDisplaced) != 0;
        uint64_t *other = FreeSlot(index, displaced ? HomeOfDisplaced(index, number, *slot)
                                                    : SecondBucket(index, number, *slot));

        if (other != nullptr) {
            Fill(index, other, *slot ^ kDisplaced);
            --index->live;
            *slot = kDeleted;
            return slot;
        }
    }
    return nullptr;
}

/* Gives the node a slot; counts it as missing when there is none. */
void Put(Index *index, const Place &place, const Node *node)
{
    const auto address = reinterpret_cast<uintptr_t>(node);
    const uint32_t second = SecondBucket(index, place.home, place.tag);
    uint64_t content = place.tag | address;
    uint64_t *slot = address >> kTagShift != 0 ? nullptr : FreeSlot(index, place.home);
    if (slot == nullptr && address >> kTagShift == 0) {
        slot = FreeSlot(index, second);
        if (slot == nullptr) {
            slot = MakeRoom(index, second);
        }
        if (slot != nullptr) {
            content |= kDisplaced;
        } else {
            slot = MakeRoom(index, place.home);
        }
    }
    if (slot == nullptr) {
        ++index->missing;
    } else {
        Fill(index, slot, content);
    }
}

void PutByKey(const Tree *tree, Index *index, const Node *node)
{
    Put(index, PlaceOf(index, HashOf(tree, index, node)), node);
}

/* Fills an empty index from the tree itself. */
void TakeTree(const Tree *tree, Index *index)
{
    for (const Node *node = FirstNode(tree->shared.root); node != nullptr; node = NextNode(node)) {
        if (IsIndexed(&tree->shared, node->bit)) {
            PutByKey(tree, index, node);
        }
    }
}

/* Fills an empty index of any size from another, reading the nodes' keys. */
void TakeNodes(const Tree *tree, Index *index, Index *old)
{
    const uint64_t *slots = old->Bucket(0);
    const size_t count = size_t{old->buckets} * kSlotsPerBucket;
    for (size_t i = 0; i < count; ++i) {
        if (i + kAhead < count && slots[i + kAhead] > kDeleted) {
            __builtin_prefetch(&NodeOf(slots[i + kAhead])->bit);
        }
        if (slots[i] > kDeleted) {
            PutByKey(tree, index, NodeOf(slots[i]));
        }
    }
}

/* Fills an empty index with twice the buckets from another, reading its slots alone. */
void TakeSlots(Index *index, Index *old)
{
    constexpr uint64_t kTagMask = ((uint64_t{1} << kTagBits) - 1) << kTagShift;

    index->tag_bits = static_cast<uint8_t>(old->tag_bits - 1);
    index->compared = kDisplaced | (kTagMask & ~uint64_t{0} << (kTagShift + kTagBits - index->tag_bits));
    for (uint32_t number = 0; number < old->buckets; ++number) {
        const uint64_t *bucket = old->Bucket(number);

        for (unsigned i = 0; i < kSlotsPerBucket && bucket[i] != 0; ++i) {
            const uint64_t slot = bucket[i];

            if (slot == kDeleted) {
                continue;
            }
            const uint32_t home = (slot & kDisplaced) != 0 ? HomeOfDisplaced(old, number, slot) : number;
            const auto first_bit = static_cast<uint32_t>(slot >> (kTagShift + kTagBits - 1) & 1);

            Put(index, {home * 2 + first_bit, slot << 1 & kTagMask}, NodeOf(slot));
        }
    }
}

/* A size that leaves room, so that adding and deleting by turns does not rebuild again and again. */
unsigned DoublingsFor(uint32_t nodes)
{
    unsigned doublings = 0;
    while ((uint64_t{kFirstBuckets} << doublings) / 8 * 39 < nodes) {
        ++doublings;
    }
    return doublings;
}

/*
 * Replaces the index, if any, by one of the right size for the nodes of now; added, when not NULL, is in the
 * tree and not yet in the index. False without memory: nothing has changed.
 */
bool Rebuild(Tree *tree, const Node *added)
{
    Index *old = tree->index;
    const uint32_t nodes = old != nullptr ? old->live + old->missing : tree->shared.entry_count;
    Index *index = NewIndex(tree, DoublingsFor(nodes), old != nullptr ? old->salt : 0);
    if (index == nullptr) {
        return false;
    }
    if (old == nullptr || old->missing != 0) {
        TakeTree(tree, index);
    } else {
        if (index->doublings == old->doublings + 1u && old->tag_bits > kFewestTagBits) {
            TakeSlots(index, old);
        } else {
            TakeNodes(tree, index, old);
        }
        if (added != nullptr) {
            PutByKey(tree, index, added);
        }
    }
    IndexDrop(tree);
    tree->index = index;
    return true;
}

/* Empties a slot so that the used slots of its bucket stay first, or marks it in a full bucket. */
void ClearSlot(Index *index, uint64_t *slot)
{
    const size_t offset = static_cast<size_t>(slot - index->Bucket(0));
    uint64_t *last = index->Bucket(static_cast<uint32_t>(offset / kSlotsPerBucket)) + kSlotsPerBucket - 1;
    --index->live;
    if (*last != 0) {
        *slot = kDeleted;
        return;
    }
    while (*last == 0) {
        --last;
    }
    *slot = *last;
    *last = 0;
    --index->used;
}

} // namespace

void IndexAdd(Tree *tree, const Node *node)
{
    Index *index = tree->index;
    if (index == nullptr) {
        if (tree->uniform && tree->shared.entry_count >= kIndexFrom) {
            Rebuild(tree, nullptr);
        }
        return;
    }
    if (IsIndexed(&tree->shared, node->bit) && (index->used < Limit(index) || !Rebuild(tree, node))) {
        PutByKey(tree, index, node);
    }
}

void IndexRemove(Tree *tree, unsigned length, uint64_t *slot)
{
    Index *index = tree->index;

    if (index == nullptr || !IsIndexed(&tree->shared, length)) {
        return;
    }
    if (slot != nullptr) {
        ClearSlot(index, slot);
    } else {
        --index->missing;
    }
    const uint32_t nodes = index->live + index->missing;

    if (nodes < kIndexUntil) {
        IndexDrop(tree);
    } else if (nodes < index->buckets * kSlotsPerBucket / 8) {
        Rebuild(tree, nullptr);
    }
}

void IndexDrop(Tree *tree)
{
    if (tree->index != nullptr) {
        free(tree->index->block);
        tree->index = nullptr;
    }
}

} // namespace mcast::radix
