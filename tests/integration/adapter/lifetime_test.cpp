#include "local_display_test.h"

#include <memory>
#include <thread>

namespace kor::test {
namespace {

constexpr int Width = 24;
constexpr int Height = 16;

class Lifetime : public testing::Test {
  protected:
    std::string frontDiffers(GLXDrawable drawable, int seed) {
        return difference(readFront(display, config, drawable, Width, Height),
                          pictureOf(Width, Height, seed), Width);
    }
    GLXPbuffer pbuffer() { return makePbuffer(gl, display, config, Width, Height); }
    /// True when the driver no longer knows the drawable.
    bool isGone(GLXDrawable drawable) {
        const int before = errors.count();
        unsigned width = 0;
        directGl().glXQueryDrawable(display, drawable, GLX_WIDTH, &width);
        XSync(display, False);
        return errors.count() > before;
    }

    const GlTable& gl = adaptedGl();
    ErrorCounter errors;
    Connection display;
    GLXFBConfig config = chooseConfig(display, {});
};

TEST_F(Lifetime, ADrawableDestroyedWhileCurrentOutlivesTheSwapOfAnother) {
    GLXContext context = makeContext(gl, display, config);
    const GLXPbuffer swapped = pbuffer();
    const GLXPbuffer destroyed = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, swapped, context));
    drawPicture(gl, Width, Height, 1);
    ASSERT_TRUE(gl.glXMakeCurrent(display, destroyed, context));
    gl.glXDestroyPbuffer(display, destroyed);
    gl.glXSwapBuffers(display, swapped);
    EXPECT_EQ(gl.glXGetCurrentContext(), context);
    EXPECT_EQ(gl.glXGetCurrentDrawable(), destroyed);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 0);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(swapped, 1), "");
    EXPECT_FALSE(isGone(swapped));
    ASSERT_TRUE(gl.glXMakeCurrent(display, swapped, context));
    EXPECT_TRUE(isGone(destroyed)) << "it dies when the last thread has left it";
}

TEST_F(Lifetime, AContextDestroyedWhileCurrentOutlivesASwap) {
    GLXContext context = makeContext(gl, display, config);
    const GLXPbuffer drawable = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
    drawPicture(gl, Width, Height, 2);
    gl.glXDestroyContext(display, context);
    gl.glXSwapBuffers(display, drawable);
    EXPECT_EQ(gl.glXGetCurrentContext(), context);
    drawPicture(gl, Width, Height, 3);
    gl.glXSwapBuffers(display, drawable);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(drawable, 3), "");
    EXPECT_EQ(errors.count(), 0);
    GLXContext another = makeContext(gl, display, config);
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, another));
    EXPECT_FALSE(gl.glXMakeCurrent(display, drawable, context)) << "it died when it was left";
}

TEST_F(Lifetime, AContextDestroyedWhileCurrentOutlivesBeingTakenAwayForAMoment) {
    GLXContext context = makeContext(gl, display, config);
    GLXContext reader = makeContext(gl, display, config);
    const GLXPbuffer drawable = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
    gl.glXDestroyContext(display, context);
    for (int seed = 4; seed < 7; seed++) {
        ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, reader));
        ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
        drawPicture(gl, Width, Height, seed);
        gl.glXSwapBuffers(display, drawable);
        EXPECT_EQ(frontDiffers(drawable, seed), "");
    }
    XSync(display, False);
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(Lifetime, AThreadThatEndsLeavesWhatItHadCurrent) {
    const GLXPbuffer drawable = pbuffer();
    std::thread([&] {
        GLXContext context = makeContext(gl, display, config);
        EXPECT_TRUE(gl.glXMakeCurrent(display, drawable, context));
        gl.glXDestroyPbuffer(display, drawable);
        gl.glXDestroyContext(display, context);
    }).join();
    ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer(), makeContext(gl, display, config)));
    EXPECT_TRUE(isGone(drawable));
}

TEST_F(Lifetime, ConnectionsComeAndGo) {
    for (int i = 0; i < 10; i++) {
        const Connection local;
        GLXFBConfig localConfig = chooseConfig(local, {.alpha = (i % 2) == 1});
        GLXContext context = makeContext(gl, local, localConfig);
        const GLXPbuffer drawable = makePbuffer(gl, local, localConfig, Width, Height);
        ASSERT_TRUE(gl.glXMakeCurrent(local, drawable, context));
        drawPicture(gl, Width, Height, i);
        gl.glXSwapBuffers(local, drawable);
        gl.glXMakeCurrent(local, None, nullptr);
        EXPECT_EQ(difference(readFront(local, localConfig, drawable, Width, Height),
                             pictureOf(Width, Height, i), Width),
                  "");
    }
    EXPECT_EQ(errors.count(), 0);
}

} // namespace
} // namespace kor::test
