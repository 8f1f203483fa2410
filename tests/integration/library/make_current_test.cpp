// Making contexts current, and what the get-current functions answer.

#include "displays.h"

#include "context/context_map.h"
#include "core/tsd.h"
#include "drawable/registry.h"

#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class MakeCurrent : public Displays {
  protected:
    void begin() {
        start();
        context = makeContext("ctx");
        window = makeWindow(60, 40);
        ASSERT_NE(context, nullptr);
    }

    std::string localNameOf(Window drawable) const {
        return gl.nameOf(findLocalDrawable(drawable)->localDrawable);
    }

    bool isCurrent(GLXContext which) const {
        const kor::Lock lock(kor::gl::getContextMutex());
        return kor::gl::findContext(which)->current;
    }

    std::string lastMakeCurrent() const {
        const auto calls = gl.callsOf("glXMakeCurrent");
        return calls.empty() ? "" : calls.back().text;
    }

    GLXContext context = nullptr;
    Window window = None;
};

} // namespace

TEST_F(MakeCurrent, BindsTheWindowsPbufferAndNotesIt) {
    begin();
    markLog();
    EXPECT_TRUE(kor_glXMakeCurrent(app, window, context));
    EXPECT_EQ(lastMakeCurrent(), "glXMakeCurrent(local, " + localNameOf(window) + ", ctx)");
    EXPECT_TRUE(isCurrent(context));
    EXPECT_EQ(kor_glXGetCurrentContext(), context);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), window);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), window);
    EXPECT_EQ(kor_glXGetCurrentDisplay(), app);
    EXPECT_EQ(findLocalDrawable(window)->lastContext.load(), context);
    EXPECT_EQ(log()[0].message, format("drawable: %lx, context: %x", window,
                                       static_cast<unsigned>(fake::word(context))));
}

TEST_F(MakeCurrent, TheGettersAskNoDriver) {
    begin();
    kor_glXMakeCurrent(app, window, context);
    gl.clearCalls();
    markLog();
    kor_glXGetCurrentContext();
    kor_glXGetCurrentDrawable();
    kor_glXGetCurrentReadDrawable();
    kor_glXGetCurrentDisplay();
    EXPECT_THAT(gl.calls(), IsEmpty());
    ASSERT_EQ(log().size(), 4U);
    for (const LogLine& line : log())
        EXPECT_EQ(line.message, "START");
}

TEST_F(MakeCurrent, TheSameAgainFlushesNothingAndStaysCurrent) {
    begin();
    kor_glXMakeCurrent(app, window, context);
    gl.clearCalls();
    markLog();
    EXPECT_TRUE(kor_glXMakeCurrent(app, window, context));
    EXPECT_TRUE(isCurrent(context));
    EXPECT_FALSE(said('D', "kor_glXMakeCurrent", "flushing old context"));
    EXPECT_THAT(gl.callsOf("glFlush"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glFinish"), IsEmpty());
}

TEST_F(MakeCurrent, AReleaseWithNothingCurrentSucceedsWithoutTheDriver) {
    start();
    EXPECT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    EXPECT_TRUE(said('D', "kor_glXMakeCurrent", "no current context, skipping..."));
    EXPECT_TRUE(kor_glXMakeContextCurrent(app, None, None, nullptr));
    EXPECT_TRUE(said('D', "kor_glXMakeContextCurrent", "no current context, skipping..."));
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(MakeCurrent, AReleaseForgetsAllButTheDisplay) {
    begin();
    kor_glXMakeCurrent(app, window, context);
    EXPECT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    EXPECT_EQ(lastMakeCurrent(), "glXMakeCurrent(local, 0, null)");
    EXPECT_FALSE(isCurrent(context));
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), None);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), None);
    EXPECT_EQ(kor_glXGetCurrentDisplay(), nullptr);
    EXPECT_EQ(getTSD()->appDisplay, app);
    EXPECT_EQ(findLocalDrawable(window)->lastContext.load(), context); // never cleared
}

TEST_F(MakeCurrent, AReleaseThatTheDriverRefusesIsNotedAllTheSame) {
    begin();
    kor_glXMakeCurrent(app, window, context);
    gl.fail("glXMakeCurrent");
    EXPECT_FALSE(kor_glXMakeCurrent(app, None, nullptr));
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
    EXPECT_FALSE(isCurrent(context));
    gl.succeed("glXMakeCurrent");
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    gl.fail("glXMakeContextCurrent");
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, None, None, nullptr));
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), None);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), None);
    EXPECT_FALSE(isCurrent(context));
}

TEST_F(MakeCurrent, AReleaseWithoutALocalDisplayIsNotNoted) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    const auto foreign = reinterpret_cast<GLXContext>(0x5550);
    getTSD()->currentContext = foreign;
    EXPECT_FALSE(kor_glXMakeCurrent(app, None, nullptr));
    EXPECT_EQ(sayings("kor_glXMakeCurrent").back(), "no local display");
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, None, None, nullptr));
    EXPECT_EQ(sayings("kor_glXMakeContextCurrent").back(), "no local display");
    EXPECT_EQ(getTSD()->currentContext, foreign);
    EXPECT_THAT(gl.calls(), IsEmpty());
    getTSD()->currentContext = nullptr;
}

TEST_F(MakeCurrent, ADriversRefusalLeavesTheThreadAsItWas) {
    begin();
    gl.fail("glXMakeCurrent");
    EXPECT_FALSE(kor_glXMakeCurrent(app, window, context));
    EXPECT_TRUE(said('D', "kor_glXMakeCurrent", "failed on local make current."));
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
    EXPECT_FALSE(isCurrent(context));
    gl.fail("glXMakeContextCurrent");
    markLog();
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, window, window, context));
    EXPECT_EQ(sayings("kor_glXMakeContextCurrent").size(), 1U); // silently
}

TEST_F(MakeCurrent, ADriversRefusalLeavesWhatWasCurrentBefore) {
    begin();
    const Window second = makeWindow(30, 30);
    GLXContext other = makeContext("other");
    const auto expectUnchanged = [&] {
        EXPECT_EQ(kor_glXGetCurrentContext(), context);
        EXPECT_EQ(kor_glXGetCurrentDrawable(), window);
        EXPECT_EQ(kor_glXGetCurrentReadDrawable(), window);
        EXPECT_EQ(kor_glXGetCurrentDisplay(), app);
        EXPECT_TRUE(isCurrent(context));
        EXPECT_FALSE(isCurrent(other));
        EXPECT_EQ(findLocalDrawable(second)->lastContext.load(), nullptr);
    };
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    gl.fail("glXMakeCurrent");
    EXPECT_FALSE(kor_glXMakeCurrent(app, second, other));
    expectUnchanged();
    gl.fail("glXMakeContextCurrent");
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, second, second, other));
    expectUnchanged();
}

TEST_F(MakeCurrent, HalfAPairIsRefused) {
    begin();
    gl.clearCalls();
    const std::string text = "bad parameter combination passed, skipping...";
    EXPECT_FALSE(kor_glXMakeCurrent(app, window, nullptr));
    EXPECT_FALSE(kor_glXMakeCurrent(app, None, context));
    EXPECT_EQ(timesSaid('I', "kor_glXMakeCurrent", text), 2U);
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, None, window, context));
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, window, None, nullptr));
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, None, window, nullptr));
    EXPECT_EQ(timesSaid('I', "kor_glXMakeContextCurrent", text), 3U);
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(MakeCurrent, AnUnknownWindowIsRefused) {
    begin();
    EXPECT_FALSE(kor_glXMakeCurrent(app, 0x1234567, context));
    EXPECT_TRUE(said('D', "kor_glXMakeCurrent", "failed for no drawable."));
    markLog();
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, 0x1234567, window, context));
    EXPECT_EQ(sayings("kor_glXMakeContextCurrent").size(), 1U);
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, window, 0x1234567, context));
    EXPECT_EQ(sayings("kor_glXMakeContextCurrent").size(), 2U);
    EXPECT_THAT(gl.callsOf("glXMakeContextCurrent"), IsEmpty());
}

TEST_F(MakeCurrent, ADisplayThatCannotBeSetUpIsRefused) {
    begin();
    EXPECT_FALSE(kor_glXMakeCurrent(nullptr, window, context));
    EXPECT_FALSE(kor_glXMakeContextCurrent(nullptr, window, window, context));
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
}

TEST_F(MakeCurrent, WithoutALocalDisplayNothingBecomesCurrent) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    auto foreign = reinterpret_cast<GLXContext>(0x5550);
    EXPECT_FALSE(kor_glXMakeCurrent(app, 5, foreign));
    EXPECT_TRUE(said('D', "kor_glXMakeCurrent", "no local display"));
    EXPECT_FALSE(kor_glXMakeContextCurrent(app, 5, 5, foreign));
    EXPECT_TRUE(said('D', "kor_glXMakeContextCurrent", "no local display"));
}

TEST_F(MakeCurrent, AnUnknownContextIsMadeCurrentWithAWarning) {
    begin();
    auto foreign = reinterpret_cast<GLXContext>(0x5550);
    EXPECT_TRUE(kor_glXMakeCurrent(app, window, foreign));
    EXPECT_TRUE(said('E', "getFBConfig", "context not found."));
    EXPECT_TRUE(said('W', "setCurrent", "context 5550 not found in the map."));
    EXPECT_EQ(kor_glXGetCurrentContext(), foreign);
    markLog();
    EXPECT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    EXPECT_TRUE(said('W', "setCurrent", "context 5550 not found in the map."));
}

TEST_F(MakeCurrent, SwitchingWindowsTransportsTheOldOnesFrame) {
    begin();
    GLXContext front = makeContext("front", config("single"));
    const Window first = makeWindow(30, 30, singleVisual);
    const Window second = makeWindow(30, 30, singleVisual);
    kor_glXMakeCurrent(app, first, front);
    kor_glDrawBuffer(GL_FRONT);
    markLog();
    gl.clearCalls();
    EXPECT_TRUE(kor_glXMakeCurrent(app, second, front));
    // Each line, and then the flush that it announces.
    const std::string drawn = "draw 404, dbf 0 - drawn 0 pixels";
    std::vector<std::string> story;
    for (const LogLine& line : log()) {
        if (line.message.starts_with("flushing") ||
            line.function.starts_with("void finishOrFlush("))
            story.push_back(line.message);
    }
    EXPECT_THAT(story, ElementsAre("flushing old context", "draw 404, dbf 0", drawn,
                                   "flushing old drawable output", "draw 404, dbf 0", drawn));
    EXPECT_TRUE(gl.waitForCalls("glReadPixels", 1, 3000)); // by the painter, a moment later
}

TEST_F(MakeCurrent, TheOldFrameIsFlushedBeforeTheDisplayIsSetUp) {
    begin();
    kor_glXMakeCurrent(app, window, context);
    markLog();
    EXPECT_FALSE(kor_glXMakeCurrent(nullptr, 5, context));
    EXPECT_TRUE(said('D', "kor_glXMakeCurrent", "flushing old context"));
    markLog();
    EXPECT_FALSE(kor_glXMakeContextCurrent(nullptr, 5, 5, context));
    EXPECT_FALSE(said('D', "kor_glXMakeContextCurrent", "flushing old context"));
}

TEST_F(MakeCurrent, ABackBufferContextIsOnlyFlushedAtTheSwitch) {
    begin();
    const Window second = makeWindow(30, 30);
    kor_glXMakeCurrent(app, window, context);
    gl.clearCalls();
    markLog();
    kor_glXMakeContextCurrent(app, second, second, context);
    EXPECT_TRUE(said('D', "kor_glXMakeContextCurrent", "flushing old context"));
    EXPECT_FALSE(said('D', "kor_glXMakeContextCurrent", "flushing old drawable output"));
    EXPECT_EQ(gl.callsOf("glFlush").size(), 2U); // the second check flushes without a word
    EXPECT_THAT(gl.callsOf("glFinish"), IsEmpty());
}

TEST_F(MakeCurrent, SwitchingFromAPbufferFlushesNothing) {
    begin();
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeCurrent(app, pbuffer, context));
    gl.clearCalls();
    markLog();
    EXPECT_TRUE(kor_glXMakeCurrent(app, window, context));
    EXPECT_FALSE(said('D', "kor_glXMakeCurrent", "flushing old context"));
    EXPECT_THAT(gl.callsOf("glFlush"), IsEmpty());
}

TEST_F(MakeCurrent, SwitchingFromAPixmapFlushesNothing) {
    begin();
    const Pixmap pixmap = XCreatePixmap(app, window, 16, 16, 24);
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
    for (const bool withRead : {false, true}) {
        ASSERT_TRUE(kor_glXMakeCurrent(app, drawable, context));
        gl.clearCalls();
        markLog();
        EXPECT_TRUE(withRead ? kor_glXMakeContextCurrent(app, window, window, context)
                             : kor_glXMakeCurrent(app, window, context));
        for (const char* function : {"kor_glXMakeCurrent", "kor_glXMakeContextCurrent"}) {
            EXPECT_FALSE(said('D', function, "flushing old context"));
            EXPECT_FALSE(said('D', function, "flushing old drawable output"));
        }
        EXPECT_THAT(sayings("finishOrFlush"), IsEmpty());
        EXPECT_THAT(gl.callsOf("glFlush"), IsEmpty());
    }
}

TEST_F(MakeCurrent, ReadAndDrawDrawablesMayDiffer) {
    begin();
    const Window other = makeWindow(30, 30);
    EXPECT_TRUE(kor_glXMakeContextCurrent(app, window, other, context));
    EXPECT_EQ(gl.callsOf("glXMakeContextCurrent").back().text, "glXMakeContextCurrent(local, " +
                                                                   localNameOf(window) + ", " +
                                                                   localNameOf(other) + ", ctx)");
    EXPECT_EQ(kor_glXGetCurrentDrawable(), window);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), other);
    EXPECT_EQ(findLocalDrawable(other)->lastContext.load(), context);
    EXPECT_TRUE(said('D', "kor_glXMakeContextCurrent",
                     format("drawable: %lx, read drawable %lx, context: %x", window, other,
                            static_cast<unsigned>(fake::word(context)))));
    EXPECT_TRUE(kor_glXMakeContextCurrent(app, None, None, nullptr));
    EXPECT_EQ(gl.callsOf("glXMakeContextCurrent").back().text,
              "glXMakeContextCurrent(local, 0, 0, null)");
}

TEST_F(MakeCurrent, WithoutAReadDrawableNoneIsPassedOnAndNoted) {
    begin();
    EXPECT_TRUE(kor_glXMakeContextCurrent(app, window, None, context));
    EXPECT_EQ(gl.callsOf("glXMakeContextCurrent").back().text,
              "glXMakeContextCurrent(local, " + localNameOf(window) + ", 0, ctx)");
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), None);
    EXPECT_EQ(getTSD()->currentReadDrawable, nullptr);
}

TEST_F(MakeCurrent, TheDriverIsCalledUnderTheLocalDisplayLockAlone) {
    begin();
    std::vector<std::vector<std::string>> held;
    gl.onCall("glXMakeCurrent", [&](const fake::Call&) { held.push_back(heldLocks()); });
    gl.onCall("glXMakeContextCurrent", [&](const fake::Call&) { held.push_back(heldLocks()); });
    kor_glXMakeCurrent(app, window, context);
    kor_glXMakeContextCurrent(app, window, window, context);
    kor_glXMakeCurrent(app, None, nullptr);
    gl.onCall("glXMakeCurrent", nullptr);
    gl.onCall("glXMakeContextCurrent", nullptr);
    EXPECT_THAT(held, ElementsAre(ElementsAre("local display"), ElementsAre("local display"),
                                  ElementsAre("local display")));
}

TEST_F(MakeCurrent, TheDebugCallbackIsInstalledUnderTheContextLock) {
    set("KOR_GL_ADD_GL_DEBUG_CALLBACK", "1");
    begin();
    std::vector<std::string> held;
    gl.onCall("glDebugMessageCallback", [&](const fake::Call&) { held = heldLocks(); });
    kor_glXMakeCurrent(app, window, context);
    gl.onCall("glDebugMessageCallback", nullptr);
    EXPECT_THAT(held, ElementsAre("contexts"));
}
