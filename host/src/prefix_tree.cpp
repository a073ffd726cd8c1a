/*
 * The platform's prefix trees: records in an AVL tree, ordered by their common leading bits and, when one
 * covers the other, the shorter first. In this order a range stands before everything within it, and
 * everything within it stands together:
 *
 *     10.0.0.0/8   10.1.0.0/16   10.1.2.0/24   10.2.0.0/16   11.0.0.0/8
 *
 * So "all within" is a run that starts where the range itself would stand. The longest range around a prefix
 * P is found from the last record at or before P. If that record contains P it is the answer, because
 * whatever is longer and contains P would stand between the two. If not, it shares its first n bits with P
 * and has a 0 behind them where P has a 1; a range around P that is longer than n has that 1 too and would
 * stand behind the record. So the answer is no longer than n, and the search goes on for P cut to n bits.
 * Each round shortens P.
 *
 * Records are caller's memory and the tree record holds no more than the root, whose parent is nullptr; the
 * algorithms' header exists only while the tree changes.
 */
#include "platform/prefix_tree.h"

#include <algorithm>
#include <bit>
#include <new>

#include "avl_node.h"
#include "mcasthost/loop.h"

namespace
{

using Node = host::AvlNode;
using Algorithms = host::AvlAlgorithms;

static_assert(sizeof(Node) <= sizeof(RDX_NODE_S::link) && alignof(Node) <= alignof(RDX_NODE_S));

constexpr uint32_t BITS_IPV4 = 32;
constexpr uint32_t BITS_IPV6 = 128;

RDX_NODE_S *record_of(Node *node)
{
    return reinterpret_cast<RDX_NODE_S *>(node);
}

Node *node_of(const RDX_NODE_S *record)
{
    return reinterpret_cast<Node *>(const_cast<RDX_NODE_S *>(record));
}

Node *root_of(const RDX_TREE_S *tree)
{
    return static_cast<Node *>(tree->root);
}

// How many leading bits are the same, at most limit.
uint32_t common_bits(const RDX_PREFIX_S &first, const RDX_PREFIX_S &second, uint32_t limit)
{
    for (uint32_t i = 0; i * 8 < limit; ++i) {
        unsigned difference = first.address[i] ^ second.address[i];
        if (difference != 0) {
            uint32_t same = i * 8 + static_cast<uint32_t>(std::countl_zero(difference)) - 24;
            return std::min(same, limit);
        }
    }
    return limit;
}

bool bit_at(const RDX_PREFIX_S &prefix, uint32_t position)
{
    return (prefix.address[position / 8] >> (7 - position % 8) & 1) != 0;
}

// The operations for addresses of so many bits.
template <uint32_t BITS> struct Family {
    static uint32_t length(const RDX_PREFIX_S &prefix)
    {
        return std::min(prefix.length, BITS);
    }

    static bool contains(const RDX_PREFIX_S &range, const RDX_PREFIX_S &prefix)
    {
        return length(range) <= length(prefix) && common_bits(range, prefix, length(range)) == length(range);
    }

    static int compare(const RDX_PREFIX_S &first, const RDX_PREFIX_S &second)
    {
        uint32_t shorter = std::min(length(first), length(second));
        uint32_t same = common_bits(first, second, shorter);
        if (same < shorter) {
            return bit_at(first, same) ? 1 : -1;
        }
        return length(first) < length(second) ? -1 : length(first) > length(second) ? 1 : 0;
    }

    // The last record at or before the prefix, or nullptr.
    static Node *last_up_to(const RDX_TREE_S *tree, const RDX_PREFIX_S &prefix)
    {
        Node *found = nullptr;
        for (Node *node = root_of(tree); node != nullptr;) {
            if (compare(record_of(node)->prefix, prefix) <= 0) {
                found = node;
                node = node->right;
            } else {
                node = node->left;
            }
        }
        return found;
    }

    static RDX_NODE_S *search(const RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
    {
        RDX_PREFIX_S cut = *prefix;
        cut.length = length(cut);
        for (Node *node = last_up_to(tree, cut); node != nullptr; node = last_up_to(tree, cut)) {
            const RDX_PREFIX_S &range = record_of(node)->prefix;
            if (contains(range, cut)) {
                return record_of(node);
            }
            cut.length = common_bits(range, cut, cut.length);
        }
        return nullptr;
    }

    static RDX_NODE_S *collect(RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
    {
        Node *start = nullptr;
        for (Node *node = root_of(tree); node != nullptr;) {
            if (compare(record_of(node)->prefix, *prefix) >= 0) {
                start = node;
                node = node->left;
            } else {
                node = node->right;
            }
        }
        RDX_NODE_S *first = nullptr;
        RDX_NODE_S **end = &first;
        RDX_NODE_S *record = record_of(start);
        for (; record != nullptr && contains(*prefix, record->prefix); record = next(tree, record)) {
            *end = record;
            end = &record->collected;
        }
        *end = nullptr;
        return first;
    }

    static uint32_t insert(RDX_TREE_S *tree, RDX_NODE_S *record)
    {
        Node *parent = nullptr;
        bool left = true;
        for (Node *node = root_of(tree); node != nullptr; node = left ? node->left : node->right) {
            int order = compare(record->prefix, record_of(node)->prefix);
            if (order == 0) {
                return RDX_ERR_PRESENT;
            }
            left = order < 0;
            parent = node;
        }
        record->collected = nullptr;
        with_header(tree, [&](Node *header) {
            Algorithms::insert_commit_data commit;
            commit.node = parent != nullptr ? parent : header;
            commit.link_left = left;
            Algorithms::insert_unique_commit(header, ::new (record->link) Node, commit);
        });
        ++tree->count;
        return 0;
    }

    static void remove(RDX_TREE_S *tree, RDX_NODE_S *record)
    {
        with_header(tree, [&](Node *header) { Algorithms::erase(header, node_of(record)); });
        --tree->count;
    }

    // Gives the tree a header, as the algorithms need it, for the time of a change.
    template <typename Change> static void with_header(RDX_TREE_S *tree, Change change)
    {
        Node header;
        Algorithms::init_header(&header);
        if (Node *root = root_of(tree); root != nullptr) {
            header.parent = root;
            root->parent = &header;
            for (header.left = root; header.left->left != nullptr;) {
                header.left = header.left->left;
            }
            for (header.right = root; header.right->right != nullptr;) {
                header.right = header.right->right;
            }
        }
        change(&header);
        if (header.parent != nullptr) {
            header.parent->parent = nullptr;
        }
        tree->root = header.parent;
    }

    static RDX_NODE_S *first(const RDX_TREE_S *tree)
    {
        Node *node = root_of(tree);
        while (node != nullptr && node->left != nullptr) {
            node = node->left;
        }
        return record_of(node);
    }

    static RDX_NODE_S *next(const RDX_TREE_S *, const RDX_NODE_S *record)
    {
        Node *node = node_of(record);
        if (node->right != nullptr) {
            for (node = node->right; node->left != nullptr;) {
                node = node->left;
            }
            return record_of(node);
        }
        while (node->parent != nullptr && node == node->parent->right) {
            node = node->parent;
        }
        return record_of(node->parent);
    }

    static uint32_t count(const RDX_TREE_S *tree)
    {
        return tree->count;
    }

    static void destroy(RDX_TREE_S *tree, RDX_RELEASE release)
    {
        // Taken over whole: the release function meets an empty tree.
        RDX_TREE_S detached = *tree;
        *tree = RDX_TREE_S{};
        while (RDX_NODE_S *record = first(&detached)) {
            Node *node = node_of(record); // the leftmost: at most a right child, which takes its place
            if (node->right != nullptr) {
                node->right->parent = node->parent;
            }
            if (node->parent != nullptr) {
                node->parent->left = node->right;
            } else {
                detached.root = node->right;
            }
            if (release != nullptr) {
                release(record);
            }
        }
    }

    static constexpr RDX_AFI_CB_S OPERATIONS = {search, collect, insert, remove, first, next, count, destroy};
};

} // namespace

extern "C" HOST_API const RDX_AFI_CB_S g_astRdxAFICBArray[RDX_AFI_COUNT] = {Family<BITS_IPV4>::OPERATIONS,
                                                                            Family<BITS_IPV6>::OPERATIONS};
