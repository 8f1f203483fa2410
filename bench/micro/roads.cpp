#include "micro/roads.h"

#include "support/comparison.h"
#include "support/local_config.h"
#include "support/window.h"

#include <dlfcn.h>

namespace kor::bench {

namespace {

constexpr int size = 64; // pixels; nothing is drawn anyway

GLuint compile(const GlLibrary& gl, GLenum kind, const char* source) {
    const GLuint shader = gl.glCreateShader(kind);
    gl.glShaderSource(shader, 1, &source, nullptr);
    gl.glCompileShader(shader);
    return shader;
}

/// An application window with a context on it, as any application makes them.
std::unique_ptr<Road> openWindowRoad(const std::string& name, const GlLibrary& gl) {
    Display* display = openDisplay(needVariable("DISPLAY"));
    XVisualInfo* visual = gl.glXChooseVisual(display, DefaultScreen(display), windowAttributes);
    if (visual == nullptr)
        fail("no visual to be had");
    GLXContext context = gl.glXCreateContext(display, visual, nullptr, True);
    const Window window = makeWindow(display, *visual, 0, 0, size, size);
    XFree(visual);
    return std::make_unique<Road>(name, gl, display, window, context);
}

std::unique_ptr<Road> openSystemRoad(const GlLibrary& gl, int fbconfigId) {
    Display* display = openDisplay(needVariable("KOR_GL_DISPLAY"));
    GLXFBConfig config = configOfId(gl, display, fbconfigId);
    const GLXPbuffer pbuffer = makePbuffer(gl, display, config, size, size);
    return std::make_unique<Road>("system", gl, display, pbuffer,
                                  makeContext(gl, display, config, nullptr));
}

/// Whether the system's libGLX has loaded our vendor library by now.
bool vendorLibraryLoaded() {
    return dlopen("libGLX_kor.so.0", RTLD_LAZY | RTLD_NOLOAD) != nullptr;
}

} // namespace

Road::Road(std::string name, const GlLibrary& gl, Display* display, GLXDrawable drawable,
           GLXContext context)
    : name(std::move(name)), gl(gl), display(display), drawable(drawable), context(context) {
    enter();
    const GLuint program = gl.glCreateProgram();
    gl.glAttachShader(program, compile(gl, GL_VERTEX_SHADER,
                                       "#version 130\nvoid main() { gl_Position = vec4(0.0); }\n"));
    gl.glAttachShader(program, compile(gl, GL_FRAGMENT_SHADER,
                                       "#version 130\nuniform float u;\nout vec4 c;\n"
                                       "void main() { c = vec4(u); }\n"));
    gl.glLinkProgram(program);
    gl.glUseProgram(program);
    uniform = gl.glGetUniformLocation(program, "u");
    // What would draw ends early in the driver, so that the way to it is not lost in the work.
    gl.glEnable(GL_RASTERIZER_DISCARD);
    if (uniform < 0 || gl.glGetError() != GL_NO_ERROR)
        fail("the context of road " + this->name + " cannot be prepared");
}

void Road::enter() const {
    if (!gl.glXMakeCurrent(display, drawable, context))
        fail("the context of road " + name + " cannot be made current");
}

std::vector<std::unique_ptr<Road>> openRoads(const std::string& front) {
    if (front != "classic" && front != "vendor")
        fail("there is no front '" + front + "'");
    passOverPutErrors();
    const GlLibrary system = openSystemLibrary();
    auto through = openWindowRoad(front, front == "classic" ? openClassicFront() : system);
    if (front == "vendor" && !vendorLibraryLoaded())
        fail(
            "libGLX does not find libGLX_kor.so.0 (LD_LIBRARY_PATH), or the server of DISPLAY does "
            "not name it");
    int id = 0;
    through->gl.glXQueryContext(through->display, through->context, GLX_FBCONFIG_ID, &id);
    std::vector<std::unique_ptr<Road>> roads;
    roads.push_back(openSystemRoad(system, id));
    roads.push_back(std::move(through));
    return roads;
}

} // namespace kor::bench
