/*
 * The words of a script about MSDP peers that are no programs of ours.
 */
#include "tests/simulation/run/run.h"

namespace sim
{

// foreign-connect ROUTER ADDRESS OWN: a program there connects to the MSDP peer at the address from one of its own.
void Run::foreign_connect(const Words &words)
{
    world_.add_foreign_peer(world_.machine(words.at(0)), address_from(words.at(1)), address_from(words.at(2)))
        .connect();
}

// foreign-announce ROUTER FLOW: the program that connected last announces the flow's source.
void Run::foreign_announce(const Words &words)
{
    const Flow &flow = world_.flow(words.at(1));
    world_.foreign_peer(world_.machine(words.at(0))).announce(flow.source, flow.group);
}

// foreign-half-close ROUTER: it stops sending and goes on reading.
void Run::foreign_half_close(const Words &words)
{
    world_.foreign_peer(world_.machine(words.at(0))).stop_sending();
}

} // namespace sim
