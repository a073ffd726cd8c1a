/*
 * A text that is made in parts, whole.
 */
#ifndef TESTS_DAEMONS_WHOLE_TEXT_H
#define TESTS_DAEMONS_WHOLE_TEXT_H

#include <string>

#include "daemons/common/text_parts.h"

inline std::string whole_text(const mcastd::TextParts &parts)
{
    std::string text;
    while (parts(&text)) {
    }
    return text;
}

#endif
