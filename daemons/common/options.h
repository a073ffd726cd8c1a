/*
 * The command line of a daemon: the options that every one of them has, and the log and traces that follow
 * from them.
 */
#ifndef DAEMONS_COMMON_OPTIONS_H
#define DAEMONS_COMMON_OPTIONS_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mcast/common.h"

namespace CLI
{
class App;
}

namespace mcastd
{

class Options
{
public:
    // name must be a literal; it opens every log line.
    Options(const char *name, const std::string &description);

    ~Options();
    Options(const Options &) = delete;
    Options &operator=(const Options &) = delete;

    // Where the daemon adds options of its own before parse.
    CLI::App &app()
    {
        return *app_;
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
    std::unique_ptr<CLI::App> app_; // its header is large: only who adds options includes it
    std::string level_ = "info";
    std::string status_file_;
    std::vector<std::string> trace_categories_;
    uint32_t trace_acl_ = MCAST_NONE;
    std::string trace_interface_;
};

} // namespace mcastd

#endif
