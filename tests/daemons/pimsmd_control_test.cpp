/*
 * The daemon's tables as mcastctl reads them, of two routers in a row:
 *
 *      source - link 1 - first - link 2 - last - link 3 - receiver
 */
#include <gtest/gtest.h>

#include "control_table.h"
#include "daemons/common/reactor.h"
#include "daemons/pimsmd/control.h"
#include "pimsmd_router_lab.h"

using namespace pimsmd_test;
using control_test::row;
using control_test::table;
using mcastd::ControlField;
using mcastd::ControlFields;

namespace
{

constexpr uint16_t V4 = MCAST_FAMILY_IPV4;

class PimControl : public testing::Test
{
protected:
    PimControl()
    {
        pimsmd::Config config;
        config.rps.push_back({*mcastd::Prefix::parse("239.0.0.0/8"), global(V4, 1, 1)});
        first_.router->configure(config);
        last_.router->configure(config);
        first_.attach(1);
        first_.attach(2);
        last_.attach(2);
        last_.attach(3);
        first_.route(3, 2, 2);
        last_.route(1, 2, 1);
        lan_.pass(6000);
        pimsmd::offer_control(server_, {*last_.router, nullptr, nullptr, nullptr});
    }
    void want(const Address &group, const Address &source)
    {
        last_.router->trees().set_receivers(last_.link_number(3), group, source, true);
        lan_.pass(100);
    }
    static ControlField address(const char *text)
    {
        return ControlField::address(addr(text));
    }
    mcastd::ControlRegistry &registry()
    {
        return server_.registry();
    }
    mcastd::ControlReply set(const ControlFields &key, uint64_t priority)
    {
        mcastd::ControlRequest request;
        request.operation = mcastd::ControlOperation::Set;
        request.table = mcastd::PIM_INTERFACE_TABLE.number;
        request.key = key;
        request.values = {ControlField::text(mcastd::SETTING_DR_PRIORITY), ControlField::number(priority)};
        return control_test::ask(registry(), request);
    }

    const Address any_ = mcastd::any_address(V4);
    Lan lan_{V4};
    Box &first_ = lan_.add();
    Box &last_ = lan_.add();
    mcastd::Reactor reactor_;
    mcastd::ControlServer server_{reactor_};
};

TEST_F(PimControl, InterfacesAndNeighborsAreShownWithTheDesignatedRouter)
{
    const auto interfaces = table(registry(), mcastd::PIM_INTERFACE_TABLE, 1);
    ASSERT_EQ(interfaces.size(), 2u);
    EXPECT_EQ(interfaces[0][0], ControlField::interface(2));
    EXPECT_EQ(interfaces[0][2], address("10.0.2.2"));
    EXPECT_EQ(interfaces[0][3], address("10.0.2.2"));
    EXPECT_EQ(interfaces[0][4], ControlField::truth(true));
    EXPECT_EQ(interfaces[0][6], ControlField::number(1));
    EXPECT_EQ(interfaces[1][6], ControlField::number(0));
    const auto neighbors = table(registry(), mcastd::PIM_NEIGHBOR_TABLE);
    ASSERT_EQ(neighbors.size(), 1u);
    EXPECT_EQ(neighbors[0][0], ControlField::interface(2));
    EXPECT_EQ(neighbors[0][1], address("10.0.2.1"));
    EXPECT_EQ(neighbors[0][2], ControlField::truth(false));
    EXPECT_EQ(neighbors[0][3], ControlField::number(1));
}

TEST_F(PimControl, TreesAreShownInTheOrderOfGroupsAndSourcesWhereverAReplyEnds)
{
    want(addr("239.1.1.2"), any_);
    want(addr("239.1.1.1"), addr("10.0.1.9"));
    want(addr("239.1.1.1"), addr("10.0.1.7"));
    want(addr("239.1.1.1"), any_);
    for (const uint16_t limit : {uint16_t{1}, uint16_t{2}, uint16_t{0}}) {
        const auto rows = table(registry(), mcastd::PIM_TREE_TABLE, limit);
        ASSERT_EQ(rows.size(), 4u) << limit;
        EXPECT_EQ(rows[0][1], ControlField::address(any_));
        EXPECT_EQ(rows[1][1], address("10.0.1.7"));
        EXPECT_EQ(rows[2][1], address("10.0.1.9"));
        EXPECT_EQ(rows[3][0], address("239.1.1.2"));
        EXPECT_EQ(rows[0][2], address("10.0.1.1"));           // RP
        EXPECT_EQ(rows[0][3], ControlField::interface(2));    // upstream
        EXPECT_EQ(rows[0][4], address("10.0.2.1"));           // neighbor
        EXPECT_EQ(rows[0][5], ControlField::truth(true));     // joined
        EXPECT_EQ(rows[0][7], ControlField::interfaces({3})); // outgoing
        EXPECT_TRUE(rows[0][8].is(mcastd::FieldType::None));
        EXPECT_EQ(rows[1][8], ControlField::truth(true)); // both trees come over one neighbor
        EXPECT_EQ(rows[1][9], ControlField::text("NotPruned"));
    }
    // From a place that is gone by now.
    const ControlFields gone{address("239.1.1.1"), address("10.0.1.8")};
    const auto rest = table(registry(), mcastd::PIM_TREE_TABLE, 0, gone);
    ASSERT_EQ(rest.size(), 2u);
    EXPECT_EQ(rest[0][1], address("10.0.1.9"));
    const ControlFields other{address("239.0.0.9"), address("10.0.1.8")};
    EXPECT_EQ(table(registry(), mcastd::PIM_TREE_TABLE, 0, other).size(), 4u);
}

TEST_F(PimControl, JoinsNameMachinesAndHosts)
{
    want(addr("239.1.1.1"), any_);
    last_.router->trees().set_excluded(last_.link_number(3), addr("239.1.1.1"), addr("10.0.1.7"), true);
    lan_.pass(100);
    const auto rows = table(registry(), mcastd::PIM_JOIN_TABLE, 1);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][2], ControlField::interface(3));
    EXPECT_EQ(rows[0][3], ControlField::text("NoInfo"));
    EXPECT_EQ(rows[0][5], ControlField::truth(true));
    EXPECT_EQ(rows[1][1], address("10.0.1.7"));
    EXPECT_EQ(rows[1][6], ControlField::truth(true));
    mcastd::ControlServer other(reactor_);
    pimsmd::offer_trees(other.registry(), *first_.router);
    const auto joins = table(other.registry(), mcastd::PIM_JOIN_TABLE);
    ASSERT_EQ(joins.size(), 2u); // the excluded source is pruned of the tree
    EXPECT_EQ(joins[0][2], ControlField::interface(2));
    EXPECT_EQ(joins[0][3], ControlField::text("Join"));
    EXPECT_EQ(joins[1][4], ControlField::text("Prune"));
}

TEST_F(PimControl, AssertsNameTheWinnerAndItsTerms)
{
    want(addr("239.1.1.1"), any_);
    const pimsmd::Assert heard{addr("239.1.1.1"), any_, true, 0, 0};
    last_.router->trees().assert_heard(last_.link_number(3), primary(V4, 3, 77), heard);
    lan_.pass(100);
    const auto rows = table(registry(), mcastd::PIM_ASSERT_TABLE);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][2], ControlField::interface(3));
    EXPECT_EQ(rows[0][3], ControlField::text("Loser"));
    EXPECT_EQ(rows[0][4], address("10.0.3.77"));
    EXPECT_EQ(rows[0][5], ControlField::truth(true));
    EXPECT_EQ(rows[0][7], ControlField::number(0));
}

TEST_F(PimControl, RpsAndTheWaysToThemAreShown)
{
    const auto rps = table(registry(), mcastd::RP_TABLE);
    ASSERT_EQ(rps.size(), 1u);
    EXPECT_EQ(rps[0], (ControlFields{address("239.0.0.0"),
                                     ControlField::number(8),
                                     address("10.0.1.1"),
                                     ControlField::text("configured"),
                                     {},
                                     {}}));
    EXPECT_EQ(table(registry(), mcastd::BSR_TABLE).size(), 1u);
    const auto way = row(registry(), mcastd::RPF_TABLE, {address("10.0.1.55")});
    ASSERT_EQ(way.size(), 6u);
    EXPECT_EQ(way[1], ControlField::interface(2));
    EXPECT_EQ(way[2], address("10.0.2.1"));
    EXPECT_EQ(way[3], ControlField::truth(false));
    want(addr("239.1.1.1"), any_);
    EXPECT_GE(table(registry(), mcastd::RPF_TABLE, 1).size(), 1u);
}

TEST_F(PimControl, PriorityIsSetForOneInterfaceOrAllAndMovesTheElection)
{
    EXPECT_EQ(set({ControlField::interface(2)}, 0).status, mcastd::ControlStatus::Done);
    lan_.pass(6000);
    auto interfaces = table(registry(), mcastd::PIM_INTERFACE_TABLE);
    EXPECT_EQ(interfaces[0][3], address("10.0.2.1"));
    EXPECT_EQ(interfaces[0][5], ControlField::number(0));
    EXPECT_EQ(interfaces[1][5], ControlField::number(1));
    EXPECT_EQ(set({}, 9).status, mcastd::ControlStatus::Done);
    lan_.pass(6000);
    interfaces = table(registry(), mcastd::PIM_INTERFACE_TABLE);
    EXPECT_EQ(interfaces[0][3], address("10.0.2.2"));
    EXPECT_EQ(interfaces[1][5], ControlField::number(9));
    EXPECT_EQ(set({ControlField::interface(8)}, 1).status, mcastd::ControlStatus::BadValue);
    EXPECT_EQ(set({}, uint64_t{1} << 32).status, mcastd::ControlStatus::BadValue);
}

TEST_F(PimControl, CountersAreThoseOfDaemonAndLinks)
{
    const auto rows = table(registry(), mcastd::COUNTER_TABLE, 3);
    size_t of_links = 0;
    for (const ControlFields &one : rows) {
        of_links += one[1].as_interface() != 0 ? 1 : 0;
    }
    EXPECT_EQ(of_links, 2 * static_cast<size_t>(pimsmd::Count::Total));
    EXPECT_GT(rows.size(), of_links);
}

TEST_F(PimControl, LearntRpsAreForgottenOnCommand)
{
    EXPECT_EQ(control_test::command(registry(), mcastd::COMMAND_CLEAR_RPS, {}).status,
              mcastd::ControlStatus::Done);
    EXPECT_EQ(control_test::command(registry(), mcastd::COMMAND_CLEAR_RPS, {ControlField::number(1)}).status,
              mcastd::ControlStatus::BadValue);
    EXPECT_EQ(table(registry(), mcastd::RP_TABLE).size(), 1u); // configured ones stay
}

} // namespace
