#pragma once

namespace kordoctor {

// Reads the library's settings, so that its code finds them, and keeps that code from writing a
// log: what it has to say is not about a program of the user's.
void keepLibraryQuiet();

} // namespace kordoctor
