// The client of "KOR-V1", against the real server.

#include "displays.h"

#include "display/kor_ext.h"

#include <atomic>
#include <cstdlib>
#include <thread>

namespace {

class Extension : public Displays {
  protected:
    Extension() : codes(XInitExtension(app, "KOR-V1")) {
        if (codes == nullptr)
            abort();
    }

    XExtCodes* codes;
    Bool visible = 7;
    int visual = 0;
    int rect[4] = {-1, -1, -1, -1};
};

} // namespace

TEST_F(Extension, TheApplicationsServerHasItAndOthersDoNot) {
    Bool present = False;
    EXPECT_TRUE(XKorExtQueryExtension(app, &present));
    EXPECT_TRUE(present);
    Display* plain = XOpenDisplay(localName.c_str());
    EXPECT_FALSE(XKorExtQueryExtension(plain, &present));
    EXPECT_FALSE(present);
}

TEST_F(Extension, TellsAWindowsPlaceSizeVisualAndVisibility) {
    const Window window = makeWindow(120, 45);
    XMoveWindow(app, window, 30, 70);
    XSync(app, False);
    EXPECT_TRUE(XKorExtGetWindowInfo(app, codes, window, &visible, &visual, rect));
    EXPECT_EQ(visible, 1);
    EXPECT_THAT(rect, testing::ElementsAre(30, 70, 120, 45));
    EXPECT_EQ(static_cast<VisualID>(visual), doubleVisual);
}

TEST_F(Extension, AnUnmappedWindowIsHidden) {
    const Window window = makeWindow(20, 20, singleVisual, false);
    EXPECT_TRUE(XKorExtGetWindowInfo(app, codes, window, &visible, &visual, rect));
    EXPECT_EQ(visible, 0);
    EXPECT_EQ(static_cast<VisualID>(visual), singleVisual);
}

TEST_F(Extension, VisibilityNeedNotBeAskedFor) {
    EXPECT_TRUE(XKorExtGetWindowInfo(app, codes, makeWindow(33, 44), nullptr, &visual, rect));
    EXPECT_EQ(rect[2], 33);
    EXPECT_EQ(rect[3], 44);
}

TEST_F(Extension, WithoutRoomForTheAnswerNothingIsAsked) {
    const Window window = makeWindow(20, 20);
    const unsigned long before = NextRequest(app);
    EXPECT_FALSE(XKorExtGetWindowInfo(app, codes, window, &visible, nullptr, rect));
    EXPECT_FALSE(XKorExtGetWindowInfo(app, codes, window, &visible, &visual, nullptr));
    EXPECT_FALSE(XKorExtGetGLDisplay(app, codes, nullptr));
    EXPECT_EQ(NextRequest(app), before);
}

TEST_F(Extension, AnUnknownWindowFailsWithoutAnError) {
    EXPECT_FALSE(XKorExtGetWindowInfo(app, codes, 0x1234567, &visible, &visual, rect));
    EXPECT_THAT(xErrors(), testing::IsEmpty());
}

TEST_F(Extension, AnErrorOfAnotherRequestStillReachesTheHandler) {
    const Window window = makeWindow(20, 20);
    XMapWindow(app, 0x1234567); // its error comes just before the answer
    EXPECT_TRUE(XKorExtGetWindowInfo(app, codes, window, &visible, &visual, rect));
    EXPECT_THAT(xErrors(), testing::ElementsAre(BadWindow));
}

TEST_F(Extension, TellsTheNameOfTheGpuDisplay) {
    const kor::test::XServer told({.glDisplay = "somewhere:5.1", .arguments = {}});
    Display* display = XOpenDisplay(told.name().c_str());
    char* name = nullptr;
    EXPECT_TRUE(XKorExtGetGLDisplay(display, XInitExtension(display, "KOR-V1"), &name));
    EXPECT_STREQ(name, "somewhere:5.1");
    free(name);
}

TEST_F(Extension, AServerWithoutAGpuDisplayFailsAndLeavesTheNameAlone) {
    char untouched[] = "mine";
    char* name = untouched;
    EXPECT_FALSE(XKorExtGetGLDisplay(app, codes, &name));
    EXPECT_EQ(name, untouched);
    // The connection is in step afterwards.
    EXPECT_TRUE(XKorExtGetWindowInfo(app, codes, DefaultRootWindow(app), &visible, &visual, rect));
    EXPECT_EQ(rect[2], DisplayWidth(app, 0));
}

TEST_F(Extension, ThreadsOnOneConnectionEachGetTheirOwnAnswer) {
    std::atomic<int> begun{0};
    const auto ask = [&](Window window, int width) {
        ++begun;
        while (begun < 2) // so that they ask at the same time
            std::this_thread::yield();
        int own = 0;
        for (int i = 0; i < 500; ++i) {
            int id = 0;
            int place[4] = {};
            if (XKorExtGetWindowInfo(app, codes, window, nullptr, &id, place) && place[2] == width)
                ++own;
        }
        EXPECT_EQ(own, 500) << width;
    };
    const Window first = makeWindow(31, 20);
    const Window second = makeWindow(57, 20);
    std::thread other([&] { ask(second, 57); });
    ask(first, 31);
    other.join();
}
