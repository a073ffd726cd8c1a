/*
 * The formatter. A format is a text and then segments, each from a '%' to just before the next:
 *
 *      join   %A   on   %-12I   [%u]                    two '%' in a row are one segment with the text behind
 *      text | segment | segment    | segment
 *
 * A segment takes one argument, prints it and then the text behind its letter. The walk keeps what the
 * filters ask about as it passes: the last source, group and interface. The verdict comes last, because a
 * line is printed whether it passes or not.
 *
 * This is the one file of the room that looks up, to the names of interfaces.
 */
#include "mcast/format.h"

#include <string.h>

#include "addr/address_text.h"
#include "addr/format_directive.h"
#include "addr/text_output.h"
#include "mcast/acl_filter.h"
#include "mcast/interface_name.h"

namespace
{

using mcast::Directive;
using mcast::TextOutput;

struct Line {
    TextOutput out;
    va_list args;
    char address[mcast::kAddressTextSize]; /* the last one printed */
    const MCAST_ADDR_S *source;
    const MCAST_ADDR_S *group;
    uint32_t if_index;
};

const MCAST_ADDR_S *PrintAddress(Line &line, const Directive &directive)
{
    const MCAST_ADDR_S *addr = va_arg(line.args, const MCAST_ADDR_S *);
    if (addr != nullptr) {
        mcast::WriteAddress(line.address, addr);
    }
    mcast::PrintString(line.out, directive, line.address);
    return addr;
}

uint32_t PrintInterface(Line &line, const Directive &directive)
{
    uint32_t if_index = va_arg(line.args, uint32_t);
    char name[MCAST_IF_NAME_SIZE];
    MCAST_GetIfNameOrIndex(if_index, name);
    mcast::PrintString(line.out, directive, name);
    return if_index;
}

/* Prints the argument of a well-formed conversion. False when its letter takes none. */
bool PrintArgument(Line &line, const Directive &directive)
{
    switch (directive.letter) {
    case 'd':
    case 'i':
    case 'l':
        mcast::PrintInteger(line.out, directive, static_cast<uint64_t>(int64_t{va_arg(line.args, int32_t)}));
        return true;
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        mcast::PrintInteger(line.out, directive, va_arg(line.args, uint32_t));
        return true;
    case 'c':
        mcast::PrintCharacter(line.out, directive, va_arg(line.args, int));
        return true;
    case 'p':
        mcast::PrintPointer(line.out, directive, va_arg(line.args, const void *));
        return true;
    case 's':
        mcast::PrintString(line.out, directive, va_arg(line.args, const char *));
        return true;
    case 'e':
    case 'f':
    case 'g':
    case 'E':
    case 'G':
        mcast::PrintDouble(line.out, directive, va_arg(line.args, double));
        return true;
    case 'A':
        PrintAddress(line, directive);
        return true;
    case 'M': {
        const MCAST_ADDR_S *addr = PrintAddress(line, directive);

        line.source = addr != nullptr ? addr : line.source;
        return true;
    }
    case 'N': {
        const MCAST_ADDR_S *addr = PrintAddress(line, directive);

        line.group = addr != nullptr ? addr : line.group;
        return true;
    }
    case 'I':
        PrintInterface(line, directive);
        return true;
    case 'P':
        line.if_index = PrintInterface(line, directive);
        return true;
    default:
        return false;
    }
}

/* Prints the segment from its '%' at begin to end. */
void PrintSegment(Line &line, const char *begin, const char *end)
{
    Directive directive = mcast::ReadDirective(begin + 1, end);
    bool too_wide = directive.well_formed && mcast::IsTooWide(directive);

    if (directive.well_formed && !too_wide) {
        if (PrintArgument(line, directive)) {
            mcast::Append(line.out, directive.end, static_cast<size_t>(end - directive.end));
        }
        return;
    }

    /* The argument is taken and remembered all the same; what is printed of it is dropped. */
    TextOutput out = line.out;

    line.out = mcast::OpenText(nullptr, 0);
    directive.width = 0;
    directive.precision = 0;

    bool taken = PrintArgument(line, directive);

    line.out = out;
    if (taken && !too_wide) {
        mcast::Append(line.out, begin, static_cast<size_t>(end - begin));
    }
}

const char *FindPercent(const char *text, const char *end)
{
    const void *found = memchr(text, '%', static_cast<size_t>(end - text));
    return found != nullptr ? static_cast<const char *>(found) : end;
}

/* Prints everything from the first '%' at at to end. */
void PrintSegments(Line &line, const char *at, const char *end)
{
    while (at < end) {
        bool doubled = at + 1 < end && at[1] == '%';
        const char *next = FindPercent(at + (doubled ? 2 : 1), end);

        if (doubled) {
            mcast::Append(line.out, at + 1, static_cast<size_t>(next - (at + 1)));
        } else {
            PrintSegment(line, at, next);
        }
        at = next;
    }
}

bool Passes(const Line &line, const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number, uint32_t if_filter)
{
    if (if_filter != 0 && line.if_index != 0 && line.if_index != if_filter) {
        return false;
    }
    if (acl_number == MCAST_NONE || (line.source == nullptr && line.group == nullptr)) {
        return true;
    }
    return MCAST_IsAclPermit(ctx, acl_number, line.source, line.group) == MCAST_TRUE;
}

} // namespace

uint64_t MCAST_vsprintf(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number, uint32_t if_filter,
                        const char *format, va_list args, size_t size, char *buffer)
{
    /* A copy, so that the line may be printed over its own format. */
    char copy[MCAST_FORMAT_MAX];
    const size_t length = strnlen(format, sizeof(copy));
    const char *end = copy + length;
    Line line;

    memcpy(copy, format, length);
    line.out = mcast::OpenText(buffer, size);
    line.address[0] = '\0';
    line.source = nullptr;
    line.group = nullptr;
    line.if_index = 0;

    const char *first = FindPercent(copy, end);

    mcast::Append(line.out, copy, static_cast<size_t>(first - copy));
    if (first == end) {
        return mcast::Length(line.out);
    }
    va_copy(line.args, args);
    PrintSegments(line, first, end);
    va_end(line.args);
    return Passes(line, ctx, acl_number, if_filter) ? mcast::Length(line.out) : 0;
}
