#include "usrauth/entry_block.h"

#include <stdlib.h>

namespace mcast::usrauth
{
namespace
{

/* What a message may make the store set aside beyond the groups that it brings is bounded by this. */
constexpr uint32_t kMostPlaces = 16;

constexpr size_t kLine = 64; /* of the processor's cache */

constexpr size_t kHeadSize = (sizeof(EntryBlock) + alignof(Group) - 1) / alignof(Group) * alignof(Group);

EntryBlock *CreateBlock(uint32_t expected)
{
    const uint32_t capacity = expected < kMostPlaces ? expected : kMostPlaces;
    EntryBlock *block = static_cast<EntryBlock *>(calloc(1, kHeadSize + capacity * sizeof(Group)));
    if (block != nullptr) {
        *block = {1, 0, capacity};
    }
    return block;
}

Group *PlaceOf(EntryBlock *block, uint32_t number)
{
    return reinterpret_cast<Group *>(reinterpret_cast<char *>(block) + kHeadSize) + number;
}

void Leave(EntryBlock *block)
{
    if (block != nullptr && --block->users == 0) {
        free(block);
    }
}

} // namespace

EntryAllocator::~EntryAllocator()
{
    Leave(block_);
}

Group *EntryAllocator::Take(uint32_t expected)
{
    if (block_ == nullptr || block_->taken == block_->capacity) {
        Leave(block_);
        block_ = CreateBlock(expected);
    }
    if (block_ == nullptr) {
        return nullptr;
    }
    Group *group = PlaceOf(block_, block_->taken++);

    group->block = block_;
    ++block_->users;
    return group;
}

void PrefetchBlock(const Group *group)
{
    const char *begin = reinterpret_cast<const char *>(group->block);
    const size_t size = kHeadSize + group->block->taken * sizeof(Group);
    for (size_t at = 0; at < size; at += kLine) {
        __builtin_prefetch(begin + at, 1);
    }
}

void FreeGroup(Group *group)
{
    Leave(group->block);
}

} // namespace mcast::usrauth
