#include "container/avl_path.h"

namespace
{

uint32_t Height(const MCAST_AVL_NODE_S *node)
{
    return node != nullptr ? node->height : 0;
}

void SetHeight(MCAST_AVL_NODE_S *node)
{
    uint32_t left = Height(node->left);
    uint32_t right = Height(node->right);
    node->height = (left > right ? left : right) + 1;
}

/* Lifts the left child above node and returns it; both heights are set. */
MCAST_AVL_NODE_S *RotateRight(MCAST_AVL_NODE_S *node)
{
    MCAST_AVL_NODE_S *lifted = node->left;
    node->left = lifted->right;
    lifted->right = node;
    SetHeight(node);
    SetHeight(lifted);
    return lifted;
}

/* The mirror of RotateRight. */
MCAST_AVL_NODE_S *RotateLeft(MCAST_AVL_NODE_S *node)
{
    MCAST_AVL_NODE_S *lifted = node->right;
    node->right = lifted->left;
    lifted->left = node;
    SetHeight(node);
    SetHeight(lifted);
    return lifted;
}

/* The root of node's subtree after it was balanced; counts a rebalancing step. */
MCAST_AVL_NODE_S *Balance(MCAST_AVL_S *tree, MCAST_AVL_NODE_S *node)
{
    uint32_t left = Height(node->left);
    uint32_t right = Height(node->right);
    if (left > right + 1) {
        ++tree->rotation_count;
        if (Height(node->left->left) < Height(node->left->right)) {
            node->left = RotateLeft(node->left);
        }
        return RotateRight(node);
    }
    if (left + 1 < right) {
        ++tree->rotation_count;
        if (Height(node->right->right) < Height(node->right->left)) {
            node->right = RotateRight(node->right);
        }
        return RotateLeft(node);
    }
    node->height = (left > right ? left : right) + 1;
    return node;
}

} // namespace

namespace mcast
{

void AvlRebalance(MCAST_AVL_S *tree, const AvlPath &path)
{
    for (uint32_t depth = path.depth; depth-- > 0;) {
        MCAST_AVL_NODE_S *node = path.nodes[depth];
        MCAST_AVL_NODE_S *top = Balance(tree, node);

        if (top == node) {
            continue;
        }
        if (depth == 0) {
            tree->root = top;
        } else if (path.nodes[depth - 1]->left == node) {
            path.nodes[depth - 1]->left = top;
        } else {
            path.nodes[depth - 1]->right = top;
        }
    }
}

} // namespace mcast
