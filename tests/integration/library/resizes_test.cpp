// How a resized window's pbuffer follows, bound or not.

#include "frames.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class Resizes : public Frames {
  protected:
    std::vector<std::string> pbuffersMade() const {
        std::vector<std::string> sizes;
        for (const fake::Call& call : gl.callsOf("glXCreatePbuffer"))
            sizes.push_back(format("%dx%d", call.list[1], call.list[3]));
        return sizes;
    }
};

} // namespace

TEST_F(Resizes, AResizeOfAnUnboundWindowOnlyRemakesThePbuffer) {
    begin(60, 40);
    kor_glXMakeCurrent(app, None, nullptr);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_THAT(gl.calls(), IsEmpty());
    const std::string old = pbuffer();
    resizeWindow(window, 70, 30);
    record()->checkForResize();
    ASSERT_THAT(gl.calls(), SizeIs(2));
    EXPECT_EQ(gl.calls()[0].text, "glXDestroyPbuffer(local, " + old + ")");
    EXPECT_THAT(pbuffersMade(), ElementsAre("70x30"));
}

TEST_F(Resizes, AResizeOfTheCurrentWindowUnbindsAndBindsAgain) {
    begin(60, 40);
    const std::string old = pbuffer();
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    record()->checkForResize();
    const std::string fresh = pbuffer();
    EXPECT_NE(fresh, old);
    std::vector<std::string> texts = fake::texts(gl.calls());
    ASSERT_EQ(texts.size(), 4U);
    EXPECT_EQ(texts[0], "glXMakeCurrent(local, 0, null)");
    EXPECT_EQ(texts[1], "glXDestroyPbuffer(local, " + old + ")");
    EXPECT_EQ(texts[2].rfind("glXCreatePbuffer(local, double1, ", 0), 0U);
    EXPECT_EQ(texts[3], "glXMakeContextCurrent(local, " + fresh + ", " + fresh + ", ctx)");
}

TEST_F(Resizes, AWindowThatIsHiddenOrShownGetsAFreshPbuffer) {
    begin(60, 40);
    const auto setMapped = [&](bool mapped) {
        if (mapped)
            XMapWindow(app, window);
        else
            XUnmapWindow(app, window);
        XSync(app, False);
        gl.clearCalls();
    };
    for (const bool mapped : {false, true}) {
        setMapped(mapped);
        record()->checkForResize();
        EXPECT_THAT(pbuffersMade(), ElementsAre("60x40")) << mapped;
        gl.clearCalls();
        record()->checkForResize();
        EXPECT_THAT(pbuffersMade(), IsEmpty()) << mapped;
    }
    // Noticed by someone who does not ask about it, the change makes no pbuffer.
    for (const bool mapped : {false, true}) {
        setMapped(mapped);
        ASSERT_TRUE(record()->updateWindowInfo(nullptr, nullptr, nullptr));
        EXPECT_EQ(record()->isVisible(), mapped);
        record()->checkForResize();
        EXPECT_THAT(pbuffersMade(), IsEmpty()) << mapped;
    }
}

TEST_F(Resizes, OfAWindowThatIsDrawnOnlyTheReadDrawableStays) {
    begin(60, 40);
    const Window other = makeWindow(30, 30);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, other, context));
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_THAT(pbuffersMade(), ElementsAre("70x30"));
    EXPECT_EQ(gl.calls().front().text, "glXMakeCurrent(local, 0, null)");
    EXPECT_EQ(gl.calls().back().text, "glXMakeContextCurrent(local, " + pbuffer() + ", " +
                                          gl.nameOf(findLocalDrawable(other)->localDrawable) +
                                          ", ctx)");
}

TEST_F(Resizes, AWindowThatIsReadOnlyIsBoundForBoth) {
    begin(60, 40);
    const Window other = makeWindow(30, 30);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, other, window, context));
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_THAT(pbuffersMade(), ElementsAre("70x30"));
    EXPECT_EQ(gl.calls().front().text, "glXMakeCurrent(local, 0, null)");
    // What was resized is drawn to from now on, until the application binds again.
    EXPECT_EQ(gl.calls().back().text,
              "glXMakeContextCurrent(local, " + pbuffer() + ", " + pbuffer() + ", ctx)");
}

TEST_F(Resizes, WithoutAReadDrawableAPlainMakeCurrentBindsAgain) {
    begin(60, 40);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, None, context));
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_EQ(gl.calls().back().text, "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
}

TEST_F(Resizes, ADriverThatWillNotUnbindKeepsThePbuffer) {
    begin(60, 40);
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    gl.fail("glXMakeCurrent");
    record()->checkForResize();
    EXPECT_TRUE(said('W', "checkForResize", "failed to unset context"));
    EXPECT_THAT(gl.callsOf("glXCreatePbuffer"), IsEmpty());
}

TEST_F(Resizes, ADriverThatWillNotBindAgainIsReported) {
    begin(60, 40);
    resizeWindow(window, 70, 30);
    gl.fail("glXMakeContextCurrent");
    record()->checkForResize();
    EXPECT_TRUE(said('W', "checkForResize", "failed to restore context"));
}

TEST_F(Resizes, AWindowWhoseContextIsForgottenStaysUnbound) {
    begin(60, 40);
    record()->lastContext = nullptr;
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_THAT(pbuffersMade(), ElementsAre("70x30"));
    EXPECT_THAT(gl.callsOf("glXMakeContextCurrent"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glXMakeCurrent"), SizeIs(1)); // the one that unbinds
}

TEST_F(Resizes, ARecordThatHasEndedWhileItWasUsedMakesNothingNew) {
    begin(60, 40);
    const kor::gl::DrawableRef used = record();
    eraseLocalDrawable(window, kor::gl::WindowDrawable);
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    used->checkForResize();
    used->updateOffscreenPbuffer();
    used->readback();
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(Resizes, OnlyWindowsAreResized) {
    begin(60, 40);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    markLog();
    findLocalDrawable(pbuffer)->checkForResize();
    EXPECT_THAT(sayings("checkForResize"),
                ElementsAre("START", format("ignored. %lx is not a window", pbuffer)));
}
