// Creating, destroying, copying and asking contexts.

#include "displays.h"

#include "context/context_map.h"
#include "context/debug_callback.h"
#include "core/tsd.h"

#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Contexts : public Displays {
  protected:
    kor::gl::ContextInfo* record(GLXContext context) const {
        const kor::Lock lock(kor::gl::getContextMutex());
        return kor::gl::findContext(context);
    }

    /// The last call of that name, as text.
    std::string last(const std::string& name) const {
        const auto calls = gl.callsOf(name);
        return calls.empty() ? "" : calls.back().text;
    }
};

} // namespace

TEST_F(Contexts, AreCreatedOnTheLocalDisplayWithTheBestFbconfig) {
    start();
    GLXContext context =
        kor_glXCreateNewContext(app, config("double2"), GLX_COLOR_INDEX_TYPE, nullptr, True);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double1, %d, null, 1)", GLX_RGBA_TYPE));
    EXPECT_THAT(sayings("kor_glXCreateNewContext"),
                ElementsAre(format("fbconfig b20, render type %d", GLX_COLOR_INDEX_TYPE),
                            format("forcing fbconfig b10, render type %d", GLX_RGBA_TYPE)));
    EXPECT_TRUE(
        said('D', "addToContextMap",
             format("added context %x to the map.", static_cast<unsigned>(fake::word(context)))));
}

TEST_F(Contexts, TheApplicationsFbconfigIsUsedWhenTheSettingSaysSo) {
    set("KOR_GL_FORCE_BEST_FBCONFIG", "0");
    start();
    kor_glXCreateNewContext(app, config("double2"), GLX_COLOR_INDEX_TYPE, nullptr, True);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double2, %d, null, 1)", GLX_COLOR_INDEX_TYPE));
}

TEST_F(Contexts, TheRecordStartsAsTheVisualSays) {
    start();
    GLXContext twice = makeContext("twice");
    kor::gl::ContextInfo* info = record(twice);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->display, app);
    EXPECT_EQ(info->context, twice);
    EXPECT_EQ(info->fbconfig, config("double1"));
    EXPECT_EQ(info->drawBuffer, static_cast<GLenum>(GL_BACK));
    EXPECT_EQ(info->renderMode, static_cast<GLenum>(GL_RENDER));
    EXPECT_EQ(info->samplesQuery, 0U);
    EXPECT_TRUE(info->forceNextReadback);
    EXPECT_FALSE(info->current);
    EXPECT_FALSE(info->destroyed);
    EXPECT_FALSE(info->debugCallbackRegistered);
    GLXContext once = makeContext("once", config("single"));
    EXPECT_EQ(record(once)->drawBuffer, static_cast<GLenum>(GL_FRONT));
}

TEST_F(Contexts, OnlyTheFirstOfAThreadIsItsSpareOne) {
    start();
    GLXContext first = makeContext("first");
    makeContext("second");
    EXPECT_EQ(getTSD()->throwawayContext, first);
}

TEST_F(Contexts, AnIndirectRequestGivesADirectContextAndOneLine) {
    start();
    kor_glXCreateNewContext(app, config("double1"), GLX_RGBA_TYPE, nullptr, False);
    EXPECT_EQ(timesSaid('I', "kor_glXCreateNewContext",
                        "trying to create an indirect context. Forcing direct."),
              1U);
    EXPECT_EQ(gl.callsOf("glXCreateNewContext").back().arguments[4], 1U);
}

TEST_F(Contexts, SharesArePassedThrough) {
    start();
    GLXContext first = makeContext("first");
    kor_glXCreateNewContext(app, config("double1"), GLX_RGBA_TYPE, first, True);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double1, %d, first, 1)", GLX_RGBA_TYPE));
}

TEST_F(Contexts, OfAVisualUseItsBestFbconfigWhateverTheSetting) {
    set("KOR_GL_FORCE_BEST_FBCONFIG", "0");
    start();
    XVisualInfo visual = visualInfo(singleVisual);
    ASSERT_NE(kor_glXCreateContext(app, &visual, nullptr, True), nullptr);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, single, %d, null, 1)", GLX_RGBA_TYPE));
    EXPECT_THAT(sayings("kor_glXCreateContext"),
                ElementsAre(format("visual id %x", static_cast<unsigned>(singleVisual))));
}

TEST_F(Contexts, OfAVisualWithoutMappingCannotBeMade) {
    start();
    XVisualInfo visual = visualInfo(lonelyVisual);
    EXPECT_EQ(kor_glXCreateContext(app, &visual, nullptr, True), nullptr);
    EXPECT_TRUE(said('D', "kor_glXCreateContext", "failed for no visual."));
    EXPECT_EQ(makeContext("none", reinterpret_cast<GLXFBConfig>(0x7770)), nullptr);
    EXPECT_TRUE(said('D', "kor_glXCreateNewContext", "failed for no visual."));
    EXPECT_THAT(gl.callsOf("glXCreateNewContext"), IsEmpty());
}

TEST_F(Contexts, TheDriversRefusalIsReported) {
    start();
    gl.fail("glXCreateNewContext");
    gl.fail("glXCreateContextAttribsARB");
    EXPECT_EQ(makeContext("none"), nullptr);
    EXPECT_TRUE(said('D', "kor_glXCreateNewContext", "failed in createnewcontext."));
    EXPECT_EQ(kor_glXCreateContextAttribsARB(app, config("double1"), nullptr, True, nullptr),
              nullptr);
    EXPECT_TRUE(said('D', "kor_glXCreateContextAttribsARB", "failed in createnewcontext."));
    XVisualInfo visual = visualInfo(doubleVisual);
    EXPECT_EQ(kor_glXCreateContext(app, &visual, nullptr, True), nullptr);
    EXPECT_TRUE(said('D', "kor_glXCreateContext", "failed in createnewcontext."));
    EXPECT_EQ(getTSD()->throwawayContext, nullptr);
}

TEST_F(Contexts, TheOldNameForwards) {
    start();
    EXPECT_NE(
        kor_glXCreateContextWithConfigSGIX(app, config("double2"), GLX_RGBA_TYPE, nullptr, True),
        nullptr);
    EXPECT_EQ(last("glXCreateNewContext"),
              format("glXCreateNewContext(local, double1, %d, null, 1)", GLX_RGBA_TYPE));
    EXPECT_EQ(sayings("kor_glXCreateContextWithConfigSGIX")[0], "START");
}

TEST_F(Contexts, AttributesReachTheDriverUnchanged) {
    start();
    const int list[] = {GLX_CONTEXT_MAJOR_VERSION_ARB, 3, GLX_CONTEXT_MINOR_VERSION_ARB, 2, 0};
    EXPECT_NE(kor_glXCreateContextAttribsARB(app, config("double2"), nullptr, False, list),
              nullptr);
    const fake::Call call = gl.callsOf("glXCreateContextAttribsARB").back();
    EXPECT_EQ(call.arguments[4], fake::word(&list[0]));
    EXPECT_EQ(call.arguments[1], fake::word(config("double1")));
    EXPECT_EQ(call.arguments[3], 1U);
    EXPECT_THAT(sayings("kor_glXCreateContextAttribsARB"),
                ElementsAre("fbconfig b20", "trying to create an indirect context. Forcing direct.",
                            "forcing fbconfig b10"));
}

TEST_F(Contexts, DebugFlagsAreAppendedBehindTheFirstZeroWord) {
    set("KOR_GL_ADD_GL_DEBUG_CALLBACK", "1");
    start();
    const int list[] = {GLX_CONTEXT_MAJOR_VERSION_ARB,
                        3,
                        GLX_CONTEXT_FLAGS_ARB,
                        0,
                        GLX_CONTEXT_MINOR_VERSION_ARB,
                        2,
                        0};
    kor_glXCreateContextAttribsARB(app, config("double1"), nullptr, True, list);
    EXPECT_THAT(gl.callsOf("glXCreateContextAttribsARB").back().list,
                ElementsAre(GLX_CONTEXT_MAJOR_VERSION_ARB, 3, GLX_CONTEXT_FLAGS_ARB,
                            GLX_CONTEXT_FLAGS_ARB, GLX_CONTEXT_DEBUG_BIT_ARB));
    EXPECT_TRUE(said('I', "kor_glXCreateContextAttribsARB",
                     "Added GLX_CONTEXT_FLAGS_ARB and GLX_CONTEXT_DEBUG_BIT_ARB to the attrib "
                     "list"));
    kor_glXCreateContextAttribsARB(app, config("double1"), nullptr, True, nullptr);
    EXPECT_THAT(gl.callsOf("glXCreateContextAttribsARB").back().list,
                ElementsAre(GLX_CONTEXT_FLAGS_ARB, GLX_CONTEXT_DEBUG_BIT_ARB));
}

TEST_F(Contexts, DestroyingAnIdleOneRemovesItsRecord) {
    start();
    GLXContext context = makeContext("ctx");
    markLog();
    gl.clearCalls();
    kor_glXDestroyContext(app, context);
    EXPECT_EQ(record(context), nullptr);
    EXPECT_EQ(last("glXDestroyContext"), "glXDestroyContext(local, ctx)");
    EXPECT_THAT(sayings("kor_glXDestroyContext"),
                ElementsAre("START", format("context %x removed from the map.",
                                            static_cast<unsigned>(fake::word(context)))));
}

TEST_F(Contexts, DestroyingAnUnknownOneStillReachesTheDriver) {
    start();
    makeContext("other");
    kor_glXDestroyContext(app, reinterpret_cast<GLXContext>(0x5550));
    EXPECT_TRUE(said('W', "kor_glXDestroyContext", "context 5550 not found in the map."));
    EXPECT_EQ(last("glXDestroyContext"), "glXDestroyContext(local, 0x5550)");
}

TEST_F(Contexts, DestroyingAnUnknownOneEndsNoRecordAndLeavesTheLocalConnection) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    kor_glXDestroyContext(app, reinterpret_cast<GLXContext>(0x5550));
    EXPECT_EQ(last("glXDestroyContext"), "glXDestroyContext(local, 0x5550)");
    EXPECT_THAT(sayings("_unsetLocalDisplay"), IsEmpty());
}

TEST_F(Contexts, DestroyedWhileCurrentElsewhereTheRecordWaitsForThatThread) {
    start();
    GLXContext context = makeContext("ctx");
    const Window window = makeWindow(20, 20);
    const std::string marked = format(
        "context %x is current to a thread, mark as destroyed without removing from the map.",
        static_cast<unsigned>(fake::word(context)));
    std::thread([&] {
        ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
        std::thread([&] {
            kor_glXDestroyContext(app, context);
            EXPECT_EQ(timesSaid('D', "kor_glXDestroyContext", marked), 1U);
            kor_glXDestroyContext(app, context);
            EXPECT_EQ(timesSaid('D', "kor_glXDestroyContext", marked), 2U);
        }).join();
        EXPECT_EQ(gl.callsOf("glXDestroyContext").size(), 2U);
        ASSERT_NE(record(context), nullptr);
        EXPECT_TRUE(record(context)->destroyed);
        kor_glXMakeCurrent(app, None, nullptr);
        EXPECT_EQ(record(context), nullptr);
        EXPECT_TRUE(said('D', "setCurrent",
                         format("context %x removed from the map.",
                                static_cast<unsigned>(fake::word(context)))));
    }).join();
}

TEST_F(Contexts, ADestroyedOneLeavesWhenItsThreadTakesAnother) {
    start();
    GLXContext context = makeContext("ctx");
    GLXContext other = makeContext("other");
    const Window window = makeWindow(20, 20);
    kor_glXMakeCurrent(app, window, context);
    kor_glXDestroyContext(app, context);
    EXPECT_NE(record(context), nullptr);
    kor_glXMakeCurrent(app, window, other);
    EXPECT_EQ(record(context), nullptr);
}

TEST_F(Contexts, CopyingTakesTheDrawBufferWhateverTheMask) {
    start();
    GLXContext source = makeContext("source");
    GLXContext target = makeContext("target");
    kor_glXMakeCurrent(app, makeWindow(20, 20), source);
    kor_glDrawBuffer(GL_FRONT);
    kor_glXCopyContext(app, source, target, 0);
    EXPECT_EQ(last("glXCopyContext"), "glXCopyContext(local, source, target, 0)");
    EXPECT_EQ(record(target)->drawBuffer, static_cast<GLenum>(GL_FRONT));
}

TEST_F(Contexts, CopyingAnUnknownOneStillReachesTheDriver) {
    start();
    GLXContext source = makeContext("source");
    markLog();
    kor_glXCopyContext(app, source, reinterpret_cast<GLXContext>(0x5550), 3);
    EXPECT_EQ(last("glXCopyContext"), "glXCopyContext(local, source, 0x5550, 0x3)");
    EXPECT_THAT(logTexts(), testing::SizeIs(1));
}

TEST_F(Contexts, QueriesAreAskedOnTheLocalDisplay) {
    start();
    GLXContext context = makeContext("ctx");
    int value = 0;
    gl.answer("glXQueryContext", 5);
    EXPECT_EQ(kor_glXQueryContext(app, context, GLX_FBCONFIG_ID, &value), 5);
    EXPECT_EQ(last("glXQueryContext"),
              format("glXQueryContext(local, ctx, %d, out)", GLX_FBCONFIG_ID));
    EXPECT_TRUE(kor_glXIsDirect(app, context));
    EXPECT_EQ(last("glXIsDirect"), "glXIsDirect(local, ctx)");
    gl.fail("glXIsDirect");
    EXPECT_FALSE(kor_glXIsDirect(app, context));
    gl.succeed("glXIsDirect");
    gl.clearCalls();
    EXPECT_FALSE(kor_glXIsDirect(app, nullptr));
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(Contexts, WithoutDisplaysQueriesFailTheirOwnWay) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    auto context = reinterpret_cast<GLXContext>(0x5550);
    int value = 7;
    EXPECT_EQ(kor_glXQueryContext(nullptr, context, 1, &value), -1);
    EXPECT_THAT(sayings("kor_glXQueryContext"), ElementsAre("START"));
    EXPECT_EQ(kor_glXQueryContext(app, context, 1, &value), -1);
    EXPECT_TRUE(said('D', "kor_glXQueryContext", "no local display"));
    EXPECT_EQ(value, 7);
    EXPECT_FALSE(kor_glXIsDirect(app, context));
    kor_glXDestroyContext(app, context);
    EXPECT_TRUE(said('D', "kor_glXDestroyContext", "no local display"));
    kor_glXCopyContext(app, context, context, 0);
    EXPECT_TRUE(said('D', "kor_glXCopyContext", "no local display"));
    EXPECT_THAT(gl.callsOf("glXDestroyContext"), IsEmpty());
}

TEST_F(Contexts, EachDriverCallHoldsTheLocalDisplayLockAlone) {
    start();
    GLXContext first = makeContext("first");
    std::vector<std::string> wrong;
    gl.onCall("", [&](const fake::Call& call) {
        if (heldLocks() != std::vector<std::string>{"local display"})
            wrong.push_back(call.text);
    });
    GLXContext second = makeContext("second");
    kor_glXCreateContextAttribsARB(app, config("double1"), nullptr, True, nullptr);
    kor_glXCopyContext(app, first, second, 0);
    int value = 0;
    kor_glXQueryContext(app, first, 1, &value);
    kor_glXIsDirect(app, first);
    kor_glXDestroyContext(app, second);
    gl.onCall("", nullptr);
    EXPECT_THAT(wrong, IsEmpty());
}

TEST_F(Contexts, AnUnknownOneHasNoFbconfig) {
    start();
    EXPECT_EQ(getFBConfig(reinterpret_cast<GLXContext>(0x5550)), nullptr);
    EXPECT_TRUE(said('E', "getFBConfig", "context not found."));
}

TEST_F(Contexts, TheDebugCallbackIsInstalledAtTheFirstMakeCurrent) {
    set("KOR_GL_ADD_GL_DEBUG_CALLBACK", "1");
    start();
    GLXContext context = makeContext("ctx");
    const Window window = makeWindow(20, 20);
    kor_glXMakeCurrent(app, window, context);
    kor_glXMakeCurrent(app, window, context);
    EXPECT_THAT(fake::texts(gl.callsOf("glEnable")),
                ElementsAre("glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS)"));
    ASSERT_EQ(gl.callsOf("glDebugMessageCallback").size(), 1U);
    EXPECT_EQ(gl.callsOf("glDebugMessageCallback")[0].arguments[0], fake::word(&debugCallback));
    EXPECT_THAT(fake::texts(gl.callsOf("glDebugMessageControl")),
                ElementsAre("glDebugMessageControl(GL_DONT_CARE, GL_DONT_CARE, GL_DONT_CARE, 0, "
                            "{}, 1)"));
    EXPECT_EQ(gl.callsOf("glEnable")[0].context, context);
    EXPECT_TRUE(said('I', "setCurrent", "Registered OpenGL debug callback") ||
                said('I', "registerDebugCallback", "Registered OpenGL debug callback"));
    EXPECT_TRUE(record(context)->debugCallbackRegistered);
}

TEST_F(Contexts, DebugMessagesAreLoggedInWords) {
    start();
    markLog();
    const GLenum types[] = {GL_DEBUG_TYPE_ERROR,
                            GL_DEBUG_TYPE_DEPRECATED_BEHAVIOR,
                            GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR,
                            GL_DEBUG_TYPE_PORTABILITY,
                            GL_DEBUG_TYPE_PERFORMANCE,
                            GL_DEBUG_TYPE_OTHER,
                            GL_DEBUG_TYPE_MARKER};
    const GLenum severities[] = {GL_DEBUG_SEVERITY_HIGH,  GL_DEBUG_SEVERITY_MEDIUM,
                                 GL_DEBUG_SEVERITY_LOW,   GL_DEBUG_SEVERITY_NOTIFICATION,
                                 GL_DEBUG_SEVERITY_HIGH,  GL_DEBUG_SEVERITY_HIGH,
                                 GL_DEBUG_SEVERITY_MEDIUM};
    for (size_t i = 0; i < 7; ++i)
        debugCallback(GL_DEBUG_SOURCE_API, types[i], 1, severities[i], -1, "the text", nullptr);
    EXPECT_THAT(sayings("debugCallback"),
                ElementsAre("[GL DEBUG] type=Error, severity=High: the text",
                            "[GL DEBUG] type=Deprecated behaviour, severity=Medium: the text",
                            "[GL DEBUG] type=Undefined behaviour, severity=Low: the text",
                            "[GL DEBUG] type=Portability, severity=Unknown: the text",
                            "[GL DEBUG] type=Performance, severity=High: the text",
                            "[GL DEBUG] type=Other, severity=High: the text",
                            "[GL DEBUG] type=Unknown, severity=Medium: the text"));
    EXPECT_EQ(log()[0].level, 'I');
}
