// What a painted frame costs the copyback thread and the worker together: the library's hand-over,
// transfer and painting of a frame that the GPU has finished, by turns with nothing but
// glReadPixels and XShmPutImage of the same texture into an equal window.

#include "core/entry_points.h"
#include "display/displays.h"
#include "support/comparison.h"
#include "support/local_config.h"
#include "support/shared_image.h"
#include "support/window.h"
#include "transport/readback_context.h"
#include "transport/readback_slice.h"
#include "transport/ximage_painter.h"

#include <semaphore>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace kor::bench;

namespace {

struct Size {
    int width = 0;
    int height = 0;
};

struct Cost {
    double wall = 0; // microseconds a frame
    double processor = 0;
};

template <typename Work> Cost costOf(Work work) {
    const double processorBefore = processMicroseconds();
    const double before = microseconds();
    work();
    const double after = microseconds();
    return {after - before, processMicroseconds() - processorBefore};
}

XVisualInfo chooseVisual(Display* display) {
    XVisualInfo visual{};
    if (!XMatchVisualInfo(display, DefaultScreen(display), 24, TrueColor, &visual))
        fail("the application display has no visual of depth 24");
    return visual;
}

GLXFBConfig chooseConfig(const GlLibrary& gl, Display* display) {
    const int wanted[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, GLX_DOUBLEBUFFER, True, None};
    int count = 0;
    GLXFBConfig* configs = gl.glXChooseFBConfig(display, DefaultScreen(display), wanted, &count);
    if (configs == nullptr || count < 1)
        fail("the local display has no fbconfig for pbuffers");
    GLXFBConfig config = configs[0];
    XFree(configs);
    return config;
}

/// The library's own objects for one window, driven by hand.
class Library {
  public:
    Library(const GlLibrary& gl, Display* local, GLXFBConfig config, const std::string& display,
            const XVisualInfo& visual, Size size)
        : m_gl(gl), m_local(local), m_connection(local, nullptr), m_display(openDisplay(display)),
          m_visual(visual.visualid), m_size(size),
          m_pbuffer(makePbuffer(gl, local, config, size.width, size.height)),
          m_reader(makeContext(gl, local, config, nullptr)),
          m_painter(makeWindow(m_display, visual, 0, 0, size.width, size.height)) {
        m_context.ref();
        const kor::Lock lock(getLocalDisplayMutex());
        if (!m_context.setSharedContext(m_pinned, config, m_reader,
                                        makePbuffer(gl, local, config, 10, 10)))
            fail("no readback context can be made");
    }

    Cost paint() {
        m_gl.glXMakeCurrent(m_local, m_pbuffer, m_reader);
        m_context.performGPUReadback(m_size.width, m_size.height);
        m_gl.glFinish();
        const Cost cost =
            costOf([this] { m_context.copyToAppDisplay(m_display, &m_painter, m_visual); });
        XSync(m_display, False);
        return cost;
    }

  private:
    const GlLibrary& m_gl;
    Display* m_local;
    kor::gl::SharedConnection m_connection;
    const kor::gl::LocalDisplay m_pinned{&m_connection};
    Display* m_display;
    VisualID m_visual;
    Size m_size;
    GLXPbuffer m_pbuffer;
    GLXContext m_reader;
    kor::gl::XImagePainter m_painter;
    kor::gl::ReadbackContext m_context;
};

/// The two calls alone, on a thread that does nothing else and that did not draw the frame, as is
/// the library's worker; the frame comes into its texture by the library's own copy on the GPU.
/// What the two calls cost depends on whose caches the pixels are in. The way to that thread and
/// back is not counted.
class StraightLine {
  public:
    StraightLine(const GlLibrary& gl, Display* local, GLXFBConfig config,
                 const std::string& display, const XVisualInfo& visual, Size size)
        : m_gl(gl), m_local(local), m_display(openDisplay(display)), m_size(size),
          m_drawingPbuffer(makePbuffer(gl, local, config, size.width, size.height)),
          m_readingPbuffer(makePbuffer(gl, local, config, 10, 10)),
          m_drawing(makeContext(gl, local, config, nullptr)),
          m_reading(makeContext(gl, local, config, m_drawing)),
          m_window(makeWindow(m_display, visual, size.width + 8, 0, size.width, size.height)),
          m_gc(XCreateGC(m_display, m_window, 0, nullptr)),
          m_image(m_display, visual, size.width, size.height) {
        m_slice.x = m_slice.y = 0;
        m_slice.width = size.width;
        m_slice.height = size.height;
        drawFrame();
        GLint texture = 0;
        gl.glGetIntegerv(GL_TEXTURE_BINDING_RECTANGLE, &texture);
        m_texture = static_cast<GLuint>(texture);
        std::thread([this] { serve(); }).detach();
    }

    Cost paint() {
        drawFrame();
        m_work.release();
        m_done.acquire();
        XSync(m_display, False);
        return m_cost;
    }

  private:
    /// Leaves the frame's texture bound.
    void drawFrame() {
        m_gl.glXMakeCurrent(m_local, m_drawingPbuffer, m_drawing);
        m_slice.performGPUReadback(m_size.width, m_size.height);
        m_gl.glFinish();
    }
    GLuint bindTexture() {
        GLuint framebuffer = 0;
        m_gl.glGenFramebuffers(1, &framebuffer);
        m_gl.glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        m_gl.glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, m_texture, 0);
        return framebuffer;
    }
    void serve() {
        m_gl.glXMakeCurrent(m_local, m_readingPbuffer, m_reading);
        const GLuint framebuffer = bindTexture();
        for (;;) {
            m_work.acquire();
            // A framebuffer that stays bound and is not drawn to by this context makes Mesa give
            // the pixels of the last reading again.
            m_gl.glBindFramebuffer(GL_FRAMEBUFFER, 0);
            m_gl.glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
            m_cost = costOf([this] {
                m_gl.glReadPixels(0, 0, m_size.width, m_size.height, GL_BGRA, GL_UNSIGNED_BYTE,
                                  m_image.pixels());
                m_image.put(m_window, m_gc);
                XFlush(m_display);
            });
            m_done.release();
        }
    }

    const GlLibrary& m_gl;
    Display* m_local;
    Display* m_display;
    Size m_size;
    GLXPbuffer m_drawingPbuffer;
    GLXPbuffer m_readingPbuffer;
    GLXContext m_drawing;
    GLXContext m_reading;
    Window m_window;
    GC m_gc;
    SharedImage m_image;
    kor::gl::ReadbackSlice m_slice;
    GLuint m_texture = 0;
    Cost m_cost;
    std::binary_semaphore m_work{0};
    std::binary_semaphore m_done{0};
};

template <typename Side> Cost measure(Side& side, int frames) {
    std::vector<double> wall;
    std::vector<double> processor;
    side.paint(); // what a change of sides costs
    for (int frame = 0; frame < frames; frame++) {
        const Cost cost = side.paint();
        wall.push_back(cost.wall);
        processor.push_back(cost.processor);
    }
    return {median(wall), median(processor)};
}

} // namespace

int main(int count, char** arguments) {
    if (count != 4)
        fail("usage: paint WIDTHxHEIGHT ROUNDS FRAMES");
    Size size;
    parseSize(arguments[1], size.width, size.height);
    const int rounds = parseCount(arguments[2]);
    const int frames = parseCount(arguments[3]);

    const std::string display = needVariable("DISPLAY");
    const GlLibrary system = openSystemLibrary();
    XInitThreads();
    kor_init(system.handle);
    Display* local = openDisplay(needVariable("KOR_GL_DISPLAY"));
    Display* forVisuals = openDisplay(display);
    const XVisualInfo visual = chooseVisual(forVisuals);
    GLXFBConfig config = chooseConfig(system, local);

    Library library(system, local, config, display, visual, size);
    StraightLine straightLine(system, local, config, display, visual, size);
    const std::string name = std::string("paint ") + arguments[1];
    Comparison wall(name);
    Comparison processor(name + " processor");
    for (int round = -1; round < rounds; round++) { // one to warm up
        Cost floor;
        Cost ours;
        if (round % 2 == 0) {
            floor = measure(straightLine, frames);
            ours = measure(library, frames);
        } else {
            ours = measure(library, frames);
            floor = measure(straightLine, frames);
        }
        if (round < 0)
            continue;
        wall.add(floor.wall, ours.wall);
        processor.add(floor.processor, ours.processor);
    }
    wall.print();
    processor.print();
    _exit(0); // the worker is still there
}
