/*
 * Walks over the radix tree: prefix chains upwards, and the two orders over the whole tree or a subtree. The
 * reverse order is the forward one with left and right exchanged, the reading of the start key included, so
 * one body serves both.
 */
#include <stdlib.h>

#include "container/radix_internal.h"

using namespace mcast::radix;

namespace
{

/* The child that an order visits first, or second. */
template <bool kReverse> Node *FirstChild(const Node *node)
{
    return kReverse ? node->right : node->left;
}

template <bool kReverse> Node *SecondChild(const Node *node)
{
    return kReverse ? node->left : node->right;
}

/*
 * The next node in the order, with or without an entry; NULL past the root or above the bound. The second
 * child of a node is fetched while its first is visited: that is where the walk goes when it comes back.
 */
template <bool kReverse> Node *StepTo(const Node *node, unsigned bound)
{
    Node *first = FirstChild<kReverse>(node);
    Node *second = SecondChild<kReverse>(node);

    __builtin_prefetch(second);
    if (first != nullptr) {
        return first;
    }
    while (second == nullptr) {
        const Node *from = node;

        node = node->parent;
        if (node == nullptr || node->bit < bound) {
            return nullptr;
        }
        second = SecondChild<kReverse>(node);
        if (second == from) {
            second = nullptr;
        }
    }
    return second;
}

template <bool kReverse> void *StepOrder(MRT_RDX_WALK_S *walk)
{
    Node *node = walk->current;
    void *entry = node->entry;
    do {
        node = StepTo<kReverse>(node, walk->lower_bound);
    } while (node != nullptr && node->entry == nullptr);
    walk->current = node;
    return entry;
}

void *StepChain(MRT_RDX_WALK_S *walk)
{
    Node *node = UpToEntry(walk->current);
    if (node == nullptr) {
        walk->current = nullptr;
        return nullptr;
    }
    walk->current = node->parent;
    return node->entry;
}

template <typename Key> Node *StartChain(const MRT_RDX_TREE_S *tree, const void *key_record, unsigned length)
{
    if (key_record == nullptr) {
        return tree->root->entry != nullptr ? tree->root : nullptr;
    }
    return FindBest(tree, LoadKey<Key>(tree, key_record), length);
}

/* Where the descent of an order over (key, length) ends; the key is not used when length is 0. */
template <bool kReverse, typename Key> Node *DescendInOrder(Node *node, const Key &key, unsigned length)
{
    while (node->bit < length || node->entry == nullptr) {
        const bool second = node->bit < length && Test(key, node->bit);
        Node *child = second ? SecondChild<kReverse>(node) : FirstChild<kReverse>(node);

        if (child == nullptr) {
            return UpToEntry(node);
        }
        node = child;
    }
    return node;
}

template <bool kReverse, typename Key>
Node *StartOrder(const MRT_RDX_TREE_S *tree, const void *key_record, unsigned length)
{
    if (length == 0) {
        return DescendInOrder<kReverse>(tree->root, Key{}, 0);
    }
    if (key_record == nullptr) {
        /* Without a key nothing shares a bit with it. */
        return nullptr;
    }
    const Key key = LoadKey<Key>(tree, key_record);
    Node *node = DescendInOrder<kReverse>(tree->root, key, length);

    if (node == nullptr || node->bit < length || key.CommonBits(NodeKey<Key>(tree, node)) < length) {
        return nullptr;
    }
    return node;
}

template <typename Key>
Node *Start(const MRT_RDX_TREE_S *tree, const void *key_record, unsigned length, uint32_t kind)
{
    switch (kind) {
    case MRT_RDX_WALK_PREFIX_CHAIN:
        return StartChain<Key>(tree, key_record, length);
    case MRT_RDX_WALK_FORWARD:
        return StartOrder<false, Key>(tree, key_record, length);
    case MRT_RDX_WALK_REVERSE:
        return StartOrder<true, Key>(tree, key_record, length);
    default:
        return nullptr;
    }
}

MRT_RDX_STEP StepOf(uint32_t kind)
{
    switch (kind) {
    case MRT_RDX_WALK_PREFIX_CHAIN:
        return StepChain;
    case MRT_RDX_WALK_FORWARD:
        return StepOrder<false>;
    default:
        return StepOrder<true>;
    }
}

} // namespace

MRT_RDX_WALK_S *MRT_RDX_CreateWalkNode(MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length,
                                       uint32_t kind)
{
    if (tree->root == nullptr) {
        return nullptr;
    }
    Node *start = WithKeyType(
        tree, [=]<typename Key>(Key *) { return Start<Key>(tree, key_record, length & 0xff, kind); });

    if (start == nullptr) {
        return nullptr;
    }
    auto *walk = static_cast<MRT_RDX_WALK_S *>(malloc(sizeof(MRT_RDX_WALK_S)));

    if (walk == nullptr) {
        return nullptr;
    }
    *walk = {};
    walk->tree = tree;
    walk->step = StepOf(kind);
    walk->lower_bound = static_cast<uint8_t>(length);
    walk->current = start;
    return walk;
}

MRT_RDX_WALK_S *MRT_RDX_CreateWalk(MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length,
                                   uint32_t kind)
{
    MRT_RDX_WALK_S *walk = MRT_RDX_CreateWalkNode(tree, key_record, length, kind);
    if (walk != nullptr) {
        walk->links = {&tree->walks, tree->walks.next};
        tree->walks.next->previous = &walk->links;
        tree->walks.next = &walk->links;
    }
    return walk;
}

void *MRT_RDX_WalkNext(MRT_RDX_WALK_S *walk)
{
    if (walk == nullptr || walk->tree == nullptr || walk->current == nullptr) {
        return nullptr;
    }
    return walk->step(walk);
}

void MRT_RDX_SetWalkAll(MRT_RDX_WALK_S *walk)
{
    if (walk != nullptr) {
        walk->lower_bound = 0;
    }
}

void MRT_RDX_DestroyWalk(MRT_RDX_WALK_S *walk)
{
    if (walk == nullptr) {
        return;
    }
    if (walk->links.previous != nullptr && walk->links.next != nullptr) {
        walk->links.previous->next = walk->links.next;
        walk->links.next->previous = walk->links.previous;
    }
    free(walk);
}
