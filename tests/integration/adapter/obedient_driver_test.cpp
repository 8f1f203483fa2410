#include "obedient_driver_case.h"

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kor::test {
namespace {

TEST_F(ObedientDriver, ThatNeedsNoHelpGetsNone) {
    prepare(true);
    GLXContext context = makeDriverContext();
    const GLXPbuffer drawable = create(display, nullptr, nullptr);
    const int contextsBefore = contexts();
    const int before = calls();
    makeCurrent(display, drawable, context);
    EXPECT_GT(calls(), before);
    const int drawn = calls();
    frame(drawable);
    EXPECT_EQ(calls(), drawn + 3) << "the colour, the clear and one swap";
    makeCurrent(display, None, nullptr);
    EXPECT_EQ(calls(), drawn + 4);
    destroy(display, drawable);
    EXPECT_EQ(calls(), drawn + 4) << "later, when a context is current again";
    makeCurrent(display, create(display, nullptr, nullptr), context);
    const int destroyed = calls();
    makeCurrent(display, None, nullptr);
    EXPECT_EQ(calls(), destroyed + 1) << "nothing is left to do";
    EXPECT_EQ(contexts(), contextsBefore);
    EXPECT_EQ(front(drawable), Red);
}

TEST_F(ObedientDriver, ThatNeedsNoHelpKeepsAContextDestroyedWhileCurrentUntilItIsLeft) {
    prepare(true);
    auto* live = control<decltype(obedientLiveContexts)>("obedientLiveContexts");
    auto* destroyContext = adapter.find<decltype(glXDestroyContext)>("glXDestroyContext");
    GLXContext context = makeDriverContext();
    GLXContext reader = makeDriverContext();
    const GLXPbuffer drawable = create(display, nullptr, nullptr);
    makeCurrent(display, drawable, context);
    const int before = live();
    destroyContext(display, context);
    for (int frames = 0; frames < 3; frames++) {
        makeCurrent(display, drawable, reader);
        makeCurrent(display, drawable, context);
        EXPECT_EQ(live(), before) << "taken away for a moment only";
    }
    makeCurrent(display, drawable, reader);
    makeCurrent(display, None, nullptr);
    EXPECT_EQ(live(), before - 1) << "the application has left it";
}

TEST_F(ObedientDriver, ThatForgetsIsHelped) {
    prepare(false);
    GLXContext context = makeDriverContext();
    const GLXPbuffer drawable = create(display, nullptr, nullptr);
    makeCurrent(display, drawable, context);
    frame(drawable);
    EXPECT_EQ(front(drawable), Red);
    const int contextsThen = contexts();
    frame(drawable);
    EXPECT_EQ(contexts(), contextsThen) << "the helper context is used again";
    makeCurrent(display, None, nullptr);
}

TEST_F(ObedientDriver, ItsHelpersEndWithTheConnection) {
    prepare(false);
    auto* live = control<decltype(obedientLiveContexts)>("obedientLiveContexts");
    GLXContext context = makeDriverContext();
    const int before = live();
    {
        const Connection closed(false);
        adapter.find<decltype(kor_adapter_local_display)>("kor_adapter_local_display")(closed);
        const GLXPbuffer drawable = create(closed, nullptr, nullptr);
        makeCurrent(closed, drawable, context);
        swap(closed, drawable);
        makeCurrent(closed, None, nullptr);
        EXPECT_EQ(live(), before + 1);
    }
    EXPECT_EQ(live(), before);
}

TEST_F(ObedientDriver, NoHelperIsCurrentTwiceAndNoLockIsHeldInTheDriver) {
    prepare(false);
    std::vector<std::thread> threads;
    threads.reserve(4);
    std::atomic<int> wrong{0};
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            GLXContext context = makeDriverContext();
            const GLXPbuffer drawable = create(display, nullptr, nullptr);
            makeCurrent(display, drawable, context);
            for (int n = 0; n < 200; n++) {
                frame(drawable);
                wrong += front(drawable) == Red ? 0 : 1;
            }
            makeCurrent(display, None, nullptr);
            destroy(display, drawable);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(control<decltype(obedientViolations)>("obedientViolations")(), 0);
    EXPECT_GT(control<decltype(obedientSwapsAtOnce)>("obedientSwapsAtOnce")(), 1);
}

TEST_F(ObedientDriver, AForkedChildGoesOnWhateverOtherThreadsDid) {
    prepare(false);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 3; i++)
        threads.emplace_back([&] {
            GLXContext context = makeDriverContext();
            while (!stop) { // look-ups in the adapter's tables, over and over
                const GLXPbuffer drawable = create(display, nullptr, nullptr);
                for (int n = 0; n < 2000 && !stop; n++)
                    makeCurrent(display, drawable, context);
                makeCurrent(display, None, nullptr);
                destroy(display, drawable);
            }
        });
    for (int i = 0; i < 60; i++) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            alarm(10); // a child that hangs ends by a signal
            GLXContext context = makeDriverContext();
            const GLXPbuffer drawable = create(display, nullptr, nullptr);
            makeCurrent(display, drawable, context);
            frame(drawable); // unmended: the connection is the parent's
            destroy(display, drawable);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
        if (!WIFEXITED(status))
            break;
    }
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
} // namespace kor::test
