#include "daemons/mribd/status.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <utility>

#include "daemons/mribd/address.h"

namespace mribd
{

void add_text(std::string *out, const char *format, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    *out += line;
}

namespace
{

void add_clients(std::string *out, const ChannelServer &server)
{
    server.visit([out](const Session &session) {
        add_text(out, "  client %u: component %u, ", session.id(), session.component());
        if (session.is_registered()) {
            add_text(out, "events 0x%" PRIx64, session.events());
        } else {
            *out += "not registered";
        }
        add_text(out, ", %" PRIu64 " messages sent, %zu waiting\n", session.queue().sent(),
                 session.queue().message_count());
    });
}

void add_interfaces(std::string *out, const Router &router)
{
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if (const uint32_t if_index = router.vifs().if_index(vif)) {
            add_text(out, "  interface %s: index %u, vif %u%s%s\n",
                     router.environment().interface_name(if_index).c_str(), if_index, vif,
                     router.gmp().is_enabled(if_index) ? ", protocol runs" : "",
                     router.gmp().is_forwarder(if_index) ? "" : ", another querier");
        }
    }
}

void add_member(std::string *out, const Router &router, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                const std::vector<Wish> &wishes)
{
    add_text(out, "  member (%s, %s):", text_or_star(source).c_str(), text_or_star(group).c_str());
    for (const Wish &wish : wishes) {
        add_text(out, " %s%s[client %u]", wish.blocked ? (wish.joined ? "!+" : "!") : "",
                 router.environment().interface_name(wish.if_index).c_str(), wish.client);
    }
    *out += '\n';
}

void add_entry(std::string *out, const Router &router, const Entry &entry)
{
    add_text(out, "  entry (%s, %s):", text_or_star(entry.source()).c_str(),
             text_or_star(entry.group()).c_str());
    if (entry.upstream == 0) {
        *out += " no usable route to the source,";
    } else {
        add_text(out, " from %s", router.environment().interface_name(entry.upstream).c_str());
    }
    *out += " to";
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if ((entry.outgoing >> vif & 1) != 0) {
            add_text(out, " %s", router.environment().interface_name(router.vifs().if_index(vif)).c_str());
        }
    }
    *out += entry.outgoing == 0 ? " nowhere" : "";
    const auto counters =
        entry.installed ? router.kernel().counters(entry.source(), entry.group()) : std::nullopt;
    if (counters) {
        add_text(out, ", %" PRIu64 " packets, %" PRIu64 " bytes, %" PRIu64 " wrong interface\n",
                 counters->packets, counters->bytes, counters->wrong_interface);
    } else {
        *out += ", not in the kernel\n";
    }
}

void add_channel_counters(std::string *out, const ChannelCounters &channel)
{
    add_text(out,
             "  channel: clients %" PRIu64 ", messages %" PRIu64 ", records %" PRIu64
             ", malformed messages %" PRIu64 ", restarts of slow clients %" PRIu64 "\n",
             channel.clients, channel.messages, channel.records, channel.malformed_messages,
             channel.overflows);
    *out += "  ignored records:";
    for (size_t fault = 0; fault < channel.faults.size(); ++fault) {
        add_text(out, " %s %" PRIu64, fault_name(static_cast<Fault>(fault)), channel.faults[fault]);
    }
    *out += '\n';
}

void add_counters(std::string *out, const Router &router)
{
    const ForwardingCounters &forwarding = router.forwarding().counters();
    add_text(out,
             "  upcalls: %" PRIu64 ", lost %" PRIu64 ", stray %" PRIu64 ", wrong interface %" PRIu64 "\n",
             forwarding.upcalls, router.kernel().lost_upcalls(), forwarding.stray_upcalls,
             forwarding.wrong_interface);
    add_text(out,
             "  entries: %u, expired %" PRIu64 ", without route %" PRIu64 ", refused by limit %" PRIu64
             ", by memory %" PRIu64 ", by the kernel %" PRIu64 ", ended with members %" PRIu64
             ", displaced %" PRIu64 "\n",
             router.forwarding().entry_count(), forwarding.expired, forwarding.no_route,
             forwarding.refused_by_limit, forwarding.refused_by_memory, forwarding.kernel_failures,
             forwarding.ended, forwarding.displaced);
    add_text(out,
             "  virtual interfaces: %u of %u, without one %zu, refused %" PRIu64 ", failed %" PRIu64 "\n",
             router.vifs().count(), MAX_VIFS, router.vifs().refused(), router.vifs().refusals(),
             router.vifs().failures());
}

void add_head(std::string *out, const Router &router, const ChannelServer &server)
{
    *out += instance_name(router.key()) + "\n";
    if (router.vrf_index() == PUBLIC_INSTANCE) {
        add_clients(out, server);
    }
    add_interfaces(out, router);
}

void add_tail(std::string *out, const Router &router, const ChannelServer &server)
{
    if (router.vrf_index() == PUBLIC_INSTANCE) {
        add_channel_counters(out, server.counters());
        const MemberBudget &budget = server.backend().budget;
        add_text(out, "  memberships: %zu of at most %zu, refused %" PRIu64 "\n", budget.taken(),
                 budget.total_limit(), budget.refused());
    }
    add_counters(out, router);
}

} // namespace

// Whether there is room for the pair; otherwise the next part begins with it.
bool FamilyStatus::take(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, size_t &budget)
{
    going_on_ = budget == 0;
    if (going_on_) {
        group_ = group;
        source_ = source;
        return false;
    }
    --budget;
    return true;
}

bool FamilyStatus::append_members(std::string *out, const Router &router, size_t &budget)
{
    const auto add = [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                         const std::vector<Wish> &wishes) {
        if (!take(group, source, budget)) {
            return false;
        }
        add_member(out, router, group, source, wishes);
        return true;
    };
    const MCAST_ADDR_S group = group_;
    const MCAST_ADDR_S source = source_;
    const bool from = std::exchange(going_on_, false);
    router.members().visit_from(from ? &group : nullptr, from ? &source : nullptr, add);
    return !going_on_;
}

bool FamilyStatus::append_entries(std::string *out, const Router &router, size_t &budget)
{
    const auto add = [&](const Entry &entry) {
        if (!take(entry.group(), entry.source(), budget)) {
            return false;
        }
        add_entry(out, router, entry);
        return true;
    };
    const MCAST_ADDR_S group = group_;
    const MCAST_ADDR_S source = source_;
    const bool from = std::exchange(going_on_, false);
    router.forwarding().visit_from(from ? &group : nullptr, from ? &source : nullptr, add);
    return !going_on_;
}

// Whether the instance is complete.
bool FamilyStatus::append_instance(std::string *out, const Router &router, size_t &budget)
{
    if (step_ == Step::Head) {
        add_head(out, router, *server_);
        step_ = Step::View;
    }
    if (step_ == Step::View) {
        if (router.vrf_index() == PUBLIC_INSTANCE && !view_.append(out, server_->backend(), budget)) {
            return false;
        }
        step_ = Step::Members;
    }
    if (step_ == Step::Members) {
        if (!append_members(out, router, budget)) {
            return false;
        }
        step_ = Step::Entries;
    }
    if (!append_entries(out, router, budget)) {
        return false;
    }
    add_tail(out, router, *server_);
    return true;
}

bool FamilyStatus::append(std::string *out, size_t &budget)
{
    const auto &routers = server_->backend().routers.all();
    for (auto at = routers.begin(); at != routers.end(); ++at) {
        if (at->first < instance_) {
            continue;
        }
        if (at->first > instance_) { // the one that was begun may be gone
            instance_ = at->first;
            step_ = Step::Head;
            going_on_ = false;
        }
        if (!append_instance(out, *at->second, budget)) {
            return false;
        }
        ++instance_;
        step_ = Step::Head;
    }
    return true;
}

mcastd::TextParts status_parts(std::vector<FamilyStatus> families)
{
    return [families = std::move(families), next = size_t{0}, parts = 0u](std::string *text) mutable {
        size_t budget = STATUS_LINES;
        ++parts;
        while (next < families.size() && families[next].append(text, budget)) {
            ++next;
        }
        if (next < families.size()) {
            return true;
        }
        *text += parts > 1 ? "not of one moment: made in " + std::to_string(parts) + " parts\n" : "";
        return false;
    };
}

} // namespace mribd
