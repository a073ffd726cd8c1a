#include "daemons/uagent/agent.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "daemons/uagent/describe.h"

namespace uagent
{
namespace
{

std::string place_of(const std::string &name, size_t line)
{
    return name + ':' + std::to_string(line);
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

bool Agent::reconnect(std::string *error)
{
    return settings_.dry_run || connection_.open(settings_.family, error);
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

} // namespace uagent
