#include "local_display_test.h"

namespace kor::test {
namespace {

/// What a make-current of a drawable without a context does to a thread that has one.
class ReleaseWithoutContext : public testing::Test {
  protected:
    void makeCurrent() {
        ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer, context));
        ASSERT_EQ(gl.glXGetCurrentContext(), context);
    }

    const GlTable& gl = adaptedGl();
    ErrorCounter errors;
    Connection display;
    GLXFBConfig config = chooseConfig(display, {});
    GLXContext context = makeContext(gl, display, config);
    GLXPbuffer pbuffer = makePbuffer(gl, display, config, 10, 10);
};

TEST_F(ReleaseWithoutContext, IsBadMatchWithoutTheAdapter) {
    makeCurrent();
    EXPECT_FALSE(directGl().glXMakeCurrent(display, pbuffer, nullptr));
    XSync(display, False);
    EXPECT_EQ(errors.count(), 1);
    EXPECT_EQ(errors.last().error_code, BadMatch);
    EXPECT_EQ(gl.glXGetCurrentContext(), context);
    gl.glXMakeCurrent(display, None, nullptr);
}

TEST_F(ReleaseWithoutContext, IsAReleaseWithTheAdapter) {
    makeCurrent();
    EXPECT_TRUE(gl.glXMakeCurrent(display, pbuffer, nullptr));
    EXPECT_EQ(gl.glXGetCurrentContext(), nullptr);
    EXPECT_EQ(gl.glXGetCurrentDrawable(), GLXDrawable{None});
    XSync(display, False);
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(ReleaseWithoutContext, IsAReleaseWithAReadDrawableToo) {
    makeCurrent();
    EXPECT_TRUE(gl.glXMakeContextCurrent(display, pbuffer, pbuffer, nullptr));
    EXPECT_EQ(gl.glXGetCurrentContext(), nullptr);
    EXPECT_TRUE(gl.glXMakeContextCurrent(display, None, pbuffer, nullptr));
    EXPECT_EQ(gl.glXGetCurrentContext(), nullptr);
    XSync(display, False);
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(ReleaseWithoutContext, IsTrueWhenNothingIsCurrent) {
    EXPECT_TRUE(gl.glXMakeCurrent(display, pbuffer, nullptr));
    XSync(display, False);
    EXPECT_EQ(errors.count(), 0);
}

} // namespace
} // namespace kor::test
