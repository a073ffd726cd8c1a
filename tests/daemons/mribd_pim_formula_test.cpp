/*
 * The outputs of an entry after any history of what a PIM client and hosts say, beside the formula of the RFC.
 */
#include <array>
#include <gtest/gtest.h>
#include <random>

#include "daemons/mribd_pim_support.h"

using namespace mribd;
using namespace mribd_test;
using namespace mcastd;

namespace
{

class PimFormula : public PimBench
{
};

// The formula of RFC 7761, 4.1.6, from the inputs, for one link.
struct LinkInputs {
    uint8_t state = PIM_GONE;
    bool pim_group = false, pim_source = false, pim_block = false;
    bool host_group = false, host_source = false, host_block = false;
    uint8_t group_assert = PIM_ASSERT_NONE, source_assert = PIM_ASSERT_NONE;
};

bool forwards_on(const LinkInputs &link, bool spt)
{
    if (link.state == PIM_GONE) {
        return (link.host_group && !link.host_block) || (spt && link.host_source);
    }
    const bool dr = link.state == PIM_DESIGNATED;
    const bool lost_group = link.group_assert == PIM_ASSERT_LOST,
               won_group = link.group_assert == PIM_ASSERT_WON;
    const bool lost_source = link.source_assert == PIM_ASSERT_LOST,
               won_source = link.source_assert == PIM_ASSERT_WON;
    const bool include_group = ((dr && !lost_group) || won_group) && link.host_group && !link.host_block;
    const bool include_source = ((dr && !lost_source) || won_source) && link.host_source;
    const bool rpt = ((link.pim_group && !link.pim_block) || include_group) && !lost_group && !lost_source;
    return spt ? (rpt || link.pim_source || include_source) && !lost_source : rpt;
}

TEST_P(PimFormula, OutputsAreTheInheritedListOfTheRfcAfterAnyHistory)
{
    std::mt19937 engine(20261123);
    const auto random = [&engine] { return static_cast<uint32_t>(engine()); };
    std::array<LinkInputs, 5> links{};
    bool spt = false;
    bench.packet(1, source, group);
    const auto flip = [&](Session &session, uint32_t link, bool &held, const std::string &of_source,
                          uint8_t exclude) {
        held = !held;
        join(session, link, of_source, held ? 1 : 0, exclude);
    };
    for (int step = 0; step < 4000; ++step) {
        const uint32_t at = 2 + random() % 3;
        LinkInputs &link = links[at];
        const bool runs = link.state != PIM_GONE;
        switch (random() % 10) {
        case 0:
            link.state = static_cast<uint8_t>(random() % 3);
            interface(at, link.state);
            if (link.state == PIM_GONE) {
                link.pim_group = link.pim_source = link.pim_block = false;
                link.group_assert = link.source_assert = PIM_ASSERT_NONE;
            }
            break;
        case 1:
            flip(*hosts, at, link.host_group, "", 0);
            break;
        case 2:
            flip(*hosts, at, link.host_source, source, 0);
            break;
        case 3:
            flip(*hosts, at, link.host_block, source, 1);
            break;
        case 4:
        case 5:
            if (runs) {
                flip(*pim, at, link.pim_group, "", 0);
            }
            break;
        case 6:
            if (runs) {
                flip(*pim, at, link.pim_source, source, 0);
            }
            break;
        case 7:
            if (runs) {
                flip(*pim, at, link.pim_block, source, 1);
            }
            break;
        case 8:
            if (runs) {
                const bool of_group = random() % 2 == 0;
                uint8_t &state = of_group ? link.group_assert : link.source_assert;
                state = static_cast<uint8_t>(random() % 3);
                assertion(of_group ? "" : source, at, state);
            }
            break;
        default:
            spt = !spt;
            tree(source, PIM_FROM_INTERFACE, 1, spt ? PIM_TREE_SPT : 0);
            break;
        }
        if (step == 0 || !bench.kernel.has(source, group)) {
            bench.packet(1, source, group);
        }
        bool has_tree = bench.router.trees().has_source_tree(address(group), address(source));
        Interfaces expected;
        for (const int i : {2, 3, 4}) {
            if (forwards_on(links[static_cast<size_t>(i)], spt || !has_tree)) {
                expected.push_back(i);
            }
        }
        ASSERT_EQ(forwards(), expected) << "step " << step;
    }
}

INSTANTIATE_TEST_SUITE_P(Families, PimFormula, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                         [](const auto &family) {
                             return family.param == MCAST_FAMILY_IPV4 ? "ipv4" : "ipv6";
                         });

} // namespace
