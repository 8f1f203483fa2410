// A vendor's library that is another one than Mesa's, as far as anybody can see: it passes
// everything on to Mesa's, and says on stderr of which display it was asked what. KORTEST_RENDERER
// is the name of what renders, if it is set.
#include <X11/Xlib.h>

#define GLX_GLXEXT_PROTOTYPES
#include <GL/glx.h>
#include <glvnd/libglxabi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace {

__GLXapiImports mesa;

template <typename Function> Function* mesas(const char* name) {
    return reinterpret_cast<Function*>(mesa.getProcAddress(reinterpret_cast<const GLubyte*>(name)));
}

void say(const char* function, Display* display) {
    fprintf(stderr, "other vendor: %s %s\n", function, DisplayString(display));
}

int getConfig(Display* display, XVisualInfo* visual, int attribute, int* value) {
    say("glXGetConfig", display);
    return mesas<decltype(glXGetConfig)>("glXGetConfig")(display, visual, attribute, value);
}

GLXFBConfig* chooseFBConfig(Display* display, int screen, const int* attributes, int* count) {
    say("glXChooseFBConfig", display);
    return mesas<decltype(glXChooseFBConfig)>("glXChooseFBConfig")(display, screen, attributes,
                                                                   count);
}

int getFBConfigAttrib(Display* display, GLXFBConfig config, int attribute, int* value) {
    say("glXGetFBConfigAttrib", display);
    return mesas<decltype(glXGetFBConfigAttrib)>("glXGetFBConfigAttrib")(display, config, attribute,
                                                                         value);
}

GLXPbuffer createPbuffer(Display* display, GLXFBConfig config, const int* attributes) {
    say("glXCreatePbuffer", display);
    return mesas<decltype(glXCreatePbuffer)>("glXCreatePbuffer")(display, config, attributes);
}

const GLubyte* getString(GLenum name) {
    const char* const renderer = name == GL_RENDERER ? getenv("KORTEST_RENDERER") : nullptr;
    return renderer ? reinterpret_cast<const GLubyte*>(renderer)
                    : mesas<decltype(glGetString)>("glGetString")(name);
}

void* getProcAddress(const GLubyte* procedure) {
    const struct {
        const char* name;
        void* function;
    } told[] = {{"glXGetConfig", reinterpret_cast<void*>(getConfig)},
                {"glXChooseFBConfig", reinterpret_cast<void*>(chooseFBConfig)},
                {"glGetString", reinterpret_cast<void*>(getString)},
                {"glXGetFBConfigAttrib", reinterpret_cast<void*>(getFBConfigAttrib)},
                {"glXCreatePbuffer", reinterpret_cast<void*>(createPbuffer)}};
    for (const auto& candidate : told)
        if (strcmp(candidate.name, reinterpret_cast<const char*>(procedure)) == 0)
            return candidate.function;
    return mesa.getProcAddress(procedure);
}

} // namespace

extern "C" __attribute__((visibility("default"))) Bool __glx_Main(uint32_t version,
                                                                  const __GLXapiExports* exports,
                                                                  __GLXvendorInfo* vendor,
                                                                  __GLXapiImports* imports) {
    void* const library = dlopen("libGLX_mesa.so.0", RTLD_LAZY | RTLD_LOCAL);
    const auto enter =
        reinterpret_cast<__PFNGLXMAINPROC>(library ? dlsym(library, "__glx_Main") : nullptr);
    if (!enter || !enter(version, exports, vendor, &mesa))
        return False;
    *imports = mesa;
    imports->getProcAddress = getProcAddress;
    return True;
}
