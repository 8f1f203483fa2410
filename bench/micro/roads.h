#ifndef KOR_BENCH_MICRO_ROADS_H
#define KOR_BENCH_MICRO_ROADS_H

#include "support/gl_library.h"

#include <memory>
#include <string>
#include <vector>

namespace kor::bench {

/// One way from an application's call to the driver, with a context of its own at its end: of the
/// same fbconfig on the same driver for all ways, so that only the way differs.
class Road {
  public:
    Road(std::string name, const GlLibrary& gl, Display* display, GLXDrawable drawable,
         GLXContext context);

    const std::string name;
    const GlLibrary gl;
    Display* const display;
    const GLXDrawable drawable;
    GLXContext const context;
    GLint uniform = 0; ///< of the program in use

    /// Makes the road's context current to the calling thread.
    void enter() const;
};

/// All roads that there are here: "system", straight on the local display; "classic", through the
/// classic front to an application window; "vendor", the same through the GL vendor library, where
/// the application display's server sends the system's own libGLX to it.
std::vector<std::unique_ptr<Road>> openRoads();

} // namespace kor::bench

#endif
