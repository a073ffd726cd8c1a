#include "tests/simulation/kernel/netlink_message.h"

#include <arpa/inet.h>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace sim
{
namespace
{

// One message in the making.
class Message
{
public:
    Message(uint16_t type, const NetlinkHead &head) : header_(mnl_nlmsg_put_header(buffer_))
    {
        header_->nlmsg_type = type;
        header_->nlmsg_flags = head.flags;
        header_->nlmsg_seq = head.sequence;
    }
    template <typename Record> Record *put()
    {
        return static_cast<Record *>(mnl_nlmsg_put_extra_header(header_, sizeof(Record)));
    }
    void put(uint16_t type, const Address &address)
    {
        mnl_attr_put(header_, type, address.size(), address.bytes.data());
    }
    nlmsghdr *header()
    {
        return header_;
    }
    Bytes bytes() const
    {
        return Bytes(buffer_, buffer_ + header_->nlmsg_len);
    }

private:
    alignas(nlmsghdr) char buffer_[512] = {};
    nlmsghdr *header_;
};

Address prefix_of(const Address &address, unsigned length)
{
    Address prefix = address;
    for (unsigned bit = length; bit < address.size() * 8; ++bit) {
        prefix.bytes[bit / 8] = static_cast<uint8_t>(prefix.bytes[bit / 8] & ~(0x80 >> bit % 8));
    }
    return prefix;
}

} // namespace

Bytes link_message(const Interface &interface, const NetlinkHead &head, bool removed)
{
    Message message(removed ? RTM_DELLINK : RTM_NEWLINK, head);
    auto *info = message.put<ifinfomsg>();
    info->ifi_family = AF_UNSPEC;
    info->ifi_index = static_cast<int>(interface.index);
    info->ifi_flags = interface.is_loopback ? IFF_LOOPBACK : IFF_BROADCAST | IFF_MULTICAST;
    info->ifi_flags |= interface.is_up ? IFF_UP | IFF_RUNNING | IFF_LOWER_UP : 0;
    mnl_attr_put_strz(message.header(), IFLA_IFNAME, interface.name.c_str());
    mnl_attr_put_u32(message.header(), IFLA_MTU, interface.mtu);
    if (interface.master != 0) {
        mnl_attr_put_u32(message.header(), IFLA_MASTER, interface.master);
    }
    if (interface.vrf_table != 0) {
        nlattr *link_info = mnl_attr_nest_start(message.header(), IFLA_LINKINFO);
        mnl_attr_put_strz(message.header(), IFLA_INFO_KIND, "vrf");
        nlattr *data = mnl_attr_nest_start(message.header(), IFLA_INFO_DATA);
        mnl_attr_put_u32(message.header(), IFLA_VRF_TABLE, interface.vrf_table);
        mnl_attr_nest_end(message.header(), data);
        mnl_attr_nest_end(message.header(), link_info);
    }
    return message.bytes();
}

Bytes address_message(const Interface &interface, const InterfaceAddress &address, const NetlinkHead &head,
                      bool removed)
{
    Message message(removed ? RTM_DELADDR : RTM_NEWADDR, head);
    auto *info = message.put<ifaddrmsg>();
    const uint32_t flags = address.tentative ? IFA_F_TENTATIVE : IFA_F_PERMANENT;
    info->ifa_family = static_cast<uint8_t>(address.address.family);
    info->ifa_prefixlen = static_cast<uint8_t>(address.prefix_length);
    info->ifa_flags = static_cast<uint8_t>(flags);
    info->ifa_index = interface.index;
    message.put(IFA_ADDRESS, address.address);
    if (address.address.family == AF_INET) {
        message.put(IFA_LOCAL, address.address);
    }
    mnl_attr_put_u32(message.header(), IFA_FLAGS, flags);
    return message.bytes();
}

Bytes route_message(const Address &destination, const Machine::Lookup &route, bool wants_prefix,
                    const NetlinkHead &head)
{
    Message message(RTM_NEWROUTE, head);
    auto *info = message.put<rtmsg>();
    info->rtm_family = static_cast<uint8_t>(destination.family);
    info->rtm_type = route.is_local ? RTN_LOCAL : RTN_UNICAST;
    info->rtm_table = route.is_local ? RT_TABLE_LOCAL : RT_TABLE_MAIN;
    info->rtm_dst_len = static_cast<uint8_t>(wants_prefix ? route.prefix_length : destination.size() * 8);
    message.put(RTA_DST, wants_prefix ? prefix_of(destination, route.prefix_length) : destination);
    mnl_attr_put_u32(message.header(), RTA_OIF, route.if_index);
    if (route.gateway.family != AF_UNSPEC) {
        message.put(RTA_GATEWAY, route.gateway);
    }
    return message.bytes();
}

Bytes route_notification(const Route &route, bool removed)
{
    Message message(removed ? RTM_DELROUTE : RTM_NEWROUTE, {});
    auto *info = message.put<rtmsg>();
    info->rtm_family = static_cast<uint8_t>(route.destination.family);
    info->rtm_type = RTN_UNICAST;
    info->rtm_table = RT_TABLE_MAIN;
    info->rtm_dst_len = static_cast<uint8_t>(route.prefix_length);
    message.put(RTA_DST, route.destination);
    mnl_attr_put_u32(message.header(), RTA_TABLE, RT_TABLE_MAIN);
    mnl_attr_put_u32(message.header(), RTA_OIF, route.if_index);
    return message.bytes();
}

Bytes rule_message(const MulticastRule &rule, const NetlinkHead &head)
{
    Message message(RTM_NEWRULE, head);
    auto *info = message.put<fib_rule_hdr>();
    info->family = static_cast<uint8_t>(rule.family == AF_INET ? RTNL_FAMILY_IPMR : RTNL_FAMILY_IP6MR);
    info->action = FR_ACT_TO_TBL;
    mnl_attr_put_strz(message.header(), rule.direction, rule.if_name.c_str());
    mnl_attr_put_u32(message.header(), FRA_TABLE, rule.table);
    mnl_attr_put_u32(message.header(), FRA_PRIORITY, rule.priority);
    mnl_attr_put_u8(message.header(), FRA_PROTOCOL, rule.protocol);
    return message.bytes();
}

Bytes done_message(const NetlinkHead &head)
{
    Message message(NLMSG_DONE, head);
    *message.put<int32_t>() = 0;
    return message.bytes();
}

Bytes error_message(int error, const NetlinkHead &head)
{
    Message message(NLMSG_ERROR, head);
    message.put<nlmsgerr>()->error = -error;
    return message.bytes();
}

} // namespace sim
