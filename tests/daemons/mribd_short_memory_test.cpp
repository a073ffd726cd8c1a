/*
 * mribd without memory: what takes away works all the same, and what adds is refused, counted and asked for
 * again later.
 */
#include <gtest/gtest.h>
#include <optional>

#include "daemons/mribd_messages.h"
#include "daemons/no_memory.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

constexpr uint8_t FAMILY = MCAST_FAMILY_IPV4;
constexpr unsigned GROUPS = 50;

std::string group_of(unsigned number)
{
    return "239.1.1." + std::to_string(number + 1);
}

class ShortMemory : public testing::Test
{
protected:
    void SetUp() override
    {
        NEEDS_FAILING_ALLOCATIONS();
        bench.environment.routes["10.0.0.5"] = {1, false};
        for (unsigned number = 0; number < GROUPS; ++number) {
            bench.join(1, 2, group_of(number));
            bench.join(1, 3, group_of(number), "10.0.0.5");
            bench.join(2, 4, group_of(number));
            bench.packet(1, "10.0.0.5", group_of(number));
        }
    }

    // As one round of the event loop; a second one for what the first left.
    void settle_without_memory()
    {
        bench.router.settle();
        bench.router.settle();
    }
    void expect_forwarding_to(const Interfaces &interfaces) const
    {
        for (unsigned number = 0; number < GROUPS; ++number) {
            EXPECT_EQ(bench.forwards("10.0.0.5", group_of(number)), interfaces) << number;
        }
    }

    Bench bench{FAMILY, 1000};
};

TEST_F(ShortMemory, ClientThatGoesTakesAllItsJoins)
{
    {
        const no_memory::Period period;
        bench.router.drop_client(1);
        settle_without_memory();
    }
    EXPECT_EQ(bench.router.members().wish_count(), GROUPS);
    EXPECT_EQ(interfaces_of(bench.router.members()), std::vector<uint32_t>{4});
    expect_forwarding_to({4});
}

TEST_F(ShortMemory, InterfaceThatVanishesLeavesEveryEntry)
{
    bench.environment.interfaces.erase(2);
    {
        const no_memory::Period period;
        bench.router.link_removed(2);
        settle_without_memory();
    }
    expect_forwarding_to({3, 4});
    EXPECT_EQ(bench.kernel.dangling, 0);
    EXPECT_FALSE(bench.router.members().uses_interface(2));
}

TEST_F(ShortMemory, PruneAndLeavingTheKernelNeedNone)
{
    const MCAST_ADDR_S any = any_address(FAMILY);
    {
        const no_memory::Period period;
        for (unsigned number = 0; number < GROUPS; ++number) {
            MCAST_ADDR_S group{};
            group.family = FAMILY;
            group.address[0] = 239;
            group.address[1] = 1;
            group.address[2] = 1;
            group.address[3] = static_cast<uint8_t>(number + 1);
            EXPECT_EQ(bench.router.set_member(2, 4, group, any, MemberTable::Kind::Join, false),
                      MemberTable::Result::Changed);
        }
        settle_without_memory();
    }
    expect_forwarding_to({2, 3});
    {
        const no_memory::Period period;
        bench.router.leave_kernel();
    }
    EXPECT_TRUE(bench.kernel.vifs.empty());
    EXPECT_TRUE(bench.kernel.entries.empty());
    EXPECT_EQ(bench.kernel.dangling, 0);
}

TEST_F(ShortMemory, IdleEntriesExpire)
{
    bench.router.drop_client(1);
    bench.settle();
    {
        const no_memory::Period period;
        bench.pass_idle_period();
    }
    EXPECT_EQ(bench.router.forwarding().entry_count(), 0u);
    EXPECT_TRUE(bench.kernel.entries.empty());
}

TEST_F(ShortMemory, VirtualInterfacesComeWhenThereIsMemoryAgain)
{
    bench.environment.interfaces.insert(9);
    bench.join(1, 9, group_of(0));
    bench.environment.interfaces.insert(8);
    bench.router.links_changed();
    {
        const no_memory::Period period;
        EXPECT_NO_THROW(bench.router.settle());
        EXPECT_GT(period.failures(), 0u);
    }
    bench.settle();
    EXPECT_GE(bench.router.vifs().find(8), 0);
}

TEST_F(ShortMemory, NewSourceIsRefusedAndForwardedLater)
{
    bench.environment.routes["10.0.0.6"] = {1, false};
    const Upcall upcall{UpcallKind::NoEntry, static_cast<unsigned>(bench.router.vifs().find(1)),
                        address("10.0.0.6"), address(group_of(0))};
    {
        const no_memory::Period period;
        bench.router.take_upcall(upcall);
        settle_without_memory();
    }
    EXPECT_EQ(bench.router.forwarding().counters().refused_by_memory, 1u);
    bench.router.take_upcall(upcall);
    bench.settle();
    EXPECT_EQ(bench.forwards("10.0.0.6", group_of(0)), (Interfaces{2, 4}));
}

// However far it comes, a join that fails leaves nothing behind.
TEST_F(ShortMemory, JoinThatFindsNoMemoryChangesNothing)
{
    const MCAST_ADDR_S group = address("239.9.9.9");
    const MCAST_ADDR_S any = any_address(FAMILY);
    const size_t wishes = bench.router.members().wish_count();
    MemberTable::Result result = MemberTable::Result::NoMemory;
    for (unsigned long first = 0; result == MemberTable::Result::NoMemory; ++first) {
        ASSERT_LT(first, 100u);
        {
            const no_memory::Period period(first);
            result = bench.router.set_member(77, 5, group, any, MemberTable::Kind::Join, true);
        }
        if (result == MemberTable::Result::NoMemory) {
            EXPECT_EQ(bench.router.members().wish_count(), wishes);
            EXPECT_EQ(bench.budget.taken(), wishes);
            EXPECT_TRUE(receivers(bench.router.members(), group, any).empty());
            EXPECT_FALSE(bench.router.members().uses_interface(5));
        }
    }
    EXPECT_EQ(result, MemberTable::Result::Changed);
    EXPECT_EQ(bench.router.members().wish_count(), wishes + 1);
}

TEST_F(ShortMemory, EndOfASessionForgetsWhatItsClientReported)
{
    ClientBench clients(bench.router);
    ChannelCounters counters;
    std::optional<Session> session(std::in_place, 7, clients.backend, counters);
    Message message;
    message.add_register(FAMILY);
    for (unsigned number = 0; number < GROUPS; ++number) {
        message.add_join(FAMILY, 3, group_of(number));
    }
    const auto bytes = message.bytes();
    session->take_message(bytes.data(), bytes.size(), false);
    ASSERT_EQ(bench.router.members().wish_count(), 4 * GROUPS);
    {
        const no_memory::Period period;
        session.reset();
        settle_without_memory();
    }
    EXPECT_EQ(bench.router.members().wish_count(), 3 * GROUPS);
}

} // namespace
