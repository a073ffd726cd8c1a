/*
 * What the files of the radix tree share: the private ends of its records, and the few moves from which every
 * operation is made. The essay is in radix_tree.cpp.
 */
#ifndef SRC_CONTAINER_RADIX_INTERNAL_H
#define SRC_CONTAINER_RADIX_INTERNAL_H

#include "container/radix_key.h"
#include "mcast/radix.h"

namespace mcast::radix
{

using Node = MRT_RDX_NODE_S;

enum class KeyKind : uint8_t { kIpv4, kIpv6, kAny };

struct Index;

/* The tree record with its private end. */
struct Tree {
    MRT_RDX_TREE_S shared;
    Index *index;   /* NULL: none, small or odd tree or short memory; see radix_index.h */
    uint32_t hosts; /* entries of exactly the maximum length */
    KeyKind kind;
    bool uniform; /* every entry added so far has an MCAST_ADDR_S key of the family that kind stands for */
};

/* An entry's node in an IPv6 tree: the key's words follow the shared fields. */
struct WideNode {
    Node shared;
    Key128 key;
};

/* Node::private_state: the node was allocated as a WideNode. */
inline constexpr uint8_t kHasKeyRoom = 1;

inline Tree *Inner(MRT_RDX_TREE_S *tree)
{
    return reinterpret_cast<Tree *>(tree);
}

inline const Tree *Inner(const MRT_RDX_TREE_S *tree)
{
    return reinterpret_cast<const Tree *>(tree);
}

/* Calls body with a null pointer to the tree's key type; body is instantiated once for each. */
template <typename Body> inline auto WithKeyType(const MRT_RDX_TREE_S *tree, Body body)
{
    switch (Inner(tree)->kind) {
    case KeyKind::kIpv4:
        return body(static_cast<Key32 *>(nullptr));
    case KeyKind::kIpv6:
        return body(static_cast<Key128 *>(nullptr));
    default:
        return body(static_cast<KeyAny *>(nullptr));
    }
}

inline const uint8_t *EntryKeyRecord(const MRT_RDX_TREE_S *tree, const void *entry)
{
    const uint8_t *record;
    memcpy(&record, static_cast<const uint8_t *>(entry) + tree->key_pointer_offset, sizeof record);
    return record;
}

inline unsigned EntryLength(const MRT_RDX_TREE_S *tree, const void *entry)
{
    return static_cast<const uint8_t *>(entry)[tree->length_offset];
}

template <typename Key> inline Key LoadKey(const MRT_RDX_TREE_S *tree, const void *key_record)
{
    return Key::Load(static_cast<const uint8_t *>(key_record) + tree->address_offset, tree->maximum_length);
}

/* The key of a node that holds an entry. */
template <typename Key> Key NodeKey(const MRT_RDX_TREE_S *tree, const Node *node);

template <> inline Key32 NodeKey(const MRT_RDX_TREE_S *, const Node *node)
{
    return {node->private_word};
}

template <> inline Key128 NodeKey(const MRT_RDX_TREE_S *tree, const Node *node)
{
    if ((node->private_state & kHasKeyRoom) != 0) {
        return reinterpret_cast<const WideNode *>(node)->key;
    }
    return LoadKey<Key128>(tree, EntryKeyRecord(tree, node->entry));
}

template <> inline KeyAny NodeKey(const MRT_RDX_TREE_S *tree, const Node *node)
{
    return LoadKey<KeyAny>(tree, EntryKeyRecord(tree, node->entry));
}

/* The child on the side of bit; both pointers are read, so that the choice needs no branch. */
inline Node *Child(const Node *node, bool bit)
{
    Node *left = node->left;
    Node *right = node->right;
    return bit ? right : left;
}

/*
 * The descent to a length: the node at exactly that bit on the key's path, else the last node above it, NULL
 * when the root lies below.
 */
template <typename Key> inline Node *Descend(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    const unsigned inside = length < Key::kBits ? length : Key::kBits;
    Node *last = nullptr;
    Node *node = tree->root;
    while (node != nullptr && node->bit < inside) {
        last = node;
        node = Child(node, key.TestInside(node->bit));
    }
    while (node != nullptr && node->bit < length) {
        last = node;
        node = node->left;
    }
    return node != nullptr && node->bit == length ? node : last;
}

/*
 * The descent to an entry: the first node of at least length bits that holds one, or the last node on the
 * key's path. The tree is not empty. The result holds an entry, as a node that lacks a child does.
 */
template <typename Key>
inline Node *DescendToEntry(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    Node *node = tree->root;

    while (node->bit < length || node->entry == nullptr) {
        Node *child = Child(node, Test(key, node->bit));

        if (child == nullptr) {
            break;
        }
        node = child;
    }
    return node;
}

/* The node itself or its nearest ancestor that holds an entry, or NULL. */
inline Node *UpToEntry(Node *node)
{
    while (node != nullptr && node->entry == nullptr) {
        node = node->parent;
    }
    return node;
}

/* The node of the longest prefix of at most length bits that covers the key, or NULL. */
template <typename Key> inline Node *FindBest(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    Node *node = UpToEntry(Descend(tree, key, length));

    if (node == nullptr) {
        return nullptr;
    }
    const unsigned common = key.CommonBits(NodeKey<Key>(tree, node));

    while (node != nullptr && (node->bit > common || node->entry == nullptr)) {
        node = node->parent;
    }
    return node;
}

/* The first entry of a subtree in tree order: a node without an entry has two children. */
inline Node *FirstNode(Node *node)
{
    while (node->entry == nullptr) {
        node = node->left;
    }
    return node;
}

/*
 * The node where a climb from node first finds an unvisited right subtree, or NULL: the next subtree in tree
 * order after node's own.
 */
inline Node *RightSubtreeAfter(const Node *node)
{
    for (const Node *parent = node->parent; parent != nullptr; node = parent, parent = parent->parent) {
        if (parent->right != nullptr && parent->right != node) {
            return parent->right;
        }
    }
    return nullptr;
}

/* The next node holding an entry in the order node, left subtree, right subtree; or NULL. */
inline Node *NextNode(const Node *node)
{
    Node *next = node->left != nullptr ? node->left : node->right;
    if (next == nullptr) {
        next = RightSubtreeAfter(node);
    }
    return next == nullptr ? nullptr : FirstNode(next);
}

} // namespace mcast::radix

#endif
