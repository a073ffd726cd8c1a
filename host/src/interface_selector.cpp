/*
 * A selector's words are 0: kind; 1: properties, one bit each; 2, 3, 4: type codes 0 to 191, one bit each.
 *
 * An interface is in the selector when its type is and when it has all the properties asked for. The one
 * property is that of a layer-3 interface: whatever is not a port of a bridge, a bond or the like. Belonging
 * to a VRF device makes no port.
 */
#include "interface_selector.h"

#include <cstring>

#include "interface_type.h"

namespace
{

constexpr size_t KIND = 0;
constexpr size_t PROPERTIES = 1;
constexpr size_t TYPES = 2;
constexpr size_t TYPE_WORDS = 3;

constexpr uint64_t bit(uint32_t number)
{
    return uint64_t{1} << (number % 64);
}

bool is_port(const HOST_LINK_S &link, const std::vector<HOST_LINK_S> &links)
{
    for (const HOST_LINK_S &master : links) {
        if (master.if_index == link.master_index) {
            return strcmp(master.kind, "vrf") != 0;
        }
    }
    return false;
}

bool is_selected(const IF_SELECTOR_S &selector, const HOST_LINK_S &link,
                 const std::vector<HOST_LINK_S> &links)
{
    const uint32_t type = host::interface_type(link);
    const bool layer3_only = (selector.words[PROPERTIES] & bit(IF_PROPERTY_LAYER3)) != 0;
    return (selector.words[TYPES + type / 64] & bit(type)) != 0 && !(layer3_only && is_port(link, links));
}

} // namespace

namespace host
{

bool is_selector(const IF_SELECTOR_S *selector)
{
    return selector != nullptr && selector->words[KIND] == IF_SELECTOR_LAYER3;
}

std::vector<HOST_LINK_S> selected(const IF_SELECTOR_S &selector, const std::vector<HOST_LINK_S> &links)
{
    std::vector<HOST_LINK_S> result;
    for (const HOST_LINK_S &link : links) {
        if (is_selected(selector, link, links)) {
            result.push_back(link);
        }
    }
    return result;
}

} // namespace host

extern "C" {

HOST_API uint32_t IF_Select_Init(uint32_t kind, IF_SELECTOR_S *selector)
{
    if (selector == nullptr || kind != IF_SELECTOR_LAYER3) {
        return HOST_FAILED;
    }
    *selector = IF_SELECTOR_S{};
    selector->words[KIND] = kind;
    return 0;
}

HOST_API uint32_t IF_SelectProperty_Set(uint32_t property, IF_SELECTOR_S *selector)
{
    if (!host::is_selector(selector) || property != IF_PROPERTY_LAYER3) {
        return HOST_FAILED;
    }
    selector->words[PROPERTIES] |= bit(property);
    return 0;
}

HOST_API uint32_t IF_SelectType_Set(uint32_t type, IF_SELECTOR_S *selector)
{
    if (!host::is_selector(selector) || type == 0 || type >= TYPE_WORDS * 64) {
        return HOST_FAILED;
    }
    selector->words[TYPES + type / 64] |= bit(type);
    return 0;
}

} // extern "C"
