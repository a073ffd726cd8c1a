/*
 * Ordered containers of the minimal platform: treaps, which are search trees by key and heaps by a number that is
 * drawn for each record, so that they are balanced whatever the order of insertion.
 */
#include <stdlib.h>

#include "mcast/platform/avl.h"

typedef struct NODE_S {
    struct NODE_S *left;
    struct NODE_S *right;
    uint64_t rank; /* no child has a greater one */
    uint64_t unused;
} NODE_S;

_Static_assert(sizeof(NODE_S) == sizeof(AVL_NODE_S), "the header of a record");

typedef struct TREE_S {
    NODE_S *root;
    uint32_t count;
    uint64_t drawn;
    AVL_NODE_COMPARE compare;
    AVL_FREE free_record;
} TREE_S;

static TREE_S *TreeOf(AVL_HANDLE handle)
{
    return (TREE_S *)(uintptr_t)handle;
}

static uint64_t Draw(TREE_S *tree)
{
    tree->drawn = tree->drawn * 6364136223846793005u + 1442695040888963407u;
    return tree->drawn >> 16;
}

/* Everything in left sorts before everything in right. */
static NODE_S *Merge(NODE_S *left, NODE_S *right)
{
    NODE_S *root = NULL;
    NODE_S **at = &root;
    while (left != NULL && right != NULL) {
        if (left->rank > right->rank) {
            *at = left;
            at = &left->right;
            left = *at;
        } else {
            *at = right;
            at = &right->left;
            right = *at;
        }
    }
    *at = left != NULL ? left : right;
    return root;
}

AVL_HANDLE AVL_Init(AVL_NODE_COMPARE compare, uint32_t option, AVL_FREE free_record)
{
    TREE_S *tree = calloc(1, sizeof(*tree));
    (void)option;
    if (tree != NULL) {
        tree->compare = compare;
        tree->free_record = free_record;
    }
    return (AVL_HANDLE)(uintptr_t)tree;
}

uint32_t AVL_FreeAll(AVL_HANDLE handle)
{
    TREE_S *tree = TreeOf(handle);
    while (tree != NULL && tree->root != NULL) {
        NODE_S *node = tree->root;
        tree->root = Merge(node->left, node->right);
        --tree->count;
        if (tree->free_record != NULL) {
            tree->free_record(node);
        }
    }
    return 0;
}

void AVL_Fini(AVL_HANDLE handle)
{
    AVL_FreeAll(handle);
    free(TreeOf(handle));
}

uint32_t AVL_Insert(AVL_HANDLE handle, void *record)
{
    TREE_S *tree = TreeOf(handle);
    NODE_S *node = record;
    if (tree == NULL || node == NULL) {
        return 1;
    }
    for (NODE_S *at = tree->root; at != NULL;) {
        const int32_t order = tree->compare(node, at);
        if (order == 0) {
            return 1;
        }
        at = order < 0 ? at->left : at->right;
    }
    node->rank = Draw(tree);
    NODE_S **place = &tree->root;
    while (*place != NULL && (*place)->rank >= node->rank) {
        place = tree->compare(node, *place) < 0 ? &(*place)->left : &(*place)->right;
    }
    /* What was here is split into what sorts before the record and what sorts after it. */
    NODE_S *rest = *place;
    NODE_S **before = &node->left;
    NODE_S **after = &node->right;
    *place = node;
    while (rest != NULL) {
        if (tree->compare(rest, node) < 0) {
            *before = rest;
            before = &rest->right;
            rest = *before;
        } else {
            *after = rest;
            after = &rest->left;
            rest = *after;
        }
    }
    *before = *after = NULL;
    ++tree->count;
    return 0;
}

uint32_t AVL_Remove(AVL_HANDLE handle, void *record)
{
    TREE_S *tree = TreeOf(handle);
    if (tree == NULL || record == NULL) {
        return 0;
    }
    for (NODE_S **place = &tree->root; *place != NULL;) {
        const int32_t order = tree->compare(record, *place);
        if (order == 0) {
            NODE_S *node = *place;
            if ((void *)node != record) {
                return 0;
            }
            *place = Merge(node->left, node->right);
            --tree->count;
            return 1;
        }
        place = order < 0 ? &(*place)->left : &(*place)->right;
    }
    return 0;
}

void *AVL_Get(AVL_HANDLE handle, const void *key, AVL_KEY_COMPARE compare)
{
    NODE_S *at = handle == 0 ? NULL : TreeOf(handle)->root;
    while (at != NULL) {
        const int32_t order = compare(at, key);
        if (order == 0) {
            return at;
        }
        at = order < 0 ? at->right : at->left;
    }
    return NULL;
}

void *AVL_GetLeftMost(AVL_HANDLE handle)
{
    NODE_S *at = handle == 0 ? NULL : TreeOf(handle)->root;
    while (at != NULL && at->left != NULL) {
        at = at->left;
    }
    return at;
}

void *AVL_GetNext(AVL_HANDLE handle, const void *record_or_probe)
{
    NODE_S *best = NULL;
    for (NODE_S *at = handle == 0 ? NULL : TreeOf(handle)->root; at != NULL;) {
        const int is_after = TreeOf(handle)->compare(record_or_probe, at) < 0;
        best = is_after ? at : best;
        at = is_after ? at->left : at->right;
    }
    return best;
}

void *AVL_GetPrev(AVL_HANDLE handle, const void *record_or_probe)
{
    NODE_S *best = NULL;
    for (NODE_S *at = handle == 0 ? NULL : TreeOf(handle)->root; at != NULL;) {
        const int is_before = TreeOf(handle)->compare(record_or_probe, at) > 0;
        best = is_before ? at : best;
        at = is_before ? at->right : at->left;
    }
    return best;
}

uint32_t AVL_Count(AVL_HANDLE handle)
{
    return handle == 0 ? 0 : TreeOf(handle)->count;
}
