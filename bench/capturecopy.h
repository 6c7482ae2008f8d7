#pragma once
// The baseline of the capture benchmarks: the one per-pixel copy a capture
// makes, the first three bytes of each 32-bit pixel of the service's
// 4000 x 3000 frame into a new 24-bit buffer.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>

inline void BM_CopyBaseline12MP(benchmark::State &state)
{
    const std::size_t pixels = std::size_t(4000) * 3000;
    std::unique_ptr<std::uint8_t[]> frame(new std::uint8_t[pixels * 4]);
    std::memset(frame.get(), 77, pixels * 4);
    for (auto _ : state) {
        std::unique_ptr<std::uint8_t[]> rgb(new std::uint8_t[pixels * 3]);
        const std::uint8_t *s = frame.get();
        std::uint8_t *d = rgb.get();
        for (std::size_t i = 0; i < pixels; ++i, s += 4, d += 3) {
            d[0] = s[0];
            d[1] = s[1];
            d[2] = s[2];
        }
        benchmark::DoNotOptimize(rgb.get());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_CopyBaseline12MP)->Unit(benchmark::kMillisecond)->UseRealTime();
