// error_client config|profile|silent|leave: X errors that GLX calls raise. Each reaches the error
// handler once, during the call, and the handler may use GLX itself.
//   config   a configuration that there is not: GLX's client library finds that out by itself
//   profile  profiles that there are not: the server finds out
//   silent   the same; the handler does nothing, so that nothing else goes over the connection
//   leave    the same; the handler leaves the call by longjmp (Xlib does not allow it, so this is
//            for calls after which nothing of Xlib's is in use any more)
#include "client.h"
#include "draw.h"

#include <array>
#include <csetjmp>
#include <cstring>
#include <vector>

using namespace kor::client;

namespace {

constexpr int kWidth = 60;
constexpr int kHeight = 40;

Display* application = nullptr;
std::vector<XErrorEvent> errors;

// Asks for what takes every way into GLX: questions, contexts, what is current.
void useGlx() {
    int major = 0;
    int minor = 0;
    require(glXQueryVersion(application, &major, &minor), "no version, asked from the handler");
    XVisualInfo* const visual = chooseVisual(application, Buffering::Double);
    const GLXContext context = createContext(application, visual);
    glXDestroyContext(application, context);
    XFree(visual);
    const GLXContext current = glXGetCurrentContext();
    const GLXDrawable drawable = glXGetCurrentDrawable();
    require(glXMakeCurrent(application, None, nullptr), "nothing cannot be made current");
    require(glXMakeCurrent(application, drawable, current), "what was current cannot be again");
}

int handle(Display* display, XErrorEvent* event) {
    require(event->type == 0 && event->display == display, "the event is none of this display");
    require(event->serial > 0, "serial " + std::to_string(event->serial) + " of an error");
    errors.push_back(*event);
    useGlx();
    return 0;
}

int note(Display* /*display*/, XErrorEvent* event) {
    errors.push_back(*event);
    return 0;
}

std::jmp_buf way;
int leave(Display* /*display*/, XErrorEvent* event) {
    errors.push_back(*event);
    std::longjmp(way, 1);
}

GLXContext createWithProfile(GLXFBConfig config, int profile) {
    const auto create = reinterpret_cast<PFNGLXCREATECONTEXTATTRIBSARBPROC>(
        glXGetProcAddressARB(reinterpret_cast<const GLubyte*>("glXCreateContextAttribsARB")));
    require(create != nullptr, "no glXCreateContextAttribsARB");
    const std::array<int, 7> attributes{GLX_CONTEXT_MAJOR_VERSION_ARB,
                                        3,
                                        GLX_CONTEXT_MINOR_VERSION_ARB,
                                        2,
                                        GLX_CONTEXT_PROFILE_MASK_ARB,
                                        profile,
                                        None};
    return create(application, config, nullptr, True, attributes.data());
}

// A frame after the errors: the thread's connections and contexts are in order.
void drawFrame(Window window, unsigned seed) {
    const Picture picture(kWidth, kHeight, seed);
    drawQuad(picture);
    glXSwapBuffers(application, window);
    requireShown(application, window, picture, "a frame after an error");
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 2, "an argument: config, profile, silent or leave");
    application = openDisplay();
    XVisualInfo* const visual = chooseVisual(application, Buffering::Double);
    const Window window = createWindow(application, visual, {7, 8, kWidth, kHeight});
    const GLXContext context = createContext(application, visual);
    makeCurrent(application, window, context);
    drawFrame(window, 1);

    const GLXFBConfig config = chooseConfig(application, Buffering::Double, GLX_WINDOW_BIT);
    const bool leaves = std::strcmp(argv[1], "leave") == 0;
    const bool silent = std::strcmp(argv[1], "silent") == 0;
    XSetErrorHandler(leaves ? leave : silent ? note : handle);
    for (static unsigned round = 0; round < 5; ++round) { // static: it outlives a jump
        errors.clear();
        if (std::strcmp(argv[1], "config") == 0) {
            int none = 0;
            require(glXCreateNewContext(application, reinterpret_cast<GLXFBConfig>(&none),
                                        GLX_RGBA_TYPE, nullptr, True) == nullptr,
                    "a context of a configuration that there is not");
        } else if (!leaves || setjmp(way) == 0) {
            // In a row, without a frame between them: each is answered after others were.
            for (int bit = 28; bit <= 30; ++bit)
                require(createWithProfile(config, 1 << bit) == nullptr,
                        "a context of a profile that there is not");
            require(!leaves, "the handler was not called before the call's end");
        }
        XSync(application, False);
        require(errors.size() == (silent || std::strcmp(argv[1], "profile") == 0 ? 3 : 1),
                std::to_string(errors.size()) + " errors were told");
        for (std::size_t i = 1; i < errors.size(); ++i)
            require(errors[i].serial > errors[i - 1].serial &&
                        errors[i].error_code == errors[0].error_code &&
                        errors[i].minor_code == errors[0].minor_code,
                    "an error of another request");
        drawFrame(window, round + 2);
    }
    std::printf("%zu error(s), code %u, request %u.%u\n", errors.size(), errors[0].error_code,
                errors[0].request_code, errors[0].minor_code);
    glXMakeCurrent(application, None, nullptr);
    glXDestroyContext(application, context);
    XFree(visual);
    XCloseDisplay(application);
    return passed("error_client");
}
