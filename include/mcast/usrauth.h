/*
 * Multicast user authentication: a local service on which authentication agents announce users, where they
 * are attached and which (source, group) pairs each may join, and the store that answers the daemon's
 * questions about them. mcast/usrauth_wire.h has the messages. One process holds one store and one service,
 * for one address family.
 *
 * Life. A user is announced, its group list is sent and ended; with the first end the daemon is asked for the
 * user's interface (user_online) and the user can be found by it. A change that needs it set up again takes
 * the user offline until the next end of list. A refresh lets an agent announce all users of a kind on a node
 * anew; those that it leaves out are deleted, eight every half second, or all at once when the platform makes
 * no timer.
 *
 * Threads. One thread services the event loop: messages, timers and all callbacks of
 * MCAST_USRAUTH_CALLBACKS_S run on it, and every function here that does not say otherwise must be called on
 * it. Nothing else runs during MCAST_USRAUTH_Init and MCAST_USRAUTH_Fini.
 *
 * Lock. g_stUsrAuthRWLock guards users, nodes and the interface tree. The event loop's thread alone changes
 * them and takes it for writing while it does; functions that say "any thread" take it for reading. The lock
 * prefers readers: those that follow one another without a pause keep the event loop waiting.
 *
 * Results are MCAST_OK or MCAST_ERR_GENERAL unless stated otherwise. A function whose comment names no
 * failure always returns MCAST_OK. Without a store (before MCAST_USRAUTH_Init and after MCAST_USRAUTH_Fini)
 * every question is answered as by an empty one.
 */
#ifndef MCAST_USRAUTH_H
#define MCAST_USRAUTH_H

#include "mcast/common.h"
#include "mcast/lock.h"
#include "mcast/mtable.h"
#include "mcast/usrauth_info.h"
#include "platform/avl.h"
#include "platform/timer.h"

MCAST_EXTERN_C_BEGIN

/* The node that a user belongs to; its contents are the library's. */
typedef struct MCAST_USRAUTH_NODE_S MCAST_USRAUTH_NODE_S;

/* Flags of a user. Those from MCAST_USRAUTH_LIST_LOST on are events and end with a group list. */
#define MCAST_USRAUTH_REFRESHED 0x00000001u     /* announced since a refresh of its kind began */
#define MCAST_USRAUTH_MARKED 0x00000002u        /* will be deleted */
#define MCAST_USRAUTH_LIST_LOST 0x01000000u     /* the last exchange of its group list lost entries */
#define MCAST_USRAUTH_24_CHANGED 0x02000000u    /* attribute_24 changed */
#define MCAST_USRAUTH_NEW 0x10000000u           /* the daemon does not know it yet, or not any more */
#define MCAST_USRAUTH_RECREATE 0x20000000u      /* kind, VRF or what the next flag stands for changed */
#define MCAST_USRAUTH_PLACE_CHANGED 0x40000000u /* access interface or attribute_32, 34, 80 or 84 changed */
#define MCAST_USRAUTH_40_CHANGED 0x80000000u    /* attribute_40 changed */
#define MCAST_USRAUTH_EVENT_FLAGS 0xff000000u

/*
 * A user. The library allocates and frees it; callbacks and walks read it. A field named attribute_N holds
 * the value at offset N of the agent's message. Integers are in host order. The addresses are of the store's
 * family.
 */
typedef struct MCAST_USRAUTH_USER_S {
    AVL_NODE_S node_link;      /* in its node's tree, by user ID */
    AVL_NODE_S interface_link; /* in the interface tree, by if_index, while it can be found there */
    uint32_t user_id;          /* unique within the node */
    uint32_t kind;             /* 1 to 4 */
    uint32_t access_if_index;
    uint32_t if_index; /* the user's interface, 0 = none; for kind 2 the access interface */
    MCAST_ADDR_S address;
    uint16_t vrf_index;
    uint16_t attribute_40;
    uint16_t attribute_32;
    uint16_t attribute_34;
    uint32_t attribute_24;
    uint32_t attribute_36;
    uint32_t attribute_80;
    uint32_t attribute_84;
    uint32_t hardware_address_first; /* the first four bytes of six, as they stood in the message */
    uint16_t hardware_address_last;  /* the last two */
    uint16_t attribute_70;
    MCAST_ADDR_S second_address;
    uint32_t flags;                            /* MCAST_USRAUTH_... */
    MCAST_USRAUTH_NODE_S *node;                /* MCAST_USRAUTH_GetNode tells its number */
    struct MCAST_USRAUTH_USER_S *next_of_kind; /* in the node's list of users of this kind */
    MTABLE_S groups;                           /* what it may join: MCAST_USRAUTH_ENTRY_S sources */
    char *name; /* terminated; empty when the agent sent none; a longer one in a later message is cut */
    /* The library's own from here on. */
    struct MCAST_USRAUTH_USER_S *previous_of_kind;
    uint16_t name_size;         /* bytes at name */
    uint16_t in_interface_tree; /* 1 while interface_link is in use */
} MCAST_USRAUTH_USER_S;

MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, interface_link) == 32, "two links come first");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, user_id) == 64, "the user ID follows the links");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, if_index) == 76, "the interface is the fourth word");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, address) == 80, "the address follows the words");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, vrf_index) == 100, "the VRF follows the address");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, attribute_24) == 108, "words follow four short values");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, hardware_address_first) == 124, "follows the words");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, second_address) == 132, "follows the short values");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, flags) == 152, "flags follow the second address");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, node) == 160, "the node is aligned");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, groups) == 176, "the table follows the list link");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_S, name) == 200, "the name follows the table");

/*
 * One (source, group) pair that a user may join; the group is head.group. The library allocates and frees it.
 */
typedef struct MCAST_USRAUTH_ENTRY_S {
    MTABLE_SOURCE_S head;
    uint32_t flags; /* bit 0: seen since the last end of list */
} MCAST_USRAUTH_ENTRY_S;

#define MCAST_USRAUTH_ENTRY_SEEN 1u

/* change_mask of user_changed. */
#define MCAST_USRAUTH_CHANGED_ATTRIBUTE_40 1u
#define MCAST_USRAUTH_CHANGED_LIST 2u /* entries were lost */
#define MCAST_USRAUTH_CHANGED_ATTRIBUTE_24 4u

/* What message_filter returns to drop a message. */
#define MCAST_USRAUTH_FILTER_DROP 3u

/*
 * What the daemon is told. Any callback may be NULL. They run on the event loop's thread without the lock,
 * user_offline within MCAST_USRAUTH_ClearAllUsers excepted, and may call every function of this header but
 * MCAST_USRAUTH_Init; a user given to one holds until the callback returns or deletes it.
 *
 * What each message leads to, in order:
 *
 *   announcement    message_filter; of a new user node_kind_changed 1 when it is the first of its kind on the
 *                   node; of a known one as an update, which also takes it offline when it is marked for
 *                   deletion
 *   update          message_filter; user_offline when the user has an interface and its access interface,
 *                   attribute_32, 34, 80 or 84, VRF or kind changes (PLACE_CHANGED for the first five,
 *                   RECREATE for all); its flags are then those of a new user. Otherwise a changed
 *                   attribute_40 sets 40_CHANGED and a changed attribute_24 sets 24_CHANGED, for users that
 *                   have an interface
 *   group list      message_filter
 *   list end        LIST_LOST is set when a user that is not new has an entry that was not sent again; such
 *                   entries are removed; user_online for a new user; user_changed when one of 40_CHANGED,
 *                   LIST_LOST and 24_CHANGED is set; then the user can be found by its interface and the
 *                   event flags are cleared
 *   withdrawal      user_offline when the user has an interface; the user is deleted; node_kind_changed 0
 *                   when the node has no user of the message's kind left
 *   refresh end     users not announced since the begin are marked; refresh_ended; later, for each user that
 *                   is deleted, user_offline and node_kind_changed as for a withdrawal
 */
typedef struct MCAST_USRAUTH_CALLBACKS_S {
    /*
     * The group list of a new user has ended. The callback may store the user's interface, which starts at 0
     * = none; for users of kind 2 what it stores is not used. The user cannot be found by it before it
     * returns.
     */
    void (*user_online)(MCAST_USRAUTH_USER_S *user, uint32_t *if_index);
    /*
     * A user that has an interface is about to be deleted or set up again. A user of kind 2 has one from its
     * announcement on. MCAST_USRAUTH_RefreshAllUserByNodeRemove is not to be called from here.
     */
    void (*user_offline)(MCAST_USRAUTH_USER_S *user);
    /* A group list has ended and something changed: MCAST_USRAUTH_CHANGED_... */
    void (*user_changed)(MCAST_USRAUTH_USER_S *user, uint32_t change_mask);
    /* A refresh of a kind on a node has ended. Users to be deleted may still be there. */
    void (*refresh_ended)(uint16_t node, uint32_t kind);
    /*
     * up 1: the first user of the kind appeared on the node; up 0: the node has no user of the kind (left),
     * told after deletions of single users and after a withdrawal that names the kind. kind is 0 to 6.
     */
    void (*node_kind_changed)(uint16_t node, uint32_t kind, uint32_t up);
    /*
     * An announcement, update or group list arrived: the connection's descriptor and the value of length
     * bytes, which holds for the call only. MCAST_USRAUTH_FILTER_DROP drops it before it is counted.
     */
    uint32_t (*message_filter)(int32_t descriptor, const void *value, uint16_t length);
} MCAST_USRAUTH_CALLBACKS_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_USRAUTH_CALLBACKS_S) == 6 * sizeof(void (*)(void)), "six callbacks");

/* Messages handled, since the start or the last clearing. Counters wrap. */
typedef struct MCAST_USRAUTH_STATISTICS_S {
    uint32_t receive_count;  /* reads that delivered data */
    uint32_t messages[7][7]; /* by user kind 0 to 6 and message type 0 to 6; other kinds are not counted */
} MCAST_USRAUTH_STATISTICS_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_USRAUTH_STATISTICS_S) == 200, "50 counters");

/* The messages that named one user, which need not exist. The library allocates and frees it. */
typedef struct MCAST_USRAUTH_MSG_DETAIL_S {
    AVL_NODE_S link;
    uint16_t node;
    uint32_t user_id;
    uint32_t counts[5]; /* by message type 0 to 4 */
} MCAST_USRAUTH_MSG_DETAIL_S;

MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_MSG_DETAIL_S, user_id) == 36, "the user ID is aligned");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_MSG_DETAIL_S, counts) == 40, "counters follow the user ID");

/* Detail records kept unless MCAST_USRAUTH_SetMsgDetailLimit says otherwise. */
#define MCAST_USRAUTH_MSG_DETAIL_LIMIT 512u

/* mode of MCAST_USRAUTH_USER_FILTER_S. */
#define MCAST_USRAUTH_WALK_ONE 0u          /* the user of the interface */
#define MCAST_USRAUTH_WALK_FROM 1u         /* that user and all after it in the order of interfaces */
#define MCAST_USRAUTH_WALK_ONE_ENTRIES 2u  /* the user of the interface and its entries */
#define MCAST_USRAUTH_WALK_FROM_ENTRIES 3u /* like 1, with the entries of each user */

/*
 * Where a walk over users starts, and the position in a user's entries as in MTABLE_WALK_S: a walk stopped at
 * an entry leaves the cursors there. A NULL cursor stands for the beginning.
 */
typedef struct MCAST_USRAUTH_USER_FILTER_S {
    uint32_t mode; /* MCAST_USRAUTH_WALK_..., any other value as MCAST_USRAUTH_WALK_ONE */
    uint32_t if_index;
    uint64_t unused;
    MCAST_ADDR_S *group_cursor;
    MCAST_ADDR_S *source_cursor;
} MCAST_USRAUTH_USER_FILTER_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_USRAUTH_USER_FILTER_S) == 32, "a user filter is 32 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_USER_FILTER_S, group_cursor) == 16, "cursors follow 16 bytes");

/*
 * Called for each user of a walk, with entry and group NULL, and for each of its entries. MCAST_OK goes on,
 * anything else stops the walk. It runs under the read lock: it may call what any thread may, and nothing
 * that changes the store.
 */
typedef uint32_t (*MCAST_USRAUTH_USER_CALLBACK)(MCAST_USRAUTH_USER_S *user, MCAST_USRAUTH_ENTRY_S *entry,
                                                MTABLE_GROUP_S *group, void *argument);

/* Which detail records a walk visits. */
typedef struct MCAST_USRAUTH_DETAIL_FILTER_S {
    uint32_t mode; /* 1: from the pair on, by node, then user ID; else the record of the pair only */
    uint32_t unused;
    uint32_t user_id;
    uint16_t node;
} MCAST_USRAUTH_DETAIL_FILTER_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_USRAUTH_DETAIL_FILTER_S) == 16, "a detail filter is 16 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_DETAIL_FILTER_S, user_id) == 8, "the user ID is the third word");

#define MCAST_USRAUTH_DETAIL_FROM 1u

/*
 * Called for each detail record of a walk. MCAST_OK goes on, anything else stops it. It may clear the
 * records, but not use this one afterwards.
 */
typedef uint32_t (*MCAST_USRAUTH_DETAIL_CALLBACK)(MCAST_USRAUTH_MSG_DETAIL_S *record, void *argument);

/* Guards users, nodes and the interface tree. It exists from MCAST_USRAUTH_Init to MCAST_USRAUTH_Fini. */
MCAST_API extern MCAST_RWLOCK_S g_stUsrAuthRWLock;

/* ---- The store ---- */

/*
 * Starts the store, empty, for users of family (MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6). Connections of the
 * service are registered in the set epoll_id; timers are made with timer_service; callbacks are copied. As
 * users come the store draws random numbers with FIPS_rand_bytes, for an index that agents cannot make slow.
 * Fails, with no store, when timer_service or callbacks is NULL, epoll_id is -1 or memory is short, and,
 * leaving it as it is, when there is a store already.
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_Init(uint8_t family, int32_t epoll_id, TIMER_SERVICE timer_service,
                                          const MCAST_USRAUTH_CALLBACKS_S *callbacks);

/* Ends the store with all it holds, timers included. No callback is called. The service is not touched. */
MCAST_API MCAST_STATUS MCAST_USRAUTH_Fini(void);

/*
 * Empties the store when the process becomes a standby: users, nodes, refreshes, details and statistics are
 * gone, the detail limit is MCAST_USRAUTH_MSG_DETAIL_LIMIT again; what MCAST_USRAUTH_Init was given stays. No
 * callback is called.
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_Degrade(void) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * Deletes every user. user_offline is called for each that has an interface, under the write lock: it must
 * not call what takes the lock. No other callback is called.
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_ClearAllUsers(void) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * The access node is gone: its users of kinds 3, 4 and 2 are marked, in that order, and deleted in batches as
 * after a refresh. Users of kind 1 stay.
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_RefreshAllUserByNodeRemove(uint16_t node)
    MCAST_EXCLUDES(g_stUsrAuthRWLock);

/* ---- Users ---- */

/* The number of users that can be found by interface. Any thread. */
MCAST_API uint32_t MCAST_USRAUTH_UserCount(void) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * Fills *info with what is known about the user of the interface, with the defaults of
 * MCAST_USRAUTH_SetDefaultUserInfo when there is none. MCAST_ERR_GENERAL when there is none or info is NULL.
 * The address is the second one of a user whose ID has 2 in its upper four bits. Any thread.
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_GetInfoByIfIndex(uint32_t if_index, MCAST_USRAUTH_INFO_S *info)
    MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * Tells VRF and ID of the user of the interface: *user_id, which is the result too, is 0xFFFFFFFF when there
 * is none, and *vrf_index keeps its value then. Either pointer may be NULL. Any thread.
 */
MCAST_API uint32_t MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(uint32_t if_index, uint16_t *vrf_index,
                                                               uint32_t *user_id)
    MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * MCAST_TRUE when the user of the interface has the group in its list, from whichever source; MCAST_FALSE
 * also when there is no such user and for NULL. Any thread.
 */
MCAST_API MCAST_BOOL MCAST_USRAUTH_CanPassGroupList(uint32_t if_index, const MCAST_ADDR_S *group)
    MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * Visits users in the order of their interfaces as the filter says: each goes to user_callback and then, in
 * the modes with entries, each of its entries to entry_callback. Where the filter's interface has no user,
 * the modes that visit several start at the next one. Either callback may be NULL. MCAST_ERR_STOPPED: a
 * callback stopped the walk; MCAST_OK: it is complete; MCAST_ERR_GENERAL: filter is NULL. The whole walk
 * holds the read lock. Any thread.
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_WalkAllUserByIfIndex(const MCAST_USRAUTH_USER_FILTER_S *filter,
                                                          MCAST_USRAUTH_USER_CALLBACK user_callback,
                                                          MCAST_USRAUTH_USER_CALLBACK entry_callback,
                                                          void *argument) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * The number of the user's node. user is one given to a callback, not NULL. Any thread that holds the lock.
 */
MCAST_API uint16_t MCAST_USRAUTH_GetNode(const MCAST_USRAUTH_USER_S *user);

/*
 * Fills *info as for no user: IDs and attributes that are told apart from 0 have all bits of theirs set
 * (user_id, attribute_32, 34, 40 and 80; attribute_84 is 0x0000FFFF), the rest is 0, and the address is the
 * zero address of the store's family. NULL is ignored. Any thread.
 */
MCAST_API void MCAST_USRAUTH_SetDefaultUserInfo(MCAST_USRAUTH_INFO_S *info);

/* ---- What was received ---- */

/*
 * Visits detail records as the filter says. MCAST_ERR_STOPPED: the callback stopped the walk; MCAST_OK: it is
 * complete; MCAST_ERR_GENERAL: filter or callback is NULL.
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_WalkAllUserMsgDetail(const MCAST_USRAUTH_DETAIL_FILTER_S *filter,
                                                          MCAST_USRAUTH_DETAIL_CALLBACK callback,
                                                          void *argument);

/* The number of detail records. */
MCAST_API uint32_t MCAST_USRAUTH_UserMsgDetailCount(void);

/* Frees all detail records. */
MCAST_API MCAST_STATUS MCAST_USRAUTH_ClearRecord(void);

/* No detail record is made while there are limit or more of them; those that are there go on counting. */
MCAST_API MCAST_STATUS MCAST_USRAUTH_SetMsgDetailLimit(uint32_t limit);

/* Copies the counters into *out. Fails when out is NULL. */
MCAST_API MCAST_STATUS MCAST_USRAUTH_GetStatistics(MCAST_USRAUTH_STATISTICS_S *out);

/* Zeroes the counters. */
MCAST_API MCAST_STATUS MCAST_USRAUTH_ClearStatistics(void);

/* ---- The service ---- */

/*
 * Opens the service, when the process becomes the active one: a listening socket on USRAUTH_PORT_IPV4 for
 * MCAST_FAMILY_IPV4 and on USRAUTH_PORT_IPV6 for any other family. In this order: socket, option 0x200
 * (LOCAL_SOCKET_OPTION_REUSE) with value 1, bind (the first byte of the address is 0), listen with a backlog
 * of 1024, registration in the set epoll_id for EPOLLIN. Nothing to do, and MCAST_OK, when it is open.
 * Fails, with no socket left, when one of them does. What the loop finds registered as context, here and for
 * each connection, is a handler to be called with the events and the descriptor: uint64_t (*)(uint32_t
 * events, int32_t fd).
 */
MCAST_API MCAST_STATUS MCAST_USRAUTH_Upgrade(uint8_t family, int32_t epoll_id);

/* Closes all connections and the service. MCAST_TRUE when there was something to close. Users stay. */
MCAST_API MCAST_BOOL MCAST_USRAUTH_StopServer(void);

MCAST_EXTERN_C_END

#endif
