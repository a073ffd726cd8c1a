#include "tests/simulation/run/random_script.h"

#include <array>
#include <map>
#include <set>

#include "tests/simulation/kernel/draw.h"
#include "tests/simulation/network/router_config.h"

namespace sim
{
namespace
{

constexpr unsigned LINKS = 4;
constexpr unsigned GROUPS = 8; // of each family: the first half of any source, the others of single sources
constexpr uint64_t LOWER_QUERIER = 2; // what its address ends in
constexpr uint64_t HIGHER_QUERIER = 200;
constexpr Ns STRETCH = 600 * SECOND;
constexpr Ns STRETCH_END = 30 * SECOND; // without new faults
constexpr std::array<const char *, 2> SOURCES_IPV4 = {"10.0.1.50", "10.0.1.51"};
constexpr std::array<const char *, 2> SOURCES_IPV6 = {"2001:db8:1::50", "2001:db8:1::51"};

std::string numbered(const char *name, uint64_t number)
{
    return name + std::to_string(number);
}

std::string group_name(bool ipv4, uint64_t group)
{
    const bool single = group >= GROUPS / 2;
    return (ipv4 ? (single ? "232.1.1." : "239.1.1.") : (single ? "ff3e::8000:" : "ff0e::1:")) +
           std::to_string(group + 1);
}

class Writer
{
public:
    explicit Writer(const RandomPlan &plan) : plan_(plan), draw_(plan.seed)
    {
        script_.seed = plan.seed;
    }

    Script write()
    {
        set_up();
        for (Ns begin = 10 * SECOND; begin < plan_.duration; begin += STRETCH) {
            write_stretch(begin, begin + STRETCH);
        }
        return script_;
    }

private:
    uint64_t below(uint64_t limit)
    {
        return draw_.below(Stream::Script, 0, limit);
    }
    void add(Ns when, Words words)
    {
        script_.add(when, std::move(words));
    }
    void set_up();
    void set_up_flows();
    void write_stretch(Ns begin, Ns end);
    void change_membership(Ns when);
    void make_fault(Ns when);
    void change_config(Ns when);
    void refuse(Ns when);
    void disturb_link(Ns when);
    std::string some_link()
    {
        return numbered("lan", 2 + below(LINKS - 1));
    }
    std::string some_daemon()
    {
        return daemons_[below(daemons_.size())];
    }

    RandomPlan plan_;
    Draw draw_;
    Script script_;
    std::vector<std::string> daemons_;
    std::vector<unsigned> versions_;                                           // of the hosts
    std::map<std::pair<uint64_t, std::string>, std::set<std::string>> joined_; // sources; an empty one is all
};

void Writer::set_up()
{
    Words router = {"router", "r1"};
    for (unsigned link = 1; link <= LINKS; ++link) {
        const std::string name = numbered("lan", link);
        const std::string number = std::to_string(link);
        router.push_back(name);
        script_.setup.push_back({"link", name, "10.0." + number + ".0/24", "2001:db8:" + number + "::/64"});
    }
    script_.setup.push_back(router);
    const uint64_t hold = below(2) * 125;
    const std::string list = std::to_string(GROUP_LIST);
    script_.setup.push_back({"deny", "r1"}); // nothing, so that there is a file
    script_.setup.push_back(
        {"daemon", "r1.mribd", "mribd", "--config", CONFIG_PATH, "--hold-time", std::to_string(hold)});
    for (const char *family : {"4", "6"}) {
        script_.setup.push_back({"daemon", std::string("r1.gmpd") + family, "gmpd", std::string("-") + family,
                                 "--config", CONFIG_PATH, "--group-list", list});
    }
    daemons_ = {"r1.mribd", "r1.gmpd4", "r1.gmpd6"};
    const uint64_t hosts = 4 + below(12);
    for (uint64_t host = 1; host <= hosts; ++host) {
        constexpr unsigned VERSIONS[] = {1, 2, 2, 3, 3, 3, 3, 3};
        versions_.push_back(VERSIONS[below(std::size(VERSIONS))]);
        script_.setup.push_back({"host", numbered("h", host), numbered("lan", 2 + host % (LINKS - 1)),
                                 std::to_string(versions_.back())});
    }
    for (unsigned link = 2; link <= LINKS; ++link) {
        const uint64_t number = below(2) == 0 ? LOWER_QUERIER : HIGHER_QUERIER;
        script_.setup.push_back(
            {"querier", numbered("q", link), numbered("lan", link), "3", std::to_string(number)});
    }
    set_up_flows();
    for (const std::string &daemon : daemons_) {
        add(below(3) * SECOND, {"start", daemon});
    }
}

void Writer::set_up_flows()
{
    uint64_t flows = 0;
    for (const bool ipv4 : {true, false}) {
        for (uint64_t group = 0; group < GROUPS; ++group) {
            for (const char *source : ipv4 ? SOURCES_IPV4 : SOURCES_IPV6) {
                const std::string name = numbered("f", ++flows);
                script_.setup.push_back({"flow", name, "lan1", source, group_name(ipv4, group), "1"});
                add(0, {"flow-on", name});
            }
        }
    }
}

void Writer::write_stretch(Ns begin, Ns end)
{
    Ns when = begin;
    while (when < end - STRETCH_END) {
        when += (100 + below(4000)) * MILLISECOND;
        change_membership(when);
        if (plan_.faults && below(12) == 0) {
            make_fault(when);
        }
        if (plan_.faults && below(8) == 0) {
            add(when, {"revive"});
        }
    }
    add(end, {"rest"});
}

void Writer::change_membership(Ns when)
{
    const uint64_t host = below(versions_.size());
    const bool ipv4 = below(2) == 0;
    const bool old = versions_[host] < 3;
    const uint64_t group = below(old ? GROUPS / 2 : GROUPS); // hosts of older versions join no single sources
    const bool single = group >= GROUPS / 2;
    const std::string source = single ? (ipv4 ? SOURCES_IPV4 : SOURCES_IPV6)[below(2)] : "";
    const std::string to = group_name(ipv4, group);
    std::set<std::string> &sources = joined_[{host, to}];
    if (sources.erase(source) == 0) {
        sources.insert(source);
    }
    Words words = {sources.empty() ? "leave" : "join", numbered("h", host + 1), to};
    for (const std::string &each : sources) {
        if (!each.empty()) {
            words.push_back(each);
        }
    }
    add(when, std::move(words));
}

void Writer::make_fault(Ns when)
{
    const uint64_t kind = below(13);
    const std::string daemon = some_daemon();
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
    case 4:
    case 5:
        refuse(when);
        break;
    case 6:
        add(when, {"suspend", std::to_string(1 + amount)});
        break;
    case 7:
        add(when, {"overrun", "r1"});
        break;
    case 8: {
        const std::string querier = numbered("q", 2 + below(LINKS - 1));
        add(when, {"querier-on", querier});
        add(when + (1 + amount) * SECOND, {"querier-off", querier});
        break;
    }
    case 9:
    case 10:
        change_config(when);
        break;
    default:
        disturb_link(when);
    }
}

// What does not hold for long, so that most of the time most packets are wanted.
void Writer::change_config(Ns when)
{
    const std::string link = some_link();
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
    case 3:
        add(when, {"disable", "r1", "0"});
        add(over, {"enable", "r1", "0"});
        break;
    default:
        add(when, {"spoil", "r1"});
        return;
    }
    add(when, {"reload", "r1"});
    add(over, {"reload", "r1"});
}

void Writer::refuse(Ns when)
{
    constexpr const char *CALLS[] = {"socket",      "connect",     "epoll_add",    "send",
                                     "sendmsg",     "recv",        "netlink_open", "netlink_send",
                                     "mrt_add_vif", "mrt_add_mfc", "join_packets", "netlink_recv",
                                     "recvfrom"};
    const std::string daemon = some_daemon();
    const std::string call = CALLS[below(std::size(CALLS))];
    const uint64_t skip = below(4);
    const uint64_t count = 1 + below(3);
    add(when, {"refuse", daemon, call, std::to_string(skip), std::to_string(count)});
}

void Writer::disturb_link(Ns when)
{
    const std::string link = some_link();
    const uint64_t kind = below(5);
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
        add(when, {"delay", link, "2"});
        add(over, {"delay", link, "0"});
        break;
    case 3:
        add(when, {"link-down", "r1", link});
        add(over, {"link-up", "r1", link});
        break;
    default:
        add(when, {"link-delete", "r1", link});
        add(over, {"link-create", "r1", link});
    }
}

} // namespace

Script random_script(const RandomPlan &plan)
{
    Script script = Writer(plan).write();
    sort_actions(script);
    return script;
}

} // namespace sim
