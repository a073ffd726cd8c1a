#include "daemons/common/nearest_word.h"

#include <algorithm>

namespace mcastd
{
namespace
{

// Longer ones are no misspelt words.
constexpr size_t MOST_LETTERS = 64;

// The number of letters left out, added, replaced or exchanged with the next one that make one word of the
// other. Row by row, with the two rows before at hand.
size_t distance(std::string_view from, std::string_view to)
{
    std::vector<size_t> two_before;
    std::vector<size_t> before(to.size() + 1);
    for (size_t j = 0; j <= to.size(); ++j) {
        before[j] = j;
    }
    for (size_t i = 1; i <= from.size(); ++i) {
        std::vector<size_t> row = {i};
        for (size_t j = 1; j <= to.size(); ++j) {
            const size_t replaced = before[j - 1] + (from[i - 1] != to[j - 1]);
            row.push_back(std::min({before[j] + 1, row[j - 1] + 1, replaced}));
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                row[j] = std::min(row[j], two_before[j - 2] + 1);
            }
        }
        two_before = std::move(before);
        before = std::move(row);
    }
    return before.back();
}

} // namespace

std::string nearest_word(std::string_view typed, const std::vector<std::string> &words)
{
    if (typed.empty() || typed.size() > MOST_LETTERS) {
        return "";
    }
    size_t least = std::max<size_t>(typed.size() / 3, 1) + 1;
    std::string nearest;
    for (const std::string &word : words) {
        const size_t far = word.starts_with(typed) ? 1 : distance(typed, word);
        if (far < least) {
            least = far;
            nearest = word;
        }
    }
    return nearest;
}

std::string suggestion(std::string_view typed, const std::vector<std::string> &words)
{
    const std::string word = nearest_word(typed, words);
    return word.empty() ? "" : "; did you mean " + word + "?";
}

} // namespace mcastd
