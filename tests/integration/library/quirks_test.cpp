// Behaviour that looks as if it wanted mending, and is wanted: each test fails when it is mended.

#include "frames.h"

#include "config/settings.h"
#include "context/context_map.h"
#include "context/frame_end.h"
#include "core/system_gl.h"
#include "core/tsd.h"
#include "display/displays.h"
#include "drawable/drawable_info.h"
#include "framework/wait_until.h"
#include "transport/copyback.h"
#include "transport/readback_context.h"

#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Quirks : public Frames {
  protected:
    /// A context current on a single-buffered window.
    void beginSingle() {
        start();
        context = makeContext("ctx", config("single"));
        window = makeWindow(64, 48, singleVisual);
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
        gl.clearCalls();
        markLog();
    }

    static kor::gl::ContextInfo* contextRecord(GLXContext ctx) {
        const kor::Lock lock(kor::gl::getContextMutex());
        return kor::gl::findContext(ctx);
    }

    size_t frames() const { return gl.callsOf("glFenceSync").size(); }
};

} // namespace

TEST_F(Quirks, AFlagThatSkipsASwapOutlivesItsSettingByOneSwap) {
    set("KOR_GL_SKIP_DOUBLE_SWAP", "1");
    begin(64, 48);
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(record()->skipNextSwap);
    set("KOR_GL_SKIP_DOUBLE_SWAP", "0");
    kor::conf::Settings::reload();
    gl.clearCalls();
    kor_glXSwapBuffers(app, window);
    EXPECT_THAT(gl.calls(), IsEmpty()) << "swallowed";
    kor_glXSwapBuffers(app, window);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(gl.callsOf("glXSwapBuffers").size(), 2U);
}

TEST_F(Quirks, ASingleBufferedContextThatDrawsToTheBackIsNotFiltered) {
    beginSingle();
    GLXContext other = makeContext("other");
    kor_glXCopyContext(app, other, context, 0);
    ASSERT_EQ(contextRecord(context)->drawBuffer, static_cast<GLenum>(GL_BACK));
    contextRecord(context)->forceNextReadback = false;
    gl.clearCalls();
    kor_glFlush();
    EXPECT_THAT(gl.callsOf("glEndQuery"), IsEmpty());
    EXPECT_EQ(frames(), 1U);
}

TEST_F(Quirks, TheFirstFilteredFlushEndsAQueryThatDoesNotRun) {
    beginSingle();
    kor_glFlush();
    std::vector<std::string> queries;
    for (const std::string& text : mine())
        if (text.find("Query") != std::string::npos || text.find("Queries") != std::string::npos)
            queries.push_back(text.substr(0, text.find('(')));
    EXPECT_THAT(queries,
                ElementsAre("glGenQueries", "glEndQuery", "glGetQueryObjectiv", "glBeginQuery"));
    EXPECT_EQ(frames(), 1U) << "the flag is set at first";
    kor_glFlush();
    EXPECT_EQ(frames(), 1U) << "and cleared by that";
}

TEST_F(Quirks, AFrameOfNoDrawableEndsWithoutTheSystem) {
    beginSingle();
    kor::gl::TSD* tsd = getTSD();
    kor::gl::DrawableInfo* own = tsd->currentDrawable;
    tsd->currentDrawable = nullptr;
    finishOrFlush(system_glFlush, tsd);
    tsd->currentDrawable = own;
    EXPECT_THAT(gl.callsOf("glFlush"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glFinish"), IsEmpty());
    EXPECT_EQ(frames(), 0U);
}

TEST_F(Quirks, AFlushOfAWindowWithoutAContextIsDropped) {
    begin(20, 20);
    kor::gl::TSD* tsd = getTSD();
    GLXContext own = tsd->currentContext;
    tsd->currentContext = nullptr;
    kor_glFlush();
    kor_glFinish();
    tsd->currentContext = own;
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_EQ(timesSaid('D', "finishOrFlush", "no context"), 2U);
}

TEST_F(Quirks, APixmapSharedWithTheApplicationDisplayIsNotCopied) {
    begin(20, 20);
    const Pixmap pixmap = XCreatePixmap(app, window, 12, 7, 24);
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
    ASSERT_TRUE(kor_glXMakeCurrent(app, drawable, context));
    const kor::gl::DrawableRef shared = findLocalDrawable(drawable);
    const Pixmap own = shared->localPixmap;
    shared->localPixmap = shared->appPixmap;
    gl.clearCalls();
    markLog();
    kor_glFinish();
    shared->localPixmap = own;
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFinish()"));
    EXPECT_THAT(sayings("copybackPixmap"), IsEmpty());
}

TEST_F(Quirks, ARecordUnderTheSameHandleIsReplacedAndTheOldOneLeft) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    begin(20, 20);
    kor::gl::ContextInfo* const old = contextRecord(context);
    addToContextMap(app, context, old->visualInfo, old->fbconfig);
    EXPECT_NE(contextRecord(context), old);
    EXPECT_EQ(old->context, context) << "not deleted";
    const kor::Lock lock(kor::gl::getContextMutex());
    EXPECT_EQ(kor::gl::getContextMap().count(), 1U);
}

TEST_F(Quirks, ADestroyedContextMadeCurrentAgainOnItsThreadLosesItsRecord) {
    begin(20, 20);
    kor_glXDestroyContext(app, context);
    markLog();
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    const unsigned text = static_cast<unsigned>(fake::word(context));
    EXPECT_THAT(sayings("setCurrent"),
                ElementsAre(format("context %x removed from the map.", text),
                            format("context %x not found in the map.", text)));
    EXPECT_EQ(contextRecord(context), nullptr);
    EXPECT_EQ(kor_glXGetCurrentContext(), context);
}

TEST_F(Quirks, DestroyingACurrentContextTwiceMarksItTwiceAndAsksTheDriverTwice) {
    begin(20, 20);
    kor_glXDestroyContext(app, context);
    kor_glXDestroyContext(app, context);
    EXPECT_EQ(timesSaid('D', "kor_glXDestroyContext",
                        format("context %x is current to a thread, mark as destroyed without "
                               "removing from the map.",
                               static_cast<unsigned>(fake::word(context)))),
              2U);
    EXPECT_EQ(gl.callsOf("glXDestroyContext").size(), 2U);
}

TEST_F(Quirks, ErasingAPbufferCleansTheCallingThreadOnly) {
    begin(20, 20);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, pbuffer, context));
    std::thread([&] { kor_glXDestroyPbuffer(app, pbuffer); }).join();
    EXPECT_NE(getTSD()->currentReadDrawable, nullptr);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), pbuffer);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
}

TEST_F(Quirks, ErasingTheReadDrawableClearsItAlone) {
    begin(20, 20);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, pbuffer, context));
    kor_glXDestroyPbuffer(app, pbuffer);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), None);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), window);
    EXPECT_EQ(kor_glXGetCurrentContext(), context);
}

TEST_F(Quirks, APbuffersRecordDoesNotKeepTheLocalConnection) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    std::thread([&] {
        EXPECT_NE(kor_glXCreatePbuffer(app, config("double1"), nullptr), None);
    }).join();
    EXPECT_FALSE(sayings("_unsetLocalDisplay").empty());
}

TEST_F(Quirks, APbufferThatTheDriverRefusesAtAResizeIsNone) {
    begin(60, 40);
    resizeWindow(window, 70, 30);
    gl.failCall("glXCreatePbuffer", 1);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_EQ(record()->localDrawable.load(), None);
    EXPECT_TRUE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 70x30"));
    EXPECT_EQ(gl.calls().back().name, "glXMakeContextCurrent");
    // It counts as made: without another resize it is not tried again.
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_THAT(gl.calls(), IsEmpty());
    // Nothing is left to destroy; the next resize makes one again.
    resizeWindow(window, 80, 30);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_THAT(gl.callsOf("glXDestroyPbuffer"), IsEmpty());
    EXPECT_NE(record()->localDrawable.load(), None);
}

TEST_F(Quirks, WithoutAReadDrawableARefusedPbufferIsNotBoundAgain) {
    begin(60, 40);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, None, context));
    resizeWindow(window, 70, 30);
    gl.failCall("glXCreatePbuffer", 1);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_EQ(gl.calls().back().name, "glXCreatePbuffer");
    EXPECT_FALSE(said('W', "checkForResize", "failed to restore context"));
}

TEST_F(Quirks, ADrawableWithoutALastContextStaysUnbound) {
    begin(60, 40);
    record()->lastContext = nullptr;
    resizeWindow(window, 70, 30);
    gl.clearCalls();
    record()->checkForResize();
    std::vector<std::string> names;
    for (const fake::Call& call : gl.calls())
        names.push_back(call.name);
    EXPECT_THAT(names, ElementsAre("glXMakeCurrent", "glXDestroyPbuffer", "glXCreatePbuffer"));
}

TEST_F(Quirks, ARecreatedReadContextLeavesTheOldWorkerToItself) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    const pid_t first = gl.callsOf("glReadPixels").back().thread;
    letPaintsArrive();
    gl.clearCalls();
    gl.failCall("glXMakeCurrent", 1);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(gl.callsOf("glXCreateNewContext").size(), 2U) << "read context and worker's context";
    EXPECT_EQ(gl.callsOf("glXDestroyContext").size(), 1U) << "the read context's, not the worker's";
    ASSERT_TRUE(gl.waitForCalls("glReadPixels", 1, 30000));
    EXPECT_NE(gl.callsOf("glReadPixels").back().thread, first);
    letPaintsArrive();
}

TEST_F(Quirks, AFailedReadbackPrintsThePositionForTheSize) {
    begin(64, 48);
    XMoveWindow(app, window, 21, 34);
    XSync(app, False);
    record()->updateWindowInfo(nullptr, nullptr, nullptr);
    gl.failCall("glXCreateNewContext", 1);
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(said('W', "DrawableInfo::readback",
                     format("Failed to create readback contexts for ldi %p, 21x34",
                            static_cast<void*>(record().get()))));
}

TEST_F(Quirks, ATinyWindowsResizeTellsItsOwnSize) {
    begin(64, 48);
    resizeWindow(window, 5, 3);
    gl.clearCalls();
    record()->checkForResize();
    EXPECT_TRUE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 5x3"));
    EXPECT_EQ(gl.callsOf("glXCreatePbuffer").back().list[1], 10);
    EXPECT_EQ(gl.callsOf("glXCreatePbuffer").back().list[3], 10);
    resizeWindow(window, 9, 11);
    record()->checkForResize();
    EXPECT_EQ(gl.callsOf("glXCreatePbuffer").back().list[1], 10);
    EXPECT_EQ(gl.callsOf("glXCreatePbuffer").back().list[3], 11);
}

TEST_F(Quirks, EveryPostIsAPassOfItsOwn) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "20");
    begin(64, 48);
    // Three frames in one interval: the first pass paints the last of them, two find nothing.
    const Window never = makeWindow(20, 20); // never read back: each pass says so
    ASSERT_TRUE(kor_glXMakeCurrent(app, never, context));
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    for (int i = 0; i < 3; ++i)
        kor_glXSwapBuffers(app, window);
    const auto passes = [&] {
        return timesSaid('D', "DrawableInfo::copyback",
                         "copyback called before readback context has been set. Ignoring.");
    };
    EXPECT_TRUE(kor::test::waitUntil([&] { return passes() >= 3; }));
    EXPECT_EQ(passes(), 3U);
    letPaintsArrive();
}

TEST_F(Quirks, AViewportOfAPbufferLooksForNoResize) {
    begin(20, 20);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeCurrent(app, pbuffer, context));
    gl.clearCalls();
    markLog();
    kor_glViewport(1, 2, 3, 4);
    EXPECT_THAT(sayings("checkForResize"), IsEmpty());
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glViewport(1, 2, 3, 4)"));
}

TEST_F(Quirks, ATextureOfNoDrawableIsBoundWithoutAWord) {
    start();
    kor_glXBindTexImageEXT(app, None, GLX_FRONT_LEFT_EXT, nullptr);
    EXPECT_EQ(gl.callsOf("glXBindTexImageEXT").back().arguments[1], 0U);
    EXPECT_FALSE(said('D', "kor_glXBindTexImageEXT", "local drawable not found"));
}

TEST_F(Quirks, TheIntervalIsRoundedDown) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "60");
    start();
    EXPECT_EQ(kor::gl::Copyback::instance()->frameInterval(), 16666U);
}

TEST_F(Quirks, ByDefaultThirtyPassesASecond) {
    start();
    EXPECT_EQ(kor::gl::Copyback::instance()->frameInterval(), 33333U);
}

TEST_F(Quirks, ANegativeRateIsOnePassASecond) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "-5");
    start();
    EXPECT_EQ(kor::gl::Copyback::instance()->frameInterval(), 1000000U);
}

TEST_F(Quirks, ARateBeyondAMillionSleepsNotAtAll) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "1000001");
    start();
    EXPECT_EQ(kor::gl::Copyback::instance()->frameInterval(), 0U);
}
