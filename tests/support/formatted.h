/*
 * Lines printed by MCAST_vsprintf into a block of exactly the size that it may use.
 */
#ifndef TESTS_SUPPORT_FORMATTED_H
#define TESTS_SUPPORT_FORMATTED_H

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mcast/format.h"

struct Formatted {
    uint64_t result;
    std::string text; /* what the buffer holds up to its terminator */
};

/* What the filters are asked with. */
struct FormatFilter {
    const MRIB_GMP_VRF_KEY_S *ctx = nullptr;
    uint32_t acl_number = MCAST_NONE;
    uint32_t if_filter = 0;
};

/* Prints into size bytes of their own; with size 0 the buffer is no address at all. */
inline Formatted FormatInto(const FormatFilter &filter, size_t size, const char *format, ...)
{
    char *buffer = size != 0 ? static_cast<char *>(std::malloc(size)) : nullptr;
    Formatted formatted = {};
    va_list args;
    if (buffer != nullptr) {
        std::memset(buffer, 0x5a, size);
    }
    va_start(args, format);
    formatted.result =
        MCAST_vsprintf(filter.ctx, filter.acl_number, filter.if_filter, format, args, size, buffer);
    va_end(args);
    if (buffer != nullptr) {
        formatted.text.assign(buffer, strnlen(buffer, size));
        std::free(buffer);
    }
    return formatted;
}

/* Prints without filters into more room than any test needs. */
template <typename... Arguments> std::string Format(const char *format, Arguments... arguments)
{
    return FormatInto({}, 4096, format, arguments...).text;
}

#endif
