/*
 * The order in which a gmpd begins, switches over and ends the parts of the library: one and the same whatever becomes of
 * it, as docs/standby.md has it. The letters are those of image_glue.cpp.
 *
 *     with users     I G U ──► standby ──A──► active ──S X Y Z──► ended          (a standby ends likewise)
 *                               │  ▲            │
 *                               │  └─ D r* F d S┘ hands over
 *                               └──── D r* F d A ► active: takes over
 *     without        G ──► ... ──► Y
 */
#include <map>

#include "tests/simulation/oracle/oracle.h"

namespace sim
{
namespace
{

enum class Step {
    Nothing,
    Registry, // the registry of indexes is there
    RegistryAndChannel,
    Channel, // without users
    Standby,
    TakingOver,
    TookIndexes,
    TookUsers,
    Active,
    HandingOver,
    GaveIndexes,
    GaveUsers,
    Stopped,
    WithoutUsers,
    WithoutChannel,
    Ended,
};

const std::map<std::pair<Step, char>, Step> STEPS = {
    {{Step::Nothing, 'I'}, Step::Registry},
    {{Step::Nothing, 'G'}, Step::Channel},
    {{Step::Channel, 'Y'}, Step::Ended},
    {{Step::Registry, 'G'}, Step::RegistryAndChannel},
    {{Step::RegistryAndChannel, 'U'}, Step::Standby},
    {{Step::Standby, 'A'}, Step::Active},
    {{Step::Standby, 'D'}, Step::TakingOver},
    {{Step::TakingOver, 'r'}, Step::TakingOver},
    {{Step::TakingOver, 'F'}, Step::TookIndexes},
    {{Step::TookIndexes, 'd'}, Step::TookUsers},
    {{Step::TookUsers, 'A'}, Step::Active},
    {{Step::Active, 'D'}, Step::HandingOver},
    {{Step::HandingOver, 'r'}, Step::HandingOver},
    {{Step::HandingOver, 'F'}, Step::GaveIndexes},
    {{Step::GaveIndexes, 'd'}, Step::GaveUsers},
    {{Step::GaveUsers, 'S'}, Step::Standby},
    {{Step::Standby, 'S'}, Step::Stopped},
    {{Step::Active, 'S'}, Step::Stopped},
    {{Step::Stopped, 'X'}, Step::WithoutUsers},
    {{Step::WithoutUsers, 'Y'}, Step::WithoutChannel},
    {{Step::WithoutChannel, 'Z'}, Step::Ended},
};

} // namespace

// Who was refused something may stop half way.
void Oracle::check_call_order(const Process &process)
{
    const bool was_refused = process.refusals.refused != 0 || process.account.refused() != 0;
    if (world_->daemon(process.name()).daemon != "gmpd" || was_refused) {
        return;
    }
    Step at = Step::Nothing;
    for (const char letter : process.calls_made) {
        const auto next = STEPS.find({at, letter});
        if (next == STEPS.end()) {
            broken(Rule::KernelContract,
                   process.name() + " calls the library in another order than ever: " + process.calls_made);
            return;
        }
        at = next->second;
    }
    const bool is_over = process.end() == Process::End::Returned && process.exit_code() == 0;
    if (!process.is_running() && is_over && at != Step::Ended) {
        broken(Rule::KernelContract,
               process.name() + " ends without ending every part of the library: " + process.calls_made);
    }
}

} // namespace sim
