/*
 * Memberships run out when hosts do not confirm them, and hosts confirm what they are asked about. Where another
 * router is the querier, or was until lately, this router cannot know whether they were: whoever wins the election
 * by a forged query may ask nobody, or ask so that hosts may answer in an hour. Then a receiver that is there would be
 * cut off.
 *
 * So nothing ends there that only ran out. This router asks the whole link, robustness times, and what nobody
 * confirms ends when the last answer could have come:
 *
 *      ran out ─► query ── response time ─► query ── response time, 1 s ─► end
 *                   └───────── confirmed: lives on ─────────┘
 *
 * What runs out while a round is under way waits for the next one, as it may have been confirmed after the first query
 * of this one. So a link has one round at a time, whatever runs out and however often: with the defaults two queries in
 * five seconds at most. A query from a higher address changes no election. Hosts get little time, so that no further
 * query of the other one comes between: some begin to wait anew with each.
 *
 * What a query about the group itself has shortened is not asked about again: that question was heard.
 */
#include "daemons/gmpd/own_question.h"

#include <algorithm>
#include <new>

#include "daemons/gmpd/process.h"
#include "daemons/gmpd/querier.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

constexpr uint32_t MOST_RESPONSE_S = 2;

// What could not be asked about for want of memory is looked at again after this.
constexpr uint32_t RETRY_S = 1;

uint32_t response_ms(const Interface &link)
{
    return std::min(link.process->config.response_s, MOST_RESPONSE_S) * 1000;
}

void ask_link(void *owner)
{
    Interface &link = *static_cast<Interface *>(owner);
    Query query;
    query.group = any_address(link.process->config.family);
    query.max_response_ms = response_ms(link);
    --link.own_question.left;
    if (link.own_question.left > 0) {
        timer_start_near(link.process->timers, link.own_question.next, query.max_response_ms, ask_link,
                         &link);
    }
    querier_send(link, query);
}

void begin_round(Interface &link)
{
    const uint32_t robustness = link.process->config.robustness;
    OwnQuestion &question = link.own_question;
    trace(TraceCategory::Querier, link, "memberships on %P ran out: hosts are asked before they end",
          link.index);
    timer_stop(link.process->timers, question.next);
    question.left = robustness;
    ask_link(&link);
    question.began_s = mcastd::boot_time_s();
    question.end_s = mcastd::timer_end_s(robustness * response_ms(link) + 1000);
}

} // namespace

std::optional<PutOff> ask_before_end(Interface &link)
{
    const uint32_t now_s = mcastd::boot_time_s();
    OwnQuestion &question = link.own_question;
    if (link.querier.elected && now_s >= question.doubtful_until_s) {
        return std::nullopt;
    }
    if (now_s >= question.end_s) {
        try {
            begin_round(link);
        } catch (const std::bad_alloc &) {
            return PutOff{now_s + RETRY_S, false};
        }
    }
    return PutOff{question.end_s, question.began_s == now_s};
}

void doubt_memberships(Interface &link)
{
    uint32_t &until_s = link.own_question.doubtful_until_s;
    until_s = std::max(until_s, mcastd::timer_end_s(membership_interval_ms(link)) + 1);
}

void forget_own_question(Interface &link)
{
    timer_stop(link.process->timers, link.own_question.next);
    link.own_question = OwnQuestion();
}

} // namespace gmpd
