/*
 * The store's records and its state, one record for the process.
 *
 *   nodes ── hash of node numbers ──► node ── users: tree of user IDs ──────────┐
 *                                       │                                       ▼
 *                                       └─ kinds[0..6]: lists ───────────────► user ── groups ──► entries
 *                                                                               ▲
 *   interfaces ── tree of user interfaces, only of users that have one ─────────┘
 *   refreshes ─── hash of node numbers ──► kinds that are being refreshed on the node
 *   details ───── tree of (node, user ID) ──► counters of messages
 *
 * A node lives as long as it has users, and each of its users is in its tree and in the list of its kind. The
 * user's place in the interface tree is told by in_interface_tree, not by if_index: a user whose interface is
 * known but not confirmed by an end of list, or taken by another user, is not in the tree.
 *
 * Only the event loop's thread writes. It takes g_stUsrAuthRWLock for what other threads may read, which is
 * all but refreshes, details and statistics, and reads without it.
 */
#ifndef SRC_USRAUTH_STORE_H
#define SRC_USRAUTH_STORE_H

#include "mcast/usrauth.h"
#include "mcast/usrauth_wire.h"
#include "platform/hash.h"

/* Users of one kind on a node, in the order in which they came. */
struct MCAST_USRAUTH_KIND_LIST_S {
    MCAST_USRAUTH_USER_S *head;
    MCAST_USRAUTH_USER_S *tail;
};

inline constexpr uint32_t kUsrAuthKinds = 7;

/* The timer of a deletion that is under way. */
struct MCAST_USRAUTH_BATCH_S {
    TIMER_ID timer;  /* TIMER_NONE = none */
    uint64_t serial; /* which the timer brings along; no other timer has the same */
};

struct MCAST_USRAUTH_NODE_S {
    HASH_NODE_S link;
    uint16_t number;
    AVL_HANDLE users;
    MCAST_USRAUTH_KIND_LIST_S kinds[kUsrAuthKinds];
    MCAST_USRAUTH_BATCH_S batches[kUsrAuthKinds];
};

namespace mcast::usrauth
{

using User = MCAST_USRAUTH_USER_S;
using Node = MCAST_USRAUTH_NODE_S;
using KindList = MCAST_USRAUTH_KIND_LIST_S;
using Batch = MCAST_USRAUTH_BATCH_S;

inline constexpr uint32_t kKinds = kUsrAuthKinds;
inline constexpr uint32_t kBuckets = 512;

/* The users of the interface tree once more; see interface_index.cpp. */
struct InterfaceIndex {
    User **users;
    uint32_t *keys; /* in the same block */
    uint32_t mask;  /* places less one */
    uint32_t shift; /* takes a product to a place */
    uint64_t multiplier;
};

inline constexpr InterfaceIndex kNoIndex = {nullptr, nullptr, 0, 0, 0};

struct Store {
    bool open;
    uint8_t family;
    int32_t epoll_id; /* -1 without a store */
    TIMER_SERVICE timer_service;
    MCAST_USRAUTH_CALLBACKS_S callbacks;
    HASH_HANDLE nodes;
    HASH_HANDLE refreshes;
    AVL_HANDLE interfaces;
    InterfaceIndex index;
    AVL_HANDLE details;
    uint32_t detail_limit;
    MCAST_USRAUTH_STATISTICS_S statistics;
    uint64_t freed_users; /* ever; tells code that held a user across a callback whether any was freed */
    uint64_t last_serial; /* of a batch's timer */
};

extern Store g_store;

inline uint32_t HashOf(uint16_t node)
{
    return node & (kBuckets - 1);
}

/* Negative, 0 or positive as first is below, equal to or above second. */
inline int32_t Order(uint32_t first, uint32_t second)
{
    return (first > second) - (first < second);
}

inline bool IsUserKind(uint32_t kind)
{
    return kind >= USRAUTH_KIND_MIN && kind <= USRAUTH_KIND_MAX;
}

} // namespace mcast::usrauth

#endif
