/*
 * Random sequences of creations, deletions, lookups and walks on a route table, against a map of maps; every
 * release of user data accounted for.
 */
#include "mcast/route_table.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

#include "property/radix_model.h"
#include "support/fault.h"
#include "support/property.h"

namespace
{

using radix_model::Covers;
using radix_model::Prefix;

Prefix PrefixOf(const MCAST_ADDR_S &address, unsigned length)
{
    radix_oracle::Bytes bytes = {};
    memcpy(bytes.data(), address.address, sizeof address.address);
    return radix_model::MakePrefix(bytes, length);
}

/* User data that has been hung on entries and not yet been released. */
std::set<void *> g_hung;

void Release(void **user_data)
{
    EXPECT_EQ(g_hung.erase(*user_data), 1u);
}

struct GroupModel {
    MRT_GROUP_S *group;
    std::map<Prefix, MRT_SOURCE_S *> sources;
};

using TableModel = std::map<Prefix, GroupModel>;

template <typename Entry> Entry *EntryOf(const std::pair<const Prefix, Entry *> &item)
{
    return item.second;
}

MRT_GROUP_S *EntryOf(const std::pair<const Prefix, GroupModel> &item)
{
    return item.second.group;
}

class World
{
public:
    World(unsigned chosen, uint64_t seed)
        : family(chosen), full(chosen == MCAST_FAMILY_IPV4 ? 32 : 128), random(seed),
          table(MRT_CreateTable(chosen, "model", Release, Release))
    {
    }

    ~World()
    {
        if (random.OneIn(2)) {
            MRT_ClearTable(table);
            EXPECT_EQ(MRT_CountTable(table), 0u);
        }
        MRT_DestroyTable(table);
        EXPECT_TRUE(g_hung.empty());
    }

    World(const World &) = delete;
    World &operator=(const World &) = delete;

    void Step()
    {
        const unsigned choice = random.Below(100);
        if (choice < 20) {
            Create();
        } else if (choice < 26) {
            DeleteSource();
        } else if (choice < 29) {
            DeleteGroup();
        } else if (choice < 30) {
            ClearSome();
        } else if (choice < 45) {
            CheckWalks();
        } else if (choice < 60) {
            WalkAndDelete();
        } else {
            Query();
        }
        CheckCounts();
    }

private:
    unsigned Length()
    {
        return random.OneIn(2) ? full : full - 8 * random.Below(full / 8);
    }

    MCAST_ADDR_S AddressOf(unsigned length)
    {
        MCAST_ADDR_S address = {};
        address.family = static_cast<uint16_t>(family);
        for (unsigned i = 0; i < length / 8; ++i) {
            address.address[i] = static_cast<uint8_t>(random.Below(2) * 0x81);
        }
        return address;
    }

    void Hang(void **user_data)
    {
        if (*user_data == nullptr && random.OneIn(2)) {
            *user_data = reinterpret_cast<void *>(++last_data);
            g_hung.insert(*user_data);
        }
    }

    void Create()
    {
        const unsigned group_length = Length();
        const unsigned source_length = Length();
        const MCAST_ADDR_S group = AddressOf(group_length);
        const MCAST_ADDR_S source = AddressOf(source_length);
        const Prefix group_prefix = PrefixOf(group, group_length);
        const Prefix source_prefix = PrefixOf(source, source_length);
        MRT_SOURCE_S *entry = MRT_CreateEntryMask(table, &group, group_length, &source, source_length);
        ASSERT_NE(entry, nullptr);
        GroupModel &known = model[group_prefix];
        if (known.group == nullptr) {
            known.group = entry->group;
        }
        ASSERT_EQ(entry->group, known.group);
        MRT_SOURCE_S *&known_source = known.sources[source_prefix];
        if (known_source == nullptr) {
            known_source = entry;
        }
        ASSERT_EQ(entry, known_source);
        Hang(&entry->user_data);
        Hang(&entry->group->user_data);
    }

    TableModel::iterator AnyGroup()
    {
        return std::next(model.begin(), random.Below(static_cast<uint32_t>(model.size())));
    }

    void DeleteSource()
    {
        if (model.empty()) {
            return;
        }
        auto group = AnyGroup();
        auto &sources = group->second.sources;
        if (sources.empty()) {
            return;
        }
        auto source = std::next(sources.begin(), random.Below(static_cast<uint32_t>(sources.size())));
        MRT_SOURCE_S *entry = source->second;
        const bool with_group = random.OneIn(2);

        sources.erase(source);
        with_group ? MRT_DeleteSourceGroup(entry) : MRT_DeleteSource(entry);
        if (with_group && sources.empty()) {
            model.erase(group);
        }
    }

    void DeleteGroup()
    {
        if (!model.empty()) {
            auto group = AnyGroup();
            MRT_DeleteGroup(group->second.group);
            model.erase(group);
        }
    }

    void ClearSome()
    {
        if (random.OneIn(8)) {
            MRT_ClearTable(table);
            model.clear();
        } else if (!model.empty()) {
            auto group = AnyGroup();
            MRT_ClearTable(group->second.group->sources);
            group->second.sources.clear();
        }
    }

    /* Walks over groups, deleting some on the way: what has just been yielded, or any other. */
    void WalkAndDelete()
    {
        MRT_WALK_S *walk = MRT_CreateWalk(table);
        auto expected = model.begin();
        ASSERT_EQ(walk != nullptr, !model.empty());
        for (void *entry = MRT_WalkNext(walk); entry != nullptr; entry = MRT_WalkNext(walk)) {
            ASSERT_NE(expected, model.end());
            ASSERT_EQ(entry, expected->second.group);
            auto yielded = expected++;
            if (random.OneIn(12)) {
                MRT_DeleteGroup(yielded->second.group);
                model.erase(yielded);
            } else if (expected != model.end() && random.OneIn(12)) {
                MRT_DeleteGroup(expected->second.group);
                expected = model.erase(expected);
            }
        }
        ASSERT_EQ(expected, model.end());
        MRT_DeleteWalk(walk);
    }

    template <typename Map>
    static void CheckWalk(MRT_WALK_S *walk, const Map &map, const Prefix *only, bool from)
    {
        for (const auto &item : map) {
            const bool inside = only == nullptr || Covers(*only, item.first);
            if (inside || (from && *only < item.first)) {
                EXPECT_EQ(MRT_WalkNext(walk), EntryOf(item));
            }
        }
        EXPECT_EQ(MRT_WalkNext(walk), nullptr);
        MRT_DeleteWalk(walk);
    }

    void CheckWalks()
    {
        const unsigned length = Length();
        const MCAST_ADDR_S address = AddressOf(length);
        const Prefix prefix = PrefixOf(address, length);
        CheckWalk(MRT_Walk_ReadMode(table), model, nullptr, false);
        CheckWalk(MRT_Walk_Subset(table, &address, length), model, &prefix, false);
        MRT_WALK_S *walk = MRT_Walk_Start(table, &address, length);
        if (walk != nullptr) {
            CheckWalk(walk, model, &prefix, true);
        }
        if (!model.empty()) {
            auto group = AnyGroup();
            CheckWalk(MRT_CreateWalk(group->second.group->sources), group->second.sources, nullptr, false);
        }
    }

    void Query()
    {
        const unsigned group_length = Length();
        const unsigned source_length = Length();
        const MCAST_ADDR_S group = AddressOf(group_length);
        const MCAST_ADDR_S source = AddressOf(source_length);
        auto known = model.find(PrefixOf(group, group_length));
        MRT_SOURCE_S *expected = nullptr;
        if (known != model.end()) {
            auto entry = known->second.sources.find(PrefixOf(source, source_length));
            expected = entry == known->second.sources.end() ? nullptr : entry->second;
        }
        ASSERT_EQ(MRT_LocateMask(table, &group, group_length),
                  known == model.end() ? nullptr : known->second.group);
        ASSERT_EQ(MRT_LocateSourceMask(table, &group, group_length, &source, source_length), expected);
        if (group_length == full && source_length == full) {
            ASSERT_EQ(MRT_LocateSource(table, &group, &source), expected);
        }
        MRT_GROUP_S *best = nullptr;
        for (const auto &[prefix, candidate] : model) {
            if (Covers(prefix, PrefixOf(group, group_length))) {
                best = candidate.group;
            }
        }
        ASSERT_EQ(MRT_BestMatch(table, &group, group_length), best);
        CheckNextSourceGroup();
    }

    /* From an entry whose group is stored at full length: the sources after it, then the groups after it. */
    void CheckNextSourceGroup()
    {
        if (model.empty()) {
            return;
        }
        auto group = AnyGroup();
        auto &sources = group->second.sources;
        if (group->first.length != full || sources.empty()) {
            return;
        }
        auto source = std::next(sources.begin(), random.Below(static_cast<uint32_t>(sources.size())));
        MRT_SOURCE_S *next = MRT_GetNextSourceGroup(table, group->second.group->address, full,
                                                    source->second->address, source->first.length);
        if (std::next(source) != sources.end()) {
            ASSERT_EQ(next, std::next(source)->second);
            return;
        }
        for (++group; group != model.end(); ++group) {
            if (group->first.length != full) {
                /* A masked group may be met twice, by definition. */
                return;
            }
            if (!group->second.sources.empty()) {
                ASSERT_EQ(next, group->second.sources.begin()->second);
                return;
            }
        }
        ASSERT_EQ(next, nullptr);
    }

    void CheckCounts() const
    {
        ASSERT_EQ(MRT_CountTable(table), model.size());
        for (const auto &[prefix, known] : model) {
            ASSERT_EQ(MRT_CountTable(known.group->sources), known.sources.size());
            ASSERT_EQ(known.group->mask_length, prefix.length);
        }
    }

    unsigned family;
    unsigned full;
    property::Random random;
    MRT_TABLE_S *table;
    TableModel model;
    uintptr_t last_data = 0;
};

class RouteTableProperty : public testing::TestWithParam<unsigned>
{
};

TEST_P(RouteTableProperty, EqualsAMapOfMapsAfterEveryOperation)
{
    constexpr uint64_t kOperationsOfAWorld = 1000;
    const long blocks = fault::LiveBlocks();
    const uint64_t operations = property::Operations(150000);
    uint64_t seed = property::Seed(GetParam() == MCAST_FAMILY_IPV4 ? "RouteTableIpv4" : "RouteTableIpv6");

    for (uint64_t done = 0; done < operations; done += kOperationsOfAWorld, ++seed) {
        World world(GetParam(), seed);

        for (uint64_t i = 0; i < kOperationsOfAWorld; ++i) {
            world.Step();
            if (HasFailure()) {
                FAIL() << "seed " << seed << ", operation " << i;
            }
        }
    }
    EXPECT_EQ(fault::LiveBlocks(), blocks);
}

INSTANTIATE_TEST_SUITE_P(Families, RouteTableProperty, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6));

} // namespace
