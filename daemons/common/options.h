/*
 * The command line of a daemon: the options that every one of them has, those that many have, and the log and
 * traces that follow from them.
 */
#ifndef DAEMONS_COMMON_OPTIONS_H
#define DAEMONS_COMMON_OPTIONS_H

#include <cstdint>
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
    enum class Kind {
        Daemon, // has --log-level, --status-file, --debug and the like
        Command // has none of them
    };

    // name must be a literal; it opens every log line and is that of the daemon's table in the configuration
    // file.
    Options(const char *name, const std::string &description, Kind kind = Kind::Daemon);

    ~Options();
    Options(const Options &) = delete;
    Options &operator=(const Options &) = delete;

    // Where the daemon adds options of its own before parse. --help shows them in the order in which they are
    // added.
    CLI::App &app()
    {
        return *app_;
    }

    // Adds --family, -4 and -6, for a process that serves one family. help is that of --family.
    void add_family(const std::string &help);

    // Adds --config, which the daemon can or cannot do without.
    enum class Config { Optional, Required };
    void add_config(const std::string &help, Config need);

    // Reads the command line and opens the log. The exit code when the process is to end now: after --help
    // and --version, or after an argument that was wrong, which is then named on standard error.
    std::optional<int> parse(int argc, char **argv);

    const char *name() const
    {
        return name_;
    }
    // MCAST_FAMILY_IPV4 unless the command line says otherwise.
    uint8_t family() const
    {
        return family_;
    }
    // Empty: there is none.
    const std::string &config_file() const
    {
        return config_file_;
    }
    const std::string &status_file() const
    {
        return status_file_;
    }

    // Begins to trace as the command line says; the configuration, which has the access lists, is read
    // before. False when it names a list or an interface that does not exist, which is logged.
    bool start_trace() const;

private:
    void add_diagnostics();

    const char *name_;
    std::unique_ptr<CLI::App> app_; // its header is large: only files that add options include it
    std::string level_ = "info";
    std::string status_file_;
    std::string config_file_;
    uint8_t family_ = MCAST_FAMILY_IPV4;
    std::vector<std::string> trace_categories_;
    uint32_t trace_acl_ = MCAST_NONE;
    std::string trace_interface_;
};

} // namespace mcastd

#endif
