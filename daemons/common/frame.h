/*
 * The frame around every daemon: signals, event loop, status file.
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

#include <functional>
#include <string>
#include <vector>

#include "daemons/common/nonblocking_output.h"
#include "daemons/common/reactor.h"

namespace mcastd
{

class Options;

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

    // Writes the status now, as SIGUSR1 does. What the reader of standard output does not take at once is
    // written when it does; until then no other status is printed.
    void write_status();

    // Serves until SIGTERM or SIGINT. The exit code of the process.
    int run();

private:
    void take_signal(int fd);
    void print_status(std::string text);
    void go_on_printing();

    std::string status_file_;
    Reactor reactor_;
    std::vector<int> signals_;
    std::function<std::string()> status_;
    NonblockingOutput standard_output_;
    std::string printing_; // the rest of a status that standard output has not taken yet
    bool waits_for_room_ = false;
    std::function<void()> reload_;
    std::function<void()> resynchronise_;
};

// Replaces the file by one that holds text. False with errno set when a step failed; the old file then stays.
bool write_file_atomically(const std::string &path, const std::string &text);

} // namespace mcastd

#endif
