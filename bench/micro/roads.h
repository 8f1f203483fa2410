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

/// Two roads: "system", straight on the local display, and one through a front to an application
/// window: "classic", or "vendor", where libGLX finds the vendor library and the application
/// display's server names it. Not both fronts in one process. Ends the program when the road asked
/// for is not there.
std::vector<std::unique_ptr<Road>> openRoads(const std::string& front);

} // namespace kor::bench

#endif
