#pragma once

#include "section.h"

namespace kordoctor {

// The session's display: whether it can be reached and has what the library needs there. Facts:
// "application-display" when it can be used at all, "session-size", "server-gl-display".
Section applicationDisplaySection();

} // namespace kordoctor
