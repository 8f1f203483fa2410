#pragma once

#include "section.h"

#include <X11/Xlib.h>

namespace kordoctor {

// Whether the session's server takes a frame of its screen's size through shared memory, by handing
// it one. An ErrorTrap must be there.
void checkSharedMemory(Findings& findings, Display* display);

} // namespace kordoctor
