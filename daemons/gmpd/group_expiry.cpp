/*
 * A source has no timer of its own but a second at which it ends; one timer of the group ends no later than the
 * first of them. When it ends, one walk finds what is due, however many sources that are, and what the group's
 * change costs is paid once. A report that confirms sources moves their ends alone: the timer then ends early,
 * finds nothing due and is set again, once a membership interval.
 */
#include "daemons/gmpd/group_expiry.h"

#include <new>
#include <optional>

#include "daemons/gmpd/group_query.h"
#include "daemons/gmpd/own_question.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

// What waits to be asked about once more is looked at again after this.
constexpr uint32_t PUT_OFF_MS = 1000;

// Until when, in seconds since boot, something lives on that nobody has confirmed in time; asked is its own.
std::optional<uint32_t> put_off(const GroupState &group, bool &asked)
{
    if (asked) {
        return std::nullopt;
    }
    const std::optional<PutOff> later = ask_before_end(link_of(group));
    if (!later) {
        return std::nullopt;
    }
    asked = later->asked;
    return later->end_s;
}

// Puts the end of a source off whose time is over while hosts may still say that they want it. False when it ends now.
bool lives_on(SourceState &source)
{
    if (asking(*source.group) && source.queries_left > 0) {
        source.timer.start(PUT_OFF_MS);
    } else if (const auto later = put_off(*source.group, source.asked)) {
        source.timer.start_at(*later);
    }
    return !source.timer.is_due();
}

void group_expired(void *owner);

// The same of the group.
bool lives_on(GroupState &group)
{
    if (asking(group) && group.queries_left > 0) {
        timer_start(timers_of(group), group.timer, PUT_OFF_MS, group_expired, &group);
    } else if (const auto later = put_off(group, group.asked)) {
        timer_start_at(timers_of(group), group.timer, *later, group_expired, &group);
    }
    return group.timer.running();
}

void group_expired(void *owner)
{
    GroupState &group = *static_cast<GroupState *>(owner);
    if (lives_on(group)) {
        // A source that ended in this very second has left it to this handler.
        settle_group(group);
        return;
    }
    trace(TraceCategory::Group, link_of(group), "%N on %P: nobody wants any source any more",
          group.entry->address, group.memberships->shown_index());
    // Sources that end in this very second do not outlive the group for an instant.
    for_each_source(group, [](SourceState &source) {
        if (source.timer.is_due() && !lives_on(source)) {
            source.timer.stop();
        }
    });
    group_include(group);
    settle_group(group);
}

void sources_due(void *owner)
{
    GroupState &group = *static_cast<GroupState *>(owner);
    SourceState *next = nullptr;
    for_each_source(group, [&](SourceState &source) {
        if (source.timer.is_due() && !lives_on(source)) {
            trace(TraceCategory::Group, link_of(group), "(%M, %N) on %P: nobody wants it any more",
                  source.entry->address, group.entry->address, group.memberships->shown_index());
            source.timer.stop();
            group.dirty = true;
        } else if (source.timer.running() &&
                   (next == nullptr || source.timer.end_s() < next->timer.end_s())) {
            next = &source;
        }
    });
    if (next != nullptr) {
        watch_end(*next);
    }
    // When the group ends in this very second, its own handler settles both.
    if (!timer_is_due(group.timer)) {
        settle_group(group);
    }
}

} // namespace

void start_group_timer(GroupState &group, uint32_t timeout_ms)
{
    timer_start(timers_of(group), group.timer, timeout_ms, group_expired, &group);
}

void watch_end(SourceState &source)
{
    GroupState &group = *source.group;
    const uint32_t end_s = source.timer.end_s();
    if (group.sources_timer.running() && end_s >= group.sources_timer.node->expiry) {
        return;
    }
    try {
        timer_start_at(timers_of(group), group.sources_timer, end_s, sources_due, &group);
    } catch (const std::bad_alloc &) {
        source.timer.stop();
        throw;
    }
}

} // namespace gmpd
