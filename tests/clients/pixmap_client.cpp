// pixmap_client: rendering into X pixmaps through GLX pixmaps of both kinds.
#include "client.h"
#include "draw.h"

using namespace kor::client;

namespace {

constexpr int kWidth = 90;
constexpr int kHeight = 50;

void render(Display* display, Pixmap pixmap, GLXPixmap glxPixmap, GLXContext context, unsigned seed,
            const std::string& name) {
    require(glxPixmap != None, name + ": create a GLX pixmap");
    makeCurrent(display, glxPixmap, context);
    const Picture quad(kWidth, kHeight, seed);
    drawQuad(quad);
    glFlush();
    requireShown(display, pixmap, quad, name + ": a quad, flushed");
    const Picture pixels(kWidth, kHeight, seed + 1);
    drawPixels(pixels);
    glFinish();
    requireShown(display, pixmap, pixels, name + ": pixels, finished");
}

} // namespace

int main() {
    Display* const display = openDisplay();
    const GLXFBConfig config =
        chooseConfig(display, Buffering::Single, GLX_WINDOW_BIT | GLX_PIXMAP_BIT);
    XVisualInfo* const visual = glXGetVisualFromFBConfig(display, config);
    require(visual != nullptr, "the visual of a configuration");
    const Window root = DefaultRootWindow(display);
    const auto depth = static_cast<unsigned>(visual->depth);

    const Pixmap first = XCreatePixmap(display, root, kWidth, kHeight, depth);
    const GLXPixmap firstGlx = glXCreatePixmap(display, config, first, nullptr);
    const GLXContext context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    require(context != nullptr, "create a context");
    render(display, first, firstGlx, context, 1, "glXCreatePixmap");

    const Pixmap second = XCreatePixmap(display, root, kWidth, kHeight, depth);
    const GLXPixmap secondGlx = glXCreateGLXPixmap(display, visual, second);
    const GLXContext secondContext = createContext(display, visual);
    render(display, second, secondGlx, secondContext, 5, "glXCreateGLXPixmap");
    requireShown(display, first, Picture(kWidth, kHeight, 2), "the first pixmap, untouched");

    // The X side works on the pixmap as on any other.
    const Window window = createWindow(display, visual, {9, 9, kWidth, kHeight});
    const GC gc = XCreateGC(display, window, 0, nullptr);
    XCopyArea(display, second, window, gc, 0, 0, kWidth, kHeight, 0, 0);
    requireShown(display, window, Picture(kWidth, kHeight, 6), "a copy of the second pixmap");

    glXMakeCurrent(display, None, nullptr);
    glXDestroyGLXPixmap(display, secondGlx);
    glXDestroyPixmap(display, firstGlx);
    glXDestroyContext(display, secondContext);
    glXDestroyContext(display, context);
    XFreePixmap(display, second);
    XFreePixmap(display, first);
    XFreeGC(display, gc);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("pixmap_client");
}
