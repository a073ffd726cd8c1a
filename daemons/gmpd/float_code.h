/*
 * The small floating-point numbers of query fields (RFC 3376 sections 4.1.1 and 4.1.7, RFC 3810
 * sections 5.1.3 and 5.1.9): values below half the field's range stand for themselves, others are
 *
 *      1 | exponent (3 bits) | mantissa      meaning (mantissa | leading one) << (exponent + 3)
 *
 * with a mantissa of 4 bits in an 8-bit field and 12 bits in a 16-bit field.
 */
#ifndef DAEMONS_GMPD_FLOAT_CODE_H
#define DAEMONS_GMPD_FLOAT_CODE_H

#include <cstdint>

namespace gmpd
{

// The value that a code of mantissa_bits + 4 bits stands for.
constexpr uint32_t decode_float(uint32_t code, unsigned mantissa_bits)
{
    uint32_t one = 1u << mantissa_bits;
    if (code < one << 3) {
        return code;
    }
    return ((code & (one - 1)) | one) << (((code >> mantissa_bits) & 7) + 3);
}

// The greatest value that a code can stand for.
constexpr uint32_t max_float(unsigned mantissa_bits)
{
    return ((2u << mantissa_bits) - 1) << 10;
}

// The code of the greatest representable value that is not above value.
constexpr uint32_t encode_float_down(uint32_t value, unsigned mantissa_bits)
{
    uint32_t one = 1u << mantissa_bits;
    uint32_t exponent = 0;
    if (value < one << 3) {
        return value;
    }
    if (value >= max_float(mantissa_bits)) {
        return (one << 4) - 1;
    }
    while (value >> (exponent + 3) >= 2 * one) {
        ++exponent;
    }
    return one << 3 | exponent << mantissa_bits | (value >> (exponent + 3) & (one - 1));
}

// The code of the least representable value that is not below value; the greatest code above max_float.
constexpr uint32_t encode_float_up(uint32_t value, unsigned mantissa_bits)
{
    uint32_t code = encode_float_down(value, mantissa_bits);
    return decode_float(code, mantissa_bits) < value && value < max_float(mantissa_bits) ? code + 1 : code;
}

// Mantissa widths of 8-bit and 16-bit fields.
inline constexpr unsigned SHORT_MANTISSA = 4;
inline constexpr unsigned LONG_MANTISSA = 12;

} // namespace gmpd

#endif
