/* libfrr's route table as a container of the radix benchmark. */
#ifndef BENCH_RADIX_FRR_H
#define BENCH_RADIX_FRR_H

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "radix_container.h"

namespace radix_bench
{

/*
 * The route table of libfrr, loaded when it is there. Debian has the library without headers, so what is used
 * of it is described here: a prefix begins with family, length and an 8-aligned address, and the fields of a
 * node that callers use lie at the offsets below, which Usable tries out.
 */
class FrrTable : public Container
{
public:
    explicit FrrTable(const Workload &of) : Container(of), table(Library().init ? Library().init() : nullptr)
    {
        for (const auto &prefix : of.stored) {
            stored.push_back(Convert(prefix));
        }
        for (const auto &prefix : of.present) {
            present.push_back(Convert(prefix));
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

    size_t Exact() override
    {
        size_t hits = 0;
        for (const FrrPrefix &prefix : present) {
            void *node = Library().lookup(table, &prefix);
            hits += node != nullptr;
            --Lock(node);
        }
        return hits;
    }

    size_t Best() override
    {
        size_t hits = 0;
        for (const FrrPrefix &prefix : targets) {
            void *node = Library().match(table, &prefix);
            hits += node != nullptr;
            --Lock(node);
        }
        return hits;
    }

    size_t Next() override
    {
        size_t hits = 0;
        for (const FrrPrefix &prefix : present) {
            void *node = Library().get_next(table, &prefix);
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
    std::vector<FrrPrefix> present;
    std::vector<FrrPrefix> targets;
};

} // namespace radix_bench

#endif
