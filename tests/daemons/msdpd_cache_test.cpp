#include <gtest/gtest.h>

#include "tests/daemons/msdpd_lab.h"

using namespace msdpd;
using namespace msdpd_test;

namespace
{

// A cache alone; time is the lab's.
class MsdpdCache : public testing::Test
{
protected:
    SaCache::Learned learn(const Pair &pair, unsigned peer = 1, unsigned rp = 1, uint32_t state_s = 150)
    {
        return lab.speaker->cache.learn(pair, peer_address(rp), peer_address(peer), state_s, &entry);
    }

    Lab lab;
    SaCache &cache = lab.speaker->cache;
    SaEntry *entry = nullptr;
};

} // namespace

TEST_F(MsdpdCache, EntriesComeAndAreRefreshed)
{
    EXPECT_EQ(learn(pair(1, 1)), SaCache::Learned::New);
    EXPECT_EQ(entry->pair(), pair(1, 1));
    EXPECT_EQ(learn(pair(1, 1)), SaCache::Learned::Refreshed);
    EXPECT_EQ(learn(pair(1, 2)), SaCache::Learned::New);
    EXPECT_EQ(cache.size(), 2u);
    EXPECT_EQ(lab.told(), "+1>1 +1>2");
}

TEST_F(MsdpdCache, AnotherOriginatorOrPeerTakesAnEntryOver)
{
    learn(pair(1, 1), 1, 1);
    EXPECT_EQ(learn(pair(1, 1), 1, 2), SaCache::Learned::Moved);
    EXPECT_EQ(cache.peers().of(peer_address(1)), 1u);
    EXPECT_EQ(learn(pair(1, 1), 2, 2), SaCache::Learned::Moved);
    EXPECT_EQ(cache.peers().of(peer_address(1)), 0u);
    EXPECT_EQ(cache.peers().of(peer_address(2)), 1u);
    EXPECT_EQ(cache.size(), 1u);
    EXPECT_EQ(lab.told(), "+1>1");
}

TEST_F(MsdpdCache, EntriesThatAreNotRefreshedExpire)
{
    learn(pair(1, 1));
    learn(pair(2, 1));
    lab.pass(149);
    EXPECT_EQ(lab.cache(), "1>1 2>1");
    learn(pair(2, 1));
    lab.pass(1);
    EXPECT_EQ(lab.cache(), "2>1");
    EXPECT_EQ(lab.told(), "+1>1 +2>1 -1>1");
    lab.pass(149);
    EXPECT_EQ(cache.size(), 0u);
    EXPECT_EQ(cache.peers().of(peer_address(1)), 0u);
}

TEST_F(MsdpdCache, AnEntryIsFoundAsLongAsItIsThere)
{
    learn(pair(1, 1), 1, 1, 10);
    EXPECT_EQ(cache.find(pair(1, 1)), entry);
    EXPECT_EQ(cache.find(pair(1, 2)), nullptr);
    EXPECT_EQ(cache.find(pair(2, 1)), nullptr);
    lab.pass(10);
    EXPECT_EQ(cache.find(pair(1, 1)), nullptr);
}

TEST_F(MsdpdCache, ManyAreRemovedByACondition)
{
    for (unsigned group = 1; group <= 20; ++group) {
        for (unsigned source = 1; source <= 20; ++source) {
            learn(pair(source, group), source % 3);
        }
    }
    EXPECT_EQ(cache.remove_if([](const SaEntry &one) { return one.peer == peer_address(1); }), 140u);
    EXPECT_EQ(cache.size(), 260u);
    EXPECT_EQ(cache.peers().of(peer_address(1)), 0u);
    EXPECT_EQ(cache.peers().of(peer_address(2)), 140u);
    EXPECT_EQ(cache.remove_if([](const SaEntry &) { return true; }), 260u);
    EXPECT_EQ(cache.size(), 0u);
}

TEST_F(MsdpdCache, AGroupIsForgottenAtOnce)
{
    learn(pair(1, 1));
    learn(pair(1, 2));
    learn(pair(2, 2), 2, 2);
    lab.told();
    EXPECT_EQ(cache.forget(pair(0, 2).group), 2u);
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_EQ(lab.told(), "-all>2");
    EXPECT_EQ(cache.peers().of(peer_address(2)), 0u);
    EXPECT_EQ(cache.originators().of(peer_address(1)), 1u);
    EXPECT_EQ(cache.forget(pair(0, 2).group), 0u);
    EXPECT_EQ(lab.told(), "") << "nothing was there";
    EXPECT_EQ(learn(pair(1, 2)), SaCache::Learned::New);
    lab.pass(150);
    EXPECT_EQ(cache.size(), 0u);
}

TEST_F(MsdpdCache, EverythingIsForgottenAtOnce)
{
    for (unsigned group = 1; group <= 20; ++group) {
        for (unsigned source = 1; source <= 20; ++source) {
            learn(pair(source, group), source % 3);
        }
    }
    lab.told();
    EXPECT_EQ(cache.forget(Ipv4{}), 400u);
    EXPECT_EQ(cache.size(), 0u);
    EXPECT_EQ(lab.told(), "-all");
    EXPECT_EQ(cache.peers().of(peer_address(1)), 0u);
    EXPECT_EQ(cache.forget(Ipv4{}), 0u);
    lab.pass(150);
    EXPECT_EQ(lab.told(), "") << "no timer of a forgotten entry is left";
}

TEST_F(MsdpdCache, OriginatorsAreCountedInTheirOrder)
{
    std::string seen;
    const auto visit = [&](unsigned first, unsigned most) {
        seen.clear();
        cache.originators().visit(peer_address(first), [&](Ipv4 originator, uint32_t count) {
            append(&seen, std::to_string(originator.number & 0xff) + "*" + std::to_string(count));
            return --most > 0;
        });
        return seen;
    };
    EXPECT_EQ(visit(0, 9), "");
    for (unsigned rp = 9; rp > 0; --rp) {
        learn(pair(rp, 1), 1, rp);
    }
    learn(pair(1, 2), 1, 4);
    EXPECT_EQ(visit(0, 99), "1*1 2*1 3*1 4*2 5*1 6*1 7*1 8*1 9*1");
    EXPECT_EQ(visit(3, 2), "3*1 4*2");
    learn(pair(5, 1), 1, 4); // has another originator now
    cache.remove_if([](const SaEntry &one) { return one.rp == peer_address(2); });
    EXPECT_EQ(visit(2, 99), "3*1 4*3 6*1 7*1 8*1 9*1");
    EXPECT_EQ(visit(10, 9), "");
}

TEST_F(MsdpdCache, AVisitGoesOnWhereItWasStoppedAndMissesNothingThatStays)
{
    SaCache::Cursor cursor;
    std::string seen;
    bool complete = false;

    for (unsigned group = 1; group <= 3; ++group) {
        for (unsigned source = 1; source <= 3; ++source) {
            learn(pair(source, group));
        }
    }
    for (int round = 0; !complete; ++round) {
        unsigned taken = 0;

        complete = cache.visit(&cursor, [&](const SaEntry &one) {
            if (taken == 2) {
                return false;
            }
            ++taken;
            append(&seen, text(one.pair()));
            return true;
        });
        if (round == 0) { // at 3>1, the next one
            cache.remove_if(
                [](const SaEntry &one) { return one.pair() == pair(3, 1) || one.pair() == pair(1, 2); });
        }
    }
    EXPECT_EQ(seen, "1>1 2>1 2>2 3>2 1>3 2>3 3>3");
}

TEST_F(MsdpdCache, AVisitOfAGroupSeesIt)
{
    std::string seen;
    learn(pair(1, 1));
    learn(pair(2, 2));
    learn(pair(1, 2));
    learn(pair(1, 3));
    cache.visit_group(pair(0, 2).group, [&seen](const SaEntry &one) {
        append(&seen, text(one.pair()));
        return true;
    });
    EXPECT_EQ(seen, "1>2 2>2");
}
