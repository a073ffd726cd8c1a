/*
 * The querier's election, its queries, other routers' values and versions, hosts of older versions, and whose
 * messages are not acted on at all.
 */
#include <gtest/gtest.h>

#include "tests/daemons/gmpd_families.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

class GmpdQuerier : public testing::TestWithParam<uint8_t>
{
protected:
    GmpdQuerier() : lab(GetParam())
    {
    }
    Lab lab;
};

class GmpdOlderHost : public GmpdQuerier
{
};

Config with_version(uint8_t version)
{
    Config config;
    config.version = version;
    return config;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(BothFamilies, GmpdQuerier, testing::ValuesIn(FAMILIES), family_name);
INSTANTIATE_TEST_SUITE_P(BothFamilies, GmpdOlderHost, testing::ValuesIn(FAMILIES), family_name);

TEST_P(GmpdQuerier, StartsAsQuerierWithQuickQueries)
{
    interface_start(*lab.interface, lab.neighbour(100));
    EXPECT_EQ(lab.recorder.told(), "running; querier");
    EXPECT_EQ(lab.recorder.queries(), "? all");
    lab.pass(30);
    EXPECT_EQ(lab.recorder.queries(), "");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? all")
        << "the second start-up query, a quarter of the interval later";
    lab.pass(124);
    EXPECT_EQ(lab.recorder.queries(), "");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? all");
}

TEST_P(GmpdQuerier, KeepsThePeriodThoughItsTimersAreLate)
{
    unsigned queries = 0;
    lab.start();
    lab.pass(32);
    lab.recorder.queries();
    while (scripted_timer::platform.now_ms < (1000 + 31 + 10 * 125 + 5) * 1000) {
        lab.pass_ms(103);
        MCAST_TMR_ProcExpires(lab.process.timers);
        queries += lab.recorder.queries() == "? all" ? 1 : 0;
    }
    EXPECT_EQ(queries, 10u);
}

TEST_P(GmpdQuerier, ALowerAddressWins)
{
    lab.start();
    lab.query(99, 3);
    EXPECT_EQ(lab.recorder.told(), "not querier");
    lab.pass(254);
    EXPECT_EQ(lab.recorder.queries(), "");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? all") << "2 * 125 + 10 / 2 seconds without its queries";
    EXPECT_EQ(lab.recorder.told(), "querier");
}

TEST_P(GmpdQuerier, AHigherAddressIsIgnored)
{
    lab.start();
    lab.query(101, 3);
    EXPECT_TRUE(lab.interface->querier.elected);
    EXPECT_EQ(lab.recorder.told(), "");
}

TEST_P(GmpdQuerier, TheOwnAddressIsNoRival)
{
    lab.start();
    lab.query(100, 3);
    EXPECT_TRUE(lab.interface->querier.elected);
    EXPECT_EQ(lab.interface->counters[Count::OwnAddress], 1u);
}

TEST_P(GmpdQuerier, EveryQueryFromALowerAddressKeepsThisRouterSilent)
{
    lab.start();
    lab.query(50, 3);
    lab.pass(200);
    lab.query(60, 3, 1);
    lab.pass(200);
    EXPECT_FALSE(lab.interface->querier.elected);
    EXPECT_EQ(lab.recorder.told(), "not querier");
    lab.pass(55);
    EXPECT_TRUE(lab.interface->querier.elected);
}

TEST_P(GmpdQuerier, WhoWaitsFollowsTheQueriersValuesAndReturnsToItsOwn)
{
    lab.start();
    lab.process.config.robustness = 3;
    lab.process.config.query_interval_s = 60;
    lab.query(50, 3);
    EXPECT_EQ(lab.interface->querier.robustness, 2u);
    EXPECT_EQ(lab.interface->querier.query_interval_s, 125u);
    EXPECT_EQ(membership_interval_ms(*lab.interface), 260000u);
    lab.pass(255);
    EXPECT_EQ(lab.interface->querier.robustness, 3u);
    EXPECT_EQ(lab.interface->querier.query_interval_s, 60u);
}

TEST_P(GmpdQuerier, AQueryAboutAGroupSaysNothingOfTheTimeForGeneralOnes)
{
    lab.process.config.response_s = 5;
    lab.start();
    lab.query(50, 3); // allows for 10 s
    EXPECT_EQ(membership_interval_ms(*lab.interface), 260000u);
    lab.query(50, 3, 1);
    EXPECT_EQ(membership_interval_ms(*lab.interface), 260000u);
    // Nothing is known of another querier yet.
    lab.query(40, 3, 1);
    EXPECT_EQ(membership_interval_ms(*lab.interface), 255000u);
}

TEST_P(GmpdQuerier, AQuestionThatAnotherQuerierCutShortIsNotAskedAgainLater)
{
    lab.start();
    lab.record(RecordType::Allow, {1});
    lab.record(RecordType::Block, {1});
    EXPECT_EQ(lab.recorder.queries(), "? G1 {1}");
    lab.query(50, 3);
    for (int minute = 0; minute < 5; ++minute) {
        lab.record(RecordType::IsInclude, {1}); // somebody wants it all the same
        lab.pass(60);
    }
    ASSERT_TRUE(lab.interface->querier.elected);
    lab.record(RecordType::Allow, {2});
    lab.recorder.queries();
    lab.record(RecordType::Block, {2});
    EXPECT_EQ(lab.recorder.queries(), "? G1 {2}");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? G1 {2}");
}

TEST_P(GmpdQuerier, AChangedAddressDisturbsNoMembership)
{
    lab.start();
    lab.record(RecordType::IsExclude, {});
    lab.recorder.told();
    interface_start(*lab.interface, lab.neighbour(10));
    EXPECT_EQ(lab.recorder.told(), "");
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 260");
    lab.query(50, 3);
    EXPECT_TRUE(lab.interface->querier.elected) << "50 is higher than the new address";
}

TEST_P(GmpdQuerier, AnOlderQuerierIsCountedAndStillWins)
{
    lab.start();
    lab.query(50, 2);
    lab.query(50, 2);
    EXPECT_FALSE(lab.interface->querier.elected);
    EXPECT_EQ(lab.interface->counters[Count::OlderQueries], 2u);
    EXPECT_EQ(lab.interface->counters[Count::QueriesV2], 2u);
}

TEST(GmpdQuerierIpv4, AVersion1QueryHasNoPartInTheElection)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    lab.query(50, 1);
    EXPECT_TRUE(lab.interface->querier.elected);
    EXPECT_EQ(lab.interface->counters[Count::OlderQueries], 1u);
}

TEST(GmpdQuerierIpv4, AQueryWithoutSourceAddressIsCountedAndIgnored)
{
    Lab lab(MCAST_FAMILY_IPV4);
    Message query;
    lab.start();
    query.version = 3;
    query.sender = any_address(MCAST_FAMILY_IPV4);
    query.group = any_address(MCAST_FAMILY_IPV4);
    handle_message(*lab.interface, query);
    EXPECT_TRUE(lab.interface->querier.elected);
    EXPECT_EQ(lab.interface->counters[Count::QueryNoSource], 1u);
}

TEST(GmpdQuerierIpv4, WhoIsNotOnTheLinkIsNotHeard)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    lab.interface->prefixes = {Prefix{from_text("10.0.1.1"), 24}};
    lab.query(50, 3);
    lab.old_report(2);
    EXPECT_TRUE(lab.interface->querier.elected);
    EXPECT_EQ(lab.state(), "none");
    EXPECT_EQ(lab.interface->counters[Count::NotNeighbour], 2u);
    lab.interface->prefixes.push_back(Prefix{from_text("10.0.0.1"), 25});
    lab.query(50, 3);
    EXPECT_FALSE(lab.interface->querier.elected);
    lab.old_report(2);
    EXPECT_EQ(lab.interface->counters[Count::NotNeighbour], 3u) << "10.0.0.200 is in the other half";
}

TEST_P(GmpdOlderHost, ReportAndLeaveAreWhatTheirRecordsAre)
{
    lab.start();
    lab.old_report(2);
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 260");
    EXPECT_EQ(lab.recorder.told(), "join G1");
    lab.leave();
    EXPECT_EQ(lab.recorder.queries(), "? G1");
    lab.pass(2);
    EXPECT_EQ(lab.state(), "none");
}

TEST_P(GmpdOlderHost, ALeaveOfAnUnknownGroupDoesNothing)
{
    lab.start();
    lab.leave();
    EXPECT_EQ(lab.recorder.queries(), "");
    EXPECT_EQ(lab.interface->counters[Count::Leaves], 1u);
}

TEST_P(GmpdOlderHost, WhileOneIsPresentBlocksAndExclusionsAreNotListenedTo)
{
    lab.start();
    lab.old_report(2);
    lab.record(RecordType::Block, {1});
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 260");
    EXPECT_EQ(lab.interface->counters[Count::OldHostPresent], 1u);
    lab.record(RecordType::ToExclude, {1});
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 260");
    lab.record(RecordType::ToInclude, {});
    EXPECT_EQ(lab.recorder.queries(), "? G1") << "a newer host's leave is as good as an older one's";
}

TEST_P(GmpdOlderHost, ItIsForgottenAfterTheOlderHostInterval)
{
    lab.start();
    lab.old_report(2);
    lab.pass(259);
    lab.record(RecordType::IsExclude, {});
    lab.record(RecordType::Block, {1});
    EXPECT_EQ(lab.interface->counters[Count::OldHostPresent], 1u);
    lab.pass(1);
    lab.record(RecordType::Block, {1});
    EXPECT_EQ(lab.interface->counters[Count::OldHostPresent], 1u);
    EXPECT_EQ(lab.recorder.queries().back(), '}') << "asked about the blocked source";
}

TEST(GmpdOlderHostIpv4, WhileVersion1IsPresentNobodyCanLeave)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    lab.old_report(1);
    lab.leave();
    lab.record(RecordType::ToInclude, {});
    EXPECT_EQ(lab.recorder.queries(), "");
    EXPECT_EQ(lab.interface->counters[Count::OldHostPresent], 2u);
    lab.pass(260);
    EXPECT_EQ(lab.state(), "none") << "time alone ends the membership";
}

TEST(GmpdOlderHostIpv4, AVersion1RouterIgnoresEverythingNewer)
{
    Lab lab(MCAST_FAMILY_IPV4, with_version(1));
    Message report;
    lab.start();
    lab.old_report(2);
    report.kind = MessageKind::Report;
    report.version = 3;
    report.sender = lab.neighbour(200);
    handle_message(*lab.interface, report);
    EXPECT_EQ(lab.interface->counters[Count::NewerVersion], 2u);
    lab.old_report(1);
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 260");
    lab.leave();
    EXPECT_EQ(lab.interface->counters[Count::NewerVersion], 3u);
    EXPECT_EQ(lab.recorder.queries(), "");
}

TEST_P(GmpdOlderHost, ARouterOfItsVersionNeedsNoMemoryOfIt)
{
    Lab old(GetParam(), with_version(2));
    old.start();
    old.old_report(2);
    EXPECT_FALSE(find_group(old.interface->memberships, old.group(1))->v2_host.running());
    old.query(50, 3);
    EXPECT_FALSE(old.interface->querier.elected) << "a newer query still counts in the election";
}

TEST(GmpdForgedQuery, TheFirstAndLastAddressOfALinkAreNoRouters)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.interface->prefixes = {Prefix::of(from_text("10.0.0.1"), 24)};
    lab.start();
    lab.query(0, 3);
    EXPECT_EQ(lab.recorder.told(), "");
    EXPECT_EQ(lab.interface->counters[Count::QuerierAddress], 1u);
    interface_start(*lab.interface, from_text("10.0.1.1"));
    lab.query(255, 3);
    EXPECT_EQ(lab.interface->counters[Count::QuerierAddress], 2u);
    lab.interface->prefixes = {Prefix::of(from_text("10.0.0.1"), 31)};
    lab.query(0, 3);
    EXPECT_EQ(lab.interface->counters[Count::QuerierAddress], 2u) << "both addresses of /31 are routers'";
    EXPECT_EQ(lab.recorder.told(), "not querier");
}

TEST(GmpdForgedQuery, TheAddressOfAnyRouterIsNoRouters)
{
    Lab lab(MCAST_FAMILY_IPV6);
    lab.start();
    Message query;
    query.kind = MessageKind::Query;
    query.version = 3;
    query.sender = from_text("fe80::");
    query.group = any_address(MCAST_FAMILY_IPV6);
    handle_message(*lab.interface, query);
    EXPECT_EQ(lab.recorder.told(), "");
    EXPECT_EQ(lab.interface->counters[Count::QuerierAddress], 1u);
}

TEST_P(GmpdQuerier, OnlyPermittedRoutersAskWhereTheOperatorNamedThem)
{
    lab.process.config.queriers["lab"] = {lab.neighbour(50)};
    lab.start();
    lab.query(40, 3);
    EXPECT_EQ(lab.recorder.told(), "");
    EXPECT_EQ(lab.interface->counters[Count::QuerierNotPermitted], 1u);
    lab.query(50, 3);
    EXPECT_EQ(lab.recorder.told(), "not querier");
}

TEST_P(GmpdQuerier, WhateverAQuerierSaidItsSilenceIsNoticedWithin255Seconds)
{
    lab.start();
    Message query;
    query.kind = MessageKind::Query;
    query.version = 3;
    query.sender = lab.neighbour(1);
    query.group = any_address(GetParam());
    query.robustness = 7;
    query.query_interval_s = 31744;
    query.max_response_ms = 3174000;
    handle_message(*lab.interface, query);
    EXPECT_EQ(lab.recorder.told(), "not querier");
    lab.pass(256);
    EXPECT_EQ(lab.recorder.told(), "querier");
    query.robustness = 1;
    handle_message(*lab.interface, query);
    lab.pass(256);
    EXPECT_EQ(lab.recorder.told(), "not querier; querier");
}

TEST_P(GmpdQuerier, ARouterWithALongerIntervalOfItsOwnFollowsOneLikeIt)
{
    lab.process.config.query_interval_s = 600;
    lab.start();
    Message query;
    query.kind = MessageKind::Query;
    query.version = 3;
    query.sender = lab.neighbour(1);
    query.group = any_address(GetParam());
    query.robustness = 2;
    query.query_interval_s = 600;
    query.max_response_ms = 10000;
    handle_message(*lab.interface, query);
    EXPECT_EQ(lab.interface->querier.query_interval_s, 600u);
}
