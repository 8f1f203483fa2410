// lifetime_client context|swapped|current [handler|exit]: things that vanish while they are in use.
// The client has no X error handler of its own and must not need one; with "handler" it has one
// that ignores every error, with "exit" one that ends the process, which then destroys a context.
// Without it, "current" cannot pass on Mesa's own software presentation, which asks for the
// vanished window's size on the application's connection.
#include "client.h"
#include "draw.h"

#include <cstdlib>
#include <cstring>

using namespace kor::client;

namespace {

constexpr int kWidth = 85;
constexpr int kHeight = 45;

void drawFrame(Display* display, Window window, unsigned seed, const std::string& what) {
    const Picture picture(kWidth, kHeight, seed);
    drawQuad(picture);
    glXSwapBuffers(display, window);
    requireShown(display, window, picture, what);
}

// A context that is destroyed stays usable for as long as it is current.
void destroyCurrentContext(Display* display, XVisualInfo* visual) {
    const Window window = createWindow(display, visual, {1, 2, kWidth, kHeight});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    drawFrame(display, window, 1, "before the context's end");
    glXDestroyContext(display, context);
    drawFrame(display, window, 2, "the destroyed context, still current");
    drawFrame(display, window, 3, "the destroyed context, still current, again");
    const GLXContext next = createContext(display, visual);
    makeCurrent(display, window, next);
    drawFrame(display, window, 4, "the next context");
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, next);
    XDestroyWindow(display, window);
}

// Windows vanish before their last frame can be painted.
void destroySwappedWindows(Display* display, XVisualInfo* visual) {
    const GLXContext context = createContext(display, visual);
    for (unsigned round = 0; round < 12; ++round) {
        const Window window = createWindow(display, visual, {3, 4, kWidth, kHeight});
        makeCurrent(display, window, context);
        drawQuad(Picture(kWidth, kHeight, round));
        glXSwapBuffers(display, window);
        if (round % 3 == 0)
            glXMakeCurrent(display, None, nullptr);
        XDestroyWindow(display, window);
        XSync(display, False);
    }
    const Window window = createWindow(display, visual, {3, 4, kWidth, kHeight});
    makeCurrent(display, window, context);
    drawFrame(display, window, 40, "a window after those that vanished");
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
}

// A window vanishes while it is current, and rendering goes on.
void destroyCurrentWindow(Display* display, XVisualInfo* visual) {
    const GLXContext context = createContext(display, visual);
    const GLXContext other = createContext(display, visual);
    for (unsigned round = 0; round < 4; ++round) {
        const Window gone = createWindow(display, visual, {5, 6, kWidth, kHeight});
        makeCurrent(display, gone, context);
        drawFrame(display, gone, 4 * round + 1, "a window that will vanish");
        XDestroyWindow(display, gone);
        XSync(display, False);
        glViewport(0, 0, kWidth, kHeight);
        drawQuad(Picture(kWidth, kHeight, 4 * round + 2));
        glFlush();
        glXSwapBuffers(display, gone);
        glFinish();
        if (round == 1)
            glXMakeCurrent(display, None, nullptr);
        const Window window = createWindow(display, visual, {100, 6, kWidth, kHeight});
        makeCurrent(display, window, round == 2 ? other : context);
        drawFrame(display, window, 4 * round + 3, "a window after the one that vanished");
        glXMakeCurrent(display, None, nullptr);
        XDestroyWindow(display, window);
    }
    glXDestroyContext(display, other);
    glXDestroyContext(display, context);
}

int ignoreError(Display* /*display*/, XErrorEvent* /*event*/) {
    return 0;
}

GLXContext spare = nullptr;
Display* spareDisplay = nullptr;

int endOnError(Display* /*display*/, XErrorEvent* /*event*/) {
    std::exit(3);
}

void destroySpare() {
    glXDestroyContext(spareDisplay, spare);
}

} // namespace

int main(int argc, char** argv) {
    require(argc >= 2, "an argument: context, swapped or current");
    if (argc > 2 && std::strcmp(argv[2], "handler") == 0)
        XSetErrorHandler(ignoreError);
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    if (argc > 2 && std::strcmp(argv[2], "exit") == 0) {
        spare = createContext(display, visual);
        spareDisplay = display;
        std::atexit(destroySpare);
        XSetErrorHandler(endOnError);
    }
    if (std::strcmp(argv[1], "context") == 0)
        destroyCurrentContext(display, visual);
    else if (std::strcmp(argv[1], "swapped") == 0)
        destroySwappedWindows(display, visual);
    else if (std::strcmp(argv[1], "current") == 0)
        destroyCurrentWindow(display, visual);
    else
        fail("an argument among context, swapped and current");
    XSync(display, False);
    XFree(visual);
    if (spare == nullptr)
        XCloseDisplay(display);
    return passed("lifetime_client");
}
