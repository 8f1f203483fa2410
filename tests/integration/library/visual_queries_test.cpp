// The visual and fbconfig queries of GLX.

#include "displays.h"
#include "fbconfig_attributes.h"

#include "visual/visual_map.h"

#include <X11/Xutil.h>
#include <cstdlib>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class VisualQueries : public Displays {
  protected:
    VisualID choose(std::vector<int> list) const {
        list.push_back(0);
        XVisualInfo* visual = kor_glXChooseVisual(app, DefaultScreen(app), list.data());
        const VisualID id = visual != nullptr ? visual->visualid : 0;
        if (visual != nullptr)
            XFree(visual);
        return id;
    }

    std::pair<int, int> getConfig(VisualID id, int attribute) const {
        XVisualInfo visual = visualInfo(id);
        int value = -1;
        const int result = kor_glXGetConfig(app, &visual, attribute, &value);
        return {result, value};
    }

    std::vector<GLXFBConfig> chooseFbconfigs(const int* list) const {
        int count = -1;
        GLXFBConfig* configs = kor_glXChooseFBConfig(app, 0, list, &count);
        if (configs == nullptr)
            return {};
        std::vector<GLXFBConfig> result(configs, configs + count);
        XFree(configs);
        return result;
    }
};

} // namespace

TEST_F(VisualQueries, WithoutAskingForDoubleBufferingASingleBufferedVisualComes) {
    start();
    EXPECT_EQ(choose({GLX_RGBA}), singleVisual);
    EXPECT_EQ(choose({GLX_RGBA, GLX_DOUBLEBUFFER}), doubleVisual);
    EXPECT_EQ(choose({GLX_USE_GL, GLX_STEREO}), singleVisual);
}

TEST_F(VisualQueries, WithoutAskingForDepthTheLocalVisualMustHave24Bits) {
    localScript.visuals[localSingleVisual].depth = 30;
    useScripts();
    start();
    EXPECT_EQ(choose({GLX_RGBA}), None);
    EXPECT_TRUE(said('D', "kor_glXChooseVisual", "FAILED!"));
    EXPECT_EQ(choose({GLX_RGBA, GLX_DEPTH_SIZE, 1}), singleVisual);
}

TEST_F(VisualQueries, TheDepthAskedForIsHeldAgainstTheColourDepth) {
    localScript.visuals[localSingleVisual].attributes[GLX_DEPTH_SIZE] = 0;
    useScripts();
    start();
    EXPECT_EQ(choose({GLX_DEPTH_SIZE, 24}), singleVisual);
    EXPECT_EQ(choose({GLX_DEPTH_SIZE, 25}), None);
    EXPECT_TRUE(said('D', "kor_glXChooseVisual", "GLX_DEPTH_SIZE request 25 has 24"));
    EXPECT_EQ(choose({GLX_DEPTH_SIZE, -1}), None); // compared unsigned
    EXPECT_TRUE(said('D', "kor_glXChooseVisual", "GLX_DEPTH_SIZE request 4294967295 has 24"));
}

TEST_F(VisualQueries, EveryOtherAttributeIsAnAtLeastTest) {
    const std::vector<std::pair<int, const char*>> attributes = {
        {GLX_BUFFER_SIZE, "GLX_BUFFER_SIZE"},
        {GLX_LEVEL, "GLX_LEVEL"},
        {GLX_AUX_BUFFERS, "GLX_AUX_BUFFERS"},
        {GLX_RED_SIZE, "GLX_RED_SIZE"},
        {GLX_GREEN_SIZE, "GLX_GREEN_SIZE"},
        {GLX_BLUE_SIZE, "GLX_BLUE_SIZE"},
        {GLX_ALPHA_SIZE, "GLX_ALPHA_SIZE"},
        {GLX_STENCIL_SIZE, "GLX_STENCIL_SIZE"},
        {GLX_ACCUM_RED_SIZE, "GLX_ACCUM_RED_SIZE"},
        {GLX_ACCUM_GREEN_SIZE, "GLX_ACCUM_GREEN_SIZE"},
        {GLX_ACCUM_BLUE_SIZE, "GLX_ACCUM_BLUE_SIZE"},
        {GLX_ACCUM_ALPHA_SIZE, "GLX_ACCUM_ALPHA_SIZE"},
        {GLX_TRANSPARENT_TYPE, "GLX_TRANSPARENT_TYPE"},
        {GLX_TRANSPARENT_RED_VALUE, "GLX_TRANSPARENT_RED_VALUE"},
        {GLX_TRANSPARENT_GREEN_VALUE, "GLX_TRANSPARENT_GREEN_VALUE"},
        {GLX_TRANSPARENT_BLUE_VALUE, "GLX_TRANSPARENT_BLUE_VALUE"},
        {GLX_TRANSPARENT_ALPHA_VALUE, "GLX_TRANSPARENT_ALPHA_VALUE"},
        {GLX_SAMPLE_BUFFERS_ARB, "GLX_SAMPLE_BUFFERS_ARB"},
        {GLX_SAMPLES_ARB, "GLX_SAMPLES_ARB"}};
    auto& offered = localScript.visuals[localSingleVisual].attributes;
    for (const auto& [attribute, name] : attributes)
        offered[attribute] = 3;
    offered[GLX_TRANSPARENT_TYPE] = GLX_TRANSPARENT_RGB;
    localScript.extensions = "GLX_ARB_multisample";
    set("KOR_GL_MULTISAMPLE", "-1");
    useScripts();
    start();
    for (const auto& [attribute, name] : attributes) {
        const int most = attribute == GLX_TRANSPARENT_TYPE ? GLX_TRANSPARENT_RGB : 3;
        EXPECT_EQ(choose({attribute, most}), singleVisual) << name;
        EXPECT_EQ(choose({attribute, most - 1}), singleVisual) << name;
        markLog();
        EXPECT_EQ(choose({attribute, most + 1}), None) << name;
        EXPECT_TRUE(
            said('D', "kor_glXChooseVisual", format("%s request %d has %d", name, most + 1, most)))
            << name;
        if (attribute != GLX_TRANSPARENT_TYPE) {
            EXPECT_TRUE(said('D', "kor_glXChooseVisual", format("%s %d", name, most + 1)));
        }
    }
}

TEST_F(VisualQueries, TheTransparentIndexIsAnAtLeastTestToo) {
    auto& offered = localScript.visuals[localSingleVisual].attributes;
    offered[GLX_TRANSPARENT_TYPE] = GLX_TRANSPARENT_INDEX;
    offered[GLX_TRANSPARENT_INDEX_VALUE] = 3;
    useScripts();
    start();
    EXPECT_EQ(choose({GLX_TRANSPARENT_INDEX_VALUE, 3}), singleVisual);
    EXPECT_EQ(choose({GLX_TRANSPARENT_INDEX_VALUE, 4}), None);
    EXPECT_TRUE(said('D', "kor_glXChooseVisual", "GLX_TRANSPARENT_INDEX_VALUE request 4 has 3"));
}

TEST_F(VisualQueries, OfAnUnknownAttributeOnlyTheWordIsSkipped) {
    start();
    markLog();
    // The value 9 is read as an attribute: GLX_GREEN_SIZE, which takes the next word.
    EXPECT_EQ(choose({0x7777, GLX_GREEN_SIZE, 200}), None);
    EXPECT_TRUE(said('D', "kor_glXChooseVisual", "GLX_GREEN_SIZE request 200 has 8"));
    // Once in the list as it was asked for, once for each of the two visuals held against it.
    EXPECT_EQ(timesSaid('D', "kor_glXChooseVisual", "unknown attribute 7777"), 3U);
}

TEST_F(VisualQueries, TheOnlyMappedVisualIsChosen) {
    appScript.visuals.erase(doubleVisual);
    useScripts();
    start();
    EXPECT_EQ(choose({GLX_RGBA}), singleVisual);
    EXPECT_EQ(kor::gl::getVisualMap().size(), 1U);
}

TEST_F(VisualQueries, ChoosingTellsItsStory) {
    start();
    choose({GLX_RGBA});
    markLog();
    choose({GLX_USE_GL, GLX_RGBA, GLX_DOUBLEBUFFER, GLX_STEREO, GLX_RED_SIZE, 1});
    const auto id = static_cast<unsigned>(doubleVisual);
    EXPECT_THAT(sayings("kor_glXChooseVisual"),
                ElementsAre("START", "GLX_USE_GL", "GLX_RGBA", "GLX_DOUBLEBUFFER", "GLX_STEREO",
                            "GLX_RED_SIZE 1", format("choosing visual %x", id),
                            format("return %x.", id)));
    markLog();
    choose({GLX_DOUBLEBUFFER, GLX_RED_SIZE, 100});
    EXPECT_THAT(sayings("kor_glXChooseVisual"),
                ElementsAre("START", "GLX_DOUBLEBUFFER", "GLX_RED_SIZE 100",
                            "GLX_RED_SIZE request 100 has 8", "GLX_DOUBLEBUFFER request YES has NO",
                            "FAILED!"));
}

TEST_F(VisualQueries, GetConfigAnswersFromTheLocalVisual) {
    auto& offered = localScript.visuals[localDoubleVisual].attributes;
    offered[GLX_STENCIL_SIZE] = 5;
    offered[GLX_DEPTH_SIZE] = 17;
    useScripts();
    start();
    EXPECT_EQ(getConfig(doubleVisual, GLX_STENCIL_SIZE), std::pair(0, 5));
    EXPECT_TRUE(said('D', "kor_glXGetConfig", format("%lx GLX_STENCIL_SIZE val 5", doubleVisual)));
    EXPECT_EQ(getConfig(doubleVisual, GLX_DEPTH_SIZE), std::pair(0, 17));
    EXPECT_EQ(getConfig(doubleVisual, GLX_USE_GL), std::pair(0, 1));
    EXPECT_EQ(getConfig(doubleVisual, GLX_DOUBLEBUFFER), std::pair(0, 1));
    EXPECT_EQ(getConfig(singleVisual, GLX_DOUBLEBUFFER), std::pair(0, 0));
    EXPECT_EQ(getConfig(doubleVisual, GLX_VISUAL_CAVEAT_EXT), std::pair(0, GLX_NONE));
}

TEST_F(VisualQueries, GetConfigTellsItsStory) {
    start();
    getConfig(doubleVisual, GLX_RED_SIZE);
    markLog();
    getConfig(doubleVisual, GLX_RED_SIZE);
    EXPECT_THAT(sayings("kor_glXGetConfig"),
                ElementsAre("START", format("visual id %lx", doubleVisual),
                            format("%lx GLX_RED_SIZE val 8", doubleVisual)));
    markLog();
    EXPECT_EQ(kor_glXGetConfig(app, nullptr, GLX_RED_SIZE, nullptr), GLX_BAD_VALUE);
    EXPECT_THAT(sayings("kor_glXGetConfig"), ElementsAre("START"));
}

TEST_F(VisualQueries, GetConfigRefusesOtherAttributesWithZero) {
    start();
    EXPECT_EQ(getConfig(doubleVisual, GLX_FBCONFIG_ID), std::pair(GLX_BAD_ATTRIBUTE, 0));
    EXPECT_TRUE(said('D', "kor_glXGetConfig", format("%lx default val 0", doubleVisual)));
}

TEST_F(VisualQueries, GetConfigOfAnUnmappedVisualIsAskedOnTheApplicationDisplay) {
    appScript.visuals[lonelyVisual].attributes[GLX_STENCIL_SIZE] = 3;
    useScripts();
    start();
    getConfig(doubleVisual, GLX_RGBA);
    gl.clearCalls();
    EXPECT_EQ(getConfig(lonelyVisual, GLX_STENCIL_SIZE), std::pair(0, 3));
    EXPECT_THAT(fake::texts(gl.calls()),
                ElementsAre(format("glXGetConfig(app, visual 0x%lx, %d, out)", lonelyVisual,
                                   GLX_STENCIL_SIZE)));
    EXPECT_TRUE(said('D', "kor_glXGetConfig",
                     format("NOT IN CACHE... %lx attrib %x", lonelyVisual, GLX_STENCIL_SIZE)));
}

TEST_F(VisualQueries, ChooseFbconfigGivesTheLocalFbconfigsThatHaveAMapping) {
    localScript.configs.push_back(
        {reinterpret_cast<GLXFBConfig>(0xc10), {{GLX_VISUAL_ID, 0x999}, {GLX_DOUBLEBUFFER, 5}}});
    localScript.configs.insert(localScript.configs.begin(), localScript.configs.back());
    useScripts();
    start();
    const int list[] = {GLX_DOUBLEBUFFER, static_cast<int>(GLX_DONT_CARE), None};
    EXPECT_THAT(chooseFbconfigs(list),
                ElementsAre(config("double1"), config("double2"), config("single")));
}

TEST_F(VisualQueries, ChooseFbconfigPassesTheListOnUnchangedToTheLocalDefaultScreen) {
    start();
    int count = 0;
    const int list[] = {GLX_RED_SIZE, 8, GLX_DOUBLEBUFFER, 1, 0x7777, 0, None};
    gl.onCall("glXChooseFBConfig", [&](const fake::Call& call) {
        if (call.arguments[2] == fake::word(&list[0])) {
            EXPECT_THAT(heldLocks(), ElementsAre("local display"));
        }
    });
    GLXFBConfig* configs = kor_glXChooseFBConfig(app, 17, list, &count);
    EXPECT_EQ(count, 2);
    XFree(configs);
    EXPECT_EQ(gl.callsOf("glXChooseFBConfig")[0].text,
              format("glXChooseFBConfig(local, 0, {%d, 8, %d, 1, %d, 0}, out)", GLX_RED_SIZE,
                     GLX_DOUBLEBUFFER, 0x7777));
    EXPECT_TRUE(said('D', "kor_glXChooseFBConfig", "GLX_DOUBLEBUFFER 1"));
    EXPECT_TRUE(said('D', "kor_glXChooseFBConfig", "unknown attribute 7777"));
    gl.onCall("glXChooseFBConfig", nullptr);
}

TEST_F(VisualQueries, CandidatesWithoutMappingsGiveAnEmptyArrayAndNotNull) {
    localScript.configs = {{reinterpret_cast<GLXFBConfig>(0xc10), {{GLX_VISUAL_ID, 0x999}}}};
    localScript.configs[0].attributes[GLX_RED_SIZE] = 1; // too small for the visuals' own lists
    useScripts();
    start();
    int count = -1;
    GLXFBConfig* configs = kor_glXChooseFBConfig(app, 0, nullptr, &count);
    EXPECT_NE(configs, nullptr);
    EXPECT_EQ(count, 0);
    XFree(configs);
}

TEST_F(VisualQueries, NoCandidatesOrNoPlaceForTheCountGiveNull) {
    start();
    const int list[] = {GLX_RED_SIZE, 100, None};
    int count = -1;
    EXPECT_EQ(kor_glXChooseFBConfig(app, 0, list, &count), nullptr);
    EXPECT_EQ(kor_glXChooseFBConfig(app, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(kor_glXChooseFBConfig(nullptr, 0, nullptr, &count), nullptr);
}

TEST_F(VisualQueries, GetFbconfigsAndTheOldNameForward) {
    start();
    int count = 0;
    XFree(kor_glXGetFBConfigs(app, 0, &count));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(gl.callsOf("glXChooseFBConfig")[0].text, "glXChooseFBConfig(local, 0, null, out)");
    int list[] = {GLX_DOUBLEBUFFER, 0, None};
    XFree(kor_glXChooseFBConfigSGIX(app, 0, list, &count));
    EXPECT_EQ(count, 1);
}

TEST_F(VisualQueries, FbconfigAttributesComeFromTheLocalDisplayUnderItsLock) {
    start();
    int value = 0;
    kor_glXGetFBConfigAttrib(app, config("double2"), GLX_FBCONFIG_ID, &value);
    markLog();
    gl.clearCalls();
    gl.onCall("",
              [](const fake::Call&) { EXPECT_THAT(heldLocks(), ElementsAre("local display")); });
    EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config("double2"), GLX_FBCONFIG_ID, &value), 0);
    gl.onCall("", nullptr);
    EXPECT_EQ(value, 0xb2);
    EXPECT_THAT(
        fake::texts(gl.calls()),
        ElementsAre(format("glXGetFBConfigAttrib(local, double2, %d, out)", GLX_FBCONFIG_ID)));
    EXPECT_THAT(sayings("kor_glXGetFBConfigAttrib"),
                ElementsAre("START", "GLX_FBCONFIG_ID", "return value 178"));
}

TEST_F(VisualQueries, UnknownFbconfigAttributesArePassedOn) {
    start();
    int value = 7;
    EXPECT_EQ(kor_glXGetFBConfigAttribSGIX(app, config("double1"), 0x7777, &value),
              GLX_BAD_ATTRIBUTE);
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(said('D', "kor_glXGetFBConfigAttrib", "Unrecognized attribute 30583"));
}

TEST_F(VisualQueries, TheLogNamesEveryFbconfigAttribute) {
    start();
    const AttributeNames attributes = fbconfigAttributes({
        {GLX_MAX_PBUFFER_WIDTH, "GLX_MAX_PBUFFER_WIDTH"},
        {GLX_MAX_PBUFFER_HEIGHT, "GLX_MAX_PBUFFER_HEIGHT"},
        {GLX_MAX_PBUFFER_PIXELS, "GLX_MAX_PBUFFER_PIXELS"},
        {GLX_SAMPLE_BUFFERS_ARB, "GLX_SAMPLE_BUFFERS_ARB"},
        {GLX_SAMPLES_ARB, "GLX_SAMPLES_ARB"},
        {GLX_VISUAL_ID, "GLX_VISUAL_ID"},
    });
    int value = 0;
    kor_glXGetFBConfigAttrib(app, config("double1"), GLX_RED_SIZE, &value);
    for (const auto& [attribute, name] : attributes) {
        markLog();
        kor_glXGetFBConfigAttrib(app, config("double1"), attribute, &value);
        const std::vector<std::string> story = sayings("kor_glXGetFBConfigAttrib");
        ASSERT_GE(story.size(), 2U);
        EXPECT_EQ(story[1], name);
    }
}

TEST_F(VisualQueries, RequestsAreNotLoggedBelowDebug) {
    set("KOR_GL_LOG_LEVEL", "warning");
    start();
    const int list[] = {GLX_DOUBLEBUFFER, 1, None};
    EXPECT_THAT(chooseFbconfigs(list), ElementsAre(config("double1"), config("double2")));
    EXPECT_EQ(choose({GLX_DOUBLEBUFFER}), doubleVisual);
    int value = 0;
    kor_glXGetFBConfigAttrib(app, config("double1"), GLX_VISUAL_ID, &value);
    EXPECT_EQ(static_cast<VisualID>(value), doubleVisual);
    EXPECT_THAT(logTexts(), IsEmpty());
}

TEST_F(VisualQueries, TheCaveatIsSpelledOut) {
    start();
    int value = 0;
    const std::vector<std::pair<int, const char*>> caveats = {
        {GLX_NONE, "GLX_CONFIG_CAVEAT: GL_NONE"},
        {GLX_SLOW_CONFIG, "GLX_CONFIG_CAVEAT: GLX_SLOW_CONFIG"},
        {GLX_NON_CONFORMANT_CONFIG, "GLX_CONFIG_CAVEAT: GLX_NON_CONFORMANT_CONFIG"}};
    for (const auto& [caveat, text] : caveats) {
        localScript.configs[0].attributes[GLX_CONFIG_CAVEAT] = caveat;
        useScripts();
        markLog();
        kor_glXGetFBConfigAttrib(app, config("double1"), GLX_CONFIG_CAVEAT, &value);
        EXPECT_EQ(value, caveat);
        EXPECT_TRUE(said('D', "kor_glXGetFBConfigAttrib", text));
    }
}

TEST_F(VisualQueries, TheVisualIdIsTranslatedBackToTheApplicationsOwn) {
    start();
    int value = 0;
    EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config("double2"), GLX_VISUAL_ID, &value), 0);
    EXPECT_EQ(static_cast<VisualID>(value), doubleVisual);
}

TEST_F(VisualQueries, TheVisualIdOfAnUnpairedVisualIsFoundThroughTheFbconfig) {
    localScript.configs[1].attributes[GLX_VISUAL_ID] = 0x999;
    useScripts();
    start();
    int value = 0;
    kor_glXGetFBConfigAttrib(app, config("double1"), GLX_FBCONFIG_ID, &value);
    gl.onCall("glXGetFBConfigAttrib", [](const fake::Call& call) {
        if (call.arguments[2] == GLX_FBCONFIG_ID) { // the second pass holds the map's lock alone
            EXPECT_THAT(heldLocks(), ElementsAre("visual map"));
        }
    });
    EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config("double2"), GLX_VISUAL_ID, &value), 0);
    gl.onCall("glXGetFBConfigAttrib", nullptr);
    EXPECT_EQ(static_cast<VisualID>(value), doubleVisual);
}

TEST_F(VisualQueries, AVisualIdWithoutTranslationStaysTheLocalOne) {
    localScript.configs.push_back(
        {reinterpret_cast<GLXFBConfig>(0xc10), {{GLX_VISUAL_ID, 0x999}, {GLX_FBCONFIG_ID, 0xc1}}});
    useScripts();
    start();
    int value = 0;
    kor_glXGetFBConfigAttrib(app, reinterpret_cast<GLXFBConfig>(0xc10), GLX_VISUAL_ID, &value);
    EXPECT_EQ(value, 0x999);
    EXPECT_TRUE(said('D', "kor_glXGetFBConfigAttrib", "GLX_VISUAL_ID FAILED for visual id 2457"));
}

TEST_F(VisualQueries, WithoutALocalDisplayTheAttributeQuerySucceedsAndWritesNothing) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    int value = 7;
    EXPECT_EQ(kor_glXGetFBConfigAttrib(app, config("double1"), GLX_RED_SIZE, &value), 0);
    EXPECT_EQ(value, 7);
}

TEST_F(VisualQueries, TheVisualOfAnFbconfigIsTheApplications) {
    start();
    XVisualInfo* visual = kor_glXGetVisualFromFBConfig(app, config("double2"));
    ASSERT_NE(visual, nullptr);
    EXPECT_EQ(visual->visualid, doubleVisual);
    XFree(visual);
    EXPECT_TRUE(said('D', "kor_glXGetVisualFromFBConfig",
                     format("found visual %x", static_cast<unsigned>(doubleVisual))));
    visual = kor_glXGetVisualFromFBConfigSGIX(app, config("single"));
    EXPECT_EQ(visual->visualid, singleVisual);
    XFree(visual);
    EXPECT_EQ(kor_glXGetVisualFromFBConfig(app, reinterpret_cast<GLXFBConfig>(0x7770)), nullptr);
    EXPECT_TRUE(said('D', "kor_glXGetVisualFromFBConfig", "no lvi."));
}

TEST_F(VisualQueries, AnFbconfigIsNeverGivenForAVisual) {
    start();
    XVisualInfo visual = visualInfo(doubleVisual);
    EXPECT_EQ(kor_glXGetFBConfigFromVisualSGIX(app, &visual), nullptr);
    EXPECT_THAT(gl.calls(), IsEmpty());
}
