// The records of windows and the pbuffers that stand in for them.

#include "displays.h"

#include "core/tsd.h"
#include "drawable/registry.h"

#include <thread>

using kor::gl::DrawableInfo;
using kor::gl::DrawableRef;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Drawables : public Displays {
  protected:
    void begin() {
        start();
        context = makeContext("ctx");
        ASSERT_NE(context, nullptr);
    }

    DrawableRef recordOf(Window window) {
        return getDrawableInfo(app, window, config("double1"), nullptr);
    }

    static size_t registered() {
        const kor::Lock lock(kor::gl::getLocalDrawablesMutex());
        return kor::gl::getLocalDrawablesList().size();
    }

    static std::vector<int> geometry(DrawableInfo& record) {
        kor::IRect rect;
        record.getGeometry(&rect);
        return {rect.x, rect.y, rect.width, rect.height};
    }

    /// The pbuffers made since the record was cleared: "60x40" each.
    std::vector<std::string> pbuffersMade() const {
        std::vector<std::string> sizes;
        for (const fake::Call& call : gl.callsOf("glXCreatePbuffer"))
            sizes.push_back(format("%dx%d", call.list[1], call.list[3]));
        return sizes;
    }

    GLXContext context = nullptr;
};

} // namespace

TEST_F(Drawables, AWindowsRecordIsMadeWithItsPbuffers) {
    begin();
    const Window window = makeWindow(60, 40);
    gl.clearCalls();
    markLog();
    const DrawableRef record = recordOf(window);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->type, kor::gl::WindowDrawable);
    EXPECT_EQ(record->appDrawable, window);
    EXPECT_EQ(record->appDisplay, app);
    EXPECT_EQ(record->fbconfig, config("double1"));
    EXPECT_EQ(record->visualInfo, _getLVI(app, doubleVisual, nullptr));
    EXPECT_EQ(record->getVisualID(), doubleVisual);
    EXPECT_THAT(geometry(*record), ElementsAre(0, 0, 60, 40));
    EXPECT_TRUE(record->isVisible());
    EXPECT_TRUE(record->isDoubleBuffered());
    EXPECT_TRUE(record->getViewportCheckForResize());
    EXPECT_FALSE(record->skipNextSwap);
    EXPECT_EQ(record->lastContext.load(), nullptr);
    EXPECT_EQ(registered(), 1U);
    // The dummy first, then the one that stands in for the window.
    const auto made = gl.callsOf("glXCreatePbuffer");
    ASSERT_EQ(made.size(), 2U);
    EXPECT_THAT(made[0].list, ElementsAre(GLX_PBUFFER_WIDTH, 10, GLX_PBUFFER_HEIGHT, 10,
                                          GLX_PRESERVED_CONTENTS, True));
    EXPECT_THAT(made[1].list, ElementsAre(GLX_PBUFFER_WIDTH, 60, GLX_PBUFFER_HEIGHT, 40,
                                          GLX_PRESERVED_CONTENTS, True));
    EXPECT_EQ(made[1].text.rfind("glXCreatePbuffer(local, double1, ", 0), 0U);
    EXPECT_TRUE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 60x40"));
    EXPECT_TRUE(said('D', "getDrawableInfo",
                     format("new local drawable %lx (1) for app drawable %lx",
                            static_cast<unsigned long>(record->localDrawable.load()), window)));
}

TEST_F(Drawables, TheFirstLookAtAWindowReportsAResize) {
    begin();
    markLog();
    recordOf(makeWindow(60, 40));
    EXPECT_THAT(sayings("updateWindowInfo"),
                ElementsAre("Pbuffer needs update: 1",
                            format("VisualID set to 0x%x", static_cast<unsigned>(doubleVisual))));
}

TEST_F(Drawables, PbuffersOfTheDriverAreMadeUnderTheLocalDisplayLockAlone) {
    begin();
    const Window window = makeWindow(60, 40);
    std::vector<std::vector<std::string>> held;
    gl.onCall("glXCreatePbuffer", [&](const fake::Call&) { held.push_back(heldLocks()); });
    recordOf(window);
    gl.onCall("glXCreatePbuffer", nullptr);
    EXPECT_THAT(held, ElementsAre(ElementsAre("local display"), ElementsAre("local display")));
}

TEST_F(Drawables, ATinyWindowHasAPbufferOfTenByTen) {
    begin();
    gl.clearCalls();
    recordOf(makeWindow(5, 3));
    EXPECT_THAT(pbuffersMade(), ElementsAre("10x10", "10x10"));
    EXPECT_TRUE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 5x3"));
    gl.clearCalls();
    recordOf(makeWindow(9, 300));
    EXPECT_THAT(pbuffersMade(), ElementsAre("10x10", "10x300"));
}

TEST_F(Drawables, AThreadWithoutAContextMakesASpareOne) {
    start();
    const Window window = makeWindow(60, 40);
    markLog();
    ASSERT_TRUE(recordOf(window));
    EXPECT_TRUE(said('D', "getDrawableInfo", "creating throwaway ctx"));
    EXPECT_EQ(gl.callsOf("glXCreateNewContext").back().text,
              format("glXCreateNewContext(local, double1, %d, null, 1)", GLX_RGBA_TYPE));
    EXPECT_NE(getTSD()->throwawayContext, nullptr);
    recordOf(makeWindow(20, 20));
    EXPECT_EQ(timesSaid('D', "getDrawableInfo", "creating throwaway ctx"), 1U);
}

TEST_F(Drawables, AnUnknownWindowHasNoRecord) {
    begin();
    EXPECT_FALSE(recordOf(0x1234567));
    EXPECT_TRUE(
        said('D', "getDrawableInfo", "failed to update window info (appDrawable 1234567)."));
    EXPECT_EQ(registered(), 0U);
}

TEST_F(Drawables, AWindowThatTheApplicationHasNotSentYetIsSentFirst) {
    begin();
    recordOf(makeWindow(20, 20)); // sets the thread up
    const XVisualInfo info = visualInfo(doubleVisual);
    XSetWindowAttributes settings{};
    settings.colormap = XCreateColormap(app, DefaultRootWindow(app), info.visual, AllocNone);
    settings.border_pixel = 0;
    const Window window =
        XCreateWindow(app, DefaultRootWindow(app), 0, 0, 20, 20, 0, info.depth, InputOutput,
                      info.visual, CWColormap | CWBorderPixel, &settings);
    EXPECT_TRUE(recordOf(window));
}

TEST_F(Drawables, AWindowOfAnUnpairedVisualHasNoRecord) {
    begin();
    const Window window = makeWindow(20, 20, lonelyVisual);
    EXPECT_FALSE(recordOf(window));
    EXPECT_TRUE(
        said('D', "getDrawableInfo", format("no lvi for %x", static_cast<unsigned>(lonelyVisual))));
    EXPECT_EQ(registered(), 0U);
    // The half-built record is not freed either.
    for (const std::string& text : logTexts())
        EXPECT_EQ(text.find("Destroying DrawableInfo"), std::string::npos);
}

TEST_F(Drawables, TheSameFbconfigFindsTheRecordAgain) {
    begin();
    const Window window = makeWindow(20, 20);
    const DrawableRef record = recordOf(window);
    EXPECT_EQ(recordOf(window).get(), record.get());
    EXPECT_EQ(registered(), 1U);
}

TEST_F(Drawables, AnotherFbconfigInvalidatesTheRecordAndMakesAFreshOne) {
    begin();
    const Window window = makeWindow(20, 20);
    const DrawableRef old = recordOf(window);
    markLog();
    const DrawableRef fresh = getDrawableInfo(app, window, config("double2"), nullptr);
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh.get(), old.get());
    EXPECT_TRUE(old->invalidatedFbconfig());
    EXPECT_TRUE(said('D', "getDrawableInfo", "Invalidating fbconfig for drawable info"));
    EXPECT_EQ(fresh->fbconfig, config("double2"));
    // The old one went before the new one came.
    EXPECT_TRUE(said('D', "clearDeletedDrawables", format("deleting 0x%lx", window)));
    EXPECT_EQ(findLocalDrawable(window).get(), fresh.get());
    EXPECT_EQ(registered(), 1U);
}

TEST_F(Drawables, ARecordWhoseWindowIsGoneIsNotInvalidated) {
    begin();
    const Window window = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    const DrawableRef record = findLocalDrawable(window);
    destroyWindow(window);
    markLog();
    EXPECT_EQ(getDrawableInfo(app, window, config("double2"), nullptr).get(), record.get());
    EXPECT_TRUE(
        said('D', "getDrawableInfo", "Cannot invalidate fbconfig if the drawable is not valid"));
    EXPECT_FALSE(record->invalidatedFbconfig());
}

TEST_F(Drawables, ARecordNeverMadeCurrentIsCheckedAgainstItsWindow) {
    begin();
    const Window window = makeWindow(20, 20);
    recordOf(window);
    destroyWindow(window);
    markLog();
    EXPECT_FALSE(recordOf(window));
    EXPECT_TRUE(
        said('D', "getDrawableInfo", format("%x was deleted", static_cast<unsigned>(window))));
    EXPECT_EQ(registered(), 0U);
}

TEST_F(Drawables, RecordsOfVanishedWindowsGoWithTheNextNewOne) {
    begin();
    const Window first = makeWindow(20, 20);
    const Window second = makeWindow(20, 20);
    const Window third = makeWindow(20, 20);
    recordOf(first);
    recordOf(second);
    recordOf(third);
    destroyWindow(first);
    destroyWindow(third);
    markLog();
    recordOf(makeWindow(20, 20));
    EXPECT_THAT(sayings("clearDeletedDrawables"),
                ElementsAre(format("deleting 0x%lx", third), format("deleting 0x%lx", first)));
    EXPECT_EQ(registered(), 2U);
}

TEST_F(Drawables, DestroyingAContextClearsVanishedWindowsToo) {
    begin();
    const Window window = makeWindow(20, 20);
    recordOf(window);
    destroyWindow(window);
    kor_glXDestroyContext(app, makeContext("other"));
    EXPECT_EQ(registered(), 0U);
}

TEST_F(Drawables, AMoveAndAResizeAreNoticed) {
    begin();
    const Window window = makeWindow(60, 40);
    const DrawableRef record = recordOf(window);
    XMoveResizeWindow(app, window, 7, 9, 80, 50);
    XSync(app, False);
    bool resized = false;
    bool moved = false;
    bool changed = true;
    markLog();
    EXPECT_TRUE(record->updateWindowInfo(&resized, &moved, &changed));
    EXPECT_TRUE(resized);
    EXPECT_TRUE(moved);
    EXPECT_FALSE(changed);
    EXPECT_THAT(sayings("updateWindowInfo"),
                ElementsAre("Pbuffer needs update: 1", "Moved from (0,0) to (7,9)",
                            "Resized from 60x40 to 80x50"));
    EXPECT_THAT(geometry(*record), ElementsAre(7, 9, 80, 50));
    EXPECT_TRUE(record->updateWindowInfo(&resized, &moved, &changed));
    EXPECT_FALSE(resized);
    EXPECT_FALSE(moved);
}

TEST_F(Drawables, AnUnmappedWindowBecomesHiddenAndVisibleAgain) {
    begin();
    const Window window = makeWindow(60, 40);
    const DrawableRef record = recordOf(window);
    XUnmapWindow(app, window);
    XSync(app, False);
    bool changed = false;
    markLog();
    EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, &changed));
    EXPECT_TRUE(changed);
    EXPECT_FALSE(record->isVisible());
    EXPECT_TRUE(said('D', "updateWindowInfo", "Became hidden"));
    XMapWindow(app, window);
    XSync(app, False);
    EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, &changed));
    EXPECT_TRUE(record->isVisible());
    EXPECT_TRUE(said('D', "updateWindowInfo", "Became visible"));
}

TEST_F(Drawables, WithoutTheVisibilityCheckOnlyTheSizeDecides) {
    set("KOR_GL_ENABLE_VISIBILITY_CHECK", "0");
    begin();
    const DrawableRef record = recordOf(makeWindow(60, 40, 0, false));
    EXPECT_TRUE(record->isVisible());
}

TEST_F(Drawables, WithTheVisibilityCheckAnUnmappedWindowStartsHidden) {
    begin();
    const DrawableRef record = recordOf(makeWindow(60, 40, 0, false));
    EXPECT_FALSE(record->isVisible());
}

TEST_F(Drawables, AThreadThatHasNoDisplayYetCannotRefreshARecord) {
    begin();
    const DrawableRef record = recordOf(makeWindow(20, 20));
    std::thread([&] { EXPECT_FALSE(record->updateWindowInfo(nullptr, nullptr, nullptr)); }).join();
    EXPECT_TRUE(record->updateWindowInfo(nullptr, nullptr, nullptr));
}

TEST_F(Drawables, ARecordWhoseWindowIsGoneCannotBeRefreshed) {
    begin();
    const Window window = makeWindow(60, 40);
    const DrawableRef record = recordOf(window);
    destroyWindow(window);
    bool resized = true;
    EXPECT_FALSE(record->updateWindowInfo(&resized, nullptr, nullptr));
    EXPECT_TRUE(resized); // nothing changed
    EXPECT_THAT(geometry(*record), ElementsAre(0, 0, 60, 40));
    markLog();
    record->checkForResize();
    EXPECT_THAT(sayings("checkForResize"), ElementsAre("START", "failed to update window info"));
}

TEST_F(Drawables, TheFrameRateIsReportedAfterMoreThanFiveSeconds) {
    begin();
    const DrawableRef record = recordOf(makeWindow(20, 20));
    markLog();
    record->incrementFpsCounter(1000);
    record->incrementFpsCounter(3000);
    record->incrementFpsCounter(6000); // 5000 ms are not more than 5000 ms
    EXPECT_THAT(sayings("incrementFpsCounter"), IsEmpty());
    record->incrementFpsCounter(6001);
    EXPECT_THAT(sayings("incrementFpsCounter"),
                ElementsAre("Produced 4 frames in the last 5001 ms: average FPS 0.800"));
    record->incrementFpsCounter(12000);
    EXPECT_THAT(sayings("incrementFpsCounter").back(),
                "Produced 1 frames in the last 5999 ms: average FPS 0.167");
    EXPECT_EQ(log().back().level, 'I');
}

TEST_F(Drawables, ErasingNeedsTheRightType) {
    begin();
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    eraseLocalDrawable(pbuffer, kor::gl::PixmapDrawable);
    EXPECT_TRUE(findLocalDrawable(pbuffer));
    eraseLocalDrawable(pbuffer, kor::gl::PbufferDrawable);
    EXPECT_FALSE(findLocalDrawable(pbuffer));
}

TEST_F(Drawables, ErasingACurrentOneClearsTheThreadsFieldsAndKeepsItsContext) {
    begin();
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    ASSERT_TRUE(kor_glXMakeCurrent(app, pbuffer, context));
    eraseLocalDrawable(pbuffer, kor::gl::PbufferDrawable);
    EXPECT_EQ(getTSD()->currentDrawable, nullptr);
    EXPECT_EQ(getTSD()->currentReadDrawable, nullptr);
    EXPECT_EQ(kor_glXGetCurrentContext(), context);
}
