// font_client: text from glXUseXFont is pixel by pixel what the X server draws with the same font.
#include "client.h"
#include "draw.h"

#include <algorithm>
#include <array>
#include <cstring>

using namespace kor::client;

namespace {

constexpr int kWidth = 180;
constexpr int kHeight = 50;
constexpr int kLeft = 6;
constexpr int kBaseline = 30; // in X: the row below the letters, counted from the top
constexpr const char* kText = "Quick,Lazy_jpg:(0123)";
constexpr unsigned long kWhite = 0xFFFFFFUL;

void drawBackground(Display* display, Pixmap pixmap, GC gc) {
    for (int y = 0; y < kHeight; ++y) {
        XSetForeground(display, gc, static_cast<unsigned long>(y) * 2U);
        XFillRectangle(display, pixmap, gc, 0, y, kWidth, 1);
    }
}

// How many rows above the raster position a driver puts the lowest row of a letter that stands on
// the baseline: Mesa 1, others 0.
int rowsAboveRasterPosition(GLuint base) {
    constexpr int kPosition = 10;
    glClearColor(0.0F, 0.0F, 0.0F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    glColor3f(1.0F, 1.0F, 1.0F);
    glWindowPos2i(kLeft, kPosition);
    glCallList(base + 'L');
    for (int y = 0; y < kHeight; ++y) {
        std::array<GLubyte, kWidth> reds{};
        glReadPixels(0, y, kWidth, 1, GL_RED, GL_UNSIGNED_BYTE, reds.data());
        if (std::ranges::any_of(reds, [](GLubyte red) { return red != 0; }))
            return y - kPosition;
    }
    require(false, "a letter in the driver's back buffer");
    return 0;
}

} // namespace

int main() {
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, {15, 25, kWidth, kHeight});
    XFontStruct* const font = XLoadQueryFont(display, "fixed");
    require(font != nullptr, "load a font");

    // What the text looks like when the server draws it.
    const Pixmap expected =
        XCreatePixmap(display, window, kWidth, kHeight, static_cast<unsigned>(visual->depth));
    const GC gc = XCreateGC(display, expected, 0, nullptr);
    drawBackground(display, expected, gc);
    XSetForeground(display, gc, kWhite);
    XSetFont(display, gc, font->fid);
    XDrawString(display, expected, gc, kLeft, kBaseline, kText,
                static_cast<int>(std::strlen(kText)));
    XImage* const image = XGetImage(display, expected, 0, 0, kWidth, kHeight, AllPlanes, ZPixmap);
    require(image != nullptr, "read the server's text");

    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    const GLuint base = glGenLists(256);
    glXUseXFont(font->fid, 0, 256, static_cast<int>(base));
    // Mesa 22.3 reports a lack of memory for glyphs without pixels, and such a blank does not
    // advance: the text has none.
    while (glGetError() != GL_NO_ERROR) {
    }
    const int rasterPosition = kHeight - kBaseline - rowsAboveRasterPosition(base);
    glEnable(GL_SCISSOR_TEST);
    for (int y = 0; y < kHeight; ++y) {
        glScissor(0, kHeight - 1 - y, kWidth, 1);
        glClearColor(0.0F, 0.0F, static_cast<float>(y * 2) / 255.0F, 1.0F);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    glDisable(GL_SCISSOR_TEST);
    glColor3f(1.0F, 1.0F, 1.0F);
    glWindowPos2i(kLeft, rasterPosition);
    glListBase(base);
    glCallLists(static_cast<GLsizei>(std::strlen(kText)), GL_UNSIGNED_BYTE, kText);
    requireNoError("text");
    glXSwapBuffers(display, window);

    Picture picture(kWidth, kHeight, 0);
    long white = 0;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const auto colour = static_cast<std::uint32_t>(XGetPixel(image, x, y)) & 0xFFFFFFU;
            white += colour == kWhite ? 1 : 0;
            picture.set(x, y, colour);
        }
    }
    require(white > 100, "letters in the server's text");
    requireShown(display, window, picture, "text");

    XDestroyImage(image);
    glDeleteLists(base, 256);
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XFreeFont(display, font);
    XFreePixmap(display, expected);
    XFreeGC(display, gc);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("font_client");
}
