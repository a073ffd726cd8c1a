/*
 * What neighbours and hosts asked of the trees, as plainly as can be: who joined or pruned until when.
 */
#ifndef TESTS_DAEMONS_PIMSMD_TREE_INPUTS_H
#define TESTS_DAEMONS_PIMSMD_TREE_INPUTS_H

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/daemons/pimsmd_tree_lab.h"

namespace pimsmd_test
{

constexpr uint64_t NEVER = UINT64_MAX;

// A Join, or a Prune(S,G,rpt), on a link.
struct Held {
    uint64_t end = 0;
    uint64_t pending = NEVER; // a Join ends then, a Prune begins
    bool tmp = false;         // a Join(*,G) of the message being read took the Prune back
};

using HeldOn = std::map<unsigned, Held>;

struct SourceInputs {
    HeldOn joins;
    HeldOn prunes;
    std::set<unsigned> receivers;
    std::set<unsigned> excluded;
};

struct GroupInputs {
    HeldOn joins;
    std::set<unsigned> receivers;
    std::map<std::string, SourceInputs> sources;
};

inline uint64_t end_of(uint64_t now, uint16_t holdtime_s)
{
    return holdtime_s == pimsmd::HOLDTIME_FOREVER ? NEVER : now + uint64_t{1000} * holdtime_s;
}

class TreeInputs
{
public:
    std::map<std::string, GroupInputs> groups;

    // What ended by then.
    void forget(uint64_t now)
    {
        const auto is_over = [now](const auto &one) {
            return one.second.end <= now || one.second.pending <= now;
        };
        for (auto &[name, group] : groups) {
            std::erase_if(group.joins, is_over);
            for (auto &[source_name, source] : group.sources) {
                std::erase_if(source.joins, is_over);
                std::erase_if(source.prunes, [now](const auto &one) { return one.second.end <= now; });
            }
        }
    }

    // What a message to this router does, as the RFC tells it; delay is the prune delay of the link, milliseconds.
    void note(uint64_t now, unsigned link, uint64_t delay, uint16_t holdtime,
              const std::vector<TreeLab::Group> &records)
    {
        forget(now);
        for (const TreeLab::Group &record : records) {
            GroupInputs &group = groups[address_text(record.group)];

            for (const pimsmd::TreeSource &source : record.joins) {
                note_join(now, link, holdtime, group, source);
            }
            for (const pimsmd::TreeSource &source : record.prunes) {
                const std::string name = address_text(source.address);

                if (source.tree == pimsmd::Tree::Star) {
                    note_prune(now, group.joins, link, delay);
                } else if (source.tree == pimsmd::Tree::Source) {
                    note_prune(now, group.sources[name].joins, link, delay);
                } else {
                    note_prune_rpt(now, group.sources[name].prunes, link, holdtime, delay);
                }
            }
        }
        for (auto &[name, group] : groups) {
            for (auto &[source_name, source] : group.sources) {
                std::erase_if(source.prunes, [](const auto &one) { return one.second.tmp; });
            }
        }
    }

private:
    static void note_join(uint64_t now, unsigned link, uint16_t holdtime, GroupInputs &group,
                          const pimsmd::TreeSource &source)
    {
        const std::string name = address_text(source.address);
        if (source.tree == pimsmd::Tree::Rpt) {
            HeldOn &prunes = group.sources[name].prunes;

            if (prunes.contains(link) && !prunes[link].tmp) {
                prunes.erase(link);
            }
            return;
        }
        Held &held = source.tree == pimsmd::Tree::Star ? group.joins[link] : group.sources[name].joins[link];

        held.end = std::max(held.end, end_of(now, holdtime));
        held.pending = NEVER;
        if (source.tree == pimsmd::Tree::Star) {
            for (auto &[of, inputs] : group.sources) {
                if (inputs.prunes.contains(link)) {
                    inputs.prunes[link].tmp = true;
                }
            }
        }
    }

    static void note_prune(uint64_t now, HeldOn &joins, unsigned link, uint64_t delay)
    {
        const auto found = joins.find(link);
        if (found == joins.end() || found->second.pending != NEVER) {
            return;
        }
        if (delay == 0) {
            joins.erase(found);
        } else {
            found->second.pending = now + delay;
        }
    }

    static void note_prune_rpt(uint64_t now, HeldOn &prunes, unsigned link, uint16_t holdtime, uint64_t delay)
    {
        const auto found = prunes.find(link);
        const uint64_t end = end_of(now, holdtime);
        if (found == prunes.end()) {
            prunes[link] = {end, now + delay, false};
            return;
        }
        Held &held = found->second;

        if (held.tmp || held.pending <= now) {
            held.end = std::max(held.end, end);
            held.tmp = false;
        }
    }
};

} // namespace pimsmd_test

#endif
