#include <atomic>
#include <thread>

#include "support/addresses.h"
#include "unit/usrauth/usrauth_fixture.h"

namespace usrauth_test
{
namespace
{

constexpr int kThreads = 2;
constexpr int kRounds = 300;
constexpr uint32_t kUsers = 40;

/* One thread serves agents while others ask; a thread sanitizer watches. */
class Threads : public UsrAuthTest
{
protected:
    Threads()
    {
        Start();
        expect_lock_free = false; /* others hold it for reading */
    }

    void Serve()
    {
        UserSpec spec;
        while (running < kThreads) {
            std::this_thread::yield();
        }
        for (int round = 0; round < kRounds; ++round) {
            spec.user_id = 1 + static_cast<uint32_t>(round * 7) % kUsers;
            spec.node = static_cast<uint16_t>(spec.user_id % 3);
            spec.kind = 1 + spec.user_id % 4;
            spec.attribute_40 = static_cast<uint16_t>(round % 3);
            spec.vrf_index = static_cast<uint16_t>(round % 50 / 49);
            spec.pairs = {{1, 1}, {2, 1}, {static_cast<uint8_t>(round % 5), 2}};
            Receive(spec.Announce() + spec.ListEnd());
            Receive(spec.Update() + spec.List({{3, 3}}) + spec.ListEnd());
            if (round % 3 == 0) {
                Receive(spec.Withdraw());
            }
            if (round % 20 == 0) {
                Receive(RefreshBegin(spec.node, spec.kind) + RefreshEnd(spec.node, spec.kind));
                FireTimers();
            }
            if (round % 50 == 49) {
                MCAST_USRAUTH_RefreshAllUserByNodeRemove(1);
                MCAST_USRAUTH_ClearAllUsers();
            }
            if (round % 150 == 149) {
                MCAST_USRAUTH_Degrade();
            }
        }
        done = true;
    }

    void Ask()
    {
        const MCAST_ADDR_S group = Addr("239.0.0.1");
        const MCAST_USRAUTH_USER_FILTER_S all = {MCAST_USRAUTH_WALK_FROM_ENTRIES, 0, 0, nullptr, nullptr};
        MCAST_USRAUTH_INFO_S info;
        uint64_t sum = 0;

        ++running;
        do {
            for (uint32_t id = 1; id <= kUsers; ++id) {
                const uint32_t if_index = InterfaceOf(id);
                uint16_t vrf = 0;

                if (MCAST_USRAUTH_GetInfoByIfIndex(if_index, &info) == MCAST_OK) {
                    EXPECT_EQ(info.user_id, id);
                }
                const uint32_t found = MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(if_index, &vrf, nullptr);

                EXPECT_TRUE(found == id || found == 0xffffffff);
                sum += MCAST_USRAUTH_CanPassGroupList(if_index, &group);
            }
            EXPECT_LE(MCAST_USRAUTH_UserCount(), kUsers);
            EXPECT_EQ(MCAST_USRAUTH_WalkAllUserByIfIndex(&all, Visit, Visit, &sum), MCAST_OK);
            std::this_thread::yield(); /* readers without end keep the writer waiting */
        } while (!done);
    }

    static uint32_t Visit(MCAST_USRAUTH_USER_S *user, MCAST_USRAUTH_ENTRY_S *entry, MTABLE_GROUP_S *,
                          void *sum)
    {
        *static_cast<uint64_t *>(sum) += user->flags + static_cast<uint8_t>(user->name[0]);
        *static_cast<uint64_t *>(sum) += entry != nullptr ? entry->flags : MCAST_USRAUTH_GetNode(user);
        return MCAST_OK;
    }

    std::atomic<int> running{0};
    std::atomic<bool> done{false};
};

TEST_F(Threads, AskWhileUsersComeAndGo)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([this] { Ask(); });
    }
    Serve();
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace usrauth_test
