/*
 * The AVL tree: a binary search tree in which the heights of a node's two subtrees differ by at most one.
 *
 *              node (height 3)            left subtree < node < right subtree
 *             /    \                      height = larger child height + 1, an absent child counts 0
 *          (2)      (1)
 *          / \
 *       (1)   (1)                         every node -> the caller's item
 *
 * Nodes have no parent pointer. What changes the tree keeps the path it came down on a stack of 32 and goes
 * back up along it, to the root in every case, balancing each subtree and setting each height
 * (avl_balance.cpp). The stack's size is the tree's greatest depth: an insertion that would go deeper is
 * refused before anything changed.
 *
 * Removal keeps nodes where they are when it can: of a node with two children only the item leaves, the
 * predecessor's item takes its place, and the predecessor's node, which has at most one child, is unlinked
 * and carries the removed item out.
 *
 * Searches need no path: the next greater item of a key is the last one at which the descent went left,
 * unless the key is present and has a right subtree. Walks do (avl_walk.cpp).
 *
 * A descent reads two lines per level, the node and its item, one after the other. Fetching both children
 * while the item is on its way halves that wait, and brings the sibling heights that balancing reads later.
 */
#include "mcast/avl.h"

#include <stdlib.h>

#include "container/avl_path.h"

using mcast::AvlPath;

namespace
{

MCAST_AVL_NODE_S *Leftmost(MCAST_AVL_NODE_S *node)
{
    while (node->left != nullptr) {
        node = node->left;
    }
    return node;
}

void Attach(MCAST_AVL_S *tree, MCAST_AVL_NODE_S **link, MCAST_AVL_NODE_S *node)
{
    node->left = nullptr;
    node->right = nullptr;
    node->height = 1;
    *link = node;
    ++tree->insert_count;
    ++tree->node_count;
}

/*
 * Goes on from found, the last node of the path, which has two children, to the node of its predecessor and
 * exchanges their items. The predecessor's node, now the last of the path, or NULL with nothing changed when
 * its data is missing or the path is full.
 */
MCAST_AVL_NODE_S *TakePredecessor(MCAST_AVL_NODE_S *found, AvlPath *path)
{
    MCAST_AVL_NODE_S *node = found->left;

    while (true) {
        if (!path->Push(node)) {
            return nullptr;
        }
        if (node->right == nullptr) {
            break;
        }
        node = node->right;
    }
    if (node->data == nullptr) {
        return nullptr;
    }
    void *removed = found->data;

    found->data = node->data;
    node->data = removed;
    return node;
}

/* The node matching key, with the path down to and including it; NULL when there is none. */
MCAST_AVL_NODE_S *FindWithPath(const MCAST_AVL_S *tree, const void *key, AvlPath *path)
{
    MCAST_AVL_KEY_COMPARE compare = tree->key_compare;
    MCAST_AVL_NODE_S *node = tree->root;

    while (node != nullptr && node->data != nullptr && path->Push(node)) {
        mcast::AvlPrefetchChildren(node);
        int32_t order = compare(node->data, key);

        if (order == 0) {
            return node;
        }
        node = *mcast::AvlLink(node, order > 0);
    }
    return nullptr;
}

/* Replaces node, the last of the path, by its only child or nothing, and drops it from the path. */
void Unlink(MCAST_AVL_S *tree, const MCAST_AVL_NODE_S *node, AvlPath *path)
{
    MCAST_AVL_NODE_S *child = node->left != nullptr ? node->left : node->right;
    --path->depth;
    if (path->depth == 0) {
        tree->root = child;
    } else if (path->nodes[path->depth - 1]->left == node) {
        path->nodes[path->depth - 1]->left = child;
    } else {
        path->nodes[path->depth - 1]->right = child;
    }
}

} // namespace

void MCAST_AVL_SetFunction(MCAST_AVL_S *tree, MCAST_AVL_NODE_COMPARE node_compare,
                           MCAST_AVL_KEY_COMPARE key_compare, MCAST_AVL_NODE_RELEASE node_release,
                           MCAST_AVL_DATA_RELEASE data_release, MCAST_AVL_SET_WALK_KEY set_walk_key)
{
    if (tree == nullptr) {
        return;
    }
    tree->node_compare = node_compare;
    tree->key_compare = key_compare;
    tree->node_release = node_release;
    tree->data_release = data_release;
    tree->set_walk_key = set_walk_key;
}

uint32_t MCAST_AVL_Insert(MCAST_AVL_S *tree, MCAST_AVL_NODE_S *node)
{
    if (tree == nullptr || node == nullptr) {
        return MCAST_AVL_BAD_ARGUMENT;
    }
    if (tree->root == nullptr) {
        Attach(tree, &tree->root, node);
        return MCAST_AVL_OK;
    }
    if (node->data == nullptr) {
        return MCAST_AVL_NO_DATA;
    }
    MCAST_AVL_NODE_COMPARE compare = tree->node_compare;

    if (compare == nullptr) {
        return MCAST_AVL_BAD_ARGUMENT;
    }
    AvlPath path;
    MCAST_AVL_NODE_S **link = &tree->root;

    while (*link != nullptr) {
        MCAST_AVL_NODE_S *visited = *link;

        if (visited->data == nullptr) {
            return MCAST_AVL_NO_DATA;
        }
        mcast::AvlPrefetchChildren(visited);
        int32_t order = compare(node->data, visited->data);

        if (order == 0) {
            return MCAST_AVL_PRESENT;
        }
        path.nodes[path.depth++] = visited;
        if (path.depth == MCAST_AVL_MAX_DEPTH) {
            return MCAST_AVL_TOO_DEEP;
        }
        link = mcast::AvlLink(visited, order < 0);
    }
    Attach(tree, link, node);
    mcast::AvlRebalance(tree, path);
    return MCAST_AVL_OK;
}

MCAST_AVL_NODE_S *MCAST_AVL_Remove(MCAST_AVL_S *tree, const void *key)
{
    if (tree == nullptr || key == nullptr || tree->key_compare == nullptr) {
        return nullptr;
    }
    AvlPath path;
    MCAST_AVL_NODE_S *node = FindWithPath(tree, key, &path);

    if (node != nullptr && node->left != nullptr && node->right != nullptr) {
        node = TakePredecessor(node, &path);
    }
    if (node == nullptr) {
        return nullptr;
    }
    Unlink(tree, node, &path);
    --tree->node_count;
    ++tree->remove_count;
    mcast::AvlRebalance(tree, path);
    return node;
}

MCAST_AVL_NODE_S *MCAST_AVL_Search(const MCAST_AVL_S *tree, const void *key)
{
    if (tree == nullptr || key == nullptr || tree->key_compare == nullptr) {
        return nullptr;
    }
    MCAST_AVL_KEY_COMPARE compare = tree->key_compare;
    MCAST_AVL_NODE_S *node = tree->root;

    while (node != nullptr && node->data != nullptr) {
        mcast::AvlPrefetchChildren(node);
        int32_t order = compare(node->data, key);

        if (order == 0) {
            return node;
        }
        node = order > 0 ? node->left : node->right;
    }
    return nullptr;
}

MCAST_AVL_NODE_S *MCAST_AVL_SearchNext(const MCAST_AVL_S *tree, const void *key)
{
    if (tree == nullptr || key == nullptr || tree->key_compare == nullptr) {
        return nullptr;
    }
    MCAST_AVL_KEY_COMPARE compare = tree->key_compare;
    MCAST_AVL_NODE_S *node = tree->root;
    MCAST_AVL_NODE_S *greater = nullptr;

    while (node != nullptr && node->data != nullptr) {
        mcast::AvlPrefetchChildren(node);
        int32_t order = compare(node->data, key);

        if (order == 0) {
            return node->right != nullptr ? Leftmost(node->right) : greater;
        }
        if (order > 0) {
            greater = node;
            node = node->left;
        } else {
            node = node->right;
        }
    }
    return greater;
}

MCAST_STATUS MCAST_AvlInsert(MCAST_AVL_S *tree, MCAST_AVL_NODE_S *node)
{
    if (MCAST_AVL_Insert(tree, node) != MCAST_AVL_OK) {
        free(node);
        return MCAST_ERR_GENERAL;
    }
    return MCAST_OK;
}
