#include "support/high_res_timer.h"

#include <ctime>
#include <gtest/gtest.h>
#include <unistd.h>

using kor::HighResTimer;

namespace {

uint64_t monotonicMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

} // namespace

TEST(HighResTimer, TimeIsTheMonotonicClockInMicroseconds) {
    const uint64_t before = monotonicMicroseconds();
    const uint64_t time = HighResTimer().getTime();
    EXPECT_GE(time, before);
    EXPECT_LE(time, monotonicMicroseconds());
}

TEST(HighResTimer, ShowsNothingBeforeItIsStarted) {
    EXPECT_EQ(HighResTimer().elapsedMicro(), 0);
}

TEST(HighResTimer, RunsBetweenStartAndStop) {
    HighResTimer timer;
    timer.start();
    usleep(2000);
    const int64_t first = timer.elapsedMicro();
    EXPECT_GE(first, 2000);
    usleep(2000);
    EXPECT_GE(timer.elapsedMicro(), first + 2000);
}

TEST(HighResTimer, StaysConstantAfterStop) {
    HighResTimer timer;
    timer.start();
    usleep(1000);
    timer.stop();
    const int64_t elapsed = timer.elapsedMicro();
    EXPECT_GE(elapsed, 1000);
    usleep(2000);
    EXPECT_EQ(timer.elapsedMicro(), elapsed);
}

TEST(HighResTimer, StartBeginsAnew) {
    HighResTimer timer;
    timer.start();
    usleep(20000);
    timer.stop();
    timer.start();
    timer.stop();
    EXPECT_LT(timer.elapsedMicro(), 20000);
}

TEST(HighResTimer, ACopyKeepsTheReadingAndGoesOnByItself) {
    HighResTimer timer;
    timer.start();
    usleep(2000);
    const HighResTimer running = timer;
    timer.stop();
    const HighResTimer stopped = timer;
    EXPECT_EQ(stopped.elapsedMicro(), timer.elapsedMicro());
    usleep(2000);
    EXPECT_GE(running.elapsedMicro(), 4000);
    HighResTimer assigned;
    assigned = timer;
    EXPECT_EQ(assigned.elapsedMicro(), timer.elapsedMicro());
}
