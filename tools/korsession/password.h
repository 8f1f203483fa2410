#pragma once

#include <string>

namespace korsession {

// Draws a password, writes it in VNC's form into `file`, readable by its owner alone, and returns
// it in clear: eight letters and digits, all that VNC takes. Throws Failure.
std::string makePassword(const std::string& file);

} // namespace korsession
