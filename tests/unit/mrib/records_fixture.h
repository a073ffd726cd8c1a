/* Records of the MRIB's state as a client receives them, and what its view says afterwards. */
#ifndef TESTS_UNIT_MRIB_RECORDS_FIXTURE_H
#define TESTS_UNIT_MRIB_RECORDS_FIXTURE_H

#include <string>

#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{

constexpr uint32_t kIf = 9;

/* Values of received records. */
inline Bytes PimDr(uint16_t vrf_index, uint8_t state)
{
    return PimDr(vrf_index, state, kIf);
}

struct Boundary {
    uint8_t operation = 1;
    uint8_t remove_all = 0;
    uint8_t length = 0;
    uint8_t scope_flag = 0;
    uint8_t scope = 0;
    MCAST_ADDR_S address = Ipv4(0, 0, 0, 0);
    uint16_t vrf_index = 1;
};

inline Bytes ValueOf(const Boundary &b)
{
    return Bytes{0xff, 0xff, static_cast<uint8_t>(b.address.family), 0xff} + Host16(b.vrf_index) +
           Bytes{b.operation, b.remove_all, b.length} + Host32(kIf) + Bytes{b.scope_flag, b.scope} +
           Bytes(b.address.address, b.address.address + 16);
}

class Records : public ChannelTest
{
protected:
    uint64_t Apply(const Boundary &boundary)
    {
        return ReceiveRecord(MRIB_TLV_BOUNDARY, ValueOf(boundary));
    }

    uint64_t AddRange(const MCAST_ADDR_S &address, uint8_t length)
    {
        Boundary boundary;
        boundary.address = address;
        boundary.length = length;
        return Apply(boundary);
    }

    uint64_t SetScope(uint8_t scope)
    {
        Boundary boundary;
        boundary.scope_flag = 1;
        boundary.scope = scope;
        boundary.address = Ipv6({});
        return Apply(boundary);
    }

    uint64_t Remove(Boundary boundary)
    {
        boundary.operation = 0;
        return Apply(boundary);
    }

    static uint64_t Passes(const MCAST_ADDR_S &group)
    {
        const MRIB_GMP_VRF_KEY_S key = {g_ucMribGmpFamily, 1};
        return MRIB_GMP_CanPassMBoundary(&key, kIf, &group);
    }

    static uint32_t IsDr()
    {
        const MRIB_GMP_VRF_KEY_S key = {g_ucMribGmpFamily, 1};
        return MRIB_GMP_IsPimDr(&key, kIf);
    }

    static uint32_t Ranges()
    {
        return PeekInterface(1, kIf) == nullptr ? 0 : PeekInterface(1, kIf)->boundaries.count;
    }

    std::string Told(uint8_t family, uint32_t value, const char *what)
    {
        return std::string(what) + " " + std::to_string(family) + " 1 9 " + std::to_string(value);
    }
};

} // namespace mrib_test

#endif
