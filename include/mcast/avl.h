/*
 * A height-balanced binary search tree. Nodes are small records that point at the caller's data; a node may
 * stand alone or be part of the data. The tree orders items through the caller's functions, never allocates,
 * and frees nothing except as said. Nothing locks: a tree belongs to one thread at a time or to its caller's
 * lock.
 *
 * Paths are kept on stacks of MCAST_AVL_MAX_DEPTH entries, which bounds every tree at that depth: nine
 * million items at the very least, and some thousand million when they come in no particular order.
 */
#ifndef MCAST_AVL_H
#define MCAST_AVL_H

#include <stddef.h>
#include <stdint.h>

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

#define MCAST_AVL_MAX_DEPTH 32

/* Results of MCAST_AVL_Insert. */
#define MCAST_AVL_OK 0u
#define MCAST_AVL_BAD_ARGUMENT 1u /* no tree or no node */
#define MCAST_AVL_PRESENT 2u      /* an equal item is in the tree */
#define MCAST_AVL_TOO_DEEP 3u     /* the node would lie deeper than MCAST_AVL_MAX_DEPTH */
#define MCAST_AVL_NO_DATA 4u      /* the node's data or that of a visited node is NULL */

/*
 * A node, allocated and freed by the caller, who sets data. The tree sets the other fields on insertion and
 * owns them while the node is in it. Removal can move data from one node to another, so a node found earlier
 * is not a stable handle of its item.
 */
typedef struct MCAST_AVL_NODE_S {
    struct MCAST_AVL_NODE_S *left;
    struct MCAST_AVL_NODE_S *right;
    void *data;      /* the caller's item, not NULL */
    uint32_t height; /* 1 for a leaf; an absent child counts 0 */
} MCAST_AVL_NODE_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_AVL_NODE_S) == 32, "node record is 32 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_NODE_S, left) == 0, "left comes first");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_NODE_S, right) == 8, "right follows left");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_NODE_S, data) == 16, "data follows right");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_NODE_S, height) == 24, "height follows data");

struct MCAST_AVL_WALK_S;

/* Orders a new item against one in the tree: negative, 0 or positive as it sorts before, equal or after. */
typedef int32_t (*MCAST_AVL_NODE_COMPARE)(const void *new_data, const void *node_data);

/* Compares an item of the tree with a bare key: negative, 0 or positive as it sorts before, at or after. */
typedef int32_t (*MCAST_AVL_KEY_COMPARE)(const void *node_data, const void *key);

/* Takes back a node record. Must not use the tree. */
typedef void (*MCAST_AVL_NODE_RELEASE)(MCAST_AVL_NODE_S *node);

/* Takes back an item. Must not use the tree. */
typedef void (*MCAST_AVL_DATA_RELEASE)(void *data);

/* Stores in walk->key a pointer to the key of node's item that stays valid until the walk's next step. */
typedef void (*MCAST_AVL_SET_WALK_KEY)(struct MCAST_AVL_WALK_S *walk, MCAST_AVL_NODE_S *node);

/* A tree, provided zeroed by the caller, who then calls MCAST_AVL_SetFunction; written only by the tree. */
typedef struct MCAST_AVL_S {
    MCAST_AVL_NODE_S *root;
    uint32_t node_count;     /* items in the tree */
    uint32_t rotation_count; /* rebalancing steps, single and double alike */
    uint32_t insert_count;   /* successful insertions */
    uint32_t remove_count; /* successful removals, and nodes that MCAST_AVL_FreeAll passed to node_release */
    MCAST_AVL_NODE_COMPARE node_compare;
    MCAST_AVL_KEY_COMPARE key_compare;
    MCAST_AVL_NODE_RELEASE node_release;
    MCAST_AVL_DATA_RELEASE data_release;
    MCAST_AVL_SET_WALK_KEY set_walk_key;
} MCAST_AVL_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_AVL_S) == 64, "tree record is 64 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_S, root) == 0, "root comes first");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_S, node_count) == 8, "node count follows the root");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_S, rotation_count) == 12, "rotation count follows node count");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_S, insert_count) == 16, "insert count follows rotation count");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_S, remove_count) == 20, "remove count follows insert count");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_S, node_compare) == 24, "functions follow the counts");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_S, set_walk_key) == 56, "the walk key setter comes last");

/*
 * A walk in ascending order, provided by the caller and set up by one of the two functions below. It is valid
 * only while the tree is not changed between its steps, except that a walk just set up from a key finds its
 * place by walk->key on its first step.
 */
typedef struct MCAST_AVL_WALK_S {
    const void *key;                              /* key of the current item, set by set_walk_key */
    MCAST_AVL_NODE_S *current;                    /* NULL before the first step and after the end */
    MCAST_AVL_NODE_S *stack[MCAST_AVL_MAX_DEPTH]; /* from the root to current */
    MCAST_AVL_S *tree;
    uint32_t depth; /* entries on the stack */
} MCAST_AVL_WALK_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_AVL_WALK_S) == 288, "walk record is 288 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_WALK_S, key) == 0, "key comes first");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_WALK_S, current) == 8, "current follows key");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_WALK_S, stack) == 16, "stack follows current");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_WALK_S, tree) == 272, "tree follows the stack");
MCAST_STATIC_ASSERT(offsetof(MCAST_AVL_WALK_S, depth) == 280, "depth follows the tree");

/*
 * Stores the tree's functions. A NULL tree is ignored. node_compare serves insertion, key_compare removal,
 * searches and walks from a key; node_release and data_release serve MCAST_AVL_FreeAll; any may be NULL when
 * what it serves is not used, or when nothing is to be released or no walk needs its key.
 */
MCAST_API void MCAST_AVL_SetFunction(MCAST_AVL_S *tree, MCAST_AVL_NODE_COMPARE node_compare,
                                     MCAST_AVL_KEY_COMPARE key_compare, MCAST_AVL_NODE_RELEASE node_release,
                                     MCAST_AVL_DATA_RELEASE data_release,
                                     MCAST_AVL_SET_WALK_KEY set_walk_key);

/*
 * Puts node, whose data the caller has set, into the tree; both stay the caller's. MCAST_AVL_OK, or one of
 * the codes above with the tree unchanged. Into an empty tree the node goes at once, its data unchecked: a
 * node without data there makes every later insertion fail with MCAST_AVL_NO_DATA. Without a node_compare
 * only an empty tree takes a node (MCAST_AVL_BAD_ARGUMENT otherwise). Where several codes apply: missing
 * arguments, then the new node's data, then node_compare, then what the descent meets first, and at a node
 * its missing data, an equal item, and the depth, in this order. Logarithmic.
 */
MCAST_API uint32_t MCAST_AVL_Insert(MCAST_AVL_S *tree, MCAST_AVL_NODE_S *node);

/*
 * Takes the item that matches key out of the tree and returns a node record carrying it, which the caller
 * then owns together with its data. That record need not be the one with which the item was inserted: when
 * the item's node has two children, its predecessor's item moves into it and the predecessor's record is
 * returned. NULL, with the tree unchanged, when an argument or key_compare is NULL, nothing matches, or a
 * node without data is met. Logarithmic.
 */
MCAST_API MCAST_AVL_NODE_S *MCAST_AVL_Remove(MCAST_AVL_S *tree, const void *key);

/* The node whose item matches key, or NULL; also NULL for a NULL argument or key_compare. Logarithmic. */
MCAST_API MCAST_AVL_NODE_S *MCAST_AVL_Search(const MCAST_AVL_S *tree, const void *key);

/*
 * The node with the least item greater than key, which need not be present; NULL when there is none, and for
 * a NULL argument or key_compare. Logarithmic.
 */
MCAST_API MCAST_AVL_NODE_S *MCAST_AVL_SearchNext(const MCAST_AVL_S *tree, const void *key);

/*
 * Empties the tree, children before parents: each item goes to data_release when that is set, then its node
 * to node_release when that is set. A node without data is not given to data_release. Either may free the
 * block that holds both, as long as the other is not set. The tree stays usable. A NULL or empty tree is
 * ignored. Linear.
 */
MCAST_API void MCAST_AVL_FreeAll(MCAST_AVL_S *tree);

/*
 * Sets up a walk over the tree, whose first step yields the first item. tree may be NULL, which is a walk
 * over nothing. MCAST_OK, or MCAST_ERR_GENERAL for a NULL walk.
 */
MCAST_API MCAST_STATUS MCAST_AVL_InitWalk(MCAST_AVL_WALK_S *walk, MCAST_AVL_S *tree);

/*
 * Sets up a walk at the item equal to key or else at the next greater one, stores that item in *first_data
 * and calls set_walk_key for it; the first step yields the item after it, found by comparing with walk->key,
 * which set_walk_key has stored: without set_walk_key walk->key is NULL, and the first step hands that to
 * key_compare. MCAST_OK; MCAST_ERR_GENERAL, with the walk and *first_data untouched, when an argument is NULL
 * or there is no such item. Logarithmic.
 */
MCAST_API MCAST_STATUS MCAST_AVL_InitWalkFromKey(MCAST_AVL_WALK_S *walk, MCAST_AVL_S *tree, const void *key,
                                                 void **first_data);

/*
 * Steps the walk: the next node in ascending order, after set_walk_key was called for it. NULL at the end,
 * after which another call begins again at the first item; NULL also for a NULL walk and where the tree is
 * deeper than MCAST_AVL_MAX_DEPTH. Constant on average, logarithmic for the first step from a key.
 */
MCAST_API MCAST_AVL_NODE_S *MCAST_AVL_WalkNextNode(MCAST_AVL_WALK_S *walk);

/* Steps the walk like MCAST_AVL_WalkNextNode and returns the node's data, or NULL. */
MCAST_API void *MCAST_AVL_WalkNextData(MCAST_AVL_WALK_S *walk);

/*
 * MCAST_AVL_Insert for a node that came from malloc: MCAST_OK, or MCAST_ERR_GENERAL after the node, but not
 * its data, was given to free.
 */
MCAST_API MCAST_STATUS MCAST_AvlInsert(MCAST_AVL_S *tree, MCAST_AVL_NODE_S *node);

MCAST_EXTERN_C_END

#endif
