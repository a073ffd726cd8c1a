/*
 * Bounded text: a place in a buffer that text is appended to. Once the buffer is full nothing more is stored;
 * the text is terminated after every step.
 */
#ifndef SRC_ADDR_TEXT_OUTPUT_H
#define SRC_ADDR_TEXT_OUTPUT_H

#include <stddef.h>
#include <string.h>

namespace mcast
{

struct TextOutput {
    char *at;    /* the terminator, where the next character goes */
    size_t room; /* characters that still fit in front of the terminator */
    char *start;
};

/* An empty text in size bytes. No byte is touched when size is 0. */
inline TextOutput OpenText(char *buffer, size_t size)
{
    if (size == 0) {
        return {buffer, 0, buffer};
    }
    buffer[0] = '\0';
    return {buffer, size - 1, buffer};
}

inline size_t Length(const TextOutput &out)
{
    return static_cast<size_t>(out.at - out.start);
}

/* Counts what has been stored behind the end of the text, no more than fits, and terminates it. */
inline void Advance(TextOutput &out, size_t length)
{
    out.at += length;
    out.room -= length;
    *out.at = '\0';
}

inline void Append(TextOutput &out, const char *text, size_t length)
{
    if (length > out.room) {
        length = out.room;
    }
    if (length != 0) {
        memcpy(out.at, text, length);
        Advance(out, length);
    }
}

inline void AppendRepeated(TextOutput &out, char character, size_t count)
{
    if (count > out.room) {
        count = out.room;
    }
    if (count != 0) {
        memset(out.at, character, count);
        Advance(out, count);
    }
}

} // namespace mcast

#endif
