#include "tests/simulation/run/run.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace sim
{
namespace
{

constexpr Ns TIME_TO_END = 5 * SECOND;

} // namespace

Run::Run(const Script &script, bool verbose) : script_(script), world_(script.seed, oracle_)
{
    world_.kernel.verbose = verbose;
    for (const Words &words : script.setup) {
        perform(setup_verbs(), words);
    }
    for (const auto &[router, config] : drafts_) {
        put_in_force(world_.machine(router));
    }
    oracle_.watch(world_);
}

Run::~Run() = default;

void Run::perform(const std::map<std::string, Verb> &verbs, const Words &words)
{
    const auto verb = verbs.find(words.front());
    if (verb == verbs.end()) {
        fprintf(stderr, "no word of scripts: %s\n", words.front().c_str());
        exit(2);
    }
    (this->*verb->second)(Words(words.begin() + 1, words.end()));
}

Result Run::execute()
{
    Kernel &kernel = world_.kernel;
    for (const Action &action : script_.actions) {
        kernel.run_until(Clock::START + action.when + rested_);
        if (!kernel.trace.is_good()) {
            break;
        }
        if (kernel.verbose) {
            fprintf(stderr, "%12s --", to_text(kernel.clock.elapsed()).c_str());
            for (const std::string &word : action.words) {
                fprintf(stderr, " %s", word.c_str());
            }
            fprintf(stderr, "\n");
        }
        perform(action_verbs(), action.words);
    }
    if (kernel.trace.is_good() && before_end) {
        before_end();
    }
    finish();
    Result result;
    result.rule = kernel.trace.rule();
    result.what = kernel.trace.what();
    result.when = kernel.trace.is_good() ? 0 : kernel.trace.when() - Clock::START;
    result.hash = kernel.trace.hash();
    result.lasted = kernel.clock.elapsed();
    result.counts = oracle_.counts();
    return result;
}

// Every daemon is told to end, and does.
void Run::finish()
{
    for (auto &[name, plan] : world_.daemons()) {
        plan.wanted = false;
        plan.process->signal(SIGTERM);
    }
    disturb_all();
    world_.kernel.run_for(TIME_TO_END);
    for (auto &[name, plan] : world_.daemons()) {
        if (plan.process->is_running()) {
            world_.kernel.broken(Rule::CleanEnd, name + " does not end");
        }
    }
}

void Run::disturb_all()
{
    oracle_.disturbances.note(oracle_.disturbances.timing().rest());
}

// All faults are over, everything runs, and enough time passes for it to be as it ought to be.
void Run::rest(const Words &)
{
    const Ns begin = world_.kernel.clock.now();
    if (!oracle_.disturbances.is_calm()) {
        disturb_all(); // what ends now was there until now
    }
    for (const auto &[name, link] : world_.links()) {
        link->loss = link->duplication = link->damage = 0;
        link->delay = 0;
    }
    for (auto &[name, plan] : world_.daemons()) {
        plan.process->refusals.count = 0;
        plan.process->account.refuse = 0;
        plan.process->never_crash();
    }
    revive({});
    world_.kernel.run_for(oracle_.disturbances.timing().rest());
    if (world_.kernel.trace.is_good()) {
        oracle_.check_rest();
    }
    rested_ += world_.kernel.clock.now() - begin;
}

void Run::check(const Words &)
{
    oracle_.check_forwarding();
}

void Run::suspend(const Words &words)
{
    const Ns time = time_from(words.at(0));
    disturb_all();
    oracle_.disturbances.note_stopped(time);
    world_.kernel.suspend(time);
    disturb_all(); // what ran out while it slept runs out now, all at once
    rested_ += time;
}

const std::map<std::string, Run::Verb> &Run::setup_verbs()
{
    static const std::map<std::string, Verb> VERBS = {
        {"link", &Run::set_up_link},
        {"router", &Run::set_up_router},
        {"daemon", &Run::set_up_daemon},
        {"host", &Run::set_up_host},
        {"querier", &Run::set_up_querier},
        {"flow", &Run::set_up_flow},
        {"route", &Run::set_up_route},
        {"file", &Run::set_up_file},
        {"vrf", &Run::set_up_vrf},
        {"boundary", &Run::boundary},
        {"deny", &Run::deny},
        {"designated", &Run::designated},
        {"instance", &Run::instance},
        {"disable", &Run::disable},
        {"rendezvous", &Run::rendezvous},
        {"peer", &Run::peer},
    };
    return VERBS;
}

const std::map<std::string, Run::Verb> &Run::action_verbs()
{
    static const std::map<std::string, Verb> VERBS = {
        {"start", &Run::start},
        {"stop", &Run::stop},
        {"kill", &Run::kill},
        {"crash", &Run::crash},
        {"signal", &Run::signal},
        {"freeze", &Run::freeze},
        {"revive", &Run::revive},
        {"switch-over", &Run::switch_over},
        {"refuse", &Run::refuse},
        {"refuse-memory", &Run::refuse_memory},
        {"limit-files", &Run::limit_files},
        {"join", &Run::join},
        {"exclude", &Run::exclude},
        {"leave", &Run::leave},
        {"vanish", &Run::vanish},
        {"querier-on", &Run::querier_on},
        {"querier-off", &Run::querier_off},
        {"flow-on", &Run::flow_on},
        {"flow-off", &Run::flow_off},
        {"lose", &Run::lose},
        {"duplicate", &Run::duplicate},
        {"damage", &Run::damage},
        {"delay", &Run::delay},
        {"link-down", &Run::link_down},
        {"link-up", &Run::link_up},
        {"link-delete", &Run::link_delete},
        {"link-create", &Run::link_create},
        {"rename", &Run::rename},
        {"address-remove", &Run::remove_address},
        {"address-add", &Run::add_address},
        {"overrun", &Run::overrun},
        {"vrf", &Run::set_up_vrf},
        {"vrf-port", &Run::vrf_port},
        {"boundary", &Run::boundary},
        {"deny", &Run::deny},
        {"designated", &Run::designated},
        {"instance", &Run::instance},
        {"disable", &Run::disable},
        {"rendezvous", &Run::rendezvous},
        {"peer", &Run::peer},
        {"no-peer", &Run::no_peer},
        {"no-instance", &Run::no_instance},
        {"enable", &Run::enable},
        {"reload", &Run::reload},
        {"spoil", &Run::spoil},
        {"allow", &Run::allow},
        {"forbid", &Run::forbid},
        {"agent-silent", &Run::agent_silent},
        {"foreign-connect", &Run::foreign_connect},
        {"foreign-announce", &Run::foreign_announce},
        {"foreign-half-close", &Run::foreign_half_close},
        {"agent-nonsense", &Run::agent_nonsense},
        {"agent-many", &Run::agent_many},
        {"rest", &Run::rest},
        {"check", &Run::check},
        {"suspend", &Run::suspend},
    };
    return VERBS;
}

} // namespace sim
