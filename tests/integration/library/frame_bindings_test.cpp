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

    /// Lets as many threads end frames of the window, each in a context of its own.
    void swapOn(int threads, int frames, bool resizing);

    /// Lets another thread do that in the middle of a frame's copy. True when that calls the
    /// driver's function before the copy is over.
    bool callsDuringACopy(const std::string& function, const std::function<void()>& action);

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

void FrameBindings::swapOn(int threads, int frames, bool resizing) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "2000");
    begin(64, 48);
    kor_glXMakeCurrent(app, None, nullptr);
    std::vector<GLXContext> contexts;
    for (int i = 0; i < threads; ++i) {
        contexts.push_back(makeContext(format("ctx%d", i).c_str()));
        applications[fake::word(contexts.back())] = i;
    }
    applications[0] = -1;
    watch();
    std::latch together(threads);
    std::atomic<int> lost{0};
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&, i] {
            EXPECT_TRUE(kor_glXMakeCurrent(app, window, contexts[static_cast<size_t>(i)]));
            together.arrive_and_wait();
            for (int frame = 0; frame < frames; ++frame) {
                if (resizing && frame % 5 == i)
                    resizeWindow(window, 40 + (frame + i) % 30, 48);
                kor_glXSwapBuffers(app, window);
                if (system_glXGetCurrentContext() != contexts[static_cast<size_t>(i)])
                    ++lost;
            }
            kor_glXMakeCurrent(app, None, nullptr);
        });
    }
    for (std::thread& thread : running)
        thread.join();
    endWatch();
    letPaintsArrive();
    EXPECT_THAT(refused, IsEmpty());
    EXPECT_EQ(lost, 0) << "times that a thread did not have its context back";
    EXPECT_EQ(gl.callsOf("glFenceSync").size(), static_cast<size_t>(threads * frames));
}

bool FrameBindings::callsDuringACopy(const std::string& function,
                                     const std::function<void()>& action) {
    begin(64, 48);
    std::thread other;
    bool called = false;
    gl.onCall("glCopyTexSubImage2D", [&](const fake::Call&) {
        if (other.joinable())
            return; // the other thread's copy
        const size_t before = gl.callsOf(function).size();
        other = std::thread([&] {
            ASSERT_TRUE(_setupAppDisplay(app, nullptr));
            action();
        });
        called = gl.waitForCalls(function, before + 1, 300);
    });
    kor_glXSwapBuffers(app, window);
    other.join();
    gl.onCall("glCopyTexSubImage2D", nullptr);
    letPaintsArrive();
    return called;
}

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

TEST_F(FrameBindings, AnotherThreadsFrameOfTheWindowWaitsForTheCopy) {
    EXPECT_FALSE(callsDuringACopy("glGetIntegerv", [&] { kor_glXSwapBuffers(app, window); }));
    EXPECT_EQ(gl.callsOf("glFenceSync").size(), 2U);
}

TEST_F(FrameBindings, AnotherThreadsNewPbufferForTheWindowWaitsForTheCopy) {
    EXPECT_FALSE(
        callsDuringACopy("glXDestroyPbuffer", [&] { record()->updateOffscreenPbuffer(); }));
    EXPECT_EQ(gl.callsOf("glXDestroyPbuffer").size(), 1U);
}

TEST_F(FrameBindings, AnotherThreadsEndOfTheWindowWaitsForTheCopy) {
    set("KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT", "1");
    EXPECT_FALSE(callsDuringACopy("glXDestroyPbuffer", [&] { record()->release(); }));
    EXPECT_FALSE(gl.callsOf("glXDestroyPbuffer").empty());
}

TEST_F(FrameBindings, TwoThreadsOnOneWindowCopyOneAfterTheOther) {
    swapOn(2, 150, false);
}

TEST_F(FrameBindings, FourThreadsOnOneWindowCopyOneAfterTheOther) {
    swapOn(4, 80, false);
}

TEST_F(FrameBindings, TwoThreadsOnOneWindowThatIsResizedKeepTheirContexts) {
    swapOn(2, 100, true);
}

TEST_F(FrameBindings, FourThreadsOnOneWindowThatIsResizedKeepTheirContexts) {
    swapOn(4, 60, true);
}
