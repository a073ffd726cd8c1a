/*
 * The machines with their timers, on a clock that the test moves: each timer at its millisecond, one before and at it.
 */
#include "tests/daemons/pimsmd_clock.h"

#include <gtest/gtest.h>

#include "daemons/pimsmd/downstream.h"
#include "daemons/pimsmd/register.h"
#include "daemons/pimsmd/rpt_prune.h"
#include "daemons/pimsmd/upstream.h"
#include "tests/daemons/pimsmd_messages.h"

namespace
{

using pimsmd_test::Clock;
using pimsmd_test::Notes;

constexpr uint32_t PRUNE_DELAY_MS = 3000;
constexpr uint16_t FOREVER = pimsmd::HOLDTIME_FOREVER;

struct Downstream final : Clock, pimsmd::downstream::Owner {
    pimsmd::downstream::Runner runner{queue, *this};

    void changed(pimsmd::downstream::Runner &) override
    {
        notes.push_back(runner.forwards() ? "on" : "off");
    }
    void echo_prune(pimsmd::downstream::Runner &) override
    {
        notes.push_back("echo");
    }
};

struct RptDownstream final : Clock, pimsmd::rpt_downstream::Owner {
    pimsmd::rpt_downstream::Runner runner{queue, *this};

    void changed(pimsmd::rpt_downstream::Runner &) override
    {
        notes.push_back(runner.prunes() ? "pruned" : "not pruned");
    }
};

struct Upstream final : Clock, pimsmd::upstream::Owner {
    explicit Upstream(bool source)
        : runner(source ? pimsmd::upstream::SOURCE_TABLE : pimsmd::upstream::STAR_TABLE, queue, *this)
    {
    }

    pimsmd::upstream::Runner runner;
    uint32_t suppression_ms = 75000;
    uint32_t override_ms = 1234;

    void send_join() override
    {
        notes.push_back("join");
    }
    void send_prune() override
    {
        notes.push_back("prune");
    }
    void send_prune_to_old() override
    {
        notes.push_back("prune to old");
    }
    void clear_spt_bit() override
    {
        notes.push_back("clear");
    }
    uint32_t period_ms() override
    {
        return 60000;
    }
    uint32_t draw_suppression_ms() override
    {
        return suppression_ms;
    }
    uint32_t draw_override_ms() override
    {
        return override_ms;
    }
};

struct RptUpstream final : Clock, pimsmd::rpt_upstream::Owner {
    pimsmd::rpt_upstream::Runner runner{queue, *this};
    uint32_t override_ms = 1234;

    void send_join_rpt() override
    {
        notes.push_back("join");
    }
    void send_prune_rpt() override
    {
        notes.push_back("prune");
    }
    uint32_t draw_override_ms() override
    {
        return override_ms;
    }
};

struct Registering final : Clock, pimsmd::registers::Owner {
    pimsmd::registers::Runner runner{queue, *this};

    void set_tunnel(bool on) override
    {
        notes.push_back(on ? "tunnel" : "no tunnel");
    }
    void update_tunnel() override
    {
        notes.push_back("other RP");
    }
    void send_null_register() override
    {
        notes.push_back("null");
    }
    uint32_t draw_suppression_ms() override
    {
        return 55000;
    }
    uint32_t probe_ms() override
    {
        return 5000;
    }
};

} // namespace

TEST(PimClock, AJoinLastsItsHoldtime)
{
    Downstream one;
    one.runner.join(210);
    EXPECT_EQ(one.pass(209999), Notes{"on"});
    EXPECT_EQ(one.pass(1), Notes{"off"});
    one.runner.join(210);
    one.pass(100000);
    one.runner.join(50); // never shorter
    EXPECT_EQ(one.pass(109999), Notes{});
    one.runner.join(210);
    EXPECT_EQ(one.pass(209999), Notes{});
    EXPECT_EQ(one.pass(1), Notes{"off"});
    one.runner.join(FOREVER);
    one.runner.join(1);
    EXPECT_EQ(one.pass(uint64_t{1} << 40), Notes{"on"});
    EXPECT_EQ(one.queue.size(), 0u);
}

TEST(PimClock, AJoinWithoutHoldtimeIsOverAtOnce)
{
    Downstream one;
    one.runner.join(0);
    EXPECT_EQ(one.pass(0), (Notes{"on", "off"}));
}

TEST(PimClock, APruneWaitsForThoseWhoWantToGoOn)
{
    Downstream one;
    one.runner.join(210);
    one.runner.prune(PRUNE_DELAY_MS);
    EXPECT_EQ(one.pass(PRUNE_DELAY_MS - 1), Notes{"on"});
    one.runner.join(210); // an override at the last moment
    EXPECT_EQ(one.pass(PRUNE_DELAY_MS), Notes{});
    one.runner.prune(PRUNE_DELAY_MS);
    one.pass(1000);
    one.runner.prune(PRUNE_DELAY_MS); // does not start the wait anew
    EXPECT_EQ(one.pass(PRUNE_DELAY_MS - 1001), Notes{});
    EXPECT_EQ(one.pass(1), (Notes{"echo", "off"}));
    EXPECT_EQ(one.queue.size(), 0u);
}

TEST(PimClock, WithOneNeighbourAPruneHasNobodyToWaitFor)
{
    Downstream one;
    one.runner.join(210);
    one.runner.prune(0);
    EXPECT_EQ(one.taken(), (Notes{"on", "off"}));
    one.runner.prune(0);
    EXPECT_EQ(one.taken(), Notes{});
    EXPECT_EQ(one.queue.size(), 0u);
}

TEST(PimClock, AJoinThatEndsWhileItsPruneIsPendingNeedsNoEcho)
{
    Downstream one;
    one.runner.join(2);
    one.runner.prune(PRUNE_DELAY_MS);
    EXPECT_EQ(one.pass(2000), (Notes{"on", "off"}));
    EXPECT_EQ(one.pass(PRUNE_DELAY_MS), Notes{});
}

TEST(PimClock, APruneOfASourceCountsAfterItsDelayAndLastsItsHoldtime)
{
    RptDownstream one;
    one.runner.prune(210, PRUNE_DELAY_MS);
    one.runner.end_of_message();
    EXPECT_EQ(one.pass(PRUNE_DELAY_MS - 1), Notes{});
    EXPECT_EQ(one.pass(1), Notes{"pruned"});
    EXPECT_EQ(one.pass(210000 - PRUNE_DELAY_MS - 1), Notes{});
    EXPECT_EQ(one.pass(1), Notes{"not pruned"});
    one.runner.prune(FOREVER, 0);
    EXPECT_EQ(one.taken(), Notes{"pruned"});
    one.runner.join();
    EXPECT_EQ(one.taken(), Notes{"not pruned"});
    one.runner.prune(1, PRUNE_DELAY_MS);
    EXPECT_EQ(one.pass(PRUNE_DELAY_MS), Notes{});
    EXPECT_EQ(one.queue.size(), 0u);
}

TEST(PimClock, AJoinOfTheSharedTreeKeepsThePrunesThatComeWithIt)
{
    RptDownstream one;
    one.runner.prune(210, 0);
    one.taken();
    one.pass(60000);
    one.runner.join_star();
    EXPECT_TRUE(one.runner.prunes());
    one.runner.prune(210, 0);
    one.runner.end_of_message();
    EXPECT_EQ(one.pass(209999), Notes{});
    EXPECT_TRUE(one.runner.prunes());
    one.runner.join_star();
    one.runner.end_of_message();
    EXPECT_EQ(one.taken(), Notes{"not pruned"});
    EXPECT_EQ(one.queue.size(), 0u);
    one.runner.prune(210, PRUNE_DELAY_MS);
    one.runner.join_star();
    EXPECT_FALSE(one.runner.prunes());
    one.runner.end_of_message();
    EXPECT_EQ(one.pass(PRUNE_DELAY_MS), Notes{});
    EXPECT_EQ(one.queue.size(), 0u);
}

TEST(PimClock, JoinsGoOutEachPeriod)
{
    Upstream one(true);
    one.runner.take(pimsmd::upstream::Event::JoinDesired);
    EXPECT_EQ(one.pass(59999), Notes{"join"});
    EXPECT_EQ(one.pass(1), Notes{"join"});
    EXPECT_EQ(one.pass(60000), Notes{"join"});
    one.runner.take(pimsmd::upstream::Event::JoinNotDesired);
    EXPECT_EQ(one.pass(60000), (Notes{"clear", "prune"}));
    EXPECT_EQ(one.queue.size(), 0u);
    Upstream star(false);
    star.runner.take(pimsmd::upstream::Event::JoinDesired);
    star.runner.take(pimsmd::upstream::Event::JoinNotDesired);
    EXPECT_EQ(star.taken(), (Notes{"join", "prune"}));
}

TEST(PimClock, AnotherRoutersJoinPutsTheNextOneOff)
{
    Upstream one(true);
    one.runner.take(pimsmd::upstream::Event::JoinDesired);
    one.pass(59000);
    one.runner.see_join(210);
    EXPECT_EQ(one.runner.next_join_ms(), 75000u);
    one.runner.see_join(20); // no reason to come earlier
    EXPECT_EQ(one.runner.next_join_ms(), 75000u);
    one.pass(75000);
    one.pass(59000);
    one.runner.see_join(20); // nor to rely on it longer than it lasts
    EXPECT_EQ(one.runner.next_join_ms(), 20000u);
    one.suppression_ms = 0; // where all routers are tracked
    one.runner.see_join(210);
    EXPECT_EQ(one.runner.next_join_ms(), 20000u);
}

TEST(PimClock, APruneIsOverriddenBeforeTheNeighbourActsOnIt)
{
    for (const auto event :
         {pimsmd::upstream::Event::SeePrune, pimsmd::upstream::Event::SeePruneRpt,
          pimsmd::upstream::Event::SeePruneStar, pimsmd::upstream::Event::RpfChangedByAssert,
          pimsmd::upstream::Event::NeighbourRestarted}) {
        Upstream one(true);
        Downstream neighbour;

        one.override_ms = 2500; // the latest that may be drawn
        one.runner.take(pimsmd::upstream::Event::JoinDesired);
        neighbour.runner.join(210);
        one.taken();
        neighbour.runner.prune(PRUNE_DELAY_MS);
        one.runner.take(event);
        EXPECT_EQ(one.pass(2499), Notes{});
        EXPECT_EQ(one.pass(1), Notes{"join"});
        neighbour.pass(2500 + 499); // on its way as long as a message may be
        neighbour.runner.join(210);
        EXPECT_EQ(neighbour.pass(PRUNE_DELAY_MS), Notes{});
        EXPECT_EQ(one.runner.next_join_ms(), 60000u);
    }
}

TEST(PimClock, AnotherUpstreamNeighbourIsJoinedAtOnceAndTheOldOneTold)
{
    Upstream one(false);
    one.runner.take(pimsmd::upstream::Event::RpfChanged);
    EXPECT_EQ(one.taken(), Notes{});
    one.runner.take(pimsmd::upstream::Event::JoinDesired);
    one.pass(30000);
    one.runner.take(pimsmd::upstream::Event::RpfChanged);
    EXPECT_EQ(one.taken(), (Notes{"prune to old", "join"}));
    EXPECT_EQ(one.runner.next_join_ms(), 60000u);
}

TEST(PimClock, APruneOfASourceOnTheSharedTreeIsOverriddenOnce)
{
    using Event = pimsmd::rpt_upstream::Event;
    RptUpstream one;

    one.runner.take(Event::SeePruneRpt); // not on the tree
    one.runner.take(Event::Inherits);
    EXPECT_EQ(one.queue.size(), 0u);
    one.runner.take(Event::SeePruneRpt);
    one.pass(1000);
    one.runner.take(Event::SeePruneSource); // no later than before
    EXPECT_EQ(one.pass(233), Notes{});
    EXPECT_EQ(one.pass(1), Notes{"join"});
    EXPECT_EQ(one.pass(100000), Notes{});
    one.runner.take(Event::SeePruneRpt);
    one.runner.take(Event::SeeJoinRpt); // somebody else did
    EXPECT_EQ(one.pass(100000), Notes{});
    one.runner.take(Event::RpfJoinsStar);
    one.runner.take(Event::PruneDesired);
    EXPECT_EQ(one.pass(100000), Notes{"prune"});
    one.runner.take(Event::PruneNotDesired);
    EXPECT_EQ(one.taken(), Notes{"join"});
    one.runner.take(Event::SeePruneRpt);
    one.runner.take(Event::RptJoinNotDesired);
    EXPECT_EQ(one.pass(100000), Notes{});
    EXPECT_EQ(one.runner.state(), pimsmd::rpt_upstream::State::RptNotJoined);
}

TEST(PimClock, TheRpIsProbedBeforeItsStopEnds)
{
    using Event = pimsmd::registers::Event;
    Registering one;

    one.runner.take(Event::CouldRegister);
    one.runner.take(Event::Stop);
    EXPECT_EQ(one.taken(), (Notes{"tunnel", "no tunnel"}));
    EXPECT_EQ(one.pass(54999), Notes{});
    EXPECT_EQ(one.pass(1), Notes{"null"});
    one.runner.take(Event::Stop); // it still means it
    EXPECT_EQ(one.pass(54999), Notes{});
    EXPECT_EQ(one.pass(1), Notes{"null"});
    EXPECT_EQ(one.pass(4999), Notes{});
    EXPECT_EQ(one.pass(1), Notes{"tunnel"});
    one.runner.take(Event::RpChanged);
    one.runner.take(Event::CouldNotRegister);
    EXPECT_EQ(one.pass(100000), (Notes{"other RP", "no tunnel"}));
    EXPECT_EQ(one.queue.size(), 0u);
}

TEST(PimClock, AnotherRpKnowsNothingOfTheStop)
{
    using Event = pimsmd::registers::Event;
    Registering one;

    one.runner.take(Event::CouldRegister);
    one.runner.take(Event::Stop);
    one.taken();
    one.runner.take(Event::RpChanged);
    EXPECT_EQ(one.pass(100000), Notes{"tunnel"});
    one.runner.take(Event::Stop);
    one.pass(55000);
    one.runner.take(Event::CouldNotRegister);
    EXPECT_EQ(one.pass(100000), Notes{});
    EXPECT_EQ(one.runner.state(), pimsmd::registers::State::NoInfo);
}
