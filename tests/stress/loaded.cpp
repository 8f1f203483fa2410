// loaded_stress: a program that loads the GL library by itself, draws, and unloads it, several
// times.
//   --rounds
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <GL/gl.h>
#include <GL/glx.h>

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string>

namespace {

template <typename F> F* look(void* library, const char* name) {
    void* const found = dlsym(library, name);
    if (found == nullptr) {
        std::fprintf(stderr, "failed: %s\n", dlerror());
        std::exit(1);
    }
    return reinterpret_cast<F*>(found);
}

#define LOOK(name) auto* const name##_ = look<decltype(name)>(library, #name)

void draw(void* library, int round) {
    LOOK(glXChooseVisual);
    LOOK(glXCreateContext);
    LOOK(glXMakeCurrent);
    LOOK(glXSwapBuffers);
    LOOK(glXDestroyContext);
    LOOK(glClear);
    LOOK(glClearColor);
    Display* const display = XOpenDisplay(nullptr);
    if (display == nullptr)
        std::exit(1);
    int wanted[] = {GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8, None};
    XVisualInfo* const visual = glXChooseVisual_(display, DefaultScreen(display), wanted);
    const Window root = DefaultRootWindow(display);
    XSetWindowAttributes attributes{};
    attributes.colormap = XCreateColormap(display, root, visual->visual, AllocNone);
    const Window window =
        XCreateWindow(display, root, 10, 10, 80, 60, 0, visual->depth, InputOutput, visual->visual,
                      CWColormap | CWBorderPixel, &attributes);
    XMapRaised(display, window);
    XSync(display, False);
    const GLXContext context = glXCreateContext_(display, visual, nullptr, True);
    glXMakeCurrent_(display, window, context);
    for (int frame = 0; frame < 3; ++frame) {
        glClearColor_(0.1F * static_cast<float>(round % 10), 0.3F * static_cast<float>(frame), 0,
                      1);
        glClear_(GL_COLOR_BUFFER_BIT);
        glXSwapBuffers_(display, window);
    }
    glXMakeCurrent_(display, None, nullptr);
    glXDestroyContext_(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
}

} // namespace

int main(int count, char** words) {
    int rounds = 5;
    for (int i = 1; i + 1 < count; i += 2)
        if (std::string(words[i]) == "--rounds")
            rounds = std::atoi(words[i + 1]);
    XInitThreads();
    for (int round = 0; round < rounds; ++round) {
        void* const library = dlopen("libGL.so.1", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            std::fprintf(stderr, "failed: %s\n", dlerror());
            return 1;
        }
        draw(library, round);
        dlclose(library);
    }
    std::printf("rounds %d\n", rounds);
    return 7;
}
