// glx13_client: configurations, GLX windows, and a read drawable other than the one drawn to.
#include "client.h"
#include "draw.h"

using namespace kor::client;

namespace {

constexpr int kWidth = 96;
constexpr int kHeight = 64;

void drawAndCopy(Display* display, Window window, GLXWindow glxWindow, GLXDrawable source,
                 GLXContext context, unsigned seed, const std::string& name) {
    // The source is drawn first; its back buffer keeps the picture, since it is not swapped.
    const Picture copied(kWidth, kHeight, seed);
    require(glXMakeContextCurrent(display, source, source, context) == True,
            name + ": make the source current");
    drawQuad(copied);
    require(glXMakeContextCurrent(display, glxWindow, source, context) == True,
            name + ": make window and source current");
    require(glXGetCurrentDrawable() == glxWindow && glXGetCurrentReadDrawable() == source,
            name + ": the current drawables");
    glReadBuffer(GL_BACK);
    glWindowPos2i(0, 0);
    glCopyPixels(0, 0, kWidth, kHeight, GL_COLOR);
    glXSwapBuffers(display, glxWindow);
    requireShown(display, window, copied, name + ": copied");

    const Picture blitted(kWidth, kHeight, seed + 1);
    require(glXMakeContextCurrent(display, source, source, context) == True,
            name + ": make the source current again");
    drawPixels(blitted);
    require(glXMakeContextCurrent(display, glxWindow, source, context) == True,
            name + ": make window and source current again");
    glBlitFramebuffer(0, 0, kWidth, kHeight, 0, 0, kWidth, kHeight, GL_COLOR_BUFFER_BIT,
                      GL_NEAREST);
    requireNoError(name + ": blit");
    glXSwapBuffers(display, glxWindow);
    requireShown(display, window, blitted, name + ": blitted");
}

} // namespace

int main() {
    Display* const display = openDisplay();
    int major = 0;
    int minor = 0;
    require(glXQueryVersion(display, &major, &minor) == True && (major > 1 || minor >= 3),
            "GLX 1.3 or later");
    const GLXFBConfig config =
        chooseConfig(display, Buffering::Double, GLX_WINDOW_BIT | GLX_PBUFFER_BIT);
    XVisualInfo* const visual = glXGetVisualFromFBConfig(display, config);
    require(visual != nullptr, "the visual of a configuration");
    const Window window = createWindow(display, visual, {30, 40, kWidth, kHeight});
    const GLXWindow glxWindow = glXCreateWindow(display, config, window, nullptr);
    require(glxWindow != None, "create a GLX window");
    const GLXContext context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    require(context != nullptr, "create a context");
    const int size[] = {GLX_PBUFFER_WIDTH, kWidth, GLX_PBUFFER_HEIGHT, kHeight, None};
    const GLXPbuffer pbuffer = glXCreatePbuffer(display, config, size);
    require(pbuffer != None, "create a pbuffer");
    const Window otherWindow = createWindow(display, visual, {200, 40, kWidth, kHeight});
    const GLXWindow otherGlxWindow = glXCreateWindow(display, config, otherWindow, nullptr);

    require(glXMakeContextCurrent(display, glxWindow, glxWindow, context) == True,
            "make a GLX window current");
    const Picture plain(kWidth, kHeight, 1);
    drawQuad(plain);
    glXSwapBuffers(display, glxWindow);
    requireShown(display, window, plain, "a GLX window");

    drawAndCopy(display, window, glxWindow, pbuffer, context, 2, "from a pbuffer");
    drawAndCopy(display, window, glxWindow, otherGlxWindow, context, 4, "from a window");

    require(glXMakeContextCurrent(display, None, None, nullptr) == True, "release the context");
    glXDestroyPbuffer(display, pbuffer);
    glXDestroyContext(display, context);
    glXDestroyWindow(display, otherGlxWindow);
    glXDestroyWindow(display, glxWindow);
    XDestroyWindow(display, otherWindow);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("glx13_client");
}
