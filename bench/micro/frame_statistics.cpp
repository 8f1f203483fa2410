// What the counters of frames cost a frame: a few stores while nobody looks, and the clock three
// times while somebody does.

#include "transport/frame_statistics.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>

namespace {

void countFrames(benchmark::State& state) {
    kor::gl::FrameStatistics statistics;
    for ([[maybe_unused]] const auto pass : state) {
        benchmark::DoNotOptimize(&statistics);
        statistics.rendered(false);
        statistics.begins(0x200002);
        statistics.transferred();
        statistics.painted(640, 480, true);
        benchmark::ClobberMemory();
    }
}

void withoutPage(benchmark::State& state) {
    countFrames(state);
}

void unwatched(benchmark::State& state) {
    unsetenv(kor::gl::statisticsVariable);
    kor::gl::openStatisticsPage();
    countFrames(state);
}

void watched(benchmark::State& state) {
    char folder[] = "/tmp/kor-bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        state.SkipWithError("no folder for the page");
        return;
    }
    setenv(kor::gl::statisticsVariable, folder, 1);
    kor::gl::openStatisticsPage();
    countFrames(state);
    std::filesystem::remove_all(folder);
}

BENCHMARK(withoutPage);
BENCHMARK(unwatched);
BENCHMARK(watched);

} // namespace

BENCHMARK_MAIN();
