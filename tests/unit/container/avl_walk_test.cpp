#include "avl_fixture.h"

using namespace container_test;

namespace
{

TEST_F(AvlTree, WalksInAscendingOrderAndBeginsAgainAfterTheEnd)
{
    MCAST_AVL_WALK_S walk;
    Insert({40, 20, 60, 10, 30, 50, 70, 65});
    EXPECT_EQ(MCAST_AVL_InitWalk(&walk, &tree), MCAST_OK);
    EXPECT_EQ(walk.tree, &tree);
    EXPECT_EQ(walk.current, nullptr);
    EXPECT_EQ(walk.key, nullptr);
    EXPECT_EQ(walk.depth, 0u);
    EXPECT_EQ(Walked(&walk), (Keys{10, 20, 30, 40, 50, 60, 65, 70}));
    EXPECT_EQ(g_keys_set, (Keys{10, 20, 30, 40, 50, 60, 65, 70}));
    EXPECT_EQ(walk.current, nullptr);
    EXPECT_EQ(walk.depth, 0u);
    EXPECT_EQ(Key(MCAST_AVL_WalkNextNode(&walk)), 10);
    EXPECT_EQ(static_cast<Item *>(MCAST_AVL_WalkNextData(&walk))->key, 20);
}

TEST_F(AvlTree, WalkOverNothingYieldsNothing)
{
    MCAST_AVL_WALK_S walk;
    EXPECT_EQ(MCAST_AVL_InitWalk(nullptr, &tree), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AVL_WalkNextNode(nullptr), nullptr);
    EXPECT_EQ(MCAST_AVL_WalkNextData(nullptr), nullptr);
    EXPECT_EQ(MCAST_AVL_InitWalk(&walk, &tree), MCAST_OK);
    EXPECT_EQ(MCAST_AVL_WalkNextNode(&walk), nullptr);
    EXPECT_EQ(MCAST_AVL_WalkNextData(&walk), nullptr);
    EXPECT_EQ(MCAST_AVL_InitWalk(&walk, nullptr), MCAST_OK);
    EXPECT_EQ(MCAST_AVL_WalkNextNode(&walk), nullptr);
}

TEST_F(AvlTree, AWalkFromAKeyStartsAtItOrAtTheNextGreaterItem)
{
    Insert({40, 20, 60, 10, 30, 50, 70});
    for (int key = 0; key < 80; ++key) {
        MCAST_AVL_WALK_S walk;
        void *first = &walk;
        Item probe{key};
        MCAST_STATUS status = MCAST_AVL_InitWalkFromKey(&walk, &tree, &probe, &first);

        if (key > 70) {
            EXPECT_EQ(status, MCAST_ERR_GENERAL);
            EXPECT_EQ(first, &walk) << "untouched on failure";
            continue;
        }
        int expected = (key + 9) / 10 * 10;

        expected = expected == 0 ? 10 : expected;
        ASSERT_EQ(status, MCAST_OK);
        EXPECT_EQ(static_cast<Item *>(first)->key, expected);
        EXPECT_EQ(Key(walk.current), expected);
        EXPECT_EQ(walk.key, first);
        EXPECT_EQ(walk.depth, 0u);
        Keys rest;
        for (int later = expected + 10; later <= 70; later += 10) {
            rest.push_back(later);
        }
        EXPECT_EQ(Walked(&walk), rest) << key;
    }
}

TEST_F(AvlTree, AWalkFromAKeyNeedsAllItsArguments)
{
    MCAST_AVL_WALK_S walk;
    Item probe{1};
    void *first = nullptr;
    Insert({1});
    EXPECT_EQ(MCAST_AVL_InitWalkFromKey(nullptr, &tree, &probe, &first), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AVL_InitWalkFromKey(&walk, nullptr, &probe, &first), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AVL_InitWalkFromKey(&walk, &tree, nullptr, &first), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AVL_InitWalkFromKey(&walk, &tree, &probe, nullptr), MCAST_ERR_GENERAL);
    EXPECT_EQ(first, nullptr);
}

TEST_F(AvlTree, AResumedWalkFindsItsPlaceByTheKeyAlsoAfterTheTreeChanged)
{
    MCAST_AVL_WALK_S walk;
    Item probe{30};
    void *first;
    Insert({40, 20, 60, 10, 30, 50, 70});
    ASSERT_EQ(MCAST_AVL_InitWalkFromKey(&walk, &tree, &probe, &first), MCAST_OK);
    walk.key = &probe; /* the item itself goes */
    Remove(30);
    Insert({35});
    EXPECT_EQ(Walked(&walk), (Keys{35, 40, 50, 60, 70}));
}

TEST_F(AvlTree, AWalkDeeperThanItsStackEnds)
{
    MCAST_AVL_WALK_S walk;
    void *first;
    Item probe{400};

    Chain(40);
    MCAST_AVL_InitWalk(&walk, &tree);
    Keys walked = Walked(&walk);
    EXPECT_EQ(walked.size(), 32u);
    EXPECT_EQ(walk.current, nullptr);
    EXPECT_EQ(walk.depth, 0u);

    ASSERT_EQ(MCAST_AVL_InitWalkFromKey(&walk, &tree, &probe, &first), MCAST_OK);
    EXPECT_EQ(MCAST_AVL_WalkNextNode(&walk), nullptr) << "the path to the place does not fit";

    Chain(32);
    EXPECT_EQ(All().size(), 32u);
}

std::vector<std::string> g_released;

TEST_F(AvlTree, FreeAllReleasesChildrenBeforeParentsAndDataBeforeTheNode)
{
    g_released.clear();
    MCAST_AVL_SetFunction(
        &tree, CompareItems, CompareKey,
        [](MCAST_AVL_NODE_S *node) { g_released.push_back("node " + std::to_string(Key(node))); },
        [](void *data) { g_released.push_back("data " + std::to_string(static_cast<Item *>(data)->key)); },
        SetWalkKey);
    Insert({40, 20, 60, 30, 50, 70});
    MCAST_AVL_FreeAll(&tree);
    EXPECT_EQ(g_released,
              (std::vector<std::string>{"data 30", "node 30", "data 20", "node 20", "data 50", "node 50",
                                        "data 70", "node 70", "data 60", "node 60", "data 40", "node 40"}));
    EXPECT_EQ(tree.root, nullptr);
    EXPECT_EQ(tree.node_count, 0u);
    EXPECT_EQ(tree.remove_count, 6u);
    EXPECT_EQ(tree.insert_count, 6u);

    Insert({1, 2, 3});
    EXPECT_EQ(All().size(), 3u) << "the tree stays usable";
}

TEST_F(AvlTree, FreeAllCountsOnlyNodesItReleased)
{
    MCAST_AVL_SetFunction(
        &tree, CompareItems, CompareKey, nullptr, [](void *) {}, nullptr);
    Insert({1, 2, 3});
    MCAST_AVL_FreeAll(&tree);
    EXPECT_EQ(tree.remove_count, 0u);
    EXPECT_EQ(tree.node_count, 0u);
}

TEST_F(AvlTree, FreeAllOfNothingDoesNothing)
{
    MCAST_AVL_SetFunction(
        &tree, CompareItems, CompareKey, [](MCAST_AVL_NODE_S *) { FAIL(); }, [](void *) { FAIL(); }, nullptr);
    MCAST_AVL_FreeAll(&tree);
    MCAST_AVL_FreeAll(nullptr);
    EXPECT_EQ(tree.remove_count, 0u);
}

TEST_F(AvlTree, FreeAllGivesBackBlocksThatHoldNodeAndItemTogetherAndAnyShape)
{
    struct Block {
        MCAST_AVL_NODE_S node;
        Item item;
    };
    long live = fault::LiveBlocks();
    MCAST_AVL_NODE_S *below = nullptr;

    MCAST_AVL_SetFunction(
        &tree, CompareItems, CompareKey,
        [](MCAST_AVL_NODE_S *node) { free(reinterpret_cast<Block *>(node)); }, nullptr, nullptr);
    for (int key = 0; key < 1000; ++key) {
        Block *block = static_cast<Block *>(malloc(sizeof(Block)));

        block->item.key = key;
        block->node = {key % 3 == 0 ? below : nullptr, key % 3 == 0 ? nullptr : below, &block->item, 1};
        below = &block->node;
    }
    tree.root = below;
    MCAST_AVL_FreeAll(&tree);
    EXPECT_EQ(tree.remove_count, 1000u);
    EXPECT_EQ(fault::LiveBlocks(), live);
}

} // namespace
