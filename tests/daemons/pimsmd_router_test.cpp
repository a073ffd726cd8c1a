#include <algorithm>
#include <gtest/gtest.h>

#include "tests/daemons/pimsmd_router_lab.h"

using namespace pimsmd_test;

namespace
{

class PimRouter : public testing::TestWithParam<uint16_t>
{
protected:
    uint16_t family() const
    {
        return GetParam();
    }
    Address group(const char *ipv4, const char *ipv6) const
    {
        return addr(family() == MCAST_FAMILY_IPV4 ? ipv4 : ipv6);
    }
    Address ssm() const
    {
        return group("232.1.1.1", "ff3e::1");
    }
    Address asm_group() const
    {
        return group("239.1.1.1", "ff0e::1");
    }
    // The links on which the source, or with an unspecified one the group, is joined.
    static pimsmd::Links joins(Box &box, const Address &of, const Address &source)
    {
        const auto *group_entry = box.router->trees().find(of);
        if (mcastd::is_unspecified(source)) {
            return group_entry != nullptr ? group_entry->words.joins : 0;
        }
        const auto *entry = box.router->trees().find(of, source);
        return entry != nullptr ? entry->words.joins : 0;
    }
    static size_t count(const Box &box, const char *kind)
    {
        return static_cast<size_t>(std::count(box.sent.begin(), box.sent.end(), kind));
    }
    // source - link 1 - router 1 - link 2 - router 2 - link 3 - receiver
    void chain(const pimsmd::Config &config = {})
    {
        first = &lan.add(config);
        last = &lan.add(config);
        first->attach(1);
        first->attach(2);
        last->attach(2);
        last->attach(3);
        first->route(3, 2, 2);
        last->route(1, 2, 1);
        lan.pass(6000);
    }

    Lan lan{GetParam()};
    Box *first = nullptr;
    Box *last = nullptr;
};

std::string family_of(const testing::TestParamInfo<uint16_t> &info)
{
    return mcastd::family_name(info.param);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Families, PimRouter, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                         family_of);

TEST_P(PimRouter, TwoOfALinkBecomeNeighboursAndElectTheHigherAddress)
{
    chain();
    ASSERT_EQ(first->neighbours(2).size(), 1u);
    ASSERT_EQ(last->neighbours(2).size(), 1u);
    EXPECT_FALSE(first->neighbours(2).is_dr());
    EXPECT_TRUE(last->neighbours(2).is_dr());
    EXPECT_TRUE(first->neighbours(1).is_dr());
    EXPECT_EQ(first->told.back(), "dr " + std::to_string(first->link_number(2)));
}

TEST_P(PimRouter, AnotherPriorityMovesTheDesignatedRouterWithOneHello)
{
    chain();
    pimsmd::Config config;
    config.dr_priority = 2;
    const size_t hellos = count(*first, "hello");
    first->router->configure(config);
    lan.settle();
    EXPECT_TRUE(first->neighbours(2).is_dr());
    EXPECT_FALSE(last->neighbours(2).is_dr());
    EXPECT_EQ(count(*first, "hello"), hellos + 2); // one a link
}

TEST_P(PimRouter, HellosComeOnceAPeriodAndSilenceEndsANeighbour)
{
    chain();
    const size_t hellos = count(*first, "hello");
    lan.pass(300 * 1000);
    EXPECT_EQ(count(*first, "hello"), hellos + 20); // two links, ten periods
    EXPECT_EQ(first->neighbours(2).size(), 1u);
    lan.boxes[1].reset(); // without a goodbye
    lan.pass(104 * 1000 - 30 * 1000);
    EXPECT_EQ(first->neighbours(2).size(), 1u);
    lan.pass(32 * 1000);
    EXPECT_EQ(first->neighbours(2).size(), 0u);
    EXPECT_TRUE(first->neighbours(2).is_dr());
}

TEST_P(PimRouter, AGoodbyeEndsANeighbourAtOnce)
{
    chain();
    last->router->close();
    lan.settle();
    EXPECT_EQ(first->neighbours(2).size(), 0u);
}

TEST_P(PimRouter, AJoinOfASourceGoesTowardsItAndIsPrunedAgain)
{
    chain();
    const Address source = global(family(), 1, 99);
    const unsigned towards_receiver = first->link_number(2);
    last->router->trees().set_receivers(last->link_number(3), ssm(), source, true);
    lan.settle();
    EXPECT_EQ(joins(*first, ssm(), source), 1u << towards_receiver);
    EXPECT_GT(first->entries_told, 0u);
    EXPECT_EQ(count(*last, "join"), 1u);
    lan.pass(600 * 1000);
    EXPECT_EQ(joins(*first, ssm(), source), 1u << towards_receiver);
    EXPECT_EQ(count(*last, "join"), 11u);
    last->router->trees().set_receivers(last->link_number(3), ssm(), source, false);
    lan.settle();
    EXPECT_EQ(joins(*first, ssm(), source), 0u);
    EXPECT_EQ(first->router->trees().entries(), 0u);
}

TEST_P(PimRouter, ManyJoinsLeaveInAsFewMessagesAsHoldThem)
{
    chain();
    const size_t before = count(*last, "join");
    for (unsigned i = 1; i <= 700; ++i) {
        Address source = global(family(), 1, 1);
        source.address[family() == MCAST_FAMILY_IPV4 ? 3 : 15] = static_cast<uint8_t>(1 + i % 250);
        Address one = ssm();
        one.address[family() == MCAST_FAMILY_IPV4 ? 2 : 13] = static_cast<uint8_t>(i / 250);
        last->router->trees().set_receivers(last->link_number(3), one, source, true);
    }
    lan.settle();
    EXPECT_EQ(first->router->trees().entries(), 703u);
    EXPECT_LE(count(*last, "join") - before, family() == MCAST_FAMILY_IPV4 ? 4u : 11u);
}

TEST_P(PimRouter, ANeighbourThatComesLaterIsAskedForWhatIsWanted)
{
    chain();
    const Address source = global(family(), 1, 99);
    first->detach(2);
    lan.settle();
    last->router->trees().set_receivers(last->link_number(3), ssm(), source, true);
    lan.pass(1000);
    EXPECT_EQ(first->router->trees().entries(), 0u);
    first->attach(2);
    lan.pass(6000);
    EXPECT_EQ(joins(*first, ssm(), source), 1u << first->link_number(2));
}

TEST_P(PimRouter, ARestartedNeighbourIsToldAgainWithinTheOverrideInterval)
{
    chain();
    const Address source = global(family(), 1, 99);
    last->router->trees().set_receivers(last->link_number(3), ssm(), source, true);
    lan.pass(1000);
    first->restart();
    ASSERT_EQ(joins(*first, ssm(), source), 0u);
    lan.pass(5000 + 2500); // its Hello, then the Join
    EXPECT_EQ(joins(*first, ssm(), source), 1u << first->link_number(2));
}

TEST_P(PimRouter, ALinkThatGoesTakesItsJoinsWithIt)
{
    chain();
    const Address source = global(family(), 1, 99);
    last->router->trees().set_receivers(last->link_number(3), ssm(), source, true);
    lan.settle();
    ASSERT_EQ(first->router->trees().entries(), 2u);
    const std::string gone = "gone " + std::to_string(first->link_number(2)) + " 2";
    first->detach(2);
    lan.settle();
    EXPECT_EQ(first->router->trees().entries(), 0u);
    EXPECT_EQ(first->told.back(), gone);
    EXPECT_EQ(last->neighbours(2).size(), 0u); // it said goodbye
}

TEST_P(PimRouter, AnotherRouteMovesTheJoin)
{
    chain();
    Box &other = lan.add();
    other.attach(2);
    other.attach(4);
    other.route(1, 4, 9);
    lan.pass(6000);
    const Address source = global(family(), 1, 99);
    last->router->trees().set_receivers(last->link_number(3), ssm(), source, true);
    lan.settle();
    ASSERT_NE(joins(*first, ssm(), source), 0u);
    last->route(1, 2, 3);
    lan.pass(4000); // the Prune waits for other routers of the link
    EXPECT_EQ(joins(*first, ssm(), source), 0u);
    EXPECT_NE(joins(other, ssm(), source), 0u);
}

TEST_P(PimRouter, MessagesOfStrangersAreCountedAndLeft)
{
    chain();
    const Envelope strange{primary(family(), 2, 77), first->router->link(0)->envelope().destination};
    Bytes bytes(200);
    pimsmd::JoinPruneWriter writer(bytes, primary(family(), 2, 1), 210);
    const pimsmd::TreeSource joined{global(family(), 1, 99), pimsmd::Tree::Source};
    ASSERT_TRUE(writer.add({mcastd::Prefix::of(ssm(), mcastd::address_bits(family()))}, {&joined, 1}, {}));
    bytes.resize(writer.finish(strange));
    first->router->received(2, strange, bytes);
    lan.settle();
    EXPECT_EQ(first->router->trees().entries(), 0u);
    EXPECT_EQ(first->router->link(first->link_number(2))->counters()[Count::NoNeighbour], 1u);
    first->router->received(9, strange, bytes);
    EXPECT_EQ(first->router->counters()[Count::NoLink], 1u);
    const Envelope own{primary(family(), 2, 1), strange.destination};
    first->router->received(2, own, bytes);
    EXPECT_EQ(first->router->link(first->link_number(2))->counters()[Count::OwnMessage], 1u);
}

TEST_P(PimRouter, ASourceIsRegisteredAndItsTreeJoined)
{
    pimsmd::Config config;
    const Address rp = global(family(), 2, 2);
    config.rps.push_back(
        {*mcastd::Prefix::parse(family() == MCAST_FAMILY_IPV4 ? "224.0.0.0/4" : "ff00::/8"), rp});
    chain(config);
    const Address source = global(family(), 1, 99);
    first->router->trees().packet(first->link_number(1), asm_group(), source);
    lan.settle();
    const auto to = first->router->trees().find(asm_group(), source)->registers_to();
    ASSERT_TRUE(to);
    EXPECT_TRUE(mcastd::same_address(*to, rp));
    // Nobody listens: the RP stops the Registers, and hears null ones from then on.
    Bytes bytes(100);
    pimsmd::Register null;
    null.null = true;
    null.group = asm_group();
    null.source = source;
    const Envelope outer{global(family(), 1, 1), rp};
    bytes.resize(pimsmd::write_register(bytes, outer, null));
    last->router->received(0, outer, bytes);
    lan.settle();
    EXPECT_FALSE(first->router->trees().find(asm_group(), source)->registers_to());
    const size_t before = count(*first, "register");
    lan.pass(90 * 1000);
    EXPECT_GE(count(*first, "register"), before + 1);
    // A receiver behind the RP: it joins the source.
    last->router->trees().set_receivers(last->link_number(3), asm_group(), pimsmd::any_address(family()),
                                        true);
    last->router->received(0, outer, bytes);
    lan.settle();
    EXPECT_EQ(joins(*first, asm_group(), source), 1u << first->link_number(2));
}

TEST_P(PimRouter, ACandidateIsElectedAndAllKnowItsRps)
{
    pimsmd::Config config;
    chain(config);
    Box &behind = lan.add();
    behind.attach(3);
    behind.route(1, 3, 2);
    behind.route(2, 3, 2);
    lan.pass(6000);
    config.bsr.candidate = pimsmd::bsr::Weight{1, global(family(), 2, 1)};
    config.bsr.hash_mask_length = 30;
    config.bsr.rp = global(family(), 1, 1);
    config.bsr.rp_ranges.push_back(
        {*mcastd::Prefix::parse(family() == MCAST_FAMILY_IPV4 ? "239.0.0.0/8" : "ff0e::/16"), false, false});
    first->router->configure(config);
    lan.pass(180 * 1000);
    EXPECT_TRUE(first->router->bsr().is_elected());
    for (Box *box : {first, last, &behind}) {
        const auto rp = box->router->rp_set().rp_of(asm_group());

        ASSERT_TRUE(rp) << box->number;
        EXPECT_TRUE(mcastd::same_address(*rp, *config.bsr.rp));
    }
    EXPECT_GT(count(*last, "bootstrap"), 0u);
    const size_t periods = count(*first, "bootstrap");
    behind.restart();
    behind.route(2, 3, 2);
    lan.pass(6000);
    ASSERT_EQ(count(*first, "bootstrap"), periods); // it is its neighbour who tells
    EXPECT_TRUE(behind.router->rp_set().rp_of(asm_group()));
}

TEST_P(PimRouter, ReloadThatRemovesACandidateRpTakesItFromAllAndKeepsTheOthers)
{
    pimsmd::Config config;
    config.bsr.candidate = pimsmd::bsr::Weight{1, global(family(), 2, 1)};
    config.bsr.hash_mask_length = 30;
    chain();
    first->router->configure(config);
    lan.pass(10 * 1000);
    ASSERT_TRUE(first->router->bsr().is_elected());
    pimsmd::Config rp;
    rp.bsr.rp = global(family(), 2, 2);
    rp.bsr.rp_ranges.push_back({pimsmd::whole_range(family())});
    last->router->configure(rp);
    lan.pass(70 * 1000);
    ASSERT_TRUE(first->router->rp_set().rp_of(asm_group()));
    ASSERT_TRUE(last->router->rp_set().rp_of(asm_group()));
    // The BSR's part begins anew, but nobody is without an RP meanwhile.
    config.bsr.candidate->priority = 2;
    first->router->configure(config);
    for (unsigned second = 0; second < 150; ++second) {
        lan.pass(1000);
        ASSERT_TRUE(first->router->rp_set().rp_of(asm_group())) << second;
        ASSERT_TRUE(last->router->rp_set().rp_of(asm_group())) << second;
    }
    last->router->configure({});
    lan.pass(pimsmd::BSR_LEAST_MS);
    EXPECT_FALSE(first->router->rp_set().rp_of(asm_group()));
    EXPECT_FALSE(last->router->rp_set().rp_of(asm_group()));
    EXPECT_TRUE(first->router->bsr().is_elected());
}

TEST_P(PimRouter, ACandidateTakesTheBsrsPlaceAfterItsGoodbye)
{
    pimsmd::Config config;
    config.bsr.candidate = pimsmd::bsr::Weight{9, global(family(), 2, 1)};
    chain();
    first->router->configure(config);
    lan.pass(10 * 1000);
    ASSERT_TRUE(first->router->bsr().is_elected());
    config.bsr.candidate = pimsmd::bsr::Weight{3, global(family(), 2, 2)};
    last->router->configure(config);
    lan.pass(70 * 1000);
    ASSERT_FALSE(last->router->bsr().is_elected());
    first->router->close();
    lan.pass(25 * 1000);
    EXPECT_TRUE(last->router->bsr().is_elected());
}
