/*
 * "check FILE": what every program of the router would say of a configuration file, all of it at once, without a
 * program of the router.
 */
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <tuple>

#include "daemons/common/services.h"
#include "daemons/gmpd/config.h"
#include "daemons/mcastctl/command.h"
#include "daemons/mribd/config.h"
#include "daemons/msdpd/config.h"
#include "daemons/pimsmd/config.h"
#include "host/config/config_check.h"
#include "host/config/config_text.h"
#include "mcasthost/config.h"

namespace mcastctl
{
namespace
{

using mcastd::ConfigTable;

// In the order of the file; what several programs say of a place is said once.
using Errors = std::set<std::tuple<uint32_t, uint32_t, std::string>>;

struct Reader {
    const char *table;
    void (*read)(ConfigTable &table);
};

constexpr Reader READERS[] = {
    {"gmpd", [](ConfigTable &table) { static_cast<void>(gmpd::read_config_table(table)); }},
    {"mribd", [](ConfigTable &table) { static_cast<void>(mribd::read_config(table)); }},
    {"msdpd", [](ConfigTable &table) { static_cast<void>(msdpd::read_config(table)); }},
    {"pimsmd", [](ConfigTable &table) { static_cast<void>(pimsmd::read_config(table, MCAST_FAMILY_IPV4)); }},
    {"pimsmd", [](ConfigTable &table) { static_cast<void>(pimsmd::read_config(table, MCAST_FAMILY_IPV6)); }},
};

void take_error(void *context, uint32_t line, uint32_t column, const char *error)
{
    static_cast<Errors *>(context)->emplace(line, column, error);
}

Errors check_text(const std::string &name, const std::string &text)
{
    Errors errors;
    const auto tell = [&](const mcastd::ConfigError &error) {
        take_error(&errors, error.position().line, error.position().column, error.what());
    };
    HOST_ConfigCheckText(name.c_str(), text.data(), text.size(), mcastd::config_tables(), take_error,
                         &errors);
    for (const Reader &reader : READERS) {
        try {
            host::ConfigDocument document(name, text);
            host::check_document(
                document,
                [&](ConfigTable &root) {
                    ConfigTable table = root.table(reader.table);
                    reader.read(table);
                    table.finish();
                },
                tell);
        } catch (const mcastd::ConfigError &error) {
            tell(error); // no TOML
        }
    }
    return errors;
}

int check(const std::string &path)
{
    try {
        const Errors errors = check_text(path, host::read_config_file(path.c_str()));
        for (const auto &[line, column, error] : errors) {
            std::fprintf(stderr, "%s\n", error.c_str());
        }
        if (errors.empty()) {
            std::printf("%s: nothing is wrong\n", path.c_str());
        } else if (errors.size() >= host::MOST_CONFIG_ERRORS) {
            std::fprintf(stderr, "%s: there may be more\n", path.c_str());
        }
        return errors.empty() ? EXIT_DONE : EXIT_FAILED;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILED;
    }
}

} // namespace

void add_check_command(const CommandLine &line)
{
    const auto path = std::make_shared<std::string>();
    CLI::App &command = *line.root.add_subcommand(
        "check", "Say everything that is wrong with a configuration file; no daemon is asked or told");
    command.add_option("file", *path, "The file")->required();
    on_local_command(line, command, [path] { return check(*path); });
}

} // namespace mcastctl
