#include "tests/simulation/kernel/netlink_socket.h"

#include <algorithm>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace sim
{
namespace
{

constexpr size_t MOST_NOTIFICATIONS = 2000;

NetlinkHead head_of(const nlmsghdr *question)
{
    const bool is_dump = (question->nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
    return {question->nlmsg_seq, static_cast<uint16_t>(is_dump ? NLM_F_MULTI : 0)};
}

using Visit = std::function<void(uint16_t type, const nlattr *attribute)>;

int visit_one(const nlattr *attribute, void *visit)
{
    (*static_cast<const Visit *>(visit))(mnl_attr_get_type(attribute), attribute);
    return MNL_CB_OK;
}

void visit_attributes(const nlmsghdr *message, size_t offset, Visit visit)
{
    mnl_attr_parse(message, static_cast<unsigned>(offset), visit_one, &visit);
}

} // namespace

void notify_netlink(Machine &machine, unsigned group, const Bytes &message)
{
    std::erase_if(machine.netlink_sockets, [](const auto &socket) { return socket.expired(); });
    for (const auto &each : machine.netlink_sockets) {
        each.lock()->notify(group, message);
    }
}

void NetlinkSocket::notify(unsigned group, const Bytes &message)
{
    if (!groups_.contains(group)) {
        return;
    }
    if (queue_.size() >= MOST_NOTIFICATIONS) {
        overrun_ = true;
        return;
    }
    put(message);
}

uint32_t NetlinkSocket::ready() const
{
    return events_if(!queue_.empty(), EPOLLIN) | events_if(overrun_, EPOLLIN | EPOLLERR) | EPOLLOUT;
}

ssize_t NetlinkSocket::receive(void *buffer, size_t size, int flags, sockaddr *)
{
    if (overrun_) {
        overrun_ = false;
        return -ENOBUFS;
    }
    if (queue_.empty()) {
        return -EAGAIN;
    }
    const Bytes message = std::move(queue_.front());
    queue_.pop_front();
    return hand_over(message, buffer, size, flags);
}

ssize_t NetlinkSocket::send(const void *bytes, size_t size)
{
    alignas(nlmsghdr) char question[512] = {};
    if (size > sizeof(question)) {
        return -EMSGSIZE;
    }
    memcpy(question, bytes, size);
    answer(reinterpret_cast<const nlmsghdr *>(question));
    return static_cast<ssize_t>(size);
}

void NetlinkSocket::answer(const nlmsghdr *question)
{
    if ((question->nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP) {
        dump(question);
        return;
    }
    switch (question->nlmsg_type) {
    case RTM_GETLINK:
        answer_link(question);
        return;
    case RTM_GETROUTE:
        answer_route(question);
        return;
    case RTM_NEWRULE:
    case RTM_DELRULE:
        change_rule(question);
        return;
    default:
        put(error_message(EOPNOTSUPP, head_of(question)));
    }
}

void NetlinkSocket::dump(const nlmsghdr *question)
{
    const NetlinkHead head = head_of(question);
    const int family = static_cast<const rtgenmsg *>(mnl_nlmsg_get_payload(question))->rtgen_family;
    for (const auto &[if_index, interface] : machine_.interfaces()) {
        if (question->nlmsg_type == RTM_GETLINK) {
            put(link_message(interface, head, false));
        }
        for (const InterfaceAddress &address : interface.addresses) {
            const bool gone = address.address.family == AF_INET6 && !interface.is_up;
            const bool is_meant = family == AF_UNSPEC || family == address.address.family;
            if (question->nlmsg_type == RTM_GETADDR && is_meant && !gone) {
                put(address_message(interface, address, head, false));
            }
        }
    }
    if (question->nlmsg_type == RTM_GETRULE) {
        const auto *asked = static_cast<const fib_rule_hdr *>(mnl_nlmsg_get_payload(question));
        for (const MulticastRule &rule : machine_.rules) {
            if (asked->family == (rule.family == AF_INET ? RTNL_FAMILY_IPMR : RTNL_FAMILY_IP6MR)) {
                put(rule_message(rule, head));
            }
        }
    }
    put(done_message(head));
}

void NetlinkSocket::answer_link(const nlmsghdr *question)
{
    const auto *asked = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(question));
    const Interface *interface = machine_.find(static_cast<uint32_t>(asked->ifi_index));
    visit_attributes(question, sizeof(ifinfomsg), [&](uint16_t type, const nlattr *attribute) {
        if (type == IFLA_IFNAME) {
            interface = machine_.find(mnl_attr_get_str(attribute));
        }
    });
    if (interface == nullptr) {
        put(error_message(ENODEV, head_of(question)));
        return;
    }
    put(link_message(*interface, head_of(question), false));
    if ((question->nlmsg_flags & NLM_F_ACK) != 0) {
        put(error_message(0, head_of(question)));
    }
}

void NetlinkSocket::answer_route(const nlmsghdr *question)
{
    const auto *asked = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(question));
    const bool wants_prefix = (asked->rtm_flags & RTM_F_FIB_MATCH) != 0;
    Address destination;
    uint32_t out = 0;
    visit_attributes(question, sizeof(rtmsg), [&](uint16_t type, const nlattr *attribute) {
        if (type == RTA_DST) {
            destination = address_of(asked->rtm_family, mnl_attr_get_payload(attribute));
        } else if (type == RTA_OIF) {
            out = mnl_attr_get_u32(attribute);
        }
    });
    const Machine::Lookup route = machine_.look_up(destination, out);
    if (route.if_index == 0) {
        put(error_message(ENETUNREACH, head_of(question)));
        return;
    }
    put(route_message(destination, route, wants_prefix, head_of(question)));
}

void NetlinkSocket::change_rule(const nlmsghdr *question)
{
    const auto *asked = static_cast<const fib_rule_hdr *>(mnl_nlmsg_get_payload(question));
    MulticastRule rule{asked->family == RTNL_FAMILY_IPMR ? AF_INET : AF_INET6, 0, "", 0, 0, 0};
    visit_attributes(question, sizeof(fib_rule_hdr), [&](uint16_t type, const nlattr *attribute) {
        switch (type) {
        case FRA_IIFNAME:
        case FRA_OIFNAME:
            rule.direction = type;
            rule.if_name = mnl_attr_get_str(attribute);
            break;
        case FRA_TABLE:
            rule.table = mnl_attr_get_u32(attribute);
            break;
        case FRA_PRIORITY:
            rule.priority = mnl_attr_get_u32(attribute);
            break;
        case FRA_PROTOCOL:
            rule.protocol = mnl_attr_get_u8(attribute);
            break;
        default:
            break;
        }
    });
    const auto same = [&rule](const MulticastRule &other) {
        return other.family == rule.family && other.direction == rule.direction &&
               other.if_name == rule.if_name && other.table == rule.table;
    };
    int error = 0;
    if (question->nlmsg_type == RTM_NEWRULE) {
        const bool is_there = std::any_of(machine_.rules.begin(), machine_.rules.end(), same);
        if (is_there && (question->nlmsg_flags & NLM_F_EXCL) != 0) {
            error = EEXIST;
        } else {
            machine_.rules.push_back(rule);
        }
    } else {
        error = std::erase_if(machine_.rules, same) == 0 ? ENOENT : 0;
    }
    put(error_message(error, head_of(question)));
}

} // namespace sim
