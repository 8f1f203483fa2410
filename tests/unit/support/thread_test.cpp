#include "support/thread.h"

#include "support/semaphore.h"

#include <gtest/gtest.h>
#include <type_traits>
#include <unistd.h>

namespace {

const korWhereInfo here;

/// Stays in its function until it is let go.
struct Worker : kor::Thread<Worker> {
    kor::Semaphore entered{0};
    kor::Semaphore mayEnd{0};
    std::atomic<int> runs{0};
    std::atomic<pthread_t> ranOn{0};

    static bool callback(Worker* self) {
        self->ranOn = pthread_self();
        ++self->runs;
        self->entered.V(here);
        self->mayEnd.P(here);
        return true;
    }
    bool begin() { return start(this, callback); }
    bool awaitEnd() const {
        for (int wait = 0; wait < 5000 && runningCount() != 0; ++wait)
            usleep(1000);
        return runningCount() == 0;
    }
};

static_assert(std::has_virtual_destructor_v<kor::Thread<Worker>>);

} // namespace

TEST(Thread, IsNotStartedByItsConstructor) {
    const Worker worker;
    EXPECT_FALSE(worker.started());
    EXPECT_EQ(worker.runningCount(), 0);
}

TEST(Thread, RunsTheFunctionWithItsTargetOnAThreadOfItsOwn) {
    Worker worker;
    ASSERT_TRUE(worker.begin());
    EXPECT_TRUE(worker.entered.tryP(5000, here));
    EXPECT_FALSE(pthread_equal(worker.ranOn, pthread_self()));
    worker.mayEnd.V(here);
    worker.join();
    EXPECT_EQ(worker.runs, 1);
}

TEST(Thread, CountsOneWhileItsFunctionRunsAndZeroAfterwards) {
    Worker worker;
    ASSERT_TRUE(worker.begin());
    EXPECT_TRUE(worker.entered.tryP(5000, here));
    EXPECT_EQ(worker.runningCount(), 1);
    worker.mayEnd.V(here);
    worker.join();
    EXPECT_EQ(worker.runningCount(), 0);
}

TEST(Thread, IsNotStartedASecondTimeWhileItRuns) {
    Worker worker;
    ASSERT_TRUE(worker.begin());
    EXPECT_TRUE(worker.begin());
    EXPECT_TRUE(worker.entered.tryP(5000, here));
    EXPECT_TRUE(worker.begin());
    EXPECT_FALSE(worker.entered.tryP(50, here));
    worker.mayEnd.V(here);
    worker.join();
    EXPECT_EQ(worker.runs, 1);
}

TEST(Thread, CanBeStartedAgainOnceItsFunctionHasReturned) {
    Worker worker;
    for (int round = 1; round <= 2; ++round) {
        ASSERT_TRUE(worker.begin());
        EXPECT_TRUE(worker.entered.tryP(5000, here));
        EXPECT_EQ(worker.runs, round);
        worker.mayEnd.V(here);
        worker.join();
    }
}

TEST(Thread, JoinWaitsForARunningFunction) {
    Worker worker;
    ASSERT_TRUE(worker.begin());
    EXPECT_TRUE(worker.entered.tryP(5000, here));
    struct Ender : kor::Thread<Worker> {
        static bool end(Worker* other) {
            usleep(50000);
            other->mayEnd.V(here);
            return true;
        }
    } ender;
    ASSERT_TRUE(ender.start(&worker, Ender::end));
    worker.join();
    EXPECT_EQ(worker.runningCount(), 0);
    EXPECT_FALSE(worker.started());
    ender.join();
}

TEST(Thread, JoinRightAfterStartWaitsForTheFunctionTooEvenIfItHasNotBegun) {
    Worker worker;
    worker.mayEnd.V(here);
    ASSERT_TRUE(worker.begin());
    worker.join();
    EXPECT_EQ(worker.runs, 1);
    EXPECT_EQ(worker.runningCount(), 0);
}

TEST(Thread, JoinWithoutAThreadReturnsAtOnce) {
    Worker worker;
    worker.join();
    EXPECT_FALSE(worker.started());
}
