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

#include "daemons/common/log.h"
#include "daemons/common/program.h"
#include "daemons/uagent/watch.h"

namespace
{

struct Arguments {
    uagent::Settings settings;
    std::string file;
    bool watch = false;
    std::vector<std::string> words;

    bool from_standard_input() const
    {
        return file.empty() || file == "-";
    }
};

void add_options(mcastd::Options &options, Arguments &arguments)
{
    CLI::App &app = options.app();
    options.add_family("Family of the daemon: ipv4 (the default) or ipv6");
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

bool run_once(const Arguments &arguments, std::string *error)
{
    uagent::Agent agent(arguments.settings, stdout);
    return arguments.file.empty()
               ? agent.run_words(arguments.words, error)
               : agent.run_file(arguments.from_standard_input() ? "/dev/stdin" : arguments.file, error);
}

int watch(const mcastd::Options &options, const Arguments &arguments)
{
    const bool standard_input = arguments.from_standard_input();
    const int input = standard_input ? STDIN_FILENO : open(arguments.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (input < 0) {
        mcastd::log_error("%s: %s", arguments.file.c_str(), std::strerror(errno));
        return EXIT_FAILURE;
    }
    const std::string name = standard_input ? "standard input" : arguments.file;
    return mcastd::run_in_frame<uagent::Watch>(options, arguments.settings, input, name, stdout);
}

int run(int argc, char **argv)
{
    Arguments arguments;
    mcastd::Options options("uagent",
                            "Authentication agent for the command line: tells gmpd which users may join what",
                            mcastd::Options::Kind::Command);
    add_options(options, arguments);
    if (const auto code = options.parse(argc, argv)) {
        return *code;
    }
    arguments.settings.family = options.family();
    if (!arguments.words.empty() && (arguments.watch || !arguments.file.empty())) {
        mcastd::log_error("%s: a command does not go with --file or --watch",
                          arguments.words.front().c_str());
        return EXIT_FAILURE;
    }
    if (arguments.watch) {
        return watch(options, arguments);
    }
    std::string error;
    if (!run_once(arguments, &error)) {
        mcastd::log_error("%s", error.c_str());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv)
{
    return mcastd::run_program("uagent", [&] { return run(argc, argv); });
}
