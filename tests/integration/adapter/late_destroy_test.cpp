#include "framework/wait_until.h"
#include "local_display_test.h"

#include <fstream>
#include <future>
#include <thread>
#include <vector>

namespace kor::test {
namespace {

constexpr int Width = 24;
constexpr int Height = 16;

int attachedSegments() {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("SYSV") != std::string::npos ? 1 : 0;
    return count;
}

/// Pbuffers of a software driver that are ended and made anew as the library does it.
class LateDestroy : public testing::Test {
  protected:
    ~LateDestroy() override { gl.glXMakeCurrent(display, None, nullptr); }

    GLXPbuffer pbuffer(int width = Width, int height = Height) {
        return makePbuffer(gl, display, config, width, height);
    }
    std::string frontDiffers(GLXDrawable drawable, int seed) {
        return difference(readFront(display, config, drawable, Width, Height),
                          pictureOf(Width, Height, seed), Width);
    }
    bool isGone(GLXDrawable drawable) {
        const int before = errors.count();
        unsigned width = 0;
        directGl().glXQueryDrawable(display, drawable, GLX_WIDTH, &width);
        XSync(display, False);
        return errors.count() > before;
    }
    void frame(GLXPbuffer drawable, int seed) const {
        drawPicture(gl, Width, Height, seed);
        gl.glXSwapBuffers(display, drawable);
    }

    const GlTable& gl = adaptedGl();
    ErrorCounter errors;
    Connection display;
    GLXFBConfig config = chooseConfig(display, {});
    GLXContext context = makeContext(gl, display, config);
};

TEST_F(LateDestroy, ResizesEndWithTheSegmentsThatTheyBeganWith) {
    GLXPbuffer drawable = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
    frame(drawable, 1);
    const int before = attachedSegments();
    for (int i = 1; i <= 100; i++) {
        gl.glXMakeCurrent(display, None, nullptr);
        gl.glXDestroyPbuffer(display, drawable);
        drawable = pbuffer(100 + i % 7, 100 + i % 5);
        ASSERT_TRUE(gl.glXMakeContextCurrent(display, drawable, drawable, context));
        frame(drawable, i);
    }
    EXPECT_LE(attachedSegments(), before + 6);
    gl.glXMakeCurrent(display, None, nullptr);
}

TEST_F(LateDestroy, ResizesWithoutAFrameEndWithTheSegmentsThatTheyBeganWith) {
    GLXPbuffer drawable = pbuffer();
    const int before = attachedSegments();
    for (int i = 1; i <= 100; i++) {
        ASSERT_TRUE(gl.glXMakeContextCurrent(display, drawable, drawable, context));
        drawPicture(gl, Width, Height, i);
        gl.glXMakeCurrent(display, None, nullptr);
        gl.glXDestroyPbuffer(display, drawable);
        drawable = pbuffer(100 + i % 7, 100 + i % 5);
    }
    EXPECT_LE(attachedSegments(), before + 8);
}

TEST_F(LateDestroy, WindowsInTurnEndWithTheSegmentsThatTheyBeganWith) {
    const int before = attachedSegments();
    for (int i = 0; i < 50; i++) {
        const GLXPbuffer dummy = pbuffer(10, 10);
        const GLXPbuffer drawable = pbuffer();
        GLXContext reader = makeContext(gl, display, config);
        ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
        frame(drawable, i);
        ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, reader));
        ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
        gl.glXMakeCurrent(display, None, nullptr);
        gl.glXDestroyPbuffer(display, drawable);
        gl.glXDestroyPbuffer(display, dummy);
        gl.glXDestroyContext(display, reader);
    }
    EXPECT_LE(attachedSegments(), before + 12);
}

TEST_F(LateDestroy, ManyThatEndTogetherLeaveAsManySegmentsAtEachTime) {
    int first = 0;
    for (int i = 0; i < 12; i++) {
        std::vector<GLXPbuffer> drawables;
        for (int window = 0; window < 30; window++) {
            drawables.push_back(pbuffer(100 + i, 100 + window));
            ASSERT_TRUE(gl.glXMakeCurrent(display, drawables.back(), context));
            frame(drawables.back(), i);
        }
        gl.glXMakeCurrent(display, None, nullptr);
        for (const GLXPbuffer drawable : drawables)
            gl.glXDestroyPbuffer(display, drawable);
        if (i == 0)
            first = attachedSegments();
    }
    EXPECT_LE(attachedSegments(), first + 3);
}

TEST_F(LateDestroy, ADestroyedDrawableIsGoneWhenItsThreadHasAContextCurrentElsewhere) {
    const GLXPbuffer first = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, first, context));
    gl.glXMakeCurrent(display, None, nullptr);
    gl.glXDestroyPbuffer(display, first);
    EXPECT_FALSE(isGone(first));
    const GLXPbuffer second = pbuffer(Width + 1);
    EXPECT_FALSE(isGone(first));
    ASSERT_TRUE(gl.glXMakeCurrent(display, second, context));
    EXPECT_TRUE(isGone(first));
    EXPECT_FALSE(isGone(second));
}

TEST_F(LateDestroy, TheLibrarysPixmapGoesWithItsGlxPixmap) {
    const auto exists = [&](Pixmap pixmap) {
        Window root = None;
        int place = 0;
        unsigned size = 0;
        return XGetGeometry(display, pixmap, &root, &place, &place, &size, &size, &size, &size) !=
               0;
    };
    const GLXFBConfig forPixmaps = chooseConfig(display, {.drawableType = GLX_PIXMAP_BIT});
    const Pixmap pixmap =
        XCreatePixmap(display, DefaultRootWindow(static_cast<Display*>(display)), 8, 8, 24);
    const GLXPixmap drawable = gl.glXCreatePixmap(display, forPixmaps, pixmap, nullptr);
    ASSERT_NE(drawable, GLXPixmap{None});
    gl.glXDestroyPixmap(display, drawable);
    EXPECT_TRUE(exists(pixmap)) << "as the GLX pixmap does for a while";
    ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer(), context));
    EXPECT_FALSE(exists(pixmap));
    EXPECT_EQ(errors.count(), 1) << "that of the question whether it is gone";
}

TEST_F(LateDestroy, MadeAgainInARowItIsTheSameAndKeepsItsPicture) {
    const GLXPbuffer drawable = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
    drawPicture(gl, Width, Height, 5); // not swapped
    gl.glXMakeCurrent(display, None, nullptr);
    gl.glXDestroyPbuffer(display, drawable);
    EXPECT_EQ(pbuffer(), drawable);
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
    gl.glXSwapBuffers(display, drawable);
    EXPECT_FALSE(isGone(drawable));
    EXPECT_EQ(frontDiffers(drawable, 5), "");
    gl.glXDestroyPbuffer(display, drawable);
    ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer(), context));
    EXPECT_TRUE(isGone(drawable)) << "the second end is as good as the first";
    EXPECT_EQ(errors.count(), 1) << "that of the question whether it is gone";
}

TEST_F(LateDestroy, MadeAgainWithAnotherSizeConfigOrWishItIsAnother) {
    const auto madeAfter = [&](const auto& make) {
        const GLXPbuffer destroyed = pbuffer();
        gl.glXDestroyPbuffer(display, destroyed);
        const GLXPbuffer made = make();
        EXPECT_NE(made, GLXPbuffer{None});
        return made == destroyed;
    };
    EXPECT_TRUE(madeAfter([&] { return pbuffer(); }));
    EXPECT_FALSE(madeAfter([&] { return pbuffer(Width, Height + 1); }));
    EXPECT_FALSE(madeAfter([&] {
        return makePbuffer(gl, display, chooseConfig(display, {.samples = 4}), Width, Height);
    }));
    EXPECT_FALSE(madeAfter([&] {
        const int largest[] = {GLX_PBUFFER_WIDTH,
                               Width,
                               GLX_PBUFFER_HEIGHT,
                               Height,
                               GLX_PRESERVED_CONTENTS,
                               True,
                               GLX_LARGEST_PBUFFER,
                               True,
                               None};
        return gl.glXCreatePbuffer(display, config, largest);
    }));
}

TEST_F(LateDestroy, MadeAgainAfterAnotherCallItIsAnother) {
    const GLXPbuffer current = pbuffer(Width + 1);
    const auto madeAfter = [&](const auto& between) {
        const GLXPbuffer destroyed = pbuffer();
        gl.glXDestroyPbuffer(display, destroyed);
        between();
        return pbuffer() == destroyed;
    };
    EXPECT_FALSE(madeAfter([&] { gl.glXMakeCurrent(display, current, context); }));
    EXPECT_FALSE(madeAfter([&] { gl.glXSwapBuffers(display, current); }));
    EXPECT_FALSE(madeAfter([&] { pbuffer(Width, Height + 1); }));
    EXPECT_FALSE(
        madeAfter([&] { gl.glXDestroyContext(display, makeContext(gl, display, config)); }));
}

TEST_F(LateDestroy, WhileItIsCurrentAnywhereItIsNotGivenBack) {
    const GLXPbuffer drawable = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
    gl.glXDestroyPbuffer(display, drawable);
    EXPECT_NE(pbuffer(), drawable);
    std::thread([&] {
        gl.glXDestroyPbuffer(display, drawable);
        EXPECT_NE(pbuffer(), drawable);
    }).join();
}

TEST_F(LateDestroy, DestroyedWhileCurrentItIsNotGivenBackAfterItWasLeft) {
    const GLXPbuffer drawable = pbuffer();
    ASSERT_TRUE(gl.glXMakeCurrent(display, drawable, context));
    gl.glXDestroyPbuffer(display, drawable);
    gl.glXMakeCurrent(display, None, nullptr);
    EXPECT_NE(pbuffer(), drawable);
}

TEST_F(LateDestroy, WhatAnEndedThreadLeftGoesWithTheNextThreadsContext) {
    GLXPbuffer left = None;
    std::thread([&] {
        left = pbuffer();
        gl.glXDestroyPbuffer(display, left);
    }).join();
    EXPECT_FALSE(isGone(left));
    ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer(Width + 1), context));
    EXPECT_TRUE(isGone(left));
}

TEST_F(LateDestroy, WhatAThreadLeftThatMakesNothingCurrentAnyMoreGoesWithTheContextOfAnother) {
    const GLXPbuffer mine = pbuffer(Width + 1);
    GLXPbuffer left = None;
    GLXPbuffer current = None;
    std::promise<void> isLeft;
    std::promise<void> end;
    std::thread thread([&] {
        current = pbuffer();
        const GLXContext theirs = makeContext(gl, display, config);
        EXPECT_TRUE(gl.glXMakeCurrent(display, current, theirs));
        left = pbuffer(Width + 2);
        gl.glXDestroyPbuffer(display, left);
        gl.glXDestroyPbuffer(display, current);
        isLeft.set_value();
        end.get_future().wait();
        frame(current, 1); // it is still there for its thread
        gl.glXMakeCurrent(display, None, nullptr);
    });
    isLeft.get_future().wait();
    ASSERT_TRUE(gl.glXMakeCurrent(display, mine, context));
    EXPECT_FALSE(isGone(left)) << "at first";
    EXPECT_TRUE(waitUntil([&] {
        gl.glXMakeCurrent(display, mine, context);
        return isGone(left);
    }));
    EXPECT_FALSE(isGone(current));
    end.set_value();
    thread.join();
}

} // namespace
} // namespace kor::test
