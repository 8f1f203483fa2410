#include "interposed.h"

#include "../log_lines.h"
#include "support/mutex.h"
#include "support/semaphore.h"
#include "support/thread.h"

#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <unistd.h>

using namespace kor::test;
using kor::Lock;
using kor::Mutex;
using kor::Semaphore;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const korWhereInfo here;

struct FailureCase {
    const char* name;
    Fault* fault;
    int error;
    /// Performs the operation with the fault armed by arm(); true when it reported success.
    std::function<bool(const std::function<void()>& arm)> operation;
    const char* function;
    const char* message;
};

class LockFailure : public testing::TestWithParam<FailureCase> {};

bool onMutex(const std::function<void()>& arm, bool (Mutex::*operation)(const korWhereInfo&)) {
    Mutex mutex;
    arm();
    return (mutex.*operation)(here);
}

bool onSemaphore(const std::function<void()>& arm,
                 const std::function<bool(Semaphore&)>& operation) {
    Semaphore semaphore(1);
    arm();
    return operation(semaphore);
}

} // namespace

TEST_P(LockFailure, IsLoggedAtDebugAndGivesFalse) {
    const FailureCase& c = GetParam();
    const LogLines log;
    EXPECT_FALSE(c.operation([&] { c.fault->arm(c.error); }));
    EXPECT_TRUE(c.fault->spent());
    const auto records = log.records();
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(records[0].letter, "D");
    EXPECT_EQ(records[0].process, std::to_string(getpid()));
    EXPECT_EQ(records[0].tag, "KOR");
    EXPECT_EQ(records[0].function, c.function);
    EXPECT_EQ(records[0].message, c.message);
    // The message ends in a newline of its own.
    EXPECT_THAT(log.text(), SizeIs(2));
    EXPECT_EQ(log.text().back(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Of, LockFailure,
    testing::Values(
        FailureCase{"MutexConstruction", &mutexInit, ENOMEM,
                    [](const auto& arm) {
                        arm();
                        Mutex mutex;
                        return false;
                    },
                    "kor::Mutex::Mutex()", "Cannot initialize mutex (Cannot allocate memory)"},
        FailureCase{"MutexDestruction", &mutexDestroy, EBUSY,
                    [](const auto& arm) {
                        Mutex mutex;
                        arm();
                        return false;
                    },
                    "kor::Mutex::~Mutex()", "Cannot destroy mutex (Device or resource busy)"},
        FailureCase{"MutexLock", &mutexLock, EINVAL,
                    [](const auto& arm) { return onMutex(arm, &Mutex::lock); },
                    "bool kor::Mutex::lock(const korWhereInfo&)",
                    "Mutex lock operation failed (Invalid argument)"},
        FailureCase{"MutexUnlock", &mutexUnlock, EPERM,
                    [](const auto& arm) { return onMutex(arm, &Mutex::unlock); },
                    "bool kor::Mutex::unlock(const korWhereInfo&)",
                    "Mutex unlock operation failed (Operation not permitted)"},
        FailureCase{"SemaphoreConstruction", &semInit, ENOSYS,
                    [](const auto& arm) {
                        arm();
                        const Semaphore semaphore(1);
                        return false;
                    },
                    "kor::Semaphore::Semaphore(uint32_t)",
                    "Cannot initialize semaphore (Function not implemented)"},
        FailureCase{"SemaphoreDestruction", &semDestroy, EINVAL,
                    [](const auto& arm) {
                        const Semaphore semaphore(1);
                        arm();
                        return false;
                    },
                    "virtual kor::Semaphore::~Semaphore()",
                    "Cannot destroy semaphore (Invalid argument)"},
        FailureCase{"SemaphoreWait", &semWait, EINVAL,
                    [](const auto& arm) {
                        return onSemaphore(arm, [](Semaphore& s) { return s.P(here); });
                    },
                    "bool kor::Semaphore::P(const korWhereInfo&)",
                    "Semaphore wait operation failed (Invalid argument)"},
        FailureCase{"SemaphorePost", &semPost, EOVERFLOW,
                    [](const auto& arm) {
                        return onSemaphore(arm, [](Semaphore& s) { return s.V(here); });
                    },
                    "bool kor::Semaphore::V(const korWhereInfo&)",
                    "Semaphore post operation failed (Value too large for defined data type)"},
        FailureCase{"SemaphoreTry", &semTrywait, EAGAIN,
                    [](const auto& arm) {
                        return onSemaphore(arm, [](Semaphore& s) { return s.tryP(0, here); });
                    },
                    "bool kor::Semaphore::tryP(uint32_t, const korWhereInfo&)",
                    "Semaphore wait operation failed (Resource temporarily unavailable)"},
        FailureCase{"AnInterruptedSemaphoreTry", &semTrywait, EINTR,
                    [](const auto& arm) {
                        return onSemaphore(arm, [](Semaphore& s) { return s.tryP(0, here); });
                    },
                    "bool kor::Semaphore::tryP(uint32_t, const korWhereInfo&)",
                    "Semaphore wait operation failed (Interrupted system call)"},
        FailureCase{"SemaphoreTimedWait", &semTimedwait, EINVAL,
                    [](const auto& arm) {
                        return onSemaphore(arm, [](Semaphore& s) { return s.tryP(100, here); });
                    },
                    "bool kor::Semaphore::tryP(uint32_t, const korWhereInfo&)",
                    "Semaphore wait operation failed (Invalid argument)"}),
    [](const auto& info) { return info.param.name; });

TEST(LockFaults, AreNotLoggedAtTheDefaultThreshold) {
    setenv("KOR_GL_VERBOSE", "0", 1);
    setenv("KOR_GL_LOG_LEVEL", "warning", 1);
    setenv("KOR_GL_LOG_DIR", "<null>", 1);
    kor::conf::Settings::reload();
    kor_close_log();
    kor_open_log();
    const StderrCapture errors;
    Mutex mutex;
    mutexLock.arm(EINVAL);
    EXPECT_FALSE(mutex.lock(here));
    EXPECT_EQ(errors.text(), "");
    kor_close_log();
}

TEST(LockFaults, WhatCouldNotBeLockedIsNotUnlocked) {
    Mutex mutex;
    {
        const LogLines log;
        mutexLock.arm(EINVAL);
        const Lock lock(mutex);
        mutexUnlock.arm(EPERM);
    }
    EXPECT_FALSE(mutexUnlock.spent());
    mutexUnlock.disarm();
}

TEST(SemaphoreFaults, AnInterruptedWaitIsRepeatedWithoutAMessage) {
    Semaphore semaphore(1);
    const LogLines log;
    semWait.arm(EINTR, 3);
    EXPECT_TRUE(semaphore.P(here));
    EXPECT_TRUE(semWait.spent());
    EXPECT_THAT(log.text(), IsEmpty());
}

TEST(SemaphoreFaults, AnInterruptedTimedWaitIsRepeatedWithTheSameDeadline) {
    Semaphore semaphore(1);
    const LogLines log;
    timeOfDay = timeval{2000000000, 5};
    semTimedwait.arm(EINTR, 3);
    EXPECT_TRUE(semaphore.tryP(1, here));
    timeOfDay.reset();
    EXPECT_TRUE(semTimedwait.spent());
    EXPECT_EQ(lastDeadline.tv_sec, 2000000000);
    EXPECT_EQ(lastDeadline.tv_nsec, 1005000);
    EXPECT_THAT(log.text(), IsEmpty());
}

TEST(SemaphoreFaults, ATimeOutGivesFalseWithoutAMessage) {
    Semaphore semaphore(1);
    const LogLines log;
    semTimedwait.arm(ETIMEDOUT);
    EXPECT_FALSE(semaphore.tryP(1, here));
    EXPECT_THAT(log.text(), IsEmpty());
}

namespace {

struct DeadlineCase {
    const char* name;
    uint32_t timeoutMs;
    timeval now;
    time_t seconds;
    int64_t nanoseconds;
    bool valid;
};

class Deadline : public testing::TestWithParam<DeadlineCase> {};

constexpr bool hasWideNanoseconds = sizeof(timespec::tv_nsec) == 8;

} // namespace

TEST_P(Deadline, OfATimedWait) {
    const DeadlineCase& c = GetParam();
    Semaphore semaphore(1); // so that a valid deadline lets the call through at once
    const LogLines log;
    timeOfDay = c.now;
    const bool taken = semaphore.tryP(c.timeoutMs, here);
    timeOfDay.reset();
    EXPECT_EQ(lastDeadline.tv_sec, c.seconds);
    EXPECT_EQ(lastDeadline.tv_nsec, c.nanoseconds);
    EXPECT_EQ(taken, c.valid);
    if (c.valid) {
        EXPECT_THAT(log.text(), IsEmpty());
    } else {
        ASSERT_THAT(log.records(), SizeIs(1));
        EXPECT_EQ(log.records()[0].message, "Semaphore wait operation failed (Invalid argument)");
    }
}

INSTANTIATE_TEST_SUITE_P(
    In32Bits, Deadline,
    testing::Values(
        DeadlineCase{"WithinTheSecond", 500, {100, 400000}, 100, 900000000, true},
        DeadlineCase{"JustBelowAWholeSecond", 500, {100, 499999}, 100, 999999000, true},
        DeadlineCase{"ExactlyAWholeSecondIsLeftUncarriedAndRejected",
                     500,
                     {100, 500000},
                     100,
                     1000000000,
                     false},
        DeadlineCase{"JustAboveAWholeSecond", 500, {100, 500001}, 101, 1000, true},
        DeadlineCase{"TwoWholeSecondsAreCarried", 1500, {100, 500000}, 102, 0, true},
        DeadlineCase{"ManySeconds", 65250, {100, 900000}, 166, 150000000, true},
        // 2147484 ms are 2,147,484,000 us, more than 31 bits hold: the sum turns negative. (Where
        // nanoseconds have 32 bits, these come round to something valid.)
        DeadlineCase{"ASumBeyond31BitsTurnsNegativeAndIsRejected",
                     2147484,
                     {100, 0},
                     100,
                     hasWideNanoseconds ? -2147483296000 : 352000,
                     !hasWideNanoseconds},
        // 4294968 ms are 4,294,968,000 us, which come round to 704.
        DeadlineCase{"ASumBeyond32BitsComesRound", 4294968, {100, 1}, 100, 705000, true}),
    [](const auto& info) { return info.param.name; });

namespace {

struct Worker : kor::Thread<Worker> {
    Semaphore entered{0};
    Semaphore mayEnd{0};
    bool answer = true;
    static bool callback(Worker* self) {
        self->entered.V(here);
        self->mayEnd.P(here);
        return self->answer;
    }
};

/// Joins while the function surely still runs, so that there is a join at all.
void* resultOf(bool answer) {
    Worker worker;
    worker.answer = answer;
    worker.start(&worker, Worker::callback);
    struct Ender : kor::Thread<Worker> {
        static bool end(Worker* other) {
            usleep(50000);
            return other->mayEnd.V(here);
        }
    } ender;
    ender.start(&worker, Ender::end);
    worker.join();
    void* result = threadResult;
    ender.join();
    return result;
}

} // namespace

TEST(LockAttributes, AreTheDefaults) {
    mutexHadAttributes = threadHadAttributes = semaphoreWasShared = true;
    const Mutex mutex;
    EXPECT_FALSE(mutexHadAttributes);
    const Semaphore semaphore(0);
    EXPECT_FALSE(semaphoreWasShared);
    Worker worker;
    worker.mayEnd.V(here);
    EXPECT_TRUE(worker.start(&worker, Worker::callback));
    EXPECT_FALSE(threadHadAttributes);
    worker.join();
}

TEST(ThreadFaults, AThreadThatCannotBeMadeIsToldAndTriedAgainByTheNextCall) {
    Worker worker;
    threadCreate.arm(EAGAIN);
    EXPECT_FALSE(worker.start(&worker, Worker::callback));
    EXPECT_FALSE(worker.started());
    EXPECT_EQ(worker.runningCount(), 0);
    EXPECT_TRUE(worker.start(&worker, Worker::callback));
    worker.mayEnd.V(here);
    worker.join();
}

TEST(ThreadFaults, JoinAfterAFailedRestartDoesNotWait) {
    Worker worker;
    worker.mayEnd.V(here);
    EXPECT_TRUE(worker.start(&worker, Worker::callback));
    worker.join();
    threadCreate.arm(EAGAIN);
    EXPECT_FALSE(worker.start(&worker, Worker::callback));
    worker.join();
    EXPECT_FALSE(worker.started());
}

TEST(Thread, ReturnsWhatItsFunctionReturns) {
    EXPECT_EQ(resultOf(true), reinterpret_cast<void*>(1));
    EXPECT_EQ(resultOf(false), nullptr);
}

TEST(Thread, AFunctionThatHasReturnedIsNotJoined) {
    Worker worker;
    worker.mayEnd.V(here);
    worker.start(&worker, Worker::callback);
    ASSERT_TRUE(worker.entered.tryP(5000, here));
    for (int wait = 0; wait < 5000 && worker.runningCount() != 0; ++wait)
        usleep(1000);
    ASSERT_EQ(worker.runningCount(), 0);
    int untouched = 0;
    threadResult = &untouched;
    worker.join();
    EXPECT_EQ(threadResult, &untouched);
}
