// When an X error handler of the application's may be called, as the front asks, and what is still
// done once the process has begun to end.

#include "frames.h"

#include "core/process_end.h"
#include "display/connections.h"
#include "display/displays.h"
#include "transport/copyback.h"

#include <chrono>

using testing::IsEmpty;

namespace {

int told = 0;
void tell() {
    EXPECT_EQ(kor_when_to_tell_error(tell), KOR_ERROR_NOW);
    EXPECT_NE(kor_glXGetCurrentContext(), nullptr);
    const kor::Lock lock(getLocalDisplayMutex()); // what every call of the handler's will take
    ++told;
}

int ignoreError(Display*, XErrorEvent*) {
    return 0;
}

class ErrorMoment : public Frames {
  protected:
    size_t frames() const { return gl.callsOf("glFenceSync").size(); }
};

using ProcessEnd = ErrorMoment;

} // namespace

TEST_F(ErrorMoment, IsNowOutsideOfTheLibrarysCalls) {
    begin(64, 48);
    EXPECT_EQ(kor_when_to_tell_error(tell), KOR_ERROR_NOW);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(told, 0);
}

TEST_F(ErrorMoment, IsAfterTheCallThatHasTheLocalDisplay) {
    begin(64, 48);
    {
        const kor::Lock lock(getLocalDisplayMutex());
        EXPECT_EQ(kor_when_to_tell_error(tell), KOR_ERROR_AFTERWARDS);
        EXPECT_EQ(told, 0);
    }
    EXPECT_EQ(told, 1);
}

TEST_F(ErrorMoment, IsAtOnceForAHandlerThatWasInstalledDuringTheCall) {
    begin(64, 48);
    {
        const kor::Lock lock(getLocalDisplayMutex());
        const auto before = XSetErrorHandler(ignoreError);
        EXPECT_EQ(kor_when_to_tell_error(tell), KOR_ERROR_EXPECTED);
        XSetErrorHandler(before);
    }
    EXPECT_EQ(told, 0);
}

TEST_F(ProcessEnd, NoFrameIsReadBackAfterItHasBegun) {
    begin(64, 48);
    kor_process_ends();
    gl.clearCalls();
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(frames(), 0U);
    EXPECT_EQ(gl.callsOf("glXSwapBuffers").size(), 1U);
    EXPECT_THAT(gl.callsOf("glXCreateNewContext"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glCompileShader"), IsEmpty());
    ASSERT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    EXPECT_EQ(kor_glXGetCurrentContext(), nullptr);
}

TEST_F(ProcessEnd, AFlushIsTheDriversAlone) {
    begin(64, 48);
    kor_glDrawBuffer(GL_FRONT);
    kor_process_ends();
    gl.clearCalls();
    kor_glFlush();
    EXPECT_EQ(gl.calls().size(), 1U);
    EXPECT_EQ(gl.callsOf("glFlush").size(), 1U);
}

TEST_F(ProcessEnd, TheCopybackThreadIsStopped) {
    begin(64, 48);
    kor_glXSwapBuffers(app, window);
    kor_process_ends();
    EXPECT_TRUE(kor::gl::Copyback::instance()->checkStop());
    EXPECT_TRUE(kor::gl::Copyback::instance()->waitForEnd());
}

TEST_F(ProcessEnd, TheCopybackThreadGoesOnWhereTheSettingForbidsToStopIt) {
    set("KOR_GL_CLEANUP_ATEXIT", "0");
    begin(64, 48);
    kor_glXSwapBuffers(app, window);
    kor_process_ends();
    EXPECT_FALSE(kor::gl::Copyback::instance()->checkStop());
}

TEST_F(ProcessEnd, TheWaitForAPassThatDoesNotEndTakesNoMoreThanASecond) {
    begin(64, 48);
    kor_glXSwapBuffers(app, window);
    const kor::Lock pass(
        kor::gl::getLocalDrawablesMutex()); // what the thread's next pass waits for
    kor::gl::Copyback::instance()->unblock();
    const auto start = std::chrono::steady_clock::now();
    kor_fini();
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_LE(taken, std::chrono::milliseconds(1050));
}
