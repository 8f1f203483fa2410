// Frames whose image cannot be made: they wait for the next pass.

#include "displays.h"
#include "interposed.h"

#include "transport/copyback.h"

using testing::IsEmpty;

namespace {

class UnpaintedFrames : public Displays {};

} // namespace

TEST_F(UnpaintedFrames, AFrameWhosePainterFailsStaysPendingForTheNextPass) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "100");
    start();
    const Window window = makeWindow(64, 48);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    kor::test::shmGet.arm();
    kor_glXSwapBuffers(app, window);
    ASSERT_TRUE(
        waitForLog("E bool kor::gl::XImagePainter::setupXImagePainterInternal(bool, "
                   "Display*, VisualID, int, int): unable to create shared memory segment"));
    EXPECT_THAT(gl.callsOf("glReadPixels"), IsEmpty());
    kor::gl::Copyback::instance()->unblock(); // a pass without another frame
    EXPECT_TRUE(gl.waitForCalls("glReadPixels", 1, 30000));
    letPaintsArrive();
    EXPECT_EQ(gl.callsOf("glReadPixels").size(), 1U);
    EXPECT_EQ(gl.callsOf("glFenceSync").size(), 1U);
}

TEST_F(UnpaintedFrames, AFrameWithoutAnImageStaysPendingForTheNextPass) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "100");
    set("KOR_GL_COPYBACK_STRATEGY", "2");
    start();
    const Window window = makeWindow(64, 48);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    kor::test::createImage.arm();
    kor_glXSwapBuffers(app, window);
    ASSERT_TRUE(waitForLog("D bool kor::gl::XImagePainter::setup(Display*, VisualID, int, int): "
                           "DONE"));
    letPaintsArrive();
    EXPECT_TRUE(kor::test::createImage.spent());
    EXPECT_THAT(gl.callsOf("glReadPixels"), IsEmpty());
    kor::gl::Copyback::instance()->unblock();
    EXPECT_TRUE(gl.waitForCalls("glReadPixels", 1, 30000));
    letPaintsArrive();
    EXPECT_EQ(gl.callsOf("glReadPixels").size(), 1U);
    EXPECT_EQ(gl.callsOf("glFenceSync").size(), 1U);
}
