/*
 * Any text as the configuration file, and packets against whatever lists come out of it. A text that is
 * refused has a one-line error that begins with the file's name, and leaves nothing behind.
 */
#include "mcasthost/config.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>

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
}

void ask_everything()
{
    ACL_PACKET_INFO4_S ipv4{};
    ipv4.first = 0x0a010105;
    ipv4.second = 0xe8010101;
    ipv4.slots = ACL_SLOT_FIRST | ACL_SLOT_SECOND;
    ACL_PACKET_INFO6_S ipv6{};
    ipv6.first[0] = ipv6.second[0] = 0xff;
    ipv6.slots = ACL_SLOT_FIRST;
    ipv6.vrf_index = 5;
    for (const uint32_t number : {1999u, 2000u, 2001u, 2999u, 3000u, 3001u, 3999u, 4000u, UINT32_MAX}) {
        ask(ACL_FAMILY_IPV4, number, &ipv4);
        ask(ACL_FAMILY_IPV6, number, &ipv6);
    }
    for (const uint16_t index : {uint16_t{0}, uint16_t{1}, uint16_t{5}, uint16_t{UINT16_MAX}}) {
        char name[L3VPN_NAME_SIZE];
        if (L3VPN_GetNameByVrfIndex(index, sizeof(name), name) == 0) {
            require(memchr(name, '\0', sizeof(name)) != nullptr && (index == 0) == (name[0] == '\0'));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    char error[HOST_CONFIG_ERROR_SIZE];
    require(HOST_ConfigLoadText("file", nullptr, 0, error, sizeof(error)) == 0);
    const uint32_t loaded =
        HOST_ConfigLoadText("file", reinterpret_cast<const char *>(data), size, error, sizeof(error));
    if (loaded == 0) {
        require(error[0] == '\0');
    } else {
        require(strncmp(error, "file:", 5) == 0 && strchr(error, '\n') == nullptr);
        require(ACL_GetGroupTypeByIndex(ACL_FAMILY_IPV4, 2001) == 0);
    }
    ask_everything();
    return 0;
}
