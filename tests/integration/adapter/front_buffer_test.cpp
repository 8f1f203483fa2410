#include "local_display_test.h"

#include <tuple>

namespace kor::test {
namespace {

constexpr int Width = 40;
constexpr int Height = 30;

const char* nameOf(Profile profile) {
    switch (profile) {
    case Profile::Compatibility:
        return "Compatibility";
    case Profile::Core:
        return "Core";
    case Profile::Es2:
        return "Es2";
    case Profile::Es3:
        return "Es3";
    }
    return "";
}

/// Every kind of context on every kind of config.
class FrontBuffer : public testing::TestWithParam<std::tuple<Profile, int, bool>> {};

Picture frontAfterSwap(const GlTable& gl, bool adapted, Profile profile, const ConfigWish& wish) {
    const ErrorCounter errors; // without the adapter, a config with alpha meets one
    const Connection display(adapted);
    GLXFBConfig config = chooseConfig(display, wish);
    GLXContext context = makeContext(gl, display, config, profile);
    const GLXPbuffer pbuffer = makePbuffer(gl, display, config, Width, Height);
    EXPECT_TRUE(config && context && pbuffer);
    EXPECT_TRUE(gl.glXMakeCurrent(display, pbuffer, context));
    drawPicture(gl, Width, Height, 1);
    gl.glXSwapBuffers(display, pbuffer);
    EXPECT_EQ(gl.glXGetCurrentContext(), context);
    EXPECT_EQ(gl.glXGetCurrentDrawable(), pbuffer);
    EXPECT_EQ(gl.glXGetCurrentReadDrawable(), pbuffer);
    drawPicture(gl, Width, Height, 2); // not swapped: must not show
    EXPECT_EQ(gl.glGetError(), GLenum{GL_NO_ERROR});
    gl.glFinish();
    gl.glXMakeCurrent(display, None, nullptr);
    Picture front = readFront(display, config, pbuffer, Width, Height);
    gl.glXDestroyPbuffer(display, pbuffer);
    gl.glXDestroyContext(display, context);
    XSync(display, False);
    if (adapted) {
        EXPECT_EQ(errors.count(), 0);
    }
    return front;
}

TEST_P(FrontBuffer, HoldsTheSwappedPicture) {
    const auto [profile, samples, alpha] = GetParam();
    const ConfigWish wish{.samples = samples, .alpha = alpha};
    const Picture wanted = pictureOf(Width, Height, 1);
    EXPECT_NE(frontAfterSwap(directGl(), false, profile, wish), wanted)
        << "this driver keeps front buffers: it cannot show that the adapter mends them";
    EXPECT_EQ(difference(frontAfterSwap(adaptedGl(), true, profile, wish), wanted, Width), "");
}

INSTANTIATE_TEST_SUITE_P(Contexts, FrontBuffer,
                         testing::Combine(testing::Values(Profile::Compatibility, Profile::Core,
                                                          Profile::Es2, Profile::Es3),
                                          testing::Values(0, 4), testing::Values(false, true)),
                         [](const auto& info) {
                             return std::string(nameOf(std::get<0>(info.param))) +
                                    (std::get<1>(info.param) ? "Multisampled" : "") +
                                    (std::get<2>(info.param) ? "WithAlpha" : "");
                         });

/// One connection and config, through the adapter.
class FrontBufferCase : public testing::Test {
  protected:
    Picture front(GLXDrawable drawable) {
        return readFront(display, config, drawable, Width, Height);
    }
    std::string frontDiffers(GLXDrawable drawable, int seed) {
        return difference(front(drawable), pictureOf(Width, Height, seed), Width);
    }
    GLXPbuffer pbuffer() { return makePbuffer(gl, display, config, Width, Height); }
    GLXContext context(GLXContext share = nullptr) {
        return makeContext(gl, display, config, Profile::Compatibility, share);
    }

    const GlTable& gl = adaptedGl();
    ErrorCounter errors;
    Connection display;
    GLXFBConfig config = chooseConfig(display, {});
};

TEST_F(FrontBufferCase, SwapOfAnotherDrawableThanTheCurrent) {
    const GLXPbuffer swapped = pbuffer();
    const GLXPbuffer drawn = pbuffer();
    const GLXPbuffer read = pbuffer();
    GLXContext one = context();
    ASSERT_TRUE(gl.glXMakeCurrent(display, swapped, one));
    drawPicture(gl, Width, Height, 1);
    ASSERT_TRUE(gl.glXMakeContextCurrent(display, drawn, read, one));
    drawPicture(gl, Width, Height, 2);
    gl.glXSwapBuffers(display, swapped);
    EXPECT_EQ(gl.glXGetCurrentContext(), one);
    EXPECT_EQ(gl.glXGetCurrentDisplay(), static_cast<Display*>(display));
    EXPECT_EQ(gl.glXGetCurrentDrawable(), drawn);
    EXPECT_EQ(gl.glXGetCurrentReadDrawable(), read);
    gl.glXSwapBuffers(display, drawn);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(swapped, 1), "");
    EXPECT_EQ(frontDiffers(drawn, 2), "");
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(FrontBufferCase, SwapWithNothingCurrent) {
    const GLXPbuffer drawable = pbuffer();
    GLXContext one = context();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
    drawPicture(gl, Width, Height, 3);
    ASSERT_TRUE(gl.glXMakeCurrent(display, None, nullptr));
    gl.glXSwapBuffers(display, drawable);
    EXPECT_EQ(gl.glXGetCurrentContext(), nullptr);
    EXPECT_EQ(gl.glXGetCurrentDrawable(), GLXDrawable{None});
    EXPECT_EQ(frontDiffers(drawable, 3), "");
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(FrontBufferCase, SwapWhileAnotherConnectionIsCurrent) {
    const GLXPbuffer drawable = pbuffer();
    GLXContext one = context();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
    drawPicture(gl, Width, Height, 4);
    const XServer secondServer(localServer());
    const Connection second(true, secondServer.name());
    GLXFBConfig secondConfig = chooseConfig(second, {});
    const GLXPbuffer secondDrawable = makePbuffer(gl, second, secondConfig, Width, Height);
    GLXContext secondContext = makeContext(gl, second, secondConfig);
    ASSERT_TRUE(gl.glXMakeCurrent(second, secondDrawable, secondContext));
    drawPicture(gl, Width, Height, 5);
    gl.glXSwapBuffers(display, drawable);
    EXPECT_EQ(gl.glXGetCurrentDisplay(), static_cast<Display*>(second));
    EXPECT_EQ(gl.glXGetCurrentContext(), secondContext);
    EXPECT_EQ(gl.glXGetCurrentDrawable(), secondDrawable);
    gl.glXSwapBuffers(second, secondDrawable);
    gl.glXMakeCurrent(second, None, nullptr);
    EXPECT_EQ(frontDiffers(drawable, 4), "");
    EXPECT_EQ(difference(readFront(second, secondConfig, secondDrawable, Width, Height),
                         pictureOf(Width, Height, 5), Width),
              "");
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(FrontBufferCase, ContextThatIsNotFlushedWhenItIsReleased) {
    const int attributes[] = {GLX_CONTEXT_RELEASE_BEHAVIOR_ARB,
                              GLX_CONTEXT_RELEASE_BEHAVIOR_NONE_ARB, None};
    const GLXPbuffer drawable = pbuffer();
    GLXContext one = gl.glXCreateContextAttribsARB(display, config, nullptr, True, attributes);
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
    drawPicture(gl, Width, Height, 12);
    gl.glXSwapBuffers(display, drawable);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(drawable, 12), "");
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(FrontBufferCase, SharedContexts) {
    const GLXPbuffer first = pbuffer();
    const GLXPbuffer second = pbuffer();
    GLXContext owner = context();
    GLXContext sharer = context(owner);
    // The owner swaps one drawable and leaves a picture in a texture; the sharer shows the texture.
    GLuint texture = 0;
    GLuint framebuffer = 0;
    ASSERT_TRUE(gl.glXMakeCurrent(display, first, owner));
    gl.glGenTextures(1, &texture);
    gl.glBindTexture(GL_TEXTURE_2D, texture);
    gl.glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, Width, Height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                    pictureOf(Width, Height, 6).data());
    drawPicture(gl, Width, Height, 7);
    gl.glXSwapBuffers(display, first);
    gl.glFinish();
    ASSERT_TRUE(gl.glXMakeCurrent(display, second, sharer));
    gl.glGenFramebuffers(1, &framebuffer);
    gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    gl.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    gl.glBlitFramebuffer(0, 0, Width, Height, 0, 0, Width, Height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    gl.glXSwapBuffers(display, second);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(first, 7), "");
    EXPECT_EQ(frontDiffers(second, 6), "");
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(FrontBufferCase, StateOfTheApplicationIsUntouched) {
    const GLXPbuffer drawable = pbuffer();
    GLXContext one = context();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
    drawPicture(gl, Width, Height, 8);
    GLuint framebuffer = 0;
    gl.glGenFramebuffers(1, &framebuffer);
    gl.glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    gl.glEnable(GL_SCISSOR_TEST);
    gl.glScissor(3, 4, 5, 6);
    gl.glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    gl.glXSwapBuffers(display, drawable);
    GLint draw = 0;
    GLint read = 0;
    GLint viewport[4] = {};
    GLint box[4] = {};
    gl.glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &draw);
    gl.glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &read);
    gl.glGetIntegerv(GL_VIEWPORT, viewport);
    gl.glGetIntegerv(GL_SCISSOR_BOX, box);
    EXPECT_EQ(draw, static_cast<GLint>(framebuffer));
    EXPECT_EQ(read, static_cast<GLint>(framebuffer));
    EXPECT_EQ(viewport[2], Width);
    EXPECT_EQ(viewport[3], Height);
    EXPECT_EQ(box[2], 5);
    EXPECT_TRUE(gl.glIsEnabled(GL_SCISSOR_TEST));
    gl.glBindFramebuffer(GL_FRAMEBUFFER, 0);
    gl.glGetIntegerv(GL_DRAW_BUFFER, &draw);
    gl.glGetIntegerv(GL_READ_BUFFER, &read);
    EXPECT_EQ(draw, GL_BACK);
    EXPECT_EQ(read, GL_BACK);
    EXPECT_EQ(gl.glGetError(), GLenum{GL_NO_ERROR});
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(drawable, 8), "") << "a scissor or mask must not cut the copy";
}

TEST_F(FrontBufferCase, SeveralFramesOfSeveralSizes) {
    GLXContext one = context();
    for (const int size : {10, 31, 200}) {
        const GLXPbuffer drawable = makePbuffer(gl, display, config, size, size + 1);
        ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
        for (int frame = 0; frame < 3; frame++) {
            ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
            drawPicture(gl, size, size + 1, frame);
            gl.glXSwapBuffers(display, drawable);
            EXPECT_EQ(difference(readFront(display, config, drawable, size, size + 1),
                                 pictureOf(size, size + 1, frame), size),
                      "");
        }
        gl.glXDestroyPbuffer(display, drawable);
    }
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(FrontBufferCase, PbufferOfTheOlderExtension) {
    ASSERT_TRUE(gl.glXCreateGLXPbufferSGIX);
    const GLXPbuffer drawable = gl.glXCreateGLXPbufferSGIX(display, config, Width, Height, nullptr);
    GLXContext one = context();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
    drawPicture(gl, Width, Height, 9);
    gl.glXSwapBuffers(display, drawable);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(drawable, 9), "");
    gl.glXDestroyGLXPbufferSGIX(display, drawable);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(FrontBufferCase, SingleBufferedNeedsNoHelp) {
    config = chooseConfig(display, {.doubleBuffered = false});
    ASSERT_TRUE(config);
    const GLXPbuffer drawable = pbuffer();
    GLXContext one = context();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
    drawPicture(gl, Width, Height, 10);
    gl.glFinish();
    gl.glXSwapBuffers(display, drawable);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(drawable, 10), "");
}

TEST_F(FrontBufferCase, DoubleBufferedPixmap) {
    config = chooseConfig(display, {.drawableType = GLX_PIXMAP_BIT});
    ASSERT_TRUE(config);
    const Pixmap pixmap = XCreatePixmap(display, DefaultRootWindow(static_cast<Display*>(display)),
                                        Width, Height, 24);
    const GLXPixmap drawable = gl.glXCreatePixmap(display, config, pixmap, nullptr);
    GLXContext one = context();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, one));
    drawPicture(gl, Width, Height, 11);
    gl.glXSwapBuffers(display, drawable);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_EQ(frontDiffers(drawable, 11), "");
    gl.glXDestroyPixmap(display, drawable);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 0);
}

} // namespace
} // namespace kor::test
