/*
 * IP packets around IGMP and MLD messages, as hosts and the kernel send them: TTL 1, router alert, checksums.
 */
#ifndef TESTS_SIMULATION_KERNEL_PACKET_BUILD_H
#define TESTS_SIMULATION_KERNEL_PACKET_BUILD_H

#include "tests/simulation/kernel/basics.h"

namespace sim
{

// The message's checksum, at its bytes 2 and 3, is filled in.
Bytes build_packet(const Address &source, const Address &destination, Bytes message);

// The message of a packet that build_packet made, and where it comes from.
Bytes message_of(const Bytes &packet, Address *source);

} // namespace sim

#endif
