#include "tests/daemons/pimsmd_bsr_lab.h"

using namespace pimsmd_test;

TEST(PimBsr, CandidateRpsAreToldAtOnceButNotOftenerThanEveryTenSeconds)
{
    BsrLab lab(candidate(9));
    EXPECT_EQ(lab.offer("10.255.0.1"), Count::CandidateNotBsr);
    lab.pass(ALONE_MS);
    lab.taken();
    EXPECT_EQ(lab.offer("10.255.0.1", 100), NO_DROP);
    lab.offer("10.255.0.2", 150);
    lab.pass(9999);
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9 224.0.0.0/4=2 10.255.0.1 10.255.0.2"});
    EXPECT_EQ(lab.set.learnt().rps(), 2u); // it learns from itself
    lab.offer("10.255.0.1", 100);          // nothing new
    lab.pass(59999);
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9 224.0.0.0/4=2 10.255.0.1 10.255.0.2"});
    lab.pass(39999);
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.pass(1); // the first one's holdtime
    lab.queue.run_due(SIZE_MAX);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9 224.0.0.0/4=1 10.255.0.2"});
    lab.pass(10000);
    lab.offer("10.255.0.2", 0); // says goodbye
    lab.pass(0);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9 224.0.0.0/4=0"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "none");
    lab.pass(60000);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9"});
}

TEST(PimBsr, ACandidateRpTellsTheBsrEveryMinute)
{
    BsrSettings settings;
    settings.rp = addr("10.0.0.1");
    settings.rp_ranges = {{Prefix::parse("239.0.0.0/8").value()}};
    BsrLab lab(settings);
    lab.pass(10000);
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.hear({"10.9.0.1", 5, 1, {}});
    EXPECT_EQ(lab.taken(), BsrLines{"forward 10.9.0.1"});
    lab.pass(1500); // half of three seconds, by the draw
    EXPECT_EQ(lab.taken(), BsrLines{"candidate to 10.9.0.1 10.0.0.1 1"});
    lab.pass(59999);
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), BsrLines{"candidate to 10.9.0.1 10.0.0.1 1"});
    lab.hear({"10.9.0.2", 5, 1, {}});
    lab.taken();
    lab.pass(1500);
    EXPECT_EQ(lab.taken(), BsrLines{"candidate to 10.9.0.2 10.0.0.1 1"});
}

TEST(PimBsr, ACandidateRpTellsTheBsrTwiceWithinAShortHoldtime)
{
    BsrSettings settings;
    settings.rp = addr("10.0.0.1");
    settings.rp_holdtime_s = 3;
    BsrLab lab(settings);
    lab.hear({"10.9.0.1", 5, 1, {}});
    lab.pass(1500);
    lab.taken();
    lab.pass(1199);
    EXPECT_EQ(lab.taken(), BsrLines{});
    for (int i = 0; i < 3; ++i) {
        lab.pass(i == 0 ? 1 : 1200);
        EXPECT_EQ(lab.taken(), BsrLines{"candidate to 10.9.0.1 10.0.0.1 0"}) << i;
    }
}

TEST(PimBsr, TheElectedOneIsItsOwnCandidateRp)
{
    BsrSettings settings = candidate(9);
    settings.rp = addr("10.0.0.1");
    BsrLab lab(settings);
    lab.pass(ALONE_MS);
    lab.pass(0);
    lab.taken();
    lab.pass(10000);
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 9 224.0.0.0/4=1 10.0.0.1"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.0.0.1");
}

namespace
{

BsrSettings candidate_rp(std::initializer_list<const char *> ranges)
{
    BsrSettings settings;
    settings.rp = addr("10.0.0.1");
    for (const char *range : ranges) {
        settings.rp_ranges.push_back({Prefix::parse(range).value()});
    }
    return settings;
}

} // namespace

TEST(PimBsr, ACandidateRpSaysGoodbyeToTheBsr)
{
    BsrLab lab(candidate_rp({"239.0.0.0/8", "238.0.0.0/8"}));
    lab.bsr.close(); // nobody to tell
    EXPECT_EQ(lab.taken(), BsrLines{});
    lab.hear({"10.9.0.1", 5, 1, {}});
    lab.pass(1500);
    lab.taken();
    lab.bsr.close();
    EXPECT_EQ(lab.taken(), BsrLines{"candidate to 10.9.0.1 10.0.0.1 2 goodbye"});
    lab.pass(60000);
    EXPECT_EQ(lab.taken(), BsrLines{});
}

TEST(PimBsr, WhatACandidateRpServesNoLongerIsToldAtOnce)
{
    BsrLab lab(candidate_rp({"239.0.0.0/8", "238.0.0.0/8"}));
    lab.hear({"10.9.0.1", 5, 1, {}});
    lab.pass(1500);
    lab.taken();
    lab.bsr.set_candidate_rp(candidate_rp({"239.0.0.0/8", "237.0.0.0/8"}));
    lab.pass(0);
    EXPECT_EQ(lab.taken(),
              (BsrLines{"candidate to 10.9.0.1 10.0.0.1 1 goodbye", "candidate to 10.9.0.1 10.0.0.1 2"}));
    BsrSettings other = candidate_rp({"239.0.0.0/8"});
    other.rp = addr("10.0.9.1");
    lab.bsr.set_candidate_rp(other);
    lab.pass(0);
    EXPECT_EQ(lab.taken(),
              (BsrLines{"candidate to 10.9.0.1 10.0.0.1 2 goodbye", "candidate to 10.9.0.1 10.0.9.1 1"}));
    lab.bsr.set_candidate_rp({});
    lab.pass(60000);
    EXPECT_EQ(lab.taken(), BsrLines{"candidate to 10.9.0.1 10.0.9.1 1 goodbye"});
}

TEST(PimBsr, AnElectedOneThatEndsTellsThatItServesNothingAndGivesUp)
{
    BsrSettings settings = candidate(9);
    settings.rp = addr("10.0.0.1");
    settings.rp_ranges = {{Prefix::parse("239.0.0.0/8").value()}};
    BsrLab lab(settings);
    lab.pass(ALONE_MS);
    lab.pass(10000);
    lab.offer("10.255.0.2");
    lab.pass(10000);
    lab.taken();
    lab.bsr.close();
    EXPECT_EQ(lab.taken(), BsrLines{"send 10.0.0.1 0 224.0.0.0/4=1 10.255.0.2 239.0.0.0/8=0"});
}

TEST(PimBsr, AFloodOfBootstrapsIsHandedOnInPart)
{
    BsrLab lab;
    for (unsigned i = 0; i < pimsmd::BOOTSTRAPS_AT_ONCE; ++i) {
        ASSERT_EQ(lab.hear({"10.9.0.1", 5, 1, {}}), NO_DROP) << i;
    }
    EXPECT_EQ(lab.hear({"10.9.0.1", 5, 1, {}}), Count::BootstrapRate);
    EXPECT_EQ(lab.hear({"10.9.0.1", 5, 1, {}}, "10.0.0.3"), Count::BootstrapRpf); // costs nobody a turn
    lab.pass(31);
    EXPECT_EQ(lab.hear({"10.9.0.1", 5, 1, {}}), Count::BootstrapRate);
    lab.pass(1);
    EXPECT_EQ(lab.hear({"10.9.0.1", 5, 1, {}}), NO_DROP);
    lab.pass(1000);
    for (unsigned i = 0; i < pimsmd::BOOTSTRAPS_PER_S; ++i) {
        ASSERT_EQ(lab.hear({"10.9.0.1", 5, 1, {}}), NO_DROP) << i;
    }
    EXPECT_EQ(lab.hear({"10.9.0.1", 5, 1, {}}), Count::BootstrapRate);
    EXPECT_EQ(lab.taken().size(), pimsmd::BOOTSTRAPS_AT_ONCE + 1 + pimsmd::BOOTSTRAPS_PER_S);
}
