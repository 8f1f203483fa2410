// What is done on a thread whose application display has no local connection.

#include "frames.h"
#include "interposed.h"

#include "display/connections.h"
#include "display/displays.h"
#include "entry/copyback_pixmap.h"

#include <functional>
#include <thread>

using testing::IsEmpty;

namespace {

/// From the thread's own connection to its server on, no display can be opened.
Display* refuseAfterSecondary(Display* display, int role) {
    if (role == kor::gl::SecondaryConnection)
        kor::test::openDisplay.arm(1000);
    return display;
}

class WithoutALocalDisplay : public Frames {
  protected:
    /// Does the work on a thread with another application display, which has no local connection.
    /// Gives the driver's calls there.
    std::vector<std::string> callsOf(const std::function<void()>& work) {
        letPaintsArrive();
        Display* other = XOpenDisplay(appName.c_str());
        kor_set_connection_hook(refuseAfterSecondary);
        std::vector<std::string> texts;
        std::thread([&] {
            EXPECT_TRUE(_setupAppDisplay(other, nullptr));
            EXPECT_EQ(local(), nullptr);
            gl.clearCalls();
            markLog();
            kor::test::record();
            work();
            texts = mine();
        }).join();
        kor_set_connection_hook(nullptr);
        kor::test::openDisplay.arm(0);
        XCloseDisplay(other);
        return texts;
    }
};

} // namespace

TEST_F(WithoutALocalDisplay, AFrameIsNotReadBackAndNothingIsSaid) {
    begin(40, 40);
    // Nothing was made for it yet: what was would lie on a connection that is there.
    kor::gl::DrawableInfo fresh(kor::gl::WindowDrawable, window, config("double1"), app, 0, 0, 40,
                                40);
    EXPECT_THAT(callsOf([&] { fresh.readback(); }), IsEmpty());
    EXPECT_THAT(sayings("DrawableInfo::readback"), IsEmpty());
    EXPECT_THAT(sayings("DrawableInfo::setupReadbackContexts"), IsEmpty());
}

TEST_F(WithoutALocalDisplay, APixmapIsNotCopied) {
    begin(40, 40);
    const Pixmap pixmap = XCreatePixmap(app, window, 8, 8, 24);
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
    const kor::gl::DrawableRef pixmaps = findLocalDrawable(drawable);
    ASSERT_TRUE(pixmaps);
    callsOf([&] {
        copybackPixmap(*pixmaps);
        EXPECT_THAT(kor::test::recorded(), testing::Not(testing::Contains("XGetImage")));
    });
    EXPECT_THAT(sayings("copybackPixmap"), IsEmpty());
}
