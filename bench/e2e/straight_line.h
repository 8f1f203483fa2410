#ifndef KOR_BENCH_E2E_STRAIGHT_LINE_H
#define KOR_BENCH_E2E_STRAIGHT_LINE_H

#include "e2e/straight_line_painter.h"
#include "e2e/window_info.h"
#include "support/gl_library.h"
#include "support/window.h"

#include <memory>
#include <string>

namespace kor::bench {

/// What a straight-line program is told.
struct StraightLinePlan {
    std::string applicationDisplay;
    std::string localDisplay;
    int fbconfigId = 0;  ///< of the local display
    VisualID visual = 0; ///< of the application display
    int width = 0;       ///< pixels
    int height = 0;
    bool paints = false;
};

/// The floor: renders into a pbuffer of the local display, copies each finished frame into a
/// texture, turns it there and asks the session's server about the window, by the calls of GL, GLX
/// and X that the library makes for a swap, in its order, and by nothing else: no records, locks
/// (one, where the frames are painted), logs or look-ups. The system's GL is called directly.
class StraightLine {
  public:
    StraightLine(const GlLibrary& gl, const StraightLinePlan& plan);

    /// Makes the application's context current to this thread.
    void makeCurrent();
    /// The application's part of one frame's end.
    void swap();

  private:
    void makeReadback();
    bool losesFront();
    void mendFront();
    void copyFrame();

    const GlLibrary& m_gl;
    StraightLinePlan m_plan;
    Display* m_application;
    Display* m_own; // a second connection to the application display, for questions
    Display* m_local;
    WindowInfo m_info;
    Window m_window = None;
    GLXPbuffer m_pbuffer = None;
    GLXContext m_context = nullptr; // the application's
    GLXContext m_reader = nullptr;
    GLXContext m_mender = nullptr; // where the driver loses the front buffer
    GLuint m_source = 0;
    GLuint m_target = 0;
    GLuint m_framebuffer = 0;
    GLuint m_program = 0;
    GLsync m_fence = nullptr;
    std::unique_ptr<StraightLinePainter> m_painter;
};

} // namespace kor::bench

#endif
