// What ends when the application closes a display, and what does not.

#include "displays.h"

#include "context/context_map.h"
#include "core/tsd.h"
#include "display/connections.h"
#include "display/displays.h"
#include "drawable/registry.h"

#include <X11/Xutil.h>
#include <latch>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DisplayEnd : public Displays {
  protected:
    DisplayEnd() : other(XOpenDisplay(appName.c_str())) {}

    /// A window of the second display's own, shown.
    Window makeOthersWindow(int width = 20, int height = 20) const {
        const XVisualInfo info = visualInfo(doubleVisual);
        XSetWindowAttributes settings{};
        settings.colormap =
            XCreateColormap(other, DefaultRootWindow(other), info.visual, AllocNone);
        settings.override_redirect = True;
        const Window window =
            XCreateWindow(other, DefaultRootWindow(other), 0, 0, width, height, 0, info.depth,
                          InputOutput, info.visual, CWColormap | CWOverrideRedirect, &settings);
        XMapRaised(other, window);
        XSync(other, False);
        return window;
    }

    GLXContext makeOthersContext() {
        return kor_glXCreateNewContext(other, config("double1"), GLX_RGBA_TYPE, nullptr, True);
    }

    static kor::gl::ContextInfo* record(GLXContext context) {
        const kor::Lock lock(kor::gl::getContextMutex());
        return kor::gl::findContext(context);
    }

    static size_t registered() {
        const kor::Lock lock(kor::gl::getLocalDrawablesMutex());
        return kor::gl::getLocalDrawablesList().size();
    }

    size_t timesClosed() const { return sayings("_unsetLocalDisplay").size(); }

    void expectNoErrors() const {
        for (const LogLine& line : log())
            EXPECT_NE(line.level, 'E') << line.text();
    }

    Display* other;
};

/// What a front does that gives every display the same connection.
Display* shared = nullptr;
int users = 0;
Display* share(Display* display, int role) {
    if (role != kor::gl::LocalConnection)
        return display;
    if (shared == nullptr) {
        shared = display;
    } else if (display != nullptr) {
        XCloseDisplay(display);
    }
    ++users;
    return shared;
}
void giveBack(Display* display, int /*role*/) {
    EXPECT_EQ(display, shared);
    if (--users == 0) {
        XCloseDisplay(display);
        shared = nullptr;
    }
}

} // namespace

TEST_F(DisplayEnd, TakesTheRecordsOfItsDrawablesAndContextsAndTheLocalConnectionWithIt) {
    set("KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT", "1");
    start();
    const Window window = makeOthersWindow();
    const Pixmap pixmap = XCreatePixmap(other, DefaultRootWindow(other), 8, 8, 24);
    GLXContext context = makeOthersContext();
    ASSERT_TRUE(kor_glXMakeCurrent(other, window, context));
    ASSERT_NE(kor_glXCreatePbuffer(other, config("double1"), nullptr), None);
    ASSERT_NE(kor_glXCreatePixmap(other, config("double1"), pixmap, nullptr), None);
    ASSERT_EQ(registered(), 3U);
    gl.clearCalls();
    markLog();
    XCloseDisplay(other);

    EXPECT_EQ(registered(), 0U);
    EXPECT_EQ(record(context), nullptr);
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), None);
    EXPECT_EQ(getTSD()->appDisplay, nullptr);
    EXPECT_EQ(timesClosed(), 1U);
    EXPECT_EQ(gl.calls().front().text, "glXMakeCurrent(local, 0, null)");
    EXPECT_EQ(gl.callsOf("glXDestroyPbuffer").size(), 3U); // the window's two and the pbuffer
    EXPECT_EQ(gl.callsOf("glXDestroyPixmap").size(), 1U);
    EXPECT_EQ(gl.callsOf("glXDestroyContext").size(), 1U);
    expectNoErrors();
}

TEST_F(DisplayEnd, LeavesWhatBelongsToOthersAlone) {
    start();
    const Window window = makeWindow(20, 20);
    GLXContext context = makeContext("ctx");
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    GLXContext others = makeOthersContext();
    gl.clearCalls();
    XCloseDisplay(other);
    EXPECT_EQ(record(others), nullptr);
    EXPECT_NE(record(context), nullptr);
    EXPECT_EQ(kor_glXGetCurrentContext(), context);
    EXPECT_EQ(registered(), 1U);
    EXPECT_THAT(gl.callsOf("glXMakeCurrent"), IsEmpty());
}

TEST_F(DisplayEnd, HappensOnAThreadThatHasNeverCalledUs) {
    start();
    makeOthersContext();
    markLog();
    std::thread([&] { XCloseDisplay(other); }).join();
    EXPECT_EQ(timesClosed(), 1U);
    expectNoErrors();
    // This thread worked on it, and makes nothing of that any more.
    EXPECT_EQ(getTSD()->appDisplay, nullptr);
    EXPECT_EQ(local(), nullptr);
    expectNoErrors();
    EXPECT_TRUE(_setupAppDisplay(app, nullptr));
    EXPECT_NE(local(), nullptr);
}

TEST_F(DisplayEnd, IsNoMatterAfterTheLibrarysEnd) {
    start();
    GLXContext context = makeOthersContext();
    kor_fini();
    markLog();
    XCloseDisplay(other);
    EXPECT_NE(record(context), nullptr);
    EXPECT_EQ(timesClosed(), 0U);
}

TEST_F(DisplayEnd, WaitsForTheThreadThatHasAContextCurrent) {
    start();
    makeOthersContext(); // the local connection is this thread's, too
    const Window window = makeOthersWindow();
    std::latch current(1);
    std::latch closed(1);
    GLXContext context = nullptr;
    std::thread thread([&] {
        context = makeOthersContext();
        ASSERT_TRUE(kor_glXMakeCurrent(other, window, context));
        current.count_down();
        closed.wait();
        EXPECT_TRUE(record(context)->destroyed);
        EXPECT_EQ(timesClosed(), 0U);
        EXPECT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    });
    current.wait();
    XCloseDisplay(other);
    closed.count_down();
    thread.join();
    EXPECT_EQ(record(context), nullptr);
    EXPECT_EQ(timesClosed(), 1U);
}

TEST_F(DisplayEnd, DoesNotWaitForAThreadThatIsGone) {
    start();
    const Window window = makeOthersWindow();
    GLXContext context = nullptr;
    std::thread([&] {
        context = makeOthersContext();
        ASSERT_TRUE(kor_glXMakeCurrent(other, window, context));
    }).join();
    XCloseDisplay(other);
    EXPECT_EQ(record(context), nullptr);
    EXPECT_EQ(timesClosed(), 1U);
}

TEST_F(DisplayEnd, LeavesAWindowOfAnotherClientToTheThreadThatHasItCurrent) {
    start();
    const Window window = makeWindow(20, 20);
    const kor::gl::DrawableRef before = [&] {
        EXPECT_TRUE(kor_glXMakeCurrent(other, window, makeOthersContext()));
        return findLocalDrawable(window);
    }();
    ASSERT_EQ(before->appDisplay, other);
    std::latch current(1);
    std::latch closed(1);
    std::thread thread([&] {
        GLXContext context = makeContext("ctx");
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
        EXPECT_EQ(findLocalDrawable(window).get(), before.get());
        current.count_down();
        closed.wait();
        EXPECT_EQ(findLocalDrawable(window).get(), before.get());
        EXPECT_EQ(before->appDisplay, nullptr);
        EXPECT_FALSE(before->released());
        kor_glXSwapBuffers(app, window);
        // From the next time on it belongs to this display.
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
        EXPECT_EQ(before->appDisplay, app);
    });
    current.wait();
    XCloseDisplay(other);
    closed.count_down();
    thread.join();
    letPaintsArrive();
}

TEST_F(DisplayEnd, TakesAWindowThatGoesWithItFromTheThreadThatHasItCurrent) {
    start();
    const Window window = makeOthersWindow();
    ASSERT_TRUE(kor_glXMakeCurrent(other, window, makeOthersContext()));
    kor_glXMakeCurrent(other, None, nullptr);
    const kor::gl::DrawableRef before = findLocalDrawable(window);
    std::latch current(1);
    std::latch closed(1);
    std::thread thread([&] {
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
        current.count_down();
        closed.wait();
        kor_glXSwapBuffers(app, window);
        EXPECT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    });
    current.wait();
    XCloseDisplay(other);
    EXPECT_TRUE(before->released());
    EXPECT_EQ(registered(), 0U);
    closed.count_down();
    thread.join();
}

TEST_F(DisplayEnd, TheNextDisplayStartsAfreshWhateverItsAddressAndIds) {
    start();
    for (int i = 0; i < 8; ++i) {
        const int size = i % 2 == 0 ? 64 : 128;
        const Window window = makeOthersWindow(size, size);
        ASSERT_TRUE(kor_glXMakeCurrent(other, window, makeOthersContext()));
        kor::IRect rect;
        findLocalDrawable(window)->getGeometry(&rect);
        EXPECT_EQ(rect.width, size);
        XCloseDisplay(other);
        other = XOpenDisplay(appName.c_str());
        ASSERT_NE(other, nullptr);
    }
    EXPECT_EQ(timesClosed(), 8U);
    XCloseDisplay(other);
}

TEST_F(DisplayEnd, AWindowHasOneRecordWhicheverDisplayAsks) {
    start();
    const Window window = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    const kor::gl::DrawableRef first = findLocalDrawable(window);
    EXPECT_EQ(getDrawableInfo(other, window, config("double1"), nullptr).get(), first.get());
    EXPECT_EQ(first->appDisplay, app);
    EXPECT_EQ(registered(), 1U);
}

TEST_F(DisplayEnd, APixmapFindsAParentOnTheNextLocalConnection) {
    start();
    GLXPixmap drawable = None;
    const auto makePixmap = [&] {
        const Pixmap pixmap = XCreatePixmap(other, DefaultRootWindow(other), 8, 8, 24);
        drawable = kor_glXCreatePixmap(other, config("double1"), pixmap, nullptr);
        EXPECT_NE(drawable, None);
        XSync(local(), False);
        XCloseDisplay(other);
        other = XOpenDisplay(appName.c_str());
    };
    makePixmap();
    EXPECT_EQ(timesClosed(), 1U);
    makePixmap(); // an X error of the parent fails the test
    EXPECT_EQ(timesClosed(), 2U);
    XCloseDisplay(other);
}

TEST_F(DisplayEnd, WithASharedConnectionTheLastDisplayClosesIt) {
    kor_set_connection_hook(share);
    kor_set_connection_end_hook(giveBack);
    start();
    Display* const mine = XOpenDisplay(appName.c_str());
    ASSERT_NE(kor_glXCreateNewContext(mine, config("double1"), GLX_RGBA_TYPE, nullptr, True),
              nullptr);
    Display* const first = local();
    ASSERT_NE(makeOthersContext(), nullptr);
    EXPECT_EQ(local(), first);
    EXPECT_EQ(users, 2);
    XCloseDisplay(mine);
    EXPECT_EQ(shared, first);
    XCloseDisplay(other);
    EXPECT_EQ(users, 0);
    EXPECT_EQ(shared, nullptr);
    EXPECT_EQ(timesClosed(), 1U);
}

TEST_F(DisplayEnd, AConnectionThatIsInUseOutlivesItsDisplayAndServesTheNext) {
    kor_set_connection_hook(share);
    kor_set_connection_end_hook(giveBack);
    start();
    ASSERT_NE(makeOthersContext(), nullptr);
    {
        const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(nullptr);
        XCloseDisplay(other);
        EXPECT_EQ(timesClosed(), 0U);
        ASSERT_NE(makeContext("ctx"), nullptr);
        EXPECT_EQ(local(), pinned.get());
    }
    EXPECT_EQ(timesClosed(), 0U);
    EXPECT_EQ(users, 2); // as often as it was got it will be given back
    XCloseDisplay(app);
    EXPECT_EQ(users, 0);
    app = XOpenDisplay(appName.c_str());
}

TEST_F(DisplayEnd, ThreadsMayOpenAndCloseLocalConnectionsAtAnyMoment) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&, number] {
            for (int i = 0; i < 6; ++i) {
                std::thread([&] {
                    // Every second thread works on the display that all have in common.
                    Display* const display = number % 2 == 0 ? app : XOpenDisplay(appName.c_str());
                    GLXContext context = kor_glXCreateNewContext(display, config("double1"),
                                                                 GLX_RGBA_TYPE, nullptr, True);
                    ASSERT_NE(context, nullptr);
                    const GLXPbuffer pbuffer =
                        kor_glXCreatePbuffer(display, config("double1"), nullptr);
                    EXPECT_TRUE(kor_glXMakeCurrent(display, pbuffer, context));
                    kor_glXSwapBuffers(display, pbuffer);
                    EXPECT_TRUE(kor_glXMakeCurrent(display, None, nullptr));
                    kor_glXDestroyPbuffer(display, pbuffer);
                    kor_glXDestroyContext(display, context);
                    if (display != app)
                        XCloseDisplay(display);
                }).join();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(registered(), 0U);
    XCloseDisplay(other);
}
