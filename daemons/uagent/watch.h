/*
 * "uagent --watch": the agent that stays connected, in the daemons' frame. Each line of its input is a command,
 * sent as it comes. With reconnect a daemon that is not there, or ends, is tried every second and told again
 * what had been told before; meanwhile the input waits.
 */
#ifndef DAEMONS_UAGENT_WATCH_H
#define DAEMONS_UAGENT_WATCH_H

#include <cstdio>
#include <string>

#include "daemons/common/frame.h"
#include "daemons/common/timer.h"
#include "daemons/uagent/agent.h"
#include "daemons/uagent/told_users.h"

namespace uagent
{

class Watch final : public mcastd::Daemon
{
public:
    // Reads input, which errors call input_name and which stays the caller's; prints to out. Both must outlive
    // the object. The frame's run returns when the input ends: with a failure when there was a wrong line.
    Watch(mcastd::Frame &frame, const Settings &settings, int input, const std::string &input_name,
          FILE *out);
    ~Watch() override;
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    bool open() override;
    bool start() override;
    bool round() override;
    mcastd::TextParts status() override;

private:
    bool waiting() const
    {
        return retry_.running();
    }
    void fail(const std::string &error);
    void follow_daemon();
    void forget_daemon();
    void lose_daemon(const std::string &error);
    void try_again();
    bool tell_everything(std::string *error);
    bool listen_to_input(bool wanted);
    void read_some();
    void take_lines();
    void take_line(const std::string &line);
    void answered(bool good, const std::string &error);

    mcastd::Frame &frame_;
    const Settings settings_;
    const int input_;
    const std::string input_name_;
    const bool input_is_file_; // always ready, and nothing that an event loop can watch
    Agent agent_;
    ToldUsers told_;
    mcastd::Timer retry_; // runs while there is no daemon
    int followed_ = -1;   // the connection whose end is watched for
    bool listens_ = false;
    bool takes_ = false; // is within take_lines
    bool input_ended_ = false;
    bool ended_ = false;
    bool all_good_ = true; // no line was wrong
    std::string pending_;  // read, and not taken yet
    size_t line_ = 0;      // number of the last line taken
};

} // namespace uagent

#endif
