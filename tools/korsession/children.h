#pragma once

#include <chrono>
#include <sys/types.h>

namespace korsession {

// Collects the children that have ended; whether `wanted` was among them.
bool collectEnded(pid_t wanted);

// Ends every child of this process, and, since it adopts orphans, all that they have started: first
// by asking, after `patience` by force. Returns when none is left.
void endChildren(std::chrono::milliseconds patience);

// Ends a child, which may lead a process group: first by asking the group, also when it was
// stopped, after `patience` by force the child alone. Returns when it has been collected; whether
// asking was enough.
bool endChild(pid_t child, std::chrono::milliseconds patience);

} // namespace korsession
