/*
 * What a PIM daemon is told of hosts, sources and tables, and how a new source waits for its answer.
 */
#include <gtest/gtest.h>

#include "daemons/mribd_pim_support.h"

using namespace mribd;
using namespace mribd_test;
using namespace mcastd;

namespace
{

class PimToldTest : public PimBench
{
protected:
    PimToldTest()
    {
        member.emplace(7, clients.backend, counters);
        listener.sessions = {&*member};
        take(*member, Message().add_register(family, PIM_EVENTS));
        bench.router.await_answers(true);
        bench.router.set_pim_listener(&listener);
        bench.settle();
        take_all(member->queue());
    }
    ~PimToldTest() override
    {
        bench.router.set_pim_listener(nullptr);
    }

    void request(uint64_t events)
    {
        PimReplay value{};
        value.family = family;
        value.events = events;
        take(*member, Message().add(PIM_TLV_REQUEST, value));
    }

    // What the member is told, as text: "join 2 * GROUP", "new 1 SOURCE GROUP", ...
    std::vector<std::string> told()
    {
        std::vector<std::string> result;
        for (const Record &record : take_all(member->queue())) {
            result.push_back(text_of(record));
        }
        return result;
    }

    std::string name_of(const uint8_t *bytes) const
    {
        const std::string text = text_or_star(make_address(family, bytes));
        return text == group ? "G" : text == source ? "S" : text == other_source ? "S2" : text;
    }

    template <typename Value> const Value *checked(const Record &record) const
    {
        const auto *value =
            pim_value<Value>({record.type, static_cast<uint16_t>(record.value.size()), record.value.data()});
        EXPECT_TRUE(value != nullptr && check_pim(family, *value) == PimFault::None)
            << "type " << record.type;
        return value;
    }

    std::string text_of(const Record &record) const
    {
        static const char *const STATES[] = {"?", "new", "active", "silent", "wrong", "gone"};
        switch (record.type) {
        case PIM_TLV_MEMBER: {
            const auto *value = checked<MRIB_JOIN_PRUNE_S>(record);
            const std::string what = value->flag2 == 0 ? (value->flag1 ? "join " : "prune ")
                                                       : (value->flag1 ? "block " : "unblock ");
            return what + std::to_string(value->if_index) + " " + name_of(value->source) + " " +
                   name_of(value->group);
        }
        case PIM_TLV_SOURCE: {
            const auto *value = checked<PimSource>(record);
            return STATES[value->state] + (" " + std::to_string(value->if_index)) +
                   (value->connected ? "c " : " ") + name_of(value->source) + " " + name_of(value->group);
        }
        case PIM_TLV_INSTANCE: {
            const auto *value = checked<PimInstance>(record);
            return "instance " + std::to_string(value->vrf_index) + " vif " +
                   std::to_string(value->register_vif);
        }
        case PIM_TLV_REMOTE: {
            const auto *value = checked<PimRemote>(record);
            return (value->present ? "remote " : "no remote ") + name_of(value->source) + " " +
                   name_of(value->group);
        }
        case PIM_TLV_REPLAYED:
            return "end " + std::to_string(checked<PimReplay>(record)->events >> 16);
        default:
            return "type " + std::to_string(record.type);
        }
    }

    using Told = std::vector<std::string>;
    SessionListener listener;
    std::optional<Session> member;
};

TEST_P(PimToldTest, MembershipsOfHostsAreToldAndThoseOfPimAreNot)
{
    interfaces(PIM_RUNS);
    told();
    join(*hosts, 2);
    join(*pim, 3);
    join(*hosts, 2, source, 1, 1);
    join(*hosts, 4, source);
    EXPECT_EQ(told(), (Told{"join 2 * G", "block 2 S G", "join 4 S G"}));
    join(*hosts, 2, source, 0, 1);
    join(*hosts, 2, "", 0);
    EXPECT_EQ(told(), (Told{"unblock 2 S G", "prune 2 * G"}));
    take(*hosts, Message().add_alert(MRIB_TLV_GMP_ENABLE, family, 4, 0));
    EXPECT_EQ(told(), Told{"prune 4 S G"});
}

TEST_P(PimToldTest, WhatSeveralClientsWantIsToldAsOne)
{
    Session second(9, clients.backend, counters);
    introduce(second);
    join(*hosts, 2);
    join(*hosts, 2, source, 1, 1);
    told();
    join(second, 2);
    EXPECT_EQ(told(), (Told{"join 2 * G", "unblock 2 S G"})) << "the second wants all sources";
    join(second, 2, source, 1, 1);
    EXPECT_EQ(told(), Told{"block 2 S G"});
    join(*hosts, 2, "", 0);
    EXPECT_EQ(told(), (Told{"join 2 * G", "block 2 S G"}));
    join(second, 2, "", 0);
    EXPECT_EQ(told().front(), "prune 2 * G");
}

TEST_P(PimToldTest, EndOfAGmpClientTakesBackWhatItAloneWanted)
{
    Session second(9, clients.backend, counters);
    introduce(second);
    join(*hosts, 2);
    join(*hosts, 3);
    join(*hosts, 3, source, 1, 1);
    join(second, 2);
    told();
    hosts.reset();
    EXPECT_EQ(told(), (Told{"join 2 * G", "prune 3 * G", "unblock 3 S G"}));
}

TEST_P(PimToldTest, ReplayNamesAllOfTheClassesAskedForAndEnds)
{
    interfaces(PIM_RUNS);
    join(*hosts, 2);
    join(*hosts, 2, source, 1, 1);
    join(*hosts, 4);
    join(*pim, 3);
    bench.packet(1, source, group);
    told();
    const std::string vif = std::to_string(bench.router.vifs().find(PIM_REGISTER_INTERFACE));
    request(PIM_EVENTS);
    EXPECT_EQ(told(), (Told{"instance 0 vif " + vif, "join 2 * G", "join 4 * G", "block 2 S G",
                            "active 1 S G", "end 15"}));
    request(PIM_EVENT_SOURCE);
    EXPECT_EQ(told(), (Told{"active 1 S G", "end 2"}));
    take(*member, Message().add(MRIB_TLV_CHANGE_EVENTS, MRIB_REGISTER_S{family, 9, PIM_EVENT_MEMBER}));
    request(PIM_EVENTS);
    EXPECT_EQ(told().back(), "end 1");
}

TEST_P(PimToldTest, LongReplayGoesOnAsTheMemberReads)
{
    constexpr uint32_t INTERFACES = 5000;
    for (uint32_t if_index = 1; if_index <= INTERFACES; ++if_index) {
        bench.router.set_member(1, if_index, address(group), any_address(family), MemberTable::Kind::Join,
                                true);
        bench.router.set_member(1, if_index, address(group), address(source), MemberTable::Kind::Block, true);
        take_all(member->queue());
    }
    request(PIM_EVENT_MEMBER);
    Told all;
    size_t rounds = 0;
    do {
        EXPECT_LE(member->queue().message_count(), 10u);
        for (const std::string &line : told()) {
            all.push_back(line);
        }
        ++rounds;
    } while (member->continue_replay());
    EXPECT_GT(rounds, 3u);
    ASSERT_EQ(all.size(), 2 * INTERFACES + 1);
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()), all.end()) << "each once";
}

TEST_P(PimToldTest, NewSourceWaitsForTheAnswerAndIsThenInstalledOnce)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    told();
    bench.packet(1, source, group);
    EXPECT_EQ(told(), Told{"new 1 S G"});
    EXPECT_EQ(forwards(), Interfaces{-1});
    join(*pim, 3);
    EXPECT_EQ(forwards(), Interfaces{-1}) << "nothing else installs it";
    const int sets = bench.kernel.sets;
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT | PIM_TREE_REGISTER_OUT | PIM_TREE_ANSWER);
    EXPECT_EQ(bench.kernel.sets, sets + 1);
    const int vif = bench.router.vifs().find(PIM_REGISTER_INTERFACE);
    EXPECT_TRUE((bench.kernel.entries.at({source, group}).outgoing >> vif & 1) != 0);
    EXPECT_FALSE(bench.router.forwarding().awaits_answers());
}

TEST_P(PimToldTest, WithoutAnAnswerWhatIsKnownIsInstalled)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    bench.packet(1, source, group);
    bench.router.pass_answer_tick();
    EXPECT_EQ(forwards(), Interfaces{-1});
    bench.router.pass_answer_tick();
    EXPECT_EQ(forwards(), Interfaces{2});
    EXPECT_EQ(bench.router.forwarding().counters().unanswered, 1u);
    tree(source, PIM_FROM_UNSAID, 0, PIM_TREE_ANSWER); // late
    EXPECT_EQ(forwards(), Interfaces{2});
}

TEST_P(PimToldTest, NothingWaitsWithoutAListenerOrWhereTheTreeIsKnown)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT);
    bench.packet(1, source, group);
    EXPECT_EQ(forwards(), Interfaces{2});
    bench.environment.on_link.insert({1, other_source});
    tree(other_source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT);
    bench.packet(1, other_source, group);
    EXPECT_EQ(bench.forwards(other_source, group), Interfaces{-1}) << "it may have to be registered";
    told();
    take(*member, Message().add(MRIB_TLV_CHANGE_EVENTS, MRIB_REGISTER_S{family, 9, 0}));
    tree(source, PIM_FROM_UNSAID);
    bench.packet(1, source, group);
    EXPECT_EQ(forwards(), Interfaces{2});
}

TEST_P(PimToldTest, FloodOfSourcesWaitsInBoundsAndHasHalfOfThePlaces)
{
    interfaces(PIM_RUNS);
    const auto flood = [this](uint32_t if_index, unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            const std::string one = (is_v4 ? "10.7." : "2001:db8:7:") + std::to_string(if_index) +
                                    (is_v4 ? "." : "::") + std::to_string(i % 250 + 1);
            const std::string to =
                is_v4 ? "239.2." + std::to_string(i / 250) + ".1" : "ff1e::2:" + std::to_string(i / 250);
            bench.router.take_upcall({UpcallKind::NoEntry,
                                      static_cast<unsigned>(bench.router.vifs().find(if_index)), address(one),
                                      address(to)});
        }
    };
    flood(1, 600);
    EXPECT_EQ(bench.router.forwarding().counters().not_awaited, 600u - 512u);
    flood(2, 600);
    EXPECT_EQ(bench.router.forwarding().counters().not_awaited, 2 * (600u - 512u));
    bench.router.pass_answer_tick();
    bench.router.pass_answer_tick();
    EXPECT_FALSE(bench.router.forwarding().awaits_answers());
}

TEST_P(PimToldTest, SourceIsActiveSilentWrongAndGone)
{
    interfaces(PIM_RUNS);
    join(*pim, 2, source);
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT);
    bench.packet(1, source, group);
    EXPECT_EQ(told().back(), "new 1 S G");
    bench.kernel.packets[{source, group}] = 5;
    bench.pass_idle_period();
    EXPECT_EQ(told(), Told{"active 1 S G"});
    bench.pass_idle_period();
    EXPECT_EQ(told(), Told{"silent 1 S G"});
    bench.packet(3, source, group, UpcallKind::WrongInterface);
    EXPECT_EQ(told(), Told{"wrong 3 S G"});
    join(*pim, 2, source, 0);
    bench.pass_idle_period();
    EXPECT_EQ(told(), Told{"gone 3 S G"});
}

TEST_P(PimToldTest, EntryThatIsWatchedIsANewOneOfWhichTheKernelTellsAtOnce)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    tree("", PIM_FROM_INTERFACE, 1);
    bench.packet(1, source, group);
    bench.router.pass_answer_tick();
    bench.router.pass_answer_tick();
    EXPECT_EQ(forwards(), Interfaces{2});
    const int deletes = bench.kernel.deletes;
    tree(source, PIM_FROM_UNSAID, 0, PIM_TREE_WATCH);
    EXPECT_EQ(bench.kernel.deletes, deletes) << "nothing was told of which more could be hidden";
    bench.packet(3, source, group, UpcallKind::WrongInterface);
    tree(source, PIM_FROM_UNSAID, 0, PIM_TREE_WATCH);
    EXPECT_EQ(bench.kernel.deletes, deletes + 1);
    EXPECT_EQ(forwards(), Interfaces{2});
    tree(source, PIM_FROM_UNSAID, 0, PIM_TREE_WATCH);
    EXPECT_EQ(bench.kernel.deletes, deletes + 1);
}

TEST_P(PimToldTest, SilentSourceOfALinkIsReportedAnewThoughItIsJoined)
{
    bench.environment.on_link.insert({1, source});
    interfaces(PIM_RUNS);
    join(*pim, 2, source);
    EXPECT_EQ(forwards(), Interfaces{-1}) << "the first packet is to be told";
    bench.packet(1, source, group);
    EXPECT_EQ(told().back(), "new 1c S G");
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT | PIM_TREE_ANSWER);
    EXPECT_EQ(forwards(), Interfaces{2});
    bench.pass_idle_period();
    bench.settle();
    EXPECT_EQ(told(), Told{"silent 1c S G"});
    EXPECT_EQ(forwards(), Interfaces{-1});
    bench.packet(1, source, group);
    EXPECT_EQ(told(), Told{"new 1c S G"});
}

TEST_P(PimToldTest, InstanceIsToldWithItsRegisterInterface)
{
    interfaces(PIM_RUNS);
    const Told now = told();
    ASSERT_FALSE(now.empty());
    EXPECT_EQ(now.back(),
              "instance 0 vif " + std::to_string(bench.router.vifs().find(PIM_REGISTER_INTERFACE)));
    interfaces(PIM_GONE);
    EXPECT_EQ(told().back(), "instance 0 vif -1");
}

TEST_P(PimToldTest, MemberThatDoesNotReadIsSentASmoothStartAndAsksAgain)
{
    for (unsigned i = 0; i < 40000 && !member->queue().has_overflowed(); ++i) {
        join(*hosts, 2, "", i % 2 == 0 ? 1 : 0);
    }
    ASSERT_TRUE(member->queue().has_overflowed());
    EXPECT_FALSE(listener.is_told(PIM_EVENT_SOURCE)) << "no source waits for it";
    take_all(member->queue());
    member->start_afresh();
    EXPECT_EQ(told(), Told{"type " + std::to_string(MRIB_TLV_SMOOTH_START)});
    request(PIM_EVENT_MEMBER);
    EXPECT_EQ(told().back(), "end 1");
}

INSTANTIATE_TEST_SUITE_P(Families, PimToldTest, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                         [](const auto &family) {
                             return family.param == MCAST_FAMILY_IPV4 ? "ipv4" : "ipv6";
                         });

} // namespace
