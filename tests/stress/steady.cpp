// steady_stress: a window that shows one picture after the other, and looks at each. What becomes
// of its servers meanwhile is up to the one who runs it.
//   --frames   so many pictures after the first
//   --check 0  does not look at them
#include "stress.h"

#include <cstdio>

using namespace kor::client;
using namespace kor::stress;

int main(int count, char** words) {
    const Options options(count, words);
    const int frames = options.number("frames", 30);
    const bool check = options.number("check", 1) != 0;
    Random random(options.number("seed", 1));
    XInitThreads();
    Display* const display = openDisplay();
    const Windows windows(display);
    int width = 120;
    int height = 90;
    const Window window = windows.open({10, 10, width, height});
    const GLXContext context = createContext(display, windows.visual());
    makeCurrent(display, window, context);
    for (int frame = 0; frame <= frames; ++frame) {
        if (random.oneIn(4)) {
            width = 20 + random.below(150);
            height = 20 + random.below(150);
            XResizeWindow(display, window, static_cast<unsigned>(width),
                          static_cast<unsigned>(height));
            XSync(display, False);
        }
        const Picture picture(width, height, static_cast<unsigned>(frame) % 256);
        glViewport(0, 0, width, height);
        drawQuad(picture);
        glXSwapBuffers(display, window);
        if (check)
            requireShown(display, window, picture, "frame " + std::to_string(frame));
        if (frame == 0)
            measure("drawing");
        random.pause(20000);
    }
    measure("idle");
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    std::printf("frames %d\n", frames + 1);
    return passed("steady_stress");
}
