#include "support/semaphore.h"

#include "log_lines.h"
#include "support/high_res_timer.h"

#include <atomic>
#include <climits>
#include <csignal>
#include <gmock/gmock.h>
#include <thread>
#include <type_traits>
#include <unistd.h>

using kor::HighResTimer;
using kor::Semaphore;
using kor::test::LogLines;
using testing::IsEmpty;

static_assert(std::has_virtual_destructor_v<Semaphore>);

namespace {

const korWhereInfo here;

} // namespace

TEST(Semaphore, LetsAsManyThroughAsItsValueSays) {
    Semaphore semaphore(2);
    EXPECT_TRUE(semaphore.tryP(0, here));
    EXPECT_TRUE(semaphore.P(here));
    EXPECT_FALSE(semaphore.tryP(0, here));
}

TEST(Semaphore, PostLetsOneMoreThrough) {
    Semaphore semaphore(0);
    EXPECT_TRUE(semaphore.V(here));
    EXPECT_TRUE(semaphore.P(here));
    EXPECT_FALSE(semaphore.tryP(0, here));
}

TEST(Semaphore, WaitLastsUntilSomebodyPosts) {
    Semaphore semaphore(0);
    std::atomic<bool> through{false};
    std::thread waiter([&] { through = semaphore.P(here); });
    usleep(30000);
    EXPECT_FALSE(through);
    semaphore.V(here);
    waiter.join();
    EXPECT_TRUE(through);
}

TEST(Semaphore, WaitGoesOnAfterASignal) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction previous {};
    sigaction(SIGUSR1, &action, &previous);
    Semaphore semaphore(0);
    std::atomic<int> results{0};
    std::thread waiter([&] {
        results += semaphore.P(here) ? 1 : 0;
        results += semaphore.tryP(5000, here) ? 1 : 0;
    });
    for (int round = 0; round < 2; ++round) {
        usleep(20000);
        pthread_kill(waiter.native_handle(), SIGUSR1);
        usleep(20000);
        EXPECT_EQ(results, round);
        semaphore.V(here);
    }
    waiter.join();
    EXPECT_EQ(results, 2);
    sigaction(SIGUSR1, &previous, nullptr);
}

TEST(Semaphore, TryOfAZeroSemaphoreFailsAndLogsAWaitFailure) {
    Semaphore semaphore(0);
    const LogLines log;
    EXPECT_FALSE(semaphore.tryP(0, here));
    const auto records = log.records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].letter, "D");
    EXPECT_EQ(records[0].tag, "KOR");
    EXPECT_EQ(records[0].function, "bool kor::Semaphore::tryP(uint32_t, const korWhereInfo&)");
    EXPECT_EQ(records[0].message,
              "Semaphore wait operation failed (Resource temporarily unavailable)");
    // The message brings its own newline, so an empty line follows.
    EXPECT_EQ(log.text().size(), 2U);
    EXPECT_EQ(log.text()[1], "");
}

TEST(Semaphore, TimedWaitTakesWhatIsThereAtOnce) {
    Semaphore semaphore(1);
    HighResTimer timer;
    timer.start();
    EXPECT_TRUE(semaphore.tryP(10000, here));
    EXPECT_LT(timer.elapsedMicro(), 5000000);
}

TEST(Semaphore, TimedWaitOfOneSecondEndsAfterAboutASecondWithoutAMessage) {
    Semaphore semaphore(0);
    const LogLines log;
    HighResTimer timer;
    timer.start();
    EXPECT_FALSE(semaphore.tryP(1000, here));
    EXPECT_GE(timer.elapsedMicro(), 990000);
    EXPECT_LT(timer.elapsedMicro(), 5000000);
    EXPECT_THAT(log.text(), IsEmpty());
}

TEST(Semaphore, TimedWaitEndsWhenSomebodyPosts) {
    Semaphore semaphore(0);
    std::thread poster([&] {
        usleep(20000);
        semaphore.V(here);
    });
    EXPECT_TRUE(semaphore.tryP(20000, here));
    poster.join();
}

TEST(Semaphore, PostBeyondTheLargestValueFailsAndLogs) {
    Semaphore semaphore(SEM_VALUE_MAX);
    const LogLines log;
    EXPECT_FALSE(semaphore.V(here));
    const auto records = log.records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].tag, "KOR");
    EXPECT_EQ(records[0].function, "bool kor::Semaphore::V(const korWhereInfo&)");
    EXPECT_EQ(records[0].message,
              "Semaphore post operation failed (Value too large for defined data type)");
}

TEST(Semaphore, AValueBeyondTheLargestIsReported) {
    const LogLines log;
    { const Semaphore semaphore(uint32_t{SEM_VALUE_MAX} + 1); }
    const auto records = log.records();
    ASSERT_GE(records.size(), 1U);
    EXPECT_EQ(records[0].tag, "KOR");
    EXPECT_EQ(records[0].function, "kor::Semaphore::Semaphore(uint32_t)");
    EXPECT_EQ(records[0].message, "Cannot initialize semaphore (Invalid argument)");
}
