// What comes before what inside the entry points: the driver's calls, the locks around them and the
// records' ends, where nothing but their order tells a right library from a wrong one.

#include "frames.h"

#include "context/context_map.h"
#include "context/deleted_drawables.h"
#include "core/tsd.h"
#include "display/displays.h"
#include "framework/wait_until.h"

#include <algorithm>
#include <thread>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

class CallOrder : public Frames {
  protected:
    /// This thread's calls of these functions, by their names.
    std::vector<std::string> namesOf(const std::vector<std::string>& wanted) const {
        std::vector<std::string> names;
        for (const fake::Call& call : gl.calls())
            if (call.thread == gettid() &&
                std::find(wanted.begin(), wanted.end(), call.name) != wanted.end())
                names.push_back(call.name);
        return names;
    }

    /// The library's locks at each call of that function while the work is done, on any thread.
    std::vector<std::vector<std::string>> locksAt(const std::string& function,
                                                  const std::function<void()>& work) {
        std::vector<std::vector<std::string>> held;
        gl.onCall(function, [&](const fake::Call&) { held.push_back(heldLocks()); });
        work();
        gl.onCall(function, nullptr);
        return held;
    }

    static GLXContext foreign() { return reinterpret_cast<GLXContext>(0x5550); }
};

} // namespace

TEST_F(CallOrder, BothFlushesComeBeforeTheLocalMakeCurrent) {
    begin(40, 40);
    const Window second = makeWindow(30, 30);
    ASSERT_TRUE(kor_glXMakeCurrent(app, second, context));
    EXPECT_THAT(namesOf({"glFlush", "glXMakeCurrent"}),
                ElementsAre("glFlush", "glFlush", "glXMakeCurrent"));
    gl.clearCalls();
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, window, context));
    EXPECT_THAT(namesOf({"glFlush", "glXMakeContextCurrent"}),
                ElementsAre("glFlush", "glFlush", "glXMakeContextCurrent"));
}

TEST_F(CallOrder, TheReadDrawablesRecordIsMadeBeforeTheSecondFlush) {
    begin(40, 40);
    const Window draw = makeWindow(30, 30);
    const Window read = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, draw, read, context));
    std::vector<std::string> names = namesOf({"glFlush", "glXCreatePbuffer"});
    names.erase(std::unique(names.begin(), names.end()), names.end());
    EXPECT_THAT(names, ElementsAre("glFlush", "glXCreatePbuffer", "glFlush"));
}

TEST_F(CallOrder, AnUnknownReadDrawableEndsAMakeCurrentBeforeTheSecondFlush) {
    begin(40, 40);
    const Window draw = makeWindow(30, 30);
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, draw, 0x1234567, context));
    EXPECT_EQ(gl.callsOf("glFlush").size(), 1U);
}

TEST_F(CallOrder, WithoutALocalDisplayTheContextsFbconfigIsNotLookedUp) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_FALSE(kor_glXMakeCurrent(app, 5, foreign()));
    EXPECT_EQ(sayings("kor_glXMakeCurrent").back(), "no local display");
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, 5, 5, foreign()));
    EXPECT_EQ(sayings("kor_glXMakeContextCurrent").back(), "no local display");
    EXPECT_THAT(sayings("getFBConfig"), IsEmpty());
}

TEST_F(CallOrder, ACopiedContextIsNotedWhenTheDriverHasCopiedIt) {
    begin(40, 40);
    GLXContext copy = makeContext("copy");
    kor::gl::ContextInfo* record = nullptr;
    {
        const kor::Lock lock(kor::gl::getContextMutex());
        record = kor::gl::findContext(copy);
    }
    ASSERT_NE(record, nullptr);
    kor_glDrawBuffer(GL_FRONT);
    std::vector<GLenum> seen;
    gl.onCall("glXCopyContext", [&](const fake::Call&) { seen.push_back(record->drawBuffer); });
    kor_glXCopyContext(app, context, copy, 0);
    gl.onCall("glXCopyContext", nullptr);
    EXPECT_THAT(seen, ElementsAre(static_cast<GLenum>(GL_BACK)));
    EXPECT_EQ(record->drawBuffer, static_cast<GLenum>(GL_FRONT));
}

TEST_F(CallOrder, ADestroyedDrawablesObjectGoesOutsideTheRegistrysLock) {
    begin(40, 40);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    EXPECT_THAT(locksAt("glXDestroyPbuffer", [&] { kor_glXDestroyPbuffer(app, pbuffer); }),
                ElementsAre(ElementsAre("local display")));
    const Pixmap pixmap = XCreatePixmap(app, window, 8, 8, 24);
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
    EXPECT_THAT(locksAt("glXDestroyPixmap", [&] { kor_glXDestroyPixmap(app, drawable); }),
                ElementsAre(ElementsAre("local display")));
}

TEST_F(CallOrder, DeletedWindowsGoInTheOrderInWhichTheyAreFound) {
    begin(40, 40);
    std::vector<Window> windows;
    std::vector<std::string> pbuffers; // by window
    for (int i = 0; i < 3; ++i) {
        windows.push_back(makeWindow(20, 20));
        ASSERT_TRUE(kor_glXMakeCurrent(app, windows.back(), context));
        pbuffers.push_back(gl.nameOf(findLocalDrawable(windows.back())->localDrawable));
    }
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    for (const Window each : windows)
        destroyWindow(each);
    gl.clearCalls();
    markLog();
    clearDeletedDrawables();
    std::vector<std::string> found;
    for (const std::string& line : sayings("clearDeletedDrawables"))
        for (size_t i = 0; i < windows.size(); ++i)
            if (line == format("deleting 0x%x", static_cast<unsigned>(windows[i])))
                found.push_back(pbuffers[i]);
    std::vector<std::string> destroyed;
    for (const fake::Call& call : gl.callsOf("glXDestroyPbuffer"))
        if (const std::string name = gl.nameOf(call.arguments[1]);
            std::find(pbuffers.begin(), pbuffers.end(), name) != pbuffers.end())
            destroyed.push_back(name);
    EXPECT_EQ(found.size(), 3U);
    EXPECT_EQ(destroyed, found);
}

TEST_F(CallOrder, ASpareContextIsMadeUnderTheLocalDisplaysLock) {
    begin(40, 40);
    ASSERT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    const Window second = makeWindow(30, 30);
    const auto held = locksAt("glXCreateNewContext", [&] {
        std::thread([&] {
            EXPECT_TRUE(kor_glXMakeCurrent(app, second, context));
            EXPECT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
        }).join();
    });
    EXPECT_THAT(held, ElementsAre(ElementsAre("local display")));
}

TEST_F(CallOrder, ASpareContextThatCannotBeMadeDoesNotStopTheRecord) {
    begin(40, 40);
    ASSERT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    const Window second = makeWindow(30, 30);
    std::thread([&] {
        gl.failCall("glXCreateNewContext", 1);
        EXPECT_TRUE(kor_glXMakeCurrent(app, second, context));
        EXPECT_EQ(getTSD()->throwawayContext, nullptr);
        EXPECT_EQ(kor_glXGetCurrentDrawable(), second);
        EXPECT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    }).join();
    EXPECT_TRUE(said('D', "getDrawableInfo", "creating throwaway ctx"));
    EXPECT_TRUE(findLocalDrawable(second));
}

TEST_F(CallOrder, AnAttributeIsNotToldOfADisplayThatCannotBeSetUp) {
    start();
    unsigned value = 7;
    kor_glXQueryDrawable(nullptr, 5, GLX_WIDTH, &value);
    EXPECT_EQ(value, 0U);
    EXPECT_THAT(sayings("kor_glXQueryDrawable"), ElementsAre("START"));
}

TEST_F(CallOrder, APixmapsGeometryIsAskedForBeforeItsMapping) {
    begin(40, 40);
    const Pixmap pixmap = XCreatePixmap(app, window, 8, 8, 24);
    const auto requestsOf = [&](const std::function<GLXPixmap()>& create) {
        const unsigned long before = NextRequest(app);
        EXPECT_EQ(create(), None);
        return NextRequest(app) - before;
    };
    const auto unmapped = reinterpret_cast<GLXFBConfig>(0x9990);
    EXPECT_EQ(requestsOf([&] { return kor_glXCreatePixmap(app, unmapped, pixmap, nullptr); }), 1U);
    EXPECT_TRUE(said('D', "kor_glXCreatePixmap", "no lvi."));
    XVisualInfo visual = visualInfo(lonelyVisual);
    EXPECT_EQ(requestsOf([&] { return kor_glXCreateGLXPixmap(app, &visual, pixmap); }), 1U);
    EXPECT_TRUE(said('D', "kor_glXCreateGLXPixmap", "FAILED for no lvi."));
}

namespace {

/// Errors for the user are on stderr too, wherever the log goes.
class Echo : public Displays {
  protected:
    static std::string stderrOf(const std::function<void()>& work) {
        testing::internal::CaptureStderr();
        work();
        return testing::internal::GetCapturedStderr();
    }
};

} // namespace

TEST_F(Echo, OfAServerWithoutTheExtension) {
    start();
    Display* plain = XOpenDisplay(localName.c_str());
    EXPECT_EXIT(_setupAppDisplay(plain, nullptr), testing::ExitedWithCode(20),
                "^ERROR: You should install Xkor to use KOR \\(KOR-V1 extension not found on "
                ":[0-9.]+\\)\\.\n$");
    XCloseDisplay(plain);
}

TEST_F(Echo, OfTheApplicationsOwnServerAsLocalDisplay) {
    set("KOR_GL_DISPLAY", appName.c_str());
    start();
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(_setupAppDisplay(app, nullptr)); }),
              "ERROR: Local display is the same as the application display.\n");
}

TEST_F(Echo, OfALocalDisplayThatCannotBeOpened) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_EQ(stderrOf([&] { EXPECT_TRUE(_setupAppDisplay(app, nullptr)); }),
              "ERROR: Cannot open connection to local display :4711.\n");
}

TEST_F(Echo, OfAScreenWithoutVisuals) {
    start();
    EXPECT_EXIT(initializeVisualMap(app, 99, nullptr), testing::ExitedWithCode(20),
                "^ERROR: FATAL: cannot find any visual in the display\\.\n$");
}
