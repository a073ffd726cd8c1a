/*
 * Nodes of intrusive AVL trees, laid over the caller's records, and Boost.Intrusive's algorithms on them.
 */
#ifndef HOST_SRC_AVL_NODE_H
#define HOST_SRC_AVL_NODE_H

#include <boost/intrusive/avltree_algorithms.hpp>
#include <cstdint>

namespace host
{

struct AvlNode {
    AvlNode *parent;
    AvlNode *left;
    AvlNode *right;
    int64_t balance;
};

struct AvlNodeTraits {
    using node = AvlNode;
    using node_ptr = AvlNode *;
    using const_node_ptr = const AvlNode *;
    using balance = int64_t;

    static AvlNode *get_parent(const AvlNode *node)
    {
        return node->parent;
    }
    static void set_parent(AvlNode *node, AvlNode *parent)
    {
        node->parent = parent;
    }
    static AvlNode *get_left(const AvlNode *node)
    {
        return node->left;
    }
    static void set_left(AvlNode *node, AvlNode *left)
    {
        node->left = left;
    }
    static AvlNode *get_right(const AvlNode *node)
    {
        return node->right;
    }
    static void set_right(AvlNode *node, AvlNode *right)
    {
        node->right = right;
    }
    static balance get_balance(const AvlNode *node)
    {
        return node->balance;
    }
    static void set_balance(AvlNode *node, balance value)
    {
        node->balance = value;
    }
    static balance negative()
    {
        return -1;
    }
    static balance zero()
    {
        return 0;
    }
    static balance positive()
    {
        return 1;
    }
};

using AvlAlgorithms = boost::intrusive::avltree_algorithms<AvlNodeTraits>;

} // namespace host

#endif
