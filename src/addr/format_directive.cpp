/*
 * Conversions. Integers, characters and strings are printed here; pointers, floating point and digits grouped
 * as the locale says go to the C library, by a conversion written anew from what was read, so that nothing of
 * the caller's format reaches it unseen.
 */
#include "addr/format_directive.h"

#include <stdio.h>

namespace mcast
{
namespace
{

constexpr char kFlagCharacters[] = "-0+ #'"; /* in the order of the flags' bits */

bool IsLetter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

/* The flag of a character, 0 when it is none. */
uint32_t FlagOf(char character)
{
    switch (character) {
    case '-':
        return kLeft;
    case '0':
        return kZero;
    case '+':
        return kPlus;
    case ' ':
        return kSpace;
    case '#':
        return kAlternate;
    case '\'':
        return kGrouped;
    default:
        return 0;
    }
}

/*
 * Reads digits from *text on and moves it behind them. Any number above kGreatestNumber is given as that plus
 * one.
 */
uint32_t ReadNumber(const char **text, const char *limit)
{
    uint64_t number = 0;
    for (; *text < limit && IsDigit(**text); ++*text) {
        number = number * 10 + static_cast<uint32_t>(**text - '0');
        if (number > kGreatestNumber) {
            number = uint64_t{kGreatestNumber} + 1;
        }
    }
    return static_cast<uint32_t>(number);
}

bool IsInteger(char letter)
{
    return letter != '\0' && strchr("diouxX", letter) != nullptr;
}

/* Passes over the letter at end; what follows an l, or two, is the conversion. */
void ReadConversion(Directive &directive, const char *limit)
{
    directive.conversion = directive.letter;
    ++directive.end;
    if (directive.letter != 'l') {
        return;
    }
    if (directive.end < limit && *directive.end == 'l') {
        ++directive.end;
    }
    directive.conversion = directive.end < limit ? *directive.end++ : '\0';
    directive.well_formed = IsInteger(directive.conversion);
}

/* Prints one value by the C library: length is "" or "l". */
template <typename Value>
void PrintByLibrary(TextOutput &out, const Directive &directive, const char *length, Value value)
{
    char conversion[40]; /* '%', six flags, ten digits, '.', ten digits, length, letter */
    char *end = conversion;

    if (out.room == 0) {
        return;
    }
    *end++ = '%';
    for (uint32_t bit = 0; bit < sizeof(kFlagCharacters) - 1; ++bit) {
        if ((directive.flags & 1u << bit) != 0) {
            *end++ = kFlagCharacters[bit];
        }
    }
    size_t left = sizeof(conversion) - static_cast<size_t>(end - conversion);

    if (directive.has_precision) {
        (void)snprintf(end, left, directive.width != 0 ? "%u.%u%s%c" : "%.0u.%u%s%c", directive.width,
                       directive.precision, length, directive.conversion);
    } else {
        (void)snprintf(end, left, directive.width != 0 ? "%u%s%c" : "%.0u%s%c", directive.width, length,
                       directive.conversion);
    }

    int printed = snprintf(out.at, out.room + 1, conversion, value);

    if (printed < 0) {
        *out.at = '\0';
    } else {
        Advance(out, static_cast<size_t>(printed) < out.room ? static_cast<size_t>(printed) : out.room);
    }
}

/* Appends the text in its field. */
void AppendField(TextOutput &out, const Directive &directive, const char *text, size_t length)
{
    size_t padding = directive.width > length ? directive.width - length : 0;
    if ((directive.flags & kLeft) == 0) {
        AppendRepeated(out, ' ', padding);
    }
    Append(out, text, length);
    if ((directive.flags & kLeft) != 0) {
        AppendRepeated(out, ' ', padding);
    }
}

/* Writes the digits of value so that they end at end; where they begin. */
char *WriteDecimal(char *end, uint64_t value)
{
    constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    while (value >= 100) {
        end -= 2;
        memcpy(end, kPairs + 2 * (value % 100), 2);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        memcpy(end, kPairs + 2 * value, 2);
        return end;
    }
    *--end = static_cast<char>('0' + value);
    return end;
}

/* The same with a base of two to the power of bits. */
char *WriteBinaryBase(char *end, uint64_t value, uint32_t bits, const char *digits)
{
    do {
        *--end = digits[value & ((1u << bits) - 1)];
        value >>= bits;
    } while (value != 0);
    return end;
}

char *WriteDigits(char *end, uint64_t value, char conversion)
{
    switch (conversion) {
    case 'x':
        return WriteBinaryBase(end, value, 4, "0123456789abcdef");
    case 'X':
        return WriteBinaryBase(end, value, 4, "0123456789ABCDEF");
    case 'o':
        return WriteBinaryBase(end, value, 3, "01234567");
    default:
        return WriteDecimal(end, value);
    }
}

/* What is written in front of an integer's digits. */
const char *PrefixOf(const Directive &directive, uint64_t value)
{
    switch (directive.conversion) {
    case 'd':
    case 'i':
        if (static_cast<int64_t>(value) < 0) {
            return "-";
        }
        return (directive.flags & kPlus) != 0 ? "+" : (directive.flags & kSpace) != 0 ? " " : "";
    case 'x':
        return (directive.flags & kAlternate) != 0 && value != 0 ? "0x" : "";
    case 'X':
        return (directive.flags & kAlternate) != 0 && value != 0 ? "0X" : "";
    default:
        return "";
    }
}

} // namespace

Directive ReadDirective(const char *text, const char *limit)
{
    Directive directive = {};
    const char *at = text;

    for (uint32_t flag; at < limit && (flag = FlagOf(*at)) != 0; ++at) {
        directive.flags |= flag;
    }
    directive.width = ReadNumber(&at, limit);
    if (at < limit && *at == '.') {
        ++at;
        directive.has_precision = true;
        directive.precision = ReadNumber(&at, limit);
    }
    directive.well_formed = at < limit && IsLetter(*at);
    while (at < limit && !IsLetter(*at)) {
        ++at;
    }
    directive.end = at;
    if (at < limit) {
        bool well_formed = directive.well_formed;

        directive.letter = *at;
        ReadConversion(directive, limit);
        directive.well_formed = directive.well_formed && well_formed;
    }
    return directive;
}

void PrintInteger(TextOutput &out, const Directive &directive, uint64_t value)
{
    if ((directive.flags & kGrouped) != 0) {
        PrintByLibrary(out, directive, "l", value);
        return;
    }
    char buffer[24];
    char *end = buffer + sizeof(buffer);
    const char *prefix = PrefixOf(directive, value);
    bool negative = prefix[0] == '-';
    char *digits = WriteDigits(end, negative ? 0 - value : value, directive.conversion);

    if (value == 0 && directive.has_precision && directive.precision == 0) {
        digits = end;
    }
    size_t prefix_length = strlen(prefix);
    size_t length = static_cast<size_t>(end - digits);
    size_t zeros = directive.precision > length ? directive.precision - length : 0;

    if ((directive.flags & kAlternate) != 0 && directive.conversion == 'o' && zeros == 0 &&
        (length == 0 || *digits != '0')) {
        zeros = 1;
    }
    length += prefix_length + zeros;
    size_t padding = directive.width > length ? directive.width - length : 0;

    if ((directive.flags & kZero) != 0 && (directive.flags & kLeft) == 0 && !directive.has_precision) {
        zeros += padding;
        padding = 0;
    }
    if ((directive.flags & kLeft) == 0) {
        AppendRepeated(out, ' ', padding);
    }
    Append(out, prefix, prefix_length);
    AppendRepeated(out, '0', zeros);
    Append(out, digits, static_cast<size_t>(end - digits));
    if ((directive.flags & kLeft) != 0) {
        AppendRepeated(out, ' ', padding);
    }
}

void PrintCharacter(TextOutput &out, const Directive &directive, int value)
{
    char character = static_cast<char>(value);
    AppendField(out, directive, &character, 1);
}

void PrintPointer(TextOutput &out, const Directive &directive, const void *value)
{
    PrintByLibrary(out, directive, "", value);
}

void PrintString(TextOutput &out, const Directive &directive, const char *value)
{
    constexpr char kNull[] = "(null)";
    if (value == nullptr) {
        value = directive.has_precision && directive.precision < sizeof(kNull) - 1 ? "" : kNull;
    }
    AppendField(out, directive, value,
                directive.has_precision ? strnlen(value, directive.precision) : strlen(value));
}

void PrintDouble(TextOutput &out, const Directive &directive, double value)
{
    PrintByLibrary(out, directive, "", value);
}

} // namespace mcast
