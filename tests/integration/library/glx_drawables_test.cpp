// GLX windows, pbuffers and pixmaps as the application makes and asks them.

#include "displays.h"

#include "drawable/registry.h"

#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class GlxDrawables : public Displays {
  protected:
    static std::vector<int> geometryOf(GLXDrawable drawable) {
        kor::IRect rect;
        findLocalDrawable(drawable)->getGeometry(&rect);
        return {rect.x, rect.y, rect.width, rect.height};
    }

    Pixmap makePixmap(int width, int height) const {
        return XCreatePixmap(app, DefaultRootWindow(app), width, height, 24);
    }

    unsigned query(GLXDrawable drawable, int attribute) const {
        unsigned value = 7;
        kor_glXQueryDrawable(app, drawable, attribute, &value);
        return value;
    }
};

} // namespace

TEST_F(GlxDrawables, AGlxWindowIsTheWindowItselfAndNoDriverIsAsked) {
    start();
    const Window window = makeWindow(20, 20);
    EXPECT_EQ(kor_glXCreateWindow(app, config("double1"), window, nullptr), window);
    kor_glXDestroyWindow(app, window);
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_EQ(kor_glXCreateWindow(nullptr, config("double1"), window, nullptr), None);
}

TEST_F(GlxDrawables, APbufferIsMadeWithTheBestFbconfigAndRemembersTheApplications) {
    start();
    const int list[] = {GLX_PBUFFER_WIDTH, 64, 0x7777, 3, GLX_PBUFFER_HEIGHT, 32, None};
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double2"), list);
    const fake::Call call = gl.callsOf("glXCreatePbuffer").back();
    EXPECT_EQ(call.arguments[1], fake::word(config("double1")));
    EXPECT_EQ(call.arguments[2], fake::word(&list[0]));
    const kor::gl::DrawableRef record = findLocalDrawable(pbuffer);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->type, kor::gl::PbufferDrawable);
    EXPECT_EQ(record->localDrawable.load(), pbuffer);
    EXPECT_EQ(record->fbconfig, config("double2"));
    EXPECT_FALSE(record->fbconfigChanged(config("double2")));
    EXPECT_TRUE(record->fbconfigChanged(config("double1")));
    EXPECT_THAT(geometryOf(pbuffer), ElementsAre(0, 0, 100, 100));
    EXPECT_THAT(sayings("kor_glXCreatePbuffer"),
                ElementsAre("fbconfig b20",
                            format("attr, value: GLX_PBUFFER_WIDTH (%d), 64", GLX_PBUFFER_WIDTH),
                            format("attr, value: UNKNOWN (%d), 3", 0x7777),
                            format("attr, value: GLX_PBUFFER_HEIGHT (%d), 32", GLX_PBUFFER_HEIGHT),
                            "forcing fbconfig b10"));
}

TEST_F(GlxDrawables, EveryPbufferAttributeHasItsName) {
    start();
    const int list[] = {GLX_PRESERVED_CONTENTS, 1, GLX_LARGEST_PBUFFER, 0, None};
    kor_glXCreatePbuffer(app, config("double1"), list);
    EXPECT_TRUE(
        said('D', "kor_glXCreatePbuffer",
             format("attr, value: GLX_PRESERVED_CONTENTS (%d), 1", GLX_PRESERVED_CONTENTS)));
    EXPECT_TRUE(said('D', "kor_glXCreatePbuffer",
                     format("attr, value: GLX_LARGEST_PBUFFER (%d), 0", GLX_LARGEST_PBUFFER)));
}

TEST_F(GlxDrawables, AnEmptyOrMissingListLogsNoPairs) {
    start();
    const int empty[] = {None};
    kor_glXCreatePbuffer(app, config("double1"), empty);
    kor_glXCreatePbuffer(app, config("double1"), nullptr);
    EXPECT_THAT(sayings("kor_glXCreatePbuffer"),
                ElementsAre("fbconfig b10", "forcing fbconfig b10", "fbconfig b10",
                            "forcing fbconfig b10"));
}

TEST_F(GlxDrawables, APbufferTakesTheApplicationsFbconfigWhenTheSettingSaysSo) {
    set("KOR_GL_FORCE_BEST_FBCONFIG", "0");
    start();
    kor_glXCreatePbuffer(app, config("double2"), nullptr);
    EXPECT_EQ(gl.callsOf("glXCreatePbuffer").back().text, "glXCreatePbuffer(local, double2, null)");
}

TEST_F(GlxDrawables, AnSgixPbufferIsNeverForced) {
    start();
    const GLXPbuffer pbuffer = kor_glXCreateGLXPbufferSGIX(app, config("double2"), 30, 20, nullptr);
    EXPECT_EQ(gl.callsOf("glXCreateGLXPbufferSGIX").back().text,
              "glXCreateGLXPbufferSGIX(local, double2, 30, 20, null)");
    const kor::gl::DrawableRef record = findLocalDrawable(pbuffer);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->type, kor::gl::PbufferDrawable);
    EXPECT_EQ(record->localDrawable.load(), pbuffer);
    EXPECT_EQ(record->fbconfig, config("double2"));
    EXPECT_EQ(record->visualInfo, _getLVI(app, doubleVisual, nullptr));
    EXPECT_THAT(geometryOf(pbuffer), ElementsAre(0, 0, 100, 100));
    EXPECT_THAT(sayings("kor_glXCreateGLXPbufferSGIX"), ElementsAre("fbconfig b20"));
    int list[] = {GLX_PRESERVED_CONTENTS, 1, None};
    kor_glXCreateGLXPbufferSGIX(app, config("double2"), 30, 20, list);
    EXPECT_EQ(gl.callsOf("glXCreateGLXPbufferSGIX").back().arguments[4], fake::word(&list[0]));
}

TEST_F(GlxDrawables, APixmapIsBackedByALocalPixmapOfItsSize) {
    start();
    const Pixmap pixmap = makePixmap(33, 22);
    const int list[] = {GLX_TEXTURE_TARGET_EXT, GLX_TEXTURE_2D_EXT, None};
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double2"), pixmap, list);
    const kor::gl::DrawableRef record = findLocalDrawable(drawable);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->type, kor::gl::PixmapDrawable);
    EXPECT_EQ(record->appPixmap, pixmap);
    EXPECT_EQ(record->localDrawable.load(), drawable);
    EXPECT_EQ(record->fbconfig, config("double2"));
    EXPECT_EQ(record->visualInfo, _getLVI(app, doubleVisual, nullptr));
    EXPECT_THAT(sayings("kor_glXCreatePixmap"),
                ElementsAre("fbconfig b20", "forcing fbconfig b10"));
    EXPECT_THAT(geometryOf(drawable), ElementsAre(0, 0, 33, 22));
    const fake::Call call = gl.callsOf("glXCreatePixmap").back();
    EXPECT_EQ(call.arguments[1], fake::word(config("double1")));
    EXPECT_EQ(call.arguments[2], record->localPixmap);
    EXPECT_EQ(call.arguments[3], fake::word(&list[0]));
    Window root = None;
    int x = 0;
    int y = 0;
    unsigned width = 0;
    unsigned height = 0;
    unsigned border = 0;
    unsigned depth = 0;
    ASSERT_TRUE(XGetGeometry(local(), record->localPixmap, &root, &x, &y, &width, &height, &border,
                             &depth));
    EXPECT_EQ(width, 33U);
    EXPECT_EQ(height, 22U);
    EXPECT_EQ(depth, 24U);
}

TEST_F(GlxDrawables, APixmapTakesTheApplicationsFbconfigWhenTheSettingSaysSo) {
    set("KOR_GL_FORCE_BEST_FBCONFIG", "0");
    start();
    kor_glXCreatePixmap(app, config("double2"), makePixmap(8, 8), nullptr);
    EXPECT_EQ(gl.callsOf("glXCreatePixmap").back().arguments[1], fake::word(config("double2")));
    EXPECT_THAT(sayings("kor_glXCreatePixmap"), ElementsAre("fbconfig b20"));
}

TEST_F(GlxDrawables, TheLocalPixmapOutlivesTheGlxPixmap) {
    start();
    const GLXPixmap drawable =
        kor_glXCreatePixmap(app, config("double1"), makePixmap(33, 22), nullptr);
    const Pixmap backing = findLocalDrawable(drawable)->localPixmap;
    kor_glXDestroyPixmap(app, drawable);
    EXPECT_FALSE(findLocalDrawable(drawable));
    Window root = None;
    int ignored = 0;
    unsigned unused = 0;
    EXPECT_TRUE(XGetGeometry(local(), backing, &root, &ignored, &ignored, &unused, &unused, &unused,
                             &unused));
}

TEST_F(GlxDrawables, AllPixmapsShareOneHiddenParent) {
    start();
    kor_glXCreatePixmap(app, config("double1"), makePixmap(8, 8), nullptr);
    Window root = None;
    Window parent = None;
    Window* children = nullptr;
    unsigned before = 0;
    XQueryTree(local(), DefaultRootWindow(local()), &root, &parent, &children, &before);
    ASSERT_EQ(before, 1U);
    XWindowAttributes attributes;
    XGetWindowAttributes(local(), children[0], &attributes);
    EXPECT_EQ(attributes.width, 10);
    EXPECT_EQ(attributes.height, 10);
    EXPECT_EQ(attributes.map_state, IsUnmapped);
    XFree(children);
    kor_glXCreatePixmap(app, config("double1"), makePixmap(8, 8), nullptr);
    unsigned after = 0;
    XQueryTree(local(), DefaultRootWindow(local()), &root, &parent, &children, &after);
    EXPECT_EQ(after, before);
    XFree(children);
    // The local connection of another application display uses the same one.
    std::thread([&] {
        Display* second = XOpenDisplay(appName.c_str());
        ASSERT_NE(second, nullptr);
        const Pixmap pixmap = XCreatePixmap(second, DefaultRootWindow(second), 8, 8, 24);
        const GLXPixmap drawable = kor_glXCreatePixmap(second, config("double1"), pixmap, nullptr);
        EXPECT_TRUE(findLocalDrawable(drawable));
        XSync(Displays::local(), False);
    }).join();
    XQueryTree(local(), DefaultRootWindow(local()), &root, &parent, &children, &after);
    EXPECT_EQ(after, before);
    XFree(children);
}

TEST_F(GlxDrawables, APixmapOfAVisualUsesTheBestFbconfigWhateverTheSetting) {
    set("KOR_GL_FORCE_BEST_FBCONFIG", "0");
    start();
    XVisualInfo visual = visualInfo(singleVisual);
    const GLXPixmap drawable = kor_glXCreateGLXPixmap(app, &visual, makePixmap(8, 8));
    const fake::Call call = gl.callsOf("glXCreatePixmap").back();
    EXPECT_EQ(call.arguments[1], fake::word(config("single")));
    EXPECT_EQ(call.arguments[3], 0U);
    EXPECT_EQ(findLocalDrawable(drawable)->fbconfig, config("single"));
    EXPECT_EQ(findLocalDrawable(drawable)->visualInfo, _getLVI(app, singleVisual, nullptr));
    EXPECT_THAT(sayings("kor_glXCreateGLXPixmap"),
                ElementsAre(format("visual id %x", static_cast<unsigned>(singleVisual))));
    EXPECT_THAT(gl.callsOf("glXCreateGLXPixmap"), IsEmpty());
}

TEST_F(GlxDrawables, TheOldPixmapNameForwardsWithoutAttributes) {
    start();
    const GLXPixmap drawable =
        kor_glXCreateGLXPixmapWithConfigSGIX(app, config("double2"), makePixmap(8, 8));
    EXPECT_EQ(gl.callsOf("glXCreatePixmap").back().arguments[3], 0U);
    kor_glXDestroyGLXPixmap(app, drawable);
    EXPECT_FALSE(findLocalDrawable(drawable));
}

TEST_F(GlxDrawables, DestroyingWithTheWrongFunctionChangesNothing) {
    start();
    const GLXPixmap pixmap = kor_glXCreatePixmap(app, config("double1"), makePixmap(8, 8), nullptr);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    kor_glXDestroyPbuffer(app, pixmap);
    EXPECT_TRUE(findLocalDrawable(pixmap));
    kor_glXDestroyPixmap(app, pbuffer);
    EXPECT_TRUE(findLocalDrawable(pbuffer));
    kor_glXDestroyGLXPbufferSGIX(app, pbuffer);
    EXPECT_FALSE(findLocalDrawable(pbuffer));
    kor_glXDestroyPbuffer(app, 0x1234567);
}

TEST_F(GlxDrawables, AWindowAnswersWithItsPbuffer) {
    start();
    const Window window = makeWindow(4, 40);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    gl.clearCalls();
    gl.onCall("glXQueryDrawable", [&](const fake::Call& call) {
        EXPECT_THAT(heldLocks(), ElementsAre("local display"));
        *reinterpret_cast<unsigned*>(call.arguments[3]) = 10;
    });
    EXPECT_EQ(query(window, GLX_WIDTH), 10U);
    gl.onCall("glXQueryDrawable", nullptr);
    EXPECT_EQ(gl.callsOf("glXQueryDrawable").back().text,
              format("glXQueryDrawable(local, %s, %d, out)",
                     gl.nameOf(findLocalDrawable(window)->localDrawable).c_str(), GLX_WIDTH));
    EXPECT_TRUE(said('D', "kor_glXQueryDrawable", "querying GLX_WIDTH"));
}

TEST_F(GlxDrawables, AnUnknownDrawableIsAskedOnTheApplicationDisplayWithoutTheLock) {
    start();
    const Window window = makeWindow(20, 20);
    gl.name(window, "window");
    std::vector<std::string> held = {"never called"};
    gl.onCall("glXQueryDrawable", [&](const fake::Call&) { held = heldLocks(); });
    query(window, GLX_HEIGHT);
    gl.onCall("glXQueryDrawable", nullptr);
    EXPECT_THAT(held, IsEmpty());
    EXPECT_EQ(gl.callsOf("glXQueryDrawable").back().text,
              format("glXQueryDrawable(app, window, %d, out)", GLX_HEIGHT));
}

TEST_F(GlxDrawables, TheAttributeAskedForIsLogged) {
    start();
    const std::vector<std::pair<int, const char*>> attributes = {
        {GLX_FBCONFIG_ID, "querying GLX_FBCONFIG_ID"},
        {GLX_PRESERVED_CONTENTS, "querying GLX_PRESERVED_CONTENTS"},
        {GLX_LARGEST_PBUFFER, "querying GLX_LARGEST_PBUFFER"},
        {GLX_WIDTH, "querying GLX_WIDTH"},
        {GLX_HEIGHT, "querying GLX_HEIGHT"},
        {0x7777, "querying 30583"}};
    for (const auto& [attribute, text] : attributes) {
        markLog();
        query(5, attribute);
        EXPECT_THAT(sayings("kor_glXQueryDrawable"), ElementsAre("START", text));
    }
}

TEST_F(GlxDrawables, TheSgixQueryKnowsPbuffersOnly) {
    start();
    unsigned value = 7;
    EXPECT_EQ(kor_glXQueryGLXPbufferSGIX(app, 5, GLX_WIDTH, &value), 2);
    const GLXPixmap pixmap = kor_glXCreatePixmap(app, config("double1"), makePixmap(8, 8), nullptr);
    EXPECT_EQ(kor_glXQueryGLXPbufferSGIX(app, pixmap, GLX_WIDTH, &value), 2);
    EXPECT_EQ(value, 7U);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    gl.answer("glXQueryGLXPbufferSGIX", 11);
    std::vector<std::string> held;
    gl.onCall("glXQueryGLXPbufferSGIX", [&](const fake::Call&) { held = heldLocks(); });
    EXPECT_EQ(kor_glXQueryGLXPbufferSGIX(app, pbuffer, GLX_WIDTH, &value), 11);
    gl.onCall("glXQueryGLXPbufferSGIX", nullptr);
    EXPECT_THAT(fake::texts(gl.callsOf("glXQueryGLXPbufferSGIX")),
                ElementsAre(format("glXQueryGLXPbufferSGIX(local, %s, %d, out)",
                                   gl.nameOf(pbuffer).c_str(), GLX_WIDTH)));
    EXPECT_EQ(gl.callsOf("glXQueryGLXPbufferSGIX")[0].arguments[3], fake::word(&value));
    EXPECT_THAT(held, ElementsAre("local display"));
}

TEST_F(GlxDrawables, DriverCallsHoldTheLocalDisplayLockAlone) {
    start();
    kor_glXCreatePbuffer(app, config("double1"), nullptr);
    std::vector<std::string> wrong;
    gl.onCall("", [&](const fake::Call& call) {
        if (heldLocks() != std::vector<std::string>{"local display"})
            wrong.push_back(call.text);
    });
    kor_glXCreatePbuffer(app, config("double1"), nullptr);
    kor_glXCreateGLXPbufferSGIX(app, config("double1"), 1, 1, nullptr);
    kor_glXCreatePixmap(app, config("double1"), makePixmap(8, 8), nullptr);
    gl.onCall("", nullptr);
    EXPECT_THAT(wrong, IsEmpty());
}
