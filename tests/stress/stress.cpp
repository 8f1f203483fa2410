#include "stress.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <malloc.h>
#include <thread>

namespace kor::stress {
namespace {

std::atomic<int> errors{0};

constexpr int kToldErrors = 3; // the scenario shows a program's last lines

int countError(Display* display, XErrorEvent* event) {
    if (errors++ < kToldErrors)
        std::fprintf(stderr, "X error on %s: code %d, request %d.%d, resource 0x%lx\n",
                     DisplayString(display), event->error_code, event->request_code,
                     event->minor_code, event->resourceid);
    return 0;
}

} // namespace

Options::Options(int count, char** words) {
    for (int i = 1; i + 1 < count; i += 2)
        m_values[words[i]] = words[i + 1];
}

int Options::number(const std::string& name, int otherwise) const {
    const auto found = m_values.find("--" + name);
    return found == m_values.end() ? otherwise : std::atoi(found->second.c_str());
}

std::string Options::text(const std::string& name, const std::string& otherwise) const {
    const auto found = m_values.find("--" + name);
    return found == m_values.end() ? otherwise : found->second;
}

void Random::pause(int most) {
    std::this_thread::sleep_for(std::chrono::microseconds(below(most)));
}

void measure(const std::string& name) {
    // The C library keeps what threads that have ended gave back, one heap for many of them. What
    // is still in use counts.
    malloc_trim(0);
    std::printf("measure %s\n", name.c_str());
    std::fflush(stdout);
    std::string line;
    std::getline(std::cin, line);
}

void countErrors() {
    XSetErrorHandler(countError);
}

int countedErrors() {
    return errors;
}

Windows::Windows(Display* display, client::Buffering buffering)
    : m_display(display), m_visual(client::chooseVisual(display, buffering)),
      m_colormap(
          XCreateColormap(display, DefaultRootWindow(display), m_visual->visual, AllocNone)) {
    XSync(display, False); // another connection may use the colormap from here on
}

Windows::~Windows() {
    XFreeColormap(m_display, m_colormap);
    XFree(m_visual);
}

Window Windows::open(const client::Rectangle& place, Window parent, Display* display) const {
    Display* const owner = display != nullptr ? display : m_display;
    XSetWindowAttributes attributes{};
    attributes.colormap = m_colormap;
    attributes.event_mask = ExposureMask;
    attributes.override_redirect = True;
    const Window window =
        XCreateWindow(owner, parent != None ? parent : DefaultRootWindow(owner), place.x, place.y,
                      static_cast<unsigned>(place.width), static_cast<unsigned>(place.height), 0,
                      m_visual->depth, InputOutput, m_visual->visual,
                      CWColormap | CWEventMask | CWBorderPixel | CWOverrideRedirect, &attributes);
    XMapRaised(owner, window);
    // The server maps in order: after this the window is there and exposed.
    XSync(owner, False);
    XEvent event{};
    while (XCheckWindowEvent(owner, window, ExposureMask, &event) == True) {
    }
    return window;
}

void drawColour(int colour) {
    glClearColor(static_cast<float>(colour & 255) / 255.0F,
                 static_cast<float>(colour >> 8 & 255) / 255.0F, 0.5F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT);
}

} // namespace kor::stress
