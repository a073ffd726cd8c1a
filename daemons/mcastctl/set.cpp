/*
 * "set SETTING": values of the running daemons.
 */
#include <cstdio>
#include <memory>
#include <string>

#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"
#include "daemons/mcastctl/text.h"

namespace mcastctl
{
namespace
{

struct SetOptions {
    Filter filter;
    uint32_t seconds = 0;
};

int set_query_interval(const SetOptions &options)
{
    mcastd::ControlFields key;
    if (options.filter.if_index) {
        key.push_back(mcastd::ControlField::interface(*options.filter.if_index));
    }
    return ask_all(daemons_named("gmpd", options.filter.family), [&](const DaemonInfo &daemon) {
        return set_value(daemon, mcastd::INTERFACE_TABLE, key, mcastd::SETTING_QUERY_INTERVAL,
                         mcastd::ControlField::number(options.seconds));
    });
}

// A number of seconds, or "default" where an interface may go back to the common value.
void take_seconds(const std::string &text, SetOptions &options)
{
    if (text == "default") {
        options.seconds = 0;
        return;
    }
    if (!CLI::detail::lexical_cast(text, options.seconds) || options.seconds == 0) {
        throw CLI::ValidationError("SECONDS", text + ": neither a number of seconds (1 or more) nor default");
    }
}

void add_query_interval(const CommandLine &line)
{
    const auto options = std::make_shared<SetOptions>();
    CLI::App &command = *line.set.add_subcommand(
        "query-interval", "Seconds between the general queries of IGMP and MLD, in force at once");
    add_family(command, &options->filter.family);
    add_interface(command, "--interface", help_text(Help::SpecifyInterface), &options->filter.if_index);
    command
        .add_option_function<std::string>(
            "SECONDS", [options](const std::string &text) { take_seconds(text, *options); },
            "The interval; \"default\" gives an interface the value of all others again")
        ->required();
    on_command(line, command, [options] {
        if (options->seconds == 0 && !options->filter.if_index) {
            std::fputs(
                "mcastctl: default gives one interface the common value again: name it with --interface\n",
                stderr);
            return EXIT_USAGE;
        }
        return set_query_interval(*options);
    });
}

struct PriorityOptions {
    Filter filter;
    uint32_t priority = 0;
};

int set_priority(const PriorityOptions &options)
{
    mcastd::ControlFields key;
    if (options.filter.if_index) {
        key.push_back(mcastd::ControlField::interface(*options.filter.if_index));
    }
    return ask_all(daemons_named("pimsmd", options.filter.family), [&](const DaemonInfo &daemon) {
        return set_value(daemon, mcastd::PIM_INTERFACE_TABLE, key, mcastd::SETTING_DR_PRIORITY,
                         mcastd::ControlField::number(options.priority));
    });
}

void add_priority(const CommandLine &line)
{
    const auto options = std::make_shared<PriorityOptions>();
    CLI::App &command = *line.set.add_subcommand(
        "pim-dr-priority", "Priority in the elections of PIM's designated routers, said at once");
    add_family(command, &options->filter.family);
    add_interface(command, "--interface", help_text(Help::SpecifyInterface), &options->filter.if_index);
    command
        .add_option("PRIORITY", options->priority,
                    "0 to 4294967295, the highest wins; until the configuration file is read again")
        ->required();
    on_command(line, command, [options] { return set_priority(*options); });
}

} // namespace

void add_set_commands(const CommandLine &line)
{
    add_query_interval(line);
    add_priority(line);
}

} // namespace mcastctl
