// visibility_client map|partly|fully|early: a window that is unmapped and mapped again, covered by
// another one in part or in whole, or drawn to before it is shown.
#include "client.h"
#include "draw.h"

#include <cstring>

using namespace kor::client;

namespace {

constexpr int kWidth = 120;
constexpr int kHeight = 80;
constexpr Rectangle kPlace{60, 60, kWidth, kHeight};

void swapFrame(Display* display, Window window, const Picture& picture) {
    drawQuad(picture);
    glXSwapBuffers(display, window);
}

void drawFrame(Display* display, Window window, unsigned seed, const std::string& what) {
    const Picture picture(kWidth, kHeight, seed);
    swapFrame(display, window, picture);
    requireShown(display, window, picture, what);
}

Window cover(Display* display, const XVisualInfo* visual, const Rectangle& place) {
    const Window window = createWindow(display, visual, place);
    XSync(display, False);
    return window;
}

void uncover(Display* display, Window covering, Window window) {
    XDestroyWindow(display, covering);
    waitForEvent(display, window, Expose);
}

void unmapAndMap(Display* display, Window window) {
    for (unsigned round = 0; round < 3; ++round) {
        drawFrame(display, window, 10 * round + 1, "mapped");
        unmapWindow(display, window);
        for (unsigned frame = 0; frame < 3; ++frame)
            swapFrame(display, window, Picture(kWidth, kHeight, 10 * round + 2 + frame));
        mapWindow(display, window);
        drawFrame(display, window, 10 * round + 8, "mapped again");
        drawFrame(display, window, 10 * round + 9, "mapped again, second frame");
    }
}

void coverPartly(Display* display, const XVisualInfo* visual, Window window) {
    drawFrame(display, window, 1, "not covered");
    // The right part and the lowest rows stay in sight.
    const Window covering =
        cover(display, visual, {kPlace.x - 10, kPlace.y - 10, 10 + 70, 10 + 65});
    const Picture picture(kWidth, kHeight, 2);
    swapFrame(display, window, picture);
    requireShown(display, window, picture, {70, 0, kWidth - 70, kHeight}, "right of the cover");
    requireShown(display, window, picture, {0, 65, kWidth, kHeight - 65}, "below the cover");
    uncover(display, covering, window);
    drawFrame(display, window, 3, "uncovered");
}

void coverFully(Display* display, const XVisualInfo* visual, Window window) {
    drawFrame(display, window, 1, "not covered");
    const Window covering =
        cover(display, visual, {kPlace.x - 5, kPlace.y - 5, kWidth + 10, kHeight + 10});
    for (unsigned frame = 2; frame < 7; ++frame)
        swapFrame(display, window, Picture(kWidth, kHeight, frame));
    uncover(display, covering, window);
    drawFrame(display, window, 8, "uncovered");
    drawFrame(display, window, 9, "uncovered, second frame");
}

// What was drawn while the window was hidden is there when it is swapped after that, however often
// the window has come and gone.
void drawEarly(Display* display, const XVisualInfo* visual, GLXContext context) {
    const Window window = createUnmappedWindow(display, visual, kPlace);
    makeCurrent(display, window, context);
    for (unsigned seed = 1; seed < 4; ++seed) {
        const Picture picture(kWidth, kHeight, seed);
        drawQuad(picture);
        mapWindow(display, window);
        glViewport(0, 0, kWidth, kHeight); // the library looks at the window again
        if (seed > 1) {
            unmapWindow(display, window);
            glViewport(0, 0, kWidth, kHeight);
            mapWindow(display, window);
        }
        glXSwapBuffers(display, window);
        requireShown(display, window, picture, "drawn before it was shown");
        unmapWindow(display, window);
        glXSwapBuffers(display, window);
    }
    XDestroyWindow(display, window);
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 2, "one argument: map, partly, fully or early");
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, kPlace);
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    if (std::strcmp(argv[1], "map") == 0)
        unmapAndMap(display, window);
    else if (std::strcmp(argv[1], "partly") == 0)
        coverPartly(display, visual, window);
    else if (std::strcmp(argv[1], "fully") == 0)
        coverFully(display, visual, window);
    else if (std::strcmp(argv[1], "early") == 0)
        drawEarly(display, visual, context);
    else
        fail("an argument among map, partly, fully and early");
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("visibility_client");
}
