/*
 * How a daemon may end, and what it may leave: rule 9.
 */
#include <algorithm>

#include "daemons/common/descriptor_reserve.h"
#include "tests/simulation/oracle/oracle.h"

namespace sim
{
namespace
{

// Blocks that live as long as the process, on purpose: the host platform's table of nodes, which threads may ask
// for while the process ends.
constexpr size_t IMMORTAL_BLOCKS = 2;

// The configuration in force lives as long, a few blocks a line of its file.
size_t immortal_blocks(const Process &process)
{
    constexpr size_t BLOCKS_A_LINE = 4;
    size_t lines = 0;
    for (const auto &[path, text] : process.machine().files) {
        lines += static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }
    return IMMORTAL_BLOCKS + BLOCKS_A_LINE * lines;
}

bool was_refused_something(const Process &process)
{
    const auto file = process.machine().files.find(CONFIG_PATH);
    const bool is_spoilt = file != process.machine().files.end() && file->second.ends_with(WRONG_LINE);
    return is_spoilt || process.refusals.refused != 0 || process.account.refused() != 0;
}

} // namespace

void Oracle::broken(Rule rule, const std::string &what)
{
    world_->kernel.broken(rule, what);
}

void Oracle::watch(World &world)
{
    world_ = &world;
    disturbances.watch(world);
    world.kernel.on_end = [this](Process &process) { process_ended(process); };
}

void Oracle::process_ended(Process &process)
{
    const DaemonPlan &plan = world_->daemon(process.name());
    const std::string what = process.name() + " " + end_name(process.end());
    ++counts_.ends;
    if (disturbances.has_standby(plan)) {
        disturbances.note_takeover();
    } else {
        disturbances.note(0);
    }
    if (process.image()->broken_invariants() != 0) {
        broken(Rule::CleanEnd, what + " after an invariant of the library was found broken");
    }
    check_call_order(process);
    switch (process.end()) {
    case Process::End::Crashed:
        return;
    case Process::End::Returned:
    case Process::End::Exited:
        break;
    default:
        broken(Rule::CleanEnd, what);
        return;
    }
    if (process.exit_code() != 0 && !was_refused_something(process)) {
        broken(Rule::CleanEnd,
               what + " with " + std::to_string(process.exit_code()) + " although nothing was refused");
    }
    if (process.exit_code() == 0 && plan.wanted) {
        broken(Rule::CleanEnd, what + " without having been told to");
    }
    if (process.end() != Process::End::Returned) {
        return;
    }
    if (process.account.live_blocks() > immortal_blocks(process)) {
        std::string sizes;
        process.account.visit([&sizes](const void *, size_t size) { sizes += " " + std::to_string(size); });
        broken(Rule::CleanEnd, what + " and left " + std::to_string(process.account.live_blocks()) +
                                   " blocks of memory, of these sizes:" + sizes);
    }
    // Those that were kept back for bad times end with the process.
    const size_t left =
        process.descriptor_count() - std::min(process.null_device_count(), mcastd::RESERVED_DESCRIPTORS);
    if (left != 0) {
        broken(Rule::CleanEnd, what + " and left " + std::to_string(left) + " descriptors open");
    }
}

} // namespace sim
