// resizes_stress: windows that change their size at every frame, one in each thread. Every size at
// which a window settles has to show the right pixels.
//   --threads, --resizes (of each), --most (the longest side), --check 0: nothing is looked at
#include "stress.h"

#include <barrier>
#include <cstdio>
#include <thread>
#include <vector>

using namespace kor::client;
using namespace kor::stress;

namespace {

constexpr int kSettleEvery = 20;

struct Plan {
    int threads;
    int resizes;
    int most;
    bool check;
    int seed;
};

void resize(const Plan& plan, int number, std::barrier<>& together) {
    Random random(plan.seed, number);
    Display* const display = openDisplay();
    const Windows windows(display);
    const int column = number % 2;
    const int row = number / 2;
    const Window window = windows.open({column * plan.most, row * plan.most, 60, 60});
    const GLXContext context = createContext(display, windows.visual());
    makeCurrent(display, window, context);
    for (int i = 0; i < plan.resizes; ++i) {
        if (i == plan.resizes / 10) {
            together.arrive_and_wait();
            together.arrive_and_wait();
        }
        const bool last = i == plan.resizes - 1;
        const int width = last ? 60 : 1 + random.below(plan.most);
        const int height = last ? 60 : 1 + random.below(plan.most);
        XResizeWindow(display, window, static_cast<unsigned>(width), static_cast<unsigned>(height));
        XSync(display, False);
        glViewport(0, 0, width, height);
        if (plan.check && (last || i % kSettleEvery == kSettleEvery - 1)) {
            const Picture picture(width, height, static_cast<unsigned>(i) % 256);
            drawQuad(picture);
            glXSwapBuffers(display, window);
            requireShown(display, window, picture,
                         "thread " + std::to_string(number) + ", resize " + std::to_string(i) +
                             " to " + std::to_string(width) + "x" + std::to_string(height));
        } else {
            drawColour(random.below(65536));
            glXSwapBuffers(display, window);
        }
    }
    together.arrive_and_wait();
    together.arrive_and_wait();
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XSync(display, False);
}

} // namespace

int main(int count, char** words) {
    const Options options(count, words);
    const Plan plan{options.number("threads", 4), options.number("resizes", 200),
                    options.number("most", 300), options.number("check", 1) != 0,
                    options.number("seed", 1)};
    XInitThreads();
    std::barrier<> together(plan.threads + 1);
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(plan.threads));
    for (int number = 0; number < plan.threads; ++number)
        threads.emplace_back([&plan, number, &together] { resize(plan, number, together); });
    for (const char* const point : {"begin", "end"}) {
        together.arrive_and_wait();
        measure(point);
        together.arrive_and_wait();
    }
    for (std::thread& thread : threads)
        thread.join();
    std::printf("resizes %d\n", plan.threads * plan.resizes);
    return passed("resizes_stress");
}
