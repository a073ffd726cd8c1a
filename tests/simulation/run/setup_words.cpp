/*
 * The words of a script that say what there is.
 */
#include <cstdlib>

#include "tests/simulation/run/run.h"

namespace sim
{

// link NAME IPV4/24 IPV6/64
void Run::set_up_link(const Words &words)
{
    world_.add_link(words.at(0), words.at(1), words.at(2));
}

// router NAME LINK...
void Run::set_up_router(const Words &words)
{
    world_.add_router(words.at(0), Words(words.begin() + 1, words.end()));
}

// daemon ROUTER.NAME PROGRAM OPTION...
void Run::set_up_daemon(const Words &words)
{
    world_.add_daemon(words.at(0), words.at(1), Words(words.begin() + 2, words.end()));
}

// host NAME LINK VERSION
void Run::set_up_host(const Words &words)
{
    world_.add_host(words.at(0), words.at(1),
                    static_cast<unsigned>(strtoul(words.at(2).c_str(), nullptr, 10)));
}

// querier NAME LINK VERSION NUMBER
void Run::set_up_querier(const Words &words)
{
    world_.add_querier(words.at(0), words.at(1),
                       static_cast<unsigned>(strtoul(words.at(2).c_str(), nullptr, 10)),
                       static_cast<unsigned>(strtoul(words.at(3).c_str(), nullptr, 10)));
}

// flow NAME LINK SOURCE GROUP SECONDS
void Run::set_up_flow(const Words &words)
{
    world_.add_flow(words.at(0), words.at(1), words.at(2), words.at(3), time_from(words.at(4)));
}

// route ROUTER DESTINATION/LENGTH LINK GATEWAY
void Run::set_up_route(const Words &words)
{
    Machine &machine = world_.machine(words.at(0));
    const size_t slash = words.at(1).find('/');
    machine.routes.push_back({address_from(words.at(1).substr(0, slash)),
                              static_cast<unsigned>(strtoul(words.at(1).c_str() + slash + 1, nullptr, 10)),
                              address_from(words.at(3)), machine.find(words.at(2))->index});
}

// file ROUTER PATH WORD...: a line more of that file.
void Run::set_up_file(const Words &words)
{
    std::string &text = world_.machine(words.at(0)).files[words.at(1)];
    for (size_t i = 2; i < words.size(); ++i) {
        text += words[i] + " ";
    }
    text += "\n";
}

// vrf ROUTER NAME TABLE: a device whose ports have a routing table of their own. Also an action.
void Run::set_up_vrf(const Words &words)
{
    world_.machine(words.at(0))
        .add_vrf(words.at(1), static_cast<uint32_t>(strtoul(words.at(2).c_str(), nullptr, 10)));
}

} // namespace sim
