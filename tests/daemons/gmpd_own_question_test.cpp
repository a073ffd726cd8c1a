/*
 * What another querier lets run out: hosts are asked before it ends, in rounds of two queries.
 */
#include <gtest/gtest.h>

#include "tests/daemons/gmpd_families.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

class GmpdOwnQuestion : public testing::TestWithParam<uint8_t>
{
protected:
    GmpdOwnQuestion() : lab(GetParam())
    {
        lab.start();
        lab.query(50, 3);
    }

    // The other querier goes on while nobody answers it.
    void pass_unanswered(uint32_t seconds)
    {
        for (; seconds > 100; seconds -= 100) {
            lab.pass(100);
            lab.query(50, 3);
        }
        lab.pass(seconds);
    }

    Lab lab;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(BothFamilies, GmpdOwnQuestion, testing::ValuesIn(FAMILIES), family_name);

TEST_P(GmpdOwnQuestion, AGroupThatRanOutEndsWhenNobodyAnswers)
{
    lab.record(RecordType::IsExclude, {});
    lab.recorder.told();
    pass_unanswered(260);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 5");
    lab.pass(2);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    lab.pass(2);
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 1");
    EXPECT_EQ(lab.recorder.told(), "");
    lab.pass(1);
    EXPECT_EQ(lab.recorder.told(), "prune G1");
    EXPECT_EQ(lab.recorder.queries(), "");
    EXPECT_FALSE(lab.interface->querier.elected);
}

TEST_P(GmpdOwnQuestion, AGroupThatIsConfirmedLivesOn)
{
    lab.record(RecordType::IsExclude, {});
    pass_unanswered(262);
    lab.record(RecordType::IsExclude, {});
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 260");
    lab.recorder.queries();
    pass_unanswered(260);
    EXPECT_EQ(lab.recorder.queries(), "? all") << "what was confirmed is asked about anew";
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 5");
}

TEST_P(GmpdOwnQuestion, ASourceThatRanOutIsAskedAbout)
{
    lab.record(RecordType::Allow, {1});
    lab.pass(10);
    lab.record(RecordType::Allow, {2});
    pass_unanswered(250);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    EXPECT_EQ(lab.state(), "INCLUDE {1:5 2:10}");
    lab.pass(5);
    EXPECT_EQ(lab.state(), "INCLUDE {2:5}");
    lab.recorder.queries();
    lab.pass(5);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    EXPECT_EQ(lab.state(), "INCLUDE {2:5}");
}

TEST_P(GmpdOwnQuestion, ASourceOfAnExcludingGroupIsNotBlockedUnasked)
{
    lab.record(RecordType::IsExclude, {});
    lab.record(RecordType::Allow, {1});
    lab.pass(10);
    lab.record(RecordType::IsExclude, {1});
    pass_unanswered(250);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    EXPECT_EQ(lab.state(), "EXCLUDE {1:5} {} 10");
    lab.pass(5);
    EXPECT_EQ(lab.state(), "EXCLUDE {} {1} 5");
}

TEST_P(GmpdOwnQuestion, ALinkHasOneRoundAtATime)
{
    lab.record(RecordType::IsExclude, {}, 1);
    lab.pass(1);
    lab.record(RecordType::IsExclude, {}, 2);
    pass_unanswered(260);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    EXPECT_EQ(lab.state(2), "EXCLUDE {} {} 4") << "it may have been confirmed since the round began";
    lab.pass(1);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    lab.pass(3);
    EXPECT_EQ(lab.state(1), "none");
    EXPECT_EQ(lab.recorder.queries(), "? all") << "the second group's own round";
    EXPECT_EQ(lab.state(2), "EXCLUDE {} {} 5");
    lab.pass(5);
    EXPECT_EQ(lab.state(2), "none");
}

TEST_P(GmpdOwnQuestion, WhatAQueryAboutTheGroupShortenedIsNotAskedAboutAgain)
{
    lab.record(RecordType::IsExclude, {}, 1);
    lab.record(RecordType::Allow, {1, 2}, 2);
    lab.query(50, 3, 1);
    lab.query(50, 3, 2, {1});
    const std::string before = lab.state(2);
    lab.pass(30);
    EXPECT_EQ(lab.state(1), "none");
    EXPECT_EQ(lab.state(2), "INCLUDE {2:230}") << "before: " << before;
    EXPECT_EQ(lab.recorder.queries(), "");
}

TEST_P(GmpdOwnQuestion, WhoTakesOverAsksAboutWhatTheOtherLetRunOut)
{
    lab.record(RecordType::IsExclude, {});
    lab.pass(255);
    ASSERT_TRUE(lab.interface->querier.elected);
    EXPECT_EQ(lab.recorder.queries(), "? all");
    lab.pass(5);
    EXPECT_EQ(lab.recorder.queries(), "? all") << "hosts had half of their time to answer the first one";
    EXPECT_EQ(lab.state(), "EXCLUDE {} {} 5");
    lab.pass(5);
    EXPECT_EQ(lab.state(), "none");
    lab.record(RecordType::IsExclude, {});
    lab.pass(260);
    EXPECT_EQ(lab.state(), "none") << "this router alone has asked for longer than a membership lasts";
}

TEST_P(GmpdOwnQuestion, AStoppedLinkAsksNobody)
{
    lab.record(RecordType::IsExclude, {});
    pass_unanswered(260);
    lab.recorder.queries();
    interface_stop(*lab.interface);
    lab.pass(10);
    EXPECT_EQ(lab.recorder.queries(), "");
    interface_start(*lab.interface, lab.neighbour(100));
    lab.record(RecordType::IsExclude, {});
    lab.pass(260);
    EXPECT_EQ(lab.state(), "none");
}
