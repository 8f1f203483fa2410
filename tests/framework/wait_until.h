#ifndef KOR_TESTS_FRAMEWORK_WAIT_UNTIL_H
#define KOR_TESTS_FRAMEWORK_WAIT_UNTIL_H

#include <chrono>
#include <thread>

namespace kor::test {

/// Asks until the answer is yes or the time is over, with short pauses; at least once. The last
/// answer.
template <typename Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace kor::test

#endif
