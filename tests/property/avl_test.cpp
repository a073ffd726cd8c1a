/*
 * The AVL tree beside a plain recursive one and a sorted vector: after every operation the shapes, heights
 * and counts agree, and searches and walks give what the sorted vector gives.
 */
#include "mcast/avl.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "support/property.h"

namespace
{

struct Item {
    uint32_t key;
};

int32_t CompareItems(const void *first, const void *second)
{
    uint32_t one = static_cast<const Item *>(first)->key;
    uint32_t other = static_cast<const Item *>(second)->key;
    return one < other ? -7 : one > other ? 7 : 0;
}

void SetWalkKey(MCAST_AVL_WALK_S *walk, MCAST_AVL_NODE_S *node)
{
    walk->key = node->data;
}

/* The textbook: recursive, by value, without paths. */
struct Plain {
    uint32_t key;
    std::unique_ptr<Plain> left;
    std::unique_ptr<Plain> right;
};

using Tree = std::unique_ptr<Plain>;

int Height(const Tree &tree)
{
    return tree == nullptr ? 0 : 1 + std::max(Height(tree->left), Height(tree->right));
}

void Turn(Tree &top, Tree Plain::*from, Tree Plain::*to)
{
    Tree lifted = std::move((*top).*from);
    (*top).*from = std::move((*lifted).*to);
    (*lifted).*to = std::move(top);
    top = std::move(lifted);
}

void Balance(Tree &tree, uint32_t &rotations)
{
    int left = Height(tree->left);
    int right = Height(tree->right);
    if (left > right + 1) {
        ++rotations;
        if (Height(tree->left->left) < Height(tree->left->right)) {
            Turn(tree->left, &Plain::right, &Plain::left);
        }
        Turn(tree, &Plain::left, &Plain::right);
    } else if (right > left + 1) {
        ++rotations;
        if (Height(tree->right->right) < Height(tree->right->left)) {
            Turn(tree->right, &Plain::left, &Plain::right);
        }
        Turn(tree, &Plain::right, &Plain::left);
    }
}

void Insert(Tree &tree, uint32_t key, uint32_t &rotations)
{
    if (tree == nullptr) {
        tree = std::make_unique<Plain>(Plain{key, nullptr, nullptr});
        return;
    }
    Insert(key < tree->key ? tree->left : tree->right, key, rotations);
    Balance(tree, rotations);
}

/* Takes the greatest key out of the tree. */
uint32_t TakeGreatest(Tree &tree, uint32_t &rotations)
{
    if (tree->right == nullptr) {
        uint32_t key = tree->key;

        tree = std::move(tree->left);
        return key;
    }
    uint32_t key = TakeGreatest(tree->right, rotations);

    Balance(tree, rotations);
    return key;
}

void Remove(Tree &tree, uint32_t key, uint32_t &rotations)
{
    if (key != tree->key) {
        Remove(key < tree->key ? tree->left : tree->right, key, rotations);
    } else if (tree->left == nullptr || tree->right == nullptr) {
        tree = std::move(tree->left == nullptr ? tree->right : tree->left);
        return;
    } else {
        tree->key = TakeGreatest(tree->left, rotations);
    }
    Balance(tree, rotations);
}

class Pair
{
public:
    explicit Pair(uint64_t seed) : random(seed)
    {
        MCAST_AVL_SetFunction(&tree, CompareItems, CompareItems, nullptr, nullptr, SetWalkKey);
    }

    ~Pair()
    {
        MCAST_AVL_SetFunction(
            &tree, CompareItems, CompareItems, [](MCAST_AVL_NODE_S *node) { delete node; },
            [](void *data) { delete static_cast<Item *>(data); }, nullptr);
        MCAST_AVL_FreeAll(&tree);
    }

    void Step(uint32_t range)
    {
        Item probe{random.Below(range)};
        if (random.OneIn(2)) {
            InsertBoth(probe.key);
        } else {
            RemoveBoth(probe);
        }
        probe.key = random.Below(range);
        Look(probe);
        if (random.OneIn(16)) {
            Walk(probe);
        }
    }

    void Check()
    {
        Same(tree.root, plain);
        ASSERT_EQ(tree.node_count, keys.size());
        ASSERT_EQ(tree.insert_count, inserts);
        ASSERT_EQ(tree.remove_count, removes);
        ASSERT_EQ(tree.rotation_count, rotations);
    }

private:
    /* Same shape and keys, heights true, balanced; the height. */
    static int Same(const MCAST_AVL_NODE_S *node, const Tree &other)
    {
        if (node == nullptr || other == nullptr) {
            EXPECT_EQ(node == nullptr, other == nullptr);
            return 0;
        }
        EXPECT_EQ(static_cast<const Item *>(node->data)->key, other->key);
        int left = Same(node->left, other->left);
        int right = Same(node->right, other->right);
        int height = 1 + std::max(left, right);

        EXPECT_LE(std::abs(left - right), 1);
        EXPECT_EQ(node->height, static_cast<uint32_t>(height));
        return height;
    }

    void InsertBoth(uint32_t key)
    {
        auto place = std::lower_bound(keys.begin(), keys.end(), key);
        MCAST_AVL_NODE_S *node = new MCAST_AVL_NODE_S{nullptr, nullptr, new Item{key}, 0};
        uint32_t code = MCAST_AVL_Insert(&tree, node);
        if (place != keys.end() && *place == key) {
            ASSERT_EQ(code, MCAST_AVL_PRESENT);
            delete static_cast<Item *>(node->data);
            delete node;
            return;
        }
        ASSERT_EQ(code, MCAST_AVL_OK);
        ++inserts;
        keys.insert(place, key);
        Insert(plain, key, rotations);
    }

    void RemoveBoth(const Item &probe)
    {
        auto place = std::lower_bound(keys.begin(), keys.end(), probe.key);
        MCAST_AVL_NODE_S *node = MCAST_AVL_Remove(&tree, &probe);
        if (place == keys.end() || *place != probe.key) {
            ASSERT_EQ(node, nullptr);
            return;
        }
        ASSERT_NE(node, nullptr);
        ASSERT_EQ(static_cast<Item *>(node->data)->key, probe.key);
        delete static_cast<Item *>(node->data);
        delete node;
        ++removes;
        keys.erase(place);
        Remove(plain, probe.key, rotations);
    }

    void Expect(const MCAST_AVL_NODE_S *node, std::vector<uint32_t>::iterator place)
    {
        ASSERT_EQ(node == nullptr, place == keys.end());
        if (node != nullptr) {
            ASSERT_EQ(static_cast<Item *>(node->data)->key, *place);
        }
    }

    void Look(const Item &probe)
    {
        auto place = std::lower_bound(keys.begin(), keys.end(), probe.key);
        Expect(MCAST_AVL_Search(&tree, &probe),
               place != keys.end() && *place == probe.key ? place : keys.end());
        Expect(MCAST_AVL_SearchNext(&tree, &probe), std::upper_bound(keys.begin(), keys.end(), probe.key));
    }

    void Walk(const Item &probe)
    {
        MCAST_AVL_WALK_S walk;
        void *first = nullptr;
        auto place = std::lower_bound(keys.begin(), keys.end(), probe.key);
        MCAST_STATUS status = MCAST_AVL_InitWalkFromKey(&walk, &tree, &probe, &first);
        ASSERT_EQ(status == MCAST_OK, place != keys.end());
        if (status == MCAST_OK) {
            ASSERT_EQ(static_cast<Item *>(first)->key, *place);
            while (++place != keys.end()) {
                Expect(MCAST_AVL_WalkNextNode(&walk), place);
            }
            Expect(MCAST_AVL_WalkNextNode(&walk), place);
        }
        MCAST_AVL_InitWalk(&walk, &tree);
        for (place = keys.begin(); place != keys.end(); ++place) {
            Expect(MCAST_AVL_WalkNextNode(&walk), place);
        }
        Expect(MCAST_AVL_WalkNextNode(&walk), place);
    }

    property::Random random;
    MCAST_AVL_S tree = {};
    Tree plain;
    std::vector<uint32_t> keys;
    uint32_t inserts = 0;
    uint32_t removes = 0;
    uint32_t rotations = 0;
};

TEST(AvlTreeProperty, HasTheShapeCountsAndAnswersOfATextbookTree)
{
    uint64_t seed = property::Seed("avl");
    uint64_t operations = property::Operations(200000);
    Pair pair(seed);

    for (uint64_t operation = 0; operation < operations; ++operation) {
        constexpr uint32_t kRanges[] = {4, 16, 50, 120, 30, 200};

        pair.Step(kRanges[operation / 2000 % std::size(kRanges)]);
        pair.Check();
        if (HasFailure()) {
            FAIL() << "at operation " << operation;
        }
    }
}

} // namespace
