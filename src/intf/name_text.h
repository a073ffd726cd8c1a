/*
 * The texts of interface names, written without the formatted output of the C library because every trace
 * line that names an interface comes here.
 */
#ifndef SRC_INTF_NAME_TEXT_H
#define SRC_INTF_NAME_TEXT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace mcast
{

inline constexpr char kMuaPrefix[] = "Multicast-UA";
inline constexpr char kNbmaPrefix[] = "Multicast-NBMA";

/* Writes number in the given base, 10 or 16, and a terminator: at most 11 bytes. The number of digits. */
inline uint32_t WriteNumber(char *out, uint32_t number, uint32_t base)
{
    char reversed[10];
    uint32_t count = 0;
    do {
        reversed[count++] = "0123456789abcdef"[number % base];
        number /= base;
    } while (number != 0);
    for (uint32_t i = 0; i < count; ++i) {
        out[i] = reversed[count - 1 - i];
    }
    out[count] = '\0';
    return count;
}

/* Writes prefix and number: at most the prefix's length and 11 bytes. The number of characters. */
inline uint32_t WriteNumberedName(char *out, const char *prefix, uint32_t number)
{
    uint32_t length = static_cast<uint32_t>(strlen(prefix));
    memcpy(out, prefix, length);
    return length + WriteNumber(out + length, number, 10);
}

/* Writes "0x" and the index: at most 11 bytes. The number of characters. */
inline uint32_t WriteHexIndex(char *out, uint32_t index)
{
    out[0] = '0';
    out[1] = 'x';
    return 2 + WriteNumber(out + 2, index, 16);
}

/* Writes as much of text as size bytes hold beside a terminator; size is not 0. */
inline void WriteCut(char *out, size_t size, const char *text)
{
    size_t length = strnlen(text, size - 1);
    memcpy(out, text, length);
    out[length] = '\0';
}

} // namespace mcast

#endif
