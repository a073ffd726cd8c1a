#include <gtest/gtest.h>

#include "mcast/common.h"
#include "support/fault.h"

namespace
{

TEST(StqReverse, ReversesTheOrderAndSwapsHeadAndTail)
{
    MCAST_STQ_NODE_S nodes[3] = {{&nodes[1]}, {&nodes[2]}, {nullptr}};
    MCAST_STQ_S queue = {&nodes[0], &nodes[2]};

    MCAST_StqReverse(&queue);

    EXPECT_EQ(queue.head, &nodes[2]);
    EXPECT_EQ(nodes[2].next, &nodes[1]);
    EXPECT_EQ(nodes[1].next, &nodes[0]);
    EXPECT_EQ(nodes[0].next, nullptr);
    EXPECT_EQ(queue.tail, &nodes[0]);
}

TEST(StqReverse, LeavesAnEmptyQueueEmpty)
{
    MCAST_STQ_S queue = {nullptr, nullptr};

    MCAST_StqReverse(&queue);

    EXPECT_EQ(queue.head, nullptr);
    EXPECT_EQ(queue.tail, nullptr);
}

TEST(StqReverse, LeavesASingleElementInPlace)
{
    MCAST_STQ_NODE_S node = {nullptr};
    MCAST_STQ_S queue = {&node, &node};

    MCAST_StqReverse(&queue);

    EXPECT_EQ(queue.head, &node);
    EXPECT_EQ(queue.tail, &node);
    EXPECT_EQ(node.next, nullptr);
}

TEST(FreeFunc, GivesBackABlockAndIgnoresNull)
{
    long before = fault::LiveBlocks();
    void *block = malloc(16);

    MCAST_FreeFunc(block);
    MCAST_FreeFunc(nullptr);

    EXPECT_EQ(fault::LiveBlocks(), before);
}

} // namespace
