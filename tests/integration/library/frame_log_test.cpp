// The whole log of frames, thread by thread: level, function text and message of every line.

#include "frames.h"

#include "framework/wait_until.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

class FrameLog : public Frames {
  protected:
    using Texts = std::vector<std::string>;

    void TearDown() override {
        // Whatever a thread logs carries the process's id and the GL code's tag.
        for (const LogLine& line : readLog(directory)) {
            EXPECT_EQ(line.process, getpid());
            EXPECT_EQ(line.tag, "KORGL") << line.text();
        }
    }

    /// What this thread logged since the mark, and what the thread did that logged in function.
    Texts mineLogged() const { return loggedBy(gettid()); }
    Texts loggedByThreadOf(const std::string& function) const {
        for (const LogLine& line : readLog(directory))
            if (line.function == function)
                return loggedBy(line.thread);
        return {};
    }
    Texts loggedBy(long thread) const {
        Texts texts;
        for (const LogLine& line : log())
            if (line.thread == thread)
                texts.push_back(line.text());
        return texts;
    }

    /// Swaps, and waits for the picture's line.
    void frame(int width, int height) {
        markLog();
        ASSERT_TRUE(swapAndPaint());
        ASSERT_TRUE(kor::test::waitUntil([&] {
            return said('D', "XImagePainter::draw",
                        format("XPutting image on %lx, size %d %d", window, width, height));
        }));
        letPaintsArrive();
    }

    std::string swapLine() const {
        return format("D void kor_glXSwapBuffers(Display*, GLXDrawable): drawable %lx", window);
    }
    std::string geometry(int width, int height) const {
        return readback +
               format("ldi %p, geom(0,0,%d,%d)", static_cast<void*>(record().get()), width, height);
    }

    const std::string readback = "D void kor::gl::DrawableInfo::readback(): ";
    const std::string info =
        "D bool kor::gl::DrawableInfo::updateWindowInfo(bool*, bool*, bool*): ";
    const std::string slice = "D bool kor::gl::ReadbackSlice::performGPUReadback(int, int): ";
    const std::string contexts = "D bool kor::gl::DrawableInfo::setupReadbackContexts(): START";
    const std::string check = "D void kor::gl::DrawableInfo::checkForResize(): ";
    const std::string pbufferLine = "D void kor::gl::DrawableInfo::updateOffscreenPbuffer(): ";
    const std::string setup =
        "D bool kor::gl::XImagePainter::setup(Display*, VisualID, int, int): ";
    const std::string internal = "D bool kor::gl::XImagePainter::setupXImagePainterInternal(bool, "
                                 "Display*, VisualID, int, int): ";
    const std::string painterThread = "void kor::gl::CopybackThread::svc()";
    const std::string workerThread = "void kor::gl::ReadbackContext::svc()";

    /// The painter's lines of a frame whose image stays.
    Texts painted(int width, int height) const {
        return {setup + "START",
                setup + "Forcing usage of shared memory",
                setup + "Setting up XImagePainter with shared memory",
                internal + "Trying to setup shared memory for image painter",
                setup + "DONE",
                format("D void kor::gl::XImagePainter::draw(Display*, int, int): XPutting image on "
                       "%lx, size %d %d",
                       window, width, height)};
    }
};

} // namespace

TEST_F(FrameLog, OfAWindowMadeCurrentForTheFirstTime) {
    start();
    context = makeContext("ctx");
    window = makeWindow(64, 48);
    markLog();
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    EXPECT_THAT(
        logTexts(),
        ElementsAre(format("D int kor_glXMakeCurrent(Display*, GLXDrawable, GLXContext): drawable: "
                           "%lx, context: %x",
                           window, static_cast<unsigned>(fake::word(context))),
                    info + "Pbuffer needs update: 1",
                    info + format("VisualID set to 0x%lx", doubleVisual),
                    pbufferLine + "resized pbuffer to new geometry: 64x48",
                    format("D kor::gl::DrawableInfo* getDrawableInfo(Display*, Window, "
                           "__GLXFBConfigRec*, kor::gl::TSD*): new local drawable %lx (1) for app "
                           "drawable %lx",
                           record()->localDrawable.load(), window)));
}

TEST_F(FrameLog, OfTheFirstFrame) {
    begin(64, 48);
    frame(64, 48);
    EXPECT_THAT(mineLogged(),
                ElementsAre(swapLine(), geometry(64, 48), contexts,
                            slice + "Initializing GPU readback textures",
                            slice + "Resizing GPU readback textures to new size 64 x 48",
                            slice + "Initializing GPU readback programs", check + "START",
                            info + "Pbuffer needs update: 0", readback + "DONE"));
    EXPECT_THAT(loggedByThreadOf(painterThread), ElementsAreArray([&] {
                    Texts lines = painted(64, 48);
                    lines.insert(lines.begin(), "D " + painterThread + ": START");
                    lines.insert(lines.begin() + 5,
                                 internal + "size: 64 x 48, depth: 24, bytes per line: 256");
                    return lines;
                }()));
    const Texts worker = loggedByThreadOf(workerThread);
    ASSERT_EQ(worker.size(), 1U);
    // The worker's context is current on the window's dummy pbuffer, made before its own.
    fake::Word dummy = 0;
    for (const fake::Call& call : gl.callsOf("glXMakeCurrent"))
        if (call.thread != gettid())
            dummy = call.arguments[1];
    EXPECT_THAT(worker, ElementsAre("D " + workerThread +
                                    format(": Making readback context current for drawable 0x%x",
                                           static_cast<unsigned>(dummy))));
}

TEST_F(FrameLog, OfTheSecondFrame) {
    begin(64, 48);
    frame(64, 48);
    frame(64, 48);
    EXPECT_THAT(mineLogged(), ElementsAre(swapLine(), geometry(64, 48), contexts, check + "START",
                                          info + "Pbuffer needs update: 0", readback + "DONE"));
    EXPECT_THAT(loggedByThreadOf(painterThread), ElementsAreArray(painted(64, 48)));
    EXPECT_THAT(loggedByThreadOf(workerThread), testing::IsEmpty());
}

TEST_F(FrameLog, OfAResizeAndTheFrameBehindIt) {
    begin(64, 48);
    frame(64, 48);
    resizeWindow(window, 80, 40);
    frame(64, 48);
    EXPECT_THAT(mineLogged(),
                ElementsAre(swapLine(), geometry(64, 48), contexts, check + "START",
                            info + "Pbuffer needs update: 1", info + "Resized from 64x48 to 80x40",
                            pbufferLine + "resized pbuffer to new geometry: 80x40",
                            readback + "DONE"));
    frame(80, 40);
    EXPECT_THAT(mineLogged(),
                ElementsAre(swapLine(), geometry(80, 40), contexts,
                            slice + "Resizing GPU readback textures to new size 80 x 40",
                            check + "START", info + "Pbuffer needs update: 0", readback + "DONE"));
    Texts expected = painted(80, 40);
    expected.insert(expected.begin() + 4,
                    {internal + "freeing old image",
                     internal + "size: 80 x 40, depth: 24, bytes per line: 320"});
    EXPECT_THAT(loggedByThreadOf(painterThread), ElementsAreArray(expected));
}

TEST_F(FrameLog, OfAViewport) {
    begin(64, 48);
    kor_glViewport(1, -2, 3, 4);
    EXPECT_THAT(logTexts(),
                ElementsAre("D void kor_glViewport(GLint, GLint, GLsizei, GLsizei): 1 -2 3 4",
                            check + "START", info + "Pbuffer needs update: 0"));
}

TEST_F(FrameLog, OfAWindowsEndWithNothingCurrent) {
    begin(64, 48);
    const void* old = record().get();
    ASSERT_TRUE(kor_glXMakeCurrent(app, None, nullptr));
    const std::string makeCurrent = "D int kor_glXMakeCurrent(Display*, GLXDrawable, GLXContext): ";
    EXPECT_THAT(logTexts(), ElementsAre(makeCurrent + "drawable: 0, context: 0",
                                        makeCurrent + "flushing old context",
                                        "D void finishOrFlush(void (*)(), kor::gl::TSD*): draw "
                                        "405, dbf 1"));
    const Window other = makeWindow(20, 20);
    destroyWindow(window);
    markLog();
    ASSERT_TRUE(kor_glXMakeCurrent(app, other, context));
    const std::string end = "D virtual kor::gl::DrawableInfo::~DrawableInfo(): ";
    const Texts lines = logTexts();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_THAT(Texts(lines.begin() + 1, lines.begin() + 4),
                ElementsAre(format("D void clearDeletedDrawables(): deleting 0x%lx", window),
                            end + format("Destroying DrawableInfo %p", old),
                            end + "destroying ldi without a current context"));
}
