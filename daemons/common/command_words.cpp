#include "daemons/common/command_words.h"

#include <algorithm>

#include "daemons/common/nearest_word.h"

namespace mcastd
{
namespace
{

std::string joined(const std::vector<std::string> &words, const char *between)
{
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

// The commands and long options that may follow the command.
std::vector<std::string> words_after(const CLI::App &command)
{
    std::vector<std::string> words;
    for (const CLI::App *each : command.get_subcommands([](const CLI::App *) { return true; })) {
        words.push_back(each->get_name());
    }
    for (const CLI::Option *each : command.get_options()) {
        for (const std::string &name : each->get_lnames()) {
            words.push_back("--" + name);
        }
    }
    return words;
}

// For the first word that no command of the line knows and that is near to one that it does.
std::string suggestion_for(const CLI::App &root)
{
    const CLI::App *command = &root;
    for (;;) {
        for (const std::string &word : command->remaining()) {
            std::string text = suggestion(word.substr(0, word.find('=')), words_after(*command));
            if (!text.empty()) {
                return text;
            }
        }
        const std::vector<CLI::App *> given = command->get_subcommands();
        if (given.empty()) {
            return "";
        }
        command = given.front();
    }
}

std::string explain(const CLI::App *root, const CLI::Error &error)
{
    const bool is_unknown = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    return std::string(error.what()) + (is_unknown ? suggestion_for(*root) : "") +
           "\nRun with --help for more information.\n";
}

} // namespace

CLI::Validator one_of(const std::vector<std::string> &words)
{
    const auto check = [words](std::string &typed) -> std::string {
        if (std::find(words.begin(), words.end(), typed) != words.end()) {
            return "";
        }
        return typed + " is none of " + joined(words, ", ") + suggestion(typed, words);
    };
    return CLI::Validator(check, "{" + joined(words, ",") + "}");
}

void explain_errors(CLI::App &app)
{
    app.failure_message(explain);
}

} // namespace mcastd
