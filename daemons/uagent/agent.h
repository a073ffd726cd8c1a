/*
 * The agent at work: commands in, messages out, one line printed for each.
 */
#ifndef DAEMONS_UAGENT_AGENT_H
#define DAEMONS_UAGENT_AGENT_H

#include <cstdio>
#include <string>
#include <vector>

#include "daemons/uagent/command.h"
#include "daemons/uagent/connection.h"
#include "daemons/uagent/message.h"

namespace uagent
{

struct Settings {
    uint16_t family = MCAST_FAMILY_IPV4;
    bool json = false;
    bool dry_run = false; // print what would be sent, connect to nobody
    uint32_t timeout_s = 10;
    bool reconnect = false; // watch outlives the daemon
};

class Agent
{
public:
    // Prints to out, which must outlive the agent.
    Agent(const Settings &settings, FILE *out);

    // Sends one command, the words of a command line. Nothing is sent of one that is wrong.
    bool run_words(const std::vector<std::string> &words, std::string *error);

    // Sends the commands of a file, one a line. Every line is read before anything is sent.
    bool run_file(const std::string &path, std::string *error);

    // The steps of which the above are made. Connects to the daemon, unless that was done; or anew.
    bool connect(std::string *error);
    bool reconnect(std::string *error);

    // Hands one command to the connection and prints it.
    bool send(const Command &command, std::string *error);

    // Waits until the daemon has read what was sent.
    bool finish(std::string *error);

    // Waiting for the daemon then fails as soon as the function says so.
    void stop_waiting_when(bool (*asked_for)())
    {
        connection_.stop_waiting_when(asked_for);
    }

    // Whether the daemon closed the connection.
    bool hung_up() const
    {
        return connection_.hung_up();
    }

    // The connection, on which hang-up is reported; -1 when there is none.
    int descriptor() const
    {
        return connection_.descriptor();
    }

private:
    Settings settings_;
    FILE *out_;
    Connection connection_;
};

} // namespace uagent

#endif
