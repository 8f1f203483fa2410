// grab_client all|first|thread: frames of a program that holds a grab of the server. What it does
// besides GL goes over the connection that has the grab.
//   all     frames before, during and after; the window's size is changed meanwhile
//   first   the same, but for the frames before
//   thread  a thread that never called GLX before draws during the grab
#include "client.h"
#include "draw.h"

#include <cstring>
#include <thread>

using namespace kor::client;

namespace {

constexpr int kWidth = 90;
constexpr int kHeight = 60;
constexpr unsigned kFrames = 20;

class Grab {
  public:
    explicit Grab(Display* display) : m_display(display) {
        XGrabServer(display);
        XSync(display, False);
    }
    ~Grab() {
        XUngrabServer(m_display);
        XSync(m_display, False);
    }
    Grab(const Grab&) = delete;
    Grab& operator=(const Grab&) = delete;

  private:
    Display* m_display;
};

void drawFrame(Display* display, Window window, const Picture& picture, const std::string& what) {
    drawQuad(picture);
    glXSwapBuffers(display, window);
    requireShown(display, window, picture, what);
}

void drawFrames(Display* display, Window window, const std::string& when) {
    // Some follow each other faster than they are painted.
    for (unsigned seed = 1; seed < kFrames; ++seed) {
        drawQuad(Picture(kWidth, kHeight, seed));
        glXSwapBuffers(display, window);
    }
    drawFrame(display, window, Picture(kWidth, kHeight, kFrames), when);
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 2, "an argument: all, first or thread");
    XInitThreads();
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, {3, 5, kWidth, kHeight});
    const GLXContext context = createContext(display, visual);
    if (std::strcmp(argv[1], "thread") == 0) {
        const Grab grab(display);
        std::thread([&] {
            makeCurrent(display, window, context);
            drawFrames(display, window, "a thread's first frames, during the grab");
            glXMakeCurrent(display, None, nullptr);
        }).join();
    } else {
        makeCurrent(display, window, context);
        if (std::strcmp(argv[1], "first") != 0)
            drawFrames(display, window, "before the grab");
        {
            const Grab grab(display);
            drawFrames(display, window, "during the grab");
            resizeWindow(display, window, kWidth * 2, kHeight + 7);
            glViewport(0, 0, kWidth * 2, kHeight + 7);
            drawFrame(display, window, Picture(kWidth * 2, kHeight + 7, 30),
                      "another size, during the grab");
            resizeWindow(display, window, kWidth, kHeight);
            glViewport(0, 0, kWidth, kHeight);
            drawFrames(display, window, "the first size again, during the grab");
        }
        for (int round = 0; round < 20; ++round) { // at any moment of a frame
            drawQuad(Picture(kWidth, kHeight, 50));
            glXSwapBuffers(display, window);
            const Grab grab(display);
            drawFrame(display, window, Picture(kWidth, kHeight, 60), "a grab amidst frames");
        }
        drawFrames(display, window, "after the grab");
    }
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("grab_client");
}
