/*
 * MCAST_Inet6Cksum beside DPDK's rte_raw_cksum, which is inlined from its header and compiled at -O3.
 *
 *   library            the whole checksum: pseudo-header and data, a call into the shared library
 *   peer/raw           the sum of the data alone, less work than the library's
 *   peer/pseudo        the same result as the library's: pseudo-header, data, complement
 */
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <string.h>
#include <vector>

#include "mcast/addr.h"

#ifdef BENCH_WITH_DPDK
#include <rte_ip.h>
#endif

namespace
{

constexpr uint32_t kNextHeader = 58;
const MCAST_ADDR_S kSource = {MCAST_FAMILY_IPV6, 0, {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7}};

std::vector<uint16_t> Data(size_t bytes)
{
    std::vector<uint16_t> data(bytes / 2);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<uint16_t>(i * 40503u);
    }
    return data;
}

void Library(benchmark::State &state)
{
    uint32_t length = static_cast<uint32_t>(state.range(0));
    std::vector<uint16_t> data = Data(length);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            MCAST_Inet6Cksum(data.data(), length, &kSource, &g_stPimAllRoutersAddr6, length, kNextHeader));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * length);
}

#ifdef BENCH_WITH_DPDK
void PeerRaw(benchmark::State &state)
{
    size_t length = static_cast<size_t>(state.range(0));
    std::vector<uint16_t> data = Data(length);
    for (auto _ : state) {
        benchmark::DoNotOptimize(rte_raw_cksum(data.data(), length));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(length));
}

uint32_t PeerChecksum(const uint16_t *data, uint32_t length, const struct rte_ipv6_hdr *header)
{
    uint32_t sum = rte_raw_cksum(data, length) + static_cast<uint32_t>(rte_ipv6_phdr_cksum(header, 0));
    sum = (sum & 0xffff) + (sum >> 16);
    return ~((sum & 0xffff) + (sum >> 16));
}

void PeerPseudo(benchmark::State &state)
{
    uint32_t length = static_cast<uint32_t>(state.range(0));
    std::vector<uint16_t> data = Data(length);
    struct rte_ipv6_hdr header = {};
    memcpy(header.src_addr, kSource.address, 16);
    memcpy(header.dst_addr, g_stPimAllRoutersAddr6.address, 16);
    header.payload_len = htons(static_cast<uint16_t>(length));
    header.proto = kNextHeader;
    if (PeerChecksum(data.data(), length, &header) !=
        MCAST_Inet6Cksum(data.data(), length, &kSource, &g_stPimAllRoutersAddr6, length, kNextHeader)) {
        state.SkipWithError("the peer's checksum differs");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(PeerChecksum(data.data(), length, &header));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * length);
}
#endif

void Sizes(benchmark::internal::Benchmark *bench)
{
    bench->Arg(64)->Arg(1500)->Arg(9000);
}

BENCHMARK(Library)->Name("library")->Apply(Sizes);
#ifdef BENCH_WITH_DPDK
BENCHMARK(PeerRaw)->Name("peer/raw")->Apply(Sizes);
BENCHMARK(PeerPseudo)->Name("peer/pseudo")->Apply(Sizes);
#endif

} // namespace

BENCHMARK_MAIN();
