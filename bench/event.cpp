/*
 * What daemons send through the event room.
 *
 *   Messager       32-byte messages into packets of at most 1231 bytes, to a send function that takes all: on
 *                  one thread, and on two that share the messager. The time is wall time by messages of all
 *                  threads together.
 *   MemberChannel  messages of a size, packed or each flushed, over a local socket of the host platform. In
 *                  turns with it run messages packed by hand, and the same datagrams sent ready made. The
 *                  peer reads between the rounds, so that nobody pays for waking it. Times are wall time a
 *                  datagram; share_of_by_hand and share_of_bare are medians over the rounds of the other's
 *                  time by the library's: 1 is as fast.
 */
#include "mcast/event.h"

#include <algorithm>
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "mcast/member_channel.h"
#include "mcast/messager.h"
#include "mcast/mrib_wire.h"
#include "platform/local_socket.h"

namespace
{

void Check(bool good, const char *what)
{
    if (!good) {
        perror(what);
        exit(1);
    }
}

uint64_t g_bytes;

uint64_t TakeAll(uint32_t, const void *data, uint64_t length, uint64_t *)
{
    benchmark::DoNotOptimize(data);
    g_bytes += length;
    return 0;
}

MESSAGER_S *g_messager;

void Messager(benchmark::State &state)
{
    const MESSAGER_CALLBACKS_S callbacks = {nullptr, nullptr, TakeAll};
    char message[32] = {};
    uint32_t i = 0;
    if (state.thread_index() == 0) {
        g_messager = Messager_Init(1, 1500, 12, MESSAGER_KEEP_TAIL, 16, &callbacks);
    }
    for ([[maybe_unused]] auto _ : state) {
        memcpy(message, &i, sizeof(i));
        ++i;
        Messager_Send(g_messager, message, sizeof(message), MCAST_FALSE);
    }
    if (state.thread_index() == 0) {
        Messager_Fini(g_messager);
    }
    state.counters["messages_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(Messager)->Threads(1)->Threads(2)->UseRealTime();

LOCAL_SOCKET_ADDR_S MribAddress()
{
    LOCAL_SOCKET_ADDR_S address = {};
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(MRIB_PORT_IPV4);
    address.node = LOCAL_SOCKET_NODE;
    return address;
}

/* An open member channel, and the peer's end of it. */
class Connection
{
public:
    Connection() : epoll(MCAST_CreateEpoll())
    {
        const LOCAL_SOCKET_ADDR_S address = MribAddress();
        int listener = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
        Check(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0, "bind");
        Check(listen(listener, 1) == 0, "listen");
        near = static_cast<int>(MBR_LIB_Init(MCAST_FAMILY_IPV4, 1, epoll, 1));
        Check(near >= 0, "MBR_LIB_Init");
        far = accept(listener, nullptr, nullptr);
        Check(far >= 0, "accept");
        Check(setsockopt(near, SOL_SOCKET, SO_SNDBUF, &kBuffer, sizeof(kBuffer)) == 0, "setsockopt");
        close(listener);
    }
    ~Connection()
    {
        MBR_LIB_Fini(MCAST_FAMILY_IPV4);
        close(far);
        close(static_cast<int>(epoll));
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void Send(const void *datagram, size_t length) const
    {
        Check(send(near, datagram, length, MSG_DONTWAIT) > 0, "send");
    }

    /* Reads what is there; the number of datagrams. */
    uint32_t Drain() const
    {
        static char buffer[MBR_DATAGRAM_MAX];
        uint32_t count = 0;
        while (recv(far, buffer, sizeof(buffer), MSG_DONTWAIT) > 0) {
            ++count;
        }
        return count;
    }

private:
    static constexpr int kBuffer = 1 << 20;

    uint32_t epoll;
    int near;
    int far;
};

/* The datagrams of a round, which the socket holds all. */
constexpr uint32_t kDatagrams = 100;
constexpr uint32_t kHeader = sizeof(MRIB_MSG_HEADER_S);

/* What a round sends: messages of length bytes, so many to a datagram. */
struct Load {
    uint16_t length;
    uint16_t flush;
    uint32_t packed;
};

const uint8_t g_payload[MBR_DATAGRAM_MAX] = {};

void SendByLibrary(const Connection &, const Load &load)
{
    for (uint32_t i = 0; i < load.packed * kDatagrams; ++i) {
        MBR_LIB_SendMsg(MCAST_FAMILY_IPV4, 40, load.length, g_payload, load.flush);
    }
    Check(MBR_LIB_SendMsg(MCAST_FAMILY_IPV4, 0, 0, nullptr, 1) == MCAST_OK, "MBR_LIB_SendMsg");
}

void SendByHand(const Connection &connection, const Load &load)
{
    static uint8_t datagram[MBR_DATAGRAM_MAX];
    const uint32_t size = MRIB_RECORD_SIZE(load.length);
    uint32_t used = kHeader;

    for (uint32_t i = 0; i < load.packed * kDatagrams; ++i) {
        const MRIB_TLV_HEADER_S header = {40, load.length};

        if (used + size > sizeof(datagram) || (load.flush == 1 && used > kHeader)) {
            connection.Send(datagram, used);
            used = kHeader;
        }
        memcpy(datagram + used, &header, sizeof(header));
        memcpy(datagram + used + sizeof(header), g_payload, load.length);
        benchmark::ClobberMemory();
        used += size;
    }
    connection.Send(datagram, used);
}

void SendBare(const Connection &connection, const Load &load)
{
    static uint8_t datagram[MBR_DATAGRAM_MAX];
    for (uint32_t i = 0; i < kDatagrams; ++i) {
        connection.Send(datagram, kHeader + load.packed * MRIB_RECORD_SIZE(load.length));
    }
}

using Way = void (*)(const Connection &, const Load &);

double NanosecondsADatagram(Way way, const Connection &connection, const Load &load)
{
    const auto start = std::chrono::steady_clock::now();

    way(connection, load);
    const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;

    Check(connection.Drain() == kDatagrams, "datagrams are not as planned");
    return taken.count() / kDatagrams;
}

double Median(std::vector<double> &values)
{
    const auto middle = values.begin() + static_cast<long>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/* Arguments: bytes of a message, and whether each is flushed. */
void MemberChannel(benchmark::State &state)
{
    const Way ways[] = {SendByLibrary, SendByHand, SendBare};
    const uint16_t length = static_cast<uint16_t>(state.range(0));
    const uint16_t flush = static_cast<uint16_t>(state.range(1));
    const uint32_t fitting = (MBR_DATAGRAM_MAX - kHeader) / MRIB_RECORD_SIZE(length);
    const Load load = {length, flush, flush == 1 ? 1 : fitting};
    const Connection connection;
    std::vector<double> times[std::size(ways)];
    std::vector<double> of_by_hand;
    std::vector<double> of_bare;
    size_t first = 0;

    for ([[maybe_unused]] auto _ : state) {
        ++first;
        for (size_t i = 0; i < std::size(ways); ++i) {
            const size_t way = (first + i) % std::size(ways);

            times[way].push_back(NanosecondsADatagram(ways[way], connection, load));
        }
        of_by_hand.push_back(times[1].back() / times[0].back());
        of_bare.push_back(times[2].back() / times[0].back());
        state.SetIterationTime(times[0].back() * kDatagrams * 1e-9);
    }
    state.counters["library_ns"] = Median(times[0]);
    state.counters["by_hand_ns"] = Median(times[1]);
    state.counters["bare_ns"] = Median(times[2]);
    state.counters["share_of_by_hand"] = Median(of_by_hand);
    state.counters["share_of_bare"] = Median(of_bare);
}

BENCHMARK(MemberChannel)
    ->ArgNames({"bytes", "flush"})
    ->Args({32, 0})
    ->Args({32, 1})
    ->Args({1383, 0})
    ->UseManualTime()
    ->Iterations(2000)
    ->Unit(benchmark::kMicrosecond);

/* Local sockets in a directory of this run. */
struct RuntimeDirectory {
    std::string path = "/tmp/bench_event.XXXXXX";

    RuntimeDirectory()
    {
        Check(mkdtemp(path.data()) != nullptr, "mkdtemp");
        setenv("MCAST_HOST_RUNTIME_DIR", path.c_str(), 1);
    }
    ~RuntimeDirectory()
    {
        const std::string remove = "rm -r " + path;
        Check(system(remove.c_str()) == 0, "rm");
    }
    RuntimeDirectory(const RuntimeDirectory &) = delete;
    RuntimeDirectory &operator=(const RuntimeDirectory &) = delete;
};

} // namespace

int main(int argc, char **argv)
{
    const RuntimeDirectory directory;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
