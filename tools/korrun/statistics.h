#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace korrun {

// What became of one window's frames.
struct WindowStatistics {
    uint64_t window = 0;
    bool ended = false; // the window is gone
    unsigned width = 0; // pixels
    unsigned height = 0;
    std::string strategy;  // "shared memory", "plain requests" or "not painted yet"
    uint64_t rendered = 0; // while the window could be seen
    uint64_t hidden = 0;   // while it could not
    uint64_t painted = 0;
    uint64_t dropped = 0;
    uint64_t timed = 0; // frames of which the next two are the sums
    uint64_t readbackNanoseconds = 0;
    uint64_t paintingNanoseconds = 0;
    double seconds = 0; // from the first frame to the last one that was timed
};

struct ProcessStatistics {
    pid_t process = 0;
    std::vector<WindowStatistics> windows;
};

// Reads a page of counters; nothing when the file is none, or is not complete yet.
std::optional<ProcessStatistics> readStatistics(int file);

// Lets the library time so many frames from now on.
bool requestTiming(int file, uint32_t frames);

// A folder to which every process that is started from here writes its counters. It is removed with
// the object.
class StatisticsFolder {
  public:
    // Makes the folder and names it in the environment. Throws Failure.
    StatisticsFolder();
    ~StatisticsFolder();
    StatisticsFolder(const StatisticsFolder&) = delete;
    StatisticsFolder& operator=(const StatisticsFolder&) = delete;

    // One line per window of each process that has shown any; one line that says so when none has.
    std::vector<std::string> report() const;

  private:
    std::string m_folder;
};

} // namespace korrun
