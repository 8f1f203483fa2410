// The pairing of application visuals with local fbconfigs.

#include "displays.h"

#include "display/displays.h"
#include "visual/visual_map.h"

#include <X11/Xutil.h>
#include <algorithm>

using kor::gl::LocalVisualInfo;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class VisualMap : public Displays {
  protected:
    const std::string build = "I void initializeVisualMap(Display*, int, kor::gl::TSD*): ";

    LocalVisualInfo* lookUp(VisualID id) const { return _getLVI(app, id, nullptr); }
    LocalVisualInfo* lookUp(const char* name) const { return _getLVI(app, config(name), nullptr); }

    /// Local fbconfigs for the double-buffered visual with these sample counts, in this order.
    void offerSamples(const std::vector<int>& counts) {
        localScript.configs.clear();
        for (size_t i = 0; i < counts.size(); ++i) {
            const auto handle = reinterpret_cast<GLXFBConfig>(0xd00 + i * 16);
            localScript.configs.push_back({handle,
                                           {{GLX_DOUBLEBUFFER, 1},
                                            {GLX_RED_SIZE, 8},
                                            {GLX_GREEN_SIZE, 8},
                                            {GLX_BLUE_SIZE, 8},
                                            {GLX_DEPTH_SIZE, 24},
                                            {GLX_STENCIL_SIZE, 8},
                                            {GLX_FBCONFIG_ID, static_cast<int>(0xd0 + i)},
                                            {GLX_VISUAL_ID, static_cast<int>(localDoubleVisual)},
                                            {GLX_SAMPLES, counts[i]}}});
        }
        localScript.extensions = "GLX_ARB_multisample";
        useScripts();
    }

    /// The calls of the map's build that are made under other locks than theirs: the map's, and the
    /// local display's for calls on that display.
    std::vector<std::string> callsUnderOtherLocks() {
        std::vector<std::string> unlocked;
        gl.onCall("", [&](const fake::Call& call) {
            const std::vector<std::string> held = heldLocks();
            const bool onLocal = call.text.find("(local") != std::string::npos;
            if (onLocal ? held != std::vector<std::string>{"visual map", "local display"}
                        : held != std::vector<std::string>{"visual map"})
                unlocked.push_back(call.text);
        });
        start();
        _setupAppDisplay(app, nullptr);
        gl.clearCalls();
        lookUp(doubleVisual);
        gl.onCall("", nullptr);
        return unlocked;
    }

    size_t buildsBegun() const {
        size_t builds = 0;
        for (const std::string& text : logTexts())
            builds += text.rfind(build + "obtained", 0) == 0 ? 1 : 0;
        return builds;
    }

    int bestWith(const char* setting) {
        set("KOR_GL_MULTISAMPLE", setting);
        start();
        const LocalVisualInfo* mapping = lookUp(doubleVisual);
        return mapping != nullptr ? mapping->bestFbconfig : -1;
    }
};

std::vector<int> attributesAsked(const std::vector<fake::Call>& calls, const std::string& start) {
    std::vector<int> attributes;
    for (const fake::Call& call : calls)
        if (call.text.rfind(start + ",", 0) == 0)
            attributes.push_back(static_cast<int>(call.arguments[2]));
    return attributes;
}

} // namespace

TEST_F(VisualMap, PairsEachGlVisualWithItsLocalFbconfigs) {
    start();
    const LocalVisualInfo* mapping = lookUp(doubleVisual);
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(static_cast<VisualID>(mapping->localVisual.visualId), localDoubleVisual);
    EXPECT_TRUE(mapping->doubleBuffered);
    ASSERT_EQ(mapping->numLocalFbconfigs, 2);
    EXPECT_EQ(mapping->localFbconfigs[0], config("double1"));
    EXPECT_EQ(mapping->localFbconfigs[1], config("double2"));
    EXPECT_EQ(mapping->bestFbconfig, 0);
    EXPECT_EQ(mapping->numAppFbconfigs, 1);
    const LocalVisualInfo* other = lookUp(singleVisual);
    ASSERT_NE(other, nullptr);
    EXPECT_FALSE(other->doubleBuffered);
    EXPECT_EQ(static_cast<VisualID>(other->localVisual.visualId), localSingleVisual);
    EXPECT_EQ(kor::gl::getVisualMap().size(), 2U);
}

TEST_F(VisualMap, TellsTheWholeBuild) {
    start();
    _setupAppDisplay(app, nullptr);
    markLog();
    lookUp(doubleVisual);
    std::vector<std::string> texts;
    size_t skipped = 0;
    for (const std::string& text : logTexts()) {
        if (text.find("does not support OpenGL") != std::string::npos)
            ++skipped;
        else
            texts.push_back(text);
    }
    const auto d = static_cast<unsigned>(doubleVisual);
    const auto s = static_cast<unsigned>(singleVisual);
    const auto l = static_cast<unsigned>(lonelyVisual);
    EXPECT_THAT(
        texts,
        ElementsAre(build + format("obtained %zu visuals for appDisplay", skipped + 3),
                    build + format("adding id %x (1)", d), build + format("adding id %x (0)", s),
                    build + format("adding id %x (1)", l),
                    build + format("App visual %x has 1 fbconfigs", d),
                    build + "    0 - a10 (id a1)", build + "Local visual 301 has 2 fbconfigs",
                    build + "    0 - b10 (id b1) (best)", build + "    1 - b20 (id b2) ",
                    build + format("App visual %x has 1 fbconfigs", s),
                    build + "    0 - a20 (id a2)", build + "Local visual 302 has 1 fbconfigs",
                    build + "    0 - b30 (id b3) (best)",
                    build + format("cannot add visual id %x, no local fbconfigs", l)));
}

TEST_F(VisualMap, AVisualWithoutGlNeverGetsAMapping) {
    start();
    lookUp(doubleVisual);
    XVisualInfo wanted{};
    int count = 0;
    XVisualInfo* all = XGetVisualInfo(app, VisualNoMask, &wanted, &count);
    const VisualID plain = all[count - 1].visualid;
    XFree(all);
    EXPECT_EQ(lookUp(plain), nullptr);
    EXPECT_TRUE(logged(build + format("skipping id %lx (does not support OpenGL)", plain)));
    EXPECT_TRUE(logged("D kor::gl::LocalVisualInfo* _getLVI(Display*, VisualID, kor::gl::TSD*): " +
                       format("LVI for app visual %d not found", static_cast<int>(plain))));
}

TEST_F(VisualMap, AsksForTheAttributesInTheirOrder) {
    start();
    lookUp(doubleVisual);
    const auto start = format("glXGetConfig(app, visual 0x%lx", doubleVisual);
    EXPECT_THAT(attributesAsked(gl.callsOf("glXGetConfig"), start),
                ElementsAre(GLX_USE_GL, GLX_BUFFER_SIZE, GLX_LEVEL, GLX_RGBA, GLX_DOUBLEBUFFER,
                            GLX_STEREO, GLX_AUX_BUFFERS, GLX_RED_SIZE, GLX_GREEN_SIZE,
                            GLX_BLUE_SIZE, GLX_ALPHA_SIZE, GLX_DEPTH_SIZE, GLX_STENCIL_SIZE,
                            GLX_ACCUM_RED_SIZE, GLX_ACCUM_GREEN_SIZE, GLX_ACCUM_BLUE_SIZE,
                            GLX_ACCUM_ALPHA_SIZE, GLX_TRANSPARENT_TYPE, GLX_VISUAL_CAVEAT_EXT));
}

TEST_F(VisualMap, AsksForTransparencyAndSamplesOnlyWhereTheyMeanSomething) {
    appScript.visuals[doubleVisual].attributes[GLX_TRANSPARENT_TYPE] = GLX_TRANSPARENT_RGB;
    appScript.visuals[singleVisual].attributes[GLX_TRANSPARENT_TYPE] = GLX_TRANSPARENT_INDEX;
    appScript.extensions = "GLX_EXT_visual_info GLX_ARB_multisample";
    useScripts();
    start();
    lookUp(doubleVisual);
    auto asked = attributesAsked(gl.callsOf("glXGetConfig"),
                                 format("glXGetConfig(app, visual 0x%lx", doubleVisual));
    EXPECT_THAT(std::vector<int>(asked.begin() + 17, asked.end()),
                ElementsAre(GLX_TRANSPARENT_TYPE, GLX_TRANSPARENT_RED_VALUE,
                            GLX_TRANSPARENT_GREEN_VALUE, GLX_TRANSPARENT_BLUE_VALUE,
                            GLX_TRANSPARENT_ALPHA_VALUE, GLX_SAMPLE_BUFFERS, GLX_SAMPLES,
                            GLX_VISUAL_CAVEAT_EXT));
    asked = attributesAsked(gl.callsOf("glXGetConfig"),
                            format("glXGetConfig(app, visual 0x%lx", singleVisual));
    EXPECT_THAT(std::vector<int>(asked.begin() + 17, asked.end()),
                ElementsAre(GLX_TRANSPARENT_TYPE, GLX_TRANSPARENT_INDEX_VALUE, GLX_SAMPLE_BUFFERS,
                            GLX_SAMPLES, GLX_VISUAL_CAVEAT_EXT));
    EXPECT_TRUE(logged(build + "appDisplay supports multisampling"));
}

TEST_F(VisualMap, AVisualWithoutGlIsAskedNothingElse) {
    start();
    lookUp(doubleVisual);
    XVisualInfo wanted{};
    int count = 0;
    XVisualInfo* all = XGetVisualInfo(app, VisualNoMask, &wanted, &count);
    EXPECT_THAT(attributesAsked(gl.callsOf("glXGetConfig"),
                                format("glXGetConfig(app, visual 0x%lx", all[count - 1].visualid)),
                ElementsAre(GLX_USE_GL));
    XFree(all);
}

TEST_F(VisualMap, BothDisplaysAreAskedForTheSameListAndOnlyTheLocalOneUnderItsLock) {
    EXPECT_THAT(callsUnderOtherLocks(), IsEmpty());
    const auto choices = gl.callsOf("glXChooseFBConfig");
    ASSERT_EQ(choices.size(), 6U);
    EXPECT_EQ(choices[0].text.rfind("glXChooseFBConfig(app, 0, {", 0), 0U);
    EXPECT_EQ(choices[1].text.rfind("glXChooseFBConfig(local, 0, {", 0), 0U);
    EXPECT_EQ(choices[0].list, choices[1].list);
    EXPECT_THAT(choices[0].list,
                ElementsAre(GLX_BUFFER_SIZE, 24, GLX_LEVEL, 0, GLX_RENDER_TYPE, GLX_RGBA_BIT,
                            GLX_DOUBLEBUFFER, 1, GLX_STEREO, 0, GLX_AUX_BUFFERS, 0, GLX_RED_SIZE, 8,
                            GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE, 8, GLX_ALPHA_SIZE, 0, GLX_DEPTH_SIZE,
                            24, GLX_STENCIL_SIZE, 8, GLX_ACCUM_RED_SIZE, 0, GLX_ACCUM_GREEN_SIZE, 0,
                            GLX_ACCUM_BLUE_SIZE, 0, GLX_ACCUM_ALPHA_SIZE, 0));
}

TEST_F(VisualMap, TheSamplesOfTheLocalDisplayAreAskedForUnderItsLock) {
    offerSamples({0, 2, 4});
    set("KOR_GL_MULTISAMPLE", "-1");
    EXPECT_THAT(callsUnderOtherLocks(), IsEmpty());
    size_t samplesAsked = 0;
    for (const fake::Call& call : gl.callsOf("glXGetFBConfigAttrib"))
        samplesAsked += call.arguments[2] == GLX_SAMPLES ? 1 : 0;
    EXPECT_GE(samplesAsked, 3U);
    EXPECT_TRUE(logged(build + "localDisplay supports multisampling"));
}

TEST_F(VisualMap, TheListHoldsTransparencyAndSamplesWhereTheVisualHasThem) {
    auto& attributes = appScript.visuals[doubleVisual].attributes;
    attributes[GLX_RGBA] = 0;
    attributes[GLX_TRANSPARENT_TYPE] = GLX_TRANSPARENT_RGB;
    attributes[GLX_TRANSPARENT_RED_VALUE] = 1;
    attributes[GLX_TRANSPARENT_GREEN_VALUE] = 2;
    attributes[GLX_TRANSPARENT_BLUE_VALUE] = 3;
    attributes[GLX_TRANSPARENT_ALPHA_VALUE] = 4;
    attributes[GLX_SAMPLE_BUFFERS] = 1;
    attributes[GLX_SAMPLES] = 2;
    appScript.extensions = "GLX_ARB_multisample";
    useScripts();
    start();
    lookUp(doubleVisual);
    const std::vector<int> list = gl.callsOf("glXChooseFBConfig")[0].list;
    EXPECT_EQ(list[5], GLX_COLOR_INDEX_BIT);
    ASSERT_EQ(list.size(), 46U);
    EXPECT_THAT(std::vector<int>(list.begin() + 32, list.end()),
                ElementsAre(GLX_TRANSPARENT_TYPE, GLX_TRANSPARENT_RGB, GLX_TRANSPARENT_RED_VALUE, 1,
                            GLX_TRANSPARENT_GREEN_VALUE, 2, GLX_TRANSPARENT_BLUE_VALUE, 3,
                            GLX_TRANSPARENT_ALPHA_VALUE, 4, GLX_SAMPLE_BUFFERS, 1, GLX_SAMPLES, 2));
}

TEST_F(VisualMap, AMultisampleLimitTakesTheMostSamplesWithinIt) {
    offerSamples({0, 2, 4, 8, 16});
    EXPECT_EQ(bestWith("4"), 2);
    EXPECT_TRUE(logged(build + "localDisplay supports multisampling"));
    EXPECT_TRUE(logged(build + "Max Multisample: 4 (fbconfig d20, 2 of 5)"));
}

TEST_F(VisualMap, ANegativeMultisampleTakesTheMostThereIs) {
    offerSamples({0, 2, 4, 8, 16});
    EXPECT_EQ(bestWith("-1"), 4);
}

TEST_F(VisualMap, WithoutMultisampleTheFirstFbconfigIsTheBest) {
    offerSamples({0, 2, 4, 8, 16});
    EXPECT_EQ(bestWith("0"), 0);
    for (const fake::Call& call : gl.callsOf("glXQueryExtensionsString"))
        EXPECT_EQ(call.text.find("(local"), std::string::npos);
}

TEST_F(VisualMap, OfEqualSampleCountsTheEarlierWins) {
    offerSamples({0, 8, 8, 2});
    EXPECT_EQ(bestWith("-1"), 1);
}

TEST_F(VisualMap, TheFirstExcessEndsTheSearch) {
    offerSamples({0, 8, 4});
    EXPECT_EQ(bestWith("4"), 0);
}

TEST_F(VisualMap, AServerWithoutMultisamplingKeepsTheFirst) {
    offerSamples({0, 8});
    localScript.extensions = "GLX_ARB_multisample_not";
    useScripts();
    EXPECT_EQ(bestWith("-1"), 0);
}

TEST_F(VisualMap, AVisualWhoseFbconfigHasNoLocalVisualIsLeftOut) {
    localScript.visuals.erase(localDoubleVisual);
    useScripts();
    start();
    EXPECT_EQ(lookUp(doubleVisual), nullptr);
    EXPECT_TRUE(logged(build + format("cannot add visual id %x, no local xvisual",
                                      static_cast<unsigned>(doubleVisual))));
}

TEST_F(VisualMap, AScreenWithoutVisualsEndsTheProcess) {
    start();
    EXPECT_EXIT(initializeVisualMap(app, 99, nullptr), testing::ExitedWithCode(20), "");
    EXPECT_TRUE(logged("E void initializeVisualMap(Display*, int, kor::gl::TSD*): FATAL: cannot "
                       "find any visual in the display."));
}

TEST_F(VisualMap, IsBuiltOnceForAllDisplays) {
    start();
    lookUp(doubleVisual);
    gl.clearCalls();
    markLog();
    Display* second = XOpenDisplay(appName.c_str());
    initializeVisualMap(second, 99, nullptr);
    EXPECT_NE(_getLVI(second, doubleVisual, nullptr), nullptr);
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_THAT(logTexts(), IsEmpty());
}

TEST_F(VisualMap, AFailedBuildIsTriedAgain) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_EQ(lookUp(doubleVisual), nullptr);
    EXPECT_EQ(lookUp(doubleVisual), nullptr);
    EXPECT_EQ(buildsBegun(), 2U);
    EXPECT_EQ(lookUp("double1"), nullptr);
    EXPECT_THAT(gl.callsOf("glXChooseFBConfig"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glXGetFBConfigAttrib"), IsEmpty());
}

TEST_F(VisualMap, ABuildForADisplayThatIsRefusedIsTriedAgain) {
    set("KOR_GL_DISPLAY", appName.c_str());
    start();
    initializeVisualMap(app, DefaultScreen(app), nullptr);
    initializeVisualMap(app, DefaultScreen(app), nullptr);
    EXPECT_EQ(buildsBegun(), 2U);
    EXPECT_THAT(kor::gl::getVisualMap(), IsEmpty());
    EXPECT_THAT(gl.callsOf("glXChooseFBConfig"), IsEmpty());
}

TEST_F(VisualMap, AThreadWithoutARecordBuildsNothing) {
    start();
    kor_fini();
    markLog();
    initializeVisualMap(app, DefaultScreen(app), nullptr);
    EXPECT_THAT(sayings("initializeVisualMap"), IsEmpty());
    EXPECT_THAT(kor::gl::getVisualMap(), IsEmpty());
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(VisualMap, AnFbconfigIsFoundByItsVisual) {
    start();
    EXPECT_EQ(lookUp("double2"), lookUp(doubleVisual));
    EXPECT_EQ(lookUp("single"), lookUp(singleVisual));
}

TEST_F(VisualMap, AnFbconfigOfAnUnpairedVisualIsFoundAmongTheCandidates) {
    localScript.configs[1].attributes[GLX_VISUAL_ID] = 0x999;
    useScripts();
    start();
    EXPECT_EQ(lookUp("double2"), lookUp(doubleVisual));
    EXPECT_TRUE(logged(format("D kor::gl::LocalVisualInfo* _getLVI(Display*, __GLXFBConfigRec*, "
                              "kor::gl::TSD*): LVI not found for fbconfig %d (local visual %d). "
                              "Trying another way...",
                              0xb20, 0x999)));
}

TEST_F(VisualMap, AForeignFbconfigHasNoMapping) {
    start();
    EXPECT_EQ(_getLVI(app, reinterpret_cast<GLXFBConfig>(0x7770), nullptr), nullptr);
    const std::string lookup =
        "D kor::gl::LocalVisualInfo* _getLVI(Display*, __GLXFBConfigRec*, kor::gl::TSD*): ";
    EXPECT_TRUE(logged(lookup + format("LVI for fbconfig %d not found (again)", 0x7770)));
    // The visual could not be asked for: the first search is left out without a word.
    for (const std::string& text : logTexts())
        EXPECT_EQ(text.find("Trying another way"), std::string::npos);
}

TEST_F(VisualMap, OfTwoMappingsOfOneLocalVisualTheFirstAnswers) {
    appScript.visuals[lonelyVisual] = appScript.visuals[doubleVisual];
    localScript.configs[1].attributes[GLX_VISUAL_ID] = 0x999; // found by the second search only
    useScripts();
    start();
    const LocalVisualInfo* first = lookUp(doubleVisual);
    const LocalVisualInfo* second = lookUp(lonelyVisual);
    ASSERT_NE(second, nullptr);
    ASSERT_EQ(first->localVisual.visualId, second->localVisual.visualId);
    for (const char* name : {"double1", "double2"}) {
        EXPECT_EQ(lookUp(name), first) << name;
        int value = 0;
        EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config(name), GLX_VISUAL_ID, &value), 0);
        EXPECT_EQ(static_cast<VisualID>(value), doubleVisual) << name;
        XVisualInfo* visual = kor_glXGetVisualFromFBConfig(app, config(name));
        ASSERT_NE(visual, nullptr);
        EXPECT_EQ(visual->visualid, doubleVisual) << name;
        XFree(visual);
    }
}
