#include "local_display_test.h"

#include <X11/Xproto.h>
#include <X11/Xutil.h>

namespace kor::test {
namespace {

constexpr int Width = 20;
constexpr int Height = 10;

/// What glxgears does on the config that it is offered first: a pbuffer of depth 24 with alpha.
void drawFrames(const GlTable& gl, Display* display) {
    GLXFBConfig config = chooseConfig(display, {.alpha = true});
    ASSERT_TRUE(config) << "the server has no such config: nothing to try";
    GLXContext context = makeContext(gl, display, config);
    const GLXPbuffer pbuffer = makePbuffer(gl, display, config, Width, Height);
    ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer, context));
    for (int frame = 0; frame < 3; frame++) {
        drawPicture(gl, Width, Height, frame);
        gl.glXSwapBuffers(display, pbuffer);
    }
    gl.glDrawBuffer(GL_FRONT);
    drawPicture(gl, Width, Height, 3);
    gl.glFlush();
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(difference(readFront(display, config, pbuffer, Width, Height),
                         pictureOf(Width, Height, 3), Width),
              "");
    gl.glXDestroyPbuffer(display, pbuffer);
    gl.glXDestroyContext(display, context);
    XSync(display, False);
}

/// An image of depth 24, put to a drawable of whatever depth, by the core protocol.
void putImage(Display* display, Drawable drawable, int depth) {
    std::vector<char> bytes(std::size_t{4} * 4 * 4);
    XImage* image = XCreateImage(display, DefaultVisual(display, DefaultScreen(display)), 24,
                                 ZPixmap, 0, bytes.data(), 4, 4, 32, 0);
    const Pixmap sameDepth =
        XCreatePixmap(display, DefaultRootWindow(display), 4, 4, static_cast<unsigned>(depth));
    GC gc = XCreateGC(display, sameDepth, 0, nullptr);
    XPutImage(display, drawable, gc, image, 0, 0, 0, 0, 4, 4);
    image->data = nullptr;
    XDestroyImage(image);
    XFreeGC(display, gc);
    XFreePixmap(display, sameDepth);
}

TEST(PbufferPutError, ReachesTheHandlerWithoutTheAdapter) {
    const Connection display(false);
    const ErrorCounter errors;
    drawFrames(directGl(), display);
    EXPECT_GT(errors.count(), 0)
        << "this driver makes no such error: it cannot show that the adapter drops it";
    EXPECT_EQ(errors.last().error_code, BadMatch);
}

TEST(PbufferPutError, IsDroppedWithTheAdapter) {
    const Connection display;
    const ErrorCounter errors;
    drawFrames(adaptedGl(), display);
    EXPECT_EQ(errors.count(), 0);
}

TEST(PbufferPutError, OtherErrorsStillReachTheHandler) {
    const Connection display;
    const ErrorCounter errors;
    drawFrames(adaptedGl(), display); // the filter is at work
    ASSERT_EQ(errors.count(), 0);

    // The same error, on the same connection, in answer to the same request: but not a pbuffer's.
    const Pixmap deep =
        XCreatePixmap(display, DefaultRootWindow(static_cast<Display*>(display)), 8, 8, 32);
    putImage(display, deep, 32);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 1);
    EXPECT_EQ(errors.last().error_code, BadMatch);
    EXPECT_EQ(errors.last().request_code, X_PutImage);

    // The same request with another error.
    putImage(display, 0x1, 24);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 2);
    EXPECT_EQ(errors.last().error_code, BadDrawable);

    // Even to what was a pbuffer.
    GLXFBConfig config = chooseConfig(display, {.alpha = true});
    const GLXPbuffer pbuffer = makePbuffer(adaptedGl(), display, config, Width, Height);
    directGl().glXDestroyPbuffer(display, pbuffer);
    putImage(display, pbuffer, 24);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 3);
    EXPECT_EQ(errors.last().error_code, BadDrawable);

    // Another request with the same error.
    const Pixmap shallow =
        XCreatePixmap(display, DefaultRootWindow(static_cast<Display*>(display)), 8, 8, 24);
    GC gc = XCreateGC(display, shallow, 0, nullptr);
    XCopyArea(display, deep, shallow, gc, 0, 0, 8, 8, 0, 0);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 4);
    EXPECT_EQ(errors.last().error_code, BadMatch);
    EXPECT_EQ(errors.last().request_code, X_CopyArea);
}

TEST(PbufferPutError, AreToldApartWhenTheyCross) {
    const GlTable& gl = adaptedGl();
    const Connection display;
    const ErrorCounter errors;
    GLXFBConfig config = chooseConfig(display, {.alpha = true});
    GLXContext context = makeContext(gl, display, config);
    const GLXPbuffer pbuffer = makePbuffer(gl, display, config, Width, Height);
    const Pixmap deep =
        XCreatePixmap(display, DefaultRootWindow(static_cast<Display*>(display)), 8, 8, 32);
    ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer, context));
    for (int frame = 0; frame < 20; frame++) { // nothing waits between a put and its neighbours
        putImage(display, deep, 32);
        drawPicture(gl, Width, Height, frame);
        gl.glXSwapBuffers(display, pbuffer);
        putImage(display, deep, 32);
    }
    XSync(display, False);
    EXPECT_EQ(errors.count(), 40) << "every put of ours, none of the driver's";
    gl.glXMakeCurrent(display, None, nullptr);
}

TEST(PbufferPutError, ConnectionsWithoutTheAdapterAreLeftAlone) {
    const Connection adapted;
    const Connection plain(false);
    const ErrorCounter errors;
    drawFrames(adaptedGl(), adapted);
    EXPECT_EQ(errors.count(), 0);
    drawFrames(directGl(), plain);
    EXPECT_GT(errors.count(), 0);
}

} // namespace
} // namespace kor::test
