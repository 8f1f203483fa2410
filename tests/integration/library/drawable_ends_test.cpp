// What the end of a drawable's record releases on the local display, and under which locks.

#include "displays.h"

#include "context/deleted_drawables.h"
#include "core/tsd.h"
#include "drawable/registry.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

class DrawableEnds : public Displays {
  protected:
    void begin() {
        start();
        context = makeContext("ctx");
        window = makeWindow(30, 30);
    }

    /// The window's record, read back once, with its window gone.
    void readBackAndLose() {
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
        kor_glXSwapBuffers(app, window);
        ASSERT_TRUE(waitForLog(format("D void kor::gl::XImagePainter::draw(Display*, int, int): "
                                      "XPutting image on %lx, size 30 30",
                                      window)));
        letPaintsArrive();
        destroyWindow(window);
    }

    std::vector<std::string> messages() const {
        std::vector<std::string> texts;
        for (const LogLine& line : log())
            texts.push_back(line.message);
        return texts;
    }

    GLXContext context = nullptr;
    Window window = None;
};

} // namespace

TEST_F(DrawableEnds, ARecordReleasesItsPbuffersAndItsReadContext) {
    begin();
    readBackAndLose();
    const std::string pbuffer = gl.nameOf(findLocalDrawable(window)->localDrawable);
    std::vector<std::vector<std::string>> held;
    gl.clearCalls();
    markLog();
    std::vector<std::string> announced;
    gl.onCall("glXDestroyPbuffer", [&](const fake::Call&) {
        held.push_back(heldLocks());
        announced.push_back(messages().back());
    });
    clearDeletedDrawables();
    gl.onCall("glXDestroyPbuffer", nullptr);
    EXPECT_THAT(announced, ElementsAre("Destroying local pbuffer", "Destroying dummy pbuffer"));
    const auto destroyed = gl.callsOf("glXDestroyPbuffer");
    ASSERT_EQ(destroyed.size(), 2U);
    EXPECT_EQ(destroyed[0].text, "glXDestroyPbuffer(local, " + pbuffer + ")");
    EXPECT_THAT(held, ElementsAre(ElementsAre("local display"), ElementsAre("local display")));
    std::vector<std::string> mine;
    for (const LogLine& line : log())
        if (line.thread == gettid() && line.message.rfind("Destroying", 0) == 0)
            mine.push_back(line.message.substr(0, line.message.find(" 0x")));
    EXPECT_THAT(mine, ElementsAre("Destroying DrawableInfo", "Destroying local pbuffer",
                                  "Destroying dummy pbuffer", "Destroying read context"));
}

TEST_F(DrawableEnds, TheWorkerFreesItsSlicesAndItsContextFirst) {
    begin();
    readBackAndLose();
    std::string worker; // the context of another thread than this one
    for (const fake::Call& call : gl.callsOf("glXMakeCurrent"))
        if (call.thread != gettid())
            worker = gl.nameOf(call.arguments[2]);
    gl.clearCalls();
    clearDeletedDrawables();
    const std::vector<fake::Call> calls = gl.calls();
    // All of the worker's calls come before the first of this thread's: it was joined.
    size_t firstOfMine = 0;
    while (firstOfMine < calls.size() && calls[firstOfMine].thread != gettid())
        ++firstOfMine;
    ASSERT_GT(firstOfMine, 0U);
    for (size_t i = firstOfMine; i < calls.size(); ++i)
        EXPECT_EQ(calls[i].thread, gettid()) << calls[i].text;
    std::vector<std::string> names;
    for (size_t i = 0; i < firstOfMine; ++i)
        names.push_back(calls[i].name);
    EXPECT_THAT(names, ElementsAre("glDeleteTextures", "glDeleteFramebuffers",
                                   "glDeleteFramebuffers", "glDeleteProgram", "glDeleteTextures",
                                   "glXMakeCurrent", "glXDestroyContext"));
    EXPECT_EQ(calls[firstOfMine - 2].text, "glXMakeCurrent(local, 0, null)");
    EXPECT_EQ(calls[firstOfMine - 1].text, "glXDestroyContext(local, " + worker + ")");
}

TEST_F(DrawableEnds, WithoutACurrentContextLocalObjectsAreAbandoned) {
    begin();
    readBackAndLose();
    kor_glXMakeCurrent(app, None, nullptr);
    gl.clearCalls();
    clearDeletedDrawables();
    EXPECT_THAT(messages(), Contains("destroying ldi without a current context"));
    EXPECT_THAT(gl.callsOf("glXDestroyPbuffer"), IsEmpty());
    for (const fake::Call& call : gl.callsOf("glXDestroyContext"))
        EXPECT_NE(call.thread, gettid());
}

TEST_F(DrawableEnds, WithoutACurrentContextTheyAreFreedWhenTheSettingSaysSo) {
    set("KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT", "1");
    begin();
    readBackAndLose();
    kor_glXMakeCurrent(app, None, nullptr);
    gl.clearCalls();
    clearDeletedDrawables();
    EXPECT_EQ(gl.callsOf("glXDestroyPbuffer").size(), 2U);
}

TEST_F(DrawableEnds, APixmapsRecordDestroysItsGlxPixmap) {
    begin();
    kor_glXMakeCurrent(app, window, context);
    const Pixmap pixmap = XCreatePixmap(app, window, 16, 16, 24);
    const GLXPixmap drawable = kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
    gl.clearCalls();
    markLog();
    std::string announced;
    gl.onCall("glXDestroyPixmap", [&](const fake::Call&) { announced = messages().back(); });
    kor_glXDestroyPixmap(app, drawable);
    gl.onCall("glXDestroyPixmap", nullptr);
    EXPECT_EQ(announced, "Destroying local pixmap");
    EXPECT_THAT(fake::texts(gl.callsOf("glXDestroyPixmap")),
                ElementsAre("glXDestroyPixmap(local, " + gl.nameOf(drawable) + ")"));
    EXPECT_THAT(messages(), Not(Contains("Destroying local pbuffer")));
}

TEST_F(DrawableEnds, AWindowDestroyedWhileCurrentMayStillBeLeftBehindInGoodOrder) {
    begin();
    GLXContext other = makeContext("other");
    const Window second = makeWindow(30, 30);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    kor_glXSwapBuffers(app, window);
    destroyWindow(window);
    EXPECT_TRUE(kor_glXMakeCurrent(app, second, other));
    kor_glXDestroyContext(app, context);
    kor_glXSwapBuffers(app, second);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), second);
    EXPECT_FALSE(findLocalDrawable(window));
}
