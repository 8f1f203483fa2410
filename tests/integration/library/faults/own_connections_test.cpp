// The connections that the library opens for a purpose of its own are closed when it is served.

#include "frames.h"
#include "interposed.h"

#include "core/tsd.h"
#include "display/connections.h"
#include "display/displays.h"
#include "visual/visual_map.h"

#include <atomic>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The connections of one role, as they are opened and closed.
std::atomic<int> watchedRole{-1};
std::atomic<Display*> watched{nullptr};
std::atomic<int> opened{0};

class OwnConnections : public Frames {
  protected:
    ~OwnConnections() override {
        kor_fini();
        kor::test::beforeCloseDisplay = nullptr;
        kor_set_connection_hook(nullptr);
    }

    /// To be called before kor_init. What the function named last logged when the connection was
    /// closed goes to lastWords.
    void watch(kor::gl::ConnectionRole role, const char* function) {
        watchedRole = role;
        kor_set_connection_hook([](Display* display, int opener) {
            if (opener == watchedRole) {
                watched = display;
                ++opened;
            }
            return display;
        });
        kor::test::beforeCloseDisplay = [this, function](Display* display) {
            if (display == watched)
                lastWords.push_back(sayings(function).empty() ? "" : sayings(function).back());
        };
    }

    /// The library with the font connection of mode 2.
    void beginWithFonts() {
        set("KOR_GL_USEXFONT_MODE", "2");
        watch(kor::gl::FontConnection, "kor_glXUseXFont");
        start();
        ASSERT_TRUE(_setupAppDisplay(app, nullptr));
        ASSERT_NE(local(), nullptr);
        font = XLoadFont(app, "fixed");
        XSync(app, False); // other connections shall know it
        markLog();
    }

    Font font = None;
    std::vector<std::string> lastWords;
};

} // namespace

TEST_F(OwnConnections, TheFontsIsClosedBeforeTheLastWord) {
    beginWithFonts();
    kor_glXUseXFont(font, 32, 96, 1000);
    EXPECT_EQ(opened, 1);
    const std::string first = format("Font %d, [32, 96], base: 1000", static_cast<int>(font));
    EXPECT_THAT(lastWords, ElementsAre(first));
    EXPECT_THAT(sayings("kor_glXUseXFont"), ElementsAre(first, "DONE"));
    EXPECT_EQ(gl.callsOf("glXUseXFont").size(), 1U);
}

TEST_F(OwnConnections, TheFontsIsClosedWhenNothingCanBeLoaded) {
    beginWithFonts();
    kor::test::loadQueryFont.arm(2);
    kor_glXUseXFont(font, 32, 96, 1000);
    EXPECT_EQ(opened, 1);
    EXPECT_THAT(lastWords, ElementsAre("failed to load even fixed font."));
    EXPECT_EQ(sayings("kor_glXUseXFont").back(), "DONE");
}

TEST_F(OwnConnections, TheFontsIsClosedAfterAnUnknownFont) {
    beginWithFonts();
    kor_glXUseXFont(0x1234567, 0, 1, 0);
    EXPECT_EQ(opened, 1);
    EXPECT_THAT(lastWords, ElementsAre("glXUseXFont failed."));
    EXPECT_EQ(sayings("kor_glXUseXFont").back(), "glXUseXFont failed.");
}

TEST_F(OwnConnections, TheFontsIsClosedAfterAFontWithoutItsName) {
    beginWithFonts();
    kor::test::getFontProperty.arm();
    kor_glXUseXFont(font, 32, 96, 1000);
    kor::test::getAtomName.arm();
    kor_glXUseXFont(font, 32, 96, 1000);
    EXPECT_EQ(opened, 2);
    EXPECT_THAT(lastWords, ElementsAre("Could not get fontname.", "Could not get fontname."));
}

TEST_F(OwnConnections, TheFontsIsClosedWithoutALocalDisplay) {
    beginWithFonts();
    Display* second = XOpenDisplay(appName.c_str());
    std::thread([&] {
        kor::test::openDisplay.arm(3, 1); // our own opens, the local one does not
        _setupAppDisplay(second, nullptr);
        markLog();
        kor::test::openDisplay.arm(3, 1); // the font's opens, the local one does not
        kor_glXUseXFont(font, 32, 96, 1000);
        kor::test::openDisplay.arm(0);
    }).join();
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(lastWords.size(), 1U);
    EXPECT_THAT(sayings("kor_glXUseXFont"), testing::SizeIs(1));
    EXPECT_THAT(gl.callsOf("glXUseXFont"), IsEmpty());
}

TEST_F(OwnConnections, ThePaintersIsClosedWhenItEnds) {
    watch(kor::gl::CopybackConnection, "CopybackThread::svc");
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    letPaintsArrive();
    EXPECT_EQ(opened, 1);
    EXPECT_THAT(lastWords, IsEmpty());
    kor_fini();
    ASSERT_TRUE(waitForLog("D void kor::gl::CopybackThread::svc(): DONE"));
    EXPECT_THAT(lastWords, ElementsAre("START"));
}
