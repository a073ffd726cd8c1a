/*
 * "complete WORDS...": what the last word may be, one a line, for the completion of shells. It
 * follows the command line as the other commands built it, so that nothing is listed twice.
 */
#include <cstdio>
#include <net/if.h>
#include <string>
#include <vector>

#include "daemons/mcastctl/command.h"

namespace mcastctl
{
namespace
{

using Words = std::vector<std::string>;

Words interface_names()
{
    Words names;
    struct if_nameindex *const all = if_nameindex();
    for (auto *each = all; each != nullptr && each->if_index != 0; ++each) {
        names.emplace_back(each->if_name);
    }
    if_freenameindex(all);
    return names;
}

// The values that the option's argument may have, as far as they can be told.
Words values_of(const CLI::Option &option)
{
    const std::string type = option.get_type_name();
    if (type == "FAMILY") {
        return {"ipv4", "ipv6"};
    }
    return type == "INTERFACE" ? interface_names() : Words{};
}

constexpr auto ANY = [](const CLI::App *) { return true; };

const CLI::App *find_command(const CLI::App &command, const std::string &word)
{
    for (const CLI::App *each : command.get_subcommands(ANY)) {
        if (each->get_name() == word) {
            return each;
        }
    }
    return nullptr;
}

const CLI::Option *find_option(const CLI::App &command, const std::string &word)
{
    return word.starts_with("-") ? command.get_option_no_throw(word) : nullptr;
}

Words names_in(const CLI::App &command)
{
    Words names;
    for (const CLI::App *each : command.get_subcommands(ANY)) {
        names.push_back(each->get_name());
    }
    for (const CLI::Option *each : command.get_options()) {
        for (const std::string &name : each->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

int complete(const CLI::App &root, const Words &words)
{
    const CLI::App *command = &root;
    const CLI::Option *open_option = nullptr; // that the word before gave and that waits for its argument
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        const bool is_argument = open_option != nullptr;
        open_option = is_argument ? nullptr : find_option(*command, words[i]);
        if (open_option != nullptr && open_option->get_expected_max() == 0) {
            open_option = nullptr;
        }
        const CLI::App *next = is_argument ? nullptr : find_command(*command, words[i]);
        command = next != nullptr ? next : command;
    }
    const std::string start = words.empty() ? "" : words.back();
    for (const std::string &name : open_option != nullptr ? values_of(*open_option) : names_in(*command)) {
        if (name.starts_with(start)) {
            std::printf("%s\n", name.c_str());
        }
    }
    return EXIT_DONE;
}

} // namespace

void add_complete_command(const CommandLine &line)
{
    CLI::App &command =
        *line.root.add_subcommand("complete", "What may follow the words of an unfinished command line");
    command.prefix_command();
    command.set_help_flag();
    on_command(line, command, [&root = line.root, &command] { return complete(root, command.remaining()); });
}

} // namespace mcastctl
