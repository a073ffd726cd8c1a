#include "tests/daemons/pimsmd_bsr_lab.h"

using namespace pimsmd_test;

TEST(PimBsr, AListenerTakesAnyAndThenTheSameOrABetterOne)
{
    BsrLab lab;
    EXPECT_STREQ(lab.bsr.state_name(), "AcceptAny");
    EXPECT_EQ(lab.hear({"10.9.0.1", 5, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.1")}}}}), NO_DROP);
    EXPECT_EQ(lab.taken(), BsrLines{"forward 10.9.0.1"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.1");
    EXPECT_EQ(lab.hear({"10.9.0.9", 4, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.9")}}}}), NO_DROP);
    EXPECT_EQ(lab.hear({"10.9.0.1", 4, 2, {{"239.0.0.0/8", 1, {mapping("10.255.0.9")}}}}), NO_DROP);
    EXPECT_EQ(lab.taken(), BsrLines{});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.1");
    lab.hear({"10.9.0.2", 5, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.2")}}}});
    EXPECT_EQ(lab.taken(), BsrLines{"forward 10.9.0.2"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.2");
    lab.pass(129999);
    EXPECT_STREQ(lab.bsr.state_name(), "AcceptPreferred");
    lab.pass(1);
    EXPECT_STREQ(lab.bsr.state_name(), "AcceptAny");
    EXPECT_FALSE(lab.bsr.elected());
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.2"); // until its holdtime
    lab.hear({"10.9.0.1", 0, 3, {}});
    EXPECT_EQ(pimsmd::to_text(lab.bsr.elected()->address), "10.9.0.1");
}

TEST(PimBsr, OnlyTheWayToTheBsrBringsBootstraps)
{
    BsrLab lab;
    const HeardBootstrap heard("10.9.0.1", 5, 1, {});
    EXPECT_EQ(lab.hear(heard, "10.0.0.3"), Count::BootstrapRpf);
    EXPECT_EQ(lab.hear(heard, "10.0.0.4"), Count::BootstrapSender);
    EXPECT_EQ(lab.bsr.bootstrap(1, addr("10.0.0.2"), false, heard.message), Count::BootstrapSender);
    EXPECT_EQ(lab.hear({"10.0.0.1", 5, 1, {}}), Count::BootstrapOwn);
    EXPECT_FALSE(lab.bsr.elected());
    EXPECT_EQ(lab.taken(), BsrLines{});
    EXPECT_EQ(lab.hear({"10.0.0.2", 5, 1, {}}), NO_DROP);
    HeardBootstrap::zone = true;
    const HeardBootstrap of_zone("10.9.0.1", 5, 1, {{"239.0.0.0/8", 0, {}}});
    HeardBootstrap::zone = false;
    EXPECT_EQ(lab.hear(of_zone), Count::BootstrapZone);
}

TEST(PimBsr, MessagesForRoutersThatJustStartedCountForThoseAlone)
{
    BsrLab lab;
    const HeardBootstrap no_forward("10.9.0.1", 5, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.1")}}}, true);
    const HeardBootstrap usual("10.9.0.1", 5, 1, {});
    EXPECT_EQ(lab.hear(no_forward, "10.0.0.3"), NO_DROP); // whoever sends it
    EXPECT_EQ(lab.taken(), BsrLines{});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.1");
    EXPECT_EQ(lab.hear(no_forward), Count::BootstrapLate);
    EXPECT_EQ(lab.hear(usual, "10.0.0.3", true), Count::BootstrapLate);

    BsrLab unicast;
    unicast.pass(60000);
    EXPECT_EQ(unicast.hear(usual, "10.0.0.3", true), NO_DROP);
    EXPECT_EQ(unicast.taken(), BsrLines{});
    BsrLab late;
    late.pass(60001);
    EXPECT_EQ(late.hear(usual, "10.0.0.3", true), Count::BootstrapLate);
}

TEST(PimBsr, RangesAreLearntWhenAllTheirPiecesCame)
{
    BsrLab lab;
    lab.hear({"10.9.0.1", 5, 7, {{"239.0.0.0/8", 3, {mapping("10.255.0.1"), mapping("10.255.0.2")}}}});
    lab.hear({"10.9.0.1", 5, 7, {{"239.0.0.0/8", 3, {mapping("10.255.0.2")}}}}); // again
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "none");
    lab.hear({"10.9.0.1",
              5,
              7,
              {{"239.0.0.0/8", 3, {mapping("10.255.0.3")}}, {"238.0.0.0/8", 2, {mapping("10.255.0.4")}}}});
    EXPECT_EQ(lab.set.learnt().rps(), 3u);
    EXPECT_EQ(lab.rp_of("238.1.1.1"), "none");
    lab.hear({"10.9.0.1", 5, 8, {{"238.0.0.0/8", 2, {mapping("10.255.0.5")}}}});
    EXPECT_EQ(lab.counters[Count::BootstrapIncomplete], 1u);
    EXPECT_EQ(lab.rp_of("238.1.1.1"), "none"); // pieces of two Bootstraps
    EXPECT_EQ(lab.set.learnt().rps(), 3u);
    lab.hear({"10.9.0.1", 5, 9, {{"239.0.0.0/8", 0, {}}}});
    EXPECT_EQ(lab.set.learnt().rps(), 0u);
}

TEST(PimBsr, PiecesThatNeverCompleteHaveALimit)
{
    pimsmd::Counters counters;
    pimsmd::BsrFragments fragments(counters, 3);
    unsigned complete = 0;
    const auto count = [&](const Prefix & /*range*/, std::span<const BootstrapRp> /*rps*/) { ++complete; };
    fragments.take(
        HeardBootstrap("10.9.0.1", 5, 7, {{"239.0.0.0/8", 9, {mapping("10.0.0.1"), mapping("10.0.0.2")}}})
            .message,
        count);
    fragments.take(
        HeardBootstrap("10.9.0.1", 5, 7, {{"238.0.0.0/8", 9, {mapping("10.0.0.1"), mapping("10.0.0.2")}}})
            .message,
        count);
    EXPECT_EQ(fragments.kept(), 2u);
    EXPECT_EQ(counters[Count::BootstrapKept], 1u);
    fragments.take(HeardBootstrap("10.9.0.1", 5, 7, {{"238.0.0.0/8", 1, {mapping("10.0.0.1")}}}).message,
                   count);
    EXPECT_EQ(complete, 1u);
    fragments.take(HeardBootstrap("10.9.0.2", 5, 7, {}).message, count);
    EXPECT_EQ(fragments.kept(), 0u);
    EXPECT_EQ(counters[Count::BootstrapIncomplete], 1u);
}

TEST(PimBsr, ACandidateAloneIsElectedAndTellsEveryMinute)
{
    BsrLab lab(candidate(9));
    lab.pass(ALONE_MS - 1);
    EXPECT_STREQ(lab.bsr.state_name(), "Pending");
    lab.pass(1);
    EXPECT_TRUE(lab.bsr.is_elected());
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9"});
    lab.pass(59999);
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9"});
    EXPECT_NE(lab.tags[0], lab.tags[1]);
    EXPECT_EQ(lab.hear({"10.9.0.1", 8, 1, {}}), NO_DROP); // is told who is better
    EXPECT_EQ(lab.hear({"10.9.0.1", 8, 1, {}}), NO_DROP);
    lab.pass(9999);
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9"});
    lab.bsr.neighbour_up(0, addr("10.0.0.3"));
    EXPECT_EQ(lab.taken(), BsrLines{"tell 10.0.0.3 10.0.0.1 9"});
    lab.hear({"10.9.0.1", 9, 1, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    EXPECT_EQ(lab.taken(), BsrLines{"forward 10.9.0.1"});
    lab.bsr.neighbour_up(0, addr("10.0.0.3"));
    EXPECT_EQ(lab.taken(), BsrLines{"tell 10.0.0.3 10.9.0.1 9"}); // of another one what is known
}

TEST(PimBsr, ACandidateTakesOverWhenTheElectedOneIsSilentOrGivesUp)
{
    BsrLab lab(candidate(9));
    lab.hear({"10.9.0.1", 9, 1, {}});
    lab.pass(129999);
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    lab.pass(1);
    EXPECT_STREQ(lab.bsr.state_name(), "Pending");
    lab.hear({"10.9.0.1", 9, 2, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    lab.hear({"10.9.0.2", 8, 3, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    lab.hear({"10.9.0.1", 8, 3, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Pending");
    lab.pass(7000);
    EXPECT_TRUE(lab.bsr.is_elected());
}
