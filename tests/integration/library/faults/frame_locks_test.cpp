// Which of the library's locks are held at each call that a frame makes to the driver, thread by
// thread, and in which order they are taken.

#include "lock_trace.h"

#include "display/connections.h"
#include "display/displays.h"

#include <algorithm>
#include <thread>

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class FrameLocks : public LockTrace {
  protected:
    using Texts = std::vector<std::string>;

    /// One frame of the window, traced from its swap to its picture.
    void traceFrame() {
        trace();
        ASSERT_TRUE(swapAndPaint());
        letItRest();
        endTrace();
    }

    /// Waits for the pass that paints what was swapped, so that the next trace begins in peace; on
    /// a thread of its own, whose locks are not looked at.
    void letItRest() const {
        std::thread([this] { letPaintsArrive(); }).join();
    }

    /// What makes the read context and the worker's, once.
    const std::string newContexts = "glXCreateNewContext glXMakeCurrent glPixelStorei glDisable "
                                    "glDisable glReadBuffer glViewport glXCreateNewContext";
    const std::string newTextures = "glGenTextures glBindTexture glTexParameteri glTexParameteri "
                                    "glGenTextures glBindTexture glTexParameteri glTexParameteri";
    const std::string sizes = "glBindTexture glTexImage2D glBindTexture glTexImage2D";
    const std::string newPrograms =
        "glGenFramebuffers glBindFramebuffer glFramebufferTexture glCheckFramebufferStatus "
        "glCreateProgram glCreateShader glShaderSource glCompileShader glCreateShader "
        "glShaderSource glCompileShader glAttachShader glAttachShader glLinkProgram "
        "glBindFramebuffer";
    const std::string flip =
        "glActiveTexture glBindTexture glCopyTexSubImage2D glViewport glUseProgram "
        "glBindFramebuffer glGetUniformLocation glUniform1f glBindTexture glGetUniformLocation "
        "glUniform1i glDrawArrays glUseProgram glBindFramebuffer glBindTexture";
    const std::string fence = "glFenceSync glBindTexture glFlush";
    const std::string firstSlice =
        newTextures + " " + sizes + " glGetIntegerv " + newPrograms + " " + flip;
    const std::string laterSlice = "glBindTexture glGetIntegerv " + flip;
    const std::string firstRead =
        "glGetIntegerv glGenFramebuffers glBindFramebuffer glFramebufferTexture "
        "glPushClientAttrib glPixelStorei glPixelStorei glPixelStorei glReadPixels "
        "glPopClientAttrib glBindFramebuffer";
    const std::string laterRead =
        "glGetIntegerv glBindFramebuffer glPushClientAttrib glPixelStorei glPixelStorei "
        "glPixelStorei glReadPixels glPopClientAttrib glBindFramebuffer";

    /// A frame's calls between its end and the driver's getting the application's context back.
    Texts readback(const std::string& contexts, const std::string& copy) const {
        return {"local display: " + contexts, "copy: " + copy, "local display: glXMakeCurrent"};
    }
    static Texts joined(Texts first, const Texts& second) {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }
    Texts mineUnderLocks() const { return callsUnderLocks(gettid()); }
    Texts takenHere() const { return taken(gettid()); }

    const Texts swap = {"-: glFinish", "local display: glXSwapBuffers",
                        "-: glXGetCurrentContext glGetIntegerv"};
    const Texts visibleEnd = {"-: glFinish glXGetCurrentContext glGetIntegerv"};
};

} // namespace

TEST_F(FrameLocks, OfTheFirstFrameWithOneSlice) {
    begin(64, 48);
    traceFrame();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAreArray(joined(swap, readback(newContexts, firstSlice + " " + fence))));
    EXPECT_THAT(callsUnderLocks(workerThread()),
                ElementsAre("local display: glXMakeCurrent", "-: glClientWaitSync glDeleteSync " +
                                                                 firstRead + " glBindFramebuffer"));
    EXPECT_THAT(callsUnderLocks(painterThread()), IsEmpty());
}

TEST_F(FrameLocks, OfTheSecondFrame) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    letItRest();
    traceFrame();
    EXPECT_THAT(mineUnderLocks(), ElementsAreArray(joined(
                                      swap, readback("glXMakeCurrent", laterSlice + " " + fence))));
    EXPECT_THAT(callsUnderLocks(workerThread()), ElementsAre("-: glClientWaitSync glDeleteSync " +
                                                             laterRead + " glBindFramebuffer"));
}

TEST_F(FrameLocks, OfTwoSlices) {
    begin(5000, 30);
    trace();
    ASSERT_TRUE(swapAndPaint());
    ASSERT_TRUE(gl.waitForCalls("glReadPixels", 2, 30000));
    letItRest();
    endTrace();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAreArray(joined(
                    swap, readback(newContexts, firstSlice + " " + firstSlice + " " + fence))));
    EXPECT_THAT(callsUnderLocks(workerThread()),
                ElementsAre("local display: glXMakeCurrent", "-: glClientWaitSync glDeleteSync " +
                                                                 firstRead + " " + firstRead +
                                                                 " glBindFramebuffer"));
    trace();
    const size_t reads = gl.callsOf("glReadPixels").size();
    kor_glXSwapBuffers(app, window);
    ASSERT_TRUE(gl.waitForCalls("glReadPixels", reads + 2, 30000));
    letItRest();
    endTrace();
    EXPECT_THAT(
        mineUnderLocks(),
        ElementsAreArray(
            joined(swap, readback("glXMakeCurrent", laterSlice + " " + laterSlice + " " + fence))));
}

TEST_F(FrameLocks, OfTheFrameThatFindsAResizeAndTheNext) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    letItRest();
    resizeWindow(window, 80, 40);
    traceFrame();
    // The pbuffer is made anew between unbinding and binding again, each under the lock by itself.
    EXPECT_THAT(mineUnderLocks(),
                ElementsAreArray(joined(
                    swap, {"local display: glXMakeCurrent", "copy: " + laterSlice + " " + fence,
                           "local display: glXMakeCurrent glXMakeCurrent glXDestroyPbuffer "
                           "glXCreatePbuffer glXMakeContextCurrent"})));
    const Texts locks = takenHere();
    ASSERT_GE(locks.size(), 4U);
    EXPECT_THAT(Texts(locks.end() - 4, locks.end()),
                ElementsAre("local display", "local display", "record under local display",
                            "local display"));
    traceFrame();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAreArray(joined(swap, readback("glXMakeCurrent", "glBindTexture " + sizes +
                                                                             " glGetIntegerv " +
                                                                             flip + " " + fence))));
}

TEST_F(FrameLocks, AFrameTakesThemOneAfterAnother) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    letItRest();
    traceFrame();
    // The look-up, the swap; visibility and geometry; read context, copy, restore; the resize
    // check.
    const Texts expected = takenHere();
    for (const std::string& lock : expected)
        EXPECT_THAT(lock, Not(HasSubstr("under"))) << "nothing is nested on this thread";
    EXPECT_EQ(expected.front(), "drawables");
    EXPECT_EQ(expected[1], "local display");
    EXPECT_EQ(std::count(expected.begin(), expected.end(), "copy"), 1);
    EXPECT_THAT(expected, Not(Contains("contexts")));
    EXPECT_THAT(taken(painterThread()),
                ElementsAre("drawables", "record under drawables", "copy under drawables"));
    EXPECT_THAT(taken(workerThread()), IsEmpty())
        << "it works while the painter holds the copy lock";
}

TEST_F(FrameLocks, TheWorkerReadsWhileThePainterHoldsDrawablesAndCopyLock) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    letItRest();
    const kor::gl::DrawableRef current = record();
    pid_t drawables = 0;
    pid_t copy = 0;
    gl.onCall("glReadPixels", [&](const fake::Call&) {
        drawables = ownerOfDrawablesLock();
        copy = ownerOfCopyLock(*current);
    });
    ASSERT_TRUE(swapAndPaint());
    letItRest();
    gl.onCall("glReadPixels", nullptr);
    EXPECT_NE(painterThread(), 0);
    EXPECT_EQ(drawables, painterThread());
    EXPECT_EQ(copy, painterThread());
}

TEST_F(FrameLocks, OfTheSwitchToTheFrontAndBackWithSamplesDrawn) {
    begin(64, 48);
    trace();
    kor_glDrawBuffer(GL_FRONT);
    endTrace();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAre("contexts: glGenQueries glBeginQuery", "-: glDrawBuffer"));
    EXPECT_THAT(takenHere(), ElementsAre("contexts"));
    gl.setQueryResult(500);
    trace();
    kor_glDrawBuffer(GL_BACK);
    endTrace();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAreArray(joined(
                    joined({"contexts: glEndQuery glGetQueryObjectiv"}, visibleEnd),
                    joined(readback(newContexts, firstSlice + " " + fence), {"-: glDrawBuffer"}))));
    EXPECT_EQ(takenHere().front(), "contexts");
}

TEST_F(FrameLocks, OfTheSwitchBackWithNothingDrawn) {
    begin(64, 48);
    kor_glClear(GL_COLOR_BUFFER_BIT);
    kor_glDrawBuffer(GL_FRONT);
    gl.setQueryResult(1);
    kor_glFlush(); // takes the flag away
    gl.setQueryResult(0);
    trace();
    kor_glDrawBuffer(GL_BACK);
    endTrace();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAre("contexts: glEndQuery glGetQueryObjectiv", "-: glDrawBuffer"));
}

TEST_F(FrameLocks, OfFlushesThroughTheSampleQueryFilter) {
    begin(64, 48);
    kor_glDrawBuffer(GL_FRONT);
    gl.setQueryResult(7);
    trace();
    kor_glFlush();
    endTrace();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAreArray(joined(
                    joined({"contexts: glEndQuery glGetQueryObjectiv glBeginQuery"}, visibleEnd),
                    readback(newContexts, firstSlice + " " + fence))));
    gl.setQueryResult(0);
    trace();
    kor_glFinish();
    endTrace();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAre("contexts: glEndQuery glGetQueryObjectiv glBeginQuery", "-: glFinish"));
}

TEST_F(FrameLocks, OfAFlushWithFrontAndBackNoQueryIsRead) {
    begin(64, 48);
    kor_glDrawBuffer(GL_FRONT_AND_BACK);
    trace();
    kor_glFlush();
    endTrace();
    EXPECT_THAT(
        mineUnderLocks(),
        ElementsAreArray(joined(visibleEnd, readback(newContexts, firstSlice + " " + fence))));
}

TEST_F(FrameLocks, OfMakingCurrentAWindowForTheFirstTime) {
    start();
    context = makeContext("ctx");
    window = makeWindow(64, 48);
    trace();
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    endTrace();
    EXPECT_THAT(mineUnderLocks(),
                ElementsAre("local display: glXCreatePbuffer glXCreatePbuffer glXMakeCurrent"));
    EXPECT_THAT(takenHere(),
                ElementsAre("contexts",               // the context's fbconfig
                            "drawables", "drawables", // looked up; deleted ones cleared
                            "record", "record", "visual map", "visual map", // window info; mapping
                            "local display", "local display",               // dummy; pbuffer...
                            "record under local display",                   // ... of its size
                            "drawables", "local display", // registered; made current
                            "contexts"));
    trace();
    ASSERT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    endTrace();
    EXPECT_THAT(mineUnderLocks(), ElementsAre("-: glFlush", "local display: glXMakeCurrent"));
    EXPECT_THAT(takenHere(), ElementsAre("contexts", "local display", "contexts"));
    trace();
    kor_glXDestroyContext(app, context);
    endTrace();
    EXPECT_THAT(mineUnderLocks(), ElementsAre("local display: glXDestroyContext"));
    EXPECT_THAT(takenHere(), ElementsAre("contexts", "drawables", "local display"));
}

TEST_F(FrameLocks, TheVisualMapIsBuiltUnderItsLockAndTheLocalDisplaysInside) {
    start();
    trace();
    context = makeContext("ctx");
    endTrace();
    const Texts calls = mineUnderLocks();
    for (size_t i = 0; i + 1 < calls.size(); ++i)
        EXPECT_EQ(calls[i].rfind("visual map", 0), 0U) << calls[i];
    EXPECT_EQ(calls.back(), "local display: glXGetFBConfigAttrib glXCreateNewContext");
    EXPECT_EQ(calls.front().rfind("visual map: glXQueryExtensionsString glXGetConfig", 0), 0U);
    Texts locks = takenHere();
    locks.erase(std::unique(locks.begin(), locks.end()), locks.end());
    EXPECT_THAT(locks, ElementsAre("visual map", "local display under visual map", "local display",
                                   "visual map", "local display", "contexts"));
}

TEST_F(FrameLocks, TheSetUpLockIsTakenBeforeThoseOfTheMapAndTheName) {
    start();
    trace();
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    endTrace();
    // The thread's record; the map's, whose end it watches for; set-up; the map's first look, the
    // name, the map's new entry.
    EXPECT_THAT(takenWithNameless(gettid()),
                ElementsAre("A", "B", "C", "B under C", "D under C", "B under C"));
    trace();
    ASSERT_TRUE(_setupAppDisplay(app, nullptr)); // the connection is open: nothing is locked
    ASSERT_NE(local(), nullptr);
    endTrace();
    EXPECT_THAT(takenWithNameless(gettid()), ElementsAre("A"));
}

TEST_F(FrameLocks, ConnectionsAreOpenedUnderTheSetUpLockAndUnderNoOther) {
    kor_set_connection_hook([](Display* display, int /*role*/) {
        static auto* mutex = new kor::Mutex; // on the heap like the library's: it gets a letter
        const kor::Lock lock(*mutex);
        return display;
    });
    start();
    trace();
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    endTrace();
    kor_set_connection_hook(nullptr);
    // The thread's record; the map's, whose end it watches for; set-up; the hook, of the secondary
    // connection; the map's first look, the name; the hook, of the local connection; the map's new
    // entry.
    EXPECT_THAT(takenWithNameless(gettid()), ElementsAre("A", "B", "C", "D under C", "B under C",
                                                         "E under C", "D under C", "B under C"));
}

TEST_F(FrameLocks, TheUnusedLocalConnectionIsClosedAfterALookIntoEachTable) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    trace();
    _unsetLocalDisplay(app);
    endTrace();
    // The map; who uses it; the entry goes, and then the connection.
    EXPECT_THAT(takenWithNameless(gettid()),
                ElementsAre("A", "contexts", "drawables", "A", "local display"));
    trace();
    _unsetLocalDisplay(app); // there is none any more
    endTrace();
    EXPECT_THAT(takenWithNameless(gettid()), ElementsAre("A"));

    context = makeContext("ctx");
    trace();
    _unsetLocalDisplay(app);
    endTrace();
    EXPECT_THAT(takenWithNameless(gettid()), ElementsAre("A", "contexts", "drawables"));
    EXPECT_EQ(sayings("_unsetLocalDisplay").size(), 1U);
}
