/*
 * The platform's ordered container on Boost.Intrusive's AVL algorithms.
 *
 * The algorithms link nodes of our own layout laid over the record's AVL_NODE_S. Whether a record is in a
 * tree cannot be read from the node, which holds anything before the first insertion; removal therefore looks
 * the record up by its key and compares addresses. Searches descend by hand: the comparators give any
 * negative or positive number and are called once a level.
 */
#include "platform/avl.h"

#include <new>

#include "avl_node.h"
#include "mcasthost/loop.h"

namespace
{

using Node = host::AvlNode;
using Algorithms = host::AvlAlgorithms;

static_assert(sizeof(Node) <= sizeof(AVL_NODE_S) && alignof(Node) <= alignof(AVL_NODE_S));

// header is the root's parent; its left child is the first node.
struct Tree {
    Node header;
    AVL_NODE_COMPARE compare;
    AVL_FREE free_record;
    uint32_t count;
};

Tree *tree_of(AVL_HANDLE handle)
{
    return reinterpret_cast<Tree *>(handle);
}

} // namespace

extern "C" {

HOST_API AVL_HANDLE AVL_Init(AVL_NODE_COMPARE compare, uint32_t, AVL_FREE free_record)
{
    Tree *tree = compare == nullptr ? nullptr : new (std::nothrow) Tree{{}, compare, free_record, 0};
    if (tree != nullptr) {
        Algorithms::init_header(&tree->header);
    }
    return reinterpret_cast<AVL_HANDLE>(tree);
}

HOST_API uint32_t AVL_FreeAll(AVL_HANDLE handle)
{
    Tree *tree = tree_of(handle);
    if (tree == nullptr) {
        return HOST_FAILED;
    }
    // Taken over whole: the free function meets an empty tree that it may use.
    Node detached;
    Algorithms::init_header(&detached);
    Algorithms::swap_tree(&detached, &tree->header);
    tree->count = 0;
    while (detached.parent != nullptr) {
        Node *node = Algorithms::unlink_leftmost_without_rebalance(&detached);
        if (tree->free_record != nullptr) {
            tree->free_record(node);
        }
    }
    return 0;
}

HOST_API void AVL_Fini(AVL_HANDLE handle)
{
    if (handle != 0) {
        AVL_FreeAll(handle);
        delete tree_of(handle);
    }
}

HOST_API uint32_t AVL_Insert(AVL_HANDLE handle, void *record)
{
    Tree *tree = tree_of(handle);
    if (tree == nullptr || record == nullptr) {
        return HOST_FAILED;
    }
    Node *parent = &tree->header;
    bool left = true;
    for (Node *node = tree->header.parent; node != nullptr; node = left ? node->left : node->right) {
        int32_t order = tree->compare(record, node);
        if (order == 0) {
            return HOST_FAILED;
        }
        left = order < 0;
        parent = node;
    }
    Algorithms::insert_commit_data commit;
    commit.node = parent;
    commit.link_left = left;
    Algorithms::insert_unique_commit(&tree->header, ::new (record) Node, commit);
    ++tree->count;
    return 0;
}

HOST_API uint32_t AVL_Remove(AVL_HANDLE handle, void *record)
{
    Tree *tree = tree_of(handle);
    if (tree == nullptr || record == nullptr) {
        return 0;
    }
    Node *node = tree->header.parent;
    while (node != nullptr && node != record) {
        int32_t order = tree->compare(record, node);
        if (order == 0) {
            return 0; // an equal record, but another one
        }
        node = order < 0 ? node->left : node->right;
    }
    if (node == nullptr) {
        return 0;
    }
    Algorithms::erase(&tree->header, node);
    --tree->count;
    return 1;
}

HOST_API void *AVL_Get(AVL_HANDLE handle, const void *key, AVL_KEY_COMPARE compare)
{
    Tree *tree = tree_of(handle);
    if (tree == nullptr || compare == nullptr) {
        return nullptr;
    }
    for (Node *node = tree->header.parent; node != nullptr;) {
        int32_t order = compare(node, key);
        if (order == 0) {
            return node;
        }
        node = order < 0 ? node->right : node->left;
    }
    return nullptr;
}

HOST_API void *AVL_GetLeftMost(AVL_HANDLE handle)
{
    Tree *tree = tree_of(handle);
    return tree == nullptr || tree->count == 0 ? nullptr : tree->header.left;
}

HOST_API void *AVL_GetNext(AVL_HANDLE handle, const void *record_or_probe)
{
    Tree *tree = tree_of(handle);
    if (tree == nullptr || record_or_probe == nullptr) {
        return nullptr;
    }
    Node *found = nullptr;
    for (Node *node = tree->header.parent; node != nullptr;) {
        if (tree->compare(node, record_or_probe) > 0) {
            found = node;
            node = node->left;
        } else {
            node = node->right;
        }
    }
    return found;
}

HOST_API void *AVL_GetPrev(AVL_HANDLE handle, const void *record_or_probe)
{
    Tree *tree = tree_of(handle);
    if (tree == nullptr || record_or_probe == nullptr) {
        return nullptr;
    }
    Node *found = nullptr;
    for (Node *node = tree->header.parent; node != nullptr;) {
        if (tree->compare(node, record_or_probe) < 0) {
            found = node;
            node = node->right;
        } else {
            node = node->left;
        }
    }
    return found;
}

HOST_API uint32_t AVL_Count(AVL_HANDLE handle)
{
    return handle == 0 ? 0 : tree_of(handle)->count;
}

} // extern "C"
