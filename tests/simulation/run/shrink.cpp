#include "tests/simulation/run/shrink.h"

#include <algorithm>
#include <set>

namespace sim
{
namespace
{

// What nothing works without.
bool is_needed(const Words &words)
{
    return words.front() == "link" || words.front() == "router" || words.front() == "daemon";
}

class Shrinking
{
public:
    Shrinking(Script script, Rule rule, unsigned most_tries)
        : best_(std::move(script)), rule_(rule), tries_left_(most_tries)
    {
    }

    Script shrink()
    {
        cut_behind_the_fault();
        bool smaller = true;
        while (smaller && tries_left_ > 0) {
            smaller = drop_actions();
            smaller |= drop_things();
        }
        return best_;
    }

private:
    // Whether the script breaks the rule too; it is the best then.
    bool keep(const Script &script)
    {
        if (tries_left_ == 0) {
            return false;
        }
        --tries_left_;
        const bool breaks = Run(script).execute().rule == rule_;
        if (breaks) {
            best_ = script;
        }
        return breaks;
    }
    void cut_behind_the_fault();
    bool drop_actions();
    bool drop_things();

    Script best_;
    Rule rule_;
    unsigned tries_left_;
};

// The shortest beginning that breaks the rule, by halving.
void Shrinking::cut_behind_the_fault()
{
    size_t fails = best_.actions.size();
    size_t passes = 0;
    const Script whole = best_;
    while (passes + 1 < fails) {
        const size_t middle = (passes + fails) / 2;
        Script part = whole;
        part.actions.resize(middle);
        if (keep(part)) {
            fails = middle;
        } else {
            passes = middle;
        }
    }
}

bool Shrinking::drop_actions()
{
    bool smaller = false;
    for (size_t size = std::max<size_t>(best_.actions.size() / 2, 1); size > 0; size /= 2) {
        for (size_t at = 0; at < best_.actions.size();) {
            Script without = best_;
            const auto from = without.actions.begin() + static_cast<ptrdiff_t>(at);
            const size_t count = std::min(size, without.actions.size() - at);
            without.actions.erase(from, from + static_cast<ptrdiff_t>(count));
            if (keep(without)) {
                smaller = true;
            } else {
                at += size;
            }
        }
    }
    return smaller;
}

// Hosts and flows that no action names.
bool Shrinking::drop_things()
{
    std::set<std::string> named;
    for (const Action &action : best_.actions) {
        named.insert(action.words.begin(), action.words.end());
    }
    bool smaller = false;
    for (size_t at = best_.setup.size(); at-- > 0;) {
        Script without = best_;
        if (!is_needed(without.setup[at]) && !named.contains(without.setup[at].at(1))) {
            without.setup.erase(without.setup.begin() + static_cast<ptrdiff_t>(at));
            smaller |= keep(without);
        }
    }
    return smaller;
}

} // namespace

Script shrink(const Script &script, Rule rule, unsigned most_tries)
{
    return Shrinking(script, rule, most_tries).shrink();
}

} // namespace sim
