#include "daemons/uagent/values.h"

#include <charconv>

#include "daemons/common/address.h"
#include "mcast/argument_check.h"
#include "mcast/interface_name.h"

namespace uagent
{
namespace
{

using Check = MCAST_STATUS (*)(const char *text);

// The checks of one kind of address, one for each family.
struct Checks {
    Check ipv4;
    Check ipv6;
};

constexpr Checks USER_CHECKS = {MCAST_SrcIPStrictCheck, MCAST_SrcIPv6StrictCheck};
constexpr Checks SOURCE_CHECKS = {MCAST_SourceIPCheck, MCAST_SourceIPv6Check_Ext};
constexpr Checks GROUP_CHECKS = {MCAST_GroupIPCheck, MCAST_GroupIPv6Check};

bool read_address(const std::string &text, uint16_t family, const Checks &checks, MCAST_ADDR_S *address)
{
    const Check check = family == MCAST_FAMILY_IPV4 ? checks.ipv4 : checks.ipv6;
    const auto read = mcastd::parse_address(text);
    if (!read || read->family != family || check(text.c_str()) != MCAST_OK) {
        return false;
    }
    *address = *read;
    return true;
}

const char *family_text(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? "IPv4" : "IPv6";
}

} // namespace

bool read_number(const std::string &text, uint64_t lowest, uint64_t highest, uint64_t *number,
                 std::string *error)
{
    const bool hexadecimal = text.rfind("0x", 0) == 0;
    const char *begin = text.data() + (hexadecimal ? 2 : 0);
    const char *end = text.data() + text.size();
    uint64_t read = 0;
    const auto result = std::from_chars(begin, end, read, hexadecimal ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != end || read < lowest || read > highest) {
        *error = "no number from " + std::to_string(lowest) + " to " + std::to_string(highest);
        return false;
    }
    *number = read;
    return true;
}

bool read_user_address(const std::string &text, uint16_t family, MCAST_ADDR_S *address, std::string *error)
{
    if (!read_address(text, family, USER_CHECKS, address)) {
        *error = std::string("no unicast ") + family_text(family) + " address";
        return false;
    }
    return true;
}

bool read_permission(const std::string &text, uint16_t family, Permission *permission, std::string *error)
{
    const size_t comma = text.find(',');
    Permission read;
    read.source.family = family;
    if (comma != std::string::npos &&
        !read_address(text.substr(0, comma), family, SOURCE_CHECKS, &read.source)) {
        *error = std::string("what precedes the comma is no unicast ") + family_text(family) + " source";
        return false;
    }
    const std::string group = comma == std::string::npos ? text : text.substr(comma + 1);
    if (!read_address(group, family, GROUP_CHECKS, &read.group)) {
        *error = std::string("no ") + family_text(family) + " group that is routed, nor SOURCE,GROUP";
        return false;
    }
    *permission = read;
    return true;
}

bool read_interface(const std::string &text, uint16_t family, uint32_t *if_index, std::string *error)
{
    char name[MCAST_IF_NAME_SIZE] = "";
    uint32_t found = 0;
    if (text.rfind("0x", 0) == 0) {
        return read_number(text, 1, UINT32_MAX, if_index, error);
    }
    if (!text.empty()) {
        found = MCAST_GetIfIndexByIfName(text.c_str(), "", name);
    }
    if (found == 0 && MCAST_GetMUANameFromStr(text.c_str(), name) == MCAST_OK) {
        found = MCAST_GetIfIndexByMUAName(family, name);
    }
    if (found == 0) {
        *error = "no interface of this machine, or more than one";
        return false;
    }
    *if_index = found;
    return true;
}

bool read_hardware_address(const std::string &text, std::array<uint8_t, 6> *address, std::string *error)
{
    constexpr size_t STEP = 3; // two digits and a colon
    std::array<uint8_t, 6> read{};
    bool good = text.size() == read.size() * STEP - 1;
    for (size_t i = 0; good && i < read.size(); ++i) {
        const char *digits = text.data() + i * STEP;
        const auto result = std::from_chars(digits, digits + 2, read[i], 16);
        good = result.ec == std::errc() && result.ptr == digits + 2 &&
               (i + 1 == read.size() || digits[2] == ':');
    }
    if (!good) {
        *error = "not six bytes as in 02:00:00:00:00:01";
        return false;
    }
    *address = read;
    return true;
}

} // namespace uagent
