#include "daemons/gmpd/status.h"

#include "daemons/common/json.h"
#include "daemons/gmpd/group_state.h"

namespace gmpd
{

using mcastd::Json;

namespace
{

void write_querier(Json &json, const Interface &interface)
{
    const Querier &querier = interface.querier;
    json.open("querier", '{', true);
    json.truth("this_router", querier.elected);
    json.text("address", to_text(querier.elected ? interface.address : querier.other));
    json.number(querier.elected ? "next_query_s" : "expires_s",
                timer_remaining_s(querier.elected ? querier.general : querier.other_present));
    json.number("robustness", querier.robustness);
    json.number("query_interval_s", querier.query_interval_s);
    json.close('}');
}

void write_group(Json &json, const GroupState &group)
{
    json.open(nullptr, '{', true);
    json.text("group", to_text(*group.entry->address));
    json.text("mode", group.exclude ? "exclude" : "include");
    if (group.exclude) {
        json.number("expires_s", timer_remaining_s(group.timer));
    }
    if (group.v1_host.running()) {
        json.number("version_1_host_s", timer_remaining_s(group.v1_host));
    }
    if (group.v2_host.running()) {
        json.number("version_2_host_s", timer_remaining_s(group.v2_host));
    }
    json.open("sources", '[');
    for_each_source(group, [&](const SourceState &source) {
        json.open(nullptr, '{');
        json.text("source", to_text(*source.entry->address));
        json.truth("wanted", source.timer.running());
        json.number("expires_s", source.timer.remaining_s());
        json.close('}');
    });
    json.close(']');
    json.close('}');
}

// What the users of a link come to. Times are those of the users.
void write_link_groups(Json &json, const UsersUnion &members)
{
    json.open("groups", '[');
    members.visit_groups([&](const Address &group, bool any_source) {
        json.open(nullptr, '{', true);
        json.text("group", to_text(group));
        json.text("mode", any_source ? "exclude" : "include");
        json.open("sources", '[');
        members.visit_sources(group, [&](const Address &source, bool wanted) {
            json.open(nullptr, '{');
            json.text("source", to_text(source));
            json.truth("wanted", wanted);
            json.close('}');
        });
        json.close(']');
        json.close('}');
    });
    json.close(']');
}

void write_interface(Json &json, const Interface &interface)
{
    json.open(nullptr, '{');
    json.text("interface", interface.name);
    json.number("index", interface.index);
    json.number("instance", interface.vrf_index);
    json.truth("running", interface.running);
    if (interface.running) {
        json.text("address", to_text(interface.address));
        json.truth("reported", interface.process->policy->reports(interface));
        write_querier(json, interface);
    }
    if (interface.users_union != nullptr) {
        json.truth("users_only", true);
        json.number("group_count", interface.users_union->group_count());
        write_link_groups(json, *interface.users_union);
    } else {
        json.number("group_count", MRT_CountTable(interface.memberships.groups));
        write_groups(json, interface.memberships);
    }
    write_counters(json, interface.counters);
    json.close('}');
}

} // namespace

void write_groups(Json &json, const Memberships &memberships)
{
    json.open("groups", '[');
    for_each_group(memberships, [&](const GroupState &group) { write_group(json, group); });
    json.close(']');
}

std::string status_text(const Process &process, const DaemonStatus &daemon)
{
    const bool ipv4 = process.config.family == MCAST_FAMILY_IPV4;
    Json json;
    json.open(nullptr, '{');
    json.text("daemon", "gmpd");
    json.text("family", ipv4 ? "ipv4" : "ipv6");
    json.number("protocol_version", ipv4 ? process.config.version : process.config.version - 1u);
    json.text("role", daemon.active ? "active" : "standby");
    if (daemon.active) {
        json.number("standbys", daemon.standbys);
    } else {
        json.truth("synchronised", daemon.synchronised);
        json.number("users_backed_up", daemon.backed_up);
    }
    json.truth("mrib_connected", daemon.mrib_connected);
    json.number("mrib_connects", daemon.mrib_connects);
    json.number("mrib_pending_messages", daemon.mrib_pending);
    json.number("mrib_held_changes", daemon.mrib_held);
    json.truth("mrib_replayed", daemon.mrib_replayed);
    json.number("packets_lost_in_kernel", daemon.kernel_drops);
    json.open("interfaces", '[');
    for (const auto &[index, interface] : process.interfaces) {
        write_interface(json, *interface);
    }
    json.close(']');
    if (daemon.users != nullptr) {
        write_users(json, *daemon.users);
    }
    json.close('}');
    return json.take();
}

} // namespace gmpd
