#pragma once

#include "installation.h"
#include "section.h"

#include <string>

namespace kordoctor {

// Which front would serve a program that korrun runs, and what keeps it from doing so. The program
// is read, not run. `name` is looked for as the shell does.
Section programSection(const std::string& name, const korrun::Installation& installation);

} // namespace kordoctor
