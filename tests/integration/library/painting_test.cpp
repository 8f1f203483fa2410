// The painter's image and the thread that paints.

#include "frames.h"

#include "display/connections.h"
#include "framework/pixels.h"
#include "framework/wait_until.h"
#include "transport/copyback.h"
#include "transport/ximage_painter.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

using kor::gl::XImagePainter;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Painting : public Frames {
  protected:
    std::vector<std::string> setupSayings() const { return sayings("XImagePainter::setup"); }
    std::vector<std::string> internals() const { return sayings("setupXImagePainterInternal"); }

    std::string put(int width, int height) const {
        return format("D void kor::gl::XImagePainter::draw(Display*, int, int): XPutting image on "
                      "%lx, size %d %d",
                      window, width, height);
    }

    /// Paints a plain colour with a painter of the test's own and looks for it.
    void paintAndLook(XImagePainter& painter, int width, int height) {
        ASSERT_TRUE(painter.setup(app, doubleVisual, width, height));
        auto* pixels = reinterpret_cast<uint32_t*>(painter.getBuffer());
        ASSERT_NE(pixels, nullptr);
        std::fill_n(pixels, width * height, 0x00abcdefU);
        painter.draw(app, width, height);
        const auto seen = kor::test::waitForPixels(app, window, [&](const kor::test::Pixels& all) {
            return all.at(0, 0) == 0xabcdef && all.at(width - 1, height - 1) == 0xabcdef;
        });
        ASSERT_TRUE(seen);
        EXPECT_EQ(seen->at(width - 1, height - 1), 0xabcdefU);
    }
};

} // namespace

TEST_F(Painting, SharedMemoryIsForcedByDefault) {
    start();
    window = makeWindow(30, 20);
    XImagePainter painter(window);
    markLog();
    paintAndLook(painter, 30, 20);
    EXPECT_THAT(setupSayings(), ElementsAre("START", "Forcing usage of shared memory",
                                            "Setting up XImagePainter with shared memory", "DONE"));
    EXPECT_THAT(internals(), ElementsAre("Trying to setup shared memory for image painter",
                                         "size: 30 x 20, depth: 24, bytes per line: 120"));
    markLog();
    paintAndLook(painter, 30, 20); // the image stays
    EXPECT_THAT(internals(), ElementsAre("Trying to setup shared memory for image painter"));
}

TEST_F(Painting, AnotherSizeMakesAnotherImage) {
    start();
    window = makeWindow(50, 50);
    XImagePainter painter(window);
    paintAndLook(painter, 30, 20);
    markLog();
    paintAndLook(painter, 50, 50);
    EXPECT_THAT(internals(),
                ElementsAre("Trying to setup shared memory for image painter", "freeing old image",
                            "size: 50 x 50, depth: 24, bytes per line: 200"));
}

TEST_F(Painting, PlainImagesAreForcedByStrategyTwo) {
    set("KOR_GL_COPYBACK_STRATEGY", "2");
    start();
    window = makeWindow(30, 20);
    XImagePainter painter(window);
    markLog();
    paintAndLook(painter, 30, 20);
    EXPECT_THAT(setupSayings(),
                ElementsAre("START", "Forcing usage of non-shared memory",
                            "Setting up XImagePainter without shared memory", "DONE"));
    EXPECT_THAT(internals(),
                ElementsAre("Trying to setup image painter with low performance non-shared memory",
                            "size: 30 x 20, depth: 24, bytes per line: 120"));
}

TEST_F(Painting, DetectionTriesSharedMemoryOnce) {
    set("KOR_GL_COPYBACK_STRATEGY", "0");
    start();
    window = makeWindow(30, 20);
    XImagePainter painter(window);
    markLog();
    paintAndLook(painter, 30, 20);
    EXPECT_THAT(setupSayings(),
                ElementsAre("START",
                            "Now performing auto detect - X extension for shared memory available: "
                            "true",
                            "Shared memory extension seems available, continuing checks..",
                            "Setup with shmem SUCCEEDED", "DONE"));
    markLog();
    paintAndLook(painter, 30, 20);
    EXPECT_THAT(setupSayings(),
                ElementsAre("START", "Setting up XImagePainter with shared memory", "DONE"));
}

TEST_F(Painting, DetectionFallsBackWhenTheServerRefusesTheImage) {
    set("KOR_GL_COPYBACK_STRATEGY", "0");
    start();
    window = makeWindow(30, 20);
    XImagePainter painter(0x1234567); // no such window: the put raises an error
    markLog();
    painter.setup(app, doubleVisual, 30, 20);
    const std::vector<std::string> said = setupSayings();
    EXPECT_THAT(said, Contains("Shared memory setup failed, falling back to non-shared"));
    EXPECT_FALSE(sayings("handleXShmError").empty());
    EXPECT_EQ(sayings("handleXShmError")[0].rfind("X error detected with code ", 0), 0U);
    // The application's own handler is back and has heard nothing.
    EXPECT_THAT(xErrors(), IsEmpty());
}

TEST_F(Painting, WithoutAVisualThereIsNoImage) {
    start();
    window = makeWindow(30, 20);
    XImagePainter painter(window);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(painter.setup(app, 0x7777777, 30, 20));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: unable to create shared memory segment\n");
}

TEST_F(Painting, WithoutAVisualAPlainSetupSucceedsWithoutABuffer) {
    set("KOR_GL_COPYBACK_STRATEGY", "2");
    start();
    window = makeWindow(30, 20);
    XImagePainter painter(window);
    EXPECT_TRUE(painter.setup(app, 0x7777777, 30, 20));
    EXPECT_EQ(painter.getBuffer(), nullptr);
}

TEST_F(Painting, ARateOfZeroWaitsOneSecond) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "0");
    begin(30, 20);
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(swapAndPaint());
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(990));
}

TEST_F(Painting, EachPassSleepsOneInterval) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "5");
    begin(30, 20);
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(swapAndPaint());
    ASSERT_TRUE(swapAndPaint());
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(395));
}

TEST_F(Painting, WithoutADisplayFramesAreReadBackButNeverPainted) {
    begin(30, 20);
    set("DISPLAY", ":4711");
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(waitForLog("W void kor::gl::CopybackThread::svc(): Could not open the copyback "
                           "display"));
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(gl.callsOf("glFenceSync").size(), 2U);
    EXPECT_FALSE(gl.waitForCalls("glReadPixels", 1, 200));
}

TEST_F(Painting, StoppedWhileItSleepsItPaintsNoMore) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "2");
    begin(30, 20);
    kor_glXSwapBuffers(app, window);
    kor_fini();
    EXPECT_TRUE(waitForLog("D void kor::gl::CopybackThread::svc(): DONE"));
    EXPECT_THAT(gl.callsOf("glReadPixels"), IsEmpty());
}

TEST_F(Painting, StoppedWhileItWaitsItEnds) {
    begin(30, 20);
    ASSERT_TRUE(swapAndPaint());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    kor_fini();
    EXPECT_TRUE(waitForLog("D void kor::gl::CopybackThread::svc(): DONE"));
}

TEST_F(Painting, TheFrameIsPutWhereItBelongs) {
    begin(30, 20);
    ASSERT_TRUE(swapAndPaint());
    EXPECT_TRUE(waitForLog(put(30, 20)));
    EXPECT_EQ(timesLogged(put(30, 20)), 1U);
}

TEST_F(Painting, TheEndOfAPainterWaitsForItsThread) {
    start();
    {
        kor::gl::Copyback own;
        own.stop();
    }
    EXPECT_THAT(sayings("CopybackThread::~CopybackThread"), ElementsAre("START", "DONE"));
    std::vector<std::string> last;
    for (const LogLine& line : log())
        if (line.message == "DONE" && line.function.find("CopybackThread::") != std::string::npos)
            last.push_back(line.function.substr(line.function.find("CopybackThread::") + 16));
    EXPECT_THAT(last, ElementsAre("svc()", "~CopybackThread()"));
}

TEST_F(Painting, OnePassPaintsTheWindowOfTheNewestRecordFirst) {
    static std::atomic<bool> swapped{false};
    // The painter waits with its first pass until both frames are there.
    kor_set_connection_hook([](Display* display, int role) {
        if (role == kor::gl::CopybackConnection)
            kor::test::waitUntil([] { return swapped.load(); }, std::chrono::seconds(30));
        return display;
    });
    begin(64, 48);
    const Window second = makeWindow(50, 40);
    ASSERT_TRUE(kor_glXMakeCurrent(app, second, context));
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    kor_glXSwapBuffers(app, window);
    ASSERT_TRUE(kor_glXMakeCurrent(app, second, context));
    kor_glXSwapBuffers(app, second);
    swapped = true;
    EXPECT_TRUE(kor::test::waitUntil([&] { return sayings("XImagePainter::draw").size() >= 2; },
                                     std::chrono::seconds(30)));
    letPaintsArrive();
    kor_set_connection_hook(nullptr);
    EXPECT_THAT(sayings("XImagePainter::draw"),
                ElementsAre(format("XPutting image on %lx, size 50 40", second),
                            format("XPutting image on %lx, size 64 48", window)));
}
