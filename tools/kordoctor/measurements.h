#pragma once

#include "core/gl_headers.h"

#include <X11/Xlib.h>
#include <string>

namespace kordoctor {

// A context that is current on an offscreen drawable of the GPU's display, made as the library
// makes its own. The library's table of system functions must be filled.
class GlTarget {
  public:
    GlTarget(Display* display, int width, int height); // pixels
    GlTarget(const GlTarget&) = delete;
    GlTarget& operator=(const GlTarget&) = delete;

    // Why there is no such context; empty when there is.
    const std::string& problem() const { return m_problem; }
    bool isDirect() const;

    // Milliseconds that the library's own readback takes of a frame; negative when none could be
    // read. Takes about a second.
    double measureReadback();

  private:
    Display* m_display;
    int m_width;
    int m_height;
    GLXContext m_context = nullptr; // goes with the process, as does the drawable
    std::string m_problem;
};

struct Painting {
    double milliseconds = -1; // a frame; negative when none could be painted
    bool sharedMemory = false;
};

// What the library's own painter takes for a frame until the server is done with it. Nothing is to
// be seen of it. Takes about a second.
Painting measurePainting(Display* display, int width, int height);

} // namespace kordoctor
