#include "daemons/gmpd/status.h"

#include <memory>
#include <utility>

#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/policy.h"

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

void open_interface(Json &json, const Interface &interface)
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
    } else {
        json.number("group_count", MRT_CountTable(interface.memberships.groups));
    }
    json.open("groups", '[');
}

void open_status(Json &json, const Process &process, const DaemonStatus &daemon)
{
    const bool ipv4 = process.config.family == MCAST_FAMILY_IPV4;
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
}

// A status that is being written. What is gone when its turn comes again is closed as it is, so that the text is whole
// whatever happens between two parts.
class Status
{
public:
    explicit Status(const Process &process) : process_(process)
    {
    }

    bool append(const DaemonStatus &daemon, std::string *text)
    {
        size_t budget = STATUS_PART;
        const bool first = !begun_;
        if (first) {
            open_status(json_, process_, daemon);
            begun_ = true;
        }
        const bool done =
            write_interfaces(budget) && (!has_users(daemon) || users_.write(json_, daemon.users, budget));
        if (!done) {
            *text += json_.take_part();
            return true;
        }
        if (!first) {
            json_.truth("of_one_moment", false);
        }
        json_.close('}');
        *text += json_.take();
        return false;
    }

private:
    // Also while users were begun and are gone.
    bool has_users(const DaemonStatus &daemon)
    {
        has_users_ |= daemon.users != nullptr;
        return has_users_;
    }

    // Whether all are written.
    bool write_interfaces(size_t &budget)
    {
        while (!interfaces_done_) {
            const auto at = process_.interfaces.lower_bound(next_);
            if (!in_interface_) {
                if (at == process_.interfaces.end()) {
                    json_.close(']');
                    interfaces_done_ = true;
                    break;
                }
                if (budget == 0) {
                    return false;
                }
                --budget;
                next_ = at->first;
                in_interface_ = true;
                open_interface(json_, *at->second);
            }
            const bool there = at != process_.interfaces.end() && at->first == next_;
            if (!write_rest(there ? at->second.get() : nullptr, budget)) {
                return false;
            }
            in_interface_ = false;
            ++next_;
        }
        return true;
    }

    // Of an interface that is gone, NULL, nothing more.
    bool write_rest(const Interface *interface, size_t &budget)
    {
        const bool of_users = interface != nullptr && interface->users_union != nullptr;
        MRT_TABLE_S *groups = interface != nullptr ? interface->memberships.groups : nullptr;
        if (!groups_.write(json_, of_users ? interface->users_union->table() : groups,
                           of_users ? StatusGroups::Kind::OfUsers : StatusGroups::Kind::OfHosts, budget)) {
            return false;
        }
        json_.close(']');
        if (interface != nullptr) {
            write_counters(json_, interface->counters);
        }
        json_.close('}');
        return true;
    }

    const Process &process_;
    Json json_;
    bool begun_ = false;
    uint32_t next_ = 0; // index of the interface that is written, or after the last one
    bool in_interface_ = false;
    bool interfaces_done_ = false;
    StatusGroups groups_;
    bool has_users_ = false;
    StatusUsers users_;
};

} // namespace

mcastd::TextParts status_parts(const Process &process, std::function<DaemonStatus()> daemon)
{
    return [status = std::make_shared<Status>(process), daemon = std::move(daemon)](std::string *text) {
        return status->append(daemon(), text);
    };
}

} // namespace gmpd
