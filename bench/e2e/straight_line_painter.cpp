#include "e2e/straight_line_painter.h"

#include "support/comparison.h"
#include "support/shared_image.h"
#include "support/window.h"

#include <thread>
#include <unistd.h>

namespace kor::bench {

namespace {
constexpr useconds_t interval = 1'000'000 / 30; // "copyback-frame-rate" unless it is set
} // namespace

StraightLinePainter::StraightLinePainter(const GlLibrary& gl, const Plan& plan)
    : m_gl(gl), m_plan(plan) {
    std::thread([this] { paint(); }).detach();
    std::thread([this] { read(); }).detach();
}

void StraightLinePainter::frameReady() {
    m_pending = true;
    m_mutex.unlock();
    m_frames.release();
}

void StraightLinePainter::paint() {
    Display* display = openDisplay(m_plan.applicationDisplay);
    SharedImage image(display, m_plan.visual, m_plan.width, m_plan.height);
    GC gc = XCreateGC(display, m_plan.window, 0, nullptr);
    for (;;) {
        m_frames.acquire();
        usleep(interval);
        const std::lock_guard lock(m_mutex);
        if (!m_pending)
            continue;
        m_pixels = image.pixels();
        m_work.release();
        m_done.acquire();
        image.put(m_plan.window, gc);
        XFlush(display);
        m_pending = false;
    }
}

void StraightLinePainter::read() {
    m_gl.glXMakeCurrent(m_plan.local, m_plan.pbuffer, m_plan.context);
    GLuint framebuffer = 0;
    m_gl.glGenFramebuffers(1, &framebuffer);
    for (;;) {
        m_work.acquire();
        if (fence != nullptr) {
            m_gl.glClientWaitSync(fence, GL_SYNC_FLUSH_COMMANDS_BIT, GL_TIMEOUT_IGNORED);
            m_gl.glDeleteSync(fence);
            fence = nullptr;
        }
        GLint bound = 0;
        m_gl.glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
        m_gl.glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        m_gl.glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, m_plan.texture, 0);
        m_gl.glReadPixels(0, 0, m_plan.width, m_plan.height, GL_BGRA, GL_UNSIGNED_BYTE, m_pixels);
        m_gl.glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(bound));
        m_done.release();
    }
}

} // namespace kor::bench
