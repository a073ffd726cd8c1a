/*
 * The sets of RFC 7761 twice: by words of bits as the daemon has them, and interface by interface.
 */
#include <gtest/gtest.h>
#include <optional>

#include "daemons/pimsmd/olist.h"
#include "tests/daemons/pimsmd_naive_sets.h"
#include "tests/support/property.h"

using pimsmd::LinkRoles;
using pimsmd::Links;
using pimsmd::SourceState;
using pimsmd::SourceView;
using pimsmd::StarState;

namespace
{

using namespace pimsmd_test;

// The words that the daemon keeps of it.
struct Kept {
    StarState star;
    SourceState source;
    LinkRoles roles;
};

Kept kept(const Model &m)
{
    Kept made;
    const auto where = [&](auto holds) { return bits(m.all([&](int i) { return holds(m.at(i)); })); };
    made.roles.dr = where([](const Interface &on) { return on.dr; });
    made.star.joins = bits(m.joins_star());
    made.star.receivers = where([](const Interface &on) { return on.wants_star; });
    made.star.lost = where([](const Interface &on) { return on.star_winner == Winner::Other; });
    made.star.won = where([](const Interface &on) { return on.star_winner == Winner::Me; });
    made.star.rpf = m.rpf_rp ? Links{1} << *m.rpf_rp : 0;
    made.source.joins = bits(m.joins_source());
    made.source.receivers = where([](const Interface &on) { return on.wants_source; });
    made.source.excluded = where([](const Interface &on) { return on.excludes_source; });
    made.source.rpt_prunes = bits(m.prunes());
    made.source.lost = where([](const Interface &on) { return on.source_winner == Winner::Other; });
    made.source.lost_to_better = where([](const Interface &on) { return on.winner_better; });
    made.source.won = where([](const Interface &on) { return on.source_winner == Winner::Me; });
    made.source.rpf = m.rpf_source ? Links{1} << *m.rpf_source : 0;
    made.source.spt_bit = m.spt_bit;
    made.source.keepalive = m.keepalive;
    made.source.connected = m.connected;
    return made;
}

void expect_equal(const Model &m)
{
    const Kept now = kept(m);
    const SourceView source(now.star, now.source, now.roles);
    ASSERT_EQ(immediate_olist(now.star, now.roles), bits(immediate_star(m)));
    ASSERT_EQ(join_desired(now.star, now.roles), join_desired_star(m));
    ASSERT_EQ(could_assert(now.star, now.roles), bits(could_assert_star(m)));
    ASSERT_EQ(tracks_assert(now.star, now.roles), bits(tracks_star(m)));
    ASSERT_EQ(source.immediate_olist(), bits(immediate_source(m)));
    ASSERT_EQ(source.inherited_olist_rpt(), bits(inherited_rpt(m)));
    ASSERT_EQ(source.inherited_olist(), bits(inherited_source(m)));
    ASSERT_EQ(source.join_desired(), join_desired_source(m));
    ASSERT_EQ(source.prune_desired_rpt(true), prune_desired(m, true));
    ASSERT_EQ(source.prune_desired_rpt(false), prune_desired(m, false));
    ASSERT_EQ(source.could_assert(), bits(could_assert_source(m)));
    ASSERT_EQ(source.tracks_assert(), bits(tracks_source(m)));
    ASSERT_EQ(source.could_register(), could_register(m));
}

std::optional<int> some_link(property::Random &random)
{
    return random.OneIn(6) ? std::nullopt : std::optional(static_cast<int>(random.Below(pimsmd::MOST_LINKS)));
}

// Changes one thing.
void change(Model &m, property::Random &random)
{
    // Of a few links most of the time, so that what concerns one meets on it.
    Interface &on = m.on[random.OneIn(4) ? random.Below(pimsmd::MOST_LINKS) : random.Below(3)];
    switch (random.Below(15)) {
    case 0:
        on.dr = !on.dr;
        break;
    case 1:
        on.wants_star = !on.wants_star;
        break;
    case 2:
        on.wants_source = !on.wants_source;
        break;
    case 3:
        on.excludes_source = !on.excludes_source;
        break;
    case 4:
        on.star = static_cast<Downstream>(random.Below(3));
        break;
    case 5:
        on.source = static_cast<Downstream>(random.Below(3));
        break;
    case 6:
        on.rpt = static_cast<Rpt>(random.Below(5));
        break;
    case 7:
        on.star_winner = static_cast<Winner>(random.Below(3));
        break;
    case 8:
        on.source_winner = static_cast<Winner>(random.Below(3));
        on.winner_better = on.source_winner == Winner::Other && random.OneIn(2);
        break;
    case 9:
        m.rpf_rp = random.OneIn(2) ? some_link(random) : std::optional(0);
        break;
    case 10:
        m.rpf_source = random.OneIn(2) ? some_link(random) : std::optional(1);
        break;
    case 11:
        m.spt_bit = !m.spt_bit;
        break;
    case 12:
        m.keepalive = !m.keepalive;
        break;
    case 13:
        m.connected = !m.connected;
        break;
    default:
        on = {};
    }
}

} // namespace

TEST(PimOlist, RandomChangesLeadToTheSetsOfTheRfc)
{
    property::Random random(property::Seed("olist"));
    Model model;
    for (uint64_t step = 0; step < property::Operations(3000); ++step) {
        if (step % 100 == 0) {
            model = {};
        }
        change(model, random);
        expect_equal(model);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST(PimOlist, HostsCountWhereThisRouterAnswersForThem)
{
    StarState star;
    star.receivers = 0b0111;
    star.lost = 0b0010;
    star.won = 0b0100;
    EXPECT_EQ(immediate_olist(star, {0b0011}), 0b0101u);
    star.lost = 0b0011;
    EXPECT_EQ(immediate_olist(star, {0b0011}), 0b0100u);
}

TEST(PimOlist, ASourceIsJoinedForTheSharedTreesOutputsWhileItSends)
{
    StarState star;
    SourceState source;
    star.joins = 0b0010;
    EXPECT_FALSE(SourceView(star, source, {}).join_desired());
    source.keepalive = true;
    EXPECT_TRUE(SourceView(star, source, {}).join_desired());
    source.rpt_prunes = 0b0010;
    EXPECT_FALSE(SourceView(star, source, {}).join_desired());
    EXPECT_TRUE(SourceView(star, source, {}).prune_desired_rpt(true));
}
