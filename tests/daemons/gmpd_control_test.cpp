/*
 * What gmpd shows and takes at its control endpoint.
 */
#include <gtest/gtest.h>

#include "daemons/gmpd/control.h"
#include "tests/daemons/control_table.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;
using namespace control_test;
using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlStatus;
using mcastd::FieldType;

namespace
{

constexpr uint8_t FAMILIES[] = {MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6};

class GmpdControl : public testing::TestWithParam<uint8_t>
{
protected:
    GmpdControl() : lab(GetParam())
    {
        lab.start();
        offer_control(server, lab.process, [this] { return daemon; });
    }

    // A second interface, after the lab's.
    Interface &add_interface()
    {
        auto made = std::make_unique<Interface>(lab.process, 9, "second");
        Interface &second = *made;
        lab.process.interfaces[9] = std::move(made);
        interface_start(second, lab.neighbour(101));
        return second;
    }

    mcastd::ControlReply set_interval(uint64_t seconds, const ControlFields &key = {})
    {
        mcastd::ControlRequest request;
        request.operation = mcastd::ControlOperation::Set;
        request.table = mcastd::INTERFACE_TABLE.number;
        request.key = key;
        request.values = {ControlField::text(mcastd::SETTING_QUERY_INTERVAL), ControlField::number(seconds)};
        return ask(server.registry(), request);
    }

    Lab lab;
    DaemonStatus daemon;
    mcastd::Reactor reactor;
    mcastd::ControlServer server{reactor};
};

const ControlFields LAB = {ControlField::interface(7)};
const ControlFields SECOND = {ControlField::interface(9)};

} // namespace

INSTANTIATE_TEST_SUITE_P(BothFamilies, GmpdControl, testing::ValuesIn(FAMILIES),
                         [](const testing::TestParamInfo<uint8_t> &family) {
                             return family.param == MCAST_FAMILY_IPV4 ? "Ipv4" : "Ipv6";
                         });

TEST_P(GmpdControl, GroupsShowModeSourcesAndTime)
{
    lab.record(RecordType::ToExclude, {1, 2}, 1);
    lab.record(RecordType::Allow, {3}, 2);
    const auto rows = table(server.registry(), mcastd::GROUP_TABLE);

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][0], LAB[0]);
    EXPECT_EQ(rows[0][1], ControlField::address(lab.group(1)));
    EXPECT_EQ(rows[0][2].as_text(), "exclude");
    EXPECT_EQ(rows[0][3].as_number(), 2u);
    EXPECT_EQ(rows[0][4], ControlField::seconds(260));
    EXPECT_EQ(rows[1][2].as_text(), "include");
    EXPECT_EQ(rows[1][3].as_number(), 1u);
    EXPECT_TRUE(rows[1][4].is(FieldType::None)) << "the group itself has no timer";
}

TEST_P(GmpdControl, GroupsShowHostsOfOlderVersions)
{
    lab.old_report(2);
    const auto rows = table(server.registry(), mcastd::GROUP_TABLE);

    ASSERT_EQ(rows.size(), 1u);
    EXPECT_TRUE(rows[0][5].is(FieldType::None));
    EXPECT_EQ(rows[0][6], ControlField::seconds(260));
}

TEST_P(GmpdControl, SourcesShowWhetherTheyAreWanted)
{
    lab.record(RecordType::Allow, {3}, 1);
    lab.record(RecordType::ToExclude, {4}, 2);
    const auto rows = table(server.registry(), mcastd::SOURCE_TABLE);

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][2], ControlField::address(lab.source(3)));
    EXPECT_EQ(rows[0][3], ControlField::truth(true));
    EXPECT_EQ(rows[0][4], ControlField::seconds(260));
    EXPECT_EQ(rows[1][1], ControlField::address(lab.group(2)));
    EXPECT_EQ(rows[1][3], ControlField::truth(false));
    EXPECT_TRUE(rows[1][4].is(FieldType::None));
}

TEST_P(GmpdControl, PagesOfAnySizeShowEveryRowOnce)
{
    Interface &second = add_interface();
    for (unsigned group = 1; group <= 20; ++group) {
        lab.record(RecordType::Allow, {1, 2, 3}, group);
        apply_record(second.memberships, RecordType::Allow, lab.group(group), {lab.source(1)});
    }
    for (const uint16_t limit : {uint16_t{0}, uint16_t{1}, uint16_t{2}, uint16_t{7}}) {
        EXPECT_EQ(table(server.registry(), mcastd::GROUP_TABLE, limit),
                  table(server.registry(), mcastd::GROUP_TABLE));
        EXPECT_EQ(table(server.registry(), mcastd::SOURCE_TABLE, limit),
                  table(server.registry(), mcastd::SOURCE_TABLE));
    }
    EXPECT_EQ(table(server.registry(), mcastd::GROUP_TABLE).size(), 40u);
    EXPECT_EQ(table(server.registry(), mcastd::SOURCE_TABLE).size(), 80u);
}

TEST_P(GmpdControl, AWalkGoesOnFromRowsThatHaveGone)
{
    for (const unsigned group : {1u, 2u, 3u}) {
        lab.record(RecordType::Allow, {1, 2}, group);
    }
    lab.process.interfaces[5] = std::make_unique<Interface>(lab.process, 5, "first");
    const ControlFields gone = {LAB[0], ControlField::address(lab.group(2)),
                                ControlField::address(lab.source(1))};

    remove_group(*find_group(lab.interface->memberships, lab.group(2)));
    const auto sources = table(server.registry(), mcastd::SOURCE_TABLE, 0, gone);

    ASSERT_EQ(sources.size(), 2u);
    EXPECT_EQ(sources[0][1], ControlField::address(lab.group(3)));
    EXPECT_EQ(table(server.registry(), mcastd::GROUP_TABLE, 0, {gone[0], gone[1]}).size(), 1u);
    EXPECT_EQ(table(server.registry(), mcastd::GROUP_TABLE, 0, {ControlField::interface(6)}).size(), 2u)
        << "an interface that is not there";
    EXPECT_TRUE(table(server.registry(), mcastd::GROUP_TABLE, 0, {ControlField::interface(8)}).empty());
}

TEST_P(GmpdControl, AddressesOfTheOtherFamilyStandBesideTheTable)
{
    const uint16_t other = GetParam() == MCAST_FAMILY_IPV4 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
    const size_t rows_after = GetParam() == MCAST_FAMILY_IPV4 ? 0 : 1;
    const ControlField address = ControlField::address(any_address(other));
    lab.record(RecordType::Allow, {1}, 1);
    EXPECT_EQ(table(server.registry(), mcastd::GROUP_TABLE, 0, {LAB[0], address}).size(), rows_after);
    EXPECT_EQ(table(server.registry(), mcastd::SOURCE_TABLE, 0, {LAB[0], address}).size(), rows_after);
}

TEST_P(GmpdControl, OneRowIsFoundByItsKey)
{
    lab.record(RecordType::Allow, {1, 2}, 1);
    const ControlField group = ControlField::address(lab.group(1));

    EXPECT_EQ(row(server.registry(), mcastd::GROUP_TABLE, {LAB[0], group})[3].as_number(), 2u);
    EXPECT_FALSE(
        row(server.registry(), mcastd::SOURCE_TABLE, {LAB[0], group, ControlField::address(lab.source(2))})
            .empty());
    EXPECT_TRUE(
        row(server.registry(), mcastd::SOURCE_TABLE, {LAB[0], group, ControlField::address(lab.source(3))})
            .empty());
    EXPECT_FALSE(row(server.registry(), mcastd::INTERFACE_TABLE, LAB).empty());
    EXPECT_TRUE(row(server.registry(), mcastd::INTERFACE_TABLE, SECOND).empty());
}

TEST_P(GmpdControl, InterfacesAndQueriersShowWhatRuns)
{
    Interface &second = add_interface();

    interface_stop(second);
    lab.query(1, 3);
    const auto interfaces = table(server.registry(), mcastd::INTERFACE_TABLE);
    const auto queriers = table(server.registry(), mcastd::QUERIER_TABLE);

    ASSERT_EQ(interfaces.size(), 2u);
    EXPECT_EQ(interfaces[0][1], ControlField::family(GetParam()));
    EXPECT_EQ(interfaces[0][2], ControlField::truth(true));
    EXPECT_EQ(interfaces[0][3], ControlField::address(lab.neighbour(100)));
    EXPECT_EQ(interfaces[0][4].as_number(), GetParam() == MCAST_FAMILY_IPV4 ? 3u : 2u);
    EXPECT_EQ(interfaces[1][2], ControlField::truth(false));
    EXPECT_TRUE(interfaces[1][3].is(FieldType::None));
    ASSERT_EQ(queriers.size(), 1u) << "none where the protocol does not run";
    EXPECT_EQ(queriers[0][2], ControlField::address(lab.neighbour(1)));
    EXPECT_EQ(queriers[0][3], ControlField::truth(false));
    EXPECT_TRUE(queriers[0][4].is(FieldType::None));
    EXPECT_EQ(queriers[0][5], ControlField::seconds(255));
}

TEST_P(GmpdControl, CountersComeForTheDaemonThenForEachInterface)
{
    Interface &second = add_interface();

    daemon.kernel_drops = 3;
    ++second.counters[Count::Checksum];
    const ControlField family = ControlField::family(GetParam());
    const auto value = [&](uint32_t if_index, const char *name) {
        const auto found = row(server.registry(), mcastd::COUNTER_TABLE,
                               {family, ControlField::interface(if_index), ControlField::text(name)});
        return found.empty() ? UINT64_MAX : found[3].as_number();
    };

    EXPECT_EQ(value(0, "packets_lost_in_kernel"), 3u);
    EXPECT_EQ(value(7, "dropped_checksum"), 0u);
    EXPECT_EQ(value(9, "dropped_checksum"), 1u);
    EXPECT_EQ(value(8, "dropped_checksum"), UINT64_MAX);
    EXPECT_LT(value(0, "control_requests_done"), UINT64_MAX);
    const auto whole = table(server.registry(), mcastd::COUNTER_TABLE);
    const auto paged = table(server.registry(), mcastd::COUNTER_TABLE, 5);

    ASSERT_EQ(paged.size(), whole.size());
    for (size_t i = 0; i < whole.size(); ++i) {
        EXPECT_EQ(mcastd::compare_keys(paged[i], whole[i], 3), 0) << i;
    }
}

TEST_P(GmpdControl, TheOrderToHandOverIsRefusedWithoutAStandby)
{
    bool has_standby = false;
    unsigned orders = 0;
    mcastd::ControlRequest request;
    offer_switch_over(server, [&] {
        ++orders;
        return has_standby;
    });
    request.operation = mcastd::ControlOperation::Command;
    request.table = mcastd::COMMAND_SWITCH_OVER;
    EXPECT_EQ(ask(server.registry(), request).status, mcastd::ControlStatus::Failed);
    has_standby = true;
    EXPECT_EQ(ask(server.registry(), request).status, mcastd::ControlStatus::Done);
    EXPECT_EQ(orders, 2u);
    request.values = {ControlField::number(1)};
    EXPECT_EQ(ask(server.registry(), request).status, mcastd::ControlStatus::BadValue);
    EXPECT_EQ(orders, 2u);
}

TEST_P(GmpdControl, ANewQueryIntervalIsInForceAtOnce)
{
    ASSERT_EQ(set_interval(60).status, ControlStatus::Done);
    EXPECT_EQ(lab.recorder.queries(), "? all") << "hosts and other routers hear of it";
    EXPECT_EQ(lab.interface->querier.query_interval_s, 60u);
    lab.pass(59);
    lab.recorder.queries(); // what is left of the start
    lab.record(RecordType::ToExclude, {}, 1);
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 130") << "memberships last by it";
    lab.pass(60);
    EXPECT_EQ(lab.recorder.queries(), "? all");
}

TEST_P(GmpdControl, AnInterfacesOwnQueryIntervalGoesBeforeTheCommonOne)
{
    Interface &second = add_interface();
    ASSERT_EQ(set_interval(30, SECOND).status, ControlStatus::Done);
    ASSERT_EQ(set_interval(60).status, ControlStatus::Done);
    EXPECT_EQ(lab.interface->querier.query_interval_s, 60u);
    EXPECT_EQ(second.querier.query_interval_s, 30u);
    ASSERT_EQ(set_interval(0, SECOND).status, ControlStatus::Done);
    EXPECT_EQ(second.querier.query_interval_s, 60u) << "0 takes its own away";
}

TEST_P(GmpdControl, WhoIsNotTheQuerierKeepsToTheQuerier)
{
    lab.query(1, 3);
    lab.recorder.queries();
    const uint32_t heard = lab.interface->querier.query_interval_s;

    ASSERT_EQ(set_interval(60).status, ControlStatus::Done);
    EXPECT_EQ(lab.recorder.queries(), "");
    EXPECT_EQ(lab.interface->querier.query_interval_s, heard);
    lab.pass(256);
    EXPECT_TRUE(lab.interface->querier.elected);
    EXPECT_EQ(lab.interface->querier.query_interval_s, 60u) << "its own, once it is the querier";
}

TEST_P(GmpdControl, QueryIntervalsThatCannotBeAreRefusedAndChangeNothing)
{
    const struct {
        uint64_t seconds;
        ControlFields key;
    } bad[] = {
        {10, {}}, {0, {}}, {MOST_QUERY_INTERVAL_S + 1, {}}, {UINT64_MAX, {}}, {10, LAB}, {60, SECOND},
    };

    for (const auto &each : bad) {
        const mcastd::ControlReply reply = set_interval(each.seconds, each.key);

        EXPECT_EQ(reply.status, ControlStatus::BadValue) << each.seconds;
        EXPECT_EQ(reply.error_index, 0u);
        EXPECT_FALSE(reply.message.empty());
    }
    EXPECT_EQ(lab.recorder.queries(), "");
    EXPECT_EQ(lab.process.config.query_interval_s, 125u);
    EXPECT_EQ(set_interval(11).status, ControlStatus::Done);
    EXPECT_EQ(set_interval(MOST_QUERY_INTERVAL_S).status, ControlStatus::Done);
}
