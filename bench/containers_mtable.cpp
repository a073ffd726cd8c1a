/*
 * The group and source table beside an ordered map of (group, source) pairs and a set of Boost.Intrusive
 * whose records hold both addresses. Groups have 16 sources each; pairs come in random order.
 */
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <map>
#include <memory>

#include "mcast/mtable.h"
#include "rounds.h"

#ifdef BENCH_WITH_BOOST
#include <boost/intrusive/avl_set.hpp>
#endif

namespace
{

using bench::Figures;
using bench::Order;
using bench::Population;

constexpr uint32_t kSourcesPerGroup = 16;

MCAST_ADDR_S Address(uint32_t host_order)
{
    MCAST_ADDR_S address = {};
    uint32_t bytes = htonl(host_order);
    address.family = MCAST_FAMILY_IPV4;
    std::memcpy(address.address, &bytes, sizeof(bytes));
    return address;
}

/* A pair as a daemon meets it: two address records. */
struct Pair {
    MCAST_ADDR_S group;
    MCAST_ADDR_S source;

    friend bool operator<(const Pair &one, const Pair &other)
    {
        int order = std::memcmp(&one.group, &other.group, sizeof(one.group));
        return order != 0 ? order < 0 : std::memcmp(&one.source, &other.source, sizeof(one.source)) < 0;
    }
};

Pair PairOf(uint32_t entry)
{
    return {Address(0xe8000000 + entry / kSourcesPerGroup),
            Address(0x0a000000 + entry % kSourcesPerGroup * 77)};
}

/*
 * The phases, the same for every table. A Table has Insert(pair), Find(pair), whose result is used up, and
 * Walk(), the number of pairs; its records come from malloc.
 */
template <typename Table> void Phases(Population &population, Figures &figures)
{
    for (size_t repeat = 0; repeat < population.repeats; ++repeat) {
        std::vector<Pair> inserts;
        std::vector<Pair> picks;
        double before = 0;

        for (uint32_t entry : population.Shuffled()) {
            inserts.push_back(PairOf(entry));
        }
        for (uint32_t entry : population.Picks()) {
            picks.push_back(PairOf(entry));
        }
        before = bench::Allocated();
        auto table = std::make_unique<Table>();

        figures.Time("insert", inserts.size(), [&] {
            for (const Pair &pair : inserts) {
                table->Insert(pair);
            }
        });
        double bytes = bench::Allocated() - before;

        figures.Time("find", picks.size(), [&] {
            for (const Pair &pair : picks) {
                benchmark::DoNotOptimize(table->Find(pair));
            }
        });
        figures.Time("walk", population.entries, [&] {
            if (table->Walk() != population.entries) {
                std::abort();
            }
        });
        if (repeat == 0) {
            figures.Note("bytes a pair", bytes / static_cast<double>(population.entries));
        }
        figures.Time("free all", population.entries, [&] { table.reset(); });
    }
}

class Ours
{
public:
    Ours()
    {
        MTable_Init(&table, MCAST_FreeFunc);
    }

    ~Ours()
    {
        MTable_Fini(&table);
    }

    void Insert(const Pair &pair)
    {
        MTABLE_GROUP_S *group = MTable_SearchGroup(&table, &pair.group);

        if (group == nullptr) {
            group = static_cast<MTABLE_GROUP_S *>(malloc(sizeof(*group)));
            MTable_InitGroup(group, &pair.group, MCAST_FreeFunc);
            MTable_InsertGroup(&table, group);
        }
        MTABLE_SOURCE_S *source = static_cast<MTABLE_SOURCE_S *>(malloc(sizeof(*source)));

        source->address = pair.source;
        MTable_InsertSource(group, source);
    }

    const void *Find(const Pair &pair)
    {
        return MTable_SearchSource(&table, &pair.group, &pair.source);
    }

    size_t Walk()
    {
        MCAST_ADDR_S group = Address(0);
        MCAST_ADDR_S source = Address(0);
        MTABLE_WALK_S walk = {&group, &source, MTABLE_WALK_ALL};
        size_t pairs = 0;
        MTable_Walk(&table, &walk, nullptr, nullptr, CountSource, &pairs);
        return pairs;
    }

private:
    static MCAST_STATUS CountSource(MTABLE_GROUP_S *, MTABLE_SOURCE_S *source, void *argument)
    {
        *static_cast<size_t *>(argument) += source->address.family == MCAST_FAMILY_IPV4;
        return MCAST_OK;
    }

    MTABLE_S table = {};
};

class StdMap
{
public:
    void Insert(const Pair &pair)
    {
        pairs.emplace(pair, 1u);
    }

    const void *Find(const Pair &pair) const
    {
        return &pairs.find(pair)->second;
    }

    size_t Walk() const
    {
        size_t seen = 0;
        for (const auto &entry : pairs) {
            seen += entry.first.source.family == MCAST_FAMILY_IPV4;
        }
        return seen;
    }

private:
    std::map<Pair, uint64_t> pairs;
};

#ifdef BENCH_WITH_BOOST
class BoostSet
{
public:
    ~BoostSet()
    {
        records.clear_and_dispose([](Record *record) { delete record; });
    }

    void Insert(const Pair &pair)
    {
        records.insert(*new Record(pair));
    }

    const void *Find(const Pair &pair) const
    {
        return &*records.find(pair, Order());
    }

    size_t Walk() const
    {
        size_t seen = 0;
        for (const Record &record : records) {
            seen += record.pair.source.family == MCAST_FAMILY_IPV4;
        }
        return seen;
    }

private:
    struct Record : boost::intrusive::avl_set_base_hook<> {
        explicit Record(const Pair &given) : pair(given)
        {
        }

        friend bool operator<(const Record &one, const Record &other)
        {
            return one.pair < other.pair;
        }

        Pair pair;
    };

    struct Order {
        bool operator()(const Pair &pair, const Record &record) const
        {
            return pair < record.pair;
        }

        bool operator()(const Record &record, const Pair &pair) const
        {
            return record.pair < pair;
        }
    };

    boost::intrusive::avl_set<Record> records;
};
#endif

} // namespace

int main()
{
    std::vector<bench::Contender> contenders = {{"ours", Phases<Ours>}, {"std::map", Phases<StdMap>}};
#ifdef BENCH_WITH_BOOST
    contenders.push_back({"Boost.Intrusive", Phases<BoostSet>});
#endif
    bench::Compare("group and source table", {1 << 10, 1 << 15, 1 << 18, 1 << 20}, contenders);
    return 0;
}
