/*
 * A router around the trees: links, neighbours and routes that a test sets, messages as bytes, and what upstream neighbours
 * believe of what they were sent.
 */
#ifndef TESTS_DAEMONS_PIMSMD_TREE_LAB_H
#define TESTS_DAEMONS_PIMSMD_TREE_LAB_H

#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "daemons/pimsmd/mrib_side.h"
#include "daemons/pimsmd/tree.h"
#include "tests/daemons/pimsmd_messages.h"

namespace pimsmd_test
{

using mcastd::is_unspecified;
using mcastd::same_address;

constexpr unsigned LINKS = 5;

inline std::string address_text(const Address &address)
{
    return pimsmd::to_text(address);
}

struct TreeLab final : pimsmd::Surroundings {
    // What a neighbour was last asked for: by link, neighbour, group, source or "*", tree.
    using Belief = std::map<std::string, bool>;

    explicit TreeLab(const pimsmd::TreeSettings &settings = {})
        : trees(MCAST_FAMILY_IPV4, queue, *this, counters, settings)
    {
        for (unsigned link = 0; link < LINKS; ++link) {
            facts[link] = {own(link), link % 2 == 0 ? 0u : 3000u, 2500, true};
        }
    }

    static Address own(unsigned link)
    {
        return addr(("10.0." + std::to_string(link) + ".1").c_str());
    }
    static Address neighbour(unsigned link, unsigned number)
    {
        return addr(("10.0." + std::to_string(link) + "." + std::to_string(10 + number)).c_str());
    }
    static Address rp()
    {
        return addr("10.255.0.1");
    }

    std::optional<Address> rp_of(const Address &) override
    {
        return rp_known ? std::optional(rp_now) : std::nullopt;
    }
    bool is_own(const Address &address) override
    {
        bool is_of_link = false;
        for (unsigned link = 0; link < LINKS; ++link) {
            is_of_link = is_of_link || same_address(address, own(link));
        }
        return is_of_link || (is_rp && same_address(address, rp_now));
    }
    bool switches_to_spt(const Address &, const Address &) override
    {
        return switches;
    }
    pimsmd::Route route_to(const Address &address) override
    {
        return routes[address_text(address)];
    }
    pimsmd::LinkFacts facts_of(unsigned link) override
    {
        return facts.at(link);
    }
    uint32_t random(uint32_t most) override
    {
        return most / 2;
    }
    void send(unsigned link, const Address &to, const Address &group,
              std::span<const pimsmd::Wish> wishes) override
    {
        const std::string where =
            std::to_string(link) + " " + address_text(to) + " " + address_text(group) + " ";
        if (same_address(to, own(link))) {
            ++echoes;
            return;
        }
        for (const pimsmd::Wish &wish : wishes) {
            const bool star = wish.source.tree == pimsmd::Tree::Star;

            if (star && wish.join) { // all of the group's prunes that are not said again are over
                std::erase_if(prunes, [&](const auto &one) { return one.first.starts_with(where); });
            }
        }
        for (const pimsmd::Wish &wish : wishes) {
            const std::string key =
                where + (wish.source.tree == pimsmd::Tree::Star ? "*" : address_text(wish.source.address));

            sent.push_back((wish.join ? "join " : "prune ") + key +
                           (wish.source.tree == pimsmd::Tree::Rpt ? " rpt" : ""));
            if (wish.source.tree == pimsmd::Tree::Rpt) {
                prunes[key] = !wish.join;
            } else {
                joins[key] = wish.join;
            }
        }
    }
    void send_assert(unsigned link, const Address &group, const Address &source,
                     const pimsmd::asserts::Metric &metric) override
    {
        sent.push_back(std::string(is_infinite(metric) ? "cancel " : "assert ") + std::to_string(link) + " " +
                       address_text(group) + " " + address_text(source));
    }
    void send_null_register(const Address &to, const Address &group, const Address &source) override
    {
        ++nulls[{address_text(group), address_text(source)}];
        sent.push_back("null " + address_text(to) + " " + address_text(group) + " " + address_text(source));
    }
    void send_register_stop(const Address &from, const Address &to, const Address &group,
                            const Address &source) override
    {
        ++stops;
        sent.push_back("stop " + address_text(from) + " " + address_text(to) + " " + address_text(group) +
                       " " + address_text(source));
    }
    void outputs_changed(const Address &group, const Address &source) override
    {
        changes.insert({address_text(group), address_text(source)});
        if (told != nullptr) {
            told->entry_changed(group, source);
        }
    }

    // Those who are asked for what they are: "link neighbour group source".
    static std::set<std::string> held(const Belief &belief)
    {
        std::set<std::string> found;
        for (const auto &[key, holds] : belief) {
            if (holds) {
                found.insert(key);
            }
        }
        return found;
    }

    std::vector<std::string> taken()
    {
        return std::exchange(sent, {});
    }
    void pass(uint64_t ms)
    {
        now += ms;
        while (queue.run_due(SIZE_MAX)) {
        }
        trees.settle();
    }

    struct Group {
        Address group;
        std::vector<pimsmd::TreeSource> joins;
        std::vector<pimsmd::TreeSource> prunes;
    };

    // A Join/Prune of a neighbour.
    void hear(unsigned link, const Address &from, const Address &upstream, uint16_t holdtime_s,
              const std::vector<Group> &groups)
    {
        const Envelope envelope{from, addr("224.0.0.13")};
        Bytes bytes(pimsmd::MAX_MESSAGE_SIZE);
        pimsmd::JoinPruneWriter writer(bytes, upstream, holdtime_s);
        Message message;
        for (const Group &group : groups) {
            ASSERT_TRUE(writer.add({{group.group, 32}}, group.joins, group.prunes));
        }
        bytes.resize(writer.finish(envelope));
        ASSERT_EQ(pimsmd::read_message(envelope, bytes, &message), NO_DROP);
        trees.join_prune(link, from, std::get<pimsmd::JoinPrune>(message));
    }

    uint64_t now = 1000;
    pimsmd::MsQueue queue{[this] { return now; }};
    pimsmd::Counters counters;
    std::map<unsigned, pimsmd::LinkFacts> facts;
    std::map<std::string, pimsmd::Route> routes;
    bool rp_known = true;
    Address rp_now = rp();
    bool is_rp = false;    // the RP is this router
    bool switches = false; // to source trees
    std::map<std::pair<std::string, std::string>, unsigned> nulls;
    unsigned stops = 0;
    Belief joins;
    Belief prunes;
    std::vector<std::string> sent;
    unsigned echoes = 0;
    pimsmd::MribSide *told = nullptr; // who is told of entries too
    std::set<std::pair<std::string, std::string>> changes;
    pimsmd::Trees trees;
};

} // namespace pimsmd_test

#endif
