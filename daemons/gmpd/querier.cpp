/*
 * The election needs no messages of its own. Every router asks until it hears a query from a lower address;
 * then it is silent until that querier has been silent for long enough.
 *
 *                 query from a lower address
 *        asking ───────────────────────────────► waiting   (other_present runs, restarted by each such query)
 *          ▲  general runs                          │
 *          └────────────────────────────────────────┘
 *                 other_present ends
 *
 * A version 1 query takes no part: version 1 has no election. A router that waits follows the querier's
 * robustness, interval and response time, so that both forget a member at the same time.
 *
 * Any host can send a query. What one forged query can do is therefore bounded: addresses that no router has are
 * refused, the operator can name the queriers of a link, and what is taken over is capped, so that a querier that
 * falls silent is replaced within minutes whatever it said.
 */
#include "daemons/gmpd/querier.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstring>

#include "daemons/common/log.h"
#include "daemons/gmpd/group_query.h"
#include "daemons/gmpd/own_question.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

constexpr uint32_t OLDER_ROUTER_WARNING_MS = 600 * 1000;
constexpr uint32_t STARTUP_DIVISOR = 4;

void adopt_own_values(Interface &interface)
{
    const Config &config = interface.process->config;
    interface.querier.robustness = config.robustness;
    interface.querier.query_interval_s = configured_query_interval_s(interface);
    interface.querier.response_ms = config.response_s * 1000;
}

uint32_t silence_ms(uint32_t robustness, uint32_t interval_s, uint32_t response_ms)
{
    return robustness * interval_s * 1000 + response_ms / 2;
}

// A query can say 7, 31744 s and 3174 s: nobody would notice for days that its sender is gone.
void cap_adopted_values(Interface &interface)
{
    const Config &config = interface.process->config;
    Querier &querier = interface.querier;
    const uint32_t own_ms =
        silence_ms(config.robustness, configured_query_interval_s(interface), config.response_s * 1000);
    const uint32_t most_ms = std::max(config.most_querier_silence_s * 1000, own_ms);

    querier.robustness =
        std::min(querier.robustness, std::max(config.most_querier_robustness, config.robustness));
    querier.response_ms =
        std::min(querier.response_ms, std::max(config.most_querier_response_s, config.response_s) * 1000);
    const uint32_t left_ms = most_ms > querier.response_ms / 2 ? most_ms - querier.response_ms / 2 : 0;

    querier.query_interval_s = std::clamp(left_ms / 1000 / querier.robustness, 1u, querier.query_interval_s);
}

// Whether the address is the first or last of a prefix on the link: network, broadcast, or the one that means
// any router of an IPv6 link.
bool is_no_router(const Interface &interface, const Address &sender)
{
    if (sender.family == MCAST_FAMILY_IPV6) {
        constexpr std::array<uint8_t, 8> NO_INTERFACE_ID{};

        return memcmp(sender.address + NO_INTERFACE_ID.size(), NO_INTERFACE_ID.data(),
                      NO_INTERFACE_ID.size()) == 0;
    }
    return std::any_of(interface.prefixes.begin(), interface.prefixes.end(), [&](const Prefix &prefix) {
        if (prefix.length > 30 || !prefix.covers(sender)) {
            return false;
        }
        uint32_t bytes;
        const uint32_t host_bits = UINT32_MAX >> prefix.length;

        memcpy(&bytes, sender.address, sizeof(bytes));
        return (ntohl(bytes) & host_bits) == 0 || (ntohl(bytes) & host_bits) == host_bits;
    });
}

bool is_permitted(const Interface &interface, const Address &sender)
{
    const PermittedQueriers &queriers = interface.process->config.queriers;
    const auto found = queriers.find(interface.name);
    return found == queriers.end() ||
           std::any_of(found->second.begin(), found->second.end(), [&](const Address &permitted) {
               return permitted.family == sender.family && same_address(permitted, sender);
           });
}

void general_due(void *owner);

void send_general(Interface &interface)
{
    Querier &querier = interface.querier;
    Query query;

    query.group = any_address(interface.process->config.family);
    query.max_response_ms = querier.response_ms;
    uint32_t interval_ms = querier.query_interval_s * 1000;

    if (querier.startup_left > 0) {
        --querier.startup_left;
    }
    if (querier.startup_left > 0) {
        interval_ms = std::max(interval_ms / STARTUP_DIVISOR, 1000u);
    }
    // First of all: without memory for this query there is a next one.
    timer_start_near(interface.process->timers, querier.general, interval_ms, general_due, &interface);
    querier_send(interface, query);
    trace(TraceCategory::Querier, interface, "next general query on %P in %u s", interface.index,
          interval_ms / 1000);
}

void general_due(void *owner)
{
    send_general(*static_cast<Interface *>(owner));
}

void become_querier(Interface &interface)
{
    interface.querier.elected = true;
    interface.querier.other = any_address(interface.process->config.family);
    adopt_own_values(interface);
    trace(TraceCategory::Querier, interface, "this router is the querier on %P", interface.index);
    interface.process->mrib->tell_querier(interface, true);
    send_general(interface);
}

void other_gone(void *owner)
{
    Interface &interface = *static_cast<Interface *>(owner);
    mcastd::log_info("%s: querier %s is gone, taking over", interface.name.c_str(),
                     to_text(interface.querier.other).c_str());
    doubt_memberships(interface);
    become_querier(interface);
}

void follow(Interface &interface, const Message &query)
{
    Querier &querier = interface.querier;

    doubt_memberships(interface);
    if (querier.elected) {
        querier.elected = false;
        querier.startup_left = 0;
        timer_stop(interface.process->timers, querier.general);
        interface.process->mrib->tell_querier(interface, false);
    }
    const bool is_new = !same_address(querier.other, query.sender);
    const uint32_t last_response_ms = querier.response_ms;

    if (is_new) {
        mcastd::log_warning("%s: querier is %s", interface.name.c_str(), to_text(query.sender).c_str());
        querier.other = query.sender;
    }
    adopt_own_values(interface);
    if (query.version == 3) {
        if (query.robustness != 0) {
            querier.robustness = query.robustness;
        }
        if (query.query_interval_s != 0) {
            querier.query_interval_s = query.query_interval_s;
        }
    }
    if (is_unspecified(query.group)) {
        querier.response_ms = query.max_response_ms;
    } else if (!is_new) {
        // A query about one group says nothing of the time that hosts have to answer a general one.
        querier.response_ms = last_response_ms;
    }
    cap_adopted_values(interface);
    const uint32_t present_ms = silence_ms(querier.robustness, querier.query_interval_s, querier.response_ms);

    timer_start(interface.process->timers, querier.other_present, present_ms, other_gone, &interface);
    trace(TraceCategory::Querier, interface, "%A is the querier on %P for %u s", &query.sender,
          interface.index, present_ms / 1000);
}

void warn_of_older_router(Interface &interface, const Message &query)
{
    ++interface.counters[Count::OlderQueries];
    if (interface.querier.warned.running()) {
        return;
    }
    mcastd::log_warning(
        "%s: %s asks with version %u, this router with version %u: if it is one of the "
        "link's routers, start all of them with --protocol-version %u",
        interface.name.c_str(), to_text(query.sender).c_str(), version_shown(interface, query.version),
        version_shown(interface, interface.process->config.version), version_shown(interface, query.version));
    timer_start(
        interface.process->timers, interface.querier.warned, OLDER_ROUTER_WARNING_MS, [](void *) {}, nullptr);
}

} // namespace

void querier_start(Interface &interface)
{
    interface.querier.startup_left = interface.process->config.robustness;
    become_querier(interface);
}

void querier_ask_again(Interface &interface)
{
    if (interface.running && interface.querier.elected) {
        interface.querier.startup_left = interface.process->config.robustness;
        send_general(interface);
    }
}

void querier_set_interval(Interface &interface, uint32_t seconds)
{
    interface.query_interval_s = seconds;
    if (interface.running && interface.querier.elected) {
        adopt_own_values(interface);
        send_general(interface);
    }
}

void querier_stop(Interface &interface)
{
    timer_stop(interface.process->timers, interface.querier.general);
    timer_stop(interface.process->timers, interface.querier.other_present);
    timer_stop(interface.process->timers, interface.pace.next);
    forget_own_question(interface);
    interface.querier.elected = false;
    interface.querier.startup_left = 0;
    interface.querier.other = any_address(interface.process->config.family);
}

Count querier_refused(const Interface &interface, const Address &sender)
{
    if (is_unspecified(sender)) {
        return Count::QueryNoSource;
    }
    if (is_no_router(interface, sender)) {
        return Count::QuerierAddress;
    }
    return is_permitted(interface, sender) ? NO_DROP : Count::QuerierNotPermitted;
}

void querier_heard(Interface &interface, const Message &query)
{
    if (query.version < interface.process->config.version) {
        warn_of_older_router(interface, query);
    }
    if (query.version == 1) {
        return;
    }
    if (compare_address(query.sender, interface.address) < 0) {
        follow(interface, query);
    } else {
        trace(TraceCategory::Querier, interface, "query of %A on %P: this router's address is lower",
              &query.sender, interface.index);
    }
    if (!query.suppress && !is_unspecified(query.group)) {
        lower_queried(interface.memberships, query);
        if (interface.users_union != nullptr) {
            interface.process->users->visit(interface,
                                            [&](Memberships &user) { lower_queried(user, query); });
        }
    }
}

void querier_send(Interface &interface, Query query)
{
    query.version = interface.process->config.version;
    query.robustness = interface.querier.robustness;
    query.query_interval_s = interface.querier.query_interval_s;
    if (is_unspecified(query.group)) {
        ++interface.counters[Count::SentGeneral];
    } else {
        ++interface.pace.sent;
        ++interface.counters[query.sources.empty() ? Count::SentGroup : Count::SentSources];
    }
    if (is_unspecified(query.group)) {
        trace(TraceCategory::Querier, interface, "general query of version %u on %P",
              version_shown(interface, query.version), interface.index);
    } else {
        trace(TraceCategory::Querier, interface, "query of version %u about %N on %P, %u sources%s",
              version_shown(interface, query.version), &query.group, interface.index,
              static_cast<uint32_t>(query.sources.size()), query.suppress ? ", suppressed" : "");
    }
    interface.process->queries->send_query(interface, query);
}

} // namespace gmpd
