#include "tests/simulation/run/random_script.h"

#include <array>

#include "tests/simulation/network/router_config.h"
#include "tests/simulation/run/random_writer.h"

namespace sim
{
namespace
{

/*
 *      lan1: sources ──┬── r1 ──┬── lan2, lan3, lan4: hosts            the public instance; perhaps r2 beside r1
 *                      │        ├── lan7: users
 *      lan5: sources ──┘        └── lan6: hosts                        lan5 and lan6: another one
 */
constexpr unsigned LINKS = 7;
constexpr const char *LINK_OF_USERS = "lan7";
constexpr unsigned GROUPS = 8; // of each family: the first half of any source, the others of single sources
constexpr unsigned GROUPS_OF_INSTANCE = 2;
constexpr uint64_t LOWER_QUERIER = 2; // what its address ends in
constexpr uint64_t HIGHER_QUERIER = 200;
constexpr Ns STRETCH = 600 * SECOND;
constexpr Ns STRETCH_END = 30 * SECOND; // without new faults

std::string numbered(const std::string &name, uint64_t number)
{
    return name + std::to_string(number);
}

std::string group_name(bool ipv4, uint64_t group)
{
    const bool single = group >= GROUPS / 2;
    return (ipv4 ? (single ? "232.1.1." : "239.1.1.") : (single ? "ff3e::8000:" : "ff0e::1:")) +
           std::to_string(group + 1);
}

// Two a link.
std::string source_name(bool ipv4, const std::string &link, uint64_t number)
{
    const std::string net = link.substr(3);
    return (ipv4 ? "10.0." + net + "." : "2001:db8:" + net + "::") + std::to_string(50 + number);
}

} // namespace

Script RandomWriter::write()
{
    set_up();
    for (Ns begin = 10 * SECOND; begin < plan_.duration; begin += STRETCH) {
        write_stretch(begin, begin + STRETCH);
    }
    return script_;
}

void RandomWriter::set_up()
{
    Words router = {"router", "r1"};
    for (unsigned link = 1; link <= LINKS; ++link) {
        const std::string name = numbered("lan", link);
        const std::string number = std::to_string(link);
        router.push_back(name);
        script_.setup.push_back({"link", name, "10.0." + number + ".0/24", "2001:db8:" + number + "::/64"});
    }
    sources_ = {"lan1", "lan5"};
    links_ = {"lan2", "lan3", "lan4", "lan6", LINK_OF_USERS};
    script_.setup.push_back(router);
    has_second_ = below(2) == 0;
    if (has_second_) {
        script_.setup.push_back({"router", "r2", "lan1", "lan2", "lan3"});
        script_.setup.push_back({"rendezvous", "r1", "10.0.1.5"});
        script_.setup.push_back({"rendezvous", "r2", "10.0.1.6"});
        script_.setup.push_back({"peer", "r1", "10.0.1.6", "10.0.1.5"});
        script_.setup.push_back({"peer", "r2", "10.0.1.5", "10.0.1.6"});
    }
    has_device_ = below(2) == 0;
    if (has_device_) {
        script_.setup.push_back({"vrf", "r1", "red", "100"});
        add(0, {"vrf-port", "r1", "lan5", "red"});
        add(0, {"vrf-port", "r1", "lan6", "red"});
        script_.setup.push_back({"instance", "r1", "5", "red"});
    } else {
        script_.setup.push_back({"instance", "r1", "5", "red", "lan5", "lan6"});
    }
    set_up_daemons();
    set_up_hosts();
    set_up_flows("lan1", GROUPS);
    set_up_flows("lan5", GROUPS_OF_INSTANCE);
}

void RandomWriter::set_up_daemons()
{
    const std::string list = std::to_string(GROUP_LIST);
    has_standbys_ = below(2) == 0;
    has_users_ = below(2) == 0;
    const uint64_t hold = has_standbys_ || below(2) == 0 ? 125 : 0;
    script_.setup.push_back(
        {"daemon", "r1.mribd", "mribd", "--config", CONFIG_PATH, "--hold-time", std::to_string(hold)});
    daemons_ = {"r1.mribd"};
    const Words copies = has_standbys_ ? Words{"", "b"} : Words{""};
    for (const char *family : {"4", "6"}) {
        for (const std::string &copy : copies) {
            daemons_.push_back(std::string("r1.gmpd") + family + copy);
            script_.setup.push_back({"daemon", daemons_.back(), "gmpd", std::string("-") + family, "--config",
                                     CONFIG_PATH, "--group-list", list});
            if (has_users_) {
                script_.setup.back().insert(script_.setup.back().end(), {"--user-auth", LINK_OF_USERS});
            }
            if (has_standbys_) {
                script_.setup.back().push_back("--standby");
            }
        }
    }
    if (has_second_) {
        script_.setup.push_back({"daemon", "r2.mribd", "mribd", "--config", CONFIG_PATH});
        script_.setup.push_back({"daemon", "r2.gmpd4", "gmpd", "-4", "--config", CONFIG_PATH});
        script_.setup.push_back({"daemon", "r2.gmpd6", "gmpd", "-6", "--config", CONFIG_PATH});
        script_.setup.push_back({"daemon", "r1.msdpd", "msdpd", "--config", CONFIG_PATH});
        script_.setup.push_back({"daemon", "r2.msdpd", "msdpd", "--config", CONFIG_PATH});
        daemons_.insert(daemons_.end(), {"r2.mribd", "r2.gmpd4", "r2.gmpd6", "r1.msdpd", "r2.msdpd"});
    }
    for (const std::string &daemon : daemons_) {
        add(below(3) * SECOND, {"start", daemon});
    }
}

void RandomWriter::set_up_hosts()
{
    constexpr std::array<unsigned, 8> VERSIONS = {1, 2, 2, 3, 3, 3, 3, 3};
    const uint64_t hosts = 4 + below(12);
    for (uint64_t host = 1; host <= hosts; ++host) {
        const std::string &link = links_[host % links_.size()];
        const unsigned version = one_of(VERSIONS);
        const bool is_user = has_users_ && link == LINK_OF_USERS;
        // An older host keeps silent when another one reports, so that only one of them would be seen.
        hosts_.push_back({is_user ? 3 : version, link == "lan6", is_user});
        script_.setup.push_back({"host", numbered("h", host), link, std::to_string(hosts_.back().version)});
    }
    for (const std::string &link : links_) {
        const uint64_t number = below(2) == 0 ? LOWER_QUERIER : HIGHER_QUERIER;
        // Of the newest version: under an older one hosts cannot ask for the single sources that they want.
        script_.setup.push_back({"querier", "q" + link, link, "3", std::to_string(number)});
    }
}

void RandomWriter::set_up_flows(const std::string &link, uint64_t groups)
{
    for (const bool ipv4 : {true, false}) {
        for (uint64_t group = 0; group < groups; ++group) {
            // Of the instance's groups one is of any source, one of single sources.
            const uint64_t which = groups == GROUPS ? group : group * GROUPS / 2;
            for (uint64_t number = 0; number < 2; ++number) {
                const std::string name = numbered("f", ++flows_);
                script_.setup.push_back(
                    {"flow", name, link, source_name(ipv4, link, number), group_name(ipv4, which), "1"});
                add(0, {"flow-on", name});
            }
        }
    }
}

void RandomWriter::write_stretch(Ns begin, Ns end)
{
    Ns when = begin;
    while (when < end - STRETCH_END) {
        when += (100 + below(4000)) * MILLISECOND;
        change_membership(when);
        if (has_users_ && below(16) == 0) {
            change_user(when);
        }
        if (plan_.faults && below(12) == 0) {
            make_fault(when);
        }
        if (plan_.faults && below(8) == 0) {
            add(when, {"revive"});
        }
    }
    add(end, {"rest"});
}

void RandomWriter::change_membership(Ns when)
{
    const uint64_t host = below(hosts_.size());
    const bool ipv4 = below(2) == 0;
    const bool old = hosts_[host].version < 3;
    const uint64_t group = below(old ? GROUPS / 2 : GROUPS); // hosts of older versions join no single sources
    const bool single = group >= GROUPS / 2;
    const uint64_t number = below(2);
    const std::string source =
        single ? source_name(ipv4, hosts_[host].in_instance ? "lan5" : "lan1", number) : "";
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

// A user may join about half of the groups, of any source or of one.
void RandomWriter::change_user(Ns when)
{
    const uint64_t host = below(hosts_.size());
    const std::string name = numbered("h", host + 1);
    if (!hosts_[host].is_user) {
        return;
    }
    if (below(6) == 0) {
        add(when, {"forbid", "r1", name});
        return;
    }
    Words words = {"allow", "r1", name};
    for (const bool ipv4 : {true, false}) {
        for (uint64_t group = 0; group < GROUPS; ++group) {
            const uint64_t kind = below(4);
            const std::string to = group_name(ipv4, group);
            if (kind == 0) {
                words.push_back(to);
            } else if (kind == 1) {
                words.push_back(source_name(ipv4, "lan1", 0) + "," + to);
            }
        }
    }
    add(when, std::move(words));
}

Script random_script(const RandomPlan &plan)
{
    Script script = RandomWriter(plan).write();
    sort_actions(script);
    return script;
}

} // namespace sim
