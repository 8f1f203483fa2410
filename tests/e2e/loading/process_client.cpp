// What befalls GL libraries in long-lived processes. Not linked with any of them.
//   process_client cycles LIBRARY   opens, uses and closes it a thousand times
//   process_client unused LIBRARY   opens and closes it a thousand times without a GLX call
//   process_client idle LIBRARY     asks only whether there is GLX, and what is mapped then
//   process_client fork-before LIBRARY, fork-after LIBRARY
//       forks children that exit, execute another program or do nothing of the kind, before its
//       first GL call or between two frames
#include "drawing.h"

#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fstream>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace kor::loading;

constexpr int cycles = 1000;

/// A GL library, opened for the life of this object.
class Library {
  public:
    explicit Library(const char* path) : handle_(dlopen(path, RTLD_LAZY | RTLD_LOCAL)) {
        if (handle_ == nullptr)
            fail(dlerror());
#define KOR_TAKE(name)                                                                             \
    functions.name = reinterpret_cast<decltype(functions.name)>(dlsym(handle_, #name));            \
    require(functions.name != nullptr, "the library has no " #name);
        KOR_GLX_FUNCTIONS(KOR_TAKE)
        KOR_GL_FUNCTIONS(KOR_TAKE)
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() {
        dlclose(handle_);
    }

    template <typename Function> Function* find(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(handle_, name));
    }

    Functions functions;

  private:
    void* handle_;
};

int countEntries(const char* folder) {
    DIR* opened = opendir(folder);
    require(opened != nullptr, folder);
    int count = 0;
    while (readdir(opened) != nullptr)
        ++count;
    closedir(opened);
    return count;
}

bool isMapped(const char* part) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find(part) != std::string::npos)
            return true;
    return false;
}

void closeAndOpen(const char* path) {
    Display* display = XOpenDisplay(nullptr);
    int threads = 0;
    int files = 0;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        const Library library(path);
        int wanted[] = {GLX_RGBA, GLX_DOUBLEBUFFER, None};
        XVisualInfo* visual = library.functions.glXChooseVisual(display, 0, wanted);
        require(visual != nullptr, "no visual");
        XFree(visual);
        if (cycle % 100 == 1 || cycle == cycles) {
            Drawing drawing(library.functions, display);
            drawing.draw(cycle);
            drawing.requireShown();
        }
        if (cycle == 1) {
            threads = countEntries("/proc/self/task");
            files = countEntries("/proc/self/fd");
        }
    }
    require(countEntries("/proc/self/task") <= threads, "there are more threads than before");
    require(countEntries("/proc/self/fd") <= files, "there are more open files than before");
}

void closeUnused(const char* path) {
    for (int cycle = 0; cycle < cycles; ++cycle)
        const Library library(path);
    require(!isMapped("libGL_KOR"), "the library is there although nobody called GL");
    require(!isMapped("libGLX_kor"), "the front is there although nobody called GL");
    require(countEntries("/proc/self/task") == 3, "there are threads"); // with . and ..
}

void stayIdle(const char* path) {
    Display* display = XOpenDisplay(nullptr);
    require(display != nullptr, "no display");
    const int files = countEntries("/proc/self/fd");
    const Library library(path);
    const auto query = library.find<decltype(glXQueryExtension)>("glXQueryExtension");
    int error = 0;
    int event = 0;
    require(query(display, &error, &event), "there is no GLX");
    require(!isMapped("libGL_KOR"), "the library was started");
    require(countEntries("/proc/self/fd") == files, "there are connections");
    require(countEntries("/proc/self/task") == 3, "there are threads");
    XCloseDisplay(display);
}

void expectEnds(pid_t child, const char* what) {
    for (int tenths = 0; tenths < 100; ++tenths) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            require(WIFEXITED(status) && WEXITSTATUS(status) == 0,
                    std::string("a child that ") + what + " failed");
            return;
        }
        usleep(100000);
    }
    kill(child, SIGKILL);
    fail(std::string("a child that ") + what + " hangs");
}

void forkChildren() {
    pid_t child = fork();
    if (child == 0)
        exit(0);
    expectEnds(child, "exits");
    child = fork();
    if (child == 0)
        _exit(0);
    expectEnds(child, "ends at once");
    child = fork();
    if (child == 0) {
        execlp("true", "true", nullptr);
        _exit(1);
    }
    expectEnds(child, "executes a program");
}

void drawAroundForks(const Library& library, bool before) {
    if (before) {
        forkChildren();
        const pid_t child = fork();
        if (child == 0)
            exit(drawAndCheck(library.functions)); // its first GL call, as it is its parent's
        expectEnds(child, "draws");
    }
    Drawing drawing(library.functions, static_cast<const char*>(nullptr));
    for (int frame = 0; frame < 5; ++frame) {
        drawing.draw(frame);
        forkChildren();
        drawing.draw(frame + 1);
        drawing.requireShown();
    }
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 3, "two arguments are wanted");
    const std::string what = argv[1];
    if (what == "cycles") {
        closeAndOpen(argv[2]);
    } else if (what == "unused") {
        closeUnused(argv[2]);
    } else if (what == "idle") {
        stayIdle(argv[2]);
    } else if (what == "fork-before" || what == "fork-after") {
        const Library library(argv[2]);
        drawAroundForks(library, what == "fork-before");
    } else {
        fail("unknown: " + what);
    }
    puts("passed");
    return 0;
}
