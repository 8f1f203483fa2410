// Drawing to the front buffer: which flush is a frame, the sample query, the switch back.

#include "frames.h"

#include "config/settings.h"
#include "context/context_map.h"
#include "core/tsd.h"

#include <algorithm>
#include <array>
#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class FrontBuffer : public Frames {
  protected:
    kor::gl::ContextInfo& info() const {
        const kor::Lock lock(kor::gl::getContextMutex());
        return *kor::gl::findContext(kor_glXGetCurrentContext());
    }

    /// A single-buffered window and context.
    void beginSingle() {
        start();
        context = makeContext("ctx", config("single"));
        window = makeWindow(20, 20, singleVisual);
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
        gl.clearCalls();
        markLog();
    }

    size_t frames() const { return gl.callsOf("glCopyTexSubImage2D").size(); }
    void quiet() const { info().forceNextReadback = false; }

    const std::string endQuery = "glEndQuery(GL_SAMPLES_PASSED)";
};

constexpr std::array<GLenum, 10> drawBuffers = {
    GL_NONE,  GL_FRONT_LEFT, GL_FRONT_RIGHT, GL_BACK_LEFT, GL_BACK_RIGHT,
    GL_FRONT, GL_BACK,       GL_LEFT,        GL_RIGHT,     GL_FRONT_AND_BACK};

} // namespace

TEST_F(FrontBuffer, TheSwitchToTheFrontStartsTheQuery) {
    begin(20, 20);
    std::string lastLine;
    gl.onCall("glBeginQuery", [&](const fake::Call&) { lastLine = log().back().message; });
    kor_glDrawBuffer(GL_FRONT);
    gl.onCall("glBeginQuery", nullptr);
    EXPECT_EQ(lastLine, "mode 404 - starting query");
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glGenQueries(1, out)", "glBeginQuery(GL_SAMPLES_PASSED, 131)",
                            "glDrawBuffer(GL_FRONT)"));
    EXPECT_EQ(info().drawBuffer, static_cast<GLenum>(GL_FRONT));
    EXPECT_THAT(sayings("kor_glDrawBuffer"),
                ElementsAre("START", "mode FRONT (0x404)",
                            format("found context %p (old mode: BACK, dbf: 1)",
                                   static_cast<void*>(&info())),
                            "mode 404 - starting query", "DONE"));
}

TEST_F(FrontBuffer, TheSwitchBackAfterDrawingReadsTheFrameBackFirst) {
    begin(20, 20);
    quiet();
    kor_glDrawBuffer(GL_FRONT);
    gl.clearCalls();
    markLog();
    gl.setQueryResult(500);
    kor_glDrawBuffer(GL_BACK);
    const std::vector<std::string> calls = mine();
    ASSERT_GE(calls.size(), 5U);
    EXPECT_EQ(calls[0], endQuery);
    EXPECT_EQ(calls[1], "glGetQueryObjectiv(131, GL_QUERY_RESULT, out)");
    EXPECT_EQ(calls[2], "glFinish()");
    EXPECT_EQ(calls[3], "glXGetCurrentContext()"); // the readback
    EXPECT_EQ(calls.back(), "glDrawBuffer(GL_BACK)");
    EXPECT_EQ(frames(), 1U);
    EXPECT_EQ(info().drawBuffer, static_cast<GLenum>(GL_BACK));
    EXPECT_TRUE(said('D', "kor_glDrawBuffer", "mode 405 - Finishing query"));
    EXPECT_TRUE(
        said('D', "kor_glDrawBuffer", "switch from front to back after drawing 500 pixels..."));
}

TEST_F(FrontBuffer, TheSwitchBackWithNothingDrawnReadsNothingBack) {
    begin(20, 20);
    quiet();
    kor_glDrawBuffer(GL_FRONT);
    gl.clearCalls();
    kor_glDrawBuffer(GL_BACK);
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre(endQuery, "glGetQueryObjectiv(131, GL_QUERY_RESULT, out)",
                            "glDrawBuffer(GL_BACK)"));
}

TEST_F(FrontBuffer, TheSwitchBackAfterAClearReadsBackAndLeavesTheFlag) {
    begin(20, 20);
    quiet();
    kor_glDrawBuffer(GL_FRONT);
    kor_glClear(GL_COLOR_BUFFER_BIT);
    kor_glDrawBuffer(GL_BACK);
    EXPECT_EQ(frames(), 1U);
    EXPECT_TRUE(info().forceNextReadback);
}

TEST_F(FrontBuffer, OnlyTheSwitchToBackItselfEndsAFrame) {
    begin(20, 20);
    gl.setQueryResult(500);
    kor_glDrawBuffer(GL_FRONT);
    kor_glDrawBuffer(GL_BACK_LEFT);
    EXPECT_EQ(frames(), 0U);
    kor_glDrawBuffer(GL_FRONT_LEFT);
    kor_glDrawBuffer(GL_BACK);
    EXPECT_EQ(frames(), 0U);
    kor_glDrawBuffer(GL_FRONT_AND_BACK);
    kor_glDrawBuffer(GL_BACK);
    EXPECT_EQ(frames(), 1U);
}

TEST_F(FrontBuffer, WithoutQueriesTheSwitchBackGoesByTheFlagAlone) {
    set("KOR_GL_USE_SAMPLE_QUERIES", "0");
    begin(20, 20);
    quiet();
    gl.setQueryResult(500);
    kor_glDrawBuffer(GL_FRONT);
    kor_glDrawBuffer(GL_BACK);
    EXPECT_EQ(frames(), 0U);
    EXPECT_THAT(gl.callsOf("glGenQueries"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glBeginQuery"), IsEmpty());
    info().forceNextReadback = true;
    kor_glDrawBuffer(GL_FRONT);
    kor_glDrawBuffer(GL_BACK);
    EXPECT_EQ(frames(), 1U);
}

TEST_F(FrontBuffer, AFlushWithSamplesDrawnIsAFrameAndFinishes) {
    begin(20, 20);
    quiet();
    kor_glDrawBuffer(GL_FRONT);
    gl.clearCalls();
    gl.setQueryResult(1);
    kor_glFlush();
    const std::vector<std::string> calls = mine();
    ASSERT_GE(calls.size(), 5U);
    EXPECT_EQ(calls[0], endQuery);
    EXPECT_EQ(calls[1], "glGetQueryObjectiv(131, GL_QUERY_RESULT, out)");
    EXPECT_EQ(calls[2], "glBeginQuery(GL_SAMPLES_PASSED, 131)");
    EXPECT_EQ(calls[3], "glFinish()");
    EXPECT_EQ(frames(), 1U);
    EXPECT_THAT(gl.callsOf("glXSwapBuffers"), IsEmpty());
    EXPECT_TRUE(said('D', "finishOrFlush", "draw 404, dbf 1 - drawn 1 pixels"));
}

TEST_F(FrontBuffer, AFlushWithNothingDrawnIsJustAFlush) {
    begin(20, 20);
    quiet();
    kor_glDrawBuffer(GL_FRONT);
    gl.clearCalls();
    kor_glFlush();
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre(endQuery, "glGetQueryObjectiv(131, GL_QUERY_RESULT, out)",
                            "glBeginQuery(GL_SAMPLES_PASSED, 131)", "glFlush()"));
}

TEST_F(FrontBuffer, TheFlagForcesOneFrameAndIsCleared) {
    begin(20, 20);
    kor_glDrawBuffer(GL_FRONT);
    EXPECT_TRUE(info().forceNextReadback);
    kor_glFlush();
    EXPECT_EQ(frames(), 1U);
    EXPECT_FALSE(info().forceNextReadback);
    kor_glFlush();
    EXPECT_EQ(frames(), 1U);
}

TEST_F(FrontBuffer, ASingleBufferedWindowsFirstFlushGoesByTheFlag) {
    beginSingle();
    quiet();
    gl.forgetQueryResult(); // the query does not run: the driver writes nothing
    kor_glFlush();
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glGenQueries(1, out)", endQuery,
                            "glGetQueryObjectiv(131, GL_QUERY_RESULT, out)",
                            "glBeginQuery(GL_SAMPLES_PASSED, 131)", "glFlush()"));
}

TEST_F(FrontBuffer, AFlushWithFrontAndBackAlwaysIsAFrame) {
    begin(20, 20);
    kor_glDrawBuffer(GL_FRONT_AND_BACK);
    quiet();
    kor_glFlush();
    kor_glFinish();
    EXPECT_EQ(frames(), 2U);
    EXPECT_THAT(gl.callsOf("glEndQuery"), IsEmpty());
}

TEST_F(FrontBuffer, InSelectOrFeedbackModeAFlushIsNeverAFrame) {
    beginSingle();
    for (const GLenum mode : {GL_SELECT, GL_FEEDBACK}) {
        kor_glRenderMode(mode);
        gl.clearCalls();
        kor_glFlush();
        EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFlush()"));
    }
    kor_glRenderMode(GL_RENDER);
    kor_glFlush();
    EXPECT_EQ(frames(), 1U);
}

TEST_F(FrontBuffer, TheApplicationsOwnQueriesTurnTheFilterOffForGood) {
    begin(20, 20);
    kor_glDrawBuffer(GL_FRONT);
    GLuint id = 0;
    kor_glGenQueries(1, &id);
    EXPECT_FALSE(kor::conf::settings().useSampleQueries);
    EXPECT_TRUE(said('D', "kor_glGenQueries", "disable occlusion query optimization"));
    EXPECT_NE(id, 0U);
    kor_glGenQueriesARB(1, &id);
    EXPECT_FALSE(said('D', "kor_glGenQueriesARB", "disable occlusion query optimization"));
    quiet();
    gl.clearCalls();
    kor_glFlush();
    kor_glFlush();
    EXPECT_EQ(frames(), 2U);
    EXPECT_THAT(gl.callsOf("glEndQuery"), IsEmpty());
}

TEST_F(FrontBuffer, QueriesByTheExtensionsNameTurnTheFilterOffToo) {
    begin(20, 20);
    kor_glDrawBuffer(GL_FRONT);
    quiet();
    gl.clearCalls();
    GLuint id = 0;
    kor_glGenQueriesARB(1, &id);
    EXPECT_FALSE(kor::conf::settings().useSampleQueries);
    EXPECT_THAT(sayings("kor_glGenQueriesARB"),
                ElementsAre("START", "disable occlusion query optimization"));
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glGenQueriesARB(1, out)"));
    EXPECT_NE(id, 0U);
    kor_glFlush();
    EXPECT_EQ(frames(), 1U);
    EXPECT_THAT(gl.callsOf("glEndQuery"), IsEmpty());
}

TEST_F(FrontBuffer, TheDrawBufferDecidesWhetherAFlushIsAFrameAndIsFiltered) {
    begin(20, 20);
    const auto flush = [&](GLint samples) {
        quiet();
        gl.clearCalls();
        gl.setQueryResult(samples);
        kor_glFlush();
        return std::make_pair(frames(), gl.callsOf("glEndQuery").size());
    };
    const auto none = std::make_pair(size_t{0}, size_t{0});
    for (const GLenum mode : drawBuffers) {
        kor_glDrawBuffer(mode);
        const bool front = mode == GL_FRONT_LEFT || mode == GL_FRONT_RIGHT || mode == GL_FRONT;
        if (front) {
            EXPECT_EQ(flush(1), std::make_pair(size_t{1}, size_t{1})) << mode;
            EXPECT_EQ(flush(0), std::make_pair(size_t{0}, size_t{1})) << mode;
        } else if (mode == GL_FRONT_AND_BACK) {
            EXPECT_EQ(flush(1), std::make_pair(size_t{1}, size_t{0}));
            EXPECT_EQ(flush(0), std::make_pair(size_t{1}, size_t{0}));
        } else {
            EXPECT_EQ(flush(1), none) << mode;
            EXPECT_EQ(flush(0), none) << mode;
        }
    }
}

TEST_F(FrontBuffer, TheQueryBeginsWithEverySwitchFromABackBuffer) {
    begin(20, 20);
    const auto isBack = [](GLenum mode) {
        return mode == GL_BACK_LEFT || mode == GL_BACK_RIGHT || mode == GL_BACK;
    };
    for (const GLenum old : drawBuffers) {
        for (const GLenum mode : drawBuffers) {
            kor_glDrawBuffer(old);
            ASSERT_EQ(info().drawBuffer, old);
            gl.clearCalls();
            kor_glDrawBuffer(mode);
            const bool begins = isBack(old) && !isBack(mode) && mode != GL_FRONT_AND_BACK;
            EXPECT_EQ(gl.callsOf("glBeginQuery").size(), begins ? 1U : 0U)
                << std::hex << old << " to " << mode;
        }
    }
}

TEST_F(FrontBuffer, ASingleBufferedContextBeginsNoQueryWhenItLeavesTheBackBuffer) {
    beginSingle();
    info().drawBuffer = GL_BACK; // as a copied context may have it
    kor_glDrawBuffer(GL_FRONT);
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glGenQueries(1, out)", "glDrawBuffer(GL_FRONT)"));
}

TEST_F(FrontBuffer, AnyDrawBufferMakesTheQueryObjectOnce) {
    begin(20, 20);
    kor_glDrawBuffer(GL_BACK);
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glGenQueries(1, out)", "glDrawBuffer(GL_BACK)"));
    gl.clearCalls();
    kor_glDrawBuffer(GL_BACK);
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glDrawBuffer(GL_BACK)"));
}

TEST_F(FrontBuffer, SoDoesABackBufferThatTheVisualLacks) {
    beginSingle();
    kor_glDrawBuffer(GL_BACK);
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glGenQueries(1, out)", "glDrawBuffer(GL_FRONT)"));
}

TEST_F(FrontBuffer, TheSwitchBackOfAPbufferFinishesAndReadsNothingBack) {
    begin(20, 20);
    ASSERT_TRUE(
        kor_glXMakeCurrent(app, kor_glXCreatePbuffer(app, config("double1"), nullptr), context));
    kor_glDrawBuffer(GL_FRONT);
    gl.clearCalls();
    gl.setQueryResult(5);
    kor_glDrawBuffer(GL_BACK);
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre(endQuery, "glGetQueryObjectiv(131, GL_QUERY_RESULT, out)", "glFinish()",
                            "glDrawBuffer(GL_BACK)"));
}

TEST_F(FrontBuffer, TheQueryIsHandledUnderTheContextLockAndTheFrameWithout) {
    begin(20, 20);
    kor_glDrawBuffer(GL_FRONT);
    std::vector<std::string> wrong;
    gl.onCall("", [&](const fake::Call& call) {
        const std::vector<std::string> held = heldLocks();
        const bool query = call.name.find("Quer") != std::string::npos;
        const bool glx = call.name.rfind("glX", 0) == 0;
        if (query != (held == std::vector<std::string>{"contexts"}) && !glx)
            wrong.push_back(call.text);
        if (call.name == "glFinish" && !held.empty())
            wrong.push_back(call.text);
    });
    kor_glFlush();
    gl.setQueryResult(4);
    kor_glDrawBuffer(GL_BACK);
    gl.onCall("", nullptr);
    EXPECT_EQ(frames(), 2U);
    // Setting up the read context holds the local display lock throughout.
    wrong.erase(std::remove_if(wrong.begin(), wrong.end(),
                               [](const std::string& text) { return text.rfind("glX", 0) == 0; }),
                wrong.end());
    EXPECT_THAT(wrong, IsEmpty());
}
