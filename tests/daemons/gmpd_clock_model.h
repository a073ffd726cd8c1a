/*
 * What the memberships of one link are by the rules of RFC 3376 and RFC 3810 alone, for hosts that join
 * either any source of a group or single sources of it. There are no timers here: every membership has a
 * moment at which it ends, and what the router says is compared with these moments as it comes.
 *
 * Moments are milliseconds since boot. What ends does so with the first whole second that is not too early.
 */
#ifndef TESTS_DAEMONS_GMPD_CLOCK_MODEL_H
#define TESTS_DAEMONS_GMPD_CLOCK_MODEL_H

#include <algorithm>
#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace gmpd_test
{

using Moment = uint64_t;

// A group and a source of it by their numbers; source 0 is any source.
struct Membership {
    unsigned group = 0;
    unsigned source = 0;

    auto operator<=>(const Membership &) const = default;
};

// The times that a querier gives.
struct Times {
    Moment query_interval = 0;
    Moment response = 0;
};

class ClockModel
{
public:
    static constexpr Moment ROBUSTNESS = 2;
    static constexpr Moment LAST_MEMBER_INTERVAL = 1000;
    static constexpr Moment ROUND_RESPONSE = 2000;
    static constexpr Times OWN = {125000, 10000};

    static Moment first_second_from(Moment moment)
    {
        return (moment + 999) / 1000 * 1000;
    }
    static Moment nearest_second(Moment moment)
    {
        return (moment + 500) / 1000 * 1000;
    }

    // The router begins to ask.
    void start(Moment now)
    {
        general_due_ = now;
        startup_left_ = ROBUSTNESS;
    }

    // A host's report; version is that of IGMP, MLD's being one less.
    void report(Moment now, const Membership &membership, unsigned version)
    {
        ends_[membership] = first_second_from(now + interval());
        asked_.erase(membership);
        if (version < 3) {
            older_until_[{membership.group, version}] = ends_[membership];
        }
    }

    void leave(Moment now, const Membership &membership)
    {
        if (!elected_ || older_until_.contains({membership.group, 1})) {
            return;
        }
        const Moment soonest = first_second_from(now + ROBUSTNESS * LAST_MEMBER_INTERVAL);
        const auto found = ends_.find(membership);

        if (found != ends_.end() && found->second > soonest) {
            found->second = soonest;
            asked_.insert(membership);
            first_question_[membership] = now;
        }
    }

    // Another router's query, with its times; group 0 is all groups.
    void other_query(Moment now, const Times &times, unsigned group, const std::vector<unsigned> &sources)
    {
        elected_ = false;
        doubt(now);
        times_ = times;
        first_question_.clear();
        second_question_.clear();
        other_until_ = first_second_from(now + ROBUSTNESS * times.query_interval + times.response / 2);
        for (const Membership &one : named(group, sources)) {
            const auto found = ends_.find(one);

            const Moment soonest = first_second_from(now + ROBUSTNESS * LAST_MEMBER_INTERVAL);

            if (group != 0 && found != ends_.end() && found->second > soonest) {
                found->second = soonest;
                asked_.insert(one);
            }
        }
    }

    // A query of the router under test.
    void own_query(Moment now, unsigned group, const std::vector<unsigned> &sources, bool suppress)
    {
        if (group == 0 && now == round_due_) {
            round_due_ = now == round_began_ ? now + ROUND_RESPONSE : 0;
            return;
        }
        note(elected_, "asks though another router is the querier");
        if (group == 0) {
            own_general(now);
            return;
        }
        for (const Membership &one : named(group, sources)) {
            own_question(now, one, suppress);
        }
    }

    // A second begins: what ends with it.
    void second(Moment now)
    {
        if (!elected_ && now >= other_until_) {
            elected_ = true;
            doubt(now);
            times_ = OWN;
            general_due_ = now;
        }
        for (auto &[membership, end] : ends_) {
            if (end <= now) {
                put_off(now, membership, end);
            }
        }
        std::erase_if(ends_, [now](const auto &one) { return one.second <= now; });
        std::erase_if(asked_, [&](const Membership &one) { return !ends_.contains(one); });
        std::erase_if(older_until_, [&](const auto &one) {
            return one.second <= now || !ends_.contains({one.first.first, 0});
        });
        std::erase_if(second_question_, [&](const auto &one) { return !ends_.contains(one.first); });
    }

    // All that was due in the second is done.
    void second_done(Moment now)
    {
        note(!elected_ || general_due_ > now, "a general query is missing");
        note(round_due_ == 0 || round_due_ > now, "memberships that ran out were not asked about");
        note(first_question_.empty(), "a leave did not make the router ask");
        for (const auto &[membership, due] : second_question_) {
            note(due > now, "a question was not repeated");
        }
    }

    std::set<Membership> memberships() const
    {
        std::set<Membership> held;
        for (const auto &[membership, end] : ends_) {
            held.insert(membership);
        }
        return held;
    }

    // Memberships with their ends, and until when a group has hosts of an older version.
    const std::map<Membership, Moment> &ends() const
    {
        return ends_;
    }
    Moment older_until(unsigned group, unsigned version) const
    {
        const auto found = older_until_.find({group, version});
        return found != older_until_.end() ? found->second : 0;
    }
    bool elected() const
    {
        return elected_;
    }

    // The first thing ever that was wrong, or an empty text.
    const std::string &fault() const
    {
        return fault_;
    }
    void note(bool good, const std::string &fault)
    {
        if (!good && fault_.empty()) {
            fault_ = fault;
        }
    }

private:
    static std::vector<Membership> named(unsigned group, const std::vector<unsigned> &sources)
    {
        std::vector<Membership> all;
        for (unsigned source : sources) {
            all.push_back({group, source});
        }
        return sources.empty() ? std::vector<Membership>{{group, 0}} : all;
    }
    Moment interval() const
    {
        return ROBUSTNESS * times_.query_interval + times_.response;
    }
    // Another router has been the querier: what it let run out by itself is asked about.
    void doubt(Moment now)
    {
        doubtful_until_ = std::max(doubtful_until_, first_second_from(now + interval()) + 1000);
    }
    // What nobody confirmed lives until a round of general queries is over.
    void put_off(Moment now, const Membership &membership, Moment &end)
    {
        if (asked_.contains(membership) || (elected_ && now >= doubtful_until_)) {
            return;
        }
        if (now >= round_end_) {
            round_began_ = round_due_ = now;
            round_end_ = now + ROBUSTNESS * ROUND_RESPONSE + 1000;
        }
        end = round_end_;
        if (now == round_began_) {
            asked_.insert(membership);
        }
    }
    void own_general(Moment now)
    {
        note(now == general_due_, "a general query at another time than expected");
        startup_left_ -= startup_left_ > 0;
        general_due_ = nearest_second(now + OWN.query_interval / (startup_left_ > 0 ? 4 : 1));
    }
    // The first question about a membership leaves at once, the second an interval later. Each allows for an
    // answer, unless somebody has confirmed the membership meanwhile.
    void own_question(Moment now, const Membership &membership, bool suppress)
    {
        const auto found = ends_.find(membership);
        note(found != ends_.end(), "asks about what nobody wants");
        if (found == ends_.end()) {
            return;
        }
        note(suppress == (found->second > first_second_from(now + ROBUSTNESS * LAST_MEMBER_INTERVAL)),
             "the S flag is wrong");
        if (first_question_.erase(membership) == 1) {
            second_question_[membership] = nearest_second(now + LAST_MEMBER_INTERVAL);
        } else {
            note(second_question_.erase(membership) == 1, "asks once too often");
        }
        if (!suppress) {
            found->second = std::max(found->second, first_second_from(now + LAST_MEMBER_INTERVAL));
        }
    }

    std::map<Membership, Moment> ends_;
    std::map<std::pair<unsigned, unsigned>, Moment> older_until_; // by group and version
    std::map<Membership, Moment> first_question_;                 // to be asked in this very moment
    std::map<Membership, Moment> second_question_;                // to be repeated then
    Times times_ = OWN;
    bool elected_ = true;
    Moment other_until_ = 0;
    Moment doubtful_until_ = 0;
    std::set<Membership> asked_; // since they were confirmed last
    Moment round_began_ = 0;     // general queries before what ran out ends
    Moment round_due_ = 0;
    Moment round_end_ = 0;
    Moment general_due_ = 0;
    Moment startup_left_ = 0;
    std::string fault_;
};

} // namespace gmpd_test

#endif
