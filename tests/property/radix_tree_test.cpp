/*
 * Random sequences of additions, deletions, lookups and open walks on the radix tree, against a sorted vector
 * of prefixes, with the whole tree validated after every operation; and its searches against their
 * definitions.
 */
#include "property/radix_index_validate.h"
#include "property/radix_validate.h"
#include "support/fault.h"
#include "support/property.h"

namespace
{

using namespace radix_model;

struct Entry {
    uint32_t payload;
    MCAST_ADDR_S *key;
    uint8_t length;
};

struct Flavour {
    const char *name;
    unsigned maximum;    /* bits */
    unsigned longest;    /* of the lengths in use */
    bool bits_beyond;    /* keys may have bits beyond their length */
    bool mixed_families; /* keys of both families in one tree */
    unsigned size;       /* entries, roughly */
    unsigned spread;     /* byte values that keys are made of */
};

class World
{
public:
    World(const Flavour &chosen, uint64_t seed)
        : flavour(chosen), random(seed),
          tree(MRT_RDX_CreateTree(offsetof(Entry, key), offsetof(Entry, length),
                                  offsetof(MCAST_ADDR_S, address), chosen.maximum)),
          oracle(tree)
    {
    }

    /* Ends tree and walks in either order: a walk outlives its tree and yields nothing then. */
    ~World()
    {
        const bool tree_first = random.OneIn(2);
        if (tree_first) {
            MRT_RDX_DestroyTree(tree);
        }
        for (OpenWalk &open : walks) {
            if (tree_first) {
                EXPECT_EQ(MRT_RDX_WalkNext(open.walk), nullptr);
            }
            MRT_RDX_DestroyWalk(open.walk);
        }
        if (!tree_first) {
            MRT_RDX_DestroyTree(tree);
        }
        for (auto &[prefix, entry] : model.items) {
            Free(entry);
        }
    }

    World(const World &) = delete;
    World &operator=(const World &) = delete;

    void Step()
    {
        const unsigned choice = random.Below(100);
        if (choice < 28) {
            /* The size wanders between nothing and twice the flavour's. */
            random.Below(2 * flavour.size) >= model.items.size() ? Add() : Delete();
        } else if (choice < 34) {
            OpenOrClose();
        } else if (choice < 50) {
            StepWalk();
        } else {
            Query();
        }
        Validate(tree, model);
        if (flavour.size > 100 && random.OneIn(16)) {
            ValidateIndex(tree, model);
        }
    }

private:
    struct OpenWalk {
        MRT_RDX_WALK_S *walk;
        Cursor cursor;
    };

    static void Free(void *memory)
    {
        auto *entry = static_cast<Entry *>(memory);
        if (entry != nullptr) {
            delete entry->key;
            delete entry;
        }
    }

    template <typename Item> Item &Any(std::vector<Item> &items)
    {
        return items[random.Below(static_cast<uint32_t>(items.size()))];
    }

    unsigned RandomLength()
    {
        switch (random.Below(8)) {
        case 0:
            return flavour.longest;
        case 1:
            return std::min(flavour.longest, flavour.maximum);
        case 2:
            return random.Below(std::min(flavour.longest, 4u) + 1);
        default:
            return random.Below(flavour.longest + 1);
        }
    }

    MCAST_ADDR_S RandomRecord(unsigned length)
    {
        MCAST_ADDR_S record = {};
        const bool other = flavour.mixed_families && random.OneIn(2);
        const unsigned size = (flavour.maximum + 7) / 8;
        record.family = (flavour.maximum <= 32) != other ? MCAST_FAMILY_IPV4 : MCAST_FAMILY_IPV6;
        for (unsigned i = 0; i < size; ++i) {
            const unsigned value = random.Below(flavour.spread);
            record.address[i] = static_cast<uint8_t>(value == 3 ? 0x81 : value << 6 | value);
        }
        if (!flavour.bits_beyond || random.OneIn(2)) {
            memcpy(record.address, PrefixOf(record, length).key.data(), size);
        }
        return record;
    }

    Prefix PrefixOf(const MCAST_ADDR_S &record, unsigned length) const
    {
        return MakePrefix(oracle.KeyBytes(&record), length);
    }

    void Add()
    {
        const unsigned length = RandomLength();
        auto *entry = new Entry{0, new MCAST_ADDR_S(RandomRecord(length)), static_cast<uint8_t>(length)};
        /* Only the index of a large tree takes a third block; it does without when there is none. */
        fault::FailAllocation(random.OneIn(4) ? 3 : 0);
        const MRT_RDX_NODE_S *node = MRT_RDX_AddNode(tree, entry);
        fault::FailAllocation(0);

        Free(model.Put(PrefixOf(*entry->key, length), entry));
        ASSERT_NE(node, nullptr);
        ASSERT_EQ(node->entry, entry);
    }

    void Delete()
    {
        if (model.items.empty()) {
            return;
        }
        Prefix prefix = Any(model.items).first;
        if (!walks.empty() && random.OneIn(2)) {
            /* The entry on which a walk stands. */
            prefix = Any(walks).cursor.current.value_or(prefix);
        }
        for (OpenWalk &open : walks) {
            if (open.cursor.current == prefix) {
                open.cursor.current = model.Following(open.cursor);
            }
        }
        void *entry = model.Remove(prefix);
        MRT_RDX_DeleteNode(tree, entry);
        Free(entry);
    }

    void OpenOrClose()
    {
        if (walks.size() >= 5 || (!walks.empty() && random.OneIn(3))) {
            const auto which = static_cast<std::ptrdiff_t>(random.Below(static_cast<uint32_t>(walks.size())));
            MRT_RDX_DestroyWalk((walks.begin() + which)->walk);
            walks.erase(walks.begin() + which);
            return;
        }
        const bool reverse = random.OneIn(3);
        const unsigned length = random.OneIn(2) ? 0 : RandomLength();
        const MCAST_ADDR_S record = RandomRecord(length);
        const MCAST_ADDR_S *key = random.OneIn(4) ? nullptr : &record;
        MRT_RDX_WALK_S *walk = MRT_RDX_CreateWalk(tree, key, length | random.Below(4) << 8,
                                                  reverse ? MRT_RDX_WALK_REVERSE : MRT_RDX_WALK_FORWARD);
        const MRT_RDX_NODE_S *start = oracle.WalkStart(key, length, reverse);

        ASSERT_EQ(walk != nullptr, start != nullptr);
        if (!reverse && (key != nullptr || length == 0)) {
            const auto first = model.FirstUnder(oracle.KeyBytes(&record), length);
            ASSERT_EQ(first ? model.Get(*first) : nullptr, Oracle::EntryOf(start));
        }
        if (walk != nullptr) {
            walks.push_back({walk, {reverse, length, PrefixOf(*oracle.RecordOf(start->entry), start->bit)}});
        }
    }

    void StepWalk()
    {
        if (walks.empty()) {
            return;
        }
        OpenWalk &open = Any(walks);
        if (random.OneIn(16)) {
            MRT_RDX_SetWalkAll(open.walk);
            open.cursor.bound = 0;
        }
        void *expected = nullptr;
        if (open.cursor.current) {
            expected = model.Get(*open.cursor.current);
            open.cursor.current = model.Following(open.cursor);
        }
        ASSERT_EQ(MRT_RDX_WalkNext(open.walk), expected);
    }

    /* Only the low 16 bits of the answer count. */
    static MCAST_BOOL AcceptsShort(void *entry, void *argument)
    {
        return static_cast<const Entry *>(entry)->length <= *static_cast<unsigned *>(argument) ? 0x50001u
                                                                                               : 0x10000u;
    }

    void Query()
    {
        unsigned length = RandomLength();
        MCAST_ADDR_S record = RandomRecord(length);
        const MCAST_ADDR_S *key = &record;
        if (!model.items.empty() && random.OneIn(2)) {
            /* A key that is there, now and then as the very record that an entry points at. */
            const auto *entry = static_cast<const Entry *>(Any(model.items).second);
            record = *entry->key;
            key = random.OneIn(2) ? entry->key : &record;
            length = random.OneIn(2) ? entry->length : length;
        }
        const unsigned passed = length | random.Below(4) << 8;
        unsigned limit = RandomLength();

        ASSERT_EQ(MRT_RDX_Locate(tree, key, passed), oracle.Locate(*key, length)) << length;
        ASSERT_EQ(MRT_RDX_GetNext(tree, key, passed), oracle.GetNext(key, length)) << length;
        ASSERT_EQ(MRT_RDX_GetNext(tree, nullptr, passed), oracle.GetNext(nullptr, length));
        ASSERT_EQ(MRT_RDX_SearchNextBest(tree, key, passed), oracle.SearchNextBest(key, length)) << length;
        ASSERT_EQ(MRT_RDX_SearchNextBest(tree, nullptr, passed), oracle.SearchNextBest(nullptr, length));
        ASSERT_EQ(MRT_RDX_LocateBest(tree, key, passed, nullptr, nullptr),
                  oracle.LocateBest(*key, length, nullptr, nullptr));
        ASSERT_EQ(MRT_RDX_LocateBest(tree, key, passed, AcceptsShort, &limit),
                  oracle.LocateBest(*key, length, AcceptsShort, &limit));
        QueryModel(*key, length);
    }

    /*
     * What the meaning of prefixes says, where the keys' bits or families do not make the answer a matter of
     * definition.
     */
    void QueryModel(const MCAST_ADDR_S &record, unsigned length)
    {
        const Prefix prefix = PrefixOf(record, length);
        const std::vector<void *> chain = model.Chain(prefix.key, length);
        MRT_RDX_WALK_S *walk = MRT_RDX_CreateWalk(tree, &record, length, MRT_RDX_WALK_PREFIX_CHAIN);
        EXPECT_EQ(walk != nullptr, !chain.empty());
        for (void *entry : chain) {
            EXPECT_EQ(MRT_RDX_WalkNext(walk), entry);
        }
        EXPECT_EQ(MRT_RDX_WalkNext(walk), nullptr);
        MRT_RDX_DestroyWalk(walk);
        ASSERT_EQ(MRT_RDX_LocateBest(tree, &record, length, nullptr, nullptr),
                  chain.empty() ? nullptr : chain.front());
        if (!flavour.mixed_families && length <= flavour.maximum) {
            ASSERT_EQ(MRT_RDX_Locate(tree, &record, length), model.Get(prefix));
        }
        if (length != 0 && prefix.key == oracle.KeyBytes(&record) && model.Get(prefix) != nullptr) {
            ASSERT_EQ(MRT_RDX_GetNext(tree, &record, length), model.After(prefix));
        }
    }

    Flavour flavour;
    property::Random random;
    MRT_RDX_TREE_S *tree;
    Oracle oracle;
    Model model;
    std::vector<OpenWalk> walks;
};

class RadixTreeProperty : public testing::TestWithParam<Flavour>
{
};

TEST_P(RadixTreeProperty, EqualsTheModelAfterEveryOperation)
{
    const Flavour &flavour = GetParam();
    const uint64_t operations_of_a_world = flavour.size * 100;
    const uint64_t operations = property::Operations(flavour.size > 100 ? 20000 : 100000);
    uint64_t seed = property::Seed(flavour.name);

    for (uint64_t done = 0; done < operations; done += operations_of_a_world, ++seed) {
        World world(flavour, seed);

        for (uint64_t i = 0; i < operations_of_a_world; ++i) {
            world.Step();
            if (HasFailure()) {
                FAIL() << "seed " << seed << ", operation " << i;
            }
        }
    }
}

/* Name, maximum, longest, bits beyond, mixed families, size, spread. */
constexpr Flavour kFlavours[] = {
    {"Ipv4", 32, 32, false, false, 12, 3},       {"Ipv4BitsBeyondLength", 32, 32, true, false, 12, 3},
    {"Ipv4Dense", 32, 10, true, false, 40, 4},   {"Ipv4LengthsAboveMaximum", 32, 255, true, false, 12, 2},
    {"Ipv4Many", 32, 32, true, false, 300, 4},   {"Ipv4MixedFamilies", 32, 40, true, true, 12, 3},
    {"Ipv6", 128, 128, false, false, 12, 2},     {"Ipv6BitsBeyondLength", 128, 128, true, false, 12, 2},
    {"Ipv6Dense", 128, 9, true, false, 40, 4},   {"Ipv6LengthsAboveMaximum", 128, 255, true, false, 12, 2},
    {"Ipv6Many", 128, 128, true, false, 300, 4}, {"Ipv6MixedFamilies", 128, 140, true, true, 12, 2},
    {"OddKeySize", 20, 30, true, true, 12, 3},   {"HalfOfIpv6", 64, 64, true, false, 30, 3},
};

INSTANTIATE_TEST_SUITE_P(All, RadixTreeProperty, testing::ValuesIn(kFlavours),
                         [](const auto &chosen) { return std::string(chosen.param.name); });

} // namespace
