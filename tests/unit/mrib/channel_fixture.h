/*
 * A channel on scripted system calls: the fixture plays the kernel and the MRIB, keeps every datagram the
 * client sends and every callback it makes, and finds leaks when it ends.
 */
#ifndef TESTS_UNIT_MRIB_CHANNEL_FIXTURE_H
#define TESTS_UNIT_MRIB_CHANNEL_FIXTURE_H

#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

#include "mcast/mrib.h"
#include "support/fault.h"
#include "support/scripted_libc.h"
#include "support/scripted_platform.h"

namespace mrib_test
{

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes first, const Bytes &second);

/* count zero bytes. */
Bytes Zeros(size_t count);

/* A number of a message: in the machine's own order. */
template <typename Number> Bytes HostOrder(Number number)
{
    Bytes bytes(sizeof(number));
    memcpy(bytes.data(), &number, sizeof(number));
    return bytes;
}
inline Bytes Host16(uint16_t number)
{
    return HostOrder(number);
}
inline Bytes Host32(uint32_t number)
{
    return HostOrder(number);
}

/* A message of the given records as the MRIB sends it. */
Bytes Message(uint32_t record_count, const Bytes &records);

/* A message of the given records as the client of the fixture sends it. */
Bytes SentMessage(uint32_t record_count, uint32_t body_length, const Bytes &records);

/* One record: header and value. */
Bytes Record(uint16_t type, const Bytes &value);

/* Values of received records; bytes without a meaning are ones. */
Bytes VrfState(uint16_t vrf_index, uint8_t state);
Bytes PimDr(uint16_t vrf_index, uint8_t state, uint32_t if_index);
Bytes SsmPolicy(uint16_t vrf_index, uint32_t acl_number);
Bytes FlowControl(uint16_t busy);

/* An address record. */
MCAST_ADDR_S Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d);
MCAST_ADDR_S Ipv6(std::initializer_list<uint8_t> leading);

/* A copy of the connection record's plain fields. */
struct Connection {
    int32_t socket;
    uint16_t busy;
    uint16_t failed;
    bool has_buffer;
    uint32_t used;
    bool has_pending;
    uint32_t pending_limit;
    uint32_t pending_count;
    uint32_t copy_size;
    uint64_t dropped_count;
    uint64_t allocation_failure_count;
    uint64_t queued_count;
};
Connection Peek();

/* A copy of an instance record's plain fields. */
struct Instance {
    uint8_t family;
    uint16_t vrf_index;
    uint16_t l3mc_state;
    bool has_table;
    uint64_t flags;
    uint32_t ssm_acl;
    bool has_sources;
};
Instance PeekVrf(uint16_t index);

/* The interface's record, or nullptr. */
MRIB_GMP_IF_S *PeekInterface(uint16_t vrf_index, uint32_t if_index);

/* MRIB_GMP_GetOutBuffer and MRIB_GMP_TrySendBuffer on the channel, with the lock held for the call. */
void *GetOutBuffer(uint32_t record_size);

/* What earlier messages may have left behind the records of the one being assembled. */
void DirtyOutBuffer();

class ChannelTest : public testing::Test
{
public:
    static constexpr int kSocket = 1000;
    static constexpr uint8_t kComponent = 7;

    ChannelTest();
    ~ChannelTest() override;

    /* MRIB_GMP_Init with the fixture's callbacks, or none. */
    uint64_t Init(uint8_t family = MCAST_FAMILY_IPV4, uint64_t vrf_count = 2, uint64_t size = 10240);

    /* Init and MRIB_GMP_OpenConnect; forgets what that sent and called. */
    void Connect(uint8_t family = MCAST_FAMILY_IPV4, uint64_t vrf_count = 2, uint64_t size = 10240);

    /* Hands the datagram to the client as if it had arrived. */
    uint64_t Receive(const Bytes &datagram);

    /* Hands one record over, in a message of its own. */
    uint64_t ReceiveRecord(uint16_t type, const Bytes &value);

    MRIB_GMP_CALLBACKS_S callbacks = AllCallbacks();

    /* What the client did, oldest first. */
    std::vector<Bytes> sent;
    std::vector<int> closed;
    bool is_open = false;           /* the client was told of a socket that is not closed yet */
    std::vector<std::string> calls; /* callbacks with their arguments */

    /* What happens next. */
    ssize_t send_result = 1; /* 1: all was taken; else the result, with EAGAIN */
    uint64_t connected_result = 0;
    uint64_t remote_source_result = 0;

    /* Every callback noted in calls. Each finds the channel's locks free. */
    static MRIB_GMP_CALLBACKS_S AllCallbacks();

private:
    long blocks_before_;
};

} // namespace mrib_test

#endif
