#include "support/high_res_timer.h"

#include <ctime>

namespace kor {

uint64_t HighResTimer::getTime() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

void HighResTimer::start() {
    running_ = true;
    start_ = stop_ = getTime();
}

void HighResTimer::stop() {
    running_ = false;
    stop_ = getTime();
}

int64_t HighResTimer::elapsedMicro() const {
    return static_cast<int64_t>((running_ ? getTime() : stop_) - start_);
}

} // namespace kor
