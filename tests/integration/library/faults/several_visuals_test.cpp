// What is taken where Xlib offers several visuals, or those of another screen.

#include "displays.h"
#include "interposed.h"

#include "transport/ximage_painter.h"
#include "visual/visual_map.h"

using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class SeveralVisuals : public Displays {
  protected:
    ~SeveralVisuals() override {
        kor::test::depthsGiven.clear();
        kor::test::visualsOfEveryScreen = false;
    }
};

} // namespace

TEST_F(SeveralVisuals, ThePainterTakesTheFirstOfDepth24) {
    set("KOR_GL_COPYBACK_STRATEGY", "2");
    start();
    const Window window = makeWindow(20, 20);
    kor::gl::XImagePainter painter(window);
    kor::test::depthsGiven = {32, 24, 24, 16};
    ASSERT_TRUE(painter.setup(app, doubleVisual, 20, 20));
    EXPECT_EQ(kor::test::visualOfImage.load(), &kor::test::visualsGiven.at(1));
}

TEST_F(SeveralVisuals, TheApplicationsFbconfigsAreThoseOfTheScreenThatWasAskedFor) {
    start();
    kor::test::visualsOfEveryScreen = true; // there is only one
    initializeVisualMap(app, 1, nullptr);
    std::vector<std::string> texts;
    for (const fake::Call& call : gl.callsOf("glXChooseFBConfig"))
        if (call.text.starts_with("glXChooseFBConfig(app,"))
            texts.push_back(call.text);
    EXPECT_THAT(texts, Not(IsEmpty()));
    EXPECT_THAT(texts, Each(StartsWith("glXChooseFBConfig(app, 1,")));
}
