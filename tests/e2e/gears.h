// glxgears, and whether its gears are to be seen.
#pragma once

#include "framework/child.h"

#include <string>

namespace kor::e2e {

// Runs the command, a glxgears of 300 x 300 pixels on that display, until its window has shown five
// different pictures of the gears; fails the test when it does not, or when it complains. What it
// wrote on its standard error output.
std::string expectTurningGears(const std::string& display, const test::Command& command);

} // namespace kor::e2e
