#include "tests/simulation/run/sweep.h"

#include <algorithm>
#include <map>
#include <set>

#include "tests/simulation/kernel/callers.h"

namespace sim
{
namespace
{

constexpr const char *LIFE = R"(
seed 7
router r1 lan1 lan2 lan3
daemon r1.mribd mribd
daemon r1.gmpd gmpd -4
host h1 lan2 3
host h2 lan3 3
host h3 lan3 2
flow f1 lan1 10.0.1.50 239.1.1.1 1
flow f2 lan1 10.0.1.50 232.1.1.1 1
0 flow-on f1
0 flow-on f2
0 start r1.mribd
0 start r1.gmpd
3 join h1 239.1.1.1
3 join h2 232.1.1.1 10.0.1.50
4 join h3 239.1.1.1
6 revive
7 leave h1 239.1.1.1
11 revive
20 revive
30 rest
)";

constexpr const char *LIFE_OF_PEERS = R"(
seed 7
link core 10.0.9.0/24 2001:db8:9::/64
link lan1 10.0.1.0/24 2001:db8:1::/64
link lan2 10.0.2.0/24 2001:db8:2::/64
router r1 core lan1
router r2 core lan2
rendezvous r1 10.0.9.5
rendezvous r2 10.0.9.6
peer r1 10.0.9.6 10.0.9.5
peer r2 10.0.9.5 10.0.9.6
daemon r1.mribd mribd --config /etc/router.toml
daemon r1.msdpd msdpd --config /etc/router.toml
daemon r2.mribd mribd --config /etc/router.toml
daemon r2.msdpd msdpd --config /etc/router.toml
flow f1 lan1 10.0.1.50 239.1.1.1 1
flow f2 lan2 10.0.2.50 239.1.1.1 1
0 flow-on f1
0 flow-on f2
0 start r1.mribd
0 start r2.mribd
0 start r1.msdpd
1 start r2.msdpd
6 revive
11 kill r2.msdpd
11.5 revive
15 reload r1
20 revive
30 rest
)";

// Another daemon dies, and what it knew has to be told again.
Script life_of(const std::string &daemon)
{
    Script script = read_script(daemon == "msdpd" ? LIFE_OF_PEERS : THREE_LINKS + LIFE);
    script.add(12 * SECOND, {"kill", daemon == "mribd" ? "r1.gmpd" : "r1.mribd"});
    script.add(13 * SECOND, {"revive"});
    sort_actions(script);
    return script;
}

Script with_refusal(const std::string &daemon, Words words)
{
    Script script = life_of(daemon);
    script.actions.insert(script.actions.begin(), {0, std::move(words)});
    return script;
}

// Where something happened first and last, counted from 0.
struct Place {
    uint64_t first;
    uint64_t last;
};
using Places = std::map<Callers, Place>;

void note(Places &places, uint64_t ordinal, const Callers &callers)
{
    places.try_emplace(callers, Place{ordinal, ordinal}).first->second.last = ordinal;
}

struct Plan {
    Words words;
    const Callers *callers;
};

// Lives for the first and the last of a place, once and, where that can be, from then on.
class Planner
{
public:
    std::vector<Plan> plans;

    void add(const Places &places, const Words &before, const Words &behind, bool lasting)
    {
        for (const auto &[callers, place] : places) {
            for (const uint64_t ordinal : std::set<uint64_t>{place.first, place.last}) {
                put(before, ordinal, "1", behind, callers);
                if (lasting) {
                    put(before, ordinal, "all", behind, callers);
                }
            }
        }
    }

private:
    void put(Words words, uint64_t ordinal, const char *count, const Words &behind, const Callers &callers)
    {
        words.push_back(std::to_string(ordinal));
        words.push_back(count);
        words.insert(words.end(), behind.begin(), behind.end());
        plans.push_back({std::move(words), &callers});
    }
};

// What a clean life does.
struct Census {
    Places memory;
    std::map<Call, Places> calls;
    std::map<Call, uint64_t> ordinals;

    Result take(const Script &script, const std::string &name)
    {
        Run run(script);
        Process &process = *run.world().daemon(name).process;
        process.account.observer = [&](uint64_t ordinal) {
            note(memory, ordinal - 1, callers_in(*process.image()));
        };
        process.refusals.observer = [&](Call call) {
            note(calls[call], ordinals[call]++, callers_in(*process.image()));
        };
        return run.execute();
    }
};

// What nothing in the daemons can better, and is therefore no failure.
struct Outside {
    const char *place; // in whose calls the refusal was
    const char *what;
};
constexpr Outside OUTSIDE[] = {
    // The parser of options promises that this throws nothing, and takes memory in it: the daemon ends, before it
    // has opened anything.
    {"CLI::App::get_option_no_throw", "ended by an uncaught exception"},
    // So does the parser of configurations, when the reserve too is used up.
    {"host::ConfigDocument::ConfigDocument", "ended by an uncaught exception"},
    // Without memory for a node where two others part, a tree of the library loses the new node: that is its contract.
    // The others are the two immortal blocks.
    {"MRT_RDX_AddNode", "left 3 blocks of memory"},
    {"NewGlue", "left 3 blocks of memory"}, // the same, where the compiler left the outer name out
};

bool is_outside(const SweepFailure &failure)
{
    return std::any_of(std::begin(OUTSIDE), std::end(OUTSIDE), [&failure](const Outside &known) {
        return failure.place.find(known.place) != std::string::npos &&
               failure.result.what.find(known.what) != std::string::npos;
    });
}

} // namespace

SweepReport sweep(Swept what, const std::string &daemon, unsigned step)
{
    const std::string name = "r1." + daemon;
    const Script clean = life_of(daemon);
    Census census;
    SweepReport report;
    const Result undisturbed = census.take(clean, name);
    ++report.lives;
    if (!undisturbed.is_good()) {
        report.failures.push_back({clean, undisturbed, ""});
        return report;
    }
    Planner planner;
    if (what == Swept::Memory) {
        planner.add(census.memory, {"refuse-memory", name}, {}, true);
    } else {
        for (const auto &[call, places] : census.calls) {
            for (const int error : errors_of(call)) {
                planner.add(places, {"refuse", name, call_name(call)}, {error_name(error)}, can_last(call));
            }
        }
    }
    for (size_t i = 0; i < planner.plans.size(); i += step) {
        const Script script = with_refusal(daemon, planner.plans[i].words);
        const Result result = Run(script).execute();
        ++report.lives;
        if (result.is_good()) {
            continue;
        }
        SweepFailure failure{script, result, describe(*planner.plans[i].callers, daemon)};
        if (what == Swept::Memory && is_outside(failure)) {
            ++report.outside;
        } else {
            report.failures.push_back(std::move(failure));
        }
    }
    return report;
}

} // namespace sim
