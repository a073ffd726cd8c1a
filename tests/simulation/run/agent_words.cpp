/*
 * The words of a script about users and the agent of a router that announces them.
 */
#include "tests/simulation/run/run.h"

namespace sim
{

// allow ROUTER HOST [GROUP | SOURCE,GROUP]...: the host is a user who may join these and nothing else.
void Run::allow(const Words &words)
{
    std::set<Permission> permissions;
    for (size_t i = 2; i < words.size(); ++i) {
        const size_t comma = words[i].find(',');
        const bool is_any = comma == std::string::npos;
        permissions.emplace(is_any ? Address{} : address_from(words[i].substr(0, comma)),
                            address_from(words[i].substr(is_any ? 0 : comma + 1)));
    }
    world_.agent(world_.machine(words.at(0))).allow(world_.host(words.at(1)), std::move(permissions));
}

// forbid ROUTER HOST: it is no user any more.
void Run::forbid(const Words &words)
{
    world_.agent(world_.machine(words.at(0))).forbid(world_.host(words.at(1)));
}

// agent-silent ROUTER: the agent stops sending without closing, and goes on by another connection.
void Run::agent_silent(const Words &words)
{
    world_.agent(world_.machine(words.at(0))).stop_sending();
}

// agent-nonsense ROUTER: it sends what is none of its messages.
void Run::agent_nonsense(const Words &words)
{
    world_.agent(world_.machine(words.at(0))).send_nonsense();
}

// agent-many ROUTER: it opens more connections than it may have, for a second.
void Run::agent_many(const Words &words)
{
    world_.agent(world_.machine(words.at(0))).open_and_leave();
}

} // namespace sim
