// What the four ways of creating a context pass on to the driver and note of it, and what they do
// without a display.

#include "displays.h"

#include "context/context_map.h"
#include "core/tsd.h"
#include "visual/visual_map.h"

#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ContextCreation : public Displays {
  protected:
    const kor::gl::ContextInfo* record(GLXContext context) const {
        const kor::Lock lock(kor::gl::getContextMutex());
        return kor::gl::findContext(context);
    }

    /// The last call of that name, as text.
    std::string last(const std::string& name) const {
        const auto calls = gl.callsOf(name);
        return calls.empty() ? "" : calls.back().text;
    }

    GLXContext createOfVisual(VisualID id, GLXContext share, Bool direct) const {
        XVisualInfo visual = visualInfo(id);
        return kor_glXCreateContext(app, &visual, share, direct);
    }

    /// Lets the second local fbconfig be the best one of the double-buffered visual.
    void preferTheSecond() {
        localScript.configs[1].attributes[GLX_SAMPLES] = 4;
        localScript.extensions = "GLX_ARB_multisample";
        useScripts();
        set("KOR_GL_MULTISAMPLE", "-1");
    }

    const std::string forcingDirect = "trying to create an indirect context. Forcing direct.";
};

} // namespace

TEST_F(ContextCreation, TheRecordHoldsTheFbconfigThatWasPassedOn) {
    preferTheSecond();
    start();
    kor::gl::LocalVisualInfo* mapping = _getLVI(app, doubleVisual, nullptr);
    ASSERT_NE(mapping, nullptr);
    const GLXFBConfig asked = config("double1");
    const GLXFBConfig best = config("double2");
    for (const GLXContext context :
         {kor_glXCreateNewContext(app, asked, GLX_RGBA_TYPE, nullptr, True),
          kor_glXCreateContextAttribsARB(app, asked, nullptr, True, nullptr),
          createOfVisual(doubleVisual, nullptr, True)}) {
        ASSERT_NE(record(context), nullptr);
        EXPECT_EQ(record(context)->fbconfig, best);
        EXPECT_EQ(record(context)->visualInfo, mapping);
        EXPECT_EQ(record(context)->display, app);
        EXPECT_EQ(getFBConfig(context), best);
    }
    for (const fake::Call& call : gl.callsOf("glXCreateNewContext"))
        EXPECT_EQ(call.arguments[1], fake::word(best));
}

TEST_F(ContextCreation, AMappingWithoutFbconfigsForcesNoneAndServesNoVisual) {
    start();
    kor::gl::LocalVisualInfo* mapping = _getLVI(app, doubleVisual, nullptr);
    ASSERT_NE(mapping, nullptr);
    GLXFBConfig* const configs = std::exchange(mapping->localFbconfigs, nullptr);
    const int count = std::exchange(mapping->numLocalFbconfigs, 0);

    EXPECT_EQ(createOfVisual(doubleVisual, nullptr, True), nullptr);
    EXPECT_THAT(sayings("kor_glXCreateContext"),
                ElementsAre(format("visual id %x", static_cast<unsigned>(doubleVisual)),
                            "failed for local fbconfigs"));
    EXPECT_TRUE(said('D', "kor_glXCreateContext", "failed for local fbconfigs"));
    EXPECT_THAT(gl.callsOf("glXCreateNewContext"), IsEmpty());

    EXPECT_NE(kor_glXCreateNewContext(app, config("double2"), GLX_COLOR_INDEX_TYPE, nullptr, True),
              nullptr);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double2, %d, null, 1)", GLX_COLOR_INDEX_TYPE));
    EXPECT_THAT(sayings("kor_glXCreateNewContext"),
                ElementsAre(format("fbconfig b20, render type %d", GLX_COLOR_INDEX_TYPE)));
    EXPECT_NE(kor_glXCreateContextAttribsARB(app, config("double2"), nullptr, True, nullptr),
              nullptr);
    EXPECT_EQ(last("glXCreateContextAttribsARB"),
              "glXCreateContextAttribsARB(local, double2, null, 1, null)");
    EXPECT_THAT(sayings("kor_glXCreateContextAttribsARB"), ElementsAre("fbconfig b20"));
    kor_glXCreatePbuffer(app, config("double2"), nullptr);
    EXPECT_EQ(last("glXCreatePbuffer"), "glXCreatePbuffer(local, double2, null)");
    EXPECT_THAT(sayings("kor_glXCreatePbuffer"), ElementsAre("fbconfig b20"));

    mapping->localFbconfigs = configs;
    mapping->numLocalFbconfigs = count;
}

TEST_F(ContextCreation, EveryWayPassesTheShareThrough) {
    start();
    GLXContext first = makeContext("first");
    ASSERT_NE(first, nullptr);
    createOfVisual(doubleVisual, first, True);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double1, %d, first, 1)", GLX_RGBA_TYPE));
    kor_glXCreateContextAttribsARB(app, config("double1"), first, True, nullptr);
    EXPECT_EQ(last("glXCreateContextAttribsARB"),
              "glXCreateContextAttribsARB(local, double1, first, 1, null)");
}

TEST_F(ContextCreation, AnIndirectOneOfAVisualIsMadeDirectWithOneLine) {
    start();
    EXPECT_NE(createOfVisual(doubleVisual, nullptr, False), nullptr);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double1, %d, null, 1)", GLX_RGBA_TYPE));
    EXPECT_THAT(
        sayings("kor_glXCreateContext"),
        ElementsAre(format("visual id %x", static_cast<unsigned>(doubleVisual)), forcingDirect));
    EXPECT_EQ(timesSaid('I', "kor_glXCreateContext", forcingDirect), 1U);
    markLog();
    createOfVisual(doubleVisual, nullptr, True);
    EXPECT_EQ(timesSaid('I', "kor_glXCreateContext", forcingDirect), 0U);
}

TEST_F(ContextCreation, OfAttributesTakesTheApplicationsFbconfigWhenTheSettingSaysSo) {
    set("KOR_GL_FORCE_BEST_FBCONFIG", "0");
    start();
    GLXContext context =
        kor_glXCreateContextAttribsARB(app, config("double2"), nullptr, True, nullptr);
    EXPECT_EQ(last("glXCreateContextAttribsARB"),
              "glXCreateContextAttribsARB(local, double2, null, 1, null)");
    ASSERT_NE(record(context), nullptr);
    EXPECT_EQ(record(context)->fbconfig, config("double2"));
    EXPECT_THAT(sayings("kor_glXCreateContextAttribsARB"), ElementsAre("fbconfig b20"));
}

TEST_F(ContextCreation, TheOldNameForwardsEveryArgument) {
    set("KOR_GL_FORCE_BEST_FBCONFIG", "0");
    start();
    GLXContext first = makeContext("first");
    markLog();
    kor_glXCreateContextWithConfigSGIX(app, config("double2"), GLX_COLOR_INDEX_TYPE, first, False);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double2, %d, first, 1)", GLX_COLOR_INDEX_TYPE));
    EXPECT_THAT(sayings("kor_glXCreateContextWithConfigSGIX"), ElementsAre("START"));
    EXPECT_THAT(
        sayings("kor_glXCreateNewContext"),
        ElementsAre(format("fbconfig b20, render type %d", GLX_COLOR_INDEX_TYPE), forcingDirect));
}

TEST_F(ContextCreation, OnADisplayThatCannotBeSetUpNothingIsMadeWithoutAWord) {
    start();
    GLXContext context = makeContext("ctx");
    ASSERT_NE(context, nullptr);
    XVisualInfo visual = visualInfo(doubleVisual);
    gl.clearCalls();
    markLog();
    EXPECT_EQ(kor_glXCreateContext(nullptr, &visual, nullptr, True), nullptr);
    EXPECT_EQ(kor_glXCreateNewContext(nullptr, config("double1"), GLX_RGBA_TYPE, nullptr, True),
              nullptr);
    EXPECT_EQ(kor_glXCreateContextWithConfigSGIX(nullptr, config("double1"), GLX_RGBA_TYPE, nullptr,
                                                 True),
              nullptr);
    EXPECT_EQ(kor_glXCreateContextAttribsARB(nullptr, config("double1"), nullptr, True, nullptr),
              nullptr);
    kor_glXDestroyContext(nullptr, context);
    kor_glXCopyContext(nullptr, context, context, 0);
    EXPECT_FALSE(kor_glXIsDirect(nullptr, context));
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_NE(record(context), nullptr);
    EXPECT_THAT(sayings("kor_glXCreateContext"), testing::SizeIs(1));
    EXPECT_THAT(sayings("kor_glXCreateNewContext"), testing::SizeIs(2));
    EXPECT_THAT(sayings("kor_glXCreateContextAttribsARB"), testing::SizeIs(1));
    for (const char* function : {"kor_glXDestroyContext", "kor_glXCopyContext", "kor_glXIsDirect"})
        EXPECT_THAT(sayings(function), ElementsAre("START")) << function;
}

TEST_F(ContextCreation, WithoutALocalDisplayNothingIsMadeAndItIsSaid) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_EQ(createOfVisual(doubleVisual, nullptr, True), nullptr);
    EXPECT_EQ(makeContext("none"), nullptr);
    EXPECT_EQ(kor_glXCreateContextAttribsARB(app, config("double1"), nullptr, True, nullptr),
              nullptr);
    EXPECT_FALSE(kor_glXIsDirect(app, reinterpret_cast<GLXContext>(0x5550)));
    for (const char* function : {"kor_glXCreateContext", "kor_glXCreateNewContext",
                                 "kor_glXCreateContextAttribsARB", "kor_glXIsDirect"}) {
        EXPECT_TRUE(said('D', function, "no local display")) << function;
        EXPECT_THAT(sayings(function), testing::SizeIs(2)) << function;
    }
    EXPECT_THAT(gl.callsOf("glXCreateNewContext"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glXCreateContextAttribsARB"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glXIsDirect"), IsEmpty());
}

TEST_F(ContextCreation, CopyingTakesNothingButTheDrawBuffer) {
    start();
    GLXContext source = makeContext("source");
    GLXContext target = makeContext("target");
    {
        const kor::Lock lock(kor::gl::getContextMutex());
        kor::gl::ContextInfo* info = kor::gl::findContext(source);
        ASSERT_NE(info, nullptr);
        info->drawBuffer = GL_FRONT;
        info->renderMode = GL_SELECT;
        info->forceNextReadback = false;
        info->samplesQuery = 7;
    }
    kor_glXCopyContext(app, reinterpret_cast<GLXContext>(0x5550), target, ~0UL);
    EXPECT_EQ(last("glXCopyContext").rfind("glXCopyContext(local, 0x5550, target, ", 0), 0U);
    ASSERT_NE(record(target), nullptr);
    EXPECT_EQ(record(target)->drawBuffer, static_cast<GLenum>(GL_BACK));
    kor_glXCopyContext(app, source, target, ~0UL);
    EXPECT_EQ(record(target)->drawBuffer, static_cast<GLenum>(GL_FRONT));
    EXPECT_EQ(record(target)->renderMode, static_cast<GLenum>(GL_RENDER));
    EXPECT_TRUE(record(target)->forceNextReadback);
    EXPECT_EQ(record(target)->samplesQuery, 0U);
    EXPECT_EQ(record(target)->context, target);
}
