/*
 * What every file of the simulation speaks in: bytes, virtual time and addresses.
 */
#ifndef TESTS_SIMULATION_KERNEL_BASICS_H
#define TESTS_SIMULATION_KERNEL_BASICS_H

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace sim
{

using Bytes = std::vector<uint8_t>;

// Virtual time in nanoseconds since the machine was switched on.
using Ns = uint64_t;
constexpr Ns MILLISECOND = 1000000;
constexpr Ns SECOND = 1000 * MILLISECOND;

// An address of either family in network order; the bytes behind those of the family are 0.
struct Address {
    int family = AF_UNSPEC;
    std::array<uint8_t, 16> bytes{};

    auto operator<=>(const Address &) const = default;

    size_t size() const
    {
        return family == AF_INET ? 4 : 16;
    }
    std::span<const uint8_t> value() const
    {
        return {bytes.data(), size()};
    }
};

Address address_of(int family, const void *bytes);
// Ends the program when the text is no address: only scripts and the simulation's own code call it.
Address address_from(const std::string &text);
std::string to_text(const Address &address);
bool shares_prefix(const Address &one, const Address &other, unsigned length);
// The ranges that belong to single sources: 232/8 and ff3x::/32.
bool is_source_specific(const Address &group);

// The seconds and milliseconds of a time, as logs and scripts show it.
std::string to_text(Ns time);

} // namespace sim

#endif
