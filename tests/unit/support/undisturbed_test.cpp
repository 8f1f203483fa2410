#include "support/mutex.h"

#include <gtest/gtest.h>
#include <thread>

using kor::Lock;
using kor::Mutex;
using kor::Undisturbed;

namespace {

Mutex* wanted = nullptr;
int calls = 0;
void takeTheLock() {
    ASSERT_FALSE(Undisturbed::active());
    const Lock lock(*wanted); // for ever, if it were still held
    ++calls;
}

class UndisturbedThread : public testing::Test {
  protected:
    void SetUp() override {
        wanted = &mutex;
        calls = 0;
    }
    Mutex mutex;
    Mutex inner;
};

} // namespace

TEST_F(UndisturbedThread, WhatIsPutOffIsCalledOnceWhenTheOutermostLockIsGone) {
    EXPECT_FALSE(Undisturbed::active());
    {
        const Lock outer(mutex);
        EXPECT_TRUE(Undisturbed::active());
        {
            const Lock lock(inner);
            Undisturbed::afterwards(takeTheLock);
            Undisturbed::afterwards(takeTheLock);
        }
        EXPECT_TRUE(Undisturbed::active());
        EXPECT_EQ(calls, 0);
    }
    EXPECT_EQ(calls, 1);
    { const Lock again(mutex); }
    EXPECT_EQ(calls, 1);
}

TEST_F(UndisturbedThread, ALockThatIsReleasedAndTakenAgainCountsAsOften) {
    Lock lock(mutex);
    lock.unlock();
    EXPECT_FALSE(Undisturbed::active());
    lock.lock();
    EXPECT_TRUE(Undisturbed::active());
    Undisturbed::afterwards(takeTheLock);
    lock.unlock();
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(Undisturbed::active());
}

TEST_F(UndisturbedThread, WorkThatHoldsNoLockCountsToo) {
    {
        const Undisturbed work;
        {
            const Lock lock(mutex);
            Undisturbed::afterwards(takeTheLock);
        }
        EXPECT_EQ(calls, 0);
    }
    EXPECT_EQ(calls, 1);
}

TEST_F(UndisturbedThread, EachThreadCountsItsOwn) {
    const Lock lock(mutex);
    std::thread([] {
        EXPECT_FALSE(Undisturbed::active());
        const Undisturbed work;
        EXPECT_TRUE(Undisturbed::active());
    }).join();
    EXPECT_TRUE(Undisturbed::active());
}
