/* Ordered containers of the C++ libraries as containers of the radix benchmark. */
#ifndef BENCH_RADIX_ORDERED_H
#define BENCH_RADIX_ORDERED_H

#include <boost/intrusive/set.hpp>
#include <map>
#include <string.h>
#include <tuple>

#include "radix_container.h"

namespace radix_bench
{

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

    size_t Exact() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.present) {
            hits += map.find(OrderedKey(prefix)) != map.end();
        }
        return hits;
    }

    size_t Next() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.present) {
            hits += map.upper_bound(OrderedKey(prefix)) != map.end();
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

    size_t Exact() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.present) {
            hits += set.find(OrderedKey(prefix), Compare()) != set.end();
        }
        return hits;
    }

    size_t Next() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.present) {
            hits += set.upper_bound(OrderedKey(prefix), Compare()) != set.end();
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
