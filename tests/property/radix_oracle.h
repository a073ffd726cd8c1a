/*
 * The radix tree's searches written out step by step as they are defined, over the public fields of a tree's
 * nodes and the bytes of its key records. Slow and literal on purpose: it is what the fast forms must equal.
 */
#ifndef TESTS_PROPERTY_RADIX_ORACLE_H
#define TESTS_PROPERTY_RADIX_ORACLE_H

#include <array>
#include <bit>
#include <cstring>

#include "mcast/radix.h"

namespace radix_oracle
{

using Node = const MRT_RDX_NODE_S;

/* Key bytes, zeros from the tree's maximum length on. */
using Bytes = std::array<uint8_t, 33>;

class Oracle
{
public:
    explicit Oracle(const MRT_RDX_TREE_S *of) : tree(of)
    {
    }

    Bytes KeyBytes(const void *record) const
    {
        Bytes bytes = {};
        memcpy(bytes.data(), static_cast<const uint8_t *>(record) + tree->address_offset,
               (tree->maximum_length + 7u) / 8u);
        return bytes;
    }

    const MCAST_ADDR_S *RecordOf(const void *entry) const
    {
        const MCAST_ADDR_S *record;
        memcpy(&record, static_cast<const uint8_t *>(entry) + tree->key_pointer_offset, sizeof record);
        return record;
    }

    unsigned LengthOf(const void *entry) const
    {
        return static_cast<const uint8_t *>(entry)[tree->length_offset];
    }

    static bool Bit(const Bytes &key, unsigned bit)
    {
        return (key[bit / 8] & (0x80u >> (bit % 8))) != 0;
    }

    static unsigned Common(const Bytes &a, const Bytes &b, unsigned limit)
    {
        unsigned count = 0;
        if (limit == 0) {
            return 0;
        }
        for (unsigned i = 0; count < limit; ++i) {
            if (a[i] != b[i]) {
                return count + static_cast<unsigned>(std::countl_zero(static_cast<uint8_t>(a[i] ^ b[i])));
            }
            count += 8;
        }
        return count;
    }

    unsigned CommonWith(const Bytes &key, Node *node, unsigned limit) const
    {
        return Common(key, KeyBytes(RecordOf(node->entry)), limit);
    }

    Node *Descent(const Bytes &key, unsigned length) const
    {
        Node *passed = nullptr;
        Node *node = tree->root;
        while (node != nullptr && node->bit < length) {
            passed = node;
            Node *child = Bit(key, node->bit) ? node->right : node->left;
            if (child == nullptr) {
                return node;
            }
            node = child;
        }
        if (node != nullptr && node->bit == length) {
            return node;
        }
        return passed;
    }

    static Node *Upward(Node *node)
    {
        while (node != nullptr && node->entry == nullptr) {
            node = node->parent;
        }
        return node;
    }

    static std::array<uint8_t, 16> Masked(const MCAST_ADDR_S &record, unsigned length)
    {
        std::array<uint8_t, 16> address;
        const unsigned size = record.family == MCAST_FAMILY_IPV4 ? 4 : 16;
        memcpy(address.data(), record.address, 16);
        for (unsigned i = 0; i < size; ++i) {
            unsigned mask = 0;
            if (length <= size * 8) {
                for (unsigned b = 0; b < 8; ++b) {
                    mask |= i * 8 + b < length ? 0x80u >> b : 0;
                }
            }
            address[i] = static_cast<uint8_t>(address[i] & mask);
        }
        return address;
    }

    static int CompareByFamilyOf(const MCAST_ADDR_S &decides, const uint8_t *a, const uint8_t *b)
    {
        return memcmp(a, b, decides.family == MCAST_FAMILY_IPV4 ? 4 : 16);
    }

    static int CompareMasked(const MCAST_ADDR_S &a, const MCAST_ADDR_S &b, unsigned length)
    {
        return CompareByFamilyOf(a, Masked(a, length).data(), Masked(b, length).data());
    }

    Node *BestNode(const MCAST_ADDR_S &record, unsigned length) const
    {
        const Bytes key = KeyBytes(&record);
        Node *node = Upward(Descent(key, length));
        if (node == nullptr) {
            return nullptr;
        }
        const unsigned count = CommonWith(key, node, node->bit);
        for (; node != nullptr; node = node->parent) {
            if (node->bit <= count && node->entry != nullptr) {
                return node;
            }
        }
        return nullptr;
    }

    void *Locate(const MCAST_ADDR_S &record, unsigned length) const
    {
        Node *node = Upward(Descent(KeyBytes(&record), length));
        if (node == nullptr || node->bit != length ||
            CompareMasked(record, *RecordOf(node->entry), length) != 0) {
            return nullptr;
        }
        return node->entry;
    }

    void *LocateBest(const MCAST_ADDR_S &record, unsigned length, MRT_RDX_FILTER filter, void *argument) const
    {
        Node *node = BestNode(record, length);
        if (node == nullptr) {
            return nullptr;
        }
        if (filter == nullptr) {
            return node->entry;
        }
        for (;;) {
            if ((filter(node->entry, argument) & 0xffff) == 1) {
                return node->entry;
            }
            node = node->parent;
            if (node == nullptr || node->entry == nullptr) {
                return nullptr;
            }
        }
    }

    static Node *Successor(Node *node)
    {
        do {
            if (node->left != nullptr) {
                node = node->left;
            } else if (node->right != nullptr) {
                node = node->right;
            } else {
                Node *parent = node->parent;
                while (parent != nullptr && !(parent->left == node && parent->right != nullptr)) {
                    node = parent;
                    parent = parent->parent;
                }
                if (parent == nullptr) {
                    return nullptr;
                }
                node = parent->right;
            }
        } while (node->entry == nullptr);
        return node;
    }

    static void *EntryOf(Node *node)
    {
        return node == nullptr ? nullptr : node->entry;
    }

    void *SearchNextBest(const MCAST_ADDR_S *record, unsigned length) const
    {
        if (tree->root == nullptr) {
            return nullptr;
        }
        Node *first = tree->root->entry != nullptr ? tree->root : Successor(tree->root);
        if (record == nullptr) {
            return EntryOf(first);
        }
        Node *node = Upward(Descent(KeyBytes(record), length));
        if (node != nullptr && node->bit == length &&
            CompareMasked(*record, *RecordOf(node->entry), length) == 0) {
            return EntryOf(Successor(node));
        }
        for (node = first; node != nullptr; node = Successor(node)) {
            const MCAST_ADDR_S *other = RecordOf(node->entry);
            int order = 0;
            if (other != record) {
                order = CompareByFamilyOf(*other, other->address, record->address);
            }
            if (order > 0 || (order == 0 && LengthOf(node->entry) > length)) {
                return node->entry;
            }
        }
        return nullptr;
    }

    static void *FirstFrom(Node *node)
    {
        return node->entry != nullptr ? node->entry : EntryOf(Successor(node));
    }

    void *GetNext(const MCAST_ADDR_S *record, unsigned length) const
    {
        if (tree->root == nullptr) {
            return nullptr;
        }
        if (length == 0) {
            length = tree->maximum_length;
        }
        if (record == nullptr) {
            return FirstFrom(tree->root);
        }
        const Bytes key = KeyBytes(record);
        Node *stop = tree->root;
        while (!(stop->bit >= length && stop->entry != nullptr)) {
            Node *child = Bit(key, stop->bit) ? stop->right : stop->left;
            if (child == nullptr) {
                break;
            }
            stop = child;
        }
        const unsigned limit = stop->bit < length ? stop->bit : length;
        const unsigned common = CommonWith(key, stop, limit);
        if (common >= limit) {
            return NextInside(stop, length);
        }
        if (!Bit(key, common)) {
            while (stop->parent != nullptr && stop->parent->bit > common) {
                stop = stop->parent;
            }
            return FirstFrom(stop);
        }
        for (Node *from = stop, *up = stop->parent; up != nullptr; from = up, up = up->parent) {
            if (up->bit <= common && up->right != nullptr && up->right != from) {
                return FirstFrom(up->right);
            }
        }
        return nullptr;
    }

    /* Where a walk over (record, length) starts; the reverse walk reads the key mirrored. */
    Node *WalkStart(const MCAST_ADDR_S *record, unsigned length, bool reverse) const
    {
        const bool use_key = length != 0 && record != nullptr;
        const Bytes key = use_key ? KeyBytes(record) : Bytes{};
        Node *node = tree->root;
        if (node == nullptr) {
            return nullptr;
        }
        while (!(node->bit >= length && node->entry != nullptr)) {
            bool right = reverse;
            if (node->bit < length && use_key) {
                right = Bit(key, node->bit) != reverse;
            }
            Node *child = right ? node->right : node->left;
            if (child == nullptr) {
                node = Upward(node);
                break;
            }
            node = child;
        }
        if (node == nullptr || node->bit < length || (use_key ? CommonWith(key, node, length) : 0) < length) {
            return nullptr;
        }
        return node;
    }

private:
    static void *NextInside(Node *stop, unsigned length)
    {
        if (length < stop->bit) {
            return stop->entry;
        }
        if (stop->left != nullptr) {
            return FirstFrom(stop->left);
        }
        if (stop->right != nullptr) {
            return FirstFrom(stop->right);
        }
        for (Node *from = stop, *up = stop->parent; up != nullptr; from = up, up = up->parent) {
            if (up->right != nullptr && up->right != from) {
                return FirstFrom(up->right);
            }
        }
        return nullptr;
    }

    const MRT_RDX_TREE_S *tree;
};

} // namespace radix_oracle

#endif
