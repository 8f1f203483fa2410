// threads_client: eight threads, each with a display, a window and a context of its own.
#include "client.h"
#include "draw.h"

#include <barrier>
#include <thread>
#include <vector>

using namespace kor::client;

namespace {

constexpr int kThreads = 8;
constexpr int kWidth = 75;
constexpr int kHeight = 55;

void drawFrames(int number, std::barrier<>& together) {
    const std::string name = "thread " + std::to_string(number);
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window =
        createWindow(display, visual,
                     {number % 4 * (kWidth + 10), number / 4 * (kHeight + 10), kWidth, kHeight});
    const GLXContext context = createContext(display, visual);
    together.arrive_and_wait();
    makeCurrent(display, window, context);
    for (unsigned frame = 0; frame < 5; ++frame) {
        const Picture picture(kWidth, kHeight, static_cast<unsigned>(number) * 8U + frame);
        drawQuad(picture);
        glXSwapBuffers(display, window);
        requireShown(display, window, picture, name + ", frame " + std::to_string(frame));
    }
    together.arrive_and_wait();
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
}

} // namespace

int main() {
    XInitThreads();
    std::barrier<> together(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([number, &together] { drawFrames(number, together); });
    for (std::thread& thread : threads)
        thread.join();
    return passed("threads_client");
}
