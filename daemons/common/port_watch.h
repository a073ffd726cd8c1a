/*
 * Looks after the names of the daemon's local ports, those of the library included. Who deletes or moves their
 * folder makes a daemon deaf that goes on as if nothing had happened, and a second one can start beside it. So the
 * names are looked at every second and made again (mcasthost/local_socket.h).
 *
 * A port that another process has meanwhile is that process's: of two daemons the one that can be reached stays,
 * and this one ends. It looks twice before it does, for a daemon that fails to start has ports for a moment.
 */
#ifndef DAEMONS_COMMON_PORT_WATCH_H
#define DAEMONS_COMMON_PORT_WATCH_H

#include <cstdint>

namespace mcastd
{

// Looks in a row that find a port taken before the daemon gives it up.
constexpr unsigned LOOKS_AT_A_TAKEN_PORT = 2;

// How often a port lost its name and got it back.
uint64_t local_ports_rebound();

class PortWatch
{
public:
    // To be called about once a second. False when a port is another process's: the daemon is to end, which is
    // logged.
    bool look();

private:
    unsigned taken_ = 0;
    int said_error_ = 0;
};

} // namespace mcastd

#endif
