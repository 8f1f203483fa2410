// memory_client resizes|windows|threads COUNT: changes a window's size at every frame, or makes and
// destroys windows while no context is current, or changes sizes in four threads with a display
// each; then prints "resident KB segments N", its own resident memory and the segments of shared
// memory that it has attached.
#include "client.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

using namespace kor::client;

namespace {

constexpr int kSmallest = 100;
constexpr unsigned kSizes = 500; // sizes go from kSmallest to kSmallest + kSizes

long resident() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:"))
            return std::atol(line.c_str() + std::strlen("VmRSS:"));
    fail("read the resident memory");
}

int segments() {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("SYSV") != std::string::npos ? 1 : 0;
    return count;
}

void drawFrame(Display* display, Window window, int width, int height) {
    glViewport(0, 0, width, height);
    glClearColor(0.2F, 0.4F, 0.6F, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glXSwapBuffers(display, window);
}

// Sizes that seldom come twice, the same in every run.
class Sizes {
  public:
    explicit Sizes(unsigned seed) : m_state(seed) {}
    int next() {
        m_state = m_state * 1103515245U + 12345U;
        return kSmallest + static_cast<int>((m_state >> 8) % kSizes);
    }

  private:
    unsigned m_state;
};

void changeSizes(int count, unsigned seed) {
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, {0, 0, kSmallest, kSmallest});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    Sizes sizes(seed);
    for (int i = 0; i < count; ++i) {
        const int width = sizes.next();
        const int height = sizes.next();
        XResizeWindow(display, window, static_cast<unsigned>(width), static_cast<unsigned>(height));
        XSync(display, False);
        drawFrame(display, window, width, height);
    }
    XFree(visual);
}

void makeWindows(int count) {
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const GLXContext context = createContext(display, visual);
    Sizes sizes(1);
    for (int i = 0; i < count; ++i) {
        const int width = sizes.next();
        const int height = sizes.next();
        const Window window = createWindow(display, visual, {0, 0, width, height});
        makeCurrent(display, window, context);
        drawFrame(display, window, width, height);
        glXMakeCurrent(display, None, nullptr);
        XDestroyWindow(display, window);
    }
    XFree(visual);
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 3, "two arguments: resizes, windows or threads, and a count");
    const int count = std::atoi(argv[2]);
    if (std::strcmp(argv[1], "resizes") == 0) {
        changeSizes(count, 1);
    } else if (std::strcmp(argv[1], "windows") == 0) {
        makeWindows(count);
    } else if (std::strcmp(argv[1], "threads") == 0) {
        std::vector<std::thread> threads;
        for (unsigned i = 1; i <= 4; ++i)
            threads.emplace_back(changeSizes, count, i);
        for (std::thread& thread : threads)
            thread.join();
    } else {
        fail("an argument among resizes, windows and threads");
    }
    std::printf("resident %ld segments %d\n", resident(), segments());
    return passed("memory_client");
}
