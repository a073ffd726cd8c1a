/*
 * Conversions. What trace lines are made of (numbers with a width at most, whole strings) is printed here;
 * the rest goes to the C library, by a conversion written anew from what was read, so that nothing of the
 * caller's format reaches it unseen.
 */
#include "addr/format_directive.h"

#include <stdio.h>

#include "mcast/format.h"

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

/* Reads digits from *text on and moves it behind them. */
uint32_t ReadNumber(const char **text, const char *limit)
{
    uint32_t number = 0;
    for (; *text < limit && IsDigit(**text); ++*text) {
        number = number * 10 + static_cast<uint32_t>(**text - '0');
        if (number > MCAST_FORMAT_WIDTH_MAX) {
            number = MCAST_FORMAT_WIDTH_MAX;
        }
    }
    return number;
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
    char conversion[32]; /* '%', six flags, five digits, '.', five digits, length, letter */
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

char *WriteHexadecimal(char *end, uint64_t value, const char *digits)
{
    do {
        *--end = digits[value & 0xf];
        value >>= 4;
    } while (value != 0);
    return end;
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
    char digits[24];
    char *end = digits + sizeof(digits);
    char *begin = end;
    bool is_signed = directive.conversion == 'd' || directive.conversion == 'i';
    bool negative = is_signed && static_cast<int64_t>(value) < 0;

    if (directive.has_precision || directive.conversion == 'o' || (directive.flags & ~(kLeft | kZero)) != 0) {
        PrintByLibrary(out, directive, "l", value);
        return;
    }
    if (is_signed || directive.conversion == 'u') {
        begin = WriteDecimal(end, negative ? 0 - value : value);
    } else {
        begin = WriteHexadecimal(end, value,
                                 directive.conversion == 'x' ? "0123456789abcdef" : "0123456789ABCDEF");
    }
    if (directive.flags == kZero) {
        size_t length = static_cast<size_t>(end - begin) + negative;

        Append(out, "-", negative);
        AppendRepeated(out, '0', directive.width > length ? directive.width - length : 0);
    } else if (negative) {
        *--begin = '-';
    }
    if (directive.flags == kZero) {
        Append(out, begin, static_cast<size_t>(end - begin));
    } else {
        AppendField(out, directive, begin, static_cast<size_t>(end - begin));
    }
}

void PrintCharacter(TextOutput &out, const Directive &directive, int value)
{
    char character = static_cast<char>(value);
    if ((directive.flags & ~kLeft) != 0) {
        PrintByLibrary(out, directive, "", value);
        return;
    }
    AppendField(out, directive, &character, 1);
}

void PrintPointer(TextOutput &out, const Directive &directive, const void *value)
{
    PrintByLibrary(out, directive, "", value);
}

void PrintString(TextOutput &out, const Directive &directive, const char *value)
{
    if (value == nullptr || (directive.flags & ~kLeft) != 0) {
        PrintByLibrary(out, directive, "", value);
        return;
    }
    AppendField(out, directive, value,
                directive.has_precision ? strnlen(value, directive.precision) : strlen(value));
}

void PrintDouble(TextOutput &out, const Directive &directive, double value)
{
    PrintByLibrary(out, directive, "", value);
}

} // namespace mcast
