// front_buffer_client [kept]: drawing to the front buffer of a double-buffered window and the
// switch back. With "kept", the front buffer must also hold the swapped frame for what is drawn
// over a part of it; Mesa's software drivers lose it in a window of their own, so they cannot show
// that.
#include "client.h"
#include "draw.h"

#include <cstring>

using namespace kor::client;

int main(int argc, char** argv) {
    const bool kept = argc > 1 && std::strcmp(argv[1], "kept") == 0;
    constexpr int kWidth = 110;
    constexpr int kHeight = 60;
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, {20, 10, kWidth, kHeight});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);

    Picture shown(kWidth, kHeight, 1);
    drawQuad(shown);
    glXSwapBuffers(display, window);
    requireShown(display, window, shown, "a swap");

    glDrawBuffer(GL_FRONT);
    if (kept) { // a rubber band over the frame that was swapped
        const Rectangle band{5, 40, 50, 15};
        const Picture overlay(kWidth, kHeight, 2);
        drawQuad(overlay, band);
        glFlush();
        shown.lay(overlay, band);
        requireShown(display, window, shown, "a part of the front after a swap, flushed");
    }

    const Picture quad(kWidth, kHeight, 3);
    drawQuad(quad);
    glFlush();
    requireShown(display, window, quad, "the front, flushed");

    const Rectangle patch{30, 7, 21, 44};
    const Picture other(kWidth, kHeight, 8);
    Picture patched = quad;
    patched.lay(other, patch);
    drawQuad(other, patch);
    glFlush();
    requireShown(display, window, patched, "a part of the front, flushed");

    const Picture pixels(kWidth, kHeight, 4);
    drawPixels(pixels);
    glFinish();
    requireShown(display, window, pixels, "pixels in the front, finished");

    const Picture left(kWidth, kHeight, 5);
    drawQuad(left);
    glDrawBuffer(GL_BACK);
    glFlush();
    requireShown(display, window, left, "the front, left for the back");

    const Picture back(kWidth, kHeight, 6);
    drawQuad(back);
    glXSwapBuffers(display, window);
    requireShown(display, window, back, "a swap after the front");

    const Picture both(kWidth, kHeight, 7);
    glDrawBuffer(GL_FRONT_AND_BACK);
    drawQuad(both);
    glFlush();
    requireShown(display, window, both, "front and back, flushed");
    glXSwapBuffers(display, window);
    requireStays(display, window, both, "front and back, swapped");

    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("front_buffer_client");
}
