// Before the X headers, whose macros have names of its types.
#include <gtest/gtest.h>

#include "framework/x_server.h"
#include "raw_client.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <memory>

/// GetWindowInfo, asked for in both byte orders about windows made by an ordinary client.

namespace {

using namespace kor::test;

struct Rectangle {
    int x, y, width, height;
    bool operator==(const Rectangle&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Rectangle& it) {
    return stream << it.width << "x" << it.height << "+" << it.x << "+" << it.y;
}

class WindowInfo : public testing::TestWithParam<ByteOrder> {
  protected:
    static constexpr int screenWidth = 600;
    static constexpr int screenHeight = 400;

    static void SetUpTestSuite() {
        XServer::Options options;
        options.width = screenWidth;
        options.height = screenHeight;
        server = std::make_unique<XServer>(options);
    }
    static void TearDownTestSuite() { server.reset(); }

    void SetUp() override {
        display = XOpenDisplay(server->name().c_str());
        ASSERT_NE(display, nullptr);
        client = std::make_unique<RawClient>(server->number(), GetParam());
    }
    void TearDown() override {
        client.reset();
        if (display)
            XCloseDisplay(display); // its windows go with it
    }

    /// A window that no window manager would touch, mapped unless told otherwise.
    Window window(Rectangle place, int border = 0, Window parent = None, bool mapped = true) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = True;
        const Window result =
            XCreateWindow(display, parent ? parent : DefaultRootWindow(display), place.x, place.y,
                          static_cast<unsigned>(place.width), static_cast<unsigned>(place.height),
                          static_cast<unsigned>(border), CopyFromParent, InputOutput,
                          CopyFromParent, CWOverrideRedirect, &attributes);
        if (mapped)
            XMapWindow(display, result);
        return result;
    }

    Answer ask(Window window) {
        XSync(display, False);
        return client->getWindowInfo(static_cast<uint32_t>(window));
    }
    Rectangle place(Window window) {
        const Answer answer = ask(window);
        EXPECT_TRUE(answer.isReply());
        EXPECT_NE(answer.status(), 0);
        return {answer.i32(8), answer.i32(12), answer.i32(16), answer.i32(20)};
    }
    bool visible(Window window) {
        const Answer answer = ask(window);
        EXPECT_NE(answer.status(), 0);
        EXPECT_LE(answer.bytes[28], 1);
        return answer.bytes[28] != 0;
    }

    static std::unique_ptr<XServer> server;
    Display* display = nullptr;
    std::unique_ptr<RawClient> client;
};

std::unique_ptr<XServer> WindowInfo::server;

TEST_P(WindowInfo, EveryField) {
    const Window asked = window({10, 20, 30, 40}, 3);
    const Answer answer = ask(asked);
    ASSERT_EQ(answer.bytes.size(), 32u);
    EXPECT_TRUE(answer.isReply());
    EXPECT_EQ(answer.status(), 1);
    EXPECT_EQ(answer.u32(4), 0u) << "reply length";
    EXPECT_EQ(answer.i32(8), 13) << "x of the inside: the border is 3 wide";
    EXPECT_EQ(answer.i32(12), 23);
    EXPECT_EQ(answer.u32(16), 30u);
    EXPECT_EQ(answer.u32(20), 40u);
    EXPECT_EQ(answer.u32(24), XVisualIDFromVisual(DefaultVisual(display, 0)));
    EXPECT_EQ(answer.bytes[28], 1);
    for (const size_t unused : {29, 30, 31})
        EXPECT_EQ(answer.bytes[unused], 0) << "server memory at offset " << unused;
}

TEST_P(WindowInfo, RootWindow) {
    EXPECT_EQ(place(DefaultRootWindow(display)), (Rectangle{0, 0, screenWidth, screenHeight}));
    EXPECT_TRUE(visible(DefaultRootWindow(display)));
}

TEST_P(WindowInfo, ChildIsPlacedOnTheRootWindow) {
    const Window parent = window({50, 60, 100, 100}, 2);
    const Window child = window({5, 6, 20, 20}, 0, parent);
    const Window grandchild = window({-1, 1, 7, 8}, 0, child);
    EXPECT_EQ(place(child), (Rectangle{57, 68, 20, 20}));
    EXPECT_EQ(place(grandchild), (Rectangle{56, 69, 7, 8}));
    XMoveWindow(display, parent, 0, 0);
    EXPECT_EQ(place(grandchild), (Rectangle{6, 9, 7, 8})) << "after its ancestor has moved";
}

TEST_P(WindowInfo, PositionLeftAndAboveOfTheScreen) {
    EXPECT_EQ(place(window({-20, -10, 100, 100})), (Rectangle{-20, -10, 100, 100}));
}

TEST_P(WindowInfo, MovedAndResized) {
    const Window asked = window({1, 2, 3, 4});
    EXPECT_EQ(place(asked), (Rectangle{1, 2, 3, 4}));
    XMoveResizeWindow(display, asked, 100, 110, 120, 130);
    EXPECT_EQ(place(asked), (Rectangle{100, 110, 120, 130}));
    XResizeWindow(display, asked, 1, 1);
    EXPECT_EQ(place(asked), (Rectangle{100, 110, 1, 1}));
}

TEST_P(WindowInfo, LargestWindow) {
    EXPECT_EQ(place(window({0, 0, 32767, 32767})), (Rectangle{0, 0, 32767, 32767}));
}

TEST_P(WindowInfo, OtherVisual) {
    XVisualInfo wanted{};
    wanted.depth = 24;
    int count = 0;
    XVisualInfo* visuals = XGetVisualInfo(display, VisualDepthMask, &wanted, &count);
    ASSERT_GT(count, 1);
    const XVisualInfo other = visuals[count - 1];
    XFree(visuals);
    ASSERT_NE(other.visualid, XVisualIDFromVisual(DefaultVisual(display, 0)));

    XSetWindowAttributes attributes{};
    attributes.colormap =
        XCreateColormap(display, DefaultRootWindow(display), other.visual, AllocNone);
    const Window asked =
        XCreateWindow(display, DefaultRootWindow(display), 0, 0, 10, 10, 0, other.depth,
                      InputOutput, other.visual, CWColormap, &attributes);
    EXPECT_EQ(ask(asked).u32(24), other.visualid);
}

TEST_P(WindowInfo, UnmappedIsNotVisible) {
    const Window asked = window({10, 10, 20, 20}, 0, None, false);
    EXPECT_FALSE(visible(asked));
    EXPECT_EQ(place(asked), (Rectangle{10, 10, 20, 20})) << "it has a geometry all the same";
    XMapWindow(display, asked);
    EXPECT_TRUE(visible(asked));
    XUnmapWindow(display, asked);
    EXPECT_FALSE(visible(asked));
}

TEST_P(WindowInfo, ChildOfAnUnmappedWindowIsNotVisible) {
    const Window parent = window({10, 10, 50, 50}, 0, None, false);
    const Window child = window({0, 0, 20, 20}, 0, parent);
    EXPECT_FALSE(visible(child));
    XMapWindow(display, parent);
    EXPECT_TRUE(visible(child));
}

TEST_P(WindowInfo, ObscuredByDegrees) {
    const Window asked = window({100, 100, 50, 50});
    EXPECT_TRUE(visible(asked));
    const Window left = window({90, 90, 35, 70});
    EXPECT_TRUE(visible(asked)) << "half of it is covered";
    const Window right = window({125, 90, 24, 70});
    EXPECT_TRUE(visible(asked)) << "one column is left";
    XResizeWindow(display, right, 25, 70);
    EXPECT_FALSE(visible(asked)) << "two windows together cover all of it";
    XRaiseWindow(display, asked);
    EXPECT_TRUE(visible(asked));
    XLowerWindow(display, asked);
    EXPECT_FALSE(visible(asked));
    XUnmapWindow(display, left);
    EXPECT_TRUE(visible(asked));
}

TEST_P(WindowInfo, OwnChildDoesNotObscure) {
    const Window asked = window({100, 100, 50, 50});
    window({0, 0, 50, 50}, 0, asked);
    EXPECT_TRUE(visible(asked));
}

TEST_P(WindowInfo, OutOfSight) {
    EXPECT_FALSE(visible(window({screenWidth, 10, 20, 20}))) << "beside the screen";
    EXPECT_TRUE(visible(window({screenWidth - 1, 10, 20, 20}))) << "one column is on the screen";
    const Window parent = window({10, 10, 50, 50});
    EXPECT_FALSE(visible(window({50, 0, 20, 20}, 0, parent))) << "outside of its parent";
    EXPECT_TRUE(visible(window({49, 0, 20, 20}, 0, parent)));
}

TEST_P(WindowInfo, InputOnlyWindow) {
    const Window asked = XCreateWindow(display, DefaultRootWindow(display), 5, 6, 7, 8, 0, 0,
                                       InputOnly, CopyFromParent, 0, nullptr);
    XMapWindow(display, asked);
    EXPECT_EQ(place(asked), (Rectangle{5, 6, 7, 8}));
    EXPECT_FALSE(visible(asked)) << "there is nothing to be seen of it";
}

/// Everything but the header of such a reply is zero.
void expectUnknown(const Answer& answer) {
    ASSERT_EQ(answer.bytes.size(), 32u);
    EXPECT_TRUE(answer.isReply());
    EXPECT_EQ(answer.status(), 0);
    for (size_t offset = 4; offset < 32; ++offset)
        EXPECT_EQ(answer.bytes[offset], 0) << "at offset " << offset;
}

TEST_P(WindowInfo, UnknownWindow) {
    expectUnknown(ask(0));
    expectUnknown(ask(0x1FFFFFFF));
    expectUnknown(client->getWindowInfo(0xFFFFFFFF));
}

TEST_P(WindowInfo, DestroyedWindow) {
    const Window asked = window({0, 0, 10, 10});
    EXPECT_EQ(ask(asked).status(), 1);
    XDestroyWindow(display, asked);
    expectUnknown(ask(asked));
}

TEST_P(WindowInfo, OtherThingsAreNoWindows) {
    expectUnknown(ask(XCreatePixmap(display, DefaultRootWindow(display), 4, 4, 24)));
    expectUnknown(ask(DefaultColormap(display, 0)));
}

INSTANTIATE_TEST_SUITE_P(Orders, WindowInfo, testing::Values(ByteOrder::Little, ByteOrder::Big),
                         [](const auto& order) {
                             return order.param == ByteOrder::Big ? "BigEndian" : "LittleEndian";
                         });

} // namespace
