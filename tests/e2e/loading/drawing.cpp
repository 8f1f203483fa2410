#include "drawing.h"

#include <X11/Xutil.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace kor::loading {
namespace {

constexpr int width = 96;
constexpr int height = 64;

struct Area {
    int x; // of the lower left corner, as GL counts
    int y;
    unsigned colour; // 0xRRGGBB
};

// Four areas, each half as wide and high as the window; the colours move on with every frame.
Area area(int index, int frame) {
    static const unsigned colours[] = {0xff0000, 0x00ff00, 0x0000ff, 0xffff00, 0x00ffff};
    return {index % 2 * width / 2, index / 2 * height / 2, colours[(index + frame) % 5]};
}

bool shows(Display* display, Window window, int frame) {
    XImage* image = XGetImage(display, window, 0, 0, width, height, AllPlanes, ZPixmap);
    if (image == nullptr)
        return false;
    bool right = true;
    for (int y = 0; y < height && right; ++y)
        for (int x = 0; x < width && right; ++x) {
            const int index = (x >= width / 2 ? 1 : 0) + (y < height / 2 ? 2 : 0);
            right = (XGetPixel(image, x, y) & 0xffffff) == area(index, frame).colour;
        }
    XDestroyImage(image);
    return right;
}

} // namespace

void fail(const std::string& what) {
    fprintf(stderr, "%s\n", what.c_str());
    exit(1);
}

Drawing::Drawing(const Functions& functions, const char* display, int x)
    : gl_(functions), display_(XOpenDisplay(display)), ownsDisplay_(true) {
    openWindow(x);
}

Drawing::Drawing(const Functions& functions, Display* display)
    : gl_(functions), display_(display), ownsDisplay_(false) {
    openWindow(10);
}

void Drawing::openWindow(int x) {
    require(display_ != nullptr, "no display");
    int wanted[] = {
        GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE, 8, None};
    visual_ = gl_.glXChooseVisual(display_, DefaultScreen(display_), wanted);
    require(visual_ != nullptr, "no visual");
    const Window root = RootWindow(display_, visual_->screen);
    XSetWindowAttributes attributes{};
    attributes.colormap = XCreateColormap(display_, root, visual_->visual, AllocNone);
    attributes.event_mask = ExposureMask;
    attributes.override_redirect = True;
    window_ = XCreateWindow(
        display_, root, x, 10, width, height, 0, visual_->depth, InputOutput, visual_->visual,
        CWColormap | CWBorderPixel | CWEventMask | CWOverrideRedirect, &attributes);
    XMapWindow(display_, window_);
    XEvent event;
    XWindowEvent(display_, window_, ExposureMask, &event);
    context_ = gl_.glXCreateContext(display_, visual_, nullptr, True);
    require(context_ != nullptr, "no context");
}

Drawing::~Drawing() {
    release();
    gl_.glXDestroyContext(display_, context_);
    XFree(visual_);
    XDestroyWindow(display_, window_);
    if (ownsDisplay_)
        XCloseDisplay(display_);
}

void Drawing::draw(int frame) {
    frame_ = frame;
    require(gl_.glXMakeCurrent(display_, window_, context_), "the context cannot be made current");
    require(gl_.glXGetCurrentContext() == context_, "another context is current");
    gl_.glEnable(GL_SCISSOR_TEST);
    for (int index = 0; index < 4; ++index) {
        const Area part = area(index, frame);
        gl_.glScissor(part.x, part.y, width / 2, height / 2);
        gl_.glClearColor(static_cast<float>(part.colour >> 16U & 0xffU) / 255,
                         static_cast<float>(part.colour >> 8U & 0xffU) / 255,
                         static_cast<float>(part.colour & 0xffU) / 255, 1);
        gl_.glClear(GL_COLOR_BUFFER_BIT);
    }
    gl_.glXSwapBuffers(display_, window_);
    require(gl_.glGetError() == GL_NO_ERROR, "GL has an error to tell");
}

void Drawing::requireShown() const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (!shows(display_, window_, frame_)) {
        require(std::chrono::steady_clock::now() < end,
                std::string("the window on ") + DisplayString(display_) + " shows something else");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void Drawing::release() {
    gl_.glXMakeCurrent(display_, None, nullptr);
}

int drawAndCheck(const Functions& functions, int x) {
    Drawing drawing(functions, nullptr, x);
    for (int frame = 0; frame < 4; ++frame)
        drawing.draw(frame);
    drawing.requireShown();
    puts("passed");
    return 0;
}

} // namespace kor::loading
