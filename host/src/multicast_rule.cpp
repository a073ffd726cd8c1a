/*
 * Rules of the kernel's multicast routing: which of its multicast tables packets of an interface use.
 *
 * An interface needs a pair of rules. One is for packets that come in through it. The other is for packets
 * that the machine itself sends, which are looked up by their outgoing interface: nothing else tells which
 * instance they belong to. The pair is made and removed as one: when the second rule cannot be made, the
 * first is removed.
 *
 * Rules outlive the process that made them. Ours are known by priority and protocol (RTPROT_MROUTED), so a
 * daemon that starts again finds what its predecessor left, and rules of others are never touched. Removing
 * a rule that is gone already is no failure: the end of a link removes its rules too.
 */
#include "mcasthost/multicast_rule.h"

#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <new>
#include <string>
#include <sys/socket.h>
#include <vector>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

#include "netlink.h"

namespace
{

using host::Netlink;

struct Rule {
    uint16_t direction = 0; // FRA_IIFNAME or FRA_OIFNAME
    std::string if_name;
    uint32_t table = 0;
};

// What a listing says about any rule.
struct ReadRule {
    Rule rule;
    uint32_t priority = 0;
    uint8_t protocol = 0;
};

constexpr uint16_t DIRECTIONS[] = {FRA_IIFNAME, FRA_OIFNAME};

// The rules of multicast tables have families of their own.
uint8_t rule_family(uint8_t family)
{
    return family == AF_INET ? RTNL_FAMILY_IPMR : RTNL_FAMILY_IP6MR;
}

nlmsghdr *put_head(char *buffer, uint16_t type, uint8_t family)
{
    nlmsghdr *header = mnl_nlmsg_put_header(buffer);
    header->nlmsg_type = type;
    auto *head = static_cast<fib_rule_hdr *>(mnl_nlmsg_put_extra_header(header, sizeof(fib_rule_hdr)));
    head->family = rule_family(family);
    head->action = FR_ACT_TO_TBL;
    return header;
}

bool change(Netlink &netlink, uint16_t type, uint8_t family, const Rule &rule)
{
    alignas(nlmsghdr) char buffer[256] = {};
    nlmsghdr *header = put_head(buffer, type, family);
    mnl_attr_put_strz(header, rule.direction, rule.if_name.c_str());
    mnl_attr_put_u32(header, FRA_TABLE, rule.table);
    mnl_attr_put_u32(header, FRA_PRIORITY, HOST_MULTICAST_RULE_PRIORITY);
    mnl_attr_put_u8(header, FRA_PROTOCOL, RTPROT_MROUTED);
    return netlink.request(
        header, [](const nlmsghdr *, void *) {}, nullptr);
}

int read_attribute(const nlattr *attribute, void *data)
{
    auto *read = static_cast<ReadRule *>(data);
    const uint16_t type = mnl_attr_get_type(attribute);
    switch (type) {
    case FRA_IIFNAME:
    case FRA_OIFNAME:
        if (mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) == 0) {
            read->rule.direction = type;
            read->rule.if_name = mnl_attr_get_str(attribute);
        }
        break;
    case FRA_TABLE:
        read->rule.table = mnl_attr_get_u32(attribute);
        break;
    case FRA_PRIORITY:
        read->priority = mnl_attr_get_u32(attribute);
        break;
    case FRA_PROTOCOL:
        read->protocol = mnl_attr_get_u8(attribute);
        break;
    default:
        break;
    }
    return MNL_CB_OK;
}

// Keeps the rules that are ours.
void read_rule(const nlmsghdr *message, void *context)
{
    if (message->nlmsg_type != RTM_NEWRULE || mnl_nlmsg_get_payload_len(message) < sizeof(fib_rule_hdr)) {
        return;
    }
    ReadRule read;
    mnl_attr_parse(message, sizeof(fib_rule_hdr), read_attribute, &read);
    if (read.priority == HOST_MULTICAST_RULE_PRIORITY && read.protocol == RTPROT_MROUTED &&
        read.rule.direction != 0) {
        static_cast<std::vector<Rule> *>(context)->push_back(read.rule);
    }
}

bool list_rules(Netlink &netlink, uint8_t family, std::vector<Rule> *rules)
{
    bool done;
    do {
        alignas(nlmsghdr) char buffer[256] = {};
        nlmsghdr *header = put_head(buffer, RTM_GETRULE, family);
        header->nlmsg_flags = NLM_F_DUMP;
        rules->clear();
        done = netlink.request(header, read_rule, rules);
    } while (!done && errno == EINTR);
    return done;
}

bool clear(Netlink &netlink, uint8_t family, const char *if_name, uint32_t table)
{
    std::vector<Rule> rules;
    if (!list_rules(netlink, family, &rules)) {
        return false;
    }
    for (const Rule &rule : rules) {
        const bool is_meant =
            (if_name == nullptr || rule.if_name == if_name) && (table == 0 || rule.table == table);
        // ENOENT: the rule is gone already.
        if (is_meant && !change(netlink, RTM_DELRULE, family, rule) && errno != ENOENT) {
            return false;
        }
    }
    return true;
}

bool set(Netlink &netlink, uint8_t family, const char *if_name, uint32_t table)
{
    if (!clear(netlink, family, if_name, 0)) {
        return false;
    }
    for (const uint16_t direction : DIRECTIONS) {
        if (!change(netlink, RTM_NEWRULE, family, {direction, if_name, table})) {
            const int error = errno;
            clear(netlink, family, if_name, 0);
            errno = error;
            return false;
        }
    }
    return true;
}

uint32_t fail(int error)
{
    errno = error;
    return HOST_FAILED;
}

bool is_family(uint8_t family)
{
    return family == AF_INET || family == AF_INET6;
}

// Runs the action on a socket of the calling thread's network namespace.
template <typename Action> uint32_t with_socket(const Action &action)
{
    try {
        Netlink netlink;
        return netlink.open(Netlink::Kind::Requests) && action(netlink) ? 0 : HOST_FAILED;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

} // namespace

extern "C" uint32_t HOST_MulticastRuleSet(uint8_t family, const char *if_name, uint32_t table)
{
    if (!is_family(family) || if_name == nullptr || *if_name == '\0' || strlen(if_name) >= IF_NAMESIZE ||
        table == 0) {
        return fail(EINVAL);
    }
    return with_socket([&](Netlink &netlink) { return set(netlink, family, if_name, table); });
}

extern "C" uint32_t HOST_MulticastRuleClear(uint8_t family, const char *if_name, uint32_t table)
{
    if (!is_family(family)) {
        return fail(EINVAL);
    }
    return with_socket([&](Netlink &netlink) { return clear(netlink, family, if_name, table); });
}
