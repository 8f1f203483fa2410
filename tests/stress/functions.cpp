// functions_stress: a small program's life on the fake driver, in a process for each way in which
// one of the driver's functions can fail: at its first call, at its second, and at one further on.
// The program may not work then; it must neither crash nor hang.
//   --further N  so many further calls, by chance, of each function
//   --share N    one in N of the cases only
#include "displays.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr auto kPatience = std::chrono::seconds(30);

const char* const kFunctions[] = {
#define KOR_SYSTEM(name) #name,
#define KOR_SYSTEM_AS(name, reported) #name,
#define KOR_SYSTEM_OPTIONAL(name) #name,
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
};

// Between two servers, never ended as a test would be: its children end in its place.
class World final : public Displays {
  public:
    void TestBody() override {}

    // In a child: the whole life, and how often each function was called (to that file, if any).
    [[noreturn]] void live(const std::string& failing, int at, int census) {
        app = XOpenDisplay(appName.c_str());
        if (app == nullptr)
            _exit(3);
        if (!failing.empty())
            gl.failCall(failing, at);
        start();
        useWindows();
        usePixmapsAndPbuffers();
        ask();
        useFront();
        XSync(app, False);
        kor_fini();
        if (census != -1)
            for (const char* const name : kFunctions)
                dprintf(census, "%s %zu\n", name, gl.callsOf(name).size());
        _exit(0);
    }

    // What the servers and the fixture leave, ended and removed by hand.
    void close() {
        XCloseDisplay(app);
        appServer.stop();
        localServer.stop();
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(directory, ignored);
    }

  private:
    void drawFrames(Window window, int frames) {
        for (int frame = 0; frame < frames; ++frame) {
            kor_glViewport(0, 0, 60, 40);
            kor_glClear(GL_COLOR_BUFFER_BIT);
            kor_glXSwapBuffers(app, window);
        }
    }

    void useWindows() {
        int wanted[] = {GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, None};
        XVisualInfo* const chosen = kor_glXChooseVisual(app, DefaultScreen(app), wanted);
        XVisualInfo visual = visualInfo(doubleVisual);
        const GLXContext context = kor_glXCreateContext(app, &visual, nullptr, True);
        const int attributes[] = {GLX_CONTEXT_MAJOR_VERSION_ARB, 3, None};
        const GLXContext second =
            kor_glXCreateContextAttribsARB(app, config("double1"), context, True, attributes);
        const Window window = makeWindow(60, 40);
        kor_glXMakeCurrent(app, window, context);
        drawFrames(window, 3);
        resizeWindow(window, 90, 70);
        drawFrames(window, 3);
        const GLXWindow glxWindow = kor_glXCreateWindow(app, config("double1"), window, nullptr);
        kor_glXMakeContextCurrent(app, glxWindow, glxWindow, second);
        drawFrames(glxWindow, 2);
        std::thread([&] {
            const Window own = makeWindow(30, 30);
            const GLXContext drawing = makeContext("threads");
            kor_glXMakeCurrent(app, own, drawing);
            drawFrames(own, 2);
            kor_glXMakeCurrent(app, None, nullptr);
            kor_glXDestroyContext(app, drawing);
            destroyWindow(own);
        }).join();
        kor_glXCopyContext(app, context, second, 1);
        kor_glXMakeCurrent(app, None, nullptr);
        kor_glXDestroyWindow(app, glxWindow);
        kor_glXMakeCurrent(app, window, context);
        letPaintsArrive();
        destroyWindow(window);
        drawFrames(window, 1);
        kor_glXMakeCurrent(app, None, nullptr);
        kor_glXDestroyContext(app, second);
        kor_glXDestroyContext(app, context);
        if (chosen != nullptr)
            XFree(chosen);
    }

    void usePixmapsAndPbuffers() {
        XVisualInfo visual = visualInfo(doubleVisual);
        const GLXContext context = kor_glXCreateContext(app, &visual, nullptr, True);
        const int size[] = {GLX_PBUFFER_WIDTH, 40, GLX_PBUFFER_HEIGHT, 30, None};
        const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), size);
        kor_glXMakeContextCurrent(app, pbuffer, pbuffer, context);
        drawFrames(pbuffer, 1);
        unsigned value = 0;
        kor_glXQueryDrawable(app, pbuffer, GLX_WIDTH, &value);
        const Pixmap pixmap = XCreatePixmap(app, DefaultRootWindow(app), 40, 30, 24);
        const GLXPixmap first = kor_glXCreateGLXPixmap(app, &visual, pixmap);
        kor_glXMakeCurrent(app, first, context);
        kor_glClear(GL_COLOR_BUFFER_BIT);
        kor_glFlush();
        kor_glFinish();
        kor_glXWaitGL();
        kor_glXWaitX();
        const GLXPixmap second = kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr);
        kor_glXMakeCurrent(app, second, context);
        kor_glXBindTexImageEXT(app, first, GLX_FRONT_LEFT_EXT, nullptr);
        kor_glXReleaseTexImageEXT(app, first, GLX_FRONT_LEFT_EXT);
        kor_glXMakeCurrent(app, None, nullptr);
        kor_glXDestroyPixmap(app, second);
        kor_glXDestroyGLXPixmap(app, first);
        kor_glXDestroyPbuffer(app, pbuffer);
        int none[] = {None};
        const GLXPbuffer old = kor_glXCreateGLXPbufferSGIX(app, config("double1"), 20, 20, none);
        kor_glXQueryGLXPbufferSGIX(app, old, GLX_WIDTH, &value);
        kor_glXDestroyGLXPbufferSGIX(app, old);
        kor_glXDestroyContext(app, context);
        XFreePixmap(app, pixmap);
    }

    void ask() {
        int first = 0;
        int second = 0;
        unsigned long mask = 0;
        const int screen = DefaultScreen(app);
        XVisualInfo visual = visualInfo(doubleVisual);
        kor_glXQueryExtension(app, &first, &second);
        kor_glXQueryVersion(app, &first, &second);
        kor_glXGetClientString(app, GLX_VENDOR);
        kor_glXQueryServerString(app, screen, GLX_VERSION);
        kor_glXQueryExtensionsString(app, screen);
        kor_glXGetConfig(app, &visual, GLX_DOUBLEBUFFER, &first);
        for (GLXFBConfig* const configs :
             {kor_glXGetFBConfigs(app, screen, &first),
              kor_glXChooseFBConfig(app, screen, nullptr, &first),
              static_cast<GLXFBConfig*>(kor_glXChooseFBConfigSGIX(app, screen, nullptr, &first))})
            if (configs != nullptr)
                XFree(configs);
        kor_glXGetFBConfigAttrib(app, config("double1"), GLX_DEPTH_SIZE, &first);
        kor_glXGetFBConfigAttribSGIX(app, config("double1"), GLX_DEPTH_SIZE, &first);
        for (XVisualInfo* const found : {kor_glXGetVisualFromFBConfig(app, config("double1")),
                                         kor_glXGetVisualFromFBConfigSGIX(app, config("double1"))})
            if (found != nullptr)
                XFree(found);
        kor_glXGetFBConfigFromVisualSGIX(app, &visual);
        const GLXContext context = kor_glXCreateContextWithConfigSGIX(app, config("double1"),
                                                                      GLX_RGBA_TYPE, nullptr, True);
        kor_glXIsDirect(app, context);
        kor_glXQueryContext(app, context, GLX_FBCONFIG_ID, &first);
        const Window window = makeWindow(20, 20);
        kor_glXMakeCurrent(app, window, context);
        kor_glXSelectEvent(app, window, 1);
        kor_glXGetSelectedEvent(app, window, &mask);
        kor_glXSelectEventSGIX(app, window, 1);
        kor_glXGetSelectedEventSGIX(app, window, &mask);
        GLuint group = 0;
        GLuint barrier = 0;
        kor_glXJoinSwapGroupNV(app, window, 1);
        kor_glXBindSwapBarrierNV(app, 1, 1);
        kor_glXQuerySwapGroupNV(app, window, &group, &barrier);
        kor_glXQueryMaxSwapGroupsNV(app, screen, &group, &barrier);
        kor_glXQueryFrameCountNV(app, screen, &group);
        kor_glXResetFrameCountNV(app, screen);
        kor_glXGetVideoSyncSGI(&group);
        kor_glXWaitVideoSyncSGI(1, 0, &group);
        kor_glXGetRefreshRateSGI(&group);
        kor_glXFreeMemoryNV(kor_glXAllocateMemoryNV(16, 0, 0, 0));
        kor_glXGetCurrentDisplay();
        kor_glXGetCurrentContext();
        kor_glXGetCurrentDrawable();
        kor_glXGetCurrentReadDrawable();
        const Font font = XLoadFont(app, "fixed");
        XSync(app, False);
        kor_glXUseXFont(font, 32, 10, 100);
        for (const char* const name : {"glXSwapIntervalSGI", "glClear", "glVertex3f"})
            kor_glXGetProcAddress(reinterpret_cast<const GLubyte*>(name));
        GLuint queries[2] = {};
        kor_glGenQueries(2, queries);
        kor_glGenQueriesARB(2, queries);
        kor_glXMakeCurrent(app, None, nullptr);
        kor_glXDestroyContext(app, context);
        destroyWindow(window);
    }

    void useFront() {
        XVisualInfo visual = visualInfo(singleVisual);
        const GLXContext context = kor_glXCreateContext(app, &visual, nullptr, True);
        const Window window = makeWindow(50, 40, singleVisual);
        kor_glXMakeCurrent(app, window, context);
        kor_glDrawBuffer(GL_FRONT);
        for (int frame = 0; frame < 2; ++frame) {
            kor_glClear(GL_COLOR_BUFFER_BIT);
            kor_glBitmap(0, 0, 0, 0, 0, 0, nullptr);
            kor_glDrawPixels(1, 1, GL_RGBA, GL_UNSIGNED_BYTE, "abcd");
            kor_glCopyPixels(0, 0, 1, 1, GL_COLOR);
            kor_glFlush();
            kor_glFinish();
            kor_glRenderMode(GL_RENDER);
            kor_glPopAttrib();
        }
        kor_glXMakeCurrent(app, None, nullptr);
        letPaintsArrive();
        kor_glXDestroyContext(app, context);
        destroyWindow(window);
    }
};

// The child's wait status; it is killed when its time is over, and its stacks are printed.
int outcomeOf(pid_t child, bool& hung) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= end && !hung) {
            hung = true;
            std::fflush(stdout);
            const std::string debugger = "exec gdb -nx -batch -p " + std::to_string(child) +
                                         " -ex 'thread apply all backtrace' 2>/dev/null";
            if (std::system(debugger.c_str()) != 0)
                std::printf("no stacks: gdb fails\n");
            kill(child, SIGKILL);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return status;
}

std::map<std::string, int> census(World& world) {
    FILE* const file = std::tmpfile();
    const pid_t child = fork();
    if (child == 0)
        world.live("", 0, fileno(file));
    bool hung = false;
    const int status = outcomeOf(child, hung);
    if (status != 0) {
        std::printf("found without a failure: status %d\n", status);
        return {};
    }
    std::rewind(file);
    std::map<std::string, int> counts;
    char name[128];
    int count = 0;
    while (std::fscanf(file, "%127s %d", name, &count) == 2)
        counts[name] = count;
    std::fclose(file);
    return counts;
}

} // namespace

int main(int count, char** words) {
    std::map<std::string, int> options{{"--seed", 1}, {"--share", 1}, {"--further", 1}};
    for (int i = 1; i + 1 < count; i += 2)
        options[words[i]] = std::atoi(words[i + 1]);
    std::mt19937 random(static_cast<unsigned>(options["--seed"]));
    World* const world = new World; // see close()
    const std::map<std::string, int> calls = census(*world);
    int tried = 0;
    int never = 0;
    int found = calls.empty() ? 1 : 0;
    for (const auto& [name, times] : calls) {
        std::vector<int> places(static_cast<std::size_t>(times));
        std::iota(places.begin(), places.end(), 1);
        if (times > 2)
            std::shuffle(places.begin() + 2, places.end(), random);
        places.resize(std::min(places.size(), static_cast<std::size_t>(2 + options["--further"])));
        if (times == 0) {
            ++never;
            std::printf("not called: %s\n", name.c_str());
        }
        for (const int place : places) {
            if (random() % static_cast<unsigned>(options["--share"]) != 0)
                continue;
            ++tried;
            const pid_t child = fork();
            if (child == 0)
                world->live(name, place, -1);
            bool hung = false;
            const int status = outcomeOf(child, hung);
            if (status == 0)
                continue;
            ++found;
            std::printf("found %s at call %d of %d: %s %d\n", name.c_str(), place, times,
                        hung ? "hangs, status" : "status", status);
            std::fflush(stdout);
        }
    }
    world->close();
    std::printf("cases %d\nfunctions %zu\nnever-called %d\n", tried, calls.size(), never);
    std::fflush(stdout);
    _exit(found == 0 ? 0 : 1);
}
