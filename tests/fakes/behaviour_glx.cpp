#include "behaviour.h"
#include "state.h"

#include <cstdlib>

namespace fake {

namespace {

// Handles and ids that look like nothing an X server hands out.
constexpr Word contextBase = 0xc0000000;
constexpr Word pbufferBase = 0x70000000;
constexpr Word pixmapBase = 0x71000000;

GLXContext freshContext() {
    return reinterpret_cast<GLXContext>(
        static_cast<uintptr_t>(State::instance().fresh("context", contextBase)));
}

const FbConfig* findConfig(const DisplayScript& script, GLXFBConfig handle) {
    for (const FbConfig& config : script.configs)
        if (config.handle == handle)
            return &config;
    return nullptr;
}

int attribute(const FbConfig& config, int name) {
    const auto found = config.attributes.find(name);
    return found == config.attributes.end() ? 0 : found->second;
}

bool offers(const FbConfig& config, const int* list) {
    for (; list != nullptr && list[0] != 0; list += 2) {
        const int name = list[0];
        const int wanted = list[1];
        switch (name) {
        case GLX_DOUBLEBUFFER:
        case GLX_STEREO:
            if (wanted != static_cast<int>(GLX_DONT_CARE) && attribute(config, name) != wanted)
                return false;
            break;
        case GLX_RED_SIZE:
        case GLX_GREEN_SIZE:
        case GLX_BLUE_SIZE:
        case GLX_ALPHA_SIZE:
        case GLX_DEPTH_SIZE:
        case GLX_STENCIL_SIZE:
        case GLX_ACCUM_RED_SIZE:
        case GLX_SAMPLES:
            if (attribute(config, name) < wanted)
                return false;
            break;
        default:
            break;
        }
    }
    return true;
}

Bool makeCurrent(Display* display, GLXDrawable draw, GLXDrawable read, GLXContext context) {
    ThreadState& thread = threadState();
    thread.display = context == nullptr ? nullptr : display;
    thread.draw = draw;
    thread.read = read;
    thread.context = context;
    return True;
}

const char* stringOf(const std::map<int, std::string>& strings, int name) {
    const auto found = strings.find(name);
    return found == strings.end() ? nullptr : State::instance().keep(found->second);
}

} // namespace

GLXContext Behaviour<Function::glXCreateContext>::call(Display* /*display*/,
                                                       XVisualInfo* /*visual*/,
                                                       GLXContext /*share*/, Bool /*direct*/) {
    return freshContext();
}

GLXContext Behaviour<Function::glXCreateNewContext>::call(Display* /*display*/,
                                                          GLXFBConfig /*config*/, int /*type*/,
                                                          GLXContext /*share*/, Bool /*direct*/) {
    return freshContext();
}

GLXContext Behaviour<Function::glXCreateContextAttribsARB>::call(Display* /*display*/,
                                                                 GLXFBConfig /*config*/,
                                                                 GLXContext /*share*/,
                                                                 Bool /*direct*/,
                                                                 const int* /*attributes*/) {
    return freshContext();
}

Bool Behaviour<Function::glXMakeCurrent>::call(Display* display, GLXDrawable drawable,
                                               GLXContext context) {
    return makeCurrent(display, drawable, drawable, context);
}

Bool Behaviour<Function::glXMakeContextCurrent>::call(Display* display, GLXDrawable draw,
                                                      GLXDrawable read, GLXContext context) {
    return makeCurrent(display, draw, read, context);
}

GLXContext Behaviour<Function::glXGetCurrentContext>::call() {
    return threadState().context;
}

GLXDrawable Behaviour<Function::glXGetCurrentDrawable>::call() {
    return threadState().draw;
}

GLXDrawable Behaviour<Function::glXGetCurrentReadDrawable>::call() {
    return threadState().read;
}

Display* Behaviour<Function::glXGetCurrentDisplay>::call() {
    return threadState().display;
}

Bool Behaviour<Function::glXIsDirect>::call(Display* /*display*/, GLXContext /*context*/) {
    return True;
}

GLXPbuffer Behaviour<Function::glXCreatePbuffer>::call(Display* /*display*/, GLXFBConfig /*config*/,
                                                       const int* /*attributes*/) {
    return State::instance().fresh("pbuffer", pbufferBase);
}

GLXPbufferSGIX Behaviour<Function::glXCreateGLXPbufferSGIX>::call(Display* /*display*/,
                                                                  GLXFBConfigSGIX /*config*/,
                                                                  unsigned /*width*/,
                                                                  unsigned /*height*/,
                                                                  int* /*attributes*/) {
    return State::instance().fresh("pbuffer", pbufferBase);
}

GLXPixmap Behaviour<Function::glXCreatePixmap>::call(Display* /*display*/, GLXFBConfig /*config*/,
                                                     Pixmap /*pixmap*/, const int* /*attributes*/) {
    return State::instance().fresh("glxpixmap", pixmapBase);
}

GLXWindow Behaviour<Function::glXCreateWindow>::call(Display* /*display*/, GLXFBConfig /*config*/,
                                                     Window window, const int* /*attributes*/) {
    return window;
}

int Behaviour<Function::glXGetConfig>::call(Display* display, XVisualInfo* visual, int name,
                                            int* value) {
    const DisplayScript script = State::instance().script(display);
    const auto row = script.visuals.find(visual->visualid);
    *value = 0;
    if (row == script.visuals.end())
        return name == GLX_USE_GL ? 0 : GLX_BAD_VISUAL;
    const auto found = row->second.attributes.find(name);
    if (found != row->second.attributes.end())
        *value = found->second;
    return 0;
}

GLXFBConfig* Behaviour<Function::glXChooseFBConfig>::call(Display* display, int /*screen*/,
                                                          const int* list, int* count) {
    const DisplayScript script = State::instance().script(display);
    std::vector<GLXFBConfig> chosen;
    for (const FbConfig& config : script.configs)
        if (offers(config, list))
            chosen.push_back(config.handle);
    if (count != nullptr)
        *count = static_cast<int>(chosen.size());
    if (chosen.empty())
        return nullptr;
    // XFree'd by whoever asked, as the real one's arrays are.
    auto* result = static_cast<GLXFBConfig*>(malloc(chosen.size() * sizeof(GLXFBConfig)));
    for (size_t i = 0; result != nullptr && i < chosen.size(); ++i)
        result[i] = chosen[i];
    return result;
}

int Behaviour<Function::glXGetFBConfigAttrib>::call(Display* display, GLXFBConfig handle, int name,
                                                    int* value) {
    const DisplayScript script = State::instance().script(display);
    const FbConfig* config = findConfig(script, handle);
    if (config == nullptr)
        return GLX_BAD_VALUE;
    const auto found = config->attributes.find(name);
    if (found == config->attributes.end())
        return GLX_BAD_ATTRIBUTE;
    *value = found->second;
    return 0;
}

XVisualInfo* Behaviour<Function::glXGetVisualFromFBConfig>::call(Display* display,
                                                                 GLXFBConfig handle) {
    const DisplayScript script = State::instance().script(display);
    const FbConfig* config = findConfig(script, handle);
    if (config == nullptr)
        return nullptr;
    const auto id = static_cast<VisualID>(attribute(*config, GLX_VISUAL_ID));
    const auto row = script.visuals.find(id);
    if (row == script.visuals.end())
        return nullptr;
    auto* visual = static_cast<XVisualInfo*>(calloc(1, sizeof(XVisualInfo)));
    if (visual != nullptr) {
        visual->visualid = id;
        visual->depth = row->second.depth;
        visual->c_class = row->second.visualClass;
        visual->red_mask = 0xff0000;
        visual->green_mask = 0xff00;
        visual->blue_mask = 0xff;
        visual->colormap_size = 256;
        visual->bits_per_rgb = 8;
    }
    return visual;
}

Bool Behaviour<Function::glXQueryExtension>::call(Display* /*display*/, int* error, int* event) {
    if (error != nullptr)
        *error = 160;
    if (event != nullptr)
        *event = 95;
    return True;
}

Bool Behaviour<Function::glXQueryVersion>::call(Display* display, int* major, int* minor) {
    const DisplayScript script = State::instance().script(display);
    if (major != nullptr)
        *major = script.major;
    if (minor != nullptr)
        *minor = script.minor;
    return True;
}

const char* Behaviour<Function::glXQueryExtensionsString>::call(Display* display, int /*screen*/) {
    return State::instance().keep(State::instance().script(display).extensions);
}

const char* Behaviour<Function::glXGetClientString>::call(Display* display, int name) {
    return stringOf(State::instance().script(display).clientStrings, name);
}

const char* Behaviour<Function::glXQueryServerString>::call(Display* display, int /*screen*/,
                                                            int name) {
    return stringOf(State::instance().script(display).serverStrings, name);
}

} // namespace fake
