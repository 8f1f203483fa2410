// pbuffer_client [kept]: two pbuffers by turns, read back by the client itself, then a window. With
// "kept", a pbuffer's front buffer must hold the swapped frame, which Mesa's software drivers lose.
#include "client.h"
#include "draw.h"

#include <cstdio>
#include <cstring>
#include <vector>

using namespace kor::client;

namespace {

constexpr int kWidth = 70;
constexpr int kHeight = 110;

// What the read buffer of the current drawable holds, compared with the picture.
void requireRead(const Picture& picture, const std::string& what) {
    const std::vector<std::uint8_t> expected = picture.glPixels();
    std::vector<std::uint8_t> found(expected.size());
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, picture.width(), picture.height(), GL_RGBA, GL_UNSIGNED_BYTE, found.data());
    requireNoError(what);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (i % 4 == 3 || found[i] == expected[i]) // alpha is not part of the picture
            continue;
        const auto pixel = static_cast<int>(i / 4);
        char text[120];
        std::snprintf(text, sizeof text, ": byte %zu of pixel (%d,%d) is %02x, expected %02x",
                      i % 4, pixel % picture.width(),
                      picture.height() - 1 - pixel / picture.width(), found[i], expected[i]);
        fail(what + text);
    }
}

GLXPbuffer createPbuffer(Display* display, GLXFBConfig config) {
    const int attributes[] = {
        GLX_PBUFFER_WIDTH, kWidth, GLX_PBUFFER_HEIGHT, kHeight, GLX_PRESERVED_CONTENTS, True, None};
    const GLXPbuffer pbuffer = glXCreatePbuffer(display, config, attributes);
    require(pbuffer != None, "create a pbuffer");
    unsigned int width = 0;
    unsigned int height = 0;
    glXQueryDrawable(display, pbuffer, GLX_WIDTH, &width);
    glXQueryDrawable(display, pbuffer, GLX_HEIGHT, &height);
    require(width == kWidth && height == kHeight, "a pbuffer's size");
    return pbuffer;
}

} // namespace

int main(int argc, char** argv) {
    const bool kept = argc > 1 && std::strcmp(argv[1], "kept") == 0;
    Display* const display = openDisplay();
    const GLXFBConfig config =
        chooseConfig(display, Buffering::Double, GLX_PBUFFER_BIT | GLX_WINDOW_BIT);
    const GLXContext context = glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    require(context != nullptr, "create a context");
    const GLXPbuffer first = createPbuffer(display, config);
    const GLXPbuffer second = createPbuffer(display, config);

    for (unsigned turn = 0; turn < 3; ++turn) {
        const Picture one(kWidth, kHeight, 10 + turn);
        const Picture two(kWidth, kHeight, 20 + turn);
        makeCurrent(display, first, context);
        drawQuad(one);
        makeCurrent(display, second, context);
        drawPixels(two);
        requireRead(two, "the second pbuffer");
        makeCurrent(display, first, context);
        requireRead(one, "the first pbuffer");
    }
    if (kept) {
        glXSwapBuffers(display, first);
        glReadBuffer(GL_FRONT);
        requireRead(Picture(kWidth, kHeight, 12), "the first pbuffer's front after a swap");
        glReadBuffer(GL_BACK);
    }

    XVisualInfo* const visual = glXGetVisualFromFBConfig(display, config);
    const Window window = createWindow(display, visual, {5, 5, kWidth, kHeight});
    const Picture shown(kWidth, kHeight, 30);
    makeCurrent(display, window, context);
    drawQuad(shown);
    requireRead(shown, "the window's back buffer");
    glXSwapBuffers(display, window);
    requireShown(display, window, shown, "a window after the pbuffers");

    glXDestroyPbuffer(display, first);
    glXDestroyPbuffer(display, second);
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("pbuffer_client");
}
