/*
 * What the MRIB believes after everything that it was told, and whether that is what the state says. Serves
 * the random tests and the fuzzer.
 */
#ifndef TESTS_DAEMONS_GMPD_MIRROR_H
#define TESTS_DAEMONS_GMPD_MIRROR_H

#include <set>
#include <string>
#include <tuple>

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"

namespace gmpd_test
{

class Mirror final : public gmpd::QuerySink, public gmpd::MribSink
{
public:
    void send_query(gmpd::Interface &, const gmpd::Query &query) override
    {
        ++queries_;
        note(!query.sources.empty() || !gmpd::is_unspecified(query.group) || !query.suppress,
             "a general query with the S flag");
    }
    void tell_running(const gmpd::Interface &, bool) override
    {
        believed_.clear();
    }
    void tell_querier(const gmpd::Interface &, bool) override
    {
    }
    void tell_member(const gmpd::Interface &, const gmpd::Address &group, const gmpd::Address *source,
                     bool join, bool blocked) override
    {
        const Entry entry(gmpd::to_text(group), source != nullptr ? gmpd::to_text(*source) : "any", blocked);
        note(source != nullptr || !blocked, "a block of any source");
        if (join) {
            note(believed_.insert(entry).second, "a join of what is joined: " + std::get<0>(entry));
        } else {
            note(believed_.erase(entry) == 1, "a prune of what is not joined: " + std::get<0>(entry));
        }
    }

    // Compares with the state and checks the state itself. The first fault ever found, or an empty text.
    const std::string &check(const gmpd::Interface &interface)
    {
        std::set<Entry> wanted;
        gmpd::for_each_group(interface.memberships,
                             [&](const gmpd::GroupState &group) { check_group(group, wanted); });
        note(wanted == believed_, "the MRIB believes something else");
        return fault_;
    }

private:
    using Entry = std::tuple<std::string, std::string, bool>; // group, source or "any", blocked

    void note(bool good, const std::string &fault)
    {
        if (!good && fault_.empty()) {
            fault_ = fault;
        }
    }
    void check_group(const gmpd::GroupState &group, std::set<Entry> &wanted)
    {
        const std::string name = gmpd::to_text(*group.entry->address);
        const uint32_t sources = MRT_CountTable(group.entry->sources);
        note(group.exclude == group.timer.running(), name + ": mode and group timer disagree");
        note(group.exclude || sources > 0, name + ": nothing is left of it");
        note(!group.dirty, name + ": left unsettled");
        note(sources <= group.memberships->link.process->config.max_sources, name + ": over its limit");
        if (group.exclude) {
            wanted.insert(Entry(name, "any", false));
        }
        gmpd::for_each_source(group, [&](const gmpd::SourceState &source) {
            note(!source.doomed, name + ": a source left to be removed");
            note(group.exclude || source.timer.running(), name + ": an unwanted source in INCLUDE mode");
            if (!group.exclude || !source.timer.running()) {
                wanted.insert(Entry(name, gmpd::to_text(*source.entry->address), group.exclude));
            }
        });
    }

    std::set<Entry> believed_;
    std::string fault_;
    uint64_t queries_ = 0;
};

} // namespace gmpd_test

#endif
