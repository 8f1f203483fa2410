#include "fixed_functions.h"

#include "bound_objects.h"
#include "driver.h"
#include "fbconfig_owners.h"
#include "front_buffer.h"
#include "helper_context.h"
#include "late_destroy.h"
#include "no_display.h"
#include "pbuffer_put_error.h"
#include "query_state.h"
#include "release_without_context.h"

#include <cstring>

/// The functions that stand before the driver's. Each tells its arguments to the fixes that it
/// concerns; on a driver that needs no help it is one test and the driver's function.
namespace kor::adapter {
namespace {

/// Around the driver's make-current, whichever it is.
template <typename Call>
Bool changeBinding(Display* display, GLXDrawable draw, GLXDrawable read, GLXContext context,
                   Call call) {
    endRow();
    Bool accepted = False;
    if (noHelpNeeded()) {
        accepted = call();
    } else {
        finishBeforeLeaving();
        BindingChange change(display, draw, read, context);
        accepted = call();
        change.finish(accepted);
    }
    if (accepted && context)
        destroyLeft(display);
    return accepted;
}

Bool makeContextCurrent(Display* display, GLXDrawable draw, GLXDrawable read, GLXContext context) {
    releaseWithoutContext(context, draw, read);
    return changeBinding(display, draw, read, context, [&] {
        return driver.glXMakeContextCurrent(display, draw, read, context);
    });
}

Bool makeCurrent(Display* display, GLXDrawable drawable, GLXContext context) {
    GLXDrawable read = drawable;
    releaseWithoutContext(context, drawable, read);
    return changeBinding(display, drawable, drawable, context,
                         [&] { return driver.glXMakeCurrent(display, drawable, context); });
}

/// What the adapter does for a pbuffer when it dies, at once or after the last thread left it.
template <auto destroy> void destroyPbuffer(Display* display, GLXDrawable pbuffer) {
    (driver.*destroy)(display, pbuffer);
    removePbuffer(display, pbuffer);
}

template <auto destroy> void destroyPixmap(Display* display, GLXDrawable pixmap) {
    (driver.*destroy)(display, pixmap);
}

template <DestroyDrawable destroy> void destroyFixed(Display* display, GLXDrawable drawable) {
    endRow();
    destroyDrawable(display, drawable, destroy);
}

GLXPbuffer createPbuffer(Display* display, GLXFBConfig config, const int* attributes) {
    config = ownFbconfig(display, config);
    const PlainSize size = plainSizeOf(attributes);
    if (const GLXPbuffer same = takeBack(display, config, size))
        return same;
    const GLXPbuffer made = makeCleared(display, config, [&] {
        const GLXPbuffer pbuffer = driver.glXCreatePbuffer(display, config, attributes);
        addPbuffer(display, pbuffer);
        return pbuffer;
    });
    addDrawable(display, made, config, destroyPbuffer<&Driver::glXDestroyPbuffer>, size);
    return made;
}

GLXPbufferSGIX createPbufferSGIX(Display* display, GLXFBConfigSGIX config, unsigned width,
                                 unsigned height, int* attributes) {
    endRow();
    config = ownFbconfig(display, config);
    const GLXPbufferSGIX made = makeCleared(display, config, [&] {
        const GLXPbufferSGIX pbuffer =
            driver.glXCreateGLXPbufferSGIX(display, config, width, height, attributes);
        addPbuffer(display, pbuffer);
        return pbuffer;
    });
    addDrawable(display, made, config, destroyPbuffer<&Driver::glXDestroyGLXPbufferSGIX>);
    return made;
}

GLXPixmap createPixmap(Display* display, GLXFBConfig config, Pixmap pixmap, const int* attributes) {
    endRow();
    config = ownFbconfig(display, config);
    const GLXPixmap made = driver.glXCreatePixmap(display, config, pixmap, attributes);
    addDrawable(display, made, config, destroyPixmap<&Driver::glXDestroyPixmap>, {}, pixmap);
    return made;
}

GLXPixmap createPixmapSGIX(Display* display, GLXFBConfigSGIX config, Pixmap pixmap) {
    endRow();
    config = ownFbconfig(display, config);
    const GLXPixmap made = driver.glXCreateGLXPixmapWithConfigSGIX(display, config, pixmap);
    addDrawable(display, made, config, destroyPixmap<&Driver::glXDestroyGLXPixmap>, {}, pixmap);
    return made;
}

void destroyContextFixed(Display* display, GLXContext context) {
    endRow();
    if (context)
        keepCurrentContext(display, context);
    destroyContext(display, context);
}

GLXContext createNewContext(Display* display, GLXFBConfig config, int renderType, GLXContext share,
                            Bool direct) {
    return driver.glXCreateNewContext(display, ownFbconfig(display, config), renderType, share,
                                      direct);
}

GLXContext createContextAttribs(Display* display, GLXFBConfig config, GLXContext share, Bool direct,
                                const int* attributes) {
    return driver.glXCreateContextAttribsARB(display, ownFbconfig(display, config), share, direct,
                                             attributes);
}

GLXContext createContextSGIX(Display* display, GLXFBConfigSGIX config, int renderType,
                             GLXContext share, Bool direct) {
    return driver.glXCreateContextWithConfigSGIX(display, ownFbconfig(display, config), renderType,
                                                 share, direct);
}

template <auto ask> int askFbconfig(Display* display, GLXFBConfig config, int name, int* value) {
    return (driver.*ask)(display, ownFbconfig(display, config), name, value);
}

template <auto find> XVisualInfo* visualOfFbconfig(Display* display, GLXFBConfig config) {
    return (driver.*find)(display, ownFbconfig(display, config));
}

/// A caller that does not ask how many there are cannot use them either.
GLXFBConfig* chooseFbconfigs(Display* display, int screen, const int* attributes, int* count) {
    GLXFBConfig* const configs = driver.glXChooseFBConfig(display, screen, attributes, count);
    giveHandles(display, configs, count ? *count : 0);
    return configs;
}

GLXFBConfigSGIX* chooseFbconfigsSGIX(Display* display, int screen, int* attributes, int* count) {
    GLXFBConfigSGIX* const configs =
        driver.glXChooseFBConfigSGIX(display, screen, attributes, count);
    giveHandles(display, configs, count ? *count : 0);
    return configs;
}

GLXFBConfig* getFbconfigs(Display* display, int screen, int* count) {
    GLXFBConfig* const configs = driver.glXGetFBConfigs(display, screen, count);
    giveHandles(display, configs, count ? *count : 0);
    return configs;
}

struct FixedFunction {
    const char* name;
    void* function;
};

template <typename Function> FixedFunction fixed(const char* name, Function* function) {
    return {name, reinterpret_cast<void*>(function)};
}

void* findFixed(const char* name) {
    const FixedFunction functions[] = {
        fixed("glXSwapBuffers", swapBuffersKeepingFront),
        fixed("glXMakeCurrent", makeCurrent),
        fixed("glXMakeContextCurrent", makeContextCurrent),
        fixed("glXCreatePbuffer", createPbuffer),
        fixed("glXCreateGLXPbufferSGIX", createPbufferSGIX),
        fixed("glXCreatePixmap", createPixmap),
        fixed("glXCreateGLXPixmapWithConfigSGIX", createPixmapSGIX),
        fixed("glXDestroyPbuffer", destroyFixed<destroyPbuffer<&Driver::glXDestroyPbuffer>>),
        fixed("glXDestroyGLXPbufferSGIX",
              destroyFixed<destroyPbuffer<&Driver::glXDestroyGLXPbufferSGIX>>),
        fixed("glXDestroyPixmap", destroyFixed<destroyPixmap<&Driver::glXDestroyPixmap>>),
        fixed("glXDestroyGLXPixmap", destroyFixed<destroyPixmap<&Driver::glXDestroyGLXPixmap>>),
        fixed("glXDestroyContext", destroyContextFixed),
        fixed("glXCreateNewContext", createNewContext),
        fixed("glXCreateContextAttribsARB", createContextAttribs),
        fixed("glXCreateContextWithConfigSGIX", createContextSGIX),
        fixed("glXChooseFBConfig", chooseFbconfigs),
        fixed("glXChooseFBConfigSGIX", chooseFbconfigsSGIX),
        fixed("glXGetFBConfigs", getFbconfigs),
        fixed("glXGetFBConfigAttrib", askFbconfig<&Driver::glXGetFBConfigAttrib>),
        fixed("glXGetFBConfigAttribSGIX", askFbconfig<&Driver::glXGetFBConfigAttribSGIX>),
        fixed("glXGetVisualFromFBConfig", visualOfFbconfig<&Driver::glXGetVisualFromFBConfig>),
        fixed("glXGetVisualFromFBConfigSGIX",
              visualOfFbconfig<&Driver::glXGetVisualFromFBConfigSGIX>),
        fixed("glXQueryExtension", WithDisplay<&Driver::glXQueryExtension>::ask),
        fixed("glXQueryVersion", WithDisplay<&Driver::glXQueryVersion>::ask),
        fixed("glXQueryExtensionsString", WithDisplay<&Driver::glXQueryExtensionsString>::ask),
        fixed("glXQueryServerString", WithDisplay<&Driver::glXQueryServerString>::ask),
        fixed("glXGetClientString", WithDisplay<&Driver::glXGetClientString>::ask),
        fixed("glGetIntegerv", getIntegerv),
        fixed("glBeginQuery", beginQuery),
        fixed("glEndQuery", endQuery),
        fixed("glGetQueryObjectiv", getQueryObjectiv),
    };
    for (const FixedFunction& candidate : functions)
        if (!std::strcmp(candidate.name, name))
            return candidate.function;
    return nullptr;
}

} // namespace

void* resolveFunction(const char* name) {
    void* const drivers = source() ? source()->find(name) : nullptr;
    if (!drivers)
        return nullptr;
    void* const ours = findFixed(name);
    return ours ? ours : drivers;
}

} // namespace kor::adapter
