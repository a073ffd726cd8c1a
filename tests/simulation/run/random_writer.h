/*
 * Writes the script of a seed: what there is, then stretches of time in which hosts join and leave and, where the plan
 * has faults, something else happens now and then.
 *
 *     random_script.cpp    what there is, stretches, joins and leaves
 *     random_menu.cpp      everything else that happens
 *
 * Never two draws in one expression: compilers differ in the order in which they evaluate it.
 */
#ifndef TESTS_SIMULATION_RUN_RANDOM_WRITER_H
#define TESTS_SIMULATION_RUN_RANDOM_WRITER_H

#include <map>
#include <set>

#include "tests/simulation/kernel/draw.h"
#include "tests/simulation/run/random_script.h"

namespace sim
{

class RandomWriter
{
public:
    explicit RandomWriter(const RandomPlan &plan) : plan_(plan), draw_(plan.seed)
    {
        script_.seed = plan.seed;
    }

    Script write();

private:
    uint64_t below(uint64_t limit)
    {
        return draw_.below(Stream::Script, 0, limit);
    }
    template <typename Things> auto one_of(const Things &things)
    {
        return things[below(std::size(things))];
    }
    void add(Ns when, Words words)
    {
        script_.add(when, std::move(words));
    }

    void set_up();
    void set_up_daemons();
    void set_up_hosts();
    void set_up_flows(const std::string &link, uint64_t groups);
    void write_stretch(Ns begin, Ns end);
    void change_membership(Ns when);
    void change_user(Ns when);

    // random_menu.cpp
    void make_fault(Ns when);
    void disturb_daemon(Ns when);
    void disturb_machine(Ns when);
    void disturb_querier(Ns when);
    void change_config(Ns when);
    void change_instance(Ns when);
    void disturb_agent(Ns when);
    void refuse(Ns when);
    void disturb_link(Ns when);
    void disturb_interface(Ns when);

    RandomPlan plan_;
    Draw draw_;
    Script script_;
    std::vector<std::string> daemons_;
    std::vector<std::string> links_;   // with hosts
    std::vector<std::string> sources_; // with sources
    struct Member {
        unsigned version;
        bool in_instance;
        bool is_user;
    };
    std::vector<Member> hosts_;
    bool has_device_ = false;   // the instance is a VRF device
    bool has_standbys_ = false; // each gmpd has one
    bool has_second_ = false;   // another router beside the first one
    bool has_users_ = false;    // one link requires authentication
    uint64_t flows_ = 0;
    std::map<std::pair<uint64_t, std::string>, std::set<std::string>> joined_; // sources; an empty one is all
};

} // namespace sim

#endif
