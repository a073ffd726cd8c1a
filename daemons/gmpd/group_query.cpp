/*
 * A question is asked robustness times, one interval apart, and what was asked about ends when the last
 * answer could have come. Timers know whole seconds only: a repetition that leaves late puts the end off, so
 * that hosts always have the full time to answer the last question.
 *
 * What has been confirmed in the meantime is asked about with the S flag, which tells other routers not to
 * shorten anything.
 */
#include "daemons/gmpd/group_query.h"

#include <algorithm>

#include "daemons/gmpd/process.h"
#include "daemons/gmpd/querier.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

// What one round asks.
struct Round {
    bool about_group = false;
    std::vector<Address> doubtful;  // sources that nobody has confirmed yet
    std::vector<Address> confirmed; // sources confirmed since the first round
};

MCAST_TMR_S *timers_of(const GroupState &group)
{
    return group.memberships->link.process->timers;
}

void send_about_group(GroupState &group)
{
    Interface &interface = group.memberships->link;
    Query query;
    query.group = *group.entry->address;
    query.max_response_ms = last_member_interval_ms(interface);
    query.suppress = timer_beyond(group.timer, last_member_time_ms(interface));
    if (!query.suppress) {
        timer_raise(interface.process->timers, group.timer, last_member_interval_ms(interface));
    }
    querier_send(interface, query);
}

// Sends the sources in as many messages as the link's MTU asks for.
void send_about_sources(GroupState &group, std::span<const Address> sources, bool suppress)
{
    Interface &interface = group.memberships->link;
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

void send_round(GroupState &group, const Round &round)
{
    if (round.about_group) {
        send_about_group(group);
    } else {
        // A question about the whole group covers what is confirmed.
        send_about_sources(group, round.confirmed, true);
    }
    send_about_sources(group, round.doubtful, false);
}

void repeat(void *owner);

void repeat_later(GroupState &group)
{
    timer_start_near(timers_of(group), group.retransmit, last_member_interval_ms(group.memberships->link),
                     repeat, &group);
}

// Another router asks now: what this router was to ask once more is dropped.
void forget_questions(GroupState &group)
{
    group.queries_left = 0;
    for_each_source(group, [](SourceState &source) { source.queries_left = 0; });
}

void repeat(void *owner)
{
    GroupState &group = *static_cast<GroupState *>(owner);
    const uint32_t answer_ms = last_member_interval_ms(group.memberships->link);
    const uint32_t time_ms = last_member_time_ms(group.memberships->link);
    Round round;
    bool more = false;
    if (!group.memberships->link.querier.elected) {
        forget_questions(group);
        return;
    }
    for_each_source(group, [&](SourceState &source) {
        if (source.queries_left == 0 || !source.timer.running()) {
            return;
        }
        more = --source.queries_left > 0 || more;
        if (timer_beyond(source.timer, time_ms)) {
            round.confirmed.push_back(*source.entry->address);
        } else {
            timer_raise(timers_of(group), source.timer, answer_ms);
            round.doubtful.push_back(*source.entry->address);
        }
    });
    if (group.queries_left > 0) {
        round.about_group = true;
        more = --group.queries_left > 0 || more;
    }
    send_round(group, round);
    if (more) {
        repeat_later(group);
    }
    // A source that ended in this second has left it to the group's timer, which may just have been put off.
    settle_group(group);
}

// The leave is believed at once: what was to be asked about ends.
void end_at_once(GroupState &group, const std::vector<SourceState *> &sources, bool about_group)
{
    for (SourceState *source : sources) {
        source_unwanted(*source);
    }
    if (about_group) {
        group_include(group);
    }
}

} // namespace

void ask(GroupState &group, const std::vector<SourceState *> &sources, bool about_group)
{
    const Interface &interface = group.memberships->link;
    const uint32_t time_ms = last_member_time_ms(interface);
    const uint32_t repetitions = interface.querier.robustness - 1;
    Round round;
    if (interface.process->config.immediate_leave) {
        trace(TraceCategory::Group, interface, "%N on %P: the leave is believed at once",
              group.entry->address, group.memberships->shown_index());
        end_at_once(group, sources, about_group);
        return;
    }
    if (!interface.querier.elected) {
        return;
    }
    // What ends within that time anyway has been asked about already, or is about to be forgotten.
    for (SourceState *source : sources) {
        if (timer_beyond(source->timer, time_ms)) {
            timer_lower(timers_of(group), source->timer, time_ms);
            source->queries_left = repetitions;
            round.doubtful.push_back(*source->entry->address);
        }
    }
    if (about_group && timer_beyond(group.timer, time_ms)) {
        timer_lower(timers_of(group), group.timer, time_ms);
        group.queries_left = repetitions;
        round.about_group = true;
    }
    if (!round.about_group && round.doubtful.empty()) {
        return;
    }
    trace(TraceCategory::Group, interface, "%N on %P: %s and %u sources end in %u s unless somebody answers",
          group.entry->address, group.memberships->shown_index(),
          round.about_group ? "the group" : "no group", static_cast<uint32_t>(round.doubtful.size()),
          time_ms / 1000);
    send_round(group, round);
    if (repetitions > 0 && !group.retransmit.running()) {
        repeat_later(group);
    }
}

void lower_queried(Memberships &memberships, const Message &query)
{
    const Interface &interface = memberships.link;
    GroupState *group = find_group(memberships, query.group);

    if (group == nullptr) {
        return;
    }
    const uint32_t timeout_ms = query.max_response_ms * interface.querier.robustness;

    trace(TraceCategory::Group, interface, "%N on %P: %A asks, what it asks about ends in %u s at most",
          &query.group, memberships.shown_index(), &query.sender, timeout_ms / 1000);
    if (query.sources.count() == 0) {
        timer_lower(interface.process->timers, group->timer, timeout_ms);
        return;
    }
    for (size_t i = 0; i < query.sources.count(); ++i) {
        SourceState *source = find_source(*group, query.sources.at(i));

        if (source != nullptr) {
            timer_lower(interface.process->timers, source->timer, timeout_ms);
        }
    }
}

} // namespace gmpd
