#include <gtest/gtest.h>
#include <random>
#include <tuple>

#include "daemons/mribd_support.h"

using namespace mribd;
using mribd_test::address;
using mribd_test::interfaces_of;
using mribd_test::receivers;

namespace
{

using Kind = MemberTable::Kind;
using Result = MemberTable::Result;
using Indexes = std::vector<uint32_t>;

const MCAST_ADDR_S GROUP = address("239.1.1.1");
const MCAST_ADDR_S ANY = any_address(MCAST_FAMILY_IPV4);
const MCAST_ADDR_S SOURCE = address("10.0.0.5");
const MCAST_ADDR_S OTHER = address("192.168.7.9");

void ignore(const MCAST_ADDR_S &, const MCAST_ADDR_S &)
{
}

TEST(MemberTable, EmptyTableHasNoReceivers)
{
    MemberBudget budget;
    const MemberTable table(MCAST_FAMILY_IPV4, budget);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{});
    EXPECT_EQ(table.group_count(), 0u);
    EXPECT_FALSE(table.has_source_join(GROUP, SOURCE));
}

TEST(MemberTable, AnySourceJoinTakesEverySource)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    EXPECT_EQ(table.set(1, 7, GROUP, ANY, Kind::Join, true), Result::Changed);
    EXPECT_EQ(table.set(1, 7, GROUP, ANY, Kind::Join, true), Result::Unchanged);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{7});
    EXPECT_EQ(receivers(table, GROUP, OTHER), Indexes{7});
    EXPECT_EQ(receivers(table, address("239.1.1.2"), SOURCE), Indexes{});
}

TEST(MemberTable, SourceJoinTakesThatSourceOnly)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, SOURCE, Kind::Join, true);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{7});
    EXPECT_EQ(receivers(table, GROUP, OTHER), Indexes{});
    EXPECT_TRUE(table.has_source_join(GROUP, SOURCE));
    EXPECT_FALSE(table.has_source_join(GROUP, OTHER));
}

TEST(MemberTable, BlockedSourceIsNotTakenWhileTheRestOfTheGroupIs)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    table.set(1, 7, GROUP, SOURCE, Kind::Block, true);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{});
    EXPECT_EQ(receivers(table, GROUP, OTHER), Indexes{7});
    EXPECT_FALSE(table.has_source_join(GROUP, SOURCE));
    table.set(1, 7, GROUP, SOURCE, Kind::Block, false);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{7});
}

TEST(MemberTable, BlockHoldsForItsInterfaceAndItsClientOnly)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    table.set(1, 8, GROUP, ANY, Kind::Join, true);
    table.set(1, 7, GROUP, SOURCE, Kind::Block, true);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{8});
    table.set(2, 7, GROUP, ANY, Kind::Join, true);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), (Indexes{7, 8}));
}

TEST(MemberTable, BlockMayComeBeforeTheJoinItLimits)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, SOURCE, Kind::Block, true);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{});
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{});
    EXPECT_EQ(receivers(table, GROUP, OTHER), Indexes{7});
}

TEST(MemberTable, SourceJoinOutweighsABlockOfTheSameSource)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    table.set(1, 7, GROUP, SOURCE, Kind::Block, true);
    table.set(1, 7, GROUP, SOURCE, Kind::Join, true);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{7});
    table.set(1, 7, GROUP, SOURCE, Kind::Join, false);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{});
}

TEST(MemberTable, RemovingWhatIsNotThereChangesNothing)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    EXPECT_EQ(table.set(1, 7, GROUP, ANY, Kind::Join, false), Result::Unchanged);
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    EXPECT_EQ(table.set(2, 7, GROUP, ANY, Kind::Join, false), Result::Unchanged);
    EXPECT_EQ(table.set(1, 7, GROUP, SOURCE, Kind::Join, false), Result::Unchanged);
    EXPECT_EQ(table.set(1, 7, GROUP, ANY, Kind::Block, false), Result::Unchanged);
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{7});
}

TEST(MemberTable, LastPruneLeavesNothingBehind)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    table.set(1, 7, GROUP, SOURCE, Kind::Block, true);
    EXPECT_EQ(table.wish_count(), 2u);
    table.set(1, 7, GROUP, SOURCE, Kind::Block, false);
    table.set(1, 7, GROUP, ANY, Kind::Join, false);
    EXPECT_EQ(table.wish_count(), 0u);
    EXPECT_EQ(table.group_count(), 0u);
    EXPECT_FALSE(table.uses_interface(7));
}

TEST(MemberTable, ClientThatGoesTakesItsOwnJoinsOnly)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    table.set(2, 7, GROUP, ANY, Kind::Join, true);
    table.set(1, 8, GROUP, SOURCE, Kind::Join, true);
    table.set(1, 9, address("239.2.2.2"), ANY, Kind::Join, true);
    std::vector<std::string> told;
    table.drop_client(1, [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) {
        told.push_back(text_or_star(source) + "," + text_or_star(group));
    });
    EXPECT_EQ(told, (std::vector<std::string>{"*,239.1.1.1", "10.0.0.5,239.1.1.1", "*,239.2.2.2"}));
    EXPECT_EQ(receivers(table, GROUP, SOURCE), Indexes{7});
    EXPECT_EQ(table.wish_count(), 1u);
    EXPECT_EQ(table.group_count(), 1u);
    EXPECT_EQ(interfaces_of(table), Indexes{7});
}

TEST(MemberTable, DroppingAnInterfaceKeepsTheOthersAndOtherClients)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    table.set(1, 7, GROUP, ANY, Kind::Join, true);
    table.set(1, 8, GROUP, ANY, Kind::Join, true);
    table.set(2, 7, GROUP, SOURCE, Kind::Join, true);
    table.drop_interface(1, 7, ignore);
    EXPECT_EQ(receivers(table, GROUP, OTHER), Indexes{8});
    EXPECT_EQ(receivers(table, GROUP, SOURCE), (Indexes{7, 8}));
}

TEST(MemberTable, Ipv6FollowsTheSameRules)
{
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV6, budget);
    const MCAST_ADDR_S group = address("ff1e::42");
    const MCAST_ADDR_S source = address("2001:db8::5");
    table.set(1, 7, group, any_address(MCAST_FAMILY_IPV6), Kind::Join, true);
    table.set(1, 7, group, source, Kind::Block, true);
    EXPECT_EQ(receivers(table, group, source), Indexes{});
    EXPECT_EQ(receivers(table, group, address("2001:db8::6")), Indexes{7});
    EXPECT_EQ(receivers(table, address("ff1e::43"), address("2001:db8::6")), Indexes{});
}

// Random reports against the rule written down literally over a flat set.
TEST(MemberTable, AgreesWithTheRuleOnRandomReports)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto pick = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
    MemberBudget budget;
    MemberTable table(MCAST_FAMILY_IPV4, budget);
    using Fact = std::tuple<ClientId, uint32_t, std::string, std::string, Kind>;
    std::set<Fact> facts;
    for (int step = 0; step < 20000; ++step) {
        const ClientId client = 1 + pick(3);
        const uint32_t if_index = 1 + pick(4);
        const std::string group = "239.0.0." + std::to_string(1 + pick(3));
        const MCAST_ADDR_S source = pick(3) == 0 ? ANY : address("10.0.0." + std::to_string(1 + pick(3)));
        if (step % 997 == 0) {
            table.drop_client(client, ignore);
            std::erase_if(facts, [&](const Fact &fact) { return std::get<0>(fact) == client; });
        } else {
            const Kind kind = !is_unspecified(source) && pick(2) == 0 ? Kind::Block : Kind::Join;
            const bool present = pick(2) == 0;
            const Fact fact{client, if_index, group, text_or_star(source), kind};
            const bool changes = facts.contains(fact) != present;
            ASSERT_EQ(table.set(client, if_index, address(group), source, kind, present),
                      changes ? Result::Changed : Result::Unchanged);
            present ? static_cast<void>(facts.insert(fact)) : static_cast<void>(facts.erase(fact));
        }
        const MCAST_ADDR_S asked = address("10.0.0." + std::to_string(1 + pick(3)));
        Indexes expected;
        for (uint32_t i = 1; i <= 4; ++i) {
            for (ClientId c = 1; c <= 3; ++c) {
                const bool direct = facts.contains({c, i, group, text_or_star(asked), Kind::Join});
                const bool any = facts.contains({c, i, group, "*", Kind::Join});
                if (direct || (any && !facts.contains({c, i, group, text_or_star(asked), Kind::Block}))) {
                    expected.push_back(i);
                    break;
                }
            }
        }
        ASSERT_EQ(receivers(table, address(group), asked), expected) << "step " << step;
    }
}

MCAST_ADDR_S group_number(unsigned number)
{
    return address("239.3." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1));
}

TEST(MemberBudget, NoInterfaceAndNoClientTakesTheRoomOfTheOthers)
{
    mcastd::log_open("mribd", mcastd::LogLevel::Error);
    MemberBudget budget(64);
    MemberTable one(MCAST_FAMILY_IPV4, budget);
    MemberTable other(MCAST_FAMILY_IPV4, budget);
    const auto join = [](MemberTable &table, ClientId client, uint32_t if_index, unsigned count) {
        unsigned taken = 0;
        for (unsigned number = 0; number < count; ++number) {
            taken +=
                table.set(client, if_index, group_number(number), ANY, Kind::Join, true) == Result::Changed;
        }
        return taken;
    };
    EXPECT_EQ(join(one, 1, 7, 100), 32u) << "half for one interface";
    EXPECT_EQ(join(one, 1, 8, 100), 24u) << "seven eighths for one client";
    EXPECT_EQ(join(other, 2, 9, 100), 8u) << "all of them together, whatever the table";
    EXPECT_EQ(budget.taken(), 64u);
    EXPECT_EQ(budget.refused(), 68u + 76u + 92u);
    EXPECT_EQ(one.set(1, 7, group_number(0), ANY, Kind::Join, true), Result::Unchanged);
    EXPECT_EQ(one.set(1, 8, group_number(99), ANY, Kind::Join, true), Result::OverLimit);
    EXPECT_FALSE(budget.has_room(3, 0));
    one.drop_client(1, ignore);
    EXPECT_EQ(budget.taken(), 8u);
    EXPECT_TRUE(budget.has_room(3, 0));
    EXPECT_FALSE(budget.has_room(3, 30)) << "nearly all that an interface may have";
    EXPECT_EQ(join(other, 3, 10, 10), 10u);
}

TEST(MemberBudget, TableThatEndsGivesEverythingBack)
{
    MemberBudget budget(64);
    {
        MemberTable table(MCAST_FAMILY_IPV4, budget);
        table.set(1, 7, GROUP, SOURCE, Kind::Join, true);
        table.set(2, 7, GROUP, SOURCE, Kind::Block, true);
        EXPECT_EQ(budget.taken(), 2u);
    }
    EXPECT_EQ(budget.taken(), 0u);
}

} // namespace
