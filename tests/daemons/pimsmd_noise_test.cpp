/*
 * Routers with neighbours, trees, registered sources and RPs hear messages that were changed on the way: by bits, by length,
 * by who seems to have sent them. Whatever they make of it, they keep what holds between their parts, and forget all of it
 * when what is wanted ends and time passes.
 */
#include <gtest/gtest.h>
#include <iterator>
#include <numeric>

#include "daemons/pimsmd/checksum.h"
#include "tests/daemons/pimsmd_router_lab.h"
#include "tests/support/property.h"

using namespace pimsmd_test;

namespace
{

class PimNoise : public testing::TestWithParam<uint16_t>
{
protected:
    static constexpr unsigned LINKS_OF_ALL[] = {1, 2, 3};

    PimNoise()
    {
        const auto all = *mcastd::Prefix::parse(GetParam() == MCAST_FAMILY_IPV4 ? "224.0.0.0/4" : "ff00::/8");
        pimsmd::Config config;
        config.bsr.rp = global(GetParam(), 2, 2);
        config.bsr.candidate = pimsmd::bsr::Weight{1, global(GetParam(), 2, 2)};
        config.bsr.rp_ranges.push_back({all, false, false});
        config.trees.most_entries = 500;
        config.most_neighbours = 20;
        first = &lan.add();
        last = &lan.add(config);
        first->attach(1);
        first->attach(2);
        last->attach(2);
        last->attach(3);
        last->route(1, 2, 1);
        lan.pass(40 * 1000);
    }

    Address group(unsigned number) const
    {
        const char *const ipv4[] = {"239.1.1.1", "239.1.1.2", "232.1.1.1"};
        const char *const ipv6[] = {"ff0e::1", "ff0e::2", "ff3e::1"};
        return addr((GetParam() == MCAST_FAMILY_IPV4 ? ipv4 : ipv6)[number]);
    }

    void want(bool wanted)
    {
        const Address any = pimsmd::any_address(GetParam());
        const unsigned link = last->link_number(3);
        for (unsigned i = 0; i < 3; ++i) {
            last->router->trees().set_receivers(link, group(i), i < 2 ? any : global(GetParam(), 1, 99),
                                                wanted);
            last->router->trees().set_excluded(link, group(i), global(GetParam(), 1, 98), wanted);
        }
        if (wanted) {
            first->router->trees().packet(first->link_number(1), group(0), global(GetParam(), 1, 99));
            first->router->trees().packet(first->link_number(1), group(1), global(GetParam(), 1, 97));
        }
        lan.settle();
    }

    // How often the router has refused or left out something.
    static uint64_t complaints(Box &box)
    {
        const auto &values = box.router->counters().values;
        return std::accumulate(std::begin(values), std::end(values), uint64_t{0});
    }

    // What is said of entries is what there are.
    static void check(Box &box)
    {
        uint32_t entries = 0;
        box.router->trees().visit_groups([&](const pimsmd::GroupEntry &group) {
            ++entries;
            pimsmd::Trees::visit_sources(group, [&](const pimsmd::SourceEntry &source) {
                ++entries;
                ASSERT_EQ(source.words.joins & ~0x7fffffffu, 0u);
                for (const auto &[number, link] : source.links) {
                    ASSERT_NE(box.router->link(number), nullptr);
                }
            });
        });
        ASSERT_EQ(entries, box.router->trees().entries());
        ASSERT_LE(entries, box.router->config().trees.most_entries);
        for (const unsigned link : box.links) {
            ASSERT_LE(box.neighbours(link).size(), box.router->config().most_neighbours);
        }
    }

    Lan lan{GetParam()};
    Box *first = nullptr;
    Box *last = nullptr;
};

std::string noise_family(const testing::TestParamInfo<uint16_t> &info)
{
    return mcastd::family_name(info.param);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Families, PimNoise, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                         noise_family);

TEST_P(PimNoise, ChangedMessagesBreakNothingAndLeaveNothingBehind)
{
    property::Random random(property::Seed("PimNoise"));
    std::vector<Lan::Packet> heard;
    lan.tap = [&](const Lan::Packet &packet) {
        if (heard.size() < 400) {
            heard.push_back(packet);
        } else {
            heard[random.Below(static_cast<uint32_t>(heard.size()))] = packet;
        }
    };
    want(true);
    lan.pass(70 * 1000);
    ASSERT_GT(heard.size(), 10u);
    size_t taken = 0;
    for (uint64_t left = property::Operations(4000); left > 0; --left) {
        Lan::Packet packet = heard[random.Below(static_cast<uint32_t>(heard.size()))];
        Box &box = random.Below(2) == 0 ? *first : *last;

        for (unsigned change = random.Below(4); change > 0 && !packet.bytes.empty(); --change) {
            packet.bytes[random.Below(static_cast<uint32_t>(packet.bytes.size()))] ^=
                static_cast<uint8_t>(1u << random.Below(8));
        }
        if (random.Below(8) == 0) {
            packet.bytes.resize(random.Below(static_cast<uint32_t>(packet.bytes.size()) + 20));
        }
        if (random.Below(4) == 0) {
            packet.envelope.source.address[GetParam() == MCAST_FAMILY_IPV4 ? 3 : 15] =
                static_cast<uint8_t>(1 + random.Below(40));
        }
        if (packet.bytes.size() >= pimsmd::PIM_HEADER_SIZE + 4) {
            pimsmd::put_checksum(packet.envelope, packet.bytes);
        }
        const bool to_group = pimsmd::is_multicast(packet.envelope.destination);
        const uint32_t if_index = to_group ? LINKS_OF_ALL[random.Below(3)] : 0;
        const uint64_t before = complaints(box);

        box.router->received(if_index, packet.envelope, packet.bytes);
        taken += before == complaints(box) ? 1 : 0;
        lan.settle();
        if (random.Below(16) == 0) {
            lan.pass(random.Below(3000));
        }
        if (random.Below(64) == 0) {
            want(random.Below(2) == 0);
        }
        check(box);
        if (HasFatalFailure()) {
            return;
        }
    }
    EXPECT_GT(taken, property::Operations(4000) / 4); // or no machine was reached
    lan.tap = nullptr;
    want(false);
    lan.pass(uint64_t{70000} * 1000); // the longest holdtime that ends
    check(*first);
    check(*last);
    for (Box *box : {first, last}) {
        while (!box->links.empty()) {
            box->detach(*box->links.begin()); // with it goes who stays for ever
        }
        lan.settle();
    }
    EXPECT_EQ(first->router->trees().entries(), 0u);
    EXPECT_EQ(last->router->trees().entries(), 0u);
}
