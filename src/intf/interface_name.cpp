#include "mcast/interface_name.h"

#include <stdio.h>
#include <string.h>

#include "intf/name_text.h"
#include "mcast/interface_registry.h"

namespace
{

using mcast::kMuaPrefix;
using mcast::WriteHexIndex;
using mcast::WriteNumberedName;

/* What an interface of the library's own is called; NULL for all others. */
const char *PrefixOf(uint32_t if_index)
{
    if (MCAST_IsMUAIntf(if_index)) {
        return kMuaPrefix;
    }
    return MCAST_IsNBMALinkIntf(if_index) ? mcast::kNbmaPrefix : nullptr;
}

} // namespace

uint64_t MCAST_GetMUANameByIfIndex(uint32_t if_index, char *buf)
{
    return WriteNumberedName(buf, kMuaPrefix, if_index & MCAST_IF_NUMBER_MASK);
}

uint64_t MCAST_GetNBMANameByIfIndex(uint32_t if_index, char *buf)
{
    return WriteNumberedName(buf, mcast::kNbmaPrefix, if_index & MCAST_IF_NUMBER_MASK);
}

uint32_t MCAST_GetIfIndexByMUAName(uint32_t family, const char *name)
{
    uint32_t type = family == MCAST_FAMILY_IPV4 ? MCAST_IF_TYPE_MUA_IPV4 : MCAST_IF_TYPE_MUA_IPV6;
    /* A name that ends before the number counts as number 0; nothing behind its end is read. */
    const char *digit = name + strnlen(name, strlen(kMuaPrefix));
    uint32_t number = 0;

    for (; *digit >= '0' && *digit <= '9'; ++digit) {
        number = number * 10 + static_cast<uint32_t>(*digit - '0');
    }
    return (MCAST_IF_PRIVATE_FIRST | type << MCAST_IF_TYPE_SHIFT) + number;
}

uint64_t MCAST_GetIfName(uint32_t if_index, char *buf)
{
    const char *prefix = PrefixOf(if_index);
    if (prefix != nullptr) {
        WriteNumberedName(buf, prefix, if_index & MCAST_IF_NUMBER_MASK);
        return MCAST_OK;
    }
    return IF_GetDataByIfIndex(if_index, IF_ITEM_FULL_NAME, buf);
}

uint64_t MCAST_GetIfSimpleName(uint32_t if_index, char *buf)
{
    if (MCAST_IsNBMALinkIntf(if_index)) {
        MCAST_GetNBMANameByIfIndex(if_index, buf);
        return MCAST_OK;
    }
    if (MCAST_IsMUAIntf(if_index)) {
        /* The platform has the last word: it may know a shorter name. */
        MCAST_GetMUANameByIfIndex(if_index, buf);
    }
    return IF_GetDataByIfIndex(if_index, IF_ITEM_SHORT_NAME, buf);
}

void MCAST_GetIfNameOrIndex(uint32_t if_index, char *buf)
{
    if (buf == nullptr) {
        return;
    }
    buf[0] = '\0';
    if (if_index == 0 || MCAST_GetIfName(if_index, buf) != MCAST_OK) {
        WriteHexIndex(buf, if_index);
    }
}

uint64_t MCAST_GetIfSimpleNameOrIndex(uint32_t if_index, char *buf)
{
    if (if_index != 0 && MCAST_GetIfSimpleName(if_index, buf) == MCAST_OK) {
        return 0;
    }
    return WriteHexIndex(buf, if_index);
}

uint64_t MCAST_IF_GetFullName(const char *text, char *full_name)
{
    IF_SELECTOR_S selector = {};
    (void)MCAST_IF_HookForQuery(&selector);
    return IF_IfNameFill(&selector, text, IF_FILL_ABBREVIATED, full_name);
}

uint32_t MCAST_GetIfIndexByIfName(const char *type_text, const char *number_text, char *name_buf)
{
    char full_name[IF_FILLED_NAME_SIZE] = {};
    if (name_buf[0] == '\0') {
        (void)snprintf(name_buf, MCAST_IF_NAME_SIZE, "%s%s", type_text != nullptr ? type_text : "",
                       number_text != nullptr ? number_text : "");
    }
    if (MCAST_IF_GetFullName(name_buf, full_name) != MCAST_OK) {
        return 0;
    }
    mcast::WriteCut(name_buf, MCAST_IF_NAME_SIZE, full_name);
    return IF_GetIfIndexByFullName(full_name);
}
