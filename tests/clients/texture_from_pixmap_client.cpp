// texture_from_pixmap_client: an X pixmap, drawn by X, as the texture of a quad in a window.
#include "client.h"
#include "draw.h"

#include <cstring>

using namespace kor::client;

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;

GLXFBConfig chooseBindableConfig(Display* display) {
    const int attributes[] = {GLX_DRAWABLE_TYPE,
                              GLX_PIXMAP_BIT | GLX_WINDOW_BIT,
                              GLX_BIND_TO_TEXTURE_RGB_EXT,
                              True,
                              GLX_BIND_TO_TEXTURE_TARGETS_EXT,
                              GLX_TEXTURE_2D_BIT_EXT,
                              GLX_DOUBLEBUFFER,
                              True,
                              GLX_RED_SIZE,
                              8,
                              GLX_GREEN_SIZE,
                              8,
                              GLX_BLUE_SIZE,
                              8,
                              None};
    int count = 0;
    GLXFBConfig* const configs =
        glXChooseFBConfig(display, DefaultScreen(display), attributes, &count);
    require(configs != nullptr && count > 0, "a configuration that binds to textures");
    GLXFBConfig chosen = nullptr;
    for (int i = 0; i < count && chosen == nullptr; ++i) {
        XVisualInfo* const visual = glXGetVisualFromFBConfig(display, configs[i]);
        if (visual != nullptr && visual->depth == 24)
            chosen = configs[i];
        if (visual != nullptr)
            XFree(visual);
    }
    XFree(configs);
    require(chosen != nullptr, "a configuration of depth 24 that binds to textures");
    return chosen;
}

void putPicture(Display* display, Pixmap pixmap, const Picture& picture) {
    const GC gc = XCreateGC(display, pixmap, 0, nullptr);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            XSetForeground(display, gc, picture.colour(x, y));
            XDrawPoint(display, pixmap, gc, x, y);
        }
    }
    XFreeGC(display, gc);
    XSync(display, False);
}

void drawBoundTexture(bool topRowFirst) {
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    const float lower = topRowFirst ? 1.0F : 0.0F;
    const float upper = 1.0F - lower;
    glBegin(GL_QUADS);
    glTexCoord2f(0.0F, lower);
    glVertex2f(-1.0F, -1.0F);
    glTexCoord2f(1.0F, lower);
    glVertex2f(1.0F, -1.0F);
    glTexCoord2f(1.0F, upper);
    glVertex2f(1.0F, 1.0F);
    glTexCoord2f(0.0F, upper);
    glVertex2f(-1.0F, 1.0F);
    glEnd();
    requireNoError("a quad with a pixmap's texture");
}

} // namespace

int main() {
    Display* const display = openDisplay();
    const char* const extensions = glXQueryExtensionsString(display, DefaultScreen(display));
    require(extensions != nullptr &&
                std::strstr(extensions, "GLX_EXT_texture_from_pixmap") != nullptr,
            "texture from pixmap is offered");
    const auto bind = reinterpret_cast<PFNGLXBINDTEXIMAGEEXTPROC>(
        glXGetProcAddress(reinterpret_cast<const GLubyte*>("glXBindTexImageEXT")));
    const auto release = reinterpret_cast<PFNGLXRELEASETEXIMAGEEXTPROC>(
        glXGetProcAddress(reinterpret_cast<const GLubyte*>("glXReleaseTexImageEXT")));
    require(bind != nullptr && release != nullptr, "find the texture from pixmap functions");

    const GLXFBConfig config = chooseBindableConfig(display);
    int topRowFirst = 0;
    glXGetFBConfigAttrib(display, config, GLX_Y_INVERTED_EXT, &topRowFirst);
    XVisualInfo* const visual = glXGetVisualFromFBConfig(display, config);
    const Window window = createWindow(display, visual, {12, 8, kWidth, kHeight});
    const GLXContext context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    require(context != nullptr, "create a context");
    const Pixmap pixmap =
        XCreatePixmap(display, window, kWidth, kHeight, static_cast<unsigned>(visual->depth));
    const int attributes[] = {GLX_TEXTURE_TARGET_EXT, GLX_TEXTURE_2D_EXT, GLX_TEXTURE_FORMAT_EXT,
                              GLX_TEXTURE_FORMAT_RGB_EXT, None};
    const GLXPixmap glxPixmap = glXCreatePixmap(display, config, pixmap, attributes);
    require(glxPixmap != None, "create a GLX pixmap");
    makeCurrent(display, window, context);
    glViewport(0, 0, kWidth, kHeight);

    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    for (unsigned frame = 1; frame <= 3; ++frame) {
        const Picture picture(kWidth, kHeight, frame);
        putPicture(display, pixmap, picture);
        bind(display, glxPixmap, GLX_FRONT_LEFT_EXT, nullptr);
        drawBoundTexture(topRowFirst != 0);
        glXSwapBuffers(display, window);
        requireShown(display, window, picture, "picture " + std::to_string(frame));
        release(display, glxPixmap, GLX_FRONT_LEFT_EXT);
    }

    glDeleteTextures(1, &texture);
    glXDestroyPixmap(display, glxPixmap);
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XFreePixmap(display, pixmap);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("texture_from_pixmap_client");
}
