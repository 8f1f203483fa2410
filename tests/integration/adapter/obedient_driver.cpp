#include "obedient_driver.h"

#include "core/gl_headers.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <unistd.h>

#pragma GCC visibility push(default)

namespace {

struct Buffers {
    std::atomic<int> front{0};
    std::atomic<int> back{0};
};

struct Context {
    std::atomic<int> currentIn{0}; // threads
};

struct Current {
    Display* display = nullptr;
    GLXDrawable draw = 0;
    GLXDrawable read = 0;
    Context* context = nullptr;
};

std::array<Buffers, 1 << 16> buffers;
std::atomic<unsigned long> lastDrawable{0};
std::atomic<bool> keepFront{true};
std::atomic<int> calls{0};
std::atomic<int> contexts{0};
std::atomic<int> destroyedContexts{0};
std::atomic<int> pbuffers{0};
std::atomic<int> bareDestroys{0};
std::atomic<int> newColour{0};
std::atomic<int> violations{0};
std::atomic<int> swapping{0};
std::atomic<int> swapsAtOnce{0};
int config = 0;
thread_local Current current;
thread_local int clearColour = 0;
thread_local GLenum drawBuffer = GL_BACK;

} // namespace

extern "C" {

void obedientKeepFront(bool keep) {
    keepFront = keep;
}
int obedientCalls() {
    return calls;
}
int obedientContexts() {
    return contexts;
}
int obedientLiveContexts() {
    return contexts - destroyedContexts;
}
int obedientLivePbuffers() {
    return pbuffers;
}
int obedientBareDestroys() {
    return bareDestroys;
}
void obedientNewPbuffersHave(int colour) {
    newColour = colour;
}
int obedientBack(unsigned long drawable) {
    return buffers.at(drawable).back;
}
int obedientViolations() {
    return violations;
}
int obedientFront(unsigned long drawable) {
    return buffers.at(drawable).front;
}
int obedientSwapsAtOnce() {
    return swapsAtOnce;
}

Bool glXQueryExtension(Display*, int*, int*) {
    calls++;
    return True;
}

GLXFBConfig* glXChooseFBConfig(Display*, int, const int*, int* count) {
    calls++;
    auto* chosen = static_cast<GLXFBConfig*>(std::malloc(sizeof(GLXFBConfig)));
    *chosen = reinterpret_cast<GLXFBConfig>(&config);
    *count = 1;
    return chosen;
}

int glXGetFBConfigAttrib(Display*, GLXFBConfig, int, int* value) {
    static_assert(GLX_RGBA_BIT == 1); // the answer to GLX_RENDER_TYPE, and yes to all the others
    *value = 1;
    return 0;
}

XVisualInfo* glXGetVisualFromFBConfig(Display*, GLXFBConfig) {
    auto* visual = static_cast<XVisualInfo*>(std::calloc(1, sizeof(XVisualInfo)));
    visual->depth = 24;
    return visual;
}

GLXPbuffer glXCreatePbuffer(Display*, GLXFBConfig, const int*) {
    calls++;
    pbuffers++;
    const unsigned long made = ++lastDrawable;
    buffers.at(made).front = buffers.at(made).back = newColour.load();
    return made;
}

void glXDestroyPbuffer(Display*, GLXPbuffer) {
    calls++;
    pbuffers--;
    bareDestroys += current.context ? 0 : 1;
}

void glXQueryDrawable(Display*, GLXDrawable, int, unsigned* value) {
    calls++;
    *value = 4;
}

GLXContext glXCreateNewContext(Display*, GLXFBConfig, int, GLXContext, Bool) {
    calls++;
    contexts++;
    return reinterpret_cast<GLXContext>(new Context);
}

void glXDestroyContext(Display*, GLXContext context) {
    calls++;
    destroyedContexts++;
    bareDestroys += current.context ? 0 : 1;
    delete reinterpret_cast<Context*>(context);
}

Bool glXMakeContextCurrent(Display* display, GLXDrawable draw, GLXDrawable read,
                           GLXContext context) {
    calls++;
    auto* wanted = reinterpret_cast<Context*>(context);
    if (current.context)
        current.context->currentIn--;
    if (wanted && ++wanted->currentIn > 1)
        violations++;
    current = {display, draw, read, wanted};
    drawBuffer = GL_BACK; // as if each context were current for the first time
    clearColour = 0;
    return True;
}

Bool glXMakeCurrent(Display* display, GLXDrawable drawable, GLXContext context) {
    return glXMakeContextCurrent(display, drawable, drawable, context);
}

GLXContext glXGetCurrentContext() {
    return reinterpret_cast<GLXContext>(current.context);
}
Display* glXGetCurrentDisplay() {
    return current.display;
}
GLXDrawable glXGetCurrentDrawable() {
    return current.draw;
}
GLXDrawable glXGetCurrentReadDrawable() {
    return current.read;
}

void glXSwapBuffers(Display*, GLXDrawable drawable) {
    calls++;
    const int inside = ++swapping;
    int most = swapsAtOnce;
    while (most < inside && !swapsAtOnce.compare_exchange_weak(most, inside)) {
    }
    usleep(200);
    Buffers& swapped = buffers.at(drawable);
    // A forgetful driver shows what was in the front buffer, and never brings the back there.
    if (keepFront)
        swapped.front = swapped.back.load();
    swapping--;
}

void glBlitFramebuffer(GLint, GLint, GLint, GLint, GLint, GLint, GLint, GLint, GLbitfield, GLenum) {
    calls++;
    buffers.at(current.draw).front = buffers.at(current.read).back.load();
}

void glClearColor(GLfloat red, GLfloat green, GLfloat, GLfloat) {
    calls++;
    clearColour = static_cast<int>(red * 255) << 8 | static_cast<int>(green * 255);
}

void glClear(GLbitfield) {
    calls++;
    if (drawBuffer != GL_FRONT)
        buffers.at(current.draw).back = clearColour;
    if (drawBuffer != GL_BACK)
        buffers.at(current.draw).front = clearColour;
}

void glReadPixels(GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, void* pixels) {
    calls++;
    const int colour = buffers.at(current.read).front;
    const std::array<unsigned char, 4> pixel{static_cast<unsigned char>(colour >> 8),
                                             static_cast<unsigned char>(colour & 255), 0, 255};
    std::copy(pixel.begin(), pixel.end(), static_cast<unsigned char*>(pixels));
}

void glDrawBuffer(GLenum buffer) {
    calls++;
    drawBuffer = buffer;
}
void glReadBuffer(GLenum) {
    calls++;
}
void glFinish() {
    calls++;
}
void glFlush() {
    calls++;
}
}
