/*
 * Words of a command line: those that an option may have, and the answer to one that is misspelt.
 */
#ifndef DAEMONS_COMMON_COMMAND_WORDS_H
#define DAEMONS_COMMON_COMMAND_WORDS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace mcastd
{

// Accepts these words alone, and names the nearest one for another.
CLI::Validator one_of(const std::vector<std::string> &words);

// Has the errors of the command line name the nearest command or option for one that is not known.
void explain_errors(CLI::App &app);

} // namespace mcastd

#endif
