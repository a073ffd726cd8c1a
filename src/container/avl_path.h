/*
 * Paths of an AVL tree and what is done along them; shared by the files of the tree.
 */
#ifndef SRC_CONTAINER_AVL_PATH_H
#define SRC_CONTAINER_AVL_PATH_H

#include "mcast/avl.h"

namespace mcast
{

/* The nodes from the root downwards that a descent visited. */
struct AvlPath {
    MCAST_AVL_NODE_S *nodes[MCAST_AVL_MAX_DEPTH];
    uint32_t depth = 0;

    /* False when the path is full. */
    bool Push(MCAST_AVL_NODE_S *node)
    {
        if (depth == MCAST_AVL_MAX_DEPTH) {
            return false;
        }
        nodes[depth++] = node;
        return true;
    }
};

/*
 * Fetches both children while the caller waits for the node's data: the one taken next, and its sibling,
 * whose height balancing asks for. Always inline: a call of a function that only fetches is optimised away.
 */
[[gnu::always_inline]] inline void AvlPrefetchChildren(const MCAST_AVL_NODE_S *node)
{
    __builtin_prefetch(node->left);
    __builtin_prefetch(node->right);
}

/*
 * The link to follow, as a branch and not as a conditional move: the processor then guesses on while the data
 * is on its way, which pays where a path is recorded and rebalanced.
 */
[[gnu::always_inline]] inline MCAST_AVL_NODE_S **AvlLink(MCAST_AVL_NODE_S *node, bool left)
{
    if (left) {
        asm volatile("");
        return &node->left;
    }
    return &node->right;
}

/* Rebalances the subtree below every node of the path, deepest first, and sets the nodes' heights. */
void AvlRebalance(MCAST_AVL_S *tree, const AvlPath &path);

} // namespace mcast

#endif
