// profile_client core|es2|es3: contexts made with glXCreateContextAttribsARB.
#include "client.h"
#include "draw.h"

#include <cstring>

using namespace kor::client;

namespace {

struct Wanted {
    const char* name;
    Profile profile;
    int major;
    int minor;
    int mask;
    const char* versionBegins;
};

constexpr Wanted kWanted[] = {
    {"core", Profile::Core, 3, 3, GLX_CONTEXT_CORE_PROFILE_BIT_ARB, ""},
    {"es2", Profile::Es2, 2, 0, GLX_CONTEXT_ES2_PROFILE_BIT_EXT, "OpenGL ES "},
    {"es3", Profile::Es3, 3, 0, GLX_CONTEXT_ES2_PROFILE_BIT_EXT, "OpenGL ES 3"},
};

} // namespace

int main(int argc, char** argv) {
    const Wanted* wanted = nullptr;
    for (const Wanted& candidate : kWanted) {
        if (argc == 2 && std::strcmp(argv[1], candidate.name) == 0)
            wanted = &candidate;
    }
    require(wanted != nullptr, "one argument: core, es2 or es3");

    constexpr int kWidth = 101;
    constexpr int kHeight = 67;
    Display* const display = openDisplay();
    const auto createContextAttribs = reinterpret_cast<PFNGLXCREATECONTEXTATTRIBSARBPROC>(
        glXGetProcAddress(reinterpret_cast<const GLubyte*>("glXCreateContextAttribsARB")));
    require(createContextAttribs != nullptr, "find glXCreateContextAttribsARB");
    const GLXFBConfig config = chooseConfig(display, Buffering::Double, GLX_WINDOW_BIT);
    const int attributes[] = {GLX_CONTEXT_MAJOR_VERSION_ARB,
                              wanted->major,
                              GLX_CONTEXT_MINOR_VERSION_ARB,
                              wanted->minor,
                              GLX_CONTEXT_PROFILE_MASK_ARB,
                              wanted->mask,
                              None};
    const GLXContext context = createContextAttribs(display, config, nullptr, True, attributes);
    require(context != nullptr, "create the context");
    XVisualInfo* const visual = glXGetVisualFromFBConfig(display, config);
    const Window window = createWindow(display, visual, {13, 17, kWidth, kHeight});
    makeCurrent(display, window, context);
    const auto* const version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    require(version != nullptr, "read the version");
    require(std::strncmp(version, wanted->versionBegins, std::strlen(wanted->versionBegins)) == 0,
            std::string("the version, not ") + version);
    {
        const ShaderPainter painter(wanted->profile);
        for (unsigned frame = 1; frame <= 4; ++frame) {
            const Picture picture(kWidth, kHeight, frame);
            painter.draw(picture);
            glXSwapBuffers(display, window);
            requireShown(display, window, picture, "frame " + std::to_string(frame));
        }
    }
    requireNoError("the whole run");
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("profile_client");
}
