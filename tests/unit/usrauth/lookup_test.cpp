#include <cstring>

#include "support/addresses.h"
#include "unit/usrauth/usrauth_fixture.h"

namespace usrauth_test
{
namespace
{

class Lookup : public UsrAuthTest
{
protected:
    Lookup()
    {
        Start();
    }

    /* Users 1, 2, 3 with interfaces 1001 to 1003 and two entries each. */
    void Populate()
    {
        spec.pairs = {{1, 1}, {1, 2}};
        for (uint32_t id : {2u, 3u, 1u}) {
            spec.user_id = id;
            PutOnline(spec);
        }
    }

    /* Walks and tells what was visited: "1", "1:239.0.0.1/1" ... joined by spaces. */
    std::string Visited(uint32_t mode, uint32_t if_index, uint32_t expected = MCAST_OK)
    {
        MCAST_USRAUTH_USER_FILTER_S filter = {mode, if_index, 77, group_cursor, source_cursor};
        visited.clear();
        EXPECT_EQ(MCAST_USRAUTH_WalkAllUserByIfIndex(&filter, with_users ? Visit : nullptr,
                                                     with_entries ? Visit : nullptr, this),
                  expected);
        return visited;
    }

    static uint32_t Visit(MCAST_USRAUTH_USER_S *user, MCAST_USRAUTH_ENTRY_S *entry, MTABLE_GROUP_S *group,
                          void *argument)
    {
        Lookup *self = static_cast<Lookup *>(argument);
        std::string text = std::to_string(user->user_id);
        EXPECT_EQ(entry == nullptr, group == nullptr);
        if (entry != nullptr) {
            EXPECT_EQ(entry->head.group, group);
            text += ":" + std::to_string(group->address.address[3]);
        }
        self->visited += (self->visited.empty() ? "" : " ") + text;
        return text == self->stop_at ? self->stop_code : 0;
    }

    UserSpec spec;
    std::string visited, stop_at;
    uint32_t stop_code = 1;
    MCAST_ADDR_S *group_cursor = nullptr, *source_cursor = nullptr;
    bool with_users = true, with_entries = true;
};

TEST_F(Lookup, DefaultsTellThatThereIsNoUser)
{
    MCAST_USRAUTH_INFO_S info, expected = {};
    expected.user_id = 0xffffffff;
    expected.attribute_32 = expected.attribute_34 = 0xffff;
    expected.attribute_40 = 0xffffffff;
    expected.address.family = 2;
    expected.attribute_80 = 0xffffffff;
    expected.attribute_84 = 0x0000ffff;
    memset(&info, 0xee, sizeof(info));
    MCAST_USRAUTH_SetDefaultUserInfo(&info);
    EXPECT_EQ(memcmp(&info, &expected, sizeof(info)), 0);
    memset(&info, 0xee, sizeof(info));
    EXPECT_EQ(MCAST_USRAUTH_GetInfoByIfIndex(1, &info), MCAST_ERR_GENERAL);
    EXPECT_EQ(memcmp(&info, &expected, sizeof(info)), 0);
    EXPECT_EQ(MCAST_USRAUTH_GetInfoByIfIndex(1, nullptr), MCAST_ERR_GENERAL);
    MCAST_USRAUTH_SetDefaultUserInfo(nullptr);
}

TEST_F(Lookup, InfoHasEveryFieldOfTheUser)
{
    MCAST_USRAUTH_INFO_S info;
    PutOnline(spec);
    EXPECT_EQ(MCAST_USRAUTH_GetInfoByIfIndex(1007, &info), MCAST_OK);
    EXPECT_EQ(info.access_if_index, 50u);
    EXPECT_EQ(info.user_id, 7u);
    EXPECT_EQ(info.attribute_32, 32u);
    EXPECT_EQ(info.attribute_34, 34u);
    EXPECT_EQ(info.attribute_36, 36u);
    EXPECT_EQ(info.attribute_40, 40u);
    EXPECT_EQ(info.attribute_24, 24u);
    EXPECT_EQ(memcmp(&info.hardware_address_first, "\xa0\xa1\xa2\xa3", 4), 0);
    EXPECT_EQ(memcmp(&info.hardware_address_last, "\xa4\xa5", 2), 0);
    EXPECT_EQ(info.attribute_70, 70u);
    EXPECT_EQ(info.attribute_80, 80u);
    EXPECT_EQ(info.attribute_84, 84u);
    const MCAST_ADDR_S first = Addr("192.0.2.9");
    EXPECT_EQ(memcmp(&info.address, &first, sizeof(first)), 0);
}

TEST_F(Lookup, UserIdWithTwoInItsUpperBitsMeansTheSecondAddress)
{
    MCAST_USRAUTH_INFO_S info;
    const MCAST_ADDR_S first = Addr("192.0.2.9"), second = Addr("198.51.100.8");
    interface_of = [](MCAST_USRAUTH_USER_S *user) { return user->user_id; };
    for (uint32_t id : {0x10000000u, 0x1fffffffu, 0x20000000u, 0x2fffffffu, 0x30000000u, 0xa0000000u}) {
        spec.user_id = id;
        PutOnline(spec);
        EXPECT_EQ(MCAST_USRAUTH_GetInfoByIfIndex(id, &info), MCAST_OK);
        EXPECT_EQ(memcmp(&info.address, id >> 28 == 2 ? &second : &first, sizeof(first)), 0);
    }
}

TEST_F(Lookup, VrfAndUserIdOfAnInterface)
{
    uint16_t vrf = 0xffff;
    uint32_t id = 1;
    PutOnline(spec);
    EXPECT_EQ(MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(2, &vrf, &id), 0xffffffffu);
    EXPECT_EQ(vrf, 0xffffu) << "kept";
    EXPECT_EQ(id, 0xffffffffu);
    EXPECT_EQ(MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(1007, &vrf, &id), 7u);
    EXPECT_EQ(vrf, 5u);
    EXPECT_EQ(id, 7u);
    EXPECT_EQ(MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(1007, nullptr, nullptr), 7u);
}

TEST_F(Lookup, GroupPassesWhateverItsSource)
{
    const MCAST_ADDR_S listed = Addr("239.0.0.1"), other = Addr("239.0.0.2");
    spec.pairs = {{5, 1}};
    PutOnline(spec);
    EXPECT_EQ(MCAST_USRAUTH_CanPassGroupList(1007, &listed), MCAST_TRUE);
    EXPECT_EQ(MCAST_USRAUTH_CanPassGroupList(1007, &other), MCAST_FALSE);
    EXPECT_EQ(MCAST_USRAUTH_CanPassGroupList(1008, &listed), MCAST_FALSE);
    EXPECT_EQ(MCAST_USRAUTH_CanPassGroupList(1007, nullptr), MCAST_FALSE);
}

TEST_F(Lookup, InterfaceZeroIsNobodys)
{
    interface_of = [](MCAST_USRAUTH_USER_S *) { return 0; };
    PutOnline(spec);
    EXPECT_EQ(MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(0, nullptr, nullptr), 0xffffffffu);
}

TEST_F(Lookup, WithoutAStoreEverythingIsEmpty)
{
    const MCAST_ADDR_S group = Addr("239.0.0.1");
    const MCAST_USRAUTH_DETAIL_FILTER_S all = {1, 0, 0, 0};
    MCAST_USRAUTH_STATISTICS_S statistics, none = {};
    MCAST_USRAUTH_INFO_S info;
    PutOnline(spec);
    MCAST_USRAUTH_StopServer();
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(MCAST_USRAUTH_Fini(), MCAST_OK);
        EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
        EXPECT_EQ(MCAST_USRAUTH_GetInfoByIfIndex(1007, &info), MCAST_ERR_GENERAL);
        EXPECT_EQ(info.address.family, 0u);
        EXPECT_EQ(MCAST_USRAUTH_CanPassGroupList(1007, &group), MCAST_FALSE);
        EXPECT_EQ(Visited(3, 0), "");
        EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 0u);
        EXPECT_EQ(MCAST_USRAUTH_WalkAllUserMsgDetail(
                      &all, [](MCAST_USRAUTH_MSG_DETAIL_S *, void *) { return 1u; }, nullptr),
                  MCAST_OK);
        EXPECT_EQ(MCAST_USRAUTH_ClearRecord(), MCAST_OK);
        EXPECT_EQ(MCAST_USRAUTH_ClearAllUsers(), MCAST_OK);
        EXPECT_EQ(MCAST_USRAUTH_Degrade(), MCAST_OK);
        EXPECT_EQ(MCAST_USRAUTH_RefreshAllUserByNodeRemove(1), MCAST_OK);
        EXPECT_EQ(MCAST_USRAUTH_GetStatistics(&statistics), MCAST_OK);
        EXPECT_EQ(memcmp(&statistics, &none, sizeof(none)), 0);
    }
}

TEST_F(Lookup, WalkOfOneVisitsTheUserOfTheInterface)
{
    Populate();
    EXPECT_EQ(Visited(0, 1002), "2");
    EXPECT_EQ(Visited(0, 1001), "1");
    EXPECT_EQ(Visited(0, 1000), "");
    EXPECT_EQ(Visited(2, 1002), "2 2:1 2:2");
    EXPECT_EQ(Visited(2, 1000), "");
    EXPECT_EQ(Visited(9, 1002), "2") << "an unknown mode";
}

TEST_F(Lookup, WalkFromVisitsTheUsersFromThereOn)
{
    Populate();
    EXPECT_EQ(Visited(1, 1002), "2 3");
    EXPECT_EQ(Visited(1, 0), "1 2 3");
    EXPECT_EQ(Visited(1, 1003), "3");
    EXPECT_EQ(Visited(1, 1004), "");
    EXPECT_EQ(Visited(1, 0xffffffff), "");
    EXPECT_EQ(Visited(3, 1002), "2 2:1 2:2 3 3:1 3:2");
    EXPECT_EQ(Visited(3, 5), "1 1:1 1:2 2 2:1 2:2 3 3:1 3:2");
}

TEST_F(Lookup, WalkGoesWithoutEitherCallback)
{
    Populate();
    with_users = false;
    EXPECT_EQ(Visited(3, 1003), "3:1 3:2");
    with_entries = false;
    EXPECT_EQ(Visited(3, 0), "");
    with_users = true;
    EXPECT_EQ(Visited(3, 0), "1 2 3");
    EXPECT_EQ(MCAST_USRAUTH_WalkAllUserByIfIndex(nullptr, Visit, Visit, this), MCAST_ERR_GENERAL);
}

TEST_F(Lookup, WalkStopsAtAUserOrAnEntryWithWhateverCode)
{
    Populate();
    for (uint32_t code : {1u, MCAST_WALK_AGAIN, MCAST_WALK_SKIP_GROUP, 0xffffffffu}) {
        stop_code = code;
        stop_at = "2";
        EXPECT_EQ(Visited(3, 0, MCAST_ERR_STOPPED), "1 1:1 1:2 2");
        stop_at = "2:1";
        EXPECT_EQ(Visited(3, 0, MCAST_ERR_STOPPED), "1 1:1 1:2 2 2:1");
        EXPECT_EQ(Visited(2, 1002, MCAST_ERR_STOPPED), "2 2:1");
    }
}

TEST_F(Lookup, WalkResumesAtTheEntryWhereItsCursorsStand)
{
    MCAST_ADDR_S cursors[2] = {{2, 0, {}}, {2, 0, {}}};
    Populate();
    group_cursor = &cursors[0];
    source_cursor = &cursors[1];
    stop_at = "1:2";
    EXPECT_EQ(Visited(3, 0, MCAST_ERR_STOPPED), "1 1:1 1:2");
    const MCAST_ADDR_S group = Addr("239.0.0.2"), source = Addr("10.0.0.1"), none = {2, 0, {}};
    EXPECT_EQ(memcmp(&cursors[0], &group, sizeof(group)), 0);
    EXPECT_EQ(memcmp(&cursors[1], &source, sizeof(source)), 0);
    stop_at = "";
    EXPECT_EQ(Visited(3, 1001), "1 1:2 2 2:1 2:2 3 3:1 3:2");
    EXPECT_EQ(memcmp(&cursors[0], &none, sizeof(none)), 0);
    EXPECT_EQ(memcmp(&cursors[1], &none, sizeof(none)), 0);
}

TEST_F(Lookup, WalkMayAskWhatAnyThreadMay)
{
    const MCAST_USRAUTH_USER_FILTER_S all = {1, 0, 0, nullptr, nullptr};
    uint32_t count = 0;
    Populate();
    MCAST_USRAUTH_WalkAllUserByIfIndex(
        &all,
        [](MCAST_USRAUTH_USER_S *user, MCAST_USRAUTH_ENTRY_S *, MTABLE_GROUP_S *, void *to) {
            EXPECT_EQ(MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(user->if_index, nullptr, nullptr),
                      user->user_id);
            *static_cast<uint32_t *>(to) = MCAST_USRAUTH_UserCount();
            return MCAST_OK;
        },
        nullptr, &count);
    EXPECT_EQ(count, 3u);
}

} // namespace
} // namespace usrauth_test
