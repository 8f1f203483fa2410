#pragma once

#include <string>

namespace korrun {

enum class DisplayState {
    DrivesGpu,     // answers, has GLX and drives a GPU
    RendersItself, // answers and has GLX, but renders in software as far as can be seen
    IsSession,     // is itself a session's server, which has no GPU
    WithoutGlx,    // answers, but cannot serve GL
    Unreachable,   // nobody there, or not allowed
    NoAnswer       // took the connection and then said nothing
};

// Tries an X display in a process of its own, for at most five seconds.
DisplayState probeDisplay(const std::string& name);

// Whether the display's server names our GL vendor library to its clients, so that they load it by
// themselves. False when it does not answer; tried in the same way.
bool namesOurVendor(const std::string& name);

// Whether GL can be rendered there at all.
bool isUsable(DisplayState state);

// What the state means, as the end of a sentence that begins with the display's name.
const char* describe(DisplayState state);

} // namespace korrun
