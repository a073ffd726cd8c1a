/*
 * Route netlink messages to records. A message is a fixed head and attributes, each a type, a length and a
 * value:
 *
 *     nlmsghdr | ifinfomsg | IFLA_IFNAME | IFLA_MTU | IFLA_MASTER | IFLA_LINKINFO ...
 *                                                                    └ IFLA_INFO_KIND, IFLA_INFO_DATA
 *                                                                                       └ IFLA_VRF_TABLE
 *     nlmsghdr | ifaddrmsg | IFA_ADDRESS | IFA_LOCAL | IFA_FLAGS ...
 *
 * Attributes are first sorted by type into an array, bounded by the library that parses them; then the
 * fields are read from there. A value whose size is not that of its type counts as absent: kernels may send
 * more attributes than are known here, but never another type under the same number. Text is cut to the
 * record's field.
 */
#include "link_message.h"

#include <algorithm>
#include <cstring>
#include <libmnl/libmnl.h>
#include <net/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace
{

// The attributes of a message by type; the last of each counts.
template <size_t COUNT> struct Attributes {
    const nlattr *at[COUNT] = {};

    static int store(const nlattr *attribute, void *data)
    {
        Attributes *self = static_cast<Attributes *>(data);
        if (mnl_attr_get_type(attribute) < COUNT) {
            self->at[mnl_attr_get_type(attribute)] = attribute;
        }
        return MNL_CB_OK;
    }
};

template <size_t SIZE> void copy_text(const nlattr *attribute, char (&text)[SIZE])
{
    if (attribute != nullptr) {
        size_t length = std::min<size_t>(mnl_attr_get_payload_len(attribute), SIZE - 1);
        memcpy(text, mnl_attr_get_payload(attribute), length); // the rest of the record is zero
    }
}

uint32_t number(const nlattr *attribute, uint32_t otherwise)
{
    return attribute != nullptr && mnl_attr_get_payload_len(attribute) == sizeof(uint32_t)
               ? mnl_attr_get_u32(attribute)
               : otherwise;
}

uint32_t link_flags(unsigned kernel)
{
    constexpr struct {
        unsigned kernel;
        uint32_t ours;
    } TABLE[] = {
        {IFF_UP, HOST_LINK_UP},
        {IFF_RUNNING, HOST_LINK_RUNNING},
        {IFF_MULTICAST, HOST_LINK_MULTICAST},
        {IFF_LOOPBACK, HOST_LINK_LOOPBACK},
        {IFF_POINTOPOINT, HOST_LINK_POINTTOPOINT},
        {IFF_BROADCAST, HOST_LINK_BROADCAST},
    };
    uint32_t flags = 0;
    for (const auto &row : TABLE) {
        flags |= (kernel & row.kernel) != 0 ? row.ours : 0;
    }
    return flags;
}

uint16_t address_flags(uint32_t kernel, const HOST_ADDRESS_S &address)
{
    uint32_t flags = 0;
    if ((kernel & IFA_F_SECONDARY) != 0 && address.family == AF_INET) { // IPv6: the bit means temporary
        flags |= HOST_ADDRESS_SECONDARY;
    }
    if ((kernel & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) != 0 && (kernel & IFA_F_OPTIMISTIC) == 0) {
        flags |= HOST_ADDRESS_TENTATIVE;
    }
    const uint8_t *bytes = address.address;
    bool link_local = address.family == AF_INET ? bytes[0] == 169 && bytes[1] == 254
                                                : bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80;
    return static_cast<uint16_t>(flags | (link_local ? HOST_ADDRESS_LINK_LOCAL : 0));
}

bool copy_address(const nlattr *attribute, size_t size, uint8_t (&address)[16])
{
    if (attribute == nullptr || mnl_attr_get_payload_len(attribute) != size) {
        return false;
    }
    memcpy(address, mnl_attr_get_payload(attribute), size);
    return true;
}

// The data of a link belongs to its kind: another one's attribute of the same number is something else.
uint32_t vrf_table(const char *kind, const nlattr *data)
{
    if (data == nullptr || strcmp(kind, "vrf") != 0) {
        return 0;
    }
    Attributes<IFLA_VRF_TABLE + 1> attributes;
    mnl_attr_parse_nested(data, attributes.store, &attributes);
    return number(attributes.at[IFLA_VRF_TABLE], 0);
}

} // namespace

bool host::read_link(const nlmsghdr *message, HOST_LINK_S *link)
{
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ifinfomsg)) {
        return false;
    }
    const ifinfomsg *head = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(message));
    if (head->ifi_family != AF_UNSPEC || head->ifi_index <= 0) {
        return false;
    }
    Attributes<IFLA_LINKINFO + 1> attributes;
    mnl_attr_parse(message, sizeof(*head), attributes.store, &attributes);
    *link = HOST_LINK_S{};
    link->if_index = static_cast<uint32_t>(head->ifi_index);
    link->flags = link_flags(head->ifi_flags);
    link->mtu = number(attributes.at[IFLA_MTU], 0);
    link->master_index = number(attributes.at[IFLA_MASTER], 0);
    copy_text(attributes.at[IFLA_IFNAME], link->name);
    if (attributes.at[IFLA_LINKINFO] != nullptr) {
        Attributes<IFLA_INFO_DATA + 1> info;
        mnl_attr_parse_nested(attributes.at[IFLA_LINKINFO], info.store, &info);
        copy_text(info.at[IFLA_INFO_KIND], link->kind);
        link->vrf_table = vrf_table(link->kind, info.at[IFLA_INFO_DATA]);
    }
    return true;
}

bool host::read_address(const nlmsghdr *message, HOST_ADDRESS_S *address)
{
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ifaddrmsg)) {
        return false;
    }
    const ifaddrmsg *head = static_cast<const ifaddrmsg *>(mnl_nlmsg_get_payload(message));
    if (head->ifa_family != AF_INET && head->ifa_family != AF_INET6) {
        return false;
    }
    Attributes<IFA_FLAGS + 1> attributes;
    mnl_attr_parse(message, sizeof(*head), attributes.store, &attributes);
    size_t size = head->ifa_family == AF_INET ? 4 : 16;
    *address = HOST_ADDRESS_S{};
    address->if_index = head->ifa_index;
    address->family = head->ifa_family;
    address->prefix_length = head->ifa_prefixlen;
    // IFA_ADDRESS is the other end; where there is none it is the address, and IPv6 has no IFA_LOCAL then.
    if (!copy_address(attributes.at[IFA_ADDRESS], size, address->peer)) {
        return false;
    }
    if (!copy_address(attributes.at[IFA_LOCAL], size, address->address)) {
        memcpy(address->address, address->peer, size);
    }
    address->flags = address_flags(number(attributes.at[IFA_FLAGS], head->ifa_flags), *address);
    return true;
}
