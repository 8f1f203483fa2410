// display_pair_client over|reopened|pixmap: what programs do that work on one server over several
// displays.
//   over      two threads draw into one window by turns, each over a display of its own
//   reopened  a display is closed and opened again, and the new window has the id of the old one
//   pixmap    a GLX pixmap is made after a display, and with it all that was made for it, was
//   closed
#include "client.h"
#include "draw.h"

#include <cstring>
#include <thread>

using namespace kor::client;

namespace {

constexpr int kSize = 64;

void drawAndSwap(Display* display, Window window, unsigned seed, const std::string& name) {
    const Picture picture(kSize, kSize, seed);
    drawQuad(picture);
    glXSwapBuffers(display, window);
    requireShown(display, window, picture, name);
}

/// The first thread's frames still show after the second has had the window current.
void drawOverTwo() {
    Display* const first = openDisplay();
    XVisualInfo* const visual = chooseVisual(first, Buffering::Double);
    const Window window = createWindow(first, visual, {0, 0, kSize, kSize});
    const GLXContext context = createContext(first, visual);
    makeCurrent(first, window, context);
    drawAndSwap(first, window, 1, "before the other");
    const auto withAnother = [&](unsigned seed) {
        std::thread([&] {
            Display* const second = openDisplay();
            XVisualInfo* const itsVisual = chooseVisual(second, Buffering::Double);
            const GLXContext itsContext = createContext(second, itsVisual);
            makeCurrent(second, window, itsContext);
            if (seed != 0)
                drawAndSwap(second, window, seed, "over the other");
            glXMakeCurrent(second, None, nullptr);
            glXDestroyContext(second, itsContext);
            XFree(itsVisual);
            XCloseDisplay(second);
        }).join();
    };
    withAnother(0);
    for (unsigned seed = 2; seed < 5; ++seed)
        drawAndSwap(first, window, seed, "after the other was there");
    withAnother(20);
    for (unsigned seed = 5; seed < 8; ++seed)
        drawAndSwap(first, window, seed, "after the other has drawn");
    XFree(visual);
    XCloseDisplay(first);
}

void openDrawAndClose(int size, unsigned seed) {
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, {0, 0, size, size});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    const Picture picture(size, size, seed);
    drawQuad(picture);
    glXSwapBuffers(display, window);
    requireShown(display, window, picture, "a window of " + std::to_string(size));
    XFree(visual);
    XCloseDisplay(display); // with all that is on it
}

void makePixmap(unsigned seed) {
    Display* const display = openDisplay();
    const GLXFBConfig config = chooseConfig(display, Buffering::Single, GLX_PIXMAP_BIT);
    const Pixmap pixmap = XCreatePixmap(display, DefaultRootWindow(display), kSize, kSize, 24);
    const GLXPixmap drawable = glXCreatePixmap(display, config, pixmap, nullptr);
    const GLXContext context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    makeCurrent(display, drawable, context);
    const Picture picture(kSize, kSize, seed);
    drawQuad(picture);
    glFinish();
    requireShown(display, pixmap, picture, "a pixmap");
    glXMakeCurrent(display, None, nullptr);
    XCloseDisplay(display);
}

} // namespace

int main(int argc, char** argv) {
    XInitThreads();
    require(argc == 2, "usage: display_pair_client over|reopened|pixmap");
    if (strcmp(argv[1], "over") == 0) {
        drawOverTwo();
    } else if (strcmp(argv[1], "reopened") == 0) {
        for (unsigned i = 0; i < 4; ++i)
            openDrawAndClose(i % 2 == 0 ? kSize : 2 * kSize, 30 + i);
    } else {
        for (unsigned i = 0; i < 3; ++i)
            makePixmap(40 + i);
    }
    return passed("display_pair_client");
}
