/*
 * The platform's random bytes under a test's control.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_RANDOM_H
#define TESTS_SUPPORT_SCRIPTED_RANDOM_H

#include <cstdint>
#include <functional>

namespace scripted
{

/* FIPS_rand_bytes as the test wants it; while unset every draw fails and touches nothing. */
extern std::function<int(uint8_t *buffer, int length)> random_bytes;

} // namespace scripted

#endif
