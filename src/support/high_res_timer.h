#ifndef KOR_SUPPORT_HIGH_RES_TIMER_H
#define KOR_SUPPORT_HIGH_RES_TIMER_H

#include <cstdint>

namespace kor {

/// A stopwatch on CLOCK_MONOTONIC. All times are microseconds. Copying copies the reading.
class HighResTimer {
  public:
    void start();
    void stop();
    /// Now - start while running, stop - start afterwards.
    int64_t elapsedMicro() const;
    uint64_t getTime() const;

  private:
    bool running_ = false;
    uint64_t start_ = 0;
    uint64_t stop_ = 0;
};

} // namespace kor

#endif
