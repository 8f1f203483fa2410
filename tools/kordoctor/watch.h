#pragma once

#include <optional>
#include <sys/types.h>

namespace kordoctor {

// Prints once a second what becomes of the frames of a process, until it ends, the time is over or
// a signal comes. The exit status; throws korrun::Failure when the process cannot be watched.
int watchProcess(pid_t process, std::optional<double> seconds, bool json);

} // namespace kordoctor
