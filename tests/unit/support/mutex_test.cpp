#include "support/mutex.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <type_traits>
#include <unistd.h>

using kor::Lock;
using kor::Mutex;

static_assert(!std::is_polymorphic_v<Mutex>);
static_assert(sizeof(Mutex) == sizeof(pthread_mutex_t));
static_assert(std::is_empty_v<korWhereInfo>);

namespace {

/// True when another thread waits for the mutex for as long as it is held here.
bool keepsOthersOut(Mutex& mutex, const std::function<void()>& release) {
    std::atomic<bool> entered{false};
    std::thread other([&] {
        mutex.lock(korWhereInfo{});
        entered = true;
        mutex.unlock(korWhereInfo{});
    });
    usleep(30000);
    const bool early = entered;
    release();
    other.join();
    return !early && entered;
}

} // namespace

TEST(Mutex, LockAndUnlockSucceed) {
    Mutex mutex;
    EXPECT_TRUE(mutex.lock(korWhereInfo{}));
    EXPECT_TRUE(mutex.unlock(korWhereInfo{}));
    EXPECT_TRUE(mutex.lock(korWhereInfo{}));
    EXPECT_TRUE(mutex.unlock(korWhereInfo{}));
}

TEST(Mutex, KeepsOtherThreadsOutWhileHeld) {
    Mutex mutex;
    mutex.lock(korWhereInfo{});
    EXPECT_TRUE(keepsOthersOut(mutex, [&] { mutex.unlock(korWhereInfo{}); }));
}

TEST(Lock, HoldsTheMutexForItsScope) {
    Mutex mutex;
    auto lock = std::make_unique<Lock>(mutex);
    EXPECT_TRUE(keepsOthersOut(mutex, [&] { lock.reset(); }));
}

TEST(Lock, CanBeEndedEarlyAndTakenAgain) {
    Mutex mutex;
    Lock lock(mutex);
    EXPECT_TRUE(keepsOthersOut(mutex, [&] { lock.unlock(); }));
    lock.lock();
    EXPECT_TRUE(keepsOthersOut(mutex, [&] { lock.unlock(); }));
}
