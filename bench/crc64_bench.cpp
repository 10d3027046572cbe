// CRC-64 throughput over buffers of part sizes, in bytes per second (Google Benchmark's
// bytes_per_second counter). The engine checks every part it sends and the emulator every part it
// receives, so this bounds both; the aim here is 8 GB/s or more.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>

#include "foundation/crc64.h"

namespace {

std::string randomBytes(std::size_t size) {
    std::mt19937_64 rng(20240611);
    std::string data(size, '\0');
    for (auto& c : data) c = static_cast<char>(rng());
    return data;
}

void Crc64Update(benchmark::State& state) {
    const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
    std::uint64_t crc = 0;
    for (auto _ : state) {
        crc = quorvane::foundation::Crc64::update(crc, data.data(), data.size());
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
    state.SetLabel(quorvane::foundation::Crc64::backend());
}

// 16 KiB is one socket read on the emulator's side; 1 MiB a part; 8 MiB beyond the caches.
BENCHMARK(Crc64Update)->Arg(16 << 10)->Arg(1 << 20)->Arg(8 << 20);

void Crc64Combine(benchmark::State& state) {
    std::uint64_t crc = 0x0123456789ABCDEFULL;
    for (auto _ : state) {
        crc = quorvane::foundation::Crc64::combine(crc, 0xFEDCBA9876543210ULL, 1 << 20);
        benchmark::DoNotOptimize(crc);
    }
}
BENCHMARK(Crc64Combine);

}  // namespace

BENCHMARK_MAIN();
