// swap_client [WxH [FRAMES]]: a double-buffered window, one different picture per swap.
#include "client.h"
#include "draw.h"

#include <cstdlib>

using namespace kor::client;

int main(int argc, char** argv) {
    int width = 120;
    int height = 90;
    if (argc > 1)
        parseSize(argv[1], width, height);
    const int frames = argc > 2 ? std::atoi(argv[2]) : 6;
    require(frames > 0, "a number of frames");

    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, {7, 11, width, height});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    for (int frame = 0; frame < frames; ++frame) {
        const Picture picture(width, height, static_cast<unsigned>(frame) + 1);
        if (frame % 2 == 0)
            drawQuad(picture);
        else
            drawPixels(picture);
        glXSwapBuffers(display, window);
        requireShown(display, window, picture, "frame " + std::to_string(frame));
    }
    // Many frames in a row: some may never be painted, the last one must be.
    const Picture last(width, height, 200);
    for (unsigned burst = 0; burst < 5; ++burst) {
        drawPixels(burst == 4 ? last : Picture(width, height, 100 + burst));
        glXSwapBuffers(display, window);
    }
    requireStays(display, window, last, "the last frame of a burst");

    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("swap_client");
}
