// resize_client: a window that grows and shrinks between its frames.
#include "client.h"
#include "draw.h"

using namespace kor::client;

int main() {
    struct Size {
        int width;
        int height;
    };
    constexpr Size kSizes[] = {{100, 80}, {160, 121}, {60, 200}, {5, 3},
                               {300, 9},  {1, 1},     {90, 91}};
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window =
        createWindow(display, visual, {50, 40, kSizes[0].width, kSizes[0].height});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    unsigned seed = 0;
    for (const Size& size : kSizes) {
        if (seed > 0)
            resizeWindow(display, window, size.width, size.height);
        for (int frame = 0; frame < 2; ++frame) {
            const Picture picture(size.width, size.height, ++seed);
            glViewport(0, 0, size.width, size.height);
            drawQuad(picture);
            glXSwapBuffers(display, window);
            requireShown(display, window, picture,
                         std::to_string(size.width) + "x" + std::to_string(size.height) +
                             ", frame " + std::to_string(frame));
        }
    }
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("resize_client");
}
