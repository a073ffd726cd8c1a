// The client's view of the MRIB under many threads at once, on the host platform's own containers, sockets
// and access lists: one thread applies records, others ask, send and walk, while the configuration is
// exchanged. What no record touches must have the same answer all the time. The thread sanitizer is the other
// judge.
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "config_support.h"
#include "mcast/mrib.h"
#include "mcast/mrib_wire.h"
#include "mcast/msdp.h"
#include "support.h"

namespace
{

constexpr int ROUNDS = 1500;
constexpr uint16_t VRFS = 2;
constexpr uint32_t STEADY_IF = 1;
constexpr uint32_t FIRST_IF = 2; // these come and go
constexpr uint32_t LAST_IF = 9;
const uint32_t STEADY_RP = htonl(0x0a000001);
const uint32_t STEADY_SOURCE = htonl(0x0a010101);
const uint32_t STEADY_GROUP = htonl(0xe9010101);

const MRIB_GMP_VRF_KEY_S KEY = {MCAST_FAMILY_IPV4, 0};
const MRIB_GMP_VRF_KEY_S OTHER_KEY = {MCAST_FAMILY_IPV4, 1};

MCAST_ADDR_S ipv4(uint32_t host_order)
{
    MCAST_ADDR_S address{};
    address.family = MCAST_FAMILY_IPV4;
    const uint32_t bits = htonl(host_order);
    memcpy(address.address, &bits, sizeof(bits));
    return address;
}

template <typename Record> void apply(uint16_t type, const Record &record)
{
    EXPECT_EQ(mribGmpTLVProc(type, sizeof(record), &record), MCAST_OK);
}

void end_replay(uint16_t type)
{
    EXPECT_EQ(mribGmpTLVProc(type, 0, nullptr), MCAST_OK);
}

void set_dr(uint32_t if_index, uint8_t state)
{
    MRIB_PIM_DR_S record{};
    record.state = state;
    record.if_index = if_index;
    apply(MRIB_TLV_PIM_DR, record);
}

void set_boundary(uint32_t if_index, uint32_t group, uint8_t length, uint8_t operation)
{
    MRIB_BOUNDARY_S record{};
    record.family = MCAST_FAMILY_IPV4;
    record.operation = operation;
    record.prefix_length = length;
    record.if_index = if_index;
    const uint32_t bits = htonl(group);
    memcpy(record.address, &bits, sizeof(bits));
    apply(MRIB_TLV_BOUNDARY, record);
}

void set_vrf(uint16_t vrf_index, uint8_t state)
{
    MRIB_VRF_STATE_S record{};
    record.vrf_index = vrf_index;
    record.state = state;
    apply(MRIB_TLV_VRF_STATE, record);
}

void set_policy(uint16_t vrf_index, uint32_t acl_number)
{
    MRIB_SSM_POLICY_S record{};
    record.vrf_index = vrf_index;
    record.acl_number = acl_number;
    apply(MRIB_TLV_SSM_POLICY, record);
}

void set_source(uint32_t rp_be, uint32_t group_be, uint32_t source_be, uint8_t operation)
{
    MRIB_MSDP_LOCAL_SRC_S record{};
    record.family = MCAST_FAMILY_IPV4;
    record.operation = operation;
    record.source_be = source_be;
    record.group_be = group_be;
    record.rp_be = rp_be;
    apply(MRIB_TLV_MSDP_LOCAL_SRC, record);
}

void set_steady()
{
    set_vrf(0, 1);
    set_dr(STEADY_IF, 1);
    set_boundary(STEADY_IF, 0xef000000, 8, 1);
    set_source(STEADY_RP, STEADY_GROUP, STEADY_SOURCE, 1);
}

// A round of what an MRIB sends: changes of some interfaces, then a whole replay without them.
void update_round(int round)
{
    set_vrf(1, static_cast<uint8_t>(round % 2));
    set_policy(1, round % 2 == 0 ? 2001 : MCAST_NONE);
    for (uint32_t i = FIRST_IF; i <= LAST_IF; ++i) {
        set_dr(i, 1);
        set_boundary(i, 0xef000000 + (i << 16), 16, 1);
        set_source(htonl(i), htonl(0xe9000000 + i), htonl(i), 1);
    }
    for (uint32_t i = FIRST_IF; i <= LAST_IF; i += 2) {
        set_dr(i, 0);
        set_boundary(i, 0xef000000 + (i << 16), 16, 0);
        set_source(htonl(i), htonl(0xe9000000 + i), htonl(i), 0);
    }
    // A socket that is full for the moment makes this result a failure, though the request waits in the
    // message.
    mribGmpTLVProc(MRIB_TLV_SMOOTH_START, 0, nullptr);
    set_steady();
    end_replay(MRIB_TLV_VRF_STATE_END);
    end_replay(MRIB_TLV_PIM_DR_END);
    end_replay(MRIB_TLV_BOUNDARY_END);
    end_replay(MRIB_TLV_MSDP_LOCAL_SRC_END);
}

// One question a thread, so that no lock of one question hides that another takes none.
bool states_are_right()
{
    return MRIB_GMP_IsL3McEnabled(&KEY) == 1 && MRIB_GMP_IsL3McEnabled(&OTHER_KEY) <= 1;
}

bool routers_are_right()
{
    bool right = MRIB_GMP_IsPimDr(&KEY, STEADY_IF) == 1 && MRIB_GMP_IsPimDr(&OTHER_KEY, STEADY_IF) == 0;
    for (uint32_t i = FIRST_IF; i <= LAST_IF; ++i) {
        right = right && MRIB_GMP_IsPimDr(&KEY, i) <= 1;
    }
    return right;
}

bool boundaries_are_right()
{
    const MCAST_ADDR_S blocked = ipv4(0xefff0001);
    const MCAST_ADDR_S open = ipv4(0xe8010101);
    bool right = MRIB_GMP_CanPassMBoundary(&KEY, STEADY_IF, &blocked) == 0;
    for (uint32_t i = STEADY_IF; i <= LAST_IF; ++i) {
        right = right && MRIB_GMP_CanPassMBoundary(&KEY, i, &open) == 1;
    }
    return right;
}

bool policies_are_right()
{
    return MRIB_MSDP_IsSSMGroup(0, htonl(0xe8010101)) == 1 && MRIB_MSDP_IsSSMGroup(1, STEADY_GROUP) <= 1;
}

// One walk over all local sources meets the one that is always there exactly once.
bool walk_is_right()
{
    const MRIB_MSDP_FILTER_S filter = {0, MCAST_NONE, 2, 0};
    MRIB_MSDP_CURSOR_S cursor{};
    MRIB_MSDP_BATCH_S batch;
    int met = 0;
    for (;;) {
        memset(&batch, 0, sizeof(batch));
        const uint64_t result = MRIB_MSDP_GetLocalSrc(0, &filter, &cursor, &batch);
        for (uint64_t i = 0; i < batch.count; ++i) {
            met += batch.rp_be == STEADY_RP && batch.pairs[i].source_be == STEADY_SOURCE ? 1 : 0;
        }
        if (result != MCAST_WALK_AGAIN && cursor.rp_be == 0) {
            return met == 1;
        }
    }
}

// The peer may be slow to be run: what waits for it must not outgrow the queue.
void drain()
{
    while (MRIB_GMP_SendFailData() != MCAST_OK) {
        std::this_thread::yield();
    }
}

bool sends_are_right()
{
    const MCAST_ADDR_S group = ipv4(0xe8010101);
    const MCAST_ADDR_S source = ipv4(0x0a000001);
    const bool appended = MRIB_GMP_SendGmpJoinPrune(&KEY, STEADY_IF, &group, &source, 1, 0) == MCAST_OK;
    MRIB_GMP_SendQuerierChangeAlert(&KEY, STEADY_IF, 1, 0);
    MRIB_GMP_SendAtOnce();
    drain();
    MRIB_GMP_IsConnectionBusy();
    return appended;
}

// Callbacks that ask in their turn: none of them runs under a lock. Replays of what has no callback are
// refused.
MRIB_GMP_CALLBACKS_S asking_callbacks()
{
    MRIB_GMP_CALLBACKS_S callbacks{};
    callbacks.dr_changed = [](const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t) {
        MRIB_GMP_IsPimDr(key, if_index);
        MRIB_GMP_SendAtOnce();
    };
    callbacks.boundary_changed = [](const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t) {
        const MCAST_ADDR_S group = ipv4(0xe8010101);
        EXPECT_EQ(MRIB_GMP_CanPassMBoundary(key, if_index, &group), 1u);
    };
    callbacks.msdp_local_source = [](const MRIB_GMP_VRF_KEY_S *key, uint32_t rp_be, uint32_t, uint32_t,
                                     const void *, uint32_t) {
        uint32_t count = 0;
        MRIB_MSDP_GetSGCntOfOneRP(key->vrf_index, rp_be, &count);
        EXPECT_GE(count, 1u);
    };
    return callbacks;
}

// The MRIB process's end of the channel: reads until the client closes.
uint64_t serve_channel(int listener)
{
    const int fd = accept(listener, nullptr, nullptr);
    std::vector<char> datagram(65536);
    uint64_t count = 0;
    while (recv(fd, datagram.data(), datagram.size(), 0) > 0) {
        ++count;
    }
    close(fd);
    return count;
}

class MribThreads : public host_test::RuntimeDirTest
{
};

TEST_F(MribThreads, QueriesSendersAndWalksRunBesideUpdates)
{
    const int listener = host_test::listen_local(MRIB_PORT_IPV4);
    ASSERT_GE(listener, 0);
    const MRIB_GMP_CALLBACKS_S callbacks = asking_callbacks();
    ASSERT_EQ(MRIB_GMP_Init(1, MCAST_FAMILY_IPV4, VRFS, MRIB_MSG_RECV_MAX, &callbacks), MCAST_OK);
    ASSERT_EQ(MRIB_GMP_OpenConnect(), MCAST_OK);
    uint64_t datagrams = 0;
    std::thread peer([&] { datagrams = serve_channel(listener); });
    set_steady();

    std::atomic<bool> stop{false};
    std::atomic<int> started{0};
    std::atomic<uint64_t> wrong{0};
    std::vector<std::thread> threads;
    for (bool (*task)() : {states_are_right, routers_are_right, boundaries_are_right, policies_are_right,
                           walk_is_right, sends_are_right}) {
        threads.emplace_back([&, task] {
            wrong += task() ? 0 : 1;
            ++started;
            while (!stop) {
                wrong += task() ? 0 : 1;
                std::this_thread::yield();
            }
        });
    }
    while (started < 6) {
        std::this_thread::yield();
    }
    const std::string list = host_test::one_rule("ipv4", 2001, "id = 1\naction = 'permit'\n");
    for (int round = 0; round < ROUNDS; ++round) {
        update_round(round);
        drain();
        host_test::load(round % 2 == 0 ? list : "");
    }
    stop = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(MRIB_GMP_CloseFailConnection(), 0u); // nothing was lost
    MRIB_GMP_CloseConnection();
    peer.join();
    EXPECT_GT(datagrams, 0u);
    EXPECT_EQ(MRIB_GMP_Fini(), MCAST_OK);
    close(listener);
    host_test::load("");
}

} // namespace
