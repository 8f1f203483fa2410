// What is current to a thread during and after a frame, when its drawables have gone, and when
// several threads end frames of one window.

#include "frames.h"

#include "core/system_gl.h"
#include "display/displays.h"

#include <atomic>
#include <functional>
#include <latch>
#include <mutex>
#include <thread>

using testing::IsEmpty;

namespace {

class FrameBindings : public Frames {
  protected:
    ~FrameBindings() override { endWatch(); }

    /// Watches what is made current from now on, as a driver would.
    void watch() {
        gl.onCall("glXMakeCurrent", [this](const fake::Call& call) {
            bound(call, call.arguments[1], call.arguments[1], call.arguments[2]);
        });
        gl.onCall("glXMakeContextCurrent", [this](const fake::Call& call) {
            bound(call, call.arguments[1], call.arguments[2], call.arguments[3]);
        });
        gl.onCall("glXDestroyPbuffer", [this](const fake::Call& call) {
            const std::lock_guard lock(mutex);
            for (const auto& [thread, binding] : bindings)
                if (binding.draw == call.arguments[1] && applications.count(binding.context) == 0)
                    refused.push_back(call.text + " while a thread copies from it");
        });
    }
    void endWatch() {
        for (const char* name : {"glXMakeCurrent", "glXMakeContextCurrent", "glXDestroyPbuffer"})
            gl.onCall(name, nullptr);
    }

    /// The calls that a driver would have answered with an error.
    std::vector<std::string> refused;

  private:
    struct Binding {
        fake::Word draw;
        fake::Word context;
    };

    void bound(const fake::Call& call, fake::Word draw, fake::Word read, fake::Word context) {
        const std::lock_guard lock(mutex);
        if ((draw == 0) != (read == 0) || (draw == 0) != (context == 0))
            refused.push_back(call.text + ": no such combination");
        for (const auto& [thread, binding] : bindings)
            if (context != 0 && thread != call.thread && binding.context == context)
                refused.push_back(call.text + ": current to another thread");
        bindings[call.thread] = {draw, context};
    }

    std::mutex mutex; // guards the others
    std::map<pid_t, Binding> bindings;

  protected:
    std::map<fake::Word, int> applications; ///< the contexts that are not the library's own
};

} // namespace

TEST_F(FrameBindings, AfterTheReadDrawableWasDestroyedTheDrawDrawableIsBoundForBoth) {
    begin(20, 20);
    const GLXPbuffer read = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, read, context));
    kor_glXDestroyPbuffer(app, read);
    watch();
    for (int i = 0; i < 2; ++i) {
        gl.clearCalls();
        kor_glXSwapBuffers(app, window);
        EXPECT_EQ(mine().back(), "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
    }
    letPaintsArrive();
    EXPECT_THAT(refused, IsEmpty());
}

TEST_F(FrameBindings, AfterAnotherThreadDestroyedTheReadDrawableNoneIsNotBound) {
    begin(20, 20);
    const GLXPbuffer read = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, read, context));
    std::thread([&] {
        GLXContext own = makeContext("own"); // so that the drawable is freed, not abandoned
        const Window other = makeWindow(20, 20);
        ASSERT_TRUE(kor_glXMakeCurrent(app, other, own));
        kor_glXDestroyPbuffer(app, read);
        kor_glXMakeCurrent(app, None, nullptr);
    }).join();
    ASSERT_NE(getTSD()->currentReadDrawable, nullptr); // this thread has not heard of it
    watch();
    kor_glXSwapBuffers(app, window);
    resizeWindow(window, 30, 30);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(mine().back(), "glXMakeCurrent(local, " + pbuffer() + ", ctx)");
    letPaintsArrive();
    EXPECT_THAT(refused, IsEmpty());
}

TEST_F(FrameBindings, AfterTheDrawDrawableWasReleasedAFrameOfAnotherWindowBindsThatWindow) {
    begin(20, 20);
    const Window other = makeWindow(20, 20);
    const kor::gl::DrawableRef shown = getDrawableInfo(app, other, config("double1"), nullptr);
    record()->release();
    watch();
    gl.clearCalls();
    kor_glXSwapBuffers(app, other);
    EXPECT_EQ(mine().back(), "glXMakeCurrent(local, " + gl.nameOf(shown->localDrawable) + ", ctx)");
    letPaintsArrive();
    EXPECT_THAT(refused, IsEmpty());
}

TEST_F(FrameBindings, ARefusedPbufferLeavesNoReadContextCurrent) {
    begin(20, 20);
    resizeWindow(window, 30, 30);
    gl.failCall("glXCreatePbuffer", 1);
    record()->checkForResize();
    ASSERT_EQ(record()->localDrawable.load(), None);
    record()->readback();
    EXPECT_EQ(mine().back(), "glXMakeCurrent(local, 0, null)");
}

TEST_F(FrameBindings, ReadingAnotherDrawableARefusedPbufferIsNotBoundAgain) {
    begin(60, 40);
    const Window other = makeWindow(30, 30);
    ASSERT_TRUE(kor_glXMakeContextCurrent(app, window, other, context));
    resizeWindow(window, 70, 30);
    gl.failCall("glXCreatePbuffer", 1);
    watch();
    record()->checkForResize();
    EXPECT_EQ(gl.calls().back().name, "glXCreatePbuffer");
    EXPECT_THAT(refused, IsEmpty());
}

TEST_F(FrameBindings, AResizeBindsTheThreadsOwnContextAlsoWhenAnotherThreadUsesTheWindow) {
    begin(60, 40);
    std::thread([&] {
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("theirs")));
    }).join();
    ASSERT_NE(record()->lastContext.load(), context);
    resizeWindow(window, 70, 30);
    record()->checkForResize();
    EXPECT_EQ(gl.calls().back().text,
              "glXMakeContextCurrent(local, " + pbuffer() + ", " + pbuffer() + ", ctx)");
}
