// What glXChooseVisual and glXChooseFBConfig read from the application's lists, and write of them.

#include "displays.h"
#include "fbconfig_attributes.h"

#include "visual/visual_map.h"

#include <X11/Xutil.h>

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

class VisualRequests : public Displays {
  protected:
    VisualID choose(std::vector<int> list) const {
        list.push_back(None);
        XVisualInfo* visual = kor_glXChooseVisual(app, DefaultScreen(app), list.data());
        const VisualID id = visual != nullptr ? visual->visualid : None;
        if (visual != nullptr)
            XFree(visual);
        return id;
    }

    /// What kor_glXChooseFBConfig says about that list.
    std::vector<std::string> fbconfigRequest(std::vector<int> list) {
        list.push_back(None);
        markLog();
        int count = 0;
        if (GLXFBConfig* configs = kor_glXChooseFBConfig(app, 0, list.data(), &count))
            XFree(configs);
        return sayings("kor_glXChooseFBConfig");
    }
};

} // namespace

TEST_F(VisualRequests, SizesAreComparedSigned) {
    start();
    EXPECT_EQ(choose({GLX_LEVEL, -1}), singleVisual);
    EXPECT_EQ(choose({GLX_STENCIL_SIZE, -1}), singleVisual);
}

TEST_F(VisualRequests, AVisualIsChosenOnTheScreenAskedFor) {
    start();
    int list[] = {GLX_RGBA, None};
    EXPECT_EXIT(kor_glXChooseVisual(app, 99, list), testing::ExitedWithCode(20), "");
}

TEST_F(VisualRequests, AVisualsRequestIsWrittenOut) {
    start();
    choose({GLX_RGBA});
    markLog();
    choose({GLX_DEPTH_SIZE, 100, GLX_TRANSPARENT_INDEX_VALUE, 26, GLX_TRANSPARENT_TYPE, GLX_RGBA});
    const std::vector<std::string> said = sayings("kor_glXChooseVisual");
    ASSERT_GE(said.size(), 5U);
    // Of the transparent type, the word alone: its value is taken for the next attribute.
    EXPECT_THAT(std::vector<std::string>(said.begin(), said.begin() + 5),
                ElementsAre("START", "GLX_DEPTH_SIZE 100", "GLX_TRANSPARENT_INDEX_VALUE 26",
                            "unknown attribute 23", "GLX_RGBA"));
}

TEST_F(VisualRequests, AnFbconfigsRequestIsWrittenOut) {
    const AttributeNames attributes = fbconfigAttributes({{GLX_SAMPLES, "GLX_SAMPLES"}});
    std::vector<int> list;
    std::vector<std::string> expected = {"START"};
    for (const auto& [attribute, name] : attributes) {
        list.push_back(attribute);
        list.push_back(26);
        // The one that is an id is written as ids are.
        expected.push_back(name + (attribute == GLX_FBCONFIG_ID ? " 1a" : " 26"));
    }
    start();
    EXPECT_THAT(fbconfigRequest(list), ElementsAreArray(expected));
}

TEST_F(VisualRequests, OfAnUnknownFbconfigAttributeOnlyTheWordIsSkipped) {
    start();
    // The driver reads pairs: the request's length suits it too.
    EXPECT_THAT(fbconfigRequest({0x7777, GLX_RED_SIZE, 3, GLX_SAMPLE_BUFFERS, GLX_GREEN_SIZE, 4}),
                ElementsAre("START", "unknown attribute 7777", "GLX_RED_SIZE 3",
                            format("unknown attribute %x", GLX_SAMPLE_BUFFERS),
                            "GLX_GREEN_SIZE 4"));
}
