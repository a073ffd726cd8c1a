/*
 * The AVL tree beside GLib's GTree, libavl, std::map and Boost.Intrusive's avl_set. Items are 64-byte records
 * scattered in memory; the trees that are called through function pointers point at them, as ours does.
 *
 *   ours               a node from malloc for every item
 *   ours in record     the node is part of the record, as a daemon that counts lines would have it
 */
#include <benchmark/benchmark.h>
#include <map>

#include "mcast/avl.h"
#include "rounds.h"

#ifdef BENCH_WITH_GLIB
#include <glib.h>
#endif
#ifdef BENCH_WITH_LIBAVL
#define new new_node
extern "C" {
#include <avl.h>
}
#undef new
#endif
#ifdef BENCH_WITH_BOOST
#include <boost/intrusive/avl_set.hpp>
#endif

namespace
{

using bench::Figures;
using bench::Order;
using bench::Population;

struct Record
#ifdef BENCH_WITH_BOOST
    : boost::intrusive::avl_set_base_hook<>
#endif
{
    uint64_t key;
    MCAST_AVL_NODE_S node;

    friend bool operator<(const Record &one, const Record &other)
    {
        return one.key < other.key;
    }
};

int32_t Compare(const void *first, const void *second)
{
    uint64_t one = static_cast<const Record *>(first)->key;
    uint64_t other = static_cast<const Record *>(second)->key;
    return (one > other) - (one < other);
}

void SetWalkKey(MCAST_AVL_WALK_S *walk, MCAST_AVL_NODE_S *node)
{
    walk->key = node->data;
}

/* Records in an order that has nothing to do with their keys. */
std::vector<Record> Records(Population &population)
{
    std::vector<Record> records(population.entries);
    Order keys = population.Shuffled();
    for (size_t index = 0; index < records.size(); ++index) {
        records[index].key = uint64_t{keys[index]} * 2 + 1;
    }
    return records;
}

/*
 * The phases, the same for every tree. A Tree has Insert(record), Find(record), Next(record), Walk() and
 * Remove(record); Find and Next return something to be used up, Walk the number of items.
 */
template <typename Tree> void Phases(Population &population, Figures &figures)
{
    std::vector<Record> records = Records(population);
    std::vector<Record> probes(1);

    for (size_t repeat = 0; repeat < population.repeats; ++repeat) {
        Order inserts = population.Shuffled();
        Order removes = population.Shuffled();
        double before = bench::Allocated();
        Tree tree;

        figures.Time("insert", inserts.size(), [&] {
            for (uint32_t entry : inserts) {
                tree.Insert(records[entry]);
            }
        });
        double bytes = bench::Allocated() - before;

        if (repeat == 0) {
            Order picks = population.Picks();
            std::vector<uint64_t> keys;

            for (uint32_t entry : picks) {
                keys.push_back(records[entry].key);
            }
            figures.Time("find", picks.size(), [&] {
                for (uint64_t key : keys) {
                    probes[0].key = key;
                    benchmark::DoNotOptimize(tree.Find(probes[0]));
                }
            });
            figures.Time("next by key", picks.size(), [&] {
                for (uint64_t key : keys) {
                    probes[0].key = key;
                    benchmark::DoNotOptimize(tree.Next(probes[0]));
                }
            });
            figures.Time("walk", population.entries, [&] {
                if (tree.Walk() != population.entries) {
                    std::abort();
                }
            });
            figures.Note("bytes an entry", bytes / static_cast<double>(population.entries));
        }
        figures.Time("remove", removes.size(), [&] {
            for (uint32_t entry : removes) {
                tree.Remove(records[entry]);
            }
        });
    }
}

class Ours
{
public:
    Ours()
    {
        MCAST_AVL_SetFunction(&tree, Compare, Compare, nullptr, nullptr, SetWalkKey);
    }

    void Insert(Record &record)
    {
        MCAST_AVL_NODE_S *node = static_cast<MCAST_AVL_NODE_S *>(malloc(sizeof(*node)));
        node->data = &record;
        MCAST_AvlInsert(&tree, node);
    }

    const void *Find(const Record &probe) const
    {
        return MCAST_AVL_Search(&tree, &probe);
    }

    const void *Next(const Record &probe) const
    {
        return MCAST_AVL_SearchNext(&tree, &probe);
    }

    size_t Walk()
    {
        MCAST_AVL_WALK_S walk;
        size_t items = 0;
        MCAST_AVL_InitWalk(&walk, &tree);
        while (MCAST_AVL_WalkNextData(&walk) != nullptr) {
            ++items;
        }
        return items;
    }

    void Remove(const Record &record)
    {
        free(MCAST_AVL_Remove(&tree, &record));
    }

protected:
    MCAST_AVL_S tree = {};
};

class OursInRecord : public Ours
{
public:
    void Insert(Record &record)
    {
        record.node.data = &record;
        MCAST_AVL_Insert(&tree, &record.node);
    }

    void Remove(const Record &record)
    {
        benchmark::DoNotOptimize(MCAST_AVL_Remove(&tree, &record));
    }
};

class StdMap
{
public:
    void Insert(Record &record)
    {
        tree.emplace(record.key, &record);
    }

    const void *Find(const Record &probe) const
    {
        return tree.find(probe.key)->second;
    }

    const void *Next(const Record &probe) const
    {
        auto found = tree.upper_bound(probe.key);
        return found == tree.end() ? nullptr : found->second;
    }

    size_t Walk()
    {
        size_t items = 0;
        for (const auto &entry : tree) {
            items += entry.second != nullptr;
        }
        return items;
    }

    void Remove(const Record &record)
    {
        tree.erase(record.key);
    }

private:
    std::map<uint64_t, Record *> tree;
};

#ifdef BENCH_WITH_GLIB
class GlibTree
{
public:
    GlibTree() : tree(g_tree_new(Compare))
    {
    }

    ~GlibTree()
    {
        g_tree_destroy(tree);
    }

    void Insert(Record &record)
    {
        g_tree_insert(tree, &record, &record);
    }

    const void *Find(const Record &probe) const
    {
        return g_tree_lookup(tree, &probe);
    }

    const void *Next(const Record &probe) const
    {
        return g_tree_upper_bound(tree, &probe);
    }

    size_t Walk()
    {
        size_t items = 0;
        for (GTreeNode *node = g_tree_node_first(tree); node != nullptr; node = g_tree_node_next(node)) {
            items += g_tree_node_value(node) != nullptr;
        }
        return items;
    }

    void Remove(const Record &record)
    {
        g_tree_remove(tree, &record);
    }

private:
    static int Compare(const void *first, const void *second)
    {
        return ::Compare(first, second);
    }

    GTree *tree;
};
#endif

#ifdef BENCH_WITH_LIBAVL
class LibAvl
{
public:
    LibAvl() : tree(avl_alloc_tree(Compare, nullptr))
    {
    }

    ~LibAvl()
    {
        avl_free_tree(tree);
    }

    void Insert(Record &record)
    {
        avl_insert(tree, &record);
    }

    const void *Find(const Record &probe) const
    {
        return avl_search(tree, &probe);
    }

    const void *Next(const Record &probe) const
    {
        avl_node_t *node = nullptr;
        return avl_search_closest(tree, &probe, &node) > 0 ? node : node->next;
    }

    size_t Walk()
    {
        size_t items = 0;
        for (avl_node_t *node = tree->head; node != nullptr; node = node->next) {
            items += node->item != nullptr;
        }
        return items;
    }

    void Remove(const Record &record)
    {
        avl_delete(tree, &record);
    }

private:
    avl_tree_t *tree;
};
#endif

#ifdef BENCH_WITH_BOOST
class BoostIntrusive
{
public:
    void Insert(Record &record)
    {
        tree.insert(record);
    }

    const void *Find(const Record &probe) const
    {
        return &*tree.find(probe);
    }

    const void *Next(const Record &probe) const
    {
        return &*tree.upper_bound(probe);
    }

    size_t Walk()
    {
        size_t items = 0;
        for (const Record &record : tree) {
            items += record.key != 0;
        }
        return items;
    }

    void Remove(const Record &record)
    {
        tree.erase(record);
    }

private:
    boost::intrusive::avl_set<Record> tree;
};
#endif

} // namespace

int main()
{
    std::vector<bench::Contender> contenders = {
        {"ours", Phases<Ours>},
#ifdef BENCH_WITH_GLIB
        {"GTree", Phases<GlibTree>},
#endif
#ifdef BENCH_WITH_LIBAVL
        {"libavl", Phases<LibAvl>},
#endif
        {"std::map", Phases<StdMap>},
#ifdef BENCH_WITH_BOOST
        {"Boost.Intrusive", Phases<BoostIntrusive>},
#endif
        {"ours in record", Phases<OursInRecord>},
    };
    bench::Compare("AVL tree", {1 << 10, 32 << 10, 256 << 10, 1 << 20}, contenders);
    return 0;
}
