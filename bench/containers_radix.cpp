/*
 * The radix tree beside libfrr's route table, DPDK's rte_rib, std::map and Boost.Intrusive's set, all in this
 * run. Each row is one operation on one workload: nanoseconds an operation (median of the rounds, containers
 * taking turns within a round) and, for each peer, our time divided by its time.
 *
 * containers_radix [ROUNDS [SIZE...]]: default 3 rounds of 1024, 32768 and 262144 entries.
 */
#include <algorithm>
#include <benchmark/benchmark.h>
#include <functional>
#include <malloc.h>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdio.h>
#include <string>
#include <time.h>

#include "radix_frr.h"
#include "radix_ordered.h"
#include "radix_ours.h"
#ifdef BENCH_WITH_DPDK
#include "radix_rib.h"
#endif

namespace
{

using namespace radix_bench;

constexpr size_t kFewestLookups = 131072;

struct Peer {
    const char *name;
    std::function<std::unique_ptr<Container>(const Workload &)> make;
};

template <typename Kind> std::unique_ptr<Container> Make(const Workload &work)
{
    return std::make_unique<Kind>(work);
}

const Peer kPeers[] = {
    {"ours", Make<Ours>},       {"frr", Make<FrrTable>},
#ifdef BENCH_WITH_DPDK
    {"rib", Make<Rib>},
#endif
    {"std::map", Make<StdMap>}, {"boost", Make<BoostSet>},
};
constexpr size_t kPeerCount = sizeof kPeers / sizeof kPeers[0];

/* One column of nanoseconds, or bytes; absent where a peer lacks the operation or is not installed. */
using Row = std::vector<std::optional<double>>;

unsigned MixedLength(bool ipv6, std::mt19937_64 &random)
{
    const unsigned roll = static_cast<unsigned>(random() % 100);
    if (ipv6) {
        return roll < 25 ? 128 : roll < 60 ? 64 : 32 + static_cast<unsigned>(random() % 64);
    }
    return roll < 25 ? 32 : roll < 60 ? 24 : 12 + static_cast<unsigned>(random() % 20);
}

Prefix RandomPrefix(bool ipv6, unsigned length, std::mt19937_64 &random)
{
    Prefix prefix = {};
    const unsigned whole = length / 8;
    prefix.address.family = ipv6 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
    prefix.length = static_cast<uint8_t>(length);
    for (unsigned i = 0; i < whole; ++i) {
        prefix.address.address[i] = static_cast<uint8_t>(random());
    }
    if (length % 8 != 0) {
        prefix.address.address[whole] = static_cast<uint8_t>(random() & 0xff00u >> length % 8);
    }
    return prefix;
}

/* An address that lies under a prefix. */
Prefix Below(const Prefix &prefix, std::mt19937_64 &random)
{
    const bool ipv6 = prefix.address.family == MCAST_FAMILY_IPV6;
    Prefix target = RandomPrefix(ipv6, ipv6 ? 128 : 32, random);
    const unsigned whole = prefix.length / 8;
    const unsigned keep = 0xff00u >> prefix.length % 8 & 0xff;
    memcpy(target.address.address, prefix.address.address, whole);
    if (keep != 0) {
        uint8_t &edge = target.address.address[whole];
        edge = static_cast<uint8_t>((prefix.address.address[whole] & keep) | (edge & ~keep));
    }
    return target;
}

std::vector<uint32_t> RandomOrder(size_t size, size_t length, uint64_t seed)
{
    std::vector<uint32_t> order(length);
    for (size_t i = 0; i < length; ++i) {
        order[i] = static_cast<uint32_t>(i % size);
    }
    std::shuffle(order.begin(), order.end(), std::mt19937_64(seed));
    return order;
}

Workload MakeWorkload(bool ipv6, bool mixed, size_t size)
{
    std::mt19937_64 random(size * 4 + ipv6 * 2 + mixed);
    Workload work = {ipv6, {}, {}, {}};
    std::set<OrderedKey> known;

    while (work.stored.size() < size) {
        const unsigned length = mixed ? MixedLength(ipv6, random) : FullLength(work);
        const Prefix prefix = RandomPrefix(ipv6, length, random);
        if (known.insert(OrderedKey(prefix)).second) {
            work.stored.push_back(prefix);
        }
    }
    const size_t lookups = std::max(size, kFewestLookups);

    for (uint32_t i : RandomOrder(size, lookups, size)) {
        work.present.push_back(work.stored[i]);
        work.targets.push_back(Below(work.stored[i], random));
    }
    return work;
}

/* The thread's own time, so that other load on the machine counts less. */
double ThreadNanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/* Nanoseconds an operation, of which body does count; nothing when body did not hit every time. */
std::optional<double> Time(size_t count, const std::function<size_t()> &body)
{
    const double start = ThreadNanoseconds();
    const size_t hits = body();
    const double passed = ThreadNanoseconds() - start;
    benchmark::DoNotOptimize(hits);
    /* The last entry has no next one. */
    return hits + count / 64 + 1 < count ? std::nullopt : std::optional(passed / static_cast<double>(count));
}

std::optional<double> Median(std::vector<std::optional<double>> samples)
{
    std::sort(samples.begin(), samples.end());
    return samples.empty() ? std::nullopt : samples[samples.size() / 2];
}

void Print(const std::string &workload, size_t size, const char *operation, const Row &row)
{
    printf("%-11s %8zu  %-7s", workload.c_str(), size, operation);
    for (size_t i = 0; i < row.size(); ++i) {
        if (!row[i]) {
            printf(i == 0 ? " %8s" : " %8s       ", "-");
        } else if (i == 0) {
            printf(" %8.1f", *row[i]);
        } else {
            printf(" %8.1f (%4.2f)", *row[i], *row[0] / *row[i]);
        }
    }
    printf("\n");
}

/* The measured operations; the samples of one container. */
enum Operation { kInsert, kExact, kBest, kNext, kWalk, kDelete, kBytes, kOperations };
const char *const kOperationNames[] = {"insert", "exact", "best", "next", "walk", "delete", "bytes"};

struct Samples {
    std::vector<std::optional<double>> of[kOperations];
};

double BytesInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

void Round(const Peer &peer, const Workload &work, uint64_t seed, Samples &samples)
{
    const size_t size = work.stored.size();
    const size_t lookups = work.present.size();
    auto container = peer.make(work);

    if (!container->Usable()) {
        return;
    }
    const std::vector<uint32_t> in = RandomOrder(size, size, seed + 1);
    const std::vector<uint32_t> out = RandomOrder(size, size, seed + 2);
    const double before = BytesInUse();

    samples.of[kInsert].push_back(Time(size, [&] {
        for (uint32_t i : in) {
            container->Insert(i);
        }
        return size;
    }));
    samples.of[kBytes].push_back((BytesInUse() - before) / static_cast<double>(size));
    container->Exact();
    samples.of[kExact].push_back(Time(lookups, [&] { return container->Exact(); }));
    samples.of[kBest].push_back(Time(lookups, [&] { return container->Best(); }));
    samples.of[kNext].push_back(Time(lookups, [&] { return container->Next(); }));
    samples.of[kWalk].push_back(Time(size, [&] { return container->Walk(); }));
    samples.of[kDelete].push_back(Time(size, [&] {
        for (uint32_t i : out) {
            container->Delete(i);
        }
        return size;
    }));
}

void Run(bool ipv6, bool mixed, size_t size, unsigned rounds)
{
    const Workload work = MakeWorkload(ipv6, mixed, size);
    const std::string name = std::string(ipv6 ? "ipv6" : "ipv4") + (mixed ? " mixed" : " hosts");
    std::vector<Samples> samples(kPeerCount);
    for (unsigned round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < kPeerCount; ++i) {
            Round(kPeers[i], work, round * 3, samples[i]);
        }
    }
    for (unsigned operation = 0; operation < kOperations; ++operation) {
        Row row;
        for (const Samples &of_peer : samples) {
            const auto median = Median(of_peer.of[operation]);
            row.push_back(operation == kBytes && median && *median < 1 ? std::nullopt : median);
        }
        Print(name, size, kOperationNames[operation], row);
    }
    fflush(stdout);
}

} // namespace

int main(int count, char **arguments)
{
    const unsigned rounds = count > 1 ? static_cast<unsigned>(strtoul(arguments[1], nullptr, 0)) : 3;
    std::vector<size_t> sizes;
    for (int i = 2; i < count; ++i) {
        sizes.push_back(strtoul(arguments[i], nullptr, 0));
    }
    if (sizes.empty()) {
        sizes = {1024, 32768, 262144};
    }
    printf("%-11s %8s  %-7s", "workload", "entries", "ns");
    for (const Peer &peer : kPeers) {
        printf(&peer == kPeers ? " %8s" : " %8s       ", peer.name);
    }
    printf("\n");
    for (size_t size : sizes) {
        for (bool ipv6 : {false, true}) {
            for (bool mixed : {false, true}) {
                Run(ipv6, mixed, size, rounds);
            }
        }
    }
    return 0;
}
