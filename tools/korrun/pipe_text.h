#pragma once

#include "file_descriptor.h"

#include <chrono>
#include <string>

namespace korrun {

using Clock = std::chrono::steady_clock;

// A pipe whose two ends are closed in programs that are started.
struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

// Throws Failure when the process has no descriptors left.
Pipe makePipe();

// Writes the whole text; false when nobody reads it any more.
bool writeText(int descriptor, const std::string& text);

enum class ReadResult { Line, End, TimedOut, Interrupted };

// Waits for one line from `descriptor` until `deadline`; `line` receives it without its newline.
// Gives up with Interrupted as soon as `stopDescriptor` (-1: none) becomes readable or is closed by
// its writer. A text without a newline before the end counts as a line.
ReadResult readLine(int descriptor, std::string& line, Clock::time_point deadline,
                    int stopDescriptor = -1);

} // namespace korrun
