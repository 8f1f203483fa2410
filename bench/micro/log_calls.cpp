// What a log call below the threshold costs: next to nothing, whatever its arguments are.

#include "support/log.h"

#include <benchmark/benchmark.h>

namespace {

/// An argument that would be dear to compute.
[[gnu::noinline]] int expensive(int value) {
    for (int i = 0; i < 1000; i++)
        benchmark::DoNotOptimize(value += i);
    return value;
}

void noLogCall(benchmark::State& state) {
    int drawable = 1;
    for ([[maybe_unused]] const auto pass : state)
        benchmark::DoNotOptimize(drawable);
}

void logCall(benchmark::State& state) {
    kor_open_log();
    int drawable = 1;
    for ([[maybe_unused]] const auto pass : state) {
        benchmark::DoNotOptimize(drawable);
        KOR_DEBUG("drawable %d, %d", drawable, expensive(drawable));
    }
}

BENCHMARK(noLogCall);
BENCHMARK(logCall);

} // namespace

BENCHMARK_MAIN();
