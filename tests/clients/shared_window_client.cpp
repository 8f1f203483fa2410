// shared_window_client THREADS [resize]: several threads, each with a context of its own, end
// frames of one window at the same time, also while it is resized; afterwards each in turn draws a
// picture.
#include "client.h"
#include "draw.h"

#include <barrier>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

using namespace kor::client;

namespace {

constexpr int kWidth = 90;
constexpr int kHeight = 70;
constexpr unsigned kFrames = 100;

struct Shared {
    Display* display;
    Window window;
    bool resizing;
    std::barrier<>& together;
};

void drawFrames(const Shared& shared, GLXContext context, int number, int threads) {
    makeCurrent(shared.display, shared.window, context);
    shared.together.arrive_and_wait();
    for (unsigned frame = 0; frame < kFrames; ++frame) {
        if (shared.resizing && number == 0 && frame % 5 == 0)
            XResizeWindow(shared.display, shared.window, kWidth + static_cast<int>(frame) % 30,
                          kHeight);
        drawQuad(Picture(kWidth, kHeight, frame));
        glXSwapBuffers(shared.display, shared.window);
    }
    shared.together.arrive_and_wait();
    if (shared.resizing && number == 0)
        resizeWindow(shared.display, shared.window, kWidth + 40, kHeight + 20);
    const int width = kWidth + (shared.resizing ? 40 : 0);
    const int height = kHeight + (shared.resizing ? 20 : 0);
    for (int turn = 0; turn < threads; ++turn) {
        shared.together.arrive_and_wait();
        if (turn != number)
            continue;
        // A frame for the new size to be noticed at, and one that fills it.
        for (int i = 0; i < 2; ++i) {
            makeCurrent(shared.display, shared.window, context);
            glViewport(0, 0, width, height);
            drawQuad(Picture(width, height, 200U + static_cast<unsigned>(number)));
            glXSwapBuffers(shared.display, shared.window);
        }
        requireShown(shared.display, shared.window,
                     Picture(width, height, 200U + static_cast<unsigned>(number)),
                     "the picture of thread " + std::to_string(number));
    }
    shared.together.arrive_and_wait();
    glXMakeCurrent(shared.display, None, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    require(argc >= 2, "usage: shared_window_client THREADS [resize]");
    const int threads = std::atoi(argv[1]);
    XInitThreads();
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    std::barrier<> together(threads);
    const Shared shared{display, createWindow(display, visual, {20, 20, kWidth, kHeight}),
                        argc > 2 && std::strcmp(argv[2], "resize") == 0, together};
    std::vector<GLXContext> contexts;
    for (int number = 0; number < threads; ++number)
        contexts.push_back(createContext(display, visual));
    std::vector<std::thread> running;
    for (int number = 0; number < threads; ++number)
        running.emplace_back([&, number] {
            drawFrames(shared, contexts[static_cast<size_t>(number)], number, threads);
        });
    for (std::thread& thread : running)
        thread.join();
    for (GLXContext context : contexts)
        glXDestroyContext(display, context);
    XDestroyWindow(display, shared.window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("shared_window_client");
}
