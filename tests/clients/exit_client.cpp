// exit_client main|thread|reopen: programs that end, or leave a display, in the middle of things.
#include "client.h"
#include "draw.h"

#include <cstring>
#include <future>
#include <thread>
#include <unistd.h>

using namespace kor::client;

namespace {

constexpr int kWidth = 77;
constexpr int kHeight = 53;

struct Scene {
    Display* display = nullptr;
    Window window = None;
    GLXContext context = nullptr;
};

Scene createScene() {
    Scene scene;
    scene.display = openDisplay();
    XVisualInfo* const visual = chooseVisual(scene.display, Buffering::Double);
    scene.window = createWindow(scene.display, visual, {15, 16, kWidth, kHeight});
    scene.context = createContext(scene.display, visual);
    makeCurrent(scene.display, scene.window, scene.context);
    XFree(visual);
    return scene;
}

void swapFrame(const Scene& scene, const Picture& picture) {
    drawQuad(picture);
    glXSwapBuffers(scene.display, scene.window);
}

void drawFrame(const Scene& scene, unsigned seed, const std::string& what) {
    const Picture picture(kWidth, kHeight, seed);
    swapFrame(scene, picture);
    requireShown(scene.display, scene.window, picture, what);
}

// Nothing is released or closed, and the last frame is still on its way.
int endFromMain() {
    const Scene scene = createScene();
    drawFrame(scene, 1, "a frame before the end");
    for (unsigned frame = 2; frame < 5; ++frame)
        swapFrame(scene, Picture(kWidth, kHeight, frame));
    return passed("exit_client");
}

// The process ends while another thread has a context current and a frame on its way.
int endWithThread() {
    XInitThreads();
    std::promise<void> drawn;
    std::thread([&drawn] {
        const Scene scene = createScene();
        drawFrame(scene, 1, "a frame before the end");
        for (unsigned frame = 2; frame < 6; ++frame)
            swapFrame(scene, Picture(kWidth, kHeight, frame));
        drawn.set_value();
        pause();
    }).detach();
    drawn.get_future().wait();
    return passed("exit_client");
}

// A display is closed and another one opened, many times; a thread that never released its context
// comes and goes as well.
int reopen() {
    for (unsigned round = 0; round < 6; ++round) {
        const Scene scene = createScene();
        drawFrame(scene, 2 * round + 1, "display " + std::to_string(round));
        glXMakeCurrent(scene.display, None, nullptr);
        glXDestroyContext(scene.display, scene.context);
        XDestroyWindow(scene.display, scene.window);
        XCloseDisplay(scene.display);
        std::thread([round] {
            const Scene other = createScene();
            drawFrame(other, 2 * round + 2, "a thread with display " + std::to_string(round));
        }).join();
    }
    return passed("exit_client");
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 2, "one argument: main, thread or reopen");
    if (std::strcmp(argv[1], "main") == 0)
        return endFromMain();
    if (std::strcmp(argv[1], "thread") == 0)
        return endWithThread();
    if (std::strcmp(argv[1], "reopen") == 0)
        return reopen();
    fail("an argument among main, thread and reopen");
}
