/* The shape that the radix benchmark puts on its containers: a set of prefixes and lookups in it. */
#ifndef BENCH_RADIX_CONTAINER_H
#define BENCH_RADIX_CONTAINER_H

#include <stddef.h>
#include <stdint.h>
#include <vector>

#include "mcast/radix.h"

namespace radix_bench
{

struct Prefix {
    MCAST_ADDR_S address;
    uint8_t length;
};

/*
 * What is stored, and what is looked up, each in the order of the lookups so that reading the keys costs
 * every container the same little: prefixes that are stored, and addresses that lie under some stored prefix.
 */
struct Workload {
    bool ipv6;
    std::vector<Prefix> stored;
    std::vector<Prefix> present;
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
    /*
     * Each of these makes all lookups of the workload, so that no virtual call stands in the measured loop;
     * the result is the number of hits.
     */
    virtual size_t Exact() = 0;
    virtual size_t Best()
    {
        return 0;
    }
    virtual size_t Next()
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

} // namespace radix_bench

#endif
