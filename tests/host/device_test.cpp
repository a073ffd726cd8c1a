// The machine as a router of one node.
#include <cstdlib>
#include <gtest/gtest.h>

#include "platform/device.h"

namespace
{

TEST(Device, IsOneNodeThatIsUpAndItsOwnMaster)
{
    uint16_t self = DEV_GetSelf();
    EXPECT_EQ(DEV_GetSystemMaster(), self);
    EXPECT_EQ(LIP_GetLocalLip() & 0xffff, self);
    EXPECT_EQ(IF_IsNodeUp(self), 1u);
    EXPECT_EQ(IF_IsNodeUp(static_cast<uint16_t>(self + 1)), 0u);
    uint32_t count = 7;
    uint16_t *nodes = DEV_GetAllNodes(&count);
    ASSERT_NE(nodes, nullptr);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(nodes[0], self);
    free(nodes);
    EXPECT_EQ(DEV_GetAllNodes(nullptr), nullptr);
    EXPECT_EQ(DEV_GetAllStandbyNodes(&count), nullptr);
    EXPECT_EQ(count, 1u);
}

TEST(Device, HasNoServicesAndStartsNone)
{
    uint32_t state = 7;
    uint16_t self = DEV_GetSelf();
    EXPECT_NE(SERVICE_GetStatus(static_cast<uint16_t>(self + 1), 5, 0, &state), 0u);
    EXPECT_NE(SERVICE_GetStatus(self, 5, 1, &state), 0u);
    EXPECT_NE(SERVICE_GetStatus(self, 5, 0, nullptr), 0u);
    EXPECT_EQ(state, 7u);
    EXPECT_EQ(SERVICE_GetStatus(self, 5, 0, &state), 0u);
    EXPECT_EQ(state, SERVICE_STATE_ABSENT);
    uint32_t started = SERVICE_Start(self, 5, 0, 0);
    EXPECT_NE(started, 0u);
    EXPECT_NE(started, SERVICE_NOTHING_DONE);
}

TEST(Device, ForwardingNeedsNoThreadsStarted)
{
    const uint64_t input = 0;
    uint32_t status = 7;
    uint16_t self = DEV_GetSelf();
    EXPECT_NE(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS + 1, 8, &input, nullptr, 0, &status), 0u);
    EXPECT_NE(CIOCTL(static_cast<uint16_t>(self + 1), CIOCTL_START_MULTICAST_THREADS, 8, &input, nullptr, 0,
                     &status),
              0u);
    EXPECT_NE(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 4, &input, nullptr, 0, &status), 0u);
    EXPECT_NE(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 8, nullptr, nullptr, 0, &status), 0u);
    EXPECT_NE(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 8, &input, nullptr, 0, nullptr), 0u);
    EXPECT_EQ(status, 7u);
    EXPECT_EQ(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 8, &input, nullptr, 0, &status), 0u);
    EXPECT_EQ(status, 0u);
}

} // namespace
