/*
 * Any text as the configuration file of the host platform and of each daemon, and packets against whatever lists
 * come out of it. A text that is refused has a one-line error that begins with the file's name, and what was in
 * force before stays in force.
 */
#include "mcasthost/config.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "daemons/common/config_file.h"
#include "daemons/mribd/config.h"
#include "daemons/msdpd/config.h"
#include "platform/acl.h"
#include "platform/vpn.h"

namespace
{

void require(bool truth)
{
    if (!truth) {
        abort();
    }
}

// What is in force, as far as it can be asked for; each answer is also checked.
std::string g_answers;

void ask(uint32_t family, uint32_t number, const void *info)
{
    uint32_t result = 0;
    uint32_t action = 0;
    const uint32_t code = ACL_MatchWithPacketInfo(family, number, info, 1, &result, &action);
    const uint32_t rules = ACL_GetRuleTotalNumber(family, number);
    if (ACL_GetGroupTypeByIndex(family, number) == 0) {
        require(code == ACL_ERR_NO_ACL && rules == 0);
    } else if (rules == 0) {
        require(code == ACL_ERR_NO_RULE);
    } else {
        require(code == 0 && (action == ACL_ACTION_PERMIT || action == ACL_ACTION_DENY));
        require(result <= UINT16_MAX || (result == UINT32_MAX && action == ACL_ACTION_DENY));
    }
    for (const uint32_t answer : {code, rules, action, result}) {
        g_answers += std::to_string(answer) + ' ';
    }
}

std::string ask_everything()
{
    ACL_PACKET_INFO4_S ipv4{};
    ipv4.first = 0x0a010105;
    ipv4.second = 0xe8010101;
    ipv4.slots = ACL_SLOT_FIRST | ACL_SLOT_SECOND;
    ACL_PACKET_INFO6_S ipv6{};
    ipv6.first[0] = ipv6.second[0] = 0xff;
    ipv6.slots = ACL_SLOT_FIRST;
    ipv6.vrf_index = 5;
    g_answers.clear();
    for (const uint32_t number : {1999u, 2000u, 2001u, 2999u, 3000u, 3001u, 3999u, 4000u, UINT32_MAX}) {
        ask(ACL_FAMILY_IPV4, number, &ipv4);
        ask(ACL_FAMILY_IPV6, number, &ipv6);
    }
    for (const uint16_t index : {uint16_t{0}, uint16_t{1}, uint16_t{5}, uint16_t{UINT16_MAX}}) {
        char name[L3VPN_NAME_SIZE];
        if (L3VPN_GetNameByVrfIndex(index, sizeof(name), name) == 0) {
            require(memchr(name, '\0', sizeof(name)) != nullptr && (index == 0) == (name[0] == '\0'));
            g_answers += std::string(name) + ' ';
        }
    }
    return g_answers;
}

// What is in force before each text.
constexpr char BEFORE[] = "[[vpn]]\nname = 'five'\nindex = 5\n"
                          "[[acl]]\nnumber = 2001\nfamily = 'ipv4'\n"
                          "[[acl.rule]]\nid = 1\naction = 'permit'\nsource = '10.1.0.0/16'\n";

void put_before_in_force()
{
    char error[HOST_CONFIG_ERROR_SIZE];
    require(HOST_ConfigLoadText("before", BEFORE, sizeof(BEFORE) - 1, nullptr, error, sizeof(error)) == 0);
}

// To be called right after the refusal.
void require_nothing_changed(const std::string &error, const std::string &path)
{
    require(error.starts_with(path + ':') && error.find('\n') == error.npos);
    const std::string answers = ask_everything();
    put_before_in_force();
    require(ask_everything() == answers);
}

// The text as a file that the daemon reads, as it does at its start and when told to read it again.
template <typename Config>
void load_as(const char *daemon, const std::string &path, Config (*read_config)(mcastd::ConfigTable &))
{
    Config config;
    std::string error;
    const auto read = [&](mcastd::ConfigTable &table) { config = read_config(table); };
    put_before_in_force();
    if (mcastd::load_config(path.c_str(), daemon, read, &error)) {
        ask_everything();
    } else {
        require_nothing_changed(error, path);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    char error[HOST_CONFIG_ERROR_SIZE];
    put_before_in_force();
    if (HOST_ConfigLoadText("file", reinterpret_cast<const char *>(data), size, mcastd::config_tables(),
                            error, sizeof(error)) == 0) {
        require(error[0] == '\0');
        ask_everything();
    } else {
        require_nothing_changed(error, "file");
    }
    const int file = memfd_create("configuration", MFD_CLOEXEC);
    require(file >= 0 && write(file, data, size) == static_cast<ssize_t>(size));
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    load_as("mribd", path, mribd::read_config);
    load_as("msdpd", path, msdpd::read_config);
    close(file);
    return 0;
}
