/*
 * What else happens to a router than that hosts join and leave. Most of it is over before the stretch ends.
 */
#include <array>

#include "tests/simulation/run/random_writer.h"

namespace sim
{

void RandomWriter::make_fault(Ns when)
{
    using Fault = void (RandomWriter::*)(Ns when);
    constexpr std::array<Fault, 14> MENU = {
        &RandomWriter::disturb_daemon,    &RandomWriter::disturb_daemon,  &RandomWriter::disturb_daemon,
        &RandomWriter::disturb_daemon,    &RandomWriter::refuse,          &RandomWriter::refuse,
        &RandomWriter::disturb_machine,   &RandomWriter::disturb_querier, &RandomWriter::disturb_link,
        &RandomWriter::disturb_interface, &RandomWriter::change_config,   &RandomWriter::change_config,
        &RandomWriter::change_instance,   &RandomWriter::disturb_agent,
    };
    (this->*one_of(MENU))(when);
}

void RandomWriter::disturb_daemon(Ns when)
{
    const std::string daemon = one_of(daemons_);
    const uint64_t kind = below(has_standbys_ ? 6 : 4);
    const uint64_t amount = below(300);
    switch (kind) {
    case 0:
    case 1:
        add(when, {"crash", daemon, std::to_string(amount / 5)});
        break;
    case 2:
        add(when, {"kill", daemon});
        break;
    case 3:
        add(when, {"freeze", daemon, std::to_string(1 + amount / 60)});
        break;
    default:
        add(when, {"switch-over", "r1", amount % 2 == 0 ? "ipv4" : "ipv6"});
    }
}

void RandomWriter::disturb_machine(Ns when)
{
    const uint64_t amount = below(300);
    if (below(2) == 0) {
        add(when, {"suspend", std::to_string(1 + amount)});
    } else {
        add(when, {"overrun", "r1"});
    }
}

void RandomWriter::disturb_querier(Ns when)
{
    const std::string querier = "q" + one_of(links_);
    add(when, {"querier-on", querier});
    add(when + (1 + below(300)) * SECOND, {"querier-off", querier});
}

// What does not hold for long, so that most of the time most packets are wanted.
void RandomWriter::change_config(Ns when)
{
    const std::string link = one_of(links_);
    const uint64_t kind = below(5);
    const Ns over = when + (5 + below(60)) * SECOND;
    switch (kind) {
    case 0:
        add(when, {"boundary", "r1", link, "239.1.1.0/31", "ff0e::1:0/112"});
        add(over, {"boundary", "r1", link});
        break;
    case 1:
        add(when, {"deny", "r1", "232.0.0.0/8", "239.1.1.2/32", "ff3e::/32"});
        add(over, {"deny", "r1"});
        break;
    case 2:
        add(when, {"designated", "r1", link, "no"});
        add(over, {"designated", "r1", link, "yes"});
        break;
    case 3: {
        const std::string instance = below(2) == 0 ? "0" : "5";
        add(when, {"disable", "r1", instance});
        add(over, {"enable", "r1", instance});
        break;
    }
    default:
        add(when, {"spoil", "r1"});
        return;
    }
    add(when, {"reload", "r1"});
    add(over, {"reload", "r1"});
}

// An interface goes to the other instance, by the file or by its device, or the instance is not served for a while.
void RandomWriter::change_instance(Ns when)
{
    const Ns over = when + (5 + below(60)) * SECOND;
    const bool is_gone = below(4) == 0;
    const std::string link = below(2) == 0 ? "lan6" : "lan2";
    if (is_gone) {
        add(when, {"no-instance", "r1", "5"});
    } else if (has_device_) {
        add(when, {"vrf-port", "r1", link, link == "lan6" ? "-" : "red"});
        add(over, {"vrf-port", "r1", link, link == "lan6" ? "red" : "-"});
        return;
    } else if (link == "lan6") {
        add(when, {"instance", "r1", "5", "red", "lan5"});
    } else {
        add(when, {"instance", "r1", "5", "red", "lan5", "lan6", link});
    }
    add(when, {"reload", "r1"});
    add(over, has_device_ ? Words{"instance", "r1", "5", "red"}
                          : Words{"instance", "r1", "5", "red", "lan5", "lan6"});
    add(over, {"reload", "r1"});
}

void RandomWriter::disturb_agent(Ns when)
{
    constexpr std::array<const char *, 3> WORDS = {"agent-silent", "agent-nonsense", "agent-many"};
    const char *word = one_of(WORDS);
    if (has_users_) {
        add(when, {word, "r1"});
    }
}

void RandomWriter::refuse(Ns when)
{
    constexpr std::array<const char *, 16> CALLS = {
        "socket",       "connect",      "epoll_add",   "send",          "sendmsg",      "recv",
        "netlink_open", "netlink_send", "mrt_add_vif", "mrt_add_mfc",   "join_packets", "netlink_recv",
        "recvfrom",     "accept",       "send_stream", "connect_stream"};
    const std::string daemon = one_of(daemons_);
    const std::string call = one_of(CALLS);
    const uint64_t skip = below(4);
    const uint64_t count = 1 + below(3);
    add(when, {"refuse", daemon, call, std::to_string(skip), std::to_string(count)});
}

void RandomWriter::disturb_link(Ns when)
{
    const std::string link = one_of(links_);
    const uint64_t kind = below(4);
    const Ns over = when + (1 + below(20)) * SECOND;
    switch (kind) {
    case 0:
        add(when, {"lose", link, "0.2"});
        add(over, {"lose", link, "0"});
        break;
    case 1:
        add(when, {"duplicate", link, "0.3"});
        add(over, {"duplicate", link, "0"});
        break;
    case 2:
        add(when, {"damage", link, "0.3"});
        add(over, {"damage", link, "0"});
        break;
    default:
        add(when, {"delay", link, "2"});
        add(over, {"delay", link, "0"});
    }
}

void RandomWriter::disturb_interface(Ns when)
{
    const bool with_sources = below(4) == 0;
    const std::string link = with_sources ? one_of(sources_) : one_of(links_);
    const uint64_t kind = below(4);
    const Ns over = when + (1 + below(20)) * SECOND;
    switch (kind) {
    case 0:
    case 1:
        add(when, {"link-down", "r1", link});
        add(over, {"link-up", "r1", link});
        break;
    case 2:
        add(when, {"rename", "r1", link, link + "x"});
        add(over, {"rename", "r1", link, link});
        break;
    default:
        add(when, {"link-delete", "r1", link});
        add(over, {"link-create", "r1", link});
        if (has_device_ && (link == "lan5" || link == "lan6")) {
            add(over, {"vrf-port", "r1", link, "red"});
        }
    }
}

} // namespace sim
