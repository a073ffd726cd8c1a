/*
 * Interface registry: indexes for the interfaces that daemons create themselves, lists of sub-interfaces that
 * join groups together with their parent, the type of any interface, and selectors of the interfaces that
 * multicast works on.
 *
 * An interface index above 0xBFFFFFFF is private: bits 29 to 25 hold its type, bits 24 to 0 its number. A
 * process has one registry. MCAST_IF_Init comes first and MCAST_IF_Fini last, both while no other call runs;
 * outside that span creating, reserving and listing fail and the rest does nothing. Indexes are created,
 * destroyed, reserved and reset on one thread; the lists have a mutex of their own and may be used from any
 * thread, as may everything that only looks at an index. A failure is MCAST_ERR_GENERAL, here in 64 bits.
 */
#ifndef MCAST_INTERFACE_REGISTRY_H
#define MCAST_INTERFACE_REGISTRY_H

#include "mcast/common.h"
#include "platform/avl.h"
#include "platform/interface.h"

MCAST_EXTERN_C_BEGIN

/* Types of private interfaces, for MCAST_IF_Init. */
#define MCAST_IF_TYPE_NBMA_FIRST 6u
#define MCAST_IF_TYPE_NBMA_SECOND 7u
#define MCAST_IF_TYPE_MUA_IPV4 8u
#define MCAST_IF_TYPE_MUA_IPV6 9u

/* The lowest private index, the place of the type in it and the mask of the number in it. */
#define MCAST_IF_PRIVATE_FIRST 0xC0000000u
#define MCAST_IF_TYPE_SHIFT 25
#define MCAST_IF_NUMBER_MASK 0x1FFFFFFu

/* Range of the indexes of simple interfaces. */
#define MCAST_IF_SIMPLE_FIRST 0xFE000000u
#define MCAST_IF_SIMPLE_LAST 0xFFFFFFFEu

/* Results of MCAST_GetIfTypeByIfIndex for the library's own interfaces and for one that has no type. */
#define MCAST_IF_PLATFORM_TYPE_PRIVATE 98u
#define MCAST_IF_PLATFORM_TYPE_UNKNOWN 128u

/* A row of the tables of interface types; a row of zeros ends a table. */
typedef struct MCAST_IF_TYPE_ROW_S {
    uint64_t type; /* the platform's type code */
    const char *name;
} MCAST_IF_TYPE_ROW_S;

/* A sub-interface that joins groups together with its parent. The registry's own. */
typedef struct MCAST_IF_JOIN_SUB_S {
    AVL_NODE_S link;
    uint32_t sub_if_index; /* the key */
} MCAST_IF_JOIN_SUB_S;

/* A parent interface; it exists while it has sub-interfaces. The registry's own, guarded by its mutex. */
typedef struct MCAST_IF_JOIN_PARENT_S {
    AVL_NODE_S link;
    uint32_t parent_if_index;  /* the key */
    AVL_HANDLE sub_interfaces; /* tree of MCAST_IF_JOIN_SUB_S, which it frees */
} MCAST_IF_JOIN_PARENT_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_IF_TYPE_ROW_S) == 16, "a row is a code and a pointer");
MCAST_STATIC_ASSERT(offsetof(MCAST_IF_JOIN_SUB_S, sub_if_index) == sizeof(AVL_NODE_S), "key follows link");
MCAST_STATIC_ASSERT(offsetof(MCAST_IF_JOIN_PARENT_S, parent_if_index) == sizeof(AVL_NODE_S),
                    "key follows link");
MCAST_STATIC_ASSERT(offsetof(MCAST_IF_JOIN_PARENT_S, sub_interfaces) == sizeof(AVL_NODE_S) + 8,
                    "tree follows key");

/*
 * The layer-3 interface types that multicast works on, in the order in which selectors take them: 1
 * analogmodem, 2 async, 4 atm, 6 bri, 10 dialer, 16 loopback, 22 ethernet_l3, 23 gigabitethernet_l3, 24
 * virtual-ethernet_l3, 25 ten-gigabitethernet_l3, 27 mfr, 29 mp-group, 31 pos, 35 serial, 41 vlan-interface,
 * 42 virtual-template, 47 wlan-ethernet, 55 rpr-router, 67 route-aggregation, 70 fortygige_l3, 71
 * hundredgige_l3, 39 tunnel, 89 twentygige_l3, 97 efm, 86 hdlc-bundle, 105 ve-l3vpn, 110 reth, 111
 * vsi-interface.
 */
MCAST_API extern const MCAST_IF_TYPE_ROW_S g_astMcastL3If[29];

/*
 * Those that are like Ethernet: 22, 23, 24, 25, 67, 70, 71, 89, 105 and 110, named as above; and the same
 * with virtual switch interfaces: 111 behind them.
 */
MCAST_API extern const MCAST_IF_TYPE_ROW_S g_astMcastL3EthernetIf[11];
MCAST_API extern const MCAST_IF_TYPE_ROW_S g_astMcastL3EthVsiIf[12];

/* Those on which users may be authenticated: 22, 23, 24, 25, 42, 67, 70, 71, 89, 105, 110 and 111. */
MCAST_API extern const MCAST_IF_TYPE_ROW_S g_astAuthL3If[13];

/*
 * Opens the registry for a daemon whose interfaces are of the given type, MCAST_IF_TYPE_*: their indexes
 * begin at 0xC0000000 plus the type shifted left by 25. Any other type fails and changes nothing. A registry
 * that is open is closed first. 0, or a failure that leaves it closed.
 */
MCAST_API uint64_t MCAST_IF_Init(uint32_t type);

/* Closes the registry and frees all it holds. Closing twice does nothing. 0. */
MCAST_API uint64_t MCAST_IF_Fini(void);

/*
 * Hands out an index for an interface of the daemon's type, or for a simple interface. The index that was
 * given back last is handed out first. Whenever those at hand are used up, the lowest 16384 (128 simple) free
 * indexes are fetched, from as many runs of adjacent ones as that takes; they are handed out run by run, the
 * highest run first, and ascending within a run. So a new registry hands out its indexes in ascending order.
 * The index, or 0 when all are in use. Constant cost, but for the fetching.
 */
MCAST_API uint64_t MCAST_CreateIf(void);
MCAST_API uint64_t MCAST_CreateSimplyIf(void);

/*
 * Takes back an index from MCAST_CreateIf or MCAST_CreateSimplyIf. It must be in use: an index that is free
 * becomes free twice. One that the registry never hands out is ignored. Constant cost while fewer indexes are
 * at hand than are fetched at once; otherwise logarithmic in the number of ranges of free indexes, and an
 * index for which there is no memory stays in use.
 */
MCAST_API void MCAST_DestroyIf(uint32_t if_index);

/*
 * Switch-over, in three steps: MCAST_IF_Degrade makes all indexes free, MCAST_ReserveIf marks each one that
 * stays in use, MCAST_IF_ReserveFinish fetches free indexes for MCAST_CreateIf and MCAST_CreateSimplyIf.
 * Lists of sub-interfaces are left alone.
 *
 * MCAST_IF_Degrade fails when memory is short: the indexes concerned cannot be handed out until it succeeds.
 * MCAST_ReserveIf fails, changing nothing, when the index is none of the registry's, not free or already
 * fetched, or memory is short. Its cost is logarithmic in the number of ranges of free indexes.
 * MCAST_IF_ReserveFinish has no failure and returns 0; it fetches only as many as bring those at hand to
 * 16384 and 128, and those it fetches are handed out before those that were at hand.
 */
MCAST_API uint64_t MCAST_IF_Degrade(void);
MCAST_API uint64_t MCAST_ReserveIf(uint32_t if_index);
MCAST_API uint64_t MCAST_IF_ReserveFinish(void);

/* Whether the index is private; private and that of a Multicast-UA interface; of an NBMA link interface. */
MCAST_API MCAST_BOOL MCAST_IsPrivateIfIndex(uint32_t if_index);
MCAST_API MCAST_BOOL MCAST_IsMUAIntf(uint32_t if_index);
MCAST_API MCAST_BOOL MCAST_IsNBMALinkIntf(uint32_t if_index);

/*
 * The type code of an interface: MCAST_IF_PLATFORM_TYPE_PRIVATE for a Multicast-UA or NBMA link interface,
 * otherwise what the platform says, MCAST_IF_PLATFORM_TYPE_UNKNOWN when it says nothing.
 */
MCAST_API uint32_t MCAST_GetIfTypeByIfIndex(uint32_t if_index);

/*
 * Whether an interface may be configured through the MIB: 0, or MCAST_MIB_NOT_SETTABLE for a private one, one
 * that the platform does not know, and one of type 11 or 40.
 */
MCAST_API uint64_t MCAST_IF_CanMibSet(uint32_t if_index);

/*
 * Adds a sub-interface to those that join groups together with the parent. *count, not NULL, receives how
 * many the parent has now. 0, or a failure that changes nothing: it is there already, or memory is short.
 * Takes the registry's mutex. Logarithmic cost.
 */
MCAST_API uint64_t MCAST_AddToSameJoinGroupIf(uint32_t parent_if_index, uint32_t sub_if_index,
                                              uint32_t *count);

/*
 * Takes a sub-interface out again. *count, not NULL, receives how many the parent has left. 0, or a failure
 * that changes nothing: parent or sub-interface is not there. Takes the registry's mutex. Logarithmic cost.
 */
MCAST_API uint64_t MCAST_DeleteFromSameJoinGroupIf(uint32_t parent_if_index, uint32_t sub_if_index,
                                                   uint32_t *count);

/*
 * Makes a sub-interface record and puts it into the parent's tree, which owns it then: the step in the middle
 * of MCAST_AddToSameJoinGroupIf. parent is not NULL and has a tree; the registry is not looked at. The caller
 * holds whatever guards the parent. 0, or a failure that changes nothing: the tree refuses it, as it does a
 * second record of the same index, or memory is short.
 */
MCAST_API uint64_t mcastIf_CreateSubIf(MCAST_IF_JOIN_PARENT_S *parent, uint32_t sub_if_index);

/*
 * Fill the platform's selector, not NULL: for commands that configure an interface, and for those that only
 * ask about one. IF_Select_Init with kind 5, IF_SelectProperty_Set with 8, then IF_SelectType_Set with the
 * types of g_astMcastL3If in their order and, for configuration, 3; for questions 57, 51, 3, 11 and 40. Then
 * item 23 of type 5 is read with IF_GetDataByIfType into a flag that starts at 0; type 5 is selected when the
 * flag is 0. The result of the last platform call, 0 on success; those before it are not looked at.
 */
MCAST_API uint64_t MCAST_IF_HookForCfg(IF_SELECTOR_S *selector);
MCAST_API uint64_t MCAST_IF_HookForQuery(IF_SELECTOR_S *selector);

MCAST_EXTERN_C_END

#endif
