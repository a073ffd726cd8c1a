/*
 * Containers beside their peers: every contender runs the same phases over the same random orders, in turn
 * within each round, so that what the machine does meanwhile hits all alike. Printed are medians over the
 * rounds in nanoseconds of processor time an operation, and for each peer the ratio of our figure to its own.
 */
#ifndef BENCH_ROUNDS_H
#define BENCH_ROUNDS_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <malloc.h>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <time.h>
#include <vector>

namespace bench
{

constexpr size_t kLeastOperations = 131072; /* a random order is never shorter */
constexpr size_t kMany = 1 << 20;           /* entries from which one round must do */

using Order = std::vector<uint32_t>;

/* What one contender took for each phase, and its memory. */
class Figures
{
public:
    /* Runs body, which does this many operations, and adds its time to the phase. */
    template <typename Body> void Time(const char *phase, size_t operations, Body body)
    {
        double start = Now();

        body();
        double taken = Now() - start;

        if (totals.find(phase) == totals.end()) {
            phases.push_back(phase);
        }
        totals[phase].first += taken;
        totals[phase].second += static_cast<double>(operations);
    }

    /* A figure that is not a time. Printed is its maximum: later rounds may live on memory kept by a peer. */
    void Note(const char *phase, double value)
    {
        notes.insert(phase);
        if (totals.find(phase) == totals.end()) {
            phases.push_back(phase);
        }
        totals[phase] = {value, 1.0};
    }

    double Of(const std::string &phase) const
    {
        auto found = totals.find(phase);
        return found == totals.end() ? 0 : found->second.first / found->second.second;
    }

    std::vector<std::string> phases;
    std::set<std::string> notes;

private:
    /* Nanoseconds of processor time, so that waiting for a processor does not count. */
    static double Now()
    {
        struct timespec now;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
    }

    std::map<std::string, std::pair<double, double>> totals;
};

/* The entries of a run and the random orders in which they are used. */
struct Population {
    size_t entries;
    size_t repeats; /* fills and drains of the container that make a long enough order */
    std::mt19937_64 random;

    Order Shuffled()
    {
        Order order(entries);
        std::iota(order.begin(), order.end(), 0u);
        std::shuffle(order.begin(), order.end(), random);
        return order;
    }

    /* Entries picked at random, at least kLeastOperations. */
    Order Picks()
    {
        Order order(std::max(entries, kLeastOperations));
        for (uint32_t &entry : order) {
            entry = static_cast<uint32_t>(random() % entries);
        }
        return order;
    }
};

struct Contender {
    const char *name;
    std::function<void(Population &, Figures &)> run;
};

/* Bytes taken from malloc at the moment. */
inline double Allocated()
{
    struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

inline double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

inline std::string Size(size_t entries)
{
    return entries >= 1 << 20 ? std::to_string(entries >> 20) + " M" : std::to_string(entries >> 10) + " k";
}

/* Prints one line a phase: our median, then each peer's and the ratio of ours to it. */
inline void Print(size_t entries, const std::vector<Contender> &contenders,
                  const std::vector<std::vector<Figures>> &taken)
{
    for (const std::string &phase : taken[0][0].phases) {
        std::vector<double> medians;

        for (const std::vector<Figures> &rounds : taken) {
            std::vector<double> values;

            for (const Figures &figures : rounds) {
                values.push_back(figures.Of(phase));
            }
            medians.push_back(taken[0][0].notes.count(phase) != 0
                                  ? *std::max_element(values.begin(), values.end())
                                  : Median(values));
        }
        std::printf("%-22s %6s  %s %.0f", phase.c_str(), Size(entries).c_str(), contenders[0].name,
                    medians[0]);
        for (size_t peer = 1; peer < contenders.size(); ++peer) {
            if (medians[peer] >= 1) {
                std::printf("  %s %.0f (%.2f)", contenders[peer].name, medians[peer],
                            medians[0] / medians[peer]);
            } else {
                std::printf("  %s %.0f", contenders[peer].name, medians[peer]);
            }
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

/*
 * Runs the contenders, ours first, at each size. BENCH_ROUNDS sets the rounds, BENCH_ENTRIES one size instead
 * of all, BENCH_ONLY the contenders whose name contains it beside ours.
 */
inline void Compare(const char *title, std::vector<size_t> sizes, std::vector<Contender> contenders)
{
    const char *chosen_rounds = getenv("BENCH_ROUNDS");
    const char *chosen_size = getenv("BENCH_ENTRIES");
    int rounds = chosen_rounds != nullptr ? std::max(1, atoi(chosen_rounds)) : 5;

    if (const char *only = getenv("BENCH_ONLY")) {
        auto left_out = [only](const Contender &peer) { return strstr(peer.name, only) == nullptr; };

        contenders.erase(std::remove_if(contenders.begin() + 1, contenders.end(), left_out),
                         contenders.end());
    }
    if (chosen_size != nullptr) {
        sizes = {strtoull(chosen_size, nullptr, 0)};
    }
    std::printf("%s: ns an operation, median of %d rounds; in brackets ours / peer\n", title, rounds);
    for (size_t entries : sizes) {
        std::vector<std::vector<Figures>> taken(contenders.size());

        /* A million entries take long and vary little. */
        int here = entries < kMany ? rounds : 1;

        for (int round = 0; round < here; ++round) {
            for (size_t turn = 0; turn < contenders.size(); ++turn) {
                size_t index =
                    (turn + static_cast<size_t>(round)) % contenders.size(); /* nobody always first */
                size_t repeats = std::max<size_t>(1, kLeastOperations / entries);
                Population population{entries, repeats, std::mt19937_64(static_cast<uint64_t>(round) + 1)};

                taken[index].emplace_back();
                contenders[index].run(population, taken[index].back());
            }
        }
        Print(entries, contenders, taken);
    }
}

} // namespace bench

#endif
