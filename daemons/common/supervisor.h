/*
 * Whoever started the daemon and watches over it, as systemd does: it names a datagram socket in $NOTIFY_SOCKET and is told there
 * in lines when the daemon is ready, reads its configuration again, or ends, and, when $WATCHDOG_USEC says so, every
 * second that it still lives. Started by anybody else, all of this does nothing.
 *
 * The socket is opened once, before anything else, and room in it is never waited for: a daemon out of descriptors, or
 * with a supervisor that does not read, goes on, and says what it could not say a second later.
 */
#ifndef DAEMONS_COMMON_SUPERVISOR_H
#define DAEMONS_COMMON_SUPERVISOR_H

#include "daemons/common/descriptor.h"

namespace mcastd
{

class Supervisor
{
public:
    // Finds out from the environment whether there is one. What it names and cannot be reached is logged and
    // left alone.
    void open();

    // The configuration is in force, the ports are open.
    void ready();

    // A reload begins; ready says when it is over.
    void reloading();

    // The last round is over.
    void stopping();

    // To be called once a second as long as the event loop turns: a sign of life, and what could not be said before.
    void alive();

private:
    void say(const char *lines);
    bool send_now(const char *lines) const;

    Descriptor socket_;
    bool watched_ = false;
    const char *unsaid_ = nullptr; // for want of room, the last of them
};

} // namespace mcastd

#endif
