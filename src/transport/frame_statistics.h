#ifndef KOR_TRANSPORT_FRAME_STATISTICS_H
#define KOR_TRANSPORT_FRAME_STATISTICS_H

#include "transport/statistics_page.h"

#include <X11/X.h>
#include <atomic>
#include <cstdint>

namespace kor::gl {

/// Makes a page of counters for the process, in place of the one before. Where the page cannot be
/// had nothing is counted.
void openStatisticsPage();
/// Makes the process's page, at the first call. Any thread.
void ensureStatisticsPage();

/// Counts the frames of one window in the process's page, on behalf of whoever looks at it. Costs a
/// few stores a frame: no lock, no system call, and the clock is read only while somebody watches.
/// Shared by the window's record and its readback context, whose copy lock guards all but hidden().
class FrameStatistics {
  public:
    FrameStatistics() = default;
    /// The window's line stays, as one that has ended.
    ~FrameStatistics();
    FrameStatistics(const FrameStatistics&) = delete;
    FrameStatistics& operator=(const FrameStatistics&) = delete;

    /// A frame was finished. previousPending: the one before it was never painted.
    void rendered(bool previousPending) {
        rendered_ = rendered_ + 1;
        if (previousPending)
            dropped_ = dropped_ + 1;
        if (StatisticsLine* line = line_.load(std::memory_order_acquire)) {
            line->rendered = rendered_.load();
            line->dropped = dropped_.load();
        }
    }

    /// A frame was finished while the window was hidden. Any application thread, without a lock.
    /// True the first time that the window is counted at all: its size is not known yet.
    bool hidden(Window window) {
        const uint64_t count = hidden_.fetch_add(1, std::memory_order_relaxed) + 1;
        const bool first = claimLine(window);
        if (StatisticsLine* line = line_.load(std::memory_order_acquire))
            line->hidden = count;
        return first;
    }
    /// Says the window's size, in pixels, before its first painting.
    void sized(int width, int height);

    // The copyback thread's, in this order.
    /// The transfer of a frame begins.
    void begins(Window window);
    /// Its pixels are there.
    void transferred() {
        if (timing_)
            transferredAt_ = now();
    }
    /// It was painted, as width x height pixels.
    void painted(int width, int height, bool sharedMemory);
    /// It could not be transferred, or not be painted.
    void failed();

  private:
    static uint64_t now(); // nanoseconds
    /// Takes a line for the window, once. False when it was done before or there is none.
    bool claimLine(Window window);

    std::atomic<StatisticsLine*> line_{nullptr}; // none before the first frame, or without a page
    std::atomic<bool> claimed_{false};           // a line was asked for
    std::atomic<uint64_t> hidden_{0};
    bool timing_ = false; // this frame is timed
    // Written under the copy lock, read by whichever thread takes the line.
    Relaxed<uint64_t> rendered_{0};
    Relaxed<uint64_t> dropped_{0};
    uint64_t painted_ = 0;
    uint64_t beganAt_ = 0;
    uint64_t transferredAt_ = 0;
};

} // namespace kor::gl

#endif
