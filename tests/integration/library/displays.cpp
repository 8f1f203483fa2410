#include "displays.h"

#include "context/context_map.h"
#include "display/displays.h"
#include "drawable/registry.h"
#include "framework/wait_until.h"
#include "visual/visual_map.h"

#include <X11/Xutil.h>
#include <cstdarg>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace {

std::mutex errorsMutex;
std::vector<int> errors;

int recordError(Display* /*display*/, XErrorEvent* event) {
    const std::lock_guard lock(errorsMutex);
    errors.push_back(event->error_code);
    return 0;
}

std::map<int, int> attributes(bool doubleBuffer, int colourSize) {
    return {{GLX_USE_GL, 1},
            {GLX_BUFFER_SIZE, 24},
            {GLX_RGBA, 1},
            {GLX_DOUBLEBUFFER, doubleBuffer ? 1 : 0},
            {GLX_RED_SIZE, colourSize},
            {GLX_GREEN_SIZE, colourSize},
            {GLX_BLUE_SIZE, colourSize},
            {GLX_DEPTH_SIZE, 24},
            {GLX_STENCIL_SIZE, 8},
            {GLX_TRANSPARENT_TYPE, GLX_NONE},
            {GLX_VISUAL_CAVEAT_EXT, GLX_NONE},
            {GLX_CONFIG_CAVEAT, GLX_NONE}};
}

GLXFBConfig handleOf(uintptr_t value) {
    return reinterpret_cast<GLXFBConfig>(value);
}

fake::FbConfig fbconfig(uintptr_t handle, int id, VisualID visual, std::map<int, int> attributes) {
    attributes[GLX_FBCONFIG_ID] = id;
    attributes[GLX_VISUAL_ID] = static_cast<int>(visual);
    attributes[GLX_SAMPLES] = 0;
    return {handleOf(handle), std::move(attributes)};
}

bool heldHere(kor::Mutex& mutex) {
    // The pthread mutex is all that there is in a kor::Mutex, and it knows its owner.
    static_assert(sizeof(kor::Mutex) == sizeof(pthread_mutex_t));
    return reinterpret_cast<pthread_mutex_t&>(mutex).__data.__owner == gettid();
}

} // namespace

Displays::Displays()
    : appServer({.width = 6000, .height = 600, .glDisplay = {}, .arguments = {}}),
      localServer({.kind = kor::test::XServer::Kind::Xvfb, .glDisplay = {}, .arguments = {}}),
      appName(appServer.name()), localName(localServer.name()) {
    set("DISPLAY", appName.c_str());
    set("KOR_GL_DISPLAY", localName.c_str());
    XInitThreads();
    XSetErrorHandler(recordError);
    app = XOpenDisplay(appName.c_str());
    if (app == nullptr)
        abort();
    gl.nameDisplay(XDisplayString(app), "app");
    gl.nameDisplay(localName, "local");
    fillScripts();
    useScripts();
}

Displays::~Displays() {
    // The painter's connection must be closed before its server goes.
    kor_fini();
    kor::test::waitUntil(
        [&] {
            return !sayings("CopybackThread::svc").empty() &&
                   sayings("CopybackThread::svc").back() != "START";
        },
        std::chrono::milliseconds(500));
    for (const int error : xErrors())
        ADD_FAILURE() << "X error " << error;
    gl.onCall("", nullptr);
}

void Displays::fillScripts() {
    XVisualInfo wanted{};
    wanted.screen = DefaultScreen(app);
    wanted.depth = 24;
    wanted.c_class = TrueColor;
    int count = 0;
    XVisualInfo* found =
        XGetVisualInfo(app, VisualScreenMask | VisualDepthMask | VisualClassMask, &wanted, &count);
    if (count < 3)
        abort();
    doubleVisual = found[0].visualid;
    singleVisual = found[1].visualid;
    lonelyVisual = found[2].visualid;
    XFree(found);

    appScript.visuals[doubleVisual].attributes = attributes(true, 8);
    appScript.visuals[singleVisual].attributes = attributes(false, 8);
    appScript.visuals[lonelyVisual].attributes = attributes(true, 16);
    appScript.configs = {fbconfig(0xa10, 0xa1, doubleVisual, attributes(true, 8)),
                         fbconfig(0xa20, 0xa2, singleVisual, attributes(false, 8))};
    localScript.visuals[localDoubleVisual].attributes = attributes(true, 8);
    localScript.visuals[localSingleVisual].attributes = attributes(false, 8);
    localScript.configs = {fbconfig(0xb10, 0xb1, localDoubleVisual, attributes(true, 8)),
                           fbconfig(0xb20, 0xb2, localDoubleVisual, attributes(true, 8)),
                           fbconfig(0xb30, 0xb3, localSingleVisual, attributes(false, 8))};
    gl.name(0xb10, "double1");
    gl.name(0xb20, "double2");
    gl.name(0xb30, "single");
}

void Displays::useScripts() {
    gl.setDisplay(XDisplayString(app), appScript);
    gl.setDisplay(localName, localScript);
}

GLXFBConfig Displays::config(const std::string& name) const {
    for (const fake::FbConfig& config : localScript.configs)
        if (gl.nameOf(fake::word(config.handle)) == name)
            return config.handle;
    abort();
}

XVisualInfo Displays::visualInfo(VisualID id) const {
    XVisualInfo wanted{};
    wanted.visualid = id;
    int count = 0;
    XVisualInfo* found = XGetVisualInfo(app, VisualIDMask, &wanted, &count);
    if (found == nullptr)
        abort();
    const XVisualInfo result = *found;
    XFree(found);
    return result;
}

Window Displays::makeWindow(int width, int height, VisualID visual, bool mapped) {
    const XVisualInfo info = visualInfo(visual != 0 ? visual : doubleVisual);
    const Window root = DefaultRootWindow(app);
    XSetWindowAttributes settings{};
    settings.colormap = XCreateColormap(app, root, info.visual, AllocNone);
    settings.border_pixel = 0;
    settings.override_redirect = True;
    const Window window =
        XCreateWindow(app, root, nextWindowX_, 0, width, height, 0, info.depth, InputOutput,
                      info.visual, CWColormap | CWBorderPixel | CWOverrideRedirect, &settings);
    nextWindowX_ += width;
    if (mapped)
        XMapRaised(app, window);
    XSync(app, False);
    return window;
}

void Displays::resizeWindow(Window window, int width, int height) {
    XResizeWindow(app, window, width, height);
    XSync(app, False);
}

void Displays::destroyWindow(Window window) {
    XDestroyWindow(app, window);
    XSync(app, False);
}

void Displays::letPaintsArrive() const {
    { const kor::Lock passOver(kor::gl::getLocalDrawablesMutex()); }
    // The server has the painter's requests by now, and serves them with the first of these.
    XSync(app, False);
    XSync(app, False);
}

GLXContext Displays::makeContext(const char* name, GLXFBConfig fbconfig) {
    GLXContext context = kor_glXCreateNewContext(
        app, fbconfig != nullptr ? fbconfig : config("double1"), GLX_RGBA_TYPE, nullptr, True);
    if (context != nullptr)
        gl.name(fake::word(context), name);
    return context;
}

Display* Displays::local() {
    return _getLocalDisplay(nullptr);
}

std::vector<std::string> Displays::heldLocks() {
    std::vector<std::string> held;
    if (heldHere(kor::gl::getVisualMapMutex()))
        held.emplace_back("visual map");
    if (heldHere(kor::gl::getContextMutex()))
        held.emplace_back("contexts");
    if (heldHere(kor::gl::getLocalDrawablesMutex()))
        held.emplace_back("drawables");
    if (heldHere(getLocalDisplayMutex()))
        held.emplace_back("local display");
    return held;
}

std::vector<int> Displays::xErrors() {
    const std::lock_guard lock(errorsMutex);
    return std::exchange(errors, {});
}

std::string format(const char* text, ...) {
    char buffer[1024];
    va_list arguments;
    va_start(arguments, text);
    vsnprintf(buffer, sizeof(buffer), text, arguments);
    va_end(arguments);
    return buffer;
}
