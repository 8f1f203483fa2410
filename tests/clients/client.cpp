#include "client.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

namespace kor::client {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int kPatience = 15; // seconds
constexpr auto kEventWithin = std::chrono::seconds(10);
constexpr auto kPollInterval = std::chrono::milliseconds(5);
constexpr int kVisualDepth = 24;

struct DestroyImage {
    void operator()(XImage* image) const { XDestroyImage(image); }
};

// How an image differs from the picture: nothing, or where first, how much, and a sample.
struct Difference {
    long count = 0;
    std::string first;
};

Difference compare(XImage* image, const Picture& picture, const Rectangle& area) {
    Difference result;
    for (int y = 0; y < area.height; ++y) {
        for (int x = 0; x < area.width; ++x) {
            const auto found = static_cast<std::uint32_t>(XGetPixel(image, x, y)) & 0xFFFFFFU;
            const std::uint32_t expected = picture.colour(area.x + x, area.y + y);
            if (found == expected)
                continue;
            if (result.count++ == 0) {
                char text[160];
                std::snprintf(text, sizeof text, "pixel (%d,%d) is %06x, expected %06x", area.x + x,
                              area.y + y, found, expected);
                result.first = text;
            }
        }
    }
    return result;
}

// How long a picture may take; KOR_CLIENT_PATIENCE shortens it for a run that is meant to fail.
std::chrono::seconds patience() {
    const char* const wanted = std::getenv("KOR_CLIENT_PATIENCE");
    return std::chrono::seconds(wanted != nullptr ? std::atoi(wanted) : kPatience);
}

} // namespace

void fail(const std::string& what) {
    std::fprintf(stderr, "failed: %s\n", what.c_str());
    std::exit(1);
}

Display* openDisplay() {
    Display* const display = XOpenDisplay(nullptr);
    require(display != nullptr, "open the display");
    return display;
}

void parseSize(const char* text, int& width, int& height) {
    require(std::sscanf(text, "%dx%d", &width, &height) == 2 && width > 0 && height > 0,
            std::string("read the size ") + text);
}

XVisualInfo* chooseVisual(Display* display, Buffering buffering) {
    int attributes[] = {GLX_RGBA, GLX_RED_SIZE, 8, GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE, 8, None, None};
    if (buffering == Buffering::Double)
        attributes[7] = GLX_DOUBLEBUFFER;
    XVisualInfo* const visual = glXChooseVisual(display, DefaultScreen(display), attributes);
    require(visual != nullptr, "choose a visual");
    require(visual->depth == kVisualDepth, "a visual of depth 24");
    return visual;
}

GLXFBConfig chooseConfig(Display* display, Buffering buffering, int drawableBits) {
    const int attributes[] = {GLX_DOUBLEBUFFER,
                              buffering == Buffering::Double ? True : False,
                              GLX_RED_SIZE,
                              8,
                              GLX_GREEN_SIZE,
                              8,
                              GLX_BLUE_SIZE,
                              8,
                              GLX_RENDER_TYPE,
                              GLX_RGBA_BIT,
                              GLX_DRAWABLE_TYPE,
                              drawableBits,
                              None};
    int count = 0;
    GLXFBConfig* const configs =
        glXChooseFBConfig(display, DefaultScreen(display), attributes, &count);
    require(configs != nullptr && count > 0, "choose a configuration");
    GLXFBConfig chosen = nullptr;
    for (int i = 0; i < count && chosen == nullptr; ++i) {
        XVisualInfo* const visual = glXGetVisualFromFBConfig(display, configs[i]);
        if (visual == nullptr ? (drawableBits & GLX_WINDOW_BIT) == 0
                              : visual->depth == kVisualDepth)
            chosen = configs[i];
        if (visual != nullptr)
            XFree(visual);
    }
    XFree(configs);
    require(chosen != nullptr, "a configuration of depth 24");
    return chosen;
}

Window createUnmappedWindow(Display* display, const XVisualInfo* visual, const Rectangle& place) {
    const Window root = RootWindow(display, visual->screen);
    XSetWindowAttributes attributes{};
    attributes.colormap = XCreateColormap(display, root, visual->visual, AllocNone);
    attributes.event_mask = StructureNotifyMask | ExposureMask;
    attributes.override_redirect = True; // no window manager may move it
    const Window window = XCreateWindow(
        display, root, place.x, place.y, static_cast<unsigned>(place.width),
        static_cast<unsigned>(place.height), 0, visual->depth, InputOutput, visual->visual,
        CWColormap | CWEventMask | CWBorderPixel | CWOverrideRedirect, &attributes);
    require(window != None, "create a window");
    return window;
}

Window createWindow(Display* display, const XVisualInfo* visual, const Rectangle& place) {
    const Window window = createUnmappedWindow(display, visual, place);
    mapWindow(display, window);
    return window;
}

void waitForEvent(Display* display, Window window, int type) {
    const auto deadline = Clock::now() + kEventWithin;
    XEvent event{};
    while (XCheckTypedWindowEvent(display, window, type, &event) == False) {
        require(Clock::now() < deadline, "event " + std::to_string(type) + " of a window");
        std::this_thread::sleep_for(kPollInterval);
    }
}

void mapWindow(Display* display, Window window) {
    XMapRaised(display, window);
    waitForEvent(display, window, Expose);
}

void unmapWindow(Display* display, Window window) {
    XUnmapWindow(display, window);
    waitForEvent(display, window, UnmapNotify);
}

void resizeWindow(Display* display, Window window, int width, int height) {
    XResizeWindow(display, window, static_cast<unsigned>(width), static_cast<unsigned>(height));
    const auto deadline = Clock::now() + kEventWithin;
    XEvent event{};
    do {
        waitForEvent(display, window, ConfigureNotify);
        require(Clock::now() < deadline, "a window's new size");
        XSync(display, False);
        Window root = None;
        int x = 0;
        int y = 0;
        unsigned border = 0;
        unsigned depth = 0;
        unsigned nowWidth = 0;
        unsigned nowHeight = 0;
        XGetGeometry(display, window, &root, &x, &y, &nowWidth, &nowHeight, &border, &depth);
        if (static_cast<int>(nowWidth) == width && static_cast<int>(nowHeight) == height)
            break;
    } while (true);
    while (XCheckWindowEvent(display, window, StructureNotifyMask | ExposureMask, &event) == True) {
    }
}

GLXContext createContext(Display* display, XVisualInfo* visual) {
    const GLXContext context = glXCreateContext(display, visual, nullptr, True);
    require(context != nullptr, "create a context");
    return context;
}

void makeCurrent(Display* display, GLXDrawable drawable, GLXContext context) {
    require(glXMakeCurrent(display, drawable, context) == True, "make a context current");
}

bool shows(Display* display, Drawable drawable, const Picture& picture, const Rectangle& area,
           const std::string& what) {
    const auto deadline = Clock::now() + patience();
    while (true) {
        const bool last = Clock::now() >= deadline;
        const std::unique_ptr<XImage, DestroyImage> image(
            XGetImage(display, drawable, area.x, area.y, static_cast<unsigned>(area.width),
                      static_cast<unsigned>(area.height), AllPlanes, ZPixmap));
        require(image != nullptr, what + ": read the pixels");
        const Difference difference = compare(image.get(), picture, area);
        if (difference.count == 0)
            return true;
        if (last) {
            std::fprintf(stderr, "%s: %ld of %d pixels differ; %s\n", what.c_str(),
                         difference.count, area.width * area.height, difference.first.c_str());
            return false;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
}

void requireShown(Display* display, Drawable drawable, const Picture& picture,
                  const Rectangle& area, const std::string& what) {
    require(shows(display, drawable, picture, area, what), what);
}

void requireShown(Display* display, Drawable drawable, const Picture& picture,
                  const std::string& what) {
    requireShown(display, drawable, picture, {0, 0, picture.width(), picture.height()}, what);
}

void requireStays(Display* display, Drawable drawable, const Picture& picture,
                  const std::string& what) {
    requireShown(display, drawable, picture, what);
    // Longer than two paint passes at the default rate.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::unique_ptr<XImage, DestroyImage> image(
        XGetImage(display, drawable, 0, 0, static_cast<unsigned>(picture.width()),
                  static_cast<unsigned>(picture.height()), AllPlanes, ZPixmap));
    require(image != nullptr, what + ": read the pixels again");
    const Difference difference =
        compare(image.get(), picture, {0, 0, picture.width(), picture.height()});
    require(difference.count == 0, what + ": did not stay; " + difference.first);
}

int passed(const char* name) {
    std::printf("%s: passed\n", name);
    return 0;
}

} // namespace kor::client
