// The calls whose state the library keeps: draw buffer, render mode, viewport, pixels that no query
// counts.

#include "frames.h"

#include "context/context_map.h"
#include "core/tsd.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class StateTracking : public Frames {
  protected:
    kor::gl::ContextInfo& info() const {
        const kor::Lock lock(kor::gl::getContextMutex());
        return *kor::gl::findContext(kor_glXGetCurrentContext());
    }
};

} // namespace

TEST_F(StateTracking, EveryDrawBufferHasItsName) {
    begin(20, 20);
    const std::vector<std::pair<GLenum, const char*>> modes = {
        {GL_NONE, "NONE"},
        {GL_FRONT_LEFT, "FRONT_LEFT"},
        {GL_FRONT_RIGHT, "FRONT_RIGHT"},
        {GL_BACK_LEFT, "BACK_LEFT"},
        {GL_BACK_RIGHT, "BACK_RIGHT"},
        {GL_FRONT, "FRONT"},
        {GL_LEFT, "LEFT"},
        {GL_RIGHT, "RIGHT"},
        {GL_FRONT_AND_BACK, "FRONT_AND_BACK"},
        {GL_BACK, "BACK"}};
    for (const auto& [mode, name] : modes) {
        kor_glDrawBuffer(mode);
        EXPECT_TRUE(said('D', "kor_glDrawBuffer", format("mode %s (0x%x)", name, mode)));
        EXPECT_EQ(info().drawBuffer, mode) << name;
        EXPECT_EQ(gl.callsOf("glDrawBuffer").back().arguments[0], mode);
    }
    kor_glDrawBuffer(GL_COLOR_ATTACHMENT0);
    EXPECT_TRUE(said('D', "kor_glDrawBuffer", "mode unknown (0x8ce0)"));
    EXPECT_EQ(info().drawBuffer, static_cast<GLenum>(GL_BACK)); // not recorded, but passed on
    EXPECT_EQ(gl.callsOf("glDrawBuffer").back().text, "glDrawBuffer(GL_COLOR_ATTACHMENT0)");
}

TEST_F(StateTracking, ABackBufferThatTheVisualLacksIsRefusedWithTheOldMode) {
    start();
    window = makeWindow(20, 20, singleVisual);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("single", config("single"))));
    for (const GLenum mode : {GL_BACK, GL_BACK_LEFT, GL_BACK_RIGHT, GL_FRONT_AND_BACK}) {
        markLog();
        kor_glDrawBuffer(mode);
        EXPECT_EQ(gl.callsOf("glDrawBuffer").back().text, "glDrawBuffer(GL_FRONT)");
        EXPECT_EQ(info().drawBuffer, static_cast<GLenum>(GL_FRONT));
        EXPECT_TRUE(said('D', "kor_glDrawBuffer", format("mode %x - ignoring", mode)));
        EXPECT_EQ(sayings("kor_glDrawBuffer").back(), "DONE");
    }
    EXPECT_THAT(gl.callsOf("glBeginQuery"), IsEmpty());
}

TEST_F(StateTracking, WithoutAUsableContextTheDrawBufferIsDropped) {
    start();
    kor_glDrawBuffer(GL_FRONT);
    EXPECT_TRUE(said('D', "kor_glDrawBuffer", "no context"));
    window = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, reinterpret_cast<GLXContext>(0x5550)));
    kor_glDrawBuffer(GL_FRONT);
    EXPECT_TRUE(said('D', "kor_glDrawBuffer", "cannot find context 5550 in the context map"));
    context = makeContext("ctx");
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    kor_glXDestroyContext(app, context);
    kor_glDrawBuffer(GL_FRONT);
    EXPECT_TRUE(said(
        'D', "kor_glDrawBuffer",
        format("the context %x is already destroyed", static_cast<unsigned>(fake::word(context)))));
    EXPECT_THAT(gl.callsOf("glDrawBuffer"), IsEmpty());
}

TEST_F(StateTracking, TheRenderModeIsRecordedAndPassedOn) {
    begin(20, 20);
    gl.answer("glRenderMode", 12);
    std::vector<std::string> held = {"never called"};
    gl.onCall("glRenderMode", [&](const fake::Call&) { held = heldLocks(); });
    EXPECT_EQ(kor_glRenderMode(GL_SELECT), 12);
    gl.onCall("glRenderMode", nullptr);
    EXPECT_THAT(held, IsEmpty());
    EXPECT_EQ(info().renderMode, static_cast<GLenum>(GL_SELECT));
    EXPECT_EQ(gl.calls().back().text, "glRenderMode(GL_SELECT)");
    kor_glRenderMode(GL_FEEDBACK);
    kor_glRenderMode(0x1234);
    kor_glRenderMode(GL_RENDER);
    EXPECT_THAT(sayings("kor_glRenderMode"),
                ElementsAre("mode: GL_SELECT (0x1c02)", "mode: GL_FEEDBACK (0x1c01)",
                            "mode: UNKNOWN (0x1234)", "mode: GL_RENDER (0x1c00)"));
}

TEST_F(StateTracking, WithoutAUsableContextTheRenderModeIsDroppedAndZero) {
    start();
    gl.answer("glRenderMode", 12);
    EXPECT_EQ(kor_glRenderMode(GL_SELECT), 0);
    EXPECT_TRUE(said('D', "kor_glRenderMode", "no context"));
    window = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, reinterpret_cast<GLXContext>(0x5550)));
    EXPECT_EQ(kor_glRenderMode(GL_SELECT), 0);
    EXPECT_TRUE(said('D', "kor_glRenderMode", "cannot find context 5550 in the context map"));
    context = makeContext("ctx");
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    kor_glXDestroyContext(app, context);
    EXPECT_EQ(kor_glRenderMode(GL_SELECT), 0);
    EXPECT_TRUE(said(
        'D', "kor_glRenderMode",
        format("the context %x is already destroyed", static_cast<unsigned>(fake::word(context)))));
    EXPECT_THAT(gl.callsOf("glRenderMode"), IsEmpty());
}

TEST_F(StateTracking, PixelsThatNoQueryCountsSetTheFlagWhateverTheDrawBuffer) {
    begin(20, 20);
    bool setBefore = false;
    gl.onCall("", [&](const fake::Call&) { setBefore = info().forceNextReadback; });
    const auto sets = [&](const std::function<void()>& call) {
        info().forceNextReadback = false;
        call();
        EXPECT_EQ(setBefore, info().forceNextReadback); // when the driver is called it is decided
        return info().forceNextReadback;
    };
    EXPECT_TRUE(sets([] { kor_glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT); }));
    EXPECT_FALSE(sets([] { kor_glClear(GL_DEPTH_BUFFER_BIT); }));
    EXPECT_TRUE(sets([] { kor_glBitmap(8, 1, 0, 0, 8, 0, nullptr); }));
    EXPECT_TRUE(sets([] { kor_glDrawPixels(1, 1, GL_RGBA, GL_UNSIGNED_BYTE, nullptr); }));
    EXPECT_TRUE(sets([] { kor_glCopyPixels(1, 2, 3, 4, GL_COLOR); }));
    EXPECT_FALSE(sets([] { kor_glCopyPixels(1, 2, 3, 4, GL_DEPTH); }));
    gl.onCall("", nullptr);
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glClear(0x4100)", "glClear(GL_DEPTH_BUFFER_BIT)",
                            "glBitmap(8, 1, 0, 0, 8, 0, null)",
                            "glDrawPixels(1, 1, GL_RGBA, GL_UNSIGNED_BYTE, null)",
                            "glCopyPixels(1, 2, 3, 4, GL_COLOR)",
                            "glCopyPixels(1, 2, 3, 4, 0x1801)"));
}

TEST_F(StateTracking, PixelCallsReachTheSystemWithoutAUsableContext) {
    begin(20, 20);
    kor_glXDestroyContext(app, context);
    gl.clearCalls();
    kor_glClear(GL_COLOR_BUFFER_BIT);
    EXPECT_TRUE(said(
        'D', "setNonRasterPixelChange",
        format("context %x is already destroyed", static_cast<unsigned>(fake::word(context)))));
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, reinterpret_cast<GLXContext>(0x5550)));
    kor_glClear(GL_COLOR_BUFFER_BIT);
    EXPECT_TRUE(said('D', "setNonRasterPixelChange", "cannot find context"));
    kor_glXMakeCurrent(app, None, nullptr);
    kor_glClear(GL_COLOR_BUFFER_BIT);
    EXPECT_EQ(gl.callsOf("glClear").size(), 3U);
}

TEST_F(StateTracking, AViewportLooksForAResizedWindow) {
    begin(20, 20);
    resizeWindow(window, 50, 30);
    kor_glViewport(1, 2, 3, 4);
    EXPECT_TRUE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 50x30"));
    EXPECT_EQ(gl.calls().back().text, "glViewport(1, 2, 3, 4)");
    EXPECT_THAT(sayings("kor_glViewport"), ElementsAre("1 2 3 4"));
    resizeWindow(window, 60, 30);
    kor_glViewport(0, 0, 1, 1); // without the optimisation each one looks
    EXPECT_TRUE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 60x30"));
}

TEST_F(StateTracking, WithTheOptimisationTheNextFrameLooksAgain) {
    set("KOR_GL_VIEWPORT_RESIZE_OPTIMIZATION", "1");
    begin(20, 20);
    kor_glViewport(0, 0, 1, 1);
    EXPECT_FALSE(record()->getViewportCheckForResize());
    resizeWindow(window, 50, 30);
    kor_glViewport(0, 0, 1, 1);
    EXPECT_FALSE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 50x30"));
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(record()->getViewportCheckForResize());
}

TEST_F(StateTracking, AViewportWithoutADrawableIsDropped) {
    start();
    kor_glViewport(0, 0, 1, 1);
    EXPECT_TRUE(said('D', "kor_glViewport", "no current drawable"));
    kor_fini();
    kor_glViewport(0, 0, 1, 1);
    EXPECT_TRUE(said('D', "kor_glViewport", "no tsd"));
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(StateTracking, APopThatChangesTheDrawBufferIsReportedAndNotRecorded) {
    begin(20, 20);
    kor_glDrawBuffer(GL_FRONT);
    gl.clearCalls();
    gl.setInteger(GL_DRAW_BUFFER, GL_FRONT);
    gl.onCall("glPopAttrib", [&](const fake::Call&) { gl.setInteger(GL_DRAW_BUFFER, GL_BACK); });
    kor_glPopAttrib();
    kor_glPopAttrib();
    EXPECT_EQ(timesSaid('I', "kor_glPopAttrib", "draw buffer changed from 404 to 405"), 1U);
    EXPECT_EQ(info().drawBuffer, static_cast<GLenum>(GL_FRONT));
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glGetIntegerv(GL_DRAW_BUFFER, out)", "glPopAttrib()",
                            "glGetIntegerv(GL_DRAW_BUFFER, out)",
                            "glGetIntegerv(GL_DRAW_BUFFER, out)", "glPopAttrib()",
                            "glGetIntegerv(GL_DRAW_BUFFER, out)"));
}

TEST_F(StateTracking, WithoutAThreadRecordOnlyTheCallsWithoutStateReachTheSystem) {
    set("KOR_GL_GLXWAITX_SYNC_APPDISPLAY", "1");
    gl.answer("glRenderMode", 12);
    begin(20, 20);
    const kor::gl::DrawableRef drawable = record();
    kor_fini();
    ASSERT_EQ(getTSD(), nullptr);
    gl.clearCalls();
    markLog();
    kor_glDrawBuffer(GL_FRONT);
    EXPECT_THAT(sayings("kor_glDrawBuffer"), ElementsAre("START", "no context"));
    EXPECT_EQ(kor_glRenderMode(GL_SELECT), 0);
    EXPECT_EQ(sayings("kor_glRenderMode").back(), "no context");
    kor_glXUseXFont(5, 32, 96, 1000);
    EXPECT_THAT(sayings("kor_glXUseXFont"), testing::SizeIs(1));
    drawable->readback();
    EXPECT_THAT(sayings("DrawableInfo::readback"), IsEmpty());
    EXPECT_THAT(gl.calls(), IsEmpty());
    kor_glClear(GL_COLOR_BUFFER_BIT);
    kor_glBitmap(8, 1, 0, 0, 8, 0, nullptr);
    kor_glDrawPixels(1, 1, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    kor_glCopyPixels(1, 2, 3, 4, GL_COLOR);
    kor_glXWaitX();
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glClear(GL_COLOR_BUFFER_BIT)", "glBitmap(8, 1, 0, 0, 8, 0, null)",
                            "glDrawPixels(1, 1, GL_RGBA, GL_UNSIGNED_BYTE, null)",
                            "glCopyPixels(1, 2, 3, 4, GL_COLOR)", "glXWaitX()"));
}
