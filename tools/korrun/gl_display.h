#pragma once

#include <optional>
#include <string>

namespace korrun {

// The GPU's display for a session; empty when the session has to bring its own. `given` is what the
// user named on the command line, and must be usable; next comes the variable KOR_GL_DISPLAY, and
// then the usual display, if it drives a GPU. `say` gets what the user should know. Throws Failure.
std::string chooseGlDisplay(const std::optional<std::string>& given, bool verbose,
                            void (*say)(const std::string& message));

} // namespace korrun
