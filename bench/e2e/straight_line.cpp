#include "e2e/straight_line.h"

#include "support/comparison.h"
#include "support/local_config.h"
#include "transport/flip_shaders.h"

namespace kor::bench {

namespace {

GLuint makeTexture(const GlLibrary& gl, int width, int height) {
    GLuint texture = 0;
    gl.glGenTextures(1, &texture);
    gl.glBindTexture(GL_TEXTURE_RECTANGLE, texture);
    gl.glTexParameteri(GL_TEXTURE_RECTANGLE, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    gl.glTexParameteri(GL_TEXTURE_RECTANGLE, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    gl.glTexImage2D(GL_TEXTURE_RECTANGLE, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                    nullptr);
    return texture;
}

GLuint compile(const GlLibrary& gl, GLenum kind, const char* source) {
    const GLuint shader = gl.glCreateShader(kind);
    gl.glShaderSource(shader, 1, &source, nullptr);
    gl.glCompileShader(shader);
    return shader;
}

XVisualInfo visualOfId(Display* display, VisualID id) {
    XVisualInfo wanted{};
    wanted.visualid = id;
    int count = 0;
    XVisualInfo* found = XGetVisualInfo(display, VisualIDMask, &wanted, &count);
    if (found == nullptr)
        fail("the application display has no visual " + std::to_string(id));
    const XVisualInfo visual = *found;
    XFree(found);
    return visual;
}

} // namespace

StraightLine::StraightLine(const GlLibrary& gl, const StraightLinePlan& plan)
    : m_gl(gl), m_plan(plan), m_application(openDisplay(plan.applicationDisplay)),
      m_own(openDisplay(plan.applicationDisplay)), m_local(openDisplay(plan.localDisplay)),
      m_info(m_own) {
    const XVisualInfo visual = visualOfId(m_application, plan.visual);
    m_window = makeWindow(m_application, visual, 0, 0, plan.width, plan.height);
    XSync(m_application, False);
    GLXFBConfig config = configOfId(gl, m_local, plan.fbconfigId);
    m_pbuffer = makePbuffer(gl, m_local, config, plan.width, plan.height);
    m_context = makeContext(gl, m_local, config, nullptr);
    m_reader = makeContext(gl, m_local, config, nullptr);
    gl.glXMakeCurrent(m_local, m_pbuffer, m_reader);
    makeReadback();
    if (plan.paints)
        m_painter = std::make_unique<StraightLinePainter>(
            gl, StraightLinePainter::Plan{plan.applicationDisplay, m_window, visual, m_local,
                                          makePbuffer(gl, m_local, config, 10, 10),
                                          makeContext(gl, m_local, config, m_reader), m_target,
                                          plan.width, plan.height});
    if (losesFront())
        m_mender = makeContext(gl, m_local, config, nullptr);
    makeCurrent();
}

void StraightLine::makeReadback() {
    m_gl.glPixelStorei(GL_PACK_ALIGNMENT, 1);
    m_gl.glDisable(GL_DEPTH_TEST);
    m_gl.glDisable(GL_DITHER);
    m_gl.glReadBuffer(GL_FRONT);
    m_target = makeTexture(m_gl, m_plan.width, m_plan.height);
    m_source = makeTexture(m_gl, m_plan.width, m_plan.height);
    m_gl.glGenFramebuffers(1, &m_framebuffer);
    m_gl.glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    m_gl.glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, m_target, 0);
    m_program = m_gl.glCreateProgram();
    m_gl.glAttachShader(m_program, compile(m_gl, GL_VERTEX_SHADER, kor::gl::flipVertexShader));
    m_gl.glAttachShader(m_program, compile(m_gl, GL_FRAGMENT_SHADER, kor::gl::flipFragmentShader));
    m_gl.glLinkProgram(m_program);
    m_gl.glBindFramebuffer(GL_FRAMEBUFFER, 0);
}

/// Whether a swap leaves another context without the front buffer, as with software rasterisers.
bool StraightLine::losesFront() {
    m_gl.glXMakeCurrent(m_local, m_pbuffer, m_context);
    m_gl.glClearColor(1, 0, 0, 1);
    m_gl.glClear(GL_COLOR_BUFFER_BIT);
    m_gl.glXSwapBuffers(m_local, m_pbuffer);
    m_gl.glClearColor(0, 1, 0, 1);
    m_gl.glClear(GL_COLOR_BUFFER_BIT);
    m_gl.glFinish();
    m_gl.glXMakeCurrent(m_local, m_pbuffer, m_reader);
    unsigned char pixel[4] = {};
    m_gl.glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
    return pixel[0] < 128 || pixel[1] >= 128;
}

void StraightLine::makeCurrent() {
    if (!m_gl.glXMakeCurrent(m_local, m_pbuffer, m_context))
        fail("the straight-line program's context cannot be made current");
}

/// Copies back to front before the swap, in a context of its own, as the adapter does.
void StraightLine::mendFront() {
    Display* display = m_gl.glXGetCurrentDisplay();
    GLXContext context = m_gl.glXGetCurrentContext();
    const GLXDrawable draw = m_gl.glXGetCurrentDrawable();
    const GLXDrawable read = m_gl.glXGetCurrentReadDrawable();
    m_gl.glFlush();
    m_gl.glXMakeContextCurrent(m_local, m_pbuffer, m_pbuffer, m_mender);
    m_gl.glReadBuffer(GL_BACK);
    m_gl.glDrawBuffer(GL_FRONT);
    m_gl.glBlitFramebuffer(0, 0, m_plan.width, m_plan.height, 0, 0, m_plan.width, m_plan.height,
                           GL_COLOR_BUFFER_BIT, GL_NEAREST);
    m_gl.glFinish();
    m_gl.glXMakeContextCurrent(display, draw, read, context);
}

void StraightLine::copyFrame() {
    GLint bound = 0;
    m_gl.glBindTexture(GL_TEXTURE_RECTANGLE, m_source);
    m_gl.glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    m_gl.glActiveTexture(GL_TEXTURE0);
    m_gl.glBindTexture(GL_TEXTURE_RECTANGLE, m_source);
    m_gl.glCopyTexSubImage2D(GL_TEXTURE_RECTANGLE, 0, 0, 0, 0, 0, m_plan.width, m_plan.height);
    m_gl.glViewport(0, 0, m_plan.width, m_plan.height);
    m_gl.glUseProgram(m_program);
    m_gl.glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    m_gl.glUniform1f(m_gl.glGetUniformLocation(m_program, "u_texHeight_minus_one"),
                     kor::gl::flipUniform(m_plan.height));
    m_gl.glBindTexture(GL_TEXTURE_RECTANGLE, m_source);
    m_gl.glUniform1i(m_gl.glGetUniformLocation(m_program, "u_tex_input"), 0);
    m_gl.glDrawArrays(GL_TRIANGLES, 0, 3);
    m_gl.glUseProgram(0);
    m_gl.glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(bound));
    m_gl.glBindTexture(GL_TEXTURE_RECTANGLE, m_target);
    GLsync& fence = m_painter ? m_painter->fence : m_fence;
    if (fence != nullptr)
        m_gl.glDeleteSync(fence);
    fence = m_gl.glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    m_gl.glBindTexture(GL_TEXTURE_RECTANGLE, 0);
    m_gl.glFlush();
}

void StraightLine::swap() {
    m_gl.glFinish();
    if (m_mender != nullptr)
        mendFront();
    m_gl.glXSwapBuffers(m_local, m_pbuffer);

    GLXContext context = m_gl.glXGetCurrentContext();
    GLint renderMode = GL_RENDER;
    m_gl.glGetIntegerv(GL_RENDER_MODE, &renderMode);
    m_gl.glXMakeCurrent(m_local, m_pbuffer, m_reader);
    if (m_painter) {
        m_painter->lock();
        copyFrame();
        m_painter->frameReady();
    } else {
        copyFrame();
    }
    m_gl.glXMakeCurrent(m_local, m_pbuffer, context);
    if (!m_info.ask(m_window))
        fail("the straight-line program's window is gone");
}

} // namespace kor::bench
