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

} // namespace

void add_set_commands(const CommandLine &line)
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

} // namespace mcastctl
