#pragma once

#include <sys/types.h>

namespace korrun {

// Whether a process of the group is still running. Processes that have ended and that nobody has
// waited for do not count: who adopts the command's orphans may never do so.
bool isGroupAlive(pid_t group);

} // namespace korrun
