// How long a frame and a pass of the painter pause, and which frames are counted.

#include "frames.h"
#include "interposed.h"

#include "config/settings.h"
#include "framework/wait_until.h"
#include "transport/copyback.h"

#include <chrono>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int64_t millisecond = 1000;

class FramePace : public Frames {
  protected:
    ~FramePace() override { kor::test::timeOfDay = -1; }

    /// From now on the time stands still.
    static void stopTheClock() { kor::test::timeOfDay = 1000000000 * millisecond; }
    static void pass(int64_t milliseconds) { kor::test::timeOfDay += milliseconds * millisecond; }

    /// How this thread slept during one swap.
    std::vector<unsigned> sleepsOfASwap() const {
        const size_t before = kor::test::sleepsOf(gettid()).size();
        kor_glXSwapBuffers(app, window);
        std::vector<unsigned> sleeps = kor::test::sleepsOf(gettid());
        sleeps.erase(sleeps.begin(), sleeps.begin() + static_cast<long>(before));
        return sleeps;
    }

    void updateWindow() const {
        XSync(app, False);
        record()->updateWindowInfo(nullptr, nullptr, nullptr);
    }

    pid_t painterThread() const {
        for (const LogLine& line : log())
            if (line.function.find("CopybackThread::svc(") != std::string::npos)
                return static_cast<pid_t>(line.thread);
        return 0;
    }

    /// Waits until the painter has begun that many passes.
    bool waitForPasses(size_t count) const {
        return kor::test::waitUntil(
            [&] { return kor::test::sleepsOf(painterThread()).size() >= count; },
            std::chrono::seconds(30));
    }
};

} // namespace

TEST_F(FramePace, TheRestOfTheIntervalIsSleptAway) {
    set("KOR_GL_READBACK_INTERVAL", "50");
    begin(64, 48);
    stopTheClock();
    EXPECT_THAT(sleepsOfASwap(), IsEmpty()) << "the first frame";
    pass(10);
    EXPECT_THAT(sleepsOfASwap(), ElementsAre(40000U));
    pass(49);
    EXPECT_THAT(sleepsOfASwap(), ElementsAre(1000U));
    pass(50);
    EXPECT_THAT(sleepsOfASwap(), IsEmpty());
    pass(-3000);
    EXPECT_THAT(sleepsOfASwap(), IsEmpty()) << "the clock was set back";
    pass(10);
    EXPECT_THAT(sleepsOfASwap(), ElementsAre(40000U));
    letPaintsArrive();
}

TEST_F(FramePace, ANegativeIntervalIsNone) {
    set("KOR_GL_READBACK_INTERVAL", "-5");
    begin(64, 48);
    stopTheClock();
    EXPECT_THAT(sleepsOfASwap(), IsEmpty());
    EXPECT_THAT(sleepsOfASwap(), IsEmpty());
    letPaintsArrive();
}

TEST_F(FramePace, OnlyFramesThatAreReadBackAreCounted) {
    begin(64, 48);
    stopTheClock();
    kor_glXSwapBuffers(app, window);
    kor_glXSwapBuffers(app, window);
    XUnmapWindow(app, window);
    updateWindow();
    kor_glXSwapBuffers(app, window);
    EXPECT_TRUE(said('D', "DrawableInfo::readback", "window not visible"));
    XMapWindow(app, window);
    updateWindow();
    kor::conf::settings().noReadback = true;
    kor_glXSwapBuffers(app, window);
    kor::conf::settings().noReadback = false;
    EXPECT_THAT(sayings("DrawableInfo::incrementFpsCounter"), IsEmpty());
    pass(5001);
    kor_glXSwapBuffers(app, window);
    EXPECT_THAT(sayings("DrawableInfo::incrementFpsCounter"),
                ElementsAre("Produced 3 frames in the last 5001 ms: average FPS 0.600"));
    EXPECT_EQ(gl.callsOf("glFenceSync").size(), 3U);
    letPaintsArrive();
}

TEST_F(FramePace, EveryPassSleepsOneWholeInterval) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "5");
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    kor::gl::Copyback::instance()->unblock(); // two passes that find nothing
    kor::gl::Copyback::instance()->unblock();
    ASSERT_TRUE(waitForPasses(3));
    letPaintsArrive();
    // Longer than an interval without work.
    std::this_thread::sleep_for(std::chrono::milliseconds(450));
    ASSERT_TRUE(swapAndPaint());
    letPaintsArrive();
    EXPECT_THAT(kor::test::sleepsOf(painterThread()),
                ElementsAre(200000U, 200000U, 200000U, 200000U));
}
