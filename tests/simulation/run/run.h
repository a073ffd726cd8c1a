/*
 * Carries out a script in a fresh world, with the oracle watching, until its end or the first broken rule.
 */
#ifndef TESTS_SIMULATION_RUN_RUN_H
#define TESTS_SIMULATION_RUN_RUN_H

#include <functional>
#include <map>
#include <string>

#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/run/script.h"

namespace sim
{

struct Result {
    Rule rule = Rule::None;
    std::string what;
    Ns when = 0; // since the start
    uint64_t hash = 0;
    Ns lasted = 0;
    Oracle::Counts counts;

    bool is_good() const
    {
        return rule == Rule::None;
    }
};

class Run
{
public:
    explicit Run(const Script &script, bool verbose = false);
    ~Run();

    Result execute();

    World &world()
    {
        return world_;
    }
    Oracle &oracle()
    {
        return oracle_;
    }
    // Called after the script and before the daemons are told to end.
    std::function<void()> before_end;

private:
    // What a word does with those behind it.
    using Verb = void (Run::*)(const Words &words);
    static const std::map<std::string, Verb> &setup_verbs();
    static const std::map<std::string, Verb> &action_verbs();
    void perform(const std::map<std::string, Verb> &verbs, const Words &words);
    void finish();

    // setup_words.cpp
    void set_up_link(const Words &words);
    void set_up_router(const Words &words);
    void set_up_daemon(const Words &words);
    void set_up_host(const Words &words);
    void set_up_querier(const Words &words);
    void set_up_flow(const Words &words);
    void set_up_route(const Words &words);
    void set_up_file(const Words &words);
    void set_up_vrf(const Words &words);

    // daemon_words.cpp
    void start(const Words &words);
    void stop(const Words &words);
    void kill(const Words &words);
    void crash(const Words &words);
    void signal(const Words &words);
    void freeze(const Words &words);
    void revive(const Words &words);
    void switch_over(const Words &words);
    void refuse(const Words &words);
    void refuse_memory(const Words &words);
    void limit_files(const Words &words);

    // network_words.cpp
    void join(const Words &words);
    void exclude(const Words &words);
    void leave(const Words &words);
    void vanish(const Words &words);
    void querier_on(const Words &words);
    void querier_off(const Words &words);
    void flow_on(const Words &words);
    void flow_off(const Words &words);
    void lose(const Words &words);
    void duplicate(const Words &words);
    void damage(const Words &words);
    void delay(const Words &words);
    void link_down(const Words &words);
    void link_up(const Words &words);
    void link_delete(const Words &words);
    void link_create(const Words &words);
    void rename(const Words &words);
    void remove_address(const Words &words);
    void add_address(const Words &words);
    void overrun(const Words &words);
    void vrf_port(const Words &words);

    // config_words.cpp
    void boundary(const Words &words);
    void deny(const Words &words);
    void designated(const Words &words);
    void instance(const Words &words);
    void no_instance(const Words &words);
    void rendezvous(const Words &words);
    void peer(const Words &words);
    void no_peer(const Words &words);
    void disable(const Words &words);
    void enable(const Words &words);
    void reload(const Words &words);
    void spoil(const Words &words);

    // agent_words.cpp
    void allow(const Words &words);
    void forbid(const Words &words);
    void agent_silent(const Words &words);
    void agent_nonsense(const Words &words);
    void agent_many(const Words &words);

    // peer_words.cpp
    void foreign_connect(const Words &words);
    void foreign_announce(const Words &words);
    void foreign_half_close(const Words &words);

    // run.cpp
    void rest(const Words &words);
    void check(const Words &words);
    void suspend(const Words &words);

    RouterConfig &draft(const Words &words);
    void put_in_force(Machine &machine);
    void signal_all(const Machine &machine, int number);
    void note_start(const DaemonPlan &plan);
    Process &process(const Words &words);
    Interface *interface_of(const Words &words);
    void disturb_all();

    const Script &script_;
    Oracle oracle_;
    World world_;
    std::map<std::string, RouterConfig> drafts_; // of each router
    Ns rested_ = 0;                              // time that scripts do not count
};

} // namespace sim

#endif
