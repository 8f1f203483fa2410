// displays_client [THREADS]: threads that open a display, draw and close it again, all at once and
// time after time. Every second one closes the display with its context current. What the process
// holds afterwards does not grow.
#include "client.h"
#include "draw.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <thread>
#include <vector>

using namespace kor::client;

namespace {

constexpr int kWidth = 40;
constexpr int kHeight = 30;
constexpr int kRounds = 4;

void openDrawAndClose(int number, unsigned round) {
    const std::string name =
        "round " + std::to_string(round) + ", thread " + std::to_string(number);
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window =
        createWindow(display, visual,
                     {number % 12 * (kWidth + 10), number / 12 * (kHeight + 10), kWidth, kHeight});
    const GLXContext context = createContext(display, visual);
    XFree(visual);
    makeCurrent(display, window, context);
    const Picture picture(kWidth, kHeight, static_cast<unsigned>(number) + 50 * round);
    drawQuad(picture);
    glXSwapBuffers(display, window);
    requireShown(display, window, picture, name);
    if (number % 2 == 0) {
        glXMakeCurrent(display, None, nullptr);
        glXDestroyContext(display, context);
        XDestroyWindow(display, window);
    }
    XCloseDisplay(display);
}

long entriesOf(const char* folder) {
    using Entries = std::filesystem::directory_iterator;
    return std::distance(Entries(folder), Entries());
}

/// The least number in a while: threads of others end when they like.
long leastOf(const char* folder) {
    long least = entriesOf(folder);
    for (int i = 0; i < 50; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        least = std::min(least, entriesOf(folder));
    }
    return least;
}

} // namespace

int main(int argc, char** argv) {
    XInitThreads();
    const int count = argc > 1 ? atoi(argv[1]) : 12;
    long descriptors = 0;
    long threads = 0;
    for (unsigned round = 0; round < kRounds; ++round) {
        std::vector<std::thread> together;
        for (int number = 0; number < count; ++number)
            together.emplace_back([number, round] { openDrawAndClose(number, round); });
        for (std::thread& thread : together)
            thread.join();
        const long open = leastOf("/proc/self/fd");
        const long running = leastOf("/proc/self/task");
        fprintf(stderr, "round %u: %ld descriptors, %ld threads\n", round, open, running);
        if (round == 0) {
            descriptors = open;
            threads = running;
        }
        require(open <= descriptors, "descriptors grow");
        require(running <= threads, "threads grow");
    }
    return passed("displays_client");
}
