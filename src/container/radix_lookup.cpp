/*
 * Lookups in the radix tree: exact, best match and the two kinds of successor. None changes the tree.
 *
 * Exact lookup and MRT_RDX_SearchNextBest are defined on address records: masked and unmasked comparison by
 * the family that a record carries. In a uniform tree (address records of one family throughout, see Tree)
 * that is the same as comparing key words, which the fast forms here do; any other tree takes the
 * definition's own way through the records.
 */
#include "container/radix_index.h"

using namespace mcast::radix;

namespace
{

unsigned FamilyOf(const void *key_record)
{
    uint16_t family;
    memcpy(&family, key_record, sizeof family);
    return family;
}

const uint8_t *AddressOf(const void *key_record)
{
    return static_cast<const uint8_t *>(key_record) + offsetof(MCAST_ADDR_S, address);
}

/* The bytes of an address that a comparison by family reads. */
unsigned AddressSize(unsigned family)
{
    return family == MCAST_FAMILY_IPV4 ? 4 : 16;
}

/*
 * The number of leading bits that the mask of a length keeps: none for a length above the family's maximum.
 */
unsigned MaskBits(unsigned family, unsigned length)
{
    return length <= AddressSize(family) * 8 ? length : 0;
}

/* One byte of a record's address under the mask of a length for the record's own family. */
unsigned MaskedByte(const void *key_record, unsigned index, unsigned length)
{
    const unsigned family = FamilyOf(key_record);
    const unsigned byte = AddressOf(key_record)[index];
    const unsigned kept = MaskBits(family, length);
    if (index >= AddressSize(family) || kept >= (index + 1) * 8) {
        return byte;
    }
    return kept <= index * 8 ? 0 : byte & (0xff00u >> (kept - index * 8));
}

/* Whether two records compare equal under a length, compared by the first record's family. */
bool EqualMasked(const void *first, const void *second, unsigned length)
{
    const unsigned size = AddressSize(FamilyOf(first));
    for (unsigned i = 0; i < size; ++i) {
        if (MaskedByte(first, i, length) != MaskedByte(second, i, length)) {
            return false;
        }
    }
    return true;
}

/* Whether key words say all that the records would. */
bool WordsDecide(const MRT_RDX_TREE_S *tree, const void *key_record)
{
    const Tree *inner = Inner(tree);
    return inner->uniform && (FamilyOf(key_record) == MCAST_FAMILY_IPV4) == (inner->kind == KeyKind::kIpv4);
}

/* Whether the node at exactly length bits on the key's path holds the key's prefix. */
template <typename Key>
bool HoldsPrefix(const MRT_RDX_TREE_S *tree, const Node *node, const void *key_record, const Key &key,
                 unsigned length)
{
    if (WordsDecide(tree, key_record)) {
        return length > Key::kBits || key.CommonBits(NodeKey<Key>(tree, node)) >= length;
    }
    return EqualMasked(key_record, EntryKeyRecord(tree, node->entry), length);
}

/* The node that holds exactly the key's prefix of length bits, or NULL. */
template <typename Key>
Node *FindExact(const MRT_RDX_TREE_S *tree, const void *key_record, const Key &key, unsigned length)
{
    if (WordsDecide(tree, key_record)) {
        const IndexAnswer answer = AskIndex(tree, key, length);

        if (answer.decided) {
            return answer.node;
        }
    }
    Node *node = Descend(tree, key, length);

    if (node == nullptr || node->bit != length || node->entry == nullptr ||
        !HoldsPrefix(tree, node, key_record, key, length)) {
        return nullptr;
    }
    return node;
}

/* Whether an entry comes after (key, length) in the unmasked order, judged by its record's family. */
bool ComesAfter(const MRT_RDX_TREE_S *tree, const void *entry, const void *key_record, unsigned length)
{
    const uint8_t *record = EntryKeyRecord(tree, entry);
    const int order = record == key_record
                          ? 0
                          : memcmp(AddressOf(record), AddressOf(key_record), AddressSize(FamilyOf(record)));
    return order > 0 || (order == 0 && EntryLength(tree, entry) > length);
}

/* The first node in tree order whose entry comes after (key, length), by trying every entry. */
Node *ScanForNext(const MRT_RDX_TREE_S *tree, const void *key_record, unsigned length)
{
    Node *node = FirstNode(tree->root);
    while (node != nullptr && !ComesAfter(tree, node->entry, key_record, length)) {
        node = NextNode(node);
    }
    return node;
}

/*
 * What ScanForNext finds, in one descent. The scan's answer is the first in tree order of: an entry on the
 * key's path that comes after it (unmasked bits make that possible for a short prefix, too), and the subtree
 * that follows the point where the path ends. A subtree that leaves the path holds only greater or only
 * smaller addresses, whatever stands beyond the lengths of its entries.
 */
template <typename Key> Node *FindNext(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    Node *end = DescendToEntry(tree, key, kAllBits);
    const unsigned common = key.CommonBits(NodeKey<Key>(tree, end));
    Node *top = end;

    while (top->bit > common && top->parent != nullptr && top->parent->bit > common) {
        top = top->parent;
    }
    const bool leaves_path = top->bit > common;
    Node *path = leaves_path ? top->parent : top;
    Node *next;

    if (leaves_path) {
        next = Test(key, common) ? RightSubtreeAfter(top) : top;
    } else {
        /* The path ends for want of a child: a right one there is, if any, not the key's. */
        next = top->right != nullptr ? top->right : RightSubtreeAfter(top);
    }
    next = next == nullptr ? nullptr : FirstNode(next);
    for (; path != nullptr; path = path->parent) {
        if (path->entry == nullptr) {
            continue;
        }
        const Key other = NodeKey<Key>(tree, path);

        if (other.Above(key) || (path->bit > length && !key.Above(other))) {
            next = path;
        }
    }
    return next;
}

template <typename Key>
void *SearchNextBest(const MRT_RDX_TREE_S *tree, const void *key_record, unsigned length)
{
    const Key key = LoadKey<Key>(tree, key_record);
    Node *next = FindExact(tree, key_record, key, length);
    if (next != nullptr) {
        next = NextNode(next);
    } else if (WordsDecide(tree, key_record)) {
        next = FindNext(tree, key, length);
    } else {
        next = ScanForNext(tree, key_record, length);
    }
    return next == nullptr ? nullptr : next->entry;
}

/*
 * The first subtree in tree order after (key, length), or NULL. The descent's end tells how many bits the key
 * shares with the tree; from there the key lies inside, before or after what hangs below the fork. The node
 * of the prefix itself, when the index has it, is where the descent would end.
 */
template <typename Key> Node *SubtreeAfter(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    Node *node = AskIndex(tree, key, length).node;

    if (node == nullptr) {
        node = DescendToEntry(tree, key, length);
    }
    const unsigned limit = node->bit < length ? node->bit : length;
    const unsigned common = key.CommonBits(NodeKey<Key>(tree, node));

    if (common >= limit) {
        if (length < node->bit) {
            return node;
        }
        if (node->left != nullptr) {
            return node->left;
        }
        return node->right != nullptr ? node->right : RightSubtreeAfter(node);
    }
    while (node->parent != nullptr && node->parent->bit > common) {
        node = node->parent;
    }
    return Test(key, common) ? RightSubtreeAfter(node) : node;
}

/*
 * The best match of (key, length). Among entries that are mostly hosts the index is asked first: the node of
 * exactly the key and length, when there is one, is the longest of all.
 */
template <typename Key> Node *FindBestIndexed(const MRT_RDX_TREE_S *tree, const Key &key, unsigned length)
{
    if (length == tree->maximum_length && Inner(tree)->hosts > tree->entry_count / 2) {
        Node *node = AskIndex(tree, key, length).node;

        if (node != nullptr) {
            return node;
        }
    }
    return FindBest(tree, key, length);
}

} // namespace

void *MRT_RDX_Locate(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length)
{
    if (tree == nullptr || key_record == nullptr) {
        return nullptr;
    }
    const Node *node = WithKeyType(tree, [=]<typename Key>(Key *) {
        return FindExact(tree, key_record, LoadKey<Key>(tree, key_record), length & 0xff);
    });

    return node == nullptr ? nullptr : node->entry;
}

void *MRT_RDX_LocateBest(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length,
                         MRT_RDX_FILTER filter, void *filter_argument)
{
    const Node *node = WithKeyType(tree, [=]<typename Key>(Key *) {
        return FindBestIndexed(tree, LoadKey<Key>(tree, key_record), length & 0xff);
    });
    if (filter != nullptr) {
        while (node != nullptr && node->entry != nullptr &&
               (filter(node->entry, filter_argument) & 0xffff) != MCAST_TRUE) {
            node = node->parent;
        }
    }
    return node == nullptr ? nullptr : node->entry;
}

void *MRT_RDX_SearchNextBest(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length)
{
    if (tree == nullptr || tree->root == nullptr) {
        return nullptr;
    }
    if (key_record == nullptr) {
        return FirstNode(tree->root)->entry;
    }
    return WithKeyType(
        tree, [=]<typename Key>(Key *) { return SearchNextBest<Key>(tree, key_record, length & 0xff); });
}

void *MRT_RDX_GetNext(const MRT_RDX_TREE_S *tree, const void *key_record, uint32_t length)
{
    unsigned bits = length & 0xff;

    if (tree->root == nullptr) {
        return nullptr;
    }
    if (key_record == nullptr) {
        return FirstNode(tree->root)->entry;
    }
    if (bits == 0) {
        bits = tree->maximum_length;
    }
    Node *subtree = WithKeyType(
        tree, [=]<typename Key>(Key *) { return SubtreeAfter(tree, LoadKey<Key>(tree, key_record), bits); });

    return subtree == nullptr ? nullptr : FirstNode(subtree)->entry;
}
