/*
 * Join and prune records from a daemon to a peer that drains its socket, three ways in one run:
 *
 *   library    MRIB_GMP_SendGmpJoinPrune, batched as the library does it
 *   by hand    one lock, one copy of a ready 71-byte record, a send for each full datagram
 *   bare send  ready datagrams alone
 *
 * Each round times all three, beginning with another one each time, so that a change of the machine's mood
 * meets them all; the times are medians over the rounds, and the ratio is the median of the rounds' ratios.
 * The socket is a local SOCK_SEQPACKET pair. A full socket is waited for with poll by all three alike.
 */
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <linux/sockios.h>

#include "mcast/mrib.h"

namespace
{

constexpr uint32_t kRecord = MRIB_RECORD_SIZE(sizeof(MRIB_JOIN_PRUNE_S));

/* The two ends of the channel, the far one drained by a thread of its own. */
class Channel
{
public:
    Channel()
    {
        int ends[2];
        int size = 1 << 20;

        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
            perror("socketpair");
            exit(1);
        }
        setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
        near_ = ends[0];
        peer_ = std::thread([far = ends[1]] {
            static char buffer[MRIB_MSG_RECV_MAX];

            while (recv(far, buffer, sizeof(buffer), 0) > 0) {
            }
            close(far);
        });
    }
    ~Channel()
    {
        shutdown(near_, SHUT_RDWR);
        peer_.join();
        close(near_);
    }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    int Descriptor() const
    {
        return near_;
    }
    void WaitUntilWritable() const
    {
        pollfd wait = {near_, POLLOUT, 0};
        poll(&wait, 1, -1);
    }

    /* No way pays for what the one before it has left in the socket. */
    void WaitUntilDrained() const
    {
        int queued = 0;
        while (ioctl(near_, SIOCOUTQ, &queued) == 0 && queued != 0) {
            sched_yield();
        }
    }

private:
    int near_;
    std::thread peer_;
};

void Adopt(int descriptor) MCAST_NO_LOCK_ANALYSIS
{
    g_stMribConnectInfo.socket = descriptor;
}

uint32_t Pending() MCAST_NO_LOCK_ANALYSIS
{
    return g_stMribConnectInfo.pending_count;
}

/* Each way sends the given number of full datagrams' worth of records. */

void SendByLibrary(const Channel &channel, uint32_t, uint32_t records)
{
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 1};
    MCAST_ADDR_S group = {MCAST_FAMILY_IPV4, 0, {239, 1, 2, 3}};
    const MCAST_ADDR_S source = {MCAST_FAMILY_IPV4, 0, {10, 0, 0, 1}};
    for (uint32_t i = 0; i < records; ++i) {
        memcpy(group.address, &i, sizeof(i));
        MRIB_GMP_SendGmpJoinPrune(&key, 7, &group, &source, 1, 0);
        while (__builtin_expect(Pending() != 0, 0)) {
            channel.WaitUntilWritable();
            MRIB_GMP_SendFailData();
        }
    }
    while (MRIB_GMP_SendAtOnce() != MCAST_OK) {
        channel.WaitUntilWritable();
    }
}

void SendWhole(const Channel &channel, const void *message, size_t length)
{
    while (send(channel.Descriptor(), message, length, MSG_DONTWAIT) < 0) {
        channel.WaitUntilWritable();
    }
}

void SendByHand(const Channel &channel, uint32_t size, uint32_t records)
{
    static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    static uint8_t buffer[MRIB_MSG_RECV_MAX];
    static uint8_t record[kRecord];
    uint32_t used = sizeof(MRIB_MSG_HEADER_S);
    for (uint32_t i = 0; i < records; ++i) {
        memcpy(record + 29, &i, sizeof(i));
        pthread_mutex_lock(&lock);
        if (used + kRecord > size) {
            SendWhole(channel, buffer, used);
            used = sizeof(MRIB_MSG_HEADER_S);
        }
        memcpy(buffer + used, record, kRecord);
        used += kRecord;
        pthread_mutex_unlock(&lock);
        benchmark::ClobberMemory();
    }
    SendWhole(channel, buffer, used);
}

void SendBare(const Channel &channel, uint32_t size, uint32_t records)
{
    static uint8_t buffer[MRIB_MSG_RECV_MAX];
    const uint32_t fitting = (size - static_cast<uint32_t>(sizeof(MRIB_MSG_HEADER_S))) / kRecord;
    for (uint32_t left = records; left != 0; left -= std::min(left, fitting)) {
        SendWhole(channel, buffer, sizeof(MRIB_MSG_HEADER_S) + std::min(left, fitting) * kRecord);
    }
}

using Way = void (*)(const Channel &, uint32_t, uint32_t);

double NanosecondsARecord(Way way, const Channel &channel, uint32_t size, uint32_t records)
{
    channel.WaitUntilDrained();
    auto start = std::chrono::steady_clock::now();

    way(channel, size, records);
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() /
           records;
}

double Median(std::vector<double> &values)
{
    auto middle = values.begin() + static_cast<long>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/* One row a message size: the library's time is the row's, the peers' and the ratio are its counters. */
void JoinPrune(benchmark::State &state)
{
    constexpr uint32_t kRecords = 2000; /* few enough that the socket holds them all */
    const Way ways[] = {SendByLibrary, SendByHand, SendBare};
    const uint32_t size = static_cast<uint32_t>(state.range(0));
    const Channel channel;
    std::vector<double> times[std::size(ways)];
    std::vector<double> ratios;
    size_t first = 0;

    MRIB_GMP_Init(1, MCAST_FAMILY_IPV4, 2, size, nullptr);
    Adopt(channel.Descriptor());
    for ([[maybe_unused]] auto _ : state) {
        ++first;
        for (size_t i = 0; i < std::size(ways); ++i) {
            size_t way = (first + i) % std::size(ways);

            times[way].push_back(NanosecondsARecord(ways[way], channel, size, kRecords));
        }
        ratios.push_back(times[0].back() / times[1].back());
        state.SetIterationTime(times[0].back() * kRecords * 1e-9);
    }
    Adopt(-1);
    MRIB_GMP_Fini();
    state.counters["library_ns"] = Median(times[0]);
    state.counters["by_hand_ns"] = Median(times[1]);
    state.counters["bare_send_ns"] = Median(times[2]);
    state.counters["ratio_to_by_hand"] = Median(ratios);
}

BENCHMARK(JoinPrune)->Arg(1400)->Arg(10240)->UseManualTime()->Iterations(1000)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
