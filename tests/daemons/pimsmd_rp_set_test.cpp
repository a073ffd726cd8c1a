#include <gtest/gtest.h>
#include <map>
#include <tuple>
#include <utility>

#include "daemons/common/log.h"
#include "daemons/pimsmd/embedded_rp.h"
#include "daemons/pimsmd/rp_hash.h"
#include "daemons/pimsmd/rp_set.h"
#include "tests/daemons/pimsmd_messages.h"
#include "tests/support/property.h"

using namespace pimsmd_test;
using pimsmd::BootstrapRp;
using pimsmd::Prefix;
using pimsmd::RpChoice;
using pimsmd::RpLimits;
using pimsmd::RpOrigin;
using pimsmd::RpSet;
using pimsmd::StaticRp;

namespace
{

Prefix prefix(const char *text)
{
    return Prefix::parse(text).value();
}

BootstrapRp rp(const char *address, uint16_t holdtime_s = 150, uint8_t priority = 0)
{
    return {addr(address), holdtime_s, priority};
}

struct RpLab final : pimsmd::RpSetEvents {
    explicit RpLab(uint16_t family = MCAST_FAMILY_IPV4, const RpLimits &limits = {})
        : set(family, queue, *this, counters, limits)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
    }
    void rps_changed(const Prefix &range) override
    {
        changed.push_back(range.text());
    }
    void learn(const char *range, const std::vector<BootstrapRp> &rps)
    {
        set.learn(prefix(range), rps);
    }
    bool configure(const std::vector<std::pair<const char *, const char *>> &list)
    {
        std::vector<StaticRp> rps;
        for (const auto &[range, address] : list) {
            rps.push_back({prefix(range), addr(address)});
        }
        return set.set_static(rps);
    }
    void pass(uint64_t ms)
    {
        now += ms;
        queue.run_due(SIZE_MAX);
    }
    // "10.255.0.1 bootstrap 239.0.0.0/8", or "none".
    std::string choice(const char *group) const
    {
        const char *const origins[] = {"embedded", "configured", "bootstrap"};
        const std::optional<RpChoice> made = set.choose(addr(group));
        return made ? pimsmd::to_text(made->rp) + " " + origins[static_cast<int>(made->origin)] + " " +
                          made->range.text()
                    : "none";
    }
    std::vector<std::string> taken()
    {
        return std::exchange(changed, {});
    }

    uint64_t now = 1000;
    pimsmd::MsQueue queue{[this] { return now; }};
    std::vector<std::string> changed;
    pimsmd::Counters counters;
    RpSet set;
};

using Changes = std::vector<std::string>;

} // namespace

// The numbers were computed apart from this code, with integers of any size and one modulo at the end.
TEST(PimRpHash, IsThatOfTheRfc)
{
    struct Value {
        const char *group;
        uint8_t mask_length;
        const char *rp;
        uint32_t hash;
    };
    const Value values[] = {
        {"239.1.1.1", 30, "10.255.0.1", 1869492497},
        {"239.1.1.1", 30, "10.255.0.2", 885070936},
        {"239.1.1.1", 30, "192.0.2.200", 721729494},
        {"239.1.1.3", 30, "10.255.0.1", 1869492497},
        {"239.1.1.4", 30, "10.255.0.1", 1487837877},
        {"239.1.1.4", 30, "10.255.0.2", 503416316},
        {"239.1.1.4", 30, "192.0.2.200", 1927268858},
        {"224.1.2.3", 32, "10.0.0.1", 1596458534},
        {"224.1.2.3", 0, "10.0.0.1", 1410713617},
        {"ff0e::1:1", 126, "2001:db8:f::1", 926965689},
        {"ff0e::1:1", 126, "2001:db8:f::2", 2090027776},
        {"ff0e::1:4", 126, "2001:db8:f::1", 574521341},
        {"ff0e::1:1", 126, "3ffe:b00:c18:1::10", 1907396673},
        {"ff0e::1:4", 126, "2001:db8:f::2", 1737583428},
    };
    for (const Value &one : values) {
        EXPECT_EQ(pimsmd::rp_hash(addr(one.group), one.mask_length, addr(one.rp)), one.hash)
            << one.group << ' ' << one.rp;
    }
    // The example of the RFC.
    EXPECT_EQ(pimsmd::address_digest(addr("3ffe:b00:c18:1::10")), 0x3ffe0b00u ^ 0x0c180001u ^ 0x10u);
}

TEST(PimEmbeddedRp, IsTakenOutOfTheGroup)
{
    const std::pair<const char *, const char *> groups[] = {
        {"ff7e:140:2001:db8:beef:feed::1", "2001:db8:beef:feed::1"},
        {"ff7e:f40:2001:db8:beef:feed:0:1", "2001:db8:beef:feed::f"},
        {"ff75:230:2001:db8:beef:feed::1", "2001:db8:beef::2"},
        {"fff8:120:2001:db8:ffff:ffff::1", "2001:db8::1"},
        {"ff73:13f:2001:db8:beef:ffff::1", "2001:db8:beef:fffe::1"},
    };
    for (const auto &[group, expected] : groups) {
        const std::optional<Address> found = pimsmd::embedded_rp(addr(group));

        EXPECT_EQ(found ? pimsmd::to_text(*found) : "none", expected) << group;
    }
}

TEST(PimEmbeddedRp, IsNoneWhereTheGroupNamesNoRouter)
{
    for (const char *group : {
             "ff7e:40:2001:db8:beef:feed::1",  // interface 0
             "ff7e:100:2001:db8:beef:feed::1", // no prefix
             "ff7e:141:2001:db8:beef:feed::1", // a prefix of 65 bits
             "ff72:140:2001:db8:beef:feed::1", // stays on the link
             "ff71:140:2001:db8:beef:feed::1", // and in the host
             "ff7e:140:fe80::1",               // a link-local address
             "ff7e:140:ff0e:db8:beef:feed::1", // a group
         }) {
        EXPECT_TRUE(pimsmd::embeds_rp(addr(group))) << group;
        EXPECT_FALSE(pimsmd::embedded_rp(addr(group))) << group;
    }
    for (const char *group : {"ff3e:140:2001:db8:beef:feed::1", "ff5e:140:2001:db8:beef:feed::1", "ff0e::1",
                              "2001:db8::1", "239.1.1.1"}) {
        EXPECT_FALSE(pimsmd::embeds_rp(addr(group))) << group;
        EXPECT_FALSE(pimsmd::embedded_rp(addr(group))) << group;
    }
}

TEST(PimRpSet, TheLongestRangeBeforeWhoKnowsIt)
{
    RpLab lab;
    EXPECT_EQ(lab.choice("239.1.1.1"), "none");
    EXPECT_TRUE(lab.configure({{"224.0.0.0/4", "10.255.0.1"}, {"239.1.0.0/16", "10.255.0.2"}}));
    lab.learn("239.0.0.0/8", {rp("10.255.0.3")});
    lab.learn("239.1.0.0/16", {rp("10.255.0.4")});
    lab.learn("239.1.1.0/24", {rp("10.255.0.5")});
    EXPECT_EQ(lab.choice("238.1.1.1"), "10.255.0.1 configured 224.0.0.0/4");
    EXPECT_EQ(lab.choice("239.2.1.1"), "10.255.0.3 bootstrap 239.0.0.0/8");
    EXPECT_EQ(lab.choice("239.1.2.1"), "10.255.0.2 configured 239.1.0.0/16");
    EXPECT_EQ(lab.choice("239.1.1.1"), "10.255.0.5 bootstrap 239.1.1.0/24");
    EXPECT_EQ(pimsmd::to_text(lab.set.rp_of(addr("239.1.1.1")).value()), "10.255.0.5");
    EXPECT_TRUE(lab.configure({}));
    EXPECT_EQ(lab.choice("239.1.2.1"), "10.255.0.4 bootstrap 239.1.0.0/16");
    EXPECT_EQ(lab.choice("238.1.1.1"), "none");
}

TEST(PimRpSet, PriorityThenHashThenAddress)
{
    RpLab lab;
    // By the hash literals: .1 serves 239.1.1.1, 192.0.2.200 serves 239.1.1.4.
    lab.learn("239.0.0.0/8", {rp("10.255.0.1"), rp("10.255.0.2"), rp("192.0.2.200")});
    EXPECT_EQ(lab.choice("239.1.1.1"), "10.255.0.1 bootstrap 239.0.0.0/8");
    EXPECT_EQ(lab.choice("239.1.1.4"), "192.0.2.200 bootstrap 239.0.0.0/8");
    lab.learn("239.0.0.0/8", {rp("10.255.0.1", 150, 1), rp("10.255.0.2"), rp("192.0.2.200", 150, 1)});
    EXPECT_EQ(lab.choice("239.1.1.1"), "10.255.0.2 bootstrap 239.0.0.0/8");
    EXPECT_EQ(lab.set.choose(addr("239.1.1.1"))->priority, 0);

    // The words' exclusive-or is the same, and so is the hash.
    RpLab equal(MCAST_FAMILY_IPV6);
    equal.learn("ff0e::/16", {rp("2001:db8:0:1:0:2::"), rp("2001:db8:0:2:0:1::")});
    EXPECT_EQ(equal.choice("ff0e::1"), "2001:db8:0:2:0:1:: bootstrap ff0e::/16");
}

TEST(PimRpSet, TheMaskLengthOfTheBsrCounts)
{
    RpLab lab;
    EXPECT_EQ(lab.set.hash_mask_length(), 30);
    lab.learn("239.0.0.0/8", {rp("10.255.0.1"), rp("192.0.2.200")});
    lab.taken();
    EXPECT_EQ(lab.choice("239.1.1.4"), "192.0.2.200 bootstrap 239.0.0.0/8");
    lab.set.set_hash_mask_length(29); // 239.1.1.4 and 239.1.1.1 are one now
    EXPECT_EQ(lab.choice("239.1.1.4"), lab.choice("239.1.1.1"));
    EXPECT_EQ(lab.taken(), Changes{"224.0.0.0/4"});
    lab.set.set_hash_mask_length(29);
    EXPECT_EQ(lab.taken(), Changes{});
    lab.set.forget_learnt();
    EXPECT_EQ(lab.taken(), (Changes{"239.0.0.0/8", "224.0.0.0/4"}));
    EXPECT_EQ(lab.choice("239.1.1.4"), "none");
    EXPECT_EQ(RpLab(MCAST_FAMILY_IPV6).set.hash_mask_length(), 126);
}

TEST(PimRpSet, AnEmbeddedRpComesBeforeAllAndHasNoSubstitute)
{
    RpLab lab(MCAST_FAMILY_IPV6);
    EXPECT_TRUE(lab.configure({{"ff00::/8", "2001:db8:f::9"}, {"ff7e:140::/32", "2001:db8:f::8"}}));
    EXPECT_EQ(lab.choice("ff7e:140:2001:db8:beef:feed::1"),
              "2001:db8:beef:feed::1 embedded ff7e:140:2001:db8:beef:feed:0:1/128");
    EXPECT_EQ(lab.choice("ff7e:40:2001:db8:beef:feed::1"), "none");
    EXPECT_EQ(lab.choice("ff0e::1"), "2001:db8:f::9 configured ff00::/8");
}

TEST(PimRpSet, LearntRpsEndWithTheirHoldtimes)
{
    RpLab lab;
    lab.learn("239.0.0.0/8", {rp("10.255.0.1", 10), rp("10.255.0.2", 20)});
    EXPECT_EQ(lab.taken(), Changes{"239.0.0.0/8"});
    lab.pass(9999);
    lab.learn("239.0.0.0/8", {rp("10.255.0.1", 10), rp("10.255.0.2", 20)});
    EXPECT_EQ(lab.taken(), Changes{});
    lab.pass(9999);
    EXPECT_EQ(lab.set.learnt().rps(), 2u);
    lab.pass(1);
    EXPECT_EQ(lab.taken(), Changes{"239.0.0.0/8"});
    EXPECT_EQ(lab.choice("239.1.1.1"), "10.255.0.2 bootstrap 239.0.0.0/8");
    lab.pass(10000);
    EXPECT_EQ(lab.choice("239.1.1.1"), "none");
    EXPECT_TRUE(lab.set.learnt().ranges().empty());
}

TEST(PimRpSet, WhatTheBsrSaysOfARangeReplacesWhatItSaid)
{
    RpLab lab;
    lab.learn("239.0.0.0/8", {rp("10.255.0.1"), rp("10.255.0.2")});
    lab.learn("238.0.0.0/8", {rp("10.255.0.1")});
    lab.taken();
    lab.learn("239.0.0.0/8", {rp("10.255.0.2"), rp("10.255.0.3")});
    EXPECT_EQ(lab.taken(), Changes{"239.0.0.0/8"});
    EXPECT_EQ(lab.set.learnt().rps(), 3u);
    EXPECT_EQ(lab.set.learnt().find(prefix("239.0.0.0/8"))->count(addr("10.255.0.1")), 0u);
    lab.learn("239.0.0.0/8", {rp("10.255.0.2", 0), rp("10.255.0.3")}); // gone, says its holdtime
    EXPECT_EQ(lab.choice("239.1.1.1"), "10.255.0.3 bootstrap 239.0.0.0/8");
    lab.learn("239.0.0.0/8", {});
    EXPECT_EQ(lab.choice("239.1.1.1"), "none");
    EXPECT_EQ(lab.choice("238.1.1.1"), "10.255.0.1 bootstrap 238.0.0.0/8");
    lab.pass(150000);
    EXPECT_EQ(lab.set.learnt().rps(), 0u);
}

TEST(PimRpSet, RangesAndRpsHaveLimitsAndShares)
{
    RpLab lab(MCAST_FAMILY_IPV4, {4, 6, 3});
    lab.learn("239.0.0.0/16", {rp("10.255.0.1"), rp("10.255.0.2")});
    lab.learn("239.1.0.0/16", {rp("10.255.0.1")});
    lab.learn("239.2.0.0/16", {rp("10.255.0.1")});
    lab.learn("239.3.0.0/16", {rp("10.255.0.1")}); // its fourth
    EXPECT_EQ(lab.counters[Count::RpShare], 1u);
    EXPECT_EQ(lab.choice("239.3.1.1"), "none");
    lab.learn("239.3.0.0/16", {rp("10.255.0.2")});
    lab.learn("239.4.0.0/16", {rp("10.255.0.3")}); // a fifth range
    EXPECT_EQ(lab.counters[Count::RpLimit], 1u);
    lab.learn("239.3.0.0/16", {rp("10.255.0.2"), rp("10.255.0.3"), rp("10.255.0.4")}); // the seventh in all
    EXPECT_EQ(lab.counters[Count::RpLimit], 2u);
    EXPECT_EQ(lab.set.learnt().rps(), 6u);
    lab.learn("239.0.0.0/16", {});
    lab.learn("239.4.0.0/16", {rp("10.255.0.1")});
    EXPECT_EQ(lab.choice("239.4.1.1"), "10.255.0.1 bootstrap 239.4.0.0/16");
    EXPECT_EQ(lab.counters[Count::RpShare], 1u);
}

TEST(PimRpSet, ManyRpsAreWarnedOfOnce)
{
    RpLab lab(MCAST_FAMILY_IPV4, {100, 10, 100});
    mcastd::log_open("pimsmd", mcastd::LogLevel::Warning);
    testing::internal::CaptureStderr();
    std::vector<BootstrapRp> rps;
    for (const char *address : {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4", "10.0.0.5", "10.0.0.6",
                                "10.0.0.7", "10.0.0.8", "10.0.0.9", "10.0.0.10"}) {
        rps.push_back(rp(address));
        lab.learn("239.0.0.0/8", rps);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "pimsmd: warning: RPs of group ranges: 9 of at most 10\n");
}

TEST(PimRpSet, ARangeHasNoMoreRpsThanAMessageCanCount)
{
    RpLab lab;
    std::vector<BootstrapRp> many;
    for (unsigned i = 0; i < 300; ++i) {
        const uint8_t bytes[] = {10, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};

        many.push_back({pimsmd::make_address(MCAST_FAMILY_IPV4, bytes), 150, 0});
    }
    many[0] = rp("10.1.0.0");
    lab.learn("239.0.0.0/8", many);
    EXPECT_EQ(lab.set.learnt().rps(), 255u);
    EXPECT_EQ(lab.counters[Count::RpShare], 45u);
}

TEST(PimRpSet, ConfiguredRpsAreTakenWholeOrNotAtAll)
{
    RpLab lab;
    EXPECT_TRUE(lab.configure(
        {{"239.0.0.0/8", "10.255.0.1"}, {"238.0.0.0/8", "10.255.0.1"}, {"239.0.0.0/8", "10.255.0.1"}}));
    EXPECT_EQ(lab.taken(), (Changes{"238.0.0.0/8", "239.0.0.0/8"}));
    EXPECT_FALSE(lab.configure({{"237.0.0.0/8", "10.255.0.1"}, {"236.0.0.0/8", "239.0.0.1"}}));
    EXPECT_FALSE(lab.configure({{"10.0.0.0/8", "10.255.0.1"}}));
    EXPECT_FALSE(lab.configure({{"224.0.0.0/3", "10.255.0.1"}}));
    EXPECT_FALSE(lab.configure({{"ff0e::/16", "2001:db8::1"}}));
    EXPECT_FALSE(lab.set.set_static(
        std::vector<StaticRp>(pimsmd::MOST_STATIC_RPS + 1, {prefix("237.0.0.0/8"), addr("10.255.0.1")})));
    EXPECT_EQ(lab.taken(), Changes{});
    EXPECT_EQ(lab.choice("239.1.1.1"), "10.255.0.1 configured 239.0.0.0/8");
    EXPECT_TRUE(lab.configure({{"239.0.0.0/8", "10.255.0.1"}, {"238.0.0.0/8", "10.255.0.2"}}));
    EXPECT_EQ(lab.taken(), Changes{"238.0.0.0/8"});
}

TEST(PimRpSet, RandomSetsChooseAsAListDoes)
{
    property::Random random(property::Seed("rp_set"));
    struct Known {
        Prefix range;
        BootstrapRp rp;
        bool configured;
    };
    for (uint64_t round = 0; round < property::Operations(2000); ++round) {
        RpLab lab;
        std::vector<Known> model;
        std::vector<StaticRp> configured;
        std::map<Prefix, std::vector<BootstrapRp>> learnt;
        const auto some_group = [&] {
            const uint8_t bytes[] = {239, static_cast<uint8_t>(random.Below(2)),
                                     static_cast<uint8_t>(random.Below(2)),
                                     static_cast<uint8_t>(random.Below(8))};
            return pimsmd::make_address(MCAST_FAMILY_IPV4, bytes);
        };
        for (uint64_t i = random.Below(12); i > 0; --i) {
            const Prefix range = Prefix::of(some_group(), static_cast<uint8_t>(8 * (1 + random.Below(4))));
            const std::string name = "10.0.0." + std::to_string(i);
            const BootstrapRp one = rp(name.c_str(), 150, static_cast<uint8_t>(random.Below(2)));
            const bool by_file = random.OneIn(3);

            model.push_back({range, one, by_file});
            if (by_file) {
                model.back().rp.priority = 0;
                configured.push_back({range, one.address});
            } else {
                learnt[range].push_back(one);
            }
        }
        ASSERT_TRUE(lab.set.set_static(configured));
        for (const auto &[range, rps] : learnt) {
            lab.set.learn(range, rps);
        }
        const Address group = some_group();
        const Known *best = nullptr;
        for (const Known &one : model) {
            const auto rank = [&](const Known &of) {
                return std::tuple(of.range.length, of.configured, -int{of.rp.priority},
                                  pimsmd::rp_hash(group, 30, of.rp.address));
            };
            if (one.range.covers(group) && (best == nullptr || rank(one) > rank(*best))) {
                best = &one;
            }
        }
        const std::optional<RpChoice> choice = lab.set.choose(group);
        ASSERT_EQ(choice.has_value(), best != nullptr);
        if (best != nullptr) {
            ASSERT_EQ(pimsmd::to_text(choice->rp), pimsmd::to_text(best->rp.address));
            ASSERT_EQ(choice->origin, best->configured ? RpOrigin::Configured : RpOrigin::Bootstrap);
        }
    }
}
