#include "avl_fixture.h"

using namespace container_test;

namespace
{

TEST_F(AvlTree, StoresItsFunctionsAndIgnoresANullTree)
{
    MCAST_AVL_S other = {};
    auto release_node = [](MCAST_AVL_NODE_S *) {};
    auto release_data = [](void *) {};
    MCAST_AVL_SetFunction(&other, CompareItems, CompareKey, release_node, release_data, SetWalkKey);
    EXPECT_EQ(other.node_compare, CompareItems);
    EXPECT_EQ(other.key_compare, CompareKey);
    EXPECT_EQ(other.node_release, static_cast<MCAST_AVL_NODE_RELEASE>(release_node));
    EXPECT_EQ(other.data_release, static_cast<MCAST_AVL_DATA_RELEASE>(release_data));
    EXPECT_EQ(other.set_walk_key, SetWalkKey);
    MCAST_AVL_SetFunction(nullptr, CompareItems, CompareKey, nullptr, nullptr, nullptr);
}

TEST_F(AvlTree, ThreeAscendingInsertionsRotateOnce)
{
    Insert({1, 2, 3});
    EXPECT_EQ(Shape(), "((1:1)2:2(3:1))");
    EXPECT_EQ(tree.rotation_count, 1u);
    EXPECT_EQ(tree.node_count, 3u);
    EXPECT_EQ(tree.insert_count, 3u);
    EXPECT_EQ(tree.remove_count, 0u);
}

TEST_F(AvlTree, EveryKindOfRotationCountsOnce)
{
    for (const Keys &keys : {Keys{1, 2, 3}, Keys{3, 2, 1}, Keys{3, 1, 2}, Keys{1, 3, 2}}) {
        tree.root = nullptr;
        tree.rotation_count = 0;
        Insert(keys);
        EXPECT_EQ(tree.rotation_count, 1u);
        EXPECT_EQ(Shape(), "((1:1)2:2(3:1))");
    }
}

TEST_F(AvlTree, DoubleRotationHandsTheMiddleNodesChildrenOver)
{
    Insert({50, 30, 70, 20, 40, 35});
    EXPECT_EQ(Shape(), "(((20:1)30:2(35:1))40:3(50:2(70:1)))");
    EXPECT_EQ(tree.rotation_count, 1u);
}

TEST_F(AvlTree, MirroredDoubleRotationHandsTheMiddleNodesChildrenOver)
{
    Insert({50, 30, 70, 60, 80, 65});
    EXPECT_EQ(Shape(), "(((30:1)50:2)60:3((65:1)70:2(80:1)))");
    EXPECT_EQ(tree.rotation_count, 1u);
}

TEST_F(AvlTree, AnEvenChildAfterARemovalTakesASingleRotation)
{
    Insert({40, 20, 50, 10, 30});
    MCAST_AVL_NODE_S *out = Remove(50);

    EXPECT_EQ(Key(out), 50);
    EXPECT_EQ(Shape(), "((10:1)20:3((30:1)40:2))");
    EXPECT_EQ(tree.rotation_count, 1u);
}

TEST_F(AvlTree, AnEqualItemIsRefusedAndNothingChanges)
{
    Insert({1, 2, 3});
    std::string shape = Shape();
    MCAST_AVL_NODE_S *node = Node(3);

    node->left = node;
    EXPECT_EQ(MCAST_AVL_Insert(&tree, node), MCAST_AVL_PRESENT);
    EXPECT_EQ(Shape(), shape);
    EXPECT_EQ(tree.insert_count, 3u);
    EXPECT_EQ(tree.node_count, 3u);
    EXPECT_EQ(node->left, node);
    EXPECT_EQ(node->height, 99u);
}

TEST_F(AvlTree, InsertionNeedsATreeANodeAndData)
{
    MCAST_AVL_NODE_S *bare = Node(9);
    bare->data = nullptr;
    EXPECT_EQ(MCAST_AVL_Insert(nullptr, bare), MCAST_AVL_BAD_ARGUMENT);
    EXPECT_EQ(MCAST_AVL_Insert(&tree, nullptr), MCAST_AVL_BAD_ARGUMENT);
    Insert({5});
    EXPECT_EQ(MCAST_AVL_Insert(&tree, bare), MCAST_AVL_NO_DATA);
    EXPECT_EQ(tree.node_count, 1u);
}

TEST_F(AvlTree, AnEmptyTreeTakesANodeWithoutDataAndThenRefusesEveryOther)
{
    MCAST_AVL_NODE_S *bare = Node(9);
    Item probe{9};
    bare->data = nullptr;
    EXPECT_EQ(MCAST_AVL_Insert(&tree, bare), MCAST_AVL_OK);
    EXPECT_EQ(tree.root, bare);
    EXPECT_EQ(bare->height, 1u);
    EXPECT_EQ(MCAST_AVL_Insert(&tree, Node(5)), MCAST_AVL_NO_DATA);
    EXPECT_EQ(MCAST_AVL_Search(&tree, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_SearchNext(&tree, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_Remove(&tree, &probe), nullptr);
    EXPECT_EQ(tree.node_count, 1u);
}

TEST_F(AvlTree, AMissingDataBelowEndsSearchesThere)
{
    Insert({20, 10, 30});
    tree.root->right->data = nullptr;
    EXPECT_EQ(MCAST_AVL_Insert(&tree, Node(40)), MCAST_AVL_NO_DATA);
    EXPECT_EQ(Search(30), nullptr);
    EXPECT_EQ(Remove(30), nullptr);
    EXPECT_EQ(Next(25), -1);
    EXPECT_EQ(Next(15), 20);

    tree.root->left->data = nullptr;
    EXPECT_EQ(Remove(20), nullptr) << "the predecessor has no data to take its place";
    EXPECT_EQ(Key(tree.root), 20);
    EXPECT_EQ(tree.node_count, 3u);
}

TEST_F(AvlTree, WithoutFunctionsOnlyAnEmptyTreeTakesANode)
{
    MCAST_AVL_S bare = {};
    MCAST_AVL_WALK_S walk;
    Item probe{1};
    void *first = nullptr;
    EXPECT_EQ(MCAST_AVL_Insert(&bare, Node(1)), MCAST_AVL_OK);
    EXPECT_EQ(MCAST_AVL_Insert(&bare, Node(2)), MCAST_AVL_BAD_ARGUMENT);
    EXPECT_EQ(MCAST_AVL_Remove(&bare, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_Search(&bare, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_SearchNext(&bare, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_InitWalkFromKey(&walk, &bare, &probe, &first), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AVL_InitWalk(&walk, &bare), MCAST_OK);
    EXPECT_EQ(MCAST_AVL_WalkNextNode(&walk), bare.root);
    EXPECT_EQ(MCAST_AVL_WalkNextNode(&walk), nullptr);
    MCAST_AVL_FreeAll(&bare);
    EXPECT_EQ(bare.remove_count, 0u);
}

TEST_F(AvlTree, RemovesALeafOneChildAndTheRoot)
{
    Insert({20, 10, 30, 40});
    MCAST_AVL_NODE_S *thirty = Search(30);
    MCAST_AVL_NODE_S *out = Remove(30);

    EXPECT_EQ(out, thirty);
    EXPECT_EQ(Key(out), 30);
    EXPECT_EQ(Shape(), "((10:1)20:2(40:1))");
    EXPECT_EQ(Key(Remove(10)), 10);
    EXPECT_EQ(Key(Remove(20)), 20);
    EXPECT_EQ(Shape(), "(40:1)");
    EXPECT_EQ(Key(Remove(40)), 40);
    EXPECT_EQ(tree.root, nullptr);
    EXPECT_EQ(tree.node_count, 0u);
    EXPECT_EQ(tree.remove_count, 4u);
    EXPECT_EQ(tree.insert_count, 4u);
    EXPECT_EQ(Remove(40), nullptr);
    EXPECT_EQ(tree.remove_count, 4u);
}

TEST_F(AvlTree, RemovalOfANodeWithTwoChildrenReturnsThePredecessorsRecordWithTheRemovedData)
{
    Insert({40, 20, 60, 10, 30, 70, 25});
    MCAST_AVL_NODE_S *found = Search(40);
    MCAST_AVL_NODE_S *predecessor = Search(30);
    MCAST_AVL_NODE_S *out = Remove(40);

    EXPECT_EQ(out, predecessor);
    EXPECT_EQ(Key(out), 40);
    EXPECT_EQ(Key(found), 30);
    EXPECT_EQ(tree.root, found);
    EXPECT_EQ(Shape(), "(((10:1)20:2(25:1))30:3(60:2(70:1)))");
}

TEST_F(AvlTree, RemovalWhoseLeftChildIsThePredecessorKeepsThatChildsLeftSubtree)
{
    Insert({40, 20, 60, 10});
    MCAST_AVL_NODE_S *left = Search(20);

    EXPECT_EQ(Remove(40), left);
    EXPECT_EQ(Shape(), "((10:1)20:2(60:1))");
}

TEST_F(AvlTree, RemovalRebalancesAllTheWayUp)
{
    /* A least tree of height 5: taking the shallowest leaf out rotates at two levels. */
    Insert({80, 50, 110, 30, 70, 100, 120, 20, 40, 60, 90, 10});
    ASSERT_EQ(tree.root->height, 5u);
    ASSERT_EQ(tree.rotation_count, 0u);
    Remove(120);
    EXPECT_EQ(tree.rotation_count, 2u);
    EXPECT_EQ(Shape(), "((((10:1)20:2)30:3(40:1))50:4(((60:1)70:2)80:3((90:1)100:2(110:1))))");
}

TEST_F(AvlTree, RebalancingSetsEveryHeightOfThePathUpToTheRoot)
{
    Insert({20, 10, 30});
    tree.root->height = 77;
    Insert({5});
    EXPECT_EQ(Shape(), "(((5:1)10:2)20:3(30:1))");
    tree.root->height = 77;
    Remove(5);
    EXPECT_EQ(Shape(), "((10:1)20:2(30:1))");
}

TEST_F(AvlTree, MissingArgumentsFindAndRemoveNothing)
{
    Item probe{1};
    Insert({1});
    EXPECT_EQ(MCAST_AVL_Search(nullptr, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_Search(&tree, nullptr), nullptr);
    EXPECT_EQ(MCAST_AVL_SearchNext(nullptr, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_SearchNext(&tree, nullptr), nullptr);
    EXPECT_EQ(MCAST_AVL_Remove(nullptr, &probe), nullptr);
    EXPECT_EQ(MCAST_AVL_Remove(&tree, nullptr), nullptr);
    EXPECT_EQ(tree.node_count, 1u);
}

TEST_F(AvlTree, SearchNextFindsTheLeastGreaterItemWhetherOrNotTheKeyIsPresent)
{
    EXPECT_EQ(Next(1), -1);
    Insert({40, 20, 60, 10, 30, 50, 70});
    for (int key = 0; key < 80; ++key) {
        EXPECT_EQ(Next(key), key < 70 ? key / 10 * 10 + 10 : -1) << key;
    }
}

TEST_F(AvlTree, AnInsertionDeeperThanThirtyTwoIsRefusedWithNothingChanged)
{
    Chain(32);
    std::string shape = Shape();

    EXPECT_EQ(MCAST_AVL_Insert(&tree, Node(1000)), MCAST_AVL_TOO_DEEP);
    EXPECT_EQ(MCAST_AVL_Insert(&tree, Node(315)), MCAST_AVL_TOO_DEEP);
    EXPECT_EQ(MCAST_AVL_Insert(&tree, Node(320)), MCAST_AVL_PRESENT);
    EXPECT_EQ(Shape(), shape);
    EXPECT_EQ(tree.node_count, 32u);
    EXPECT_EQ(tree.insert_count, 0u);

    Chain(31);
    EXPECT_EQ(MCAST_AVL_Insert(&tree, Node(1000)), MCAST_AVL_OK);
    EXPECT_LE(tree.root->height, 32u);
    EXPECT_EQ(Key(Search(1000)), 1000);
}

TEST_F(AvlTree, PathsOfMoreThanThirtyTwoNodesAreNeverStored)
{
    Chain(100);
    EXPECT_EQ(MCAST_AVL_Insert(&tree, Node(2000)), MCAST_AVL_TOO_DEEP);
    EXPECT_EQ(Remove(500), nullptr);
    EXPECT_EQ(tree.node_count, 100u);
    EXPECT_EQ(Key(Search(500)), 500);
    EXPECT_EQ(Next(505), 510);
    EXPECT_EQ(Key(Remove(320)), 320) << "just within reach";
}

TEST_F(AvlTree, RemovalWhosePredecessorLiesTooDeepChangesNothing)
{
    Chain(40);
    MCAST_AVL_NODE_S *top = Node(5000);

    *top = {tree.root, Node(6000), top->data, 41};
    top->right->left = top->right->right = nullptr;
    top->right->height = 1;
    tree.root = top;
    EXPECT_EQ(Remove(5000), nullptr);
    EXPECT_EQ(Key(top), 5000);
}

TEST_F(AvlTree, InsertOfAnOwnedNodeFreesItWhenRefused)
{
    long live = fault::LiveBlocks();
    Item item{4};
    MCAST_AVL_NODE_S *first = static_cast<MCAST_AVL_NODE_S *>(malloc(sizeof(*first)));
    MCAST_AVL_NODE_S *second = static_cast<MCAST_AVL_NODE_S *>(malloc(sizeof(*second)));
    MCAST_AVL_NODE_S *third = static_cast<MCAST_AVL_NODE_S *>(malloc(sizeof(*third)));
    first->data = second->data = third->data = &item;
    EXPECT_EQ(MCAST_AvlInsert(&tree, first), MCAST_OK);
    EXPECT_EQ(MCAST_AvlInsert(&tree, second), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AvlInsert(nullptr, third), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_AvlInsert(&tree, nullptr), MCAST_ERR_GENERAL);
    EXPECT_EQ(fault::LiveBlocks(), live + 1);
    free(Remove(4));
    EXPECT_EQ(fault::LiveBlocks(), live);
}

} // namespace
