#include "local_display_test.h"

#include <X11/Xutil.h>

namespace kor::test {
namespace {

std::atomic<int> errorCount{0};
XErrorEvent lastError{};

int countError(Display* /*display*/, XErrorEvent* event) {
    lastError = *event;
    errorCount++;
    return 0;
}

std::array<unsigned char, 4> colourOf(int row, bool right, int seed) {
    return {static_cast<unsigned char>(51 * ((row + seed) % 6)),
            static_cast<unsigned char>(right ? 255 : 51),
            static_cast<unsigned char>(51 * ((row * 3 + seed * 5) % 6)), 255};
}

} // namespace

ErrorCounter::ErrorCounter() : before_(XSetErrorHandler(countError)) {
    errorCount = 0;
}
ErrorCounter::~ErrorCounter() {
    XSetErrorHandler(before_);
}
int ErrorCounter::count() const {
    return errorCount;
}
XErrorEvent ErrorCounter::last() const {
    return lastError;
}

XServer::Options localServer() {
    XServer::Options options;
    options.kind = XServer::Kind::Xvfb;
    return options;
}

const std::string& serverName() {
    static const XServer server(localServer());
    return server.name();
}

Connection::Connection(bool adapted, const std::string& server)
    : display_(XOpenDisplay(server.c_str())) {
    if (!display_)
        throw std::runtime_error("cannot open display '" + server + "'");
    if (adapted)
        prepareLocalDisplay(display_);
}

Connection::~Connection() {
    XCloseDisplay(display_);
}

GLXFBConfig chooseConfig(Display* display, const ConfigWish& wish) {
    const GlTable& gl = directGl();
    const int wanted[] = {GLX_DRAWABLE_TYPE,
                          wish.drawableType,
                          GLX_DOUBLEBUFFER,
                          wish.doubleBuffered,
                          GLX_RED_SIZE,
                          8,
                          GLX_GREEN_SIZE,
                          8,
                          GLX_BLUE_SIZE,
                          8,
                          GLX_SAMPLES,
                          wish.samples,
                          GLX_X_RENDERABLE,
                          True,
                          None};
    int count = 0;
    GLXFBConfig* configs = gl.glXChooseFBConfig(display, DefaultScreen(display), wanted, &count);
    GLXFBConfig chosen = nullptr;
    for (int i = 0; i < count && !chosen; i++) {
        int alpha = 0;
        int samples = 0;
        gl.glXGetFBConfigAttrib(display, configs[i], GLX_ALPHA_SIZE, &alpha);
        gl.glXGetFBConfigAttrib(display, configs[i], GLX_SAMPLES, &samples);
        XVisualInfo* visual = gl.glXGetVisualFromFBConfig(display, configs[i]);
        if (visual && visual->depth == 24 && (alpha > 0) == wish.alpha && samples == wish.samples)
            chosen = configs[i];
        XFree(visual);
    }
    XFree(configs);
    return chosen;
}

GLXContext makeContext(const GlTable& gl, Display* display, GLXFBConfig config, Profile profile,
                       GLXContext share) {
    if (profile == Profile::Compatibility)
        return gl.glXCreateNewContext(display, config, GLX_RGBA_TYPE, share, True);
    const bool core = profile == Profile::Core;
    const int attributes[] = {GLX_CONTEXT_MAJOR_VERSION_ARB,
                              profile == Profile::Es2 ? 2 : 3,
                              GLX_CONTEXT_MINOR_VERSION_ARB,
                              core ? 3 : 0,
                              GLX_CONTEXT_PROFILE_MASK_ARB,
                              core ? GLX_CONTEXT_CORE_PROFILE_BIT_ARB
                                   : GLX_CONTEXT_ES2_PROFILE_BIT_EXT,
                              None};
    return gl.glXCreateContextAttribsARB(display, config, share, True, attributes);
}

GLXPbuffer makePbuffer(const GlTable& gl, Display* display, GLXFBConfig config, int width,
                       int height) {
    const int attributes[] = {
        GLX_PBUFFER_WIDTH, width, GLX_PBUFFER_HEIGHT, height, GLX_PRESERVED_CONTENTS, True, None};
    return gl.glXCreatePbuffer(display, config, attributes);
}

void drawPicture(const GlTable& gl, int width, int height, int seed) {
    gl.glEnable(GL_SCISSOR_TEST);
    for (int row = 0; row < height; row++) {
        for (const bool right : {false, true}) {
            const auto colour = colourOf(row, right, seed);
            gl.glScissor(right ? width / 2 : 0, row, right ? width - width / 2 : width / 2, 1);
            gl.glClearColor(colour[0] / 255.F, colour[1] / 255.F, colour[2] / 255.F, 1);
            gl.glClear(GL_COLOR_BUFFER_BIT);
        }
    }
    gl.glDisable(GL_SCISSOR_TEST);
}

Picture pictureOf(int width, int height, int seed) {
    Picture pixels;
    for (int row = 0; row < height; row++)
        for (int column = 0; column < width; column++)
            pixels.push_back(colourOf(row, column >= width / 2, seed));
    return pixels;
}

Picture readFront(Display* display, GLXFBConfig config, GLXDrawable drawable, int width,
                  int height) {
    const GlTable& gl = directGl();
    GLXContext reader = gl.glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    Picture pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    if (gl.glXMakeCurrent(display, drawable, reader)) {
        int samples = 0;
        gl.glXGetFBConfigAttrib(display, config, GLX_SAMPLES, &samples);
        gl.glReadBuffer(GL_FRONT);
        if (samples > 0) { // pixels of a multisampled buffer are resolved before they are read
            GLuint framebuffer = 0;
            GLuint texture = 0;
            gl.glGenTextures(1, &texture);
            gl.glBindTexture(GL_TEXTURE_2D, texture);
            gl.glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                            nullptr);
            gl.glGenFramebuffers(1, &framebuffer);
            gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
            gl.glFramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                                      texture, 0);
            gl.glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT,
                                 GL_NEAREST);
            gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
        }
        gl.glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        for (auto& pixel : pixels)
            pixel[3] = 255; // what a config without alpha reads back; the picture has no other
    }
    gl.glXMakeCurrent(display, None, nullptr);
    gl.glXDestroyContext(display, reader);
    return pixels;
}

std::string difference(const Picture& got, const Picture& wanted, int width) {
    if (got.size() != wanted.size())
        return "sizes differ";
    for (std::size_t i = 0; i < got.size(); i++)
        if (got[i] != wanted[i])
            return "pixel " + std::to_string(i % static_cast<std::size_t>(width)) + "," +
                   std::to_string(i / static_cast<std::size_t>(width)) + " is " +
                   std::to_string(got[i][0]) + "," + std::to_string(got[i][1]) + "," +
                   std::to_string(got[i][2]) + " and not " + std::to_string(wanted[i][0]) + "," +
                   std::to_string(wanted[i][1]) + "," + std::to_string(wanted[i][2]);
    return "";
}

} // namespace kor::test
