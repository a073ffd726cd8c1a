/*
 * Addresses as text, several times faster than inet_ntop, which formats every number on its own; trace lines
 * consist of little else. The text is the same (RFC 5952, section 4): the first of the longest runs of two or
 * more zero words is left out, and addresses that carry an IPv4 address end in a dotted quad.
 */
#include "addr/address_text.h"

#include <string.h>

namespace mcast
{
namespace
{

constexpr char kUnknown[] = "unknown address";
constexpr int kWords = 8;

char *WriteOctet(char *out, unsigned octet)
{
    if (octet >= 100) {
        *out++ = static_cast<char>('0' + octet / 100);
        octet %= 100;
        *out++ = static_cast<char>('0' + octet / 10);
    } else if (octet >= 10) {
        *out++ = static_cast<char>('0' + octet / 10);
    }
    *out++ = static_cast<char>('0' + octet % 10);
    return out;
}

char *WriteIpv4(char *out, const uint8_t *bytes)
{
    for (int i = 0; i < 4; ++i) {
        if (i != 0) {
            *out++ = '.';
        }
        out = WriteOctet(out, bytes[i]);
    }
    return out;
}

char *WriteWord(char *out, unsigned word)
{
    constexpr char kDigits[] = "0123456789abcdef";
    if (word >= 0x1000) {
        *out++ = kDigits[word >> 12];
    }
    if (word >= 0x100) {
        *out++ = kDigits[word >> 8 & 0xf];
    }
    if (word >= 0x10) {
        *out++ = kDigits[word >> 4 & 0xf];
    }
    *out++ = kDigits[word & 0xf];
    return out;
}

/* A run of zero words; length 0 when there is none of two or more. */
struct Run {
    int first;
    int length;
};

Run LongestRun(const unsigned (&words)[kWords])
{
    Run longest = {-1, 1};

    for (int i = 0; i < kWords; ++i) {
        int length = 0;

        while (i + length < kWords && words[i + length] == 0) {
            ++length;
        }
        if (length > longest.length) {
            longest = {i, length};
        }
        i += length;
    }
    return longest.first < 0 ? Run{-1, 0} : longest;
}

char *WriteIpv6(char *out, const uint8_t *bytes)
{
    unsigned words[kWords];

    for (size_t i = 0; i < kWords; ++i) {
        words[i] = static_cast<unsigned>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
    }

    Run run = LongestRun(words);
    bool carries_ipv4 = run.first == 0 && (run.length == 6 || (run.length == 5 && words[5] == 0xffff));
    int end = carries_ipv4 ? 6 : kWords;

    for (int i = 0; i < end; ++i) {
        if (i == run.first) {
            *out++ = ':';
            i += run.length - 1;
            continue;
        }
        if (i != 0) {
            *out++ = ':';
        }
        out = WriteWord(out, words[i]);
    }
    if (carries_ipv4) {
        *out++ = ':';
        out = WriteIpv4(out, bytes + 12);
    } else if (run.first >= 0 && run.first + run.length == kWords) {
        *out++ = ':';
    }
    return out;
}

} // namespace

size_t WriteAddress(char *out, const MCAST_ADDR_S *addr)
{
    char *end = out;
    if (addr->family == MCAST_FAMILY_IPV4) {
        end = WriteIpv4(out, addr->address);
    } else if (addr->family == MCAST_FAMILY_IPV6) {
        end = WriteIpv6(out, addr->address);
    } else {
        memcpy(out, kUnknown, sizeof(kUnknown));
        return sizeof(kUnknown) - 1;
    }
    *end = '\0';
    return static_cast<size_t>(end - out);
}

} // namespace mcast
