/*
 * A timer deletes up to eight marked users and starts another one when it found as many. Each kind of a node
 * has at most one timer, however often it is swept: the one that runs meets the new marks too.
 *
 * A timer that the platform fires although it was deleted is recognised by its serial, and does nothing.
 *
 * Between two deletions the daemon is called and may delete users, the node or everything. So a timer knows
 * its node by number, and a walk over a list starts again when more users were deleted than the one it
 * removed.
 */
#include "usrauth/deletion.h"

#include "usrauth/node.h"
#include "usrauth/user.h"

namespace mcast::usrauth
{
namespace
{

constexpr uint32_t kBatch = 8;
constexpr uint32_t kPeriodMs = 500;

/* The first marked user from one on. */
User *MarkedFrom(User *user)
{
    while (user != nullptr && (user->flags & MCAST_USRAUTH_MARKED) == 0) {
        user = user->next_of_kind;
    }
    return user;
}

User *FirstMarked(uint16_t number, uint32_t kind)
{
    const Node *node = FindNode(number);
    return node == nullptr ? nullptr : MarkedFrom(node->kinds[kind].head);
}

/* Deletes marked users, at most so many. How many it deleted. */
uint32_t DeleteMarked(uint16_t number, uint32_t kind, uint32_t most) MCAST_EXCLUDES(g_stUsrAuthRWLock)
{
    uint32_t deleted = 0;
    User *user = FirstMarked(number, kind);

    while (user != nullptr && deleted < most) {
        User *next = user->next_of_kind;
        const uint64_t freed_users = g_store.freed_users + 1;

        RemoveUser(user);
        ++deleted;
        TellIfKindIsGone(number, kind);
        user = g_store.freed_users == freed_users ? MarkedFrom(next) : FirstMarked(number, kind);
    }
    return deleted;
}

/* The node for whose kind the timer was made, or nullptr for a timer that should not be there any more. */
Node *NodeOfTimer(const uint64_t parameters[4])
{
    Node *node = FindNode(static_cast<uint16_t>(parameters[0]));
    return node != nullptr && parameters[1] < kKinds && node->batches[parameters[1]].timer != TIMER_NONE &&
                   node->batches[parameters[1]].serial == parameters[2]
               ? node
               : nullptr;
}

void OnBatch(uint64_t parameters[4])
{
    Node *node = NodeOfTimer(parameters);

    if (node == nullptr) {
        return;
    }
    const uint16_t number = node->number;
    const uint32_t kind = static_cast<uint32_t>(parameters[1]);

    node->batches[kind].timer = TIMER_NONE;
    const bool more = DeleteMarked(number, kind, kBatch) == kBatch;

    node = FindNode(number);
    if (more && node != nullptr) {
        StartDeletion(node, kind);
    }
}

} // namespace

void StartDeletion(Node *node, uint32_t kind)
{
    Batch &batch = node->batches[kind];

    if (batch.timer != TIMER_NONE) {
        return;
    }
    batch.serial = ++g_store.last_serial;
    const uint64_t parameters[4] = {node->number, kind, batch.serial, 0};

    batch.timer = Timer_Create(g_store.timer_service, TIMER_KIND_ONE_SHOT, kPeriodMs, OnBatch, parameters);
    if (batch.timer == TIMER_NONE) {
        DeleteMarked(node->number, kind, UINT32_MAX);
    }
}

} // namespace mcast::usrauth
