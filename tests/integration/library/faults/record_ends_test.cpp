// How the records of contexts and drawables end: which locks are held, what is freed first, and
// that the local connection goes with the last of them.

#include "lock_trace.h"

#include "context/deleted_drawables.h"
#include "framework/wait_until.h"
#include "interposed.h"

#include <unistd.h>

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

namespace {

class RecordEnds : public LockTrace {
  protected:
    ~RecordEnds() override { kor::test::beforeCloseDisplay = nullptr; }
};

const auto painterIsFreed = AnyOf(HasSubstr("XShmDetach"), HasSubstr("shmdt"));

} // namespace

TEST_F(RecordEnds, AContextDestroyedWhileCurrentGoesOutsideTheContextsLock) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1"); // then its end asks whether other contexts are left
    begin(40, 40);
    kor_glXDestroyContext(app, context);
    alarm(20); // under the lock it would wait for itself
    trace();
    ASSERT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    endTrace();
    EXPECT_TRUE(said(
        'D', "setCurrent",
        format("context %x removed from the map.", static_cast<unsigned>(fake::word(context)))));
    EXPECT_THAT(taken(gettid()), Each(Not(HasSubstr("under contexts"))));
    alarm(0);
}

TEST_F(RecordEnds, TheLocalConnectionGoesWithTheLastRecord) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_NE(pbuffer, None);
    std::atomic<int> closed{0};
    kor::test::beforeCloseDisplay = [&](Display* display) {
        if (localName == DisplayString(display))
            ++closed;
    };
    kor_glXDestroyPbuffer(app, pbuffer);
    EXPECT_TRUE(kor::test::waitUntil([&] { return closed == 1; }));
}

TEST_F(RecordEnds, AWindowsWorkerHasEndedBeforeItsPainterIsFreed) {
    begin(40, 40);
    ASSERT_TRUE(swapAndPaint());
    ASSERT_TRUE(waitForLog(format("D void kor::gl::XImagePainter::draw(Display*, int, int): "
                                  "XPutting image on %lx, size 40 40",
                                  window)));
    letPaintsArrive();
    const pid_t worker = workerThread();
    destroyWindow(window);
    std::vector<std::string> whenItEnds;
    bool ended = false;
    gl.onCall("glXDestroyContext", [&](const fake::Call& call) {
        if (call.thread != worker)
            return;
        whenItEnds = kor::test::recorded();
        ended = true;
    });
    kor::test::record();
    clearDeletedDrawables();
    gl.onCall("glXDestroyContext", nullptr);
    EXPECT_TRUE(ended);
    EXPECT_THAT(whenItEnds, Not(Contains(painterIsFreed)));
    EXPECT_THAT(kor::test::recorded(), Contains(painterIsFreed));
}
