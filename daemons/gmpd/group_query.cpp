/*
 * A question is asked robustness times, one interval apart, and what was asked about ends when the last
 * answer could have come. Because timers are late by up to a second or two, a repetition that leaves late
 * puts the end off: hosts always have the full time to answer the last question.
 *
 * What has been confirmed in the meantime is asked about with the S flag, which tells other routers not to
 * shorten anything.
 */
#include "daemons/gmpd/group_query.h"

#include <algorithm>

#include "daemons/gmpd/querier.h"

namespace gmpd
{

namespace
{

void send_queries(GroupState &group);

void retransmit_due(void *owner)
{
    GroupState &group = *static_cast<GroupState *>(owner);

    if (group.interface->querier.elected) {
        send_queries(group);
    }
}

// Sends one question about the group when one is left.
void send_group_query(GroupState &group)
{
    Interface &interface = *group.interface;
    Query query;

    query.group = *group.entry->address;
    query.max_response_ms = last_member_interval_ms(interface);
    query.suppress = timer_beyond(group.timer, last_member_time_ms(interface));
    if (!query.suppress) {
        timer_raise(interface.router->timers, group.timer, last_member_interval_ms(interface));
    }
    querier_send(interface, query);
}

// Sends the sources in as many messages as the link's MTU asks for.
void send_source_query(GroupState &group, std::span<const Address> sources, bool suppress)
{
    Interface &interface = *group.interface;
    const size_t room = sources_per_query(group.entry->address->family, interface.mtu);
    Query query;

    query.group = *group.entry->address;
    query.max_response_ms = last_member_interval_ms(interface);
    query.suppress = suppress;
    while (!sources.empty()) {
        query.sources = sources.first(std::min(room, sources.size()));
        sources = sources.subspan(query.sources.size());
        querier_send(interface, query);
    }
}

// Sends what is left to ask about the group and its sources, and sees to the next round.
void send_queries(GroupState &group)
{
    Interface &interface = *group.interface;
    const bool group_asked = group.queries_left > 0;
    bool more = false;
    std::vector<Address> confirmed;
    std::vector<Address> doubtful;

    for_each_source(group, [&](SourceState &source) {
        if (source.queries_left == 0 || source.doomed || !source.timer.running()) {
            return;
        }
        more = --source.queries_left > 0 || more;
        if (timer_beyond(source.timer, last_member_time_ms(interface))) {
            confirmed.push_back(*source.entry->address);
        } else {
            timer_raise(interface.router->timers, source.timer, last_member_interval_ms(interface));
            doubtful.push_back(*source.entry->address);
        }
    });
    if (group_asked) {
        more = --group.queries_left > 0 || more;
        send_group_query(group);
    } else {
        // A question about the whole group covers the confirmed sources.
        send_source_query(group, confirmed, true);
    }
    send_source_query(group, doubtful, false);
    if (more) {
        timer_start(interface.router->timers, group.retransmit, last_member_interval_ms(interface),
                    retransmit_due, &group);
    } else {
        timer_stop(interface.router->timers, group.retransmit);
    }
}

} // namespace

void query_group(GroupState &group)
{
    Interface &interface = *group.interface;

    if (interface.router->config.immediate_leave) {
        group_include(group);
        return;
    }
    // A group that ends within that time anyway has been asked about, or is about to be forgotten.
    if (!interface.querier.elected || !timer_beyond(group.timer, last_member_time_ms(interface))) {
        return;
    }
    timer_lower(interface.router->timers, group.timer, last_member_time_ms(interface));
    group.queries_left = interface.querier.robustness;
    send_queries(group);
}

void query_sources(GroupState &group, const std::vector<SourceState *> &sources)
{
    Interface &interface = *group.interface;
    bool any = false;

    for (SourceState *source : sources) {
        if (interface.router->config.immediate_leave) {
            source_unwanted(*source);
            continue;
        }
        if (!interface.querier.elected) {
            continue;
        }
        if (timer_beyond(source->timer, last_member_time_ms(interface))) {
            timer_lower(interface.router->timers, source->timer, last_member_time_ms(interface));
            source->queries_left = interface.querier.robustness;
            any = true;
        }
    }
    if (any) {
        send_queries(group);
    }
}

void lower_queried(Interface &interface, const Message &query)
{
    GroupState *group = find_group(interface, query.group);

    if (group == nullptr) {
        return;
    }
    const uint32_t timeout_ms = query.max_response_ms * interface.querier.robustness;

    if (query.sources.count() == 0) {
        timer_lower(interface.router->timers, group->timer, timeout_ms);
        return;
    }
    for (size_t i = 0; i < query.sources.count(); ++i) {
        SourceState *source = find_source(*group, query.sources.at(i));

        if (source != nullptr) {
            timer_lower(interface.router->timers, source->timer, timeout_ms);
        }
    }
}

} // namespace gmpd
