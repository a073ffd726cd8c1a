/*
 * What operators see and type.
 *
 *   trace_line     two addresses, an interface and two numbers by MCAST_vsprintf, beside inet_ntop twice and
 *                  snprintf by hand; both ask the same platform for the interface's name. Rounds alternate
 *                  between the two, so that a change of the machine's mood meets both; counters are medians.
 *   create_destroy an interface index taken and given back
 *   create_many    as many as are fetched at once, taken and then given back
 *   name_check     a typed interface name, with the expression compiled for it
 */
#include <algorithm>
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "mcast/format.h"
#include "mcast/interface_name.h"
#include "mcast/interface_registry.h"

/* The platform's interface names, for both sides alike. */
uint32_t IF_GetDataByIfIndex(uint32_t if_index, uint32_t item, void *data)
{
    static const char kName[] = "GigabitEthernet0/1";
    if (item != IF_ITEM_FULL_NAME || if_index != 7) {
        return 1;
    }
    memcpy(data, kName, sizeof(kName));
    return 0;
}

namespace
{

constexpr int kLines = 20000;

struct Event {
    MCAST_ADDR_S source;
    MCAST_ADDR_S group;
    uint32_t if_index;
    uint32_t sources;
    int timeout_s;
};

uint64_t Trace(char *buffer, size_t size, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    uint64_t length = MCAST_vsprintf(nullptr, MCAST_NONE, 0, format, args, size, buffer);
    va_end(args);
    return length;
}

uint64_t ByLibrary(char *buffer, size_t size, const Event &event)
{
    return Trace(buffer, size, "join (%M, %N) on %P: %u sources, expires in %d s", &event.source,
                 &event.group, event.if_index, event.sources, event.timeout_s);
}

uint64_t ByHand(char *buffer, size_t size, const Event &event)
{
    char source[INET6_ADDRSTRLEN];
    char group[INET6_ADDRSTRLEN];
    char name[IF_NAME_SIZE];
    inet_ntop(event.source.family, event.source.address, source, sizeof(source));
    inet_ntop(event.group.family, event.group.address, group, sizeof(group));
    if (IF_GetDataByIfIndex(event.if_index, IF_ITEM_FULL_NAME, name) != 0) {
        snprintf(name, sizeof(name), "0x%x", event.if_index);
    }
    return static_cast<uint64_t>(snprintf(buffer, size, "join (%s, %s) on %s: %u sources, expires in %d s",
                                          source, group, name, event.sources, event.timeout_s));
}

using Way = uint64_t (*)(char *buffer, size_t size, const Event &event);

double NanosecondsALine(Way way, Event event)
{
    char buffer[256];
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kLines; ++i) {
        event.source.address[3] = static_cast<uint8_t>(i);
        event.sources = static_cast<uint32_t>(i);
        benchmark::DoNotOptimize(way(buffer, sizeof(buffer), event));
        benchmark::ClobberMemory();
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() /
           kLines;
}

double Median(std::vector<double> &values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

MCAST_ADDR_S Address(int family, const char *text)
{
    MCAST_ADDR_S address = {static_cast<uint16_t>(family), 0, {}};
    inet_pton(family, text, address.address);
    return address;
}

void TraceLine(benchmark::State &state, const Event &event)
{
    std::vector<double> library;
    std::vector<double> by_hand;
    char ours[256];
    char theirs[256];
    if (ByLibrary(ours, sizeof(ours), event) != ByHand(theirs, sizeof(theirs), event) ||
        strcmp(ours, theirs) != 0) {
        state.SkipWithError("the lines differ");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        library.push_back(NanosecondsALine(ByLibrary, event));
        by_hand.push_back(NanosecondsALine(ByHand, event));
        state.SetIterationTime(library.back() * 1e-9);
    }
    state.counters["library_ns"] = Median(library);
    state.counters["by_hand_ns"] = Median(by_hand);
    state.counters["ratio_to_by_hand"] = Median(library) / Median(by_hand);
}

void TraceLineIpv4(benchmark::State &state)
{
    TraceLine(state, {Address(AF_INET, "192.168.17.20"), Address(AF_INET, "239.10.20.30"), 7, 3, 260});
}

void TraceLineIpv6(benchmark::State &state)
{
    TraceLine(state, {Address(AF_INET6, "2001:db8:17::20"), Address(AF_INET6, "ff3e::1234:5678"), 7, 3, 260});
}

void CreateDestroy(benchmark::State &state)
{
    if (MCAST_IF_Init(MCAST_IF_TYPE_MUA_IPV4) != 0) {
        state.SkipWithError("no registry");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        MCAST_DestroyIf(static_cast<uint32_t>(MCAST_CreateIf()));
    }
    MCAST_IF_Fini();
}

void CreateMany(benchmark::State &state)
{
    constexpr size_t kMany = 16384;
    std::vector<uint32_t> indexes(kMany);
    if (MCAST_IF_Init(MCAST_IF_TYPE_MUA_IPV4) != 0) {
        state.SkipWithError("no registry");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        for (uint32_t &index : indexes) {
            index = static_cast<uint32_t>(MCAST_CreateIf());
        }
        for (uint32_t index : indexes) {
            MCAST_DestroyIf(index);
        }
    }
    MCAST_IF_Fini();
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kMany));
}

void NameCheck(benchmark::State &state, const char *text)
{
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(MCAST_MuaIfNameCheck(text));
    }
}

void NumberCheck(benchmark::State &state, const char *text)
{
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(MCAST_MuaIfNumCheck(text));
    }
}

BENCHMARK(TraceLineIpv4)->Name("trace_line/ipv4")->UseManualTime()->Iterations(60);
BENCHMARK(TraceLineIpv6)->Name("trace_line/ipv6")->UseManualTime()->Iterations(60);
BENCHMARK(CreateDestroy)->Name("create_destroy");
BENCHMARK(CreateMany)->Name("create_many");
BENCHMARK_CAPTURE(NameCheck, accepted, "Multicast-UA123")->Name("name_check/accepted");
BENCHMARK_CAPTURE(NameCheck, refused, "GigabitEthernet0/1")->Name("name_check/refused");
BENCHMARK_CAPTURE(NumberCheck, accepted, "33554429")->Name("number_check/accepted");

} // namespace

BENCHMARK_MAIN();
