#include "support/local_config.h"

#include "support/comparison.h"

#include <algorithm>

namespace kor::bench {

GLXFBConfig configOfId(const GlLibrary& gl, Display* display, int id) {
    const int wanted[] = {GLX_FBCONFIG_ID, id, None};
    int count = 0;
    GLXFBConfig* configs = gl.glXChooseFBConfig(display, DefaultScreen(display), wanted, &count);
    if (configs == nullptr || count < 1)
        fail("the local display has no fbconfig " + std::to_string(id));
    GLXFBConfig config = configs[0];
    XFree(configs);
    return config;
}

GLXPbuffer makePbuffer(const GlLibrary& gl, Display* display, GLXFBConfig config, int width,
                       int height) {
    const int attributes[] = {GLX_PBUFFER_WIDTH,
                              std::max(width, 10),
                              GLX_PBUFFER_HEIGHT,
                              std::max(height, 10),
                              GLX_PRESERVED_CONTENTS,
                              True,
                              None};
    const GLXPbuffer pbuffer = gl.glXCreatePbuffer(display, config, attributes);
    if (pbuffer == None)
        fail("no pbuffer can be made");
    return pbuffer;
}

GLXContext makeContext(const GlLibrary& gl, Display* display, GLXFBConfig config,
                       GLXContext share) {
    GLXContext context = gl.glXCreateNewContext(display, config, GLX_RGBA_TYPE, share, True);
    if (context == nullptr)
        fail("no context can be made");
    return context;
}

} // namespace kor::bench
