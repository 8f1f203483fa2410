// single_buffer_client: a single-buffered window; glFlush, glFinish and a swap end its frames.
#include "client.h"
#include "draw.h"

using namespace kor::client;

int main() {
    constexpr int kWidth = 100;
    constexpr int kHeight = 70;
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Single);
    const Window window = createWindow(display, visual, {3, 5, kWidth, kHeight});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);

    const Picture flushed(kWidth, kHeight, 1);
    drawPixels(flushed);
    glFlush();
    requireShown(display, window, flushed, "pixels, flushed");

    const Picture finished(kWidth, kHeight, 2);
    drawQuad(finished);
    glFinish();
    requireShown(display, window, finished, "a quad, finished");

    // Only a part is drawn: the rest is what the front buffer held before.
    const Picture patch(kWidth, kHeight, 3);
    Picture patched = finished;
    patched.lay(patch, {10, 20, 31, 17});
    drawQuad(patch, {10, 20, 31, 17});
    glFlush();
    requireShown(display, window, patched, "a part, flushed");

    const Picture cleared(kWidth, kHeight, 4);
    drawClears(cleared);
    glFinish();
    requireShown(display, window, cleared, "clears, finished");

    const Picture swapped(kWidth, kHeight, 5);
    drawQuad(swapped);
    glFlush();
    glXSwapBuffers(display, window); // does nothing to a single-buffered window
    requireStays(display, window, swapped, "a swap");

    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("single_buffer_client");
}
