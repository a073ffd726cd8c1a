#include "service_table.h"

#include <algorithm>

namespace host
{
namespace
{

constexpr size_t NAME_MAX_LENGTH = 63;

std::string read_name(ConfigTable &table)
{
    std::string name = table.optional_string("name").value_or("");
    if (table.has("name") && (name.empty() || name.size() > NAME_MAX_LENGTH)) {
        table.fail("name", "name has " + std::to_string(name.size()) + " characters; allowed: 1 to " +
                               std::to_string(NAME_MAX_LENGTH));
    }
    return name;
}

std::vector<std::string> read_command(ConfigTable &table)
{
    std::vector<std::string> command;
    for (const ConfigString &word : table.strings("command")) {
        if (word.text.find('\0') != std::string::npos) {
            table.fail_at(word.at, quoted(word.text) + " holds a zero byte; allowed: none");
        }
        if (command.empty() && (word.text.empty() || word.text.front() != '/')) {
            table.fail_at(word.at, quoted(word.text) + " is no program; allowed: an absolute path");
        }
        command.push_back(word.text);
    }
    if (command.empty()) {
        table.fail("command", "there is no command; allowed: a list of a program and its arguments");
    }
    return command;
}

} // namespace

ServiceTable read_services(ConfigTable &root)
{
    ServiceTable services;
    for (ConfigTable &table : root.tables("service")) {
        const auto id = static_cast<uint64_t>(table.integer("id", 1, INT64_MAX));
        Service service{read_name(table), static_cast<uint16_t>(table.integer("port", 1, UINT16_MAX)),
                        read_command(table)};
        const auto same_port = std::find_if(services.begin(), services.end(), [&](const auto &other) {
            return other.second.port == service.port;
        });
        if (services.contains(id)) {
            table.fail("id",
                       "there is another service " + std::to_string(id) + "; allowed: an id of its own");
        }
        if (same_port != services.end()) {
            table.fail("port", "port " + std::to_string(service.port) + " is service " +
                                   std::to_string(same_port->first) + "'s; allowed: a port of its own");
        }
        services.emplace(id, std::move(service));
        table.finish();
    }
    return services;
}

} // namespace host
