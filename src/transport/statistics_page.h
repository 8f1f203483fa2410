#ifndef KOR_TRANSPORT_STATISTICS_PAGE_H
#define KOR_TRANSPORT_STATISTICS_PAGE_H

#include "support/relaxed.h"

#include <cstdint>

/// The page of counters through which a process shows what becomes of its frames, as it lies in a
/// shared file: the library writes, tools read it at any time (and so may see a line between two of
/// its changes). One layout for 32-bit and 64-bit processes.
///
/// The file is a memory file of the name below, found among the process's open files. With the
/// variable below, which names a folder, it is an ordinary file of that name, a dot and the process
/// id in that folder, and outlives the process.
namespace kor::gl {

constexpr char statisticsFileName[] = "kor-stats";
constexpr char statisticsVariable[] = "KOR_GL_STATS";
constexpr uint64_t statisticsMagic = 0x3273746174534F4B; // "KOStats2" in memory
constexpr uint32_t statisticsLines = 62;
constexpr uint32_t timeAllFrames = UINT32_MAX; // for timingBudget

/// One window of the process.
struct StatisticsLine {
    enum State : uint32_t { Free, Live, Ended, Taken }; // Taken: being given to a window
    enum Strategy : uint32_t { Unknown, SharedMemory, PlainRequests };

    Relaxed<uint32_t> state{Free};
    Relaxed<uint32_t> strategy{Unknown};
    Relaxed<uint32_t> width{0}; // pixels, of the frame painted last, or when first counted
    Relaxed<uint32_t> height{0};
    Relaxed<uint64_t> window{0};
    Relaxed<uint64_t> rendered{0}; // frames that the application finished while visible
    Relaxed<uint64_t> hidden{0};   // finished while hidden, and so not transported
    Relaxed<uint64_t> painted{0};
    Relaxed<uint64_t> dropped{0}; // finished, and replaced by the next or lost before their turn
    Relaxed<uint64_t> timed{0};   // painted frames of which the next two are the sums
    Relaxed<uint64_t> readbackNanoseconds{0};
    Relaxed<uint64_t> paintingNanoseconds{0};
    Relaxed<uint64_t> begun{0}; // CLOCK_MONOTONIC, nanoseconds: the line's first frame
    Relaxed<uint64_t> last{0};  // the same: the last frame that was timed
};
static_assert(sizeof(StatisticsLine) == 96);

struct StatisticsPage {
    Relaxed<uint64_t> magic{0}; // written last
    Relaxed<uint32_t> process{0};
    /// How many painted frames are still to be timed; written by whoever watches, from time to
    /// time, so that a watcher that goes away costs nothing for long. timeAllFrames: all.
    Relaxed<uint32_t> timingBudget{0};
    StatisticsLine lines[statisticsLines];
};
static_assert(sizeof(StatisticsPage) == 16 + statisticsLines * sizeof(StatisticsLine));

} // namespace kor::gl

#endif
