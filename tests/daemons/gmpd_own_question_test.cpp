/*
 * What another querier lets run out: hosts are asked before it ends, in rounds of two queries.
 */
#include <gtest/gtest.h>

#include "daemons/gmpd/group_expiry.h"
#include "tests/daemons/gmpd_families.h"
#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/no_memory.h"

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

namespace
{

// When hosts were first asked and when something ended, in seconds from when it ran out; -1: not yet.
struct Times {
    int asked = -1;
    int ended = -1;
    std::string told;

    // As rounds of the event loop do.
    void pass(Lab &lab, int from, int to)
    {
        for (int second = from; second < to; ++second) {
            lab.pass(1);
            resume_ends(*lab.interface);
            asked = asked < 0 && !lab.recorder.queries().empty() ? second : asked;
            told += lab.recorder.told();
            ended = ended < 0 && !told.empty() ? second : ended;
        }
    }
};

// The allocations that ending and asking take fail one after the other, with all that follow it for some seconds.
// Whatever was made until then, nothing ends unasked, and hosts are asked when there is memory.
void fail_from_each_allocation(uint8_t family, RecordType type, const std::vector<unsigned> &sources,
                               const std::string &withdrawn)
{
    constexpr int ANSWERING_S = 5;
    unsigned long failures = 1;
    for (unsigned long first = 0; failures > 0; ++first) {
        SCOPED_TRACE(first);
        ASSERT_LT(first, 100u);
        Lab lab(family);
        lab.start();
        lab.query(50, 3);
        lab.record(type, sources);
        lab.pass(200);
        lab.query(50, 3);
        lab.pass(59);
        lab.recorder.told();
        Times times;
        {
            const no_memory::Period period(first);
            times.pass(lab, 0, 4);
            failures = period.failures();
        }
        EXPECT_EQ(times.told, "");
        EXPECT_TRUE(first > 0 || times.asked < 0) << "nothing could be asked";
        times.pass(lab, 4, 20);
        EXPECT_GE(times.asked, 0);
        EXPECT_GE(times.ended, times.asked + ANSWERING_S);
        EXPECT_EQ(times.told, withdrawn);
        EXPECT_EQ(lab.state(), "none");
    }
}

} // namespace

TEST_P(GmpdOwnQuestion, AGroupDoesNotEndUnaskedForWantOfMemory)
{
    NEEDS_FAILING_ALLOCATIONS();
    fail_from_each_allocation(GetParam(), RecordType::IsExclude, {}, "prune G1");
}

TEST_P(GmpdOwnQuestion, ASourceDoesNotEndUnaskedForWantOfMemory)
{
    NEEDS_FAILING_ALLOCATIONS();
    fail_from_each_allocation(GetParam(), RecordType::Allow, {1, 2}, "prune G1 1; prune G1 2");
}
