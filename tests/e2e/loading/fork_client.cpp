// Children that are forked by a program which draws. Linked with a GL library.
//   fork_client draws COUNT [SEED]   forks COUNT children at random points of the frames that two
//       threads draw; each opens the display and draws, and the parent goes on
//   fork_client exits     a child that draws nothing runs through exit(), and the parent goes on
//   fork_client inherits  a child ends its parent's context and display, in bounded time
//   fork_client again     a child's child draws, too, while both of the others go on
#include "drawing.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kor::loading;

// Windows that are there at the same time.
constexpr int firstPlace = 10;
constexpr int secondPlace = 120;
constexpr int thirdPlace = 230;

Functions linkedFunctions() {
    Functions functions;
    KOR_GLX_FUNCTIONS(KOR_TAKE_LINKED)
    KOR_GL_FUNCTIONS(KOR_TAKE_LINKED)
    return functions;
}

/// Ends what hangs, so that it leaves a status. Inherited by nobody.
void limitLife() {
    alarm(20);
}

void expectEnds(pid_t child, const char* what) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1)
        require(errno == EINTR, "waitpid");
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return;
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        fail(std::string("a child that ") + what + " hangs");
    fail(std::string("a child that ") + what + " ends with wait status " + std::to_string(status));
}

/// The end of a child that has drawn. Mesa's handler at exit() joins the threads of the parent's
/// queues, whose stacks the child's own threads have by now: it crashes or hangs, whoever draws.
[[noreturn]] void endChild(int status) {
    fflush(stdout);
    _exit(status);
}

/// Draws on its own display in frames of random length for as long as it lives.
class Painter {
  public:
    explicit Painter(const Functions& functions)
        : thread_([this, functions] {
              Drawing drawing(functions, nullptr, secondPlace);
              int frame = 0;
              do {
                  drawing.draw(frame++);
                  drawn_ = frame;
              } while (!stop_);
              drawing.requireShown();
          }) {}
    ~Painter() {
        stop_ = true;
        thread_.join();
    }
    Painter(const Painter&) = delete;
    Painter& operator=(const Painter&) = delete;
    int drawn() const { return drawn_; }

  private:
    std::atomic<bool> stop_{false};
    std::atomic<int> drawn_{0};
    std::thread thread_;
};

void drawAroundForks(const Functions& functions, int count, unsigned seed) {
    printf("seed %u\n", seed);
    std::mt19937 random(seed);
    Drawing drawing(functions, nullptr, firstPlace);
    drawing.draw(0);
    Painter painter(functions);
    for (int i = 0; i < count; ++i) {
        // The frame is somewhere on its road when the child is made; this thread has it current.
        drawing.draw(i);
        usleep(random() % 30000);
        fflush(stdout);
        const pid_t child = fork();
        if (child == 0) {
            limitLife();
            endChild(drawAndCheck(functions, thirdPlace));
        }
        drawing.draw(i + 1);
        expectEnds(child, "draws");
        drawing.requireShown();
    }
    require(painter.drawn() > count, "the other thread stands still");
}

void exitUnused(const Functions& functions) {
    Drawing drawing(functions, nullptr, firstPlace);
    for (int i = 0; i < 10; ++i) {
        drawing.draw(i);
        const pid_t child = fork();
        if (child == 0) {
            limitLife();
            exit(0);
        }
        expectEnds(child, "exits");
        drawing.draw(i + 1);
        drawing.requireShown();
    }
}

void endInherited(const Functions& functions) {
    Drawing drawing(functions, nullptr, firstPlace);
    drawing.draw(1);
    drawing.requireShown();
    const pid_t child = fork();
    if (child == 0) {
        limitLife();
        functions.glXDestroyContext(drawing.display(), drawing.context());
        endChild(0);
    }
    expectEnds(child, "ends its parent's context");
}

void drawInGenerations(const Functions& functions) {
    Drawing drawing(functions, nullptr, firstPlace);
    drawing.draw(1);
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        limitLife();
        {
            Drawing own(functions, nullptr, secondPlace);
            own.draw(2);
            const pid_t grandchild = fork();
            if (grandchild == 0) {
                limitLife();
                endChild(drawAndCheck(functions, thirdPlace));
            }
            own.draw(3);
            expectEnds(grandchild, "draws in the third generation");
            own.requireShown();
        }
        endChild(0);
    }
    drawing.draw(4);
    expectEnds(child, "draws and forks");
    drawing.requireShown();
}

} // namespace

int main(int argc, char** argv) {
    require(argc >= 2, "an argument is wanted");
    const Functions functions = linkedFunctions();
    const std::string what = argv[1];
    if (what == "draws") {
        const unsigned seed =
            argc > 3 ? static_cast<unsigned>(atoi(argv[3])) : std::random_device()();
        drawAroundForks(functions, argc > 2 ? atoi(argv[2]) : 1, seed);
    } else if (what == "exits") {
        exitUnused(functions);
    } else if (what == "inherits") {
        endInherited(functions);
    } else if (what == "again") {
        drawInGenerations(functions);
    } else {
        fail("unknown: " + what);
    }
    puts("passed");
    return 0;
}
