/*
 * The radix tree and its peers behind one shape: a set of prefixes, addressed by the index of a prefix or of
 * an address in arrays that the benchmark made beforehand, in the form that each container wants.
 */
#ifndef BENCH_RADIX_PEERS_H
#define BENCH_RADIX_PEERS_H

#include <arpa/inet.h>
#include <dlfcn.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <boost/intrusive/set.hpp>

#include "mcast/radix.h"

#ifdef BENCH_WITH_DPDK
#include <rte_eal.h>
#include <rte_memory.h>
#include <rte_rib.h>
#include <rte_rib6.h>
#endif

namespace radix_bench
{

struct Prefix {
    MCAST_ADDR_S address;
    uint8_t length;
};

/* What is stored, and what is looked up; targets[i] lies under some stored prefix. */
struct Workload {
    bool ipv6;
    std::vector<Prefix> stored;
    std::vector<Prefix> targets;
};

inline unsigned FullLength(const Workload &work)
{
    return work.ipv6 ? 128 : 32;
}

class Container
{
public:
    explicit Container(const Workload &of) : work(of)
    {
    }
    virtual ~Container() = default;
    Container(const Container &) = delete;
    Container &operator=(const Container &) = delete;

    virtual bool Usable() const
    {
        return true;
    }
    virtual void Insert(size_t index) = 0;
    virtual void Delete(size_t index) = 0;
    /* Each of these handles a whole order of indexes, so that no virtual call stands in the measured loop;
     * the result is the number of hits. */
    virtual size_t Exact(const std::vector<uint32_t> &order) = 0;
    virtual size_t Best(const std::vector<uint32_t> &)
    {
        return 0;
    }
    virtual size_t Next(const std::vector<uint32_t> &)
    {
        return 0;
    }
    virtual size_t Walk()
    {
        return 0;
    }

protected:
    const Workload &work;
};

class Ours : public Container
{
public:
    explicit Ours(const Workload &of)
        : Container(of), entries(of.stored.size()),
          tree(MRT_RDX_CreateTree(offsetof(Entry, key), offsetof(Entry, length),
                                  offsetof(MCAST_ADDR_S, address), FullLength(of)))
    {
        for (size_t i = 0; i < entries.size(); ++i) {
            entries[i] = {&of.stored[i].address, of.stored[i].length};
        }
    }

    ~Ours() override
    {
        MRT_RDX_DestroyTree(tree);
    }

    void Insert(size_t index) override
    {
        MRT_RDX_AddNode(tree, &entries[index]);
    }

    void Delete(size_t index) override
    {
        MRT_RDX_DeleteNode(tree, &entries[index]);
    }

    size_t Exact(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            hits += MRT_RDX_Locate(tree, &work.stored[i].address, work.stored[i].length) != nullptr;
        }
        return hits;
    }

    size_t Best(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            hits += MRT_RDX_LocateBest(tree, &work.targets[i].address, FullLength(work), nullptr, nullptr) !=
                    nullptr;
        }
        return hits;
    }

    size_t Next(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            hits += MRT_RDX_GetNext(tree, &work.stored[i].address, work.stored[i].length) != nullptr;
        }
        return hits;
    }

    size_t Walk() override
    {
        MRT_RDX_WALK_S *walk = MRT_RDX_CreateWalk(tree, nullptr, 0, MRT_RDX_WALK_FORWARD);
        size_t hits = 0;

        while (MRT_RDX_WalkNext(walk) != nullptr) {
            ++hits;
        }
        MRT_RDX_DestroyWalk(walk);
        return hits;
    }

private:
    struct Entry {
        const MCAST_ADDR_S *key;
        uint8_t length;
    };

    std::vector<Entry> entries;
    MRT_RDX_TREE_S *tree;
};

/* The route table of libfrr, loaded when it is there. Debian has the library without headers, so what is used
 * of it is described here: a prefix begins with family, length and an 8-aligned address, and the fields of a
 * node that callers use lie at the offsets below, which Usable tries out. */
class FrrTable : public Container
{
public:
    explicit FrrTable(const Workload &of) : Container(of), table(Library().init ? Library().init() : nullptr)
    {
        for (const auto &prefix : of.stored) {
            stored.push_back(Convert(prefix));
        }
        for (const auto &prefix : of.targets) {
            targets.push_back(Convert(prefix));
        }
    }

    ~FrrTable() override
    {
        if (table != nullptr) {
            Library().finish(table);
        }
    }

    bool Usable() const override
    {
        if (table == nullptr || stored.empty()) {
            return false;
        }
        void *node = Library().get(table, &stored[0]);
        const bool quiet = Library().match(table, &stored[0]) == nullptr;
        Info(node) = this_entry;
        const bool found = Library().match(table, &stored[0]) == node && Lock(node) == 2;
        --Lock(node);
        Release(node);
        return quiet && found && Library().match(table, &stored[0]) == nullptr;
    }

    void Insert(size_t index) override
    {
        Info(Library().get(table, &stored[index])) = this_entry;
    }

    void Delete(size_t index) override
    {
        void *node = Library().lookup(table, &stored[index]);

        --Lock(node);
        Release(node);
    }

    size_t Exact(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            void *node = Library().lookup(table, &stored[i]);
            hits += node != nullptr;
            --Lock(node);
        }
        return hits;
    }

    size_t Best(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            void *node = Library().match(table, &targets[i]);
            hits += node != nullptr;
            --Lock(node);
        }
        return hits;
    }

    size_t Next(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            void *node = Library().get_next(table, &stored[i]);
            if (node != nullptr) {
                ++hits;
                --Lock(node);
            }
        }
        return hits;
    }

    size_t Walk() override
    {
        size_t hits = 0;

        for (void *node = Library().top(table); node != nullptr; node = Library().next(node)) {
            hits += Info(node) != nullptr;
        }
        return hits;
    }

private:
    struct FrrPrefix {
        uint8_t family;
        uint16_t length;
        alignas(8) uint8_t address[16];
    };

    struct Functions {
        void *(*init)();
        void (*finish)(void *table);
        void *(*get)(void *table, const FrrPrefix *prefix);
        void *(*lookup)(void *table, const FrrPrefix *prefix);
        void *(*match)(void *table, const FrrPrefix *prefix);
        void *(*get_next)(void *table, const FrrPrefix *prefix);
        void *(*top)(void *table);
        void *(*next)(void *node);
        void (*remove)(void *node);
    };

    static constexpr size_t kLockOffset = 0x58;
    static constexpr size_t kInfoOffset = 0x70;

    static const Functions &Library()
    {
        static const Functions functions = Load();
        return functions;
    }

    template <typename Function> static void Find(void *library, const char *name, Function *function)
    {
        *function = reinterpret_cast<Function>(dlsym(library, name));
    }

    static Functions Load()
    {
        const char *path = getenv("MCAST_BENCH_LIBFRR");
        void *library = dlopen(path != nullptr ? path : "/usr/lib/x86_64-linux-gnu/frr/libfrr.so.0",
                               RTLD_NOW | RTLD_LOCAL);
        Functions functions = {};

        if (library != nullptr) {
            Find(library, "route_table_init", &functions.init);
            Find(library, "route_table_finish", &functions.finish);
            Find(library, "route_node_get", &functions.get);
            Find(library, "route_node_lookup", &functions.lookup);
            Find(library, "route_node_match", &functions.match);
            Find(library, "route_table_get_next", &functions.get_next);
            Find(library, "route_top", &functions.top);
            Find(library, "route_next", &functions.next);
            Find(library, "route_node_delete", &functions.remove);
        }
        return functions;
    }

    static FrrPrefix Convert(const Prefix &prefix)
    {
        FrrPrefix converted = {};

        converted.family = static_cast<uint8_t>(prefix.address.family);
        converted.length = prefix.length;
        memcpy(converted.address, prefix.address.address, 16);
        return converted;
    }

    static void *&Info(void *node)
    {
        return *reinterpret_cast<void **>(static_cast<char *>(node) + kInfoOffset);
    }

    static unsigned &Lock(void *node)
    {
        return *reinterpret_cast<unsigned *>(static_cast<char *>(node) + kLockOffset);
    }

    static void Release(void *node)
    {
        Info(node) = nullptr;
        if (--Lock(node) == 0) {
            Library().remove(node);
        }
    }

    static inline char entry;
    static inline void *const this_entry = &entry;
    void *table;
    std::vector<FrrPrefix> stored;
    std::vector<FrrPrefix> targets;
};

#ifdef BENCH_WITH_DPDK
/* DPDK's rte_rib for IPv4 and rte_rib6 for IPv6. */
class Rib : public Container
{
public:
    explicit Rib(const Workload &of) : Container(of)
    {
        static const bool started = Start();
        const int nodes = static_cast<int>(of.stored.size() * 2 + 16);

        if (started && of.ipv6) {
            rte_rib6_conf conf = {};
            conf.max_nodes = nodes;
            rib6 = rte_rib6_create("bench6", SOCKET_ID_ANY, &conf);
        } else if (started) {
            rte_rib_conf conf = {};
            conf.max_nodes = nodes;
            rib4 = rte_rib_create("bench4", SOCKET_ID_ANY, &conf);
        }
    }

    ~Rib() override
    {
        rib4 != nullptr ? rte_rib_free(rib4) : rte_rib6_free(rib6);
    }

    bool Usable() const override
    {
        return rib4 != nullptr || rib6 != nullptr;
    }

    void Insert(size_t index) override
    {
        const Prefix &prefix = work.stored[index];

        if (work.ipv6) {
            rte_rib6_insert(rib6, prefix.address.address, prefix.length);
        } else {
            rte_rib_insert(rib4, Word(prefix), prefix.length);
        }
    }

    void Delete(size_t index) override
    {
        const Prefix &prefix = work.stored[index];

        if (work.ipv6) {
            rte_rib6_remove(rib6, prefix.address.address, prefix.length);
        } else {
            rte_rib_remove(rib4, Word(prefix), prefix.length);
        }
    }

    size_t Exact(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            const Prefix &prefix = work.stored[i];
            if (work.ipv6) {
                hits += rte_rib6_lookup_exact(rib6, prefix.address.address, prefix.length) != nullptr;
            } else {
                hits += rte_rib_lookup_exact(rib4, Word(prefix), prefix.length) != nullptr;
            }
        }
        return hits;
    }

    size_t Best(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            const Prefix &prefix = work.targets[i];
            if (work.ipv6) {
                hits += rte_rib6_lookup(rib6, prefix.address.address) != nullptr;
            } else {
                hits += rte_rib_lookup(rib4, Word(prefix)) != nullptr;
            }
        }
        return hits;
    }

private:
    static bool Start()
    {
        const char *words[] = {"bench", "--no-huge",      "--no-shconf", "--no-pci", "-m",
                               "768",   "--no-telemetry", "-l",          "0",        "--log-level=1"};
        std::vector<std::unique_ptr<char, void (*)(void *)>> owned;
        std::vector<char *> arguments;

        for (const char *word : words) {
            owned.emplace_back(strdup(word), free);
            arguments.push_back(owned.back().get());
        }
        /* The start binds the thread to a core; the other containers shall not notice. */
        cpu_set_t cores;
        sched_getaffinity(0, sizeof cores, &cores);
        const bool started = rte_eal_init(static_cast<int>(arguments.size()), arguments.data()) >= 0;
        sched_setaffinity(0, sizeof cores, &cores);
        return started;
    }

    static uint32_t Word(const Prefix &prefix)
    {
        uint32_t word;

        memcpy(&word, prefix.address.address, sizeof word);
        return ntohl(word);
    }

    rte_rib *rib4 = nullptr;
    rte_rib6 *rib6 = nullptr;
};
#endif

/* A prefix as ordered containers compare it. */
struct OrderedKey {
    uint64_t high;
    uint64_t low;
    unsigned length;

    explicit OrderedKey(const Prefix &prefix) : length(prefix.length)
    {
        memcpy(&high, prefix.address.address, 8);
        memcpy(&low, prefix.address.address + 8, 8);
        high = __builtin_bswap64(high);
        low = __builtin_bswap64(low);
    }

    bool operator<(const OrderedKey &other) const
    {
        return std::tie(high, low, length) < std::tie(other.high, other.low, other.length);
    }
};

class StdMap : public Container
{
public:
    using Container::Container;

    void Insert(size_t index) override
    {
        map.emplace(OrderedKey(work.stored[index]), &work.stored[index]);
    }

    void Delete(size_t index) override
    {
        map.erase(OrderedKey(work.stored[index]));
    }

    size_t Exact(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            hits += map.find(OrderedKey(work.stored[i])) != map.end();
        }
        return hits;
    }

    size_t Next(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            hits += map.upper_bound(OrderedKey(work.stored[i])) != map.end();
        }
        return hits;
    }

    size_t Walk() override
    {
        size_t hits = 0;

        for (const auto &[key, prefix] : map) {
            hits += prefix != nullptr;
        }
        return hits;
    }

private:
    std::map<OrderedKey, const Prefix *> map;
};

/* Boost.Intrusive's red-black tree; records are allocated one by one as a daemon's would be. */
class BoostSet : public Container
{
public:
    using Container::Container;

    ~BoostSet() override
    {
        set.clear_and_dispose([](Record *record) { delete record; });
    }

    void Insert(size_t index) override
    {
        set.insert(*new Record(work.stored[index]));
    }

    void Delete(size_t index) override
    {
        set.erase_and_dispose(set.find(OrderedKey(work.stored[index]), Compare()),
                              [](Record *record) { delete record; });
    }

    size_t Exact(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            hits += set.find(OrderedKey(work.stored[i]), Compare()) != set.end();
        }
        return hits;
    }

    size_t Next(const std::vector<uint32_t> &order) override
    {
        size_t hits = 0;

        for (uint32_t i : order) {
            hits += set.upper_bound(OrderedKey(work.stored[i]), Compare()) != set.end();
        }
        return hits;
    }

    size_t Walk() override
    {
        size_t hits = 0;

        for (const Record &record : set) {
            hits += record.key.length < 256;
        }
        return hits;
    }

private:
    struct Record : boost::intrusive::set_base_hook<> {
        explicit Record(const Prefix &prefix) : key(prefix)
        {
        }
        bool operator<(const Record &other) const
        {
            return key < other.key;
        }
        OrderedKey key;
    };

    struct Compare {
        bool operator()(const OrderedKey &a, const Record &b) const
        {
            return a < b.key;
        }
        bool operator()(const Record &a, const OrderedKey &b) const
        {
            return a.key < b;
        }
    };

    boost::intrusive::set<Record> set;
};

} // namespace radix_bench

#endif
