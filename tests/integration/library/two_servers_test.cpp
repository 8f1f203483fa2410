// Windows of two application displays that bear the same id.

#include "displays.h"

#include "drawable/registry.h"

#include <X11/Xutil.h>
#include <thread>

namespace {

/// A window of that id on another server; servers number the resources of their first client alike.
Window makeWindowOfId(Display* display, Window id, VisualID visual) {
    const Window root = DefaultRootWindow(display);
    XVisualInfo wanted{};
    wanted.visualid = visual;
    int count = 0;
    XVisualInfo* found = XGetVisualInfo(display, VisualIDMask, &wanted, &count);
    if (found == nullptr)
        return None;
    XSetWindowAttributes settings{};
    settings.colormap = XCreateColormap(display, root, found->visual, AllocNone);
    settings.border_pixel = 0;
    while (XCreatePixmap(display, root, 1, 1, 24) + 1 < id) {
    }
    const Window window = XCreateWindow(display, root, 0, 0, 30, 30, 0, 24, InputOutput,
                                        found->visual, CWColormap | CWBorderPixel, &settings);
    XFree(found);
    XMapWindow(display, window);
    XSync(display, False);
    return window;
}

class TwoServers : public Displays {
  protected:
    TwoServers() : other(XOpenDisplay(server.name().c_str())) {
        gl.setDisplay(server.name(), appScript);
        gl.nameDisplay(server.name(), "other");
    }
    ~TwoServers() override { XCloseDisplay(other); }

    kor::test::XServer server{{.width = 100, .height = 100, .glDisplay = {}, .arguments = {}}};
    Display* other;
};

} // namespace

TEST_F(TwoServers, AWindowOfEachHasItsRecordAndTheOneInUseIsFoundByTheIdAlone) {
    start();
    for (int i = 0; i < 8; ++i)
        XCreatePixmap(app, DefaultRootWindow(app), 1, 1, 24); // so that the other needs fewer ids
    const Window window = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    const kor::gl::DrawableRef first = findLocalDrawable(window);
    ASSERT_EQ(makeWindowOfId(other, window, doubleVisual), window);

    std::thread([&] {
        GLXContext context =
            kor_glXCreateNewContext(other, config("double1"), GLX_RGBA_TYPE, nullptr, True);
        ASSERT_TRUE(kor_glXMakeCurrent(other, window, context));
        const kor::gl::DrawableRef second = findLocalDrawable(window);
        EXPECT_NE(second.get(), first.get());
        EXPECT_EQ(second->appDisplay, other);
        kor_glXMakeCurrent(other, None, nullptr);
    }).join();

    ASSERT_NE(findLocalDrawable(window).get(), first.get());
    EXPECT_EQ(getDrawableInfo(app, window, config("double1"), nullptr).get(), first.get());
    EXPECT_EQ(findLocalDrawable(window).get(), first.get());
    EXPECT_FALSE(findWindowRecord(window + 1, app));
}
