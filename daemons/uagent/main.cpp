/*
 * uagent: an authentication agent for the command line. It tells a multicast daemon of the same network
 * namespace which users there are, where they are attached and what each may join.
 */
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "daemons/common/command_words.h"
#include "daemons/common/log.h"
#include "daemons/uagent/agent.h"

namespace
{

struct Arguments {
    uagent::Settings settings;
    std::string file;
    bool watch = false;
    std::vector<std::string> words;
};

void add_options(CLI::App &app, Arguments &arguments)
{
    uint16_t &family = arguments.settings.family;
    CLI::Option *named = app.add_option_function<std::string>(
                                "--family",
                                [&family](const std::string &name) {
                                    family = name == "ipv6" ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
                                },
                                "Family of the daemon: ipv4 (the default) or ipv6")
                             ->check(mcastd::one_of({"ipv4", "ipv6"}));
    CLI::Option *ipv4 = app.add_flag_callback(
        "-4", [&family] { family = MCAST_FAMILY_IPV4; }, "The same as --family ipv4");
    CLI::Option *ipv6 = app.add_flag_callback(
        "-6", [&family] { family = MCAST_FAMILY_IPV6; }, "The same as --family ipv6");
    ipv4->excludes(ipv6)->excludes(named);
    ipv6->excludes(named);
    app.add_option("--file", arguments.file,
                   "File of commands, one a line; - is standard input. It is checked as a whole before "
                   "anything is sent");
    app.add_flag("--watch", arguments.watch,
                 "Stay connected and send each line of the file (standard input without one) as it comes");
    app.add_flag(
           "--reconnect", arguments.settings.reconnect,
           "With --watch: wait for a daemon that is not there, connect again to one that ended or handed "
           "over, and announce all users again")
        ->needs("--watch");
    app.add_flag("--json", arguments.settings.json, "Print what is sent as JSON, one object a line");
    app.add_flag("--dry-run", arguments.settings.dry_run, "Print what would be sent, and send nothing");
    app.add_option("--timeout", arguments.settings.timeout_s, "Seconds to wait for the daemon to read")
        ->check(CLI::Range(1u, 86400u))
        ->capture_default_str();
    app.add_option(
        "command", arguments.words,
        "announce, update, groups, withdraw, refresh-begin or refresh-end, and its words key=value");
}

bool run(const Arguments &arguments, std::string *error)
{
    uagent::Agent agent(arguments.settings, stdout);
    const bool standard_input = arguments.file.empty() || arguments.file == "-";
    if (!arguments.words.empty() && (arguments.watch || !arguments.file.empty())) {
        *error = arguments.words.front() + ": a command does not go with --file or --watch";
        return false;
    }
    if (!arguments.watch) {
        return arguments.file.empty() ? agent.run_words(arguments.words, error)
                                      : agent.run_file(standard_input ? "/dev/stdin" : arguments.file, error);
    }
    const int input = standard_input ? STDIN_FILENO : open(arguments.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (input < 0) {
        *error = arguments.file + ": " + std::strerror(errno);
        return false;
    }
    return agent.watch(input, standard_input ? "standard input" : arguments.file, error);
}

} // namespace

int main(int argc, char **argv)
{
    Arguments arguments;
    CLI::App app("Authentication agent for the command line: tells gmpd which users may join what", "uagent");
    std::string error;
    add_options(app, arguments);
    app.set_version_flag("--version", "uagent " MCAST_VERSION);
    mcastd::explain_errors(app);
    CLI11_PARSE(app, argc, argv);
    mcastd::log_open("uagent", mcastd::LogLevel::Info);
    if (!run(arguments, &error)) {
        mcastd::log_error("%s", error.c_str());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
