#include "daemons/uagent/agent.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <poll.h>
#include <unistd.h>

#include "daemons/common/log.h"
#include "daemons/uagent/describe.h"

namespace uagent
{
namespace
{

// The longest line of watch.
constexpr size_t MOST_LINE = 1 << 20;

constexpr int RETRY_MS = 1000;

std::string place_of(const std::string &name, size_t line)
{
    return name + ':' + std::to_string(line);
}

// Waits until input can be read or the daemon (-1: none) hangs up, which is the second result.
bool wait_for_input(int input, int daemon, bool *hung_up)
{
    pollfd waits[] = {{input, POLLIN, 0}, {daemon, 0, 0}};
    int ready;
    do {
        ready = poll(waits, std::size(waits), -1);
    } while (ready < 0 && errno == EINTR);
    *hung_up = (waits[1].revents & (POLLHUP | POLLERR)) != 0;
    return ready > 0;
}

} // namespace

Agent::Agent(const Settings &settings, FILE *out)
    : settings_(settings), out_(out), connection_(static_cast<int>(settings.timeout_s) * 1000)
{
}

bool Agent::connect(std::string *error)
{
    return settings_.dry_run || connection_.descriptor() >= 0 || connection_.open(settings_.family, error);
}

bool Agent::send(const Command &command, std::string *error)
{
    for (const Message &message : build_messages(command)) {
        if (!settings_.dry_run && !connection_.send(message.bytes, error)) {
            return false;
        }
        const std::string line =
            settings_.json ? describe_json(command, message) : describe(command, message);
        fprintf(out_, "%s\n", line.c_str());
    }
    return true;
}

bool Agent::finish(std::string *error)
{
    fflush(out_);
    return settings_.dry_run || connection_.finish(error);
}

bool Agent::run_words(const std::vector<std::string> &words, std::string *error)
{
    Command command;
    return parse_command(words, settings_.family, &command, error) && connect(error) &&
           send(command, error) && finish(error);
}

bool Agent::run_file(const std::string &path, std::string *error)
{
    std::ifstream file(path);
    std::vector<Command> commands;
    std::string line;
    if (!file) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    for (size_t number = 1; std::getline(file, line); ++number) {
        const auto words = split_words(line);
        if (words.empty()) {
            continue;
        }
        if (!parse_command(words, settings_.family, &commands.emplace_back(), error)) {
            *error = place_of(path, number) + ": " + *error;
            return false;
        }
    }
    if (file.bad()) {
        *error = path + ": cannot be read to its end";
        return false;
    }
    if (!connect(error)) {
        return false;
    }
    for (const Command &command : commands) {
        if (!send(command, error)) {
            return false;
        }
    }
    return finish(error);
}

bool Agent::take_line(const std::string &line, const std::string &place, std::string *error)
{
    const auto words = split_words(line);
    Command command;
    std::string wrong;
    if (words.empty()) {
        return true;
    }
    if (!parse_command(words, settings_.family, &command, &wrong)) {
        mcastd::log_error("%s: %s", place.c_str(), wrong.c_str());
        all_good_ = false;
        return true;
    }
    told_.note(command);
    return goes_on(send(command, error), error);
}

// Takes the whole lines out of what was read.
bool Agent::take_lines(std::string *pending, const std::string &input_name, size_t *number,
                       std::string *error)
{
    size_t begin = 0;
    for (size_t end; (end = pending->find('\n', begin)) != std::string::npos; begin = end + 1) {
        if (!take_line(pending->substr(begin, end - begin), place_of(input_name, ++*number), error)) {
            return false;
        }
    }
    pending->erase(0, begin);
    if (pending->size() > MOST_LINE) {
        *error = place_of(input_name, *number + 1) + ": the line is too long";
        return false;
    }
    return goes_on(finish(error), error);
}

// Until a daemon has taken it all.
bool Agent::tell_again(std::string *error)
{
    mcastd::log_warning("%s; trying every second", error->c_str());
    for (;; poll(nullptr, 0, RETRY_MS)) {
        const std::vector<Command> commands = told_.again();
        bool good = connection_.open(settings_.family, error);

        for (size_t i = 0; good && i < commands.size(); ++i) {
            good = send(commands[i], error);
        }
        if (good && finish(error)) {
            mcastd::log_info("connected, %zu users announced", told_.count());
            return true;
        }
    }
}

// What failed because the daemon is gone is told to the next one.
bool Agent::goes_on(bool good, std::string *error)
{
    return good || (settings_.reconnect && connection_.hung_up() && tell_again(error));
}

bool Agent::watch(int input, const std::string &input_name, std::string *error)
{
    std::string pending;
    size_t number = 0;
    bool hung_up = false;
    if (!connect(error) && !(settings_.reconnect && tell_again(error))) {
        return false;
    }
    while (wait_for_input(input, connection_.descriptor(), &hung_up)) {
        char bytes[4096];
        if (hung_up) {
            *error = "the daemon closed the connection";
            if (!goes_on(false, error)) {
                return false;
            }
            continue;
        }
        const ssize_t size = read(input, bytes, sizeof(bytes));
        if (size < 0) {
            *error = input_name + ": " + std::strerror(errno);
            return false;
        }
        pending.append(size > 0 ? std::string(bytes, static_cast<size_t>(size)) : "\n");
        if (!take_lines(&pending, input_name, &number, error)) {
            return false;
        }
        if (size == 0) {
            *error = "some lines were invalid";
            return all_good_;
        }
    }
    *error = input_name + ": " + std::strerror(errno);
    return false;
}

} // namespace uagent
