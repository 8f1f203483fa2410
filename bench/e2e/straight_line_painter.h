#ifndef KOR_BENCH_E2E_STRAIGHT_LINE_PAINTER_H
#define KOR_BENCH_E2E_STRAIGHT_LINE_PAINTER_H

#include "support/gl_library.h"

#include <X11/Xutil.h>
#include <mutex>
#include <semaphore>
#include <string>

namespace kor::bench {

/// The straight-line program's other two threads: one that lets an interval pass after each frame
/// and puts the image, one that reads the pixels. Between them and the application's thread stand
/// one mutex and three semaphores, the least that three threads can do with.
class StraightLinePainter {
  public:
    struct Plan {
        std::string applicationDisplay;
        Window window;
        XVisualInfo visual;
        Display* local;
        GLXPbuffer pbuffer; ///< for the reading context to be current on
        GLXContext context; ///< shares the texture
        GLuint texture;     ///< the turned frame
        int width;          ///< pixels
        int height;
    };

    /// The threads run until the program ends.
    StraightLinePainter(const GlLibrary& gl, const Plan& plan);

    void lock() { m_mutex.lock(); }
    /// Releases the lock and announces the frame.
    void frameReady();

    GLsync fence = nullptr; ///< behind the frame's copy; under the lock

  private:
    void paint();
    void read();

    const GlLibrary& m_gl;
    const Plan m_plan;
    std::mutex m_mutex;
    bool m_pending = false;
    char* m_pixels = nullptr;
    std::counting_semaphore<> m_frames{0};
    std::counting_semaphore<> m_work{0};
    std::counting_semaphore<> m_done{0};
};

} // namespace kor::bench

#endif
