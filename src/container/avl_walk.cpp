/*
 * Walks over the tree in ascending order, and its release. A walk's stack holds the path from the root to the
 * current node, so that a step needs no compare; only the first step of a walk that was set up from a key
 * finds that path by comparing with the key.
 */
#include "mcast/avl.h"

namespace
{

/* Pushes node and its left descendants; false when the stack is too small for them. */
bool PushLeftwards(MCAST_AVL_WALK_S *walk, MCAST_AVL_NODE_S *node)
{
    for (; node != nullptr; node = node->left) {
        if (walk->depth == MCAST_AVL_MAX_DEPTH) {
            return false;
        }
        walk->stack[walk->depth++] = node;
    }
    return true;
}

/* Takes the top of the stack as the current node; an empty stack ends the walk. */
MCAST_AVL_NODE_S *TakeTop(MCAST_AVL_WALK_S *walk)
{
    if (walk->depth == 0) {
        walk->current = nullptr;
        return nullptr;
    }
    walk->current = walk->stack[walk->depth - 1];
    if (walk->tree->set_walk_key != nullptr) {
        walk->tree->set_walk_key(walk, walk->current);
    }
    return walk->current;
}

/* Pops until the top is the next node after the one that was on top; no children are looked at. */
void PopToSuccessor(MCAST_AVL_WALK_S *walk)
{
    const MCAST_AVL_NODE_S *popped;
    do {
        popped = walk->stack[--walk->depth];
    } while (walk->depth != 0 && walk->stack[walk->depth - 1]->right == popped);
}

/*
 * Rebuilds the path of a walk that knows only its key, down to the node after the key. False when the tree is
 * too deep for the stack.
 */
bool FindPlace(MCAST_AVL_WALK_S *walk)
{
    MCAST_AVL_KEY_COMPARE compare = walk->tree->key_compare;
    MCAST_AVL_NODE_S *node = walk->tree->root;
    uint32_t greater = 0; /* depth down to the last node that sorts after the key */

    while (node != nullptr && node->data != nullptr) {
        if (walk->depth == MCAST_AVL_MAX_DEPTH) {
            return false;
        }
        walk->stack[walk->depth++] = node;
        int32_t order = compare(node->data, walk->key);

        if (order == 0 && node->right != nullptr) {
            return PushLeftwards(walk, node->right);
        }
        if (order == 0) {
            break;
        }
        if (order > 0) {
            greater = walk->depth;
            node = node->left;
        } else {
            node = node->right;
        }
    }
    walk->depth = greater;
    return true;
}

/* Puts the next node on top of the stack, or empties it at the end; false when the stack is too small. */
bool Advance(MCAST_AVL_WALK_S *walk)
{
    if (walk->current == nullptr) {
        walk->depth = 0;
        return PushLeftwards(walk, walk->tree->root);
    }
    if (walk->depth == 0) {
        return walk->tree->key_compare == nullptr || FindPlace(walk);
    }
    if (walk->current->right != nullptr) {
        return PushLeftwards(walk, walk->current->right);
    }
    PopToSuccessor(walk);
    return true;
}

/*
 * Goes down to the leftmost node below node and leaves in every left pointer on the way the node above it,
 * which is the way back: a tree that is being released needs no stack.
 */
MCAST_AVL_NODE_S *DescendReversing(MCAST_AVL_NODE_S *node, MCAST_AVL_NODE_S *above)
{
    while (true) {
        MCAST_AVL_NODE_S *child = node->left;

        node->left = above;
        if (child == nullptr) {
            return node;
        }
        above = node;
        node = child;
    }
}

void Release(MCAST_AVL_S *tree, MCAST_AVL_NODE_S *node)
{
    if (tree->data_release != nullptr && node->data != nullptr) {
        tree->data_release(node->data);
    }
    if (tree->node_release != nullptr) {
        tree->node_release(node);
        ++tree->remove_count;
    }
}

} // namespace

void MCAST_AVL_FreeAll(MCAST_AVL_S *tree)
{
    if (tree == nullptr || tree->root == nullptr) {
        return;
    }
    MCAST_AVL_NODE_S *node = DescendReversing(tree->root, nullptr);

    while (node != nullptr) {
        MCAST_AVL_NODE_S *above = node->left;
        MCAST_AVL_NODE_S *right = node->right;

        if (right != nullptr) {
            node->right = nullptr;
            node = DescendReversing(right, node);
            continue;
        }
        node->left = nullptr;
        Release(tree, node);
        node = above;
    }
    tree->node_count = 0;
    tree->root = nullptr;
}

MCAST_STATUS MCAST_AVL_InitWalk(MCAST_AVL_WALK_S *walk, MCAST_AVL_S *tree)
{
    if (walk == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    *walk = MCAST_AVL_WALK_S{};
    walk->tree = tree;
    return MCAST_OK;
}

MCAST_STATUS MCAST_AVL_InitWalkFromKey(MCAST_AVL_WALK_S *walk, MCAST_AVL_S *tree, const void *key,
                                       void **first_data)
{
    if (walk == nullptr || first_data == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    MCAST_AVL_NODE_S *node = MCAST_AVL_Search(tree, key);

    if (node == nullptr) {
        node = MCAST_AVL_SearchNext(tree, key);
    }
    if (node == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    *walk = MCAST_AVL_WALK_S{};
    walk->tree = tree;
    walk->current = node;
    if (tree->set_walk_key != nullptr) {
        tree->set_walk_key(walk, node);
    }
    *first_data = node->data;
    return MCAST_OK;
}

MCAST_AVL_NODE_S *MCAST_AVL_WalkNextNode(MCAST_AVL_WALK_S *walk)
{
    if (walk == nullptr || walk->tree == nullptr) {
        return nullptr;
    }
    if (!Advance(walk)) {
        walk->depth = 0;
    }
    return TakeTop(walk);
}

void *MCAST_AVL_WalkNextData(MCAST_AVL_WALK_S *walk)
{
    const MCAST_AVL_NODE_S *node = MCAST_AVL_WalkNextNode(walk);
    return node != nullptr ? node->data : nullptr;
}
