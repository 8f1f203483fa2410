// handover_client: one display and one window for several threads. A context goes from thread to
// thread, and a second thread fills textures in a sharing context while the first one draws.
#include "client.h"
#include "draw.h"

#include <thread>

using namespace kor::client;

namespace {

constexpr int kWidth = 95;
constexpr int kHeight = 65;

void drawFrames(Display* display, Window window, GLXContext context, unsigned seed,
                const std::string& name) {
    makeCurrent(display, window, context);
    for (unsigned frame = 0; frame < 3; ++frame) {
        const Picture picture(kWidth, kHeight, seed + frame);
        drawQuad(picture);
        glXSwapBuffers(display, window);
        requireShown(display, window, picture, name + ", frame " + std::to_string(frame));
    }
    require(glXMakeCurrent(display, None, nullptr) == True, name + ": release the context");
}

// On a thread of its own, in a context that shares with the drawing one: a texture with the
// picture in it.
GLuint loadTexture(Display* display, GLXDrawable drawable, GLXContext context,
                   const Picture& picture) {
    GLuint texture = 0;
    std::thread loader([&] {
        makeCurrent(display, drawable, context);
        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, kWidth, kHeight, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     picture.glPixels().data());
        glFinish();
        requireNoError("load a texture");
        glXMakeCurrent(display, None, nullptr);
    });
    loader.join();
    return texture;
}

void drawTexture(GLuint texture) {
    glBindTexture(GL_TEXTURE_2D, texture);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glBegin(GL_QUADS);
    glTexCoord2f(0.0F, 0.0F);
    glVertex2f(-1.0F, -1.0F);
    glTexCoord2f(1.0F, 0.0F);
    glVertex2f(1.0F, -1.0F);
    glTexCoord2f(1.0F, 1.0F);
    glVertex2f(1.0F, 1.0F);
    glTexCoord2f(0.0F, 1.0F);
    glVertex2f(-1.0F, 1.0F);
    glEnd();
    requireNoError("draw a shared texture");
}

} // namespace

int main() {
    XInitThreads();
    Display* const display = openDisplay();
    const GLXFBConfig config =
        chooseConfig(display, Buffering::Double, GLX_WINDOW_BIT | GLX_PBUFFER_BIT);
    XVisualInfo* const visual = glXGetVisualFromFBConfig(display, config);
    require(visual != nullptr, "the visual of a configuration");
    const Window window = createWindow(display, visual, {33, 22, kWidth, kHeight});
    const GLXContext context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    const GLXContext loading = glXCreateNewContext(display, config, GLX_RGBA_TYPE, context, True);
    require(context != nullptr && loading != nullptr, "create two contexts that share");
    const int size[] = {GLX_PBUFFER_WIDTH, 16, GLX_PBUFFER_HEIGHT, 16, None};
    const GLXPbuffer pbuffer = glXCreatePbuffer(display, config, size);
    require(pbuffer != None, "create a pbuffer");

    drawFrames(display, window, context, 1, "the first thread");
    for (unsigned round = 0; round < 3; ++round) {
        std::thread([&] {
            drawFrames(display, window, context, 10 + 4 * round,
                       "another thread " + std::to_string(round));
        }).join();
    }
    drawFrames(display, window, context, 30, "the first thread again");

    makeCurrent(display, window, context);
    for (unsigned frame = 0; frame < 3; ++frame) {
        const Picture picture(kWidth, kHeight, 40 + frame);
        const GLuint texture = loadTexture(display, pbuffer, loading, picture);
        glViewport(0, 0, kWidth, kHeight);
        drawTexture(texture);
        glXSwapBuffers(display, window);
        requireShown(display, window, picture, "a texture of another thread");
        glDeleteTextures(1, &texture);
    }

    glXMakeCurrent(display, None, nullptr);
    glXDestroyPbuffer(display, pbuffer);
    glXDestroyContext(display, loading);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("handover_client");
}
