#include <gtest/gtest.h> // before the X headers, whose macros have names of its types

#include "gears.h"

#include "framework/pixels.h"
#include "framework/wait_until.h"

#include <memory>
#include <set>
#include <vector>

#include <X11/Xlib.h>

namespace kor::e2e {
namespace {

using namespace std::chrono_literals;

constexpr int kGearsSize = 300;

struct CloseDisplay {
    void operator()(Display* display) const { XCloseDisplay(display); }
};

// The viewable top-level window of the gears' size, or None.
Window findGears(Display* display) {
    Window root = None;
    Window parent = None;
    Window* children = nullptr;
    unsigned count = 0;
    Window found = None;
    if (XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count) == 0)
        return None;
    for (unsigned i = 0; i < count; ++i) {
        XWindowAttributes attributes{};
        if (XGetWindowAttributes(display, children[i], &attributes) != 0 &&
            attributes.width == kGearsSize && attributes.height == kGearsSize &&
            attributes.map_state == IsViewable)
            found = children[i];
    }
    if (children != nullptr)
        XFree(children);
    return found;
}

// Three gears of different colours, lit: many colours, and red, green and blue ones among them.
bool showsGears(const test::Pixels& pixels) {
    const std::set<uint32_t> colours(pixels.colours.begin(), pixels.colours.end());
    long red = 0;
    long green = 0;
    long blue = 0;
    for (const uint32_t pixel : pixels.colours) {
        const uint32_t r = pixel >> 16U;
        const uint32_t g = pixel >> 8U & 0xFFU;
        const uint32_t b = pixel & 0xFFU;
        red += r > 2 * g && r > 2 * b ? 1 : 0;
        green += g > 2 * r && g > b ? 1 : 0;
        blue += b > 2 * r && b > g ? 1 : 0;
    }
    constexpr long kEnough = 500;
    return colours.size() > 20 && red > kEnough && green > kEnough && blue > kEnough;
}

} // namespace

std::string expectTurningGears(const std::string& displayName, const test::Command& command) {
    const std::unique_ptr<Display, CloseDisplay> display(XOpenDisplay(displayName.c_str()));
    if (display == nullptr) {
        ADD_FAILURE() << "no display " << displayName;
        return "";
    }
    test::Child gears(command);

    std::set<std::vector<uint32_t>> pictures;
    const bool turned = test::waitUntil(
        [&] {
            const Window window = findGears(display.get());
            const auto pixels = test::readWindow(display.get(), window);
            if (pixels && showsGears(*pixels))
                pictures.insert(pixels->colours);
            return pictures.size() >= 5 || !gears.running();
        },
        15s);
    EXPECT_TRUE(turned && pictures.size() >= 5) << pictures.size() << " different pictures\n"
                                                << gears.errors();
    EXPECT_TRUE(gears.running());
    gears.stop();
    EXPECT_EQ(gears.errors().find("rror"), std::string::npos) << gears.errors();
    return gears.errors();
}

} // namespace kor::e2e
