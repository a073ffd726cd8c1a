/*
 * What packets may and must do on their way: rules 4 and 5.
 */
#include <algorithm>

#include "tests/simulation/oracle/oracle.h"

namespace sim
{
namespace
{

constexpr size_t REMEMBERED = 16;  // packets of a flow; those that waited for an entry come late
constexpr Ns SETTLED = 2 * SECOND; // since when somebody must want packets before they must come
constexpr Ns LEAVE_MARGIN = 2 * SECOND;
constexpr Ns NOTICED = 8 * SECOND;
constexpr Ns NOTICED_NEXT = 4 * SECOND; // the kernel tells of one link of an entry in three seconds

std::string describe(const Datum &datum)
{
    return "(" + to_text(datum.source) + ", " + to_text(datum.group) + ")";
}

} // namespace

// Whether a host wants the packet for so long that the machine must know it.
bool Oracle::is_heard(const Machine &machine, const Link &link, const Datum &datum) const
{
    const Ns now = world_->kernel.clock.now();
    const Agent *agent = world_->agent_for(machine, link);
    const Ns asked = disturbances.timing().response + 2 * SETTLED; // after a user is there
    const auto is_user_for_long = [&](const Host &host) {
        const Ns changed = agent->changed(host);
        return agent->permits(host, datum.source, datum.group) && now - changed > asked &&
               !disturbances.may_be_unanswered(changed);
    };
    return std::any_of(link.hosts.begin(), link.hosts.end(), [&](const Host *host) {
        const Ns changed = host->changed(datum.group);
        const bool is_permitted = agent == nullptr || is_user_for_long(*host);
        const Ns since = host->wanted_since(datum.source, datum.group);
        return is_permitted && since != NEVER && now - since > SETTLED &&
               !disturbances.may_be_unheard(changed);
    });
}

// Where the packet must arrive: on links where somebody has wanted it for a while, that the router on the way
// serves.
std::set<std::string> Oracle::expected_links(const Datum &datum) const
{
    std::set<std::string> result;
    const Ns now = world_->kernel.clock.now();
    if (disturbances.excused_until() > now) {
        return result;
    }
    const Link &from = *world_->flows()[datum.flow - 1]->link;
    for (const auto &named : world_->links()) {
        const auto &link = named.second;
        const auto brings = [&](const auto &machine) {
            return is_connected(*machine, from) && forwards(*machine, *link, datum.group.family) &&
                   !is_other_querier(*machine, *link, datum.group.family) &&
                   permits(*machine, from, *link, datum.group) && is_heard(*machine, *link, datum);
        };
        if (link.get() != &from &&
            std::any_of(world_->machines().begin(), world_->machines().end(), brings)) {
            result.insert(named.first);
        }
    }
    return result;
}

void Oracle::sent(const Link &, const Datum &datum)
{
    std::deque<Packet> &latest = packets_[datum.flow];
    check_most_bytes();
    if (!latest.empty()) {
        check_missed(datum.flow, latest.back());
    }
    latest.push_back({datum.number, world_->kernel.clock.now(), expected_links(datum), {}});
    if (latest.size() > REMEMBERED) {
        latest.pop_front();
    }
}

// When the next packet is sent, for a packet may have waited for its entry.
void Oracle::check_missed(uint64_t flow, const Packet &packet)
{
    if (disturbances.quiet_since() > packet.when) {
        return;
    }
    for (const std::string &link : packet.expected) {
        if (!packet.seen.contains(link)) {
            broken(Rule::Missed, world_->flows()[flow - 1]->name + ": packet " +
                                     std::to_string(packet.number) + " did not come to " + link);
        }
    }
}

// Whether it has gone on for longer than one of two routers takes to notice that the other one forwards too, since one of
// them knows that it is not the querier.
bool Oracle::comes_twice_for_long(const Flow &flow, const Link &link, const Packet &packet)
{
    auto &[last, since] = twice_[{flow.number, link.name}];
    if (last + 1 != packet.number) {
        since = packet.when;
    }
    last = packet.number;
    const auto further_links = static_cast<Ns>(packet.seen.size() - 1);
    const Ns until = std::max(since, disturbances.elected_at()) + std::max(NOTICED, 3 * flow.interval) +
                     further_links * NOTICED_NEXT;
    return world_->machines().size() == 1 || packet.when > until;
}

void Oracle::delivered(const Link &link, const Machine &by, const Datum &datum)
{
    const Flow &flow = *world_->flows()[datum.flow - 1];
    if (flow.link == &link) {
        broken(Rule::Missed, by.name + " sends " + describe(datum) + " back to where it comes from");
    }
    for (Packet &packet : packets_[datum.flow]) {
        if (packet.number == datum.number && !packet.seen.insert(link.name).second &&
            comes_twice_for_long(flow, link, packet) && disturbances.excused_until() <= packet.when) {
            broken(Rule::Missed, flow.name + ": packet " + std::to_string(datum.number) + " came twice to " +
                                     link.name + ", now by " + by.name);
        }
    }
    // What a daemon wanted that is gone is kept for the hold time, permitted or not.
    if (std::max(disturbances.excused_until(), disturbances.steady_since() + disturbances.timing().hold +
                                                   SETTLED) <= world_->kernel.clock.now() &&
        !permits(world_->machine(by.name), *flow.link, link, datum.group)) {
        broken(Rule::Unwanted, by.name + " sends " + describe(datum) + " to " + link.name +
                                   ", where its configuration does not let it pass");
    }
    if (world_->is_wanted(by, link, datum.source, datum.group)) {
        ++counts_.packets;
    } else {
        ++counts_.unwanted;
        check_unwanted(by, link, datum);
    }
}

// Whether the router that asks the hosts asks about the group when one leaves it: not if it lets nobody join it.
bool Oracle::asks_about(const Link &link, const Address &group) const
{
    return std::all_of(world_->machines().begin(), world_->machines().end(), [&](const auto &machine) {
        const Interface *interface = machine->find(link.if_index_of(*machine));
        return interface == nullptr || world_->config(*machine).permits(*machine, *interface, group);
    });
}

void Oracle::check_unwanted(const Machine &by, const Link &link, const Datum &datum)
{
    const Agent *agent = world_->agent_for(by, link);
    const Timing &timing = disturbances.timing();
    const Ns now = world_->kernel.clock.now();
    Ns changed = 0;
    Ns reported = 0;
    bool heard = true; // the leave, at once
    for (const Host *host : link.hosts) {
        changed =
            std::max({changed, host->changed(datum.group), agent == nullptr ? 0 : agent->changed(*host)});
        reported = std::max(reported, host->reported(datum.group));
        heard = heard && host->version == 3 && !host->is_silent;
    }
    const bool tight = heard && asks_about(link, datum.group) &&
                       !is_other_querier(world_->machine(by.name), link, datum.group.family) &&
                       disturbances.steady_since() + timing.membership() < changed;
    const Ns bound = tight ? changed + timing.leave() + LEAVE_MARGIN
                           : std::max(changed, reported) + timing.membership() + timing.response + SECOND +
                                 timing.hold + disturbances.stopped();
    if (now > bound) {
        broken(Rule::Unwanted, describe(datum) + " still comes to " + link.name +
                                   ", where nobody has wanted it for " + to_text(now - changed) + " s");
    }
}

} // namespace sim
