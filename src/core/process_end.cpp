#include "core/process_end.h"

#include "config/settings.h"
#include "core/thread_end.h"
#include "support/failures.h"
#include "support/forked_child.h"

#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace kor::gl {

std::atomic<bool> processEndBegun{false};

namespace {

std::atomic<unsigned> renderings{0};
// Those of the thread itself, which may end the process from a handler in the middle of one.
thread_local unsigned ownRenderings = 0;

/// The parent's other threads are not there to leave theirs.
InForkedChild forgetOthersRenderings([] { renderings = ownRenderings; });

int64_t milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1'000'000;
}

void waitForRenderings(int64_t until) {
    while (renderings.load() > ownRenderings && milliseconds() < until)
        usleep(500);
}

} // namespace

void watchForProcessEnd() {
    static std::atomic<bool> watched{false}; // a forked child keeps the handler
    if (!watched.load(std::memory_order_relaxed) && !watched.exchange(true))
        atexit(kor_process_ends);
}

// Counted before the look at the flag, as the end sets the flag before it looks at the count: one
// of the two sees the other.
OwnRendering::OwnRendering() {
    ++ownRenderings;
    ++renderings;
    allowed_ = !processEndBegun.load();
}

OwnRendering::~OwnRendering() {
    --renderings;
    --ownRenderings;
}

} // namespace kor::gl

void kor_process_ends() try {
    constexpr int64_t kMostTogether = 990;
    if (kor::gl::processEndBegun.exchange(true))
        return;
    const int64_t begin = kor::gl::milliseconds();
    if (kor::conf::settings().cleanupAtexit)
        kor::gl::stopCopyback();
    kor::gl::waitForRenderings(begin + kMostTogether);
}
KOR_OTHERWISE()
