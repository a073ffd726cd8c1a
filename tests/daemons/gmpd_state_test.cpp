/*
 * The state tables row by row, with what is asked, what the MRIB is told, and how everything ends. The
 * interval T is 2 * 125 + 10 = 260 seconds, the last member time 2 seconds; every state is 100 seconds old
 * when the row is applied, so that old timers show 160.
 */
#include <gtest/gtest.h>

#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

using Numbers = std::vector<unsigned>;

struct Row {
    const char *name;
    bool exclude; // from EXCLUDE ({1 2}, {3 4}); otherwise from INCLUDE ({1 2})
    RecordType type;
    Numbers sources;
    const char *state;
    const char *queries;
    const char *told;
};

const Row ROWS[] = {
    {"IncludeIsIn", false, RecordType::IsInclude, {2, 3}, "INCLUDE {1:160 2:260 3:260}", "", "join G1 3"},
    {"IncludeAllow", false, RecordType::Allow, {2, 3}, "INCLUDE {1:160 2:260 3:260}", "", "join G1 3"},
    {"IncludeToIn",
     false,
     RecordType::ToInclude,
     {2, 3},
     "INCLUDE {1:2 2:260 3:260}",
     "? G1 {1}",
     "join G1 3"},
    {"IncludeToInNothing", false, RecordType::ToInclude, {}, "INCLUDE {1:2 2:2}", "? G1 {1 2}", ""},
    {"IncludeIsEx",
     false,
     RecordType::IsExclude,
     {2, 3},
     "EXCLUDE {2:160} {3} 260",
     "",
     "block G1 3; join G1; prune G1 1; prune G1 2"},
    {"IncludeIsExNothing",
     false,
     RecordType::IsExclude,
     {},
     "EXCLUDE {} {} 260",
     "",
     "join G1; prune G1 1; prune G1 2"},
    {"IncludeToEx",
     false,
     RecordType::ToExclude,
     {2, 3},
     "EXCLUDE {2:2} {3} 260",
     "? G1 {2}",
     "block G1 3; join G1; prune G1 1; prune G1 2"},
    {"IncludeBlock", false, RecordType::Block, {2, 3}, "INCLUDE {1:160 2:2}", "? G1 {2}", ""},
    {"IncludeBlockNothingThere", false, RecordType::Block, {3}, "INCLUDE {1:160 2:160}", "", ""},
    {"ExcludeIsIn",
     true,
     RecordType::IsInclude,
     {2, 3, 5},
     "EXCLUDE {1:160 2:260 3:260 5:260} {4} 160",
     "",
     "unblock G1 3"},
    {"ExcludeAllow",
     true,
     RecordType::Allow,
     {2, 3, 5},
     "EXCLUDE {1:160 2:260 3:260 5:260} {4} 160",
     "",
     "unblock G1 3"},
    {"ExcludeToIn",
     true,
     RecordType::ToInclude,
     {2, 3, 5},
     "EXCLUDE {1:2 2:260 3:260 5:260} {4} 2",
     "? G1; ? G1 {1}",
     "unblock G1 3"},
    {"ExcludeIsEx",
     true,
     RecordType::IsExclude,
     {2, 3, 5},
     "EXCLUDE {2:160 5:260} {3} 260",
     "",
     "unblock G1 4"},
    {"ExcludeIsExNothing",
     true,
     RecordType::IsExclude,
     {},
     "EXCLUDE {} {} 260",
     "",
     "unblock G1 3; unblock G1 4"},
    {"ExcludeToEx",
     true,
     RecordType::ToExclude,
     {2, 3, 5},
     "EXCLUDE {2:2 5:2} {3} 260",
     "? G1 {2 5}",
     "unblock G1 4"},
    {"ExcludeBlock",
     true,
     RecordType::Block,
     {2, 3, 5},
     "EXCLUDE {1:160 2:2 5:2} {3 4} 160",
     "? G1 {2 5}",
     ""},
};

class GmpdStateRow : public testing::TestWithParam<std::tuple<uint8_t, Row>>
{
};

class GmpdState : public testing::TestWithParam<uint8_t>
{
protected:
    GmpdState() : lab(GetParam())
    {
        lab.start();
    }
    Lab lab;
};

void prepare(Lab &lab, bool exclude)
{
    lab.start();
    if (exclude) {
        lab.record(RecordType::IsExclude, {1, 2, 3, 4});
        lab.record(RecordType::Allow, {1, 2});
    } else {
        lab.record(RecordType::IsInclude, {1, 2});
    }
    lab.pass(100);
    lab.recorder.queries();
    lab.recorder.told();
}

} // namespace

TEST_P(GmpdStateRow, LeadsToTheStateTheQueriesAndTheDifferences)
{
    const Row &row = std::get<1>(GetParam());
    Lab lab(std::get<0>(GetParam()));
    prepare(lab, row.exclude);
    EXPECT_EQ(lab.state(), row.exclude ? "EXCLUDE {1:160 2:160} {3 4} 160" : "INCLUDE {1:160 2:160}");
    lab.record(row.type, row.sources);
    EXPECT_EQ(lab.state(), row.state);
    EXPECT_EQ(lab.recorder.queries(), row.queries);
    EXPECT_EQ(lab.recorder.told(), row.told);
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, GmpdStateRow,
                         testing::Combine(testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                                          testing::ValuesIn(ROWS)),
                         [](const auto &row) {
                             return std::string(std::get<1>(row.param).name) +
                                    (std::get<0>(row.param) == MCAST_FAMILY_IPV4 ? "Ipv4" : "Ipv6");
                         });

INSTANTIATE_TEST_SUITE_P(BothFamilies, GmpdState, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                         [](const auto &family) {
                             return family.param == MCAST_FAMILY_IPV4 ? "Ipv4" : "Ipv6";
                         });

TEST_P(GmpdState, RecordsThatSayNothingMakeNoGroup)
{
    for (RecordType type :
         {RecordType::IsInclude, RecordType::ToInclude, RecordType::Allow, RecordType::Block}) {
        lab.record(type, {});
    }
    lab.record(RecordType::Block, {1});
    EXPECT_EQ(lab.state(), "none");
    EXPECT_EQ(lab.recorder.told(), "");
}

TEST_P(GmpdState, UnansweredQueriesEndAnIncludedSource)
{
    lab.record(RecordType::Allow, {1, 2});
    lab.recorder.told();
    lab.record(RecordType::Block, {1});
    EXPECT_EQ(lab.recorder.queries(), "? G1 {1}");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? G1 {1}");
    EXPECT_EQ(lab.recorder.told(), "");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.told(), "prune G1 1");
    lab.pass(10);
    EXPECT_EQ(lab.recorder.queries(), "") << "no more than robustness queries";
    EXPECT_EQ(lab.state(), "INCLUDE {2:248}");
}

TEST_P(GmpdState, TheLastSourceTakesTheGroupWithIt)
{
    lab.record(RecordType::Allow, {1});
    EXPECT_EQ(lab.recorder.told(), "join G1 1");
    lab.pass(259);
    EXPECT_EQ(lab.state(), "INCLUDE {1:1}");
    lab.pass(1);
    EXPECT_EQ(lab.state(), "none");
    EXPECT_EQ(lab.recorder.told(), "prune G1 1");
}

TEST_P(GmpdState, AnAnswerKeepsWhatWasAskedAboutAndSetsTheSFlag)
{
    lab.record(RecordType::Allow, {1, 2});
    lab.record(RecordType::Block, {1, 2});
    lab.record(RecordType::IsInclude, {1});
    lab.recorder.queries();
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? S G1 {1}; ? G1 {2}");
    lab.pass(1);
    EXPECT_EQ(lab.state(), "INCLUDE {1:258}");
}

TEST_P(GmpdState, ALeftGroupIsAskedAboutTwiceAndEnds)
{
    lab.record(RecordType::ToExclude, {});
    EXPECT_EQ(lab.recorder.told(), "join G1");
    lab.record(RecordType::ToInclude, {});
    EXPECT_EQ(lab.recorder.queries(), "? G1");
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 2");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? G1");
    lab.pass(1);
    EXPECT_EQ(lab.state(), "none");
    EXPECT_EQ(lab.recorder.told(), "prune G1");
}

TEST_P(GmpdState, AnAnswerKeepsTheGroup)
{
    lab.record(RecordType::ToExclude, {});
    lab.record(RecordType::ToInclude, {});
    lab.record(RecordType::IsExclude, {});
    lab.recorder.queries();
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? S G1");
    lab.pass(10);
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 249");
    EXPECT_EQ(lab.recorder.told(), "join G1");
}

TEST_P(GmpdState, LeavesThatGoOnNeitherProlongNorMultiplyTheQuestions)
{
    lab.record(RecordType::ToExclude, {});
    lab.recorder.queries();
    for (int i = 0; i < 5; ++i) {
        lab.record(RecordType::ToInclude, {});
    }
    EXPECT_EQ(lab.recorder.queries(), "? G1");
    lab.pass(1);
    lab.record(RecordType::ToInclude, {});
    EXPECT_EQ(lab.recorder.queries(), "? G1");
    lab.pass(1);
    EXPECT_EQ(lab.state(), "none");
}

TEST_P(GmpdState, ANewQuestionDoesNotUseUpTheRepetitionOfAnOlderOne)
{
    lab.record(RecordType::Allow, {1, 2});
    lab.record(RecordType::Block, {1});
    lab.record(RecordType::Block, {2});
    EXPECT_EQ(lab.recorder.queries(), "? G1 {1}; ? G1 {2}");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? G1 {1 2}");
}

TEST_P(GmpdState, AnExpiredSourceOfAnExcludingGroupIsBlocked)
{
    lab.record(RecordType::IsExclude, {});
    lab.pass(200);
    lab.record(RecordType::IsExclude, {1});
    EXPECT_EQ(lab.state(), "EXCLUDE {1:260} {} 260");
    lab.pass(100);
    lab.record(RecordType::IsExclude, {1});
    lab.recorder.told();
    lab.pass(160);
    EXPECT_EQ(lab.state(), "EXCLUDE {} {1} 100");
    EXPECT_EQ(lab.recorder.told(), "block G1 1");
}

TEST_P(GmpdState, TheEndOfExcludeKeepsWantedSourcesWithoutAGap)
{
    lab.record(RecordType::IsExclude, {1, 2});
    lab.pass(100);
    lab.record(RecordType::Allow, {1});
    lab.recorder.told();
    lab.pass(160);
    EXPECT_EQ(lab.recorder.told(), "join G1 1; prune G1; unblock G1 2");
    EXPECT_EQ(lab.state(), "INCLUDE {1:100}");
}

TEST_P(GmpdState, SourcesThatEndWithTheGroupAreNotJoinedForAnInstant)
{
    lab.record(RecordType::IsExclude, {});
    lab.record(RecordType::Allow, {1});
    lab.recorder.told();
    lab.pass(260);
    EXPECT_EQ(lab.recorder.told(), "prune G1");
    EXPECT_EQ(lab.state(), "none");
}

TEST_P(GmpdState, ASourceThatEndsBesideAGroupThatIsPutOffIsBlocked)
{
    lab.record(RecordType::IsExclude, {});
    lab.record(RecordType::Allow, {1});
    lab.pass(100);
    lab.record(RecordType::IsExclude, {1});
    lab.pass(159);
    lab.record(RecordType::ToInclude, {});
    EXPECT_EQ(lab.state(), "EXCLUDE {1:1} {} 2");
    lab.recorder.told();
    lab.pass_ms(2000); // late: source, repetition and group are due at once
    EXPECT_EQ(lab.state(), "EXCLUDE {} {1} 1");
    EXPECT_EQ(lab.recorder.told(), "block G1 1");
}

TEST_P(GmpdState, ConfirmationsTellTheMribNothing)
{
    lab.record(RecordType::IsExclude, {1, 2});
    lab.recorder.told();
    for (int i = 0; i < 3; ++i) {
        lab.pass(100);
        lab.record(RecordType::IsExclude, {1, 2});
    }
    EXPECT_EQ(lab.recorder.told(), "");
}

TEST_P(GmpdState, OnlyTheQuerierAsks)
{
    lab.record(RecordType::ToExclude, {});
    lab.query(1, 3);
    lab.recorder.queries();
    lab.record(RecordType::ToInclude, {});
    lab.record(RecordType::ToInclude, {1});
    EXPECT_EQ(lab.recorder.queries(), "");
    EXPECT_EQ(lab.state(), "EXCLUDE {1:260} {} 260");
}

TEST_P(GmpdState, AQuerierThatIsOutvotedStopsRepeating)
{
    lab.record(RecordType::ToExclude, {});
    lab.record(RecordType::ToInclude, {});
    lab.query(1, 3);
    lab.recorder.queries();
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "");
}

TEST_P(GmpdState, QueriesOfTheQuerierShortenWhatTheyAskAbout)
{
    lab.record(RecordType::IsExclude, {});
    lab.record(RecordType::Allow, {1, 2});
    lab.query(1, 3, 1, {1, 9});
    EXPECT_EQ(lab.state(), "EXCLUDE {1:2 2:260} {} 260");
    lab.query(1, 3, 1, {}, true);
    EXPECT_EQ(lab.state(), "EXCLUDE {1:2 2:260} {} 260") << "the S flag";
    lab.query(1, 3, 1);
    EXPECT_EQ(lab.state(), "EXCLUDE {1:2 2:260} {} 2");
}

TEST_P(GmpdState, TimersStartedWithinASecondAreNeverEarly)
{
    lab.pass_ms(900);
    lab.record(RecordType::ToExclude, {});
    lab.record(RecordType::ToInclude, {});
    lab.record(RecordType::Allow, {1}, 2);
    lab.record(RecordType::Block, {1}, 2);
    lab.recorder.told();
    for (uint32_t passed = 100; passed < 2000; passed += 100) {
        lab.pass_ms(100);
        MCAST_TMR_ProcExpires(lab.process.timers);
        ASSERT_NE(lab.state(), "none") << passed << " ms after the leave";
        ASSERT_NE(lab.state(2), "none") << passed << " ms after the leave";
    }
    lab.pass(3);
    EXPECT_EQ(lab.state(), "none");
    EXPECT_EQ(lab.state(2), "none");
}

TEST_P(GmpdState, ARepetitionThatLeavesLateLeavesHostsTheirTime)
{
    lab.record(RecordType::ToExclude, {});
    lab.record(RecordType::ToInclude, {});
    lab.recorder.queries();
    lab.pass_ms(1999);
    EXPECT_EQ(lab.recorder.queries(), "? G1");
    lab.pass_ms(999);
    EXPECT_NE(lab.state(), "none") << "the answer to the second query may still come";
    lab.pass(2);
    EXPECT_EQ(lab.state(), "none");
}

TEST_P(GmpdState, ImmediateLeaveAsksNobody)
{
    lab.process.config.immediate_leave = true;
    lab.record(RecordType::ToExclude, {});
    lab.record(RecordType::Allow, {1}, 2);
    lab.recorder.told();
    lab.record(RecordType::ToInclude, {});
    lab.record(RecordType::Block, {1}, 2);
    EXPECT_EQ(lab.recorder.queries(), "");
    EXPECT_EQ(lab.recorder.told(), "prune G1; prune G2 1");
    EXPECT_EQ(lab.state(), "none");
    EXPECT_EQ(lab.state(2), "none");
}

TEST_P(GmpdState, ManySourcesAreAskedAboutInAsManyMessagesAsTheLinkNeeds)
{
    lab.interface->mtu = GetParam() == MCAST_FAMILY_IPV4 ? 36 + 2 * 4 : 76 + 2 * 16;
    lab.record(RecordType::Allow, {1, 2, 3, 4, 5});
    lab.record(RecordType::Block, {1, 2, 3, 4, 5});
    EXPECT_EQ(lab.recorder.queries(), "? G1 {1 2}; ? G1 {3 4}; ? G1 {5}");
}

TEST_P(GmpdState, GroupsBeyondTheLimitAreRefusedAndCounted)
{
    lab.process.config.max_groups = 2;
    lab.old_report(2, 1);
    lab.old_report(2, 2);
    lab.old_report(2, 3);
    EXPECT_EQ(lab.state(3), "none");
    EXPECT_EQ(lab.interface->counters[Count::GroupLimit], 1u);
    lab.old_report(2, 2);
    EXPECT_EQ(lab.interface->counters[Count::GroupLimit], 1u) << "groups that are there are not refused";
}

TEST_P(GmpdState, SourcesBeyondTheLimitAreRefusedAndCounted)
{
    lab.process.config.max_sources = 2;
    lab.record(RecordType::Allow, {1, 2, 3, 4});
    EXPECT_EQ(lab.state(), "INCLUDE {1:260 2:260}");
    EXPECT_EQ(lab.interface->counters[Count::SourceLimit], 2u);
}

TEST_P(GmpdState, EverythingIsToldAgainToAMribThatKnowsNothing)
{
    lab.record(RecordType::IsExclude, {1, 2});
    lab.record(RecordType::Allow, {2});
    lab.record(RecordType::Allow, {3}, 2);
    lab.recorder.told();
    tell_everything(*lab.interface);
    EXPECT_EQ(lab.recorder.told(), "block G1 1; join G1; join G2 3");
    tell_everything(*lab.interface);
    EXPECT_EQ(lab.recorder.told(), "block G1 1; join G1; join G2 3");
}

TEST_P(GmpdState, AStoppedInterfaceKeepsNothing)
{
    lab.record(RecordType::IsExclude, {1, 2});
    lab.record(RecordType::Allow, {3}, 2);
    lab.recorder.told();
    interface_stop(*lab.interface);
    EXPECT_EQ(lab.recorder.told(), "stopped");
    EXPECT_EQ(lab.state(), "none");
    lab.pass(400);
    EXPECT_EQ(lab.recorder.told(), "");
    EXPECT_EQ(lab.recorder.queries(), "");
    interface_start(*lab.interface, lab.neighbour(100));
    EXPECT_EQ(lab.recorder.told(), "running; querier");
    EXPECT_EQ(lab.recorder.queries(), "? all");
}

TEST_P(GmpdState, SourcesThatExpireTogetherCostOneTimerAndOneWalk)
{
    std::vector<unsigned> sources;
    std::string pruned;
    for (unsigned source = 1; source <= 250; ++source) {
        sources.push_back(source);
        pruned += (source == 1 ? "prune G1 " : "; prune G1 ") + std::to_string(source);
    }
    const uint64_t before = lab.process.timers->heap->count;
    lab.record(RecordType::Allow, sources);
    EXPECT_EQ(lab.process.timers->heap->count, before + 1);
    lab.recorder.told();
    lab.pass(100);
    lab.record(RecordType::Allow, {7});
    lab.pass(160);
    EXPECT_EQ(lab.process.timers->heap->count, before + 1);
    EXPECT_EQ(lab.state(), "INCLUDE {7:100}");
    EXPECT_EQ(lab.recorder.told(), pruned.replace(pruned.find("prune G1 7; "), 12, ""));
    lab.pass(100);
    EXPECT_EQ(lab.recorder.told(), "prune G1 7");
    EXPECT_EQ(lab.process.timers->heap->count, before);
}
