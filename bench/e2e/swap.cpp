// What a swap costs the application's thread: an ordinary program through the classic front, by
// turns with a straight-line program that makes the same calls. Frames of the same content, size
// and fbconfig; one process, so that both run under the same conditions.

#include "e2e/straight_line.h"
#include "support/comparison.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

using namespace kor::bench;

namespace {

struct Options {
    int width = 0;
    int height = 0;
    int rounds = 0;
    int frames = 0; // of each side in a round
    bool paints = false;
};

Options parse(int count, char** arguments) {
    if (count != 5 || (strcmp(arguments[4], "painting") != 0 && strcmp(arguments[4], "alone") != 0))
        fail("usage: swap WIDTHxHEIGHT ROUNDS FRAMES painting|alone");
    Options options;
    parseSize(arguments[1], options.width, options.height);
    options.rounds = parseCount(arguments[2]);
    options.frames = parseCount(arguments[3]);
    options.paints = strcmp(arguments[4], "painting") == 0;
    return options;
}

/// An application as any other.
class Application {
  public:
    Application(const GlLibrary& gl, const std::string& display, const Options& options)
        : m_gl(gl), m_display(openDisplay(display)) {
        XVisualInfo* visual =
            gl.glXChooseVisual(m_display, DefaultScreen(m_display), windowAttributes);
        if (visual == nullptr)
            fail("no visual to be had");
        m_visual = visual->visualid;
        m_context = gl.glXCreateContext(m_display, visual, nullptr, True);
        m_window =
            makeWindow(m_display, *visual, options.width + 8, 0, options.width, options.height);
        XFree(visual);
        makeCurrent();
    }
    void makeCurrent() {
        if (!m_gl.glXMakeCurrent(m_display, m_window, m_context))
            fail("the context cannot be made current to the window");
    }
    void swap() { m_gl.glXSwapBuffers(m_display, m_window); }
    int fbconfigId() const {
        int id = 0;
        m_gl.glXQueryContext(m_display, m_context, GLX_FBCONFIG_ID, &id);
        return id;
    }
    VisualID visual() const { return m_visual; }

  private:
    const GlLibrary& m_gl;
    Display* m_display;
    VisualID m_visual = 0;
    GLXContext m_context = nullptr;
    Window m_window = None;
};

/// The system's functions on both sides: what is drawn is not what is measured.
void draw(const GlLibrary& gl, int frame) {
    gl.glClearColor(static_cast<float>(frame % 16) / 16, 0.4F, 0.2F, 1);
    gl.glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    gl.glBegin(GL_TRIANGLES);
    gl.glColor3f(1, 1, 0);
    gl.glVertex2f(-0.5F, -0.5F);
    gl.glVertex2f(0.5F, -0.5F);
    gl.glVertex2f(0, 0.5F);
    gl.glEnd();
}

struct Cost {
    double wall = 0; // microseconds a swap
    double processor = 0;
};

template <typename Side> Cost measure(Side& side, const GlLibrary& gl, const Options& options) {
    side.makeCurrent();
    for (int frame = 0; frame < 2; frame++) { // what a change of sides costs is no swap's doing
        draw(gl, frame);
        side.swap();
    }
    std::vector<double> wall;
    std::vector<double> processor;
    for (int frame = 0; frame < options.frames; frame++) {
        draw(gl, frame);
        const double processorBefore = threadMicroseconds();
        const double before = microseconds();
        side.swap();
        wall.push_back(microseconds() - before);
        processor.push_back(threadMicroseconds() - processorBefore);
    }
    // Painting holds up one frame in several, which the middle one would not show.
    if (options.paints)
        return {mean(wall), mean(processor)};
    return {median(wall), median(processor)};
}

} // namespace

int main(int count, char** arguments) {
    const Options options = parse(count, arguments);
    const std::string display = needVariable("DISPLAY");
    const std::string localDisplay = needVariable("KOR_GL_DISPLAY");
    // The library's painting thread opens the display that the environment names.
    if (!options.paints)
        unsetenv("DISPLAY");
    const GlLibrary system = openSystemLibrary();
    const GlLibrary front = openClassicFront();
    XInitThreads();
    passOverPutErrors();

    Application application(front, display, options);
    StraightLinePlan plan;
    plan.applicationDisplay = display;
    plan.localDisplay = localDisplay;
    plan.fbconfigId = application.fbconfigId();
    plan.visual = application.visual();
    plan.width = options.width;
    plan.height = options.height;
    plan.paints = options.paints;
    StraightLine straightLine(system, plan);

    const std::string name = std::string("swap ") + arguments[1] + " " + arguments[4];
    Comparison wall(name);
    Comparison processor(name + " processor");
    for (int round = -1; round < options.rounds; round++) { // one to warm up
        Cost floor;
        Cost library;
        if (round % 2 == 0) {
            floor = measure(straightLine, system, options);
            library = measure(application, system, options);
        } else {
            library = measure(application, system, options);
            floor = measure(straightLine, system, options);
        }
        if (round < 0)
            continue;
        wall.add(floor.wall, library.wall);
        processor.add(floor.processor, library.processor);
    }
    wall.print();
    processor.print();
    _exit(0); // threads are still at work
}
