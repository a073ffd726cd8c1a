#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "daemons/pimsmd/packer.h"
#include "tests/daemons/pimsmd_messages.h"
#include "tests/support/property.h"

using namespace pimsmd_test;
using pimsmd::Tree;
using pimsmd::Wish;

namespace
{

constexpr size_t IPV4_ROOM = 1500 - 20;
constexpr size_t IPV6_ROOM = 1500 - 40;

// An address whose last bytes are the number.
Address numbered(const char *base, uint32_t number)
{
    Address address = addr(base);
    const size_t end = mcastd::address_size(address.family);
    for (size_t i = 1; i <= 3; ++i) {
        address.address[end - i] = static_cast<uint8_t>(number >> 8 * (i - 1));
    }
    return address;
}

struct Family {
    Envelope envelope;
    Address upstream;
    const char *groups;
    const char *sources;
    size_t room;
};

Family family(bool ipv6)
{
    return ipv6 ? Family{envelope(MCAST_FAMILY_IPV6), addr("fe80::2"), "ff0e::", "2001:db8::", IPV6_ROOM}
                : Family{envelope(MCAST_FAMILY_IPV4), addr("10.0.0.2"), "239.0.0.0", "10.0.0.0", IPV4_ROOM};
}

// "join 10.0.0.1 rpt"
std::string wish_text(const pimsmd::TreeSource &source, bool join)
{
    return (join ? "join " : "prune ") + text_of(source);
}

// What a neighbour makes of the messages that it gets.
struct Neighbour {
    explicit Neighbour(const Envelope &from) : envelope(from)
    {
    }

    void take(std::span<const uint8_t> bytes)
    {
        Message message;
        ASSERT_EQ(pimsmd::read_message(envelope, bytes, &message), NO_DROP);
        sizes.push_back(bytes.size());
        records.push_back(0);
        pimsmd::JoinPruneGroups groups = std::get<pimsmd::JoinPrune>(message).groups;
        pimsmd::JoinPruneGroup group;

        while (groups.next(&group)) {
            ++records.back();
            take_group(group);
        }
    }

    void take_group(const pimsmd::JoinPruneGroup &group)
    {
        const std::string name = pimsmd::to_text(group.range.prefix.address);
        std::set<std::string> record;
        for (const bool join : {true, false}) {
            const pimsmd::EncodedSources &sources = join ? group.joins : group.prunes;

            for (size_t i = 0; i < sources.size(); ++i) {
                record.insert(wish_text(sources[i], join));
                EXPECT_TRUE(wishes[name].insert(wish_text(sources[i], join)).second) << "twice";
                star_records[name] += join && sources[i].tree == Tree::Star ? 1u : 0u;
            }
        }
        if (star_records[name] == 1 && !with_star.contains(name)) {
            with_star[name] = record;
        }
    }

    Envelope envelope;
    std::vector<size_t> sizes;
    std::vector<size_t> records; // of each message
    std::map<std::string, std::set<std::string>> wishes;
    std::map<std::string, std::set<std::string>> with_star; // the record with the Join(*,G)
    std::map<std::string, unsigned> star_records;
};

pimsmd::Packer packer_to(const Family &of, Neighbour &neighbour)
{
    return {of.envelope, of.upstream, 210, of.room,
            [&neighbour](std::span<const uint8_t> bytes) { neighbour.take(bytes); }};
}

// Wishes for the first so many sources, on one tree.
std::vector<Wish> wishes(const Family &of, uint32_t count, Tree tree, bool join)
{
    std::vector<Wish> made;
    for (uint32_t i = 1; i <= count; ++i) {
        made.push_back({{numbered(of.sources, i), tree}, join});
    }
    return made;
}

Wish star(const Family &of, bool join = true)
{
    return {{numbered(of.sources, 0xffffff), Tree::Star}, join};
}

} // namespace

TEST(PimPacker, SeventyThreeGroupsFitIntoAnEthernetPacket)
{
    const Family ipv4 = family(false);
    for (const uint32_t groups : {73u, 74u}) {
        Neighbour neighbour(ipv4.envelope);
        pimsmd::Packer packer = packer_to(ipv4, neighbour);

        for (uint32_t i = 1; i <= groups; ++i) {
            packer.add(numbered(ipv4.groups, i), wishes(ipv4, 1, Tree::Source, true));
        }
        packer.finish();
        EXPECT_EQ(neighbour.records, (groups == 73 ? std::vector<size_t>{73} : std::vector<size_t>{73, 1}));
        EXPECT_EQ(neighbour.wishes.size(), groups);
    }
}

TEST(PimPacker, ThirtyTwoGroupsOfIpv6FitIntoAnEthernetPacket)
{
    const Family ipv6 = family(true);
    Neighbour neighbour(ipv6.envelope);
    pimsmd::Packer packer = packer_to(ipv6, neighbour);
    for (uint32_t i = 1; i <= 33; ++i) {
        packer.add(numbered(ipv6.groups, i), wishes(ipv6, 1, Tree::Source, false));
    }
    packer.finish();
    EXPECT_EQ(neighbour.records, (std::vector<size_t>{32, 1}));
}

TEST(PimPacker, NothingIsSentWhenNothingIsAsked)
{
    const Family ipv4 = family(false);
    Neighbour neighbour(ipv4.envelope);
    pimsmd::Packer packer = packer_to(ipv4, neighbour);
    packer.finish();
    packer.add(numbered(ipv4.groups, 1), {});
    packer.finish();
    EXPECT_TRUE(neighbour.sizes.empty());
}

TEST(PimPacker, AGroupOfManySourcesGoesOverSeveralMessages)
{
    const Family ipv4 = family(false);
    Neighbour neighbour(ipv4.envelope);
    pimsmd::Packer packer = packer_to(ipv4, neighbour);
    packer.add(numbered(ipv4.groups, 1), wishes(ipv4, 5000, Tree::Source, true));
    packer.add(numbered(ipv4.groups, 2), wishes(ipv4, 1, Tree::Source, true));
    packer.finish();
    EXPECT_EQ(neighbour.wishes["239.0.0.1"].size(), 5000u);
    EXPECT_EQ(neighbour.wishes["239.0.0.2"].size(), 1u);
    // (1480 - 14 - 12) / 8 sources a message.
    EXPECT_EQ(neighbour.sizes.size(), (5000u + 180) / 181);
}

TEST(PimPacker, PrunesOfSourcesStayWithTheirJoinOfTheSharedTree)
{
    const Family ipv4 = family(false);
    Neighbour neighbour(ipv4.envelope);
    pimsmd::Packer packer = packer_to(ipv4, neighbour);
    // Fills the message so far that the next group has no room beside it.
    packer.add(numbered(ipv4.groups, 1), wishes(ipv4, 100, Tree::Source, true));
    std::vector<Wish> both = wishes(ipv4, 150, Tree::Rpt, false);

    both.push_back(star(ipv4));
    packer.add(numbered(ipv4.groups, 2), both);
    packer.finish();
    EXPECT_EQ(neighbour.records, (std::vector<size_t>{1, 1}));
    EXPECT_EQ(neighbour.with_star["239.0.0.2"].size(), 151u);
}

TEST(PimPacker, WhatMustStayTogetherMayExceedTheMtu)
{
    const Family ipv4 = family(false);
    Neighbour neighbour(ipv4.envelope);
    pimsmd::Packer packer = packer_to(ipv4, neighbour);
    std::vector<Wish> all = wishes(ipv4, 1000, Tree::Rpt, false);
    all.push_back(star(ipv4));
    all.push_back({{numbered(ipv4.sources, 5000), Tree::Source}, true});
    packer.add(numbered(ipv4.groups, 1), all);
    packer.finish();
    EXPECT_EQ(neighbour.sizes, (std::vector<size_t>{14 + 12 + 1001 * 8, 14 + 12 + 8}));
    EXPECT_EQ(neighbour.with_star["239.0.0.1"].size(), 1001u);
    EXPECT_EQ(packer.left_out(), 0u);
}

TEST(PimPacker, TheHighestPrunesAreLeftOutBeyondTheLongestMessage)
{
    const Family ipv4 = family(false);
    Neighbour neighbour(ipv4.envelope);
    pimsmd::Packer packer = packer_to(ipv4, neighbour);
    std::vector<Wish> all = wishes(ipv4, 9000, Tree::Rpt, false);

    std::reverse(all.begin(), all.end());
    all.push_back(star(ipv4));
    packer.add(numbered(ipv4.groups, 1), all);
    packer.finish();
    const size_t fit = (65515 - 14 - 12) / 8;
    const auto &record = neighbour.with_star["239.0.0.1"];

    EXPECT_EQ(record.size(), fit);
    EXPECT_EQ(packer.left_out(), 9001 - fit);
    const uint32_t last = static_cast<uint32_t>(fit - 1);

    EXPECT_TRUE(record.contains("prune " + pimsmd::to_text(numbered(ipv4.sources, last)) + " rpt"));
    EXPECT_FALSE(record.contains("prune " + pimsmd::to_text(numbered(ipv4.sources, last + 1)) + " rpt"));
}

TEST(PimPacker, ARoomTooSmallForAnythingIsTakenAsTheSmallestThatWorks)
{
    for (const bool ipv6 : {false, true}) {
        Family of = family(ipv6);
        Neighbour neighbour(of.envelope);

        of.room = 0;
        pimsmd::Packer packer = packer_to(of, neighbour);

        packer.add(numbered(of.groups, 1), wishes(of, 3, Tree::Source, true));
        packer.finish();
        EXPECT_EQ(neighbour.records, (std::vector<size_t>{1, 1, 1}));
    }
}

TEST(PimPacker, RandomWishesArriveAllAndOnce)
{
    property::Random random(property::Seed("packer"));
    uint64_t groups = 0;
    while (groups < property::Operations(2000)) {
        Family of = family(random.OneIn(2));
        Neighbour neighbour(of.envelope);
        std::map<std::string, std::set<std::string>> asked;
        std::map<std::string, std::set<std::string>> bound;

        of.room = 100 + random.Below(9000);
        pimsmd::Packer packer = packer_to(of, neighbour);

        for (uint32_t number = random.Below(600); number > 0; --number) {
            const Address group = numbered(of.groups, number);
            const std::string name = pimsmd::to_text(group);

            ++groups;
            const bool has_star = random.OneIn(3);
            std::vector<Wish> all;

            if (has_star) {
                all.push_back(star(of, !random.OneIn(4)));
            }
            const uint32_t sources = random.OneIn(20) ? random.Below(700) : random.Below(3);

            for (uint32_t i = 1; i <= sources; ++i) {
                const Tree tree = random.OneIn(2) ? Tree::Rpt : Tree::Source;

                all.push_back({{numbered(of.sources, i), tree}, random.OneIn(2) && tree == Tree::Source});
            }
            for (const Wish &wish : all) {
                asked[name].insert(wish_text(wish.source, wish.join));
                if (has_star && all[0].join && wish.source.tree != Tree::Source) {
                    bound[name].insert(wish_text(wish.source, wish.join));
                }
            }
            packer.add(group, all);
        }
        packer.finish();
        EXPECT_EQ(neighbour.wishes, asked);
        EXPECT_EQ(packer.left_out(), 0u);
        for (const auto &[name, record] : bound) {
            const std::set<std::string> &got = neighbour.with_star[name];

            EXPECT_TRUE(std::includes(got.begin(), got.end(), record.begin(), record.end())) << name;
        }
        for (size_t i = 0; i < neighbour.sizes.size(); ++i) {
            EXPECT_TRUE(neighbour.sizes[i] <= of.room || neighbour.records[i] == 1);
        }
    }
}
