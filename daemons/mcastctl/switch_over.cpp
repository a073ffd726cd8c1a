/*
 * "switch-over": the active gmpd hands over to its standby.
 */
#include <memory>
#include <string>

#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"

namespace mcastctl
{
namespace
{

int switch_over(const Filter &filter)
{
    return command_all(daemons_named("gmpd", filter.family), mcastd::COMMAND_SWITCH_OVER, {});
}

} // namespace

void add_switch_over_command(const CommandLine &line)
{
    const auto filter = std::make_shared<Filter>();
    CLI::App &command =
        *line.root.add_subcommand("switch-over", "Have gmpd hand over to its standby, and become one itself");
    add_family(command, &filter->family);
    on_command(line, command, [filter] { return switch_over(*filter); });
}

} // namespace mcastctl
