/*
 * A source has no timer of its own but a second at which it ends; one timer of the group ends no later than the
 * first of them. When it ends, one walk finds what is due, however many sources that are, and what the group's
 * change costs is paid once. A report that confirms sources moves their ends alone: the timer then ends early,
 * finds nothing due and is set again, once a membership interval.
 *
 * A group whose timer could not be set again for want of memory lives on without one, until resume_ends finds it.
 */
#include "daemons/gmpd/group_expiry.h"

#include <new>
#include <optional>

#include "daemons/common/memory.h"
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

// Until when something lives on that nobody has confirmed in time; asked is its own.
std::optional<PutOff> put_off(const GroupState &group, bool asked)
{
    return asked ? std::nullopt : ask_before_end(link_of(group));
}

// Puts the end of a source off whose time is over while hosts may still say that they want it. False when it ends now.
bool lives_on(SourceState &source)
{
    if (asking(*source.group) && source.queries_left > 0) {
        source.timer.start(PUT_OFF_MS);
    } else if (const auto later = put_off(*source.group, source.asked)) {
        source.timer.start_at(later->end_s);
        source.asked = later->asked;
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
        timer_start_at(timers_of(group), group.timer, later->end_s, group_expired, &group);
        group.asked = later->asked; // only now, should there have been no memory for the timer
    }
    return group.timer.running();
}

// Does the work; what it leaves for want of memory is taken up by resume_ends.
template <typename Work> void end_or_resume(Interface &link, const Work &work)
{
    try {
        work();
    } catch (const std::bad_alloc &) {
        link.ends_missed = true;
        throw;
    }
}

void end_group(GroupState &group)
{
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

void group_expired(void *owner)
{
    GroupState &group = *static_cast<GroupState *>(owner);
    end_or_resume(link_of(group), [&group] { end_group(group); });
}

void sources_due(void *owner);

void start_sources_timer(GroupState &group, uint32_t end_s)
{
    timer_start_at(timers_of(group), group.sources_timer, end_s, sources_due, &group);
}

void end_sources(GroupState &group)
{
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
        start_sources_timer(group, next->timer.end_s());
    }
    // When the group ends in this very second, its own handler settles both.
    if (!timer_is_due(group.timer)) {
        settle_group(group);
    }
}

void sources_due(void *owner)
{
    GroupState &group = *static_cast<GroupState *>(owner);
    end_or_resume(link_of(group), [&group] { end_sources(group); });
}

void resume_ends(const Memberships &memberships)
{
    const uint32_t now_s = mcastd::boot_time_s();
    for_each_group(memberships, [now_s](GroupState &group) {
        if (group.exclude && !group.timer.running()) {
            timer_start_at(timers_of(group), group.timer, now_s, group_expired, &group);
        }
        if (!group.sources_timer.running() && MRT_CountTable(group.entry->sources) != 0) {
            start_sources_timer(group, now_s); // it finds what is due, and is set to the next
        }
        settle_group(group);
    });
}

} // namespace

void resume_ends(Interface &link)
{
    if (!link.ends_missed || mcastd::memory_is_short()) {
        return;
    }
    link.ends_missed = false;
    try {
        resume_ends(link.memberships);
        if (link.process->users != nullptr) {
            link.process->users->visit(link, [](Memberships &user) { resume_ends(user); });
        }
    } catch (const std::bad_alloc &) {
        link.ends_missed = true;
    }
}

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
        start_sources_timer(group, end_s);
    } catch (const std::bad_alloc &) {
        source.timer.stop();
        throw;
    }
}

} // namespace gmpd
