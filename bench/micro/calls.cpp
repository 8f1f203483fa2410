// Nanoseconds per call, by every road to the driver. Calls that do next to nothing show what the
// road costs; entry points that the library takes over show what it does with them.

#include "micro/roads.h"
#include "support/comparison.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

using kor::bench::Road;

namespace {

template <typename Call> void addCall(const Road& road, const char* name, Call call) {
    benchmark::RegisterBenchmark((std::string(name) + "/" + road.name).c_str(),
                                 [&road, call](benchmark::State& state) {
                                     road.enter();
                                     for ([[maybe_unused]] const auto pass : state)
                                         call(road);
                                 });
}

/// Google Benchmark runs its repetitions in random order, all roads mixed.
void addCalls(const Road& road) {
    addCall(road, "glVertex3f", [](const Road& r) { r.gl.glVertex3f(0, 0, 0); });
    addCall(road, "glGetError", [](const Road& r) { benchmark::DoNotOptimize(r.gl.glGetError()); });
    addCall(road, "glUniform1f", [](const Road& r) { r.gl.glUniform1f(r.uniform, 1); });
    addCall(road, "glXGetCurrentContext",
            [](const Road& r) { benchmark::DoNotOptimize(r.gl.glXGetCurrentContext()); });
    addCall(road, "glClear", [](const Road& r) { r.gl.glClear(GL_COLOR_BUFFER_BIT); });
    addCall(road, "glBitmap", [](const Road& r) { r.gl.glBitmap(0, 0, 0, 0, 0, 0, nullptr); });
    addCall(road, "glXMakeCurrent", [](const Road& r) {
        benchmark::DoNotOptimize(r.gl.glXMakeCurrent(r.display, r.drawable, r.context));
    });
}

} // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (count != 2)
        kor::bench::fail("usage: calls classic|vendor [options of Google Benchmark]");
    static const auto roads = kor::bench::openRoads(arguments[1]);
    for (const auto& road : roads)
        addCalls(*road);
    benchmark::RunSpecifiedBenchmarks();
    _exit(0); // the library's threads are still there
}
