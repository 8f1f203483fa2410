// What the entry points do when Xlib, or the memory, refuses.

#include "displays.h"
#include "interposed.h"

#include "core/tsd.h"
#include "display/displays.h"
#include "drawable/registry.h"
#include "visual/visual_map.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <thread>
#include <utility>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

class XlibFaults : public Displays {
  protected:
    /// The library, its visual map built.
    void begin() {
        start();
        ASSERT_TRUE(_setupAppDisplay(app, nullptr));
        initializeVisualMap(app, DefaultScreen(app), nullptr);
        markLog();
    }

    XVisualInfo* chooseVisual() const {
        int list[] = {GLX_RGBA, GLX_DOUBLEBUFFER, None};
        return kor_glXChooseVisual(app, DefaultScreen(app), list);
    }

    kor::gl::LocalVisualInfo* firstMapping() const { return _getLVI(app, doubleVisual, nullptr); }

    /// The recorded loads of a font.
    static std::vector<std::string> loads() {
        std::vector<std::string> calls;
        for (const std::string& call : kor::test::recorded())
            if (call.rfind("XLoadQueryFont(", 0) == 0)
                calls.push_back(call);
        return calls;
    }

    void useFont() const {
        const Font font = XLoadFont(app, "fixed");
        XSync(app, False);
        kor_glXUseXFont(font, 32, 96, 1000);
    }

    /// The full name of the font that useFont() loads.
    std::string nameOfFixed() const {
        XFontStruct* info = XLoadQueryFont(app, "fixed");
        unsigned long atom = 0;
        if (info == nullptr || !XGetFontProperty(info, XA_FONT, &atom))
            return "no font";
        XFreeFont(app, info);
        char* name = XGetAtomName(app, atom);
        const std::string text = name;
        XFree(name);
        return text;
    }

    GLXPixmap makePixmap() {
        pixmap = XCreatePixmap(app, DefaultRootWindow(app), 12, 7, 24);
        return kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
    }
    Pixmap pixmap = None;

    /// From now on lists the calls of Xlib with the library's locks that are held at each.
    void listLocks() {
        kor::test::onCall = [this](const std::string& call) {
            std::string text = call + ":";
            for (const std::string& lock : heldLocks())
                text += " " + lock;
            underLocks.push_back(text);
        };
    }
    void endList() { kor::test::onCall = nullptr; }
    std::vector<std::string> underLocks;
};

} // namespace

TEST_F(XlibFaults, AChosenVisualThatTheServerDoesNotGiveFails) {
    begin();
    kor::test::getVisualInfo.arm();
    EXPECT_EQ(chooseVisual(), nullptr);
    EXPECT_EQ(sayings("kor_glXChooseVisual").back(), "FAILED!");
    EXPECT_THAT(sayings("kor_glXChooseVisual"),
                Not(Contains(format("choosing visual %x", static_cast<unsigned>(doubleVisual)))));
}

TEST_F(XlibFaults, AChosenVisualUnderAnotherIdIsABigProblem) {
    begin();
    kor::test::visualIdGiven = 0x7777;
    EXPECT_EQ(chooseVisual(), nullptr);
    kor::test::visualIdGiven = 0;
    const std::vector<std::string> said = sayings("kor_glXChooseVisual");
    ASSERT_GE(said.size(), 2U);
    EXPECT_EQ(said[said.size() - 2], "choosing visual 7777");
    EXPECT_EQ(said.back(), "BIG PROBLEM cannot find id 7777");
}

TEST_F(XlibFaults, AVisualOfAnFbconfigThatTheServerDoesNotGiveIsReported) {
    begin();
    kor::test::getVisualInfo.arm();
    EXPECT_EQ(kor_glXGetVisualFromFBConfig(app, config("double1")), nullptr);
    EXPECT_THAT(sayings("kor_glXGetVisualFromFBConfig"),
                ElementsAre("START", format("lvi %p.", static_cast<void*>(firstMapping())),
                            format("cannot find visual %x", static_cast<unsigned>(doubleVisual))));
}

TEST_F(XlibFaults, AMappingWithoutAVisualIdIsAFailure) {
    begin();
    kor::gl::LocalVisualInfo* mapping = firstMapping();
    const int32_t own = mapping->localVisual.visualId;
    mapping->localVisual.visualId = 0;
    EXPECT_EQ(kor_glXGetVisualFromFBConfig(app, config("double1")), nullptr);
    mapping->localVisual.visualId = own;
    EXPECT_EQ(sayings("kor_glXGetVisualFromFBConfig").back(), "FAILURE!");
    markLog();
    mapping->appVisual.visualId = 0;
    EXPECT_EQ(kor_glXGetVisualFromFBConfig(app, config("double1")), nullptr);
    mapping->appVisual.visualId = static_cast<int32_t>(doubleVisual);
    EXPECT_EQ(sayings("kor_glXGetVisualFromFBConfig").back(), "FAILURE!");
}

TEST_F(XlibFaults, AVisualIdIsNotTranslatedByMappingsWithoutIdOrFbconfigs) {
    localScript.configs[1].attributes[GLX_VISUAL_ID] = 0x999; // found through the fbconfig itself
    useScripts();
    begin();
    kor::gl::LocalVisualInfo* mapping = firstMapping();
    const auto visualIdOf = [&](const char* name) {
        int value = 0;
        EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config(name), GLX_VISUAL_ID, &value), 0);
        return static_cast<VisualID>(value);
    };
    EXPECT_EQ(visualIdOf("double2"), doubleVisual);
    mapping->appVisual.visualId = 0;
    EXPECT_EQ(visualIdOf("double2"), 0x999U);
    mapping->appVisual.visualId = static_cast<int32_t>(doubleVisual);
    const int count = std::exchange(mapping->numLocalFbconfigs, 0);
    EXPECT_EQ(visualIdOf("double2"), 0x999U);
    mapping->numLocalFbconfigs = count;
    EXPECT_EQ(timesSaid('D', "kor_glXGetFBConfigAttrib", "GLX_VISUAL_ID FAILED for visual id 2457"),
              2U);
}

TEST_F(XlibFaults, TheResultOfAVisualIdQueryIsTheDrivers) {
    begin();
    int value = 7;
    gl.answer("glXGetFBConfigAttrib", GLX_BAD_VALUE);
    EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config("double1"), GLX_VISUAL_ID, &value),
              GLX_BAD_VALUE);
    gl.succeed("glXGetFBConfigAttrib");
    EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config("double1"), GLX_VISUAL_ID, &value), 0);
}

TEST_F(XlibFaults, WithoutMemoryForTheirArrayThereAreNoFbconfigs) {
    begin();
    int count = 0;
    kor::test::failingAllocation = localScript.configs.size() * sizeof(GLXFBConfig);
    EXPECT_EQ(kor_glXGetFBConfigs(app, 0, &count), nullptr);
    kor::test::failingAllocation = 0;
    EXPECT_EQ(timesSaid('E', "kor_glXChooseFBConfig", "could not allocate fbconfig array"), 1U);
    GLXFBConfig* configs = kor_glXGetFBConfigs(app, 0, &count);
    EXPECT_NE(configs, nullptr);
    XFree(configs);
}

TEST_F(XlibFaults, AFontThatCannotBeQueriedIsAnError) {
    begin();
    kor::test::queryFont.arm();
    useFont();
    EXPECT_TRUE(said('E', "kor_glXUseXFont", "glXUseXFont failed."));
    EXPECT_EQ(sayings("kor_glXUseXFont").back(), "glXUseXFont failed.");
}

TEST_F(XlibFaults, AFontWithoutItsNameBuildsNoLists) {
    begin();
    kor::test::getFontProperty.arm();
    useFont();
    kor::test::getAtomName.arm();
    useFont();
    EXPECT_EQ(timesSaid('W', "kor_glXUseXFont", "Could not get fontname."), 2U);
    EXPECT_EQ(sayings("kor_glXUseXFont").back(), "Could not get fontname.");
    EXPECT_THAT(gl.callsOf("glXUseXFont"), IsEmpty());
}

TEST_F(XlibFaults, AFontThatTheLocalServerLacksIsReplacedByFixed) {
    begin();
    const std::string name = nameOfFixed();
    kor::test::record();
    kor::test::loadQueryFont.arm();
    useFont();
    const std::vector<std::string> said = sayings("kor_glXUseXFont");
    ASSERT_EQ(said.size(), 3U);
    EXPECT_EQ(said[1], "failed to load font " + name + ". Falling back to 'fixed'");
    EXPECT_THAT(loads(), ElementsAre("XLoadQueryFont(" + name + ")", "XLoadQueryFont(fixed)"));
    EXPECT_EQ(said[2], "DONE");
    EXPECT_TRUE(this->said('W', "kor_glXUseXFont", said[1]));
    EXPECT_EQ(gl.callsOf("glXUseXFont").size(), 1U);
}

TEST_F(XlibFaults, AFontIsLoadedByTheNameThatTheApplicationsServerKnowsItBy) {
    begin();
    const std::string name = nameOfFixed();
    kor::test::record();
    useFont();
    EXPECT_THAT(loads(), ElementsAre("XLoadQueryFont(" + name + ")"));
}

TEST_F(XlibFaults, AFontWithoutPropertiesBuildsNoLists) {
    begin();
    kor::test::queryFontWithoutProperties = true;
    useFont();
    kor::test::queryFontWithoutProperties = false;
    EXPECT_TRUE(said('W', "kor_glXUseXFont", "Could not get fontname."));
    EXPECT_EQ(sayings("kor_glXUseXFont").back(), "Could not get fontname.");
    EXPECT_THAT(gl.callsOf("glXUseXFont"), IsEmpty());
}

TEST_F(XlibFaults, AFontIsLoadedUnderTheLocalDisplayLock) {
    begin();
    kor::test::loadQueryFont.arm();
    listLocks();
    useFont();
    endList();
    std::vector<std::string> loading;
    for (const std::string& text : underLocks)
        if (text.rfind("XLoadQueryFont(", 0) == 0)
            loading.push_back(text.substr(text.find(')')));
    EXPECT_THAT(loading, ElementsAre("): local display", "): local display"));
    EXPECT_THAT(underLocks, Contains("XQueryFont:")) << "on the application's connection";
}

TEST_F(XlibFaults, WithoutEvenFixedNoListsAreBuilt) {
    begin();
    kor::test::loadQueryFont.arm(2);
    useFont();
    EXPECT_TRUE(said('W', "kor_glXUseXFont", "failed to load even fixed font."));
    EXPECT_EQ(sayings("kor_glXUseXFont").back(), "DONE");
    EXPECT_THAT(gl.callsOf("glXUseXFont"), IsEmpty());
}

TEST_F(XlibFaults, WithoutAConnectionOfItsOwnModeTwoBuildsNoLists) {
    set("KOR_GL_USEXFONT_MODE", "2");
    begin();
    kor::test::openDisplay.arm();
    useFont();
    EXPECT_TRUE(kor::test::openDisplay.spent());
    EXPECT_THAT(sayings("kor_glXUseXFont"), testing::SizeIs(1));
    EXPECT_THAT(gl.callsOf("glXUseXFont"), IsEmpty());
}

TEST_F(XlibFaults, ATextureOfAPixmapThatCannotBeReadIsNothing) {
    begin();
    const GLXPixmap drawable = makePixmap();
    kor::test::getImage.arm();
    kor::test::record();
    kor_glXBindTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT, nullptr);
    EXPECT_EQ(gl.callsOf("glXBindTexImageEXT").back().arguments[1], 0U);
    EXPECT_THAT(kor::test::recorded(), ElementsAre("XGetImage"));
    EXPECT_THAT(sayings("kor_glXBindTexImageEXT"), ElementsAre("START"));
}

TEST_F(XlibFaults, ATextureWithoutAGraphicsContextIsNothing) {
    begin();
    const GLXPixmap drawable = makePixmap();
    kor::test::createGc.arm();
    kor::test::record();
    kor_glXBindTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT, nullptr);
    EXPECT_EQ(gl.callsOf("glXBindTexImageEXT").back().arguments[1], 0U);
    EXPECT_THAT(kor::test::recorded(), ElementsAre("XGetImage", "XCreateGC"));
    kor::test::record();
    kor_glXBindTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT, nullptr);
    EXPECT_EQ(gl.callsOf("glXBindTexImageEXT").back().arguments[1], drawable);
    EXPECT_THAT(kor::test::recorded(),
                ElementsAre("XGetImage", "XCreateGC", "XPutImage", "XFreeGC"));
}

TEST_F(XlibFaults, APixmapThatCannotBeReadIsNotCopiedAndNobodyIsTold) {
    begin();
    const GLXPixmap drawable = makePixmap();
    ASSERT_TRUE(kor_glXMakeCurrent(app, drawable, makeContext("ctx")));
    const auto copying = [&] {
        markLog();
        kor::test::record();
        kor_glFlush();
        EXPECT_THAT(sayings("copybackPixmap"), testing::SizeIs(1));
        return kor::test::recorded();
    };
    kor::test::getImage.arm();
    EXPECT_THAT(copying(), ElementsAre("XGetImage"));
    kor::test::createGc.arm();
    EXPECT_THAT(copying(), ElementsAre("XGetImage", "XCreateGC"));
    EXPECT_THAT(copying(), ElementsAre("XGetImage", "XCreateGC", "XPutImage", "XFreeGC"));
}

TEST_F(XlibFaults, PixmapsAreCopiedEitherWayUnderTheLocalDisplayLock) {
    begin();
    const GLXPixmap drawable = makePixmap();
    ASSERT_TRUE(kor_glXMakeCurrent(app, drawable, makeContext("ctx")));
    const auto copying = ElementsAre("XGetImage: local display", "XCreateGC: local display",
                                     "XPutImage: local display", "XFreeGC: local display");
    listLocks();
    kor_glFlush();
    EXPECT_THAT(underLocks, copying);
    underLocks.clear();
    kor_glXBindTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT, nullptr);
    endList();
    EXPECT_THAT(underLocks, copying);
}

TEST_F(XlibFaults, AReleasedTextureCopiesNothingBack) {
    begin();
    const GLXPixmap drawable = makePixmap();
    kor_glXBindTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT, nullptr);
    std::vector<std::string> held;
    gl.onCall("glXReleaseTexImageEXT", [&](const fake::Call&) { held = heldLocks(); });
    kor::test::record();
    kor_glXReleaseTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT);
    gl.onCall("glXReleaseTexImageEXT", nullptr);
    EXPECT_THAT(kor::test::recorded(), IsEmpty());
    EXPECT_THAT(held, ElementsAre("local display"));
    EXPECT_EQ(gl.callsOf("glXReleaseTexImageEXT").size(), 1U);
}

TEST_F(XlibFaults, ASwapWithoutALocalDisplayOnlyFinishes) {
    begin();
    const Window window = makeWindow(40, 40);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    Display* second = XOpenDisplay(appName.c_str());
    gl.clearCalls();
    std::thread([&] {
        kor::test::openDisplay.arm(3, 1); // its own connection opens, the local ones do not
        kor_glXSwapBuffers(second, window);
    }).join();
    kor::test::openDisplay.arm(0);
    EXPECT_EQ(sayings("kor_glXSwapBuffers").back(), "No local display");
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFinish()"));
}

TEST_F(XlibFaults, AWindowOfADisplayThatCannotBeSetUpIsAskedForAllTheSame) {
    begin();
    const Window window = makeWindow(40, 40);
    Display* second = XOpenDisplay(appName.c_str());
    ASSERT_NE(second, nullptr);
    kor::test::openDisplay.arm(1000);
    std::thread([&] {
        EXPECT_FALSE(getDrawableInfo(second, window, config("double1"), nullptr));
    }).join();
    kor::test::openDisplay.arm(0);
    EXPECT_THAT(sayings("getDrawableInfo"),
                ElementsAre(format("failed to update window info (appDrawable %x).",
                                   static_cast<unsigned>(window))));
    XCloseDisplay(second);
}

TEST_F(XlibFaults, AFrameNeedsNoClientAttributes) {
    gl.lack("glPushClientAttrib");
    gl.lack("glPopClientAttrib");
    begin();
    const Window window = makeWindow(40, 40);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(gl.waitForCalls("glReadPixels", 1, 30000));
    letPaintsArrive();
}

TEST_F(XlibFaults, WithoutTextureFunctionsTexturesAreNotBound) {
    gl.lack("glXBindTexImageEXT");
    gl.lack("glXReleaseTexImageEXT");
    begin();
    const GLXPixmap drawable = makePixmap();
    kor_glXBindTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT, nullptr);
    kor_glXReleaseTexImageEXT(app, drawable, GLX_FRONT_LEFT_EXT);
    EXPECT_THAT(sayings("kor_glXBindTexImageEXT"), ElementsAre("START"));
    EXPECT_THAT(sayings("kor_glXReleaseTexImageEXT"), ElementsAre("START"));
}
