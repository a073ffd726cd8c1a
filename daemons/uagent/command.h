/*
 * What an agent tells a multicast daemon, as an operator writes it: a verb and words of the form key=value.
 *
 *     announce id=7 node=3 kind=1 interface=eth1 address=10.2.0.2 group=239.1.1.1 group=10.1.0.2,239.1.2.1
 *     update   (as announce)
 *     groups   id=7 node=3 kind=1 group=239.1.1.1
 *     withdraw id=7 node=3 kind=1
 *     refresh-begin node=3 kind=1
 *     refresh-end node=3 kind=1
 */
#ifndef DAEMONS_UAGENT_COMMAND_H
#define DAEMONS_UAGENT_COMMAND_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "mcast/common.h"

namespace uagent
{

enum class Verb : uint8_t { Announce, Withdraw, Update, Groups, RefreshBegin, RefreshEnd };

// A pair that the user may join; an all-zero source permits every source of the group.
struct Permission {
    MCAST_ADDR_S source{};
    MCAST_ADDR_S group{};
};

// The longest name, in bytes without its terminator.
constexpr size_t NAME_MAX_LENGTH = 255;

// The fields that a verb does not have are at their defaults. attribute_N goes to offset N of the record;
// what it means is between agent and daemon.
struct Command {
    Verb verb = Verb::Announce;
    uint16_t family = MCAST_FAMILY_IPV4;
    uint32_t user_id = 0;
    uint16_t node = 0;
    uint32_t kind = 0; // 1 to 4
    uint32_t access_if_index = 0;
    MCAST_ADDR_S address{};
    MCAST_ADDR_S second_address{};
    uint16_t vrf_index = 0;
    std::array<uint8_t, 6> hardware_address{};
    std::string name;
    uint32_t attribute_24 = 0;
    uint16_t attribute_32 = 0;
    uint16_t attribute_34 = 0;
    uint32_t attribute_36 = 0;
    uint16_t attribute_40 = 0;
    uint16_t attribute_70 = 0;
    uint32_t attribute_80 = 0;
    uint32_t attribute_84 = 0;
    std::vector<Permission> permissions;
    bool open = false; // the group list's end is left to a later command
};

// Reads a command for the family. False with *error set: it names the verb and the word that is wrong, and
// *command is not to be used. A word group-file=PATH is read from that file, one permission a line.
bool parse_command(const std::vector<std::string> &words, uint16_t family, Command *command,
                   std::string *error);

// The words of a line; what follows a # that begins a word is a comment.
std::vector<std::string> split_words(const std::string &line);

// The name of a verb.
const char *verb_name(Verb verb);

} // namespace uagent

#endif
