// What the library knows of a visual: each attribute in its own field, from there into the list
// that finds fbconfigs for it, and into the answers of glXGetConfig.

#include "displays.h"

#include "visual/visual_map.h"

#include <X11/Xutil.h>

using kor::gl::LocalVisualInfo;
using kor::gl::VisualAttribs;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

struct Attribute {
    int number;
    const char* name;
    int32_t VisualAttribs::*field;
};

const std::vector<Attribute> plainAttributes = {
    {GLX_BUFFER_SIZE, "GLX_BUFFER_SIZE", &VisualAttribs::bufferSize},
    {GLX_LEVEL, "GLX_LEVEL", &VisualAttribs::level},
    {GLX_RGBA, "GLX_RGBA", &VisualAttribs::rgba},
    {GLX_DOUBLEBUFFER, "GLX_DOUBLEBUFFER", &VisualAttribs::doubleBuffer},
    {GLX_STEREO, "GLX_STEREO", &VisualAttribs::stereo},
    {GLX_AUX_BUFFERS, "GLX_AUX_BUFFERS", &VisualAttribs::auxBuffers},
    {GLX_RED_SIZE, "GLX_RED_SIZE", &VisualAttribs::redSize},
    {GLX_GREEN_SIZE, "GLX_GREEN_SIZE", &VisualAttribs::greenSize},
    {GLX_BLUE_SIZE, "GLX_BLUE_SIZE", &VisualAttribs::blueSize},
    {GLX_ALPHA_SIZE, "GLX_ALPHA_SIZE", &VisualAttribs::alphaSize},
    {GLX_DEPTH_SIZE, "GLX_DEPTH_SIZE", &VisualAttribs::depthSize},
    {GLX_STENCIL_SIZE, "GLX_STENCIL_SIZE", &VisualAttribs::stencilSize},
    {GLX_ACCUM_RED_SIZE, "GLX_ACCUM_RED_SIZE", &VisualAttribs::accumRedSize},
    {GLX_ACCUM_GREEN_SIZE, "GLX_ACCUM_GREEN_SIZE", &VisualAttribs::accumGreenSize},
    {GLX_ACCUM_BLUE_SIZE, "GLX_ACCUM_BLUE_SIZE", &VisualAttribs::accumBlueSize},
    {GLX_ACCUM_ALPHA_SIZE, "GLX_ACCUM_ALPHA_SIZE", &VisualAttribs::accumAlphaSize},
    {GLX_SAMPLE_BUFFERS, "GLX_SAMPLE_BUFFERS_ARB", &VisualAttribs::sampleBuffers},
    {GLX_SAMPLES, "GLX_SAMPLES_ARB", &VisualAttribs::samples},
    {GLX_VISUAL_CAVEAT_EXT, "GLX_VISUAL_CAVEAT_EXT", &VisualAttribs::visualCaveat},
};
const std::vector<Attribute> colourAttributes = {
    {GLX_TRANSPARENT_RED_VALUE, "GLX_TRANSPARENT_RED_VALUE", &VisualAttribs::transparentRed},
    {GLX_TRANSPARENT_GREEN_VALUE, "GLX_TRANSPARENT_GREEN_VALUE", &VisualAttribs::transparentGreen},
    {GLX_TRANSPARENT_BLUE_VALUE, "GLX_TRANSPARENT_BLUE_VALUE", &VisualAttribs::transparentBlue},
    {GLX_TRANSPARENT_ALPHA_VALUE, "GLX_TRANSPARENT_ALPHA_VALUE", &VisualAttribs::transparentAlpha},
};
const std::vector<Attribute> indexAttributes = {
    {GLX_TRANSPARENT_INDEX_VALUE, "GLX_TRANSPARENT_INDEX_VALUE", &VisualAttribs::transparentIndex},
};

class VisualAttributes : public Displays {
  protected:
    VisualAttributes() {
        // Fbconfigs enough for any request of sizes.
        for (fake::FbConfig& config : localScript.configs)
            for (const Attribute& attribute : plainAttributes)
                if (attribute.number != GLX_DOUBLEBUFFER && attribute.number != GLX_STEREO)
                    config.attributes[attribute.number] = 1000;
    }

    /// A number of its own for every attribute, from first on; -1 for the transparency's values
    /// that such a visual does not have.
    static std::map<int, int> numbered(int first, int transparentType) {
        std::map<int, int> numbers = {{GLX_USE_GL, 1}, {GLX_TRANSPARENT_TYPE, transparentType}};
        for (const Attribute& attribute : plainAttributes)
            numbers[attribute.number] = first++;
        for (const Attribute& attribute : colourAttributes)
            numbers[attribute.number] = transparentType == GLX_TRANSPARENT_RGB ? first++ : -1;
        for (const Attribute& attribute : indexAttributes)
            numbers[attribute.number] = transparentType == GLX_TRANSPARENT_INDEX ? first++ : -1;
        return numbers;
    }

    void offerStereo() {
        for (fake::FbConfig& config : localScript.configs)
            config.attributes[GLX_STEREO] = 1;
    }

    void supportMultisamplingEverywhere() {
        appScript.extensions = "GLX_ARB_multisample";
        localScript.extensions = "GLX_ARB_multisample";
        set("KOR_GL_MULTISAMPLE", "-1");
    }

    const LocalVisualInfo* lookUp(VisualID id) const { return _getLVI(app, id, nullptr); }

    /// The list by which fbconfigs were looked for, for the n-th visual.
    std::vector<int> list(size_t n) const { return gl.callsOf("glXChooseFBConfig").at(2 * n).list; }

    std::pair<int, int> getConfig(VisualID id, int attribute) const {
        XVisualInfo visual = visualInfo(id);
        int value = -1;
        const int result = kor_glXGetConfig(app, &visual, attribute, &value);
        return {result, value};
    }

    /// Holds a block against the numbers it was filled from. What is -1 there has not been asked.
    static void expectFields(const VisualAttribs& visual, std::map<int, int> numbers) {
        for (const auto* attributes : {&plainAttributes, &colourAttributes, &indexAttributes})
            for (const Attribute& attribute : *attributes) {
                const int number = numbers.at(attribute.number);
                EXPECT_EQ(visual.*attribute.field, number == -1 ? 0 : number) << attribute.name;
            }
        EXPECT_EQ(visual.useGL, 1);
        EXPECT_EQ(visual.transparentType, numbers.at(GLX_TRANSPARENT_TYPE));
    }
};

} // namespace

TEST_F(VisualAttributes, EachGoesIntoItsOwnField) {
    offerStereo();
    supportMultisamplingEverywhere();
    const auto appRgb = numbered(20, GLX_TRANSPARENT_RGB);
    const auto localRgb = numbered(60, GLX_TRANSPARENT_RGB);
    auto appIndex = numbered(100, GLX_TRANSPARENT_INDEX);
    appIndex[GLX_DOUBLEBUFFER] = 0;
    const auto localIndex = numbered(140, GLX_TRANSPARENT_INDEX);
    appScript.visuals[doubleVisual].attributes = appRgb;
    appScript.visuals[singleVisual].attributes = appIndex;
    localScript.visuals[localDoubleVisual].attributes = localRgb;
    localScript.visuals[localSingleVisual].attributes = localIndex;
    useScripts();
    start();
    const LocalVisualInfo* rgb = lookUp(doubleVisual);
    const LocalVisualInfo* index = lookUp(singleVisual);
    ASSERT_NE(rgb, nullptr);
    ASSERT_NE(index, nullptr);
    expectFields(rgb->appVisual, appRgb);
    expectFields(rgb->localVisual, localRgb);
    expectFields(index->appVisual, appIndex);
    expectFields(index->localVisual, localIndex);
}

TEST_F(VisualAttributes, TheXVisualsOwnAreCopied) {
    localScript.visuals[localDoubleVisual].depth = 23;
    localScript.visuals[localDoubleVisual].visualClass = DirectColor;
    useScripts();
    start();
    ASSERT_NE(lookUp(doubleVisual), nullptr);
    const VisualAttribs& visual = lookUp(doubleVisual)->appVisual;
    const XVisualInfo x = visualInfo(doubleVisual);
    EXPECT_EQ(static_cast<VisualID>(visual.visualId), x.visualid);
    EXPECT_EQ(visual.visualClass, x.c_class);
    EXPECT_EQ(visual.depth, x.depth);
    EXPECT_EQ(static_cast<unsigned long>(visual.redMask), x.red_mask);
    EXPECT_EQ(static_cast<unsigned long>(visual.greenMask), x.green_mask);
    EXPECT_EQ(static_cast<unsigned long>(visual.blueMask), x.blue_mask);
    EXPECT_EQ(visual.colormapSize, x.colormap_size);
    EXPECT_EQ(visual.bitsPerRgb, x.bits_per_rgb);
    const VisualAttribs& local = lookUp(doubleVisual)->localVisual;
    EXPECT_EQ(local.visualClass, DirectColor);
    EXPECT_EQ(local.depth, 23);
}

TEST_F(VisualAttributes, TheListHoldsEachWithItsField) {
    offerStereo();
    supportMultisamplingEverywhere();
    auto numbers = numbered(20, GLX_TRANSPARENT_RGB);
    appScript.visuals[doubleVisual].attributes = numbers;
    useScripts();
    start();
    lookUp(doubleVisual);
    std::vector<int> expected;
    const auto add = [&](int attribute, int value) {
        expected.push_back(attribute);
        expected.push_back(value);
    };
    for (const int attribute : {GLX_BUFFER_SIZE, GLX_LEVEL})
        add(attribute, numbers[attribute]);
    add(GLX_RENDER_TYPE, GLX_RGBA_BIT);
    // Yes or no, whatever the visual's numbers are.
    add(GLX_DOUBLEBUFFER, 1);
    add(GLX_STEREO, 1);
    for (const int attribute :
         {GLX_AUX_BUFFERS, GLX_RED_SIZE, GLX_GREEN_SIZE, GLX_BLUE_SIZE, GLX_ALPHA_SIZE,
          GLX_DEPTH_SIZE, GLX_STENCIL_SIZE, GLX_ACCUM_RED_SIZE, GLX_ACCUM_GREEN_SIZE,
          GLX_ACCUM_BLUE_SIZE, GLX_ACCUM_ALPHA_SIZE, GLX_TRANSPARENT_TYPE,
          GLX_TRANSPARENT_RED_VALUE, GLX_TRANSPARENT_GREEN_VALUE, GLX_TRANSPARENT_BLUE_VALUE,
          GLX_TRANSPARENT_ALPHA_VALUE, GLX_SAMPLE_BUFFERS, GLX_SAMPLES})
        add(attribute, numbers[attribute]);
    EXPECT_EQ(list(0), expected);
}

TEST_F(VisualAttributes, TheListHoldsTheTransparentIndex) {
    auto& attributes = appScript.visuals[doubleVisual].attributes;
    attributes[GLX_TRANSPARENT_TYPE] = GLX_TRANSPARENT_INDEX;
    attributes[GLX_TRANSPARENT_INDEX_VALUE] = 77;
    attributes[GLX_TRANSPARENT_RED_VALUE] = 5;
    useScripts();
    start();
    lookUp(doubleVisual);
    const std::vector<int> words = list(0);
    ASSERT_EQ(words.size(), 36U);
    EXPECT_THAT(
        std::vector<int>(words.begin() + 32, words.end()),
        ElementsAre(GLX_TRANSPARENT_TYPE, GLX_TRANSPARENT_INDEX, GLX_TRANSPARENT_INDEX_VALUE, 77));
}

TEST_F(VisualAttributes, SamplesWithoutASampleBufferAreNotInTheList) {
    supportMultisamplingEverywhere();
    auto& attributes = appScript.visuals[doubleVisual].attributes;
    attributes[GLX_SAMPLES] = 4;
    attributes[GLX_SAMPLE_BUFFERS] = 0;
    useScripts();
    start();
    ASSERT_NE(lookUp(doubleVisual), nullptr);
    EXPECT_EQ(lookUp(doubleVisual)->appVisual.samples, 4);
    const std::vector<int> words = list(0);
    EXPECT_EQ(words.size(), 32U);
    EXPECT_THAT(words, Not(Contains(GLX_SAMPLES)));
}

TEST_F(VisualAttributes, GetConfigAnswersAndNamesEach) {
    offerStereo();
    supportMultisamplingEverywhere();
    for (const auto& [id, localId] :
         {std::pair(doubleVisual, localDoubleVisual), std::pair(singleVisual, localSingleVisual)}) {
        appScript.visuals[id].attributes[GLX_STEREO] = 1;
        localScript.visuals[localId].attributes =
            numbered(20, id == doubleVisual ? GLX_TRANSPARENT_RGB : GLX_TRANSPARENT_INDEX);
    }
    useScripts();
    start();
    const auto expectAnswer = [&](VisualID id, VisualID localId, int attribute, const char* name) {
        const int value = localScript.visuals[localId].attributes[attribute];
        EXPECT_EQ(getConfig(id, attribute), std::pair(0, value)) << name;
        EXPECT_EQ(sayings("kor_glXGetConfig").back(),
                  format("%lx %s val %x", id, name, static_cast<unsigned>(value)));
    };
    for (const auto* attributes : {&plainAttributes, &colourAttributes})
        for (const Attribute& attribute : *attributes)
            expectAnswer(doubleVisual, localDoubleVisual, attribute.number, attribute.name);
    for (const Attribute& attribute : indexAttributes)
        expectAnswer(singleVisual, localSingleVisual, attribute.number, attribute.name);
    for (const auto& [attribute, name] : {std::pair(GLX_USE_GL, "GLX_USE_GL"),
                                          std::pair(GLX_TRANSPARENT_TYPE, "GLX_TRANSPARENT_TYPE")})
        expectAnswer(doubleVisual, localDoubleVisual, attribute, name);
}

TEST_F(VisualAttributes, SamplesAreZeroWhereMultisamplingIsNotUsed) {
    localScript.extensions = "GLX_ARB_multisample"; // but the setting is 0
    for (const VisualID id : {doubleVisual, singleVisual}) {
        auto& attributes = appScript.visuals[id].attributes; // and the application display lacks it
        attributes[GLX_SAMPLE_BUFFERS] = 1;
        attributes[GLX_SAMPLES] = 4;
    }
    localScript.visuals[localDoubleVisual].attributes[GLX_SAMPLE_BUFFERS] = 1;
    localScript.visuals[localDoubleVisual].attributes[GLX_SAMPLES] = 4;
    useScripts();
    start();
    EXPECT_EQ(getConfig(doubleVisual, GLX_SAMPLES), std::pair(0, 0));
    EXPECT_EQ(getConfig(doubleVisual, GLX_SAMPLE_BUFFERS), std::pair(0, 0));
    ASSERT_NE(lookUp(doubleVisual), nullptr);
    EXPECT_EQ(lookUp(doubleVisual)->appVisual.samples, 0);
    EXPECT_EQ(lookUp(doubleVisual)->appVisual.sampleBuffers, 0);
    for (const fake::Call& call : gl.callsOf("glXGetConfig")) {
        EXPECT_NE(call.arguments[2], static_cast<fake::Word>(GLX_SAMPLES)) << call.text;
        EXPECT_NE(call.arguments[2], static_cast<fake::Word>(GLX_SAMPLE_BUFFERS)) << call.text;
    }
}

TEST_F(VisualAttributes, AVisualOfAnotherKindOfGlIsKeptButAskedNothing) {
    appScript.visuals[doubleVisual].attributes[GLX_USE_GL] = 2;
    useScripts();
    start();
    const LocalVisualInfo* mapping = lookUp(doubleVisual);
    size_t asked = 0;
    for (const fake::Call& call : gl.callsOf("glXGetConfig"))
        asked += call.text.find(format("(app, visual 0x%lx,", doubleVisual)) != std::string::npos;
    EXPECT_EQ(asked, 1U);
    EXPECT_TRUE(said('I', "initializeVisualMap", format("adding id %lx (0)", doubleVisual)));
    ASSERT_NE(mapping, nullptr);
    EXPECT_FALSE(mapping->doubleBuffered);
    EXPECT_EQ(mapping->appVisual.useGL, 2);
    EXPECT_EQ(mapping->appVisual.redSize, 0);
}
