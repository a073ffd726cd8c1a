/*
 * The client end of the MRIB channel: connection and batching, the client's view of the MRIB's state, and the
 * senders of the group-membership daemons. One process holds one channel; its state is in the objects below.
 *
 * Results are 64 bits wide: MCAST_OK or MCAST_ERR_GENERAL unless stated otherwise. A function whose comment
 * names no failure always returns MCAST_OK.
 *
 * Locks. g_stMribConnectInfo.lock guards the connection; each instance record has a reader-writer lock of its
 * own. The mutex is taken first and an instance lock inside it, never the other way round. Callbacks run with
 * neither held and may call anything here except MRIB_GMP_Init and MRIB_GMP_Fini.
 *
 * Threads. Senders, queries and the flush functions may run on any thread. MRIB_GMP_Init,
 * MRIB_GMP_OpenConnect, MRIB_GMP_ProcLipcMsg, the closing functions, MRIB_GMP_ClearSmoothFlag,
 * MRIB_GMP_DelData and MRIB_GMP_Fini belong to the one thread that services the channel's socket; nothing
 * else runs during Init and Fini.
 *
 * Sends are non-blocking and no more: where local sockets raise SIGPIPE, the process ignores it.
 */
#ifndef MCAST_MRIB_H
#define MCAST_MRIB_H

#include "mcast/common.h"
#include "mcast/lock.h"
#include "mcast/mrib_wire.h"
#include "mcast/usrauth_info.h"
#include "platform/avl.h"
#include "platform/interface.h"
#include "platform/prefix_tree.h"

MCAST_EXTERN_C_BEGIN

/* A whole message that could not be sent at once. One allocation of the library holds it and its bytes. */
typedef struct MRIB_GMP_PENDING_S {
    struct MRIB_GMP_PENDING_S *next;
    uint8_t *message; /* the bytes that follow this record */
    uint32_t length;  /* of the message; copy_size bytes are stored */
} MRIB_GMP_PENDING_S;

/*
 * The client's callbacks, any of which may be NULL. All run on the thread that services the channel's socket.
 * A key points at memory of the library that holds for the call only; VRF callbacks get family and index.
 */
typedef struct MRIB_GMP_CALLBACKS_S {
    /*
     * After a successful connect, with the socket, for example to register it. Its result is OpenConnect's.
     */
    uint64_t (*connected)(int32_t socket);
    /* Just before the socket is closed. */
    void (*disconnected)(int32_t socket);
    /*
     * The last outstanding re-synchronisation has ended: MRIB_GMP_ClearSmoothFlag left no bit, which an end
     * record also does for a replay that nobody awaited.
     */
    void (*smooth_finished)(void);
    /* A state record said 1: layer-3 multicast is enabled in the instance, also when it was before. */
    void (*vrf_enabled)(const MRIB_GMP_VRF_KEY_S *key);
    /*
     * A state record said anything but 1, and the interface records and local sources of the instance are
     * gone; or a replay of the states ended without naming the instance, whose interface records then stay.
     */
    void (*vrf_disabled)(const MRIB_GMP_VRF_KEY_S *key);
    /*
     * A designated-router record arrived, with its state as received (1 = this router is it), also when it
     * changed nothing or could not be stored; or, with state 0, a replay ended without confirming the
     * interface.
     */
    void (*dr_changed)(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t state);
    /*
     * The interface's boundaries changed; operation 1 = more is blocked, else less. For an added scope it is
     * 1 when the new scope is at least the old one, else 0; for other records it is the operation as
     * received. With operation 0 also when a replay ended without confirming something of the interface.
     */
    void (*boundary_changed)(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t operation);
    /*
     * The ACL that defines the instance's SSM range, MCAST_NONE = none: from a policy record, or MCAST_NONE
     * at a smooth start when the connection's request for the policy has not confirmed the one that was
     * known.
     */
    void (*ssm_policy_changed)(const MRIB_GMP_VRF_KEY_S *key, uint32_t acl_number);
    /* A local source appeared. Addresses in network order; data holds length bytes, NULL when length is 0. */
    void (*msdp_local_source)(const MRIB_GMP_VRF_KEY_S *key, uint32_t rp_be, uint32_t group_be,
                              uint32_t source_be, const void *data, uint32_t length);
    /* The MRIB asks for the remote sources of a group (network order). Its result is the record's result. */
    uint64_t (*msdp_remote_source_request)(const MRIB_GMP_VRF_KEY_S *key, uint32_t group_be);
    /* An encapsulated-data report, whole: length bytes laid out from MRIB_MSDP_ENCAP_REPORT_S on. */
    void (*msdp_encap_report)(uint16_t length, const void *value);
} MRIB_GMP_CALLBACKS_S;

MCAST_STATIC_ASSERT(sizeof(MRIB_GMP_CALLBACKS_S) == 11 * sizeof(void (*)(void)), "eleven callbacks");

/* What the client gave to MRIB_GMP_Init. Written by MRIB_GMP_Init and MRIB_GMP_Fini only. */
typedef struct MRIB_GMP_COMPONENT_S {
    MRIB_GMP_CALLBACKS_S callbacks;
    uint64_t capability_flags; /* MRIB_CAP_... */
    uint8_t component;         /* byte 0 of every message */
    uint64_t max_message_size; /* bytes */
} MRIB_GMP_COMPONENT_S;

/*
 * The connection. The lock guards every other field and what they point at. The library owns the buffers and
 * the queue from MRIB_GMP_Init to MRIB_GMP_Fini and the socket from MRIB_GMP_OpenConnect until it closes it.
 */
typedef struct MRIB_GMP_CONNECT_S {
    MCAST_MUTEX_S lock;
    int32_t socket MCAST_GUARDED_BY(lock);  /* -1 while not connected */
    uint16_t busy MCAST_GUARDED_BY(lock);   /* the last flow-control value of the MRIB */
    uint16_t failed MCAST_GUARDED_BY(lock); /* 1 once a message was lost */
    /* The message being assembled: always a valid header, then records. NULL before MRIB_GMP_Init. */
    uint8_t *out_buffer MCAST_GUARDED_BY(lock) MCAST_PT_GUARDED_BY(lock);
    uint32_t used MCAST_GUARDED_BY(lock);                     /* bytes of it, 12 when it is empty */
    MRIB_GMP_PENDING_S *pending_head MCAST_GUARDED_BY(lock);  /* oldest */
    MRIB_GMP_PENDING_S *pending_tail MCAST_GUARDED_BY(lock);  /* newest */
    uint32_t pending_limit MCAST_GUARDED_BY(lock);            /* messages */
    uint32_t pending_count MCAST_GUARDED_BY(lock);            /* messages */
    uint32_t copy_size MCAST_GUARDED_BY(lock);                /* buffer bytes copied into a pending message */
    uint64_t dropped_count MCAST_GUARDED_BY(lock);            /* messages lost to a full queue */
    uint64_t allocation_failure_count MCAST_GUARDED_BY(lock); /* messages lost to short memory */
    uint64_t queued_count MCAST_GUARDED_BY(lock);             /* messages ever queued */
} MRIB_GMP_CONNECT_S;

/* The client of this process. Read it between MRIB_GMP_Init and MRIB_GMP_Fini. */
MCAST_API extern MRIB_GMP_COMPONENT_S g_stMRIBComponent;

/* The connection of this client to the MRIB. Read it under its lock, which exists between MRIB_GMP_Init and MRIB_GMP_Fini. */
MCAST_API extern MRIB_GMP_CONNECT_S g_stMribConnectInfo;

/* Flags of an instance record: what a replay has not confirmed yet. */
#define MRIB_GMP_VRF_STATE_STALE 1u
#define MRIB_GMP_VRF_ACL_STALE 2u

/*
 * The view of one instance. The library allocates all of them in MRIB_GMP_Init and frees them in
 * MRIB_GMP_Fini. The lock guards the record and everything that hangs from it; family and index never change.
 */
typedef struct MRIB_GMP_VRF_S {
    MCAST_RWLOCK_S lock MCAST_ACQUIRED_AFTER(g_stMribConnectInfo.lock);
    MRIB_GMP_VRF_KEY_S key;
    uint16_t l3mc_state MCAST_GUARDED_BY(lock);  /* 1 = layer-3 multicast enabled */
    IF_INSTANCE if_table MCAST_GUARDED_BY(lock); /* interface index to MRIB_GMP_IF_S; IF_NO_INSTANCE = none */
    uint64_t flags MCAST_GUARDED_BY(lock);       /* MRIB_GMP_VRF_..._STALE */
    uint32_t ssm_acl MCAST_GUARDED_BY(lock);     /* ACL of the SSM range, MCAST_NONE = none */
    AVL_HANDLE msdp_local_source MCAST_GUARDED_BY(lock); /* RP nodes; 0 = none */
} MRIB_GMP_VRF_S;

/* The view's instances, by index. */
typedef struct MRIB_GMP_VRF_INFO_S {
    uint64_t count;
    MRIB_GMP_VRF_S *vrfs;
} MRIB_GMP_VRF_INFO_S;

/* Flags of an interface record: what a replay has not confirmed yet. */
#define MRIB_GMP_IF_DR_STALE 1u
#define MRIB_GMP_IF_SCOPE_STALE 2u

/* The range of meaningful IPv6 boundary scopes. */
#define MRIB_GMP_SCOPE_MIN 3
#define MRIB_GMP_SCOPE_MAX 15

/*
 * The view of one interface, under its instance's lock; the library allocates it when the first thing is
 * known about the interface and frees it with the last.
 */
typedef struct MRIB_GMP_IF_S {
    MRIB_GMP_VRF_S *owner;
    uint32_t if_index;
    uint16_t dr_state;     /* 1 = this router is the designated router on the interface */
    uint8_t scope;         /* IPv6 boundary scope, meaningful from 3 to 15 */
    uint64_t flags;        /* MRIB_GMP_IF_..._STALE */
    RDX_TREE_S boundaries; /* MRIB_GMP_BOUNDARY_S */
    uint8_t tree_index;    /* row of g_astRdxAFICBArray: RDX_AFI_IPV4 or RDX_AFI_IPV6 */
} MRIB_GMP_IF_S;

/* One boundary range of an interface. */
typedef struct MRIB_GMP_BOUNDARY_S {
    RDX_NODE_S node;
    uint32_t stale; /* 1 = the current replay has not confirmed it yet */
} MRIB_GMP_BOUNDARY_S;

#if defined(__LP64__)
MCAST_STATIC_ASSERT(sizeof(MRIB_GMP_PENDING_S) == 24, "pending message");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_PENDING_S, length) == 16, "pending message length");
MCAST_STATIC_ASSERT(sizeof(MRIB_GMP_COMPONENT_S) == 112, "component record");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_COMPONENT_S, capability_flags) == 88, "flags follow the callbacks");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_COMPONENT_S, component) == 96, "component code follows the flags");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_COMPONENT_S, max_message_size) == 104, "size ends the record");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_CONNECT_S, socket) == sizeof(MCAST_MUTEX_S), "socket follows the lock");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_CONNECT_S, out_buffer) == sizeof(MCAST_MUTEX_S) + 8, "output buffer");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_CONNECT_S, pending_head) == sizeof(MCAST_MUTEX_S) + 24, "queue head");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_CONNECT_S, pending_limit) == sizeof(MCAST_MUTEX_S) + 40, "queue limit");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_CONNECT_S, queued_count) == sizeof(MCAST_MUTEX_S) + 72, "last counter");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_VRF_S, key) == sizeof(MCAST_RWLOCK_S), "key follows the lock");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_VRF_S, l3mc_state) == sizeof(MCAST_RWLOCK_S) + 4, "state");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_VRF_S, if_table) == sizeof(MCAST_RWLOCK_S) + 8, "interface table");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_VRF_S, flags) == sizeof(MCAST_RWLOCK_S) + 16, "flags");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_VRF_S, ssm_acl) == sizeof(MCAST_RWLOCK_S) + 24, "ACL number");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_VRF_S, msdp_local_source) == sizeof(MCAST_RWLOCK_S) + 32, "sources");
MCAST_STATIC_ASSERT(sizeof(MRIB_GMP_VRF_INFO_S) == 16, "instance array");
MCAST_STATIC_ASSERT(sizeof(MRIB_GMP_IF_S) == 48, "interface record");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_IF_S, dr_state) == 12, "DR state");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_IF_S, scope) == 14, "scope");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_IF_S, boundaries) == 24, "boundary table");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_IF_S, tree_index) == 40, "tree family");
#endif

/* The client's address family, MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6. */
MCAST_API extern uint8_t g_ucMribGmpFamily;
/* Where datagrams are received: at least MRIB_MSG_RECV_MAX bytes from MRIB_GMP_Init to MRIB_GMP_Fini. */
MCAST_API extern char *g_pcMribGmpRecvBuf;
/* One MRIB_GMP_SMOOTH_... bit for each re-synchronisation that was asked for and has not ended. */
MCAST_API extern uint64_t g_ulMribGmpSmoothEndFlag;
MCAST_API extern MRIB_GMP_VRF_INFO_S g_stMribGmpVrfInfo;

#define MRIB_GMP_SMOOTH_DR 1u
#define MRIB_GMP_SMOOTH_BOUNDARY 2u
#define MRIB_GMP_SMOOTH_LOCAL_SRC 4u

/* Messages that may wait for a blocked socket. */
#define MRIB_GMP_PENDING_LIMIT 8192u
/* Waiting messages that one call of MRIB_GMP_SendFailData sends. */
#define MRIB_GMP_DRAIN_LIMIT 32u

/* ---- Connection ---- */

/*
 * Sets the channel up, unconnected, with an empty view of vrf_count instances.
 * component: byte 0 of every message, MRIB_COMPONENT_... or a number of the client's own. family:
 * MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6. vrf_count: 0 to 65536. max_message_size: bound on a message in
 * bytes, MRIB_MSG_RECV_MAX or more for a peer that uses it all. callbacks: copied; NULL = none. Capability
 * flags of an earlier call without MRIB_GMP_Fini stay set. MCAST_ERR_GENERAL: max_message_size is 0 or above
 * 32 bits, or memory is short; nothing is held then. Also when the platform could not create a table of an
 * instance: the rest is then set up and MRIB_GMP_Fini releases it. Called again without MRIB_GMP_Fini, it
 * first closes the connection and releases what it held.
 */
MCAST_API uint64_t MRIB_GMP_Init(uint8_t component, uint8_t family, uint64_t vrf_count,
                                 uint64_t max_message_size, const MRIB_GMP_CALLBACKS_S *callbacks)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Connects to the MRIB of the client's family, registers and asks for the MRIB's state; then the connected
 * callback decides the result. In this order: socket, connect, option 128 (LOCAL_SOCKET_OPTION_LINGER, whose
 * result does not matter), the registration; then every enabled instance and every known SSM ACL is marked
 * stale; then the requests for instance states and for SSM policies, the second also when the first failed;
 * then the socket is published, the smooth flags are cleared and a smooth alert is sent, whose result does
 * not matter. MCAST_OK at once when connected. MCAST_ERR_GENERAL when a system call failed: the new socket is
 * closed again, and the marks stay. Before MRIB_GMP_Init it fails. Linear in the number of instances.
 */
MCAST_API uint64_t MRIB_GMP_OpenConnect(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Closes the connection, drops everything that was batched or queued, and resets busy, failed and smooth
 * flags; the disconnected callback runs before the descriptor is closed. dropped_count,
 * allocation_failure_count and queued_count stay. Harmless when not connected. May be called from a callback.
 */
MCAST_API uint64_t MRIB_GMP_CloseConnection(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* Closes the connection and returns 1 when it has lost a message; otherwise returns 0. */
MCAST_API uint64_t MRIB_GMP_CloseFailConnection(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Reserves record_size bytes, record header included, in the current message of the connection, which is
 * moved on or queued when full. Returns where the record goes, its bytes undefined and counted as sent from
 * now on; or NULL when not connected, when the record fits no message, or when the current message could
 * neither be sent nor queued (then the failed flag is set). The memory is the library's and holds until the
 * lock is released.
 */
MCAST_API void *MRIB_GMP_GetOutBuffer(MRIB_GMP_CONNECT_S *connection, uint32_t record_size)
    MCAST_REQUIRES(connection->lock);

/*
 * Sends the current message if it holds a record and nothing waits before it. MCAST_ERR_GENERAL when the
 * socket did not take it (send gave 0 or less): it stays for the next attempt. Never blocks.
 */
MCAST_API uint64_t MRIB_GMP_TrySendBuffer(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock);

/* Takes the lock and does what MRIB_GMP_TrySendBuffer does: flushes records that were appended only. */
MCAST_API uint64_t MRIB_GMP_SendAtOnce(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Sends up to MRIB_GMP_DRAIN_LIMIT waiting messages, oldest first, then tries the current one; for when the
 * socket has become writable. MCAST_ERR_GENERAL when the socket did not take one, which stays first. For a
 * waiting message a send result of 0 counts as sent; for the current one, as in MRIB_GMP_TrySendBuffer, only
 * a positive result does.
 */
MCAST_API uint64_t MRIB_GMP_SendFailData(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* The last flow-control value of the MRIB, 0 when it has sent none on this connection. */
MCAST_API uint64_t MRIB_GMP_IsConnectionBusy(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Handles readiness of the socket. events: EPOLL... bits; error or hang-up closes the connection and returns
 * MCAST_OK. Otherwise one datagram is read and its records applied in order; the results of the records are
 * combined. MCAST_ERR_GENERAL for an empty or short datagram and when nothing could be read.
 */
MCAST_API uint64_t MRIB_GMP_ProcLipcMsg(uint32_t events, int32_t socket)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* Clears MRIB_GMP_SMOOTH_... bits; when none is left the smooth-finished callback runs. */
MCAST_API uint64_t MRIB_GMP_ClearSmoothFlag(uint64_t bits);

/* Empties the view: every instance disabled, without ACL, interface records and MSDP sources. No callback. */
MCAST_API uint64_t MRIB_GMP_DelData(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Releases everything except the socket: the client closes the connection first. Harmless when called twice.
 */
MCAST_API uint64_t MRIB_GMP_Fini(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* ---- The view ---- */

/*
 * Applies one received record: length bytes at value, which may be NULL when length is 0. Records that are
 * unknown, too short or for an instance out of range change nothing and give MCAST_OK; bytes beyond a
 * record's length are ignored. MCAST_ERR_GENERAL when an update could not be made, and for the end of a
 * replay of designated routers or boundaries when the client has no callback, and so no capability, for them.
 * Runs callbacks.
 *
 *   MRIB_TLV_VRF_STATE       stores the state as received; any but 1 deletes the instance's interface records
 *                            and local sources
 *   MRIB_TLV_VRF_STATE_END   disables the instances not named since the connection was opened
 *   MRIB_TLV_PIM_DR          1 makes this router the designated one, any other state not
 *   MRIB_TLV_BOUNDARY        an added range replaces the ranges within it; a removed one takes all ranges
 *                            within it along
 *   MRIB_TLV_FLOW_CONTROL    stores the value as received
 *   MRIB_TLV_SMOOTH_START    gives up unconfirmed SSM ACLs, marks designated routers, scopes and ranges stale
 *                            and asks for their replay as far as the client has the capability
 *   the other ends           remove what the replay has not confirmed, tell the client, clear their smooth
 *                            flag
 */
MCAST_API uint64_t mribGmpTLVProc(uint16_t type, uint16_t length, const void *value)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * The instance's layer-3 multicast state as the MRIB sent it: 1 = enabled, any other value disabled.
 * key->vrf_index is below the instance count.
 */
MCAST_API uint32_t MRIB_GMP_IsL3McEnabled(const MRIB_GMP_VRF_KEY_S *key);

/* The interface's designated-router state, 1 = this router; 0 when nothing is known. Index as above. */
MCAST_API uint32_t MRIB_GMP_IsPimDr(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index);

/*
 * 1 when multicast for the group may cross the interface, 0 when a boundary blocks it: a range that the group
 * lies in, or for an IPv6 group the interface's scope when both are from 3 to 15 and the interface's is at
 * least the group's, of which 15 counts as 14. Index as above.
 */
MCAST_API uint64_t MRIB_GMP_CanPassMBoundary(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                             const MCAST_ADDR_S *group);

/* Creates and stores the interface's record, which has none yet. NULL when that failed. */
MCAST_API MRIB_GMP_IF_S *mribGmpCreateInterface(MRIB_GMP_VRF_S *vrf, uint32_t if_index)
    MCAST_REQUIRES(vrf->lock);

/* Removes the interface's record with all its boundaries and frees it. */
MCAST_API void mribGmpDeleteInterface(MRIB_GMP_VRF_S *vrf, MRIB_GMP_IF_S *interface)
    MCAST_REQUIRES(vrf->lock);

/* Deletes all boundaries of the interface, ranges and scope; its record goes when nothing is left in it. */
MCAST_API void mribGmpDeleteIfAllMBoundry(MRIB_GMP_VRF_S *vrf, uint32_t if_index) MCAST_REQUIRES(vrf->lock);

/*
 * A hash from 0 to 0x7FFFFFFF of a key and two addresses; the key counts only when b is IPv6. In unsigned
 * 32-bit arithmetic, with word i an address's i-th 32 bits in network order and L(x) = x * 1103515245 +
 * 12345:
 *
 *   b not IPv6   L(L(b word 0) ^ a word 0)
 *   b IPv6       L(L((key * 0xC2A29A69 - 0x2C23E982) ^ x) ^ y), x the exclusive or of b's four words, y that
 *                of a's four words when a is IPv6 too, else a's word 3
 *
 * and of that the low 31 bits.
 */
MCAST_API uint32_t MRIB_GMP_GetHashVal(uint32_t key, const MCAST_ADDR_S *a, const MCAST_ADDR_S *b);

/*
 * ---- Senders ----
 *
 * Each appends one record to the current message. send_now: only the low 16 bits count; at 1 the message is
 * sent at once, otherwise the record waits for MRIB_GMP_SendAtOnce or for a full message. MCAST_ERR_GENERAL
 * when the record could not be reserved (not connected, or data lost and the failed flag set) or when the
 * send did not go through; in the latter case the record stays batched and goes out with the next send. No
 * pointer is kept.
 */

/*
 * The interface's group-membership protocol was switched; the low byte of enable, MRIB_GMP_ENABLED or
 * MRIB_GMP_DISABLED, is sent unchanged.
 */
MCAST_API uint64_t MRIB_GMP_SendGmpEnableAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                               uint32_t enable, uint32_t send_now)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * The interface's querier changed; the low byte of querier, MRIB_QUERIER_THIS_ROUTER or MRIB_QUERIER_OTHER,
 * is sent unchanged.
 */
MCAST_API uint64_t MRIB_GMP_SendQuerierChangeAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                                   uint32_t querier, uint32_t send_now)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * A group, or with a source a (source, group) pair, was joined or left on the interface. source may be NULL,
 * which is sent as the zero address of the group's family. The flags are sent unchanged: flag1 is
 * MRIB_JOIN_PRUNE_FLAG_JOIN or MRIB_JOIN_PRUNE_FLAG_PRUNE, flag2 MRIB_JOIN_PRUNE_FLAG_PLAIN or
 * MRIB_JOIN_PRUNE_FLAG_EXCLUDE. Never sends by itself: flush with MRIB_GMP_SendAtOnce.
 */
MCAST_API uint64_t MRIB_GMP_SendGmpJoinPrune(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                             const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                                             uint8_t flag1, uint8_t flag2)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Members of the interface that the selector names are to be deleted; a selector of zeros names all that this
 * client reported there. Sends at once.
 */
MCAST_API uint64_t MRIB_GMP_SendDeleteIfMember(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                               const MRIB_MEMBER_SELECTOR_S *selector)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* The host function was switched on the interface; sent as 1 when enable is 1, else as 0. */
MCAST_API uint64_t MRIB_GMP_SendHostEnableAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                                uint32_t enable, uint32_t send_now)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* The proxy was switched on the interface; sent as 1 when enable is 1, else as 0. */
MCAST_API uint64_t MRIB_GMP_SendProxyEnableAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                                 uint32_t enable, uint32_t send_now)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* Proxy forwarding was switched on the interface; the low byte of forwarding is sent unchanged. */
MCAST_API uint64_t MRIB_GMP_ProxyForwardingAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                                 uint32_t forwarding, uint32_t send_now)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* Proxy multipath was switched in the instance; the low byte of multipath is sent unchanged. */
MCAST_API uint64_t MRIB_GMP_SendProxyMultipathAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t multipath,
                                                    uint32_t send_now)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * An authenticated user on the interface, or that it is gone. byte1 becomes the field byte1 of
 * MRIB_MAUTH_USER_INFO_S, which is the user's kind, and byte2 the field byte2, its first byte, which is
 * MRIB_USER_PRESENT or MRIB_USER_GONE. block points at the 16 bytes of the address that the user reports
 * from, in network order, IPv4 in the first four. All of these are sent unchanged, as are the fields of user:
 * integers in host order, the six bytes of the hardware address as they stand in memory. Of send_now all 16
 * bits count.
 */
MCAST_API uint64_t MRIB_GMP_SendMAuthUserInfo(const MRIB_GMP_VRF_KEY_S *key, const MCAST_USRAUTH_INFO_S *user,
                                              uint32_t if_index, const uint8_t *block, uint8_t byte1,
                                              uint8_t byte2, uint16_t send_now)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* A record of the given type with family and smooth record as its value. Sends at once. */
MCAST_API uint64_t MRIB_GMP_SendSmoothAlert(uint8_t family, uint16_t type,
                                            const MRIB_SMOOTH_RECORD_S *smooth_record)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* A request of the given type for the client's family. Sends at once. */
MCAST_API uint64_t MRIB_GMP_SendSmoothRequire(MRIB_GMP_CONNECT_S *connection, uint16_t type)
    MCAST_REQUIRES(connection->lock);

MCAST_EXTERN_C_END

#endif
