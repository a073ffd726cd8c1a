/*
 * Views and their differences as a client applies them: Mirror does with each record what the channel's
 * client end does, so that after any sequence of changes it must hold what the view says.
 */
#include <algorithm>
#include <gtest/gtest.h>
#include <random>

#include "daemons/mribd/view.h"
#include "daemons/mribd/view_records.h"
#include "daemons/mribd_messages.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

constexpr uint64_t EVERYTHING =
    MRIB_CAP_BASE | MRIB_CAP_VRF | MRIB_CAP_BOUNDARY | MRIB_CAP_DR | MRIB_CAP_SSM_POLICY;

struct Mirror {
    View view;
    std::vector<std::string> unblocked; // ranges taken away, in order

    void apply(const std::vector<Record> &records)
    {
        for (const Record &record : records) {
            switch (record.type) {
            case MRIB_TLV_VRF_STATE:
                take_state(value<MRIB_VRF_STATE_S>(record));
                break;
            case MRIB_TLV_SSM_POLICY: {
                const auto policy = value<MRIB_SSM_POLICY_S>(record);
                const uint16_t vrf_index = policy.vrf_index; // a packed field binds to no reference
                view.instances[vrf_index].ssm_acl = policy.acl_number;
                break;
            }
            case MRIB_TLV_PIM_DR: {
                const auto dr = value<MRIB_PIM_DR_S>(record);
                const InterfaceKey key{dr.vrf_index, dr.if_index};
                dr.state == 1 ? (void)view.designated.insert(key) : (void)view.designated.erase(key);
                break;
            }
            case MRIB_TLV_BOUNDARY:
                take_boundary(value<MRIB_BOUNDARY_S>(record));
                break;
            case MRIB_TLV_FLOW_CONTROL:
                view.busy = value<MRIB_FLOW_CONTROL_S>(record).busy;
                break;
            default:
                break;
            }
        }
    }

private:
    template <typename Value> static Value value(const Record &record)
    {
        Value result;
        EXPECT_EQ(record.value.size(), sizeof(result));
        std::memcpy(&result, record.value.data(), sizeof(result));
        return result;
    }

    void take_state(const MRIB_VRF_STATE_S &state)
    {
        const uint16_t vrf_index = state.vrf_index;
        view.instances[vrf_index].enabled = state.state == 1;
        if (state.state != 1) {
            std::erase_if(view.designated, [=](const auto &key) { return key.vrf_index == vrf_index; });
            std::erase_if(view.boundaries,
                          [=](const auto &known) { return known.first.vrf_index == vrf_index; });
        }
    }

    void take_boundary(const MRIB_BOUNDARY_S &record)
    {
        BoundaryView &boundary = view.boundaries[{record.vrf_index, record.if_index}];
        Prefix range{make_address(record.family, record.address), record.prefix_length};
        if (record.operation != 1 && record.remove_all == 1) {
            boundary = {};
        } else if (record.scope_flag == 1) {
            boundary.scope = record.operation == 1 ? record.scope : uint8_t{0};
        } else {
            for (const Prefix &known : boundary.ranges) {
                if (record.operation != 1 && range.covers(known)) {
                    unblocked.push_back(known.text());
                }
            }
            std::erase_if(boundary.ranges, [&](const Prefix &known) { return range.covers(known); });
            if (record.operation == 1) {
                boundary.ranges.insert(range);
            }
        }
        if (boundary == BoundaryView{}) {
            view.boundaries.erase({record.vrf_index, record.if_index});
        }
    }
};

Prefix range(const std::string &text)
{
    return *Prefix::parse(text);
}

std::vector<Record> changes(const View &before, const View &now, uint64_t capabilities = EVERYTHING,
                            uint8_t family = MCAST_FAMILY_IPV4)
{
    ClientQueue queue;
    put_changes(family, before, now, capabilities, queue);
    return take_all(queue);
}

View of_ranges(const std::set<Prefix> &ranges, uint8_t scope = 0)
{
    View view;
    view.instances[0] = {};
    if (!ranges.empty() || scope != 0) {
        view.boundaries[{0, 2}] = {ranges, scope};
    }
    return view;
}

TEST(View, ConfigurationOverridesTheElection)
{
    TableEnvironment environment;
    Config config;
    config.interfaces = {{"if1", 0, false, {}, 0}, {"if4", 0, true, {}, 0}, {"none", 0, true, {}, 0}};
    const View view = make_view(MCAST_FAMILY_IPV4, config, {{0, 1}, {0, 2}}, environment);
    EXPECT_EQ(view.designated, (std::set<InterfaceKey>{{0, 2}, {0, 4}}));
}

TEST(View, SettingsFollowTheNameOfTheInterface)
{
    TableEnvironment environment;
    environment.names = {{"wan", 2}};
    Config config;
    config.interfaces = {{"wan", 0, {}, {range("239.0.0.0/8")}, 0}};
    EXPECT_EQ(make_view(MCAST_FAMILY_IPV4, config, {}, environment).boundaries.begin()->first.if_index, 2u);
    environment.names = {{"wan", 3}};
    EXPECT_EQ(make_view(MCAST_FAMILY_IPV4, config, {}, environment).boundaries.begin()->first.if_index, 3u);
    environment.names.clear();
    EXPECT_TRUE(make_view(MCAST_FAMILY_IPV4, config, {}, environment).boundaries.empty());
}

TEST(View, EachFamilyHasItsOwnRangesScopeAndNumbers)
{
    TableEnvironment environment;
    Config config;
    config.busy = {1, 2};
    config.instances[0] = {true, {2000, 2001}, 0};
    config.interfaces = {
        {"if1", 0, {}, {range("239.0.0.0/8"), range("ff15::/16"), range("239.1.0.0/16")}, 5}};
    const View v4 = make_view(MCAST_FAMILY_IPV4, config, {}, environment);
    const View v6 = make_view(MCAST_FAMILY_IPV6, config, {}, environment);
    EXPECT_EQ(v4.boundaries.at({0, 1}), (BoundaryView{{range("239.0.0.0/8")}, 0}));
    EXPECT_EQ(v6.boundaries.at({0, 1}), (BoundaryView{{range("ff15::/16")}, 5}));
    EXPECT_EQ(v4.instances.at(0).ssm_acl, 2000u);
    EXPECT_EQ(v6.instances.at(0).ssm_acl, 2001u);
    EXPECT_EQ(v6.busy, 2u);
}

// Nested and disjoint ranges, many of them neighbours.
std::vector<Prefix> random_ranges(std::mt19937 &random)
{
    std::vector<Prefix> ranges;
    for (auto left = random() % 40; left > 0; --left) {
        const std::string bytes = std::to_string(random() % 3) + "." + std::to_string(random() % 256) + ".";
        ranges.push_back(range("239." + bytes + "0/" + std::to_string(8 + random() % 17)));
    }
    return ranges;
}

View view_of(const std::vector<Prefix> &ranges)
{
    Config config;
    config.interfaces = {{"if2", 0, {}, ranges, 0}};
    return make_view(MCAST_FAMILY_IPV4, config, {}, TableEnvironment());
}

TEST(View, RangesAreThoseThatNoOtherHoldsAndNoneIsTakenAwayThatStaysBlocked)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    View before = view_of({});
    for (int i = 0; i < 2000; ++i) {
        const std::vector<Prefix> ranges = random_ranges(random);
        const auto is_held = [&ranges](const Prefix &one) {
            return std::any_of(ranges.begin(), ranges.end(),
                               [&one](const Prefix &other) { return other.covers(one) && !(other == one); });
        };
        std::set<Prefix> expected(ranges.begin(), ranges.end());
        std::erase_if(expected, is_held);
        const View now = view_of(ranges);
        ASSERT_EQ(now, of_ranges(expected)) << "step " << i;
        Mirror mirror;
        mirror.view = before;
        mirror.apply(changes(before, now));
        for (const std::string &text : mirror.unblocked) {
            ASSERT_TRUE(ranges.empty() || (!is_held(range(text)) && !expected.contains(range(text))))
                << "step " << i << ": " << text;
        }
        before = now;
    }
}

TEST(View, DisabledInstanceHasNoInterfaceState)
{
    TableEnvironment environment;
    Config config;
    config.instances[0].enabled = false;
    config.interfaces = {{"if1", 0, true, {range("239.0.0.0/8")}, 5}};
    const View view = make_view(MCAST_FAMILY_IPV6, config, {{0, 1}, {0, 2}}, environment);
    EXPECT_TRUE(view.designated.empty());
    EXPECT_TRUE(view.boundaries.empty());
}

TEST(ViewChanges, NothingIsSaidWithoutADifference)
{
    const View view = of_ranges({range("239.0.0.0/8")}, 5);
    EXPECT_TRUE(changes(view, view).empty());
}

TEST(ViewChanges, WidenedRangeBlocksThroughout)
{
    Mirror mirror;
    const View narrow = of_ranges({range("239.1.0.0/16"), range("239.2.0.0/16")});
    mirror.apply(changes(View{}, narrow));
    const View wide = of_ranges({range("239.0.0.0/8")});
    mirror.apply(changes(narrow, wide));
    EXPECT_TRUE(mirror.unblocked.empty());
    EXPECT_EQ(mirror.view, wide);
}

TEST(ViewChanges, NarrowedRangeSurvivesTheRemovalOfTheWideOne)
{
    Mirror mirror;
    const View wide = of_ranges({range("239.0.0.0/8")});
    const View narrow = of_ranges({range("239.1.0.0/16")});
    mirror.apply(changes(View{}, wide));
    mirror.apply(changes(wide, narrow));
    EXPECT_EQ(mirror.view, narrow);
}

TEST(ViewChanges, InterfaceThatLosesEverythingIsToldSoOnce)
{
    const View full = of_ranges({range("239.1.0.0/16"), range("239.2.0.0/16")}, 5);
    EXPECT_EQ(changes(full, of_ranges({})).size(), 1u);
}

TEST(ViewChanges, CapabilitiesSelectTheRecords)
{
    View now = of_ranges({range("239.1.0.0/16")});
    now.instances[0] = {false, 2000};
    now.designated = {{0, 2}};
    now.busy = 1;
    View before;
    before.instances[0] = {};
    const auto types = [&](uint64_t capabilities) { return types_of(changes(before, now, capabilities)); };
    using Types = std::vector<uint16_t>;
    EXPECT_EQ(types(0), Types{});
    EXPECT_EQ(types(MRIB_CAP_BASE), Types{MRIB_TLV_FLOW_CONTROL});
    EXPECT_EQ(types(MRIB_CAP_VRF), Types{MRIB_TLV_VRF_STATE});
    EXPECT_EQ(types(MRIB_CAP_SSM_POLICY), Types{MRIB_TLV_SSM_POLICY});
    EXPECT_EQ(types(MRIB_CAP_BOUNDARY), Types{MRIB_TLV_BOUNDARY});
    EXPECT_EQ(types(MRIB_CAP_DR), Types{MRIB_TLV_PIM_DR});
}

TEST(ViewChanges, InstanceThatIsConfiguredNoLongerIsSwitchedOff)
{
    View before = of_ranges({});
    before.instances[7] = {true, 2000};
    Mirror mirror;
    mirror.view = before;
    mirror.apply(changes(before, of_ranges({})));
    EXPECT_EQ(mirror.view.instances.at(7), (InstanceView{false, MCAST_NONE}));
}

// A view of a few instances, interfaces and nested ranges, some of each.
View random_view(std::mt19937 &random, uint8_t family)
{
    TableEnvironment environment;
    Config config;
    config.busy = {static_cast<uint16_t>(random() % 2), static_cast<uint16_t>(random() % 2)};
    for (const uint16_t vrf_index : {uint16_t{0}, uint16_t{5}}) {
        config.instances[vrf_index].enabled = random() % 4 != 0;
        config.instances[vrf_index].ssm_acl.fill(random() % 2 != 0 ? 2000 : MCAST_NONE);
    }
    for (unsigned number = 1; number <= 4; ++number) {
        InterfaceConfig interface;
        interface.name = "if" + std::to_string(number);
        interface.vrf_index = number == 4 ? 5 : 0;
        for (auto ranges = random() % 4; ranges > 0; --ranges) {
            const std::string bits = "/" + std::to_string(8 + random() % 9);
            const std::string byte = std::to_string(random() % 2 != 0 ? 0 : 1 << random() % 8);
            interface.boundaries.push_back(family == MCAST_FAMILY_IPV4
                                               ? range("239." + byte + ".0.0" + bits)
                                               : range("ff" + byte.substr(0, 2) + "::" + bits));
        }
        interface.scope_boundary = static_cast<uint8_t>(random() % 2 != 0 ? 0 : 3 + random() % 13);
        if (random() % 2 != 0) {
            interface.designated = random() % 2 != 0;
        }
        config.interfaces.push_back(interface);
    }
    return make_view(family, config, {{0, 1}, {0, 2}}, environment);
}

TEST(ViewChanges, AnySequenceLeavesTheClientWithTheView)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (const uint8_t family : {uint8_t{MCAST_FAMILY_IPV4}, uint8_t{MCAST_FAMILY_IPV6}}) {
        View current = random_view(random, family);
        Mirror mirror;
        mirror.view = current;
        for (int i = 0; i < 2000; ++i) {
            const View next = random_view(random, family);
            mirror.apply(changes(current, next, EVERYTHING, family));
            current = next;
            ASSERT_EQ(mirror.view, current) << "step " << i;
        }
        // A replay to a client that knows nothing says the same.
        ClientQueue queue;
        put_flow_control(current, queue);
        put_instances(current, queue);
        put_ssm_policies(current, queue);
        put_designated_routers(current, queue);
        put_boundaries(family, current, queue);
        Mirror fresh;
        fresh.apply(take_all(queue));
        EXPECT_EQ(fresh.view, current);
    }
}

} // namespace

TEST(CurrentView, AListThatCannotTellGroupsIsWarnedOfByItsFamily)
{
    Bench bench(MCAST_FAMILY_IPV6);
    ClientBench clients{bench.router};

    mcastd::log_open("mribd", mcastd::LogLevel::Warning);
    testing::internal::CaptureStderr();
    clients.configure("[[mribd.instance]]\nssm_acl = { ipv4 = 2001, ipv6 = 2002 }\n");
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_NE(log.find("instance 0: ssm_acl names ipv6 list 2002"), log.npos) << log;
    EXPECT_EQ(log.find("2001"), log.npos) << log;
    testing::internal::CaptureStderr();
    clients.configure("[[mribd.instance]]\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no list, nothing to warn of";
}
