/*
 * What a router makes of another's Assert, and both machines with their timers at the millisecond.
 */
#include <gtest/gtest.h>
#include <vector>

#include "daemons/pimsmd/assert_machine.h"
#include "tests/daemons/pimsmd_clock.h"
#include "tests/daemons/pimsmd_messages.h"

namespace
{

using pimsmd_test::Clock;
using pimsmd_test::Notes;

using pimsmd::asserts::Event;
using pimsmd::asserts::infinite_metric;
using pimsmd::asserts::Metric;
using pimsmd::asserts::Standing;
using pimsmd::asserts::State;

constexpr bool SOURCE = true;
constexpr bool STAR = false;
constexpr bool RPT = true;
constexpr bool SPT = false;

Metric terms(bool rpt, uint32_t preference, uint32_t metric, const char *address)
{
    return {rpt, preference, metric, pimsmd_test::addr(address)};
}

// The event's number, -1 for none.
int meaning(const Metric &heard, const Standing &standing)
{
    const auto event = meaning_of(heard, standing);
    return event ? static_cast<int>(*event) : -1;
}

struct Asserting final : Clock, pimsmd::asserts::Owner {
    explicit Asserting(bool source)
        : runner(source ? pimsmd::asserts::SOURCE_TABLE : pimsmd::asserts::STAR_TABLE, queue, *this)
    {
    }

    pimsmd::asserts::Runner runner;
    pimsmd::asserts::Metric own{false, 10, 10, pimsmd_test::addr("10.0.0.5")};

    void changed(pimsmd::asserts::Runner &) override
    {
        const char *const names[] = {"nobody", "won", "lost to "};
        const auto state = static_cast<size_t>(runner.state());
        notes.push_back(names[state] +
                        (state == 2 ? pimsmd::to_text(runner.winner().address) : std::string()));
    }
    void send_assert(pimsmd::asserts::Runner &) override
    {
        notes.push_back("assert");
    }
    void send_cancel(pimsmd::asserts::Runner &) override
    {
        notes.push_back("cancel");
    }
    pimsmd::asserts::Metric own_metric(const pimsmd::asserts::Runner &) override
    {
        return own;
    }
    void set_spt_bit(pimsmd::asserts::Runner &) override
    {
        notes.push_back("spt");
    }
};

pimsmd::asserts::Metric terms(bool rpt, uint32_t preference, const char *address)
{
    return {rpt, preference, 0, pimsmd_test::addr(address)};
}

constexpr int NOTHING = -1;
constexpr int INFERIOR = static_cast<int>(Event::Inferior);
constexpr int PREFERRED = static_cast<int>(Event::Preferred);
constexpr int STANDS = static_cast<int>(Event::WinnerStands);
constexpr int GAVE_UP = static_cast<int>(Event::WinnerGaveUp);

} // namespace

TEST(PimAssert, TermsAreComparedFieldByField)
{
    const std::vector<Metric> best_first = {terms(SPT, 1, 9, "10.0.0.1"), terms(SPT, 2, 1, "10.0.0.9"),
                                            terms(SPT, 2, 2, "10.0.0.9"), terms(SPT, 2, 2, "10.0.0.8"),
                                            terms(RPT, 0, 0, "10.0.0.9"), infinite_metric(MCAST_FAMILY_IPV4)};
    for (size_t i = 0; i < best_first.size(); ++i) {
        for (size_t j = 0; j < best_first.size(); ++j) {
            EXPECT_EQ(is_better(best_first[i], best_first[j]), i < j) << i << j;
        }
        EXPECT_EQ(is_infinite(best_first[i]), i + 1 == best_first.size());
    }
    EXPECT_TRUE(is_better(terms(SPT, 1, 1, "fe80::2"), terms(SPT, 1, 1, "fe80::1")));
}

TEST(PimAssert, WithoutAWinner)
{
    const Metric infinite = infinite_metric(MCAST_FAMILY_IPV4);
    const Metric own = terms(SPT, 10, 10, "10.0.0.5");
    const Metric own_rpt = terms(RPT, 10, 10, "10.0.0.5");
    const Standing forwards{SOURCE, State::NoInfo, true, true, own, infinite};
    const Standing listens{SOURCE, State::NoInfo, false, true, infinite, infinite};
    const Standing idle{SOURCE, State::NoInfo, false, false, infinite, infinite};

    EXPECT_EQ(meaning(terms(SPT, 10, 11, "10.0.0.9"), forwards), INFERIOR);
    EXPECT_EQ(meaning(terms(SPT, 10, 10, "10.0.0.9"), forwards), PREFERRED);
    EXPECT_EQ(meaning(terms(RPT, 0, 0, "10.0.0.9"), forwards), INFERIOR);
    EXPECT_EQ(meaning(terms(SPT, 200, 9, "10.0.0.1"), listens), PREFERRED);
    EXPECT_EQ(meaning(terms(RPT, 0, 0, "10.0.0.1"), listens), NOTHING);
    EXPECT_EQ(meaning(terms(SPT, 1, 1, "10.0.0.1"), idle), NOTHING);

    const Standing star_forwards{STAR, State::NoInfo, true, true, own_rpt, infinite};
    const Standing star_listens{STAR, State::NoInfo, false, true, infinite, infinite};
    Metric cancel = infinite;

    cancel.address = pimsmd_test::addr("10.0.0.9");
    EXPECT_EQ(meaning(terms(RPT, 11, 0, "10.0.0.9"), star_forwards), INFERIOR);
    EXPECT_EQ(meaning(terms(RPT, 9, 0, "10.0.0.9"), star_forwards), PREFERRED);
    EXPECT_EQ(meaning(terms(SPT, 0, 0, "10.0.0.9"), star_forwards), NOTHING);
    EXPECT_EQ(meaning(cancel, star_listens), NOTHING);
    EXPECT_EQ(meaning(terms(RPT, 9, 0, "10.0.0.9"), star_listens), PREFERRED);
}

TEST(PimAssert, AsTheWinner)
{
    const Metric own = terms(SPT, 10, 10, "10.0.0.5");
    const Standing source{SOURCE, State::Winner, true, true, own, own};
    EXPECT_EQ(meaning(terms(SPT, 10, 10, "10.0.0.4"), source), INFERIOR);
    EXPECT_EQ(meaning(terms(RPT, 1, 1, "10.0.0.9"), source), INFERIOR);
    EXPECT_EQ(meaning(terms(SPT, 9, 0, "10.0.0.4"), source), PREFERRED);
    const Metric own_rpt = terms(RPT, 10, 10, "10.0.0.5");
    const Standing star{STAR, State::Winner, true, true, own_rpt, own_rpt};
    EXPECT_EQ(meaning(terms(SPT, 1, 1, "10.0.0.9"), star), NOTHING);
    EXPECT_EQ(meaning(terms(RPT, 1, 1, "10.0.0.9"), star), PREFERRED);
    EXPECT_EQ(meaning(infinite_metric(MCAST_FAMILY_IPV4), star), INFERIOR);
}

TEST(PimAssert, AsALoser)
{
    const Metric own = terms(SPT, 10, 10, "10.0.0.5");
    const Metric winner = terms(SPT, 5, 5, "10.0.0.9");
    const Standing source{SOURCE, State::Loser, true, true, own, winner};
    Metric cancel = infinite_metric(MCAST_FAMILY_IPV4);

    EXPECT_EQ(meaning(winner, source), STANDS);
    EXPECT_EQ(meaning(terms(SPT, 9, 5, "10.0.0.9"), source), STANDS);
    EXPECT_EQ(meaning(terms(SPT, 11, 5, "10.0.0.9"), source), GAVE_UP);
    EXPECT_EQ(meaning(terms(RPT, 0, 0, "10.0.0.9"), source), GAVE_UP);
    EXPECT_EQ(meaning(cancel, source), NOTHING);
    cancel.address = winner.address;
    EXPECT_EQ(meaning(cancel, source), GAVE_UP);
    EXPECT_EQ(meaning(terms(SPT, 4, 5, "10.0.0.1"), source), PREFERRED);
    EXPECT_EQ(meaning(terms(SPT, 6, 5, "10.0.0.1"), source), NOTHING);
    EXPECT_EQ(meaning(terms(RPT, 0, 0, "10.0.0.1"), source), NOTHING);

    // One that could not forward itself gives way to any terms of the winner, but not to its AssertCancel.
    const Standing listens{SOURCE, State::Loser, false, true, infinite_metric(MCAST_FAMILY_IPV4), winner};

    EXPECT_EQ(meaning(terms(SPT, 900, 5, "10.0.0.9"), listens), STANDS);
    EXPECT_EQ(meaning(cancel, listens), GAVE_UP);

    const Standing star{
        STAR, State::Loser, true, true, terms(RPT, 10, 10, "10.0.0.5"), terms(RPT, 5, 5, "10.0.0.9")};

    EXPECT_EQ(meaning(terms(SPT, 1, 1, "10.0.0.9"), star), NOTHING);
    EXPECT_EQ(meaning(terms(RPT, 5, 5, "10.0.0.9"), star), STANDS);
    EXPECT_EQ(meaning(terms(RPT, 4, 5, "10.0.0.1"), star), PREFERRED);
    EXPECT_EQ(meaning(cancel, star), GAVE_UP);
}

TEST(PimClock, TheWinnerSpeaksBeforeTheLosersForgetIt)
{
    using Event = pimsmd::asserts::Event;
    Asserting winner(true);
    Asserting loser(true);

    winner.runner.take(Event::Data);
    EXPECT_EQ(winner.taken(), (Notes{"assert", "won"}));
    loser.own = pimsmd::asserts::infinite_metric(MCAST_FAMILY_IPV4);
    EXPECT_TRUE(loser.runner.heard(winner.own, false, true));
    EXPECT_EQ(loser.taken(), (Notes{"spt", "lost to 10.0.0.5"}));
    EXPECT_EQ(winner.pass(176999), Notes{});
    EXPECT_EQ(winner.pass(1), Notes{"assert"});
    loser.pass(177000);
    loser.runner.heard(winner.own, false, true);
    loser.taken();
    EXPECT_EQ(loser.pass(179999), Notes{});
    EXPECT_EQ(loser.pass(1), Notes{"nobody"});
    EXPECT_EQ(loser.queue.size(), 0u);
}

TEST(PimClock, AnAssertIsAnsweredOrFollowed)
{
    using Event = pimsmd::asserts::Event;
    Asserting one(true);

    EXPECT_FALSE(one.runner.heard(terms(true, 0, "10.0.0.9"), false, true));
    EXPECT_TRUE(one.runner.heard(terms(true, 0, "10.0.0.9"), true, true));
    EXPECT_EQ(one.taken(), (Notes{"assert", "won"}));
    one.pass(100000);
    one.runner.heard(terms(false, 11, "10.0.0.9"), true, true);
    EXPECT_EQ(one.pass(176999), Notes{"assert"}); // the wait began anew
    one.runner.heard(terms(false, 9, "10.0.0.1"), true, true);
    EXPECT_EQ(one.taken(), Notes{"lost to 10.0.0.1"});
    EXPECT_FALSE(one.runner.heard(terms(false, 9, "10.0.0.0"), true, true));
    one.runner.heard(terms(false, 8, "10.0.0.2"), true, true);
    EXPECT_EQ(one.taken(), Notes{"lost to 10.0.0.2"});
    one.runner.take(Event::JoinHeard);
    EXPECT_EQ(one.pass(200000), Notes{"nobody"});
    one.runner.take(Event::Data);
    one.runner.take(Event::CouldNotAssert);
    EXPECT_EQ(one.pass(200000), (Notes{"assert", "won", "cancel", "nobody"}));
}

TEST(PimClock, TheMachineOfAGroupLeavesSourcesAlone)
{
    Asserting one(false);
    one.own.rpt = true;
    EXPECT_FALSE(one.runner.heard(terms(false, 1, "10.0.0.9"), true, true));
    EXPECT_TRUE(one.runner.heard(terms(true, 11, "10.0.0.9"), true, true));
    EXPECT_TRUE(one.runner.heard(terms(true, 9, "10.0.0.9"), true, true));
    EXPECT_EQ(one.taken(), (Notes{"assert", "won", "lost to 10.0.0.9"}));
}
