/*
 * The word that a misspelt one was meant to be.
 */
#ifndef DAEMONS_COMMON_NEAREST_WORD_H
#define DAEMONS_COMMON_NEAREST_WORD_H

#include <string>
#include <string_view>
#include <vector>

namespace mcastd
{

// The word of the list that differs least from the typed one, the first of several; empty when none is near.
// Near is one letter in three left out, added, replaced or exchanged with the next one, at least one letter,
// and every word that begins with the typed one.
std::string nearest_word(std::string_view typed, const std::vector<std::string> &words);

// What an error about the typed word ends with: "; did you mean groups?", or nothing.
std::string suggestion(std::string_view typed, const std::vector<std::string> &words);

} // namespace mcastd

#endif
