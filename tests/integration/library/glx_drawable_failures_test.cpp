// What the GLX drawable functions do without a display, without a mapping and when the driver
// refuses.

#include "displays.h"

#include "drawable/registry.h"

using testing::IsEmpty;
using testing::SizeIs;

namespace {

class GlxDrawableFailures : public Displays {
  protected:
    Pixmap makePixmap(int width, int height) const {
        return XCreatePixmap(app, DefaultRootWindow(app), width, height, 24);
    }
};

} // namespace

TEST_F(GlxDrawableFailures, APbufferThatTheDriverRefusesStillHasARecord) {
    start();
    gl.fail("glXCreatePbuffer");
    EXPECT_EQ(kor_glXCreatePbuffer(app, config("double1"), nullptr), None);
    EXPECT_TRUE(findLocalDrawable(None));
}

TEST_F(GlxDrawableFailures, AnSgixPbufferOrAPixmapThatTheDriverRefusesStillHasARecord) {
    start();
    gl.fail("glXCreateGLXPbufferSGIX");
    gl.fail("glXCreatePixmap");
    EXPECT_EQ(kor_glXCreateGLXPbufferSGIX(app, config("double1"), 5, 5, nullptr), None);
    kor::gl::DrawableRef record = findLocalDrawable(None);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->type, kor::gl::PbufferDrawable);
    const Pixmap pixmap = makePixmap(8, 8);
    EXPECT_EQ(kor_glXCreatePixmap(app, config("double1"), pixmap, nullptr), None);
    record = findLocalDrawable(None);
    EXPECT_EQ(record->type, kor::gl::PixmapDrawable);
    EXPECT_EQ(record->localDrawable.load(), None);
    EXPECT_EQ(record->appPixmap, pixmap);
    EXPECT_NE(record->localPixmap, None);
    XVisualInfo visual = visualInfo(doubleVisual);
    const Pixmap other = makePixmap(8, 8);
    EXPECT_EQ(kor_glXCreateGLXPixmap(app, &visual, other), None);
    EXPECT_EQ(findLocalDrawable(None)->appPixmap, other);
}

TEST_F(GlxDrawableFailures, WithoutAMappingNothingIsMade) {
    start();
    auto foreign = reinterpret_cast<GLXFBConfig>(0x7770);
    EXPECT_EQ(kor_glXCreatePbuffer(app, foreign, nullptr), None);
    EXPECT_TRUE(said('D', "kor_glXCreatePbuffer", "no lvi."));
    EXPECT_EQ(kor_glXCreateGLXPbufferSGIX(app, foreign, 1, 1, nullptr), None);
    EXPECT_TRUE(said('D', "kor_glXCreateGLXPbufferSGIX", "no lvi."));
    EXPECT_EQ(kor_glXCreatePixmap(app, foreign, makePixmap(8, 8), nullptr), None);
    EXPECT_TRUE(said('D', "kor_glXCreatePixmap", "no lvi."));
    XVisualInfo visual = visualInfo(lonelyVisual);
    EXPECT_EQ(kor_glXCreateGLXPixmap(app, &visual, makePixmap(8, 8)), None);
    EXPECT_TRUE(said('D', "kor_glXCreateGLXPixmap", "FAILED for no lvi."));
}

TEST_F(GlxDrawableFailures, WithoutALocalDisplayNothingIsMadeWithoutAWord) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_EQ(kor_glXCreatePbuffer(app, config("double1"), nullptr), None);
    EXPECT_EQ(kor_glXCreatePixmap(app, config("double1"), makePixmap(8, 8), nullptr), None);
    EXPECT_EQ(kor_glXCreateGLXPbufferSGIX(app, config("double1"), 5, 5, nullptr), None);
    XVisualInfo visual = visualInfo(doubleVisual);
    EXPECT_EQ(kor_glXCreateGLXPixmap(app, &visual, makePixmap(8, 8)), None);
    for (const char* function : {"kor_glXCreatePbuffer", "kor_glXCreatePixmap",
                                 "kor_glXCreateGLXPbufferSGIX", "kor_glXCreateGLXPixmap"})
        EXPECT_THAT(sayings(function), SizeIs(1)) << function;
    EXPECT_FALSE(findLocalDrawable(None));
    EXPECT_THAT(gl.calls(), IsEmpty());
    unsigned value = 7;
    EXPECT_EQ(kor_glXQueryGLXPbufferSGIX(app, 5, GLX_WIDTH, &value), 0);
    EXPECT_EQ(value, 0U);
}

TEST_F(GlxDrawableFailures, OnADisplayThatCannotBeSetUpNothingIsMadeOrDestroyed) {
    start();
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    const GLXPixmap pixmap = kor_glXCreatePixmap(app, config("double1"), makePixmap(8, 8), nullptr);
    XVisualInfo visual = visualInfo(doubleVisual);
    const Pixmap backing = makePixmap(8, 8);
    gl.clearCalls();
    EXPECT_EQ(kor_glXCreatePbuffer(nullptr, config("double1"), nullptr), None);
    EXPECT_EQ(kor_glXCreateGLXPbufferSGIX(nullptr, config("double1"), 5, 5, nullptr), None);
    EXPECT_EQ(kor_glXCreatePixmap(nullptr, config("double1"), backing, nullptr), None);
    EXPECT_EQ(kor_glXCreateGLXPixmap(nullptr, &visual, backing), None);
    EXPECT_EQ(kor_glXCreateGLXPixmapWithConfigSGIX(nullptr, config("double1"), backing), None);
    EXPECT_FALSE(findLocalDrawable(None));
    kor_glXDestroyPbuffer(nullptr, pbuffer);
    kor_glXDestroyGLXPbufferSGIX(nullptr, pbuffer);
    kor_glXDestroyPixmap(nullptr, pixmap);
    kor_glXDestroyGLXPixmap(nullptr, pixmap);
    EXPECT_TRUE(findLocalDrawable(pbuffer));
    EXPECT_TRUE(findLocalDrawable(pixmap));
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(GlxDrawableFailures, AQueryWithoutADisplayAnswersZero) {
    start();
    unsigned value = 7;
    kor_glXQueryDrawable(nullptr, 5, GLX_WIDTH, &value);
    EXPECT_EQ(value, 0U);
    value = 7;
    EXPECT_EQ(kor_glXQueryGLXPbufferSGIX(nullptr, 5, GLX_WIDTH, &value), 0);
    EXPECT_EQ(value, 0U);
    EXPECT_THAT(gl.calls(), IsEmpty());
}
