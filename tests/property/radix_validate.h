/* Every stated invariant of a radix tree, checked from outside. */
#ifndef TESTS_PROPERTY_RADIX_VALIDATE_H
#define TESTS_PROPERTY_RADIX_VALIDATE_H

#include <gtest/gtest.h>

#include "property/radix_model.h"

namespace radix_model
{

using Node = const MRT_RDX_NODE_S;

/* The next node, with or without an entry, in the order node, left subtree, right subtree. */
inline Node *NextInPreOrder(Node *node)
{
    if (node->left != nullptr) {
        return node->left;
    }
    if (node->right != nullptr) {
        return node->right;
    }
    for (Node *up = node->parent; up != nullptr; node = up, up = up->parent) {
        if (up->right != nullptr && up->right != node) {
            return up->right;
        }
    }
    return nullptr;
}

/* The key of some entry at or below a node. */
inline Bytes KeyBelow(const Oracle &oracle, Node *node)
{
    while (node->entry == nullptr) {
        node = node->left;
    }
    return oracle.KeyBytes(oracle.RecordOf(node->entry));
}

/*
 * A child hangs below its node, has more bits, shares the node's bits and stands on the side of its next one.
 */
inline void ValidateChild(const Oracle &oracle, Node *node, Node *child)
{
    ASSERT_EQ(child->parent, node);
    ASSERT_GT(child->bit, node->bit);
    const Bytes key = KeyBelow(oracle, child);

    ASSERT_TRUE(Agree(key, KeyBelow(oracle, node), node->bit));
    ASSERT_EQ(Oracle::Bit(key, node->bit), child == node->right);
}

inline void ValidateNode(const Oracle &oracle, Node *node)
{
    ASSERT_EQ(node->byte_index, node->bit / 8);
    ASSERT_EQ(node->bit_mask, 0x80u >> (node->bit % 8));
    ASSERT_TRUE(node->entry != nullptr || (node->left != nullptr && node->right != nullptr));
    for (Node *child : {node->left, node->right}) {
        if (child != nullptr) {
            ASSERT_NO_FATAL_FAILURE(ValidateChild(oracle, node, child));
        }
    }
}

/* The whole tree, and that it holds exactly the model's entries in the model's order. */
inline void Validate(const MRT_RDX_TREE_S *tree, const Model &model)
{
    const Oracle oracle(tree);
    Node *node = tree->root;
    size_t entries = 0;
    size_t glue = 0;
    ASSERT_TRUE(node == nullptr || node->parent == nullptr);
    for (; node != nullptr; node = NextInPreOrder(node)) {
        ASSERT_NO_FATAL_FAILURE(ValidateNode(oracle, node));
        if (node->entry == nullptr) {
            ++glue;
            continue;
        }
        ASSERT_LT(entries, model.items.size());
        ASSERT_EQ(node->entry, model.items[entries].second);
        ASSERT_EQ(node->bit, model.items[entries].first.length);
        ++entries;
    }
    ASSERT_EQ(entries, model.items.size());
    ASSERT_EQ(tree->entry_count, entries);
    ASSERT_EQ(tree->glue_count, glue);
}

} // namespace radix_model

#endif
