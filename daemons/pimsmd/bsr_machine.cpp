#include "daemons/pimsmd/bsr_machine.h"

#include <cmath>

namespace pimsmd::bsr
{
namespace
{

constexpr double MS_PER_S = 1000;
constexpr double LEAST_S = 5;

// The address as a number. The first bytes decide; that the last ones of IPv6 are rounded away is of no matter.
double number_of(const uint8_t *bytes, size_t size)
{
    double number = 0;
    for (size_t i = 0; i < size; ++i) {
        number = number * 256 + bytes[i];
    }
    return number;
}

// How much higher the first address is, which is not the lower one.
double difference(const Address &first, const Address &second)
{
    uint8_t bytes[16] = {};
    const size_t size = address_size(first.family);
    int borrow = 0;
    for (size_t i = size; i-- > 0;) {
        const int digit = first.address[i] - second.address[i] - borrow;

        borrow = digit < 0 ? 1 : 0;
        bytes[i] = static_cast<uint8_t>(digit & 0xff);
    }
    return number_of(bytes, size);
}

// Seconds for a worse address: at most 2.
double address_delay(const Weight &own, const Weight &best)
{
    const unsigned bits = address_bits(own.address.family);
    if (best.priority <= own.priority) {
        return is_as_good(own, best)
                   ? 0
                   : std::log2(1 + difference(best.address, own.address)) / (static_cast<double>(bits) / 2);
    }
    const double half = std::pow(2, bits - 1);
    return 2 - number_of(own.address.address, bits / 8) / half;
}

} // namespace

bool is_as_good(const Weight &first, const Weight &second)
{
    return first.priority != second.priority ? first.priority > second.priority
                                             : !address_less(first.address, second.address);
}

uint32_t override_ms(const Weight &own, const Weight &best)
{
    const int behind = best.priority > own.priority ? best.priority - own.priority : 0;
    const double seconds = LEAST_S + 2 * std::log2(1 + behind) + address_delay(own, best);
    return static_cast<uint32_t>(seconds * MS_PER_S);
}

} // namespace pimsmd::bsr
