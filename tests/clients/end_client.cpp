// end_client first|later|thread: a frame that ends while the process does. The program's own exit
// handler is registered before the GL driver is there, so that it runs after what the driver does
// at the end. The window is single-buffered: to leave it ends a frame.
//   first   no frame ended before
//   later   frames were shown before
//   thread  the same, and another thread than the one that draws ends the process
#include "client.h"
#include "draw.h"

#include <cstdlib>
#include <cstring>
#include <thread>

using namespace kor::client;

namespace {

constexpr int kWidth = 77;
constexpr int kHeight = 53;

Display* display = nullptr;
Window window = None;
GLXContext context = nullptr;

void atEnd() {
    if (context == nullptr)
        return;
    glFlush();
    glXSwapBuffers(display, window);
    glXMakeCurrent(display, None, nullptr);
    passed("end_client");
}

void draw(bool frames) {
    display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Single);
    window = createWindow(display, visual, {15, 16, kWidth, kHeight});
    context = createContext(display, visual);
    makeCurrent(display, window, context);
    XFree(visual);
    for (unsigned seed = 1; frames && seed < 3; ++seed) {
        const Picture picture(kWidth, kHeight, seed);
        drawQuad(picture);
        glFlush();
        requireShown(display, window, picture, "a frame before the end");
    }
    drawQuad(Picture(kWidth, kHeight, 8));
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 2, "an argument: first, later or thread");
    XInitThreads();
    // The first call of all, which needs no driver yet.
    require(glXGetProcAddressARB(reinterpret_cast<const GLubyte*>("glXSwapBuffers")) != nullptr,
            "no glXSwapBuffers");
    require(std::atexit(atEnd) == 0, "no handler at exit");
    draw(std::strcmp(argv[1], "first") != 0);
    if (std::strcmp(argv[1], "thread") == 0)
        std::thread([] { std::exit(0); }).join();
    return 0;
}
