/* DPDK's rte_rib and rte_rib6 as a container of the radix benchmark. */
#ifndef BENCH_RADIX_RIB_H
#define BENCH_RADIX_RIB_H

#include <arpa/inet.h>
#include <memory>
#include <rte_eal.h>
#include <rte_memory.h>
#include <rte_rib.h>
#include <rte_rib6.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>

#include "radix_container.h"

namespace radix_bench
{

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

    size_t Exact() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.present) {
            if (work.ipv6) {
                hits += rte_rib6_lookup_exact(rib6, prefix.address.address, prefix.length) != nullptr;
            } else {
                hits += rte_rib_lookup_exact(rib4, Word(prefix), prefix.length) != nullptr;
            }
        }
        return hits;
    }

    size_t Best() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.targets) {
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

} // namespace radix_bench

#endif
