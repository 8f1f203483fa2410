// A small program's whole life on the library, once for each allocation that it makes, which fails:
// no exception comes out, nobody waits for ever, and the same process then lives once more.

#include "displays.h"
#include "interposed.h"

#include "framework/wait_until.h"

#include <cstdlib>
#include <sys/wait.h>

namespace {

/// How a life in a process of its own ended.
enum Outcome { Lived = 0, NoneFailed = 1, Threw = 2, SecondLifeFailed = 3, Unprepared = 4 };

class AllocationFaults : public Displays {
  protected:
    /// In a child: what the life needs of Xlib, so that only the library allocates.
    bool prepare() {
        app = XOpenDisplay(appName.c_str());
        if (app == nullptr)
            return false;
        visual = visualInfo(doubleVisual);
        fbconfig = config("double1");
        window = makeWindow(30, 20);
        secondWindow = makeWindow(50, 40);
        pixmap = XCreatePixmap(app, window, 20, 10, 24);
        XSync(app, False);
        return true;
    }

    /// Every kind of object, made, used and ended. True when each step went well.
    bool live(Window on) {
        bool well = true;
        const auto step = [&](bool succeeded) {
            well = well && succeeded;
            return succeeded;
        };
        int value = 0;
        int count = 0;
        int wanted[] = {GLX_RGBA, GLX_DOUBLEBUFFER, None};
        if (XVisualInfo* chosen = kor_glXChooseVisual(app, 0, wanted); step(chosen != nullptr))
            XFree(chosen);
        const int asked[] = {GLX_DOUBLEBUFFER, True, None};
        if (GLXFBConfig* configs = kor_glXChooseFBConfig(app, 0, asked, &count);
            step(configs != nullptr))
            XFree(configs);
        step(kor_glXGetConfig(app, &visual, GLX_DOUBLEBUFFER, &value) == 0);
        step(kor_glXGetFBConfigAttrib(app, fbconfig, GLX_VISUAL_ID, &value) == 0);
        if (XVisualInfo* found = kor_glXGetVisualFromFBConfig(app, fbconfig);
            step(found != nullptr))
            XFree(found);
        step(kor_glXQueryExtensionsString(app, 0) != nullptr);
        step(kor_glXGetClientString(app, GLX_EXTENSIONS) != nullptr);

        const GLXContext context =
            kor_glXCreateNewContext(app, fbconfig, GLX_RGBA_TYPE, nullptr, True);
        const GLXContext other = kor_glXCreateContext(app, &visual, nullptr, True);
        step(context != nullptr && other != nullptr);
        if (context != nullptr && step(kor_glXMakeCurrent(app, on, context) != False)) {
            kor_glClear(GL_COLOR_BUFFER_BIT);
            kor_glXSwapBuffers(app, on);
            XResizeWindow(app, on, 60, 45);
            XSync(app, False);
            kor_glViewport(0, 0, 60, 45);
            kor_glXSwapBuffers(app, on);
        }
        const int size[] = {GLX_PBUFFER_WIDTH, 16, GLX_PBUFFER_HEIGHT, 16, None};
        const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, fbconfig, size);
        const GLXPixmap glxPixmap = kor_glXCreatePixmap(app, fbconfig, pixmap, nullptr);
        step(pbuffer != None && glxPixmap != None);
        if (other != nullptr && pbuffer != None)
            step(kor_glXMakeContextCurrent(app, pbuffer, pbuffer, other) != False);
        if (pbuffer != None)
            kor_glXDestroyPbuffer(app, pbuffer);
        if (glxPixmap != None)
            kor_glXDestroyPixmap(app, glxPixmap);
        step(kor_glXMakeCurrent(app, None, nullptr) != False);
        if (other != nullptr)
            kor_glXDestroyContext(app, other);
        if (context != nullptr)
            kor_glXDestroyContext(app, context);
        return well;
    }

    /// The life whose n-th allocation fails, and one more. Without n, the number of allocations.
    int liveWithFailure(int n) {
        if (!prepare())
            return Unprepared;
        bool threw = false;
        kor::test::allocationsToFailure = n;
        kor::test::countsAllocations = true;
        try {
            kor_init(handle);
            live(window);
        } catch (...) {
            threw = true;
        }
        kor::test::countsAllocations = false;
        // A frame that is still on its way counts, too.
        kor::test::waitUntil([] { return kor::test::allocationsToFailure <= 0; },
                             std::chrono::milliseconds(50));
        const bool failed = kor::test::allocationsToFailure.exchange(0) <= 0;
        if (threw)
            return Threw;
        gl.clearCalls();
        const bool well = live(secondWindow) && gl.waitForCalls("glReadPixels", 1, 5000);
        XDestroyWindow(app, window);
        XSync(app, False);
        kor_fini();
        return !well ? SecondLifeFailed : failed ? Lived : NoneFailed;
    }

    /// An Outcome; the signal that ended the child, negative, where one did.
    int outcomeOf(int n) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            _exit(liveWithFailure(n));
        }
        int status = 0;
        if (waitpid(child, &status, 0) != child)
            return Unprepared;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    XVisualInfo visual{};
    GLXFBConfig fbconfig = nullptr;
    Window window = None;
    Window secondWindow = None;
    Pixmap pixmap = None;
};

constexpr int kParts = 8; // each in a process of its own, since together they take long

class EachAllocation : public AllocationFaults, public testing::WithParamInterface<int> {};

} // namespace

TEST_P(EachAllocation, OfAProgramsLifeMayFailOnce) {
    constexpr int kLeast = 40; // a life takes more allocations than that
    constexpr int kMost = 4000;
    if (const char* only = getenv("KOR_TEST_ALLOCATION")) { // by hand
        EXPECT_EQ(outcomeOf(atoi(only)), Lived);
        return;
    }
    int n = GetParam();
    for (; n < kMost; n += kParts) {
        const int outcome = outcomeOf(n);
        if (outcome == NoneFailed)
            break;
        EXPECT_EQ(outcome, Lived) << "allocation " << n;
    }
    EXPECT_GT(n, kLeast);
    EXPECT_LT(n, kMost);
}

INSTANTIATE_TEST_SUITE_P(Parts, EachAllocation, testing::Range(1, kParts + 1));
