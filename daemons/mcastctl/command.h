/*
 * The commands of mcastctl. Each lies in a file of its own with a function that adds it to the command line;
 * command.cpp lists these functions, which is all that a new command needs.
 */
#ifndef DAEMONS_MCASTCTL_COMMAND_H
#define DAEMONS_MCASTCTL_COMMAND_H

#include <CLI/CLI.hpp>
#include <functional>

#include "daemons/mcastctl/client.h"

namespace mcastctl
{

// Exit codes: what was asked for was done; a daemon could not be reached or refused; the command line is
// wrong.
constexpr int EXIT_DONE = 0;
constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

// Where commands are added.
struct CommandLine {
    CLI::App &root;
    CLI::App &show;            // "show TABLE"
    CLI::App &set;             // "set SETTING"
    std::function<int()> *run; // what the chosen command does; its result is the exit code
    bool *asks_daemons;        // whether it has to find them, and to be their user, first
};

// Sets what is done when the command is given.
void on_command(const CommandLine &line, CLI::App &command, std::function<int()> run);

// Likewise for a command that asks no daemon and stays the caller's.
void on_local_command(const CommandLine &line, CLI::App &command, std::function<int()> run);

void add_show_commands(const CommandLine &line);
void add_set_commands(const CommandLine &line);
void add_debug_commands(const CommandLine &line);
void add_status_command(const CommandLine &line);
void add_clear_command(const CommandLine &line);
void add_switch_over_command(const CommandLine &line);
void add_watch_command(const CommandLine &line);
void add_complete_command(const CommandLine &line);
void add_check_command(const CommandLine &line);

// Reads the command line and does what it says. The exit code.
int run_command_line(int argc, const char *const *argv);

// Says on standard error which of the daemons that were asked could not be reached and what others refused.
// EXIT_DONE when at least one did what it was asked for and none refused.
int report(const Daemons &asked, const Outcome &outcome);

// Asks each of the daemons, and reports.
int ask_all(const Daemons &daemons, const std::function<Outcome(const DaemonInfo &)> &ask);

// Gives each of the daemons the command, and reports.
int command_all(const Daemons &daemons, mcastd::ControlCommand command,
                const mcastd::ControlFields &arguments);

} // namespace mcastctl

#endif
