/*
 * A question is asked robustness times, one interval apart, and what was asked about ends when the last
 * answer could have come. Timers know whole seconds only: a repetition that leaves late puts the end off, so
 * that hosts always have the full time to answer the last question.
 *
 * What has been confirmed in the meantime is asked about with the S flag, which tells other routers not to
 * shorten anything.
 *
 *      leave ─► doubted ─► queue of the link ─► turn: ends are shortened, first query ─┐
 *                              ▲                                                       │ one interval later
 *                              └──────────────────── repeats ◄─────────────────────────┘
 *
 * A host can leave thousands of groups with one packet, and each costs the link a query or two, which every host
 * reads. So groups wait in a queue, and a link has so many queries a second. Nothing ends meanwhile: ends are
 * shortened when the question is asked, and put off while its repetition waits (asking). What is confirmed
 * before its turn is not asked about.
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
    bool more = false;              // a further round is to follow
};

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

void wait_for_turn(GroupState &group)
{
    if (!group.waits()) {
        group.waits_since_s = mcastd::boot_time_s();
        group.memberships->link.pace.waiting.push_back(group);
    }
}

void next_second(void *owner)
{
    ask_waiting(*static_cast<Interface *>(owner));
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

void repeat_due(void *owner)
{
    GroupState &group = *static_cast<GroupState *>(owner);
    group.repeats = true;
    wait_for_turn(group);
    ask_waiting(group.memberships->link);
}

// The first query about a source, or a further one.
void ask_about(SourceState &source, Round &round)
{
    const Interface &link = source.group->memberships->link;
    const uint32_t time_ms = last_member_time_ms(link);
    if (source.doubted) {
        source.doubted = false;
        source.queries_left = static_cast<uint8_t>(link.querier.robustness - 1);
        source_lower(source, time_ms);
        round.doubtful.push_back(*source.entry->address);
    } else if (source.group->repeats && source.queries_left > 0 && source.timer.running()) {
        --source.queries_left;
        if (source.timer.is_beyond(time_ms)) {
            round.confirmed.push_back(*source.entry->address);
        } else {
            source_raise(source, last_member_interval_ms(link));
            round.doubtful.push_back(*source.entry->address);
        }
    }
    round.more = round.more || source.queries_left > 0;
}

void ask_about(GroupState &group, Round &round)
{
    const Interface &link = group.memberships->link;
    if (group.doubted) {
        group_lower(group, last_member_time_ms(link));
        group.queries_left = static_cast<uint8_t>(link.querier.robustness - 1);
        round.about_group = true;
    } else if (group.repeats && group.queries_left > 0) {
        --group.queries_left;
        round.about_group = true;
    }
    group.doubted = false;
    round.more = round.more || group.queries_left > 0;
}

// The group's turn: what is in doubt is asked about for the first time, what was asked about once more. Without
// memory it throws before anything is asked, and the group still waits.
void take_turn(GroupState &group)
{
    Round round;
    round.doubtful.reserve(MRT_CountTable(group.entry->sources));
    round.confirmed.reserve(MRT_CountTable(group.entry->sources));
    leave_queue(group);
    for_each_source(group, [&](SourceState &source) { ask_about(source, round); });
    ask_about(group, round);
    group.repeats = false;
    send_round(group, round);
    if (round.more && !group.retransmit.running()) {
        timer_start_near(timers_of(group), group.retransmit, last_member_interval_ms(group.memberships->link),
                         repeat_due, &group);
    }
    // A source that ended in this second has left it to the group's timer, which may just have been put off.
    settle_group(group);
}

// The most queries that the group's turn can take.
uint32_t most_queries(const GroupState &group)
{
    const size_t room = sources_per_query(group.entry->address->family, group.memberships->link.mtu);
    size_t sources = 0;

    for_each_source(group, [&](const SourceState &source) {
        sources += source.doubted || (group.repeats && source.queries_left > 0) ? 1 : 0;
    });
    // Confirmed and doubtful ones go in messages of their own.
    const size_t messages = (sources + room - 1) / room + (group.repeats && sources > 1 ? 1 : 0);

    return static_cast<uint32_t>(messages) + (group.doubted || group.queries_left > 0 ? 1 : 0);
}

// Whether this second has room for the turn. One that needs more than a whole second has gets a second alone.
bool has_room(QueryPace &pace, uint32_t limit, const GroupState &group)
{
    const uint32_t now_s = mcastd::boot_time_s();
    if (pace.second != now_s) {
        pace.second = now_s;
        pace.sent = 0;
    }
    if (pace.sent == 0 || (pace.sent < limit && pace.sent + most_queries(group) <= limit)) {
        return true;
    }
    pace.sent = std::max(pace.sent, limit);
    return false;
}

// Another router asks now: what this router was to ask is dropped.
void forget_questions(GroupState &group)
{
    group.doubted = false;
    group.repeats = false;
    group.queries_left = 0;
    for_each_source(group, [](SourceState &source) {
        source.doubted = false;
        source.queries_left = 0;
    });
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
    uint32_t doubted = 0;
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
        if (source->timer.is_beyond(time_ms)) {
            source->doubted = true;
            ++doubted;
        }
    }
    group.doubted = group.doubted || (about_group && timer_beyond(group.timer, time_ms));
    if (!group.doubted && doubted == 0) {
        return;
    }
    trace(TraceCategory::Group, interface, "%N on %P: %s and %u sources end in %u s unless somebody answers",
          group.entry->address, group.memberships->shown_index(), group.doubted ? "the group" : "no group",
          doubted, time_ms / 1000);
    wait_for_turn(group);
}

void ask_waiting(Interface &link)
{
    QueryPace &pace = link.pace;

    while (!pace.waiting.empty()) {
        GroupState &group = static_cast<GroupState &>(pace.waiting.front());

        if (!link.querier.elected) {
            leave_queue(group);
            forget_questions(group);
        } else if (has_room(pace, link.process->config.group_queries_per_s, group)) {
            link.counters[Count::DelayedQueries] += group.waits_since_s != mcastd::boot_time_s() ? 1 : 0;
            take_turn(group);
        } else {
            timer_start(link.process->timers, pace.next, 1, next_second, &link);
            return;
        }
    }
}

void leave_queue(GroupState &group)
{
    if (group.waits()) {
        auto &waiting = group.memberships->link.pace.waiting;
        waiting.erase(waiting.iterator_to(group));
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
        group_lower(*group, timeout_ms);
        return;
    }
    for (size_t i = 0; i < query.sources.count(); ++i) {
        SourceState *source = find_source(*group, query.sources.at(i));

        if (source != nullptr) {
            source_lower(*source, timeout_ms);
        }
    }
}

} // namespace gmpd
