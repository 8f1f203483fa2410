// Draws on two displays at once.
//   two_displays_client [extensions] DISPLAY DISPLAY   extensions: with contexts and pbuffers that
//       GLX extensions have made
#include "drawing.h"

#include <cstdio>
#include <cstring>
#include <thread>

namespace {

using namespace kor::loading;

template <typename Function> Function* procedure(const char* name) {
    auto* found =
        reinterpret_cast<Function*>(glXGetProcAddressARB(reinterpret_cast<const GLubyte*>(name)));
    require(found != nullptr, std::string("there is no procedure ") + name);
    return found;
}
#define PROCEDURE(name) procedure<decltype(::name)>(#name)

/// The one function for a name serves both displays.
void useExtensions(Drawing& drawing) {
    const auto createContext = PROCEDURE(glXCreateContextAttribsARB);
    const auto chooseConfig = PROCEDURE(glXChooseFBConfigSGIX);
    const auto configAttribute = PROCEDURE(glXGetFBConfigAttribSGIX);
    const auto createPbuffer = PROCEDURE(glXCreateGLXPbufferSGIX);
    const auto destroyPbuffer = PROCEDURE(glXDestroyGLXPbufferSGIX);

    Display* display = drawing.display();
    int wanted[] = {GLX_DRAWABLE_TYPE, GLX_WINDOW_BIT | GLX_PBUFFER_BIT, GLX_DOUBLEBUFFER, True,
                    None};
    int count = 0;
    GLXFBConfigSGIX* configs = chooseConfig(display, DefaultScreen(display), wanted, &count);
    require(configs != nullptr && count > 0, "no config");
    const GLXPbufferSGIX pbuffer = createPbuffer(display, configs[0], 32, 32, nullptr);
    require(pbuffer != None, "no pbuffer");
    destroyPbuffer(display, pbuffer);

    GLXFBConfigSGIX config = nullptr;
    for (int i = 0; i < count && config == nullptr; ++i) {
        int visual = 0;
        require(configAttribute(display, configs[i], GLX_VISUAL_ID, &visual) == Success,
                "a config has no visual's id");
        if (static_cast<VisualID>(visual) == drawing.visual().visualid)
            config = configs[i];
    }
    XFree(configs);
    require(config != nullptr, "no config has the window's visual");
    const int attributes[] = {GLX_CONTEXT_MAJOR_VERSION_ARB, 3, GLX_CONTEXT_MINOR_VERSION_ARB, 0,
                              None};
    GLXContext context = createContext(display, config, nullptr, True, attributes);
    require(context != nullptr, "no context of version 3");
    glXDestroyContext(display, drawing.context());
    drawing.useContext(context);
}

} // namespace

int main(int argc, char** argv) {
    require(argc >= 3, "too few arguments");
    Functions functions;
    KOR_GLX_FUNCTIONS(KOR_TAKE_LINKED)
    KOR_GL_FUNCTIONS(KOR_TAKE_LINKED)
    Drawing first(functions, argv[argc - 2]);
    first.draw(0);
    Drawing second(functions, argv[argc - 1]);
    if (strcmp(argv[1], "extensions") == 0) {
        useExtensions(first);
        useExtensions(second);
    }
    for (int frame = 0; frame < 4; ++frame) {
        first.draw(frame);
        second.draw(frame + 2);
    }
    first.requireShown();
    second.requireShown();

    // On two threads at once.
    second.release();
    std::thread other([&] {
        for (int frame = 0; frame < 20; ++frame)
            first.draw(frame + 1);
        first.release();
    });
    for (int frame = 0; frame < 20; ++frame)
        second.draw(frame);
    other.join();
    first.requireShown();
    second.requireShown();
    puts("passed");
    return 0;
}
