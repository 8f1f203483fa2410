// Fonts of the application and textures from its pixmaps.

#include "displays.h"

#include "core/tsd.h"
#include "display/connections.h"
#include "display/displays.h"
#include "drawable/registry.h"

#include <X11/Xutil.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class FontsAndTextures : public Displays {
  protected:
    void useFont(const char* mode) {
        set("KOR_GL_USEXFONT_MODE", mode);
        start();
        ASSERT_TRUE(_setupAppDisplay(app, nullptr));
        font = XLoadFont(app, "fixed");
        XSync(app, False); // other connections shall know it
        gl.onCall("glXUseXFont", [&](const fake::Call&) { held = heldLocks(); });
        ASSERT_NE(local(), nullptr);
        markLog();
        const kor::gl::TSD* tsd = getTSD();
        const unsigned long first = NextRequest(tsd->appDisplay.load());
        const unsigned long second = NextRequest(tsd->appDisplay2);
        kor_glXUseXFont(font, 32, 96, 1000);
        askedFirst = NextRequest(tsd->appDisplay.load()) != first;
        askedSecond = NextRequest(tsd->appDisplay2) != second;
        gl.onCall("glXUseXFont", nullptr);
    }

    void expectFontUsed() {
        const auto calls = gl.callsOf("glXUseXFont");
        ASSERT_EQ(calls.size(), 1U);
        EXPECT_EQ(calls[0].arguments[1], 32U);
        EXPECT_EQ(calls[0].arguments[2], 96U);
        EXPECT_EQ(calls[0].arguments[3], 1000U);
        // The font is the local server's, and it is kept.
        XFontStruct* info = XQueryFont(local(), calls[0].arguments[0]);
        EXPECT_NE(info, nullptr);
        EXPECT_THAT(held, ElementsAre("local display"));
        EXPECT_THAT(
            sayings("kor_glXUseXFont"),
            ElementsAre(format("Font %d, [32, 96], base: 1000", static_cast<int>(font)), "DONE"));
    }

    Font font = None;
    std::vector<std::string> held;
    bool askedFirst = false;  // the application's connection
    bool askedSecond = false; // our own
};

std::vector<int> roles;

} // namespace

TEST_F(FontsAndTextures, AFontIsLookedUpOnTheApplicationsConnection) {
    useFont("0");
    expectFontUsed();
    EXPECT_TRUE(askedFirst);
    EXPECT_FALSE(askedSecond);
}

TEST_F(FontsAndTextures, AnyOtherModeIsTheApplicationsConnectionToo) {
    useFont("17");
    expectFontUsed();
    EXPECT_TRUE(askedFirst);
    EXPECT_FALSE(askedSecond);
}

TEST_F(FontsAndTextures, ModeOneAsksOurOwnConnection) {
    useFont("1");
    expectFontUsed();
    EXPECT_FALSE(askedFirst);
    EXPECT_TRUE(askedSecond);
}

TEST_F(FontsAndTextures, ModeTwoOpensAConnectionForTheOccasion) {
    roles.clear();
    kor_set_connection_hook([](Display* display, int role) {
        roles.push_back(role);
        return display;
    });
    useFont("2");
    kor_set_connection_hook(nullptr);
    expectFontUsed();
    EXPECT_FALSE(askedFirst);
    EXPECT_FALSE(askedSecond);
    EXPECT_THAT(roles, ElementsAre(kor::gl::SecondaryConnection, kor::gl::LocalConnection,
                                   kor::gl::FontConnection));
}

TEST_F(FontsAndTextures, ModeThreeBuildsNoLists) {
    useFont("3");
    EXPECT_THAT(gl.callsOf("glXUseXFont"), IsEmpty());
    EXPECT_THAT(sayings("kor_glXUseXFont"), testing::SizeIs(1));
}

TEST_F(FontsAndTextures, AnUnknownFontIsReported) {
    start();
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    kor_glXUseXFont(0x1234567, 0, 1, 0);
    EXPECT_TRUE(said('E', "kor_glXUseXFont", "glXUseXFont failed."));
    EXPECT_THAT(gl.callsOf("glXUseXFont"), IsEmpty());
}

TEST_F(FontsAndTextures, ATextureFromAPixmapTakesItsPresentPixels) {
    start();
    const Pixmap pixmap = XCreatePixmap(app, DefaultRootWindow(app), 12, 7, 24);
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
    GC gc = XCreateGC(app, pixmap, 0, nullptr);
    XSetForeground(app, gc, 0x654321);
    XFillRectangle(app, pixmap, gc, 0, 0, 12, 7);
    const int list[] = {GLX_TEXTURE_TARGET_EXT, GLX_TEXTURE_2D_EXT, None};
    gl.onCall("glXBindTexImageEXT", [&](const fake::Call&) { held = heldLocks(); });
    kor_glXBindTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT, list);
    gl.onCall("glXBindTexImageEXT", nullptr);
    EXPECT_THAT(held, ElementsAre("local display"));
    const fake::Call call = gl.callsOf("glXBindTexImageEXT").back();
    EXPECT_EQ(call.arguments[1], drawable);
    EXPECT_EQ(call.arguments[3], fake::word(&list[0]));
    XImage* image = XGetImage(local(), findLocalDrawable(drawable)->localPixmap, 0, 0, 12, 7,
                              AllPlanes, ZPixmap);
    EXPECT_EQ(XGetPixel(image, 0, 0) & 0xffffff, 0x654321U);
    EXPECT_EQ(XGetPixel(image, 11, 6) & 0xffffff, 0x654321U);
    XDestroyImage(image);
    kor_glXReleaseTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT);
    EXPECT_EQ(gl.callsOf("glXReleaseTexImageEXT").back().arguments[1], drawable);
}

TEST_F(FontsAndTextures, AnUnknownPixmapIsBoundAsNothing) {
    start();
    kor_glXBindTexImageEXT(app, 0x1234567, GLX_FRONT_LEFT_EXT, nullptr);
    EXPECT_TRUE(said('D', "kor_glXBindTexImageEXT", "local drawable not found"));
    EXPECT_EQ(gl.callsOf("glXBindTexImageEXT").back().arguments[1], 0U);
    kor_glXReleaseTexImageEXT(app, 0x1234567, GLX_FRONT_LEFT_EXT);
    EXPECT_TRUE(said('D', "kor_glXReleaseTexImageEXT", "local drawable not found"));
    EXPECT_EQ(gl.callsOf("glXReleaseTexImageEXT").back().arguments[1], 0U);
}

TEST_F(FontsAndTextures, ATextureOfNoDrawableIsReleasedAsNothing) {
    start();
    kor_glXReleaseTexImageEXT(app, None, GLX_FRONT_LEFT_EXT);
    EXPECT_TRUE(said('D', "kor_glXReleaseTexImageEXT", "local drawable not found"));
    EXPECT_EQ(gl.callsOf("glXReleaseTexImageEXT").back().arguments[1], 0U);
}

TEST_F(FontsAndTextures, WithoutADisplayNoTextureIsBoundOrReleased) {
    start();
    kor_glXBindTexImageEXT(nullptr, 0x1234567, GLX_FRONT_LEFT_EXT, nullptr);
    kor_glXReleaseTexImageEXT(nullptr, 0x1234567, GLX_FRONT_LEFT_EXT);
    EXPECT_THAT(sayings("kor_glXBindTexImageEXT"), ElementsAre("START"));
    EXPECT_THAT(sayings("kor_glXReleaseTexImageEXT"), ElementsAre("START"));
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(FontsAndTextures, WithoutALocalDisplayNothingIsBoundReleasedOrBuilt) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    kor_glXBindTexImageEXT(app, 0x1234567, GLX_FRONT_LEFT_EXT, nullptr);
    kor_glXReleaseTexImageEXT(app, 0x1234567, GLX_FRONT_LEFT_EXT);
    EXPECT_THAT(sayings("kor_glXBindTexImageEXT"), ElementsAre("START", "no local display"));
    EXPECT_THAT(sayings("kor_glXReleaseTexImageEXT"), ElementsAre("START", "no local display"));
    kor_glXUseXFont(XLoadFont(app, "fixed"), 32, 96, 1000);
    EXPECT_THAT(sayings("kor_glXUseXFont"), testing::SizeIs(1));
    EXPECT_THAT(gl.calls(), IsEmpty());
}
