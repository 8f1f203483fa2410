#ifndef KOR_TRANSPORT_FRAME_STATISTICS_H
#define KOR_TRANSPORT_FRAME_STATISTICS_H

#include "transport/statistics_page.h"

#include <X11/X.h>
#include <cstdint>

namespace kor::gl {

/// Makes the process's page of counters. Called once, by the copyback thread before its first
/// frame. Where the page cannot be had nothing is counted.
void openStatisticsPage();

/// Counts the frames of one window in the process's page, on behalf of whoever looks at it. Costs a
/// few stores a frame: no lock, no system call, and the clock is read only while somebody watches.
/// Guarded by the copy lock of its readback context.
class FrameStatistics {
  public:
    FrameStatistics() = default;
    /// The window's line stays, as one that has ended.
    ~FrameStatistics();
    FrameStatistics(const FrameStatistics&) = delete;
    FrameStatistics& operator=(const FrameStatistics&) = delete;

    /// A frame was finished. previousPending: the one before it was never painted.
    void rendered(bool previousPending) {
        ++rendered_;
        if (previousPending)
            ++dropped_;
        if (line_ != nullptr) {
            line_->rendered = rendered_;
            line_->dropped = dropped_;
        }
    }

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
    /// It could not be transferred.
    void failed();

  private:
    static uint64_t now(); // nanoseconds
    StatisticsLine* claimLine(Window window);

    StatisticsLine* line_ = nullptr; // none before the window's first painting, or without a page
    bool claimed_ = false;           // a line was asked for
    bool timing_ = false;            // this frame is timed
    uint64_t rendered_ = 0;
    uint64_t painted_ = 0;
    uint64_t dropped_ = 0;
    uint64_t beganAt_ = 0;
    uint64_t transferredAt_ = 0;
};

} // namespace kor::gl

#endif
