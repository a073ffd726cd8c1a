/*
 * What the daemons say of themselves at rest: rule 2. What hosts want, what gmpd knows, what mribd was told, what it
 * made of that and what the kernel has are one and the same:
 *
 *     hosts ──► gmpd's groups and sources ──► mribd's members ──► its routes and virtual interfaces == the kernel's
 *
 * Groups are compared by what they mean for each source that anybody speaks of, and for one that nobody does.
 */
#include <algorithm>

#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{
namespace
{

// What the host can tell a router of what it wants: in older versions only that it wants the group.
std::optional<Filter> told(const Host &host, const Address &group)
{
    const auto wish = host.wants().find(group);
    if (wish == host.wants().end()) {
        return std::nullopt;
    }
    if (host.spoken(group.family) >= 3) {
        return is_source_specific(group) && wish->second.exclude ? std::nullopt : std::optional(wish->second);
    }
    return is_source_specific(group) ? std::nullopt : std::optional(Filter{true, {}});
}

// What all hosts of a link want of a group together.
class Wanted
{
public:
    void add(const Filter &filter)
    {
        filters_.push_back(filter);
    }
    bool wants(const Address &source) const
    {
        return std::any_of(filters_.begin(), filters_.end(),
                           [&source](const Filter &filter) { return filter.wants(source); });
    }
    void collect(std::set<Address> &sources) const
    {
        for (const Filter &filter : filters_) {
            sources.insert(filter.sources.begin(), filter.sources.end());
        }
    }

private:
    std::vector<Filter> filters_;
};

using Groups = std::map<Address, Wanted>;

// A source that nobody speaks of.
Address unheard_of(int family)
{
    return address_from(family == AF_INET ? "198.51.100.1" : "2001:db8:ffff::1");
}

// Nothing, or a source of which the one side thinks otherwise than the other.
template <typename Other>
std::optional<Address> difference(const Wanted &wanted, const Other &other, std::set<Address> sources,
                                  int family)
{
    wanted.collect(sources);
    sources.insert(unheard_of(family));
    const auto place = std::find_if(sources.begin(), sources.end(), [&](const Address &source) {
        return wanted.wants(source) != other.wants(source);
    });
    return place == sources.end() ? std::nullopt : std::optional(*place);
}

using Entry = std::tuple<Address, Address, uint32_t, std::set<uint32_t>>; // group, source, upstream, outgoing

std::string describe(const Entry &entry)
{
    std::string text = "(" + to_text(std::get<1>(entry)) + ", " + to_text(std::get<0>(entry)) + ") from " +
                       std::to_string(std::get<2>(entry)) + " to {";
    for (const uint32_t out : std::get<3>(entry)) {
        text += " " + std::to_string(out);
    }
    return text + " }";
}

// The first element that only one of them has.
template <typename Set> auto only_in_one(const Set &one, const Set &other)
{
    std::vector<typename Set::value_type> result;
    std::set_symmetric_difference(one.begin(), one.end(), other.begin(), other.end(),
                                  std::back_inserter(result));
    return result;
}

Groups groups_of(const Link &link, int family, const auto &is_permitted)
{
    Groups groups;
    for (const Host *host : link.hosts) {
        for (const auto &[group, filter] : host->wants()) {
            const auto wish = told(*host, group);
            if (group.family == family && wish && is_permitted(group)) {
                groups[group].add(*wish);
            }
        }
    }
    return groups;
}

} // namespace

// Of one machine.
class TableCheck
{
public:
    TableCheck(const Oracle &oracle, World &world, Machine &machine)
        : oracle_(oracle), world_(world), machine_(machine)
    {
    }

    // How much was compared.
    uint64_t check()
    {
        mrib_ = read_mrib_tables(machine_);
        if (!mrib_) {
            broken("mribd does not answer on its control port");
            return 0;
        }
        for (const int family : {AF_INET, AF_INET6}) {
            if (!oracle_.serves(machine_, family)) {
                continue;
            }
            gmp_ = read_gmp_tables(machine_, family);
            if (!gmp_) {
                broken("gmpd does not answer on its control port");
                return compared_;
            }
            for (const auto &[name, link] : world_.links()) {
                check_link(*link, family);
            }
            check_strangers(family);
            check_kernel(family);
        }
        return compared_;
    }

private:
    void broken(const std::string &what)
    {
        world_.kernel.broken(Rule::Tables, machine_.name + ": " + what);
    }
    void check_link(const Link &link, int family);
    void check_members(const Link &link, uint32_t if_index, const Groups &groups, bool reported, int family);
    void check_members_of_users(const Link &link, const Agent &agent, const Interface &interface, int family);
    void check_strangers(int family);
    void check_kernel(int family);
    bool can_run(const Interface &interface, int family) const;

    const Oracle &oracle_;
    World &world_;
    Machine &machine_;
    std::optional<MribTables> mrib_;
    std::optional<GmpTables> gmp_;
    uint64_t compared_ = 0;
};

// Whether there is what the protocol needs: an address, of IPv6 a link-local one, that nobody else may have.
bool TableCheck::can_run(const Interface &interface, int family) const
{
    return interface.is_up &&
           std::any_of(interface.addresses.begin(), interface.addresses.end(), [&](const auto &each) {
               const bool is_usable = family == AF_INET || (each.address.bytes[0] == 0xfe && !each.tentative);
               return each.address.family == family && is_usable;
           });
}

void TableCheck::check_link(const Link &link, int family)
{
    const Interface *interface = machine_.find(link.if_index_of(machine_));
    if (interface == nullptr || !world_.config(machine_).instance_of(machine_, *interface)) {
        return;
    }
    const auto row = gmp_->interfaces.find(interface->index);
    const bool running = row != gmp_->interfaces.end() && row->second.running;
    ++compared_;
    if (running != can_run(*interface, family)) {
        broken("the protocol " + std::string(running ? "runs" : "does not run") + " on " + interface->name);
        return;
    }
    if (!running) {
        return;
    }
    // Where only users count the daemon has a table of each user's, not one of the link.
    if (const Agent *agent = world_.agent_for(machine_, link)) {
        if (row->second.reported) {
            check_members_of_users(link, *agent, *interface, family);
        }
        return;
    }
    const RouterConfig &config = world_.config(machine_);
    const Groups groups = groups_of(
        link, family, [&](const Address &group) { return config.permits(machine_, *interface, group); });
    for (const auto &[key, known] : gmp_->groups) {
        if (key.first == interface->index && !groups.contains(key.second)) {
            broken("gmpd knows " + to_text(key.second) + " on " + link.name + ", which nobody wants");
        }
    }
    for (const auto &[group, wanted] : groups) {
        const auto known = gmp_->groups.find({interface->index, group});
        const GmpTables::Group nothing;
        const GmpTables::Group &has = known == gmp_->groups.end() ? nothing : known->second;
        std::set<Address> sources;
        for (const auto &[source, is_wanted] : has.sources) {
            sources.insert(source);
        }
        ++compared_;
        if (const auto wrong = difference(wanted, has, sources, family)) {
            broken("gmpd says that (" + to_text(*wrong) + ", " + to_text(group) + ") is " +
                   (has.wants(*wrong) ? "wanted" : "not wanted") + " on " + link.name);
        }
    }
    check_members(link, interface->index, groups, row->second.reported, family);
}

// What mribd was told of a link is what its users want and may have together.
void TableCheck::check_members_of_users(const Link &link, const Agent &agent, const Interface &interface,
                                        int family)
{
    std::map<Address, std::set<Address>> sources; // by group, those that anybody speaks of
    for (const Host *host : link.hosts) {
        for (const auto &[group, filter] : host->wants()) {
            sources[group].insert(filter.sources.begin(), filter.sources.end());
        }
    }
    agent.visit([&sources](const Host &, const std::set<Permission> &permissions) {
        for (const auto &[source, group] : permissions) {
            sources[group].insert(source);
        }
    });
    for (const auto &[key, has] : mrib_->members) {
        if (key.first == interface.index) {
            sources[key.second].insert(has.joined.begin(), has.joined.end());
            sources[key.second].insert(has.blocked.begin(), has.blocked.end());
        }
    }
    for (auto &[group, spoken] : sources) {
        if (group.family != family) {
            continue;
        }
        const auto known = mrib_->members.find({interface.index, group});
        const bool passes = world_.config(machine_).permits(machine_, interface, group);
        spoken.erase(Address{});
        spoken.insert(unheard_of(family));
        for (const Address &source : spoken) {
            const bool wanted = passes && world_.is_wanted(machine_, link, source, group);
            ++compared_;
            if (wanted != (known != mrib_->members.end() && known->second.wants(source))) {
                broken("mribd takes (" + to_text(source) + ", " + to_text(group) + ") for " +
                       (wanted ? "not wanted" : "wanted") + " by the users on " + link.name);
            }
        }
    }
}

void TableCheck::check_members(const Link &link, uint32_t if_index, const Groups &groups, bool reported,
                               int family)
{
    for (const auto &[key, has] : mrib_->members) {
        if (key.first == if_index && key.second.family == family &&
            (!reported || !groups.contains(key.second)) && (has.any || !has.joined.empty())) {
            broken("mribd has members of " + to_text(key.second) + " on " + link.name +
                   ", of which gmpd has not told it");
        }
    }
    for (const auto &[group, wanted] : groups) {
        const auto known = mrib_->members.find({if_index, group});
        const MribTables::Member nothing;
        const MribTables::Member &has = known == mrib_->members.end() ? nothing : known->second;
        std::set<Address> sources = has.joined;
        sources.insert(has.blocked.begin(), has.blocked.end());
        ++compared_;
        if (!reported) {
            continue;
        }
        if (const auto wrong = difference(wanted, has, sources, family)) {
            broken("mribd takes (" + to_text(*wrong) + ", " + to_text(group) + ") for " +
                   (has.wants(*wrong) ? "wanted" : "not wanted") + " on " + link.name);
        }
    }
}

// Neither daemon speaks of interfaces that are not there.
void TableCheck::check_strangers(int family)
{
    for (const auto &[if_index, row] : gmp_->interfaces) {
        if (machine_.find(if_index) == nullptr) {
            broken("gmpd shows interface " + std::to_string(if_index) + ", which is not there");
        }
    }
    for (const auto &[key, member] : mrib_->members) {
        if (key.second.family == family && machine_.find(key.first) == nullptr) {
            broken("mribd has members on interface " + std::to_string(key.first) + ", which is not there");
        }
    }
}

// The kernel's tables; those of other instances together, for mribd numbers them as it likes.
void TableCheck::check_kernel(int family)
{
    for (const bool is_public : {true, false}) {
        std::set<Entry> entries;
        std::set<Entry> routes;
        std::set<std::pair<unsigned, uint32_t>> vifs;
        std::set<std::pair<unsigned, uint32_t>> told_vifs;
        for (const auto &[key, table] : machine_.multicast_tables()) {
            if (key.first != family || (key.second == 0) != is_public) {
                continue;
            }
            for (const auto &[flow, entry] : table.entries()) {
                const auto out = table.outgoing(entry);
                // Without a route to the source it is where packets arrive, which mribd does not call upstream.
                const bool is_refused =
                    std::any_of(mrib_->routes.begin(), mrib_->routes.end(),
                                [&flow = flow, is_public](const MribTables::Route &route) {
                                    return (route.instance == 0) == is_public && route.group == flow.second &&
                                           route.source == flow.first && route.installed &&
                                           route.upstream == 0;
                                });
                const uint32_t upstream = is_refused && out.empty() ? 0 : table.if_index(entry.parent);
                entries.insert({flow.second, flow.first, upstream, {out.begin(), out.end()}});
            }
            for (unsigned vif = 0; vif < MulticastTable::MOST_VIFS; ++vif) {
                if (const uint32_t if_index = table.if_index(vif)) {
                    vifs.insert({vif, if_index});
                }
            }
        }
        for (const MribTables::Route &route : mrib_->routes) {
            if (route.group.family == family && route.upstream != 0 && !route.installed) {
                broken("(" + to_text(route.source) + ", " + to_text(route.group) +
                       ") is in mribd's table and not in the kernel");
            }
            if (route.group.family == family && (route.instance == 0) == is_public && route.installed) {
                routes.insert({route.group, route.source, route.upstream, route.outgoing});
            }
        }
        for (const auto &[key, vif] : mrib_->vifs) {
            if (std::get<0>(key) == family && (vif.instance == 0) == is_public) {
                told_vifs.insert({std::get<1>(key), std::get<2>(key)});
            }
        }
        compared_ += entries.size() + vifs.size();
        for (const Entry &wrong : only_in_one(entries, routes)) {
            broken(describe(wrong) + (entries.contains(wrong)
                                          ? " is in the kernel and not in mribd's table"
                                          : " is in mribd's table and not in the kernel"));
        }
        for (const auto &wrong : only_in_one(vifs, told_vifs)) {
            broken("virtual interface " + std::to_string(wrong.first) + " of " +
                   std::to_string(wrong.second) +
                   (vifs.contains(wrong) ? " is the kernel's alone" : " is mribd's alone"));
        }
    }
}

void Oracle::check_tables()
{
    for (const auto &machine : world_->machines()) {
        if (serves(*machine, AF_INET) || serves(*machine, AF_INET6)) {
            counts_.rows += TableCheck(*this, *world_, *machine).check();
        }
    }
}

} // namespace sim
