#pragma once

#include <string>
#include <vector>

namespace korsession {

// The command of the first desktop or window manager that is installed. Throws Failure when none
// is.
std::vector<std::string> findDesktop();

// Takes out of the environment what belongs to the session that korsession was called in.
void leaveCallersSession();

} // namespace korsession
