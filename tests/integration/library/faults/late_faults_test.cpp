// What fails only when most has succeeded: the local connection of a second application display,
// and the memory for an answer.

#include "displays.h"
#include "interposed.h"

#include "display/connections.h"
#include "drawable/registry.h"

#include <cstring>
#include <thread>

namespace {

class LateFaults : public Displays {
  protected:
    static size_t registered() {
        const kor::Lock lock(kor::gl::getLocalDrawablesMutex());
        return kor::gl::getLocalDrawablesList().size();
    }
};

/// From the thread's own connection to its server on, no display can be opened.
Display* refuseAfterSecondary(Display* display, int role) {
    if (role == kor::gl::SecondaryConnection)
        kor::test::openDisplay.arm(1000);
    return display;
}

} // namespace

TEST_F(LateFaults, WithoutALocalConnectionOfItsOwnADisplaysWindowHasNoRecord) {
    start();
    const Window window = makeWindow(20, 20);
    const Window second = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx"))); // builds the visual map
    letPaintsArrive();
    Display* other = XOpenDisplay(appName.c_str());
    ASSERT_NE(other, nullptr);
    kor_set_connection_hook(refuseAfterSecondary);
    markLog();
    std::thread([&] {
        EXPECT_FALSE(getDrawableInfo(other, second, config("double1"), nullptr));
    }).join();
    kor_set_connection_hook(nullptr);
    kor::test::openDisplay.arm(0);
    EXPECT_TRUE(said('D', "getDrawableInfo", "creating throwaway ctx"));
    EXPECT_EQ(registered(), 1U);
    // Tried when the thread was set up and for the spare context, and not once more to free the
    // half-built record, which is left as it is.
    EXPECT_EQ(timesSaid('E', "_getLocalDisplay",
                        "Cannot open connection to local display " + localName + "."),
              2U);
    XCloseDisplay(other);
}

TEST_F(LateFaults, WithoutALocalConnectionOfItsOwnADisplayIsToldThatADrawableHasNothing) {
    start();
    const Window window = makeWindow(20, 20);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double1"), nullptr);
    letPaintsArrive();
    Display* other = XOpenDisplay(appName.c_str());
    ASSERT_NE(other, nullptr);
    kor_set_connection_hook(refuseAfterSecondary);
    std::thread([&] {
        for (const GLXDrawable drawable : {GLXDrawable{window}, GLXDrawable{pbuffer}}) {
            unsigned value = 7;
            kor_glXQueryDrawable(other, drawable, GLX_WIDTH, &value);
            EXPECT_EQ(value, 0U);
        }
    }).join();
    kor_set_connection_hook(nullptr);
    kor::test::openDisplay.arm(0);
    EXPECT_TRUE(said('D', "kor_glXQueryDrawable", "querying GLX_WIDTH"));
    EXPECT_TRUE(gl.callsOf("glXQueryDrawable").empty());
    XCloseDisplay(other);
}

TEST_F(LateFaults, WithoutMemoryForTheExtensionStringThereIsNoneUntilItIsAskedForAgain) {
    localScript.extensions =
        "GLX_ARB_multisample GLX_EXT_visual_rating GLX_EXT_texture_from_pixmap";
    useScripts();
    start();
    kor::test::failingAllocation = localScript.extensions.size() + 1 + strlen(" GLX_TESSERA_kor");
    EXPECT_EQ(kor_glXQueryExtensionsString(app, 0), nullptr);
    kor::test::failingAllocation = 0;
    EXPECT_STREQ(kor_glXQueryExtensionsString(app, 0),
                 "GLX_ARB_multisample GLX_EXT_visual_rating GLX_EXT_texture_from_pixmap "
                 "GLX_TESSERA_kor");
}
