// two_windows_client: two windows by turns, first with one context for both, then with one each.
#include "client.h"
#include "draw.h"

using namespace kor::client;

namespace {

constexpr int kWidth = 80;
constexpr int kHeight = 60;

void byTurns(Display* display, const Window windows[2], const GLXContext contexts[2], unsigned seed,
             const std::string& name) {
    for (unsigned turn = 0; turn < 3; ++turn) {
        for (unsigned which = 0; which < 2; ++which) {
            makeCurrent(display, windows[which], contexts[which]);
            drawQuad(Picture(kWidth, kHeight, seed + 2 * turn + which));
            glXSwapBuffers(display, windows[which]);
        }
        for (unsigned which = 0; which < 2; ++which)
            requireShown(display, windows[which], Picture(kWidth, kHeight, seed + 2 * turn + which),
                         name + ", turn " + std::to_string(turn) + ", window " +
                             std::to_string(which));
    }
}

} // namespace

int main() {
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window windows[] = {createWindow(display, visual, {0, 0, kWidth, kHeight}),
                              createWindow(display, visual, {100, 50, kWidth, kHeight})};
    const GLXContext first = createContext(display, visual);
    const GLXContext second = createContext(display, visual);
    const GLXContext shared[] = {first, first};
    const GLXContext separate[] = {first, second};
    byTurns(display, windows, shared, 1, "one context");
    byTurns(display, windows, separate, 20, "two contexts");

    // A single-buffered window that is left before its drawing was flushed is still shown.
    XVisualInfo* const singleVisual = chooseVisual(display, Buffering::Single);
    const Window single = createWindow(display, singleVisual, {200, 120, kWidth, kHeight});
    const GLXContext singleContext = createContext(display, singleVisual);
    const Picture left(kWidth, kHeight, 40);
    makeCurrent(display, single, singleContext);
    drawQuad(left);
    makeCurrent(display, windows[0], first);
    requireShown(display, single, left, "a window that was left");

    glXMakeCurrent(display, None, nullptr);
    for (const GLXContext context : {first, second, singleContext})
        glXDestroyContext(display, context);
    for (const Window window : {windows[0], windows[1], single})
        XDestroyWindow(display, window);
    XFree(singleVisual);
    XFree(visual);
    XCloseDisplay(display);
    return passed("two_windows_client");
}
