// exits_stress: a program that draws as fast as it can and ends at a random moment of a frame. It
// says "ending NANOSECONDS" (of the monotonic clock) when it begins to end.
//   --end   how (see `ends` below)
//   --after microseconds until then, at most
// Its status is 7 where it has the choice.
#include "stress.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <time.h>
#include <unistd.h>

using namespace kor::client;
using namespace kor::stress;

namespace {

constexpr int kStatus = 7;

Display* display = nullptr;
GLXContext context = nullptr;
Window window = None;
std::atomic<long> alarms{0};

void sayEnding() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    char text[64];
    const int length = std::snprintf(text, sizeof text, "ending %lld%09ld\n",
                                     static_cast<long long>(now.tv_sec), now.tv_nsec);
    const ssize_t written = write(STDOUT_FILENO, text, static_cast<std::size_t>(length));
    (void)written;
}

[[noreturn]] void end(const std::string& how) {
    sayEnding();
    if (how == "_exit")
        _exit(kStatus);
    if (how == "quick_exit")
        std::quick_exit(kStatus);
    if (how == "abort")
        std::abort();
    if (how == "terminate")
        raise(SIGTERM);
    std::exit(kStatus);
}

std::atomic<bool> drawn{false};

/// While another thread draws. Not in the moment of its first frame: the driver compiles its first
/// shader then, and the end takes apart what it has just set up for that.
void endAfterTheFirstFrame(int microseconds) {
    while (!drawn)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    end("exit");
}

void frame(Random& random) {
    drawColour(random.below(65536));
    if (random.oneIn(8))
        XResizeWindow(display, window, static_cast<unsigned>(20 + random.below(100)),
                      static_cast<unsigned>(20 + random.below(100)));
    glXSwapBuffers(display, window);
}

// Of a child: its own world, or the end at once.
[[noreturn]] void liveAsChild(const std::string& how) {
    if (how == "fork-exec") {
        execl("/bin/true", "true", nullptr);
        _exit(1);
    }
    if (how == "fork-render") {
        Display* const own = openDisplay();
        const Windows windows(own);
        const Window place = windows.open({300, 10, 60, 60});
        const GLXContext drawing = createContext(own, windows.visual());
        makeCurrent(own, place, drawing);
        const Picture picture(60, 60, 3);
        glViewport(0, 0, 60, 60);
        drawQuad(picture);
        glXSwapBuffers(own, place);
        requireShown(own, place, picture, "the child's window");
        _exit(0);
    }
    _exit(0);
}

void haveChild(const std::string& how) {
    const pid_t child = fork();
    if (child == 0)
        liveAsChild(how);
    int status = 0;
    for (int i = 0; i < 1600; ++i) { // eight seconds
        if (waitpid(child, &status, WNOHANG) == child) {
            require(WIFEXITED(status) && WEXITSTATUS(status) == 0,
                    "the child's own status, not " + std::to_string(status));
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    measure("stuck");
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    fail("the child hangs");
}

void release() {
    glXMakeCurrent(display, None, nullptr);
}

void destroy() {
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
}

int endOnError(Display* /*display*/, XErrorEvent* /*event*/) {
    sayEnding();
    std::exit(kStatus);
}

void beatTime() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++alarms; };
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval interval{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &interval, nullptr);
}

} // namespace

// exit, _exit, quick_exit, abort, terminate   by the thread that draws
// other-thread    exit() by another thread while one draws
// detached        a detached thread draws while main returns
// signals         with a signal in every millisecond, then exit()
// fork, fork-exec, fork-render   children that end, become another program, or draw themselves
// release, release-single, destroy   exit(), with a handler that was there before the first GLX
// call
//                 and releases or destroys the context; -single: the window has one buffer
// error           the window goes, and the handler of the error calls exit(); without an error
// exit()
int main(int count, char** words) {
    const Options options(count, words);
    const std::string how = options.text("end", "exit");
    Random random(options.number("seed", 1));
    const int after = random.below(options.number("after", 60000));
    XInitThreads();
    if (how == "release" || how == "release-single")
        std::atexit(release);
    if (how == "destroy")
        std::atexit(destroy);
    display = openDisplay();
    const bool single = how == "release-single";
    const auto* const windows =
        new Windows(display, single ? Buffering::Single : Buffering::Double);
    window = windows->open({10, 10, 100, 80});
    context = createContext(display, windows->visual());
    makeCurrent(display, window, context);
    if (how == "signals")
        beatTime();
    if (how == "error")
        XSetErrorHandler(endOnError);
    if (how == "detached") {
        glXMakeCurrent(display, None, nullptr);
        std::thread([&] {
            Random theirs(1, 2);
            makeCurrent(display, window, context);
            while (true) {
                frame(theirs);
                drawn = true;
            }
        }).detach();
        endAfterTheFirstFrame(after);
    }
    if (how == "other-thread")
        std::thread(endAfterTheFirstFrame, after).detach();

    timespec begin{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    while (true) {
        if (single) {
            drawColour(random.below(65536));
            glFlush();
            drawColour(random.below(65536)); // not flushed: the end finds it
        } else {
            frame(random);
        }
        drawn = true;
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const long passed =
            (now.tv_sec - begin.tv_sec) * 1000000 + (now.tv_nsec - begin.tv_nsec) / 1000;
        if (passed < after || how == "other-thread")
            continue;
        if (how.starts_with("fork"))
            for (int i = 0; i < 3; ++i) {
                haveChild(how);
                frame(random);
            }
        if (how == "error") {
            XDestroyWindow(display, window);
            XSync(display, False);
            for (int i = 0; i < 3; ++i)
                glXSwapBuffers(display, window);
        }
        end(how);
    }
}
