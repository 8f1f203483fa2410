#include "support/singleton.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Slow : kor::Singleton<Slow> {
    static inline std::atomic<int> made{0};
    Slow() {
        usleep(20000);
        ++made;
    }
};

/// Its end would end the process.
struct Lasting : kor::Singleton<Lasting> {
    ~Lasting() { _exit(9); }
};

struct First : kor::Singleton<First> {};
struct Second : kor::Singleton<Second> {};

} // namespace

TEST(Singleton, IsMadeOnceHoweverManyThreadsAskAtTheSameTime) {
    std::vector<std::thread> askers;
    std::atomic<Slow*> seen[8] = {};
    for (auto& slot : seen)
        askers.emplace_back([&slot] { slot = Slow::instance(); });
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(Slow::made, 1);
    for (const auto& slot : seen) {
        EXPECT_NE(slot.load(), nullptr);
        EXPECT_EQ(slot.load(), Slow::instance());
    }
}

TEST(Singleton, IsOnePerType) {
    EXPECT_EQ(First::instance(), First::instance());
    EXPECT_NE(static_cast<void*>(First::instance()), static_cast<void*>(Second::instance()));
}

TEST(Singleton, IsNeverDestroyed) {
    const auto makeAndExit = [] {
        if (Lasting::instance() == nullptr)
            _exit(8);
        exit(0);
    };
    EXPECT_EXIT(makeAndExit(), testing::ExitedWithCode(0), "");
}
