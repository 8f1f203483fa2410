// churn_stress: opens windows, draws into them and closes them again, for a long time, as a
// desktop's programs do: with a context of each window or one for all, current or not when the
// window goes, with pbuffers and pixmaps between, and a connection of its own now and then.
//   --seconds, --pause (microseconds at most between two windows)
#include "stress.h"

#include <chrono>
#include <cstdio>
#include <thread>

using namespace kor::client;
using namespace kor::stress;

namespace {

using Clock = std::chrono::steady_clock;

void drawFrames(Display* display, GLXDrawable drawable, Random& random) {
    for (int frame = random.below(4); frame >= 0; --frame) {
        drawColour(random.below(65536));
        glXSwapBuffers(display, drawable);
    }
}

void useWindow(const Windows& windows, GLXContext context, Random& random) {
    Display* const display = windows.display();
    const Rectangle place{random.below(400), random.below(300), 30 + random.below(150),
                          30 + random.below(150)};
    const Window window = windows.open(place);
    const bool own = random.oneIn(3);
    const GLXContext drawing = own ? createContext(display, windows.visual()) : context;
    makeCurrent(display, window, drawing);
    drawFrames(display, window, random);
    if (random.oneIn(3)) {
        XResizeWindow(display, window, static_cast<unsigned>(30 + random.below(150)),
                      static_cast<unsigned>(30 + random.below(150)));
        drawFrames(display, window, random);
    }
    const bool released = random.oneIn(2);
    if (released)
        glXMakeCurrent(display, None, nullptr);
    XDestroyWindow(display, window);
    XSync(display, False);
    if (own) {
        glXMakeCurrent(display, None, nullptr);
        glXDestroyContext(display, drawing);
    }
}

void useOffscreen(Display* display, const Windows& windows, GLXContext context, GLXFBConfig config,
                  Random& random) {
    if (random.oneIn(2)) {
        const int attributes[] = {GLX_PBUFFER_WIDTH, 30 + random.below(100), GLX_PBUFFER_HEIGHT, 40,
                                  None};
        const GLXPbuffer pbuffer = glXCreatePbuffer(display, config, attributes);
        makeCurrent(display, pbuffer, context);
        drawFrames(display, pbuffer, random);
        glXMakeCurrent(display, None, nullptr);
        glXDestroyPbuffer(display, pbuffer);
        return;
    }
    const Pixmap pixmap = XCreatePixmap(display, DefaultRootWindow(display), 60, 40, 24);
    const GLXPixmap drawable = glXCreateGLXPixmap(display, windows.visual(), pixmap);
    makeCurrent(display, drawable, context);
    drawColour(random.below(65536));
    glFinish();
    glXMakeCurrent(display, None, nullptr);
    glXDestroyGLXPixmap(display, drawable);
    XFreePixmap(display, pixmap);
}

void useOwnConnection(int seed) {
    std::thread([seed] {
        Random random(seed, 1);
        Display* const display = openDisplay();
        {
            const Windows windows(display);
            const GLXContext context = createContext(display, windows.visual());
            useWindow(windows, context, random);
            glXMakeCurrent(display, None, nullptr);
            glXDestroyContext(display, context);
        }
        XCloseDisplay(display);
    }).join();
}

} // namespace

int main(int count, char** words) {
    const Options options(count, words);
    const int pause = options.number("pause", 100000);
    const bool pixmaps = options.number("offscreen", 1) != 0;
    const bool connections = options.number("connections", 1) != 0;
    Random random(options.number("seed", 1));
    XInitThreads();
    Display* const display = openDisplay();
    const Windows windows(display);
    const GLXContext context = createContext(display, windows.visual());
    const GLXFBConfig config =
        chooseConfig(display, Buffering::Double, GLX_WINDOW_BIT | GLX_PBUFFER_BIT);
    const auto end = Clock::now() + std::chrono::seconds(options.number("seconds", 10));
    int opened = 0;
    while (Clock::now() < end) {
        useWindow(windows, context, random);
        ++opened;
        if (pixmaps && random.oneIn(4))
            useOffscreen(display, windows, context, config, random);
        if (connections && random.oneIn(20))
            useOwnConnection(random.below(1 << 30));
        random.pause(pause);
    }
    std::printf("windows %d\n", opened);
    return passed("churn_stress");
}
