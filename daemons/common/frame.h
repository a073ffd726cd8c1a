/*
 * The frame around every daemon: command line, log, signals, event loop, status file.
 *
 *     Options options("mribd", "what it does");
 *     options.app().add_option(...);                 its own options
 *     if (auto code = options.parse(argc, argv)) return *code;
 *     ... read the configuration ...
 *     if (!options.start_trace()) return EXIT_FAILURE;
 *     Frame frame(options);
 *     if (!frame.open()) return EXIT_FAILURE;
 *     frame.on_status([&] { return text; });
 *     ... frame.reactor().add(...) ...
 *     return frame.run();
 *
 * SIGTERM and SIGINT end run; SIGUSR1 writes the status file, or prints the status on standard output when no
 * file was given; SIGHUP calls the reload function, SIGUSR2 the resynchronise function. SIGPIPE is ignored.
 * The status file is replaced by a rename, so that a reader never sees half of it.
 */
#ifndef DAEMONS_COMMON_FRAME_H
#define DAEMONS_COMMON_FRAME_H

#include "daemons/common/log.h"
#include "daemons/common/reactor.h"
#include "mcast/common.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace mcastd
{

class Options
{
public:
    // name must be a literal; it opens every log line.
    Options(const char *name, const std::string &description);

    // Where the daemon adds options of its own before parse.
    CLI::App &app()
    {
        return app_;
    }

    // Reads the command line and opens the log. The exit code when the process is to end now: after --help
    // and --version, or after an argument that was wrong, which is then named on standard error.
    std::optional<int> parse(int argc, char **argv);

    const std::string &status_file() const
    {
        return status_file_;
    }

    // Begins to trace as the command line says; the configuration, which has the access lists, is read
    // before. False when it names a list or an interface that does not exist, which is logged.
    bool start_trace() const;

private:
    const char *name_;
    CLI::App app_;
    std::string level_ = "info";
    std::string status_file_;
    std::vector<std::string> trace_categories_;
    uint32_t trace_acl_ = MCAST_NONE;
    std::string trace_interface_;
};

class Frame
{
public:
    explicit Frame(const Options &options);
    ~Frame();
    Frame(const Frame &) = delete;
    Frame &operator=(const Frame &) = delete;

    // Makes the loop and takes over the signals. Failures are logged.
    bool open();

    Reactor &reactor()
    {
        return reactor_;
    }

    // The text that the status file is to hold.
    void on_status(std::function<std::string()> text);

    // What SIGHUP does; without it SIGHUP is only logged.
    void on_reload(std::function<void()> reload);

    // What SIGUSR2 does; without it SIGUSR2 is only logged.
    void on_resynchronise(std::function<void()> resynchronise);

    // Writes the status now, as SIGUSR1 does.
    void write_status() const;

    // Serves until SIGTERM or SIGINT. The exit code of the process.
    int run();

private:
    void take_signal(int fd);

    std::string status_file_;
    Reactor reactor_;
    std::vector<int> signals_;
    std::function<std::string()> status_;
    std::function<void()> reload_;
    std::function<void()> resynchronise_;
};

// Replaces the file by one that holds text. False with errno set when a step failed; the old file then stays.
bool write_file_atomically(const std::string &path, const std::string &text);

} // namespace mcastd

#endif
