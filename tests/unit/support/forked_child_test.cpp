#include "support/forked_child.h"

#include "support/mutex.h"

#include <atomic>
#include <gtest/gtest.h>
#include <semaphore>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

/// The exit status of a child that does this; -1 when it was ended after ten seconds.
template <typename Act> int statusOfChild(Act act) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        _exit(act());
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Counted {
    static inline std::atomic<int> made{0};
    Counted() {
        usleep(20000);
        ++made;
    }
    int value = 5;
};
kor::PerProcess<Counted> counted;

kor::PerProcess<kor::Mutex> mutex;

/// Its constructor waits until it is told to go on.
struct Slow {
    static inline std::binary_semaphore begun{0};
    static inline std::binary_semaphore mayEnd{0};
    static inline std::atomic<bool> waits{true};
    Slow() {
        if (!waits)
            return;
        begun.release();
        mayEnd.acquire();
    }
};
kor::PerProcess<Slow> slow;

struct Refusing {
    static inline bool refuses = true;
    Refusing() {
        if (refuses)
            throw std::runtime_error("not yet");
    }
};
kor::PerProcess<Refusing> refusing;

int hookRuns = 0;
kor::InForkedChild hook([] { ++hookRuns; });

kor::PerProcess<kor::Mutex> boundedMutex;

} // namespace

TEST(PerProcess, IsMadeOnceHoweverManyThreadsAskAtTheSameTime) {
    std::vector<std::thread> askers;
    for (int i = 0; i < 8; ++i)
        askers.emplace_back([] { EXPECT_EQ(counted->value, 5); });
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(Counted::made, 1);
}

TEST(PerProcess, AForkedChildMakesItsOwn) {
    counted->value = 6;
    EXPECT_EQ(statusOfChild([] { return counted->value; }), 5);
    EXPECT_EQ(counted->value, 6);
}

TEST(PerProcess, AChildGetsALockThatAThreadOfItsParentHolds) {
    std::binary_semaphore held{0};
    std::binary_semaphore mayEnd{0};
    std::thread holder([&] {
        const kor::Lock lock(*mutex);
        held.release();
        mayEnd.acquire();
    });
    held.acquire();
    EXPECT_EQ(statusOfChild([] {
                  const kor::Lock lock(*mutex);
                  return 7;
              }),
              7);
    mayEnd.release();
    holder.join();
}

TEST(PerProcess, AChildMakesItsOwnWhileAThreadOfItsParentIsMakingOne) {
    std::thread maker([] { *slow; });
    Slow::begun.acquire();
    EXPECT_EQ(statusOfChild([] {
                  Slow::waits = false;
                  *slow;
                  return 8;
              }),
              8);
    Slow::mayEnd.release();
    maker.join();
}

TEST(PerProcess, IsMadeByTheNextCallerAfterOneThatFailed) {
    EXPECT_THROW(*refusing, std::runtime_error);
    Refusing::refuses = false;
    EXPECT_NO_THROW(*refusing);
}

TEST(ForkedChildHook, RunsOnceInEachChildAndNeverInTheParent) {
    EXPECT_EQ(statusOfChild([] { return 10 * hookRuns + statusOfChild([] { return hookRuns; }); }),
              12);
    EXPECT_EQ(hookRuns, 0);
}

TEST(Mutex, IsWaitedForNoLongerThanIsSaid) {
    std::binary_semaphore held{0};
    std::binary_semaphore mayEnd{0};
    std::thread holder([&] {
        const kor::Lock lock(*boundedMutex);
        held.release();
        mayEnd.acquire();
    });
    held.acquire();
    EXPECT_FALSE(boundedMutex->lockWithin(30));
    mayEnd.release();
    holder.join();
    EXPECT_TRUE(boundedMutex->lockWithin(5000));
    boundedMutex->unlockWithin();
    EXPECT_TRUE(boundedMutex->lockWithin(0));
    boundedMutex->unlockWithin();
}
