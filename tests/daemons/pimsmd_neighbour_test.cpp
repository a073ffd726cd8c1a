#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <utility>

#include "daemons/common/log.h"
#include "daemons/pimsmd/dr.h"
#include "daemons/pimsmd/neighbour.h"
#include "tests/daemons/pimsmd_messages.h"
#include "tests/support/property.h"

using namespace pimsmd_test;
using pimsmd::DrElection;
using pimsmd::Hello;
using pimsmd::LanDelay;
using pimsmd::LinkSettings;
using pimsmd::MsQueue;
using pimsmd::Neighbour;
using pimsmd::Neighbours;

namespace
{

struct Lab final : pimsmd::LinkEvents {
    explicit Lab(const LinkSettings &settings) : link(queue, settings, *this)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
    }

    void neighbour_up(const Neighbour &neighbour) override
    {
        events.push_back("up " + pimsmd::to_text(neighbour.address));
    }
    void neighbour_restarted(const Neighbour &neighbour) override
    {
        events.push_back("restarted " + pimsmd::to_text(neighbour.address));
    }
    void neighbour_down(const Neighbour &neighbour) override
    {
        events.push_back("down " + pimsmd::to_text(neighbour.address));
    }
    void dr_changed(const Address &dr) override
    {
        events.push_back("dr " + pimsmd::to_text(dr));
    }
    void pass(uint64_t ms)
    {
        now += ms;
        queue.run_due(SIZE_MAX);
    }
    Count hear(const char *from, const Hello &hello)
    {
        return link.heard(addr(from), hello, counters);
    }
    std::vector<std::string> taken_events()
    {
        return std::exchange(events, {});
    }

    uint64_t now = 1000;
    MsQueue queue{[this] { return now; }};
    std::vector<std::string> events;
    pimsmd::Counters counters;
    Neighbours link;
};

LinkSettings settings(const char *address = "10.0.0.5")
{
    LinkSettings made;
    made.name = "eth0";
    made.address = addr(address);
    return made;
}

Hello hello(std::optional<uint32_t> priority = 1, std::optional<uint32_t> generation = 7)
{
    Hello made;
    made.holdtime_s = 105;
    made.dr_priority = priority;
    made.generation = generation;
    made.lan_delay = {false, 500, 2500};
    return made;
}

// A Hello with further addresses, whose bytes it keeps.
struct WithAddresses {
    explicit WithAddresses(const std::vector<Address> &addresses)
    {
        const Envelope from = envelope(addresses[0].family);
        Message message;
        bytes.resize(pimsmd::MAX_MESSAGE_SIZE);
        bytes.resize(pimsmd::write_hello(bytes, from, ::hello(), addresses));
        EXPECT_EQ(pimsmd::read_message(from, bytes, &message), NO_DROP);
        hello = std::get<Hello>(message);
    }
    Bytes bytes;
    Hello hello;
};

using Events = std::vector<std::string>;

} // namespace

TEST(PimDr, PriorityBeforeAddress)
{
    DrElection election;
    EXPECT_EQ(election.winner(), std::nullopt);
    election.offer(addr("10.0.0.9"), 1);
    election.offer(addr("10.0.0.1"), 2);
    election.offer(addr("10.0.0.3"), 2);
    election.offer(addr("10.0.0.2"), 2);
    EXPECT_EQ(pimsmd::to_text(*election.winner()), "10.0.0.3");
}

TEST(PimDr, TheHighestAddressWhenOneSaysNoPriority)
{
    DrElection election;
    election.offer(addr("fe80::9"), 0);
    election.offer(addr("fe80::1"), 4294967295);
    EXPECT_EQ(pimsmd::to_text(*election.winner()), "fe80::1");
    election.offer(addr("fe80::2"), std::nullopt);
    EXPECT_EQ(pimsmd::to_text(*election.winner()), "fe80::9");
}

TEST(PimDr, PriorityZeroIsAPriority)
{
    DrElection election;
    election.offer(addr("10.0.0.1"), 0);
    EXPECT_EQ(pimsmd::to_text(*election.winner()), "10.0.0.1");
}

TEST(PimNeighbour, ARouterAloneIsDesignated)
{
    Lab lab(settings());
    EXPECT_TRUE(lab.link.is_dr());
    EXPECT_EQ(lab.link.size(), 0u);
    EXPECT_EQ(lab.events, Events{});
}

TEST(PimNeighbour, ComesWithItsHelloAndGoesWithItsHoldtime)
{
    Lab lab(settings());
    EXPECT_EQ(lab.hear("10.0.0.9", hello()), NO_DROP);
    EXPECT_EQ(lab.taken_events(), (Events{"up 10.0.0.9", "dr 10.0.0.9"}));
    lab.pass(104999);
    EXPECT_EQ(lab.hear("10.0.0.9", hello()), NO_DROP);
    lab.pass(104999);
    EXPECT_EQ(lab.taken_events(), Events{});
    lab.pass(1);
    EXPECT_EQ(lab.taken_events(), (Events{"down 10.0.0.9", "dr 10.0.0.5"}));
    EXPECT_EQ(lab.link.size(), 0u);
}

TEST(PimNeighbour, HoldtimesThatAreNoTime)
{
    Lab lab(settings());
    Hello says = hello();
    says.holdtime_s = 0;
    EXPECT_EQ(lab.hear("10.0.0.1", says), NO_DROP); // a goodbye of nobody
    EXPECT_EQ(lab.taken_events(), Events{});
    says.holdtime_s = std::nullopt;
    lab.hear("10.0.0.1", says);
    lab.pass(104999);
    EXPECT_EQ(lab.link.size(), 1u);
    says.holdtime_s = 0xffff;
    lab.hear("10.0.0.1", says);
    lab.pass(uint64_t{1000} * 1000 * 1000);
    EXPECT_EQ(lab.link.size(), 1u);
    says.holdtime_s = 0;
    lab.hear("10.0.0.1", says);
    EXPECT_EQ(lab.taken_events(), (Events{"up 10.0.0.1", "down 10.0.0.1"}));
    lab.hear("10.0.0.1", hello());
    says.holdtime_s = std::nullopt;
    lab.hear("10.0.0.1", says);
    lab.pass(105000);
    EXPECT_EQ(lab.link.size(), 0u);
}

TEST(PimNeighbour, AnotherGenerationIsARestart)
{
    Lab lab(settings());
    lab.hear("10.0.0.1", hello(1, 7));
    lab.hear("10.0.0.1", hello(1, 7));
    EXPECT_EQ(lab.taken_events(), Events{"up 10.0.0.1"});
    lab.hear("10.0.0.1", hello(1, 8));
    EXPECT_EQ(lab.taken_events(), Events{"restarted 10.0.0.1"});
    lab.hear("10.0.0.1", hello(1, std::nullopt));
    EXPECT_EQ(lab.taken_events(), Events{"restarted 10.0.0.1"});
    lab.hear("10.0.0.1", hello(1, std::nullopt));
    EXPECT_EQ(lab.taken_events(), Events{});
}

TEST(PimNeighbour, APriorityThatChangesMovesTheDesignatedRouterAtOnce)
{
    Lab lab(settings());
    lab.hear("10.0.0.1", hello(0));
    lab.hear("10.0.0.9", hello(0));
    EXPECT_EQ(lab.taken_events(), (Events{"up 10.0.0.1", "up 10.0.0.9"}));
    lab.hear("10.0.0.1", hello(2));
    EXPECT_EQ(lab.taken_events(), Events{"dr 10.0.0.1"});
    lab.hear("10.0.0.1", hello(std::nullopt));
    EXPECT_EQ(lab.taken_events(), Events{"dr 10.0.0.9"});
    LinkSettings own = settings("10.0.0.10");
    lab.link.set(own);
    EXPECT_EQ(lab.taken_events(), Events{"dr 10.0.0.10"});
    EXPECT_TRUE(lab.link.is_dr());
}

TEST(PimNeighbour, DelaysAreTheLargestThatAllSay)
{
    Lab lab(settings());
    EXPECT_EQ(lab.link.join_prune_override_ms(), 3000u);
    EXPECT_FALSE(lab.link.suppresses_joins());
    Hello says = hello();
    says.lan_delay = LanDelay{true, 700, 1000};
    lab.hear("10.0.0.1", says);
    EXPECT_EQ(lab.link.propagation_ms(), 700u);
    EXPECT_EQ(lab.link.override_ms(), 2500u);
    EXPECT_FALSE(lab.link.suppresses_joins());
    says.lan_delay = LanDelay{false, 100, 9000};
    lab.hear("10.0.0.2", says);
    EXPECT_EQ(lab.link.propagation_ms(), 700u);
    EXPECT_EQ(lab.link.override_ms(), 9000u);
    EXPECT_TRUE(lab.link.suppresses_joins());
    says.lan_delay = std::nullopt;
    lab.hear("10.0.0.3", says);
    EXPECT_EQ(lab.link.join_prune_override_ms(), 3000u);
    EXPECT_TRUE(lab.link.suppresses_joins());
    says.holdtime_s = 0;
    lab.hear("10.0.0.3", says);
    lab.hear("10.0.0.2", says);
    EXPECT_EQ(lab.link.join_prune_override_ms(), 3200u);
    EXPECT_FALSE(lab.link.suppresses_joins());
}

TEST(PimNeighbour, HellosComeFromALinkLocalAddressInIpv6)
{
    Lab lab(settings("fe80::5"));
    EXPECT_EQ(lab.hear("2001:db8::1", hello()), Count::HelloSource);
    EXPECT_EQ(lab.hear("::", hello()), Count::HelloSource);
    EXPECT_EQ(lab.hear("ff02::1", hello()), Count::HelloSource);
    EXPECT_EQ(lab.hear("fe80::1", hello()), NO_DROP);
    Lab ipv4(settings());
    EXPECT_EQ(ipv4.hear("0.0.0.0", hello()), Count::HelloSource);
    EXPECT_EQ(ipv4.link.size(), 0u);
}

TEST(PimNeighbour, IsFoundByItsFurtherAddresses)
{
    Lab lab(settings("fe80::5"));
    const WithAddresses first({addr("2001:db8::1"), addr("2001:db8::2"), addr("2001:db8::1")});
    lab.hear("fe80::1", first.hello);
    ASSERT_NE(lab.link.owner_of(addr("2001:db8::2")), nullptr);
    EXPECT_EQ(pimsmd::to_text(lab.link.owner_of(addr("2001:db8::2"))->address), "fe80::1");
    EXPECT_EQ(lab.link.owner_of(addr("fe80::1")), lab.link.find(addr("fe80::1")));
    EXPECT_EQ(lab.link.find(addr("2001:db8::2")), nullptr);
    EXPECT_EQ(lab.link.find(addr("fe80::1"))->addresses.size(), 2u);

    const WithAddresses second({addr("2001:db8::2")});
    lab.hear("fe80::2", second.hello);
    EXPECT_EQ(pimsmd::to_text(lab.link.owner_of(addr("2001:db8::2"))->address), "fe80::2");
    EXPECT_EQ(lab.link.find(addr("fe80::1"))->addresses.size(), 1u);
    EXPECT_EQ(lab.counters[Count::MovedAddress], 1u);

    lab.hear("fe80::2", hello());
    EXPECT_EQ(lab.link.owner_of(addr("2001:db8::2")), nullptr);
    lab.pass(105000);
    EXPECT_EQ(lab.link.owner_of(addr("2001:db8::1")), nullptr);
}

TEST(PimNeighbour, NeighboursAndTheirAddressesHaveALimit)
{
    Lab lab(settings());
    for (unsigned i = 0; i < pimsmd::MOST_NEIGHBOURS; ++i) {
        const uint8_t bytes[] = {10, 0, 1, static_cast<uint8_t>(i)};

        EXPECT_EQ(lab.link.heard(pimsmd::make_address(MCAST_FAMILY_IPV4, bytes), hello(), lab.counters),
                  NO_DROP);
    }
    EXPECT_EQ(lab.hear("10.0.0.1", hello()), Count::NeighbourLimit);
    EXPECT_EQ(lab.hear("10.0.1.1", hello()), NO_DROP); // one that is known
    EXPECT_EQ(lab.link.size(), 256u);
    lab.link.clear();
    EXPECT_EQ(lab.link.size(), 0u);
    EXPECT_EQ(lab.hear("10.0.0.1", hello()), NO_DROP);

    std::vector<Address> many;
    for (unsigned i = 0; i < 70; ++i) {
        const uint8_t bytes[] = {192, 0, 2, static_cast<uint8_t>(i)};

        many.push_back(pimsmd::make_address(MCAST_FAMILY_IPV4, bytes));
    }
    const WithAddresses says(many);

    lab.hear("10.0.0.1", says.hello);
    EXPECT_EQ(lab.link.find(addr("10.0.0.1"))->addresses.size(), 64u);
    EXPECT_EQ(lab.counters[Count::NeighbourAddresses], 6u);
    EXPECT_EQ(lab.link.owner_of(addr("192.0.2.64")), nullptr);
}

TEST(PimNeighbour, RandomHellosLeadToWhatTheFormulasSay)
{
    property::Random random(property::Seed("neighbour"));
    struct Known {
        Hello hello;
        uint64_t end_ms;
    };
    std::map<std::string, Known> model;
    Lab lab(settings());

    for (uint64_t step = 0; step < property::Operations(20000); ++step) {
        const std::string from = "10.0.0." + std::to_string(10 + random.Below(12));
        Hello says = hello(random.Below(3), 1);

        says.holdtime_s = static_cast<uint16_t>(random.OneIn(5) ? 0 : 1 + random.Below(100));
        says.lan_delay = LanDelay{random.OneIn(2), static_cast<uint16_t>(random.Below(1000)),
                                  static_cast<uint16_t>(random.Below(9000))};
        if (random.OneIn(10)) {
            says.dr_priority = std::nullopt;
        }
        if (random.OneIn(10)) {
            says.lan_delay = std::nullopt;
        }
        lab.pass(random.Below(8000));
        lab.hear(from.c_str(), says);
        std::erase_if(model, [&](const auto &one) { return one.second.end_ms <= lab.now; });
        model.erase(from);
        if (says.holdtime_s != 0) {
            model[from] = {says, lab.now + uint64_t{1000} * *says.holdtime_s};
        }
        bool priorities = true;
        bool delays = true;
        bool tracking = true;
        uint32_t propagation = 500;
        uint32_t override_ms = 2500;
        for (const auto &[name, known] : model) {
            priorities = priorities && known.hello.dr_priority.has_value();
            delays = delays && known.hello.lan_delay.has_value();
            if (known.hello.lan_delay) {
                tracking = tracking && known.hello.lan_delay->tracking;
                propagation = std::max<uint32_t>(propagation, known.hello.lan_delay->propagation_ms);
                override_ms = std::max<uint32_t>(override_ms, known.hello.lan_delay->override_ms);
            }
        }
        std::pair<uint32_t, std::string> dr{priorities ? 1 : 0, "10.0.0.05"}; // the digits as many as theirs
        for (const auto &[name, known] : model) {
            dr = std::max(dr, {priorities ? *known.hello.dr_priority : 0, name});
        }
        ASSERT_EQ(lab.link.size(), model.size());
        ASSERT_EQ(pimsmd::to_text(lab.link.dr()), dr.second == "10.0.0.05" ? "10.0.0.5" : dr.second);
        ASSERT_EQ(lab.link.propagation_ms(), delays ? propagation : 500);
        ASSERT_EQ(lab.link.override_ms(), delays ? override_ms : 2500);
        ASSERT_EQ(lab.link.suppresses_joins(), !delays || !tracking);
    }
}
