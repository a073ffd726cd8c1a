/*
 * For tests that run in both families: their parameters, and what their names end in.
 */
#ifndef TESTS_DAEMONS_GMPD_FAMILIES_H
#define TESTS_DAEMONS_GMPD_FAMILIES_H

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "mcast/addr.h"

namespace gmpd_test
{

constexpr uint8_t FAMILIES[] = {MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6};

inline std::string family_name(const testing::TestParamInfo<uint8_t> &family)
{
    return family.param == MCAST_FAMILY_IPV4 ? "Ipv4" : "Ipv6";
}

} // namespace gmpd_test

#endif
