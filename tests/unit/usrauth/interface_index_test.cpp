#include <algorithm>
#include <vector>

#include "support/scripted_random.h"
#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/store.h"

namespace usrauth_test
{
namespace
{

class InterfaceIndex : public UsrAuthTest
{
protected:
    InterfaceIndex()
    {
        Start();
        spec.name = "";
        interface_of = [](MCAST_USRAUTH_USER_S *user) { return user->user_id; };
    }

    void Put(uint32_t id)
    {
        spec.user_id = id;
        PutOnline(spec);
    }

    uint32_t Find(uint32_t if_index)
    {
        return MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(if_index, nullptr, nullptr);
    }

    UserSpec spec;
};

TEST_F(InterfaceIndex, FindsEveryUserWhileItGrowsAndAfterDeletions)
{
    for (uint32_t id = 1; id <= 300; ++id) {
        Put(id * 64);
        ASSERT_EQ(Find(id * 64), id * 64);
    }
    for (uint32_t id = 1; id <= 300; id += 2) {
        spec.user_id = id * 64;
        Receive(spec.Withdraw());
    }
    for (uint32_t id = 1; id <= 300; ++id) {
        ASSERT_EQ(Find(id * 64), id % 2 == 0 ? id * 64 : 0xffffffffu);
        ASSERT_EQ(Find(id * 64 + 1), 0xffffffffu);
    }
}

TEST_F(InterfaceIndex, UsersThatGaveWayToOthersAreFoundAfterDeletions)
{
    std::vector<uint32_t> ids;
    for (uint32_t id = 12345; ids.size() < 500; id = id * 1664525 + 1013904223) {
        ids.push_back(id >> 4 | 1);
        Put(ids.back());
    }
    for (size_t i = 0; i < ids.size(); i += 2) {
        spec.user_id = ids[i];
        Receive(spec.Withdraw());
    }
    for (size_t i = 0; i < ids.size(); ++i) {
        ASSERT_EQ(Find(ids[i]), i % 2 == 0 ? 0xffffffffu : ids[i]) << i;
    }
}

TEST_F(InterfaceIndex, UsersAreFoundInTheTreeWhileMemoryForItIsShort)
{
    MCAST_USRAUTH_SetMsgDetailLimit(0);
    fault::FailAllocation(0);
    Put(1);
    ASSERT_NE(mcast::usrauth::g_store.index.users, nullptr);
    for (uint32_t id = 2; id <= 31; ++id) {
        Put(id);
    }
    spec.user_id = 32;
    Receive(spec.Announce());
    fault::FailAllocation(1);
    Receive(spec.ListEnd());
    fault::FailAllocation(0);
    EXPECT_EQ(mcast::usrauth::g_store.index.users, nullptr) << "it could not grow";
    for (uint32_t id = 1; id <= 32; ++id) {
        EXPECT_EQ(Find(id), id);
    }
    Put(33);
    EXPECT_EQ(mcast::usrauth::g_store.index.users, nullptr);
    for (uint32_t id = 34; id <= 64; ++id) {
        Put(id);
    }
    EXPECT_NE(mcast::usrauth::g_store.index.users, nullptr) << "made again";
    for (uint32_t id = 1; id <= 64; ++id) {
        EXPECT_EQ(Find(id), id);
    }
}

TEST_F(InterfaceIndex, PlacesDependOnRandomBytes)
{
    uint8_t next = 1;

    Put(1);
    const uint64_t without = mcast::usrauth::g_store.index.multiplier;

    scripted::random_bytes = [&](uint8_t *buffer, int length) {
        std::fill_n(buffer, length, next++);
        return 1;
    };
    for (uint32_t id = 2; id <= 300; ++id) {
        Put(id * 1024);
    }
    scripted::random_bytes = nullptr;
    const uint64_t with = mcast::usrauth::g_store.index.multiplier;

    EXPECT_NE(with, without);
    EXPECT_EQ(with & without & 1, 1u) << "odd";
    EXPECT_EQ(next, 1 + 2 * 4) << "drawn anew for each of four growths";
    for (uint32_t id = 2; id <= 300; ++id) {
        EXPECT_EQ(Find(id * 1024), id * 1024);
    }
}

} // namespace
} // namespace usrauth_test
