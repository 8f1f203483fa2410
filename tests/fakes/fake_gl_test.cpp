// The fake itself: what tests rely on.

#include <gmock/gmock.h> // before X, whose macros it does not bear

#include "fake_gl.h"

#include <cstring>
#include <dlfcn.h>

using testing::ElementsAre;

namespace {

class FakeGl : public testing::Test {
  protected:
    FakeGl() : handle(dlopen(KOR_FAKE_GL_PATH, RTLD_NOW | RTLD_LOCAL)) {
        if (handle == nullptr)
            abort();
        gl = &fake::controls(handle);
        gl->reset();
    }

    template <typename F> F* function(const char* name) const {
        return reinterpret_cast<F*>(dlsym(handle, name));
    }

    void* handle;
    fake::Gl* gl;
};

#define FUNCTION(name) function<decltype(::name)>(#name)

} // namespace

TEST_F(FakeGl, RecordsOrderArgumentsAndThread) {
    FUNCTION(glBindTexture)(GL_TEXTURE_RECTANGLE, 7);
    FUNCTION(glFinish)();
    EXPECT_THAT(fake::texts(gl->calls()),
                ElementsAre("glBindTexture(GL_TEXTURE_RECTANGLE, 7)", "glFinish()"));
    EXPECT_EQ(gl->calls()[0].arguments[0], GL_TEXTURE_RECTANGLE);
    EXPECT_EQ(gl->calls()[0].thread, gettid());
}

TEST_F(FakeGl, ReadsAttributeLists) {
    const int list[] = {GLX_PBUFFER_WIDTH, 10, GLX_PRESERVED_CONTENTS, 0, 0};
    FUNCTION(glXCreatePbuffer)(nullptr, nullptr, list);
    EXPECT_THAT(gl->calls()[0].list, ElementsAre(GLX_PBUFFER_WIDTH, 10, GLX_PRESERVED_CONTENTS, 0));
}

TEST_F(FakeGl, LacksAFunction) {
    gl->lack("glClear");
    EXPECT_EQ(dlsym(handle, "glClear"), nullptr);
    EXPECT_NE(dlsym(handle, "glClearColor"), nullptr);
}

TEST_F(FakeGl, FailsAlwaysOrAtOneCall) {
    auto make = FUNCTION(glXMakeCurrent);
    gl->failCall("glXMakeCurrent", 2);
    EXPECT_TRUE(make(nullptr, 1, nullptr));
    EXPECT_FALSE(make(nullptr, 1, nullptr));
    EXPECT_TRUE(make(nullptr, 1, nullptr));
    gl->fail("glXMakeCurrent");
    EXPECT_FALSE(make(nullptr, 1, nullptr));
    EXPECT_FALSE(make(nullptr, 1, nullptr));
    gl->succeed("glXMakeCurrent");
    EXPECT_TRUE(make(nullptr, 1, nullptr));
}

TEST_F(FakeGl, KeepsTheCurrentContextOfTheThread) {
    auto context = FUNCTION(glXCreateNewContext)(nullptr, nullptr, 0, nullptr, True);
    FUNCTION(glXMakeCurrent)(nullptr, 5, context);
    EXPECT_EQ(FUNCTION(glXGetCurrentContext)(), context);
    EXPECT_EQ(FUNCTION(glXGetCurrentDrawable)(), 5U);
    FUNCTION(glXMakeCurrent)(nullptr, None, nullptr);
    EXPECT_EQ(FUNCTION(glXGetCurrentContext)(), nullptr);
}

TEST_F(FakeGl, PutsPixelsWhereThePackParametersSay) {
    gl->setPixels([](int x, int y) { return static_cast<uint32_t>(100 * y + x); });
    FUNCTION(glPixelStorei)(GL_PACK_ROW_LENGTH, 4);
    FUNCTION(glPixelStorei)(GL_PACK_SKIP_PIXELS, 1);
    FUNCTION(glPixelStorei)(GL_PACK_SKIP_ROWS, 1);
    uint32_t pixels[12];
    memset(pixels, 0, sizeof(pixels));
    FUNCTION(glReadPixels)(3, 5, 2, 2, GL_BGRA, GL_UNSIGNED_BYTE, pixels);
    EXPECT_THAT(pixels, ElementsAre(0, 0, 0, 0, 0, 503, 504, 0, 0, 603, 604, 0));
}

TEST_F(FakeGl, CallsAHandlerBeforeTheCallTakesEffect) {
    int seen = 0;
    gl->onCall("glFlush", [&](const fake::Call& call) { seen += call.name == "glFlush" ? 1 : 0; });
    FUNCTION(glFlush)();
    FUNCTION(glFinish)();
    EXPECT_EQ(seen, 1);
}
