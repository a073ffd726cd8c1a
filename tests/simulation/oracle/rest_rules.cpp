/*
 * What must be true when nothing has happened for long: rule 1, and what is left when there is nothing to do.
 */
#include <algorithm>

#include "tests/simulation/oracle/oracle.h"

namespace sim
{
namespace
{

std::string names(const std::set<std::string> &all)
{
    std::string text = "{";
    for (const std::string &name : all) {
        text += " " + name;
    }
    return text + " }";
}

std::string describe(const MulticastTable::Key &key)
{
    return "(" + to_text(key.first) + ", " + to_text(key.second) + ")";
}

} // namespace

bool Oracle::is_connected(const Machine &machine, const Link &link) const
{
    const uint32_t if_index = link.if_index_of(machine);
    const auto found = machine.interfaces().find(if_index);
    return found != machine.interfaces().end() && found->second.is_up;
}

// Whether the daemons that the family needs ought to run there.
bool Oracle::serves(const Machine &machine, int family) const
{
    bool has_mribd = false;
    bool has_gmpd = false;
    for (const auto &[name, plan] : world_->daemons()) {
        const auto &arguments = plan.arguments;
        const bool ipv6 = std::find(arguments.begin(), arguments.end(), "-6") != arguments.end();
        if (&plan.process->machine() == &machine && plan.wanted) {
            has_mribd |= plan.daemon == "mribd";
            has_gmpd |= plan.daemon == "gmpd" && ipv6 == (family == AF_INET6);
        }
    }
    return has_mribd && has_gmpd;
}

// Whether somebody else asks there with a lower address, who forwards nothing. Version 1 knows no election. The machine
// forwards all the same, but what hosts want is asked about when that one likes.
bool Oracle::is_other_querier(Machine &machine, const Link &link, int family) const
{
    const uint32_t if_index = link.if_index_of(machine);
    const Interface *interface = if_index == 0 ? nullptr : machine.find(if_index);
    return interface != nullptr &&
           std::any_of(link.queriers.begin(), link.queriers.end(), [&](const Querier *querier) {
               const Address &address = querier->address(family);
               return querier->is_on() && (family == AF_INET6 || querier->version > 1) &&
                      std::any_of(interface->addresses.begin(), interface->addresses.end(),
                                  [&address](const auto &each) {
                                      return each.address.family == address.family && address < each.address;
                                  });
           });
}

// Whether the machine has the link up with an address of the family, so that its daemons can serve it.
bool Oracle::may_forward(Machine &machine, const Link &link, int family) const
{
    const uint32_t if_index = link.if_index_of(machine);
    const Interface *interface = if_index == 0 ? nullptr : machine.find(if_index);
    return serves(machine, family) && interface != nullptr && interface->is_up &&
           std::any_of(interface->addresses.begin(), interface->addresses.end(),
                       [family](const auto &address) {
                           return address.address.family == family && !address.tentative;
                       });
}

// Whether the machine can serve the link, and is the one that forwards there whoever else does: of
// several the one with the lowest address, which is that of the machine made first. Who else asks there and forwards
// nothing changes nothing.
bool Oracle::forwards(const Machine &machine, const Link &link, int family) const
{
    for (const auto &each : world_->machines()) {
        if (may_forward(*each, link, family)) {
            const Interface *interface = each->find(link.if_index_of(*each));
            return each.get() == &machine && world_->config(machine).serves(*each, *interface);
        }
    }
    return false;
}

// Whether the machine's configuration lets packets of the group that come from the one link pass to the other.
bool Oracle::permits(Machine &machine, const Link &from, const Link &to, const Address &group) const
{
    const Interface *in = machine.find(from.if_index_of(machine));
    const Interface *out = machine.find(to.if_index_of(machine));
    const RouterConfig &config = world_->config(machine);
    return in != nullptr && out != nullptr && config.permits(machine, *out, group) &&
           config.instance_of(machine, *in) == config.instance_of(machine, *out);
}

// The link that the machine's interface is on.
std::string Oracle::link_name(const Machine &machine, uint32_t if_index) const
{
    const auto &links = world_->links();
    const auto found = std::find_if(links.begin(), links.end(), [&](const auto &link) {
        return link.second->if_index_of(machine) == if_index;
    });
    return found == links.end() ? "no link" : found->first;
}

void Oracle::check_flow(const Flow &flow)
{
    const int family = flow.group.family;
    for (const auto &machine : world_->machines()) {
        const Machine::Lookup route = machine->look_up(flow.source, 0);
        if (route.if_index == 0 || !is_connected(*machine, *flow.link)) {
            continue;
        }
        const MulticastTable &table =
            machine->multicast_table(family, machine->multicast_table_of(family, route.if_index));
        std::set<std::string> wanted;
        std::set<std::string> forwarded;
        std::set<std::string> left; // to another router, which packets alone show
        for (const auto &[name, link] : world_->links()) {
            if (link->if_index_of(*machine) != route.if_index && may_forward(*machine, *link, family) &&
                permits(*machine, *flow.link, *link, flow.group) &&
                world_->is_wanted(*machine, *link, flow.source, flow.group)) {
                const bool is_left =
                    !forwards(*machine, *link, family) ||
                    (world_->machines().size() > 1 && is_other_querier(*machine, *link, family));
                (is_left ? left : wanted).insert(name);
            }
        }
        const auto entry = table.entries().find({flow.source, flow.group});
        if (entry != table.entries().end()) {
            for (const uint32_t out : table.outgoing(entry->second)) {
                forwarded.insert(link_name(*machine, out));
            }
            std::erase_if(forwarded, [&](const std::string &name) { return left.contains(name); });
            if (table.if_index(entry->second.parent) != route.if_index) {
                broken(Rule::Forwarding,
                       machine->name + ": " + describe(entry->first) + " is taken from the wrong interface");
            }
        }
        ++counts_.entries;
        if (wanted != forwarded) {
            broken(Rule::Forwarding, machine->name + ": " + describe({flow.source, flow.group}) +
                                         " is wanted on " + names(wanted) + " and forwarded to " +
                                         names(forwarded));
        }
    }
}

// Every entry is of a source that sends, has sent lately, or is wanted by name.
void Oracle::check_entries(Machine &machine, const MulticastTable &table)
{
    const Ns now = world_->kernel.clock.now();
    const Ns idle = 2 * disturbances.timing().idle;
    for (const auto &known : table.entries()) {
        const auto &key = known.first;
        const auto is_its = [&](const auto &flow) {
            return flow->source == key.first && flow->group == key.second &&
                   (flow->on || now - flow->last < idle);
        };
        const auto names_it = [&](const auto &host) {
            const auto wish = host->wants().find(key.second);
            return wish != host->wants().end() && wish->second.sources.contains(key.first);
        };
        if (std::none_of(world_->flows().begin(), world_->flows().end(), is_its) &&
            std::none_of(world_->hosts().begin(), world_->hosts().end(), names_it)) {
            broken(Rule::Forwarding, machine.name + ": there is an entry for " + describe(key) +
                                         ", which nobody sends and nobody asked for");
        }
    }
}

// With nothing to do a daemon has what it had when it had nothing to do for the first time.
void Oracle::check_leftovers()
{
    for (const auto &host : world_->hosts()) {
        if (!host->wants().empty()) {
            return;
        }
    }
    for (const auto &machine : world_->machines()) {
        for (const auto &[key, table] : machine->multicast_tables()) {
            if (!table.entries().empty()) {
                return;
            }
        }
    }
    for (const auto &[name, plan] : world_->daemons()) {
        const size_t blocks = plan.process->account.live_blocks();
        const auto [first, is_new] = empty_blocks_.try_emplace({name, plan.process->lives()}, blocks);
        if (!is_new && blocks > first->second) {
            broken(Rule::CleanEnd, name + " has " + std::to_string(blocks) +
                                       " blocks of memory with nothing to do, and had " +
                                       std::to_string(first->second) + " before");
        }
    }
}

void Oracle::check_forwarding()
{
    for (const auto &flow : world_->flows()) {
        if (flow->on) {
            check_flow(*flow);
        }
    }
}

void Oracle::check_rest()
{
    ++counts_.rests;
    for (const auto &[name, plan] : world_->daemons()) {
        if (plan.wanted && !plan.process->is_running()) {
            broken(Rule::CleanEnd,
                   name + " " + end_name(plan.process->end()) + " although nothing was wrong");
        }
        check_call_order(*plan.process);
        if (plan.process->is_running() && plan.process->image()->broken_invariants() != 0) {
            broken(Rule::CleanEnd, name + " found an invariant of the library broken");
        }
    }
    check_forwarding();
    for (const auto &machine : world_->machines()) {
        for (const auto &[key, table] : machine->multicast_tables()) {
            check_entries(*machine, table);
        }
    }
    check_tables();
    check_vifs();
    check_users();
    check_roles();
    check_standbys();
    check_msdp();
    check_limits();
    counts_.counters += counters_.check(*world_);
    check_leftovers(); // after the questions: what an answer needs is made for the first one, and kept
}

} // namespace sim
