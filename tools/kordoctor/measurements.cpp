#include "measurements.h"

#include "core/system_gl.h"
#include "display_access.h"
#include "transport/readback_slice.h"
#include "transport/slice_grid.h"
#include "transport/ximage_painter.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

namespace kordoctor {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto measuringTime = std::chrono::milliseconds(700);
constexpr size_t fewestFrames = 3;

// The median of what frame() takes, in milliseconds. The first frame makes what the others use and
// does not count. Negative as soon as frame() fails.
template <typename Frame> double medianOf(Frame frame) {
    if (!frame())
        return -1;
    std::vector<double> times;
    const Clock::time_point end = Clock::now() + measuringTime;
    while (times.size() < fewestFrames || Clock::now() < end) {
        const Clock::time_point begin = Clock::now();
        if (!frame())
            return -1;
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    }
    std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2),
                     times.end());
    return times[times.size() / 2];
}

} // namespace

GlTarget::GlTarget(Display* display, int width, int height)
    : m_display(display), m_width(width), m_height(height) {
    const int wanted[] = {GLX_DRAWABLE_TYPE,
                          GLX_PBUFFER_BIT,
                          GLX_RENDER_TYPE,
                          GLX_RGBA_BIT,
                          GLX_RED_SIZE,
                          8,
                          GLX_GREEN_SIZE,
                          8,
                          GLX_BLUE_SIZE,
                          8,
                          GLX_DOUBLEBUFFER,
                          True,
                          None};
    int count = 0;
    GLXFBConfig* configs =
        system_glXChooseFBConfig(display, DefaultScreen(display), wanted, &count);
    if (configs == nullptr || count == 0) {
        m_problem = "the GPU's display offers nothing to render offscreen with (no fbconfig for "
                    "pbuffers)";
        return;
    }
    const GLXFBConfig config = configs[0];
    XFree(configs);
    m_context = system_glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    const int size[] = {GLX_PBUFFER_WIDTH, width, GLX_PBUFFER_HEIGHT, height, None};
    const GLXPbuffer pbuffer = system_glXCreatePbuffer(display, config, size);
    if (m_context == nullptr)
        m_problem = "no OpenGL context can be made on the GPU's display";
    else if (pbuffer == None || !system_glXMakeCurrent(display, pbuffer, m_context))
        m_problem = "no OpenGL context can be made current on the GPU's display";
}

bool GlTarget::isDirect() const {
    return system_glXIsDirect(m_display, m_context) != False;
}

double GlTarget::measureReadback() {
    const kor::gl::SliceGrid grid(m_width, m_height);
    std::vector<std::unique_ptr<kor::gl::ReadbackSlice>> slices;
    for (int row = 0; row < grid.rows; ++row) {
        for (int column = 0; column < grid.columns; ++column) {
            const kor::gl::SliceGrid::Cell cell = grid.cell(column, row);
            slices.push_back(std::make_unique<kor::gl::ReadbackSlice>());
            slices.back()->x = cell.x;
            slices.back()->y = cell.y;
            slices.back()->width = cell.width;
            slices.back()->height = cell.height;
        }
    }
    std::vector<char> pixels(size_t{4} * static_cast<size_t>(m_width) *
                             static_cast<size_t>(m_height));
    system_glPixelStorei(GL_PACK_ALIGNMENT, 1);
    return medianOf([&] {
        for (const auto& slice : slices)
            if (!slice->performGPUReadback(m_width, m_height))
                return false;
        for (const auto& slice : slices)
            if (!slice->transferToSystemMemory(pixels.data(), m_width, m_height))
                return false;
        return system_glGetError == nullptr || system_glGetError() == GL_NO_ERROR;
    });
}

Painting measurePainting(Display* display, int width, int height) {
    const int screen = DefaultScreen(display);
    // A pixmap costs the server what a window does, and nobody sees it.
    const Pixmap target = XCreatePixmap(display, DefaultRootWindow(display),
                                        static_cast<unsigned>(width), static_cast<unsigned>(height),
                                        static_cast<unsigned>(DefaultDepth(display, screen)));
    Painting painting;
    ErrorTrap trap;
    {
        kor::gl::XImagePainter painter(target);
        const VisualID visual = XVisualIDFromVisual(DefaultVisual(display, screen));
        painting.milliseconds = medianOf([&] {
            if (!painter.setup(display, visual, width, height) || painter.getBuffer() == nullptr)
                return false;
            painter.draw(display, width, height);
            XSync(display, False);
            return true;
        });
        painting.sharedMemory = painter.usesSharedMemory();
        // A refused image costs nothing and shows nothing.
        if (!trap.error(display).empty())
            painting.milliseconds = -1;
    }
    XFreePixmap(display, target);
    return painting;
}

} // namespace kordoctor
