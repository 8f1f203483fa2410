// One frame's way from the application thread to the window: when it is taken, what may fail.

#include "frames.h"

#include "display/displays.h"
#include "framework/pixels.h"
#include "framework/wait_until.h"
#include "transport/readback_context.h"

#include <chrono>
#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Readback : public Frames {
  protected:
    size_t frames() const { return gl.callsOf("glFenceSync").size(); }

    /// Swaps once with these calls failing (name, number of the call from now).
    void swapFailing(const std::vector<std::pair<std::string, int>>& failures) {
        begin(64, 48);
        XMoveWindow(app, window, 7, 9);
        XSync(app, False);
        record()->updateWindowInfo(nullptr, nullptr, nullptr);
        for (const auto& [name, number] : failures)
            gl.failCall(name, number);
        kor_glXSwapBuffers(app, window);
    }

    /// The frame was given up and the application has its context back.
    void expectNoFrame() {
        EXPECT_EQ(frames(), 0U);
        EXPECT_TRUE(said('W', "DrawableInfo::readback",
                         format("Failed to create readback contexts for ldi %p, 7x9",
                                static_cast<void*>(record().get()))));
        EXPECT_EQ(mine().back(), "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
    }
};

} // namespace

TEST_F(Readback, ThePixelsArriveInTheWindowEveryOneOfThem) {
    begin(37, 21);
    gl.setPixels([](int x, int y) { return static_cast<uint32_t>(x * 0x10203 + y * 0x7); });
    ASSERT_TRUE(swapAndPaint());
    kor::test::Pixels expected{37, 21, {}};
    for (int y = 0; y < 21; ++y)
        for (int x = 0; x < 37; ++x)
            expected.colours.push_back(static_cast<uint32_t>(x * 0x10203 + y * 0x7) & 0xffffff);
    const auto seen = kor::test::waitForPixels(
        app, window, [&](const kor::test::Pixels& pixels) { return pixels == expected; });
    ASSERT_TRUE(seen);
    EXPECT_TRUE(*seen == expected);
}

TEST_F(Readback, AHiddenWindowIsNotReadBackAndCountsNoFrame) {
    begin(64, 48);
    XUnmapWindow(app, window);
    XSync(app, False);
    kor_glXSwapBuffers(app, window); // notices at its end
    gl.clearCalls();
    markLog();
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(said('D', "DrawableInfo::readback", "window not visible"));
    EXPECT_EQ(frames(), 0U);
    EXPECT_EQ(sayings("DrawableInfo::readback").back(), "window not visible");
}

TEST_F(Readback, AWindowMappedAgainIsFoundByTheDoubleCheck) {
    start();
    window = makeWindow(64, 48, 0, false);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    EXPECT_FALSE(record()->isVisible());
    XMapWindow(app, window);
    XSync(app, False);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(frames(), 1U);
}

TEST_F(Readback, WithoutTheDoubleCheckItStaysHidden) {
    set("KOR_GL_DOUBLE_CHECK_VISIBLE", "0");
    start();
    window = makeWindow(64, 48, 0, false);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    XMapWindow(app, window);
    XSync(app, False);
    kor_glXSwapBuffers(app, window);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(frames(), 0U);
}

TEST_F(Readback, AHiddenWindowThatIsGoneIsGivenUp) {
    start();
    window = makeWindow(64, 48, 0, false);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    destroyWindow(window);
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(said('D', "DrawableInfo::readback", "failed to update window info"));
    EXPECT_EQ(frames(), 0U);
}

TEST_F(Readback, NoReadbackStillLetsTheViewportLook) {
    set("KOR_GL_NO_READBACK", "1");
    begin(64, 48);
    record()->setViewportCheckForResize(false);
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(record()->getViewportCheckForResize());
    EXPECT_THAT(mine(), ElementsAre("glFinish()", "glXSwapBuffers(local, " + pbuffer() + ")"));
}

TEST_F(Readback, NoReadbackStillLooksWhetherTheWindowIsVisible) {
    set("KOR_GL_NO_READBACK", "1");
    begin(64, 48);
    XUnmapWindow(app, window);
    XSync(app, False);
    record()->updateWindowInfo(nullptr, nullptr, nullptr);
    ASSERT_FALSE(record()->isVisible());
    kor_glXSwapBuffers(app, window);
    EXPECT_FALSE(said('D', "DrawableInfo::readback", "window not visible"));
    XMapWindow(app, window);
    XSync(app, False);
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(record()->isVisible());
    XUnmapWindow(app, window);
    XSync(app, False);
    record()->updateWindowInfo(nullptr, nullptr, nullptr);
    destroyWindow(window);
    record()->setViewportCheckForResize(false);
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(said('D', "DrawableInfo::readback", "failed to update window info"));
    EXPECT_TRUE(record()->getViewportCheckForResize());
}

TEST_F(Readback, TheIntervalPacesTheApplication) {
    set("KOR_GL_READBACK_INTERVAL", "50");
    begin(64, 48);
    const auto before = std::chrono::steady_clock::now();
    kor_glXSwapBuffers(app, window);
    kor_glXSwapBuffers(app, window);
    kor_glXSwapBuffers(app, window);
    const auto taken = std::chrono::steady_clock::now() - before;
    EXPECT_GE(taken, std::chrono::milliseconds(98)); // the clock counts whole milliseconds
    EXPECT_EQ(frames(), 3U);
}

TEST_F(Readback, ARenderModeOfTheApplicationIsSetAsideAndComesBack) {
    begin(64, 48);
    gl.setInteger(GL_RENDER_MODE, GL_FEEDBACK);
    std::vector<bool> announced;
    gl.onCall("glRenderMode", [&](const fake::Call&) {
        announced.push_back(said('D', "DrawableInfo::readback", "forcing render mode"));
    });
    kor_glXSwapBuffers(app, window);
    gl.onCall("glRenderMode", nullptr);
    EXPECT_THAT(announced, ElementsAre(true, true));
    const std::vector<std::string> calls = mine();
    EXPECT_EQ(calls[4], "glRenderMode(GL_RENDER)");
    EXPECT_EQ(calls[calls.size() - 2], "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
    EXPECT_EQ(calls.back(), "glRenderMode(GL_FEEDBACK)");
    EXPECT_EQ(timesSaid('D', "DrawableInfo::readback", "forcing render mode"), 1U);
}

TEST_F(Readback, AReadContextThatCannotBeMadeGivesTheFrameUp) {
    swapFailing({{"glXCreateNewContext", 1}});
    EXPECT_TRUE(said('W', "setupReadbackContexts", "Failed to create GLX read context"));
    expectNoFrame();
    kor_glXSwapBuffers(app, window); // the next one tries again
    EXPECT_EQ(frames(), 1U);
}

TEST_F(Readback, AReadContextThatCannotBeCurrentIsMadeAgain) {
    swapFailing({{"glXMakeCurrent", 1}});
    EXPECT_TRUE(said('I', "setupReadbackContexts",
                     "Failed to make GLX context current to the local drawable"));
    const std::vector<std::string> calls = mine();
    EXPECT_EQ(calls[5].rfind("glXMakeCurrent(local, " + pbuffer(), 0), 0U);
    EXPECT_EQ(calls[6], "glXMakeCurrent(local, 0, null)");
    EXPECT_EQ(calls[7].rfind("glXDestroyContext(local, ", 0), 0U);
    EXPECT_EQ(calls[8].rfind("glXCreateNewContext(local, ", 0), 0U);
    EXPECT_EQ(calls[10], "glPixelStorei(GL_PACK_ALIGNMENT, 1)");
    EXPECT_EQ(frames(), 1U);
}

TEST_F(Readback, ARecreationThatFailsGivesTheFrameUp) {
    swapFailing({{"glXMakeCurrent", 1}, {"glXCreateNewContext", 2}});
    EXPECT_TRUE(said('W', "setupReadbackContexts", "Failed to recreate GLX read context"));
    expectNoFrame();
}

TEST_F(Readback, ARecreatedContextThatCannotBeCurrentGivesTheFrameUp) {
    swapFailing({{"glXMakeCurrent", 1}, {"glXMakeCurrent", 3}});
    EXPECT_TRUE(said('W', "setupReadbackContexts",
                     "Failed to make recreated GLX context current to the local drawable"));
    expectNoFrame();
    // The next one finds it current, but nothing to read it back with.
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(frames(), 0U);
    EXPECT_EQ(mine().back(), "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
    EXPECT_EQ(sayings("DrawableInfo::readback").back(), "DONE");
}

TEST_F(Readback, AFrameThatIsGivenUpPutsTheRenderModeBack) {
    gl.setInteger(GL_RENDER_MODE, GL_FEEDBACK);
    std::vector<std::vector<std::string>> held;
    gl.onCall("glRenderMode", [&](const fake::Call&) { held.push_back(heldLocks()); });
    swapFailing({{"glXCreateNewContext", 1}});
    gl.onCall("glRenderMode", nullptr);
    const std::vector<std::string> calls = mine();
    ASSERT_GE(calls.size(), 2U);
    EXPECT_EQ(calls[calls.size() - 2], "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
    EXPECT_EQ(calls.back(), "glRenderMode(GL_FEEDBACK)");
    EXPECT_THAT(held, ElementsAre(IsEmpty(), ElementsAre("local display")));
    EXPECT_EQ(frames(), 0U);
    EXPECT_THAT(sayings("CopybackThread::svc"), IsEmpty()) << "nobody is woken";
}

TEST_F(Readback, AFrameWithoutAFenceIsReadAllTheSame) {
    begin(64, 48);
    gl.fail("glFenceSync");
    ASSERT_TRUE(swapAndPaint());
    ASSERT_TRUE(swapAndPaint());
    letPaintsArrive();
    EXPECT_THAT(gl.callsOf("glClientWaitSync"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glDeleteSync"), IsEmpty());
}

TEST_F(Readback, DrawablesThatAreNoWindowsArePassedOverByThePainter) {
    begin(64, 48);
    ASSERT_NE(kor_glXCreatePbuffer(app, config("double1"), nullptr), None);
    ASSERT_NE(
        kor_glXCreatePixmap(app, config("double1"), XCreatePixmap(app, window, 8, 8, 24), nullptr),
        None);
    ASSERT_TRUE(swapAndPaint());
    letPaintsArrive();
    EXPECT_THAT(sayings("DrawableInfo::copyback"), IsEmpty());
}

TEST_F(Readback, WithoutAWorkerContextEveryFrameOfTheWindowIsDropped) {
    swapFailing({{"glXCreateNewContext", 2}});
    EXPECT_TRUE(said('W', "setupReadbackContexts", "Failed to set readback context"));
    // To the frame that is a success all the same.
    EXPECT_FALSE(said('W', "DrawableInfo::readback",
                      format("Failed to create readback contexts for ldi %p, 7x9",
                             static_cast<void*>(record().get()))));
    EXPECT_EQ(sayings("DrawableInfo::readback").back(), "DONE");
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(frames(), 0U);
    EXPECT_FALSE(gl.waitForCalls("glReadPixels", 1, 300));
    EXPECT_EQ(mine().back(), "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
}

TEST_F(Readback, AWindowThatWasNeverReadBackIsPassedOverByThePainter) {
    begin(64, 48);
    const Window other = makeWindow(64, 48);
    ASSERT_TRUE(kor_glXMakeCurrent(app, other, context));
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    ASSERT_TRUE(swapAndPaint());
    EXPECT_TRUE(kor::test::waitUntil([&] {
        return said('D', "DrawableInfo::copyback",
                    "copyback called before readback context has been set. Ignoring.");
    }));
}

TEST_F(Readback, SetUpAndRestoreHoldTheLocalDisplayLockAndTheCopyHoldsNone) {
    begin(64, 48);
    std::vector<std::string> wrong;
    const pid_t me = gettid();
    bool setup = false;
    gl.onCall("", [&](const fake::Call& call) {
        if (call.thread != me)
            return;
        // From the making of the read context to that of the worker's.
        if (call.name == "glXCreateNewContext")
            setup = true;
        if (call.name == "glGenTextures")
            setup = false;
        const bool expected =
            setup || call.name == "glXMakeCurrent" || call.name == "glXSwapBuffers";
        if ((heldLocks() == std::vector<std::string>{"local display"}) != expected)
            wrong.push_back(call.text);
    });
    kor_glXSwapBuffers(app, window);
    gl.onCall("", nullptr);
    EXPECT_THAT(wrong, IsEmpty());
    EXPECT_EQ(frames(), 1U);
}

TEST_F(Readback, TakingBackAReferenceThatNobodyGaveIsReportedAndHarmless) {
    start();
    kor::gl::ReadbackContext context;
    markLog();
    context.unref();
    EXPECT_THAT(sayings("ReadbackContext::unref"),
                ElementsAre(format("%p refcount is already 0", static_cast<void*>(&context))));
}

TEST_F(Readback, AWorkersContextThatIsMadeAgainStartsNoSecondWorker) {
    start();
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    const kor::gl::LocalDisplay display = kor::gl::pinLocalDisplay(nullptr);
    GLXFBConfig const fbconfig = config("double1");
    markLog();
    bool first = true;
    bool again = false;
    {
        kor::gl::ReadbackContext context;
        // The worker's first call: it holds the local display lock and has looked at its context.
        gl.onCall("glXMakeCurrent", [&](const fake::Call&) {
            if (std::exchange(first, false))
                again = context.setSharedContext(display, fbconfig, nullptr, 0x777);
        });
        {
            const kor::Lock lock(getLocalDisplayMutex());
            EXPECT_TRUE(context.setSharedContext(display, fbconfig, nullptr, 0x555));
        }
        EXPECT_TRUE(waitForLog("D void kor::gl::ReadbackContext::svc(): Making readback context "
                               "current for drawable 0x777"));
        // Our destructor reads what the worker wrote under this lock.
        const kor::Lock afterTheWorker(getLocalDisplayMutex());
    }
    gl.onCall("glXMakeCurrent", nullptr);
    EXPECT_TRUE(again);
    EXPECT_EQ(gl.callsOf("glXCreateNewContext").size(), 2U);
    EXPECT_THAT(sayings("ReadbackContext::svc"), testing::SizeIs(1));
}
