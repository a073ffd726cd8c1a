/*
 * The radix tree: making, growing, pruning and ending it.
 *
 * A node stands for a prefix of `bit` bits and tests the key's bit of that number to choose a child; bits
 * grow downwards and may skip. A node without an entry is glue: it exists only because two subtrees part at
 * its bit, and always has two children.
 *
 *        (10.0.0.0/8)  bit 8           entries 10.0.0.0/8, 10.0.0.0/16, 10.1.0.0/16
 *             |
 *          [glue]      bit 15          the first bit in which 10.0 and 10.1 differ
 *          /    \
 *   10.0.0.0/16  10.1.0.0/16           bit 16
 *
 * Nodes on a path agree in all bits above, so a search need not compare on the way down: it goes down blindly
 * by the key's bits, compares once with the entry where it ends, and the number of common bits tells how far
 * up the path the key really belongs. That comparison reads the entry's key from words that stand beside the
 * node, in IPv4 trees in every node and in IPv6 trees in nodes that were made for an entry; a glue node that
 * took an entry later, and trees of other key sizes, go through the entry to its key record.
 *
 * Larger trees keep an index beside them (radix_index.h), which finds the node of an exact prefix without a
 * descent and is consulted first; it never changes an answer.
 *
 * A node's stated fields are the caller's to read. Behind them stand the key's words; the record of a tree
 * likewise has a private end.
 *
 * Walks hold a node. Registered ones hang on the tree in a circular list; a deletion moves those that stand
 * on the node that loses its entry one step on before it prunes, and pruning frees only nodes without an
 * entry, on which no forward or reverse walk ever stands. Nothing recurses: every traversal climbs by parent
 * pointers.
 */
#include <stdlib.h>

#include "container/radix_index.h"

using namespace mcast::radix;

namespace
{

Node *NewNode(size_t size, uint8_t state, unsigned bit, void *entry)
{
    auto *node = static_cast<Node *>(malloc(size));
    if (node == nullptr) {
        return nullptr;
    }
    *node = {};
    node->entry = entry;
    node->bit = static_cast<uint8_t>(bit);
    node->byte_index = static_cast<uint8_t>(bit / 8);
    node->bit_mask = static_cast<uint8_t>(0x80u >> (bit % 8));
    node->private_state = state;
    return node;
}

Node *NewGlue(unsigned bit)
{
    return NewNode(sizeof(Node), 0, bit, nullptr);
}

void StoreKey(Node *node, const Key32 &key)
{
    node->private_word = key.word;
}

void StoreKey(Node *node, const Key128 &key)
{
    if ((node->private_state & kHasKeyRoom) != 0) {
        reinterpret_cast<WideNode *>(node)->key = key;
    }
}

void StoreKey(Node *, const KeyAny &)
{
}

template <typename Key> Node *NewEntryNode(const Key &key, unsigned length, void *entry)
{
    constexpr bool kWide = Key::kBits == Key128::kBits;
    Node *node =
        NewNode(kWide ? sizeof(WideNode) : sizeof(Node), kWide ? kHasKeyRoom : uint8_t{0}, length, entry);
    if (node != nullptr) {
        StoreKey(node, key);
    }
    return node;
}

/* Hangs child, which may be NULL, below node. */
void SetChild(Node *node, bool right, Node *child)
{
    (right ? node->right : node->left) = child;
    if (child != nullptr) {
        child->parent = node;
    }
}

/* Puts node, which may be NULL, where old hangs. */
void TakePlace(MRT_RDX_TREE_S *tree, const Node *old, Node *node)
{
    Node *parent = old->parent;
    if (parent == nullptr) {
        tree->root = node;
    } else {
        (parent->left == old ? parent->left : parent->right) = node;
    }
    if (node != nullptr) {
        node->parent = parent;
    }
}

/* Private bookkeeping for a node that now stands in the tree with an entry. */
void NoteAdded(MRT_RDX_TREE_S *tree, const Node *node)
{
    Tree *inner = Inner(tree);
    inner->hosts += node->bit == tree->maximum_length;
    IndexAdd(inner, node);
}

/* The prefix is in the tree: its node takes the entry, in place of the one it has if any. */
template <typename Key> Node *TakeEntry(MRT_RDX_TREE_S *tree, Node *node, const Key &key, void *entry)
{
    if (node->entry == nullptr) {
        --tree->glue_count;
        ++tree->entry_count;
        node->entry = entry;
        StoreKey(node, key);
        NoteAdded(tree, node);
    } else {
        node->entry = entry;
        StoreKey(node, key);
    }
    return node;
}

template <typename Key> Node *AddFirst(MRT_RDX_TREE_S *tree, const Key &key, unsigned length, void *entry)
{
    Node *node = NewEntryNode(key, length, entry);
    if (node != nullptr) {
        tree->root = node;
        tree->entry_count = 1;
        NoteAdded(tree, node);
    }
    return node;
}

template <typename Key> Node *Add(MRT_RDX_TREE_S *tree, void *entry)
{
    const unsigned length = EntryLength(tree, entry);
    const Key key = LoadKey<Key>(tree, EntryKeyRecord(tree, entry));

    if (tree->root == nullptr) {
        return AddFirst(tree, key, length, entry);
    }
    FetchHome(tree, key, length);
    Node *anchor = DescendToEntry(tree, key, length);
    const Key other = NodeKey<Key>(tree, anchor);
    const unsigned limit = length < anchor->bit ? length : anchor->bit;
    const unsigned common = key.CommonBits(other);
    const unsigned fork = common < limit ? common : limit;

    while (anchor->parent != nullptr && anchor->parent->bit >= fork) {
        anchor = anchor->parent;
    }
    if (fork == length && anchor->bit == length) {
        return TakeEntry(tree, anchor, key, entry);
    }

    Node *node = NewEntryNode(key, length, entry);

    if (node == nullptr) {
        return nullptr;
    }
    ++tree->entry_count;
    if (fork == anchor->bit) {
        SetChild(anchor, Test(key, fork), node);
    } else if (fork == length) {
        TakePlace(tree, anchor, node);
        SetChild(node, Test(other, fork), anchor);
    } else {
        ++tree->glue_count;
        Node *glue = NewGlue(fork);

        if (glue == nullptr) {
            /* Part of the contract: counts stay raised and the node is lost. */
            return nullptr;
        }
        TakePlace(tree, anchor, glue);
        SetChild(glue, Test(key, fork), node);
        SetChild(glue, !Test(key, fork), anchor);
    }
    NoteAdded(tree, node);
    return node;
}

void MoveWalksPast(MRT_RDX_TREE_S *tree, const Node *node)
{
    for (MRT_RDX_LINK_S *link = tree->walks.next; link != &tree->walks; link = link->next) {
        auto *walk = reinterpret_cast<MRT_RDX_WALK_S *>(link);

        if (walk->current == node) {
            MRT_RDX_WalkNext(walk);
        }
    }
}

/* Frees node and its ancestors as far as they hold nothing and join nothing. */
void Prune(MRT_RDX_TREE_S *tree, Node *node)
{
    while (node != nullptr && node->entry == nullptr && (node->left == nullptr || node->right == nullptr)) {
        Node *parent = node->parent;

        TakePlace(tree, node, node->left != nullptr ? node->left : node->right);
        free(node);
        --tree->glue_count;
        node = parent;
    }
}

/* The slot of a node that holds an entry; NULL without an index and for a node that has no place in it. */
template <typename Key> uint64_t *SlotOf(const MRT_RDX_TREE_S *tree, const Node *node)
{
    Index *index = Inner(tree)->index;
    if (index == nullptr || !IsIndexed(tree, node->bit)) {
        return nullptr;
    }
    return FindSlot(tree, index, NodeKey<Key>(tree, node), node->bit);
}

template <typename Key> void Delete(MRT_RDX_TREE_S *tree, const void *entry)
{
    const Key key = LoadKey<Key>(tree, EntryKeyRecord(tree, entry));
    const unsigned length = EntryLength(tree, entry);
    Tree *inner = Inner(tree);
    uint64_t *slot = nullptr;
    Node *node;

    if (inner->index != nullptr && IsIndexed(tree, length)) {
        slot = FindSlot(tree, inner->index, key, length);
    }
    if (slot != nullptr) {
        node = NodeOf(*slot);
    } else {
        node = Descend(tree, key, length);
        if (node == nullptr) {
            return;
        }
        /* A node of another prefix only when the caller deletes what is not there. */
        slot = node->entry == nullptr ? nullptr : SlotOf<Key>(tree, node);
    }
    const bool held = node->entry != nullptr;
    const unsigned bit = node->bit;

    node->entry = nullptr;
    MoveWalksPast(tree, node);
    ++tree->glue_count;
    --tree->entry_count;
    Prune(tree, node);
    if (held) {
        inner->hosts -= bit == tree->maximum_length;
        IndexRemove(inner, bit, slot);
    }
}

void DetachWalks(MRT_RDX_TREE_S *tree)
{
    MRT_RDX_LINK_S *link = tree->walks.next;

    while (link != &tree->walks) {
        auto *walk = reinterpret_cast<MRT_RDX_WALK_S *>(link);

        link = link->next;
        walk->links = {nullptr, nullptr};
        walk->tree = nullptr;
        walk->current = nullptr;
    }
}

/* Frees every node, each after those below it. */
void FreeNodes(Node *node)
{
    while (node != nullptr) {
        if (node->left != nullptr) {
            node = node->left;
        } else if (node->right != nullptr) {
            node = node->right;
        } else {
            Node *parent = node->parent;

            if (parent != nullptr) {
                (parent->left == node ? parent->left : parent->right) = nullptr;
            }
            free(node);
            node = parent;
        }
    }
}

/* Whether the entry's key record is an address record of the family that the tree's key size stands for. */
bool IsOfFamily(const Tree *tree, const void *entry)
{
    const uint8_t *record = EntryKeyRecord(&tree->shared, entry);
    uint16_t family;
    memcpy(&family, record + offsetof(MCAST_ADDR_S, family), sizeof family);
    return (family == MCAST_FAMILY_IPV4) == (tree->kind == KeyKind::kIpv4);
}

KeyKind KindOf(uint8_t maximum_length)
{
    switch (maximum_length) {
    case Key32::kBits:
        return KeyKind::kIpv4;
    case Key128::kBits:
        return KeyKind::kIpv6;
    default:
        return KeyKind::kAny;
    }
}

} // namespace

MRT_RDX_TREE_S *MRT_RDX_CreateTree(uint32_t key_pointer_offset, uint32_t length_offset,
                                   uint32_t address_offset, uint32_t maximum_length)
{
    auto *tree = static_cast<Tree *>(malloc(sizeof(Tree)));
    if (tree == nullptr) {
        return nullptr;
    }
    *tree = {};
    tree->shared.walks = {&tree->shared.walks, &tree->shared.walks};
    tree->shared.maximum_length = static_cast<uint8_t>(maximum_length);
    tree->shared.address_offset = static_cast<uint8_t>(address_offset);
    tree->shared.key_pointer_offset = static_cast<uint8_t>(key_pointer_offset);
    tree->shared.length_offset = static_cast<uint8_t>(length_offset);
    tree->kind = KindOf(tree->shared.maximum_length);
    tree->uniform =
        tree->kind != KeyKind::kAny && tree->shared.address_offset == offsetof(MCAST_ADDR_S, address);
    return &tree->shared;
}

void MRT_RDX_DestroyTree(MRT_RDX_TREE_S *tree)
{
    DetachWalks(tree);
    FreeNodes(tree->root);
    IndexDrop(Inner(tree));
    free(tree);
}

MRT_RDX_NODE_S *MRT_RDX_AddNode(MRT_RDX_TREE_S *tree, void *entry)
{
    Tree *inner = Inner(tree);
    if (inner->uniform && !IsOfFamily(inner, entry)) {
        inner->uniform = false;
        IndexDrop(inner);
    }
    return WithKeyType(tree, [=]<typename Key>(Key *) { return Add<Key>(tree, entry); });
}

void MRT_RDX_DeleteNode(MRT_RDX_TREE_S *tree, void *entry)
{
    WithKeyType(tree, [=]<typename Key>(Key *) { Delete<Key>(tree, entry); });
}
