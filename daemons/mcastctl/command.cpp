#include "daemons/mcastctl/command.h"

#include <cstdio>
#include <string>
#include <utility>

#include "daemons/common/command_words.h"
#include "daemons/mcastctl/daemon_user.h"
#include "daemons/mcastctl/text.h"
#include "mcast/common.h"

namespace mcastctl
{
namespace
{

constexpr void (*COMMANDS[])(const CommandLine &line) = {
    add_show_commands,  add_set_commands,  add_clear_command, add_switch_over_command, add_debug_commands,
    add_status_command, add_watch_command, add_check_command, add_complete_command,
};

// A command line that ends too early. CLI11 can refuse it, too, but does so without a look at a wrong word.
int say_what_is_missing(const CLI::App &root)
{
    const CLI::App *command = &root;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
    }
    std::fprintf(stderr, "%s: an argument is missing\n%s", command->get_name().c_str(),
                 command->help().c_str());
    return EXIT_USAGE;
}

} // namespace

void on_command(const CommandLine &line, CLI::App &command, std::function<int()> run)
{
    command.callback([chosen = line.run, run = std::move(run)] { *chosen = run; });
}

void on_local_command(const CommandLine &line, CLI::App &command, std::function<int()> run)
{
    command.callback([chosen = line.run, asks = line.asks_daemons, run = std::move(run)] {
        *chosen = run;
        *asks = false;
    });
}

int report(const Daemons &asked, const Outcome &outcome)
{
    for (const DaemonInfo *daemon : outcome.unreachable) {
        std::fprintf(stderr, "mcastctl: %s\n", not_ready_text(daemon_title(*daemon)).c_str());
    }
    for (const std::string &error : outcome.errors) {
        std::fprintf(stderr, "mcastctl: %s\n", error.c_str());
    }
    return outcome.good() && outcome.unreachable.size() < asked.size() ? EXIT_DONE : EXIT_FAILED;
}

int ask_all(const Daemons &daemons, const std::function<Outcome(const DaemonInfo &)> &ask)
{
    Outcome outcome;
    for (const DaemonInfo *daemon : daemons) {
        append(&outcome, ask(*daemon));
    }
    return report(daemons, outcome);
}

int command_all(const Daemons &daemons, mcastd::ControlCommand command,
                const mcastd::ControlFields &arguments)
{
    return ask_all(daemons, [&](const DaemonInfo &daemon) {
        std::string answer;
        return give_command(daemon, command, arguments, &answer);
    });
}

int run_command_line(int argc, const char *const *argv)
{
    CLI::App root("Reads and sets the tables of the running multicast daemons", "mcastctl");
    root.set_version_flag("--version", "mcastctl " MCAST_VERSION_TEXT);
    root.require_subcommand(0, 1);
    mcastd::explain_errors(root);
    CLI::App &show = *root.add_subcommand("show", "Show a table");
    CLI::App &set = *root.add_subcommand("set", "Set a value");
    std::string user;
    root.add_option("--user", user, "The user whose daemons are meant, a name or a number; root only");
    std::function<int()> run;
    bool asks_daemons = true;
    const CommandLine line{root, show, set, &run, &asks_daemons};
    for (const auto &add : COMMANDS) {
        add(line);
    }
    try {
        root.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return root.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    if (!run) {
        return say_what_is_missing(root);
    }
    std::string error;
    if (asks_daemons && !become_daemons_user(user, &error)) {
        std::fprintf(stderr, "mcastctl: %s\n", error.c_str());
        return EXIT_FAILED;
    }
    return run();
}

} // namespace mcastctl
