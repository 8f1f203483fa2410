// What every entry point says first: it is by these lines that a log is read.

#include "displays.h"

#include "core/tsd.h"

#include <map>
#include <thread>

namespace {

struct EntryPoint {
    const char* name;
    void (*callWithZeros)();
};

template <auto entryPoint> struct WithZeros;
template <typename Result, typename... Arguments, Result (*entryPoint)(Arguments...)>
struct WithZeros<entryPoint> {
    static void call() { entryPoint(Arguments{}...); }
};

constexpr EntryPoint entryPoints[] = {
#define KOR_ENTRY(name) {#name, WithZeros<&kor_##name>::call},
#include "core/entry_points.def"
#undef KOR_ENTRY
};

/// Those that say something else than "START" when all their arguments are zero. Three say nothing
/// before they have looked at an argument.
const std::map<std::string, std::string> otherLines = {
    {"glXCreateContext", "nothing"},
    {"glXCreateContextAttribsARB", "fbconfig 0"},
    {"glXCreateGLXPixmap", "nothing"},
    {"glXCreateNewContext", "fbconfig 0, render type 0"},
    {"glXCreatePixmap", "fbconfig 0"},
    {"glXCreatePbuffer", "fbconfig 0"},
    {"glXCreateGLXPbufferSGIX", "fbconfig 0"},
    {"glXFreeContextEXT", "nothing"},
    {"glXMakeCurrent", "drawable: 0, context: 0"},
    {"glXMakeContextCurrent", "drawable: 0, read drawable 0, context: 0"},
    {"glXSwapBuffers", "drawable 0"},
    {"glXUseXFont", "Font 0, [0, 0], base: 0"},
    {"glXGetClientString", "querying 0"},
    {"glXQueryServerString", "querying 0"},
    {"glXGetProcAddress", "procname: "},
    {"glRenderMode", "mode: UNKNOWN (0x0)"},
    {"glViewport", "0 0 0 0"},
};

class EntryLines : public Library {};

} // namespace

TEST_F(EntryLines, EveryEntryPointTellsThatItWasCalled) {
    start();
    for (const EntryPoint& entryPoint : entryPoints) {
        markLog();
        entryPoint.callWithZeros();
        const std::vector<std::string> said = sayings(std::string("kor_") + entryPoint.name);
        const auto other = otherLines.find(entryPoint.name);
        const std::string expected = other != otherLines.end() ? other->second : "START";
        EXPECT_EQ(said.empty() ? "nothing" : said[0], expected) << entryPoint.name;
    }
}

namespace {

class EntryLinesOfDisplays : public Displays {};

template <typename Result, typename... Arguments>
void callWith(Display* display, Result (*entryPoint)(Display*, Arguments...)) {
    entryPoint(display, Arguments{}...);
}

} // namespace

TEST_F(EntryLinesOfDisplays, TheEntryPointSpeaksBeforeWhatItCalls) {
    start();
    const Window window = makeWindow(20, 20);
    const auto expectFirst = [&](const char* name, auto call) {
        markLog();
        std::thread(call).join(); // which has no display yet
        ASSERT_GT(log().size(), 1U) << name;
        EXPECT_NE(log()[0].function.find(name), std::string::npos) << log()[0].text();
        EXPECT_EQ(log()[0].message, "START");
    };
    expectFirst("kor_glXCreateWindow",
                [&] { kor_glXCreateWindow(app, config("double1"), window, nullptr); });
    expectFirst("kor_glXDestroyWindow", [&] { kor_glXDestroyWindow(app, window); });
}

TEST_F(EntryLinesOfDisplays, WhatIsNotSupportedStillSetsTheDisplayUp) {
    start();
    const auto expectSetUp = [&](const char* name, auto entryPoint) {
        std::thread([&] {
            callWith(app, entryPoint);
            EXPECT_EQ(getTSD()->appDisplay, app) << name;
            EXPECT_NE(getTSD()->appDisplay2, nullptr) << name;
        }).join();
    };
    expectSetUp("QueryContextInfoEXT", kor_glXQueryContextInfoEXT);
    expectSetUp("QueryChannelRectSGIX", kor_glXQueryChannelRectSGIX);
    expectSetUp("QueryChannelDeltasSGIX", kor_glXQueryChannelDeltasSGIX);
    expectSetUp("ImportContextEXT", kor_glXImportContextEXT);
    expectSetUp("ChannelRectSyncSGIX", kor_glXChannelRectSyncSGIX);
    expectSetUp("ChannelRectSGIX", kor_glXChannelRectSGIX);
    expectSetUp("FreeContextEXT", kor_glXFreeContextEXT);
    expectSetUp("GetSelectedEvent", kor_glXGetSelectedEvent);
    expectSetUp("SelectEvent", kor_glXSelectEvent);
    expectSetUp("GetSelectedEventSGIX", kor_glXGetSelectedEventSGIX);
    expectSetUp("SelectEventSGIX", kor_glXSelectEventSGIX);
}
