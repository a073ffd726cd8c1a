// The scripted platform's driver: everything that the scripts leave open is scripted here, and time moves when it is waited
// for. The socket calls go to the minimal platform's.
#include <algorithm>
#include <cstring>
#include <sys/random.h>

#include "driver.h"
#include "minimal/local_socket.h"
#include "platform/acl.h"
#include "platform/interface.h"
#include "support/scripted_acl.h"
#include "support/scripted_interface.h"
#include "support/scripted_libc.h"
#include "support/scripted_random.h"
#include "support/scripted_timer.h"

namespace
{

constexpr PORT_INTERFACE_S kInterface = {3, 22, "port3", "p3", "po3", 23};
constexpr PORT_ACCESS_LISTS_S kLists = {2000, 3000, 2001, 2002};

uint32_t InterfaceData(uint32_t if_index, uint32_t item, void *data)
{
    if (if_index != kInterface.if_index) {
        return 1;
    }
    switch (item) {
    case IF_ITEM_FULL_NAME:
        strcpy(static_cast<char *>(data), kInterface.full_name);
        return 0;
    case IF_ITEM_SHORT_NAME:
        strcpy(static_cast<char *>(data), kInterface.short_name);
        return 0;
    case IF_ITEM_TYPE:
        memcpy(data, &kInterface.type, sizeof(kInterface.type));
        return 0;
    default:
        return 1;
    }
}

uint32_t TypeData(uint32_t type, uint32_t item, void *data)
{
    const uint32_t hidden = 0;
    if (type != kInterface.type || item != IF_TYPE_ITEM_HIDDEN) {
        return 1;
    }
    memcpy(data, &hidden, sizeof(hidden));
    return 0;
}

// Selectors are what was written down of them: a selector has the type that it was given last.
uint32_t FillName(const void *, const char *text, uint32_t, char *full_name)
{
    const bool selected = scripted::selector_calls.back().value == kInterface.type;
    if (!selected || (strcmp(text, kInterface.full_name) != 0 && strcmp(text, kInterface.abbreviated) != 0)) {
        return 1;
    }
    strcpy(full_name, kInterface.full_name);
    return 0;
}

uint32_t GroupType(uint32_t family, uint32_t number)
{
    if (number == kLists.basic || number == kLists.empty) {
        return family == ACL_FAMILY_IPV4 ? ACL_GROUP_SINGLE_IPV4 : ACL_GROUP_SINGLE_IPV6;
    }
    return number == kLists.advanced ? 2 : 0;
}

// The two addresses of a packet, as far as the lists look at them.
bool Within(uint32_t family, const void *info, bool second, const uint8_t *range, size_t length)
{
    uint8_t address[16];
    if (family == ACL_FAMILY_IPV4) {
        const auto *packet = static_cast<const ACL_PACKET_INFO4_S *>(info);
        const uint32_t value = __builtin_bswap32(second ? packet->second : packet->first);
        memcpy(address, &value, sizeof(value));
    } else {
        const auto *packet = static_cast<const ACL_PACKET_INFO6_S *>(info);
        memcpy(address, second ? packet->second : packet->first, sizeof(address));
    }
    return memcmp(address, range, length) == 0;
}

uint32_t Match(uint32_t family, uint32_t number, const void *info, uint32_t, uint32_t *result,
               uint32_t *action)
{
    static const uint8_t permitted[2][4] = {{10}, {0x20, 0x01, 0x0d, 0xb8}};
    static const uint8_t denied[2][6] = {{10, 1}, {0x20, 0x01, 0x0d, 0xb8, 0x00, 0x01}};
    static const uint8_t groups[2][2] = {{232}, {0xff, 0x3e}};
    const bool ipv4 = family == ACL_FAMILY_IPV4;
    const size_t row = ipv4 ? 0 : 1;
    if (GroupType(family, number) == 0) {
        return ACL_ERR_NO_ACL;
    }
    if (number == kLists.empty) {
        return ACL_ERR_NO_RULE;
    }
    const bool passes = Within(family, info, false, permitted[row], ipv4 ? 1 : 4) &&
                        (number == kLists.basic ? !Within(family, info, false, denied[row], ipv4 ? 2 : 6)
                                                : Within(family, info, true, groups[row], ipv4 ? 1 : 2));
    *result = 0;
    *action = passes ? ACL_ACTION_PERMIT : ACL_ACTION_DENY;
    return 0;
}

} // namespace

int PORT_Begin(void)
{
    scripted_timer::platform.record = false;
    scripted::random_bytes = [](uint8_t *buffer, int length) {
        return getrandom(buffer, static_cast<size_t>(length), 0) == length ? 1 : 0;
    };
    scripted::if_data = InterfaceData;
    scripted::if_type_data = TypeData;
    scripted::if_name_fill = FillName;
    scripted::if_index_by_name = [](const char *name) {
        return strcmp(name, kInterface.full_name) == 0 ? kInterface.if_index : 0;
    };
    scripted::acl_group_type = GroupType;
    scripted::acl_rule_count = [](uint32_t, uint32_t number) {
        return number == kLists.basic || number == kLists.advanced ? 2u : 0u;
    };
    scripted::acl_match = Match;
    scripted::socket = MINIMAL_Socket;
    scripted::bind = MINIMAL_Bind;
    scripted::connect = MINIMAL_Connect;
    scripted::setsockopt = MINIMAL_SetOption;
    return 0;
}

void PORT_End(void)
{
    scripted::Reset();
}

TIMER_SERVICE PORT_TimerService(void)
{
    return scripted_timer::Service();
}

int PORT_ServeEvents(uint32_t milliseconds)
{
    scripted_timer::ServeFor(milliseconds);
    return 0;
}

int PORT_Interface(PORT_INTERFACE_S *interface)
{
    *interface = kInterface;
    return 0;
}

int PORT_AccessLists(uint32_t, PORT_ACCESS_LISTS_S *lists)
{
    *lists = kLists;
    return 0;
}

uint16_t PORT_LocalPort(void)
{
    return 7003;
}
