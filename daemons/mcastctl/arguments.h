/*
 * What an operator types for groups, sources and interfaces, judged by the library's checks.
 */
#ifndef DAEMONS_MCASTCTL_ARGUMENTS_H
#define DAEMONS_MCASTCTL_ARGUMENTS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "mcast/common.h"

namespace mcastctl
{

// Options that narrow a table; those that a command does not have stay unset.
struct Filter {
    uint16_t family = 0; // 0: both
    std::optional<uint16_t> instance;
    std::optional<uint32_t> if_index;
    std::optional<uint32_t> incoming;
    std::optional<uint32_t> outgoing;
    std::optional<MCAST_ADDR_S> group;
    std::optional<MCAST_ADDR_S> source;
};

// Each adds an option that fills its value. A wrong text ends the command with the reason and exit code 2.
CLI::Option *add_family(CLI::App &command, uint16_t *family);
CLI::Option *add_instance(CLI::App &command, std::optional<uint16_t> *instance);
CLI::Option *add_group(CLI::App &command, std::optional<MCAST_ADDR_S> *group);
CLI::Option *add_source(CLI::App &command, std::optional<MCAST_ADDR_S> *source);
CLI::Option *add_interface(CLI::App &command, const char *name, const char *help,
                           std::optional<uint32_t> *if_index);

// The group or source of the text, the empty address standing for any source where sources may do so.
// Otherwise nothing.
std::optional<MCAST_ADDR_S> group_from_text(const std::string &text);
std::optional<MCAST_ADDR_S> source_from_text(const std::string &text);

// The interface of the name, which may be typed as the platform completes it, or of a Multicast-UA interface
// of the IPv4 daemon; 0 when there is none.
uint32_t interface_from_text(const std::string &text);

} // namespace mcastctl

#endif
