// Programs that know nothing of tests: glxinfo and glxgears of mesa-utils.
#include <gtest/gtest.h> // before the X headers, whose macros have names of its types

#include "framework/pixels.h"
#include "framework/wait_until.h"
#include "session.h"

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

class MesaUtils : public testing::TestWithParam<Road> {};

TEST_P(MesaUtils, GlxinfoTellsTheLocalRenderer) {
    const Session session(GetParam());
    const test::CommandResult result = runCommand(session.command({"glxinfo"}), 60s);
    EXPECT_TRUE(usedLibrary(result)) << summary(result);
    EXPECT_EQ(result.status, 0) << summary(result);
    for (const char* const line :
         {"direct rendering: Yes", "OpenGL renderer string: ", "GLX_TESSERA_kor", "TESSERA s.r.l."})
        EXPECT_NE(result.output.find(line), std::string::npos) << line << '\n' << summary(result);
    EXPECT_EQ(result.errors.find("rror"), std::string::npos) << summary(result);
}

void expectTurningGears(const Session& session, const test::Command& command) {
    const std::unique_ptr<Display, CloseDisplay> display(XOpenDisplay(session.display().c_str()));
    ASSERT_NE(display, nullptr);
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
    EXPECT_NE(gears.errors().find("TESSERA KOR-GL "), std::string::npos) << gears.errors();
    EXPECT_EQ(gears.errors().find("rror"), std::string::npos) << gears.errors();
}

TEST_P(MesaUtils, GlxgearsTurnsInItsWindow) {
    const Session session(GetParam());
    expectTurningGears(session, session.command({"glxgears", "-geometry", "300x300+20+30"}));
}

TEST_P(MesaUtils, GlxgearsTurnsOnADisplayThatIsNotTheDefault) {
    const Session session(GetParam());
    const std::vector<std::string> arguments = {"glxgears", "-geometry", "300x300+20+30",
                                                "-display", session.display()};
    expectTurningGears(session, session.command(arguments, {"DISPLAY=:65000"}));
    test::XServer::Options options;
    options.kind = test::XServer::Kind::Xvfb;
    const test::XServer another(options);
    expectTurningGears(session, session.command(arguments, {"DISPLAY=" + another.name()}));
}

INSTANTIATE_TEST_SUITE_P(Fronts, MesaUtils,
                         testing::Values(Road::Library, Road::Vendor, Road::Both),
                         [](const auto& road) {
                             return road.param == Road::Library  ? "Classic"
                                    : road.param == Road::Vendor ? "Vendor"
                                                                 : "Both";
                         });

} // namespace
} // namespace kor::e2e
