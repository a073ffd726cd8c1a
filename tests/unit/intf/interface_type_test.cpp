#include <cstring>
#include <gtest/gtest.h>

#include "mcast/interface_registry.h"
#include "support/scripted_interface.h"

namespace
{

class InterfaceType : public testing::Test
{
protected:
    void TearDown() override
    {
        scripted::ResetInterface();
    }

    /* Makes the platform answer item 18 of interface 5 with type and nothing else. */
    void Answer(uint32_t type, uint32_t result = 0)
    {
        scripted::if_data = [=](uint32_t if_index, uint32_t item, void *data) -> uint32_t {
            EXPECT_EQ(item, 18u);
            EXPECT_EQ(if_index, 5u);
            std::memcpy(data, &type, sizeof(type));
            return result;
        };
    }
};

TEST_F(InterfaceType, PrivateIndexesBeginAboveBfffffff)
{
    EXPECT_EQ(MCAST_IsPrivateIfIndex(0), MCAST_FALSE);
    EXPECT_EQ(MCAST_IsPrivateIfIndex(0x80000000), MCAST_FALSE);
    EXPECT_EQ(MCAST_IsPrivateIfIndex(0xBFFFFFFF), MCAST_FALSE);
    EXPECT_EQ(MCAST_IsPrivateIfIndex(0xC0000000), MCAST_TRUE);
    EXPECT_EQ(MCAST_IsPrivateIfIndex(0xFFFFFFFF), MCAST_TRUE);
}

TEST_F(InterfaceType, KindsOfPrivateInterfaceAreTypesSixToNine)
{
    for (uint32_t type = 0; type < 32; ++type) {
        for (uint32_t number : {0u, 1u, 0x1FFFFFFu}) {
            uint32_t index = 0xC0000000u | type << 25 | number;

            EXPECT_EQ(MCAST_IsMUAIntf(index), type == 8 || type == 9 ? 1u : 0u) << type;
            EXPECT_EQ(MCAST_IsNBMALinkIntf(index), type == 6 || type == 7 ? 1u : 0u) << type;
            for (uint32_t top : {0u, 0x40000000u, 0x80000000u}) {
                EXPECT_EQ(MCAST_IsMUAIntf((index & 0x3FFFFFFF) | top), 0u);
                EXPECT_EQ(MCAST_IsNBMALinkIntf((index & 0x3FFFFFFF) | top), 0u);
            }
        }
    }
}

TEST_F(InterfaceType, OwnInterfacesHaveTheirOwnCode)
{
    scripted::if_data = [](uint32_t, uint32_t, void *) -> uint32_t {
        ADD_FAILURE() << "the platform was asked";
        return 0;
    };
    for (uint32_t index : {0xCC000000u, 0xCFFFFFFFu, 0xD0000000u, 0xD3FFFFFFu}) {
        EXPECT_EQ(MCAST_GetIfTypeByIfIndex(index), 98u);
    }
}

TEST_F(InterfaceType, OthersAreAskedOfThePlatform)
{
    Answer(22);
    EXPECT_EQ(MCAST_GetIfTypeByIfIndex(5), 22u);
    Answer(23, 1); /* filled although it failed */
    EXPECT_EQ(MCAST_GetIfTypeByIfIndex(5), 23u);
    scripted::ResetInterface(); /* fills nothing */
    EXPECT_EQ(MCAST_GetIfTypeByIfIndex(5), 128u);
    EXPECT_EQ(MCAST_GetIfTypeByIfIndex(0xFE000000), 128u);
    EXPECT_EQ(MCAST_GetIfTypeByIfIndex(0xC0000000), 128u);
}

TEST_F(InterfaceType, MibMayConfigureWhatThePlatformKnowsButTwoTypes)
{
    for (uint32_t type : {0u, 10u, 12u, 22u, 39u, 41u, 128u}) {
        Answer(type);
        EXPECT_EQ(MCAST_IF_CanMibSet(5), 0u) << type;
    }
    for (uint32_t type : {11u, 40u}) {
        Answer(type);
        EXPECT_EQ(MCAST_IF_CanMibSet(5), 0x61010049u) << type;
    }
    Answer(22, 1);
    EXPECT_EQ(MCAST_IF_CanMibSet(5), 0x61010049u);
}

TEST_F(InterfaceType, MibMayConfigureNoPrivateInterface)
{
    Answer(22);
    for (uint32_t index : {0xC0000000u, 0xCC000000u, 0xD0000000u, 0xFE000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(MCAST_IF_CanMibSet(index), 0x61010049u);
    }
}

} // namespace
