/*
 * Registers through the trees, at the router that sends them and at the RP.
 */
#include <gtest/gtest.h>

#include "daemons/common/log.h"
#include "tests/daemons/pimsmd_tree_lab.h"

using namespace pimsmd_test;
using pimsmd::Tree;
using pimsmd::TreeSettings;

namespace
{

using Sent = std::vector<std::string>;

const Address GROUP = addr("239.1.1.1");
const Address OTHER_GROUP = addr("239.1.1.2");
const Address SOURCE = addr("192.0.2.1");
const Address ANY = addr("0.0.0.0");
const Address SENDER = addr("10.9.9.9");
const Address OTHER_RP = addr("10.255.0.2");

// The designated router of link 0, on which the source is; the RP is behind link 1.
struct FirstHop {
    explicit FirstHop(const TreeSettings &settings = {}) : lab(settings)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
        lab.routes[address_text(SOURCE)] = {0, ANY, 0, 0, true};
        lab.routes[address_text(TreeLab::rp())] = {1, TreeLab::neighbour(1, 0), 10, 10, false};
        lab.routes[address_text(OTHER_RP)] = lab.routes[address_text(TreeLab::rp())];
        lab.trees.set_dr(0, true);
    }

    void packet(const Address &group = GROUP)
    {
        lab.trees.packet(0, group, SOURCE);
        lab.trees.settle();
    }
    void stop(const Address &sender, const Address &group, const Address &source)
    {
        lab.trees.register_stop_heard(sender, {group, source});
        lab.trees.settle();
    }
    // The RP to which Registers go, "-" when none do.
    std::string tunnel(const Address &group = GROUP)
    {
        const pimsmd::SourceEntry *entry = lab.trees.find(group, SOURCE);
        const std::optional<Address> rp = entry != nullptr ? entry->registers_to() : std::nullopt;
        return rp ? address_text(*rp) : "-";
    }

    TreeLab lab;
};

// The RP itself; the source is behind link 0, routers downstream on link 2.
struct RendezvousPoint {
    explicit RendezvousPoint(const TreeSettings &settings = {}) : lab(settings)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
        lab.is_rp = true;
        lab.switches = true;
        lab.routes[address_text(SOURCE)] = {0, TreeLab::neighbour(0, 0), 10, 10, false};
        lab.routes[address_text(TreeLab::rp())] = {pimsmd::NO_LINK, ANY, 0, 0, false};
    }

    bool hear(bool null = false, const Address &source = SOURCE, const Address &sender = SENDER,
              const Address &to = TreeLab::rp())
    {
        const bool forward = lab.trees.register_heard({sender, to}, {false, null, source, GROUP, {}});
        lab.trees.settle();
        return forward;
    }
    void join()
    {
        const TreeLab::Group record{GROUP, {{TreeLab::rp(), Tree::Star}}, {}};
        lab.hear(2, TreeLab::neighbour(2, 0), TreeLab::own(2), 210, {record});
        lab.trees.settle();
    }

    TreeLab lab;
};

const std::string STOP = "stop 10.255.0.1 10.9.9.9 239.1.1.1 192.0.2.1";
const std::string JOIN = "join 0 10.0.0.10 239.1.1.1 192.0.2.1";

} // namespace

TEST(PimRegister, PacketsGoToTheRpUntilItSaysStopAndItIsAskedBeforeThatEnds)
{
    FirstHop router;
    EXPECT_EQ(router.tunnel(), "-");
    router.packet();
    EXPECT_EQ(router.tunnel(), "10.255.0.1");
    router.lab.changes.clear();
    router.stop(TreeLab::rp(), GROUP, SOURCE);
    EXPECT_EQ(router.tunnel(), "-");
    EXPECT_EQ(router.lab.changes.size(), 1u);
    router.lab.pass(54999); // a minute, as it is drawn here, without the probe
    EXPECT_EQ(router.lab.taken(), Sent{});
    router.lab.pass(1);
    EXPECT_EQ(router.lab.taken(), Sent{"null 10.255.0.1 239.1.1.1 192.0.2.1"});
    router.stop(TreeLab::rp(), GROUP, SOURCE);
    router.lab.pass(55000);
    EXPECT_EQ(router.lab.taken(), Sent{"null 10.255.0.1 239.1.1.1 192.0.2.1"});
    router.lab.pass(4999);
    EXPECT_EQ(router.tunnel(), "-");
    router.lab.changes.clear();
    router.lab.pass(1);
    EXPECT_EQ(router.tunnel(), "10.255.0.1");
    EXPECT_EQ(router.lab.changes.size(), 1u);
}

TEST(PimRegister, ASilentSourceAndALostElectionEndIt)
{
    FirstHop router;
    router.packet();
    router.lab.trees.set_dr(0, false);
    router.lab.trees.settle();
    EXPECT_EQ(router.tunnel(), "-");
    router.lab.trees.set_dr(0, true);
    router.lab.trees.settle();
    EXPECT_EQ(router.tunnel(), "10.255.0.1");
    router.stop(TreeLab::rp(), GROUP, SOURCE);
    router.lab.pass(50000);
    router.packet();
    router.lab.pass(209999);
    EXPECT_NE(router.lab.trees.entries(), 0u);
    router.lab.pass(1);
    EXPECT_EQ(router.lab.trees.entries(), 0u);
    EXPECT_EQ(router.lab.queue.size(), 0u);
}

TEST(PimRegister, AnotherRpGetsThemAtOnce)
{
    FirstHop router;
    router.packet();
    router.stop(TreeLab::rp(), GROUP, SOURCE);
    router.lab.trees.set_excluded(2, GROUP, SOURCE,
                                  true); // the source settles before the group that has its RP
    router.lab.rp_now = OTHER_RP;
    router.lab.trees.routes_changed();
    router.lab.trees.settle();
    EXPECT_EQ(router.tunnel(), "10.255.0.2");
    router.lab.rp_known = false;
    router.lab.trees.routes_changed();
    router.lab.trees.settle();
    EXPECT_EQ(router.tunnel(), "-");
    router.lab.rp_known = true;
    router.lab.trees.routes_changed();
    router.lab.trees.settle();
    EXPECT_EQ(router.tunnel(), "10.255.0.2");
}

TEST(PimRegister, OnlyTheRpStopsThemAndMayStopAllSourcesOfAGroup)
{
    FirstHop router;
    router.packet();
    router.packet(OTHER_GROUP);
    router.stop(OTHER_RP, GROUP, SOURCE);
    router.stop(TreeLab::rp(), addr("239.1.1.3"), SOURCE);
    router.stop(TreeLab::rp(), GROUP, addr("192.0.2.2"));
    EXPECT_EQ(router.tunnel(), "10.255.0.1");
    EXPECT_EQ(router.lab.counters[Count::OtherStop], 3u);
    router.stop(TreeLab::rp(), GROUP, ANY);
    EXPECT_EQ(router.tunnel(), "-");
    EXPECT_EQ(router.tunnel(OTHER_GROUP), "10.255.0.1");
    EXPECT_EQ(router.lab.counters[Count::OtherStop], 3u);
}

TEST(PimRegister, RateIsSavedUpForASecondAndNoMore)
{
    pimsmd::RateLimit rate(2);
    EXPECT_TRUE(rate.take(1000));
    EXPECT_TRUE(rate.take(1000));
    EXPECT_FALSE(rate.take(1000));
    EXPECT_FALSE(rate.take(1499));
    EXPECT_TRUE(rate.take(1500));
    EXPECT_FALSE(rate.take(1500));
    EXPECT_TRUE(rate.take(101500));
    EXPECT_TRUE(rate.take(101500));
    EXPECT_FALSE(rate.take(101500));
}

TEST(PimRegister, ARouterSendsItselfNone)
{
    FirstHop router;
    router.lab.is_rp = true;
    router.lab.routes[address_text(TreeLab::rp())] = {pimsmd::NO_LINK, ANY, 0, 0, false};
    router.packet();
    EXPECT_EQ(router.tunnel(), "-");
    const TreeLab::Group record{GROUP, {{TreeLab::rp(), Tree::Star}}, {}};
    router.lab.hear(2, TreeLab::neighbour(2, 0), TreeLab::own(2), 210, {record});
    router.packet();
    EXPECT_EQ(router.lab.trees.find(GROUP, SOURCE)->view().inherited_olist(), 0b00100u);
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
}

TEST(PimRegister, ASourceThatNobodyWantsIsStoppedAndRemembered)
{
    RendezvousPoint rp;
    EXPECT_TRUE(rp.hear()); // there are no outputs to which it could go
    EXPECT_EQ(rp.lab.taken(), Sent{STOP});
    rp.lab.pass(184999);
    EXPECT_EQ(rp.lab.trees.entries(), 2u);
    EXPECT_FALSE(rp.hear(true));
    EXPECT_EQ(rp.lab.taken(), Sent{STOP});
    rp.join();
    EXPECT_EQ(rp.lab.taken(), Sent{JOIN});
    rp.lab.pass(184999);
    EXPECT_NE(rp.lab.trees.find(GROUP, SOURCE), nullptr);
    rp.lab.pass(1);
    EXPECT_EQ(rp.lab.trees.find(GROUP, SOURCE), nullptr);
    rp.lab.pass(210000);
    EXPECT_EQ(rp.lab.trees.entries(), 0u);
}

TEST(PimRegister, PacketsGoDownTheSharedTreeUntilTheyComeOverTheSources)
{
    RendezvousPoint rp;
    rp.join();
    EXPECT_TRUE(rp.hear());
    EXPECT_EQ(rp.lab.taken(), Sent{JOIN});
    rp.lab.pass(10000);
    EXPECT_FALSE(rp.hear(true)); // nothing in it that could
    EXPECT_EQ(rp.lab.taken(), Sent{});
    EXPECT_EQ(rp.lab.queue.remaining_ms(rp.lab.trees.find(GROUP, SOURCE)->keepalive), 210000u);
    rp.lab.trees.packet(0, GROUP, SOURCE);
    rp.lab.trees.settle();
    EXPECT_FALSE(rp.hear());
    EXPECT_EQ(rp.lab.taken(), Sent{STOP});
    EXPECT_EQ(rp.lab.queue.remaining_ms(rp.lab.trees.find(GROUP, SOURCE)->keepalive), 185000u);
}

TEST(PimRegister, AnRpThatStaysOnTheSharedTreeKeepsNothing)
{
    RendezvousPoint rp;
    rp.lab.switches = false;
    EXPECT_TRUE(rp.hear());
    EXPECT_EQ(rp.lab.trees.entries(), 0u);
    rp.join();
    EXPECT_TRUE(rp.hear());
    EXPECT_EQ(rp.lab.trees.find(GROUP, SOURCE), nullptr);
    EXPECT_EQ(rp.lab.taken(), Sent{});
}

TEST(PimRegister, RegistersForAnotherRpAreStoppedAndForAnotherRouterLeftOut)
{
    RendezvousPoint rp;
    EXPECT_FALSE(rp.hear(false, SOURCE, SENDER, addr("10.7.7.7")));
    EXPECT_EQ(rp.lab.taken(), Sent{});
    EXPECT_EQ(rp.lab.counters[Count::RegisterDestination], 1u);
    EXPECT_FALSE(rp.hear(false, SOURCE, SENDER, TreeLab::own(0)));
    EXPECT_EQ(rp.lab.taken(), Sent{"stop 10.0.0.1 10.9.9.9 239.1.1.1 192.0.2.1"});
    rp.lab.rp_known = false;
    EXPECT_FALSE(rp.hear(false, SOURCE, SENDER, TreeLab::own(0)));
    EXPECT_EQ(rp.lab.counters[Count::NotRp], 2u);
    EXPECT_EQ(rp.lab.trees.entries(), 0u);
}

TEST(PimRegister, StopsHaveARateOfWhichOneRouterTakesAShare)
{
    TreeSettings settings;
    settings.register_stops_per_s = 16;
    RendezvousPoint rp(settings);

    for (unsigned i = 0; i < 5; ++i) {
        rp.hear();
    }
    EXPECT_EQ(rp.lab.stops, 2u);
    EXPECT_EQ(rp.lab.counters[Count::StopRate], 3u);
    // One that was not sent does not count as sent.
    EXPECT_EQ(rp.lab.queue.remaining_ms(rp.lab.trees.find(GROUP, SOURCE)->keepalive), 210000u);
    for (unsigned i = 0; i < 200; ++i) {
        rp.hear(false, SOURCE, addr(("10.8.8." + std::to_string(i)).c_str()));
    }
    EXPECT_EQ(rp.lab.stops, 16u);
    rp.lab.pass(500);
    rp.hear();
    EXPECT_EQ(rp.lab.stops, 17u);
}

TEST(PimRegister, RegistersMakeSoManySourcesAndNoMore)
{
    TreeSettings settings;
    settings.most_registered = 2;
    RendezvousPoint rp(settings);

    for (const char *source : {"192.0.2.1", "192.0.2.2", "192.0.2.3"}) {
        rp.hear(false, addr(source));
    }
    EXPECT_EQ(rp.lab.trees.entries(), 3u);
    EXPECT_EQ(rp.lab.stops, 3u);
    EXPECT_EQ(rp.lab.counters[Count::RegisteredLimit], 1u);
    rp.lab.pass(185000);
    rp.hear(false, addr("192.0.2.3"));
    EXPECT_EQ(rp.lab.trees.entries(), 2u);
    EXPECT_EQ(rp.lab.counters[Count::RegisteredLimit], 1u);
}

TEST(PimRegister, ARouterOfHostsSwitchesToTheSourcesTree)
{
    FirstHop router;
    router.lab.routes[address_text(SOURCE)] = {0, TreeLab::neighbour(0, 0), 10, 10, false};
    router.lab.trees.set_dr(2, true);
    router.lab.trees.set_receivers(2, GROUP, ANY, true);
    router.lab.trees.settle();
    router.lab.taken();
    router.lab.trees.packet(1, GROUP, SOURCE);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{});
    router.lab.switches = true;
    router.lab.trees.set_excluded(2, GROUP, SOURCE, true); // no host wants it
    router.lab.trees.packet(1, GROUP, SOURCE);
    router.lab.trees.settle();
    router.lab.trees.set_excluded(2, GROUP, SOURCE, false);
    router.lab.trees.settle();
    router.lab.taken();
    router.lab.trees.packet(1, GROUP, SOURCE);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{JOIN});
    router.lab.trees.packet(0, GROUP, SOURCE);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{"prune 1 10.0.1.10 239.1.1.1 192.0.2.1 rpt"});
}
