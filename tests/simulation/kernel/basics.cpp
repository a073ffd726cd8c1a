#include "tests/simulation/kernel/basics.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace sim
{

Address address_of(int family, const void *bytes)
{
    Address address;
    address.family = family;
    memcpy(address.bytes.data(), bytes, address.size());
    return address;
}

Address address_from(const std::string &text)
{
    Address address;
    address.family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
    if (inet_pton(address.family, text.c_str(), address.bytes.data()) != 1) {
        fprintf(stderr, "no address: %s\n", text.c_str());
        exit(2);
    }
    return address;
}

std::string to_text(const Address &address)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.family, address.bytes.data(), text, sizeof(text));
    return text;
}

bool shares_prefix(const Address &one, const Address &other, unsigned length)
{
    const unsigned whole = length / 8;
    const unsigned rest = length % 8;
    return one.family == other.family && memcmp(one.bytes.data(), other.bytes.data(), whole) == 0 &&
           (rest == 0 || ((one.bytes[whole] ^ other.bytes[whole]) >> (8 - rest)) == 0);
}

bool is_source_specific(const Address &group)
{
    return group.family == AF_INET ? group.bytes[0] == 232
                                   : group.bytes[0] == 0xff && (group.bytes[1] & 0xf0) == 0x30 &&
                                         group.bytes[2] == 0 && group.bytes[3] == 0;
}

std::string to_text(Ns time)
{
    char text[32];
    snprintf(text, sizeof(text), "%llu.%03llu", static_cast<unsigned long long>(time / SECOND),
             static_cast<unsigned long long>(time / MILLISECOND % 1000));
    return text;
}

} // namespace sim
