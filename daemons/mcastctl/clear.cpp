/*
 * "clear users", "clear user-counters", "clear msdp-cache", "clear rp": what the daemons forget on command.
 */
#include <memory>
#include <optional>
#include <string>

#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"

namespace mcastctl
{
namespace
{

struct ClearOptions {
    Filter filter;
    std::optional<uint16_t> node;
};

int clear_users(const ClearOptions &options)
{
    mcastd::ControlFields arguments;
    if (options.node) {
        arguments.push_back(mcastd::ControlField::number(*options.node));
    }
    return command_all(daemons_named("gmpd", options.filter.family), mcastd::COMMAND_CLEAR_USERS, arguments);
}

int clear_user_counters(const ClearOptions &options)
{
    return command_all(daemons_named("gmpd", options.filter.family), mcastd::COMMAND_CLEAR_USER_COUNTERS, {});
}

int clear_msdp_cache(const ClearOptions &options)
{
    mcastd::ControlFields arguments;
    if (options.filter.group) {
        arguments.push_back(mcastd::ControlField::address(*options.filter.group));
    }
    return command_all(daemons_named("msdpd", options.filter.family), mcastd::COMMAND_CLEAR_MSDP_CACHE,
                       arguments);
}

void add_users(const CommandLine &line, CLI::App &clear)
{
    const auto options = std::make_shared<ClearOptions>();
    CLI::App &command = *clear.add_subcommand(
        "users", "Forget the authenticated users, with their memberships; agents announce them again");
    add_family(command, &options->filter.family);
    command.add_option("--node", options->node,
                       "Only those of the access node of this number and of kinds 2 to 4: the node is gone");
    on_command(line, command, [options] { return clear_users(*options); });
}

void add_user_counters(const CommandLine &line, CLI::App &clear)
{
    const auto options = std::make_shared<ClearOptions>();
    CLI::App &command = *clear.add_subcommand(
        "user-counters", "Count what authentication agents send anew, by user and by kind of user");
    add_family(command, &options->filter.family);
    on_command(line, command, [options] { return clear_user_counters(*options); });
}

void add_msdp_cache(const CommandLine &line, CLI::App &clear)
{
    const auto options = std::make_shared<ClearOptions>();
    CLI::App &command = *clear.add_subcommand(
        "msdp-cache", "Forget the sources that MSDP peers announced; they announce them again");
    add_group(command, &options->filter.group);
    on_command(line, command, [options] { return clear_msdp_cache(*options); });
}

void add_rps(const CommandLine &line, CLI::App &clear)
{
    const auto options = std::make_shared<ClearOptions>();
    CLI::App &command = *clear.add_subcommand(
        "rp",
        "Forget the rendezvous points that a bootstrap router told of; its next message brings them again");
    add_family(command, &options->filter.family);
    on_command(line, command, [options] {
        return command_all(daemons_named("pimsmd", options->filter.family), mcastd::COMMAND_CLEAR_RPS, {});
    });
}

} // namespace

void add_clear_command(const CommandLine &line)
{
    CLI::App &clear = *line.root.add_subcommand("clear", "Have daemons forget what they were told");
    add_users(line, clear);
    add_user_counters(line, clear);
    add_msdp_cache(line, clear);
    add_rps(line, clear);
}

} // namespace mcastctl
