/*
 * A tree of items with integer keys, inserted or put together by hand, and its shape as text.
 */
#ifndef TESTS_UNIT_CONTAINER_AVL_FIXTURE_H
#define TESTS_UNIT_CONTAINER_AVL_FIXTURE_H

#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "mcast/avl.h"
#include "support/fault.h"

namespace container_test
{

struct Item {
    int key;
};

inline int32_t CompareItems(const void *new_data, const void *node_data)
{
    int one = static_cast<const Item *>(new_data)->key;
    int other = static_cast<const Item *>(node_data)->key;
    return (one > other) - (one < other);
}

inline int32_t CompareKey(const void *node_data, const void *key)
{
    return CompareItems(node_data, key);
}

inline std::vector<int> g_keys_set; /* keys of the nodes for which the walk key was set */

inline void SetWalkKey(MCAST_AVL_WALK_S *walk, MCAST_AVL_NODE_S *node)
{
    walk->key = node->data;
    g_keys_set.push_back(static_cast<const Item *>(node->data)->key);
}

using Keys = std::vector<int>;

class AvlTree : public testing::Test
{
protected:
    void SetUp() override
    {
        MCAST_AVL_SetFunction(&tree, CompareItems, CompareKey, nullptr, nullptr, SetWalkKey);
        g_keys_set.clear();
    }

    MCAST_AVL_NODE_S *Node(int key)
    {
        items.push_back({key});
        nodes.push_back({nullptr, nullptr, &items.back(), 99});
        return &nodes.back();
    }

    void Insert(const Keys &keys)
    {
        for (int key : keys) {
            ASSERT_EQ(MCAST_AVL_Insert(&tree, Node(key)), MCAST_AVL_OK);
        }
    }

    /* A tree of one right-leaning path with these many nodes, keys 10, 20, ..., as no insertion makes it. */
    void Chain(int length)
    {
        MCAST_AVL_NODE_S *below = nullptr;

        for (int index = length; index > 0; --index) {
            MCAST_AVL_NODE_S *node = Node(index * 10);

            *node = {nullptr, below, node->data, static_cast<uint32_t>(length - index + 1)};
            below = node;
        }
        tree.root = below;
        tree.node_count = static_cast<uint32_t>(length);
    }

    static int Key(const MCAST_AVL_NODE_S *node)
    {
        return node != nullptr ? static_cast<const Item *>(node->data)->key : -1;
    }

    MCAST_AVL_NODE_S *Search(int key)
    {
        Item probe{key};
        return MCAST_AVL_Search(&tree, &probe);
    }

    int Next(int key)
    {
        Item probe{key};
        return Key(MCAST_AVL_SearchNext(&tree, &probe));
    }

    MCAST_AVL_NODE_S *Remove(int key)
    {
        Item probe{key};
        return MCAST_AVL_Remove(&tree, &probe);
    }

    Keys Walked(MCAST_AVL_WALK_S *walk)
    {
        Keys keys;
        while (const MCAST_AVL_NODE_S *node = MCAST_AVL_WalkNextNode(walk)) {
            keys.push_back(Key(node));
            EXPECT_EQ(walk->current, node);
            EXPECT_EQ(walk->key, node->data);
        }
        return keys;
    }

    Keys All()
    {
        MCAST_AVL_WALK_S walk;
        EXPECT_EQ(MCAST_AVL_InitWalk(&walk, &tree), MCAST_OK);
        return Walked(&walk);
    }

    /* "(left KEY:height right)" */
    static std::string Shape(const MCAST_AVL_NODE_S *node)
    {
        if (node == nullptr) {
            return "";
        }
        return "(" + Shape(node->left) + std::to_string(Key(node)) + ":" + std::to_string(node->height) +
               Shape(node->right) + ")";
    }

    std::string Shape() const
    {
        return Shape(tree.root);
    }

    MCAST_AVL_S tree = {};
    std::deque<Item> items;
    std::deque<MCAST_AVL_NODE_S> nodes;
};

} // namespace container_test

#endif
