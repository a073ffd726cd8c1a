/*
 * A text that is made in parts, lest one round of the event loop make the whole of a long one.
 */
#ifndef DAEMONS_COMMON_TEXT_PARTS_H
#define DAEMONS_COMMON_TEXT_PARTS_H

#include <functional>
#include <string>
#include <utility>

namespace mcastd
{

// Each call appends the next part to the text, with a bounded amount of work; false when it was the last one. What the
// text tells of may change between the calls. Throws std::bad_alloc when memory is short; the text is then given up.
using TextParts = std::function<bool(std::string *text)>;

// A short text, of one part.
inline TextParts one_part(std::string whole)
{
    return [whole = std::move(whole)](std::string *text) {
        *text += whole;
        return false;
    };
}

} // namespace mcastd

#endif
