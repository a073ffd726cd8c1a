/*
 * Random messages, hosts, packets, asserts, routes and time into the trees, and the inputs kept a second time, as plainly as
 * can be: who joined until when. Of the machines only what packets and asserts left (SPT bit, keep-alive, winners) is asked
 * of the trees. Some of the routers are the RP; what Registers do to keep-alives and what is answered is known for each.
 */
#ifndef TESTS_DAEMONS_PIMSMD_RANDOM_TREES_H
#define TESTS_DAEMONS_PIMSMD_RANDOM_TREES_H

#include <algorithm>
#include <gtest/gtest.h>

#include "daemons/common/log.h"
#include "tests/daemons/pimsmd_naive_register.h"
#include "tests/daemons/pimsmd_tree_inputs.h"
#include "tests/daemons/pimsmd_tree_lab.h"
#include "tests/support/property.h"

namespace pimsmd_test
{

using pimsmd::Tree;

inline const std::vector<std::string> GROUPS = {"239.1.1.1", "239.1.1.2"};
inline const std::vector<std::string> SOURCES = {"192.0.2.1", "192.0.2.2", "192.0.2.3"};

class RandomTrees
{
public:
    RandomTrees(uint64_t seed, bool with_asserts) : random_(seed), with_asserts_(with_asserts)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
        for (unsigned i = 0; i < SOURCES.size(); ++i) {
            set_route(SOURCES[i], i);
        }
        lab_.is_rp = random_.OneIn(3);
        lab_.switches = random_.OneIn(2);
        route_to_rp(3);
    }

    void step()
    {
        switch (random_.Below(with_asserts_ ? 17 : 14)) {
        case 0:
        case 1:
        case 2:
        case 3:
            message();
            break;
        case 4:
            receivers();
            break;
        case 5:
            change_dr(some_link());
            break;
        case 6:
            if (random_.OneIn(3)) {
                route_to_rp(random_.Below(LINKS + 1));
            } else {
                set_route(some(SOURCES), random_.Below(LINKS + 1));
            }
            lab_.trees.routes_changed();
            break;
        case 7:
            packet();
            break;
        case 8:
        case 9:
        case 10:
            lab_.pass(random_.OneIn(3) ? random_.Below(100000) : random_.Below(4000));
            for (auto &[key, one] : registers_) {
                one.pass(lab_.now);
            }
            break;
        case 11:
            lab_.trees.neighbour_restarted(some_link(), TreeLab::neighbour(some_link(), random_.Below(2)));
            break;
        case 12:
            hear_register();
            break;
        case 13:
            hear_register_stop();
            break;
        default:
            hear_assert();
        }
        lab_.trees.settle();
        inputs_.forget(lab_.now);
    }

    TreeLab &lab()
    {
        return lab_;
    }
    const std::map<std::string, GroupInputs> &inputs() const
    {
        return inputs_.groups;
    }

    // The interfaces as group and source have them.
    Model model(const std::string &group_name, const std::string &source_name)
    {
        Model made;
        GroupInputs &group = inputs_.groups[group_name];
        SourceInputs &source = group.sources[source_name];
        const pimsmd::GroupEntry *star = lab_.trees.find(addr(group_name.c_str()));
        const pimsmd::SourceEntry *entry =
            lab_.trees.find(addr(group_name.c_str()), addr(source_name.c_str()));
        for (unsigned link = 0; link < LINKS; ++link) {
            Interface &on = made.on[link];

            on.dr = dr_.contains(link);
            on.wants_star = group.receivers.contains(link);
            on.wants_source = source.receivers.contains(link);
            on.excludes_source = source.excluded.contains(link);
            on.star = group.joins.contains(link) ? Downstream::Join : Downstream::NoInfo;
            on.source = source.joins.contains(link) ? Downstream::Join : Downstream::NoInfo;
            if (source.prunes.contains(link)) {
                on.rpt = source.prunes[link].pending <= lab_.now ? Rpt::Prune : Rpt::PrunePending;
            }
            const auto bit = pimsmd::Links{1} << link;

            if (star != nullptr) {
                on.star_winner = winner(star->words.lost & bit, star->words.won & bit);
            }
            if (entry != nullptr) {
                on.source_winner = winner(entry->words.lost & bit, entry->words.won & bit);
                on.winner_better = on.source_winner == Winner::Other &&
                                   beats(entry->link_on(link)->assertion.winner(), source_name, link);
            }
        }
        made.rpf_rp = link_of(address_text(TreeLab::rp()));
        made.rpf_source = link_of(source_name);
        made.spt_bit = entry != nullptr && entry->words.spt_bit;
        made.keepalive = entry != nullptr && entry->keepalive.running();
        made.connected = lab_.routes[source_name].connected;
        return made;
    }

protected:
    unsigned some_link()
    {
        return random_.Below(LINKS);
    }
    const std::string &some(const std::vector<std::string> &of)
    {
        return of[random_.Below(static_cast<uint32_t>(of.size()))];
    }
    static bool flip(std::set<unsigned> &set, unsigned link)
    {
        if (set.erase(link) > 0) {
            return false;
        }
        set.insert(link);
        return true;
    }

    // LINKS stands for no way.
    void set_route(const std::string &to, unsigned link)
    {
        pimsmd::Route route;
        if (link < LINKS) {
            const unsigned number = random_.Below(3);

            route.link = static_cast<int>(link);
            route.neighbour = number == 2 ? addr("0.0.0.0") : TreeLab::neighbour(link, number);
            route.connected = number == 2;
            route.preference = random_.Below(3);
            route.metric = random_.Below(3);
        } else {
            route.neighbour = addr("0.0.0.0");
        }
        lab_.routes[to] = route;
    }

    void change_dr(unsigned link)
    {
        lab_.trees.set_dr(link, flip(dr_, link));
    }

    void receivers()
    {
        const std::string group = some(GROUPS);
        const std::string source = some(SOURCES);
        const unsigned link = some_link();
        const Address to = addr(group.c_str());

        if (random_.OneIn(3)) {
            lab_.trees.set_receivers(link, to, addr("0.0.0.0"), flip(inputs_.groups[group].receivers, link));
        } else if (random_.OneIn(2)) {
            const bool wanted = flip(inputs_.groups[group].sources[source].receivers, link);

            lab_.trees.set_receivers(link, to, addr(source.c_str()), wanted);
        } else {
            const bool excluded = flip(inputs_.groups[group].sources[source].excluded, link);

            lab_.trees.set_excluded(link, to, addr(source.c_str()), excluded);
        }
    }

    void message()
    {
        const unsigned link = some_link();
        const uint16_t holdtimes[] = {1, 5, 210, pimsmd::HOLDTIME_FOREVER};
        const uint16_t holdtime = holdtimes[random_.Below(4)];
        const bool to_this = !random_.OneIn(5);
        std::vector<TreeLab::Group> groups;
        for (const std::string &group : GROUPS) {
            TreeLab::Group record{addr(group.c_str()), {}, {}};

            if (random_.OneIn(2)) {
                continue;
            }
            if (random_.OneIn(2)) {
                (random_.OneIn(3) ? record.prunes : record.joins).push_back({TreeLab::rp(), Tree::Star});
            }
            for (const std::string &source : SOURCES) {
                const Tree tree = random_.OneIn(2) ? Tree::Source : Tree::Rpt;

                if (random_.OneIn(2)) {
                    (random_.OneIn(2) ? record.joins : record.prunes).push_back({addr(source.c_str()), tree});
                }
            }
            groups.push_back(record);
        }
        const Address upstream = to_this ? TreeLab::own(link) : TreeLab::neighbour(link, 1);

        lab_.hear(link, TreeLab::neighbour(link, 0), upstream, holdtime, groups);
        if (to_this) {
            inputs_.note(lab_.now, link, lab_.facts[link].prune_delay_ms, holdtime, groups);
        }
    }

    // The keepalive is what it was, or was started just now.
    void check_keepalive(const Address &group, const Address &source, const Keepalive &started, uint64_t left)
    {
        const pimsmd::SourceEntry *entry = lab_.trees.find(group, source);
        const uint64_t now_left = entry != nullptr ? lab_.queue.remaining_ms(entry->keepalive) : 0;
        EXPECT_EQ(now_left, started.value_or(left));
    }

    void packet()
    {
        const unsigned link = some_link();
        const std::string group = some(GROUPS);
        const std::string source = some(SOURCES);
        const Address to = addr(group.c_str());
        const Address from = addr(source.c_str());
        const Model before = model(group, source);
        const pimsmd::SourceEntry *entry = lab_.trees.find(to, from);
        const bool joined = entry != nullptr && entry->machine.joined();
        const uint64_t left = entry != nullptr ? lab_.queue.remaining_ms(entry->keepalive) : 0;

        lab_.trees.packet(link, to, from);
        entry = lab_.trees.find(to, from);
        const bool spt_bit = entry != nullptr && entry->words.spt_bit;

        check_keepalive(to, from, on_packet(before, static_cast<int>(link), joined, spt_bit, lab_.switches),
                        left);
    }

    void hear_register()
    {
        const std::string group = some(GROUPS);
        const std::string source = some(SOURCES);
        pimsmd::Register message;
        message.group = addr(group.c_str());
        message.source = addr(source.c_str());
        message.null = random_.OneIn(3);
        const bool to_rp = lab_.is_rp && !random_.OneIn(4);
        const pimsmd::Envelope outer{addr("10.9.9.9"), to_rp ? TreeLab::rp() : TreeLab::own(0)};
        const OnRegister expected = on_register(model(group, source), to_rp, lab_.switches, message.null);
        const pimsmd::SourceEntry *entry = lab_.trees.find(message.group, message.source);
        const uint64_t left = entry != nullptr ? lab_.queue.remaining_ms(entry->keepalive) : 0;
        const unsigned stops = lab_.stops;

        EXPECT_EQ(lab_.trees.register_heard(outer, message), expected.forward);
        EXPECT_EQ(lab_.stops, stops + (expected.stop ? 1 : 0));
        check_keepalive(message.group, message.source, expected.started, left);
    }

    void hear_register_stop()
    {
        const std::string group = some(GROUPS);
        const std::string source = random_.OneIn(3) ? "0.0.0.0" : some(SOURCES);
        const bool of_rp = !random_.OneIn(4);
        lab_.trees.register_stop_heard(of_rp ? TreeLab::rp() : addr("10.9.9.9"),
                                       {addr(group.c_str()), addr(source.c_str())});
        for (auto &[key, one] : registers_) {
            if (of_rp && key.first == group && (source == "0.0.0.0" || key.second == source)) {
                one.stop(lab_.now);
            }
        }
    }

    // A router that is the RP takes no way to it.
    void route_to_rp(unsigned link)
    {
        set_route(address_text(TreeLab::rp()), lab_.is_rp ? LINKS : link);
    }

    void hear_assert()
    {
        const unsigned link = some_link();
        pimsmd::Assert message;
        message.group = addr(some(GROUPS).c_str());
        message.source = random_.OneIn(3) ? addr("0.0.0.0") : addr(some(SOURCES).c_str());
        message.rpt = random_.OneIn(2) || is_unspecified(message.source);
        message.preference = random_.Below(3);
        message.metric = random_.Below(3);
        if (random_.OneIn(6)) {
            message.rpt = true;
            message.preference = 0x7fffffff;
            message.metric = 0xffffffff;
        }
        lab_.trees.assert_heard(link, TreeLab::neighbour(link, random_.Below(2)), message);
    }

    static Winner winner(pimsmd::Links lost, pimsmd::Links won)
    {
        return lost != 0 ? Winner::Other : won != 0 ? Winner::Me : Winner::Nobody;
    }

    bool beats(const pimsmd::asserts::Metric &metric, const std::string &source, unsigned link)
    {
        const pimsmd::Route &route = lab_.routes[source];
        return is_better(metric, {false, route.preference, route.metric, TreeLab::own(link)});
    }

    std::optional<int> link_of(const std::string &to)
    {
        return lab_.routes[to].link == pimsmd::NO_LINK ? std::nullopt : std::optional(lab_.routes[to].link);
    }

    property::Random random_;
    bool with_asserts_;
    TreeLab lab_;
    TreeInputs inputs_;
    std::set<unsigned> dr_;
    std::map<std::pair<std::string, std::string>, NaiveRegister> registers_;
};

} // namespace pimsmd_test

#endif
