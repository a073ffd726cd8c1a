/*
 * Radix tree: a path-compressed binary trie of address prefixes, generic over the caller's entries.
 *
 * The tree links entries and never allocates, copies or frees them. An entry carries, at offsets told at
 * creation, a pointer to its key record and a one-byte prefix length; the key bytes lie in network order at a
 * given offset inside the key record. While an entry is linked, neither its key pointer, its length byte nor
 * the key record may change: the tree keeps the key's words beside its nodes.
 *
 * Bit 0 is the most significant bit of the first key byte; a prefix of length L is bits 0 to L-1. Keys are
 * never masked: two entries are the same prefix when their first L bits agree. Bytes at and beyond the tree's
 * maximum length are never read and count as zero, so lengths above it are safe, if of little use.
 *
 * Prefix lengths are passed as 32-bit integers of which the low 8 bits count. Exact lookup and
 * MRT_RDX_SearchNextBest read key records as MCAST_ADDR_S and compare addresses under the mask of the length
 * for the record's own family; a length of 0, or one above the family's 32 or 128, masks everything away, so
 * that all addresses are equal under it. The other functions only need the key bytes. A tree holds keys of
 * one family; what it does with mixed families is not defined.
 *
 * No function locks. A tree and its walks belong to one thread at a time.
 */
#ifndef MCAST_RADIX_H
#define MCAST_RADIX_H

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

typedef struct MRT_RDX_TREE_S MRT_RDX_TREE_S;
typedef struct MRT_RDX_NODE_S MRT_RDX_NODE_S;
typedef struct MRT_RDX_WALK_S MRT_RDX_WALK_S;

/* A link of the circular list of registered walks; the tree's head and every walk begin one. */
typedef struct MRT_RDX_LINK_S {
    struct MRT_RDX_LINK_S *previous;
    struct MRT_RDX_LINK_S *next;
} MRT_RDX_LINK_S;

/* A tree. Allocated by MRT_RDX_CreateTree with private fields after these; read-only for callers. */
struct MRT_RDX_TREE_S {
    MRT_RDX_NODE_S *root;       /* NULL when the tree is empty */
    MRT_RDX_LINK_S walks;       /* registered walks; both links at the head itself when there are none */
    uint8_t maximum_length;     /* full key length in bits: 32 for IPv4, 128 for IPv6 */
    uint8_t address_offset;     /* where the key bytes begin inside a key record */
    uint8_t key_pointer_offset; /* where an entry holds the pointer to its key record */
    uint8_t length_offset;      /* where an entry holds its prefix-length byte */
    uint32_t glue_count;        /* nodes without an entry */
    uint32_t entry_count;       /* nodes with an entry */
};

MCAST_STATIC_ASSERT(sizeof(void *) == 8, "layouts are stated for 64-bit pointers");
MCAST_STATIC_ASSERT(sizeof(MRT_RDX_TREE_S) == 40, "tree record");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_TREE_S, walks) == 8, "walk list head follows the root");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_TREE_S, maximum_length) == 24, "maximum length");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_TREE_S, address_offset) == 25, "address offset");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_TREE_S, key_pointer_offset) == 26, "key-pointer offset");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_TREE_S, length_offset) == 27, "length offset");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_TREE_S, glue_count) == 28, "glue count");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_TREE_S, entry_count) == 32, "entry count");

/*
 * A node: a prefix that is in the tree, or a glue node that only joins two subtrees. Allocated and freed by
 * the tree, with private fields after these; read-only for callers and gone once its entry is deleted.
 */
struct MRT_RDX_NODE_S {
    MRT_RDX_NODE_S *left;  /* child whose keys have a 0 at this node's bit */
    MRT_RDX_NODE_S *right; /* child whose keys have a 1 there */
    MRT_RDX_NODE_S *parent;
    void *entry;        /* the caller's entry; NULL in a glue node */
    uint8_t bit;        /* prefix length, and index of the bit that chooses a child */
    uint8_t byte_index; /* bit / 8 */
    uint8_t bit_mask;   /* 0x80 >> (bit % 8) */
    uint8_t private_state;
    uint32_t private_word;
};

MCAST_STATIC_ASSERT(sizeof(MRT_RDX_NODE_S) == 40, "node record");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_NODE_S, right) == 8, "right child");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_NODE_S, parent) == 16, "parent");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_NODE_S, entry) == 24, "entry");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_NODE_S, bit) == 32, "bit");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_NODE_S, byte_index) == 33, "byte index");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_NODE_S, bit_mask) == 34, "bit mask");

/* Yields a walk's next entry and moves the walk on. */
typedef void *(*MRT_RDX_STEP)(MRT_RDX_WALK_S *walk);

/*
 * A walk: a cursor over entries. Allocated by the creators below and freed by MRT_RDX_DestroyWalk, which its
 * creator always calls, also when the tree has gone first.
 */
struct MRT_RDX_WALK_S {
    MRT_RDX_LINK_S links; /* in the tree's list; NULL when not registered or detached */
    MRT_RDX_TREE_S *tree; /* NULL once the tree has been destroyed under the walk */
    MRT_RDX_STEP step;
    uint8_t lower_bound; /* forward and reverse: never climbs above a node with a smaller bit; 0: no bound */
    MRT_RDX_NODE_S *current; /* where the next step begins; NULL when exhausted */
};

MCAST_STATIC_ASSERT(sizeof(MRT_RDX_WALK_S) == 48, "walk record");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_WALK_S, tree) == 16, "tree follows the links");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_WALK_S, step) == 24, "step");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_WALK_S, lower_bound) == 32, "lower bound");
MCAST_STATIC_ASSERT(offsetof(MRT_RDX_WALK_S, current) == 40, "current node");

/* Walk kinds. */
#define MRT_RDX_WALK_PREFIX_CHAIN 0u /* the prefixes covering a key, longest first */
#define MRT_RDX_WALK_FORWARD 1u      /* node, left subtree, right subtree */
#define MRT_RDX_WALK_REVERSE 2u      /* node, right subtree, left subtree */

/*
 * Accepts an entry by returning MCAST_TRUE; only the low 16 bits of the result count. It must not change the
 * tree.
 */
typedef MCAST_BOOL (*MRT_RDX_FILTER)(void *entry, void *argument);

/*
 * Makes an empty tree. key_pointer_offset and length_offset lie inside an entry, address_offset inside a key
 * record, maximum_length is in bits; of each the low 8 bits are stored. The caller ends the tree with
 * MRT_RDX_DestroyTree. NULL when memory is short.
 */
MCAST_API MRT_RDX_TREE_S *MRT_RDX_CreateTree(uint32_t key_pointer_offset, uint32_t length_offset,
                                             uint32_t address_offset, uint32_t maximum_length);

/*
 * Ends the tree: detaches every registered walk (which its owner still destroys), frees all nodes and the
 * record. Entries are not touched. tree is not NULL. Linear in the number of nodes.
 */
MCAST_API void MRT_RDX_DestroyTree(MRT_RDX_TREE_S *tree);

/*
 * Links entry under the key and length that it carries. Neither argument is NULL; entry and its key record
 * stay the caller's and outlive the link. An entry already present under the same prefix is replaced silently
 * and is the caller's again. The first entry of an empty tree sets entry_count to 1, every other new one
 * raises it. Returns the node that now holds entry, or NULL when memory is short: entry is then not linked
 * and the tree stays usable, but when it is the second allocation (a glue node) that fails, entry_count and
 * glue_count stay raised by one and the first allocation is lost. Trees of 256 entries and more take further
 * memory for an index, about 12 bytes an entry, and do without it when there is none. Cost: the tree's depth,
 * and now and then, as the tree doubles, time linear in its size.
 */
MCAST_API MRT_RDX_NODE_S *MRT_RDX_AddNode(MRT_RDX_TREE_S *tree, void *entry);

/*
 * Unlinks the entry stored under entry's key and length; entry must be in the tree and stays the caller's.
 * Neither argument is NULL. Registered walks that stand on it are moved past it. May be called between the
 * steps of any registered forward or reverse walk; a prefix-chain walk must not outlive a deletion. Cost: the
 * tree's depth plus the number of registered walks.
 */
MCAST_API void MRT_RDX_DeleteNode(MRT_RDX_TREE_S *tree, void *entry);

/*
 * The entry stored exactly under (key_record, length), or NULL; bits of the key beyond length do not matter.
 * key_record is an MCAST_ADDR_S. A NULL tree or key_record gives NULL.
 */
MCAST_API void *MRT_RDX_Locate(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length);

/*
 * The entry with the longest prefix of at most length bits that covers the key, or NULL. tree and key_record
 * are not NULL. A filter, when not NULL, is offered that entry, then the nodes above it one by one; the
 * search gives NULL at the first node above that holds no entry (a glue node) instead of passing it, although
 * an entry further up may cover the key and please the filter. To find the longest prefix that a filter
 * accepts, step a walk of kind MRT_RDX_WALK_PREFIX_CHAIN over the key instead, which passes glue nodes. Cost:
 * the tree's depth.
 */
MCAST_API void *MRT_RDX_LocateBest(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length,
                                   MRT_RDX_FILTER filter, void *filter_argument);

/*
 * The entry after (key_record, length): when that prefix is in the tree, the next entry in tree order; else
 * the first in tree order with a greater address, or an equal one and a greater length, compared without
 * masking. key_record is an MCAST_ADDR_S; NULL gives the first entry. NULL when there is none, for a NULL
 * tree and for an empty one. Cost: the tree's depth.
 */
MCAST_API void *MRT_RDX_SearchNextBest(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length);

/*
 * The first entry after (key_record, length) in tree order: ascending address and, on equal addresses,
 * ascending length when no key has bits beyond its length. Length 0 stands for the tree's maximum length; a
 * NULL key_record gives the first entry. tree is not NULL. NULL when there is none. When (key_record, length)
 * is not in the tree and its path ends at a covering entry that has nothing on the key's side, what hangs on
 * that entry's other side counts as coming after, even where it sorts before. Cost: the tree's depth.
 */
MCAST_API void *MRT_RDX_GetNext(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length);

/*
 * Makes a walk of the given kind that starts under (key_record, length), with length as its lower bound.
 * key_record may be NULL: a prefix chain then starts at a root that holds an entry; a forward or reverse walk
 * starts only with length 0, at the first entry that its order meets. The reverse walk reads the key
 * mirrored, so with a key it generally finds no start. The walk is not registered: nothing may be deleted
 * while it is open. tree is not NULL. NULL for an empty tree, no start, an unknown kind, or short memory.
 */
MCAST_API MRT_RDX_WALK_S *MRT_RDX_CreateWalkNode(MRT_RDX_TREE_S *tree, const void *key_record,
                                                 uint32_t length, uint32_t kind);

/*
 * As MRT_RDX_CreateWalkNode, and registers the walk at the front of the tree's list: deletions then move it
 * past the entry that goes, and MRT_RDX_DestroyTree detaches it.
 */
MCAST_API MRT_RDX_WALK_S *MRT_RDX_CreateWalk(MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length,
                                             uint32_t kind);

/* The walk's next entry, or NULL when walk is NULL, detached or exhausted. Constant on average. */
MCAST_API void *MRT_RDX_WalkNext(MRT_RDX_WALK_S *walk);

/* Sets the lower bound to 0, so that the walk runs to the end of the tree. NULL is ignored. */
MCAST_API void MRT_RDX_SetWalkAll(MRT_RDX_WALK_S *walk);

/* Unregisters the walk when it is registered, and frees it. NULL is ignored. */
MCAST_API void MRT_RDX_DestroyWalk(MRT_RDX_WALK_S *walk);

MCAST_EXTERN_C_END

#endif
