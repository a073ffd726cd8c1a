/*
 * Address records for tests, written as text.
 */
#ifndef TESTS_SUPPORT_ADDRESSES_H
#define TESTS_SUPPORT_ADDRESSES_H

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>

#include "mcast/common.h"

/* The record of an IPv4 or IPv6 address; ends the test program when text is neither. */
inline MCAST_ADDR_S Addr(const char *text)
{
    MCAST_ADDR_S addr = {};
    if (inet_pton(AF_INET, text, addr.address) == 1) {
        addr.family = MCAST_FAMILY_IPV4;
    } else if (inet_pton(AF_INET6, text, addr.address) == 1) {
        addr.family = MCAST_FAMILY_IPV6;
    } else {
        std::fprintf(stderr, "no address: %s\n", text);
        std::abort();
    }
    return addr;
}

#endif
