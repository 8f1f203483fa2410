// Application displays and their connections to the local display.

#include "displays.h"

#include "core/tsd.h"
#include "display/connections.h"
#include "display/displays.h"
#include "drawable/registry.h"

#include <filesystem>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DisplayPairing : public Displays {
  protected:
    const std::string setup = "D bool _setupAppDisplay(Display*, kor::gl::TSD*): ";
    const std::string setupError = "E bool _setupAppDisplay(Display*, kor::gl::TSD*): ";
    const std::string localInfo = "I Display* _getLocalDisplay(kor::gl::TSD*): ";
    const std::string localError = "E Display* _getLocalDisplay(kor::gl::TSD*): ";
    const std::string unset = "I void _unsetLocalDisplay(Display*): ";
    const std::string nameError = "E const char* getLocalDisplayName(kor::gl::TSD*): ";

    size_t timesOpened() const {
        size_t times = 0;
        for (const std::string& text : logTexts())
            times += text.find(localInfo + "opened local display") == 0 ? 1 : 0;
        return times;
    }

    /// What a closed local connection says.
    std::string closed(Display* connection) const {
        return unset + format("closed local display %p mapped to %p",
                              static_cast<void*>(connection), static_cast<void*>(app));
    }

    /// A thread works on the application display and ends. Gives its local connection, and how many
    /// connections of the process its end has closed.
    struct Ended {
        Display* local = nullptr;
        long connectionsClosed = 0;
    };
    Ended endThread() const {
        Ended ended;
        long before = 0;
        std::thread([&] {
            _setupAppDisplay(app, nullptr);
            ended.local = local();
            before = openSockets();
        }).join();
        ended.connectionsClosed = before - openSockets();
        return ended;
    }

    static long openSockets() {
        long sockets = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone; // the iterator's own is
            const auto target = std::filesystem::read_symlink(entry.path(), gone);
            sockets += target.string().find("socket:") == 0 ? 1 : 0;
        }
        return sockets;
    }
};

struct Opened {
    Display* display;
    int role;
    pid_t thread;
};
std::vector<Opened> opened;

} // namespace

TEST_F(DisplayPairing, TheFirstCallOpensBothConnectionsAndSaysSo) {
    start();
    markLog();
    EXPECT_TRUE(_setupAppDisplay(app, nullptr));
    kor::gl::TSD* tsd = getTSD();
    EXPECT_EQ(tsd->appDisplay, app);
    ASSERT_NE(tsd->appDisplay2, nullptr);
    EXPECT_NE(tsd->appDisplay2, app);
    EXPECT_STREQ(DisplayString(tsd->appDisplay2), DisplayString(app));
    EXPECT_NE(tsd->extCodes, nullptr);
    EXPECT_STREQ(DisplayString(local()), localName.c_str());
    EXPECT_THAT(
        logTexts(),
        ElementsAre(setup + format("setting TSD appdpy %p", static_cast<void*>(app)),
                    setup + format("KOR ext is enabled on display %s (%p)", DisplayString(app),
                                   static_cast<void*>(tsd->appDisplay2)),
                    localInfo + format("opened local display %s mapped to %p", localName.c_str(),
                                       static_cast<void*>(app))));
}

TEST_F(DisplayPairing, ANullDisplayFailsWithoutAWord) {
    start();
    markLog();
    EXPECT_FALSE(_setupAppDisplay(nullptr, nullptr));
    EXPECT_THAT(logTexts(), IsEmpty());
}

TEST_F(DisplayPairing, WithoutAThreadRecordNothingIsSetUp) {
    EXPECT_FALSE(_setupAppDisplay(app, nullptr));
    EXPECT_EQ(_getLocalDisplay(nullptr), nullptr);
}

TEST_F(DisplayPairing, ASwitchToAnotherDisplayKeepsTheFirstSecondaryConnection) {
    start();
    const kor::test::XServer other({});
    Display* second = XOpenDisplay(other.name().c_str());
    ASSERT_NE(second, nullptr);
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    Display* const connection = getTSD()->appDisplay2;
    markLog();
    EXPECT_TRUE(_setupAppDisplay(second, nullptr));
    EXPECT_EQ(getTSD()->appDisplay, second);
    EXPECT_EQ(getTSD()->appDisplay2, connection);
    EXPECT_THAT(logTexts(),
                ElementsAre(setup + format("switching TSD appdpy from %p to %p",
                                           static_cast<void*>(app), static_cast<void*>(second))));
}

TEST_F(DisplayPairing, WithoutOverrideAThreadKeepsItsFirstDisplay) {
    set("KOR_GL_OVERRIDE_CACHED_DISPLAY", "0");
    start();
    Display* second = XOpenDisplay(appName.c_str());
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    EXPECT_TRUE(_setupAppDisplay(second, nullptr));
    EXPECT_EQ(getTSD()->appDisplay, app);
    EXPECT_TRUE(logged(setup + format("switching TSD appdpy from %p to %p", static_cast<void*>(app),
                                      static_cast<void*>(second))));
}

TEST_F(DisplayPairing, ThreadsOfOneDisplayShareItsLocalConnection) {
    start();
    _setupAppDisplay(app, nullptr);
    Display* other = nullptr;
    std::thread([&] {
        _setupAppDisplay(app, nullptr);
        other = local();
    }).join();
    EXPECT_EQ(other, local());
    EXPECT_EQ(timesOpened(), 1U);
}

TEST_F(DisplayPairing, DifferentDisplaysGetDifferentConnectionsToTheSameName) {
    start();
    Display* second = XOpenDisplay(appName.c_str());
    _setupAppDisplay(app, nullptr);
    Display* const first = local();
    _setupAppDisplay(second, nullptr);
    EXPECT_NE(local(), first);
    EXPECT_STREQ(DisplayString(local()), DisplayString(first));
    EXPECT_EQ(timesOpened(), 2U);
}

TEST_F(DisplayPairing, LocalConnectionsStayOpenByDefault) {
    start();
    EXPECT_EQ(endThread().connectionsClosed, 1) << "the thread's own, to the application display";
    EXPECT_TRUE(logged("D virtual kor::gl::TSD::~TSD(): Closing appdpy2"));
    std::thread([&] {
        GLXContext context = makeContext("ctx");
        ASSERT_NE(context, nullptr);
        kor_glXDestroyContext(app, context);
    }).join();
    EXPECT_EQ(gl.callsOf("glXDestroyContext").size(), 1U);
    EXPECT_THAT(sayings("_unsetLocalDisplay"), IsEmpty());
    _setupAppDisplay(app, nullptr);
    EXPECT_EQ(timesOpened(), 1U);
}

TEST_F(DisplayPairing, TheUnusedLocalConnectionIsClosedWhenTheSettingSaysSo) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    markLog();
    const Ended thread = endThread();
    EXPECT_EQ(thread.connectionsClosed, 2);
    const std::vector<std::string> texts = logTexts();
    ASSERT_GE(texts.size(), 3U);
    const std::string destructor = "D virtual kor::gl::TSD::~TSD(): ";
    EXPECT_THAT(
        std::vector<std::string>(texts.end() - 3, texts.end()),
        ElementsAre(destructor + "START", closed(thread.local), destructor + "Closing appdpy2"));
    _setupAppDisplay(app, nullptr);
    EXPECT_EQ(timesOpened(), 2U);
}

TEST_F(DisplayPairing, AThreadLooksAgainWhenAnotherHasClosedItsLocalConnection) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    _setupAppDisplay(app, nullptr);
    local();
    local();
    EXPECT_EQ(timesOpened(), 1U);
    EXPECT_TRUE(logged(closed(endThread().local)));
    EXPECT_NE(local(), nullptr);
    EXPECT_EQ(timesOpened(), 2U); // the new one may well lie where the old one was
}

TEST_F(DisplayPairing, ContextsOfAnotherDisplayDoNotKeepTheLocalConnection) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    Display* second = XOpenDisplay(appName.c_str());
    ASSERT_NE(second, nullptr);
    ASSERT_NE(kor_glXCreateNewContext(second, config("double1"), GLX_RGBA_TYPE, nullptr, True),
              nullptr);
    EXPECT_TRUE(logged(closed(endThread().local)));
}

TEST_F(DisplayPairing, WindowsOfAnotherDisplayDoNotKeepTheLocalConnection) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    Display* second = XOpenDisplay(appName.c_str());
    ASSERT_NE(second, nullptr);
    const Window window = makeWindow(20, 20);
    GLXContext context =
        kor_glXCreateNewContext(second, config("double1"), GLX_RGBA_TYPE, nullptr, True);
    ASSERT_TRUE(kor_glXMakeCurrent(second, window, context));
    kor_glXMakeCurrent(second, None, nullptr);
    kor_glXDestroyContext(second, context);
    ASSERT_EQ(findLocalDrawable(window)->appDisplay, second);
    EXPECT_TRUE(logged(closed(endThread().local)));
}

TEST_F(DisplayPairing, AContextKeepsTheLocalConnection) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    GLXContext context = makeContext("ctx");
    ASSERT_NE(context, nullptr);
    std::thread([&] { _setupAppDisplay(app, nullptr); }).join();
    for (const std::string& text : logTexts())
        EXPECT_EQ(text.find(unset), std::string::npos) << text;
}

TEST_F(DisplayPairing, TheContextsRecordClosesTheLocalConnectionWithItself) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    GLXContext context = makeContext("ctx");
    Display* const connection = local();
    kor_glXDestroyContext(app, context);
    EXPECT_TRUE(logged(unset + format("closed local display %p mapped to %p",
                                      static_cast<void*>(connection), static_cast<void*>(app))));
}

TEST_F(DisplayPairing, AWindowsRecordKeepsTheLocalConnection) {
    set("KOR_GL_UNSET_LOCAL_DISPLAY", "1");
    start();
    GLXContext context = makeContext("ctx");
    ASSERT_TRUE(kor_glXMakeCurrent(app, makeWindow(20, 20), context));
    kor_glXMakeCurrent(app, None, nullptr);
    kor_glXDestroyContext(app, context);
    for (const std::string& text : logTexts())
        EXPECT_EQ(text.find(unset), std::string::npos) << text;
}

TEST_F(DisplayPairing, TheApplicationsConnectionIsLeftToTheApplication) {
    start();
    const Window window = makeWindow(20, 20);
    const unsigned long before = NextRequest(app);
    ASSERT_TRUE(_setupAppDisplay(app, nullptr));
    ASSERT_NE(local(), nullptr);
    EXPECT_EQ(NextRequest(app), before);

    ASSERT_TRUE(kor_glXMakeCurrent(app, window, makeContext("ctx")));
    const kor::gl::DrawableRef record = findLocalDrawable(window);
    ASSERT_TRUE(record);
    resizeWindow(window, 30, 20);
    const unsigned long made = NextRequest(app);
    bool resized = false;
    EXPECT_TRUE(record->updateWindowInfo(&resized, nullptr, nullptr));
    EXPECT_TRUE(resized);
    EXPECT_EQ(NextRequest(app), made);
}

TEST_F(DisplayPairing, AServerThatIsGoneCannotBeReachedASecondTime) {
    start();
    kor::test::XServer other({});
    Display* second = XOpenDisplay(other.name().c_str());
    ASSERT_NE(second, nullptr);
    other.stop();
    EXPECT_FALSE(_setupAppDisplay(second, nullptr));
    EXPECT_TRUE(logged(setupError + "Cannot open secondary connection to application display."));
    EXPECT_EQ(kor_glXCreateContext(second, nullptr, nullptr, True), nullptr);
}

TEST_F(DisplayPairing, AServerWithoutTheExtensionEndsTheProcess) {
    start();
    Display* plain = XOpenDisplay(localName.c_str());
    EXPECT_EXIT(_setupAppDisplay(plain, nullptr), testing::ExitedWithCode(20), "");
    EXPECT_TRUE(logged(setupError +
                       format("You should install Xkor to use KOR (KOR-V1 extension not found on "
                              "%s).",
                              DisplayString(plain))));
}

TEST_F(DisplayPairing, TheApplicationsOwnServerIsRefusedAsLocalDisplayAgainAndAgain) {
    set("KOR_GL_DISPLAY", appName.c_str());
    start();
    for (size_t i = 1; i <= 2; ++i) {
        EXPECT_FALSE(_setupAppDisplay(app, nullptr));
        EXPECT_EQ(timesLogged(setupError + "Local display is the same as the application display."),
                  i);
    }
    EXPECT_EQ(makeContext("ctx"), nullptr);
    EXPECT_EQ(kor_glXCreateWindow(app, config("double1"), 5, nullptr), None);
}

TEST_F(DisplayPairing, TheServerIsAskedForTheNameWhenNoSettingGivesIt) {
    unsetenv("KOR_GL_DISPLAY");
    const kor::test::XServer told({.glDisplay = localName, .arguments = {}});
    start();
    Display* second = XOpenDisplay(told.name().c_str());
    EXPECT_TRUE(_setupAppDisplay(second, nullptr));
    EXPECT_TRUE(logged(localInfo + format("opened local display %s mapped to %p", localName.c_str(),
                                          static_cast<void*>(second))));
}

TEST_F(DisplayPairing, WithoutAnyNameTheDefaultDisplayIsUsed) {
    unsetenv("KOR_GL_DISPLAY");
    start();
    _setupAppDisplay(app, nullptr);
    EXPECT_EQ(timesLogged(nameError + "The local 3D accelerated X display is not specified. Using "
                                      "default display (:0.0)."),
              1U);
    // Whether there is such a display depends on the machine.
    EXPECT_TRUE(logged(localInfo +
                       format("opened local display :0.0 mapped to %p", static_cast<void*>(app))) ||
                logged(localError + "Cannot open connection to local display :0.0."));
}

TEST_F(DisplayPairing, AnUnreachableLocalDisplayFailsTheEntryPoints) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_TRUE(_setupAppDisplay(app, nullptr));
    EXPECT_EQ(local(), nullptr);
    EXPECT_TRUE(logged(localError + "Cannot open connection to local display :4711."));
    EXPECT_EQ(makeContext("ctx"), nullptr);
    EXPECT_TRUE(said('D', "kor_glXCreateNewContext", "no local display"));
    int value = 0;
    EXPECT_EQ(kor_glXQueryContext(app, nullptr, 0, &value), -1);
}

TEST_F(DisplayPairing, WithoutAnApplicationDisplayEachCallOpensAConnectionOfItsOwn) {
    start();
    ASSERT_NE(getTSD(), nullptr);
    markLog();
    Display* first = _getLocalDisplay(nullptr);
    ASSERT_NE(first, nullptr);
    const std::string text = localError + "appdpy not found for current thread";
    EXPECT_THAT(logTexts(), ElementsAre(text, text));
    Display* second = _getLocalDisplay(nullptr);
    EXPECT_NE(second, first);
}

TEST_F(DisplayPairing, TheConnectionHookSeesEachConnectionOnItsThread) {
    opened.clear();
    kor_set_connection_hook([](Display* display, int role) {
        opened.push_back({display, role, gettid()});
        return display;
    });
    start();
    _setupAppDisplay(app, nullptr);
    kor_set_connection_hook(nullptr);
    ASSERT_EQ(opened.size(), 2U);
    EXPECT_EQ(opened[0].role, kor::gl::SecondaryConnection);
    EXPECT_EQ(opened[0].display, getTSD()->appDisplay2);
    EXPECT_EQ(opened[1].role, kor::gl::LocalConnection);
    EXPECT_EQ(opened[1].display, local());
    EXPECT_EQ(opened[1].thread, gettid());
}
