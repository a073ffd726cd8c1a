/*
 * "clear users": what the daemons forget on command.
 */
#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"

#include <memory>
#include <optional>
#include <string>

namespace mcastctl
{
namespace
{

struct ClearOptions {
    Filter filter;
    std::optional<uint16_t> node;
};

// Done when at least one daemon did it and none refused.
int clear_users(const ClearOptions &options)
{
    mcastd::ControlFields arguments;
    if (options.node) {
        arguments.push_back(mcastd::ControlField::number(*options.node));
    }
    Outcome outcome;
    const Daemons daemons = daemons_named("gmpd", options.filter.family);
    for (const DaemonInfo *daemon : daemons) {
        std::string answer;
        append(&outcome, give_command(*daemon, mcastd::COMMAND_CLEAR_USERS, arguments, &answer));
    }
    report(outcome);
    return outcome.good() && outcome.unreachable.size() < daemons.size() ? EXIT_DONE : EXIT_FAILED;
}

} // namespace

void add_clear_command(const CommandLine &line)
{
    const auto options = std::make_shared<ClearOptions>();
    CLI::App &clear = *line.root.add_subcommand("clear", "Have daemons forget what they were told");
    CLI::App &command = *clear.add_subcommand(
        "users", "Forget the authenticated users, with their memberships; agents announce them again");
    add_family(command, &options->filter.family);
    command.add_option("--node", options->node,
                       "Only those of the access node of this number and of kinds 2 to 4: the node is gone");
    on_command(line, command, [options] { return clear_users(*options); });
}

} // namespace mcastctl
