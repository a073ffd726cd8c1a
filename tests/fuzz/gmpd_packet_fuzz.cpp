/*
 * Packets into the parser of the GMP daemon, and what it lets pass into the state machine. An input is a byte
 * that chooses the family and whether a thousand groups are joined before, then steps, each a byte that says what follows and a byte with its length:
 *
 *      whole packets, from the IP header on
 *      messages, around which headers and checksums are put right
 *      time that passes, in half seconds
 *
 * After each step the state must hold together and the MRIB believe what it says.
 */
#include <algorithm>
#include <cstdlib>

#include "daemons/gmpd/packet_parse.h"
#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/gmpd_mirror.h"

using namespace gmpd_test;

namespace
{

constexpr unsigned WHOLE_PACKET = 0;
constexpr unsigned PAUSE = 1;

// What the first byte of an input says.
constexpr uint8_t IS_IPV6 = 1;
constexpr uint8_t HAS_GROUPS = 2;

constexpr unsigned GROUPS = 1000;
constexpr unsigned RECORDS_OF_A_REPORT = 50;

// Where a message of the type goes, so that the parser does not stop there.
const char *destination(uint8_t family, const Bytes &message)
{
    const bool ipv4 = family == MCAST_FAMILY_IPV4;
    if (!message.empty() && message[0] == (ipv4 ? 0x11 : 130)) {
        return ipv4 ? "224.0.0.1" : "ff02::1";
    }
    return ipv4 ? "224.0.0.22" : "ff02::16";
}

Bytes wrap(uint8_t family, unsigned how, Bytes message)
{
    const bool low = (how & 4) != 0; // from below or above the router's own address
    const char *to = destination(family, message);
    message.resize(std::max<size_t>(message.size(), 4));
    if (family == MCAST_FAMILY_IPV4) {
        return igmp_packet(low ? "10.0.0.50" : "10.0.0.200", to, message);
    }
    return mld_packet(low ? "fe80::1:32" : "fe80::1:c8", to, message);
}

void deliver(Lab &lab, const Bytes &packet)
{
    gmpd::Message message;
    if (gmpd::parse_packet(lab.process.config.family, packet, message) == gmpd::NO_DROP) {
        gmpd::handle_message(*lab.interface, message);
    }
}

// Reports of a host that joins a thousand groups, every fourth from one source alone.
void join_groups(Lab &lab)
{
    const uint8_t family = lab.process.config.family;
    const bool ipv4 = family == MCAST_FAMILY_IPV4;
    const size_t size = ipv4 ? 4 : 16;
    for (unsigned number = 0; number < GROUPS;) {
        Bytes message = {static_cast<uint8_t>(ipv4 ? 0x22 : 143), 0, 0, 0, 0, 0, 0, RECORDS_OF_A_REPORT};
        for (unsigned i = 0; i < RECORDS_OF_A_REPORT; ++i, ++number) {
            const bool of_source = number % 4 == 0;
            Bytes group(size), source(size);
            group[0] = ipv4 ? 239 : 0xff;
            group[1] = 0x1e;
            group[size - 2] = static_cast<uint8_t>(number / 256 + 1);
            group[size - 1] = static_cast<uint8_t>(number);
            source[0] = ipv4 ? 10 : 0xfd;
            source[size - 1] = 9;
            const Bytes head = {static_cast<uint8_t>(of_source ? 1 : 2), 0, 0,
                                static_cast<uint8_t>(of_source)};
            message.insert(message.end(), head.begin(), head.end());
            message.insert(message.end(), group.begin(), group.end());
            message.insert(message.end(), source.begin(), of_source ? source.end() : source.begin());
        }
        deliver(lab, wrap(family, 0, message));
    }
    if (lab.process.use.entries < GROUPS) {
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1) {
        return 0;
    }
    const bool has_groups = (data[0] & HAS_GROUPS) != 0;
    const uint8_t family = data[0] & IS_IPV6 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
    Mirror mirror;
    gmpd::Config config;

    config.max_groups = has_groups ? GROUPS + 8 : 8;
    config.max_sources = 8;
    Lab lab(family, config);

    lab.process.queries = &mirror;

    lab.process.mrib = &mirror;
    lab.start();
    if (has_groups) {
        join_groups(lab);
    }
    for (++data, --size; size >= 2;) {
        const unsigned how = data[0];
        const size_t length = std::min<size_t>(data[1], size - 2);
        Bytes bytes(data + 2, data + 2 + length);

        if (how % 4 == PAUSE) {
            lab.pass_ms(data[1] * 500u);
            bytes.clear();
        } else {
            bytes.shrink_to_fit();
            deliver(lab, how % 4 == WHOLE_PACKET ? bytes : wrap(family, how, bytes));
            data += length;
            size -= length;
        }
        data += 2;
        size -= 2;
        if (!mirror.check(*lab.interface).empty()) {
            fprintf(stderr, "%s\n", mirror.check(*lab.interface).c_str());
            abort();
        }
    }
    return 0;
}
