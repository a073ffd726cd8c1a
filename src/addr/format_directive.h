/*
 * One conversion of a format: its reading, and the printing of one value by it.
 */
#ifndef SRC_ADDR_FORMAT_DIRECTIVE_H
#define SRC_ADDR_FORMAT_DIRECTIVE_H

#include <limits.h>
#include <stdint.h>

#include "addr/text_output.h"

namespace mcast
{

/* Flags. */
inline constexpr uint32_t kLeft = 1;
inline constexpr uint32_t kZero = 2;
inline constexpr uint32_t kPlus = 4;
inline constexpr uint32_t kSpace = 8;
inline constexpr uint32_t kAlternate = 16;
inline constexpr uint32_t kGrouped = 32;

/* The greatest width and precision that the C library prints. */
inline constexpr uint32_t kGreatestNumber = INT_MAX;

/* A conversion as it is written. */
struct Directive {
    uint32_t flags;
    uint32_t width;     /* any above kGreatestNumber is kGreatestNumber + 1 */
    uint32_t precision; /* likewise */
    bool has_precision;
    bool well_formed;
    char letter;     /* the first letter; 0 when there is none */
    char conversion; /* behind l and ll what follows, otherwise the letter */
    const char *end; /* behind the conversion */
};

inline bool IsTooWide(const Directive &directive)
{
    return directive.width > kGreatestNumber || directive.precision > kGreatestNumber;
}

/*
 * Reads the conversion between a '%', where text stands behind it, and limit, which holds no further '%'. One
 * that is not well formed has a letter all the same when there is one.
 */
Directive ReadDirective(const char *text, const char *limit);

/*
 * Prints a value by a directive that is not too wide. Those of 32 bits are widened as their conversion wants
 * it.
 */
void PrintInteger(TextOutput &out, const Directive &directive, uint64_t value);
void PrintCharacter(TextOutput &out, const Directive &directive, int value);
void PrintPointer(TextOutput &out, const Directive &directive, const void *value);
void PrintString(TextOutput &out, const Directive &directive, const char *value);
void PrintDouble(TextOutput &out, const Directive &directive, double value);

} // namespace mcast

#endif
