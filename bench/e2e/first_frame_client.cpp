// A trivial application: one window, one context, one frame of one colour with a triangle in a
// corner, so that the driver has to make its shaders as for any application. It tells when it has
// got where (on the clock of CLOCK_MONOTONIC, in microseconds, one line each on standard output),
// keeps its frame on the screen until its standard input ends, and is linked with libGL as any
// application is.

#include <GL/gl.h>
#include <GL/glx.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>
#include <vector>

namespace {

struct Stage {
    const char* name;
    double time;
};

std::vector<Stage>& stages() {
    static std::vector<Stage> all;
    return all;
}

void reached(const char* name) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    stages().push_back(
        {name, static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3});
}

void need(bool holds, const char* what) {
    if (holds)
        return;
    fprintf(stderr, "first_frame_client: no %s\n", what);
    exit(1);
}

} // namespace

int main() {
    reached("main");
    Display* display = XOpenDisplay(nullptr);
    need(display != nullptr, "display");
    reached("XOpenDisplay");
    int attributes[] = {
        GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8,   GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE,
        8,        GLX_DEPTH_SIZE,   24,           None};
    XVisualInfo* visual = glXChooseVisual(display, DefaultScreen(display), attributes);
    need(visual != nullptr, "visual");
    reached("glXChooseVisual");
    GLXContext context = glXCreateContext(display, visual, nullptr, True);
    need(context != nullptr, "context");
    reached("glXCreateContext");

    XSetWindowAttributes settings{};
    const Window root = DefaultRootWindow(display);
    settings.colormap = XCreateColormap(display, root, visual->visual, AllocNone);
    settings.event_mask = ExposureMask;
    const Window window =
        XCreateWindow(display, root, 0, 0, 300, 300, 0, visual->depth, InputOutput, visual->visual,
                      CWBorderPixel | CWColormap | CWEventMask, &settings);
    XMapWindow(display, window);
    XEvent event;
    XWindowEvent(display, window, ExposureMask, &event);
    reached("window on the screen");

    need(glXMakeCurrent(display, window, context) == True, "current context");
    reached("glXMakeCurrent");
    glClearColor(0.2F, 0.8F, 0.4F, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glBegin(GL_TRIANGLES);
    glColor3f(1, 1, 0);
    glVertex2f(-0.9F, -0.9F);
    glVertex2f(-0.5F, -0.9F);
    glVertex2f(-0.9F, -0.5F);
    glEnd();
    reached("drawn");
    glXSwapBuffers(display, window);
    reached("glXSwapBuffers");

    for (const Stage& stage : stages())
        printf("%.1f %s\n", stage.time, stage.name);
    fflush(stdout);
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    _exit(0); // the end is not what is measured
}
