/*
 * Leaves in great number: so many queries a second, and nothing ends unasked or while its question waits.
 */
#include <algorithm>
#include <gtest/gtest.h>

#include "tests/daemons/gmpd_families.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr unsigned GROUPS = 250;

Config with_rate(uint32_t queries_per_s)
{
    Config config;
    config.group_queries_per_s = queries_per_s;
    return config;
}

class GmpdPace : public testing::TestWithParam<uint8_t>
{
protected:
    GmpdPace() : lab(GetParam(), with_rate(100))
    {
        lab.start();
    }

    // The queries about groups since the last call.
    unsigned asked()
    {
        const std::string queries = lab.recorder.queries();
        return static_cast<unsigned>(std::count(queries.begin(), queries.end(), 'G'));
    }

    void join_all()
    {
        for (unsigned group = 1; group <= GROUPS; ++group) {
            lab.record(RecordType::IsExclude, {}, group);
        }
        lab.pass(31); // the start-up queries are over
        asked();
    }

    unsigned left() const
    {
        return MRT_CountTable(lab.interface->memberships.groups);
    }

    Lab lab;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(BothFamilies, GmpdPace, testing::ValuesIn(FAMILIES), family_name);

TEST_P(GmpdPace, NoMoreQueriesASecondThanTheAllowance)
{
    unsigned total = 0;
    join_all();
    for (unsigned group = 1; group <= GROUPS; ++group) {
        lab.record(RecordType::ToInclude, {}, group);
    }
    for (unsigned second = 0; second < 12; ++second) {
        const unsigned queries = asked();

        EXPECT_LE(queries, 100u) << "in second " << second;
        total += queries;
        lab.pass(1);
    }
    EXPECT_EQ(total, 2 * GROUPS) << "each twice, as the robustness says";
    EXPECT_EQ(left(), 0u);
    EXPECT_EQ(lab.interface->counters[Count::SentGroup], 2 * GROUPS);
    EXPECT_GT(lab.interface->counters[Count::DelayedQueries], 0u);
    EXPECT_EQ(lab.interface->pace.waiting.size(), 0u);
}

TEST_P(GmpdPace, NothingEndsBeforeItWasAskedAboutTwice)
{
    join_all();
    for (unsigned group = 1; group <= GROUPS; ++group) {
        lab.record(RecordType::ToInclude, {}, group);
    }
    unsigned queries = asked();
    for (unsigned second = 0; second < 12; ++second) {
        lab.pass(1);
        queries += asked();
        EXPECT_LE(GROUPS - left(), queries / 2) << "after " << second + 1 << " s";
    }
}

TEST_P(GmpdPace, WhatIsConfirmedBeforeItsTurnIsNotAskedAbout)
{
    join_all();
    for (unsigned group = 1; group <= GROUPS; ++group) {
        lab.record(RecordType::ToInclude, {}, group);
    }
    for (unsigned group = 101; group <= GROUPS; ++group) {
        lab.record(RecordType::IsExclude, {}, group);
    }
    unsigned queries = asked();
    for (unsigned second = 0; second < 6; ++second) {
        lab.pass(1);
        queries += asked();
    }
    EXPECT_EQ(queries, 200u) << "the first hundred, twice";
    EXPECT_EQ(left(), GROUPS - 100);
}

TEST_P(GmpdPace, ALeaveOfAGroupWithoutMembersAsksNothing)
{
    lab.pass(31);
    asked();
    for (unsigned group = 1; group <= GROUPS; ++group) {
        lab.leave(group);
        lab.record(RecordType::ToInclude, {}, group);
        lab.record(RecordType::Block, {1, 2}, group);
    }
    lab.pass(3);
    EXPECT_EQ(asked(), 0u);
    EXPECT_EQ(left(), 0u);
}

TEST_P(GmpdPace, SourcesOfAGroupAreAskedAboutTogether)
{
    std::vector<unsigned> sources;
    for (unsigned source = 1; source <= 60; ++source) {
        sources.push_back(source);
    }
    lab.record(RecordType::Allow, sources);
    lab.pass(31);
    asked();
    lab.record(RecordType::Block, sources);
    EXPECT_EQ(asked(), 1u);
}

TEST_P(GmpdPace, ARouterThatIsNoLongerQuerierAsksNothingMore)
{
    join_all();
    for (unsigned group = 1; group <= GROUPS; ++group) {
        lab.record(RecordType::ToInclude, {}, group);
    }
    EXPECT_EQ(asked(), 100u);
    lab.query(99, 3);
    lab.pass(3);
    EXPECT_EQ(asked(), 0u);
    EXPECT_EQ(lab.interface->pace.waiting.size(), 0u);
}

TEST_P(GmpdPace, AStoppedInterfaceForgetsWhatWaited)
{
    join_all();
    for (unsigned group = 1; group <= GROUPS; ++group) {
        lab.record(RecordType::ToInclude, {}, group);
    }
    interface_stop(*lab.interface);
    EXPECT_EQ(lab.interface->pace.waiting.size(), 0u);
    asked();
    lab.pass(3);
    EXPECT_EQ(asked(), 0u);
}
