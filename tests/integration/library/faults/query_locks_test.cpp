// Which locks the entry points take that only ask, or make a drawable, and in which order.

#include "lock_trace.h"

#include "display/displays.h"
#include "visual/visual_map.h"

using testing::ElementsAre;

namespace {

class QueryLocks : public LockTrace {
  protected:
    /// The library, its visual map built.
    void begin() {
        start();
        ASSERT_TRUE(_setupAppDisplay(app, nullptr));
        ASSERT_NE(_getLVI(app, doubleVisual, nullptr), nullptr);
    }

    /// The locks that a call takes on this thread.
    std::vector<std::string> takenBy(const std::function<void()>& call) {
        trace();
        call();
        endTrace();
        return taken(gettid());
    }
};

} // namespace

TEST_F(QueryLocks, ChoosingAVisualTakesTheMapsThrice) {
    begin();
    // To see that it is built, to choose, and to look for what was chosen.
    EXPECT_THAT(takenBy([&] {
                    int list[] = {GLX_RGBA, None};
                    XFree(kor_glXChooseVisual(app, DefaultScreen(app), list));
                }),
                ElementsAre("visual map", "visual map", "visual map"));
}

TEST_F(QueryLocks, AVisualsAttributeIsLookedUpUnderTheMaps) {
    begin();
    XVisualInfo visual = visualInfo(doubleVisual);
    EXPECT_THAT(takenBy([&] {
                    int value = 0;
                    kor_glXGetConfig(app, &visual, GLX_RED_SIZE, &value);
                }),
                ElementsAre("visual map", "visual map"));
}

TEST_F(QueryLocks, APbufferIsRegisteredWhenTheLocalDisplaysIsReleased) {
    begin();
    const GLXFBConfig wanted = config("double1");
    // The mapping, the pbuffer, the registry.
    EXPECT_THAT(
        takenBy([&] { kor_glXCreatePbuffer(app, wanted, nullptr); }),
        ElementsAre("visual map", "local display", "visual map", "local display", "drawables"));
    EXPECT_THAT(
        takenBy([&] { kor_glXCreateGLXPbufferSGIX(app, wanted, 5, 5, nullptr); }),
        ElementsAre("visual map", "local display", "visual map", "local display", "drawables"));
}

TEST_F(QueryLocks, APixmapIsRegisteredWhenTheLocalDisplaysIsReleased) {
    begin();
    const GLXFBConfig wanted = config("double1");
    const Pixmap pixmap = XCreatePixmap(app, DefaultRootWindow(app), 8, 8, 24);
    EXPECT_THAT(
        takenBy([&] { kor_glXCreatePixmap(app, wanted, pixmap, nullptr); }),
        ElementsAre("visual map", "local display", "visual map", "local display", "drawables"));
    XVisualInfo visual = visualInfo(doubleVisual);
    EXPECT_THAT(takenBy([&] { kor_glXCreateGLXPixmap(app, &visual, pixmap); }),
                ElementsAre("visual map", "visual map", "local display", "drawables"));
}

TEST_F(QueryLocks, AVisualIdIsTranslatedUnderTheMapsAfterTheQuery) {
    begin();
    const GLXFBConfig queried = config("double1");
    EXPECT_THAT(takenBy([&] {
                    int value = 0;
                    kor_glXGetFBConfigAttrib(app, queried, GLX_VISUAL_ID, &value);
                }),
                ElementsAre("visual map", "local display", "visual map"));
}
