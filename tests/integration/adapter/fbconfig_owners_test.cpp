#include "local_display_test.h"

#include <map>

namespace kor::test {
namespace {

/// An fbconfig that was found on one connection, used on another to the same server: so the library
/// does, which pairs visuals and configs once for all its local connections.
class ForeignFbconfig : public testing::Test {
  protected:
    static int idOf(const GlTable& gl, Display* display, GLXFBConfig config) {
        int id = 0;
        return gl.glXGetFBConfigAttrib(display, config, GLX_FBCONFIG_ID, &id) == Success ? id : 0;
    }

    const GlTable& gl = adaptedGl();
    ErrorCounter errors;
    Connection first;
    Connection second;
    GLXFBConfig config = chooseConfig(first, {});
};

TEST_F(ForeignFbconfig, IsRefusedWithoutTheAdapter) {
    EXPECT_EQ(directGl().glXCreateNewContext(second, config, GLX_RGBA_TYPE, nullptr, True),
              nullptr);
    XSync(second, False);
    EXPECT_EQ(errors.count(), 1);
}

TEST_F(ForeignFbconfig, MakesContextsAndPbuffersThatFitTogether) {
    const GLXContext context = gl.glXCreateNewContext(second, config, GLX_RGBA_TYPE, nullptr, True);
    ASSERT_NE(context, nullptr);
    const GLXPbuffer pbuffer = makePbuffer(gl, second, config, 20, 12);
    ASSERT_TRUE(gl.glXMakeCurrent(second, pbuffer, context));
    drawPicture(gl, 20, 12, 1);
    gl.glXSwapBuffers(second, pbuffer);
    EXPECT_EQ(difference(readFront(second, chooseConfig(second, {}), pbuffer, 20, 12),
                         pictureOf(20, 12, 1), 20),
              "");
    gl.glXDestroyContext(second, context);
    XSync(second, False);
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(ForeignFbconfig, MakesContextsWithAttributes) {
    const int attributes[] = {GLX_CONTEXT_MAJOR_VERSION_ARB, 3, GLX_CONTEXT_MINOR_VERSION_ARB, 3,
                              None};
    const GLXContext context =
        gl.glXCreateContextAttribsARB(second, config, nullptr, True, attributes);
    EXPECT_NE(context, nullptr);
    if (context != nullptr)
        gl.glXDestroyContext(second, context);
    XSync(second, False);
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(ForeignFbconfig, AnswersQuestions) {
    const int id = idOf(gl, first, config);
    EXPECT_NE(id, 0);
    EXPECT_EQ(idOf(gl, second, config), id);
    EXPECT_EQ(idOf(directGl(), second, config), 0) << "the driver would mind";
    XVisualInfo* const visual = gl.glXGetVisualFromFBConfig(second, config);
    ASSERT_NE(visual, nullptr);
    XFree(visual);
}

TEST_F(ForeignFbconfig, IsTheSameOneOnEveryConnectionAlsoAfterItsOwnIsClosed) {
    const auto getAll = [&](Display* display) {
        std::map<GLXFBConfig, int> all;
        int count = 0;
        GLXFBConfig* const configs = gl.glXGetFBConfigs(display, DefaultScreen(display), &count);
        for (int i = 0; i < count; ++i)
            all[configs[i]] = idOf(gl, display, configs[i]);
        XFree(configs);
        return all;
    };
    const std::map<GLXFBConfig, int> before = getAll(first);
    ASSERT_GT(before.size(), 10U);
    EXPECT_EQ(getAll(second), before);
    // Addresses of closed connections come back, and belong to other configs then.
    for (int i = 0; i < 4; ++i) {
        const Connection another;
        EXPECT_EQ(getAll(another), before);
        for (const auto& [handle, id] : before)
            EXPECT_EQ(idOf(gl, another, handle), id);
    }
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(ForeignFbconfig, UnknownOnesArePassedOn) {
    int unknown = 0;
    EXPECT_EQ(idOf(gl, second, reinterpret_cast<GLXFBConfig>(&unknown)), 0);
}

} // namespace
} // namespace kor::test
