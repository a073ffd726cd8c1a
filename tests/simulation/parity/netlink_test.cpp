#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <linux/fib_rules.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "tests/simulation/parity/both_kernels.h"

using namespace parity;

namespace
{

// What the host platform reads of a message, as a line.
class Reader
{
public:
    static std::string line(const nlmsghdr *message)
    {
        switch (message->nlmsg_type) {
        case NLMSG_DONE:
            return "done";
        case NLMSG_ERROR:
            return std::string("answer ") +
                   strerror(-static_cast<const nlmsgerr *>(mnl_nlmsg_get_payload(message))->error);
        case RTM_NEWLINK:
        case RTM_DELLINK:
            return link(message);
        case RTM_NEWADDR:
        case RTM_DELADDR:
            return address(message);
        case RTM_NEWROUTE:
            return route(message);
        case RTM_NEWRULE:
            return rule(message);
        default:
            return "message " + std::to_string(message->nlmsg_type);
        }
    }

private:
    using Attributes = std::vector<const nlattr *>;

    template <typename Head> static Attributes attributes(const nlmsghdr *message)
    {
        Attributes found(256, nullptr);
        const auto keep = [](const nlattr *attribute, void *into) {
            static_cast<Attributes *>(into)->at(mnl_attr_get_type(attribute)) = attribute;
            return MNL_CB_OK;
        };
        mnl_attr_parse(message, sizeof(Head), keep, &found);
        return found;
    }
    static std::string number(const nlattr *attribute)
    {
        return attribute == nullptr ? "none" : std::to_string(mnl_attr_get_u32(attribute));
    }
    static std::string text(const nlattr *attribute)
    {
        return attribute == nullptr ? "none" : mnl_attr_get_str(attribute);
    }
    static std::string bytes(const nlattr *attribute)
    {
        std::string result;
        for (size_t i = 0; attribute != nullptr && i < mnl_attr_get_payload_len(attribute); ++i) {
            result += std::to_string(static_cast<const uint8_t *>(mnl_attr_get_payload(attribute))[i]) + ".";
        }
        return result;
    }
    static std::string link(const nlmsghdr *message)
    {
        const auto *head = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(message));
        const Attributes found = attributes<ifinfomsg>(message);
        return std::string(message->nlmsg_type == RTM_NEWLINK ? "link " : "gone link ") +
               std::to_string(head->ifi_index) + " " + text(found[IFLA_IFNAME]) + " mtu " +
               number(found[IFLA_MTU]) + " master " + number(found[IFLA_MASTER]) +
               ((head->ifi_flags & IFF_UP) != 0 ? " up" : " down") +
               ((head->ifi_flags & IFF_LOOPBACK) != 0 ? " loopback" : "") +
               ((head->ifi_flags & IFF_MULTICAST) != 0 ? " multicast" : "");
    }
    static std::string address(const nlmsghdr *message)
    {
        const auto *head = static_cast<const ifaddrmsg *>(mnl_nlmsg_get_payload(message));
        const Attributes found = attributes<ifaddrmsg>(message);
        return std::string(message->nlmsg_type == RTM_NEWADDR ? "address " : "gone address ") +
               std::to_string(head->ifa_index) + " " + bytes(found[IFA_ADDRESS]) + " local " +
               bytes(found[IFA_LOCAL]) + "/" + std::to_string(head->ifa_prefixlen) + " flags " +
               number(found[IFA_FLAGS]);
    }
    static std::string route(const nlmsghdr *message)
    {
        const auto *head = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(message));
        const Attributes found = attributes<rtmsg>(message);
        return "route " + bytes(found[RTA_DST]) + "/" + std::to_string(head->rtm_dst_len) + " by " +
               number(found[RTA_OIF]) + " via " + bytes(found[RTA_GATEWAY]) + " type " +
               std::to_string(head->rtm_type);
    }
    static std::string rule(const nlmsghdr *message)
    {
        const Attributes found = attributes<fib_rule_hdr>(message);
        return "rule " + number(found[FRA_PRIORITY]) + " in " + text(found[FRA_IIFNAME]) + " table " +
               number(found[FRA_TABLE]);
    }
};

// A question with room for attributes.
class Question
{
public:
    Question(uint16_t type, int flags) : header_(mnl_nlmsg_put_header(buffer_))
    {
        header_->nlmsg_type = type;
        header_->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
        header_->nlmsg_seq = 1;
    }
    template <typename Head> Head *head()
    {
        return static_cast<Head *>(mnl_nlmsg_put_extra_header(header_, sizeof(Head)));
    }
    nlmsghdr *header()
    {
        return header_;
    }

private:
    alignas(nlmsghdr) char buffer_[512] = {};
    nlmsghdr *header_;
};

class Netlink
{
public:
    explicit Netlink(const Calls &calls)
        : calls_(calls), socket_(calls.netlink_open(NETLINK_ROUTE, SOCK_NONBLOCK))
    {
        calls.netlink_bind(socket_, 0, MNL_SOCKET_AUTOPID);
    }
    ~Netlink()
    {
        calls_.netlink_close(socket_);
    }
    Netlink(const Netlink &) = delete;
    Netlink &operator=(const Netlink &) = delete;
    operator const mnl_socket *() const
    {
        return socket_;
    }

private:
    const Calls &calls_;
    mnl_socket *socket_;
};

// All that waits, until there is nothing or a dump is done.
void read_all(const Calls &calls, Diary &diary, const mnl_socket *netlink)
{
    std::vector<char> buffer(65536);
    for (;;) {
        const ssize_t size = calls.netlink_receive(netlink, buffer.data(), buffer.size());
        if (size < 0) {
            diary.note("receive", size);
            return;
        }
        int left = static_cast<int>(size);
        for (const auto *each = reinterpret_cast<const nlmsghdr *>(buffer.data()); mnl_nlmsg_ok(each, left);
             each = mnl_nlmsg_next(each, &left)) {
            diary.lines.push_back(Reader::line(each));
        }
    }
}

void ask(const Calls &calls, Diary &diary, const mnl_socket *netlink, Question &question)
{
    diary.note("asked", calls.netlink_send(netlink, question.header(), question.header()->nlmsg_len));
    read_all(calls, diary, netlink);
}

TEST(NetlinkParity, DumpsOfLinksAndAddresses)
{
    compare([](const Calls &calls, Diary &diary) {
        const Netlink netlink(calls);
        Question links(RTM_GETLINK, NLM_F_DUMP);
        links.head<ifinfomsg>();
        ask(calls, diary, netlink, links);
        Question addresses(RTM_GETADDR, NLM_F_DUMP);
        addresses.head<ifaddrmsg>()->ifa_family = AF_INET;
        ask(calls, diary, netlink, addresses);
    });
}

TEST(NetlinkParity, AnswersAboutOneLink)
{
    compare([](const Calls &calls, Diary &diary) {
        const Netlink netlink(calls);
        for (const int if_index : {2, 77}) {
            Question link(RTM_GETLINK, NLM_F_ACK);
            link.head<ifinfomsg>()->ifi_index = if_index;
            ask(calls, diary, netlink, link);
        }
        for (const char *name : {"lan2", "lan9"}) {
            Question link(RTM_GETLINK, NLM_F_ACK);
            link.head<ifinfomsg>();
            mnl_attr_put_strz(link.header(), IFLA_IFNAME, name);
            ask(calls, diary, netlink, link);
        }
    });
}

TEST(NetlinkParity, AnswersAboutRoutes)
{
    compare([](const Calls &calls, Diary &diary) {
        const Netlink netlink(calls);
        const auto question = [&](uint32_t destination, unsigned flags) {
            Question route(RTM_GETROUTE, 0);
            auto *head = route.head<rtmsg>();
            head->rtm_family = AF_INET;
            head->rtm_dst_len = 32;
            head->rtm_flags = flags;
            mnl_attr_put_u32(route.header(), RTA_DST, htonl(destination));
            ask(calls, diary, netlink, route);
        };
        question(0x0a000205, 0);               // on lan2
        question(0x0a000205, RTM_F_FIB_MATCH); // the route to it
        question(0x0a000101, 0);               // its own address
        question(0xc0000201, 0);               // nowhere
        question(0xc0000201, RTM_F_FIB_MATCH);
    });
}

TEST(NetlinkParity, NotificationsAboutInterfacesAndAddresses)
{
    compare([](const Calls &calls, Diary &diary) {
        const Netlink netlink(calls);
        for (unsigned group : {RTNLGRP_IPV4_IFADDR}) {
            calls.netlink_option(netlink, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group));
        }
        diary.note("nothing", ready(calls, calls.netlink_descriptor(netlink)));
        calls.change("lan2", "address 10.0.9.1/24");
        calls.change("lan2", "no-address 10.0.9.1/24");
        read_all(calls, diary, netlink);
        calls.change("lan1", "down");
        calls.change("lan1", "up");
        read_all(calls, diary, netlink);
        calls.change("lan1", "delete");
        diary.note("something", ready(calls, calls.netlink_descriptor(netlink)));
    });
}

TEST(NetlinkParity, RulesOfMulticastTables)
{
    compare([](const Calls &calls, Diary &diary) {
        const Netlink netlink(calls);
        const auto change = [&](uint16_t type, const char *name) {
            Question rule(type, NLM_F_ACK | (type == RTM_NEWRULE ? NLM_F_CREATE | NLM_F_EXCL : 0));
            auto *head = rule.head<fib_rule_hdr>();
            head->family = RTNL_FAMILY_IPMR;
            head->action = FR_ACT_TO_TBL;
            mnl_attr_put_strz(rule.header(), FRA_IIFNAME, name);
            mnl_attr_put_u32(rule.header(), FRA_TABLE, 101);
            mnl_attr_put_u32(rule.header(), FRA_PRIORITY, 5000);
            ask(calls, diary, netlink, rule);
        };
        change(RTM_DELRULE, "lan1");
        change(RTM_NEWRULE, "lan1");
        change(RTM_NEWRULE, "lan1");
        change(RTM_NEWRULE, "not-there-yet");
        change(RTM_DELRULE, "lan1");
        change(RTM_DELRULE, "lan1");
    });
}

} // namespace
