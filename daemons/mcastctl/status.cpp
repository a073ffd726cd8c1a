/*
 * "status": which daemons run, and with a configuration file what the service manager says of them.
 */
#include <cstdio>
#include <memory>
#include <string>

#include "daemons/common/config_file.h"
#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"
#include "daemons/mcastctl/output.h"
#include "mcasthost/config.h"
#include "platform/device.h"

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
    {"service", FieldType::Text}, // None without a configuration file
};
constexpr mcastd::ControlSchema STATUS_TABLE{0, "status", 2, COLUMNS};

struct Options {
    uint16_t family = 0;
    bool as_json = false;
    std::string config;
};

ControlField service_state(const DaemonInfo &daemon)
{
    const auto node = static_cast<uint16_t>(LIP_GetLocalLip());
    uint32_t state = SERVICE_STATE_ABSENT;
    if (SERVICE_GetStatus(node, daemon.endpoint.service, 0, &state) != 0) {
        return ControlField::text("unknown");
    }
    switch (state) {
    case SERVICE_STATE_ABSENT:
        return ControlField::text("absent");
    case SERVICE_STATE_RUNNING:
        return ControlField::text("running");
    case SERVICE_STATE_STOPPED:
        return ControlField::text("stopped");
    default:
        return ControlField::text("starting");
    }
}

int show_status(const Options &options)
{
    char error[HOST_CONFIG_ERROR_SIZE];
    const bool managed = !options.config.empty();
    if (managed &&
        HOST_ConfigLoad(options.config.c_str(), mcastd::config_tables(), error, sizeof(error)) != 0) {
        std::fprintf(stderr, "mcastctl: %s\n", error);
        return EXIT_FAILED;
    }
    bool any = false;
    Output output(STATUS_TABLE, options.as_json, false);
    for (const DaemonInfo *daemon : daemons_named(nullptr, options.family)) {
        const bool running = is_running(*daemon);
        any |= running;
        output.add(*daemon,
                   {ControlField::text(daemon->name), family_of(*daemon), ControlField::truth(running),
                    managed ? service_state(*daemon) : ControlField()});
    }
    return output.finish() && any ? EXIT_DONE : EXIT_FAILED;
}

} // namespace

void add_status_command(const CommandLine &line)
{
    const auto options = std::make_shared<Options>();
    CLI::App &command = *line.root.add_subcommand("status", "Which daemons run; fails when none does");
    command.add_flag("--json", options->as_json, "Print a JSON list of objects");
    command
        .add_option("--config", options->config, "Configuration file; its services' states are shown, too")
        ->type_name("FILE");
    add_family(command, &options->family);
    on_command(line, command, [options] { return show_status(*options); });
}

} // namespace mcastctl
