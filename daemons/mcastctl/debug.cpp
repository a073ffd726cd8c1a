/*
 * "debug on" and "debug off": the traces of the running daemons.
 */
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "daemons/common/command_words.h"
#include "daemons/common/control_debug.h"
#include "daemons/common/trace.h"
#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"
#include "daemons/mcastctl/text.h"

namespace mcastctl
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;

struct DebugOptions {
    std::vector<std::string> categories;
    std::string daemon;
    uint16_t family = 0;
    std::optional<uint32_t> acl;
    std::optional<uint32_t> if_index;
};

std::vector<std::string> category_names()
{
    std::vector<std::string> names = {"all"};
    names.insert(names.end(), mcastd::trace_category_names().begin(), mcastd::trace_category_names().end());
    return names;
}

std::vector<std::string> daemon_names()
{
    std::vector<std::string> names;
    for (const DaemonInfo &daemon : daemon_list()) {
        if (names.empty() || names.back() != daemon.name) {
            names.emplace_back(daemon.name);
        }
    }
    return names;
}

void add_pair(ControlFields *arguments, const char *word, ControlField value)
{
    arguments->push_back(ControlField::text(word));
    arguments->push_back(std::move(value));
}

ControlFields arguments_for(bool on, const DebugOptions &options)
{
    ControlFields arguments;
    for (const std::string &category : options.categories) {
        add_pair(&arguments, on ? "on" : "off", ControlField::text(category));
    }
    if (options.categories.empty()) {
        add_pair(&arguments, "off", ControlField::text("all"));
        add_pair(&arguments, "acl", ControlField::number(MCAST_NONE));
        add_pair(&arguments, "interface", ControlField::text(""));
    }
    if (options.acl) {
        add_pair(&arguments, "acl", ControlField::number(*options.acl));
    }
    if (options.if_index) {
        add_pair(&arguments, "interface", ControlField::text(interface_text(*options.if_index)));
    }
    return arguments;
}

int debug(bool on, const DebugOptions &options)
{
    const char *name = options.daemon.empty() ? nullptr : options.daemon.c_str();
    return command_all(daemons_named(name, options.family), mcastd::COMMAND_DEBUG,
                       arguments_for(on, options));
}

CLI::App &add_switch(const CommandLine &line, CLI::App &parent, bool on, const char *help)
{
    const auto options = std::make_shared<DebugOptions>();
    CLI::App &command = *parent.add_subcommand(on ? "on" : "off", help);
    command.add_option("--daemon", options->daemon, "Daemon; all that run without it")
        ->type_name("DAEMON")
        ->check(mcastd::one_of(daemon_names()).description(""));
    add_family(command, &options->family);
    if (on) {
        command.add_option("--acl", options->acl, help_text(Help::Acl))->type_name("NUMBER");
        add_interface(command, "--interface", help_text(Help::InterfaceDebugging), &options->if_index);
    }
    command
        .add_option("CATEGORY", options->categories,
                    "What to trace: all (" + std::string(help_text(Help::AllDebugging)) +
                        "), packet, group, querier, channel, route or user")
        ->check(mcastd::one_of(category_names()).description(""))
        ->required(on);
    on_command(line, command, [on, options] { return debug(on, *options); });
    return command;
}

} // namespace

void add_debug_commands(const CommandLine &line)
{
    CLI::App &parent = *line.root.add_subcommand("debug", "Switch the traces of the daemons on and off");
    add_switch(line, parent, true,
               "Trace these categories; without a list or interface the ones that were given before stay");
    add_switch(line, parent, false,
               "Trace these categories no more; without any, nothing and without filters");
}

} // namespace mcastctl
