/*
 * The client's view: queries beside one another on several threads, and received records applied to it.
 */
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "mcast/mrib.h"
#include "mcast/mrib_message.h"

namespace
{

constexpr uint32_t kIf = 7;

void Fail(const char *what)
{
    fprintf(stderr, "%s\n", what);
    exit(1);
}

/* A view with one instance, whose interface has the given number of boundary ranges. */
void SetUp(uint8_t family, int64_t boundaries)
{
    MRIB_PIM_DR_S dr = {};

    if (MRIB_GMP_Init(1, family, 1, MRIB_MSG_RECV_MAX, nullptr) != MCAST_OK) {
        Fail("MRIB_GMP_Init");
    }
    dr.state = 1;
    dr.if_index = kIf;
    mribGmpTLVProc(MRIB_TLV_PIM_DR, sizeof(dr), &dr);
    for (int64_t i = 0; i < boundaries; ++i) {
        MRIB_BOUNDARY_S boundary = {};

        boundary.family = family;
        boundary.operation = 1;
        boundary.prefix_length = 24;
        boundary.if_index = kIf;
        boundary.address[0] = family == MCAST_FAMILY_IPV4 ? 239 : 0xff;
        boundary.address[1] = static_cast<uint8_t>(i);
        boundary.address[2] = static_cast<uint8_t>(i * 37);
        mribGmpTLVProc(MRIB_TLV_BOUNDARY, sizeof(boundary), &boundary);
    }
}

/* Groups half of which are behind a boundary. */
void CanPassMBoundary(benchmark::State &state)
{
    const uint8_t family = static_cast<uint8_t>(state.range(0));
    const MRIB_GMP_VRF_KEY_S key = {family, 0};
    uint32_t i = static_cast<uint32_t>(state.thread_index()) * 17;
    uint64_t passed = 0;

    if (state.thread_index() == 0) {
        SetUp(family, state.range(1));
    }
    for ([[maybe_unused]] auto _ : state) {
        MCAST_ADDR_S group = {family, 0, {}};
        const uint32_t range = ++i % 128;

        group.address[0] = family == MCAST_FAMILY_IPV4 ? 239 : 0xff;
        group.address[1] = static_cast<uint8_t>(range);
        group.address[2] = static_cast<uint8_t>(range * 37);
        group.address[3] = static_cast<uint8_t>(i);
        passed += MRIB_GMP_CanPassMBoundary(&key, kIf, &group);
    }
    benchmark::DoNotOptimize(passed);
    if (state.thread_index() == 0) {
        MRIB_GMP_Fini();
    }
}

void IsPimDr(benchmark::State &state)
{
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 0};
    uint64_t count = 0;
    if (state.thread_index() == 0) {
        SetUp(MCAST_FAMILY_IPV4, 64);
    }
    for ([[maybe_unused]] auto _ : state) {
        count += MRIB_GMP_IsPimDr(&key, kIf);
    }
    benchmark::DoNotOptimize(count);
    if (state.thread_index() == 0) {
        MRIB_GMP_Fini();
    }
}

/* Full datagrams of one record type through the receive handler; the rate counts records. */
template <typename Value>
void ReceiveAll(benchmark::State &state, uint16_t type, void (*fill)(Value &value, uint32_t i))
{
    static uint8_t message[MRIB_MSG_RECV_MAX];
    uint32_t used = MRIB_MsgReset(message, 0);
    uint32_t records = 0;
    int ends[2];
    while (void *value = MRIB_MsgAppend(message, &used, sizeof(message), type, sizeof(Value))) {
        fill(*static_cast<Value *>(value), records++);
    }
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
        Fail("socketpair");
    }
    SetUp(MCAST_FAMILY_IPV4, 0);
    for ([[maybe_unused]] auto _ : state) {
        if (send(ends[0], message, used, 0) < 0 || MRIB_GMP_ProcLipcMsg(EPOLLIN, ends[1]) != MCAST_OK) {
            Fail("datagram refused");
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * records);
    MRIB_GMP_Fini();
    close(ends[0]);
    close(ends[1]);
}

void ReceivePimDr(benchmark::State &state)
{
    ReceiveAll<MRIB_PIM_DR_S>(state, MRIB_TLV_PIM_DR, [](MRIB_PIM_DR_S &value, uint32_t i) {
        value.state = 1;
        value.if_index = i;
    });
}

void ReceiveBoundary(benchmark::State &state)
{
    ReceiveAll<MRIB_BOUNDARY_S>(state, MRIB_TLV_BOUNDARY, [](MRIB_BOUNDARY_S &value, uint32_t i) {
        value.family = MCAST_FAMILY_IPV4;
        value.operation = 1;
        value.prefix_length = 24;
        value.if_index = i % 16;
        value.address[0] = 239;
        value.address[1] = static_cast<uint8_t>(i / 16);
    });
}

BENCHMARK(CanPassMBoundary)
    ->ArgsProduct({{MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6}, {1, 64}})
    ->Threads(1)
    ->Threads(4)
    ->UseRealTime();
BENCHMARK(IsPimDr)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(ReceivePimDr);
BENCHMARK(ReceiveBoundary);

} // namespace

BENCHMARK_MAIN();
