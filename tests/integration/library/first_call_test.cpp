// The first call that a thread makes, whichever it is: what it sets up, what it says when there is
// no local display, and what is left of it.

#include "displays.h"

#include "core/tsd.h"
#include "display/displays.h"
#include "visual/visual_map.h"

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <thread>

namespace {

/// The names of the entry points that are given a display.
template <typename Function> constexpr bool takesDisplay = false;
template <typename Result, typename... Arguments>
constexpr bool takesDisplay<Result(Display*, Arguments...)> = true;

std::set<std::string> entryPointsWithADisplay() {
    std::set<std::string> names;
#define KOR_ENTRY(name)                                                                            \
    if (takesDisplay<decltype(::name)>)                                                            \
        names.insert(#name);
#include "core/entry_points.def"
#undef KOR_ENTRY
    return names;
}

/// These answer at once and always the same.
const std::set<std::string> withoutSetUp = {
    "glXBindChannelToWindowSGIX", "glXSendPbufferToVideoNV", "glXReleaseVideoImageNV",
    "glXResetFrameCountNV",       "glXQueryFrameCountNV",    "glXQueryMaxSwapGroupsNV",
    "glXQuerySwapGroupNV",        "glXBindSwapBarrierNV",    "glXJoinSwapGroupNV"};

class FirstCall : public Displays {
  protected:
    /// The entry points that take a display, with arguments that lead each of them to where it
    /// needs the local one.
    std::map<std::string, std::function<void()>> calls() {
        visual = visualInfo(doubleVisual);
        window = makeWindow(20, 20);
        pixmap = XCreatePixmap(app, DefaultRootWindow(app), 8, 8, 24);
        XSync(app, False);
        // None of them gets as far as to look at these where there is no local display.
        fbconfig = config("double1");
        context = reinterpret_cast<GLXContext>(uintptr_t{0x77770});
        return {
            {"glXChooseVisual", [&] { kor_glXChooseVisual(app, 0, list); }},
            {"glXCopyContext", [&] { kor_glXCopyContext(app, context, context, 1); }},
            {"glXCreateContext", [&] { kor_glXCreateContext(app, &visual, nullptr, True); }},
            {"glXCreateContextAttribsARB",
             [&] { kor_glXCreateContextAttribsARB(app, fbconfig, nullptr, True, nullptr); }},
            {"glXCreateGLXPixmap", [&] { kor_glXCreateGLXPixmap(app, &visual, pixmap); }},
            {"glXDestroyContext", [&] { kor_glXDestroyContext(app, context); }},
            {"glXDestroyGLXPixmap", [&] { kor_glXDestroyGLXPixmap(app, 5); }},
            {"glXGetConfig", [&] { kor_glXGetConfig(app, &visual, GLX_RED_SIZE, &value); }},
            {"glXIsDirect", [&] { kor_glXIsDirect(app, context); }},
            {"glXMakeCurrent", [&] { kor_glXMakeCurrent(app, window, context); }},
            {"glXQueryExtension", [&] { kor_glXQueryExtension(app, nullptr, nullptr); }},
            {"glXQueryVersion", [&] { kor_glXQueryVersion(app, &value, &value); }},
            {"glXSwapBuffers", [&] { kor_glXSwapBuffers(app, 5); }},
            {"glXGetClientString", [&] { kor_glXGetClientString(app, GLX_VERSION); }},
            {"glXQueryServerString", [&] { kor_glXQueryServerString(app, 0, GLX_VERSION); }},
            {"glXQueryExtensionsString", [&] { kor_glXQueryExtensionsString(app, 0); }},
            {"glXGetFBConfigs", [&] { kor_glXGetFBConfigs(app, 0, &value); }},
            {"glXChooseFBConfig", [&] { kor_glXChooseFBConfig(app, 0, nullptr, &value); }},
            {"glXGetFBConfigAttrib",
             [&] { kor_glXGetFBConfigAttrib(app, fbconfig, GLX_VISUAL_ID, &value); }},
            {"glXGetVisualFromFBConfig", [&] { kor_glXGetVisualFromFBConfig(app, fbconfig); }},
            {"glXCreateWindow", [&] { kor_glXCreateWindow(app, fbconfig, window, nullptr); }},
            {"glXDestroyWindow", [&] { kor_glXDestroyWindow(app, window); }},
            {"glXCreatePixmap", [&] { kor_glXCreatePixmap(app, fbconfig, pixmap, nullptr); }},
            {"glXDestroyPixmap", [&] { kor_glXDestroyPixmap(app, 5); }},
            {"glXCreatePbuffer", [&] { kor_glXCreatePbuffer(app, fbconfig, nullptr); }},
            {"glXDestroyPbuffer", [&] { kor_glXDestroyPbuffer(app, 5); }},
            {"glXQueryDrawable", [&] { kor_glXQueryDrawable(app, window, GLX_WIDTH, &count); }},
            {"glXCreateNewContext",
             [&] { kor_glXCreateNewContext(app, fbconfig, GLX_RGBA_TYPE, nullptr, True); }},
            {"glXMakeContextCurrent",
             [&] { kor_glXMakeContextCurrent(app, window, window, context); }},
            {"glXQueryContext", [&] { kor_glXQueryContext(app, context, 0, &value); }},
            {"glXSelectEvent", [&] { kor_glXSelectEvent(app, window, 0); }},
            {"glXGetSelectedEvent", [&] { kor_glXGetSelectedEvent(app, window, nullptr); }},
            {"glXGetFBConfigAttribSGIX",
             [&] { kor_glXGetFBConfigAttribSGIX(app, fbconfig, GLX_VISUAL_ID, &value); }},
            {"glXChooseFBConfigSGIX", [&] { kor_glXChooseFBConfigSGIX(app, 0, nullptr, &value); }},
            {"glXCreateGLXPixmapWithConfigSGIX",
             [&] { kor_glXCreateGLXPixmapWithConfigSGIX(app, fbconfig, pixmap); }},
            {"glXCreateContextWithConfigSGIX",
             [&] {
                 kor_glXCreateContextWithConfigSGIX(app, fbconfig, GLX_RGBA_TYPE, nullptr, True);
             }},
            {"glXGetVisualFromFBConfigSGIX",
             [&] { kor_glXGetVisualFromFBConfigSGIX(app, fbconfig); }},
            {"glXGetFBConfigFromVisualSGIX",
             [&] { kor_glXGetFBConfigFromVisualSGIX(app, &visual); }},
            {"glXCreateGLXPbufferSGIX",
             [&] { kor_glXCreateGLXPbufferSGIX(app, fbconfig, 5, 5, nullptr); }},
            {"glXDestroyGLXPbufferSGIX", [&] { kor_glXDestroyGLXPbufferSGIX(app, 5); }},
            {"glXQueryGLXPbufferSGIX",
             [&] { kor_glXQueryGLXPbufferSGIX(app, 5, GLX_WIDTH, &count); }},
            {"glXSelectEventSGIX", [&] { kor_glXSelectEventSGIX(app, window, 0); }},
            {"glXGetSelectedEventSGIX", [&] { kor_glXGetSelectedEventSGIX(app, window, nullptr); }},
            {"glXBindTexImageEXT", [&] { kor_glXBindTexImageEXT(app, 5, 0, nullptr); }},
            {"glXChannelRectSGIX", [&] { kor_glXChannelRectSGIX(app, 0, 0, 0, 0, 0, 0); }},
            {"glXChannelRectSyncSGIX", [&] { kor_glXChannelRectSyncSGIX(app, 0, 0, 0); }},
            {"glXFreeContextEXT", [&] { kor_glXFreeContextEXT(app, context); }},
            {"glXImportContextEXT", [&] { kor_glXImportContextEXT(app, 5); }},
            {"glXQueryChannelDeltasSGIX",
             [&] { kor_glXQueryChannelDeltasSGIX(app, 0, 0, nullptr, nullptr, nullptr, nullptr); }},
            {"glXQueryChannelRectSGIX",
             [&] { kor_glXQueryChannelRectSGIX(app, 0, 0, nullptr, nullptr, nullptr, nullptr); }},
            {"glXQueryContextInfoEXT",
             [&] { kor_glXQueryContextInfoEXT(app, context, 0, nullptr); }},
            {"glXReleaseTexImageEXT", [&] { kor_glXReleaseTexImageEXT(app, 5, 0); }},
        };
    }

    static long descriptors() {
        using Entries = std::filesystem::directory_iterator;
        return std::distance(Entries("/proc/self/fd"), Entries());
    }

    XVisualInfo visual{};
    Window window = None;
    Pixmap pixmap = None;
    GLXFBConfig fbconfig = nullptr;
    GLXContext context = nullptr;
    int list[2] = {GLX_RGBA, None};
    int value = 0;
    unsigned count = 0;
};

} // namespace

TEST_F(FirstCall, SetsTheDisplayUpAndLeavesNothingBehindWhenItsThreadEnds) {
    start();
    const auto all = calls();
    std::set<std::string> expected = entryPointsWithADisplay();
    for (const std::string& name : withoutSetUp)
        expected.erase(name);
    std::set<std::string> listed;
    for (const auto& [name, call] : all)
        listed.insert(name);
    EXPECT_EQ(listed, expected);

    // The map is built and the local connection open: what comes on top is the thread's own.
    initializeVisualMap(app, DefaultScreen(app), nullptr);
    ASSERT_NE(local(), nullptr);
    const long before = descriptors();
    for (const auto& [name, call] : all) {
        markLog();
        std::thread([&] {
            call();
            EXPECT_EQ(getTSD()->appDisplay, app) << name;
            EXPECT_NE(getTSD()->appDisplay2, nullptr) << name;
        }).join();
        EXPECT_EQ(descriptors(), before) << name;
        for (const LogLine& line : log())
            EXPECT_TRUE(line.level != 'E' || line.message == "context not found.")
                << name << ": " << line.text();
    }
}

TEST_F(FirstCall, SaysWhereItNeedsALocalDisplayThatThereIsNone) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    // Those that make a drawable have no word for it, and these have no need of one.
    const std::set<std::string> silent = {
        "glXCreateGLXPixmap", "glXCreatePixmap", "glXCreateGLXPixmapWithConfigSGIX",
        "glXCreatePbuffer", "glXCreateGLXPbufferSGIX", "glXChooseVisual", "glXGetConfig",
        "glXGetFBConfigFromVisualSGIX", "glXCreateWindow", "glXDestroyWindow", "glXDestroyPixmap",
        "glXDestroyGLXPixmap", "glXDestroyPbuffer", "glXDestroyGLXPbufferSGIX",
        // Without a record of the drawable they ask nobody, or the application's server.
        "glXSwapBuffers", "glXQueryDrawable",
        // What is not supported.
        "glXSelectEvent", "glXGetSelectedEvent", "glXSelectEventSGIX", "glXGetSelectedEventSGIX",
        "glXChannelRectSGIX", "glXChannelRectSyncSGIX", "glXFreeContextEXT", "glXImportContextEXT",
        "glXQueryChannelDeltasSGIX", "glXQueryChannelRectSGIX", "glXQueryContextInfoEXT"};
    for (const auto& [name, call] : calls()) {
        markLog();
        std::thread(call).join();
        size_t told = 0;
        for (const LogLine& line : log())
            told += line.level == 'D' && line.message == "no local display" &&
                            line.function.find(" kor_glX") != std::string::npos
                        ? 1
                        : 0;
        EXPECT_EQ(told, silent.count(name) != 0 ? 0U : 1U) << name;
    }
}
