/*
 * The agent at work: commands in, messages out, one line printed for each.
 */
#ifndef DAEMONS_UAGENT_AGENT_H
#define DAEMONS_UAGENT_AGENT_H

#include <cstdio>
#include <string>
#include <vector>

#include "daemons/uagent/connection.h"
#include "daemons/uagent/message.h"
#include "daemons/uagent/told_users.h"

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

    // Sends each line that comes from the descriptor as a command, at once, and stays connected until it
    // ends. A wrong line is logged and passed over. False also when there was one. With reconnect a daemon
    // that is not there, or ends, is tried every second and told again what had been told before.
    bool watch(int input, const std::string &input_name, std::string *error);

private:
    bool connect(std::string *error);
    bool send(const Command &command, std::string *error);
    bool finish(std::string *error);
    bool tell_again(std::string *error);
    bool goes_on(bool good, std::string *error);
    bool take_line(const std::string &line, const std::string &place, std::string *error);
    bool take_lines(std::string *pending, const std::string &input_name, size_t *number, std::string *error);

    Settings settings_;
    FILE *out_;
    Connection connection_;
    ToldUsers told_;       // by watch
    bool all_good_ = true; // no line of watch was wrong
};

} // namespace uagent

#endif
