/*
 * "status": which daemons run.
 */
#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"
#include "daemons/mcastctl/output.h"

#include <memory>

namespace mcastctl
{
namespace
{

using mcastd::ControlField;
using mcastd::FieldType;

constexpr mcastd::ControlColumn COLUMNS[] = {
    {"daemon", FieldType::Text},
    {"family", FieldType::Family}, // None: both
    {"running", FieldType::Truth},
};
constexpr mcastd::ControlSchema STATUS_TABLE{0, "status", 2, COLUMNS};

int show_status(uint16_t family, bool as_json)
{
    bool any = false;
    Output output(STATUS_TABLE, as_json, false);
    for (const DaemonInfo &daemon : daemon_list()) {
        if (family != 0 && daemon.family != 0 && daemon.family != family) {
            continue;
        }
        const bool running = is_running(daemon);
        any |= running;
        output.add(daemon, {ControlField::text(daemon.name),
                            daemon.family == 0 ? ControlField() : ControlField::family(daemon.family),
                            ControlField::truth(running)});
    }
    return output.finish() && any ? EXIT_DONE : EXIT_FAILED;
}

} // namespace

void add_status_command(const CommandLine &line)
{
    struct Options {
        uint16_t family = 0;
        bool as_json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App &command = *line.root.add_subcommand("status", "Which daemons run; fails when none does");
    command.add_flag("--json", options->as_json, "Print a JSON list of objects");
    add_family(command, &options->family);
    on_command(line, command, [options] { return show_status(options->family, options->as_json); });
}

} // namespace mcastctl
