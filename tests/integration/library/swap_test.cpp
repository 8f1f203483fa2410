// Swaps, and the flushes and finishes that are no frames.

#include "frames.h"

#include "context/context_map.h"

#include <X11/Xutil.h>
#include <chrono>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class Swap : public Frames {
  protected:
    size_t copies() const { return gl.callsOf("glCopyTexSubImage2D").size(); }
};

} // namespace

TEST_F(Swap, WithoutADrawableOrARecordNothingHappens) {
    begin(20, 20);
    kor_glXSwapBuffers(nullptr, window);
    kor_glXSwapBuffers(app, None);
    EXPECT_THAT(sayings("kor_glXSwapBuffers"),
                ElementsAre(format("drawable %lx", window), "drawable 0"));
    kor_glXSwapBuffers(app, 0x1234567);
    EXPECT_TRUE(said('D', "kor_glXSwapBuffers", "no local drawable"));
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(Swap, SendsWhatWaitsOnTheApplicationsConnection) {
    begin(20, 20);
    Display* const other = XOpenDisplay(DisplayString(app));
    ASSERT_NE(other, nullptr);
    XSync(app, False);
    XStoreName(app, window, "waiting");
    kor_glXSwapBuffers(app, window);
    char* title = nullptr;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (XFetchName(other, window, &title) == 0 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_STREQ(title, "waiting");
    XFree(title);
    XCloseDisplay(other);
}

TEST_F(Swap, OfADoubleBufferedWindowSwapsUnderTheLocalDisplayLock) {
    begin(20, 20);
    std::vector<std::string> held;
    std::vector<std::string> heldAtFinish = {"never called"};
    gl.onCall("glXSwapBuffers", [&](const fake::Call&) { held = heldLocks(); });
    gl.onCall("glFinish", [&](const fake::Call&) { heldAtFinish = heldLocks(); });
    kor_glXSwapBuffers(app, window);
    gl.onCall("glXSwapBuffers", nullptr);
    gl.onCall("glFinish", nullptr);
    EXPECT_THAT(held, ElementsAre("local display"));
    EXPECT_THAT(heldAtFinish, IsEmpty());
}

TEST_F(Swap, OfASingleBufferedWindowReadsBackWithoutASystemSwap) {
    start();
    window = makeWindow(20, 20, singleVisual);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("single", config("single"))));
    gl.clearCalls();
    kor_glXSwapBuffers(app, window);
    EXPECT_THAT(gl.callsOf("glXSwapBuffers"), IsEmpty());
    EXPECT_EQ(copies(), 1U);
    EXPECT_EQ(mine()[0], "glFinish()");
}

TEST_F(Swap, OfAnotherWindowGivesTheThreadItsDrawablesBack) {
    begin(20, 20);
    const Window other = makeWindow(20, 20);
    const kor::gl::DrawableRef shown = getDrawableInfo(app, other, config("double1"), nullptr);
    const std::string pbufferOfOther = gl.nameOf(shown->localDrawable);
    const std::string first = format("glXMakeCurrent(local, %s, ctx)", pbufferOfOther.c_str());
    const auto lastBinding = [&] {
        std::vector<std::string> texts = mine();
        std::erase_if(texts,
                      [](const auto& text) { return text.find("Current(") == std::string::npos; });
        texts.erase(texts.begin(), texts.end() - 2);
        return texts;
    };
    gl.clearCalls();
    kor_glXSwapBuffers(app, other);
    EXPECT_THAT(lastBinding(),
                ElementsAre(first, format("glXMakeContextCurrent(local, %s, %s, ctx)",
                                          pbuffer().c_str(), pbuffer().c_str())));

    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, None, context));
    gl.clearCalls();
    kor_glXSwapBuffers(app, other);
    EXPECT_THAT(lastBinding(),
                ElementsAre(first, format("glXMakeCurrent(local, %s, ctx)", pbuffer().c_str())));
    letPaintsArrive();
}

TEST_F(Swap, OfAPbufferOrPixmapReadsNothingBack) {
    begin(20, 20);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    const GLXPixmap pixmap =
        kor_glXCreatePixmap(app, config("single"), XCreatePixmap(app, window, 8, 8, 24), nullptr);
    gl.clearCalls();
    kor_glXSwapBuffers(app, pbuffer);
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre("glFinish()", "glXSwapBuffers(local, " + gl.nameOf(pbuffer) + ")"));
    gl.clearCalls();
    kor_glXSwapBuffers(app, pixmap);
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFinish()"));
}

TEST_F(Swap, EverySecondOneIsSwallowedWhenTheSettingSaysSo) {
    set("KOR_GL_SKIP_DOUBLE_SWAP", "1");
    begin(20, 20);
    for (size_t i = 1; i <= 3; ++i) {
        kor_glXSwapBuffers(app, window);
        EXPECT_EQ(gl.callsOf("glXSwapBuffers").size(), i);
        EXPECT_EQ(copies(), i);
        EXPECT_TRUE(record()->skipNextSwap);
        const size_t before = mine().size();
        kor_glXSwapBuffers(app, window);
        EXPECT_EQ(mine().size(), before);
        EXPECT_FALSE(record()->skipNextSwap);
    }
}

TEST_F(Swap, OfASingleBufferedWindowIsNeverSwallowed) {
    set("KOR_GL_SKIP_DOUBLE_SWAP", "1");
    start();
    window = makeWindow(20, 20, singleVisual);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("single", config("single"))));
    kor_glXSwapBuffers(app, window);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(copies(), 2U);
}

TEST_F(Swap, AFlushWithTheBackBufferIsJustAFlush) {
    begin(20, 20);
    kor_glFlush();
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFlush()"));
    kor_glFinish();
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFlush()", "glFinish()"));
    EXPECT_TRUE(said('D', "finishOrFlush", format("draw %x, dbf 1", GL_BACK)));
}

TEST_F(Swap, AFlushOfAPbufferIsJustAFlush) {
    begin(20, 20);
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeCurrent(app, pbuffer, context));
    kor_glDrawBuffer(GL_FRONT);
    gl.clearCalls();
    kor_glFlush();
    kor_glFinish();
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFlush()", "glFinish()"));
}

TEST_F(Swap, WithNothingCurrentAFlushReachesTheSystem) {
    start();
    kor_glFlush();
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFlush()"));
}

TEST_F(Swap, WithoutAThreadRecordAFlushIsDropped) {
    start();
    kor_fini();
    kor_glFlush();
    kor_glFinish();
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(Swap, AFlushOfADestroyedContextIsDropped) {
    begin(20, 20);
    kor_glXDestroyContext(app, context);
    gl.clearCalls();
    kor_glFlush();
    kor_glFinish();
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_EQ(timesSaid('D', "finishOrFlush",
                        format("the context %x is already destroyed",
                               static_cast<unsigned>(fake::word(context)))),
              2U);
}

TEST_F(Swap, AFlushOfAnUnknownContextIsDropped) {
    begin(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, reinterpret_cast<GLXContext>(0x5550)));
    gl.clearCalls();
    kor_glFlush();
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_TRUE(said('D', "finishOrFlush", "cannot find context 5550 in the context map"));
}

TEST_F(Swap, APixmapIsCopiedToTheApplicationAtOnce) {
    begin(20, 20);
    const Pixmap target = XCreatePixmap(app, window, 12, 7, 24);
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double1"), target, nullptr);
    const Pixmap source = findLocalDrawable(drawable)->localPixmap;
    GC gc = XCreateGC(local(), source, 0, nullptr);
    XSetForeground(local(), gc, 0x123456);
    XFillRectangle(local(), source, gc, 0, 0, 12, 7);
    XSync(local(), False);
    ASSERT_TRUE(kor_glXMakeCurrent(app, drawable, context));
    gl.clearCalls();
    kor_glFlush();
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glFlush()"));
    XImage* image = XGetImage(app, target, 0, 0, 12, 7, AllPlanes, ZPixmap);
    EXPECT_EQ(XGetPixel(image, 0, 0) & 0xffffff, 0x123456U);
    EXPECT_EQ(XGetPixel(image, 11, 6) & 0xffffff, 0x123456U);
    XDestroyImage(image);
    EXPECT_TRUE(said('D', "copybackPixmap",
                     format("Copying pixmap %d to %d\n (0,0 12x7)", static_cast<int>(source),
                            static_cast<int>(target))));
}

TEST_F(Swap, WaitingForGlReadsNothingBack) {
    begin(20, 20);
    kor_glXWaitGL();
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glXWaitGL()"));
}

TEST_F(Swap, WaitingForXSynchronisesTheApplicationOnlyWhenAsked) {
    begin(20, 20);
    unsigned long before = NextRequest(app);
    kor_glXWaitX();
    EXPECT_EQ(NextRequest(app), before);
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glXWaitX()"));
}

TEST_F(Swap, WaitingForXSynchronisesTheApplicationWhenTheSettingSaysSo) {
    set("KOR_GL_GLXWAITX_SYNC_APPDISPLAY", "1");
    begin(20, 20);
    XSync(app, False);
    XEvent event{};
    event.type = KeyPress;
    XPutBackEvent(app, &event);
    const unsigned long before = NextRequest(app);
    unsigned long atTheWait = 0;
    gl.onCall("glXWaitX", [&](const fake::Call&) { atTheWait = NextRequest(app); });
    kor_glXWaitX();
    gl.onCall("glXWaitX", nullptr);
    EXPECT_GT(atTheWait, before);
    EXPECT_EQ(NextRequest(app), atTheWait);
    EXPECT_THAT(gl.callsOf("glXWaitX"), SizeIs(1));
    EXPECT_TRUE(XCheckTypedEvent(app, KeyPress, &event)) << "the application's events are kept";
}

TEST_F(Swap, OfAWindowWithoutAVisualOfItsOwnIsNoSystemSwap) {
    begin(20, 20);
    kor::gl::LocalVisualInfo* const own = record()->visualInfo;
    record()->visualInfo = nullptr;
    EXPECT_FALSE(record()->isDoubleBuffered());
    kor_glXSwapBuffers(app, window);
    record()->visualInfo = own;
    EXPECT_TRUE(record()->isDoubleBuffered());
    EXPECT_THAT(gl.callsOf("glXSwapBuffers"), IsEmpty());
    EXPECT_EQ(copies(), 1U);
}
