/*
 * Memory of groups. Those that one message brings lie one behind another in a block: they are looked at
 * together ever after, and a block costs one allocation. It is freed with the last group in it.
 *
 *   EntryBlock  ┌──────────────┬─────────┬─────────┬─────────┬────────┐
 *               │ users, taken │ Group 0 │ Group 1 │ Group 2 │ (free) │
 *               └──────────────┴─────────┴─────────┴─────────┴────────┘
 */
#ifndef SRC_USRAUTH_ENTRY_BLOCK_H
#define SRC_USRAUTH_ENTRY_BLOCK_H

#include "mcast/usrauth.h"

namespace mcast::usrauth
{

struct EntryBlock {
    uint32_t users;    /* groups that live in the block, and the message that fills it */
    uint32_t taken;    /* places given away, ever */
    uint32_t capacity; /* places */
};

/* A group. Most have one source, which lives in the group itself. */
struct Group {
    MTABLE_GROUP_S head;
    MCAST_USRAUTH_ENTRY_S first;
    bool first_used;
    EntryBlock *block;
};

/* Where the groups of one message go. */
class EntryAllocator
{
public:
    EntryAllocator() = default;
    ~EntryAllocator();
    EntryAllocator(const EntryAllocator &) = delete;
    EntryAllocator &operator=(const EntryAllocator &) = delete;

    /*
     * A zeroed group; nullptr when memory is short. expected is how many more may be wanted, this included.
     */
    Group *Take(uint32_t expected);

private:
    EntryBlock *block_ = nullptr;
};

/* Asks the processor to fetch the group and those in its block, which are about to be looked at. */
void PrefetchBlock(const Group *group);

/* Gives a group back. */
void FreeGroup(Group *group);

} // namespace mcast::usrauth

#endif
