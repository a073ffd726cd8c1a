/*
 * The sets of RFC 7761 (section 4.1) interface by interface, each condition written out as the RFC does, to hold the daemon's
 * words of bits against.
 */
#ifndef TESTS_DAEMONS_PIMSMD_NAIVE_SETS_H
#define TESTS_DAEMONS_PIMSMD_NAIVE_SETS_H

#include <optional>
#include <set>
#include <vector>

#include "daemons/pimsmd/olist.h"

namespace pimsmd_test
{

using Set = std::set<int>;

enum class Winner { Nobody, Me, Other };
enum class Downstream { NoInfo, Join, PrunePending };
enum class Rpt { NoInfo, Prune, PrunePending, PruneTmp, PrunePendingTmp };

// What is so on one interface.
struct Interface {
    bool dr = false;
    bool wants_star = false;
    bool wants_source = false;
    bool excludes_source = false;
    Downstream star = Downstream::NoInfo;
    Downstream source = Downstream::NoInfo;
    Rpt rpt = Rpt::NoInfo;
    Winner star_winner = Winner::Nobody;
    Winner source_winner = Winner::Nobody;
    bool winner_better = false; // than spt_assert_metric(S,I)
};

struct Model {
    std::vector<Interface> on = std::vector<Interface>(pimsmd::MOST_LINKS);
    std::optional<int> rpf_rp;
    std::optional<int> rpf_source;
    bool spt_bit = false;
    bool keepalive = false;
    bool connected = false;

    int count() const
    {
        return static_cast<int>(on.size());
    }
    const Interface &at(int i) const
    {
        return on[static_cast<size_t>(i)];
    }
    template <typename Holds> Set all(Holds holds) const
    {
        Set set;
        for (int i = 0; i < count(); ++i) {
            if (holds(i)) {
                set.insert(i);
            }
        }
        return set;
    }

    bool lost_star(int i) const
    {
        return rpf_rp != i && at(i).star_winner == Winner::Other;
    }
    bool lost_source(int i) const
    {
        return rpf_source != i && at(i).source_winner == Winner::Other && at(i).winner_better;
    }
    bool lost_rpt(int i) const
    {
        if (rpf_rp == i || (rpf_source == i && spt_bit)) {
            return false;
        }
        return at(i).source_winner == Winner::Other;
    }
    bool forwards_star(int i) const
    {
        return (at(i).dr && !lost_star(i)) || at(i).star_winner == Winner::Me;
    }

    Set joins_star() const
    {
        return all([&](int i) { return at(i).star != Downstream::NoInfo; });
    }
    Set joins_source() const
    {
        return all([&](int i) { return at(i).source != Downstream::NoInfo; });
    }
    Set prunes() const
    {
        return all([&](int i) { return at(i).rpt == Rpt::Prune || at(i).rpt == Rpt::PruneTmp; });
    }
    Set include_star() const
    {
        return all([&](int i) { return forwards_star(i) && at(i).wants_star; });
    }
    Set include_source() const
    {
        return all([&](int i) {
            return ((at(i).dr && !lost_source(i)) || at(i).source_winner == Winner::Me) && at(i).wants_source;
        });
    }
    Set exclude() const
    {
        return all([&](int i) { return forwards_star(i) && at(i).excludes_source; });
    }
    Set losts_star() const
    {
        return all([&](int i) { return lost_star(i); });
    }
    Set losts_source() const
    {
        return all([&](int i) { return lost_source(i); });
    }
    Set losts_rpt() const
    {
        return all([&](int i) { return lost_rpt(i); });
    }
};

inline Set operator+(Set first, const Set &second)
{
    first.insert(second.begin(), second.end());
    return first;
}

inline Set operator-(Set first, const Set &second)
{
    for (const int i : second) {
        first.erase(i);
    }
    return first;
}

inline Set immediate_star(const Model &m)
{
    return m.joins_star() + m.include_star() - m.losts_star();
}

inline Set immediate_source(const Model &m)
{
    return m.joins_source() + m.include_source() - m.losts_source();
}

inline Set inherited_rpt(const Model &m)
{
    return (m.joins_star() - m.prunes()) + (m.include_star() - m.exclude()) -
           (m.losts_star() + m.losts_rpt());
}

inline Set inherited_source(const Model &m)
{
    return inherited_rpt(m) + m.joins_source() + m.include_source() - m.losts_source();
}

inline bool join_desired_star(const Model &m)
{
    return !immediate_star(m).empty();
}

inline bool join_desired_source(const Model &m)
{
    return !immediate_source(m).empty() || (m.keepalive && !inherited_source(m).empty());
}

inline bool prune_desired(const Model &m, bool same_upstream)
{
    if (!join_desired_star(m)) {
        return false;
    }
    return inherited_rpt(m).empty() || (m.spt_bit && !same_upstream);
}

inline Set could_assert_star(const Model &m)
{
    const Set forwards = m.joins_star() + m.include_star();
    return m.all([&](int i) { return forwards.contains(i) && m.rpf_rp != i; });
}

inline Set tracks_star(const Model &m)
{
    const Set could = could_assert_star(m);
    return m.all([&](int i) {
        return could.contains(i) ||
               (m.at(i).wants_star && (m.at(i).dr || m.at(i).star_winner == Winner::Me)) ||
               (m.rpf_rp == i && join_desired_star(m));
    });
}

inline Set could_assert_source(const Model &m)
{
    const Set forwards = (m.joins_star() - m.prunes()) + (m.include_star() - m.exclude()) - m.losts_star() +
                         m.joins_source() + m.include_source();
    return m.all([&](int i) { return m.spt_bit && m.rpf_source != i && forwards.contains(i); });
}

inline Set tracks_source(const Model &m)
{
    const Set forwards =
        (m.joins_star() - m.prunes()) + (m.include_star() - m.exclude()) - m.losts_star() + m.joins_source();
    return m.all([&](int i) {
        return forwards.contains(i) ||
               (m.at(i).wants_source && (m.at(i).dr || m.at(i).source_winner == Winner::Me)) ||
               (m.rpf_source == i && join_desired_source(m)) ||
               (m.rpf_rp == i && join_desired_star(m) && !m.spt_bit);
    });
}

inline bool could_register(const Model &m)
{
    return m.rpf_source && m.at(*m.rpf_source).dr && m.keepalive && m.connected;
}

inline pimsmd::Links bits(const Set &set)
{
    pimsmd::Links links = 0;
    for (const int i : set) {
        links |= pimsmd::Links{1} << i;
    }
    return links;
}

} // namespace pimsmd_test

#endif
