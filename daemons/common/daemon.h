/*
 * What is a daemon's own: the frame calls these functions in the order of this header. A daemon is one class
 * that keeps its parts as members, in the order in which they are made, and overrides what it needs; its main
 * reads the command line and calls run_in_frame. frame.h draws the whole.
 */
#ifndef DAEMONS_COMMON_DAEMON_H
#define DAEMONS_COMMON_DAEMON_H

#include <functional>

#include "daemons/common/config_file.h"
#include "daemons/common/text_parts.h"

namespace mcastd
{

class Daemon
{
public:
    // Puts in force what was read of a configuration file.
    using TakeOver = std::function<void()>;

    virtual ~Daemon() = default;

    // Collects what the daemon's table of the configuration file says, [NAME], and changes nothing. What is
    // wrong it throws, as ConfigTable does. What it returns is called when the whole file is right, and
    // dropped when something else in it is wrong: at the start between open and start, later on SIGHUP. Not
    // called without a file.
    virtual TakeOver read_config(ConfigTable & /*table*/)
    {
        return [] {};
    }

    // Opens what the daemon needs of the machine: sockets, ports, the kernel's tables; offers its tables and
    // commands to the control endpoint. The access lists and instances of the configuration file are in force.
    // False ends the process with a failure, and the reason is logged.
    virtual bool open() = 0;

    // Begins: all that is the daemon's is open and configured, and other processes may hear of it. False as of
    // open.
    virtual bool start()
    {
        return true;
    }

    // Called once after start and then after every event. Works off what was changed, a bounded amount, and
    // sends to other processes what waits for them. True when there is more to do: the next round then serves
    // what is ready without waiting.
    virtual bool round()
    {
        return false;
    }

    // The tables as text, for SIGUSR1. Its parts are asked for while the daemon lives, each in another round.
    virtual TextParts status() = 0;

    // Has the others say everything again, for SIGUSR2. False when nobody is to.
    virtual bool resynchronise()
    {
        return false;
    }

    // Takes leave after the last round, while everything is still there: what the others are to know at the
    // end is said and sent. Not called when open or start failed.
    virtual void close()
    {
    }
};

} // namespace mcastd

#endif
